#!/usr/bin/env python3
"""Rates of quorix batch over many small data sets, its memory, and a run killed at random moments.

Usage: batch_run.py PATH/TO/quorix [--sets N] [--runs N] [--dmin A] [--scratch DIR]

Makes N small data sets of examples/1ubq.mtz cut at several resolutions (python3-gemmi,
python3-numpy). Times, in turn: a plain loop over `quorix map`, `batch -j 1`, `batch -j 2`; and, as
what the machine itself gives, two plain loops side by side. Then kills a batch at random moments
(SIGKILL), resumes it, and compares maps and table with those of an undisturbed run. Put the scratch
folder on a RAM disk.
"""
import argparse
import filecmp
import os
import random
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import gemmi
import numpy

SOURCE = Path(__file__).resolve().parent.parent


def make_data_sets(folder, count, d_min):
    mtz = gemmi.read_mtz_file(str(SOURCE / 'examples' / '1ubq.mtz'))
    rows, d = numpy.array(mtz, copy=True), mtz.make_d_array()
    for i in range(count):
        mtz.set_data(rows[d >= d_min + 0.1 * (i % 10)])
        path = folder / f'x{i:04d}' / 'final.mtz'
        path.parent.mkdir(parents=True)
        mtz.write_to_file(str(path))


def loop(program, paths, out):
    """One process after the other, as a shell script would have it."""
    for path in paths:
        name = path.parent.name
        (out / name).mkdir(parents=True)
        subprocess.run([program, 'map', path, '--json', '--prefix', out / name / name],
                       stdout=subprocess.DEVNULL, check=True)


def two_loops(program, paths, out):
    middle = len(paths) // 2
    child = os.fork()
    if child == 0:
        loop(program, paths[:middle], out)
        os._exit(0)
    loop(program, paths[middle:], out)
    if os.waitpid(child, 0)[1] != 0:
        sys.exit('a loop failed')


def batch(program, data, out, *options):
    """Peak memory in MiB of the parent itself: of this process's children only it is waited for."""
    process = subprocess.Popen([program, 'batch', data, '-o', out, '-q', *options])
    _, status, usage = os.wait4(process.pid, 0)
    if status != 0:
        sys.exit('a batch failed')
    return usage.ru_maxrss / 1024


def timed(work, out):
    shutil.rmtree(out, ignore_errors=True)
    start = time.perf_counter()
    work()
    return time.perf_counter() - start


def measure(program, data, out, runs):
    paths = sorted(data.glob('*/final.mtz'))
    contenders = {'plain loop': lambda: loop(program, paths, out),
                  'batch -j 1': lambda: batch(program, data, out, '-j', '1'),
                  'batch -j 2': lambda: batch(program, data, out, '-j', '2'),
                  'two plain loops': lambda: two_loops(program, paths, out)}
    seconds = {name: [] for name in contenders}
    for _ in range(runs):
        for name, work in contenders.items():
            seconds[name].append(timed(work, out))
    for name, all_seconds in seconds.items():
        ratios = [a / b for a, b in zip(seconds['plain loop'], all_seconds)]
        print(f'{name:16}  median {len(paths) / statistics.median(all_seconds):6.1f}/s  '
              f'best {len(paths) / min(all_seconds):6.1f}/s  '
              f'times the plain loop: {statistics.median(ratios):.2f}')


def parent_memory(program, data, out):
    """Resident MiB of the parent as the batch goes on."""
    shutil.rmtree(out, ignore_errors=True)
    process = subprocess.Popen([program, 'batch', data, '-o', out, '-q', '-j', '2'])
    seen = []
    while process.poll() is None:
        try:
            pages = int(Path(f'/proc/{process.pid}/statm').read_text().split()[1])
            seen.append(pages * os.sysconf('SC_PAGESIZE') / 2 ** 20)
        except (FileNotFoundError, IndexError):
            break
        time.sleep(0.05)
    process.wait()
    seen = [value for value in seen if value > 0]
    quarter = len(seen) // 4
    print('memory of the parent: MiB after each quarter '
          + ', '.join(f'{seen[i]:.1f}' for i in (quarter, 2 * quarter, 3 * quarter, -1)))


def files_of(folder):
    return sorted(path.relative_to(folder) for path in folder.rglob('*.ccp4'))


def table_of(folder):
    rows = [line.split('\t') for line in (folder / 'results.tsv').read_text().splitlines()]
    seconds = rows[0].index('seconds')
    return [row[:seconds] + row[seconds + 1:] for row in rows]


def kill_and_resume(program, data, out, whole, duration, kills):
    shutil.rmtree(out, ignore_errors=True)
    done = []
    for _ in range(kills):
        process = subprocess.Popen([program, 'batch', data, '-o', out, '-q', '-j', '2', '--resume'])
        time.sleep(random.uniform(0.05, 0.4) * duration)
        process.kill()
        process.wait()
        done.append(len(list(out.glob('*/result.json'))))
    batch(program, data, out, '-j', '2', '--resume')
    mismatch = filecmp.cmpfiles(whole, out, files_of(whole), shallow=False)[1:]
    same = files_of(whole) == files_of(out) and not any(mismatch) and table_of(whole) == table_of(out)
    strays = [path for path in out.rglob('.*') if path.name != '.lock']
    print(f'killed with {done} data sets done, then resumed: '
          + ('the same maps and table' if same and not strays else f'DIFFERENT {mismatch} {strays}'))
    return same and not strays


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument('program')
    parser.add_argument('--sets', type=int, default=1000)
    parser.add_argument('--runs', type=int, default=3)
    parser.add_argument('--dmin', type=float, default=3.0)
    parser.add_argument('--scratch')
    arguments = parser.parse_args()
    os.environ.setdefault('ZENVI_DATA', str(SOURCE / 'data'))
    with tempfile.TemporaryDirectory(dir=arguments.scratch) as scratch:
        data, out, whole = (Path(scratch) / name for name in ('data', 'out', 'whole'))
        make_data_sets(data, arguments.sets, arguments.dmin)
        print(f'{arguments.sets} data sets, {arguments.dmin:g} A and lower; '
              f'load {os.getloadavg()[0]:.2f} at the beginning')
        measure(arguments.program, data, out, arguments.runs)
        parent_memory(arguments.program, data, out)
        duration = timed(lambda: batch(arguments.program, data, whole, '-j', '2'), whole)
        good = kill_and_resume(arguments.program, data, out, whole, duration, 3)
        print(f'load {os.getloadavg()[0]:.2f} at the end')
    return 0 if good else 1


if __name__ == '__main__':
    sys.exit(main())
