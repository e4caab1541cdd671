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
# The example holds no ligand: an ion and a glycerol among its waters.
cat >ligand.txt <<'ATOMS'
HETATM 1001 ZN    ZN B 200      30.000  20.000  10.000  1.00 20.00          ZN
HETATM 1002  C1  GOL B 201      45.747  30.081  19.708  1.00 20.00           C
HETATM 1003  O1  GOL B 201      44.570  30.800  19.380  1.00 20.00           O
HETATM 1004  C2  GOL B 201      46.790  30.960  20.390  1.00 20.00           C
HETATM 1005  O2  GOL B 201      46.240  31.520  21.580  1.00 20.00           O
HETATM 1006  C3  GOL B 201      48.030  30.150  20.730  1.00 20.00           C
HETATM 1007  O3  GOL B 201      49.000  31.010  21.320  1.00 20.00           O
ATOMS
sed '/^HETATM  604/{
r ligand.txt
d
}' "$example.pdb" >ligand.pdb
"$quorix" report "$example.mtz" ligand.pdb -o ligand -q
# With a name of a file, its picture of the page is kept there, as it stands in docs/.
/usr/bin/python3 "$OLDPWD/tests/report/check_page.py" 1ubq_2mFo-DFc.html box_mFo-DFc.html 1ubq.html ligand/1ubq.html "$picture"
