#!/usr/bin/env python3
"""Times quorix-map against `gemmi sf2map --normalize` on the same files and grids, run in turn.

Usage: map_run.py PATH/TO/quorix-map [--runs N] [--scratch DIR]

Makes coefficients of random atoms in three crystals (python3-gemmi, python3-numpy), checks that the
maps agree, then prints median, least time and memory peak of both programs and the median of the
ratios of neighbouring runs. Put the scratch folder on a RAM disk.
"""
import argparse
import os
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import gemmi
import numpy

CASES = {
    'tiny': ((20, 24, 30, 90, 90, 90), 'P 1', 3.0, 20),
    'p43212': ((100, 100, 110, 90, 90, 90), 'P 43 21 2', 1.8, 2000),
    'c2': ((200, 250, 300, 90, 95, 90), 'C 1 2 1', 2.0, 5000),
}


def make_coefficients(path, cell, group, d_min, natoms):
    rng = numpy.random.default_rng(1)
    structure = gemmi.Structure()
    structure.cell = gemmi.UnitCell(*cell)
    structure.spacegroup_hm = group
    residue = gemmi.Residue()
    residue.name = 'UNK'
    for _ in range(natoms):
        atom = gemmi.Atom()
        atom.name = 'C'
        atom.element = gemmi.Element('C')
        atom.b_iso = 20
        atom.pos = structure.cell.orthogonalize(gemmi.Fractional(*rng.random(3)))
        residue.add_atom(atom)
    chain = gemmi.Chain('A')
    chain.add_residue(residue)
    model = gemmi.Model('1')
    model.add_chain(chain)
    structure.add_model(model)
    calculator = gemmi.DensityCalculatorX()
    calculator.d_min = d_min
    calculator.rate = 1.5
    calculator.set_grid_cell_and_spacegroup(structure)
    calculator.put_model_density_on_grid(structure[0])
    data = gemmi.transform_map_to_f_phi(calculator.grid, half_l=True).prepare_asu_data(dmin=d_min)
    values = numpy.array(data.value_array)
    mtz = gemmi.Mtz(with_base=True)
    mtz.spacegroup = gemmi.find_spacegroup_by_name(group)
    mtz.set_cell_for_all(structure.cell)
    mtz.add_dataset('bench')
    mtz.add_column('FWT', 'F')
    mtz.add_column('PHWT', 'P')
    mtz.set_data(numpy.column_stack([data.miller_array, numpy.abs(values),
                                     numpy.degrees(numpy.angle(values))]).astype(numpy.float32))
    mtz.write_to_file(path)
    return len(values)


def peak(command):
    """Memory peak in MiB by GNU time, which starts the program from a small process; None without it."""
    if not Path('/usr/bin/time').exists():
        return None
    run = subprocess.run(['/usr/bin/time', '-f', '%M', *command], stdout=subprocess.DEVNULL,
                         stderr=subprocess.PIPE, text=True, check=True)
    return int(run.stderr.split()[-1]) / 1024


def timed(command):
    start = time.perf_counter()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    if status != 0:
        sys.exit(f'failed: {command}')
    return time.perf_counter() - start, usage.ru_utime + usage.ru_stime


def deviation(ours, theirs):
    a = gemmi.read_ccp4_map(ours).grid
    b = gemmi.read_ccp4_map(theirs).grid
    return float(numpy.abs(numpy.array(a, copy=False) - numpy.array(b, copy=False)).max())


def run_case(name, program, runs, scratch):
    cell, group, d_min, natoms = CASES[name]
    mtz = f'{scratch}/{name}.mtz'
    ours, theirs = f'{scratch}/{name}.ccp4', f'{scratch}/{name}-gemmi.ccp4'
    count = make_coefficients(mtz, cell, group, d_min, natoms)
    quorix = [program, group, *map(str, cell), str(d_min), '999', mtz, 'FWT', 'PHWT', '', ours]
    timed(quorix)
    size = gemmi.read_ccp4_map(ours).grid
    counts = f'{size.nu},{size.nv},{size.nw}'
    rival = ['gemmi', 'sf2map', '--normalize', '-f', 'FWT', '-p', 'PHWT', '-g', counts, mtz, theirs]
    timed(rival)
    print(f'{name}: {group}, {d_min} A, {count} reflections, grid {counts}, '
          f'largest deviation {deviation(ours, theirs):.1e} rms')
    pairs = [(timed(quorix), timed(rival)) for _ in range(runs)]
    for kind, label in ((0, 'wall s'), (1, 'cpu s')):
        mine = [pair[0][kind] for pair in pairs]
        other = [pair[1][kind] for pair in pairs]
        ratios = [a / b for a, b in zip(mine, other) if b > 0]
        print(f'  {label}: median {statistics.median(mine):.4f} and {statistics.median(other):.4f}, '
              f'least {min(mine):.4f} and {min(other):.4f}, median ratio {statistics.median(ratios):.2f}')
    memory = peak(quorix), peak(rival)
    if None not in memory:
        points = size.nu * size.nv * size.nw
        print(f'  peak MiB: {memory[0]:.0f} and {memory[1]:.0f} '
              f'({memory[0] * 2 ** 20 / points:.1f} bytes per point)')


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument('program')
    parser.add_argument('--runs', type=int, default=7)
    parser.add_argument('--scratch')
    parser.add_argument('--case', choices=CASES, action='append')
    arguments = parser.parse_args()
    os.environ.setdefault('ZENVI_DATA', str(Path(__file__).resolve().parent.parent / 'data'))
    with tempfile.TemporaryDirectory(dir=arguments.scratch) as scratch:
        for name in arguments.case or CASES:
            run_case(name, arguments.program, arguments.runs, scratch)


if __name__ == '__main__':
    sys.exit(main())
