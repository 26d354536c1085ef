#!/usr/bin/env bash
# Builds the libFuzzer targets (preset fuzz: clang, AddressSanitizer and
# UndefinedBehaviorSanitizer over the whole library) and runs each of them
# for SECONDS_PER_TARGET seconds on a temporary copy of its committed seed
# corpus (fuzz/corpus/NAME, never written to). Prints one line per target
# (executions, seconds, corpus size before and after) and fails when any
# target finds something, printing the report and where the reproducer is.
#
#   scripts/fuzz.sh              60 seconds per target (what scripts/test.sh runs)
#   scripts/fuzz.sh --cpu 3600   the long run: one CPU-hour per target
#
# With --cpu the budget is the fuzzer's own CPU time (user and system), not
# the clock: on a machine shared with builds a target that waits for the
# processor still gets its hour. The script watches it and interrupts it
# (SIGINT, after which libFuzzer prints its final statistics and exits 72)
# once it has used the budget.
#
# Environment:
#   KVC_FUZZ_JOBS      targets run at once (default: 2, at most the cores)
#   KVC_FUZZ_TARGETS   the targets to run, by name (default: all of fuzz/)
#   KVC_FUZZ_KEEP      a directory that keeps each target's corpus between runs
#                      (DIR/NAME/corpus, first filled from the seeds) and gets
#                      one line per finished run appended to DIR/NAME.runs:
#                      "EXECUTIONS CPU_SECONDS WALL_SECONDS EXIT CORPUS_AFTER"
#                      (scripts/fuzz-long.sh adds these up across sessions)
#
# The reproducers of the latest run of a target are kept in
# build/fuzz/findings/NAME/; replay one with
#   build/fuzz/fuzz/NAME_fuzz build/fuzz/findings/NAME/crash-...
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
cd "$here"

budget=wall
if [ "${1:-}" = --cpu ]; then
  budget=cpu
  shift
fi
seconds=${1:-60}
if ! [[ "$seconds" =~ ^[1-9][0-9]*$ ]]; then
  echo "usage: scripts/fuzz.sh [--cpu] [SECONDS_PER_TARGET]" >&2
  exit 2
fi
ticks=$(getconf CLK_TCK)

targets=()
if [ -n "${KVC_FUZZ_TARGETS:-}" ]; then
  read -r -a targets <<<"$KVC_FUZZ_TARGETS"
else
  for f in fuzz/*_fuzz.cpp; do
    name=$(basename "$f" _fuzz.cpp)
    targets+=("$name")
  done
fi

cores=$(nproc 2>/dev/null || echo 1)
jobs=${KVC_FUZZ_JOBS:-2}
[ "$jobs" -gt "$cores" ] && jobs=$cores
[ "$jobs" -lt 1 ] && jobs=1

echo "fuzz: building the fuzz preset (clang, ASan, UBSan)" >&2
build_start=$(date +%s)
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target kvc_fuzz
echo "fuzz: built in $(($(date +%s) - build_start)) s" >&2

bin="$here/build/fuzz/fuzz"
findings="$here/build/fuzz/findings"
work=$(mktemp -d "${TMPDIR:-/tmp}/kvc-fuzz.XXXXXX")
trap 'rm -rf "$work"' EXIT
trap 'exit 130' INT TERM

# A finding aborts at once; leaks count; stack traces name the source lines.
export ASAN_OPTIONS="abort_on_error=1:detect_leaks=1:symbolize=1${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"
if [ -z "${ASAN_SYMBOLIZER_PATH:-}" ] && command -v llvm-symbolizer >/dev/null; then
  export ASAN_SYMBOLIZER_PATH=$(command -v llvm-symbolizer)
fi

final_stat() { sed -n "s/^stat::$2: *//p" "$work/$1.log" | tail -1; }
keep=${KVC_FUZZ_KEEP:-}
if [ -n "$keep" ]; then
  mkdir -p "$keep"
  keep=$(cd "$keep" && pwd)
fi

