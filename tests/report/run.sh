#!/usr/bin/env bash
# Makes report pages of the example and uses them in headless Chromium.
set -euo pipefail
picture=${1:+$(realpath "$1")}
cd "$(dirname "$0")/../.."

folder=${QUORIX_BUILD:-build}
[ -x "$folder/bin/quorix" ] || tools/build.sh "$folder" -DQUORIX_TESTS=OFF
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
quorix=$PWD/$folder/bin/quorix
example=$PWD/examples/1ubq
cd "$scratch"
"$quorix" map "$example.mtz" -q
"$quorix" map "$example.mtz" box_mFo-DFc.ccp4 --difference --extent box 10 34 10 34 4 26 -q
"$quorix" report 1ubq_2mFo-DFc.ccp4 --model "$example.pdb" -q
"$quorix" report box_mFo-DFc.ccp4 --data "$example.mtz" -q
"$quorix" report "$example.mtz" "$example.pdb" -q
# With a name of a file, its picture of the page is kept there, as it stands in docs/.
/usr/bin/python3 "$OLDPWD/tests/report/check_page.py" 1ubq_2mFo-DFc.html box_mFo-DFc.html 1ubq.html "$picture"
