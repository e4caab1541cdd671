#!/usr/bin/env python3
"""Times quorix peaks against gemmi blobs: the same coefficients (FWT, PHWT) and model, the ligands taken out; ours finds peaks as well.
The blobs are compared first.

Usage: peaks_run.py QUORIX DATA_FOLDER [--runs N]
Runs are in turn, files on a RAM disk if there is one. Processor time is what other users of the machine disturb least."""
import argparse
import json
import os
import re
import subprocess
import tempfile
from pathlib import Path

from small_files import compare

CASES = {'1rx2_P212121': ('NAP', 'FOL'), '5orl_P6122': ('ADP', 'A4W')}


def without(model, names, out):
    lines = model.read_text().splitlines(keepends=True)
    out.write_text(''.join(line for line in lines if not (line.startswith('HETATM') and line[17:20] in names)))


def check(ours, theirs):
    """Scores and volumes of both; grids differ, so that they agree to a few per cent."""
    mine = [(b['score'], b['volume']) for b in json.loads(ours)['blobs']]
    other = [tuple(map(float, m)) for m in re.findall(r'([\d.]+) el in +([\d.]+) A\^3', theirs)]
    assert len(mine) == len(other) > 0, (mine, other)
    for a, b in zip(mine, other):
        assert all(abs(x - y) < 0.05 * y for x, y in zip(a, b)), (mine, other)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument('program')
    parser.add_argument('data', type=Path)
    parser.add_argument('--runs', type=int, default=15)
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory(dir='/dev/shm' if os.path.isdir('/dev/shm') else None) as folder:
        for name, ligands in CASES.items():
            model, mtz = f'{folder}/{name}.pdb', str(arguments.data / f'{name}.mtz')
            without(arguments.data / f'{name}.pdb', ligands, Path(model))
            grid = subprocess.run(['gemmi', 'blobs', '-G', mtz, model], check=True, capture_output=True, text=True).stdout
            ours = [arguments.program, 'peaks', mtz, '--model', model, '--full', '--threads', '1']
            theirs = ['gemmi', 'blobs', mtz, model]
            json_words = [*ours, '--json']
            check(subprocess.run(json_words, check=True, capture_output=True).stdout,
                  subprocess.run(theirs, check=True, capture_output=True, text=True).stdout)
            print(grid.strip(), 'by gemmi', json.loads(
                subprocess.run(json_words, check=True, capture_output=True).stdout)['grid'], 'by quorix')
            compare(name[:4], [ours], [theirs], arguments.runs)


if __name__ == '__main__':
    main()
