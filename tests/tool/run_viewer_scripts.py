#!/usr/bin/env python3
"""Runs the scripts for Coot and PyMOL with stand-ins for the two programs that write down what is
called, as JSON. Coot's old way of offering its functions without an import is tried as well.
Usage: run_viewer_scripts.py COOT_SCRIPT PYMOL_SCRIPT"""
import json
import sys
import types

calls = []


def recorder(name, result=None):
    def record(*arguments, **named):
        calls.append([name, *arguments, *sorted(named.items())])
        return result
    return record


def run(path, module=None, names=None):
    calls.clear()
    scope = dict(names or {})
    if module:
        sys.modules[module.__name__] = module
    with open(path, encoding='utf-8') as script:
        exec(compile(script.read(), path, 'exec'), scope)
    return list(calls)


def main():
    functions = {name: recorder(name, 7) for name in
                 ('handle_read_ccp4_map', 'set_contour_level_absolute', 'read_pdb')}
    old = run(sys.argv[1], names=functions)
    coot = types.ModuleType('coot')
    for name, function in functions.items():
        setattr(coot, name, function)
    new = run(sys.argv[1], module=coot)
    assert old == new
    cmd = types.SimpleNamespace(**{name: recorder(name) for name in
                                   ('set', 'load', 'isomesh', 'color')})
    pymol = types.ModuleType('pymol')
    pymol.cmd = cmd
    path = sys.argv.pop()
    told = run(path, module=pymol, names={'__script__': path})
    print(json.dumps({'coot': new, 'pymol': told}))


if __name__ == '__main__':
    main()
