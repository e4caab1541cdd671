"""Reflections as arrays: what the file holds, and ways in and out."""
import os
import shutil
import struct
import unittest
from pathlib import Path

import numpy as np
import quorix as qx
from support import MTZ, WithFolder, gemmi, needs_gemmi


def columns_by_hand(path):
    """Labels and the table of an MTZ file, by its own words."""
    with open(path, 'rb') as file:
        raw = file.read()
    at = 4 * (struct.unpack('<i', raw[4:8])[0] - 1)
    records = [raw[i:i + 80].decode('ascii') for i in range(at, len(raw), 80)]
    labels = [r.split()[1] for r in records if r.startswith('COLUMN')]
    table = np.frombuffer(raw[80:at], dtype='<f4').reshape(-1, len(labels))
    return labels, table


class Reflections(WithFolder):
    def test_columns_are_those_of_the_file(self):
        data = qx.read(MTZ)
        labels, table = columns_by_hand(MTZ)
        self.assertEqual(list(data.columns), labels)
        for i, label in enumerate(labels):
            np.testing.assert_array_equal(data[label], table[:, i], label)
        self.assertEqual(np.isnan(data['FWT']).sum(), 22)
        np.testing.assert_array_equal(data.hkl, table[:, :3])
        self.assertEqual((data.hkl.dtype, data['FP'].dtype), (np.int32, np.float32))
        np.testing.assert_allclose(data.cell, (50.84, 42.77, 28.95, 90, 90, 90), rtol=1e-6)
        self.assertEqual((data.spacegroup, len(data)), ('P 21 21 21', 6224))

    def test_views_keep_the_data_and_cannot_be_written(self):
        column, hkl = qx.read(MTZ)['FP'], qx.read(MTZ).hkl
        self.assertGreater(np.nansum(column), 0)
        for array in (column, hkl):
            with self.assertRaises(ValueError):
                array[0] = 1

    def test_default_pairs_are_the_programs(self):
        data = qx.read(MTZ)
        marked = [(p.amplitude, p.kind) for p in data.pairs if p.default]
        self.assertEqual(marked, [('FWT', '2mFo-DFc'), ('DELFWT', 'mFo-DFc')])
        self.assertIn(('FC', 'PHIC'), [p[:2] for p in data.pairs])

    def test_unknown_labels_tell_what_is_there(self):
        data = qx.read(MTZ)
        with self.assertRaises(qx.Error) as caught:
            data.map('NOSUCH')
        self.assertIn(('FWT', 'PHWT'), caught.exception.candidates)
        self.assertIn('FWT/PHWT', str(caught.exception))
        with self.assertRaises(qx.Error) as caught:
            data.map('SIGFP', 'PHWT')
        self.assertIn('standard deviation', str(caught.exception))
        with self.assertRaises(KeyError):
            data['NOSUCH']

    def test_a_file_that_is_gone_is_still_the_data(self):
        path = self.folder / 'x.mtz'
        shutil.copy(MTZ, path)
        data = qx.read(path)
        path.unlink()
        np.testing.assert_array_equal(data.map().array, qx.read(MTZ).map().array)

    def test_files_that_are_none(self):
        (self.folder / 'text').write_text('no reflections')
        (self.folder / 'cut.mtz').write_bytes(Path(MTZ).read_bytes()[:5000])
        for name in ('text', 'cut.mtz', 'nosuch'):
            with self.assertRaises(qx.Error, msg=name):
                qx.read(self.folder / name)
        with self.assertRaises(FileNotFoundError):
            qx.read('nosuch.mtz')
        with self.assertRaises(TypeError):
            qx.read(42)

    def test_descriptors_go_with_the_data(self):
        def count():
            return len(os.listdir('/proc/self/fd'))
        before = count()
        sets = [qx.read(MTZ) for _ in range(20)]
        self.assertGreater(count(), before)
        del sets
        self.assertEqual(count(), before)

    @needs_gemmi
    def test_there_and_back_with_gemmi(self):
        mtz = gemmi.read_mtz_file(MTZ)
        data = qx.read(mtz)
        np.testing.assert_array_equal(data['FWT'], mtz.column_with_label('FWT').array)
        np.testing.assert_array_equal(data.map().array, qx.read(MTZ).map().array)
        back = data.to_gemmi()
        self.assertEqual(back.column_labels(), mtz.column_labels())
        np.testing.assert_array_equal(np.array(back, copy=False), np.array(mtz, copy=False))

        class Other:  # as the data sets of other packages
            def to_gemmi(self):
                return mtz
        self.assertEqual(len(qx.read(Other())), len(data))

    def test_pandas_has_the_same_columns(self):
        try:
            import pandas
        except ImportError:
            self.skipTest('pandas is not installed')
        data = qx.read(MTZ)
        frame = data.to_pandas()
        self.assertIsInstance(frame.index, pandas.MultiIndex)
        np.testing.assert_array_equal(frame['FWT'], data['FWT'])
        h, k, l = data.hkl[100]
        self.assertEqual(frame.loc[(h, k, l), 'FP'], data['FP'][100])
        self.assertEqual(frame.attrs['spacegroup'], 'P 21 21 21')
        if gemmi is None:
            return
        back = qx.read(frame)
        self.assertEqual(back.columns, data.columns)
        np.testing.assert_array_equal(back.map().array, data.map().array)
        bare = frame.reset_index()[['H', 'K', 'L', 'FWT', 'PHWT']].copy()
        bare.attrs.clear()
        with self.assertRaisesRegex(ValueError, 'neither cell nor space group'):
            qx.read(bare)
        back = qx.read(bare, cell=data.cell, spacegroup='P 21 21 21')
        np.testing.assert_array_equal(back.map().array, data.map().array)
        with self.assertRaisesRegex(TypeError, 'are for a pandas.DataFrame'):
            qx.read(MTZ, cell=data.cell)
        with self.assertRaisesRegex(TypeError, 'are for a pandas.DataFrame'):
            qx.read(data, spacegroup='P 1')
        with self.assertRaisesRegex(ValueError, 'no L'):
            qx.read(bare.drop(columns='L'), cell=data.cell, spacegroup='P 1')

    def test_gzipped_files(self):
        data = qx.read(self.real('5wkd_C2.mtz.gz'))
        self.assertGreater(len(data), 100)
        self.assertEqual(data.spacegroup, 'C 1 2 1')


if __name__ == '__main__':
    unittest.main()
