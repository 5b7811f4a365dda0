#!/usr/bin/env bash
# Fails when a source file is not laid out as .clang-format says.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
git ls-files -z -- '*.cpp' '*.h' '*.c' | xargs -0 clang-format --dry-run -Werror
echo "$(git ls-files -- '*.cpp' '*.h' '*.c' | wc -l) files are in order"
