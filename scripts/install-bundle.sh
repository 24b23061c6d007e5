#!/usr/bin/env bash
# Copies the built plug-in bundle to the user's VST 3 folder, where hosts look for it:
#   scripts/install-bundle.sh <build dir>      e.g. scripts/install-bundle.sh build/release
# An older copy of the bundle there is replaced as a whole.
set -euo pipefail

if (($# != 1)); then
  echo "usage: $0 <build dir>" >&2
  exit 2
fi
bundle="$1/DLC-730.vst3"
if [[ ! -f "$bundle/Contents/x86_64-linux/DLC-730.so" ]]; then
  echo "$bundle/Contents/x86_64-linux/DLC-730.so not found: build the qel_plugin target first" >&2
  exit 1
fi
target="$HOME/.vst3"
mkdir -p "$target"
rm -rf "$target/DLC-730.vst3"
cp -R "$bundle" "$target/"
echo "installed $target/DLC-730.vst3"
