#!/usr/bin/env python3
"""What a composite omit map says of residues that are not there. Copies of residues are put into the solvent of a
model, far from every atom and its mates; then density at these atoms and at the model's own, in units of the
map's rms, in the plain 2mFo-DFc map and in the composite omit map, and that difference map's. Needs
python3-gemmi.
Usage: omit_truth.py MODEL DATA [--quorix PATH] [--residues 12] [--clearance 3.5] [--boxes 20] [--seed 1] [--mask keep|clear]; DATA as
quorix omit reads it."""
import argparse
import json
import math
import random
import subprocess
import tempfile
from pathlib import Path

import gemmi


def rotation(rng):
    """A random turn, by a unit quaternion."""
    w, x, y, z = (rng.gauss(0, 1) for _ in range(4))
    n = math.sqrt(w * w + x * x + y * y + z * z)
    w, x, y, z = w / n, x / n, y / n, z / n
    return gemmi.Mat33([[1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w)],
                        [2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w)],
                        [2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y)]])


def heavy(residue):
    return [a for a in residue if a.element.atomic_number > 1 and a.altloc in ('\0', 'A')]


def centre(atoms):
    return sum((gemmi.Vec3(*a.pos.tolist()) for a in atoms), gemmi.Vec3(0, 0, 0)) / len(atoms)


def place(structure, residue, clearance, rng):
    """Positions of the residue's atoms somewhere in the solvent, or None."""
    search = gemmi.NeighborSearch(structure[0], structure.cell, 6).populate()
    atoms = heavy(residue)
    middle = centre(atoms)
    for _ in range(20000):
        turn = rotation(rng)
        where = structure.cell.orthogonalize(gemmi.Fractional(rng.random(), rng.random(), rng.random()))
        positions = [gemmi.Position(*(turn.multiply(gemmi.Vec3(*a.pos.tolist()) - middle) +
                                      gemmi.Vec3(*where.tolist())).tolist()) for a in atoms]
        if not any(search.find_atoms(p, '\0', radius=clearance) for p in positions):
            return positions
    return None


def add_phantoms(structure, count, clearance, rng):
    """A chain of residues that are not there, and their positions."""
    pool = [r for chain in structure[0] for r in chain
            if gemmi.find_tabulated_residue(r.name).is_amino_acid() and 6 <= len(heavy(r)) <= 9]
    b_iso = sorted(a.b_iso for r in pool for a in r)[sum(len(r) for r in pool) // 2]
    chain = 'zz'
    structure[0].add_chain(gemmi.Chain(chain))
    phantoms = []
    for number in range(count):
        source = rng.choice(pool)
        positions = place(structure, source, clearance, rng)
        if positions is None:
            raise SystemExit(f'no room for residue {number + 1} in the solvent')
        residue = gemmi.Residue()
        residue.name, residue.seqid = source.name, gemmi.SeqId(number + 1, ' ')
        for atom, position in zip(heavy(source), positions):
            copy = atom.clone()
            copy.pos, copy.b_iso, copy.occ, copy.altloc = position, b_iso, 1.0, '\0'
            copy.aniso = gemmi.SMat33f(0, 0, 0, 0, 0, 0)
            residue.add_atom(copy)
        structure[0][chain].add_residue(residue)
        phantoms += positions
    return phantoms


def density(path, positions):
    """Mean density at the positions in units of the map's rms."""
    grid = gemmi.read_ccp4_map(str(path), setup=True).grid
    values = [grid.interpolate_value(p) for p in positions]
    rms = math.sqrt(float((grid.array.astype(float) ** 2).mean()))
    return sum(values) / len(values) / rms


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument('model')
    parser.add_argument('data')
    parser.add_argument('--quorix', default=str(Path(__file__).resolve().parent.parent / 'build/bin/quorix'))
    parser.add_argument('--residues', type=int, default=12)
    parser.add_argument('--clearance', type=float, default=3.5, help='Angstrom from every other atom')
    parser.add_argument('--boxes', type=int, default=20)
    parser.add_argument('--seed', type=int, default=1)
    parser.add_argument('--mask', default='keep')
    args = parser.parse_args()
    structure = gemmi.read_structure(args.model)
    structure.setup_entities()
    true = [a.pos for chain in structure[0] for r in chain
            if gemmi.find_tabulated_residue(r.name).is_amino_acid() for a in heavy(r)]
    phantoms = add_phantoms(structure, args.residues, args.clearance, random.Random(args.seed))
    with tempfile.TemporaryDirectory() as folder:
        model = Path(folder) / 'model.cif'
        structure.make_mmcif_document().write_file(str(model))
        plain, omit, difference = (Path(folder) / name for name in
                                   ('plain_2mFo-DFc.ccp4', 'omit.ccp4', 'omit-difference.ccp4'))
        told = subprocess.run([args.quorix, 'maps', model, args.data, '-o', Path(folder) / 'plain.mtz', '--maps',
                               Path(folder) / 'plain', '--json'], check=True, capture_output=True)
        r = json.loads(told.stdout)['r']['work']['r']
        told = subprocess.run([args.quorix, 'omit', model, args.data, '--composite', '--boxes', str(args.boxes),
                               '--mask', args.mask, '-o', omit, '--difference', difference, '--json'], check=True,
                              capture_output=True)
        seconds = json.loads(told.stdout)['seconds']
        print(f'{len(phantoms)} phantom atoms, R work {r:.4f}; two composite maps of {args.boxes} groups in '
              f'{seconds:.1f} s')
        print('rms units          plain   omit   omit mFo-DFc')
        rows = (('phantom atoms', phantoms), ('true atoms', true))
        for name, positions in rows:
            print(f'{name:16s} {density(plain, positions):7.2f}{density(omit, positions):7.2f}'
                  f'{density(difference, positions):7.2f}')
        print(f'true atoms, omit over plain: {density(omit, true) / density(plain, true):.2f}')


if __name__ == '__main__':
    main()
