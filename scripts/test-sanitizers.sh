#!/usr/bin/env bash
# The sanitizer lanes, built with clang:
#   asan  one build under AddressSanitizer and UndefinedBehaviorSanitizer of everything, tests
#         and libFuzzer targets included (scripts/fuzz-smoke.sh fuzzes from the same build);
#         runs the whole ctest suite with leak checking on;
#   tsan  a second, small build under ThreadSanitizer of the library and the concurrency test
#         only; runs that test several times, each in a fresh process.
#
#   scripts/test-sanitizers.sh [asan|tsan|build]...      (default: asan tsan)
#
# "build" only configures and builds the asan lane's folder. Folders: $SANITIZE_BUILD_DIR
# (default build-sanitize) and $TSAN_BUILD_DIR (default build-tsan); $TSAN_RUNS (default 10)
# sets how often the concurrency test runs. Exits 0 only when every lane passes.
set -euo pipefail
cd "$(dirname "$0")/.."
repo=$PWD

asan_dir=${SANITIZE_BUILD_DIR:-build-sanitize}
# TSAN_PROTOBUF_PREFIX: a protobuf installation built with -fsanitize=thread to use instead of
# Debian's uninstrumented runtime; nothing is suppressed then.
tsan_protobuf=${TSAN_PROTOBUF_PREFIX:-}
if [ -n "$tsan_protobuf" ]; then
  tsan_dir=${TSAN_BUILD_DIR:-build-tsan-instrumented}
else
  tsan_dir=${TSAN_BUILD_DIR:-build-tsan}
fi
tsan_runs=${TSAN_RUNS:-10}
jobs=$(nproc)

lanes=("$@")
[ ${#lanes[@]} -gt 0 ] || lanes=(asan tsan)
for lane in "${lanes[@]}"; do
  case $lane in asan | tsan | build) ;; *)
    echo "usage: $0 [asan|tsan|build]..." >&2
    exit 2
    ;;
  esac
done

say() { echo "sanitizers: $*"; }

# run LOG COMMAND...: output to LOG; its end is shown when the command fails.
run() {
  local log=$1
  shift
  if ! "$@" >>"$log" 2>&1; then
    echo "sanitizers: failed: $*" >&2
    tail -n 80 "$log" | sed 's/^/  | /' >&2
    echo "sanitizers: (whole output in $log)" >&2
    return 1
  fi
}

# clang for the sanitizer runtimes and libFuzzer; llvm for llvm-symbolizer (readable stacks).
scripts/setup.sh clang libclang-rt-dev llvm
export CC=${SANITIZE_CC:-clang} CXX=${SANITIZE_CXX:-clang++}
symbolizer=$(command -v llvm-symbolizer || true)

# Every report stops the process with a non-zero status; leaks are reported at exit.
export ASAN_OPTIONS="detect_leaks=1:halt_on_error=1:abort_on_error=1:detect_stack_use_after_return=1:check_initialization_order=1:strict_init_order=1:strict_string_checks=1${symbolizer:+:external_symbolizer_path=$symbolizer}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1${symbolizer:+:external_symbolizer_path=$symbolizer}"

build_asan() {
  mkdir -p "$asan_dir"
  local log=$asan_dir/build.log
  rm -f "$log"
  say "[asan] building everything with ASan and UBSan, tests and fuzz targets included, in $asan_dir"
  run "$log" cmake -S . -B "$asan_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DPERIPHERALCONFIG_BUILD_FUZZERS=ON -DPERIPHERALCONFIG_BUILD_TESTS=ON -DPERIPHERALCONFIG_BUILD_TOOLS=ON \
    -DPERIPHERALCONFIG_BUILD_BENCHMARKS=OFF || return 1
  run "$log" cmake --build "$asan_dir" -j"$jobs" || return 1
}

