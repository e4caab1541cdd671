#!/usr/bin/env python3
"""Checks the space-group database against gemmi's tables; exit status 77 without gemmi.

    spgbase_check.py data/xray/spgbase.dat
"""

import re
import sys
from fractions import Fraction
from math import gcd

try:
    import gemmi
    import numpy as np
except ImportError:
    print("gemmi or numpy is not here: nothing checked")
    sys.exit(77)

faults = []


def fault(*words):
    faults.append(" ".join(map(str, words)))


def lcm(*numbers):
    result = 1
    for n in numbers:
        result = result * n // gcd(result, n)
    return result


def read(path):
    records, record = [], None
    for line in open(path):
        line = line.strip()
        if not line or line.startswith("#"):
            continue
        keyword, _, value = line.partition(" ")
        if keyword == "spgid":
            record = {"spgid": [value]}
        elif keyword == "endofdef":
            records.append(record)
        else:
            record.setdefault(keyword, []).append(value)
    return records


def plain(name):
    return re.sub(r"\s", "", name).upper()


def operators_of(record):
    products = []
    for centring in record["centoper"]:
        for primitive in record["primoper"]:
            products.append((gemmi.Op(centring) * gemmi.Op(primitive)).wrap())
    return products


def texts(operators):
    return frozenset(op.triplet() for op in operators)


# Upper limits as (value, denominator as written, inclusive).
def limits_of(record):
    limits = []
    for part in record["xyzasu"][0].split(";"):
        bound, numerator, denominator = re.fullmatch(r"\s*0<=[xyz](<=?)(\d+)(?:/(\d+))?", part).groups()
        limits.append((Fraction(int(numerator), int(denominator or 1)), int(denominator or 1), bound == "<="))
    return limits


def check_symmetry(record, operators):
    name = record["fspgname"][0]
    if record["primoper"][0] != "x,y,z" or record["centoper"][0] != "x,y,z":
        fault(name, "does not start with the identity")
    group = texts(operators)
    if len(group) != len(operators):
        fault(name, "repeats operators")
    if any((a * b).wrap().triplet() not in group for a in operators for b in operators):
        fault(name, "is not closed")
    known = gemmi.find_spacegroup_by_ops(gemmi.GroupOps(operators))
    if known is None or texts(known.operations()) != group:
        fault(name, "has operators that gemmi does not know")
    elif int(record["spgid"][0]) not in (known.number, known.ccp4):
        fault(name, "has number", record["spgid"][0], "not", known.number)
    elif (record["pgname"][0], record["launame"][0]) != (known.point_group_hm(), known.laue_str()):
        fault(name, "has another point group")


def check_limits(record, operators):
    name = record["fspgname"][0]
    limits = limits_of(record)
    rotations = np.array([op.rot for op in operators]) // 24
    shifts = np.array([op.tran for op in operators])
    divisors = [
        lcm(limits[axis][1], *(Fraction(int(t), 24).denominator for t in shifts[:, axis])) for axis in range(3)
    ]
    for i in range(3):
        for j in range(3):
            if (rotations[:, i, j] != 0).any() and divisors[i] != divisors[j]:
                fault(name, "mixes axes with the divisors", divisors)
    if any(24 % d for d in divisors):
        fault(name, "asks the divisors", divisors)
    # All points of a grid that the rules allow, and points beside any grid.
    factors = [3 if d < 8 else 1 for d in divisors]
    n = np.array([d * f * (5 if d == 1 else 1) for d, f in zip(divisors, [max(factors)] * 3)])
    if (rotations.any(0) & (n[:, None] != n[None, :])).any():
        n[:] = n.max()
    points = np.stack([a.ravel() for a in np.meshgrid(*(np.arange(k) for k in n), indexing="ij")], 1)
    check_coverage(name + " (grid)", points / n, rotations, shifts, limits)
    check_coverage(name + " (points)", np.random.default_rng(1).random((500, 3)), rotations, shifts, limits)


def check_coverage(name, points, rotations, shifts, limits):
    images = np.einsum("oij,pj->opi", rotations, points) + shifts[:, None, :] / 24.0
    images = np.mod(images + 1e-9, 1.0) - 1e-9
    inside = np.ones(images.shape[:2], dtype=bool)
    for axis, (limit, _, inclusive) in enumerate(limits):
        inside &= images[:, :, axis] < float(limit) + (1e-7 if inclusive else -1e-7)
    if not inside.any(0).all():
        fault(name, "leaves orbits out, for one", points[~inside.any(0)][0])


def check_names(records):
    first = {}
    for record in records:
        for name in record["sspgname"] + record["fspgname"]:
            first.setdefault(plain(name), record)
    for record in records:
        for name in (record["sspgname"][0], record["fspgname"][0]):
            if first[plain(name)] is not record:
                fault(name, "is taken by an earlier record")
    operators = {id(record): texts(operators_of(record)) for record in records}

    def resolves(name, sg):
        found = first.get(plain(name))
        if found is None or operators[id(found)] != texts(sg.operations()):
            fault(name, "does not give", sg.xhm())

    for name in first:  # whatever gemmi understands means the same to it
        sg = gemmi.find_spacegroup_by_name(name) or gemmi.find_spacegroup_by_name(first[name]["fspgname"][0])
        if sg is not None:
            resolves(name, sg)
    for sg in gemmi.spacegroup_table():
        resolves(sg.xhm(), sg)
        resolves(sg.hm if sg.ext in "\0" else sg.xhm().replace(":", " :"), sg)
        if sg.ext in ("\0", "H"):
            resolves(sg.short_name(), sg)
    numbers = {}
    for record in records:
        numbers.setdefault(int(record["spgid"][0]), record)
    for number in range(1, 231):
        sg = gemmi.find_spacegroup_by_number(number)
        if number not in numbers or operators[id(numbers[number])] != texts(sg.operations()):
            fault("number", number, "does not give", sg.xhm())


def main():
    records = read(sys.argv[1])
    check_names(records)
    for record in records:
        operators = operators_of(record)
        check_symmetry(record, operators)
        check_limits(record, operators)
    print(f"{len(records)} records, {len(faults)} faults")
    print("\n".join(faults[:50]))
    sys.exit(1 if faults else 0)


if __name__ == "__main__":
    main()
