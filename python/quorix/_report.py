"""Maps as a page to look at."""
import contextlib
import os
import re
import shutil
import tempfile

from . import _engine, _files
from ._error import Error


def report(path, maps=(), *, data=None, model=None, whole=False, force=False):
    """Writes a page to look at in a browser, as `quorix report` makes them.

    maps   one Map or two (2mFo-DFc and mFo-DFc), or paths of maps
    data   instead of maps: a path of reflections, whose maps are shown and compared with the model
    model  a path or a gemmi.Structure
    whole  hold all of the maps, not only what lies near the model
    force  write over a file that is no page

    >>> qx.report("page.html", data=example("1ubq.mtz"), model=example("1ubq.pdb"))
    >>> m = qx.read(example("1ubq.mtz")).map()
    >>> qx.report("page.html", maps=[m], model=example("1ubq.pdb"))
    """
    path = os.fsdecode(path)
    maps = [maps] if _files.is_path(maps) or hasattr(maps, 'write') else list(maps)
    if bool(maps) == (data is not None):
        raise ValueError('a page shows maps=, or the maps of data=')
    _check_place(path, force)
    with tempfile.TemporaryDirectory() as folder, contextlib.ExitStack() as stack:
        words = [_files.path_of(data)] if data is not None else [_map_file(m, folder) for m in maps]
        if model is not None:
            words += ['--model', _model_file(model, folder, stack)]
        made = os.path.join(folder, 'page')
        _engine.command(['report', *words, '-o', made, '--quiet', *(['--whole'] if whole else [])])
        page, = (name for name in os.listdir(made) if name.endswith('.html'))
        shutil.copyfile(os.path.join(made, page), path)


def _check_place(path, force):
    if force or not os.path.exists(path) or os.path.getsize(path) == 0:
        return
    with open(path, 'rb') as file:
        if not file.read(64).lstrip().lower().startswith((b'<!doctype html', b'<html')):
            raise Error(f'{path} is no page: force=True writes over it')


def _map_file(map_, folder):
    if _files.is_path(map_):
        return _files.path_of(map_)
    stem = re.sub(r'[^\w.+-]+', '_', map_.kind.split(' (')[0].split(',')[0]) or 'map'
    path = os.path.join(folder, stem + '.ccp4')
    while os.path.exists(path):
        path = path[:-5] + '_.ccp4'
    map_.write(path)
    return path


def _model_file(model, folder, stack):
    """Pages name the model's file: an object has none."""
    if _files.is_path(model):
        return _files.path_of(model)
    path = os.path.join(folder, 'model.cif')
    with _files.model_file(model) as made:
        shutil.copyfile(made, path)
    return path
