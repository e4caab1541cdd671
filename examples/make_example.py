#!/usr/bin/env python3
"""Makes 1ubq.mtz, the example's reflection file, from 1ubq.pdb.

What a refinement would have left: "observed" amplitudes (structure factors of a model whose atoms are
displaced a little, with measurement noise and a few reflections missing), the model's own structure
factors, and sigmaA-weighted 2mFo-DFc and mFo-DFc coefficients (R. J. Read, Acta Cryst. A42 (1986) 140).
The structure factors are calculated with gemmi; the random numbers are seeded, so the file is always
the same. Needs python3-gemmi and python3-numpy.
"""
import sys
from pathlib import Path

import gemmi
import numpy

HERE = Path(__file__).resolve().parent
D_MIN = 1.8
BINS = 12
DISPLACEMENT = 0.12  # Angstrom, per coordinate
MISSING = 0.015      # share of reflections that were not measured


def structure_factors(structure):
    """Complex F of the unique set to D_MIN, as (miller indices, values)."""
    calculator = gemmi.DensityCalculatorX()
    calculator.d_min = D_MIN
    calculator.rate = 2.0
    calculator.set_grid_cell_and_spacegroup(structure)
    calculator.set_refmac_compatible_blur(structure[0])
    calculator.put_model_density_on_grid(structure[0])
    grid = gemmi.transform_map_to_f_phi(calculator.grid, half_l=True)
    data = grid.prepare_asu_data(dmin=D_MIN, unblur=calculator.blur)
    return data.miller_array, numpy.asarray(data.value_array)


def displaced(structure, rng):
    copy = structure.clone()
    for chain in copy[0]:
        for residue in chain:
            for atom in residue:
                shift = rng.normal(0.0, DISPLACEMENT, 3)
                atom.pos += gemmi.Position(*shift)
    return copy


def figure_of_merit(x, centric):
    """I1(X)/I0(X), for centric reflections tanh(X/2)."""
    angle = (numpy.arange(180) + 0.5) * numpy.pi / 180
    weight = numpy.exp(numpy.outer(x, numpy.cos(angle) - 1))
    acentric = (weight * numpy.cos(angle)).sum(1) / weight.sum(1)
    return numpy.where(centric, numpy.tanh(x / 2), acentric)


def weights(fo, fc, centric, epsilon, bins):
    """m and D of each reflection, sigmaA taken bin by bin from the correlation of E^2."""
    m = numpy.zeros(len(fo))
    d = numpy.zeros(len(fo))
    for b in range(BINS):
        use = bins == b
        sigma_n = numpy.mean(fo[use] ** 2 / epsilon[use])
        sigma_p = numpy.mean(fc[use] ** 2 / epsilon[use])
        eo = fo[use] / numpy.sqrt(epsilon[use] * sigma_n)
        ec = fc[use] / numpy.sqrt(epsilon[use] * sigma_p)
        correlation = numpy.corrcoef(eo ** 2, ec ** 2)[0, 1]
        sigma_a = numpy.sqrt(numpy.clip(correlation, 0.05, 0.98))
        x = 2 * sigma_a * eo * ec / (1 - sigma_a ** 2)
        m[use] = figure_of_merit(x, centric[use])
        d[use] = sigma_a * numpy.sqrt(sigma_n / sigma_p)
    return m, d


def main():
    rng = numpy.random.default_rng(1987)
    structure = gemmi.read_structure(str(HERE / '1ubq.pdb'))
    structure.setup_entities()
    hkl, model = structure_factors(structure)
    _, truth = structure_factors(displaced(structure, rng))
    group = gemmi.find_spacegroup_by_name(structure.spacegroup_hm)
    ops = group.operations()
    centric = numpy.array([ops.is_reflection_centric(list(h)) for h in hkl])
    epsilon = numpy.array([ops.epsilon_factor(list(h)) for h in hkl], dtype=float)
    s2 = structure.cell.calculate_1_d2_array(hkl)
    order = numpy.argsort(s2, kind='stable')
    bins = numpy.zeros(len(hkl), dtype=int)
    bins[order] = numpy.arange(len(hkl)) * BINS // len(hkl)

    fc = numpy.abs(model)
    phase = numpy.degrees(numpy.angle(model)) % 360
    sigma = 0.02 * numpy.abs(truth) + 0.03 * numpy.sqrt(numpy.mean(fc ** 2))
    fo = numpy.abs(numpy.abs(truth) + rng.normal(0, 1, len(fc)) * sigma)
    m, d = weights(fo, fc, centric, epsilon, bins)
    two = numpy.where(centric, m * fo, 2 * m * fo - d * fc)
    difference = numpy.where(centric, m * fo - d * fc, 2 * (m * fo - d * fc))
    missing = rng.random(len(fc)) < MISSING
    fo[missing] = sigma[missing] = m[missing] = numpy.nan
    two[missing] = (d * fc)[missing]
    difference[missing] = numpy.nan
    free = rng.integers(0, 20, len(fc)).astype(float)

    def coefficient(value):
        return numpy.abs(value), numpy.where(value < 0, phase + 180, phase) % 360

    two_f, two_phase = coefficient(two)
    difference_f, difference_phase = coefficient(difference)
    difference_phase[missing] = numpy.nan
    # A few reflections carry no coefficient at all, as after a run that does not fill in.
    empty = numpy.flatnonzero(missing)[::4]
    two_f[empty] = two_phase[empty] = numpy.nan

    mtz = gemmi.Mtz(with_base=True)
    mtz.title = 'Ubiquitin 1UBQ, calculated example data'
    mtz.spacegroup = group
    mtz.set_cell_for_all(structure.cell)
    mtz.history = ['Calculated from 1ubq.pdb with added noise; not measured data']
    data_set = mtz.add_dataset('example')
    data_set.project_name = 'ubiquitin'
    data_set.crystal_name = '1ubq'
    data_set.wavelength = 1.5418
    columns = [('FREE', 'I', free), ('FP', 'F', fo), ('SIGFP', 'Q', sigma), ('FC', 'F', fc),
               ('PHIC', 'P', phase), ('FWT', 'F', two_f), ('PHWT', 'P', two_phase),
               ('DELFWT', 'F', difference_f), ('PHDELWT', 'P', difference_phase),
               ('FOM', 'W', m)]
    for label, kind, _ in columns:
        mtz.add_column(label, kind)
    mtz.set_data(numpy.column_stack([hkl] + [values for _, _, values in columns])
                 .astype(numpy.float32))
    mtz.sort()
    mtz.write_to_file(str(HERE / '1ubq.mtz'))
    used = ~missing
    print(f'{len(hkl)} reflections to {D_MIN} A, {missing.sum()} missing, '
          f'R = {numpy.abs(fo - fc)[used].sum() / fo[used].sum():.3f}, '
          f'<FOM> = {m[used].mean():.3f}')


if __name__ == '__main__':
    sys.exit(main())
