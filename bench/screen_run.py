#!/usr/bin/env python3
"""What a data set of a screen costs: processor seconds, the largest process and disk, for maps, maps with peaks, and maps of a model with
peaks; of copies of real files, by quorix batch -j 1.

Usage: screen_run.py QUORIX DATA_FOLDER [--copies N]"""
import argparse
import os
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

NAMES = ('1rx2_P212121', '5orl_P6122')
KINDS = {'maps': [], 'maps, peaks': ['--peaks'], 'model, maps, peaks': ['--maps', '--peaks']}


def usage(words):
    """In a process of its own, whose largest child is that of the batch: seconds and MB."""
    code = ('import resource, subprocess, sys; subprocess.run(sys.argv[1:], check=True, stdout=subprocess.DEVNULL);'
            'u = resource.getrusage(resource.RUSAGE_CHILDREN); print(u.ru_utime + u.ru_stime, u.ru_maxrss / 1024)')
    told = subprocess.run([sys.executable, '-c', code, *words], check=True, capture_output=True, text=True)
    return map(float, told.stdout.split())


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument('program')
    parser.add_argument('data', type=Path)
    parser.add_argument('--copies', type=int, default=10)
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory(dir='/dev/shm' if os.path.isdir('/dev/shm') else None) as folder:
        for name in NAMES:
            screen = Path(folder) / name
            for i in range(arguments.copies):
                (screen / f'x{i}').mkdir(parents=True)
                for ending in ('.mtz', '.pdb'):
                    shutil.copy(arguments.data / (name + ending), screen / f'x{i}' / f'x{i}{ending}')
            for kind, options in KINDS.items():
                out = Path(folder) / 'out'
                seconds, megabytes = usage([arguments.program, 'batch', str(screen), '-o', str(out), '-q', '-j', '1', *options])
                disk = sum(p.stat().st_size for p in out.rglob('*') if p.is_file())
                print(f'{name[:4]} {kind:20} {seconds / arguments.copies:7.3f} s/set {megabytes:6.0f} MB'
                      f' {disk / arguments.copies / 1e6:7.1f} MB on disk', flush=True)
                shutil.rmtree(out)


if __name__ == '__main__':
    main()
