"""Electron density in Python: maps from reflections, as arrays.

>>> import quorix as qx
>>> data = qx.read(example("1ubq.mtz"))
>>> data
<quorix.DataSet 1ubq.mtz: 6224 reflections to 1.80 A, P 21 21 21>
>>> m = data.map()
>>> m.array.shape, m.unit
((90, 72, 48), 'e/A^3')

Lengths are in Angstrom, angles and phases in degrees, densities in e/A^3 unless a map says
otherwise. Nothing is printed: what the engine says goes to the logger "quorix", and what it cannot
do is a `quorix.Error`.
"""
import os as _os


def _find_data():
    """The engine's data: within the package, of the installation, or of the checkout."""
    here = _os.path.dirname(_os.path.realpath(_os.path.abspath(_engine.__file__)))
    for steps in (('data',), ('..', '..', '..', '..', 'share', 'quorix'), ('..', '..', '..', 'data')):
        folder = _os.path.normpath(_os.path.join(here, *steps))
        if _os.path.isfile(_os.path.join(folder, 'xray', 'spgbase.dat')):
            return folder
    return None


from . import _engine  # noqa: E402
from ._batch import Batch, batch  # noqa: E402
from ._data import DataSet, Pair, read  # noqa: E402
from ._error import Error  # noqa: E402
from ._map import Map, positions, read_map  # noqa: E402
from ._model import ModelMaps, StructureFactors, fcalc, maps, stats  # noqa: E402
from ._report import report  # noqa: E402
from ._sections import run, set_threads  # noqa: E402

__version__ = _engine.version
__all__ = ['Batch', 'DataSet', 'Error', 'Map', 'ModelMaps', 'Pair', 'StructureFactors', 'batch', 'fcalc', 'maps',
           'positions', 'read', 'read_map', 'report', 'run', 'set_threads', 'stats']

if 'ZENVI_DATA' not in _os.environ and (_folder := _find_data()):
    _os.environ['ZENVI_DATA'] = _folder
