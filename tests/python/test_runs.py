"""Texts of sections, faults, what is said, doctests."""
import contextlib
import doctest
import importlib
import io
import logging
import os
import pkgutil
import signal
import subprocess
import sys
import threading
import time
import unittest

import numpy as np
import quorix as qx
from support import MTZ, PDB, WithFolder, points_of, program


class Pages(WithFolder):
    def test_maps_and_data_make_the_programs_page(self):
        import re
        density = {}
        full = qx.read(MTZ).map()
        for name, words in {'a': {'data': MTZ}, 'b': {'maps': [full, full.from_array(
                qx.read(MTZ).map(difference=True).array, full.cell, full.spacegroup, kind='mFo-DFc')]}}.items():
            qx.report(self.folder / name, model=PDB, **words)
            density[name] = re.findall('"density":{.*?}', (self.folder / name).read_text())
        self.assertEqual(len(density['a']), 2)
        self.assertEqual(density['a'], density['b'])

    def test_what_is_no_page_stays(self):
        (self.folder / 'x').write_text('mine')
        for path, words in (('x', {'data': MTZ}), ('y', {'data': PDB}), ('y', {'data': self.folder / 'none'})):
            with self.assertRaises(qx.Error):
                qx.report(self.folder / path, **words)
        self.assertEqual(((self.folder / 'x').read_text(), (self.folder / 'y').exists()), ('mine', False))


class Texts(WithFolder):
    def test_a_printed_text_makes_the_programs_map(self):
        text = program('map', MTZ, 'x.ccp4', '--print-sections', folder=self.folder)
        program('map', MTZ, 'x.ccp4', '-q', folder=self.folder)
        theirs = (self.folder / 'x.ccp4').read_bytes()
        (self.folder / 'x.ccp4').unlink()
        before = os.getcwd()
        os.chdir(self.folder)
        try:
            said = qx.run(text)
        finally:
            os.chdir(before)
        self.assertIn('begin map generation', said)
        self.assertEqual((self.folder / 'x.ccp4').read_bytes(), theirs)

    def test_a_fault_tells_where(self):
        with self.assertRaises(qx.Error) as caught:
            qx.run('# first\nxcry\ncell 10 20 30 90 90 90\n\nnosuch word\nxend\n')
        error = caught.exception
        self.assertEqual((error.line, error.routine), (5, 'qx_xcry_ctrl'))
        self.assertIn('begin x-ray', error.text)
        for empty in ('', '\n  \n', '# nothing'):
            with self.assertRaises(qx.Error):
                qx.run(empty)

    def test_inputs_are_not_written_over(self):
        with self.assertRaises(qx.Error):
            qx.run(f'xcry\nread refl mtz file "{MTZ}" coid MAP_COEFFA=FWT MAP_COEFFP=PHWT\n'
                   f'write refl mtz file "{MTZ}"\nxend\n')

    def test_the_module_works_on_after_a_fault(self):
        data = qx.read(MTZ)
        wanted = data.map().array
        for _ in range(20):
            with self.assertRaises(qx.Error):
                data.map(spacegroup='nonsense')
            with self.assertRaises(qx.Error):
                qx.run('xgrid\nfrac 0.3\nxend\n')
            with self.assertRaises(qx.Error):
                data.map(dmin=0.1, dmax=0.2)
        np.testing.assert_array_equal(data.map().array, wanted)

    def test_wrong_values_are_told_before_the_engine_sees_them(self):
        data = qx.read(MTZ)
        for options in ({'dmin': -1}, {'dmin': float('nan')}, {'grid': (1, 2)}, {'spacing': 0}, {'fraction': 2},
                        {'cell': (1, 2, 3)}, {'grid': (8, 8, 8), 'spacing': 1}):
            with self.assertRaises(ValueError, msg=options):
                data.map(**options)


