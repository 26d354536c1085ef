#!/usr/bin/env bash
# Runs clang-tidy 14 with the checks of .clang-tidy over the library's and
# kvctb's sources, and fails on any finding. It needs only the compile
# commands CMake writes when it configures a build: no header is generated
# (the embedded schema is a source of its own, not checked here).
#
#   scripts/tidy.sh [BUILD_DIR]    the build's compile_commands.json (default build/debug)
#   KVC_TIDY_JOBS=N                clang-tidy processes at once (default 1)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/debug}
jobs=${KVC_TIDY_JOBS:-1}
tidy=clang-tidy-14

if ! command -v "$tidy" >/dev/null 2>&1; then
  echo "tidy: $tidy not found; scripts/install-deps.sh installs it" >&2
  exit 2
fi
if [ ! -f "$build/compile_commands.json" ]; then
  echo "tidy: no $build/compile_commands.json; configure first (cmake --preset debug)" >&2
  exit 2
fi

mapfile -t files < <(git ls-files ':(glob)accounting/**/*.cpp' ':(glob)cli/*.cpp' 2>/dev/null ||
  { find accounting -name '*.cpp'; find cli -maxdepth 1 -name '*.cpp'; })
[ ${#files[@]} -eq 0 ] && exit 0
echo "tidy: ${#files[@]} files, $jobs at a time" >&2

# The compile commands are the compiler's, and clang does not know all of
# GCC's warning options. The count of warnings suppressed in headers outside
# the filter is left out.
set +e
printf '%s\0' "${files[@]}" |
  xargs -0 -n 4 -P "$jobs" "$tidy" -p "$build" --quiet --warnings-as-errors='*' \
    --extra-arg=-Wno-unknown-warning-option 2>&1 |
  grep -vE '^[0-9]+ warnings? generated\.$'
status=${PIPESTATUS[1]}
set -e
if [ "$status" -ne 0 ]; then
  echo "tidy: findings above (checks in .clang-tidy)" >&2
  exit 1
fi
