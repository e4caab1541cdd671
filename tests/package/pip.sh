#!/usr/bin/env bash
# Builds and installs the Python module by pip into a scratch folder, and uses it from outside.
set -euo pipefail
cd "$(dirname "$0")/../.."

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
/usr/bin/python3 -m pip install --quiet --no-build-isolation --no-deps --target "$scratch/module" . >"$scratch/log" 2>&1 ||
  { tail -60 "$scratch/log"; exit 1; }
example=$PWD/examples/1ubq.mtz
user=$PWD/tests/package/outside/use_module.py
cd "$scratch"
env -u ZENVI_DATA PYTHONPATH="$scratch/module" /usr/bin/python3 "$user" "$example"
echo "pip: builds, installs and works from outside"
