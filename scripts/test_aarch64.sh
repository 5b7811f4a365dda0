#!/usr/bin/env bash
# Builds the library and everything that tests it (the fuzzers' replays and the checks of exports
# and imports too) for aarch64 with Debian's cross compiler, and runs it under qemu's user
# emulation. GoogleTest is built from Debian's sources along with it.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/steps.sh
configure_tree build-aarch64 -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/aarch64-linux.cmake" \
  -DKVJPX_BUILD_CODEC=OFF -DKVJPX_BUILD_TOOLS=OFF -DINSTALL_GTEST=OFF
build_tree build-aarch64
run_tests build-aarch64
