#!/usr/bin/env bash
# shellcheck disable=SC2034  # A_CMD, A_IN, B_CMD, B_IN and SAME are read by run() and pair() through namerefs
# pcfg against its peers, as whole processes: protoc --encode/--decode on the same text and binary,
# buf convert when it is installed, and pcfg's JSON load against its text load. Inputs are
# examples/headset.txtpb scaled 1, 10 and 100 times (benchmarks/compare/scale_config.cc), in the
# three forms. Every pair of commands runs alternately (A B A B ...) after one warm-up run of each;
# the table gives medians of wall time, the ratio of the medians, the ratio of median CPU time
# (user + system, less disturbed by other work on a busy machine) and the median peak resident
# set size of each side.
#
#   benchmarks/compare.sh [--build DIR] [--pcfg PATH] [--protoc PATH] [--buf PATH|none]
#                         [--runs N] [--scales "1 10 100"] [--scratch DIR] [--gbench] [--startup]
#
# --build DIR  a build tree to use (default build-release): configured as a Release build with
#              benchmarks if it has no CMakeCache.txt yet; the helpers (and pcfg, unless --pcfg
#              names one) are built there with -j2 before measuring.
# --pcfg PATH  the pcfg binary to measure (default DIR/tools/pcfg/pcfg).
# --protoc     the protoc to compare with (default: protoc on PATH).
# --buf        buf to compare with (default: the native binary of the pinned npm package
#              @bufbuild/buf under node_modules/, else node_modules/.bin/buf); "none" skips it.
#              Nothing is downloaded: without buf the buf rows say "skipped".
# --runs N     timed runs of each side per row (default 11).
# --gbench     also run the Google Benchmark figures (checks, keyed diff and loading at 10,000
#              peripherals) from DIR/benchmarks.
# --startup   also run the library start-up probe (benchmarks/startup) of DIR on the example's
#              binary form. To probe another protobuf runtime, build it in a tree of its own (see
#              docs/performance.md) and run its startup-probe the same way.
# --scales ""  leaves out the whole-process comparisons (with --gbench or --startup).
# Variables BUILD, PCFG, PROTOC, BUF, RUNS, SCALES, SCRATCH, GBENCH=1 and STARTUP=1 do the same.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${BUILD:-$root/build-release}
pcfg=${PCFG:-}
protoc=${PROTOC:-protoc}
buf=${BUF:-}
runs=${RUNS:-11}
scales=${SCALES:-"1 10 100"}
scratch=${SCRATCH:-}
gbench=${GBENCH:-0}
startup=${STARTUP:-0}

usage() { sed -n '3,/^set -euo/p' "${BASH_SOURCE[0]}" | sed '$d; s/^# \{0,1\}//' >&2; exit 2; }
while [ $# -gt 0 ]; do
  case "$1" in
    --build) build=$2; shift 2 ;;
    --pcfg) pcfg=$2; shift 2 ;;
    --protoc) protoc=$2; shift 2 ;;
    --buf) buf=$2; shift 2 ;;
    --runs) runs=$2; shift 2 ;;
    --scales) scales=$2; shift 2 ;;
    --scratch) scratch=$2; shift 2 ;;
    --gbench) gbench=1; shift ;;
    --startup) startup=1; shift ;;
    -h | --help) usage ;;
    *) echo "compare.sh: unknown argument $1" >&2; usage ;;
  esac
done
case "$runs" in '' | *[!0-9]* | 0) echo "compare.sh: --runs needs a positive number" >&2; exit 2 ;; esac

die() { echo "compare.sh: $*" >&2; exit 1; }

# ---- Build what is measured and the helpers ----
build=$(mkdir -p "$build" && cd "$build" && pwd)
if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DPERIPHERALCONFIG_BUILD_BENCHMARKS=ON \
    -DPERIPHERALCONFIG_BUILD_TESTS=OFF >/dev/null
fi
grep -q '^PERIPHERALCONFIG_BUILD_BENCHMARKS:BOOL=ON' "$build/CMakeCache.txt" ||
  die "$build is not configured with -DPERIPHERALCONFIG_BUILD_BENCHMARKS=ON"
