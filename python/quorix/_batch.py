"""Maps of many data sets, several at a time."""
import collections
import os

from . import _engine, _files
from ._data import read
from ._error import Error


class Batch:
    """An iterator of (name, Map), in the order of the data sets; `failed` names those without one."""

    def __init__(self, sets, jobs, options):
        self._sets = sets
        self._jobs = jobs
        self._options = options
        self.failed = {}

    def __len__(self):
        return len(self._sets)

    def __iter__(self):
        from concurrent.futures import ThreadPoolExecutor
        waiting = collections.deque()
        left = iter(self._sets)
        alone = (_engine.set_threads, (1,)) if self._jobs > 1 else (None, ())
        with ThreadPoolExecutor(self._jobs, 'quorix', *alone) as pool:
            try:
                while True:
                    while len(waiting) <= self._jobs and (item := next(left, None)):
                        waiting.append((item[0], pool.submit(self._make, item[1])))
                    if not waiting:
                        return
                    name, future = waiting.popleft()
                    try:
                        made = future.result()
                    except Error as error:
                        self.failed[name] = error
                        continue
                    yield name, made
            finally:
                for _, future in waiting:
                    future.cancel()

    def _make(self, path):
        return read(path).map(**self._options)


def batch(inputs, *, jobs=None, **options):
    """Maps of many data sets: iterate over (name, Map).

    inputs   a folder, which is searched all the way down, a file, a list of names in a text file, or
             a list of such
    jobs     data sets at a time; the processors of the process if not told
    options  as of DataSet.map

    A data set without a map does not end the batch: it stands in `failed`, name and Error.

    >>> [(name, m.kind) for name, m in qx.batch(example("1ubq.mtz"), difference=True)]
    [('1ubq', 'mFo-DFc (DELFWT/PHDELWT)')]
    """
    paths = [inputs] if _files.is_path(inputs) else list(inputs)
    sets = _engine.find_data_sets([_files.path_of(path) for path in paths])
    return Batch(sets, jobs or len(os.sched_getaffinity(0)), options)
