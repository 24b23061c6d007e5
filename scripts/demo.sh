#!/usr/bin/env bash
# Installs what the build needs, builds everything, installs the plug-in bundle into
# ~/.vst3/ and runs the main job: the command-line host loads the installed bundle as a DAW
# would, renders a demo signal it generates through it with a setting other than the
# defaults, and prints what it did.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)"
scripts/install-bundle.sh build/release

mkdir -p build/release/demo
echo "=== demo: the installed plug-in rendering a generated signal"
build/release/tools/vst3host/dlc-host demo "$HOME/.vst3/DLC-730.vst3" build/release/demo/dlc-demo.wav
