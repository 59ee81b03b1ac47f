// Finishing: the triangles kept inside boundaries, holes and islands. Oracles: the kept area,
// summed exactly (GMP), equals the rings' areas with their signs; every working triangle is kept
// exactly when its centroid is inside by an even-odd ray count over the rings; the output is
// the working list's kept entries, in order, copied whole.
#include <gmpxx.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>

#include "mesh/RyTriangulationImpl.h"
#include "support/MeshValidator.h"
#include "support/TestSupport.h"

namespace {

using namespace rytest;
using Ring = std::vector<std::array<double, 2>>;

/// Twice the area of a ring, exactly, whatever its orientation.
mpq_class twiceArea(const Ring& r) {
    mpq_class a = 0;
    for (std::size_t i = 0; i < r.size(); ++i) {
        const auto& p = r[i];
        const auto& q = r[(i + 1) % r.size()];
        a += mpq_class(p[0]) * mpq_class(q[1]) - mpq_class(p[1]) * mpq_class(q[0]);
    }
    return abs(a);
}

struct Scene {
    Points points;
    Edges edges;
    std::vector<Ring> rings;  // once per time its edges were given
    void ring(const Ring& r, int times = 1) {
        const int first = int(points.size());
        for (const auto& p : r) points.emplace_back(p[0], p[1], 0);
        for (int t = 0; t < times; ++t) {
            for (int i = 0; i < int(r.size()); ++i) {
                edges.emplace_back(first + i, first + (i + 1) % int(r.size()));
            }
            rings.push_back(r);
        }
    }
    void scatter(int n, double lo, double hi, std::uint64_t seed) {
        for (const PkGePoint3d& p : uniformPoints(n, seed, lo, hi)) points.push_back(p);
    }
};

Ring square(double x0, double y0, double x1, double y1) {
    return {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}};
}

Ring noisyCircle(double cx, double cy, double r, int n, Rng& rng) {
    Ring ring;
    for (int i = 0; i < n; ++i) {
        const double a = 6.283185307179586 * (i + 0.4 * rng.uniform()) / n;
        const double rr = r * (1.0 + 0.3 * (rng.uniform() - 0.5));
        ring.push_back({cx + rr * std::cos(a), cy + rr * std::sin(a)});
    }
    return ring;
}

/// Crossings of the ray from p towards +x with the rings' edges (exact orientation).
int crossings(const double* p, const std::vector<Ring>& rings) {
    int count = 0;
    for (const Ring& r : rings) {
        for (std::size_t i = 0; i < r.size(); ++i) {
            const double *a = r[i].data(), *b = r[(i + 1) % r.size()].data();
            if ((a[1] > p[1]) == (b[1] > p[1])) continue;
            const double o = orient2d(a, b, p);
            count += b[1] > a[1] ? o > 0 : o < 0;
        }
    }
    return count;
}

/// Both insertion orders: a valid mesh, the exact kept area plus[] - minus[], the even-odd rule,
/// and the output as the working list's kept entries in order.
void checkScene(const Scene& s, const std::vector<Ring>& plus, const std::vector<Ring>& minus) {
    for (const bool sorted : {true, false}) {
        const Outcome run = triangulate(s.points, &s.edges, sorted);
        ASSERT_EQ(run.status, StatusOk) << describe(s.points, s.edges);
        Checks c;
        c.required = s.edges;
        c.crossingsFrom = int(s.points.size());
        EXPECT_EQ(validate(run.mesh(), c), "");
        run.tri->deleteOuterTrianglesAndHoles();
        const std::vector<PkMeshTriangle> out = run.tri->getMeshTriangles();
        const std::vector<PkMeshPoint3d> v = run.tri->getMeshVertices();
        mpq_class area = 0;
        for (const Ring& r : plus) area -= twiceArea(r);
        for (const Ring& r : minus) area += twiceArea(r);
        std::size_t k = 0;
        for (const PkMeshTriangle& t : run.mesh().triangles) {
            if (isGhost(t)) continue;
            const int* c3 = triVerts(t);
            const double* p[3] = {vertexXY(v[std::size_t(c3[0])]),
                                  vertexXY(v[std::size_t(c3[1])]),
                                  vertexXY(v[std::size_t(c3[2])])};
            const double centroid[2] = {(p[0][0] + p[1][0] + p[2][0]) / 3,
                                        (p[0][1] + p[1][1] + p[2][1]) / 3};
            const bool kept = k < out.size() && std::memcmp(&out[k], &t, sizeof t) == 0;
            EXPECT_EQ(kept, crossings(centroid, s.rings) % 2 == 1)
                << c3[0] << " " << c3[1] << " " << c3[2];
            if (!kept) continue;
            ++k;
            for (int i = 0; i < 3; ++i) {
                area += mpq_class(p[i][0]) * mpq_class(p[(i + 1) % 3][1]) -
                        mpq_class(p[i][1]) * mpq_class(p[(i + 1) % 3][0]);
            }
        }
        EXPECT_EQ(k, out.size()) << "kept triangles out of order, or ghosts kept";
        EXPECT_EQ(area, 0) << "kept area minus expected area (twice): " << area.get_d();
    }
}

