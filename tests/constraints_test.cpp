// Constraint edges, by the validator's constraint checks on random segment soups (with and without
// crossing splits), cuts at vertices on a segment and repeats. Finishing by two oracles: the kept
// area, summed exactly (GMP), is the rings' signed areas; a triangle is kept exactly when its
// centroid is inside by an even-odd ray count.
#include <gmpxx.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <utility>

#include "state/RyTriangulationImpl.h"
#include "support/MeshValidator.h"
#include "support/TestSupport.h"

namespace {

using namespace rytest;

/// The validator's verdict on a run over `n` input points: with splits every input segment is a
/// chain; without, crossed constraints leave the mesh unrepaired and only `last` must be one.
std::string check(const Outcome& run, const Edges& edges, int n, const Edges& last = {}) {
    Checks c;
    const bool split = run.mesh().options & RyTriangulationImpl::bSplitCrossingConstraints;
    c.required = split ? edges : last;
    c.allowMissing = !split;
    c.delaunay = split;
    c.crossingsFrom = n;
    c.inputs = edges;
    // Every slot is live: crossed triangles are re-triangulated into the slots they leave.
    const RyTriangulationImpl& m = run.mesh();
    if (!m.mesh.freeTriangles.empty() ||
        m.mesh.triangles.size() != 2 * m.mesh.vertices.size() - 2) {
        return "slots not reused: " + std::to_string(m.mesh.triangles.size());
    }
    return validate(m, c);
}

TEST(Constraints, RandomSegmentSoups) {
    for (std::uint64_t seed = 1; seed <= 12; ++seed) {
        const Points points = seed % 3 ? uniformPoints(200, seed) : integerGrid(15, 14, 64);
        Rng rng(seed * 7919);
        Edges edges;
        for (int i = 0; i < 40; ++i) edges.emplace_back(rng.below(200), rng.below(200));
        for (const bool split : {true, false}) {
            const Outcome run = triangulate(points, &edges, seed % 2 == 0, split);
            ASSERT_EQ(run.status, StatusOk) << describe(points, edges);
            EXPECT_EQ(check(run, edges, int(points.size()), {edges.back()}), "") << seed << split;
        }
    }
}

// A segment through vertices on its line is cut there (in the first turn or in the walk), not at
// points beyond its ends; a segment given again, or overlapping, counts shared pieces twice.
TEST(Constraints, SegmentsThroughVerticesAreCutAndRepeatsCounted) {
    Points points;
    for (int i = 0; i <= 6; ++i) points.emplace_back(2.0 * i, 1.0 * i, 0);  // 0..6 on y = x / 2
    for (int i = 0; i < 6; ++i) {
        points.emplace_back(2.0 * i + 0.7, i + 1.9, 0);
        points.emplace_back(2.0 * i + 1.3, i - 0.8, 0);
    }
    points.emplace_back(-2, -1, 0);
    points.emplace_back(14, 7, 0);
    const Edges edges = {PkMeshEdge(0, 6), PkMeshEdge(2, 4), PkMeshEdge(6, 0)};
    for (const bool sorted : {true, false}) {
        const Outcome run = triangulate(points, &edges, sorted, true);
        ASSERT_EQ(run.status, StatusOk);
        EXPECT_EQ(check(run, edges, int(points.size())), "");
        const RyTriangulationImpl& m = run.mesh();
        EXPECT_EQ(m.constraints.edges.size(), 6u);
        for (int i = 0; i < 6; ++i) {
            const auto r = m.constraints.repeats.find(PkMeshEdge(i, i + 1));
            EXPECT_EQ(r == m.constraints.repeats.end() ? 0 : r->second, i == 2 || i == 3 ? 2 : 1);
        }
    }
    // A lattice: the segment (0, 0)-(18, 9) meets (2k, k) only inside the walk; the first of
    // them, (2, 1), is vertex 0 (a walk must not take index 0 for "no vertex met").
    Points grid = integerGrid(20, 20);
    std::swap(grid[0], grid[22]);
    const Edges diagonal = {PkMeshEdge(22, 9 * 20 + 18)};
    const Outcome run = triangulate(grid, &diagonal);
    ASSERT_EQ(run.status, StatusOk);
    EXPECT_EQ(check(run, diagonal, 400), "");
    EXPECT_EQ(run.mesh().constraints.edges.size(), 9u);
}

/// Twice the signed area of a closed ring, exactly.
mpq_class area(const Points& r) {
    mpq_class a = 0;
    for (std::size_t i = 0, j = r.size() - 1; i < r.size(); j = i++) {
        a += mpq_class(r[j].x) * mpq_class(r[i].y) - mpq_class(r[j].y) * mpq_class(r[i].x);
    }
    return a;
}

struct Scene {
    Points points;
    Edges edges;
    std::vector<Points> rings;  // once per time its edges were given
    Scene& ring(const Points& r, int times = 1) {
        for (int t = 0, first = int(points.size()); t < times; ++t) {
            for (int i = 0, n = int(r.size()); i < n; ++i)
                edges.emplace_back(first + i, first + (i + 1) % n);
            rings.push_back(r);
        }
        points.insert(points.end(), r.begin(), r.end());
        return *this;
    }
    Scene& scatter(int n, double lo, double hi, std::uint64_t seed) {
        const Points more = uniformPoints(n, seed, lo, hi);
        points.insert(points.end(), more.begin(), more.end());
        return *this;
    }
};

Points square(double x0, double y0, double x1, double y1) {
    return {{x0, y0, 0}, {x1, y0, 0}, {x1, y1, 0}, {x0, y1, 0}};
}

/// Both insertion orders: a valid mesh, the even-odd rule, the output as the working list's kept
/// entries in order, and the kept area exactly `expected` (rings' areas, in absolute value).
void checkScene(const Scene& s, const std::vector<Points>& plus, const std::vector<Points>& minus) {
    mpq_class expected = 0;
    for (const Points& r : plus) expected += abs(area(r));
    for (const Points& r : minus) expected -= abs(area(r));
    for (const bool sorted : {true, false}) {
        const Outcome run = triangulate(s.points, &s.edges, sorted);
        ASSERT_EQ(run.status, StatusOk) << describe(s.points, s.edges);
        Checks c;
        c.required = s.edges;
        c.crossingsFrom = int(s.points.size());
        EXPECT_EQ(validate(run.mesh(), c), "");
        run.tri->deleteOuterTrianglesAndHoles();
        const std::vector<PkMeshTriangle> out = run.tri->getMeshTriangles();
        const std::vector<PkMeshPoint3d>& v = run.mesh().mesh.vertices;
        std::size_t k = 0;
        mpq_class kept = 0;
        for (const PkMeshTriangle& t : run.mesh().mesh.triangles) {
            if (isGhost(t)) continue;
            Points corners;
            for (int i = 0; i < 3; ++i)
                corners.push_back(v[std::size_t(triVerts(t)[i])].getPoint());
            const double p[2] = {(corners[0].x + corners[1].x + corners[2].x) / 3,
                                 (corners[0].y + corners[1].y + corners[2].y) / 3};
            int crossings = 0;  // of the ray from the centroid towards +x
            for (const Points& r : s.rings) {
                for (std::size_t i = 0, j = r.size() - 1; i < r.size(); j = i++) {
                    const double o = orient2d(&r[j].x, &r[i].x, p);
                    crossings +=
                        (r[j].y > p[1]) != (r[i].y > p[1]) && (r[i].y > r[j].y ? o > 0 : o < 0);
                }
            }
            const bool isKept = k < out.size() && !std::memcmp(&out[k], &t, sizeof t);
            EXPECT_EQ(isKept, crossings % 2 == 1) << triVerts(t)[0] << " " << triVerts(t)[1];
            if (isKept) ++k, kept += area(corners);
        }
        EXPECT_EQ(k, out.size()) << "kept triangles out of order, or ghosts kept";
        EXPECT_EQ(kept, expected) << "kept area " << kept.get_d() << ", expected "
                                  << expected.get_d();
    }
}

TEST(Finishing, RingsHolesIslandsAndTheirCombinations) {
    const Points outer = square(0, 0, 64, 64), hole = square(16, 16, 48, 48),
                 island = square(24, 24, 40, 36);
    checkScene(Scene().ring(outer).ring(hole).scatter(300, -8, 72, 6), {outer}, {hole});
    checkScene(Scene().ring(outer).ring(hole).ring(island).scatter(300, -8, 72, 6),
               {outer, island},
               {hole});
    // A hole touching the boundary at a vertex: shared vertex 4.
    Scene touch;
    touch.points = parse("0 0 64 0 64 64 0 64 0 32 20 20 30 32 20 44");
    touch.edges = edges("0 1 1 2 2 3 3 4 4 0 4 5 5 6 6 7 7 4");
    touch.rings = {parse("0 0 64 0 64 64 0 64 0 32"), parse("0 32 20 20 30 32 20 44")};
    checkScene(touch.scatter(150, -4, 68, 7), {touch.rings[0]}, {touch.rings[1]});
    // Two squares sharing an edge (recorded twice): both reached at level 1, both kept.
    Scene shared;
    shared.points = parse("0 0 32 0 32 32 0 32 64 0 64 32");
    shared.edges = edges("0 1 1 2 2 3 3 0 1 4 4 5 5 2 2 1");
    shared.rings = {square(0, 0, 32, 32), square(32, 0, 64, 32)};
    checkScene(shared.scatter(120, -8, 72, 8), shared.rings, {});
    // A boundary on the convex hull; overlapping squares keep their symmetric difference.
    checkScene(
        Scene().ring(square(0, 0, 100, 60)).scatter(250, 1, 59, 9), {square(0, 0, 100, 60)}, {});
    const Points a = square(0, 0, 32, 32), b = square(16, 16, 48, 48),
                 both = square(16, 16, 32, 32);
    checkScene(Scene().ring(a).ring(b).scatter(150, -4, 52, 12), {a, b}, {both, both});
}

// Even crossings everywhere keep nothing: an open polyline, a boundary given twice (also when a
// later constraint splits it: both halves keep the repeat).
TEST(Finishing, EvenCrossingsKeepNothing) {
    Scene twice;
    twice.points = parse("10 10 50 12 52 50 12 48");
    twice.edges = edges("0 1 1 2 2 3");
    checkScene(twice.scatter(200, 0, 64, 10), {}, {});
    checkScene(twice.ring(square(8, 8, 56, 56), 2).scatter(200, 0, 64, 11), {}, {});
    twice.points.emplace_back(0, 30, 0);
    twice.points.emplace_back(64, 34, 0);
    twice.edges.emplace_back(int(twice.points.size()) - 2, int(twice.points.size()) - 1);
    checkScene(twice, {}, {});
    // With a hole given once inside it, the ring between is at level 2 and the hole at 3.
    checkScene(twice.ring(square(24, 24, 40, 40)), {square(24, 24, 40, 40)}, {});
}

}  // namespace
