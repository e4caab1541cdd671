#!/usr/bin/env python3
"""quorix fofo on a simulated pair: a model with and without a ligand, the first set on another scale, in another order and
asymmetric unit, with noise. The differences, weights and coefficients are compared with numpy's, the scale with the one that was put
in, and the density at the ligand with that elsewhere. Needs python3-gemmi and python3-numpy.
Usage: fofo_run.py MODEL.pdb RESIDUE [--dmin 2.0] [--quorix PATH]"""
import argparse
import json
import subprocess
import tempfile
import time
from pathlib import Path

import gemmi
import numpy as np

K, B = 0.7, (6.0, 6.0, -9.0)  # of the first set: K exp(-s^T B s / 4) F; fits groups with a unique axis c, and orthogonal ones


def structure_factors(structure, hkl):
    calculator = gemmi.StructureFactorCalculatorX(structure.cell)
    return np.array([calculator.calculate_sf_from_model(structure[0], [int(i) for i in row]) for row in hkl])


def write(path, structure, columns, hkl):
    mtz = gemmi.Mtz(with_base=True)
    mtz.spacegroup, mtz.cell = structure.find_spacegroup(), structure.cell
    mtz.add_dataset('made')
    for label, kind, _ in columns:
        mtz.add_column(label, kind)
    mtz.set_data(np.column_stack([hkl] + [values for _, _, values in columns]).astype(np.float32))
    mtz.write_to_file(str(path))


def amplitudes(structure, hkl, scale, noise, random):
    f = abs(structure_factors(structure, hkl))
    sigma = noise * f.mean() + 0.02 * f
    return scale * np.maximum(f + sigma * random.normal(size=len(f)), 0.1), scale * sigma


def other_units(structure, hkl, random):
    operators = structure.find_spacegroup().operations().sym_ops
    chosen = random.integers(len(operators), size=len(hkl))
    signs = random.choice([-1, 1], size=len(hkl))
    return np.array([s * np.array(operators[o].apply_to_hkl([int(i) for i in row]))
                     for row, o, s in zip(hkl, chosen, signs)])


def simulate(model, residue, dmin, folder):
    random = np.random.default_rng(7)
    full = gemmi.read_structure(model)
    full.remove_hydrogens()
    bare = full.clone()
    ligand = []
    for chain in bare[0]:
        for i in reversed(range(len(chain))):
            if chain[i].name == residue:
                ligand += [list(atom.pos.tolist()) for atom in chain[i]]
                del chain[i]
    hkl = gemmi.make_miller_array(full.cell, full.find_spacegroup(), dmin)
    frac = np.array(full.cell.fractionalization_matrix.tolist())
    s = hkl @ frac
    scale = K * np.exp(-0.25 * (s ** 2 @ np.array(B)))
    on, off = random.permutation(len(hkl))[:int(0.97 * len(hkl))], np.arange(len(hkl))[:int(0.98 * len(hkl))]
    f, sigma = amplitudes(full, hkl[on], scale[on], 0.01, random)
    write(folder / 'on.mtz', full, [('FP', 'F', f), ('SIGFP', 'Q', sigma)], other_units(full, hkl[on], random))
    f, sigma = amplitudes(bare, hkl[off], np.ones(len(off)), 0.01, random)
    phases = np.degrees(np.angle(structure_factors(bare, hkl[off])))
    write(folder / 'off.mtz', full, [('FP', 'F', f), ('SIGFP', 'Q', sigma), ('PHIC', 'P', phases)], hkl[off])
    bare.write_pdb(str(folder / 'bare.pdb'))
    return np.array(ligand), scale, hkl


def columns_of(path):
    mtz = gemmi.read_mtz_file(str(path))
    return {c.label: np.array(c, copy=True) for c in mtz.columns}, mtz


