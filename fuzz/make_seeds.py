#!/usr/bin/env python3
"""Writes the seed corpus of the triangulation fuzzer (fuzz/corpus/*): small inputs in the
harness's byte format (see the head of triangulation_fuzz.cpp), one per interesting case."""
import os
import struct
import sys

SORT, SPLIT, CLEANED, RAW_TOL = 1, 2, 4, 0x80
CTOR_DEFAULT, CTOR_FLAGS, CTOR_COUNT, CTOR_THROW = 0, 1 << 5, 2 << 5, 3 << 5
TOL = {"1e-9": 0, "0": 1, "1e-12": 2, "1e-6": 3, "1e-3": 4, "1": 5, "-1": 6, "nan": 7, "inf": 8}
SPECIAL = {"nan": 0, "inf": 1, "-inf": 2, "1e300": 3, "-1e300": 4, "1e-300": 5, "-1e-300": 6,
           "denorm": 7, "1e-310": 8, "max": 9, "-max": 10, "0": 11, "-0": 12, "1": 13}


def s8(v):
    return struct.pack("<b", v)


def header(flags=SORT | SPLIT, tol="1e-9", gtol=0, seed=0, scale=0, npts=0, nedges=0,
           iterations=255, raw_tol=None):
    h = bytes([flags | (RAW_TOL if raw_tol is not None else 0), TOL[tol], gtol | (seed << 2)])
    h += s8(scale) + bytes([npts, nedges, iterations])
    if raw_tol is not None:
        h += struct.pack("<d", raw_tol)
    return h


def raw(x, y, z=0.0):
    return bytes([0]) + struct.pack("<ddd", x, y, z)


def i8(x, y, z=0):
    return bytes([1 | (z << 3)]) + s8(x) + s8(y)


def i16(x, y):
    return bytes([2]) + struct.pack("<hh", x, y)


def nudge(which, ulps, coord_y=False):
    return bytes([3 | (((ulps + 8) << 1 | int(coord_y)) << 3), which])


def circle(k, radius=0, cx=0, cy=0, phase=0):
    return bytes([4 | ((k - 1) << 3)]) + s8(radius) + s8(cx) + s8(cy) + bytes([phase])


def line(k, x0, y0, dx16, dy16):
    return bytes([5 | ((k - 1) << 3)]) + s8(x0) + s8(y0) + s8(dx16) + s8(dy16)


def special(x, y):
    return bytes([6, SPECIAL[x], SPECIAL[y]])


def grid(rows, cols, ox=0, oy=0):
    return bytes([7 | ((rows - 1) << 3), cols - 1]) + s8(ox) + s8(oy)


def edge(i, j):  # byte b maps to b % (n + 2) - 1, so pass index + 1
    return bytes([0, i + 1, j + 1])


def edge32(i, j):
    return bytes([1]) + struct.pack("<ii", i, j)


def repeat(which, reverse=False):
    return bytes([2 | (4 if reverse else 0), which])


def chain(k, start, ring=False):
    return bytes([3 | (4 if ring else 0) | ((k - 1) << 3), start + 1])


def case(flags=SORT | SPLIT, points=(), edges=(), **kw):
    return header(flags, npts=len(points), nedges=len(edges), **kw) + b"".join(points) + \
        b"".join(edges)


