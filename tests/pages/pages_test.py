#!/usr/bin/env python3
"""Manual pages and completion against what --help prints, and asked of man, mandoc, bash and zsh.
Usage: pages_test.py PROGRAM PAGES man|bash|zsh"""
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

import shells

PROGRAM, PAGES, WHICH = sys.argv[1], Path(sys.argv[2]).resolve(), sys.argv[3]


def help_of(*words):
    return subprocess.run([PROGRAM, *words, '--help'], text=True, capture_output=True, check=True).stdout


def options_of(text):
    """Every spelling of an option in the lists of --help."""
    lines = re.findall(r'^  (-\S.*?)(?:  |$)', text, re.M)
    return {word.rstrip(',') for line in lines for word in line.split() if word.startswith('-')}


SUBCOMMANDS = re.findall(r'^  (\w+)', help_of().split('\nSubcommands:\n')[1].split('\n\n')[0], re.M)


class Man(unittest.TestCase):
    def test_every_subcommand_has_a_page_that_tells_all_of_its_help(self):
        self.assertIn('map', SUBCOMMANDS)
        pages = {path.name for path in (PAGES / 'man1').iterdir()}
        self.assertEqual(pages, {'quorix.1'} | {f'quorix-{name}.1' for name in SUBCOMMANDS})
        for name in SUBCOMMANDS:
            page = subprocess.run(['man', '-l', PAGES / 'man1' / f'quorix-{name}.1'], text=True,
                                  env={'MANWIDTH': '9999', 'LC_ALL': 'C.UTF-8', 'PATH': '/usr/bin:/bin'},
                                  capture_output=True, check=True).stdout
            page = re.sub(r'\s+', ' ', page)
            words = help_of(name).split('\n', 2)[2].replace('Positionals:', '')
            for line in filter(None, re.split(r'\n+(?=\S|  \S)|   +', words)):
                line = re.sub(r'\s+', ' ', line).strip()
                if not line.endswith(':'):
                    self.assertIn(line, page, f'help of {name}')

    def test_pages_are_well_formed(self):
        for page in (PAGES / 'man1').iterdir():
            run = subprocess.run(['man', '--warnings', '-l', page], text=True, capture_output=True)
            self.assertEqual((run.returncode, run.stderr), (0, ''), page)
            lint = subprocess.run(['mandoc', '-Tlint', '-Wwarning', page], text=True, capture_output=True)
            self.assertEqual(lint.stdout, '')

    def test_the_page_that_two_programs_share_tells_both(self):
        page = (PAGES / 'man1' / 'quorix-map.1').read_text()
        for words in 'RESO_HIGH', r'\fBquorix map', 'THE PROGRAM', 'THE SUBCOMMAND':
            self.assertIn(words, page)


class Completion:
    """Cases for both shells."""
    maxDiff = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        for name in 'data one.mtz', 'TWO.MTZ', 'model.pdb', 'density.ccp4', 'notes.txt':
            (self.folder / name).touch()
        (self.folder / 'deeper').mkdir()

    def files(self, *words):
        # One shell marks folders and blanks when it reports, the other when it inserts.
        return {name.rstrip('/').replace('\\', '') for name in self.offers(*words)}

    def test_subcommands_and_every_option_of_help_are_offered(self):
        self.assertEqual(set(self.offers('quorix', '')), set(SUBCOMMANDS))
        for name in SUBCOMMANDS:
            offered = {word.rstrip('=') for word in self.offers('quorix', name, '-')}
            self.assertEqual(offered, options_of(help_of(name)), name)

    def test_files_have_fitting_suffixes(self):
        reflections = {'data one.mtz', 'TWO.MTZ', 'deeper'}
        self.assertEqual(self.files('quorix', 'map', ''), reflections)
        self.assertEqual(self.files('quorix', 'fcalc', 'x.pdb', '--hkl', ''), reflections)
        self.assertEqual(self.files('quorix', 'fcalc', ''), {'model.pdb', 'deeper'})
        self.assertEqual(self.files('quorix', 'map', 'TWO.MTZ', 'den'), {'density.ccp4'})

    def test_values_of_options_do_not_count_as_places(self):
        self.assertEqual(self.files('quorix', 'map', '--grid', '8', '8', '8', '--dmin', '2', 'TWO.MTZ', 'de'),
                         {'density.ccp4', 'deeper'})
        self.assertEqual(self.files('quorix', 'map', '--dmin', ''), set())

    def test_enumerated_values_are_offered(self):
        self.assertEqual(self.files('quorix', 'map', 'x.mtz', '--extent', ''),
                         {'cell', 'asu', 'box', 'frac', 'model'})
        self.assertEqual(self.files('quorix', 'map', 'x.mtz', '--extent', 'model', 'mod'), {'model.pdb'})


class Bash(Completion, unittest.TestCase):
    def offers(self, *words):
        return shells.bash_offers(PAGES / 'bash-completion/completions/quorix', words, self.folder)

    def test_a_value_after_an_equals_sign(self):
        self.assertEqual(self.files('quorix', 'fcalc', '--hkl', '=', 'T'), {'TWO.MTZ'})
        self.assertEqual(self.files('quorix', 'fcalc', '--hkl', '=', 'x.mtz', 'm'), {'model.pdb'})


class Zsh(Completion, unittest.TestCase):
    def offers(self, *words):
        with tempfile.TemporaryDirectory() as scratch:
            return shells.zsh_offers(PAGES / 'zsh/site-functions', words, self.folder, scratch)


if __name__ == '__main__':
    wanted = {'man': Man, 'bash': Bash, 'zsh': Zsh}[WHICH]
    suite = unittest.defaultTestLoader.loadTestsFromTestCase(wanted)
    sys.exit(not unittest.TextTestRunner(verbosity=2).run(suite).wasSuccessful())
