"""Maps: the programs' values, boxes, points, memory, other packages."""
import gc
import resource
import shutil
import threading
import unittest

import numpy as np
import quorix as qx
from support import MTZ, PDB, WithFolder, gemmi, needs_gemmi, points_of, program


class ProgramsValues(WithFolder):
    def compare(self, m, *words, within=0.0):
        program('map', MTZ, *words, '-q', folder=self.folder)
        theirs = points_of(next(self.folder.glob('*.ccp4')))
        self.assertEqual(m.array.shape, theirs.shape)
        np.testing.assert_allclose(m.array.astype(np.float32), theirs, rtol=0, atol=within * m.rms)

    def test_default_map(self):
        self.compare(qx.read(MTZ).map(), 'x.ccp4', '--no-scale')

    def test_scaled_difference_map(self):
        m = qx.read(MTZ).map(difference=True, scaled=True)
        self.compare(m, 'x.ccp4', '--difference')
        self.assertEqual(m.unit, 'rms')
        self.assertAlmostEqual(np.sqrt((m.array ** 2).mean()), 1.0, 9)

    def test_weight_limits_and_grid(self):
        m = qx.read(MTZ).map('FP', 'PHIC', weight='FOM', dmin=2.5, dmax=20, grid=(60, 54, 36))
        self.compare(m, 'x.ccp4', '--no-scale', '--f', 'FP', '--phi', 'PHIC', '--weight', 'FOM', '--dmin', 2.5,
                     '--dmax', 20, '--grid', 60, 54, 36)

    def test_box_about_a_selection(self):
        m = qx.read(MTZ).map(scaled=True).around(PDB, '40-44', cushion=5)
        # The program makes a part by another transform, whose last bits differ.
        self.compare(m, PDB, 'x.ccp4', '--select', '40-44', '--cushion', 5, within=1e-6)

    def test_file_has_the_programs_words(self):
        qx.read(MTZ).map(scaled=True).around(PDB).write(self.folder / 'ours')
        program('map', MTZ, PDB, 'x.ccp4', '-q', folder=self.folder)
        ours, theirs = ((self.folder / name).read_bytes() for name in ('ours', 'x.ccp4'))
        self.assertEqual((ours[:76], ours[88:216], ours[220:1344]), (theirs[:76], theirs[88:216], theirs[220:1344]))
        self.assertEqual(len(ours), len(theirs))

    def test_file_of_the_whole_cell(self):
        m = qx.read(MTZ).map()
        m.write(self.folder / 'ours.ccp4.gz')
        program('map', MTZ, 'x.ccp4', '--no-scale', '-q', folder=self.folder)
        ours, theirs = (qx.read_map(self.folder / name) for name in ('ours.ccp4.gz', 'x.ccp4'))
        np.testing.assert_array_equal(ours.array, theirs.array)
        self.assertEqual((ours.kind, ours.spacegroup, ours.unit), (theirs.kind, 'P 21 21 21', ''))
        self.assertAlmostEqual(ours.rms, m.rms, 6)
        with self.assertRaises(qx.Error):  # no map of ours takes the place of a model
            shutil.copy(PDB, self.folder / 'x.pdb')
            m.write(self.folder / 'x.pdb')


