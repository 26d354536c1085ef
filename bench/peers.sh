#!/usr/bin/env bash
# kvctb beside two plain-text accounting tools, ledger and hledger, on the same
# books: one generated company (bench/peers_books: chart.csv, records.txt and
# books.journal from one seed), each operation run several times, the tools
# interleaved (kvctb, ledger, hledger, then again), each run under
# /usr/bin/time for its wall time and peak resident memory. Prints the medians,
# the machine and the command.
#
#   bench/peers.sh [--records N] [--accounts N] [--runs N] [--seed S] [--workdir DIR]
#
# Also PEERS_RECORDS, PEERS_ACCOUNTS, PEERS_RUNS, PEERS_SEED, PEERS_WORKDIR.
# Defaults: 20,000 records, 172 accounts, 3 runs, seed 1, build/peers/ (a few
# minutes). The large set: --records 1000000 --accounts 2000 (hledger alone
# needs about 6.5 GB of memory there).
#
# What is measured:
#   post           kvctb post of records.txt into a fresh SQLite database that
#                  holds the chart (init and chart-import are not timed);
#   trial balance  kvctb trial-balance --month 202512 on that database, and
#                  ledger bal / hledger bal of books.journal (each peer reads
#                  the whole journal every time: that is its way of working);
#   close-year     kvctb close-year 2024 (the annual closing), then the trial
#                  balance of 202512 again, which now starts from the
#                  carried-forward balances.
# After the table, the report says whether every account's balance in the
# first run's two kvctb trial balances is the one ledger and hledger give.
#
# ledger, hledger and GNU time are installed with apt-get when missing (root or
# sudo); they are this benchmark's own and no build or test needs them.
# Everything the script writes goes under the work directory: the books in
# data-aACCOUNTS-rRECORDS-sSEED/, each run's outputs, every timing and the
# report in run-aACCOUNTS-rRECORDS-sSEED/.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
command_line="bench/peers.sh${*:+ $*}"
for v in PEERS_RECORDS PEERS_ACCOUNTS PEERS_RUNS PEERS_SEED PEERS_WORKDIR; do
  if [ -n "${!v:-}" ]; then command_line="$v=${!v} $command_line"; fi
done

records=${PEERS_RECORDS:-20000}
accounts=${PEERS_ACCOUNTS:-172}
runs=${PEERS_RUNS:-3}
seed=${PEERS_SEED:-1}
workdir=${PEERS_WORKDIR:-$root/build/peers}

usage() { sed -n '2,/^set -euo/p' "${BASH_SOURCE[0]}" | sed '$d; s/^# \{0,1\}//'; }
while [ $# -gt 0 ]; do
  case "$1" in
    --records) records=$2; shift 2 ;;
    --accounts) accounts=$2; shift 2 ;;
    --runs) runs=$2; shift 2 ;;
    --seed) seed=$2; shift 2 ;;
    --workdir) workdir=$2; shift 2 ;;
    -h | --help) usage; exit 0 ;;
    *) echo "peers.sh: unknown option $1 (see --help)" >&2; exit 2 ;;
  esac
done
for v in records accounts runs seed; do
  [[ ${!v} =~ ^[0-9]+$ ]] || { echo "peers.sh: --$v must be a number" >&2; exit 2; }
done
[ "$runs" -ge 1 ] || { echo "peers.sh: --runs must be at least 1" >&2; exit 2; }
mkdir -p "$workdir"
workdir=$(cd "$workdir" && pwd)

say() { echo "peers.sh: $*" >&2; }

