#!/usr/bin/env bash
# The reports of kvctb on posted books, each run several times under
# /usr/bin/time: the median wall time and the peak resident memory, for the
# four-column trial balance and the month form of the trial balance, the
# balance sheet, the income statement, the general ledger of the busiest analytic account and of a
# top-level account, the journal export in both formats (with its entries per
# second). Prints the machine and the command.
#
#   bench/reports.sh DATABASE.db [YEAR] [RUNS]
#
# DATABASE.db is an SQLite file with posted books, for example the one
# bench/peers.sh leaves in build/peers/run-a2000-r1000000-s1/books-1.db (1,000,000
# records over 2024 and 2025 on a 2,000-account chart, after close-year 2024), or
# a database the same books were posted into. YEAR defaults to the
# last year with entries, RUNS to 3. The database is only read.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
db=${1:?usage: bench/reports.sh DATABASE.db [YEAR] [RUNS]}
kvctb=${KVCTB:-$root/build/release/cli/kvctb}
[ -x "$kvctb" ] || { echo "reports.sh: build kvctb first: cmake --build build/release --target kvctb" >&2; exit 1; }
year=${2:-$(sqlite3 "$db" "select max(ANO_MES) / 100 from CTB_LANCAMENTO")}
runs=${3:-3}
busiest=$(sqlite3 "$db" "select CONTA from CTB_LANCAMENTO where ANO_MES between ${year}01 and ${year}12 group by CONTA order by count(*) desc limit 1")
entries=$(sqlite3 "$db" "select count(*) from CTB_LANCAMENTO where ANO_MES between ${year}01 and ${year}12")
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

# Runs one report RUNS times; prints "name  median-s  peak-KiB".
measure() {
  local name=$1
  shift
  local times=() peak=0
  for ((i = 0; i < runs; i++)); do
    /usr/bin/time -f "%e %M" -o "$tmp/time" "$kvctb" --db "sqlite:$db" --quiet "$@" > "$tmp/out"
    read -r t m < "$tmp/time"
    times+=("$t")
    ((m > peak)) && peak=$m
  done
  local median
  median=$(printf '%s\n' "${times[@]}" | sort -n | sed -n "$(((runs + 1) / 2))p")
  printf '%-44s %8s s %10s KiB\n' "$name" "$median" "$peak"
  echo "$median" > "$tmp/median"
}

echo "machine: $(nproc) cores, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ //'), $(free -g | awk '/Mem:/ {print $2}') GB"
echo "books: $db, $entries entries in $year; busiest account $busiest"
echo "command: bench/reports.sh $*"
echo
measure "trial-balance --from ${year}01 --to ${year}12" trial-balance --from "${year}01" --to "${year}12"
measure "trial-balance --month ${year}12" trial-balance --month "${year}12"
measure "balance-sheet --month ${year}12" balance-sheet --month "${year}12"
measure "income-statement --from ${year}01 --to ${year}12" income-statement --from "${year}01" --to "${year}12"
measure "ledger $busiest (the busiest account)" ledger "$busiest" --from "${year}01" --to "${year}12"
measure "ledger 1 (a top-level account)" ledger 1 --from "${year}01" --to "${year}12"
measure "export --format ledger" export --from "${year}01" --to "${year}12"
echo "  $(awk -v n="$entries" -v t="$(cat "$tmp/median")" 'BEGIN {printf "%.0f entries/s", n / t}')"
measure "export --format csv" --format csv export --from "${year}01" --to "${year}12"
echo "  $(awk -v n="$entries" -v t="$(cat "$tmp/median")" 'BEGIN {printf "%.0f entries/s", n / t}')"
