#!/usr/bin/env bash
# Runs clang-tidy over the library, the codec, the reader of codestreams, the pictures, the program
# and the fuzzers, by the compile commands of a clang build folder.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
find src check common codec codestream picture tools fuzz -name '*.cpp' -print0 |
  xargs -0 -n 4 -P 2 clang-tidy -p "$1" --quiet 2>/dev/null
echo "clean"
