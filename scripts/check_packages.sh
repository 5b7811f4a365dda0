#!/usr/bin/env bash
# Tries the Debian packages: makes them twice, in folders of different names, for the same bytes; asks
# lintian; installs, upgrades and removes them, and lets programs use them meanwhile, in a layer over this
# system. As root.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
root=$PWD
. scripts/steps.sh
need_packages lintian dpkg-dev python3-numpy
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
scripts/make_packages.sh >/dev/null
SOURCE_DATE_EPOCH=$(git log -1 --format=%ct 2>/dev/null || stat -c %Y CHANGELOG.md)
export SOURCE_DATE_EPOCH
mkdir "$work/another-name"
git ls-files -z | xargs -0 cp --parents -t "$work/another-name"
# Without a cache of compiled files, which would say the same by itself.
(cd "$work/another-name" && env -u CMAKE_C_COMPILER_LAUNCHER -u CMAKE_CXX_COMPILER_LAUNCHER \
  scripts/make_packages.sh "$work/other-build" >/dev/null)
for package in build-packages/*.deb; do
  cmp "$package" "$work/other-build/$(basename "$package")"
done
echo "two builds make the same bytes"

lintian --tag-display-limit 0 --allow-root --fail-on error,warning build-packages/*.deb
echo "lintian finds no error"

# An older version first, so that there is something to upgrade.
for package in build-packages/*.deb; do
  dpkg-deb -R "$package" "$work/old"
  sed -i 's/^Version: .*/Version: 0.9/; s/(\(>\?\)= 1[0-9.]*)/(\1= 0.9)/g' "$work/old/DEBIAN/control"
  echo "gone in the next version" >"$work/old/usr/share/doc/$(dpkg-deb -f "$package" Package)/old"
  dpkg-deb --root-owner-group -b "$work/old" "$work/old-$(basename "$package")" >/dev/null
  rm -r "$work/old"
done

# This system as it is, with a layer of its own for what the packages change.
cp build-packages/*.deb "$work"
cat >"$work/try.sh" <<'END'
set -euo pipefail
cd "$(dirname "$0")"
mkdir layer under root
mount -t overlay overlay -o lowerdir=/,upperdir="$PWD/layer",workdir="$PWD/under" root
mount --bind /dev root/dev
for folder in "$1" "$PWD"; do
  mkdir -p "root$folder"
  mount --bind "$folder" "root$folder"
done
chroot root bash -euo pipefail -s "$PWD" "$1" <<'INSIDE'
quietly() { "$@" >"$log" 2>&1 || { cat "$log" >&2; exit 1; }; }
log=$1/dpkg.log
unset LD_LIBRARY_PATH PYTHONPATH KVJPX_LIBRARY
cd "$2"
quietly dpkg -i "$1"/old-*.deb
quietly dpkg -i "$1"/[!o]*.deb
if ls /usr/share/doc/*kvj*/old 2>/dev/null; then
  echo "the upgrade left these" >&2
  exit 1
fi
libraries=$(dirname "$(find /usr/lib -name libkvjpx.so)")
tests/consumers/run.sh --installed /usr "$libraries" /usr/bin/python3 cc c++
quietly env KVJPX_LIBRARY="$libraries/libkvjpx.so" KVJPX_PROGRAM=/usr/bin/kvjpx KVJPX_SAMPLES="$2/samples" \
  PYTHONDONTWRITEBYTECODE=1 /usr/bin/python3 -m unittest discover -s python/tests
kvjpx decode samples/minimal.jp2 --format raw -o - >/dev/null
quietly man -w kvjpx
/usr/bin/python3 -c 'import ctypes; ctypes.CDLL("libkvjpx.so"); ctypes.CDLL("libkvjpx.so.1")'
quietly dpkg --purge libkvjpx libkvj2k kvjpx libkvjpx-dev python3-kvjpx
INSIDE
left=$(find layer/usr layer/etc \( -name '*kvj*' -o -type f -o -type l \) ! -path layer/etc/ld.so.cache)
[ -z "$left" ] || { echo "the packages left behind:" $left >&2; exit 1; }
END
unshare --mount bash "$work/try.sh" "$root"
echo "the packages install, serve, upgrade and leave nothing behind"
