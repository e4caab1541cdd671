#!/usr/bin/env python3
"""Checks that no field of a record is assigned an allocation directly. A failed allocation takes the
engine down, the record with it, so the assignment would write to freed memory: open_block and its kin
(core/tagged.h) store only what is there."""
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
ASSIGNED = re.compile(r'(->\w+|\.\w+|\]|!\(\w+)\s*=\s*(static_cast<[^;]*?>\()?(qx::)?'
                      r'(allocate(_zeroed)?<|new_object<|duplicate_text\(|xopen_|xmalloc|xrealloc)')


def main():
    found = []
    for path in sorted((ROOT / 'src').rglob('*.cpp')):
        text = path.read_text()
        for match in ASSIGNED.finditer(text):
            line = text.count('\n', 0, match.start()) + 1
            found.append(f'{path.relative_to(ROOT)}:{line}: {match.group(0).strip()}')
    print('\n'.join(found) if found else 'allocations: clean')
    return 1 if found else 0


if __name__ == '__main__':
    sys.exit(main())
