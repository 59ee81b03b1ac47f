# The rytri module through its public call: scipy's Delaunay as an oracle, exact areas of rings,
# every error path, arrays handed over without copies, the GIL released during the call.
import math
import threading
import time
import tracemalloc

import numpy as np
import pytest
import rytri


def check_mesh(r):
    """Counter-clockwise triangles summing to kept_area; each neighbour holds the reverse edge,
    and -1 exactly where no kept triangle does."""
    v, t, nb = r.vertices, r.triangles, r.neighbors
    a, b, c = (v[t[:, k], :2] for k in range(3))
    area = ((b - a)[:, 0] * (c - a)[:, 1] - (b - a)[:, 1] * (c - a)[:, 0]) / 2
    assert (area > 0).all() and math.isclose(area.sum(), r.kept_area, rel_tol=1e-12)
    edge = {(p, q): i for i, tri in enumerate(t.tolist()) for p, q in zip(tri, tri[1:] + tri[:1])}
    assert len(edge) == 3 * len(t)
    for (p, q), i in edge.items():
        k = t[i].tolist().index(p)
        assert nb[i, k] == edge.get((q, p), -1)


def triangle_set(triangles):
    return {tuple(sorted(t)) for t in triangles.tolist()}


def test_delaunay_agrees_with_scipy():
    from scipy.spatial import Delaunay

    points = np.random.default_rng(1).random((3000, 2)) * 1000
    r = rytri.triangulate(points)
    check_mesh(r)
    assert r.vertex_source.tolist() == list(range(3000)) and r.keep == "all"
    assert triangle_set(r.triangles) == triangle_set(Delaunay(points).simplices)
    # The copying paths: Fortran order, heights given, integers.
    xyz = np.asfortranarray(np.column_stack([points, points[:, 0]]))
    assert triangle_set(rytri.triangulate(xyz).triangles) == triangle_set(r.triangles)
    assert rytri.triangulate(np.array([[0, 0], [3, 0], [0, 2]])).kept_area == 3.0


def test_square_with_a_hole_an_island_and_a_breakline():
    g = np.arange(0, 10.5, 0.5)
    x, y = (a.ravel() for a in np.meshgrid(g, g))
    points = np.column_stack([x, y, x + 2 * y])

    def ring(lo, hi, z=False):
        xy = np.array([[lo, lo], [hi, lo], [hi, hi], [lo, hi]])
        return np.column_stack([xy, xy @ [1, 2]]) if z else xy

    hole = [int(2 * b * 21 + 2 * a) for a, b in ring(2, 8)]  # by point index
    line = np.array([[0.25, 3.25, 6.75], [9.75, 3.25, 16.25]])
    rings = dict(boundaries=[ring(0, 10), ring(4.25, 5.75, True)], holes=[hole])
    r = rytri.triangulate(points, **rings, breaklines=[line])
    check_mesh(r)
    # 100 - 36 + the island's 2.25, exactly: every coordinate is a multiple of 1/4.
    assert (r.kept_area, r.keep, r.crossing_vertices) == (66.25, "rings", 2)
    assert np.bincount(r.constraint_roles).tolist() == [84, 50, 3]
    assert np.allclose(r.vertices[:, 2], r.vertices[:, :2] @ [1, 2], rtol=0, atol=1e-12)
    centre = r.vertices[r.triangles, :2].mean(axis=1)
    inside = lambda lo, hi: ((centre > lo) & (centre < hi)).all(axis=1)
    assert not (inside(2, 8) & ~inside(4.25, 5.75)).any()
    # The same surface from a hole point; the whole square with keep="all".
    r = rytri.triangulate(points, **rings, keep="hole_points", hole_points=[[3, 3]])
    assert r.kept_area == 66.25
    assert rytri.triangulate(points, **rings, keep="all").kept_area == 100


def test_coincident_points_merge_keeping_heights():
    points = np.array([[0, 0, 1], [4, 0, 2], [0, 4, 3], [0, 0, 5]], float)
    r = rytri.triangulate(points, duplicates="mean")
    assert r.vertices.tolist() == [[0, 0, 3], [4, 0, 2], [0, 4, 3]]
    assert r.point_vertex.tolist() == [0, 1, 2, 0]
    assert (r.repeated_points, r.height_conflicts, r.conflicts) == (1, 1, [(0, 3, 1.0, 5.0)])


