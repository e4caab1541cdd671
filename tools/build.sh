#!/usr/bin/env bash
# Configures and builds into a folder, quietly unless it fails.
# Usage: tools/build.sh FOLDER [cmake options ...]
set -euo pipefail
cd "$(dirname "$0")/.."

folder=$1
shift
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
log=$(mktemp)
trap 'rm -f "$log"' EXIT
echo "Building in $folder ..."
cmake -S . -B "$folder" -G Ninja "${launcher[@]}" "$@" >"$log" 2>&1 || { cat "$log" >&2; exit 1; }
cmake --build "$folder" >"$log" 2>&1 || { tail -60 "$log" >&2; exit 1; }
