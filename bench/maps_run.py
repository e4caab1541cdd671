#!/usr/bin/env python3
"""quorix maps beside cctbx's mmtbx on the same model and data: R factors, correlation of the map
coefficients, seconds. Needs python3-cctbx (Debian) and python3-gemmi.
Usage: maps_run.py MODEL.pdb DATA.mtz [--quorix PATH] [--beside-fcalc RUNS]; the data hold FP, SIGFP and, if there is one, FREE (0: the
free set)."""
import argparse
import json
import resource
import statistics
import subprocess
import tempfile
import time
from pathlib import Path

import numpy as np


def run_quorix(program, model, data):
    with tempfile.TemporaryDirectory() as folder:
        out = Path(folder) / 'out.mtz'
        start = time.perf_counter()
        told = subprocess.run([program, 'maps', model, data, '-o', out, '--json'], check=True, capture_output=True)
        seconds = time.perf_counter() - start
        return json.loads(told.stdout), columns_of(out), seconds


def columns_of(path):
    import gemmi
    mtz = gemmi.read_mtz_file(str(path))
    table, labels = np.array(mtz, copy=False), [c.label for c in mtz.columns]
    column = {label: table[:, i] for i, label in enumerate(labels)}
    keys = [tuple(row) for row in table[:, :3].astype(int)]

    def vectors(amplitude, phase):
        return dict(zip(keys, column[amplitude] * np.exp(1j * np.radians(column[phase]))))
    return {'2mFo-DFc': vectors('FWT', 'PHWT'), 'mFo-DFc': vectors('DELFWT', 'PHDELWT')}


def run_cctbx(model, data):
    import iotbx.pdb
    import mmtbx.f_model
    from cctbx.array_family import flex
    from iotbx import mtz
    arrays = {a.info().labels[0]: a for a in mtz.object(data).as_miller_arrays()}
    observed = arrays['FP'].select(arrays['FP'].data() > 0)
    start = time.perf_counter()
    if 'FREE' in arrays:
        flags, _ = arrays['FREE'].common_sets(observed)
        observed, flags = observed.common_sets(flags)
        flags = flags.customized_copy(data=flags.data() == 0)
    else:
        flags = observed.customized_copy(data=flex.bool(observed.size(), False), sigmas=None)
    structure = iotbx.pdb.input(model).xray_structure_simple()
    manager = mmtbx.f_model.manager(f_obs=observed, r_free_flags=flags, xray_structure=structure, target_name='ml')
    manager.update_all_scales(remove_outliers=False)
    coefficients = manager.electron_density_map().map_coefficients
    maps = {}
    for kind in ('2mFo-DFc', 'mFo-DFc'):
        c = coefficients(map_type=kind, isotropize=False, fill_missing=False)
        maps[kind] = dict(zip(c.indices(), c.data()))
    seconds = time.perf_counter() - start
    weights = dict(zip(observed.indices(), np.where(np.array(observed.centric_flags().data()), 0.5, 1.0) /
                       np.array(observed.epsilons().data())))
    return manager.r_work(), manager.r_free(), maps, weights, seconds


def correlation(a, b, weights):
    keys = [k for k in weights if k in a and k in b and np.isfinite(a[k]) and np.isfinite(b[k])]
    x, y, w = (np.array([d[k] for k in keys]) for d in (a, b, weights))
    return (w * (x * y.conj()).real).sum() / np.sqrt((w * abs(x) ** 2).sum() * (w * abs(y) ** 2).sum())


def cpu_seconds(words):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    subprocess.run(words, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def beside_fcalc(program, model, data, runs):
    """maps with both maps over fcalc with one: of the scaled model, and of the atoms alone."""
    with tempfile.TemporaryDirectory() as folder:
        fcalc = [program, 'fcalc', model, '--hkl', data, '-o', f'{folder}/f.mtz', '--map-2fofc', f'{folder}/f.ccp4']
        maps = [program, 'maps', model, data, '-o', f'{folder}/m.mtz', '--maps', f'{folder}/m']
        for name, words in (('fcalc', fcalc), ('fcalc --solvent none', [*fcalc, '--solvent', 'none'])):
            pairs = [(cpu_seconds(maps), cpu_seconds(words)) for _ in range(runs)]
            ratio = statistics.median(a / b for a, b in pairs)
            print(f'maps over {name:20s} {ratio:.2f}   (least cpu s {min(p[0] for p in pairs):.2f} / '
                  f'{min(p[1] for p in pairs):.2f}, {runs} pairs)')


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument('model')
    parser.add_argument('data')
    parser.add_argument('--quorix', default=Path(__file__).resolve().parent.parent / 'build/bin/quorix')
    parser.add_argument('--beside-fcalc', type=int, metavar='RUNS', help='processor time beside quorix fcalc instead')
    args = parser.parse_args()
    if args.beside_fcalc:
        return beside_fcalc(args.quorix, args.model, args.data, args.beside_fcalc)
    told, ours, seconds = run_quorix(args.quorix, args.model, args.data)
    r_work, r_free, theirs, weights, their_seconds = run_cctbx(args.model, args.data)
    free = told['r']['free']
    print(f"R work / free     {told['r']['work']['r']:.4f} / {free['r'] if free else float('nan'):.4f}   "
          f'(cctbx {r_work:.4f} / {r_free:.4f})')
    for kind, map_ in ours.items():
        print(f'{kind:9s} corr.   {correlation(map_, theirs[kind], weights):.4f}')
    print(f"mean FOM          {told['fom']:.4f}")
    print(f'seconds           {seconds:.2f}   (cctbx {their_seconds:.1f}, ratio {seconds / their_seconds:.4f})')


if __name__ == '__main__':
    main()
