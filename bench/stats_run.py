#!/usr/bin/env python3
"""quorix stats beside cctbx's xtriage on the same data: Wilson B, moments, L test, completeness, seconds; and the amplitudes
that both make of intensities. Needs python3-cctbx (Debian).
Usage: stats_run.py DATA.mtz AMPLITUDE,SIGMA [--intensity] [--quorix PATH]"""
import argparse
import json
import statistics
import subprocess
import tempfile
import time
from pathlib import Path

import numpy as np


def run_quorix(program, data, labels, repeats):
    seconds = []
    for _ in range(repeats):
        start = time.perf_counter()
        told = subprocess.run([program, 'stats', data, '--labels', labels, '--json'], check=True, capture_output=True)
        seconds.append(time.perf_counter() - start)
    return json.loads(told.stdout), statistics.median(seconds)


def observed(data, labels):
    from iotbx import mtz
    for array in mtz.object(data).as_miller_arrays():
        if array.info().labels == labels.split(','):
            return array
    raise SystemExit(f'{data} has no columns {labels}')


def run_cctbx(array):
    from mmtbx.scaling import absolute_scaling, twin_analyses
    start = time.perf_counter()
    intensities = array if array.is_xray_intensity_array() else array.f_as_f_sq()
    intensities = intensities.select(intensities.data() > 0).set_observation_type_xray_intensity()
    wilson = absolute_scaling.ml_iso_absolute_scaling(miller_array=intensities.f_sq_as_f(), n_residues=200)
    cut = intensities.resolution_filter(d_min=intensities.d_min(), d_max=10)
    l_test = twin_analyses.l_test(miller_array=cut)
    moments = twin_analyses.wilson_normalised_intensities(miller_array=cut, normalise=True)
    acentric = np.array(moments.acentric.data())
    return {'B (likelihood)': wilson.b_wilson, '<|L|>': l_test.mean_l, '<Z^2> acentric': float(np.mean(acentric ** 2) / np.mean(acentric) ** 2),
            'completeness': array.completeness()}, time.perf_counter() - start


def compare_amplitudes(program, data, labels, array):
    with tempfile.TemporaryDirectory() as folder:
        out = Path(folder) / 'f.mtz'
        subprocess.run([program, 'stats', data, '--labels', labels, '--amplitudes', str(out), '-q'], check=True)
        ours = observed(str(out), 'F,SIGF')
    peers = array.french_wilson(log=open('/dev/null', 'w'))
    a, b = ours.common_sets(peers)
    a, b = np.array(a.data()), np.array(b.data())
    print(f'amplitudes: {len(a)} common, mean of |difference| / mean {np.mean(abs(a - b)) / np.mean(b):.5f}')


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('data')
    parser.add_argument('labels')
    parser.add_argument('--intensity', action='store_true')
    parser.add_argument('--quorix', default='build/bin/quorix')
    arguments = parser.parse_args()
    ours, seconds = run_quorix(arguments.quorix, arguments.data, arguments.labels, 7)
    array = observed(arguments.data, arguments.labels)
    theirs, their_seconds = run_cctbx(array)
    print(f'quorix stats: B {ours["wilson"]["b"]:.2f}  <|L|> {ours["l_test"]["mean_l"]:.4f}  <Z^2> '
          f'{ours["moments"]["acentric"]["z2"]:.3f}  completeness {ours["overall"]["completeness"]:.4f}  {seconds:.3f} s')
    print('cctbx:        ' + '  '.join(f'{k} {v:.4f}' for k, v in theirs.items()) +
          f'  {their_seconds:.3f} s')
    if arguments.intensity:
        compare_amplitudes(arguments.quorix, arguments.data, arguments.labels, array)


if __name__ == '__main__':
    main()
