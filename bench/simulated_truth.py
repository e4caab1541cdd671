#!/usr/bin/env python3
"""Maps from data whose truth is known. A deposited model is taken as the truth: its structure factors with bulk
solvent and an anisotropic scale (by cctbx) give amplitudes with noise, of which some are left out; the model
that `quorix maps` gets has errors in its coordinates and, in the second case, lacks residues. Printed: what was
put in and found of the scale, the correlations of the maps with the true ones, the figures of merit against the
cosines of the phase errors.
Usage: simulated_truth.py QUORIX MODEL.pdb [easy|hard], with python3-cctbx and python3-gemmi"""
import json
import subprocess
import sys
import tempfile
from pathlib import Path

import numpy

CASES = {
    'easy': dict(k_sol=0.38, b_sol=55.0, b_cart=(-4.0, 1.0, 3.0), error=0.10, missing=0.0, noise=0.02, d_min=1.8),
    'hard': dict(k_sol=0.33, b_sol=40.0, b_cart=(2.5, 2.5, -5.0), error=0.30, missing=0.05, noise=0.04, d_min=2.3),
}
UNOBSERVED = 0.03
FREE = 0.05


def true_amplitudes(model, case):
    import mmtbx.f_model
    from cctbx import miller
    from cctbx.array_family import flex
    xray = model.xray_structure_simple()
    indices = miller.build_set(xray.crystal_symmetry(), anomalous_flag=False, d_min=case['d_min'])
    indices = indices.resolution_filter(d_max=30.0)
    f_obs = miller.array(indices, flex.double(indices.size(), 1.0))
    manager = mmtbx.f_model.manager(f_obs=f_obs.set_observation_type_xray_amplitude(), xray_structure=xray,
                                    k_sol=case['k_sol'], b_sol=case['b_sol'],
                                    b_cart=list(case['b_cart']) + [0.0, 0.0, 0.0])
    return manager.f_model()


def spoilt(model, case, random):
    """The model that refinement would hold: displaced atoms, residues missing."""
    hierarchy = model.construct_hierarchy()
    groups = list(hierarchy.residue_groups())
    gone = set(random.choice(len(groups), int(case['missing'] * len(groups)), replace=False)) if case['missing'] else set()
    hierarchy.atoms().reset_i_seq()
    for n in sorted(gone):
        groups[n].parent().remove_residue_group(groups[n])
    for atom in hierarchy.atoms():
        atom.xyz = tuple(numpy.array(atom.xyz) + random.normal(0.0, case['error'] / numpy.sqrt(3.0), 3))
    return hierarchy


def correlation(a, b):
    """Of two maps, from their coefficients."""
    return float((a * b.conj()).real.sum() / numpy.sqrt((abs(a) ** 2).sum() * (abs(b) ** 2).sum()))


def column(mtz, label):
    return numpy.array(mtz.column_with_label(label), copy=True)


def coefficients(mtz, amplitude, phase):
    f = column(mtz, amplitude) * numpy.exp(1j * numpy.radians(column(mtz, phase)))
    return numpy.nan_to_num(f)


def write_data(path, crystal, indices, observed, sigma, seen, flags):
    import gemmi
    mtz = gemmi.Mtz(with_base=True)
    mtz.spacegroup = gemmi.SpaceGroup(str(crystal.space_group_info()))
    mtz.set_cell_for_all(gemmi.UnitCell(*crystal.unit_cell().parameters()))
    mtz.add_dataset('simulated')
    for label, kind in (('FP', 'F'), ('SIGFP', 'Q'), ('FREE', 'I')):
        mtz.add_column(label, kind)
    hide = numpy.where(seen, 1.0, numpy.nan)
    mtz.set_data(numpy.column_stack([indices, observed * hide, sigma * hide, flags]).astype(numpy.float32))
    mtz.write_to_file(str(path))


def main():
    import gemmi
    import iotbx.pdb
    quorix, path = sys.argv[1:3]
    name = sys.argv[3] if len(sys.argv) > 3 else 'easy'
    case = CASES[name]
    random = numpy.random.RandomState(20)
    model = iotbx.pdb.input(path)
    truth = true_amplitudes(model, case)
    folder = Path(tempfile.mkdtemp())
    hierarchy = spoilt(model, case, random)
    (folder / 'model.pdb').write_text(hierarchy.as_pdb_string(crystal_symmetry=model.crystal_symmetry()))
    f = numpy.array(truth.data())
    indices = numpy.array(truth.indices())
    amplitude = abs(f)
    sigma = case['noise'] * amplitude
    observed = abs(amplitude + random.normal(0.0, 1.0, len(f)) * sigma)
    seen = random.uniform(size=len(f)) > UNOBSERVED
    free = (random.uniform(size=len(f)) < FREE).astype(float)
    # 0 marks the free set.
    write_data(folder / 'data.mtz', model.crystal_symmetry(), indices, observed, sigma, seen, 1.0 - free)
    run = subprocess.run([quorix, 'maps', str(folder / 'model.pdb'), str(folder / 'data.mtz'), '-o',
                          str(folder / 'out.mtz'), '--json', '--free-value', '0'], capture_output=True, text=True, check=True)
    report = json.loads(run.stdout)
    scale = report['scale']
    out = gemmi.read_mtz_file(str(folder / 'out.mtz'))
    place = {tuple(i): n for n, i in enumerate(indices)}
    rows = [place.get(tuple(i)) for i in out.make_miller_array()]
    have = numpy.array([r is not None for r in rows])
    at = numpy.array([r for r in rows if r is not None])
    true = f[at]
    epsilon = numpy.array(truth.epsilons().data())[at]
    centric = numpy.array(truth.centric_flags().data())[at]
    # What a reflection stands for in the cell: all of its mates.
    weight = numpy.sqrt(1.0 / epsilon * numpy.where(centric, 0.5, 1.0))
    two = coefficients(out, 'FWT', 'PHWT')[have]
    one = coefficients(out, 'DELFWT', 'PHDELWT')[have]
    calculated = coefficients(out, 'FC_ALL', 'PHIC_ALL')[have]
    fom = column(out, 'FOM')[have]
    r = report['r']
    print(f'{Path(path).name} {name}: R work {r["work"]["r"]:.4f}, free {r["free"]["r"]:.4f}')
    b = numpy.array(scale['b_cart'][:3])
    print(f'k_sol {scale["solvent"]["k_sol"]:.3f} (put in {case["k_sol"]}), B_sol {scale["solvent"]["b_sol"]:.1f} '
          f'({case["b_sol"]}), B_cart without its mean {numpy.round(b - b.mean(), 2)} ({case["b_cart"]})')
    print(f'2mFo-DFc with the true map: {correlation(two * weight, true * weight):.4f}')
    print(f'mFo-DFc with the true difference: {correlation(one * weight, (true - calculated) * weight):.4f}')
    cosine = numpy.cos(numpy.angle(calculated * true.conj()))
    use = numpy.isfinite(fom) & seen[at]
    print(f'<FOM> {fom[use].mean():.4f}, <cos phase error> {cosine[use].mean():.4f}')
    order = numpy.argsort(fom[use])
    worst = max(abs(fom[use][part].mean() - cosine[use][part].mean()) for part in numpy.array_split(order, 8))
    print(f'largest difference in an eighth of the figures of merit: {worst:.4f}')


if __name__ == '__main__':
    main()
