#!/usr/bin/env python3
"""Times quorix on small real files against gemmi's programs for the same work, run in turn.

Usage: small_files.py QUORIX DATA_FOLDER [--runs N]
The maps are on the same grids, of the same coefficients, and are compared first; files go to a RAM disk
if there is one. Processor time is what other users of the machine disturb least."""
import argparse
import os
import resource
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import gemmi
import numpy

FILES = {'1rx2': '1rx2_P212121.mtz', '5orl': '5orl_P6122.mtz'}
MAPS = {'2mFo-DFc': ('FWT', 'PHWT'), 'mFo-DFc': ('DELFWT', 'PHDELWT')}


def timed(commands):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.perf_counter()
    for command in commands:
        subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    wall = time.perf_counter() - start
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return wall, after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def compare(name, ours, theirs, runs):
    timed(ours), timed(theirs)
    pairs = [(timed(ours), timed(theirs)) for _ in range(runs)]
    line = f'{name:22}'
    for kind, label in ((0, 'wall'), (1, 'cpu')):
        mine = [1e3 * pair[0][kind] for pair in pairs]
        other = [1e3 * pair[1][kind] for pair in pairs]
        line += (f' {label} ms {statistics.median(mine):6.1f} {statistics.median(other):6.1f},'
                 f' least {min(mine):6.1f} {min(other):6.1f}, ratio {min(mine) / min(other):.2f}')
    print(line, flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument('program')
    parser.add_argument('data')
    parser.add_argument('--runs', type=int, default=31)
    arguments = parser.parse_args()
    os.environ.setdefault('ZENVI_DATA', str(Path(__file__).resolve().parent.parent / 'data'))
    ram = '/dev/shm' if os.path.isdir('/dev/shm') else None
    with tempfile.TemporaryDirectory(dir=ram) as scratch:
        for name, file in FILES.items():
            mtz = f'{arguments.data}/{file}'
            own = [arguments.program, 'map', mtz, '-q', '--prefix', f'{scratch}/{name}']
            subprocess.run(own, check=True)
            rivals = []
            for kind, (f, phi) in MAPS.items():
                grid = gemmi.read_ccp4_map(f'{scratch}/{name}_{kind}.ccp4').grid
                theirs = f'{scratch}/{name}_{kind}_gemmi.ccp4'
                rivals.append(['gemmi', 'sf2map', '--normalize', '-f', f, '-p', phi, '-g',
                               f'{grid.nu},{grid.nv},{grid.nw}', mtz, theirs])
                subprocess.run(rivals[-1], check=True)
                other = gemmi.read_ccp4_map(theirs).grid
                deviation = numpy.abs(numpy.array(grid, copy=False) - numpy.array(other, copy=False)).max()
                assert deviation < 1e-3, (name, kind, deviation)
            one = f'{scratch}/{name}_2mFo-DFc.ccp4'
            compare(f'{name}, both maps', [own], rivals, arguments.runs)
            compare(f'{name}, one map', [[arguments.program, 'map', mtz, one, '-q']], rivals[:1], arguments.runs)
            compare(f'{name}, info of MTZ', [[arguments.program, 'info', mtz]],
                    [['gemmi', 'mtz', '--stats', mtz]], arguments.runs)
            compare(f'{name}, info of map', [[arguments.program, 'info', one]],
                    [['gemmi', 'map', one]], arguments.runs)
    compare('--version', [[arguments.program, '--version']], [['gemmi', '--version']], arguments.runs)


if __name__ == '__main__':
    sys.exit(main())
