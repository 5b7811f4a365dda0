#!/bin/sh
# Compares what a library exports with exports.txt.
# usage: check_exports.sh <library> <folder of exports.txt>
set -eu
export LC_ALL=C
exported=$(mktemp)
trap 'rm -f "$exported"' EXIT
nm -D --defined-only "$1" | awk '{ sub(/@.*/, "", $3); print $3 }' | sort -u > "$exported"
if ! diff "$2/exports.txt" "$exported"; then
  echo "the exports of $1 (>) differ from exports.txt (<)" >&2
  exit 1
fi
