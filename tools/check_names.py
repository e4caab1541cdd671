#!/usr/bin/env python3
"""Checks that the shared library exports exactly what the public headers declare.

Usage: check_names.py libquorix.so
"""
import re
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
NAME = re.compile(r'\b([a-z_][A-Za-z0-9_]*)\s*(?:\(|;)')


def declared():
    names = set()
    for header in sorted((ROOT / 'include' / 'quorix').glob('*.h')):
        text = re.sub(r'(?m)//[^\n]*|^#.*$', '', header.read_text())
        for declaration in re.findall(r'\bQX_API\b([^;]*;)', text):
            match = NAME.search(declaration.replace('(**', ' ').replace('(***', ' '))
            if match:
                names.add(match.group(1).lstrip('*'))
    return names


def exported(library):
    output = subprocess.run(['nm', '-D', '--defined-only', library], check=True, capture_output=True,
                            text=True).stdout
    return {line.split()[-1].split('@')[0] for line in output.splitlines()}


def main():
    want, have = declared(), exported(sys.argv[1])
    missing = sorted(want - have)
    # Weak C++ library templates may be exported by the tool chain; names of ours may not.
    extra = sorted(name for name in have - want if name.startswith(('qx', 'x', 'get_', 'set_')))
    for name in missing:
        print(f'declared but not exported: {name}')
    for name in extra:
        print(f'exported but not declared: {name}')
    print(f'names: {len(want)} declared, {len(missing)} missing, {len(extra)} too many')
    return 1 if missing or extra else 0


if __name__ == '__main__':
    sys.exit(main())
