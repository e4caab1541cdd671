#!/usr/bin/env python3
"""Holds a map of quorix map against gemmi's transform of the same coefficients (the cell's mean taken
off, as F(0,0,0) is left out) and its header against mrcfile's and gemmi's reading of it.
Usage: check_map.py MAP MTZ F_LABEL PHI_LABEL TOLERANCE"""
import sys

import gemmi
import mrcfile
import numpy


def main():
    path, reflections, f, phi, tolerance = sys.argv[1:6]
    ours = gemmi.read_ccp4_map(path)
    grid = numpy.array(ours.grid, copy=False).astype(float)
    mtz = gemmi.read_mtz_file(reflections)
    size = [ours.header_i32(word) for word in (8, 9, 10)]
    # Half the coefficients would do, were it not for odd counts.
    coefficients = mtz.get_f_phi_on_grid(f, phi, size, half_l=False)
    oracle = numpy.array(gemmi.transform_f_phi_grid_to_map(coefficients), copy=False).astype(float)
    oracle -= oracle.mean()
    oracle /= numpy.sqrt(numpy.mean(oracle ** 2))
    deviation = numpy.abs(grid - oracle).max()
    print('largest deviation', deviation)
    assert deviation <= float(tolerance)
    assert abs(numpy.mean(grid ** 2) - 1) < 1e-5

    group = mtz.spacegroup
    assert ours.grid.spacegroup.number == group.number
    with mrcfile.open(path, permissive=True) as mrc:
        header = mrc.header
        assert (header.mapc, header.mapr, header.maps) == (1, 2, 3)
        assert tuple(header.origin.item()) == (0, 0, 0)
        assert header.nsymbt == 80 * len(group.operations())
        assert numpy.array_equal(mrc.data, grid.transpose(2, 1, 0).astype(numpy.float32))
        assert abs(header.rms - 1) < 1e-5 and header.dmax == mrc.data.max()
        records = bytes(mrc.extended_header)
    texts = [records[at:at + 80].decode().strip() for at in range(0, len(records), 80)]
    found = {gemmi.Op(text).wrap().triplet() for text in texts}
    assert found == {op.wrap().triplet() for op in group.operations()}, texts


if __name__ == '__main__':
    main()
