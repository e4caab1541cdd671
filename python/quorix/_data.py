"""Reflections."""
from typing import NamedTuple

import numpy as np

from . import _engine, _files
from ._map import Map


class Pair(NamedTuple):
    """Columns that a map can be made of."""
    amplitude: str
    phase: str
    kind: str  # of the map: '2mFo-DFc', 'mFo-DFc' ..., else the amplitude's name
    default: bool = False  # what map() takes, or map(difference=True)


def read(source, *, cell=None, spacegroup=None, types=None):
    """The reflections of a file: MTZ, also gzipped, or structure-factor mmCIF.

    `source` may also be a gemmi.Mtz, an object with a method to_gemmi() that gives one (as a
    reciprocalspaceship.DataSet has), or a DataSet, which is returned as it is.

    A pandas.DataFrame has H, K, L as its index or as columns, and cell, spacegroup and types of
    columns ({'FWT': 'F', 'PHWT': 'P'}) as arguments or in its attrs, where to_pandas() leaves them;
    types that nobody tells follow from the usual names.

    >>> qx.read(example("1ubq.mtz"))["FWT"].dtype
    dtype('float32')
    """
    if isinstance(source, DataSet) and cell is None and spacegroup is None and types is None:
        return source
    with _files.reflections_file(source, cell, spacegroup, types) as (path, name):
        return DataSet(_engine.read(path, name))