SQUARE = [i8(0, 0), i8(10, 0), i8(10, 10), i8(0, 10)]
SEEDS = {
    "empty": b"",
    "two_points": case(points=[i8(0, 0), i8(1, 0)]),
    "three_points": case(points=[i8(0, 0), i8(1, 0), i8(0, 1)]),
    "three_collinear": case(points=[i8(0, 0), i8(1, 1), i8(2, 2)]),
    "four_collinear": case(points=[line(4, 0, 0, 16, 16)]),
    "square_diagonal": case(points=SQUARE, edges=[edge(0, 2)]),
    "square_ring_hole": case(points=SQUARE + [i8(3, 3), i8(7, 3), i8(7, 7), i8(3, 7)],
                             edges=[chain(4, 0, ring=True), chain(4, 4, ring=True)]),
    "crossing_constraints": case(points=SQUARE, edges=[edge(0, 2), edge(1, 3)]),
    "crossing_no_split": case(SORT, points=SQUARE, edges=[edge(0, 2), edge(1, 3)]),
    "grid_crossings": case(points=[grid(4, 8)], edges=[edge(0, 31), edge(7, 24), edge(3, 28)]),
    "vertex_on_segment": case(points=[line(5, 0, 0, 16, 0), i8(2, 3), i8(2, -3)],
                              edges=[edge(0, 4)]),
    "overlapping": case(points=[line(6, 0, 0, 16, 0), i8(0, 5)],
                        edges=[edge(0, 3), edge(1, 5), edge(2, 4)]),
    "repeated_edges": case(points=SQUARE, edges=[edge(0, 2), repeat(0, True), repeat(0)]),
    "bad_indices": case(points=SQUARE, edges=[edge(-1, 2), edge(2, 2), edge(0, 4),
                                              edge32(2147483647, 0), edge32(-2147483648, 1),
                                              edge32(3, 2147483646)]),
    "duplicate_point": case(points=SQUARE + [nudge(1, 0)]),
    "near_duplicate": case(CLEANED | SORT | SPLIT, points=SQUARE + [nudge(1, 1), nudge(2, -1, True)],
                           edges=[edge(4, 5)]),
    "cocircular": case(points=[circle(12)]),
    "cocircular_exact": case(points=[i8(5, 0), i8(0, 5), i8(-5, 0), i8(0, -5), i8(3, 4),
                                     i8(-4, 3)]),
    "nan": case(points=SQUARE + [special("nan", "0")]),
    "infinity": case(points=SQUARE + [special("1", "inf")]),
    "huge": case(points=[special("1e300", "0"), special("-1e300", "0"), special("0", "1e300"),
                         special("1", "1")]),
    "tiny": case(points=[special("1e-300", "0"), special("0", "1e-300"), special("denorm", "1"),
                         special("1e-310", "1e-300")]),
    "huge_scale_grid": case(points=[grid(3, 3)], edges=[edge(0, 8)], scale=20),
    "overflowing_grid": case(points=[grid(3, 3)], scale=120),
    "tiny_scale_grid": case(points=[grid(3, 3)], edges=[edge(2, 6)], scale=-24, tol="0"),
    "underflowing_grid": case(points=[grid(3, 3)], scale=-125),
    "int16_spread": case(points=[i16(-32768, -32768), i16(32767, -32768), i16(0, 32767),
                                 i16(1, 1), i16(2, 1)], edges=[edge(0, 2)]),
    "tolerance_zero": case(points=[circle(16, 50)] + SQUARE, edges=[edge(0, 8)], tol="0"),
    "tolerance_large": case(points=[grid(4, 4)], edges=[edge(0, 15)], tol="1"),
    "tolerance_nan": case(points=[grid(3, 4)], tol="nan"),
    "tolerance_raw": case(points=[grid(3, 3)], raw_tol=-0.0),
    "shuffled_locator": case(SPLIT | CTOR_COUNT, points=[grid(4, 6), circle(10, 20)],
                             edges=[chain(5, 0)]),
    "throwing_count": case(SORT | CTOR_THROW, points=SQUARE),
    "cleanup_xz": case(CLEANED | SORT | SPLIT | (1 << 3), points=[raw(0, 5, 0), raw(1, 5, 0),
                                                                  raw(1, 6, 1), raw(0, 7, 1)],
                       edges=[edge(0, 2)]),
    "cleanup_invalid_plane": case(CLEANED | (3 << 3), points=SQUARE, edges=[edge(0, 1)]),
    "zero_iterations": case(points=[grid(3, 3)], edges=[edge(0, 8)], iterations=0),
    "one_iteration": case(points=[grid(3, 3)], edges=[edge(0, 8), edge(2, 6)], iterations=1),
    "loose_point_tolerance": case(points=[grid(3, 3), i8(5, 5)], edges=[edge(0, 8), edge(2, 6)],
                                  gtol=3),
}


def main():
    out = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), "corpus")
    os.makedirs(out, exist_ok=True)
    for name, data in SEEDS.items():
        with open(os.path.join(out, name), "wb") as f:
            f.write(data)
    print(f"{len(SEEDS)} seeds written to {out}")


if __name__ == "__main__":
    main()
