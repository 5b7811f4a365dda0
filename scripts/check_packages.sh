#!/usr/bin/env bash
# Tries the Debian packages: makes them twice, in folders of different names, for the same bytes; asks
# lintian; installs, upgrades and removes them in an empty root, where programs use them meanwhile.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
root=$PWD
. scripts/steps.sh
need_packages lintian dpkg-dev python3-numpy
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "check_packages.sh: $*" >&2; exit 1; }

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
chroot=$work/root
mkdir -p "$chroot/var/lib/dpkg/info" "$chroot/var/lib/dpkg/updates"
touch "$chroot/var/lib/dpkg/status" "$chroot/var/lib/dpkg/available"
run_dpkg() {
  dpkg --root="$chroot" --force-script-chrootless --force-depends "$@" >"$work/dpkg.log" 2>&1 ||
    { cat "$work/dpkg.log" >&2; fail "dpkg $1"; }
}
files() { (cd "$chroot" && find . -path ./var -prune -o -print | sort); }
files >"$work/before"
run_dpkg -i "$work"/old-*.deb
run_dpkg -i build-packages/*.deb
[ -z "$(find "$chroot/usr" -name old)" ] || fail "the upgrade left files of the old version"
libraries=$(dirname "$(find "$chroot/usr" -name libkvjpx.so)")
tests/consumers/run.sh --installed "$chroot/usr" "$libraries" /usr/bin/python3 cc c++
LD_LIBRARY_PATH=$libraries "$chroot/usr/bin/kvjpx" decode samples/minimal.jp2 --format raw -o - >/dev/null
for name in libkvjpx.so libkvjpx.so.1 libkvj2k.so libkvjpx-tools.so.1; do
  [ -e "$libraries/$name" ] || fail "there is no $name"
done
run_dpkg --purge libkvjpx libkvj2k kvjpx libkvjpx-dev python3-kvjpx
files | diff "$work/before" - || fail "the packages left files behind"
echo "the packages install, serve, upgrade and leave nothing behind"