SQUARE = np.array([[0, 0], [4, 0], [4, 4], [0, 4], [1, 1], [3, 1], [3, 3], [1, 3]], float)
BAD_ARGUMENTS = [
    (dict(points=np.zeros((3, 4))), r"points must be an \(n, 2\) or \(n, 3\) array, got shape"),
    (dict(points=[1.0, 2.0, 3.0]), r"got shape \(3,\)"),
    (dict(points="abc"), "points must hold numbers"),
    (dict(points=[[0, 0], [1, np.nan], [0, 1]]), r"points\[1\]: y is not finite \(nan\)"),
    (dict(breaklines=[[[0, 0], [np.inf, 1]]]), r"breaklines\[0\]\[1\]: x is not finite"),
    (dict(edges=[[0.5, 1]]), r"edges must be an \(e, 2\) integer array"),
    (dict(edges=[[0, 8]]), "edges names point 8 .at position 1., but points has 8 rows"),
    (dict(holes=[[0, -1, 2]]), r"holes\[0\] names point -1"),
    (dict(boundaries=[[0.5, 1, 2]]), r"boundaries\[0\] must be a 1-D integer array .* \(3,\)"),
    (dict(boundaries="abc"), "boundaries must be a sequence of polylines"),
    (dict(hole_points=[1, 2]), r"hole_points must be an \(h, 2\) array"),
    (dict(keep="inside"), 'keep must be .* not "inside"'),
    (dict(duplicates="last"), "duplicates must be"),
    (dict(cdt_tolerance=-1), "cdt_tolerance must be a finite number >= 0, not -1.0"),
    (dict(merge_distance=np.nan), "merge_distance must be"),
    (dict(default_z=np.inf), "default_z must be finite"),
    (dict(progress=3), "progress must be a callable"),
]


@pytest.mark.parametrize("arguments, message", BAD_ARGUMENTS)
def test_bad_arguments_raise_value_error(arguments, message):
    with pytest.raises(ValueError, match=message):
        rytri.triangulate(**{"points": SQUARE, **arguments})


FAILURES = [  # arguments, status, value, library status, words of the advice
    (dict(points=SQUARE[:2]), "triangulation failed", 4, 2, "at least 3 points"),
    (dict(points=[[0, 0], [1, 1], [2, 2], [3, 3]]), "triangulation failed", 4, 4, "one line"),
    (dict(points=[[0, 0], [1, 1], [2, 2]]), "zero area", 7, 0, "span an area"),
    (dict(points=[[0, 0], [1e-300, 1], [0, 1]]), "bad input", 1, 0, "rescale"),
    (dict(points=[[0, 0, 1], [1, 0, 1], [0, 1, 1], [0, 0, 5]], duplicates="error"),
     "height conflict", 2, 0, 'duplicates="first"'),
    (dict(points=[[0, 0], [1, 0], [0, 1], [0, 0]], dedupe=False),
     "triangulation failed", 4, 3, "dedupe=True"),
    (dict(boundaries=[[[5, 5], [6, 5], [6, 6]]]), "missing height", 3, 0, "default_z"),
    (dict(holes=[[0, 1, 2, 3]]), "nothing kept", 6, 0, "holes do not cover"),
    (dict(boundaries=[[0, 1, 2, 3]], holes=[[[2, -1, 0], [5, 2, 0], [2, 5, 0], [-1, 2, 0]]],
          split_crossing=False), "constraint missing", 5, 0, "split_crossing=True"),
    (dict(progress=lambda phase, done, total: phase != "vertices"), "stopped", 8, 0, ""),
]


@pytest.mark.parametrize("arguments, status, value, library, advice", FAILURES)
def test_failures_raise_triangulation_error(arguments, status, value, library, advice):
    with pytest.raises(rytri.TriangulationError) as failure:
        rytri.triangulate(**{"points": SQUARE, **arguments})
    e = failure.value
    assert (e.status, e.value, e.library_status) == (status, value, library)
    assert advice in e.advice and e.message in str(e)


def test_progress_reports_phases_and_its_exceptions_propagate():
    phases = []
    rytri.triangulate(SQUARE, progress=lambda *report: phases.append(report))
    assert {p for p, _, _ in phases} == {"merge", "vertices", "finish"}
    assert phases[-1] == ("finish", 3, 3)

    def fail(*report):
        raise KeyError("from the callback")

    with pytest.raises(KeyError, match="from the callback"):
        rytri.triangulate(SQUARE, progress=fail)


def test_arrays_are_handed_over_without_copies():
    points = np.random.default_rng(4).random((200_000, 3))
    tracemalloc.start()  # numpy reports every buffer it allocates to tracemalloc
    try:
        r = rytri.triangulate(points)
        traced = tracemalloc.get_traced_memory()[1]
    finally:
        tracemalloc.stop()
    # A copy of the input (4.8 MB) or of any result array (the triangles: 4.8 MB) would show.
    assert traced < 100_000 and len(r.triangles) > 390_000


def test_other_threads_run_during_a_large_triangulation():
    points = np.random.default_rng(5).random((600_000, 2))
    ticks, stop = [], threading.Event()

    def count():
        while not stop.is_set():
            ticks.append(time.perf_counter())
            time.sleep(0.001)

    counter = threading.Thread(target=count)
    counter.start()
    try:
        while not ticks:
            time.sleep(0.001)
        start = time.perf_counter()
        rytri.triangulate(points)
        end = time.perf_counter()
    finally:
        stop.set()
        counter.join()
    # Holding the GIL through the call would leave at most a tick or two in it; a loaded machine
    # still wakes a sleeping thread many times in the call's half second or more.
    during = sum(start < t < end for t in ticks)
    assert during >= 10, f"{during} ticks in {end - start:.2f} s"
