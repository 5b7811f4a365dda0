#!/usr/bin/env bash
# Runs the library's own tests of a build folder under valgrind; slow loops are left to the plain run.
set -euo pipefail
build=$1
cd "$(dirname "${BASH_SOURCE[0]}")/.."
valgrind -q --leak-check=full --errors-for-leak-kinds=definite --error-exitcode=9 \
  "$build/bin/kvjpx_tests" --gtest_brief=1 --gtest_filter='-*Slow*'
for sample in samples/*.jp2 samples/*.jpx; do
  valgrind -q --leak-check=full --error-exitcode=9 "$build/bin/kvjpx" print "$sample" >/dev/null ||
    { echo "failed: kvjpx print $sample" >&2; exit 1; }
done
echo "no errors"
