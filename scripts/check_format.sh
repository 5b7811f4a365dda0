#!/usr/bin/env bash
# Fails when a source file is not laid out as .clang-format says.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
sources() {
  find bench check codec codestream common fuzz include picture src tests tools -name "*.cpp" -o -name "*.h" -o -name "*.hpp" -o -name "*.c"
}
sources | xargs clang-format --dry-run -Werror
echo "$(sources | wc -l) files are in order"
