"""A model against data: structure factors, R factors, map coefficients."""
import contextlib
import json
import os
import tempfile

import numpy as np

from . import _engine, _files
from ._data import DataSet, read
from ._error import Error


class StructureFactors:
    """Structure factors of a model: `values` is complex64 [n], and the object is taken for it.

    hkl       int32 [n, 3]
    values    of the atoms alone, electrons; NaN for rows that no structure factor is calculated of
    total     with bulk solvent, on the scale of the observations; None without observations
    r_work, r_free, shells  agreement with the observations, overall and by resolution: None and []
              without them. r_free is None without a free set
    report    everything that the program tells with --json
    """

    def __init__(self, hkl, values, total, report):
        self.hkl = hkl
        self.values = values
        self.total = total
        self.report = report
        self.r_work, self.r_free, self.shells = _agreement(report)

    def __array__(self, dtype=None, copy=None):
        array = self.values if dtype is None else self.values.astype(dtype, copy=False)
        return array.copy() if copy and array is self.values else array

    def __len__(self):
        return len(self.values)

    def __repr__(self):
        agreement = '' if self.r_work is None else f', R work {self.r_work:.4f}'
        agreement += '' if self.r_free is None else f', R free {self.r_free:.4f}'
        return f'<quorix.StructureFactors: {len(self)} of {self.report["atoms"]} atoms{agreement}>'


def fcalc(model, data=None, *, dmin=None, dmax=None, labels=None, free_value=None, solvent=None, neutron=False):
    """Structure factors of a model, a path or a gemmi.Structure.

    With `data` (what `read` takes) they are in the order of its rows, and the model is put on the
    scale of its amplitudes; without, they are those of the unique set to `dmin` (Angstrom).

    labels      columns (F, SIGF, FREE) of the data; else the usual names
    free_value  flag of the free reflections; else told by how often each value occurs
    solvent     form of the bulk solvent's scale: 'bins', 'exp', 'smooth' or 'none'
    neutron     neutron scattering lengths

    >>> fc = qx.fcalc(example("1ubq.pdb"), data=example("1ubq.mtz"))
    >>> fc.values.dtype, len(fc), fc.r_work < 0.2
    (dtype('complex64'), 6224, True)
    """
    data = None if data is None else read(data)
    words = _data_words(labels, free_value, solvent, dmin, dmax) + (['--neutron'] if neutron else [])
    with contextlib.ExitStack() as stack:
        words += [stack.enter_context(_files.model_file(model))]
        if data is not None:
            words += ['--hkl', data._reflections.readable]
        elif dmin is None:
            raise ValueError('without data, dmin tells to which resolution')
        output = os.path.join(stack.enter_context(tempfile.TemporaryDirectory()), 'fc.mtz')
        report = _told(data, ['fcalc', *words, '-o', output, '--json'])
        found = read(output)
    hkl = found.hkl if data is None else data.hkl
    rows = _rows_of(hkl, found.hkl)
    total = _polar(found, 'FC_ALL', 'PHIC_ALL', rows) if 'FC_ALL' in found else None
    return StructureFactors(hkl, _polar(found, 'FC', 'PHIC', rows), total, report)


class ModelMaps:
    """What `maps` found.

    data    a DataSet with the coefficients FWT, PHWT, DELFWT, PHDELWT, the figures of merit FOM, the
            scaled model FC_ALL, PHIC_ALL, and what was read
    report  everything that the program tells with --json: R factors, scale, solvent, likelihood
    """

    def __init__(self, data, report):
        self.data = data
        self.report = report

    def map(self, difference=False, **options):
        """The 2mFo-DFc map, or the mFo-DFc map; options as of DataSet.map."""
        return self.data.map(difference=difference, **options)

    @property
    def fom(self):
        """Figures of merit: float32 [n], NaN where missing."""
        return self.data['FOM']

    def __repr__(self):
        return f'<quorix.ModelMaps: {len(self.data)} reflections to {self.data.dmin:.2f} A>'


def maps(model, data, *, dmin=None, dmax=None, labels=None, free_value=None, solvent=None, omit=None, fill=True):
    """Map coefficients (2mFo-DFc, mFo-DFc) of measured amplitudes, or intensities, and a model.

    omit  atoms that structure factors and maps are to lack, in gemmi's selection syntax
    fill  what was not observed within the data's limits is DFc in 2mFo-DFc

    The other words are those of `fcalc`.

    >>> found = qx.maps(example("1ubq.pdb"), example("1ubq.mtz"))
    >>> found.map(difference=True).kind
    'mFo-DFc (DELFWT/PHDELWT)'
    """
    data = read(data)
    words = _data_words(labels, free_value, solvent, dmin, dmax) + ['--fill', 'yes' if fill else 'no']
    words += ['--omit', omit] if omit else []
    with contextlib.ExitStack() as stack:
        path = stack.enter_context(_files.model_file(model))
        output = os.path.join(stack.enter_context(tempfile.TemporaryDirectory()), 'maps.mtz')
        report = _told(data, ['maps', path, data._reflections.readable, *words, '-o', output, '--json'])
        found = DataSet(_engine.read(output, f'<maps of {data.path}>'))
    return ModelMaps(found, report)


def stats(data, *, labels=None, dmin=None, dmax=None, shells=20):
    """What a set of observations is worth, as `quorix stats --json` tells it: a dict.

    Counts, completeness and signal by shells, Wilson plot, moments, L test and anisotropy.

    >>> round(qx.stats(example("1ubq.mtz"))["overall"]["completeness"], 3)
    0.986
    """
    words = _data_words(labels, None, None, dmin, dmax)
    data = read(data)
    return _told(data, ['stats', data._reflections.readable, *words, '--shells', str(shells), '--json'])


def _told(data, words):
    """What the program tells as JSON, the data under the name that they were read by."""
    def named(text):
        return text if data is None else text.replace(data._reflections.readable, data.path)
    try:
        report = _engine.command(words)
    except Error as error:
        error.args = (named(str(error)),)
        error.text = named(error.text)
        raise
    return json.loads(named(report))


def _data_words(labels, free_value, solvent, dmin, dmax):
    words = []
    for name, value in (('--free-value', free_value), ('--solvent', solvent), ('--dmin', dmin), ('--dmax', dmax)):
        if value is not None:
            words += [name, str(value)]
    if labels is not None:
        words += ['--labels', labels if isinstance(labels, str) else ','.join(labels)]
    return words


def _agreement(report):
    scaling = report.get('scaling') or {}
    work, free = (scaling.get(part) or {} for part in ('work', 'free'))
    return work.get('r'), free.get('r'), scaling.get('bins', [])


def _codes(hkl):
    wide = hkl.astype(np.int64) + (1 << 20)
    return (wide[:, 0] << 42) | (wide[:, 1] << 21) | wide[:, 2]


def _rows_of(wanted, there):
    """The row of `there` for each of `wanted`; -1 where it has none."""
    codes = _codes(there)
    order = np.argsort(codes, kind='stable')
    found = np.searchsorted(codes, _codes(wanted), sorter=order)
    rows = order[np.minimum(found, len(order) - 1)]
    return np.where(codes[rows] == _codes(wanted), rows, -1)


def _polar(data, amplitude, phase, rows):
    angle = np.radians(data[phase].astype(np.float64))
    values = (data[amplitude] * np.exp(1j * angle)).astype(np.complex64)
    return np.where(rows < 0, np.complex64(complex('nan+nanj')), values[rows]).astype(np.complex64)
