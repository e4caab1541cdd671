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


@contextlib.contextmanager
def reflections_file(source):
    """A path to reflections, and their name: of a path, a gemmi.Mtz, or what has to_gemmi()."""
    if is_path(source):
        path = path_of(source)
        yield path, path
        return
    mtz = source.to_gemmi() if hasattr(source, 'to_gemmi') else source
    if not hasattr(mtz, 'write_to_file') or not hasattr(mtz, 'columns'):
        raise TypeError('reflections are a path, a gemmi.Mtz, a quorix.DataSet or an object that gives a gemmi.Mtz '
                        f'by to_gemmi(), not {type(source).__name__}')
    with in_memory(mtz.write_to_file) as path:
        if os.path.getsize(path) == 0:
            raise Error('gemmi could not write the reflections')
        yield path, f'<{type(source).__name__}>'
