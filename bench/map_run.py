#!/usr/bin/env python3
"""Times quorix-map against `gemmi sf2map --normalize` on the same files and grids, run in turn.

Usage: map_run.py PATH/TO/quorix-map [--runs N] [--scratch DIR] [--threads N] [--case NAME] [--growth]

Makes coefficients of random atoms in three crystals (python3-gemmi, python3-numpy), checks that the
maps agree, then prints median, least time and memory peak of both programs and the median of the
ratios of neighbouring runs; beside them the time of writing as many bytes from memory, and of a box of
20 A. --growth: maps of 110^3 to 1000^3 points into a pipe that is counted. Put the scratch folder on
a RAM disk.
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
    least, median = write_floor(ours, Path(ours).stat().st_size, runs)
    mine = [pair[0][0] for pair in pairs]
    print(f'  wall over that of writing the bytes from memory: least {min(mine) / least:.2f}, '
          f'median {statistics.median(mine) / median:.2f}')
    run_box(name, program, runs, scratch, rival)


def write_floor(path, size, runs):
    """Least and median seconds that writing `size` bytes from memory to a new file takes."""
    block = bytes(1 << 22)
    times = []
    for _ in range(runs):
        Path(path).unlink(missing_ok=True)
        start = time.perf_counter()
        with open(path, 'wb', buffering=0) as out:
            for at in range(0, size, len(block)):
                out.write(block[:min(len(block), size - at)])
        times.append(time.perf_counter() - start)
    Path(path).unlink()
    return min(times), statistics.median(times)


def run_box(name, program, runs, scratch, rival):
    """A box of 20 A about the middle of the cell against the rival's whole map."""
    cell, group, d_min, _ = CASES[name]
    limits = []
    for edge in cell[:3]:
        limits += [f'{0.5 - 10 / edge:.4f}', f'{0.5 + 10 / edge:.4f}']
    box = [str(Path(program).parent / 'quorix'), 'map', f'{scratch}/{name}.mtz', f'{scratch}/box.ccp4', '--force', '-q',
           '--extent', 'frac', *limits]
    pairs = [(timed(box), timed(rival)) for _ in range(runs)]
    print('  box of 20 A: ' + ', '.join(
        f'{label} ratio {statistics.median(a[kind] / b[kind] for a, b in pairs):.2f}'
        for kind, label in ((0, 'wall'), (1, 'cpu'))))


def make_random(path, edge, d_min, group):
    """Random coefficients of every unique reflection of a cubic cell in a tetragonal group."""
    cell = gemmi.UnitCell(edge, edge, edge, 90, 90, 90)
    spacegroup = gemmi.find_spacegroup_by_name(group)
    hkl = gemmi.make_miller_array(cell, spacegroup, d_min)
    rng = numpy.random.default_rng(1)
    mtz = gemmi.Mtz(with_base=True)
    mtz.spacegroup = spacegroup
    mtz.set_cell_for_all(cell)
    mtz.add_dataset('bench')
    mtz.add_column('FWT', 'F')
    mtz.add_column('PHWT', 'P')
    data = numpy.empty((len(hkl), 5), numpy.float32)
    data[:, :3] = hkl
    data[:, 3] = rng.exponential(100, len(hkl))
    data[:, 4] = rng.uniform(-180, 180, len(hkl))
    mtz.set_data(data)
    mtz.write_to_file(path)
    return len(hkl)


def run_growth(program, scratch, edges):
    """Processor seconds for maps of growing cells, written to a pipe whose bytes are counted."""
    group, found = 'P 43 21 2', []
    for edge in edges:
        mtz = f'{scratch}/growth.mtz'
        count = make_random(mtz, edge, 1.52, group)
        command = ['/usr/bin/time', '-f', '%e %M', program, group, *[str(edge)] * 3, '90', '90', '90', '1.52', '999',
                   mtz, 'FWT', 'PHWT', '', f'{scratch}/pipe']
        Path(f'{scratch}/pipe').unlink(missing_ok=True)
        os.mkfifo(f'{scratch}/pipe')
        process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        with open(f'{scratch}/pipe', 'rb') as pipe:
            size = sum(map(len, iter(lambda: pipe.read(1 << 20), b'')))
        wall, peak_kib = map(float, process.stderr.read().split()[-2:])
        usage = os.wait4(process.pid, 0)[2]
        seconds = usage.ru_utime + usage.ru_stime
        points = (size - 1024) // 4
        found.append((points, seconds))
        print(f'{points / 1e6:8.1f} M points, {count} reflections: {seconds:.3f} s of processor, {wall:.3f} s, '
              f'peak {peak_kib / 1024:.0f} MiB')
        os.unlink(mtz)
    (n0, t0), (n1, t1) = found[0], found[-1]
    print(f'exponent {numpy.log(t1 / t0) / numpy.log(n1 / n0):.3f}')


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument('program')
    parser.add_argument('--runs', type=int, default=7)
    parser.add_argument('--scratch')
    parser.add_argument('--case', choices=CASES, action='append')
    parser.add_argument('--threads', type=int, default=1)
    parser.add_argument('--growth', type=int, nargs='*', metavar='EDGE', help='edges in A (55 to 500)')
    arguments = parser.parse_args()
    os.environ.setdefault('ZENVI_DATA', str(Path(__file__).resolve().parent.parent / 'data'))
    os.environ['QUORIX_THREADS'] = str(arguments.threads)
    with tempfile.TemporaryDirectory(dir=arguments.scratch) as scratch:
        if arguments.growth is not None:
            return run_growth(arguments.program, scratch, arguments.growth or [55, 110, 250, 500])
        for name in arguments.case or CASES:
            run_case(name, arguments.program, arguments.runs, scratch)


if __name__ == '__main__':
    sys.exit(main())