class Points(unittest.TestCase):
    def setUp(self):
        self.map = qx.read(MTZ).map(grid=(60, 50, 36))

    def place(self, indices):
        return np.asarray(indices) / self.map.grid * self.map.cell[:3]  # right angles

    def test_grid_points_are_their_values_in_any_period(self):
        for order in (0, 1, 3):
            value = self.map.at(self.place((7, 49 + 2 * 50, -3)), order=order)
            self.assertAlmostEqual(value, self.map.array[7, 49, -3], 9)

    def test_between_points_by_the_fourier_sum(self):
        """Against the sum over all reflections and their mates, at points anywhere."""
        data = qx.read(MTZ)
        fine = data.map(spacing=0.25)
        xyz = np.random.default_rng(1).uniform(0, 30, (50, 3))
        f, phi = (np.nan_to_num(data[label].astype(float)) for label in ('FWT', 'PHWT'))
        counted = 0.5 ** (data.hkl == 0).sum(axis=1)  # mates that are one reflection
        sums = np.zeros(len(xyz))
        shifts = ((0, 0, 0), (.5, 0, .5), (0, .5, .5), (.5, .5, 0))
        signs = ((1, 1, 1), (-1, -1, 1), (-1, 1, -1), (1, -1, -1))
        for sign, shift in zip(signs, shifts):
            x = np.asarray(xyz / data.cell[:3]) * sign + shift
            waves = np.cos(2 * np.pi * (data.hkl @ x.T) - np.radians(phi)[:, None])
            sums += (f * counted) @ waves
        direct = 2 * sums / np.prod(data.cell[:3])
        self.assertGreater(np.corrcoef(direct, fine.at(xyz))[0, 1], 0.9999)
        self.assertLess(np.abs(direct - fine.at(xyz)).max(), 0.01 * fine.rms)

    def test_shapes(self):
        self.assertIsInstance(self.map.at((1, 2, 3)), float)
        self.assertEqual(self.map.at(np.zeros((4, 5, 3))).shape, (4, 5))
        self.assertEqual(self.map.at(np.zeros((0, 3))).shape, (0,))
        for wrong in (np.zeros((3, 4)), [1, 2]):
            with self.assertRaises(ValueError):
                self.map.at(wrong)

    def test_a_box_has_the_cells_values_and_ends_at_its_border(self):
        box = self.map.around(PDB, '40-44')
        nx, ny, nz = box.array.shape
        start = np.array(box.start)
        cell = np.take(np.take(np.take(self.map.array, np.arange(nx) + start[0], 0, mode='wrap'),
                               np.arange(ny) + start[1], 1, mode='wrap'), np.arange(nz) + start[2], 2, mode='wrap')
        np.testing.assert_array_equal(box.array, cell)
        self.assertEqual((box.rms, box.grid), (self.map.rms, self.map.grid))
        np.testing.assert_allclose(box.at(PDB, '40-44'), self.map.at(PDB, '40-44'), rtol=1e-12)
        self.assertTrue(np.isnan(box.at(self.place(start - 1))))
        with self.assertRaises(qx.Error):
            box.around(PDB)

    def test_atoms_lie_in_density(self):
        heights = self.map.at(PDB) / self.map.rms
        self.assertGreater(np.median(heights), 2.0)

    @needs_gemmi
    def test_models_of_gemmi_and_its_interpolation(self):
        structure = gemmi.read_structure(PDB)
        np.testing.assert_allclose(self.map.at(structure), self.map.at(PDB), atol=1e-6)
        grid = self.map.to_gemmi()
        for xyz in ((1.1, 2.2, 3.3), (-5, 60.3, 9.9)):
            self.assertAlmostEqual(grid.interpolate_value(gemmi.Position(*xyz)), self.map.at(xyz, order=1), 5)
            self.assertAlmostEqual(grid.tricubic_interpolation(gemmi.Position(*xyz)), self.map.at(xyz), 5)