grep -q '^CMAKE_BUILD_TYPE:STRING=Release' "$build/CMakeCache.txt" ||
  echo "compare.sh: note: $build is not a Release build; its figures are not comparable" >&2
targets=(scale-config measure-process)
[ -n "$pcfg" ] || targets+=(pcfg)
[ "$gbench" = 1 ] && targets+=(check-benchmark diff-benchmark)
[ "$startup" = 1 ] && targets+=(startup-probe startup-baseline startup-protobuf-baseline)
cmake --build "$build" -j2 --target "${targets[@]}" >/dev/null || die "building ${targets[*]} in $build failed"
scale_config=$build/benchmarks/compare/scale-config
measure=$build/benchmarks/compare/measure-process
[ -n "$pcfg" ] || pcfg=$build/tools/pcfg/pcfg
[ -x "$pcfg" ] || die "no pcfg at $pcfg"
command -v "$protoc" >/dev/null || die "no protoc ($protoc); install Debian's protobuf-compiler (scripts/setup.sh)"

# buf: the pinned npm package's own binary (its JavaScript launcher would add node's start-up).
if [ -z "$buf" ]; then
  case "$(uname -m)" in x86_64) arch=x64 ;; aarch64) arch=arm64 ;; *) arch=$(uname -m) ;; esac
  for candidate in "$root/node_modules/@bufbuild/buf-$(uname -s | tr "[:upper:]" "[:lower:]")-$arch/bin/buf" \
    "$root/node_modules/.bin/buf"; do
    if [ -x "$candidate" ]; then buf=$candidate; break; fi
  done
fi
buf_missing=""
if [ -z "$buf" ] || [ "$buf" = none ]; then
  buf_missing="buf is not installed (npm ci installs the pinned @bufbuild/buf under node_modules/)"
  [ "$buf" = none ] && buf_missing="buf was left out (--buf none)"
elif ! "$buf" --version >/dev/null 2>&1; then
  die "buf at $buf does not run"
elif head -c 2 "$buf" | grep -q '#!'; then
  echo "compare.sh: note: $buf is a script launcher; its start-up counts in buf's times" >&2
fi

if [ -z "$scratch" ]; then
  scratch=$(mktemp -d "${TMPDIR:-/tmp}/pcfg-compare.XXXXXX")
else
  mkdir -p "$scratch"
  scratch=$(cd "$scratch" && pwd)
fi
mkdir -p "$scratch/results"
: >"$scratch/empty"

proto_dir=$root/peripheralconfig/proto
type=Talvo.Peripherals.Config.Models.PeripheralConfig
protoc_args=(-I "$proto_dir" --encode="$type" "$proto_dir/peripheral.config.proto")
protoc_decode_args=(-I "$proto_dir" --decode="$type" "$proto_dir/peripheral.config.proto")

# ---- The machine ----
machine() {
  local cpu cores memory os compiler family model hypervisor
  cpu=$(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -1)
  cores=$(nproc)
  memory=$(awk '/^MemTotal/ { printf "%.1f GiB", $2 / 1048576 }' /proc/meminfo)
  os=$(. /etc/os-release && echo "$PRETTY_NAME")
  compiler=$(sed -n 's/^CMAKE_CXX_COMPILER:[A-Z]*=//p' "$build/CMakeCache.txt")
  family=$(sed -n 's/^cpu family[[:space:]]*: //p' /proc/cpuinfo | head -1)
  model=$(sed -n 's/^model[[:space:]]*: //p' /proc/cpuinfo | head -1)
  hypervisor=$(lscpu 2>/dev/null | sed -n 's/^Hypervisor vendor:[[:space:]]*//p')
  echo "- CPU: $cpu (family $family, model $model)${hypervisor:+, a $hypervisor guest}, $cores cores available; RAM $memory"
  echo "- OS: $os, kernel $(uname -r)"
  echo "- compiler: $("${compiler:-c++}" --version | head -1); build type $(sed -n 's/^CMAKE_BUILD_TYPE:STRING=//p' "$build/CMakeCache.txt")"
  echo "- protobuf: $("$protoc" --version) (protoc), runtime of pcfg: $(ldd "$pcfg" | sed -n 's/.*\(libprotobuf\.so[^ ]*\) => \([^ ]*\).*/\2/p' | xargs -r readlink -f | xargs -r basename)"
  if [ -n "$buf_missing" ]; then echo "- buf: $buf_missing"; else echo "- buf: $("$buf" --version) ($buf)"; fi
  echo "- load average before: $(cut -d' ' -f1-3 /proc/loadavg)"
}

