#!/usr/bin/env python3
"""Turns a script with cells ("# %%", "# %% [markdown]") into a notebook beside it.

Usage: make_notebook.py [--check] SCRIPT; with --check nothing is written, and a notebook that is not what the script
gives is an error."""
import json
import sys
from pathlib import Path


def cells(text):
    for part in text.split('\n# %%')[0:]:
        head, _, body = part.removeprefix('# %%').partition('\n')
        body = body.strip('\n')
        if '[markdown]' in head:
            lines = [line.removeprefix('#').removeprefix(' ') for line in body.splitlines()]
            yield {'cell_type': 'markdown', 'metadata': {}, 'source': '\n'.join(lines).splitlines(keepends=True)}
        elif body:
            yield {'cell_type': 'code', 'execution_count': None, 'metadata': {}, 'outputs': [],
                   'source': body.splitlines(keepends=True)}


def notebook(text):
    kernel = {'display_name': 'Python 3', 'language': 'python', 'name': 'python3'}
    return json.dumps({'cells': list(cells(text)), 'metadata': {'kernelspec': kernel}, 'nbformat': 4,
                       'nbformat_minor': 4}, indent=1) + '\n'


def main(words):
    script = Path(words[-1])
    target = script.with_suffix('.ipynb')
    made = notebook(script.read_text())
    if '--check' not in words:
        target.write_text(made)
    elif target.read_text() != made:
        print(f'{target} is not what {script} gives: tools/make_notebook.py {script}')
        return 1
    return 0


sys.exit(main(sys.argv[1:]))