class Ownership(WithFolder):
    def test_arrays_outlive_map_and_data(self):
        array = qx.read(MTZ).map().array
        copy = array.copy()
        for _ in range(5):
            qx.read(MTZ).map(difference=True)
        gc.collect()
        np.testing.assert_array_equal(array, copy)

    def test_no_copy_stands_between_array_and_map(self):
        m = qx.read(MTZ).map()
        m.array[3, 4, 5] = 99.0
        self.assertTrue(np.shares_memory(m.array, np.asarray(m)))
        self.assertEqual(m.at(np.array((3, 4, 5)) / m.grid * m.cell[:3]), 99.0)

    def test_memory_is_flat(self):
        data = qx.read(MTZ)

        def largest():
            return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss

        for _ in range(100):
            data.map(dmin=3)
        before = largest()
        for i in range(2000):
            data.map(dmin=3).around(PDB, '40') if i % 20 == 0 else data.map(dmin=3)
        self.assertLess(largest() - before, 2000)  # kB: one a map would be seen

    def test_maps_are_made_of_what_was_read(self):
        """Whatever stands in the file by then; and what a fault or another engine has done in between."""
        copy = self.folder / 'copy.mtz'
        shutil.copy(MTZ, copy)
        data = qx.read(copy)
        wanted = qx.read(MTZ).map(dmin=3).array
        copy.write_bytes(b'nothing of use')
        with self.assertRaises(qx.Error):
            qx.read(copy)
        for _ in range(3):
            np.testing.assert_array_equal(data.map(dmin=3).array, wanted)
            with self.assertRaises(qx.Error):
                data.map(spacegroup='P 17')
            data.map(difference=True).around(PDB, '40')
        kept = data.map(dmin=3)
        column = data['FWT']
        del data
        gc.collect()
        np.testing.assert_array_equal(kept.array, wanted)
        np.testing.assert_array_equal(column, qx.read(MTZ)['FWT'])

    def test_threads_make_different_maps_at_once(self):
        data = qx.read(MTZ)
        wanted = {difference: data.map(difference=difference).array for difference in (False, True)}
        wrong = []

        def work(difference):
            for _ in range(20):
                if not np.array_equal(data.map(difference=difference).array, wanted[difference]):
                    wrong.append(difference)

        threads = [threading.Thread(target=work, args=(i % 2 == 0,)) for i in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(wrong, [])


class Peaks(unittest.TestCase):
    def test_the_atoms_are_the_peaks_of_their_own_density(self):
        """Calculated amplitudes and phases: peaks lie on atoms, each orbit once."""
        m = qx.read(MTZ).map('FC', 'PHIC', spacing=0.4)
        peaks = m.peaks(3, near=PDB)
        self.assertGreater(len(peaks), 50)
        self.assertLess(np.median(peaks['distance']), 0.25)
        self.assertTrue((np.diff(peaks['height']) <= 0).all())
        np.testing.assert_allclose(peaks['height'], m.at(peaks['xyz']), rtol=0.05)
        atoms = qx.positions(PDB)
        apart = np.linalg.norm(peaks['xyz'][:, None] - atoms[None], axis=2).min(axis=1)
        np.testing.assert_allclose(apart, peaks['distance'], atol=1e-3)
        self.assertTrue(all(peaks['nearest']))

    def test_one_of_each_orbit(self):
        m = qx.read(MTZ).map('FC', 'PHIC', spacing=0.5)
        peaks = m.peaks(4)
        sg = ((1, 1, 1, 0, 0, 0), (-1, -1, 1, .5, 0, .5), (-1, 1, -1, 0, .5, .5), (1, -1, -1, .5, .5, 0))
        all_mates = {tuple(np.round(((p / m.cell[:3]) * o[:3] + o[3:]) % 1 * 50).astype(int) % 50)
                     for p in peaks['xyz'] for o in np.array(sg)}
        self.assertGreater(len(all_mates), 3.9 * len(peaks))

    def test_holes_and_a_point_by_hand(self):
        values = np.zeros((12, 12, 12))
        values[5, 6, 7], values[6, 6, 7] = 10, 5
        values[1, 1, 1] = -8
        m = qx.Map.from_array(values, (24, 24, 24, 90, 90, 90))
        top, = m.peaks(1)
        np.testing.assert_allclose(top['xyz'], (2 * (5 + 1 / 6), 12, 14), atol=1e-9)
        self.assertAlmostEqual(top['height'], 10 + 5 * 5 / (8 * 15), 9)
        hole, = m.peaks(-1)
        np.testing.assert_allclose(hole['xyz'], (2, 2, 2))
        self.assertEqual(hole['height'], -8)
        with self.assertRaises(ValueError):
            m.peaks(0)

    def test_a_ligand_that_was_left_out_is_the_highest(self):
        """A residue is left out of the model; its place has the highest peaks of the difference map."""
        found = qx.maps(PDB, MTZ, omit='(HIS)').map(difference=True)
        first = found.peaks(3.5, near=PDB)[0]
        self.assertIn('HIS', first['nearest'])
        self.assertLess(first['distance'], 1.5)


@needs_gemmi
class WithGemmi(WithFolder):
    def test_the_same_density(self):
        m = qx.read(MTZ).map()
        theirs = gemmi.read_mtz_file(MTZ).transform_f_phi_to_map('FWT', 'PHWT', exact_size=m.array.shape)
        np.testing.assert_allclose(m.array, np.array(theirs, copy=False), atol=2e-5 * m.rms)

    def test_there_and_back(self):
        m = qx.read(MTZ).map()
        grid = m.to_gemmi()
        back = qx.Map.from_gemmi(grid)
        np.testing.assert_array_equal(back.array, m.array.astype(np.float32))
        self.assertEqual((back.spacegroup, back.grid), (m.spacegroup, m.grid))
        self.assertAlmostEqual(back.rms, m.rms, 6)

    def test_grids_that_no_transform_of_ours_makes(self):
        """Seven and eleven are no factors of ours; boxes and files of such maps are right as well."""
        grid = gemmi.FloatGrid(np.arange(7 * 11 * 13, dtype=np.float32).reshape(7, 11, 13),
                               gemmi.UnitCell(20, 30, 40, 80, 95, 110))
        grid.spacegroup = gemmi.SpaceGroup('P 1')
        m = qx.Map.from_gemmi(grid)
        m.write(self.folder / 'odd.ccp4')
        np.testing.assert_array_equal(points_of(self.folder / 'odd.ccp4'), m.array)
        xyz = gemmi.Position(3, 4, 5)
        self.assertAlmostEqual(m.at(xyz.tolist()), grid.tricubic_interpolation(xyz), 3)


if __name__ == '__main__':
    unittest.main()
