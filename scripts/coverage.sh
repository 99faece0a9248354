#!/usr/bin/env bash
# Line and branch coverage of pcfg (tools/pcfg) by the test suite, with gcovr: builds the
# project with --coverage in its own folder (Debug, no benchmarks), runs ctest there and prints
# gcovr's summary per file. Branches that exist only for exceptions the compiler adds (every
# call that may throw) are left out, as are the branches gcovr cannot tie to a line of source;
# scripts/branch_coverage.py then also leaves out the blocks only an exception reaches.
#
#   scripts/coverage.sh [CTEST-ARGUMENT...]
#
# COVERAGE_BUILD_DIR  the build folder (build-coverage)
# COVERAGE_HTML       also write an HTML report there (a file path), when set
set -euo pipefail
cd "$(dirname "$0")/.."
build=${COVERAGE_BUILD_DIR:-build-coverage}

scripts/setup.sh --no-npm gcovr
# Counters are updated atomically: the two-thread parse and the language server's threads count
# into the same counters, and plain increments lose counts or leave gcov negative ones.
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS="--coverage -fprofile-update=atomic" \
  -DCMAKE_EXE_LINKER_FLAGS="--coverage" -DCMAKE_SHARED_LINKER_FLAGS="--coverage" \
  -DPERIPHERALCONFIG_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build "$build" -j"$(nproc)"
find "$build" -name '*.gcda' -delete
ctest --test-dir "$build" -j"$(nproc)" --output-on-failure -LE editors "$@"

gcovr_args=(--root . --filter 'tools/pcfg/' --exclude-throw-branches --exclude-unreachable-branches
  --object-directory "$build" --gcov-ignore-parse-errors)
# Per file, fewest branches taken first, then the totals of lines and branches.
gcovr "${gcovr_args[@]}" --branches --sort-percentage --print-summary
# The same branches counted again from gcov's flow graphs, with and without the blocks that run
# only while an exception unwinds (clean-ups of half-built temporaries), which gcovr counts.
python3 scripts/branch_coverage.py "$build" tools/pcfg | grep -E "^(file |TOTAL|[0-9]+ lines where)"
if [ -n "${COVERAGE_HTML:-}" ]; then gcovr "${gcovr_args[@]}" --html-details "$COVERAGE_HTML"; fi
