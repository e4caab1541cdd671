#!/usr/bin/env python3
"""The checker of layers finds the faults that are planted for it in a small tree of its own."""
import subprocess
import sys
import tempfile
from pathlib import Path

CHECKER = Path(__file__).resolve().parent.parent.parent / 'tools' / 'check_layers.py'

TREE = {
    'src/core/root.cpp': 'extern "C" int qx_delete_top();\nint down() { return qx_delete_top(); }\n',
    'src/core/say.cpp': 'extern "C" void spoken();\nvoid spoken() {}\n',
    'src/map/top.cpp': 'extern "C" int qx_delete_top();\nint qx_delete_top() { return 0; }\n'
                       'extern "C" int qx_draw();\nint qx_draw() { return 1; }\n',
    'src/stats/sum.h': '// K. Sums.\n',
    'src/stats/sum.cpp': '#include "stats/sum.h"\nextern "C" int sum(int i);\nint sum(int i) { return i; }\n',
    'src/map/own.cpp': 'thread_local int count = 0;\nint next() { return ++count; }\n',
    'include/quorix/api.h': '',
}
PLANTED = [
    ('src/crystal/low.cpp', '#include "map/top.h"\n', 'crystal must not include map'),
    ('src/fft/low.cpp', 'extern "C" int qx_draw();\nint low() { return qx_draw(); }\n', 'fft must not call map (qx_draw'),
    ('src/core/root.cpp', 'extern "C" int qx_draw();\nint down() { return qx_draw(); }\n', 'core must not call map'),
    ('src/stats/sum.cpp', '#include "stats/sum.h"\nextern "C" void spoken();\nvoid sum() { spoken(); }\n',
     'a kernel calls spoken of core/say.cpp'),
    ('src/stats/sum.cpp', '#include "stats/sum.h"\nint* sum(int n) { return new int[n]; }\n', 'a kernel calls _Zna'),
    ('src/map/top.cpp', 'int counter = 0;\n', 'counter is shared by the threads'),
    ('src/map/top.cpp', 'int table() {\n  static int rows[8];\n  return ++rows[1];\n}\n', 'rows is shared by the threads'),
    ('src/map/top.cpp', '#if 0\nparallel(n, 2, [&](int i, int) { QX_TRY(draw(i)); });\n#endif\n', 'must not use "QX_TRY"'),
    ('src/map/top.cpp', '#if 0\n  const auto draw = [&](int i, int) {\n    say("%d", i);\n  };\n'
                        '  parallel(n, 2, draw);\n#endif\n', 'must not use "say("'),
    ('src/map/sums.h', '// K. Sums.\n#include "core/say.h"\n', 'a kernel header includes "core/say.h"'),
    ('src/map/unnamed.cpp', '', 'does not name it'),
    ('include/quorix/api.h', '#include "core/say.h"\n', 'public headers include no private one'),
]


def page(files):
    stems = {}
    for name in files:
        if name.startswith('src/'):
            _, folder, file = name.split('/')
            stems.setdefault(folder, set()).add(file.split('.')[0])
    return ''.join(f'    src/{folder}/ {" ".join(sorted(names))}\n' for folder, names in stems.items())


def complaints(files, named):
    with tempfile.TemporaryDirectory() as folder:
        root = Path(folder)
        for name, text in {**files, 'docs/architecture.md': page(named)}.items():
            (root / name).parent.mkdir(parents=True, exist_ok=True)
            (root / name).write_text(text)
        for source in list((root / 'src').rglob('*.cpp')):
            # What is called is looked at, not what is included: a wrong include has nothing behind it.
            lines = [line for line in source.read_text().splitlines() if not line.startswith('#include')]
            target = root / 'build/x.dir' / source.relative_to(root)
            target.parent.mkdir(parents=True, exist_ok=True)
            subprocess.run(['c++', '-std=c++20', '-O0', '-x', 'c++', '-c', '-', '-o', f'{target}.o'],
                           input='\n'.join(lines), text=True, check=True)
        run = subprocess.run([sys.executable, str(CHECKER), '--root', str(root), str(root / 'build')],
                             capture_output=True, text=True, check=False)
        # The table of edges is that of the real tree.
        return [line for line in run.stdout.splitlines() if 'table of edges' not in line and 'nothing in' not in line]


def main():
    failures = []
    if complaints(TREE, TREE):
        failures.append(f'a sound tree: {complaints(TREE, TREE)}')
    for name, text, expected in PLANTED:
        named = TREE if 'unnamed' in name else {**TREE, name: text}
        found = complaints({**TREE, name: text}, named)
        if not any(expected in line for line in found):
            failures.append(f'{name}: "{expected}" is not among {found}')
    print('\n'.join(failures) or f'{len(PLANTED)} planted faults found')
    return 1 if failures else 0


if __name__ == '__main__':
    sys.exit(main())
