#!/usr/bin/env python3
"""Holds a CNS map against the CCP4 map of the same density, as iotbx and gemmi read them.
Usage: compare_cns_map.py CNS_MAP CCP4_MAP"""
import sys

import gemmi
import numpy
from iotbx.xplor import map as xplor


def main():
    theirs = gemmi.read_ccp4_map(sys.argv[2])
    ours = xplor.reader(sys.argv[1])
    values = numpy.array(theirs.grid, copy=False)
    assert ours.gridding.n == tuple(theirs.header_i32(word) for word in (8, 9, 10))
    assert ours.gridding.first == tuple(theirs.header_i32(word) for word in (5, 6, 7))
    assert numpy.allclose(ours.unit_cell.parameters(), theirs.grid.unit_cell.parameters, rtol=1e-4)
    density = ours.data.as_numpy_array()
    assert density.shape == values.shape, (density.shape, values.shape)
    assert numpy.abs(density - values).max() < 1e-4 * numpy.abs(values).max()
    assert abs(ours.standard_deviation - values.std()) < 1e-3 * values.std()


if __name__ == '__main__':
    main()
