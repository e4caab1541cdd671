#!/usr/bin/env python3
"""Writes data/xray/spgbase.dat, the space-group database.

    tools/make_spgbase.py > data/xray/spgbase.dat

Names and operators come from gemmi's tables (python3-gemmi). The limits of the asymmetric unit are
found here, by search, because the engine wants a box that starts at the origin.
"""

import itertools
import re
import sys
from fractions import Fraction
from math import gcd

import gemmi
import numpy as np

DENOMINATORS = (1, 2, 3, 4, 6, 8, 12)  # of the limits; all of them divide 24, as translations do
UNIT = 144  # sample points are counted in 1/144 of an axis: 6 to each 1/24
HEADER = """\
# Space groups: names, operators and limits of the asymmetric unit.
# Made by tools/make_spgbase.py from the tables of gemmi {version}; do not edit by hand.
#
# The first record that matches a number or a name is taken, so the standard setting of a group
# stands before the others and the groups of chiral molecules before the rest. spgid is the number
# of the International Tables; settings that have a number of their own in MTZ and map files
# (3018 for P 2 21 21) carry that. All short and full names of a record are compared, without
# regard to blanks and case; the first of each kind is the one that is kept.
#
# xyzasu: the box from 0 to the upper limits holds a point of every orbit. A denominator asks the
# same divisor of the grid count; axes that an operator mixes ask the same (hence 2/2 for 1).
"""


def lcm(*numbers):
    result = 1
    for n in numbers:
        result = result * n // gcd(result, n)
    return result