# ---- Measuring ----
median() { sort -g | awk '{ v[NR] = $1 } END { if (NR == 0) print "nan"; else if (NR % 2) print v[(NR + 1) / 2]; else print (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }
column_of() { awk -v c="$2" '{ print $c }' "$1" | median; }

# run SIDE RESULTS: one run of side A or B (A_CMD/A_IN or B_CMD/B_IN), its output kept as out.SIDE.
run() {
  local side=$1 results=$2 status=0
  local -n cmd=${side}_CMD input=${side}_IN
  "$measure" "$results" "${cmd[@]}" <"$input" >"$scratch/out.$side" 2>"$scratch/err.$side" || status=$?
  if [ "$status" -ne 0 ]; then
    echo "compare.sh: exit status $status from: ${cmd[*]} < $input" >&2
    head -20 "$scratch/err.$side" >&2
    exit 1
  fi
}

# pair ID: a warm-up run of each side, then RUNS alternating timed runs.
pair() {
  local id=$1 i
  : >"$scratch/results/$id.a"
  : >"$scratch/results/$id.b"
  run A "$scratch/results/warm-up"
  run B "$scratch/results/warm-up"
  # The commands must do the same work: equal output, when there is a rule to compare it by.
  case "$SAME" in
    bytes) cmp -s "$scratch/out.A" "$scratch/out.B" || die "$id: the two sides wrote different bytes" ;;
    text) diff -q <(grep -v '^#' "$scratch/out.A") <(grep -v '^#' "$scratch/out.B") >/dev/null ||
      die "$id: the two sides printed different text" ;;
    # A's text compiles to B's bytes: laid out, it still means what it meant.
    meaning) "$pcfg" compile --no-check --from text "$scratch/out.A" -o - | cmp -s - "$scratch/out.B" ||
      die "$id: A's text does not compile to B's bytes" ;;
  esac
  for ((i = 0; i < runs; i++)); do
    run A "$scratch/results/$id.a"
    run B "$scratch/results/$id.b"
  done
}

rows=()
kib() { awk -v b="$(stat -c %s "$1")" 'BEGIN { if (b < 1048576) printf "%.0f KiB", b / 1024; else printf "%.1f MiB", b / 1048576 }'; }
# row ID CASE SIZE GOAL_TIME GOAL_MEMORY: a table row from the results of pair ID.
row() {
  local id=$1 case=$2 size=$3 goal_time=$4 goal_memory=$5
  local a=$scratch/results/$id.a b=$scratch/results/$id.b
  local line
  line=$(awk -v ta="$(column_of "$a" 1)" -v tb="$(column_of "$b" 1)" \
    -v ca="$(column_of "$a" 2)" -v cb="$(column_of "$b" 2)" \
    -v ma="$(column_of "$a" 3)" -v mb="$(column_of "$b" 3)" \
    -v gt="$goal_time" -v gm="$goal_memory" -v case="$case" -v size="$size" 'BEGIN {
      goal = ""
      if (gt != "") goal = sprintf("time <= %s: %s", gt, ta / tb <= gt ? "met" : "**not met**")
      if (gm != "") goal = goal (goal == "" ? "" : "; ") sprintf("memory <= %s: %s", gm, ma / mb <= gm ? "met" : "**not met**")
      if (goal == "") goal = "none set"
      printf "| %s | %s | %.1f | %.1f | **%.2f** | %.2f | %.1f | %.1f | %.2f | %s |", case, size, ta * 1000, tb * 1000,
        ta / tb, ca / cb, ma / 1024, mb / 1024, ma / mb, goal
    }')
  rows+=("$line")
}
skipped_row() { rows+=("| $1 | $2 | | | skipped: $3 | | | | | |"); }

echo "# pcfg against its peers, $(date -u '+%Y-%m-%d %H:%M UTC')"
echo
machine
echo "- $runs alternating runs of each side per row after one warm-up; medians; scratch folder $scratch"
echo

