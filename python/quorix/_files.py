"""Objects of other packages as files that the engine reads."""
import contextlib
import os

from ._error import Error, MissingFile


def path_of(source):
    """The path that `source` is, as text; fails if nothing is there."""
    path = os.fsdecode(source)
    if not os.path.exists(path):
        raise MissingFile(f'there is no file {path}')
    return path


@contextlib.contextmanager
def in_memory(write):
    """A path, while the context lasts, to a file without a name that `write(path)` fills."""
    descriptor = os.memfd_create('quorix')
    try:
        path = f'/proc/self/fd/{descriptor}'
        write(path)
        yield path
    finally:
        os.close(descriptor)


def is_path(source):
    return isinstance(source, (str, bytes, os.PathLike))


@contextlib.contextmanager
def model_file(model):
    """A path to the coordinates of a path or of a gemmi.Structure."""
    if is_path(model):
        yield path_of(model)
    elif hasattr(model, 'make_mmcif_document'):
        with in_memory(model.make_mmcif_document().write_file) as path:
            yield path
    else:
        raise TypeError(f'a model is a path or a gemmi.Structure, not {type(model).__name__}')


def type_of(label, values):
    """The type of a column whose frame does not tell it, by the usual names."""
    name = label.upper()
    if values.dtype.kind in 'iub' or 'FREE' in name:
        return 'I'
    for start, kind in (('SIG', 'Q'), ('PH', 'P'), ('FOM', 'W'), ('HL', 'A'), ('I', 'J'), ('F', 'F'), ('DELF', 'F')):
        if name.startswith(start):
            return kind
    return 'R'


def mtz_of_frame(frame, cell, spacegroup, types):
    """A gemmi.Mtz of a pandas.DataFrame indexed by H, K, L, or with columns of these names."""
    import gemmi
    import numpy as np
    cell = frame.attrs.get('cell') if cell is None else cell
    spacegroup = frame.attrs.get('spacegroup') if spacegroup is None else spacegroup
    if cell is None or spacegroup is None:
        raise ValueError('a DataFrame tells neither cell nor space group: read(frame, cell=..., spacegroup=...)')
    table = frame if {'H', 'K', 'L'} <= set(frame.columns) else frame.reset_index()
    missing = {'H', 'K', 'L'} - set(table.columns)
    if missing:
        raise ValueError(f'the DataFrame has no {", ".join(sorted(missing))}, in its index or as columns')
    known = {**frame.attrs.get('types', {}), **(types or {})}
    group = gemmi.find_spacegroup_by_name(str(getattr(spacegroup, 'xhm', lambda: spacegroup)()))
    if group is None:
        raise ValueError(f'unknown space group {spacegroup}')
    mtz = gemmi.Mtz(with_base=True)
    mtz.spacegroup = group
    mtz.set_cell_for_all(gemmi.UnitCell(*getattr(cell, 'parameters', cell)))
    mtz.add_dataset('frame').wavelength = 0
    labels = [label for label in table.columns if label not in ('H', 'K', 'L') and table[label].dtype.kind in 'fiub']
    for label in labels:
        mtz.add_column(str(label), known.get(label) or type_of(str(label), table[label]))
    mtz.set_cell_for_all(mtz.cell)
    values = [np.asarray(table[label], dtype=np.float32) for label in ('H', 'K', 'L', *labels)]
    mtz.set_data(np.column_stack(values))
    return mtz


@contextlib.contextmanager
def reflections_file(source, cell=None, spacegroup=None, types=None):
    """A path to reflections, and their name: of a path, a gemmi.Mtz, what has to_gemmi(), a DataFrame."""
    is_frame = not hasattr(source, 'to_gemmi') and hasattr(source, 'reset_index') and hasattr(source, 'attrs')
    if not is_frame and any(fact is not None for fact in (cell, spacegroup, types)):
        raise TypeError('cell, spacegroup and types are for a pandas.DataFrame: other sources tell them; map() takes others')
    if is_path(source):
        path = path_of(source)
        yield path, path
        return
    if hasattr(source, 'to_gemmi'):
        mtz = source.to_gemmi()
    elif is_frame:
        mtz = mtz_of_frame(source, cell, spacegroup, types)
    else:
        mtz = source
    if not hasattr(mtz, 'write_to_file') or not hasattr(mtz, 'columns'):
        raise TypeError('reflections are a path, a gemmi.Mtz, a quorix.DataSet, a pandas.DataFrame or an object that gives '
                        f'a gemmi.Mtz by to_gemmi(), not {type(source).__name__}')
    with in_memory(mtz.write_to_file) as path:
        if os.path.getsize(path) == 0:
            raise Error('gemmi could not write the reflections')
        yield path, f'<{type(source).__name__}>'
