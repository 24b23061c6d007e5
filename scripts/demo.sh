#!/usr/bin/env bash
# Installs what the build needs, builds everything, and runs the demo: until the plug-in
# and its command-line host exist, a round trip of a file through the product's
# compressed block format with the block tool, and a definition through the compiler.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)"

tool=build/release/tools/qelblock
work=build/release/demo
mkdir -p "$work"
echo "=== demo: README.md through a zlib block and an LZ4 block"
"$tool" pack adat README.md "$work/readme.adat"
"$tool" info "$work/readme.adat"
"$tool" unpack adat "$work/readme.adat" "$work/readme.txt"
"$tool" pack --lz4 imgs README.md "$work/readme.imgs"
"$tool" info "$work/readme.imgs"
"$tool" unpack --lz4 imgs "$work/readme.imgs" "$work/readme-lz4.txt"
cmp README.md "$work/readme.txt"
cmp README.md "$work/readme-lz4.txt"
echo "=== demo: both round trips gave back README.md byte for byte"

echo "=== demo: a definition compiled into the image the plug-in loads, and shown back"
build/release/tools/defc tests/Core/definitions/TestShared.xml -o "$work/TestShared.img"
build/release/tools/defc --dump "$work/TestShared.img"
