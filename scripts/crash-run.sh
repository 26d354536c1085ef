#!/usr/bin/env bash
# The long run of kvctb's crash tests (tests/cli/crash_test.cpp): KILLS
# SIGKILL kills of post and close-result (three quarters post), and with
# them KILLS/25 SIGINT, KILLS/25 SIGTERM and KILLS/50 close-year kills, then
# the figures added up. Builds the debug preset's test program when missing.
#
#   scripts/crash-run.sh            5000 kills
#   scripts/crash-run.sh 1000       1000 kills
#   KVC_CRASH_BASE_SEED=7000 scripts/crash-run.sh 200    a chosen first seed
#
# A failing kill prints its seed; replay it alone with
#   KVC_CRASH_SEED=SEED build/debug/tests/kvctb_tests --gtest_filter='CrashTest.TEST'
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
cd "$here"
kills=${1:-5000}
case "$kills" in '' | *[!0-9]*)
  echo "usage: scripts/crash-run.sh [KILLS]" >&2
  exit 2
  ;;
esac

tests=build/debug/tests/kvctb_tests
if [ ! -x "$tests" ]; then
  cmake --preset debug >/dev/null
  cmake --build --preset debug --target kvctb_tests
fi

log=$(mktemp /tmp/crash-run.XXXXXX.log)
start=$(date +%s)
status=0
KVC_CRASH_KILLS=$kills \
  KVC_CRASH_SIGNAL_KILLS=$((kills / 25)) \
  KVC_CRASH_CLOSE_YEAR_KILLS=$((kills / 50)) \
  "$tests" --gtest_filter='CrashTest.*' >"$log" 2>&1 || status=$?
elapsed=$(($(date +%s) - start))

grep '^crash-figures:' "$log" || true
grep -E '^\[  FAILED  \]|seed [0-9]+ \(replay' "$log" | head -20 || true
grep '^crash-figures:' "$log" | awk -v elapsed="$elapsed" -v status="$status" '
  {
    for (i = 2; i <= NF; i++) {
      split($i, kv, "=")
      sum[kv[1]] += kv[2]
    }
  }
  END {
    printf "kills: %d\n", sum["kills"]
    printf "nothing written: %d\n", sum["nothing"]
    printf "everything written: %d\n", sum["everything"]
    printf "rollback journal left beside the file (played back on open): %d\n", sum["journals"]
    printf "SIGINT/SIGTERM answered by the handler: %d\n", sum["handled"]
    printf "failures: %d\n", sum["failures"]
    printf "time: %dm%02ds\n", elapsed / 60, elapsed % 60
    printf "test program exit status: %d\n", status
  }'
echo "log: $log"
exit "$status"
