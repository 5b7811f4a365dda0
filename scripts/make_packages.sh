#!/usr/bin/env bash
# Makes the Debian packages in build-packages/, or in the folder given. The same sources give the same
# bytes wherever they are: every time is that of the last change.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/steps.sh
dir=$(realpath -m "${1:-build-packages}")
if [ -z "${SOURCE_DATE_EPOCH-}" ]; then
  SOURCE_DATE_EPOCH=$(git log -1 --format=%ct 2>/dev/null || stat -c %Y CHANGELOG.md)
fi
export SOURCE_DATE_EPOCH
umask 022
# shellcheck disable=SC2086
need_packages $build_packages dpkg-dev
configure_tree "$dir" --preset packages
build_tree "$dir"
rm -f "$dir"/*.deb
step "$dir/cpack.log" cpack --config "$dir/CPackConfig.cmake" -B "$dir"
ls "$dir"/*.deb
