#!/usr/bin/env bash
# Makes report pages of the example and uses them in headless Chromium.
set -euo pipefail
cd "$(dirname "$0")/../.."

folder=${QUORIX_BUILD:-build}
[ -x "$folder/bin/quorix" ] || tools/build.sh "$folder" -DQUORIX_TESTS=OFF
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
quorix=$PWD/$folder/bin/quorix
example=$PWD/examples/1ubq
cd "$scratch"
"$quorix" map "$example.mtz" --provenance -q
"$quorix" report 1ubq_2mFo-DFc.ccp4 --model "$example.pdb" -q
"$quorix" report 1ubq_mFo-DFc.ccp4 --data "$example.mtz" -q
/usr/bin/python3 "$OLDPWD/tests/report/check_page.py" 1ubq_2mFo-DFc.html 1ubq_mFo-DFc.html
