#!/usr/bin/env python3
"""Makes the first inputs of each target in tests/fuzz/corpus from the example and from what is written here.
What the fuzzers found later lies beside them and is kept. Needs python3-gemmi and python3-numpy.
Usage: make_seeds.py"""
import struct
from pathlib import Path

import gemmi
import numpy as np

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent.parent
CORPUS = HERE / 'corpus'


def put(target, name, content):
    folder = CORPUS / target
    folder.mkdir(parents=True, exist_ok=True)
    (folder / name).write_bytes(content if isinstance(content, bytes) else content.encode())


def small_mtz():
    mtz = gemmi.Mtz(with_base=True)
    mtz.spacegroup = gemmi.SpaceGroup('P 21 21 21')
    mtz.set_cell_for_all(gemmi.UnitCell(10, 20, 30, 90, 90, 90))
    mtz.add_dataset('data')
    for label, kind in (('FWT', 'F'), ('PHWT', 'P'), ('FP', 'F'), ('SIGFP', 'Q'), ('FREE', 'I')):
        mtz.add_column(label, kind)
    rows = [[h, k, l, 10 + h, 37 * k % 360, 9 + l, 1, (h + k) % 5 == 0]
            for h in range(3) for k in range(3) for l in range(1, 3)]
    mtz.set_data(np.array(rows, dtype=np.float32))
    return mtz.write_to_bytes() if hasattr(mtz, 'write_to_bytes') else written(mtz)


def written(mtz):
    path = '/tmp/seed.mtz'
    mtz.write_to_file(path)
    return Path(path).read_bytes()


def swapped(data):
    """The header and values of a map, each word the other way round."""
    words = np.frombuffer(data[:208], '>u4').astype('<u4').tobytes()
    rest = np.frombuffer(data[1024:], '>u4').astype('<u4').tobytes()
    return words + data[208:212] + b'\x11\x11\0\0' + data[216:1024] + rest


def small_map():
    head = struct.pack('<10i6f3i3f3i', 4, 3, 2, 2, 0, 0, 0, 4, 3, 2, 10, 20, 30, 90, 90, 90, 1, 2, 3,
                       -1, 1, 0, 19, 0, 0)
    head += b'\0' * (208 - len(head)) + b'MAP ' + b'\x44\x41\0\0' + struct.pack('<fi', 0.5, 1)
    head += b'seed'.ljust(80) + b' ' * 720
    return head + np.linspace(-1, 1, 24, dtype='<f4').tobytes()


SECTIONS = {
    'map': """xcry
spgname P 21 21 21
cell 10 20 30 90 90 90
reso 1.5 50
read refl mtz file "in.mtz" coid MAP_COEFFA=FWT MAP_COEFFP=PHWT
xend
xgrid
frac 0.33
xend
xfft
memory 40
xend
xmap
mapdef generated with amplitude input phase input
param type unweighted u 1 v 0 scale yes
extent frac xmin=0 xmax=0.5 ymin=0 ymax=1 zmin=0 zmax=1
generate
write ccp4 file "out.ccp4" symm yes
xend
xter
xend
""",
    'crystal': """xcry
symp x,y,z
symp -x,y+1/2,-z
symc x+1/2,y+1/2,z
cell 10 20 30
orth 0.1 0 0 0 0 0.05 0 0 0 0 0.0333 0
reject amplitude sigcut=3 rmscut 4
xend
xgrid
ngrid nx=20 ny=40 nz=60
coarse yes
asucheck yes
xend
xverbose
param verb_mem 1 verb_binr 1
xend
xmol
hydr yes
xend
""",
    'model': """xformfact
atmf C 5 N 2
diff neutron
xend
xcut
ecut 0.01
xend
xcross
param percent 5 seed 3 NBIN 4
xend
xbulk
param probe 1.1 shrink 0.9 spacing 0.6
xend
""",
}

PDB = """CRYST1   20.000   24.000   30.000  90.00  95.00  90.00 P 1 21 1
SCALE1      0.050000  0.000000  0.004374        0.00000
SCALE2      0.000000  0.041667  0.000000        0.00000
SCALE3      0.000000  0.000000  0.033461        0.00000
ATOM      1  N   MET A   1      10.000  11.000  12.000  1.00 20.00           N
ANISOU    1  N   MET A   1     2000   2100   2200     10     20     30       N
ATOM      2  CA AMET A   1      11.400  11.000  12.000  0.50 22.00           C
HETATM    3 FE   HEM A   2       5.000   5.000   5.000  1.00 15.00          FE3+
END
"""

CIF = """data_x
_cell.length_a 20
_cell.length_b 24
_cell.length_c 30
_cell.angle_alpha 90
_cell.angle_beta 95
_cell.angle_gamma 90
_symmetry.space_group_name_H-M 'P 1 21 1'
loop_
_atom_site.group_PDB
_atom_site.id
_atom_site.type_symbol
_atom_site.label_atom_id
_atom_site.label_comp_id
_atom_site.label_asym_id
_atom_site.label_seq_id
_atom_site.Cartn_x
_atom_site.Cartn_y
_atom_site.Cartn_z
_atom_site.occupancy
_atom_site.B_iso_or_equiv
ATOM 1 C CA ALA A 1 1.0 2.0 3.0 1.0 20.0
"""


def first_records(path, count):
    lines = path.read_text(errors='replace').splitlines(True)
    return ''.join(lines[:count])


def main():
    mtz, density = small_mtz(), small_map()
    for target in ('mtz', 'info', 'map'):
        put(target, 'small.mtz', mtz)
    for target in ('ccp4', 'info', 'report'):
        put(target, 'small.ccp4', density)
        put(target, 'swapped.ccp4', swapped(density))
        put(target, 'short.ccp4', density[:900])
    for name, text in SECTIONS.items():
        put('sections', name, text)
        put('run', name, text)
    put('groups', 'p212121', block_of(ROOT / 'data/xray/spgbase.dat', 'P 21 21 21'))
    put('formfactors', 'head', first_records(ROOT / 'data/xray/atomformfactor5.dat', 12))
    for i, text in enumerate(('x,y,z', '-x+1/2,y-x,z', '1/3+x-y,2/3-z,y', '0<=x<=1/2', '1/4<y<3/4', 'x+0.5,-y,z')):
        put('operators', str(i), text)
    put('fcalc', 'small.pdb', PDB)
    put('fcalc', 'small.cif', CIF)
    put('batch', 'list', 'a.mtz\n# comment\nb.mtz c.mtz\n')


def block_of(path, name):
    """The lines of the group file about a group's name."""
    lines = path.read_text().splitlines(True)
    at = next(i for i, line in enumerate(lines) if name in line)
    return ''.join(lines[max(0, at - 3):at + 30])


if __name__ == '__main__':
    main()
