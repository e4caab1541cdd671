#!/usr/bin/env python3
"""Maps from Python: quorix against gemmi's Python module, `quorix batch`, two threads, memory, and the import.

Usage: python_run.py [BUILD]; BUILD is a release build folder (default: build). Runs alternate, and both maps are
compared before anything is timed. Times are of the processor where one process is timed, of the clock otherwise."""
import multiprocessing
import resource
import shutil
import statistics
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[1]
BUILD = Path(sys.argv[1] if len(sys.argv) > 1 else SOURCE / 'build').resolve()
MTZ = str(SOURCE / 'examples' / '1ubq.mtz')
sys.path.insert(0, str(BUILD / 'python'))

import gemmi  # noqa: E402
import numpy as np  # noqa: E402
import quorix as qx  # noqa: E402

MAPS = 1000
qx.set_threads(1)  # as gemmi; each engine, that is


def against_gemmi(dmin):
    data = qx.read(MTZ)
    mtz = gemmi.read_mtz_file(MTZ)
    kept = mtz
    if dmin:
        kept = gemmi.read_mtz_file(MTZ)
        kept.set_data(np.array(mtz, copy=False)[mtz.make_d_array() >= dmin])
    shape = data.map(dmin=dmin).array.shape
    theirs = np.array(kept.transform_f_phi_to_map('FWT', 'PHWT', exact_size=shape), copy=False)
    ours = data.map(dmin=dmin)
    assert np.abs(ours.array - theirs).max() < 1e-4 * ours.rms
    times = {'quorix': [], 'gemmi': []}
    for _ in range(MAPS):
        for name, make in (('quorix', lambda: data.map(dmin=dmin)),
                           ('gemmi', lambda: kept.transform_f_phi_to_map('FWT', 'PHWT', exact_size=shape))):
            begin = time.process_time()
            make()
            times[name].append(time.process_time() - begin)
    medians = {name: statistics.median(values) for name, values in times.items()}
    print(f'{MAPS} maps of {"x".join(map(str, shape))} points: quorix {1e3 * medians["quorix"]:.2f} ms, '
          f'gemmi {1e3 * medians["gemmi"]:.2f} ms, ratio {medians["quorix"] / medians["gemmi"]:.2f}')


def against_batch():
    with tempfile.TemporaryDirectory(dir='/dev/shm') as folder:
        (Path(folder) / 'in').mkdir()
        for i in range(100):
            shutil.copy(MTZ, Path(folder) / 'in' / f'{i:03}.mtz')
        begin = time.perf_counter()
        count = sum(1 for _ in qx.batch(Path(folder) / 'in', jobs=2))
        ours = time.perf_counter() - begin
        begin = time.perf_counter()
        subprocess.run([BUILD / 'bin' / 'quorix', 'batch', 'in', '-o', 'out', '-j', '2', '-q', '--', '--no-scale'],
                       cwd=folder, check=True)
        theirs = time.perf_counter() - begin
    print(f'batch of {count}: {ours:.2f} s in memory (one map each), quorix batch -j 2 {theirs:.2f} s (two written maps each)')


def work():
    qx.set_threads(1)
    data = qx.read(MTZ)
    for _ in range(200):
        data.map()


def seconds_of_two(kind):
    begin = time.perf_counter()
    both = [kind(target=work) for _ in range(2)]
    for one in both:
        one.start()
    for one in both:
        one.join()
    return time.perf_counter() - begin


def threads():
    """Beside two processes, which tell what the machine has to give."""
    ratios = {'threads': [], 'processes': []}
    for _ in range(7):
        begin = time.perf_counter()
        work()
        work()
        alone = time.perf_counter() - begin
        ratios['threads'].append(alone / seconds_of_two(threading.Thread))
        ratios['processes'].append(alone / seconds_of_two(multiprocessing.Process))
    for name, values in ratios.items():
        print(f'two {name} make {statistics.median(values):.2f} times the maps of one')


def memory():
    data = qx.read(MTZ)
    for _ in range(100):
        data.map()
    before = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
    for _ in range(10000):
        data.map(dmin=3)
    print(f'10000 maps: {resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - before} kB more')


def imports():
    for name in ('quorix', 'gemmi'):
        code = (f'import sys, time; sys.path.insert(0, {str(BUILD / "python")!r}); import numpy; '
                f'begin = time.process_time(); import {name}; print(time.process_time() - begin)')
        times = [float(subprocess.run([sys.executable, '-c', code], capture_output=True, text=True, check=True).stdout)
                 for _ in range(15)]
        print(f'import {name}: {1e3 * statistics.median(times):.1f} ms')


imports()
against_gemmi(None)
against_gemmi(3.0)
against_batch()
threads()
memory()
