#!/usr/bin/env python3
"""Maps of ubiquitin as other programs read them: what docs/viewers.md tells as tried.
Usage: check_readers.py CLIPPER_READER FOLDER, which holds cell.ccp4 (as quorix map writes it), box.ccp4
(around a model), plain.ccp4 and plain_box.ccp4 (the same with the section language's own header), all
in e/A^3; and scripts for PyMOL of quorix map and of quorix report with a model."""
import json
import os
import struct
import subprocess
import sys
import unittest
import warnings
from pathlib import Path

import gemmi
import mrcfile
import numpy as np

READER, FOLDER = sys.argv[1], Path(sys.argv[2])
CELL = (50.84, 42.77, 28.95, 90, 90, 90)
SAMPLING = (90, 72, 48)
NAMES = 'cell', 'box', 'plain', 'plain_box'


class Bytes:
    """The file by its offsets: values[x][y][z] from start, and words of the header."""

    def __init__(self, name):
        data = (FOLDER / f'{name}.ccp4').read_bytes()
        self.shape, self.start = struct.unpack_from('<3i', data), np.array(struct.unpack_from('<3i', data, 16))
        symmetry, = struct.unpack_from('<i', data, 92)
        self.mean, self.rms = struct.unpack_from('<f', data, 84)[0], struct.unpack_from('<f', data, 216)[0]
        self.values = np.frombuffer(data, '<f4', offset=1024 + symmetry).reshape(self.shape[::-1]).T


MAPS = {name: Bytes(name) for name in NAMES}
POINTS = np.random.default_rng(7).integers(-60, 150, (200, 3))
DENSITY = MAPS['cell'].values[tuple((POINTS % SAMPLING).T)]


class Readers(unittest.TestCase):
    def clipper(self, name):
        points = '\n'.join(' '.join(map(str, point)) for point in POINTS)
        run = subprocess.run([READER, FOLDER / f'{name}.ccp4'], input=points, text=True, capture_output=True,
                             check=True)
        return json.loads(run.stdout)

    def test_clipper_expands_a_map_by_its_records(self):
        for name in 'cell', 'box':
            found = self.clipper(name)
            self.assertEqual((found['group'], found['operators']), ('P 21 21 21', 4))
            np.testing.assert_allclose(found['cell'], CELL, rtol=1e-6)
            self.assertEqual(tuple(found['grid']), SAMPLING)
            # The box holds an asymmetric unit, so that all of the crystal follows from it.
            np.testing.assert_allclose(found['values'], DENSITY, rtol=0, atol=1e-5)
        found = self.clipper('cell')
        self.assertAlmostEqual(found['mean'], MAPS['cell'].mean, places=5)
        self.assertAlmostEqual(found['deviation'], MAPS['cell'].rms, places=5)

    def test_clipper_takes_a_map_without_records_for_p1(self):
        for name, same in ('plain', True), ('plain_box', False):
            found = self.clipper(name)
            self.assertEqual((found['group'], found['operators']), ('P 1', 1))
            self.assertEqual(np.allclose(found['values'], DENSITY, atol=1e-5), same)

    def test_gemmi_needs_a_zero_origin_to_fill_the_cell(self):
        for name in NAMES:
            found = gemmi.read_ccp4_map(str(FOLDER / f'{name}.ccp4'))
            self.assertEqual(found.grid.spacegroup.hm, 'P 21 21 21')
            np.testing.assert_allclose(found.grid.unit_cell.parameters, CELL, rtol=1e-6)
            if name == 'plain_box':
                self.assertRaises(RuntimeError, found.setup, float('nan'))
                continue
            found.setup(float('nan'))
            values = np.array(found.grid, copy=False)[tuple((POINTS % SAMPLING).T)]
            np.testing.assert_allclose(values, DENSITY, rtol=0, atol=1e-5)

    def test_mrcfile_opens_them_without_a_warning(self):
        for name, map_ in MAPS.items():
            with warnings.catch_warnings():
                warnings.simplefilter('error')
                with mrcfile.open(FOLDER / f'{name}.ccp4') as found:
                    np.testing.assert_array_equal(found.data.T, map_.values)
                    np.testing.assert_allclose(tuple(found.voxel_size.item()), np.divide(CELL[:3], SAMPLING),
                                               rtol=1e-6)
                    origin = np.array(found.header.origin.item())
                    self.assertEqual(origin.any(), 'plain' in name)
                    self.assertLess(np.abs(origin).max(), 1e-18)

    def pymol(self, *arguments):
        # PyMOL's starter takes the first python3 there is.
        run = subprocess.run(['pymol', '-cq', *arguments], text=True, capture_output=True,
                             env={**os.environ, 'PATH': '/usr/bin:/bin'}, check=True)
        lines = [line[6:] for line in run.stdout.splitlines() if line.startswith('RESULT')]
        self.assertEqual(len(lines), 1, run.stdout + run.stderr)
        return json.loads(lines[0])

    def test_pymol_runs_the_scripts(self):
        say = 'import json; print("RESULT" + json.dumps(sorted(cmd.get_names("all"))))'
        for script, names in (('1ubq', '2mFo_DFc_map 2mFo_DFc_mesh mFo_DFc_less mFo_DFc_map mFo_DFc_more'),
                              ('1ubq_mFo-DFc', 'mFo_DFc_less mFo_DFc_map mFo_DFc_more')):
            found = self.pymol(FOLDER / f'{script}_pymol.py', '-d', say)
            model = ['coordinates'] if '-' in script else []
            self.assertEqual(found, [f'1ubq_{name}' for name in names.split()] + model)

    def test_pymol_has_cell_group_place_and_values(self):
        paths = [FOLDER / f'{name}.ccp4' for name in NAMES]
        results = self.pymol(Path(__file__).with_name('pymol_reader.py'), '--', *paths)
        for map_, found in zip(MAPS.values(), results, strict=True):
            np.testing.assert_allclose(found['symmetry'][:6], CELL, rtol=1e-6)
            self.assertEqual(found['symmetry'][6], 'P 21 21 21')
            corners = np.array([map_.start, map_.start + map_.shape - 1]) * np.divide(CELL[:3], SAMPLING)
            np.testing.assert_allclose(found['extent'], corners, rtol=0, atol=1e-4)
            self.assertEqual(tuple(found['shape']), map_.shape)
            np.testing.assert_array_equal(np.float32(found['values']), map_.values.ravel()[::997])


if __name__ == '__main__':
    suite = unittest.defaultTestLoader.loadTestsFromTestCase(Readers)
    sys.exit(not unittest.TextTestRunner(verbosity=2).run(suite).wasSuccessful())
