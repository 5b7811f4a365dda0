#!/usr/bin/env bash
# Line and branch coverage of src/ and codec/ by what the fuzzers' replays run: the seeds, the past
# findings, and what scripts/fuzz.sh has collected in build-fuzz/corpus/ (or in the folder given,
# which has a folder for each fuzzer). The reports stay in build-coverage/.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/steps.sh
collected=${1:-build-fuzz/corpus}
build=build-coverage

# shellcheck disable=SC2086
need_packages $build_packages $test_packages llvm
flags="-fprofile-instr-generate -fcoverage-mapping"
configure_tree $build -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=None "-DCMAKE_C_FLAGS=$flags" "-DCMAKE_CXX_FLAGS=$flags -O1" \
  -DKVJPX_BUILD_TOOLS=OFF
fuzzers=$(sed -n 's/^set(kvjpx_fuzzers \(.*\))$/\1/p' fuzz/targets.cmake)
# shellcheck disable=SC2086
build_tree $build --target $(printf 'kvjpx_fuzz_replay_%s ' $fuzzers)

rm -f $build/*.profraw
objects=$build/lib/libkvj2k.so
for name in $fuzzers; do
  inputs=fuzz/corpus
  for folder in "fuzz/corpus-$name" "fuzz/findings/$name" "$collected/$name"; do
    [ ! -d "$folder" ] || inputs="$inputs $folder"
  done
  # shellcheck disable=SC2086
  LLVM_PROFILE_FILE=$build/$name-%m.profraw $build/bin/kvjpx_fuzz_replay_$name $inputs \
    >$build/$name.log 2>&1 || { tail $build/$name.log >&2; exit 1; }
  objects="$objects -object $build/bin/kvjpx_fuzz_replay_$name"
done
llvm-profdata merge -o $build/all.profdata $build/*.profraw
for part in src codec; do
  # shellcheck disable=SC2086
  llvm-cov report $objects -instr-profile=$build/all.profdata $part >$build/$part.txt 2>/dev/null
  awk -v part=$part '$1 == "TOTAL" { print part ": " $10 " of lines, " $13 " of branches" }' \
    $build/$part.txt
done
