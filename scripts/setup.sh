#!/usr/bin/env bash
# Installs the Debian packages the project builds and tests with. Safe to run again:
# it only calls apt-get when something is missing.
set -euo pipefail

build_packages=(
  cmake ninja-build g++ clang-14 pkgconf ccache
  zlib1g-dev liblz4-dev libpugixml-dev libsndfile1-dev libfftw3-dev
  libx11-dev libfreetype-dev fonts-dejavu-core
  juce-modules-source-data
)
test_packages=(
  libgtest-dev libbenchmark-dev libclang-rt-14-dev xvfb
  ardour
)

wanted=("${build_packages[@]}")
if [[ "${1:-}" == "--with-tests" ]]; then
  wanted+=("${test_packages[@]}")
fi

missing=()
for p in "${wanted[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if ((${#missing[@]} == 0)); then
  exit 0
fi

echo "setup: installing ${missing[*]}"
sudo=()
if [[ $(id -u) -ne 0 ]]; then sudo=(sudo); fi
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -q
"${sudo[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
