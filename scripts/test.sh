#!/usr/bin/env bash
# Installs what the tests need, then builds and runs the whole suite twice: an optimised
# GCC build, and a Clang debug build with the address and undefined-behaviour sanitizers
# whose fuzz targets also run for a bounded time. Exits non-zero if anything fails.
set -uo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh --with-tests || exit 1

jobs=$(nproc)
status=0
for preset in release asan; do
  echo "=== ${preset}: configure, build, test"
  if ! cmake --preset "$preset" -DQEL_BUILD_TESTS=ON -DCMAKE_COMPILE_WARNING_AS_ERROR=ON >/dev/null; then
    status=1; continue
  fi
  if ! cmake --build --preset "$preset" -j "$jobs"; then
    status=1; continue
  fi
  ctest --preset "$preset" -j "$jobs" || status=1
done

# The threading, store and parameter-queue tests once more under ThreadSanitizer; only
# their own programs are built, which keeps this third build short.
echo "=== tsan: threading, store and parameter-queue tests"
if cmake --preset tsan -DQEL_BUILD_TESTS=ON -DCMAKE_COMPILE_WARNING_AS_ERROR=ON >/dev/null \
   && cmake --build --preset tsan -j "$jobs" --target qel_core_thread_tests qel_audio_thread_tests; then
  build/tsan/tests/Core/qel_core_thread_tests || status=1
  build/tsan/tests/Audio/qel_audio_thread_tests || status=1
else
  status=1
fi

if ((status == 0)); then echo "=== all tests passed"; else echo "=== FAILED"; fi
exit $status