for scale in $scales; do
  stem=$scratch/headset-x$scale
  "$scale_config" "$root/examples/headset.txtpb" "$scale" "$stem" >"$scratch/scale.log" ||
    die "scale-config failed: $(cat "$scratch/scale.log")"
  peripherals=$(sed -n 's/.*: \([0-9]*\) peripherals.*/\1/p' "$scratch/scale.log")
  text_size="×$scale, $peripherals peripherals, $(kib "$stem.txtpb") text"
  binary_size="×$scale, $peripherals peripherals, $(kib "$stem.binpb") binary"
  json_size="×$scale, $peripherals peripherals, $(kib "$stem.json") JSON"
  "$pcfg" check "$stem.txtpb" >/dev/null 2>&1 || die "$stem.txtpb does not pass pcfg check"
  echo "measuring ×$scale ($peripherals peripherals) ..." >&2

  A_CMD=("$pcfg" compile "$stem.txtpb" -o -) A_IN=$scratch/empty
  B_CMD=("$protoc" "${protoc_args[@]}") B_IN=$stem.txtpb SAME=bytes
  pair "compile-x$scale"
  row "compile-x$scale" '`pcfg compile` (all checks) / `protoc --encode`' "$text_size" 0.8 1.5

  A_CMD=("$pcfg" compile --no-check "$stem.txtpb" -o -)
  pair "compile-no-check-x$scale"
  row "compile-no-check-x$scale" '`pcfg compile --no-check` / `protoc --encode`' "$text_size" "" 1.5

  A_CMD=("$pcfg" decode "$stem.binpb") A_IN=$scratch/empty
  B_CMD=("$protoc" "${protoc_decode_args[@]}") B_IN=$stem.binpb SAME=text
  pair "decode-x$scale"
  row "decode-x$scale" '`pcfg decode` / `protoc --decode`' "$binary_size" 0.8 1.5

  A_CMD=("$pcfg" compile --no-check "$stem.json" -o -) A_IN=$scratch/empty
  B_CMD=("$pcfg" compile --no-check "$stem.txtpb" -o -) B_IN=$scratch/empty SAME=bytes
  pair "json-text-x$scale"
  row "json-text-x$scale" 'JSON load / text load (`pcfg compile --no-check`)' "$json_size / text" 1.2 ""

  # fmt lays the text out as written and proves the layout; protoc only parses it. The scaled
  # text is canonical, not laid out: fmt has all of its work to do.
  A_CMD=("$pcfg" fmt "$stem.txtpb") A_IN=$scratch/empty
  B_CMD=("$protoc" "${protoc_args[@]}") B_IN=$stem.txtpb SAME=meaning
  pair "fmt-x$scale"
  row "fmt-x$scale" '`pcfg fmt` / `protoc --encode`' "$text_size" 1.0 ""

  if [ -n "$buf_missing" ]; then
    skipped_row '`pcfg compile` (all checks) / `buf convert`' "$text_size" "$buf_missing"
    skipped_row '`pcfg decode` / `buf convert` binary to text' "$binary_size" "$buf_missing"
  else
    # buf compiles the schema from the same .proto files as protoc does. Its wire output orders some
    # fields differently (the same message), so only the exit status is checked.
    A_CMD=("$pcfg" compile "$stem.txtpb" -o -) A_IN=$scratch/empty
    B_CMD=("$buf" convert "$proto_dir" --type "$type" --from "$stem.txtpb#format=txtpb" --to "-#format=binpb")
    B_IN=$scratch/empty SAME=none
    pair "buf-compile-x$scale"
    row "buf-compile-x$scale" '`pcfg compile` (all checks) / `buf convert`' "$text_size" "" ""

    A_CMD=("$pcfg" decode "$stem.binpb")
    B_CMD=("$buf" convert "$proto_dir" --type "$type" --from "$stem.binpb#format=binpb" --to "-#format=txtpb")
    pair "buf-decode-x$scale"
    row "buf-decode-x$scale" '`pcfg decode` / `buf convert` binary to text' "$binary_size" "" ""
  fi
done

