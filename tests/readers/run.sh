#!/usr/bin/env bash
# Maps of the example as clipper, gemmi, mrcfile and PyMOL read them.
set -euo pipefail
cd "$(dirname "$0")/../.."

folder=${QUORIX_BUILD:-build}
[ -x "$folder/bin/quorix" ] || tools/build.sh "$folder" -DQUORIX_TESTS=OFF
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
# Debian's clipper.pc requires a file that Debian does not have.
g++ -O1 -w tests/readers/clipper_reader.cpp -o "$scratch/clipper_reader" -lclipper-ccp4 -lclipper-core
quorix() { "$folder/bin/quorix" map examples/1ubq.mtz "$scratch/$1.ccp4" --no-scale -q "${@:2}" 2>/dev/null; }
around=(--extent model examples/1ubq.pdb)
quorix cell
quorix box "${around[@]}"
quorix plain --plain-header
quorix plain_box --plain-header "${around[@]}"
"$folder/bin/quorix" map examples/1ubq.mtz --prefix "$scratch/1ubq" --scripts -q 2>/dev/null
"$folder/bin/quorix" report "$scratch/1ubq_mFo-DFc.ccp4" --model examples/1ubq.pdb -o "$scratch" -q
/usr/bin/python3 tests/readers/check_readers.py "$scratch/clipper_reader" "$scratch"
