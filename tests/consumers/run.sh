#!/usr/bin/env bash
# Installs a build into a folder, moves it, and lets programs use what is there by pkg-config, by the
# CMake package, by the C++ header and from Python: all must say the same.
# usage: run.sh BUILD_DIR PYTHON C_COMPILER CXX_COMPILER
#        run.sh --installed PREFIX LIBRARY_DIR PYTHON C_COMPILER CXX_COMPILER
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(dirname "$(dirname "$here")")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
if [ "$1" = --installed ]; then
  prefix=$2 libraries=$3
  shift 3
  modules=$prefix/lib/python3/dist-packages
else
  DESTDIR=$work/staged cmake --install "$1" --prefix /usr >/dev/null
  mv "$work/staged/usr" "$work/elsewhere"
  prefix=$work/elsewhere
  libraries=$(dirname "$(find "$prefix" -name libkvjpx.so)")
  shift
  cp -r "$root/python" "$work/package"
  (cd "$work/package" && "$1" -c 'from setuptools import build_meta; build_meta.build_wheel("..")' \
    >"$work/log" 2>&1) || { cat "$work/log"; exit 1; }
  "$1" -m zipfile -e "$work"/kvjpx-*.whl "$work/modules"
  modules=$work/modules
  export LD_LIBRARY_PATH=$libraries
fi
python=$1 cc=$2 cxx=$3
export PKG_CONFIG_PATH=$libraries/pkgconfig

# shellcheck disable=SC2046
"$cc" "$here/size.c" $(pkg-config --cflags --libs kvjpx) -o "$work/by_pkg_config"
cmake -S "$here/cmake" -B "$work/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" >"$work/log" || { cat "$work/log"; exit 1; }
cmake --build "$work/build" >"$work/log" || { cat "$work/log"; exit 1; }

expected="256 columns, 147456 bytes"
sample=$root/samples/gradient.jp2
failed=0
expect() {
  local said
  said=$("$@") || said="exit code $?"
  [ "$said" = "$expected" ] || { echo "$*: $said, not $expected" >&2; failed=1; }
}
expect "$work/by_pkg_config" "$sample"
expect "$work/build/c_consumer" "$sample"
expect "$work/build/cpp_consumer" "$sample"
PYTHONPATH=$modules PYTHONDONTWRITEBYTECODE=1 expect "$python" -c '
import kvjpx, sys
with kvjpx.open(sys.argv[1]) as f:
    assert not f.check()["findings"]
    rows, columns, components = f.decode().shape
    print(f["jp2h/ihdr"].width, "columns,", rows * columns * components, "bytes")' "$sample"
exit $failed
