#!/usr/bin/env bash
# Fails when a tracked C++ file is not formatted with the project's
# .clang-format. With --fix, formats them in place.
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t files < <(git ls-files '*.cpp' '*.h' 2>/dev/null || find accounting cli tests bench examples -name '*.cpp' -o -name '*.h')
[ ${#files[@]} -eq 0 ] && exit 0
if [ "${1:-}" = "--fix" ]; then
  clang-format -i "${files[@]}"
else
  clang-format --dry-run --Werror "${files[@]}"
fi
