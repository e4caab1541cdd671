"""Models and many data sets: the programs' numbers; the example that is a notebook."""
import json
import os
import shutil
import subprocess
import sys
import unittest

import numpy as np
import quorix as qx
from support import MTZ, PDB, SOURCE, WithFolder, gemmi, needs_gemmi, program


class Models(WithFolder):
    def test_structure_factors_are_the_programs(self):
        fc = qx.fcalc(PDB, data=MTZ)
        told = json.loads(program('fcalc', PDB, '--hkl', MTZ, '-o', 'fc.mtz', '--json', folder=self.folder))
        theirs = qx.read(self.folder / 'fc.mtz')
        self.assertEqual((fc.r_work, fc.r_free), (told['scaling']['work']['r'], told['scaling']['free']['r']))
        self.assertEqual(fc.shells, told['scaling']['bins'])
        self.assertEqual(fc.report['hkl'], MTZ)
        np.testing.assert_array_equal(fc.hkl, qx.read(MTZ).hkl)
        for values, f, phi in ((fc.values, 'FC', 'PHIC'), (fc.total, 'FC_ALL', 'PHIC_ALL')):
            wave = theirs[f] * np.exp(1j * np.radians(theirs[phi].astype(float)))
            np.testing.assert_allclose(values, wave, rtol=1e-5)
        self.assertEqual(np.asarray(fc).dtype, np.complex64)

    def test_order_and_rows_that_take_no_part(self):
        """Rows in another order, with the origin term among them."""
        if gemmi is None:
            self.skipTest('gemmi is not installed')
        mtz = gemmi.read_mtz_file(MTZ)
        rows = np.array(mtz, copy=True)[::-1][:50]
        rows[7, :3] = 0
        mtz.set_data(rows)
        fc, whole = qx.fcalc(PDB, data=mtz), qx.fcalc(PDB, data=MTZ)
        np.testing.assert_array_equal(np.isnan(fc.values), [i == 7 for i in range(50)])
        place = {tuple(index): i for i, index in enumerate(whole.hkl.tolist())}
        for i in (0, 8, 49):
            np.testing.assert_allclose(fc.values[i], whole.values[place[tuple(fc.hkl[i].tolist())]], rtol=2e-3)

    def test_unique_set_and_wrong_words(self):
        fc = qx.fcalc(PDB, dmin=4)
        self.assertEqual((fc.r_work, fc.shells, fc.total), (None, [], None))
        self.assertGreater(len(fc), 300)
        with self.assertRaises(ValueError):
            qx.fcalc(PDB)
        with self.assertRaises(qx.Error):
            qx.fcalc(PDB, data=MTZ, solvent='nosuch')
        with self.assertRaises(qx.Error) as caught:
            qx.fcalc(PDB, data=MTZ, labels=('NOSUCH', 'SIGFP'))
        self.assertNotIn('/proc/', str(caught.exception))

    def test_coefficients_are_the_programs(self):
        found = qx.maps(PDB, MTZ)
        told = json.loads(program('maps', PDB, MTZ, '-o', 'maps.mtz', '--json', folder=self.folder))
        theirs = qx.read(self.folder / 'maps.mtz')
        self.assertEqual(list(found.data.columns), list(theirs.columns))
        for label in theirs.columns:
            np.testing.assert_array_equal(found.data[label], theirs[label], label)
        self.assertEqual(found.report['scale'], told['scale'])
        np.testing.assert_array_equal(found.map().array, theirs.map().array)
        self.assertEqual(found.fom.shape, (len(theirs),))

    def test_statistics_are_the_programs(self):
        told = json.loads(program('stats', MTZ, '--json', '--shells', 7, folder=self.folder))
        self.assertEqual(qx.stats(MTZ, shells=7), told)

    @needs_gemmi
    def test_models_of_gemmi(self):
        structure = gemmi.read_structure(PDB)
        theirs, ours = qx.fcalc(structure, dmin=4).values, qx.fcalc(PDB, dmin=4).values
        self.assertLess(np.abs(theirs - ours).max(), 1e-2 * np.abs(ours).mean())


class Batches(WithFolder):
    def test_a_folder_with_a_bad_file(self):
        for name in ('a', 'c'):
            shutil.copy(MTZ, self.folder / f'{name}.mtz')
        (self.folder / 'b.mtz').write_bytes(b'MTZ nothing')
        wanted = qx.read(MTZ).map(dmin=3).array
        many = qx.batch(self.folder, jobs=2, dmin=3)
        found = {name: m for name, m in many}
        self.assertEqual((len(many), sorted(found), list(many.failed)), (3, ['a', 'c'], ['b']))
        for m in found.values():
            np.testing.assert_array_equal(m.array, wanted)

    def test_leaving_early(self):
        for i in range(10):
            (self.folder / f'{i}.mtz').symlink_to(MTZ)
        for name, _ in qx.batch(self.folder, jobs=2, dmin=3):
            self.assertEqual(name, '0')
            break


class Notebook(WithFolder):
    SCRIPT = SOURCE / 'examples' / 'ligand_density.py'

    def run_script(self, **settings):
        try:
            import matplotlib  # noqa: F401
        except ImportError:
            self.skipTest('matplotlib is not installed')
        environment = {**os.environ, 'EXAMPLE_FOLDER': str(self.SCRIPT.parent), 'MPLBACKEND': 'Agg', **settings}
        done = subprocess.run([sys.executable, self.SCRIPT], cwd=self.folder, env=environment, capture_output=True,
                              text=True, check=False)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertTrue((self.folder / 'ligand_density.png').read_bytes().startswith(b'\x89PNG'))
        self.assertGreater(len(qx.read_map(self.folder / 'ligand_density.ccp4').array), 5)
        return done.stdout

    def test_the_shipped_example(self):
        self.assertIn('10 atoms', self.run_script())

    def test_a_real_ligand(self):
        told = self.run_script(EXAMPLE_MTZ=str(self.real('1rx2_P212121.mtz')), EXAMPLE_LIGAND='(FOL)',
                               EXAMPLE_MODEL=str(self.real('1rx2_P212121.pdb')))
        self.assertIn('32 atoms', told)

    def test_the_notebook_is_the_script(self):
        subprocess.run([sys.executable, SOURCE / 'tools' / 'make_notebook.py', '--check', self.SCRIPT], check=True)


if __name__ == '__main__':
    unittest.main()
