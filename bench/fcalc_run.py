#!/usr/bin/env python3
"""quorix fcalc against gemmi sfcalc, and the cut-off's price: whole programs on replicated models.

    bench/fcalc_run.py --quorix build/bin/quorix                 paired runs, medians of the ratios
    bench/fcalc_run.py --quorix build/bin/quorix --accuracy 20000   accuracy and time by --ecut
    bench/fcalc_run.py --quorix build/bin/quorix --budgets 200000   memory and time by --memory, P 1

Models are copies of examples/1ubq.pdb, each turned at random, side by side in one asymmetric unit of
P 21 21 21 (or P 1). Both programs write an MTZ of the unique set to 2 A; before they are timed, their
structure factors are compared with gemmi's on a fine grid (vector R = sum |F1 - F2| / sum |F1| over
complex F). gemmi runs as it comes, and with a cut-off that gives it about our accuracy. Times are wall
clock and processor seconds; runs alternate, ratios are medians over pairs. Needs python3-gemmi,
python3-numpy and the program gemmi.
"""
import argparse
import json
import os
import resource
import statistics
import subprocess
import tempfile
import time
from pathlib import Path

import gemmi
import numpy

SOURCE = Path(__file__).resolve().parent.parent
PITCH = 28.0  # Angstrom between copies: 33 A^3 per atom, as crystals of proteins have


def random_rotation(rng):
    q = rng.normal(size=4)
    w, x, y, z = q / numpy.linalg.norm(q)
    return numpy.array([[1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w)],
                        [2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w)],
                        [2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y)]])


