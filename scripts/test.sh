#!/usr/bin/env bash
# Installs what is missing, builds everything once with both cores, and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build -j"$(nproc)"
ctest --test-dir build -j"$(nproc)" --output-on-failure "$@"