class Symmetry:
    """All operators of a setting as integers: rotations, and translations in 1/24."""

    def __init__(self, group_ops):
        rotations, translations = [], []
        for centring in group_ops.cen_ops:
            for op in group_ops.sym_ops:
                rotations.append(np.array(op.rot) // 24)
                translations.append((np.array(op.tran) + np.array(centring)) % 24)
        self.rotations = np.array(rotations)
        self.translations = np.array(translations)
        self.hexagonal = bool((np.abs(self.rotations).sum(2) > 1).any())
        rows = {tuple(row * np.sign(row[np.nonzero(row)[0][0]])) for row in self.rotations.reshape(-1, 3)}
        assert rows <= {(1, 0, 0), (0, 1, 0), (0, 0, 1), (1, -1, 0)}, rows

    def divisors(self):
        return [lcm(*(Fraction(int(t), 24).denominator for t in self.translations[:, axis])) for axis in range(3)]

    def mixed_axes(self, axis):
        mixes = (self.rotations != 0).any(0)
        mixes = mixes | mixes.T | np.eye(3, dtype=bool)
        return np.nonzero((mixes.astype(int) @ mixes)[axis])[0]

    def images(self, points):
        """Shape (operators, points, 3), in [0, UNIT)."""
        rotated = np.einsum("oij,pj->opi", self.rotations, points)
        return (rotated + (UNIT // 24) * self.translations[:, None, :]) % UNIT


def grid(xs, ys, zs):
    return np.stack([a.ravel() for a in np.meshgrid(xs, ys, zs, indexing="ij")], 1)


def key(points):
    return (points[..., 0] * UNIT + points[..., 1]) * UNIT + points[..., 2]


# The planes x, y, z, x - y = k/24 cut the cell into pieces that no operator and no limit divides
# further, so one point inside each piece (and each face, edge and corner) decides for all points.
def interior_points(hexagonal):
    start = np.arange(0, UNIT, 6)
    if not hexagonal:
        return grid(start + 3, start + 3, start + 3)
    return np.concatenate([grid(start + 2, start + 4, start + 3), grid(start + 4, start + 2, start + 3)])


def all_points(hexagonal):
    step = 2 if hexagonal else 3
    return grid(np.arange(0, UNIT, step), np.arange(0, UNIT, step), np.arange(0, UNIT, 3))


def allowed_counts(divisor, top=1200):
    def smooth(n):
        for p in (2, 3, 5):
            while n % p == 0:
                n //= p
        return n == 1

    return [n for n in range(divisor, top, divisor) if smooth(n)]


def inflation(divisor, cache={}):
    """How much larger than asked a count becomes on average when it must hold `divisor`."""
    if divisor not in cache:
        counts = np.array(allowed_counts(divisor))
        asked = np.arange(40, 400)
        cache[divisor] = float((counts[np.searchsorted(counts, asked)] / asked).mean())
    return cache[divisor]


def covers(symmetry, points, limits, exclusive):
    inside = np.ones(len(points), dtype=bool)
    for axis, limit in enumerate(limits):
        edge = int(limit * UNIT)
        inside &= points[:, axis] < edge if exclusive[axis] else points[:, axis] <= edge
    reached = np.zeros(UNIT**3, dtype=bool)
    reached[key(symmetry.images(points[inside]))] = True
    return bool(reached[key(points)].all())


class Limits:
    """The box with the fewest expected grid points: small, on a grid that it does not inflate."""

    def __init__(self, symmetry):
        self.symmetry = symmetry
        points = interior_points(symmetry.hexagonal)
        images = symmetry.images(points)
        first = key(images).min(0) == key(points)  # one point for each orbit
        self.orbits = images[:, first, :]
        self.translation_divisors = symmetry.divisors()
        self.limits, self.divisors = self.search()
        self.exclusive = self.open_bounds()

    def required(self, limits):
        own = [lcm(t, f.denominator) for t, f in zip(self.translation_divisors, limits)]
        return [lcm(*(own[j] for j in self.symmetry.mixed_axes(i))) for i in range(3)]

    def search(self):
        fractions = sorted({Fraction(k, d) for d in DENOMINATORS for k in range(1, d + 1)})
        operators = len(self.symmetry.rotations)
        boxes = []
        for box in itertools.product(fractions, repeat=3):
            volume = box[0] * box[1] * box[2]
            if volume * operators >= 1:
                divisors = self.required(box)
                cost = float(volume) * inflation(divisors[0]) * inflation(divisors[1]) * inflation(divisors[2])
                boxes.append((round(cost, 9), box[2], box[1], box[0], box, divisors))
        boxes.sort()
        for *_, box, divisors in boxes:
            edges = np.array([int(limit * UNIT) for limit in box])
            if (self.orbits <= edges).all(2).any(0).all():
                return box, divisors
        raise AssertionError("the whole cell covers itself")

    def open_bounds(self):
        points = all_points(self.symmetry.hexagonal)
        fixed = [limit == 1 for limit in self.limits]  # x = 1 is x = 0
        choices = [c for c in itertools.product((True, False), repeat=3) if all(e or not f for e, f in zip(c, fixed))]
        choices.sort(key=lambda c: -sum(c))
        for choice in choices:
            if covers(self.symmetry, points, self.limits, choice):
                return choice
        raise AssertionError("a closed box that covers all interiors covers everything")

    def text(self):
        parts = []
        for axis, name in enumerate("xyz"):
            limit = self.limits[axis]
            wanted = self.divisors[axis]
            denominator = limit.denominator
            while lcm(self.translation_divisors[axis], denominator) != wanted:
                denominator += limit.denominator
            upper = "1" if denominator == 1 else f"{limit * denominator}/{denominator}"
            parts.append(f"0<={name}<{'' if self.exclusive[axis] else '='}{upper}")
        return "; ".join(parts)


# Newer letters for glide planes, and cubic symbols as they were before the bar was written.
def other_symbols(sg):
    pairs = [("A b m 2", "A e m 2"), ("A b a 2", "A e a 2"), ("C m c a", "C m c e"), ("C m m a", "C m m e"), ("C c c a", "C c c e")]
    for old, new in pairs:
        if sg.hm == old:
            yield new
    if sg.crystal_system_str() == "cubic" and " -3" in sg.hm:
        yield sg.hm.replace(" -3", " 3")


def all_names(same):
    """Short names and full names, in order of preference."""
    short, full = zip(*(names(sg) for sg in same))
    return sum(short, []), sum(full, [])


def names(sg):
    ext = "" if sg.ext == "\0" else sg.ext
    bare = sg.hm.replace(" ", "")
    if sg.hm == "C 2 2 21a)":  # as a well-known table misprints it
        return ["C2221a", bare], ["C 2 2 21 (a)"]
    if ext == "H":
        lattice_h = "H" + sg.hm[1:]
        return [sg.short_name(), bare, bare + ":H"], [sg.hm + " :H", lattice_h, sg.hm]
    short = [bare + ":" + ext, bare] if ext else [sg.short_name(), bare]
    full = [sg.hm + " :" + ext, sg.hm] if ext else [sg.hm]
    for symbol in other_symbols(sg):
        full += [symbol + " :" + ext, symbol] if ext else [symbol]
    if sg.hm == "B 1 1 2":
        short.append("B2")
    if re.search(r"\d\(a\)$|\da$", sg.hm):
        short.append(re.sub(r"\(?a\)?$", "", bare) + "a")
        full.append(re.sub(r"\(?a\)?$", "", sg.hm) + " (a)")
    return short, full


def plain(name):
    return re.sub(r"\s", "", name).upper()


def pattern(sg):
    ops = sg.operations().derive_symmorphic()
    ops.add_inversion()
    found = gemmi.find_spacegroup_by_ops(ops)
    return found.hm if found else sg.hm[0] + " " + sg.laue_str()


def record(same, claimed):
    sg = same[0]
    symmetry = Symmetry(sg.operations())
    limits = Limits(symmetry)
    lines = [f"spgid {sg.ccp4 or sg.number}"]
    used = set()
    for keyword, spellings in zip(("sspgname", "fspgname"), all_names(same)):
        for i, name in enumerate(spellings):
            if i > 0 and (plain(name) in claimed or plain(name) in used):
                continue
            assert plain(name) not in claimed, name
            used.add(plain(name))
            lines.append(f"{keyword} {name}")
    claimed |= used
    # Rhombohedral says that the cell is one: on hexagonal axes the cell is that of a trigonal group.
    system = "rhombohedral" if sg.ext == "R" else sg.crystal_system_str()
    lines += [
        f"pgname {sg.point_group_hm()}",
        f"crysym {system}",
        f"patname {pattern(sg)}",
        f"launame {sg.laue_str()}",
        f"xyzasu {limits.text()}",
        f"hklasu {gemmi.ReciprocalAsu(sg).condition_str()}",
    ]
    ops = sg.operations()
    lines += [f"primoper {op.triplet()}" for op in ops.sym_ops]
    for centring in ops.cen_ops:
        op = gemmi.Op("x,y,z")
        op.tran = list(centring)
        lines.append(f"centoper {op.triplet()}")
    lines.append("endofdef")
    assert max(map(len, lines)) < 130, lines
    return lines


def settings():
    """Settings that are one set of operators in groups; standard ones and chiral molecules first."""
    table = {}
    for sg in gemmi.spacegroup_table():
        table.setdefault(frozenset(op.triplet() for op in sg.operations()), []).append(sg)
    return sorted(table.values(), key=lambda same: (not same[0].is_sohncke(), same[0].number))


def main():
    claimed = set()
    out = [HEADER.format(version=gemmi.__version__)]
    for same in settings():
        out.append("\n".join(record(same, claimed)) + "\n")
    sys.stdout.write("\n".join(out))


if __name__ == "__main__":
    main()
