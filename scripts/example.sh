#!/usr/bin/env bash
# The main job on the shipped example: build pcfg, check the headset configuration,
# compile it to the wire format and show what it describes.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh --no-npm  # the packages a build needs; says what it installs
echo "example: building pcfg in build/"
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc)" --target pcfg
pcfg=build/tools/pcfg/pcfg
example=examples/headset.txtpb
"$pcfg" check "$example"
"$pcfg" compile "$example" -o build/headset.binpb
"$pcfg" show "$example"
