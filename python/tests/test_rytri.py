# The rytri module through its public call: scipy's Delaunay as an oracle, exact areas of rings,
# every error path, arrays handed over without copies, the GIL released during the call; the
# contours and volumes of a pyramid and a plane against closed forms.
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
    (dict(max_edge=0), r"max_edge must be a finite number > 0, not 0.0"),
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
    (dict(max_edge=0.5), "nothing kept", 6, 0, "a larger max_edge"),
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


def pyramid():
    """z = 4 - max(|x|, |y|) on the integer grid of [-4, 4]^2 with its ridges as breaklines, so
    every triangle lies in one face: the surface is the pyramid exactly."""
    g = np.arange(-4, 5)
    x, y = (a.ravel() for a in np.meshgrid(g, g))
    ridges = [[(s * i + 4) * 9 + i + 4 for i in range(-4, 5)] for s in (1, -1)]
    return rytri.triangulate(np.column_stack([x, y, 4 - np.maximum(abs(x), abs(y))]),
                             breaklines=ridges)


def test_pyramid_contours_are_squares_and_its_volumes_exact():
    r = pyramid()
    # Levels 0 to 4: none at the foot (every vertex counts as above) nor at the apex (a peak).
    lines = r.contours(interval=1)
    assert [(line.level, line.closed) for line in lines] == [(1, True), (2, True), (3, True)]
    assert r.contours([]) == [] and len(r.contours([3.5, 0.5, 3.5, 9])) == 2
    for line in lines + r.contours([3.5, 0.5, 3.5, 9]):
        x, y, z = line.points.T
        side = 4 - line.level
        assert (np.maximum(abs(x), abs(y)) == side).all() and (z == line.level).all()
        # Counter-clockwise around the higher ground; the first point is not repeated.
        assert (x * np.roll(y, -1) - np.roll(x, -1) * y).sum() / 2 == (2 * side) ** 2
    # Datum 1.5: a pyramid of height 2.5 on 5 x 5 above; below, the ring of squares of
    # half-side s from 2.5 to 4, depth s - 2.5: integral of 8 s (s - 2.5) ds = 31.5.
    expected = (1.5, 125 / 6, 31.5, 25, 39, 64, 64 * math.sqrt(2))
    assert np.allclose(r.volumes(1.5), expected, rtol=1e-13, atol=0)
    r.vertices[:, 2] += 1  # computed from the arrays as they stand
    assert np.allclose(r.volumes(2.5), (2.5,) + expected[1:], rtol=1e-13, atol=0)


def test_plane_contours_are_straight_and_its_volumes_exact():
    corners = [[0, 0], [4, 0], [4, 4], [0, 4]]
    xy = np.vstack([corners, np.random.default_rng(6).random((300, 2)) * 4])
    r = rytri.triangulate(np.column_stack([xy, 3 * xy[:, 0] - xy[:, 1]]))
    # Cut where 3x > y: the square but the triangle (0, 0), (0, 4), (4/3, 4), integrated by hand.
    v = r.volumes(0)
    assert np.allclose(v, (0, 608 / 9, 32 / 9, 40 / 3, 8 / 3, 16, 16 * math.sqrt(11)), rtol=1e-12)
    assert (v.cut, v.fill_area, v.area_3d) == (v[1], v[4], v[6])
    lines = r.contours(interval=2, base=1)  # heights from -4 to 12
    assert [line.level for line in lines] == [-3, -1, 1, 3, 5, 7, 9, 11]
    for level, p, closed in lines:
        assert not closed and np.allclose(3 * p[:, 0] - p[:, 1], level, rtol=0, atol=1e-12)
        assert ((p[[0, -1], :2] == 0) | (p[[0, -1], :2] == 4)).any(axis=1).all()
        d = p[-1] - p[0]
        assert 3 * -d[1] - d[0] > 0  # the rising side, (3, -1), on the left


def test_max_edge_trims_the_slivers_off_the_hull_but_not_across_lines():
    g = np.arange(5.0)
    x, y = (a.ravel() for a in np.meshgrid(g, g))
    points = np.column_stack([np.append(x, 2), np.append(y, -30)])  # a far point below the grid
    r = rytri.triangulate(points, max_edge=1.5)
    assert (r.kept_area, r.trimmed_triangles, len(r.triangles)) == (16, 4, 32)
    check_mesh(r)
    r = rytri.triangulate(points, max_edge=1.5, breaklines=[[25, 2]])  # to the far point
    assert (r.kept_area, r.trimmed_triangles) == (46, 2)


PRODUCT_ERRORS = [
    (lambda r: r.contours(), "contours needs either levels or interval"),
    (lambda r: r.contours([1], interval=1), "contours needs either levels or interval"),
    (lambda r: r.contours(interval=0), "interval must be a finite number > 0, not 0.0"),
    (lambda r: r.contours(interval=np.inf), "interval must be a finite number > 0, not inf"),
    (lambda r: r.contours(interval=1e-9), "1e-09 gives more than 100000 levels"),
    (lambda r: r.contours(interval=1, base=np.nan), "base must be finite, not nan"),
    (lambda r: r.contours([1], base=1), "base goes with interval, not with levels"),
    (lambda r: r.contours(1.0), "levels must be a 1-D array of numbers"),
    (lambda r: r.contours(["a"]), "levels must be a 1-D array of numbers"),
    (lambda r: r.contours([1, np.nan]), r"levels\[1\] is not finite \(nan\)"),
    (lambda r: r.volumes(-np.inf), "datum must be finite, not -inf"),
    (lambda r: r.triangles.__setitem__((1, 2), 8) or r.volumes(0),
     r"the result's triangles\[1\] names vertex 8 of 8"),
    (lambda r: r.neighbors.__setitem__((2, 0), -2) or r.contours([1]),
     r"the result's neighbors\[2\] names triangle -2 of"),
]


@pytest.mark.parametrize("call, message", PRODUCT_ERRORS)
def test_bad_product_arguments_raise_value_error(call, message):
    with pytest.raises(ValueError, match=message):
        call(rytri.triangulate(np.column_stack([SQUARE, SQUARE[:, 0]])))
