#!/usr/bin/env bash
# Installs what is missing, builds everything once with both cores, and runs every test; with
# PERIPHERALCONFIG_PROTOBUF_SOURCE set, also the device lanes (scripts/test-device.sh).
set -euo pipefail
device_source=${PERIPHERALCONFIG_PROTOBUF_SOURCE:+$(realpath -m "$PERIPHERALCONFIG_PROTOBUF_SOURCE")}
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build -j"$(nproc)"
ctest --test-dir build -j"$(nproc)" --output-on-failure "$@"
# The device lanes (protobuf 3.9.1 on x86-64 and AArch64) need protobuf's 3.9.1 release source.
if [ -n "$device_source" ]; then
  scripts/test-device.sh "$device_source"
else
  echo "test: device lanes (protobuf 3.9.1, x86-64 and AArch64) skipped: PERIPHERALCONFIG_PROTOBUF_SOURCE does not name protobuf's 3.9.1 source"
fi
