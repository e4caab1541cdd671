#!/usr/bin/env python3
"""Holds tables of reflections that quorix convert wrote against the MTZ file they were made of, as gemmi
(mmCIF) and iotbx (CNS, HKL, scalepack, d*TREK) read them.
Usage: check_tables.py MTZ FILE ..."""
import sys

import gemmi
import numpy
from iotbx import reflection_file_reader


def values_of_mtz(path):
    mtz = gemmi.read_mtz_file(path)
    hkl = [tuple(row) for row in numpy.array(mtz.make_miller_array())]
    return mtz, hkl, {c.label: dict(zip(hkl, numpy.array(c.array))) for c in mtz.columns}


def same(ours, theirs, relative):
    assert ours, 'nothing to compare'
    for hkl, value in ours.items():
        other = theirs[hkl]
        assert numpy.isnan(value) == numpy.isnan(other) or abs(value - other) <= relative * max(1, abs(other)), \
            (hkl, value, other)


def check_cif(path, mtz, columns):
    block = gemmi.as_refln_blocks(gemmi.cif.read(path))[0]
    assert block.spacegroup.hm == mtz.spacegroup.hm and abs(block.cell.a - mtz.cell.a) < 1e-3
    assert abs(block.wavelength - mtz.datasets[-1].wavelength) < 1e-5
    hkl = [tuple(row) for row in block.make_miller_array()]
    for item, label in (('intensity_meas', 'IMEAN'), ('intensity_sigma', 'SIGIMEAN'), ('pdbx_I_minus', 'I(-)'),
                        ('pdbx_r_free_flag', 'FREE')):
        same(dict(zip(hkl, block.make_float_array(item))), columns[label], 1e-6)
    status = dict(zip(hkl, block.block.find_values('_refln.status')))
    assert all((status[h] == 'f') == (columns['FREE'][h] == 0) for h in status)


def check_arrays(path, ending, mtz, columns):
    name = 'hklf+intensities=' if ending == 'hkl' else ''
    reader = reflection_file_reader.any_reflection_file((path + '=hklf4') if name else path)
    arrays = reader.as_miller_arrays(merge_equivalents=False)
    assert arrays, path
    seen = 0
    for array in arrays:
        labels = '%s' % (array.info().labels if array.info() else '')
        if not array.is_xray_intensity_array() and 'IMEAN' not in labels.upper():
            continue
        both = array.anomalous_flag() and ending in ('sca', 'ref')
        for h, value, sigma in zip(array.indices(), array.data(), array.sigmas() or array.data()):
            if sigma < 0:
                continue
            if both:
                plus = h in columns['I(+)'] and not numpy.isnan(columns['I(+)'][h])
                other = columns['I(+)'][h] if plus else columns['I(-)'][tuple(-i for i in h)]
            else:
                other = columns['IMEAN'][h]
            assert abs(value - other) <= 0.051 + 1e-6 * abs(other), (path, h, value, other)
            seen += 1
    assert seen > 100, (path, seen)
    symmetry = arrays[0].crystal_symmetry()
    if ending != 'hkl':
        assert abs(symmetry.unit_cell().parameters()[0] - mtz.cell.a) < 1e-3
        assert symmetry.space_group_info().type().number() == mtz.spacegroup.number


def main():
    mtz, _, columns = values_of_mtz(sys.argv[1])
    for path in sys.argv[2:]:
        ending = path.rsplit('.', 1)[1]
        if ending == 'cif':
            check_cif(path, mtz, columns)
        else:
            check_arrays(path, ending, mtz, columns)


if __name__ == '__main__':
    main()
