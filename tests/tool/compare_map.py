#!/usr/bin/env python3
"""Compares a map with gemmi's transform of the same coefficients, and its header with mrcfile's and
gemmi's reading of it. Usage: compare_map.py MAP MTZ F_LABEL PHI_LABEL"""
import sys

import gemmi
import mrcfile
import numpy


def main():
    path, reflections, f, phi = sys.argv[1:5]
    ours = gemmi.read_ccp4_map(path)
    grid = numpy.array(ours.grid, copy=False).astype(float)
    mtz = gemmi.read_mtz_file(reflections)
    size = [ours.header_i32(word) for word in (8, 9, 10)]
    theirs = mtz.transform_f_phi_to_map(f, phi, exact_size=size)
    oracle = numpy.array(theirs, copy=False).astype(float)
    oracle /= numpy.sqrt(numpy.mean(oracle ** 2))
    correlation = numpy.corrcoef(grid.ravel(), oracle.ravel())[0, 1]
    deviation = numpy.abs(grid - oracle).max()
    print('correlation', correlation, 'largest deviation', deviation)
    assert correlation >= 0.999999 and deviation <= 2e-5
    assert ours.grid.spacegroup.number == mtz.spacegroup.number
    with mrcfile.open(path, permissive=True) as mrc:
        assert numpy.array_equal(mrc.data, grid.transpose(2, 1, 0).astype(numpy.float32))
        for word, value in ((20, mrc.header.dmin), (21, mrc.header.dmax), (22, mrc.header.dmean),
                            (55, mrc.header.rms), (11, mrc.header.cella.x)):
            assert ours.header_float(word) == value, word
        assert tuple(mrc.header.nxstart.ravel()) == (0,)


if __name__ == '__main__':
    main()
