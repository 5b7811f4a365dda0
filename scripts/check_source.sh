#!/usr/bin/env bash
# Keeps out of src/ and common/ what an error exit would skip or what would need a C++ run-time library:
# destructors, owning types of the standard library, new and delete, and statics that a constructor
# fills in at run time.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
build=${1:-build-release}
failed=0

forbid() {
  local what=$1 pattern=$2
  if grep -rnE --include='*.cpp' --include='*.h' "$pattern" src common | grep -vE '^[^:]+:[0-9]+: *//'; then
    echo "src/ and common/ must not have $what (see docs/design.md)" >&2
    failed=1
  fi
}
forbid "a destructor" '~[A-Z][A-Za-z]*\('
forbid "an owning type of the standard library" \
  'std::(string|vector|map|set|list|deque|unordered_|unique_ptr|shared_ptr|function|optional|variant|lock_guard|thread)'
forbid "a header of one" \
  '#include <(string|vector|map|set|list|deque|memory|functional|optional|variant|mutex|thread|iostream|sstream)>'
forbid "new, delete or exceptions" '(^|[^A-Za-z_"])(new [A-Z]|delete |throw |try \{|catch \()'

if find "$build/src" -name '*.o' -print0 | xargs -0 nm -C 2>/dev/null |
    grep -E '_GLOBAL__sub_I|__static_initialization|guard variable'; then
  echo "a static of src/ is filled in at run time" >&2
  failed=1
fi
[ "$failed" -eq 0 ] && echo "nothing that an error exit would skip"
exit "$failed"
