#!/usr/bin/env python3
"""Maps from Python: quorix against gemmi's Python module, `quorix batch`, two threads, memory, and the import.

Usage: python_run.py [BUILD]; BUILD is a release build folder (default: build). Both maps are compared before anything
is timed; then each contender has a process of its own, for one to leave the other's memory alone, and they take turns.
Times are of the processor where one process is timed, of the clock otherwise."""
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
TURN = 40  # maps
qx.set_threads(1)  # as gemmi; each engine, that is


def maker(name, dmin, shape):
    """What makes a map; of gemmi's data the rows that take no part are taken out before."""
    if name == 'quorix':
        data = qx.read(MTZ)
        return lambda: data.map(dmin=dmin)
    kept = gemmi.read_mtz_file(MTZ)
    if dmin:
        kept.set_data(np.array(kept, copy=False)[kept.make_d_array() >= dmin])
    return lambda: kept.transform_f_phi_to_map('FWT', 'PHWT', exact_size=shape)


def take_turns(pipe, name, dmin, shape):
    make = maker(name, dmin, shape)
    while pipe.recv():
        begin = time.process_time()
        for _ in range(TURN):
            make()
        pipe.send((time.process_time() - begin) / TURN)


def against_gemmi(dmin):
    ours = qx.read(MTZ).map(dmin=dmin)
    shape = ours.array.shape
    assert np.abs(ours.array - np.array(maker('gemmi', dmin, shape)(), copy=False)).max() < 1e-4 * ours.rms
    fresh = multiprocessing.get_context('spawn')
    pipes, times = {}, {'quorix': [], 'gemmi': []}
    for name in times:
        pipes[name], end = fresh.Pipe()
        fresh.Process(target=take_turns, args=(end, name, dmin, shape), daemon=True).start()
    for turn in range(1 + MAPS // TURN):
        for name, pipe in pipes.items():
            pipe.send(True)
            seconds = pipe.recv()
            if turn > 0:
                times[name].append(seconds)
    for pipe in pipes.values():
        pipe.send(False)
    medians = {name: 1e3 * statistics.median(values) for name, values in times.items()}
    ratio = statistics.median(a / b for a, b in zip(times['quorix'], times['gemmi']))
    print(f'{MAPS} maps of {"x".join(map(str, shape))} points: quorix {medians["quorix"]:.2f} ms, '
          f'gemmi {medians["gemmi"]:.2f} ms, ratio {ratio:.2f}')


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


if __name__ == '__main__':
    imports()
    against_gemmi(None)
    against_gemmi(3.0)
    against_batch()
    threads()
    memory()