TEST(Finishing, BoundaryWithHoleAndIslandInTheHole) {
    Scene s;
    s.ring(square(0, 0, 64, 64));
    s.ring(square(16, 16, 48, 48));
    s.scatter(300, -8, 72, 6);
    checkScene(s, {square(0, 0, 64, 64)}, {square(16, 16, 48, 48)});
    s.ring(square(24, 24, 40, 36));
    checkScene(s, {square(0, 0, 64, 64), square(24, 24, 40, 36)}, {square(16, 16, 48, 48)});
}

TEST(Finishing, SharedEdgesTouchingRingsAndTheHull) {
    // A hole touching the boundary at a vertex.
    Scene touch;
    const Ring outer{{0, 0}, {64, 0}, {64, 64}, {0, 64}, {0, 32}},
        hole{{0, 32}, {20, 20}, {30, 32}, {20, 44}};
    touch.points = {{0, 0, 0},
                    {64, 0, 0},
                    {64, 64, 0},
                    {0, 64, 0},
                    {0, 32, 0},
                    {20, 20, 0},
                    {30, 32, 0},
                    {20, 44, 0}};
    touch.edges = {PkMeshEdge(0, 1),
                   PkMeshEdge(1, 2),
                   PkMeshEdge(2, 3),
                   PkMeshEdge(3, 4),
                   PkMeshEdge(4, 0),
                   PkMeshEdge(4, 5),
                   PkMeshEdge(5, 6),
                   PkMeshEdge(6, 7),
                   PkMeshEdge(7, 4)};
    touch.rings = {outer, hole};
    touch.scatter(150, -4, 68, 7);
    checkScene(touch, {outer}, {hole});
    // Two squares sharing an edge (recorded twice): both reached at level 1, both kept.
    Scene shared;
    shared.points = {{0, 0, 0}, {32, 0, 0}, {32, 32, 0}, {0, 32, 0}, {64, 0, 0}, {64, 32, 0}};
    shared.edges = {PkMeshEdge(0, 1),
                    PkMeshEdge(1, 2),
                    PkMeshEdge(2, 3),
                    PkMeshEdge(3, 0),
                    PkMeshEdge(1, 4),
                    PkMeshEdge(4, 5),
                    PkMeshEdge(5, 2),
                    PkMeshEdge(2, 1)};
    shared.rings = {square(0, 0, 32, 32), square(32, 0, 64, 32)};
    shared.scatter(120, -8, 72, 8);
    checkScene(shared, shared.rings, {});
    // A boundary on the convex hull.
    Scene hull;
    hull.ring(square(0, 0, 100, 60));
    hull.scatter(250, 1, 59, 9);
    checkScene(hull, hull.rings, {});
    // Overlapping squares: the overlap is crossed twice from outside and dropped.
    Scene overlap;
    overlap.ring(square(0, 0, 32, 32));
    overlap.ring(square(16, 16, 48, 48));
    overlap.scatter(150, -4, 52, 12);
    checkScene(overlap, overlap.rings, {square(16, 16, 32, 32), square(16, 16, 32, 32)});
}

