#!/usr/bin/env bash
# The fuzzing long run, in slices that survive an interrupted session: every
# target gets CPU_SECONDS of its own CPU time in all (default 3600, one
# CPU-hour), run as slices of at most SLICE CPU seconds (default 600) by
# scripts/fuzz.sh --cpu on a corpus kept in DIR (default build/fuzz/long), so
# each slice starts from everything the earlier ones found. A finished slice
# is recorded in DIR/NAME.runs; a slice cut short by a killed session is not
# counted (its corpus additions stay). Run it again to go on where it stopped;
# when every target has its budget it only prints the table.
#
#   scripts/fuzz-long.sh [CPU_SECONDS [SLICE]]
#
# Environment: KVC_FUZZ_JOBS and KVC_FUZZ_TARGETS as for scripts/fuzz.sh;
# KVC_FUZZ_LONG_DIR for DIR. Stops at the first finding (fuzz.sh prints the
# report and the reproducer) and exits non-zero.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
cd "$here"

budget=${1:-3600}
slice=${2:-600}
for value in "$budget" "$slice"; do
  if ! [[ "$value" =~ ^[1-9][0-9]*$ ]]; then
    echo "usage: scripts/fuzz-long.sh [CPU_SECONDS [SLICE]]" >&2
    exit 2
  fi
done
dir=${KVC_FUZZ_LONG_DIR:-$here/build/fuzz/long}
mkdir -p "$dir"

targets=()
if [ -n "${KVC_FUZZ_TARGETS:-}" ]; then
  read -r -a targets <<<"$KVC_FUZZ_TARGETS"
else
  for f in fuzz/*_fuzz.cpp; do targets+=("$(basename "$f" _fuzz.cpp)"); done
fi

# CPU seconds a target has had in finished slices.
used() { awk '{ total += $2 } END { print total + 0 }' "$dir/$1.runs" 2>/dev/null || echo 0; }

# A remainder under a minute (or under the slice) left by rounding is not
# worth a start: that target counts as done, and the others go on.
floor=$((slice < 60 ? slice : 60))
while :; do
  pending=()
  for name in "${targets[@]}"; do
    [ $((budget - $(used "$name"))) -ge "$floor" ] && pending+=("$name")
  done
  [ "${#pending[@]}" -eq 0 ] && break
  # One slice for each target still short of its budget; the slice is the
  # smallest remainder among them, so no target gets more than its budget.
  next=$slice
  for name in "${pending[@]}"; do
    left=$((budget - $(used "$name")))
    [ "$left" -lt "$next" ] && next=$left
  done
  KVC_FUZZ_KEEP="$dir" KVC_FUZZ_TARGETS="${pending[*]}" bash scripts/fuzz.sh --cpu "$next"
done

printf '%-14s %7s %14s %8s %8s %10s %18s  %s\n' target slices executions seconds cpu-s exec/cpu-s corpus result
for name in "${targets[@]}"; do
  seeds=$(find "fuzz/corpus/$name" -type f 2>/dev/null | wc -l)
  awk -v name="$name" -v seeds="$seeds" '
    { slices++; execs += $1; cpu += $2; wall += $3; if ($4 != 0) failed++; corpus = $5 }
    END {
      rate = cpu > 0 ? int(execs / cpu) : 0
      printf "%-14s %7d %14d %8d %8d %10d %18s  %s\n", name, slices, execs, wall, cpu, rate,
        seeds " -> " corpus, failed ? "FINDING" : "no finding"
    }' "$dir/$name.runs" 2>/dev/null || printf '%-14s %7d\n' "$name" 0
done
