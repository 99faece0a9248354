#!/usr/bin/env bash
# Fuzzes every libFuzzer target of the sanitizer build (ASan, UBSan, leak checking) for a short
# while, FUZZ_JOBS targets at a time. Each target starts from its seed corpus,
# fuzz/corpus/NAME for the target NAME-fuzzer or else the shared fuzz/corpus, copied to a scratch
# folder: new inputs never land in the committed corpus. A crash, a leak, a timeout or running
# out of memory fails the run; the input that did it is saved and its path printed.
#
#   scripts/fuzz-smoke.sh
#
# FUZZ_SECONDS    time per target (60)          FUZZ_JOBS        targets at once (nproc)
# FUZZ_TIMEOUT    seconds one input may take (10)  FUZZ_RSS_MB   memory limit per target (2048)
# FUZZ_OUT        logs, scratch corpora and saved inputs ($SANITIZE_BUILD_DIR/fuzz-smoke)
# The build is scripts/test-sanitizers.sh's ($SANITIZE_BUILD_DIR, default build-sanitize); it is
# configured and brought up to date first (nothing to do when that script just ran).
set -euo pipefail
cd "$(dirname "$0")/.."

build=${SANITIZE_BUILD_DIR:-build-sanitize}
seconds=${FUZZ_SECONDS:-60}
parallel=${FUZZ_JOBS:-$(nproc)}
timeout=${FUZZ_TIMEOUT:-10}
rss_mb=${FUZZ_RSS_MB:-2048}
out=${FUZZ_OUT:-$build/fuzz-smoke}

say() { echo "fuzz-smoke: $*"; }

SANITIZE_BUILD_DIR=$build scripts/test-sanitizers.sh build
symbolizer=$(command -v llvm-symbolizer || true)
export ASAN_OPTIONS="detect_leaks=1:halt_on_error=1:abort_on_error=1:detect_stack_use_after_return=1${symbolizer:+:external_symbolizer_path=$symbolizer}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1${symbolizer:+:external_symbolizer_path=$symbolizer}"

mapfile -t fuzzers < <(find "$build/fuzz" -maxdepth 1 -type f -perm -u+x -name '*-fuzzer' | sort)
if [ ${#fuzzers[@]} -eq 0 ]; then
  echo "fuzz-smoke: no fuzz target (*-fuzzer) in $build/fuzz" >&2
  exit 1
fi

rm -rf "$out"
mkdir -p "$out/corpus" "$out/artifacts"
out=$(cd "$out" && pwd)

# seed_corpus NAME: the committed seed folder of the target NAME-fuzzer, if any.
seed_corpus() {
  local stem=$1 candidate
  for candidate in "fuzz/corpus/$stem" "fuzz/corpus/${stem//-/_}"; do
    if [ -d "$candidate" ]; then
      echo "$candidate"
      return
    fi
  done
  # One corpus for all targets: files directly in fuzz/corpus.
  if [ -n "$(find fuzz/corpus -maxdepth 1 -type f -print -quit 2>/dev/null)" ]; then echo fuzz/corpus; fi
}

# fuzz_one FUZZER: runs it and writes NAME.result ("STATUS EXECUTIONS SEEDS CORPUS").
fuzz_one() {
  local fuzzer=$1 name stem seeds scratch log dict=() status=0
  name=$(basename "$fuzzer")
  stem=${name%-fuzzer}
  seeds=$(seed_corpus "$stem")
  scratch=$out/corpus/$stem
  log=$out/$name.log
  mkdir -p "$scratch"
  if [ -n "$seeds" ]; then cp -R "$seeds/." "$scratch/"; fi
  for candidate in "fuzz/$stem.dict" "fuzz/${stem//-/_}.dict"; do
    if [ -f "$candidate" ]; then dict=("-dict=$candidate") && break; fi
  done
  local before
  before=$(find "$scratch" -type f | wc -l)
  # The targets' own standard output is dropped (-close_fd_mask=1); libFuzzer's lines and
  # sanitizer reports go to the log.
  # (The outer redirection keeps the shell's own "Aborted" line out of the way; the report is in
  # the log.)
  { "$fuzzer" -max_total_time="$seconds" -timeout="$timeout" -rss_limit_mb="$rss_mb" -print_final_stats=1 \
    -close_fd_mask=1 -artifact_prefix="$out/artifacts/$name-" "${dict[@]}" "$scratch" >"$log" 2>&1; } 2>/dev/null ||
    status=$?
  local executions after
  executions=$(sed -n 's/^stat::number_of_executed_units: *\([0-9]*\).*/\1/p' "$log" | tail -n 1)
  after=$(find "$scratch" -type f | wc -l)
  echo "$status ${executions:-0} $before $after ${seeds:-none}" >"$out/$name.result"
}

say "${#fuzzers[@]} target(s), ${seconds} s each, $parallel at a time; output in $out"
start=$SECONDS
for fuzzer in "${fuzzers[@]}"; do
  while [ "$(jobs -rp | wc -l)" -ge "$parallel" ]; do wait -n || true; done
  fuzz_one "$fuzzer" &
done
wait

failed=0
total=0
for fuzzer in "${fuzzers[@]}"; do
  name=$(basename "$fuzzer")
  if [ ! -f "$out/$name.result" ]; then
    echo "fuzz-smoke: $name: no result (see $out/$name.log)" >&2
    failed=1
    continue
  fi
  read -r status executions before after seeds <"$out/$name.result"
  total=$((total + executions))
  if [ "$status" -eq 0 ] && [ "$executions" -gt 0 ]; then
    say "$name: $executions executions, corpus $before -> $after inputs (seeds: $seeds)"
    continue
  fi
  failed=1
  echo "fuzz-smoke: $name FAILED (exit $status) after $executions executions; log: $out/$name.log" >&2
  grep -E -m 6 '^==[0-9]+== ?ERROR|runtime error:|^terminate called|^  what\(\):|^SUMMARY' "$out/$name.log" |
    sed 's/^/  | /' >&2 || true
  for artifact in "$out/artifacts/$name-"*; do
    [ -e "$artifact" ] || continue
    echo "fuzz-smoke: $name: saved input $artifact (replay: $(realpath "$fuzzer") $artifact)" >&2
  done
done
say "$total executions in all, $((SECONDS - start)) s"
if [ "$failed" -ne 0 ]; then
  echo "fuzz-smoke: failed; a saved input that is fixed belongs in the seed corpus" >&2
fi
exit "$failed"
