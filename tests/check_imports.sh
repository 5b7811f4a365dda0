#!/bin/sh
# Checks that a library needs no C++ run-time library, and nothing of libc that Android's libc at
# API level 24 (android_imports.txt) does not have. The codec's functions come from libkvj2k.so,
# which it asks for by name ("codec"), or may all be missing ("no-codec").
# usage: check_imports.sh <library> <folder of android_imports.txt> codec|no-codec
set -eu
export LC_ALL=C

codec_functions=$(nm -D --undefined-only "$1" | grep ' kv_j2k_')
if [ "$3" = codec ]; then
  readelf -d "$1" | grep -q 'NEEDED.*\[libkvj2k\.so\]' && expected=U || expected=none
else
  readelf -d "$1" | grep -q 'NEEDED.*kvj2k' && expected=none || expected=w
fi
if [ "$(echo "$codec_functions" | awk '{ print $1 }' | sort -u)" != "$expected" ]; then
  echo "$1 does not treat its codec as '$3' says:" >&2
  { echo "$codec_functions"; readelf -d "$1" | grep NEEDED; } >&2
  exit 1
fi

# Weak imports come from the compiler's start files and may stay unresolved. A function that
# _FORTIFY_SOURCE has put a check in front of stands for itself: each libc has its own set of those.
# errno and fcntl are functions of other names in glibc, and where that is, clang calls bcmp for a memcmp
# that only asks for equality.
imported=$(nm -D --undefined-only "$1" | awk '$1 == "U" { sub(/@.*/, "", $2); print $2 }' |
           sed 's/^__\(.*\)_chk$/\1/; s/^__errno_location$/__errno/; s/^fcntl64$/fcntl/; s/^bcmp$/memcmp/' | grep -v '^kv_j2k_' | sort -u)
if echo "$imported" | grep -qE '^__(asan|ubsan|tsan|msan|sanitizer|gcov|llvm_profile)_'; then
  echo "skipped: an instrumented library imports its instrumentation"
  exit 77
fi

if readelf -d "$1" | grep NEEDED | grep -E 'libstdc\+\+|libc\+\+|libgcc_s'; then
  echo "$1 needs a C++ run-time library" >&2
  exit 1
fi

foreign=$(echo "$imported" | grep -vxF -f "$2/android_imports.txt") || exit 0
echo "$1 imports what Android's libc does not have:" $foreign >&2
exit 1