def write_model(path, natoms, group):
    """About natoms atoms; returns their number."""
    rng = numpy.random.default_rng(natoms)
    start = gemmi.read_structure(str(SOURCE / 'examples' / '1ubq.pdb'))
    positions = numpy.array([a.atom.pos.tolist() for a in start[0].all()])
    copies = max(1, round(natoms / len(positions)))
    side = [1, 1, 1]
    while side[0] * side[1] * side[2] < copies:
        side[side.index(min(side))] += 1
    spread = (2, 2, 1) if group == 'P 21 21 21' else (1, 1, 1)  # asymmetric units along each axis
    cell = [PITCH * n * m for n, m in zip(side, spread)]
    out = gemmi.Structure()
    out.cell = gemmi.UnitCell(*cell, 90, 90, 90)
    out.spacegroup_hm = group
    model = gemmi.Model('1')
    for i in range(copies):
        place = numpy.array([i % side[0], i // side[0] % side[1], i // (side[0] * side[1])])
        moved = (positions - positions.mean(axis=0)) @ random_rotation(rng).T + (place + 0.5) * PITCH
        for chain in start[0]:
            copy = chain.clone()
            copy.name = chr(65 + i % 26) + str(i // 26)
            model.add_chain(copy)
        at = 0
        for chain in model[-len(start[0]):] if len(start[0]) > 1 else [model[-1]]:
            for residue in chain:
                for atom in residue:
                    atom.pos = gemmi.Position(*moved[at])
                    at += 1
    out.add_model(model)
    out.setup_entities()
    out.make_mmcif_document().write_file(str(path))
    return copies * len(positions)


def read_f(path, f, phi):
    mtz = gemmi.read_mtz_file(str(path))
    hkl = mtz.make_miller_array()
    values = numpy.array(mtz.column_with_label(f)) * numpy.exp(
        1j * numpy.radians(numpy.array(mtz.column_with_label(phi))))
    return {tuple(h): v for h, v in zip(hkl.tolist(), values)}


def vector_r(reference, other):
    common = [h for h in reference if h in other]
    a = numpy.array([reference[h] for h in common])
    b = numpy.array([other[h] for h in common])
    return numpy.abs(a - b).sum() / numpy.abs(a).sum(), len(common)


def timed(command, environment):
    """(wall, processor) seconds."""
    def used():
        usage = resource.getrusage(resource.RUSAGE_CHILDREN)
        return usage.ru_utime + usage.ru_stime
    start, before = time.perf_counter(), used()
    subprocess.run(command, check=True, env=environment, stdout=subprocess.DEVNULL)
    return time.perf_counter() - start, used() - before


def median_of(times, kind):
    return statistics.median(t[kind] for t in times)


class Runs:
    def __init__(self, options, folder):
        self.options = options
        self.folder = Path(folder)
        self.environment = dict(os.environ)
        self.environment.setdefault('ZENVI_DATA', str(SOURCE / 'data'))

    def ours(self, model, *more):
        out = self.folder / 'ours.mtz'
        return out, [self.options.quorix, 'fcalc', str(model), '--dmin', str(self.options.dmin),
                     '-o', str(out), *more]

    def theirs(self, model, *more):
        out = self.folder / 'theirs.mtz'
        return out, ['gemmi', 'sfcalc', f'--dmin={self.options.dmin}', '--to-mtz=' + str(out), *more, str(model)]

    def reference(self, model):
        """gemmi on a fine grid with much blurring and a small cut-off."""
        out, command = self.theirs(model, '--rate=3', '--rcut=1e-9',
                                   f'--blur={10 * self.options.dmin ** 2:.1f}')
        timed(command, self.environment)
        return read_f(out, 'FC', 'PHIC')

    def compare(self, natoms, group):
        model = self.folder / 'model.cif'
        n = write_model(model, natoms, group)
        reference = self.reference(model)
        print(f'{n} atoms, {group}')
        rows = [('ours', *self.ours(model)), ('gemmi', *self.theirs(model)),
                ('gemmi --rcut=1e-3', *self.theirs(model, '--rcut=1e-3'))]
        for name, out, command in rows:
            timed(command, self.environment)
            r, count = vector_r(reference, read_f(out, 'FC', 'PHIC'))
            print(f'  {name:18s} vector R {r:.2e} over {count} reflections')
        times = {name: [] for name, _, _ in rows}
        for _ in range(self.options.pairs):
            for name, _, command in rows:
                times[name].append(timed(command, self.environment))
        for name, _, _ in rows:
            ratio = [statistics.median(b[kind] / a[kind] for a, b in zip(times['ours'], times[name]))
                     for kind in (0, 1)]
            print(f'  {name:18s} {median_of(times[name], 0):.3f} s wall, '
                  f'{median_of(times[name], 1):.3f} s processor; ours is {ratio[0]:.2f} and '
                  f'{ratio[1]:.2f} times as fast')

    def accuracy(self, natoms, group):
        model = self.folder / 'model.cif'
        n = write_model(model, natoms, group)
        reference = self.reference(model)
        print(f'{n} atoms, {group}, {self.options.dmin} A')
        rows = [(ecut, more) for more in (('--gaussians', '2'), ())
                for ecut in ('5e-3', '1e-3', '1e-4', '1e-5')]
        times = {row: [] for row in rows}
        for _ in range(self.options.pairs):
            for ecut, more in rows:
                out, command = self.ours(model, '--ecut', ecut, *more)
                times[ecut, more].append(timed(command, self.environment))
        for ecut, more in rows:
            out, command = self.ours(model, '--ecut', ecut, *more)
            timed(command, self.environment)
            r, _ = vector_r(reference, read_f(out, 'FC', 'PHIC'))
            print(f'  ecut {ecut} {" ".join(more):14s} vector R {r:.2e}  '
                  f'{median_of(times[ecut, more], 1):.3f} s processor')


    def budgets(self, natoms):
        model = self.folder / 'model.cif'
        print(f'{write_model(model, natoms, "P 1")} atoms, P 1, {self.options.dmin} A')
        rows = {megabytes: [] for megabytes in (4000, 400, 200, 50, 10)}
        for _ in range(self.options.pairs):
            for megabytes, times in rows.items():
                out, command = self.ours(model, '--memory', str(megabytes))
                times.append(timed(command, self.environment))
        for megabytes, times in rows.items():
            out, command = self.ours(model, '--memory', str(megabytes), '--json')
            found = json.loads(subprocess.run(command, check=True, env=self.environment,
                                              capture_output=True).stdout)
            ratio = statistics.median(a[1] / b[1] for a, b in zip(times, rows[4000]))
            print(f'  {megabytes:5d} MB  {found["boxes"]:3d} boxes  peak {found["program_megabytes"]:.0f} MB, '
                  f'engine {found["engine_megabytes"]:.0f} MB  {median_of(times, 1):.2f} s processor, '
                  f'{ratio:.2f} times one box')


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument('--quorix', required=True)
    parser.add_argument('--pairs', type=int, default=7)
    parser.add_argument('--group', default='P 21 21 21')
    parser.add_argument('--atoms', type=int, nargs='+', default=[2000, 20000])
    parser.add_argument('--accuracy', type=int)
    parser.add_argument('--budgets', type=int)
    parser.add_argument('--dmin', type=float, default=2.0)
    options = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        runs = Runs(options, folder)
        if options.budgets:
            runs.budgets(options.budgets)
        elif options.accuracy:
            runs.accuracy(options.accuracy, options.group)
        else:
            for natoms in options.atoms:
                runs.compare(natoms, options.group)


if __name__ == '__main__':
    main()
