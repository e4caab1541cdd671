#!/usr/bin/env python3
"""Holds the sources against the layout that docs/architecture.md describes:

- a folder includes, and calls at run time, only folders that its row of ALLOWED names; the exceptions are WIRING;
- public headers include only public ones; kernels ("// K." in the first lines) include and call only kernels,
  and neither allocate nor print;
- a type's name stands for one type: two of a name outside unnamed namespaces share their functions, sizes
  included, and no compiler says so;
- what a thread could change for another: no variables but those of SHARED, and parts of work that are run
  beside others neither report nor ask the engine for anything;
- files stay short, and tests are a quarter to a third of the whole;
- the page names every file, every folder and its edges as they are here.

Usage: check_layers.py [--root FOLDER] [BUILD]; what is called is read from BUILD's object files."""
import re
import subprocess
import sys
from pathlib import Path

ALLOWED = {
    'core': [],
    'stats': [],
    'fft': ['core'],
    'crystal': ['core'],
    'reflio': ['crystal', 'core'],
    'grid': ['crystal', 'core'],
    'model': ['grid', 'crystal', 'core'],
    'sf': ['model', 'grid', 'fft', 'crystal', 'stats', 'core'],
    'solvent': ['model', 'grid', 'fft', 'crystal', 'core'],
    'scaling': ['sf', 'solvent', 'model', 'crystal', 'stats', 'core'],
    'refine': ['scaling', 'sf', 'model', 'grid', 'fft', 'crystal', 'stats', 'core'],
    'map': ['scaling', 'sf', 'solvent', 'model', 'grid', 'fft', 'crystal', 'stats', 'core'],
    'sections': ['map', 'refine', 'scaling', 'sf', 'solvent', 'model', 'grid', 'fft', 'reflio', 'crystal', 'stats',
                 'core'],
    'driver': ['sections', 'map', 'refine', 'scaling', 'sf', 'solvent', 'model', 'grid', 'fft', 'reflio', 'crystal',
               'stats', 'core'],
}
# Front ends call what the library offers, and include of its inside no more than the tools of the core.
INCLUDED = {'driver': ['core']}
# What may be called against the table: owners create and let go what stands above them, and the table of
# file formats is declared below the formats.
OWNERS = re.compile(r'qx_(new|delete)_\w+$')
WIRING = {
    'core/root.cpp': OWNERS,
    'core/refsys.cpp': OWNERS,
    'model/molsys_objects.cpp': OWNERS,
    'crystal/refdata_build.cpp': re.compile(r'_ZN2qx12file_formatsEv$'),
}
# What a kernel does not do: allocate, print, open files. Its other calls are to kernels and the C library.
IMPURE = re.compile(r'(_Zn[wa]\w*|malloc|calloc|realloc|die|fopen|fwrite|fputs|puts|putchar|v?f?printf|__v?f?printf_chk)$')
# Variables that all engines of a process share, each safe to be; any other belongs to a thread.
SHARED = {
    'core/parallel.cpp': re.compile(r'4pool|prepared'),
    'core/processor_count.cpp': re.compile(r'known'),
    'core/kept_blocks.cpp': re.compile(r'shelf|most_kept'),
    'core/memory.cpp': re.compile(r'system_allocator|last_serial'),
    'core/output_file.cpp': re.compile(r'5names|counter'),
    'fft/simd.cpp': re.compile(r'forced|widest'),
    'model/spread_base.cpp': re.compile(r'forced|widest'),
    # Tables that are made once.
    'sf/assemble.cpp': re.compile(r'exact'),
    'stats/intensities.cpp': re.compile(r'rule'),
}
VARIABLE = re.compile(r'\s\.(?:t?bss|t?data)(?:\.\S+)?\t\S+\s+(?:\.hidden )?(\S+)$')
PARALLEL = re.compile(r'\b(?:qx::)?parallel\(')
# What parts of work must not do.
NOT_IN_PARTS = re.compile(r'\bQX_TRY\b|\b(?:qx::)?(?:fail|note|say|allocate\w*|open_\w+|require\w*)\(|\bx(?:malloc|free)\b|'
                          r'\bqx_(?:get|set|new|delete)_\w+\(|\bTagged<[^>]*>\s*[\w(]|\bquorix\b')