# ---- the peers and GNU time ----
missing=()
command -v ledger >/dev/null || missing+=(ledger)
command -v hledger >/dev/null || missing+=(hledger)
[ -x /usr/bin/time ] || missing+=(time)
if [ ${#missing[@]} -gt 0 ]; then
  SUDO=""
  if [ "$(id -u)" != 0 ]; then SUDO="sudo"; fi
  say "installing ${missing[*]}"
  $SUDO env DEBIAN_FRONTEND=noninteractive apt-get update -qq
  $SUDO env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends \
    "${missing[@]}" >/dev/null
fi

# ---- kvctb and the generator, from the release tree ----
build="$root/build/release"
if [ ! -f "$build/build.ninja" ]; then
  (cd "$root" && cmake --preset release >/dev/null)
fi
say "building kvctb and peers_books (release)"
cmake --build "$build" -j2 --target kvctb peers_books >/dev/null
kvctb="$build/cli/kvctb"
peers_books="$build/bench/peers_books"

# ---- the books ----
data="$workdir/data-a$accounts-r$records-s$seed"
if [ ! -f "$data/done" ]; then
  say "generating $records records over $accounts accounts (seed $seed) in $data"
  rm -rf "$data"
  "$peers_books" --accounts "$accounts" --records "$records" --seed "$seed" --out "$data"
  touch "$data/done"
fi

# ---- measuring ----
run_dir="$workdir/run-a$accounts-r$records-s$seed"
rm -rf "$run_dir"
mkdir -p "$run_dir"
results="$run_dir/results.tsv"
: >"$results"

template="$run_dir/template.db"
"$kvctb" --db "sqlite:$template" --quiet init >/dev/null
"$kvctb" --db "sqlite:$template" --quiet chart-import "$data/chart.csv" >/dev/null

# measure OPERATION TOOL OUTPUT COMMAND...: runs COMMAND under /usr/bin/time
# with its standard output in OUTPUT, and appends OPERATION, TOOL, seconds and
# peak kilobytes to the results.
measure() {
  local op=$1 tool=$2 out=$3
  shift 3
  local t="$run_dir/time.txt"
  if ! /usr/bin/time -f '%e %M' -o "$t" "$@" >"$out" 2>"$out.err"; then
    say "failed: $* (see $out.err)"
    cat "$out.err" >&2
    exit 1
  fi
  printf '%s\t%s\t%s\n' "$op" "$tool" "$(tail -n 1 "$t" | tr ' ' '\t')" >>"$results"
}

journal="$data/books.journal"
for i in $(seq 1 "$runs"); do
  say "run $i of $runs"
  db="$run_dir/books-$i.db"
  cp "$template" "$db"
  k=("$kvctb" --db "sqlite:$db" --quiet)
  measure post kvctb "$run_dir/post-$i.txt" "${k[@]}" post "$data/records.txt"
  measure "trial balance" kvctb "$run_dir/tb-$i.csv" "${k[@]}" --format csv trial-balance \
    --month 202512
  measure "trial balance" ledger "$run_dir/ledger-$i.txt" ledger -f "$journal" bal
  measure "trial balance" hledger "$run_dir/hledger-$i.txt" hledger -f "$journal" bal
  measure close-year kvctb "$run_dir/close-$i.txt" "${k[@]}" close-year 2024
  measure "trial balance after close-year" kvctb "$run_dir/tb-closed-$i.csv" "${k[@]}" \
    --format csv trial-balance --month 202512
  # Each run's database is only needed for its own measurements.
  [ "$i" = 1 ] || rm -f "$db"
done

# ---- do the tools agree? ----
# Every account's balance at the end of 2025 (kvctb: debits minus credits; the
# journal debits with positive amounts, so the signs agree), as "code amount"
# lines: kvctb's from its CSV, the peers' from a flat report whose account
# names end with the code (the journal's names are the codes of the path).
kv_balances() { awk -F, 'NR > 1 { printf "%s %.2f\n", $1, $4 }' "$1" | sort; }
# ledger folds a parent with one child into the child's line, so each level of
# the tree (four: group, two synthetic levels, analytic) is read on its own.
for depth in 1 2 3 4; do
  ledger -f "$journal" bal --depth "$depth" --empty --no-total \
    --balance-format '%(partial_account(true)) %(quantity(scrub(display_total)))\n' |
    awk -v d="$depth" 'split($1, p, ":") == d'
done >"$run_dir/ledger-flat.txt"
hledger -f "$journal" bal --tree --no-elide --no-total -O csv >"$run_dir/hledger-flat.csv"
awk '{ n = split($1, p, ":"); printf "%s %.2f\n", p[n], $2 }' "$run_dir/ledger-flat.txt" |
  sort >"$run_dir/ledger.balances"
awk -F, 'NR > 1 { gsub(/"/, "", $1); gsub(/"/, "", $2); n = split($1, p, ":"); printf "%s %.2f\n", p[n], $2 }' \
  "$run_dir/hledger-flat.csv" | sort >"$run_dir/hledger.balances"
kv_balances "$run_dir/tb-1.csv" >"$run_dir/kvctb.balances"
kv_balances "$run_dir/tb-closed-1.csv" >"$run_dir/kvctb-closed.balances"
# Accounts that no posting reached show 0.00 in kvctb and are absent from the
# peers' reports.
nonzero() { awk '$2 != "0.00" && $2 != "-0.00"' "$1"; }
agreement=""
for f in kvctb kvctb-closed; do
  for peer in ledger hledger; do
    if diff <(nonzero "$run_dir/$f.balances") <(nonzero "$run_dir/$peer.balances") \
      >"$run_dir/diff-$f-$peer.txt"; then
      agreement+="  $f trial balance = $peer bal: all $(nonzero "$run_dir/$f.balances" | wc -l) accounts with a balance agree"$'\n'
    else
      agreement+="  $f trial balance differs from $peer bal in $(grep -c '^[<>]' "$run_dir/diff-$f-$peer.txt") lines (see $run_dir/diff-$f-$peer.txt)"$'\n'
    fi
  done
done

# ---- the report ----
median() { sort -g | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }
stat() { awk -F'\t' -v op="$1" -v tool="$2" -v c="$3" '$1 == op && $2 == tool { print $c }' "$results"; }
report="$run_dir/report.txt"
{
  echo "command:  $command_line"
  echo "books:    $records records, $accounts accounts, seed $seed ($data)"
  echo "runs:     $runs of each, interleaved"
  echo "machine:  $(nproc) CPUs, $(awk -F': ' '/^model name/ { print $2; exit }' /proc/cpuinfo), Debian $(cat /etc/debian_version)"
  echo "load:     $(cut -d' ' -f1-3 /proc/loadavg) (1, 5, 15 min, at the end)"
  echo "kvctb:    $(cd "$root" && git rev-parse --short HEAD 2>/dev/null || echo '?'), release build, SQLite file"
  echo "ledger:   $(ledger --version | head -n 1)"
  echo "hledger:  $(hledger --version | head -n 1)"
  echo
  printf '%-31s %-8s %10s %9s %12s\n' operation tool "median s" "peak MiB" "peer/kvctb"
  for op in post "trial balance" close-year "trial balance after close-year"; do
    kv_s=$(stat "$op" kvctb 3 | median)
    for tool in kvctb ledger hledger; do
      [ -n "$(stat "$op" "$tool" 3)" ] || continue
      s=$(stat "$op" "$tool" 3 | median)
      mib=$(stat "$op" "$tool" 4 | median | awk '{ printf "%.1f", $1 / 1024 }')
      ratio=$(awk -v s="$s" -v k="$kv_s" -v t="$tool" 'BEGIN { if (t == "kvctb") print "-"; else if (k > 0) printf "%.2f", s / k; else print "n/a" }')
      printf '%-31s %-8s %10.2f %9s %12s\n' "$op" "$tool" "$s" "$mib" "$ratio"
    done
  done
  post_s=$(stat post kvctb 3 | median)
  echo
  awk -v n="$records" -v s="$post_s" 'BEGIN { if (s > 0) printf "kvctb post: %.0f records/s\n", n / s }'
  echo "ledger and hledger have no separate posting step: their bal reads and checks the whole journal."
  echo
  echo "balances at the end of 2025, first run:"
  printf '%s' "$agreement"
  echo
  echo "every run: $results (operation, tool, seconds, peak KiB)"
} | tee "$report"