# Runs one target; its output goes to $work/NAME.log, its exit code to
# $work/NAME.rc, its wall time to $work/NAME.time and the CPU time of the
# fuzzer (user and system, from the shell's `times`) to $work/NAME.cpu: on a
# shared machine the two differ, and the long run's promise is CPU time.
run_target() {
  local name=$1
  local corpus="$work/$name/corpus"
  [ -n "$keep" ] && corpus="$keep/$name/corpus"
  rm -rf "${findings:?}/$name"
  if [ ! -d "$corpus" ]; then
    mkdir -p "$corpus"
    if [ -d "fuzz/corpus/$name" ]; then cp -R "fuzz/corpus/$name/." "$corpus/"; fi
  fi
  mkdir -p "$findings/$name"
  find "$corpus" -type f | wc -l >"$work/$name.seeds"
  local start rc=0
  start=$(date +%s)
  local limit=$seconds
  [ "$budget" = cpu ] && limit=0 # no clock limit: the loop below ends it
  "$bin/${name}_fuzz" "$corpus" -max_total_time="$limit" -print_final_stats=1 \
    -timeout=25 -rss_limit_mb=2048 -artifact_prefix="$findings/$name/" \
    >"$work/$name.log" 2>&1 &
  local pid=$!
  if [ "$budget" = cpu ]; then
    # Fields 14 and 15 of /proc/PID/stat: user and system time in ticks.
    while kill -0 "$pid" 2>/dev/null; do
      sleep 5
      local used
      used=$(awk -v t="$ticks" '{ print int(($14 + $15) / t) }' "/proc/$pid/stat" 2>/dev/null || echo 0)
      if [ "${used:-0}" -ge "$seconds" ]; then
        kill -INT "$pid" 2>/dev/null || true
        break
      fi
    done
  fi
  wait "$pid" || rc=$?
  # Interrupted at the end of its budget, with nothing found.
  if [ "$budget" = cpu ] && [ "$rc" = 72 ]; then rc=0; fi
  echo $(($(date +%s) - start)) >"$work/$name.time"
  # The second line of `times` is the children's user and system time, as
  # "XmY.YYYs XmY.YYYs"; a builtin with a redirection runs in this shell.
  times >"$work/$name.times"
  awk 'NR == 2 {
         total = 0
         for (i = 1; i <= 2; i++) { split($i, t, /[ms]/); total += t[1] * 60 + t[2] }
         printf "%d\n", total
       }' "$work/$name.times" >"$work/$name.cpu"
  echo "$rc" >"$work/$name.rc"
  if [ -n "$keep" ]; then
    echo "$(final_stat "$name" number_of_executed_units) $(cat "$work/$name.cpu")" \
      "$(cat "$work/$name.time") $rc $(find "$corpus" -type f | wc -l)" >>"$keep/$name.runs"
  fi
}

for name in "${targets[@]}"; do
  if [ ! -x "$bin/${name}_fuzz" ]; then
    echo "fuzz: no target named '$name' in $bin" >&2
    exit 2
  fi
done

echo "fuzz: ${#targets[@]} targets, ${seconds} s ($budget time) each, $jobs at once" >&2
running=0
for name in "${targets[@]}"; do
  if [ "$running" -ge "$jobs" ]; then
    wait -n || true
    running=$((running - 1))
  fi
  echo "fuzz: $name started" >&2
  run_target "$name" &
  running=$((running + 1))
done
wait || true

failed=0
passed=0
printf '%-14s %14s %8s %8s %10s %18s  %s\n' target executions seconds cpu-s exec/s corpus result
for name in "${targets[@]}"; do
  rc=$(cat "$work/$name.rc" 2>/dev/null || echo 1)
  execs=$(final_stat "$name" number_of_executed_units)
  rate=$(final_stat "$name" average_exec_per_sec)
  seeds=$(cat "$work/$name.seeds")
  after=$(find "${keep:-$work}/$name/corpus" -type f | wc -l)
  result="no finding"
  if [ "$rc" != 0 ]; then
    result="FINDING (exit $rc)"
    failed=$((failed + 1))
  else
    passed=$((passed + 1))
  fi
  printf '%-14s %14s %8s %8s %10s %18s  %s\n' "$name" "${execs:-?}" "$(cat "$work/$name.time")" \
    "$(cat "$work/$name.cpu")" "${rate:-?}" "$seeds -> $after" "$result"
done

if [ "$failed" != 0 ]; then
  for name in "${targets[@]}"; do
    [ "$(cat "$work/$name.rc")" = 0 ] && continue
    echo
    echo "==== $name: the end of its report"
    grep -v -E '^(#[0-9]+|INFO:|MS:|[[:space:]]*NEW_FUNC)' "$work/$name.log" | tail -60
    reproducer=$(sed -n 's/.*Test unit written to \(.*\)$/\1/p' "$work/$name.log" | tail -1)
    if [ -n "$reproducer" ]; then
      echo "reproducer: $reproducer"
      echo "replay:     $bin/${name}_fuzz $reproducer"
    fi
  done
  echo "fuzz: $passed passed, $failed failed"
  exit 1
fi
echo "fuzz: $passed passed, $failed failed"
