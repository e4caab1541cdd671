"""The engine's own language."""
from . import _engine


def set_threads(count):
    """On how many threads an engine of the calling thread does heavy work; 0: all processors.

    What it makes does not depend on it.
    """
    if count < 0:
        raise ValueError(f'count is a number of threads, not {count}')
    _engine.set_threads(count)


def run(text, *, force=False):
    """Runs a text of sections, as `quorix run` does, and gives what the engine printed.

    The first section that fails raises Error, whose `line` tells where. Files that hold something
    else than the text writes are written over with `force` only.

    >>> try:
    ...     qx.run("xgrid\\nnosuch\\nxend\\n")
    ... except qx.Error as error:
    ...     error.line, error.routine is not None
    (2, True)
    """
    return _engine.run(text, force)
