#!/usr/bin/env bash
# Installs the dependencies, builds the release configuration and runs the
# main job on the embedded database (an SQLite file, kvc_demo.db, in the
# current directory): the demo company; for 2023 the result calculation, then
# the annual closing; the result calculation of 2024; and the trial balance
# of December 2024. Each year's result is calculated before its closing, so
# the closing carries no revenue or expense into the next year and the result
# printed for 2024 is 2024's alone.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
bash "$here/scripts/install-deps.sh"
cmake -S "$here" --preset release >/dev/null
cmake --build "$here/build/release" -j2
db="${KVC_DEMO_DB:-kvc_demo.db}"
rm -f "$db"
kvctb() { "$here/build/release/cli/kvctb" --db "sqlite:$db" "$@"; }
kvctb init --demo
kvctb close-result --month 202312 --day 31 --year 2023 --history 99 --result-account 2.9.1.01 --confirm
kvctb close-year 2023
kvctb close-result --month 202412 --day 31 --year 2024 --history 99 --result-account 2.9.1.01 --confirm
kvctb trial-balance --month 202412
