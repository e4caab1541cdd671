#!/usr/bin/env python3
"""Runs the ```console blocks of a page, in order, in one scratch folder that holds the checkout's
examples, and compares what the commands print with what the page says.

A line "$ COMMAND" runs in a shell of its own; lines "> ..." continue it. What follows is what it prints:
"..." stands for anything within a line, and alone on a line for any lines. Warnings and errors may
stand among the other lines as a terminal shows them or not. A command that fails is followed by a line
"[status N]". Blocks that begin with "```console not-run" are left out.
Usage: run_blocks.py PAGE FOLDER_OF_PROGRAMS"""
import functools
import os
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent


def blocks(text):
    for match in re.finditer(r'^```console\n(.*?)^```$', text, re.M | re.S):
        yield text.count('\n', 0, match.start()) + 1, match.group(1).splitlines()


def commands(lines):
    """Command and expected lines."""
    found = []
    for line in lines:
        if line.startswith('$ '):
            found.append(([line[2:]], []))
        elif line.startswith('> ') and not found[-1][1]:
            found[-1][0].append(line[2:])
        else:
            found[-1][1].append(line)
    return [('\n'.join(command), expected) for command, expected in found]


def fits(expected, line):
    pattern = '.*'.join(map(re.escape, expected.rstrip().split('...')))
    return re.fullmatch(pattern, line.rstrip()) is not None


def interleaved(expected, out, err):
    """Whether `expected` is what two streams say, each in its order."""

    @functools.cache
    def rest(i, j, k):
        if i == len(expected):
            return j == len(out) and k == len(err)
        if expected[i] == '...':
            return (rest(i + 1, j, k) or (j < len(out) and rest(i, j + 1, k)) or
                    (k < len(err) and rest(i, j, k + 1)))
        return ((j < len(out) and fits(expected[i], out[j]) and rest(i + 1, j + 1, k)) or
                (k < len(err) and fits(expected[i], err[k]) and rest(i + 1, j, k + 1)))

    return rest(0, 0, 0)


def run(command, folder, environment):
    done = subprocess.run(['bash', '-c', command], cwd=folder, env=environment, text=True, capture_output=True,
                          timeout=300, stdin=subprocess.DEVNULL)
    out = done.stdout.splitlines() + ([f'[status {done.returncode}]'] if done.returncode else [])
    # How far a batch is, told once a second: a slow machine sees it, a fast one does not.
    return out, [line for line in done.stderr.splitlines() if not re.fullmatch(r'\w+ \d+/\d+ .* left( .*)?', line)]


def main():
    page, programs = Path(sys.argv[1]), Path(sys.argv[2]).resolve()
    sys.setrecursionlimit(20000)
    count = failures = 0
    with tempfile.TemporaryDirectory() as folder:
        shutil.copytree(ROOT / 'examples', Path(folder) / 'examples')
        environment = {'PATH': f'{programs}:/usr/bin:/bin', 'HOME': folder, 'LC_ALL': 'C.UTF-8'}
        environment |= {name: os.environ[name] for name in ('ASAN_OPTIONS', 'TMPDIR') if name in os.environ}
        for number, lines in blocks(page.read_text()):
            for command, expected in commands(lines):
                out, err = run(command, folder, environment)
                count += 1
                if not interleaved(tuple(expected), out, err):
                    failures += 1
                    print(f'{page.name}:{number}: $ {command}\n-- the page says\n' + '\n'.join(expected) +
                          '\n-- printed\n' + '\n'.join(err + out))
    print(f'{page.name}: {count} commands, {failures} failures')
    return 1 if failures or not count else 0


if __name__ == '__main__':
    sys.exit(main())