if [ ${#rows[@]} -gt 0 ]; then
  echo "| case (pcfg / peer) | input | pcfg ms | peer ms | time ratio | CPU ratio | pcfg MiB | peer MiB | memory ratio | goal |"
  echo "|---|---|---:|---:|---:|---:|---:|---:|---:|---|"
  printf '%s\n' "${rows[@]}"
  echo
  echo "- load average after: $(cut -d' ' -f1-3 /proc/loadavg); raw samples (wall s, CPU s, peak KiB, status) in $scratch/results"
fi

# ---- In-process figures from the Google Benchmark programs ----
if [ "$gbench" = 1 ]; then
  # gbench PROGRAM FILTER: "name label wall-ms cpu-ms" lines, medians of 5 repetitions.
  gbench() {
    "$build/benchmarks/$1" --benchmark_filter="$2" --benchmark_repetitions=5 \
      --benchmark_report_aggregates_only=true --benchmark_format=csv 2>/dev/null |
      awk -F, '$1 ~ /_median"$/ {
        gsub(/"/, ""); sub(/_median$/, "", $1)
        scale = $5 == "ns" ? 1e-6 : $5 == "us" ? 1e-3 : $5 == "s" ? 1e3 : 1
        printf "%s %s %.1f %.1f\n", $1, $8 == "" ? "-" : $8, $3 * scale, $4 * scale }'
  }
  # figure NAME-OR-LABEL COLUMN (3 wall, 4 CPU)
  figure() { awk -v key="$1" -v c="$2" '$1 == key || $2 == key { print $c }' "$scratch/gbench.txt"; }
  verdict() { awk -v v="$1" -v g="$2" 'BEGIN { print (v != "" && v + 0 <= g ? "met" : "**not met**") }'; }
  echo "measuring the Google Benchmark programs ..." >&2
  gbench check-benchmark '^BM_CheckAllRules/10000$|^BM_Load/' >"$scratch/gbench.txt"
  gbench diff-benchmark '^BM_DiffEditedAndShuffled/10000$' >>"$scratch/gbench.txt"
  ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (b > 0) printf "%.2f", a / b }'; }
  check=$(figure BM_CheckAllRules/10000 4)
  keyed_diff=$(figure BM_DiffEditedAndShuffled/10000 4)
  json_text=$(ratio "$(figure json 3)" "$(figure text 3)")
  echo
  echo "In-process, a synthetic configuration of 10,000 peripherals (benchmarks/synthetic_config.h), medians"
  echo "of 5. The checks and the diff run on one thread, so their goals are judged on CPU time, which on an"
  echo "idle machine is the wall time and on a busy one leaves out the waiting for a core. Text and JSON"
  echo "of this size load on two threads, and CPU time counts only the calling one: loads are judged on"
  echo "wall time."
  echo
  echo "| what | wall | CPU | goal |"
  echo "|---|---:|---:|---|"
  echo "| all checks (\`check-benchmark\`, BM_CheckAllRules/10000) | $(figure BM_CheckAllRules/10000 3) ms | $check ms | < 100 ms: $(verdict "$check" 100) |"
  echo "| keyed diff of an edited, shuffled copy (\`diff-benchmark\`, BM_DiffEditedAndShuffled/10000) | $(figure BM_DiffEditedAndShuffled/10000 3) ms | $keyed_diff ms | < 100 ms: $(verdict "$keyed_diff" 100) |"
  for form in binary text json; do
    echo "| load from $form (\`check-benchmark\`, BM_Load) | $(figure $form 3) ms | $(figure $form 4) ms | $([ $form = json ] && echo "JSON / text, wall: $json_text; <= 1.2: $(verdict "$json_text" 1.2)") |"
  done
fi

# ---- Library start-up ----
if [ "$startup" = 1 ]; then
  echo "measuring library start-up ..." >&2
  "$scale_config" "$root/examples/headset.txtpb" 1 "$scratch/headset" >/dev/null || die "scale-config failed"
  probe=$build/benchmarks/startup
  echo
  echo "Library start-up ($(ldd "$probe/startup-probe" | sed -n 's/.*\(libprotobuf\.so[^ ]*\) => \([^ ]*\).*/\2/p' | xargs -r readlink -f)):"
  echo
  "$probe/startup-probe" --runs 61 --baseline "$probe/startup-baseline" --baseline "$probe/startup-protobuf-baseline" \
    "$scratch/headset.binpb" | sed 1,2d
fi
