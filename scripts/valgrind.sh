#!/usr/bin/env bash
# Runs kvctb's main commands under valgrind's memcheck on a fresh demo
# database: any memory error or definite leak fails the script. Uses the
# debug build (scripts/test.sh builds it; `cmake --build --preset debug`
# otherwise).
#
#   scripts/valgrind.sh [KVCTB]     default: build/debug/cli/kvctb
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
kvctb_bin="${1:-$here/build/debug/cli/kvctb}"
[ -x "$kvctb_bin" ] || { echo "valgrind: $kvctb_bin not built" >&2; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

# Two records in the fixed-width posting format (133 characters each): the
# account fields at 74-93 and 94-113, the side mark at 118, the amount in
# cents at 119-133.
record() {  # YYMM DD HISTORY ACCOUNT1 ACCOUNT2 MARK CENTS
  printf '%-12s%-4s%-16s%-4s%-2s%-3s%-32s%-20s%-20s%-4s%-1s%015d\n' \
    '' '3' '' "$1" "$2" '' "$3" "$4" "$5" '' "$6" "$7"
}
{ record 2406 15 'VENDA VALGRIND' 1.1.1.01 3.1.1.01 ' ' 12345
  record 2406 16 'DEVOLUCAO' 5.1.1.01 1.1.1.01 '-' 500; } > entries.txt
printf 'CONTA,CONTA_SUPERIORA,NIVEL,NIVEL_DIVISAO,LANCAMENTO_DIVIDIDO\n6,,S,,\n6.1,6,S,,\n6.1.01,6.1,A,1,S\n' > chart.csv

failed=0
run() {
  local log="$work/valgrind.log" start=$SECONDS
  if valgrind --tool=memcheck --leak-check=full --errors-for-leak-kinds=definite \
       --show-leak-kinds=definite --error-exitcode=99 --quiet --log-file="$log" \
       "$kvctb_bin" --db "sqlite:$db" --quiet "$@" > /dev/null 2> "$work/stderr"; then
    echo "valgrind: clean: kvctb $* ($((SECONDS - start)) s)"
  else
    local code=$?
    if [ "$code" = 99 ] || [ -s "$log" ]; then
      echo "valgrind: FAILED (memory errors or definite leaks): kvctb $*" >&2
      cat "$log" >&2
      failed=1
    else
      echo "valgrind: kvctb $* exited $code (no memory error):" >&2
      cat "$work/stderr" >&2
      failed=1
    fi
  fi
}

# The demo company is loaded without valgrind (its thousands of postings
# take many minutes under memcheck); an empty database is created under it.
db=empty.db
run init
db=v.db
"$kvctb_bin" --db "sqlite:$db" --quiet init --demo > /dev/null
run chart-import chart.csv
run post entries.txt --document 4711
run --format json balance 1.1.1.01 --month 202406
run trial-balance --month 202406
run movement 1.1.1.01 --from 202401 --to 202406
run close-year 2023
run close-result --month 202412 --day 31 --year 2024 --history 99 --result-account 2.9.1.01 --confirm
exit $failed