class Said(WithFolder):
    def test_warnings_and_reports_go_to_the_logger(self):
        with self.assertLogs('quorix', logging.INFO) as log:
            qx.read(MTZ).map()
        self.assertTrue(any(r.levelno == logging.WARNING and '22 of 6224' in r.getMessage() for r in log.records))
        self.assertTrue(any('begin map generation' in r.getMessage() for r in log.records))
        with self.assertLogs('quorix', logging.WARNING) as log:  # reports are not put together then
            qx.read(MTZ).map(grid=(62, 50, 36))
            qx.run('xcry\nspgname P1\ncell 10 20 30 90 90 90\nxend\n')
        self.assertTrue(any('a grid of 64 x' in r.getMessage() for r in log.records))
        self.assertEqual({r.levelno for r in log.records}, {logging.WARNING})

    def test_nothing_is_printed(self):
        """Neither through Python nor past it; faults included."""
        script = ('import quorix as qx\n'
                  f'd = qx.read({MTZ!r})\nd.map().array\n'
                  'for call in (lambda: d.map("NOSUCH"), lambda: qx.run("nosuch\\nxend\\n"), lambda: qx.read("nosuch")):\n'
                  '    try: call()\n'
                  '    except qx.Error: pass\n'
                  '    else: raise SystemExit(1)\n')
        done = subprocess.run([sys.executable, '-c', script], capture_output=True, check=True)
        self.assertEqual((done.stdout, done.stderr), (b'', b''))

    def test_other_threads_run_beside_the_engine(self):
        data = qx.read(MTZ)
        beats = []
        stop = threading.Event()

        def beat():
            while not stop.is_set():
                beats.append(time.perf_counter())
                time.sleep(0.001)

        thread = threading.Thread(target=beat)
        thread.start()
        begin = time.perf_counter()
        data.map(spacing=0.12)
        end = time.perf_counter()
        stop.set()
        thread.join()
        inside = sum(begin < at < end for at in beats)
        self.assertGreater(inside, 5, f'{end - begin:.2f} s')

    def test_an_interrupt_ends_work_between_sections(self):
        data = qx.read(MTZ)
        timer = threading.Timer(0.05, os.kill, (os.getpid(), signal.SIGINT))
        timer.start()
        with self.assertRaises(KeyboardInterrupt):
            begin = time.perf_counter()
            while time.perf_counter() - begin < 30:
                data.map()
        self.assertEqual(data.map().array.shape, (90, 72, 48))


class Documents(unittest.TestCase):
    def test_examples_in_docstrings(self):
        names = ['quorix'] + [f'quorix.{m.name}' for m in pkgutil.iter_modules(qx.__path__) if m.name != '_engine']
        examples = os.path.dirname(MTZ)
        total = 0
        for name in names:
            module = importlib.import_module(name)
            out = io.StringIO()
            with contextlib.redirect_stdout(out):
                found = doctest.testmod(module, optionflags=doctest.ELLIPSIS,
                                        extraglobs={'qx': qx, 'example': lambda file: os.path.join(examples, file)})
            self.assertEqual(found.failed, 0, out.getvalue())
            total += found.attempted
        self.assertGreater(total, 5)

    def test_the_stub_names_what_the_extension_has(self):
        import ast
        stub = os.path.join(os.path.dirname(qx.__file__), '_engine.pyi')
        with open(stub, encoding='utf-8') as file:
            tree = ast.parse(file.read())
        told = {node.name for node in tree.body if isinstance(node, (ast.FunctionDef, ast.ClassDef))}
        there = {name for name in dir(qx._engine) if not name.startswith('_') and name != 'version'}
        self.assertEqual(told, there)
        for node in tree.body:
            if isinstance(node, ast.ClassDef) and node.name != 'Unit':
                members = {n.name for n in node.body if isinstance(n, ast.FunctionDef)}
                members |= {n.target.id for n in node.body if isinstance(n, ast.AnnAssign)}
                actual = {n for n in dir(getattr(qx._engine, node.name)) if not n.startswith('_')}
                self.assertEqual(members - {'__init__'}, actual, node.name)


if __name__ == '__main__':
    unittest.main()