class DataSet:
    """Reflections as a file holds them, read by `quorix.read`. They do not change."""

    def __init__(self, reflections):
        self._reflections = reflections
        self._hkl = None
        self._pairs = None

    @property
    def path(self):
        """Name of the file; in brackets what it was made of."""
        return self._reflections.path

    @property
    def title(self):
        """Of the file."""
        return self._reflections.title

    @property
    def cell(self):
        """a, b, c (Angstrom), alpha, beta, gamma (degrees): float64 [6]."""
        return np.array(self._reflections.cell)

    @property
    def spacegroup(self):
        """Name of the space group; the setting, where a name tells it, as in 'R 3:H'."""
        return self._reflections.spacegroup

    @property
    def operators(self):
        """The group's operators as the file has them, such as 'x+1/2, -y+1/2, -z'."""
        return self._reflections.operators

    @property
    def dmin(self):
        """High-resolution limit of the rows, Angstrom."""
        return self._reflections.dmin

    @property
    def dmax(self):
        """Low-resolution limit of the rows, Angstrom."""
        return self._reflections.dmax

    @property
    def history(self):
        """Lines of the file's history."""
        return self._reflections.history

    @property
    def hkl(self):
        """Miller indices: int32 [n, 3], read-only."""
        if self._hkl is None:
            self._hkl = self._reflections.indices()
            self._hkl.flags.writeable = False
        return self._hkl

    @property
    def columns(self):
        """The columns' types by their labels: {'FWT': 'F', 'PHWT': 'P', ...}, indices first.

        A label that the file has more than once stands as crystal/dataset/label.
        """
        return {label: kind for label, kind, _ in self._reflections.columns}

    def __len__(self):
        return self._reflections.rows

    def __contains__(self, label):
        return len(self._reflections.find(label)) == 1

    def __getitem__(self, label):
        """A column: float32 [n], NaN where missing; a read-only view that keeps the data alive."""
        places = self._reflections.find(label)
        if len(places) == 1:
            return self._reflections.column(places[0])
        if places:
            raise KeyError(f'{label} means {len(places)} columns: write crystal/dataset/{label}')
        raise KeyError(f'{label}: the columns are {", ".join(self.columns)}')

    @property
    def pairs(self):
        """What maps can be made of: a list of Pair, those that map() takes by itself marked."""
        if self._pairs is None:
            usual = [self._reflections.usual_pair(difference) for difference in (False, True)]
            kinds = {pair[:2]: pair[2] for pair in usual if pair}
            found = [pair[:2] for pair in self._reflections.candidates]
            found += [pair for pair in kinds if pair not in found]
            names = {pair[:2]: pair[2] for pair in self._reflections.candidates}
            self._pairs = [Pair(*pair, kinds.get(pair) or names[pair], pair in kinds) for pair in found]
        return list(self._pairs)

    def map(self, amplitude=None, phase=None, *, weight=None, difference=False, dmin=None, dmax=None,
            fraction=0.33, spacing=None, grid=None, scaled=False, spacegroup=None, cell=None):
        """The density of the whole cell: a Map.

        Without labels the pair that `pairs` marks, with `difference` that of a difference map; one
        of amplitude and phase is enough where names or order of the columns tell the other.

        weight      column of a figure of merit that multiplies a measured amplitude
        dmin, dmax  limits of resolution, Angstrom
        fraction    grid spacing as a fraction of the resolution
        spacing     grid spacing, Angstrom, instead; or
        grid        points along x, y, z, made larger where the group or the transform needs it
        scaled      in units of the whole cell's rms, as the program writes it, instead of e/A^3
        spacegroup, cell  instead of the file's

        >>> m = qx.read(example("1ubq.mtz")).map("DELFWT", "PHDELWT", grid=(64, 54, 36))
        >>> m.kind, m.array.dtype, m.array.shape
        ('mFo-DFc (DELFWT/PHDELWT)', dtype('float64'), (64, 54, 36))
        """
        options = _engine.MapOptions()
        options.amplitude = amplitude or ''
        options.phase = phase or ''
        options.weight = weight or ''
        options.difference = bool(difference)
        limits = sorted(_positive('a limit', d) for d in (dmin, dmax) if d is not None)
        if len(limits) == 2:
            options.dmin, options.dmax = limits
        elif dmin is not None:
            options.dmin = limits[0]
        elif dmax is not None:
            options.dmax = limits[0]
        if not 0.05 <= fraction <= 0.45:
            raise ValueError(f'fraction is a number from 0.05 to 0.45, not {fraction}')
        if spacing is not None and grid is not None:
            raise ValueError('a grid is told by spacing or by its points, not by both')
        options.fraction = fraction
        options.spacing = 0.0 if spacing is None else _positive('spacing', spacing)
        options.counts = [] if grid is None else _counts(grid)
        options.no_scale = not scaled
        options.spacegroup = '' if spacegroup is None else str(spacegroup)
        options.cell = [] if cell is None else _cell(cell)
        return Map(_engine.make_map(self._reflections, options))

    def to_gemmi(self):
        """A gemmi.Mtz with everything that the file holds."""
        import gemmi
        return gemmi.read_mtz_file(self._reflections.readable)

    def to_pandas(self):
        """A pandas.DataFrame of float32 columns, indexed by H, K, L.

        Its attrs hold cell, spacegroup and the columns' types.
        """
        import pandas
        labels = list(self.columns)
        index = pandas.MultiIndex.from_arrays(self.hkl.T, names=('H', 'K', 'L'))
        frame = pandas.DataFrame({label: self[label] for label in labels[3:]}, index=index)
        frame.attrs.update(cell=tuple(self.cell), spacegroup=self.spacegroup, types=self.columns)
        return frame

    def __repr__(self):
        name = self.path.rsplit('/', 1)[-1]
        return f'<quorix.DataSet {name}: {len(self)} reflections to {self.dmin:.2f} A, {self.spacegroup}>'


def _positive(what, value):
    value = float(value)
    if not 0 < value < float('inf'):
        raise ValueError(f'{what} is a length above 0 Angstrom, not {value}')
    return value


def _counts(grid):
    counts = [int(n) for n in grid]
    if len(counts) != 3 or not all(0 < n <= 100000 for n in counts):
        raise ValueError(f'a grid has three counts from 1 to 100000, not {grid}')
    return counts


def _cell(cell):
    numbers = getattr(cell, 'parameters', cell)  # a gemmi.UnitCell
    numbers = [float(x) for x in numbers]
    if len(numbers) != 6:
        raise ValueError('a cell is a, b, c, alpha, beta, gamma')
    return numbers