// Even crossings everywhere keep nothing: no constraints, an open polyline, a boundary given
// twice (also when a later constraint splits it: both halves keep the repeat).
TEST(Finishing, EvenCrossingsKeepNothing) {
    Scene open;
    open.points = {{10, 10, 0}, {50, 12, 0}, {52, 50, 0}, {12, 48, 0}};
    open.edges = {PkMeshEdge(0, 1), PkMeshEdge(1, 2), PkMeshEdge(2, 3)};
    open.scatter(200, 0, 64, 10);
    checkScene(open, {}, {});
    Scene twice;
    twice.ring(square(8, 8, 56, 56), 2);
    twice.scatter(200, 0, 64, 11);
    checkScene(twice, {}, {});
    twice.points.emplace_back(0, 30, 0);
    twice.points.emplace_back(64, 34, 0);
    twice.edges.emplace_back(int(twice.points.size()) - 2, int(twice.points.size()) - 1);
    checkScene(twice, {}, {});
    // With a hole given once inside it, the ring between is at level 2 and the hole at 3.
    twice.ring(square(24, 24, 40, 40));
    checkScene(twice, {square(24, 24, 40, 40)}, {});
    for (const bool sorted : {true, false}) {
        const Outcome plain = triangulate(uniformPoints(300, 4), nullptr, sorted);
        plain.tri->deleteOuterTrianglesAndHoles();
        EXPECT_TRUE(plain.tri->getMeshTriangles().empty());
    }
}

TEST(Finishing, RandomPolygonsWithHolesAndIslands) {
    for (std::uint64_t seed = 1; seed <= 10; ++seed) {
        Rng rng(seed);
        Scene s;
        s.ring(noisyCircle(0, 0, 1000, 60 + rng.below(200), rng));
        std::vector<Ring> plus = s.rings, minus;
        for (int cell = 0; cell < 25; ++cell) {
            const double cx = (cell % 5 - 2) * 220 + rng.uniform(-20, 20);
            const double cy = (cell / 5 - 2) * 220 + rng.uniform(-20, 20);
            if (rng.below(3) == 0 || std::hypot(cx, cy) > 600) continue;
            minus.push_back(noisyCircle(cx, cy, 80, 5 + rng.below(40), rng));
            s.ring(minus.back());
            if (rng.below(2)) {
                plus.push_back(noisyCircle(cx, cy, 30, 3 + rng.below(20), rng));
                s.ring(plus.back());
            }
        }
        s.scatter(1500, -1400, 1400, seed + 100);
        checkScene(s, plus, minus);
    }
}

// The finishing calls append to the output and leave the working mesh alone; a lowered flood
// cap ends a level early, and what it did not reach counts as inside (odd): kept, ghosts too.
TEST(Finishing, AppendsAndCaps) {
    Scene s;
    s.ring(square(0, 0, 64, 64));
    s.ring(square(16, 16, 48, 48));
    s.scatter(200, -8, 72, 13);
    const Outcome run = triangulate(s.points, &s.edges);
    const RyTriangulationImpl before = run.mesh();
    run.tri->deleteOuterTrianglesAndHoles();
    const std::vector<PkMeshTriangle> once = run.tri->getMeshTriangles();
    run.tri->deleteOuterTrianglesAndHoles();
    run.tri->deleteGhostTriangle();
    const std::vector<PkMeshTriangle> all = run.tri->getMeshTriangles();
    std::size_t real = 0;
    for (const PkMeshTriangle& t : before.triangles) real += !isGhost(t);
    ASSERT_EQ(all.size(), 2 * once.size() + real);
    EXPECT_EQ(std::memcmp(all.data() + once.size(), once.data(), once.size() * sizeof once[0]), 0);
    run.mesh().meshTriangles.clear();
    EXPECT_EQ(differences(run.mesh(), before), "");
    for (const int cap : {0, 1, 5, 60}) {
        RyTriangulation capped(*run.tri);
        record(capped).maxIterations = cap;
        capped.deleteOuterTrianglesAndHoles();
        const std::vector<PkMeshTriangle> out = capped.getMeshTriangles();
        EXPECT_GT(out.size(), once.size()) << cap;
        EXPECT_LE(out.size(), before.triangles.size());
    }
}

}  // namespace
