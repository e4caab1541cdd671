"""The peaks program against maxima by numpy, flood fills by gemmi, and structures whose ligand is known."""
import json
import os
import subprocess
import unittest
from pathlib import Path

import numpy as np
from support import MTZ, PDB, WithFolder, gemmi, needs_gemmi, points_of, program


def maxima(values, level):
    """Values of the points of a cell that are above their 26 neighbours."""
    high = values >= level
    for shift in np.ndindex(3, 3, 3):
        if shift != (1, 1, 1):
            high &= values > np.roll(values, np.subtract(shift, 1), (0, 1, 2))
    return np.sort(values[high])[::-1]


class Peaks(WithFolder):
    def peaks(self, *words):
        return json.loads(program('peaks', *words, '--json', folder=self.folder))

    def refused(self, *words):
        done = subprocess.run([os.environ['QUORIX_PROGRAM'], 'peaks', *map(str, words)], cwd=self.folder,
                              capture_output=True, text=True, check=False)
        self.assertEqual((done.returncode, done.stdout), (2, ''))
        return done.stderr

    def test_maxima_of_the_grid_one_of_each_orbit(self):
        """All lie in general positions of P 21 21 21: four of each."""
        program('map', MTZ, 'd.ccp4', '--difference', '-q', folder=self.folder)
        values = points_of(self.folder / 'd.ccp4')
        values = values / np.sqrt((values.astype(float) ** 2).mean())
        found = self.peaks('d.ccp4', '-n', 0, '--level', 3.5)
        for sign in (1, -1):
            expected = maxima(sign * values, 3.5)[::4]
            heights = np.array([p['rms'] for p in found['peaks'] if sign * p['rms'] > 0]) * sign
            self.assertEqual(len(heights), len(expected))
            self.assertTrue((heights >= expected - 1e-5).all())  # the parabola's top is above its points
            self.assertLess((heights - expected).max(), 1.0)

    def test_parts_of_a_cell(self):
        """An asymmetric unit has all of the cell; a box the peaks within it."""
        whole = self.peaks(MTZ, '--model', PDB, '-n', 0)
        program('map', MTZ, 'asu.ccp4', '--difference', '--extent', 'asu', '-q', folder=self.folder)
        asu = self.peaks('asu.ccp4', '--model', PDB, '-n', 0)
        self.assertTrue(asu['whole_cell'])
        self.assertEqual([p['nearest'] for p in asu['peaks']], [p['nearest'] for p in whole['peaks']])
        np.testing.assert_allclose([p['rms'] for p in asu['peaks']], [p['rms'] for p in whole['peaks']], rtol=1e-4)
        self.assertEqual(len(asu['blobs']), len(whole['blobs']))
        program('map', MTZ, 'box.ccp4', '--difference', '--extent', 'box', 20, 40, 20, 40, 5, 25, '-q', folder=self.folder)
        box = self.peaks('box.ccp4', '--model', PDB, '-n', 0)
        self.assertFalse(box['whole_cell'])
        known = {(p['nearest'], round(p['rms'], 2)) for p in whole['peaks']}
        self.assertGreater(len(box['peaks']), 10)
        self.assertLessEqual({(p['nearest'], round(p['rms'], 2)) for p in box['peaks']}, known)

    @needs_gemmi
    def test_blobs_are_those_of_a_flood_fill(self):
        program('map', MTZ, 'm.ccp4', '-q', folder=self.folder)
        ccp4 = gemmi.read_ccp4_map(str(self.folder / 'm.ccp4'))
        ccp4.setup(0.0)
        structure = gemmi.read_structure(PDB)
        kept = gemmi.Selection('1-60').copy_structure_selection(structure)
        (self.folder / 'part.pdb').write_text(kept.make_pdb_headers() + kept.make_minimal_pdb())
        for chain in kept[0]:
            for residue in chain:
                for atom in residue:
                    if not residue.is_water():
                        ccp4.grid.set_points_around(atom.pos, radius=2.0, value=-100.0)
        ccp4.grid.symmetrize_min()
        expected = gemmi.find_blobs_by_flood_fill(ccp4.grid, cutoff=1.2, min_volume=2, min_score=0, min_peak=0)
        told = self.peaks('m.ccp4', '--model', 'part.pdb', '--blob-level', 1.2, '--min-volume', 2, '--min-score', 0, '-n', 0)
        found = told['blobs']
        self.assertGreater(len(found), 5)
        self.assertEqual(len(found), len(expected))
        np.testing.assert_allclose(sorted(b['volume'] for b in found), sorted(b.volume for b in expected), rtol=1e-4)
        np.testing.assert_allclose(sorted(b['score'] / told['rms'] for b in found), sorted(b.score for b in expected), rtol=1e-3)
        for blob in found:  # the same places, wherever they are mates
            fractional = ccp4.grid.unit_cell.fractionalize(gemmi.Position(*blob['xyz']))
            mates = [ccp4.grid.unit_cell.orthogonalize(gemmi.Fractional(*op.apply_to_xyz(fractional.tolist())))
                     for op in ccp4.grid.spacegroup.operations()]
            apart = min(ccp4.grid.unit_cell.find_nearest_image(b.centroid, mate, gemmi.Asu.Any).dist()
                        for mate in mates for b in expected)
            self.assertLess(apart, 0.05)

    @needs_gemmi
    def test_mates_beside_the_model(self):
        """A blob on the cell's border of a hexagonal cell is told once, by the atom, whichever mate that is nearest to."""
        grid = gemmi.FloatGrid(60, 60, 120)
        grid.set_unit_cell(gemmi.UnitCell(36, 36, 72, 90, 90, 120))
        grid.spacegroup = gemmi.SpaceGroup('P 61 2 2')
        centre = gemmi.Fractional(0.02, 0.37, 0.005)
        grid.set_points_around(grid.unit_cell.orthogonalize(centre), radius=2.5, value=1.0)
        grid.symmetrize_max()
        ccp4 = gemmi.Ccp4Map()
        ccp4.grid = grid
        ccp4.update_ccp4_header(2)
        ccp4.write_ccp4_map(str(self.folder / 'blob.ccp4'))
        for op in list(gemmi.SpaceGroup('P 61 2 2').operations())[:7]:
            mate = op.apply_to_xyz((centre + gemmi.Fractional(1, -2, 3)).tolist())
            at = grid.unit_cell.orthogonalize(gemmi.Fractional(*mate))
            (self.folder / 'atom.pdb').write_text(
                f'CRYST1   36.000   36.000   72.000  90.00  90.00 120.00 P 61 2 2\n'
                f'ATOM      1  CA  ALA A   7    {at.x + 1:8.3f}{at.y:8.3f}{at.z:8.3f}  1.00 10.00           C\n')
            blob, = self.peaks('blob.ccp4', '--model', 'atom.pdb', '--mask-radius', 0, '--no-peaks')['blobs']
            np.testing.assert_allclose(blob['xyz'], at.tolist(), atol=0.15)
            self.assertAlmostEqual(blob['distance'], 1.0, delta=0.15)
            self.assertEqual(blob['nearest'], 'A/ALA 7/CA (serial 1)')

    @needs_gemmi
    def test_the_ligand_is_first(self):
        """Taken out of the model, it is the first blob of maps made without it, and most of it lies there."""
        for name, ligand in (('1rx2_P212121', 'NAP'), ('5orl_P6122', 'ADP')):
            structure = gemmi.read_structure(str(self.real(name + '.pdb')))
            atoms = [gemmi.Position(*a.pos.tolist()) for r in structure[0]['A'] if r.name == ligand for a in r]
            for selection in (f'({ligand})', '(FOL)', '(A4W)'):
                gemmi.Selection(selection).remove_selected(structure)
            (self.folder / 'apo.pdb').write_text(structure.make_pdb_headers() + structure.make_minimal_pdb())
            program('maps', 'apo.pdb', self.real(name + '.mtz'), '-o', 'apo.mtz', '--force', '-q', folder=self.folder)
            for choice in ('--difference', '--full'):
                first = self.peaks('apo.mtz', '--model', 'apo.pdb', choice)['blobs'][0]
                at = gemmi.Position(*first['xyz'])
                peak = gemmi.Position(*first['peak_xyz'])
                self.assertLess(min(at.dist(a) for a in atoms), 3.0, (name, choice))
                self.assertLess(min(peak.dist(a) for a in atoms), 1.0, (name, choice))
                self.assertGreater(first['volume'], 2.5 * len(atoms) / 2)

    def test_dummy_atoms_and_table(self):
        found = self.peaks(MTZ, '--model', PDB, '-o', 'sites.pdb', '--min-volume', 3)
        atoms = [line for line in (self.folder / 'sites.pdb').read_text().splitlines() if line.startswith('HETATM')]
        self.assertEqual(len(atoms), len(found['peaks']) + len(found['blobs']))
        self.assertGreater(len(found['blobs']), 0)
        for line, peak in zip(atoms, found['peaks']):
            np.testing.assert_allclose([float(line[i:i + 8]) for i in (30, 38, 46)], peak['xyz'], atol=6e-4)
            self.assertEqual(line[21], 'P' if peak['rms'] > 0 else 'N')
        table = program('peaks', MTZ, '--model', PDB, '-n', 3, folder=self.folder).splitlines()
        self.assertIn('mFo-DFc (DELFWT/PHDELWT)', table[0])
        self.assertIn(found['peaks'][0]['nearest'], table[4])
        full = self.peaks(MTZ, '--full', '--no-blobs')
        self.assertEqual((full['difference'], 'blobs' in full), (False, False))
        self.assertTrue(all(p['rms'] > 0 for p in full['peaks']))

    def test_what_cannot_be_looked_at(self):
        for level in ('nan', '0', '-3', 'inf'):
            self.assertIn('--level', self.refused(MTZ, '--level', level))
        self.assertIn('--absolute', self.refused(MTZ, '--absolute'))
        text = Path(PDB).read_text().replace('CRYST1   50.840', 'CRYST1   60.840')
        (self.folder / 'other.pdb').write_text(text)
        self.assertIn("the model's cell is 60.84", self.refused(MTZ, '--model', 'other.pdb', '-o', 'x.pdb'))
        (self.folder / 'near.pdb').write_text(Path(PDB).read_text().replace('CRYST1   50.840', 'CRYST1   51.840'))
        self.assertIn("the model's cell is 51.84", self.peaks(MTZ, '--model', 'near.pdb')['warnings'][-1])
        program('map', MTZ, 'empty.ccp4', '-q', folder=self.folder)
        raw = bytearray((self.folder / 'empty.ccp4').read_bytes())
        start = len(raw) - 4 * points_of(self.folder / 'empty.ccp4').size
        raw[start:] = bytes(len(raw) - start)
        (self.folder / 'empty.ccp4').write_bytes(raw)
        self.assertIn('is empty', self.refused('empty.ccp4', '-o', 'x.pdb'))
        self.assertIn('--full is for reflections', self.refused('empty.ccp4', '--full'))
        self.assertIn('is an input', self.refused('empty.ccp4', '-o', 'empty.ccp4', '--force'))
        self.assertFalse((self.folder / 'x.pdb').exists())


if __name__ == '__main__':
    unittest.main()
