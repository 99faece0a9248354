#!/usr/bin/env bash
# pcfg on inputs shaped to make a careless implementation slow, big or hungry, at two scales, so
# that the ratio of the two rows shows whether a command's cost grows with its input or faster.
# For each shape and command: wall time, peak resident memory and output size, as whole
# processes (GNU time), with the input's size beside them. Goal: every command on every input
# under 10 MB in under 10 s and 1 GiB, with output under 32 x input + 1 MiB.
#
#   benchmarks/adversarial.sh [PCFG] [SCALE...]     (defaults: build/tools/pcfg/pcfg, 1 4)
#
# Shapes (N = 5,000 x SCALE):
#   dangling   N peripherals in binary, each depending on an id that does not exist: N findings,
#              the last ones at the end of the wire (locating them all)
#   cycles     N/2 two-member dependency cycles among 10 N peripherals (one cycle search each)
#   long-id    one peripheral with an id of 100,000 x SCALE characters that depends on N others
#              (an id repeated per row, edge or path)
#   empty      N x 100 empty entries in each root list (structures per entry)
set -euo pipefail
cd "$(dirname "$0")/.."
pcfg=$(realpath "${1:-build/tools/pcfg/pcfg}")
shift || true
scales=("${@:-1 4}")
read -r -a scales <<<"${scales[*]}"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

make_inputs() {  # SCALE: writes SHAPE-SCALE.txtpb into the scratch folder
  python3 - "$1" "$scratch" <<'EOF'
import sys
scale, out = int(sys.argv[1]), sys.argv[2]
n = 5000 * scale
def write(name, lines):
    with open(f"{out}/{name}-{scale}.txtpb", "w") as f:
        f.write("\n".join(lines) + "\n")
write("dangling", [f'peripherals {{ id: "p{i}" type: PERIPHERAL_TYPE_FPGA dependencies {{ peripheral_id: "gone{i}" }} }}'
                   for i in range(n)])
cycles = []
for i in range(n // 2):
    cycles.append(f'peripherals {{ id: "a{i}" type: PERIPHERAL_TYPE_FPGA dependencies {{ peripheral_id: "b{i}" }} }}')
    cycles.append(f'peripherals {{ id: "b{i}" type: PERIPHERAL_TYPE_FPGA dependencies {{ peripheral_id: "a{i}" }} }}')
cycles += [f'peripherals {{ id: "x{i}" type: PERIPHERAL_TYPE_FPGA }}' for i in range(9 * n)]
write("cycles", cycles)
long_id = "L" * (100000 * scale)
write("long-id", [f'peripherals {{ id: "{long_id}" type: PERIPHERAL_TYPE_FPGA ' +
                  " ".join(f'dependencies {{ peripheral_id: "p{i}" }}' for i in range(n)) + " }"] +
      [f'peripherals {{ id: "p{i}" type: PERIPHERAL_TYPE_FPGA }}' for i in range(n)])
write("empty", ["peripherals {}", "physical_cameras {}", "camera_sets {}", "system_options {}"] * (n * 25))
# Findings located on one very long line, with tabs: columns found by walking the line cost n^2.
with open(f"{out}/one-line-{scale}.txtpb", "w") as f:
    f.write("\t".join(f'peripherals {{ id: "p{i}" type: PERIPHERAL_TYPE_FPGA dependencies {{ peripheral_id: "gone" }} }}'
                      for i in range(4 * n)) + "\n")
EOF
}

measure() {  # LABEL INPUT-BYTES COMMAND...: one row
  local label=$1 input_bytes=$2
  shift 2
  local out=$scratch/out err=$scratch/time status=0
  /usr/bin/time -f "%e %M" -o "$err" "$@" >"$out" 2>/dev/null || status=$?
  read -r seconds kilobytes < <(tail -n 1 "$err")
  printf '| %-34s | %10s | %7s s | %8s MB | %12s | %s |\n' "$label" "$input_bytes" "$seconds" \
    "$((kilobytes / 1024))" "$(stat -c %s "$out")" "$status"
}

echo "| shape x scale, command | input bytes | time | peak memory | output bytes | status |"
echo "|---|---:|---:|---:|---:|---:|"
for scale in "${scales[@]}"; do
  make_inputs "$scale"
  for shape in dangling cycles long-id empty; do
    text=$scratch/$shape-$scale.txtpb binary=$scratch/$shape-$scale.binpb
    "$pcfg" compile --no-check "$text" -o "$binary" 2>/dev/null
    size=$(stat -c %s "$binary")
    measure "$shape x$scale: check (all findings)" "$size" "$pcfg" check --max-diagnostics 0 "$binary"
    measure "$shape x$scale: check --format sarif" "$size" "$pcfg" check --format sarif "$binary"
    measure "$shape x$scale: show" "$size" "$pcfg" show "$binary"
    measure "$shape x$scale: show --format json" "$size" "$pcfg" show --format json "$binary"
    measure "$shape x$scale: graph" "$size" "$pcfg" graph "$binary"
    cp "$binary" "$scratch/other.binpb"
    measure "$shape x$scale: diff against itself" "$size" "$pcfg" diff "$binary" "$scratch/other.binpb"
    measure "$shape x$scale: decode --to json" "$size" "$pcfg" decode "$binary" --to json
  done
  # Text only: where its findings stand on the line.
  text=$scratch/one-line-$scale.txtpb
  measure "one-line x$scale: check (all findings)" "$(stat -c %s "$text")" "$pcfg" check --max-diagnostics 0 "$text"
  measure "one-line x$scale: check --format sarif" "$(stat -c %s "$text")" "$pcfg" check --max-diagnostics 0 --format sarif "$text"
done