TYPE = re.compile(r'^(?:struct|class|enum class|enum|union)\s+(\w+)\b(?!.*;\s*(//.*)?$)(?!\s*<)')
INCLUDE = re.compile(r'^\s*#\s*include\s+(["<])([^">]+)[">]')
PAGE = 'docs/architecture.md'
LONGEST = 410


def sources(root):
    return sorted((root / 'src').rglob('*.cpp')) + sorted((root / 'src').rglob('*.h'))


def folder_of(root, path):
    return path.relative_to(root / 'src').parts[0]


def includes(path):
    for number, line in enumerate(path.read_text().splitlines(), 1):
        match = INCLUDE.match(line)
        if match:
            yield number, match.group(1), match.group(2)


def says_kernel(path):
    return path.is_file() and any(line.startswith('// K.') for line in path.read_text().splitlines()[:3])


def is_kernel(path):
    return says_kernel(path) or (path.suffix == '.cpp' and says_kernel(path.with_suffix('.h')))


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


def double_types(root):
    seen = {}
    for path in sources(root):
        for number, name in shared_types(path):
            where = f'{path.relative_to(root)}:{number}'
            if name in seen:
                yield f'{where}: {name} is a type of {seen[name]} already'
            seen[name] = where


def wrong_includes(root):
    for path in sources(root):
        own = folder_of(root, path)
        for number, quote, name in includes(path):
            where = f'{path.relative_to(root)}:{number}'
            folder = name.split('/')[0]
            if quote == '<':
                continue
            if folder not in ALLOWED:
                yield f'{where}: "{name}" is not below src'
            elif folder != own and folder not in INCLUDED.get(own, ALLOWED.get(own, [])):
                yield f'{where}: {own} must not include {folder} ("{name}")'
            elif path.suffix == '.h' and is_kernel(path) and not is_kernel(root / 'src' / name):
                yield f'{where}: a kernel header includes "{name}", which is no kernel'
    for path in sorted((root / 'include').rglob('*.h')):
        for number, quote, name in includes(path):
            if quote == '"':
                yield f'{path.relative_to(root)}:{number}: public headers include no private one ("{name}")'


def symbols(path):
    """What an object file defines and what it takes from elsewhere."""
    listing = subprocess.run(['nm', '-P', str(path)], capture_output=True, text=True, check=True).stdout
    defined, taken = set(), set()
    for line in listing.splitlines():
        name, kind = line.split()[:2]
        if kind in 'TDBR':
            defined.add(name)
        elif kind == 'U':
            taken.add(name)
    return defined, taken


def objects(root, build):
    """Object files of the library by source, those of removed sources left out."""
    for path in sorted(build.rglob('*.cpp.o')):
        source = re.search(r'/src/(\w+/.*)\.o$', str(path))
        if source and (root / 'src' / source.group(1)).is_file():
            yield source.group(1), path


def wrong_calls(root, build):
    tables = {source: symbols(path) for source, path in objects(root, build)}
    if not tables:
        yield f'{build}: there are no object files'
    home = {name: source for source, (defined, _) in tables.items() for name in defined}
    for source, (_, taken) in tables.items():
        own = source.split('/')[0]
        kernel = is_kernel(root / 'src' / source)
        for name in sorted(taken):
            there = home.get(name)
            folder = there.split('/')[0] if there else own
            if kernel and (IMPURE.match(name) or (there and not is_kernel(root / 'src' / there))):
                yield f'src/{source}: a kernel calls {name}' + (f' of {there}' if there else '')
            elif folder != own and folder not in ALLOWED[own]:
                if not (source in WIRING and WIRING[source].match(name)):
                    yield f'src/{source}: {own} must not call {folder} ({name} of {there})'


def shared_variables(root, build):
    for source, path in objects(root, build):
        listing = subprocess.run(['objdump', '-t', str(path)], capture_output=True, text=True, check=True).stdout
        for line in listing.splitlines():
            match = VARIABLE.search(line)
            if not match or re.search(r'\.data\.rel\.(ro|local)|\.tbss|\.tdata|\sd\s|[atu]b?san|DW\.ref\.', line, re.I):
                continue
            if not (source in SHARED and SHARED[source].search(match.group(1))):
                yield f'src/{source}: {match.group(1)} is shared by the threads of a process'


def argument_text(text, start):
    """What stands between a parenthesis and its opposite."""
    depth = 1
    for at in range(start, len(text)):
        depth += {'(': 1, ')': -1}.get(text[at], 0)
        if depth == 0:
            return text[start:at]
    return text[start:]


