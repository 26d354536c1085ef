#!/usr/bin/env bash
# Fails when a tracked C++ file is not formatted with the project's
# .clang-format by clang-format 14 (other versions lay some code out
# differently). With --fix, formats them in place.
set -euo pipefail
cd "$(dirname "$0")/.."
clang_format=clang-format-14
if ! command -v "$clang_format" >/dev/null 2>&1; then
  echo "check-format: $clang_format not found; scripts/install-deps.sh installs it" >&2
  exit 2
fi
mapfile -t files < <(git ls-files '*.cpp' '*.h' 2>/dev/null || find accounting cli tests bench examples -name '*.cpp' -o -name '*.h')
[ ${#files[@]} -eq 0 ] && exit 0
if [ "${1:-}" = "--fix" ]; then
  "$clang_format" -i "${files[@]}"
else
  "$clang_format" --dry-run --Werror "${files[@]}"
fi

# The layers include downwards only: db knows nothing of the project, services
# nothing but db, the module nothing of the method families above it, and
# nothing under accounting/ reaches kvctb.
layering=$(
  grep -rn '#include "' accounting/db | grep -v '"accounting/db/' || true
  grep -n '#include "accounting/' accounting/services/* | grep -v '"accounting/\(db\|services\)/' || true
  grep -n '#include "accounting/' accounting/module/* |
    grep -v '"accounting/\(db\|services\|module\)/' || true
  grep -rn '#include "cli/' accounting || true
)
if [ -n "$layering" ]; then
  echo "check-format: an include against the layers (see docs/ARCHITECTURE.md):" >&2
  echo "$layering" >&2
  exit 1
fi

# Every value enters statement text through the typed formatters of
# accounting/db/sql_format.h: no quote glued to a value by hand in the
# statement-building layers (messages that quote a value are not statements).
raw_quotes=$(grep -rnE "\"'\" \+|\+ \"'\"|[=,(] *'\" \+" accounting/balances accounting/carryforward \
  accounting/closing accounting/entries accounting/module accounting/services accounting/reports |
  grep -v 'throw ' || true)
if [ -n "$raw_quotes" ]; then
  echo "check-format: a value quoted by hand; use sql::Quoted or sql::QuotedAsIs:" >&2
  echo "$raw_quotes" >&2
  exit 1
fi