def reference(folder, numbers, cell):
    """DF, SIGDF, W of the rows of off.mtz by the scale that was told, paired by gemmi's own asymmetric unit."""
    on, mtz = columns_of(folder / 'on.mtz')
    mtz.ensure_asu()
    place = {tuple(h): i for i, h in enumerate(mtz.make_miller_array())}
    off, mtz_off = columns_of(folder / 'off.mtz')
    mtz_off.ensure_asu()
    hkl = mtz_off.make_miller_array()
    row = np.array([place.get(tuple(h), -1) for h in hkl])
    original = np.column_stack([off[c] for c in 'HKL'])
    s = original @ np.array(cell.fractionalization_matrix.tolist())
    b = numbers['scale']['b_cart']
    tensor = np.array([[b[0], b[3], b[4]], [b[3], b[1], b[5]], [b[4], b[5], b[2]]])
    curve = sorted((1 / c['d'] ** 2, c['k']) for c in numbers['scale']['curve'])
    s2 = (s ** 2).sum(axis=1)
    k = np.interp(s2, *zip(*curve)) * np.exp(-0.25 * np.einsum('ij,jk,ik->i', s, tensor, s))
    d = np.where(row >= 0, k * on['FP'][row] - off['FP'], np.nan)
    sigma = np.where(row >= 0, np.hypot(off['SIGFP'], k * on['SIGFP'][row]), np.nan)
    w = 1 / (1 + sigma ** 2 / np.nanmean(sigma ** 2) + 0.05 * d ** 2 / np.nanmean(d ** 2))
    coefficients = w * d * np.exp(1j * np.radians(off['PHIC']))
    return d, sigma, w, coefficients, k, row


def worst(a, b):
    known = np.isfinite(b)
    assert (np.isfinite(a) == known).all(), 'other reflections are missing'
    return np.max(abs(a[known] - b[known])) / np.sqrt(np.mean(abs(b[known]) ** 2))


def check(folder, numbers, out, cell, true_scale, hkl):
    d, sigma, w, coefficients, k, row = reference(folder, numbers, cell)
    told, _ = columns_of(out)
    made = told['FOFOWT'] * np.exp(1j * np.radians(told['PHFOFOWT']))
    for name, ours, theirs in (('DF', told['DF'], d), ('SIGDF', told['SIGDF'], sigma), ('W', told['W'], w),
                               ('coefficients', made, coefficients)):
        difference = worst(ours, theirs)
        print(f'{name:12s} largest difference from numpy {difference:.1e} rms')
        assert difference < 1e-4, name
    used = row >= 0
    ratio = (k * true_scale[:len(k)])[used]
    print(f'scale        times what was put in: mean {ratio.mean():.4f}, deviation {ratio.std():.4f}')
    assert abs(ratio.mean() - 1) < 0.03 and ratio.std() < 0.02  # the ligand itself is part of it


def density(path, ligand, cell):
    ccp4 = gemmi.read_ccp4_map(str(path), setup=True)
    values = np.array(ccp4.grid, copy=False)
    at = np.array([ccp4.grid.interpolate_value(gemmi.Position(*p)) for p in ligand])
    rms = np.sqrt(np.mean(values ** 2))
    peak = np.unravel_index(np.argmax(values), values.shape)
    point = ccp4.grid.point_to_position(ccp4.grid.get_point(*[int(i) for i in peak]))
    nearest = min(cell.find_nearest_image(gemmi.Position(*p), point).dist() for p in ligand)
    print(f'density      at the ligand {np.mean(at) / rms:.2f} rms, highest point {values.max() / rms:.1f} rms, {nearest:.2f} A '
          'from an atom of it')
    assert np.mean(at) > 4 * rms and nearest < 1.0


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('model')
    parser.add_argument('residue')
    parser.add_argument('--dmin', type=float, default=2.0)
    parser.add_argument('--quorix', default='build/bin/quorix')
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        ligand, true_scale, hkl = simulate(arguments.model, arguments.residue, arguments.dmin, folder)
        cell = gemmi.read_structure(arguments.model).cell
        for phases in (['--phases', 'PHIC'], ['--model', str(folder / 'bare.pdb'), '--solvent', 'none']):
            start = time.perf_counter()
            told = subprocess.run([arguments.quorix, 'fofo', str(folder / 'on.mtz'), str(folder / 'off.mtz'), *phases, '-o',
                                   str(folder / 'out.mtz'), '--map', str(folder / 'out.ccp4'), '--json'],
                                  check=True, capture_output=True)
            seconds = time.perf_counter() - start
            numbers = json.loads(told.stdout)
            print(f'{phases[0]}: {numbers["reflections"]["both"]} reflections, R {numbers["r"]:.3f}, {seconds:.2f} s')
            if phases[0] == '--phases':
                check(folder, numbers, folder / 'out.mtz', cell, true_scale, hkl)
            density(folder / 'out.ccp4', ligand, cell)


if __name__ == '__main__':
    main()
