#!/usr/bin/env bash
# Puts the npm packages that report pages embed into data/report/third-party, or with --check says
# whether those there are them. The versions stand here; a build needs no npm.
set -euo pipefail
cd "$(dirname "$0")/.."

packages=(uglymol@0.7.2 d3-array@3.2.5 d3-contour@4.0.3)
files=(uglymol.js dist/d3-array.min.js dist/d3-contour.min.js)

fetched=$(mktemp -d)
trap 'rm -rf "$fetched"' EXIT
for i in "${!packages[@]}"; do
  archive=$(cd "$fetched" && npm pack --silent "${packages[i]}")
  mkdir -p "$fetched/package-$i"
  tar -xzf "$fetched/$archive" -C "$fetched/package-$i" --strip-components=1
  mkdir -p "$fetched/new"
  cp "$fetched/package-$i/${files[i]}" "$fetched/new/"
  { echo "${packages[i]/@/ }"; echo; cat "$fetched/package-$i/LICENSE"; echo; } >>"$fetched/new/LICENSES.txt"
done
if [ "${1:-}" = --check ]; then
  diff -r "$fetched/new" data/report/third-party && echo "third-party files: as npm has them"
else
  cp "$fetched"/new/* data/report/third-party/
fi
