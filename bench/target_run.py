#!/usr/bin/env python3
"""The likelihood target with its gradients by coordinates and B, structure factors included, beside cctbx's
mmtbx on the same model and data: medians of runs in turn. Needs python3-cctbx (Debian) and a build with
benchmarks.
Usage: target_run.py MODEL.pdb DATA.mtz [--bench PATH] [--runs N]; the data hold FP, SIGFP and FREE (0: the free set)."""
import argparse
import json
import os
import statistics
import subprocess
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent


def our_seconds(program, model, data):
    environment = {'ZENVI_DATA': str(ROOT / 'data'), **os.environ, 'QUORIX_BENCH_MODEL': model,
                   'QUORIX_BENCH_DATA': data}
    told = subprocess.run([program, '--benchmark_filter=target', '--benchmark_format=json'], check=True,
                          capture_output=True, env=environment)
    return json.loads(told.stdout)['benchmarks'][0]['cpu_time'] / 1000.0


def peer(model, data):
    import iotbx.pdb
    import mmtbx.f_model
    from cctbx import xray
    from iotbx import mtz
    arrays = {a.info().labels[0]: a for a in mtz.object(data).as_miller_arrays()}
    observed = arrays['FP'].select(arrays['FP'].data() > 0)
    flags, _ = arrays['FREE'].common_sets(observed)
    observed, flags = observed.common_sets(flags)
    structure = iotbx.pdb.input(model).xray_structure_simple()
    structure.convert_to_isotropic()
    manager = mmtbx.f_model.manager(f_obs=observed, r_free_flags=flags.customized_copy(data=flags.data() == 0),
                                    xray_structure=structure, target_name='ml')
    manager.update_all_scales(remove_outliers=False)
    xray.set_scatterer_grad_flags(scatterers=structure.scatterers(), site=True, u_iso=True)
    functor = manager.target_functor()

    def run():
        start = time.process_time()
        manager.update_xray_structure(xray_structure=structure, update_f_calc=True)
        functor(compute_gradients=True).gradients_wrt_atomic_parameters()
        return time.process_time() - start
    return run


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument('model')
    parser.add_argument('data')
    parser.add_argument('--bench', default=ROOT / 'build-bench/bench/model_fit_bench')
    parser.add_argument('--runs', type=int, default=5)
    args = parser.parse_args()
    run_peer = peer(args.model, args.data)
    pairs = [(our_seconds(args.bench, args.model, args.data), run_peer()) for _ in range(args.runs)]
    ours, theirs = (statistics.median(column) for column in zip(*pairs))
    ratio = statistics.median(a / b for a, b in pairs)
    print(f'{ours:.3f} / {theirs:.3f} cpu s, median ratio {ratio:.3f} of {args.runs} pairs')


if __name__ == '__main__':
    main()
