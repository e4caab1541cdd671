#!/usr/bin/env python3
"""Checks who includes whom: a file may include private headers of its own folder or of folders below
it, public headers include nothing of ours but public headers, and kernel headers only kernels. And a type's
name stands for one type: two of a name outside unnamed namespaces share their functions, sizes included, and
no compiler says so."""
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
LAYERS = ['core', 'stats', 'fft', 'crystal', 'reflio', 'grid', 'model', 'sf', 'solvent', 'scaling', 'refine', 'map',
          'sections', 'driver']
TYPE = re.compile(r'^(?:struct|class|enum class|enum|union)\s+(\w+)\b(?!.*;\s*(//.*)?$)(?!\s*<)')
INCLUDE = re.compile(r'^\s*#\s*include\s+(["<])([^">]+)[">]')


def includes(path):
    for number, line in enumerate(path.read_text().splitlines(), 1):
        match = INCLUDE.match(line)
        if match:
            yield number, match.group(1), match.group(2)


def is_kernel(path):
    lines = path.read_text().splitlines()
    return any(line.startswith('// K.') for line in lines[:3])


def shared_types(path):
    """Types that are defined outside unnamed namespaces, by the layout that clang-format gives."""
    unnamed = False
    template = False
    for number, line in enumerate(path.read_text().splitlines(), 1):
        if line == 'namespace {':
            unnamed = True
        elif line.startswith('}  // namespace'):
            unnamed = False
        match = TYPE.match(line)
        if match and not unnamed and not template:
            yield number, match.group(1)
        template = line.startswith('template')


def double_types():
    seen = {}
    for path in sorted((ROOT / 'src').rglob('*.cpp')) + sorted((ROOT / 'src').rglob('*.h')):
        for number, name in shared_types(path):
            where = f'{path.relative_to(ROOT)}:{number}'
            if name in seen:
                yield f'{where}: {name} is a type of {seen[name]} already'
            seen[name] = where


def complaints():
    yield from double_types()
    for path in sorted((ROOT / 'src').rglob('*.[ch]pp')) + sorted((ROOT / 'src').rglob('*.h')):
        own = path.relative_to(ROOT / 'src').parts[0]
        for number, quote, name in includes(path):
            where = f'{path.relative_to(ROOT)}:{number}'
            if quote == '<':
                continue
            folder = name.split('/')[0]
            if folder not in LAYERS:
                yield f'{where}: "{name}" is not below src'
            elif LAYERS.index(folder) > LAYERS.index(own):
                yield f'{where}: {own} must not include {folder} ("{name}")'
            elif path.suffix == '.h' and is_kernel(path) and not is_kernel(ROOT / 'src' / name):
                yield f'{where}: a kernel header includes "{name}", which is no kernel'
    for path in sorted((ROOT / 'include').rglob('*.h')):
        for number, quote, name in includes(path):
            if quote == '"':
                yield f'{path.relative_to(ROOT)}:{number}: public headers include no private one ("{name}")'


def main():
    found = list(complaints())
    print('\n'.join(found) if found else 'layers: clean')
    return 1 if found else 0


if __name__ == '__main__':
    sys.exit(main())
