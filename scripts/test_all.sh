#!/usr/bin/env bash
# What ./test --all runs besides: other compilers, processors and build types, static analysis,
# fuzzing.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/steps.sh
# shellcheck disable=SC2086
need_packages $all_packages

section() { echo; echo "== $*"; }
# Configures, builds and tests in a folder of its own: variant NAME [cmake arguments]
variant() {
  local dir=build-$1
  shift
  configure_tree "$dir" "$@"
  build_tree "$dir"
  run_tests "$dir"
}
werror="-DCMAKE_C_FLAGS=-Werror -DCMAKE_CXX_FLAGS=-Werror"

section "clang, release"
# shellcheck disable=SC2086
variant clang $werror -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++

# But for the tutorial, whose programs in C clang does not link to a sanitized library in C++.
section "clang, sanitizers"
sanitized="-Werror -fsanitize=address,undefined -fno-sanitize-recover=all"
configure_tree build-clang-asan -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_COMPILER=clang \
  -DCMAKE_CXX_COMPILER=clang++ "-DCMAKE_C_FLAGS=$sanitized" "-DCMAKE_CXX_FLAGS=$sanitized"
build_tree build-clang-asan
run_tests build-clang-asan -E docs_tutorial

section "gcc, debug"
# shellcheck disable=SC2086
variant debug-all $werror -DCMAKE_BUILD_TYPE=Debug

section "gcc, release, _FORTIFY_SOURCE=3"
variant fortify -DCMAKE_BUILD_TYPE=Release "-DCMAKE_C_FLAGS=-Werror -D_FORTIFY_SOURCE=3" \
  "-DCMAKE_CXX_FLAGS=-Werror -D_FORTIFY_SOURCE=3"

section "Without the codec"
# shellcheck disable=SC2086
variant no-codec $werror -DCMAKE_BUILD_TYPE=Release -DKVJPX_BUILD_CODEC=OFF
# shellcheck disable=SC2086
variant codec-free $werror -DCMAKE_BUILD_TYPE=Release -DKVJPX_BUILD_CODEC=OFF \
  -DKVJPX_RUN_WITHOUT_CODEC=ON -DKVJPX_BUILD_TOOLS=OFF

section "A stack of 512 KiB"
# Projects that use the library are built with ninja, which needs more.
(ulimit -s 512 && run_tests build-release -E consumers)

section "aarch64 under qemu"
scripts/test_aarch64.sh

section "clang-tidy"
scripts/check_tidy.sh build-clang

section "cppcheck"
# The two that are left out take elements of arrays and results of functions for addresses.
cppcheck --quiet --suppress=CastIntegerToAddressAtReturn --suppress=AssignmentAddressToInteger --std=c++17 --language=c++ --enable=warning,performance,portability --inline-suppr \
  --error-exitcode=1 -j2 -I . -I include -I src -I codec -I tools -I fuzz \
  src check codec codestream common picture tools fuzz bench
echo "clean"

section "Reference"
mkdir -p build
doxygen docs/Doxyfile 2>&1 | tee build/reference.log
[ ! -s build/reference.log ]

section "Debian packages"
scripts/check_packages.sh

section "Fuzzers"
scripts/fuzz.sh 60
