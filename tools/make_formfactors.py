#!/usr/bin/env python3
"""Makes the four form-factor files of data/xray from the tables of well-kept libraries.

X-rays: International Tables for Crystallography C (1992), table 6.1.1.4 (four Gaussians and a constant;
elements and ions), and the two-Gaussian fits of R. C. Agarwal, Acta Cryst. A34 (1978) 791, for C, N, O
and S, both as cctbx has them (python3-cctbx). Neutrons: coherent scattering lengths of V. F. Sears,
Neutron News 3 (1992) 26, as gemmi has them (python3-gemmi).
"""
import re
import sys
from pathlib import Path

import gemmi
from cctbx.eltbx import xray_scattering

DATA = Path(__file__).resolve().parent.parent / 'data' / 'xray'
NOT_ATOM_TYPES = {'Hiso', 'Cval', 'Sival'}
TWO_GAUSSIAN = ('C', 'N', 'O', 'S')


def type_name(label):
    """Fe3+ -> Fe+3: types are formed as symbol, sign, magnitude."""
    ion = re.fullmatch(r'([A-Z][a-z]?)(\d)([+-])', label)
    return f'{ion[1]}{ion[3]}{ion[2]}' if ion else label


def number(value):
    return f'{value:.6f}'.rstrip('0').rstrip('.')


def row(values):
    return ' '.join(number(value) for value in values)


def write(name, comments, records):
    lines = [f'# {comment}' for comment in comments] + [str(len(records))]
    for label, a, b in records:
        assert len(label) <= 4, label
        lines += [label, row(a), row(b)]
    (DATA / name).write_text('\n'.join(lines) + '\n')
    print(f'{name}: {len(records)} records')


def main():
    five = []
    for entry in xray_scattering.it1992_iterator():
        if entry.label() not in NOT_ATOM_TYPES:
            form = entry.fetch()
            five.append((type_name(entry.label()), list(form.array_of_a()) + [form.c()],
                         form.array_of_b()))
    write('atomformfactor5.dat',
          ['X-ray form factors: name; a1 a2 a3 a4 c; b1 b2 b3 b4.',
           'International Tables for Crystallography C (1992), table 6.1.1.4, by way of cctbx.',
           'f(s) = sum a_i exp(-b_i s^2 / 4) + c, s = 1/d.'], five)

    two = []
    for label in TWO_GAUSSIAN:
        form = xray_scattering.two_gaussian_agarwal_1978.table[label]
        two.append((label, form.array_of_a(), form.array_of_b()))
    write('atomformfactor2.dat',
          ['X-ray form factors: name; a1 a2; b1 b2.',
           'Two-Gaussian fits of R. C. Agarwal, Acta Cryst. A34 (1978) 791, by way of cctbx.',
           'Hydrogen, phosphorus and ions have no good fit of this form: they stand in the other file.'],
          two)

    lengths = []
    for element in [gemmi.Element(z) for z in range(1, 104)] + [gemmi.Element('D')]:
        length = element.neutron92.get_coefs()[0]
        if length != 0:
            lengths.append((element.name, length))
    source = ['Coherent scattering lengths in fm: V. F. Sears, Neutron News 3 (1992) 26, by way of gemmi.',
              'They do not depend on s: one constant term.']
    write('neu_atomformfactor5.dat', source,
          [(label, [0, 0, 0, 0, length], [0, 0, 0, 0]) for label, length in lengths])
    write('neu_atomformfactor2.dat', source,
          [(label, [length, 0], [0, 0]) for label, length in lengths])


if __name__ == '__main__':
    sys.exit(main())
