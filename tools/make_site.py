#!/usr/bin/env python3
"""Makes a site of plain HTML from the README and the pages of docs/: no scripts, nothing from elsewhere, so that it
can be installed with the programs and read without a network. Fails for links that lead nowhere.

Usage: make_site.py FOLDER"""
import html
import re
import shutil
import sys
from pathlib import Path

import markdown

ROOT = Path(__file__).resolve().parent.parent
# What the pages are, in the order of reading; the rest of docs/ follows.
SOURCES = ['README.md', 'docs/tour.md', 'docs/cookbook.md', 'docs/coming-from.md', 'docs/viewers.md',
           'docs/maps-from-models.md', 'docs/structure-factors.md', 'docs/observations.md', 'docs/batch.md',
           'docs/python.md', 'docs/conventions.md', 'docs/section-language.md']
LAST = ['workflow/README.md', 'bench/RESULTS.md', 'docs/architecture.md', 'CONTRIBUTING.md', 'CHANGELOG.md']
NAMES = {'README.md': 'index.html', 'workflow/README.md': 'workflow.html', 'bench/RESULTS.md': 'speed.html'}
TITLES = {'README.md': 'Quorix', 'bench/RESULTS.md': 'Measured speed'}


def sources():
    others = sorted(str(page.relative_to(ROOT)) for page in (ROOT / 'docs').glob('*.md'))
    named = [name for name in SOURCES + LAST if (ROOT / name).exists()]
    middle = [name for name in others if name not in named]
    return [name for name in named if name not in LAST] + middle + [name for name in named if name in LAST]


def address(source):
    return NAMES.get(source, Path(source).stem.lower() + '.html')


def title(source):
    return TITLES.get(source) or re.search(r'^# (.+)$', (ROOT / source).read_text(), re.M)[1].replace('`', '')


class Site:
    def __init__(self, folder):
        self.folder = folder
        self.pages = sources()
        self.faults = []

    def link(self, source, target):
        """Where a link of a page leads on the site; pictures are taken along."""
        if '://' in target or target.startswith(('#', 'mailto:')):
            return target
        path, _, anchor = target.partition('#')
        place = (ROOT / source).parent.joinpath(path).resolve()
        name = str(place.relative_to(ROOT)) if place.is_relative_to(ROOT) else ''
        if name in self.pages:
            return address(name) + ('#' + anchor if anchor else '')
        if place.is_file() and place.suffix in ('.png', '.jpg', '.svg'):
            shutil.copyfile(place, self.folder / place.name)
            return place.name
        if place.exists():  # in the checkout alone
            return ''
        self.faults.append(f'{source}: {target}')
        return ''

    def body(self, source):
        # The tests' mark of blocks that are not run is none of the reader's business.
        text = re.sub(r'^(```\w+) not-run', r'\1', (ROOT / source).read_text(), flags=re.M)
        reader = markdown.Markdown(extensions=['fenced_code', 'tables', 'toc'], extension_configs={'toc': {'toc_depth': '2-2'}})
        page = reader.convert(text)
        page = re.sub(r'(href|src)="([^"]*)"', lambda m: f'{m[1]}="{self.link(source, html.unescape(m[2]))}"', page)
        page = re.sub(r'<a href="">(.*?)</a>', r'\1', page, flags=re.S)
        return page.replace('<table>', '<div class="wide"><table>').replace('</table>', '</table></div>'), reader.toc_tokens

    def contents(self, source, tokens):
        lines = []
        for page in self.pages:
            here = ' aria-current="page"' if page == source else ''
            lines.append(f'<li><a href="{address(page)}"{here}>{html.escape(title(page))}</a>')
            if page == source and len(tokens) > 1:
                lines += ['<ul>', *(f'<li><a href="#{token["id"]}">{token["name"]}</a></li>' for token in tokens), '</ul>']
            lines.append('</li>')
        return '\n'.join(lines)

    def write(self, source):
        page, tokens = self.body(source)
        top = next((token['children'] for token in tokens if token['level'] == 1), tokens)
        text = (ROOT / 'docs/site/page.html').read_text()
        for name, value in {'TITLE': html.escape(title(source)), 'CONTENTS': self.contents(source, top), 'PAGE': page}.items():
            text = text.replace(f'<!--{name}-->', value)
        (self.folder / address(source)).write_text(text)

    def check_anchors(self):
        ids = {page.name: set(re.findall(r' id="([^"]+)"', page.read_text())) for page in self.folder.glob('*.html')}
        for page in self.folder.glob('*.html'):
            for target in re.findall(r'href="([^":]+)"', page.read_text()):
                name, _, anchor = target.partition('#')
                name = name or page.name
                known = name in ids and (not anchor or anchor in ids[name])
                if not known and not (self.folder / name).is_file():
                    self.faults.append(f'{page.name}: {target}')
                elif name in ids and anchor and anchor not in ids[name]:
                    self.faults.append(f'{page.name}: {target}')

    def make(self):
        shutil.rmtree(self.folder, ignore_errors=True)
        self.folder.mkdir(parents=True)
        shutil.copyfile(ROOT / 'docs/site/style.css', self.folder / 'style.css')
        for source in self.pages:
            self.write(source)
        self.check_anchors()
        return self.faults


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    site = Site(Path(sys.argv[1]).resolve())
    faults = site.make()
    print('\n'.join(faults) or f'site: {len(site.pages)} pages')
    return 1 if faults else 0


if __name__ == '__main__':
    sys.exit(main())
