#!/usr/bin/env bash
# Installs, with apt-get, everything the project needs to build and test on
# Debian 12: compilers and build tools, clang-format and clang-tidy at the
# version the checks are written for (14), SOCI with its backends and the client
# libraries, the test and benchmark frameworks, and a comma-decimal locale
# (pt_BR.UTF-8) for the locale tests, and clang with its sanitizer and
# libFuzzer runtimes (libclang-rt-dev) and llvm-symbolizer (llvm) for the
# fuzz targets, hledger, which checks the exported journal, and chromium (with
# a font), which renders the HTML reports in the browser test. Idempotent and non-interactive.
set -euo pipefail

packages=(
  build-essential cmake ninja-build clang-format-14 clang-tidy-14 git
  clang libclang-rt-dev llvm valgrind
  libsoci-dev libboost-dev libsqlite3-dev sqlite3
  firebird-dev libpq-dev unixodbc-dev unixodbc odbc-postgresql libsqliteodbc tdsodbc
  firebird3.0-server-core firebird3.0-utils
  libgtest-dev libgmock-dev libbenchmark-dev
  libfmt-dev nlohmann-json3-dev libcli11-dev
  locales tzdata
  hledger chromium fonts-dejavu-core
)

SUDO=""
if [ "$(id -u)" != 0 ]; then SUDO="sudo"; fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "install-deps: installing ${missing[*]}" >&2
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "${missing[@]}"
fi

# The comma-decimal locale used by the locale tests.
if ! locale -a 2>/dev/null | grep -qi '^pt_BR\.utf-\?8$'; then
  echo "install-deps: generating pt_BR.UTF-8" >&2
  if [ -f /etc/locale.gen ] && grep -q 'pt_BR.UTF-8' /etc/locale.gen; then
    $SUDO sed -i 's/^# *\(pt_BR.UTF-8 UTF-8\)/\1/' /etc/locale.gen
    $SUDO locale-gen >/dev/null
  else
    $SUDO localedef -i pt_BR -f UTF-8 pt_BR.UTF-8
  fi
fi
