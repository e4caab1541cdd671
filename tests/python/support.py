"""What the tests of the Python module share."""
import os
import subprocess
import tempfile
import unittest
from pathlib import Path

import numpy as np

SOURCE = Path(__file__).resolve().parents[2]
MTZ = str(SOURCE / 'examples' / '1ubq.mtz')
PDB = str(SOURCE / 'examples' / '1ubq.pdb')
REAL = Path(os.environ.get('QUORIX_REAL_DATA', SOURCE.parent / 'shared' / 'data' / 'real'))

try:
    import gemmi
except ImportError:
    gemmi = None
needs_gemmi = unittest.skipUnless(gemmi, 'gemmi is not installed')


def program(*words, folder):
    """Runs the built program."""
    command = [os.environ['QUORIX_PROGRAM'], *map(str, words)]
    done = subprocess.run(command, cwd=folder, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise AssertionError(done.stderr + done.stdout)
    return done.stdout


def points_of(path):
    """The density of a CCP4 map in the order x, y, z, by the offsets of its words."""
    raw = Path(path).read_bytes()
    words = np.frombuffer(raw, dtype='<i4', count=24)
    nx, ny, nz = words[:3]
    values = np.frombuffer(raw, dtype='<f4', offset=1024 + int(words[23]))
    return values.reshape(nz, ny, nx).transpose(2, 1, 0)


class WithFolder(unittest.TestCase):
    """Each test has a folder of its own."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def real(self, name):
        path = REAL / name
        if not path.exists():
            self.skipTest(f'{name} is not here')
        return path
