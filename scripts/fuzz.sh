#!/usr/bin/env bash
# Builds the fuzzers in build-fuzz/ and runs each for a number of seconds (default: 60), two at a
# time. Their corpora stay in build-fuzz/corpus/, so a later run goes on where this one ended. Fails
# when one of them finds something; the input is then in build-fuzz/crashes/.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/steps.sh
seconds=${1:-60}
fuzzers=${FUZZERS:-load fields edit reader stream decode check picture dump}
build=build-fuzz

# shellcheck disable=SC2086
need_packages $build_packages clang libclang-rt-14-dev
[ -f $build/build.ninja ] ||
  configure_tree $build -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
    -DCMAKE_BUILD_TYPE=None -DKVJPX_BUILD_FUZZERS=ON -DKVJPX_BUILD_TESTS=OFF \
    -DKVJPX_BUILD_TOOLS=OFF -DKVJPX_BUILD_CODEC=OFF
targets=$(printf 'kvjpx_fuzz_%s ' $fuzzers)
# shellcheck disable=SC2086
build_tree $build --target $targets
mkdir -p $build/crashes

fuzz() {
  local name=$1 folder seeds=fuzz/corpus log=$build/$1.log
  for folder in fuzz/corpus-$name fuzz/findings/$name; do
    [ ! -d $folder ] || seeds="$seeds $folder"
  done
  mkdir -p $build/corpus/$name
  # shellcheck disable=SC2086
  if ! $build/bin/kvjpx_fuzz_$name -max_total_time=$seconds -rss_limit_mb=2048 -timeout=20 \
      -print_final_stats=1 -dict=fuzz/fuzz.dict -artifact_prefix=$build/crashes/$name- \
      $build/corpus/$name $seeds >$log 2>&1; then
    tail -n 40 $log >&2
    return 1
  fi
  echo "$name: $(sed -n 's/^stat::number_of_executed_units: *//p' $log) runs, $(
    grep -o 'cov: [0-9]*' $log | tail -n 1)"
}
export -f fuzz
export build seconds
printf '%s\n' $fuzzers | xargs -P 2 -I{} bash -c 'fuzz {}'
