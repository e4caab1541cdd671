#!/usr/bin/env python3
"""Compares FC and PHIC of an MTZ with gemmi's direct sums over the model's atoms, at every n-th
reflection. Usage: compare_structure_factors.py MODEL MTZ MOST_R [SCATTERING]
or: compare_structure_factors.py convert MODEL OUT   (writes mmCIF, gzipped if OUT ends in .gz)
or: compare_structure_factors.py fractions MODEL OUT   (mmCIF, a row for each pair of H and D)"""
import gzip
import sys

import gemmi
import numpy


def convert(model, out):
    text = gemmi.read_structure(model).make_mmcif_document().as_string()
    with (gzip.open if out.endswith('.gz') else open)(out, 'wt') as file:
        file.write(text)


def fractions(model, out):
    structure = gemmi.read_structure(model)
    share = {}
    for chain in structure[0]:
        for residue in chain:
            at = 1
            while at < len(residue):
                hydrogen, deuterium = residue[at - 1], residue[at]
                if (hydrogen.element.name, deuterium.element.name) == ('H', 'D'):
                    hydrogen.occ += deuterium.occ
                    share[hydrogen.serial] = deuterium.occ / hydrogen.occ
                    del residue[at]
                at += 1
    block = structure.make_mmcif_document()[0]
    atoms = block.find_loop('_atom_site.id').get_loop()
    serials = list(block.find_loop('_atom_site.id'))
    columns = [list(block.find_loop(tag)) for tag in atoms.tags]
    columns.append([f'{share.get(int(serial), 0):.4f}' for serial in serials])
    tags = [tag.removeprefix('_atom_site.') for tag in atoms.tags] + ['ccp4_deuterium_fraction']
    block.init_loop('_atom_site.', tags).set_all_values(columns)
    block.write_file(out)


def compare(model, reflections, most_r, scattering='xray'):
    structure = gemmi.read_structure(model)
    mtz = gemmi.read_mtz_file(reflections)
    calculators = {'xray': gemmi.StructureFactorCalculatorX, 'neutron': gemmi.StructureFactorCalculatorN}
    calculator = calculators[scattering](structure.cell)
    every = max(1, mtz.nreflections // 300)
    indices = mtz.make_miller_array()[::every]
    f = numpy.array(mtz.column_with_label('FC'))[::every]
    phi = numpy.array(mtz.column_with_label('PHIC'))[::every]
    ours = f * numpy.exp(1j * numpy.radians(phi))
    theirs = numpy.array([calculator.calculate_sf_from_model(structure[0], list(hkl))
                          for hkl in indices.tolist()])
    r = numpy.abs(ours - theirs).sum() / numpy.abs(theirs).sum()
    print('vector R', r, 'over', len(indices), 'reflections')
    assert r <= float(most_r)


if __name__ == '__main__':
    if sys.argv[1] == 'convert':
        convert(*sys.argv[2:])
    elif sys.argv[1] == 'fractions':
        fractions(*sys.argv[2:])
    else:
        compare(*sys.argv[1:])
