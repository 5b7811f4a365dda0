#!/usr/bin/env bash
# Builds the library and its tests for aarch64 with Debian's cross compiler and runs them under
# qemu's user emulation. GoogleTest is built from Debian's sources along with them.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
cmake -S . -B build-aarch64 -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/aarch64-linux.cmake" \
  -DKVJPX_BUILD_CODEC=OFF -DKVJPX_BUILD_TOOLS=OFF -DINSTALL_GTEST=OFF >/dev/null
cmake --build build-aarch64 --target kvjpx_tests >build-aarch64/build.log 2>&1 ||
  { cat build-aarch64/build.log >&2; exit 1; }
qemu-aarch64 -L /usr/aarch64-linux-gnu build-aarch64/bin/kvjpx_tests --gtest_brief=1
