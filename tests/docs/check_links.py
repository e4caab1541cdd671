#!/usr/bin/env python3
"""Links of the pages to other files: what docs/ and workflow/ name is in them, because an installation has those folders
elsewhere; what the other pages of the checkout name is there.
Usage: check_links.py CHECKOUT"""
import re
import sys
from pathlib import Path

ROOT = Path(sys.argv[1]).resolve()
LINK = re.compile(r'\]\(([^)#\s]+)')


def missing():
    for page in [*ROOT.glob('*.md'), *ROOT.glob('docs/*.md'), *ROOT.glob('workflow/*.md')]:
        for link in LINK.findall(page.read_text()):
            target = (page.parent / link).resolve()
            if '://' not in link and not (target.exists() and target.is_relative_to(page.parent)):
                yield f'{page.relative_to(ROOT)}: {link}'


found = list(missing())
print('\n'.join(found) or 'links: whole')
sys.exit(bool(found))