def impure_parts(root):
    for path in sources(root):
        if path.name.startswith('parallel.'):
            continue
        text = re.sub(r'//[^\n]*', '', path.read_text())
        for call in PARALLEL.finditer(text):
            work = argument_text(text, call.end())
            body = work[work.find('['):] if '[' in work else named_work(text, work)
            wrong = NOT_IN_PARTS.search(body)
            if wrong:
                yield f'{path.relative_to(root)}: parts of work must not use "{wrong.group()}"'


def named_work(text, arguments):
    """The body of a callable that was given a name first: const auto add = [&](...) {...};"""
    name = re.split(r',\s*', arguments)[-1].strip()
    match = re.search(rf'auto {re.escape(name)} = (\[.*?\n  }});', text, re.S)
    return match.group(1) if match else 'note( work in parts that is not to be seen'


def idle_edges(root, build):
    """Edges that nothing needs any more."""
    used = {(folder_of(root, path), name.split('/')[0])
            for path in sources(root) for _, quote, name in includes(path) if quote == '"'}
    tables = {source: symbols(path) for source, path in objects(root, build)}
    home = {name: source for source, (defined, _) in tables.items() for name in defined}
    used |= {(source.split('/')[0], home[name].split('/')[0])
             for source, (_, taken) in tables.items() for name in taken if name in home}
    for folder in ALLOWED:
        for below in ALLOWED[folder] if folder not in ('sections', 'driver') else []:
            if (folder, below) not in used:
                yield f'tools/check_layers.py: nothing in {folder} needs {below}'


def page_blocks(text):
    """The page's paragraphs on folders of src, by folder: from a line that begins with it to the next one."""
    blocks = {}
    folder = None
    for line in text.splitlines():
        match = re.match(r'    (\S+)', line)
        if match:
            inner = re.match(r'src/(\w+)/', match.group(1))
            folder = inner.group(1) if inner else None
        elif not line.startswith('    '):
            folder = None
        if folder:
            blocks[folder] = blocks.get(folder, '') + line + '\n'
    return blocks


def page_faults(root):
    page = root / PAGE
    text = page.read_text() if page.is_file() else ''
    blocks = page_blocks(text)
    for path in sources(root):
        own = folder_of(root, path)
        if not re.search(rf'\b{re.escape(path.stem)}\b', blocks.get(own, '')):
            yield f'{path.relative_to(root)}: {PAGE} does not name it in its paragraph on src/{own}/'
    for folder, below in ALLOWED.items():
        row = f'{folder}: {", ".join(below) or "nothing"}' if folder != 'sections' else 'sections: all of these'
        if folder != 'driver' and not re.search(rf'^\s+{re.escape(row)}$', text, re.M):
            yield f'{PAGE}: the table of edges has no row "{row}"'


def lines_of(root, *folders):
    files = [path for folder in folders for path in (root / folder).rglob('*')
             if path.suffix in ('.cpp', '.h', '.c', '.py', '.sh')]
    return sum(len(path.read_text().splitlines()) for path in files)


def sizes(root):
    for path in sources(root):
        lines = len(path.read_text().splitlines())
        if lines > LONGEST:
            yield f'{path.relative_to(root)}: {lines} lines, a file has at most {LONGEST}'
    tests, code = lines_of(root, 'tests'), lines_of(root, 'src', 'include')
    if code > 1000 and not 1 / 4 <= tests / (tests + code) <= 1 / 3:
        yield f'tests: {tests} lines beside {code} of code are not a quarter to a third of the whole'


def complaints(root, build):
    yield from sizes(root)
    yield from double_types(root)
    yield from wrong_includes(root)
    yield from impure_parts(root)
    yield from page_faults(root)
    if build:
        yield from wrong_calls(root, build)
        yield from idle_edges(root, build)
        yield from shared_variables(root, build)


def main():
    arguments = sys.argv[1:]
    root = Path(__file__).resolve().parent.parent
    if arguments[:1] == ['--root']:
        root = Path(arguments[1])
        arguments = arguments[2:]
    found = list(complaints(root, Path(arguments[0]) if arguments else None))
    print('\n'.join(found) if found else 'layers: clean')
    return 1 if found else 0


if __name__ == '__main__':
    sys.exit(main())
