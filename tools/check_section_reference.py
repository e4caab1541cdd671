#!/usr/bin/env python3
"""docs/section-language.md against the sources: every section, command, key and message that the code
knows stands on the page, and no message stands there that the code does not know.

Commands are the rows of the Command<> tables; keys are the single words in the sources of sections;
messages are the texts of reports and warnings. On the page a message is a row of the tables under
"Messages", with ... for what varies; such a row may stand for several messages.
Usage: check_section_reference.py [--list], which prints the messages instead."""
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
ENGINE = [path for layer in ('core', 'stats', 'crystal', 'reflio', 'grid', 'fft', 'model', 'sf', 'solvent', 'scaling',
                              'refine', 'map', 'sections')
          for path in sorted((ROOT / 'src' / layer).glob('*.[ch]*'))] + sorted((ROOT / 'src/driver').glob('section_job.cpp'))
STRING = r'"(?:[^"\\\n]|\\.)*"'
TABLE = re.compile(r'Command<\w+> (\w+)\[\] =\s*\{(.*?)\};', re.S)
# Calls whose texts are the engine's ordinary output, labels of files, or for the compiler.
OUTPUT = re.compile(r'(?:printf|say|add_label|set_label|static_assert|fputs)\(\s*(?:\w+(?:\[\w+\])?,\s*){0,3}$')
# The same by their beginnings: tables, labels, lines of files without a lower-case letter.
NO_REPORT = re.compile(r'bin #|node #|# atom|(?:Acentric|Centric) moments|atoms of the model|an average protein|Working set|All reflections|Free set|From Quorix|Map type|by its operators|'
                       r'tagged memory|Symmetric operation matrix|Inverse matrix|[^a-z]*$')
# Reports that go out by themselves, not through the one routine for them.
WARNING = re.compile(r'(?:\.\.\. )?(?:warning|failed|xmalloc|xfree|the requested|free a null|try to)', re.I)
# Names of blocks of memory: p, letters for the routine, and for the block.
TAG = re.compile(r'p[a-z]{1,4}_[a-z0-9]+$|qxc_str$')


def source(path):
    text = re.sub(r'^\s*#[^\n]*|//[^\n]*', '', path.read_text(), flags=re.M)
    return text.replace('std::', '')


def literals(text):
    """Where each run of adjacent literals begins, and what it says."""
    for match in re.finditer(rf'{STRING}(?:\s*{STRING})*', text):
        said = ''.join(re.findall(STRING, match.group())).replace('""', '')
        yield match.start(), said[1:-1].replace('\\n', ' ').replace('\\"', '"')


def plain(text):
    """A message as the page writes it: no matter where its lines end."""
    return re.sub(r'\s+', ' ', re.sub(r'%[-.*0-9]*(?:ll)?[a-z]', '...', text)).strip()


def messages():
    found = {}
    for path in ENGINE:
        text = source(path)
        for start, said in literals(text):
            if not re.search(r'[A-Za-z]{2,} ', said + ' ') or ' ' not in said.strip():
                continue
            warning = WARNING.match(plain(said))
            output = OUTPUT.search(text[max(0, start - 80):start]) or NO_REPORT.match(plain(said))
            if warning or not output:
                found.setdefault(plain(said), path.relative_to(ROOT))
    return found


def sections():
    """Section word and the commands of its table, by the controller that the dispatcher calls."""
    rows = re.findall(r'\{"(X\w{3})", (\w+),', source(ROOT / 'src/sections/dispatch.cpp'))
    tables = {}
    for path in ENGINE:
        text = source(path)
        here = [word for word, controller in rows if f'Status {controller}() {{' in text]
        for name, body in TABLE.findall(text):
            named = [word for word in here if name.startswith(word.lower())]
            tables[(named or here)[0]] = re.findall(r'\{"(\w+)"', body)
    return {word: tables.get(word, []) for word, _ in rows}


def keys():
    for path in ENGINE:
        text = source(path)
        if not TABLE.search(text) and path.name not in ('refl_command.cpp', 'map_commands.cpp'):
            continue
        for _, said in literals(text):
            if re.fullmatch(r'[A-Za-z]\w*', said) and not TAG.match(said):
                yield said, path.relative_to(ROOT)


class Page:
    def __init__(self, text):
        reference, _, told = text.partition('\n## Messages\n')
        self.parts = dict(re.findall(r'^## ([^\n:]+)[^\n]*\n(.*?)(?=^## |\Z)', reference, re.M | re.S))
        self.rest = reference
        rows = re.findall(r'^\| (`.*?`) \|', told.replace('\\|', '\0'), re.M)
        self.messages = [text.replace('\0', '|') for row in rows for text in re.findall(r'`(.*?)`', row)]
        self.words = self.words_in(reference)

    @staticmethod
    def words_in(text):
        return {word.lower() for code in re.findall(r'`+([^`]+)`+', text) for word in re.findall(r'\w+', code)}

    def section(self, word):
        """The text under a heading that names the section."""
        for title, text in self.parts.items():
            if any(name[:4].upper() == word for name in title.split(', ')):
                return text
        return None

    @staticmethod
    def tells(row, message):
        pattern = '.*'.join(map(re.escape, row.split('...')))
        # Texts that are put together are told as a whole.
        return re.fullmatch(pattern, message) or (len(message) > 5 and message in row)


def complaints(page):
    for word, commands in sections().items():
        text = page.section(word)
        if text is None and word[:4].lower() not in {name[:4] for name in page.words}:
            yield f'section {word} is not told'
        told = {name[:4].upper() for name in Page.words_in(text or '')}
        for command in commands:
            if not any(name.startswith(command) for name in told):
                yield f'{word}: the command {command} is not told'
    for key, path in keys():
        if not any(word.startswith(key.lower()) for word in page.words):
            yield f'{path}: the key "{key}" is not told'
    known = messages()
    for message, path in known.items():
        if not any(page.tells(row, message) for row in page.messages):
            yield f'{path}: the message `{message}` is not told'
    for row in page.messages:
        if not any(page.tells(row, message) for message in known):
            yield f'nothing says `{row}`'


def main():
    if '--list' in sys.argv:
        for message, path in messages().items():
            print(path, message)
        return 0
    found = list(complaints(Page((ROOT / 'docs/section-language.md').read_text())))
    print('\n'.join(found) or 'section reference: whole')
    return 1 if found else 0


if __name__ == '__main__':
    sys.exit(main())
