"""The Python module by pip: CMake builds the extension, its data travel within the package.

    pip install --no-build-isolation .        (--break-system-packages outside a virtual environment)

cmake, ninja, a C++20 compiler and what tools/install_packages.sh lists under "build" must be there.
"""
import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent


class CMakeBuild(build_ext):
    """Builds the target quorix_python and puts it, with the data, where setuptools wants it."""

    def run(self):
        folder = Path(self.build_temp).resolve() / 'cmake'
        folder.mkdir(parents=True, exist_ok=True)
        launcher = ['-DCMAKE_CXX_COMPILER_LAUNCHER=ccache'] if shutil.which('ccache') else []
        subprocess.run(['cmake', '-S', ROOT, '-B', folder, '-G', 'Ninja', '-DQUORIX_TESTS=OFF', '-DQUORIX_PYTHON=ON',
                        f'-DPython_EXECUTABLE={sys.executable}', *launcher], check=True)
        jobs = os.environ.get('CMAKE_BUILD_PARALLEL_LEVEL', str(os.cpu_count()))
        subprocess.run(['cmake', '--build', folder, '--target', 'quorix_python', '-j', jobs], check=True)
        target = Path(self.get_ext_fullpath('quorix._engine')).resolve()
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(next((folder / 'python' / 'quorix').glob('_engine.*.so')), target)
        shutil.copytree(ROOT / 'data', target.parent / 'data', dirs_exist_ok=True)


VERSION = re.search(r'project\(quorix VERSION ([0-9.]+)', (ROOT / 'CMakeLists.txt').read_text())[1]

setup(name='quorix', version=VERSION, description='Crystallographic computation engine: electron density in Python',
      python_requires='>=3.9', install_requires=['numpy'], packages=['quorix'], package_dir={'quorix': 'python/quorix'},
      package_data={'quorix': ['py.typed', '*.pyi']}, ext_modules=[Extension('quorix._engine', [])],
      cmdclass={'build_ext': CMakeBuild}, zip_safe=False)
