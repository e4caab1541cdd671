#!/usr/bin/env python3
"""Checks what must hold because any call that reports takes the engine down with all that it owned:
- no field of a record is given the result of such a call: when it has reported, the record is gone. An
  allocation goes through open_block and its kin (core/tagged.h), another value into a local first;
- a pointer from such a call is tested before the next one is made, and before it is followed: else
  the second call finds no engine and reports that, instead of what is wrong.
Reads the sources as clang-format leaves them. Usage: check_allocations.py [FILE ...] (default: all of
src); further files are judged with what src is known to do."""
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
MOUTHS = {'die', 'fdie_', 'fail', 'xmalloc'}  # where every report comes from
SILENT = {'qx_exist_quorix', 'qx_get_quorix', 'qx_get_die_count', 'qx_terminate_quorix'}
KEYWORDS = {'if', 'for', 'while', 'switch', 'return', 'sizeof', 'static_cast', 'reinterpret_cast',
            'const_cast', 'static_assert', 'QX_TRY', 'catch', 'decltype'}
CALL = re.compile(r'([\w>.:]*?)\b([A-Za-z_]\w*)(?:<[\w\s:*\[\],]*>)?\(')
STORE = re.compile(r'(?:^|[;{}(]|\s)([\w.\->\[\]"+ ]*?(?:->|\.|\])[\w.\->\[\]"+ ]*?)\s*[-+*/|&]?=(?!=)(.*)',
                   re.S)
STRUCT = re.compile(r'^struct (\w+)[^;{]*\{\n(.*?)^\};', re.S | re.M)
TAKE = re.compile(r'(?:[\w:]+[\s*&]+)?([\w.]+)\s*=\s*(?:[\w:]+\?\s*)?(?:qx::)?(\w+)(?:<[^;()]*>)?\(')


class Function:
    def __init__(self, path, line, head, body):
        self.path, self.line, self.head, self.body = path, line, head, body
        result, self.name = re.match(r'(.*?)(\w*)$', head.split('(')[0], re.S).groups()
        self.gives_pointer = result.rstrip().endswith('*')
        self.calls = {name for _, name in calls_in(body)}


def calls_in(text):
    """(qualifier, name) of what looks like a call; methods of objects are not followed."""
    return [(before, name) for before, name in CALL.findall(text)
            if name not in KEYWORDS and not before.endswith(('.', '->', 'std::'))]


def code_of(text):
    """The text with its comments and literals blanked, line by line."""
    def blank(match):
        kept = '""' if match.group(0)[0] == '"' else ''
        return kept + re.sub(r'[^\n]', ' ', match.group(0))[len(kept):]
    return re.sub(r'//[^\n]*|/\*.*?\*/|R"\(.*?\)"|"(?:\\.|[^"\\\n])*"|^#.*?(?<!\\)$', blank, text,
                  flags=re.S | re.M)


def functions_of(path, lines, first=1, indent=''):
    """Definitions, methods included: what begins and ends at this indent."""
    start = None
    for i, line in enumerate(lines):
        if start is None:
            if not re.match(indent + r'[\w\[~]', line) or re.match(r'\s*(namespace|extern|public|private)\b', line):
                continue
            start = i
        block = '\n'.join(lines[start:i + 1])
        if block.count('{') != block.count('}') or not line.rstrip().endswith((';', '}')):
            continue
        head, _, body = block.partition('{')
        head = re.sub(r'\s+', ' ', re.sub(r'^\s*template <.*?>\n', '', head, flags=re.S))
        if re.match(r' ?(struct|class) ', head):
            yield from functions_of(path, lines[start + 1:i], first + start + 1, indent + '  ')
        elif body and '(' in head and '=' not in head.split('(')[0]:
            yield Function(path, first + start, head.strip(), body)
        start = None