lane_asan() {
  local start=$SECONDS log=$asan_dir/ctest.log status=0
  build_asan || return 1
  say "[asan] ctest (ASAN_OPTIONS=$ASAN_OPTIONS)"
  ctest --test-dir "$asan_dir" -j"$jobs" --output-on-failure >"$log" 2>&1 || status=$?
  local summary
  summary=$(grep -E 'tests passed, [0-9]+ tests failed out of' "$log" | tail -n 1 || true)
  if [ "$status" -ne 0 ] || [ -z "$summary" ]; then
    sed -n '/The following tests FAILED/,$p' "$log" | sed 's/^/  | /' >&2
    grep -E -m 5 'ERROR: (AddressSanitizer|LeakSanitizer)|runtime error:' "$log" | sed 's/^/  | /' >&2 || true
    # What each failing test said, so a CI log alone tells why.
    grep -E -A 6 '^[^ ]*:[0-9]+: Failure$' "$log" | head -n 60 | sed 's/^/  | /' >&2 || true
    echo "sanitizers: [asan] failed; ctest output in $log" >&2
    return 1
  fi
  say "[asan] $summary ($((SECONDS - start)) s)"
}

lane_tsan() {
  local start=$SECONDS log=$tsan_dir/build.log
  mkdir -p "$tsan_dir"
  rm -f "$log"
  say "[tsan] building the library and the concurrency test with TSan in $tsan_dir"
  local runtime=() suppressions=":suppressions=$repo/tests/tsan-suppressions.txt"
  if [ -n "$tsan_protobuf" ]; then
    runtime=(-DCMAKE_PREFIX_PATH="$tsan_protobuf")
    suppressions=""
    say "[tsan] against the instrumented protobuf in $tsan_protobuf, without suppressions"
  fi
  run "$log" cmake -S . -B "$tsan_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPERIPHERALCONFIG_SANITIZE=thread \
    -DPERIPHERALCONFIG_BUILD_TOOLS=OFF -DPERIPHERALCONFIG_BUILD_TESTS=ON -DPERIPHERALCONFIG_BUILD_BENCHMARKS=OFF \
    "${runtime[@]}" || return 1
  run "$log" cmake --build "$tsan_dir" -j"$jobs" --target concurrency_test || return 1

  # Debian's protobuf runtime is not instrumented; tests/tsan-suppressions.txt says what that
  # costs. Address-space randomisation is turned off for the run (setarch -R) because TSan's
  # fixed shadow layout does not fit every kernel's randomised mappings.
  local options="halt_on_error=1:second_deadlock_stack=1:print_suppressions=1$suppressions"
  options+="${symbolizer:+:external_symbolizer_path=$symbolizer}"
  local norandom=()
  if setarch "$(uname -m)" -R true 2>/dev/null; then norandom=(setarch "$(uname -m)" -R); fi
  say "[tsan] running the concurrency test $tsan_runs times (TSAN_OPTIONS=$options)"
  local i n out=$tsan_dir/concurrency_test.log matched=0
  for ((i = 1; i <= tsan_runs; i++)); do
    if ! TSAN_OPTIONS=$options "${norandom[@]}" "$tsan_dir/tests/concurrency_test" >"$out" 2>&1; then
      sed -n '/WARNING: ThreadSanitizer/,/SUMMARY/p' "$out" | head -n 80 | sed 's/^/  | /' >&2
      grep -E '^\[  FAILED  \]|Failure' "$out" | head -n 20 | sed 's/^/  | /' >&2 || true
      echo "sanitizers: [tsan] run $i of $tsan_runs failed; output in $out" >&2
      return 1
    fi
    # "ThreadSanitizer: Matched 1 suppressions" is followed by "HITS race:PATTERN" lines.
    n=$(sed -n '/^ThreadSanitizer: Matched/,$ s/^\([0-9][0-9]*\) [a-z_]*:.*/\1/p' "$out" | awk '{n += $1} END {print n + 0}')
    matched=$((matched + n))
  done
  local note="no suppressions"
  [ -z "$suppressions" ] || note="$matched reports from the runtime's first use suppressed"
  say "[tsan] $tsan_runs of $tsan_runs runs passed: no race reported ($note, $((SECONDS - start)) s)"
}

failed=0
for lane in "${lanes[@]}"; do
  case $lane in
    build) build_asan || failed=1 ;;
    asan) lane_asan || failed=1 ;;
    tsan) lane_tsan || failed=1 ;;
  esac
done
exit "$failed"
