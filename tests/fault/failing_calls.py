#!/usr/bin/env python3
"""Whole programs whose n-th call of a kind fails (failing_calls.c, preloaded): whatever n, a status of 0
means the bytes of an undisturbed run, another status that a good file in the output's place is still
there, and nothing else is left behind.
Usage: failing_calls.py BIN_FOLDER PRELOAD_LIBRARY SOURCE_FOLDER [EVERY]; EVERY: of each kind about how many
n are tried (default 60; 0: all)."""
import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

# The history of an MTZ file tells when it was written.
DATE = re.compile(rb'From Quorix [0-9/]+ [0-9:]+')
KINDS = ('malloc', 'open', 'write', 'close', 'rename')


def jobs(bin_folder, source):
    example = source / 'examples'
    mtz, pdb = example / '1ubq.mtz', example / '1ubq.pdb'
    text = ('xcry\nspgname P 21 21 21\ncell 50.84 42.77 28.95 90 90 90\nreso 4 50\nread refl mtz file "' + str(mtz) +
            '" coid MAP_COEFFA=FWT MAP_COEFFP=PHWT\nxend\nxgrid\nfrac 0.33\nxend\nxfft\nxend\nxmap\nmapdef generated '
            'with amplitude input phase input\ngenerate\nwrite ccp4 file "out"\nxend\nxter\nxend\n')
    yield 'quorix-map', [bin_folder / 'quorix-map', 'P 21 21 21', *'50.84 42.77 28.95 90 90 90 4 50'.split(), mtz, 'FWT',
                         'PHWT', '', 'out'], None, ['out']
    yield 'map', [bin_folder / 'quorix', 'map', mtz, 'out.ccp4', '--dmin', '4'], None, ['out.ccp4']
    yield 'fcalc', [bin_folder / 'quorix', 'fcalc', pdb, '--dmin', '6', '-o', 'out.mtz'], None, ['out.mtz']
    yield 'maps', [bin_folder / 'quorix', 'maps', pdb, mtz, '--dmin', '4', '-o', 'out.mtz', '--maps', 'm'], None, [
        'out.mtz', 'm_2mFo-DFc.ccp4', 'm_mFo-DFc.ccp4']
    yield 'validate', [bin_folder / 'quorix', 'validate', pdb, mtz, '--dmin', '4', '--worst', '3'], None, []
    yield 'stats', [bin_folder / 'quorix', 'stats', mtz, '--dmin', '3', '--plot', 'p.svg'], None, ['p.svg']
    yield 'fofo', [bin_folder / 'quorix', 'fofo', mtz, mtz, '--phases', 'PHWT', '--dmin', '4', '-o', 'out.mtz', '--map', 'm'], \
        None, ['out.mtz', 'm']
    yield 'info', [bin_folder / 'quorix', 'info', mtz], None, []
    yield 'run', [bin_folder / 'quorix', 'run', '-'], text.encode(), ['out']


class Run:
    def __init__(self, words, given, outputs, environment):
        with tempfile.TemporaryDirectory() as folder:
            for name in outputs:
                (Path(folder) / name).write_bytes(b'')
            done = subprocess.run([str(w) for w in words], cwd=folder, env=environment, input=given, timeout=120,
                                  stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            self.status, self.said = done.returncode, done.stdout
            # Without memory before main there is nobody to tell it.
            self.told_memory = b'std::bad_alloc' in done.stderr
            self.files = {p.name: DATE.sub(b'', p.read_bytes()) for p in Path(folder).iterdir()}


def disturbed(kind, n, library, base):
    return {**base, 'LD_PRELOAD': str(library), 'QUORIX_FAIL': f'{kind}:{n}'}


def count_calls(kind, words, given, outputs, library, base):
    with tempfile.NamedTemporaryFile() as counted:
        Run(words, given, outputs, {**disturbed(kind, -1, library, base), 'QUORIX_FAIL_COUNT': counted.name})
        return int(Path(counted.name).read_text() or 0)


def complaint(run, good, outputs):
    if run.status < 0 and not run.told_memory:
        return f'ended by signal {-run.status}'
    if run.status == 0 and (run.files != good.files or run.said != good.said):
        return 'status 0, but not what an undisturbed run gives'
    if run.status != 0:
        left = {name: data for name, data in run.files.items()
                if not (name in outputs and data in (b'', good.files.get(name)))}
        if left:
            return f'left {sorted(left)}'
    return None


def main():
    bin_folder, library, source = (Path(a).resolve() for a in sys.argv[1:4])
    every = int(sys.argv[4]) if len(sys.argv) > 4 else 60
    base = {**os.environ, 'ZENVI_DATA': str(source / 'data'), 'SOURCE_DATE_EPOCH': '0'}
    faults = tried = 0
    for name, words, given, outputs in jobs(bin_folder, source):
        good = Run(words, given, outputs, base)
        assert good.status == 0, (name, good.status)
        for kind in KINDS:
            calls = count_calls(kind, words, given, outputs, library, base)
            step = max(1, calls // every) if every else 1
            for n in range(0, calls, step):
                tried += 1
                wrong = complaint(Run(words, given, outputs, disturbed(kind, n, library, base)), good, outputs)
                if wrong:
                    faults += 1
                    print(f'{name}: {kind} call {n} of {calls}: {wrong}')
    print(f'{tried} disturbed runs, {faults} faults')
    return 1 if faults else 0


if __name__ == '__main__':
    sys.exit(main())