class Program:
    """Which calls may end in a die."""

    def __init__(self, paths):
        texts = {path: code_of(path.read_text()) for path in paths}
        self.functions = [f for path, text in texts.items()
                          for f in functions_of(path, text.split('\n'))]
        self.structs = dict(m for text in texts.values() for m in STRUCT.findall(text))
        # Records carry the names that the world knows; the rest is theirs or lives on the stack.
        self.records = {name for name in self.structs if name.islower()}
        while more := {name for record in self.records for name in re.findall(r'\w+', self.structs[record])
                       if name in self.structs} - self.records:
            self.records |= more
        self.named = {}
        for f in self.functions:
            self.named.setdefault(f.name, []).append(f)
        self.dying = set()
        while found := {f for f in self.functions if f not in self.dying and f.name not in SILENT
                        and any(self.dies(f, name) for name in f.calls)}:
            self.dying |= found

    def meant(self, user, name):
        """A name that the user's own file defines means that one."""
        all_of_name = self.named.get(name, [])
        return [f for f in all_of_name if f.path == user.path] or all_of_name

    def dies(self, user, name):
        return name in MOUTHS or any(f in self.dying for f in self.meant(user, name))

    def gives_pointer(self, user, name):
        return any(f.gives_pointer for f in self.meant(user, name)) or name == 'xmalloc'


def statements(body):
    """(offset, text) of what ends in ; { or } outside parentheses."""
    depth, start = 0, 0
    for i, c in enumerate(body):
        depth += (c in '(') - (c in ')')
        if depth == 0 and c in ';{}':
            yield start, body[start:i + 1]
            start = i + 1


def goes_with_engine(program, f, place):
    """True if what stands on the left of an assignment may lie in the engine's memory."""
    base = re.match(r'[\s(*!]*(\w+)', place)
    name = base.group(1) if base else ''
    declared = re.search(rf'([\w:]+)(<[^;()]*>)?(\s*[&*]+\s*|\s+(?:const\s+)?){name}\b\s*[;={{(\[,):]', f.head + f.body)
    if not declared or declared.group(1) in ('return', 'else'):
        return not name.endswith('_')  # classes with members of their own live on the stack
    kind, how = declared.group(1).split('::')[-1], declared.group(3)
    if kind == 'Tagged':
        return '[' in place
    if kind in program.structs:
        return (kind in program.records or '->' in place.removeprefix(name + '->')) and bool(re.search('[&*]', how))
    return '->' in place or '*' in how and '[' in place


def complaints(program, f):
    untested = None
    for offset, text in statements(f.body):
        line = f.line + f.head.count('\n') + f.body[:offset + len(text) - len(text.lstrip())].count('\n')
        dying = [name for _, name in calls_in(text) if program.dies(f, name)]
        store = STORE.search(text)
        if store and any(program.dies(f, name) for _, name in calls_in(store.group(2))):
            if goes_with_engine(program, f, store.group(1)):
                yield line, f'{store.group(1).strip()} is given what a call that can die gives'
        for name in dying:
            if program.gives_pointer(f, name) and re.search(rf'(?:\*|\b){name}\(\)->|\*{name}\(', text):
                yield line, f'what {name}() gives is followed untested'
        pointers = [name for name in dying if program.gives_pointer(f, name)]
        if len(pointers) > 1 and not re.search(r'\?|&&|\|\|', text):
            yield line, f'{pointers[0]}() is not tested before {pointers[1]}() is called'
        if untested and dying:
            name = re.escape(untested)
            test = re.search(rf'!{name}\b(?!\.)|\b{name}\s*(?:\?|&&|\|\||[!=]=|\))', text)
            before = [n for _, n in calls_in(text[:test.end()] if test else text) if program.dies(f, n)]
            if before:
                yield line, f'{before[0]}() is called before {untested} is tested'
        if untested and (dying or re.search(rf'\b{re.escape(untested)}\b', text)):
            untested = None
        taken = TAKE.match(text.strip().removeprefix('const ').removeprefix('auto* '))
        if taken and program.gives_pointer(f, taken.group(2)) and taken.group(2) in dying:
            untested = taken.group(1)


def main():
    source = sorted((ROOT / 'src').rglob('*.cpp')) + sorted((ROOT / 'src').rglob('*.h'))
    asked = [Path(name).resolve() for name in sys.argv[1:]] or source
    program = Program(source + [path for path in asked if path not in source])
    found = [f'{f.path.relative_to(ROOT) if f.path.is_relative_to(ROOT) else f.path}:{line}: {text}'
             for f in program.functions if f.path in asked for line, text in complaints(program, f)]
    print('\n'.join(found) if found else 'allocations: clean')
    return 1 if found else 0


if __name__ == '__main__':
    sys.exit(main())
