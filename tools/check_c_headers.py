#!/usr/bin/env python3
"""Every public header read by a C11 compiler by itself, so that any language can bind the library.
Usage: check_c_headers.py [C compiler]"""
import subprocess
import sys
from pathlib import Path

INCLUDE = Path(__file__).resolve().parent.parent / 'include'
FLAGS = ['-std=c11', '-Wall', '-Wextra', '-Wpedantic', '-Wstrict-prototypes', '-Werror', '-fsyntax-only']


def complaint(compiler, header):
    source = f'#include <quorix/{header.name}>\ntypedef int header_was_read;\n'
    run = subprocess.run([compiler, *FLAGS, f'-I{INCLUDE}', '-x', 'c', '-'], input=source, text=True,
                         capture_output=True, check=False)
    return run.stderr if run.returncode else ''


def main():
    compiler = sys.argv[1] if len(sys.argv) > 1 else 'cc'
    found = [complaint(compiler, header) for header in sorted((INCLUDE / 'quorix').glob('*.h'))]
    print(''.join(found) or 'headers: C11')
    return 1 if any(found) else 0


if __name__ == '__main__':
    sys.exit(main())
