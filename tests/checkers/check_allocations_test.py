#!/usr/bin/env python3
"""tools/check_allocations.py finds every planted fault and nothing else."""
import re
import subprocess
import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent
planted = HERE / 'planted_faults.cpp'
wanted = {number for number, line in enumerate(planted.read_text().splitlines(), 1) if line.endswith('fault')}
run = subprocess.run([sys.executable, HERE.parent.parent / 'tools/check_allocations.py', planted],
                     capture_output=True, text=True)
found = {int(number) for number in re.findall(r'planted_faults\.cpp:(\d+):', run.stdout)}
print(run.stdout, run.stderr)
assert run.returncode == 1
assert found == wanted, f'not found: {sorted(wanted - found)}; no faults: {sorted(found - wanted)}'
