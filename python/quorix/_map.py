"""Densities."""
import contextlib
import os

import numpy as np

from . import _engine, _files

_UNITS = {_engine.Unit.absolute: 'e/A^3', _engine.Unit.rms: 'rms', _engine.Unit.unknown: ''}
_UNIT_NAMES = {name: unit for unit, name in _UNITS.items()}


def read_map(path):
    """The Map in a CCP4 file, also gzipped; the unit of its density is not known ('')."""
    return Map(_engine.read_map(_files.path_of(path)))


def positions(model, select=None):
    """Where the atoms of a model are, a path or a gemmi.Structure: float64 [n, 3], Angstrom.

    `select` chooses atoms in gemmi's selection syntax.
    """
    with _files.model_file(model) as path:
        return _engine.positions(path, select or '')


class Map:
    """Density on grid points of a cell: the whole cell, or a box of it."""

    def __init__(self, density):
        self._density = density
        self._array = density.array

    @property
    def array(self):
        """The density: float64 [nx, ny, nz], x fastest; its [0, 0, 0] is the point `start`.

        It is the memory that the engine made the map in, nothing was copied. Changes are seen by
        `at`, `around` and `write`. It stays when the Map is gone.
        """
        return self._array

    def __array__(self, dtype=None, copy=None):
        array = self._array if dtype is None else self._array.astype(dtype, copy=False)
        return array.copy() if copy and array is self._array else array

    @property
    def unit(self):
        """'e/A^3', 'rms' (of the whole cell), or '' where a file does not tell."""
        return _UNITS[self._density.unit]

    @property
    def rms(self):
        """Root mean square about zero of the whole cell, as the map was made; in its unit."""
        return self._density.rms

    @property
    def mean(self):
        """Mean of the whole cell as the map was made, in the map's unit."""
        return self._density.mean

    @property
    def scale(self):
        """e/A^3 for 1 in the array; NaN if not known."""
        return self._density.scale

    @property
    def kind(self):
        """What the map is, as its file says: '2mFo-DFc (FWT/PHWT)'."""
        return self._density.kind

    @property
    def cell(self):
        """a, b, c (Angstrom), alpha, beta, gamma (degrees): float64 [6]."""
        return np.array(self._density.cell)

    @property
    def spacegroup(self):
        """Name of the space group; empty if the file has its operators only."""
        return self._density.group

    @property
    def grid(self):
        """Points of the whole cell along x, y, z."""
        return tuple(self._density.intervals)

    @property
    def start(self):
        """Grid indices of the first point; (0, 0, 0) for the whole cell."""
        return tuple(self._density.starts)

    @property
    def is_whole_cell(self):
        return self._density.whole_cell

    def at(self, where, select=None, *, order=3):
        """Density at points, float64 [n]; a float for a single point.

        where   points [n, 3] (or [..., 3]), orthogonal coordinates in Angstrom; or a model, a path
                or a gemmi.Structure, for the density at its atoms, in their order
        select  atoms of the model, in gemmi's selection syntax: '(LIG)', 'A/40-44'
        order   3: cubic between the grid points, 1: linear, 0: at the nearest one

        Points that a box does not cover are NaN; a whole cell goes on by its periods.

        >>> m = qx.read(example("1ubq.mtz")).map()
        >>> bool((m.at(example("1ubq.pdb"), select="*/*/CA") > m.rms).mean() > 0.9)
        True
        """
        if order not in (0, 1, 3):
            raise ValueError(f'order is 0, 1 or 3, not {order}')
        if _is_points(where):
            points = np.asarray(where, dtype=float)
        else:
            points = positions(where, select)
        if points.shape[-1:] != (3,):
            raise ValueError(f'points are an array [..., 3], not {list(points.shape)}')
        values = _engine.at_points(self._density, points.reshape(-1, 3), order)
        return float(values[0]) if points.ndim == 1 else values.reshape(points.shape[:-1])

    def around(self, model, select=None, cushion=4.0):
        """The box about a model, a path or a gemmi.Structure: a Map with its own array.

        select   atoms of the model, in gemmi's selection syntax: '(LIG)', 'A/40-44'
        cushion  margin on every side, Angstrom

        rms and mean stay those of the whole cell.
        """
        if not 0 <= cushion < float('inf'):
            raise ValueError(f'cushion is a length in Angstrom, not {cushion}')
        with _files.model_file(model) as path:
            return Map(_engine.around(self._density, path, select or '', cushion))

    def peaks(self, level, near=None, select=None):
        """Peaks above `level` rms, one of each orbit, the highest first; holes for a level below 0.

        A peak is higher than its 26 neighbours on the grid; a parabola along each axis gives place
        and height. The array has the fields

        xyz       Angstrom: by the model, if `near` names one (a path or a gemmi.Structure, of which
                  `select` chooses atoms), else where the map has it first
        height    in the map's unit
        rms       the same in rms of the whole cell
        nearest   the model's atom, with its chain, residue and serial number; '' without a model
        distance  from that atom, Angstrom; NaN without a model

        >>> d = qx.read(example("1ubq.mtz")).map(difference=True)
        >>> d.peaks(4, near=example("1ubq.pdb")).dtype.names
        ('xyz', 'height', 'rms', 'nearest', 'distance')
        """
        if not 0 < abs(level) < float('inf'):
            raise ValueError(f'level is a number of rms other than 0, not {level}')
        with contextlib.nullcontext('') if near is None else _files.model_file(near) as path:
            xyz, height, names, distance = _engine.find_peaks(self._density, level * self.rms, path, select or '')
        width = max([1, *map(len, names)])
        found = np.empty(len(height), dtype=[('xyz', 'f8', 3), ('height', 'f8'), ('rms', 'f8'),
                                             ('nearest', f'U{width}'), ('distance', 'f8')])
        found['xyz'], found['height'], found['rms'] = xyz, height, height / self.rms
        found['nearest'], found['distance'] = names, distance
        return found

    def write(self, path, *, force=False):
        """Writes a CCP4 map, gzipped if the name ends in .gz.

        A file that holds something else than a map is written over with `force` only.
        """
        _engine.write(self._density, os.fsdecode(path), force)

    def to_gemmi(self):
        """A gemmi.FloatGrid of the whole cell."""
        import gemmi
        if not self.is_whole_cell:
            raise ValueError('a gemmi.FloatGrid is a whole cell: write() the box and read it with gemmi')
        grid = gemmi.FloatGrid(np.asarray(self._array, dtype=np.float32), gemmi.UnitCell(*self.cell))
        if self.spacegroup:
            grid.spacegroup = gemmi.SpaceGroup(self.spacegroup)
        return grid

    @classmethod
    def from_gemmi(cls, grid, unit='e/A^3', kind='from gemmi'):
        """A Map of a gemmi.FloatGrid or a gemmi.Ccp4Map, of which it is a copy."""
        grid = getattr(grid, 'grid', grid)
        group = grid.spacegroup.xhm() if grid.spacegroup else 'P 1'
        return cls.from_array(np.array(grid, copy=False), grid.unit_cell.parameters, group, unit, kind)

    @classmethod
    def from_array(cls, array, cell, spacegroup='P 1', unit='e/A^3', kind='from an array'):
        """A Map of values [nx, ny, nz] of the whole cell, which are copied."""
        if unit not in _UNIT_NAMES:
            raise ValueError(f"unit is 'e/A^3', 'rms' or '', not {unit!r}")
        return cls(_engine.Density(array, [float(x) for x in cell], spacegroup, _UNIT_NAMES[unit], kind))

    def __repr__(self):
        part = '' if self.is_whole_cell else f' of {" x ".join(map(str, self.grid))}'
        return (f'<quorix.Map {self.kind}: {" x ".join(map(str, self.array.shape))} points{part}, '
                f'rms {self.rms:.3f} {self.unit if self.unit != "rms" else "(scaled)"}>')


def _is_points(where):
    """Whether it is numbers, not a name or an object with atoms."""
    return not _files.is_path(where) and not hasattr(where, 'make_mmcif_document')
