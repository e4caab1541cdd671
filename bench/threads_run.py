#!/usr/bin/env python3
"""quorix on one thread and on several: whole programs, run in turn on the same files.

    bench/threads_run.py --quorix build/bin/quorix [--threads 2] [--runs 9] [--scratch DIR] [--atoms 20000 200000]
                         [--model MODEL --data DATA]

The numbers in the files of both must agree to the last bit, else it ends. Per command it prints medians of wall
clock and of processor time (user and system), and of the ratios of neighbouring runs; on a machine that others
use as well the least times say more than the medians. Needs python3-gemmi and python3-numpy.
"""
import argparse
import os
import resource
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from fcalc_run import SOURCE, write_model
from map_run import CASES, make_coefficients


def run(command, environment):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.perf_counter()
    subprocess.run(command, env=environment, check=True, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL)
    wall = time.perf_counter() - start
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return wall, after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def commands(scratch, atoms, model, data):
    """Name, words behind the program's name, and what is written."""
    for natoms in atoms:
        copies = scratch / f'{natoms}.pdb'
        write_model(copies, natoms, 'P 21 21 21')
        yield f'fcalc, {natoms} atoms', ['fcalc', str(copies), '--dmin', '2'], 'fc.mtz'
    yield f'maps, {Path(data).stem}', ['maps', model, data], 'maps.mtz'
    for name in ('p43212', 'c2'):
        file = scratch / f'{name}.mtz'
        make_coefficients(str(file), *CASES[name])
        yield f'map, {name}', ['map', str(file)], 'map.ccp4'


def content(path):
    """The numbers: the records around them tell when the file was made."""
    data = path.read_bytes()
    return data[80:4 * int.from_bytes(data[4:8], 'little')] if data[:3] == b'MTZ' else data[1024:]


def output_words(words, path):
    return [str(path)] if words[0] == 'map' else ['-o', str(path)]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--quorix', required=True)
    parser.add_argument('--threads', type=int, default=2)
    parser.add_argument('--runs', type=int, default=9)
    parser.add_argument('--scratch')
    parser.add_argument('--atoms', type=int, nargs='*', default=[20000, 200000])
    parser.add_argument('--model', default=str(SOURCE / 'examples/1ubq.pdb'), help='of quorix maps')
    parser.add_argument('--data', default=str(SOURCE / 'examples/1ubq.mtz'))
    options = parser.parse_args()
    environment = {**os.environ, 'ZENVI_DATA': str(SOURCE / 'data'), 'SOURCE_DATE_EPOCH': '86400'}
    with tempfile.TemporaryDirectory(dir=options.scratch) as folder:
        scratch = Path(folder)
        print(f'{"":24} {"1 thread":>21} {f"{options.threads} threads":>21} {"ratio":>15}')
        print(f'{"":24} ' + f'{"wall":>7} {"least":>6} {"cpu":>6} ' * 2 + f'{"wall":>7} {"cpu":>7}')
        for name, words, output in commands(scratch, options.atoms, options.model, options.data):
            times = {1: [], options.threads: []}
            for _ in range(options.runs):
                for threads in times:
                    target = scratch / f'{threads}-{output}'
                    command = [options.quorix, *words, *output_words(words, target), '--force', '--threads', str(threads)]
                    times[threads].append(run(command, environment))
            numbers = [content(scratch / f'{threads}-{output}') for threads in times]
            if numbers[0] != numbers[1]:
                sys.exit(f'{name}: the numbers differ')
            row = ''
            for taken in times.values():
                walls, cpus = zip(*taken)
                row += f'{statistics.median(walls):7.3f} {min(walls):6.3f} {statistics.median(cpus):6.3f} '
            ratios = [[b[i] / a[i] for a, b in zip(*times.values())] for i in (0, 1)]
            print(f'{name:24} {row}' + ' '.join(f'{statistics.median(ratio):7.2f}' for ratio in ratios), flush=True)
            for target in scratch.glob(f'*-{output}'):
                target.unlink()


if __name__ == '__main__':
    main()
