#!/usr/bin/env bash
# Runs the library's own tests of a build folder under valgrind, on all processors, and the program on
# every sample.
set -euo pipefail
bin=$1/bin
cd "$(dirname "${BASH_SOURCE[0]}")/.."
check="valgrind -q --leak-check=full --error-exitcode=9"
shards=$(nproc)
{
  # One process for all samples: it takes longer to start than they do.
  echo "$check $bin/kvjpx print -j1 samples/*.jp2 samples/*.jpx / >/dev/null"
  for ((shard = 0; shard < shards; ++shard)); do
    echo "GTEST_TOTAL_SHARDS=$shards GTEST_SHARD_INDEX=$shard" \
      "$check --errors-for-leak-kinds=definite $bin/kvjpx_tests --gtest_brief=1"
  done
} | xargs -P "$shards" -I {} sh -c '{} || { echo "failed: {}" >&2; exit 1; }'
echo "no errors"
