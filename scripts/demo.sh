#!/usr/bin/env bash
# Installs the dependencies, builds the release configuration and runs the
# example host on the embedded database (an SQLite file, kvc_demo.db, in the
# current directory).
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
bash "$here/scripts/install-deps.sh"
cmake -S "$here" --preset release >/dev/null
cmake --build "$here/build/release" -j2
"$here/build/release/kvc_example" "sqlite:${KVC_DEMO_DB:-kvc_demo.db}"
