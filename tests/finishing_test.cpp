// Outer-area and hole removal: depth labelling across constraint edges and the output list.
//
// Oracles: the kept triangles' area, summed exactly, equals the area of the boundaries minus the
// holes plus the islands; each kept (or dropped) triangle's centroid is inside (outside) by an
// independent even-odd ray count over the input rings; the base validator and the constraint
// checks on every mesh.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#ifdef RY_HAVE_GMP
#include <gmpxx.h>
#endif

#include "RyTriangulation.h"
#include "mesh/LocalIndex.h"
#include "mesh/RyTriangulationAccess.h"
#include "mesh/RyTriangulationImpl.h"
#include "support/ConstraintChecks.h"
#include "support/MeshValidator.h"
#include "support/PointGenerators.h"

namespace {

using Points = std::vector<PkGePoint3d>;
using Edges = std::vector<PkMeshEdge>;
using Ring = std::vector<std::array<double, 2>>;

/// Points and closed rings of constraint edges over them.
struct Scene {
    Points points;
    Edges edges;
    std::vector<Ring> rings;  // every closed ring, once per time its edges were given

    /// Appends a closed ring through new points.
    void addRing(const Ring& ring, int times = 1) {
        const int first = int(points.size());
        for (const auto& p : ring) points.emplace_back(p[0], p[1], 0);
        for (int t = 0; t < times; ++t) {
            for (int i = 0; i < int(ring.size()); ++i) {
                edges.push_back(PkMeshEdge(first + i, first + (i + 1) % int(ring.size())));
            }
            rings.push_back(ring);
        }
    }
};

struct Cdt {
    std::unique_ptr<RyTriangulation> handle;
    RyTriangulationImpl* impl = nullptr;
    PkTriangulationStatus status = StatusOk;
};

Cdt runCdt(const Points& points, const Edges& edges, bool spatialSort = true, bool split = true) {
    std::srand(1);  // first triangle and walks draw from rand(): reproducible meshes
    Cdt c;
    c.handle = std::make_unique<RyTriangulation>(spatialSort, split);
    c.status = c.handle->delaunayTriangulationWithConstraints(points, edges);
    c.impl = RyTriangulationAccess::impl(*c.handle);
    return c;
}

std::string describe(const Scene& s) {
    std::ostringstream out;
    out.precision(17);
    out << s.points.size() << " points, " << s.edges.size() << " edges; points:";
    for (const PkGePoint3d& p : s.points) out << " (" << p.x << ", " << p.y << ")";
    out << "\nedges:";
    for (const PkMeshEdge& e : s.edges)
        out << " (" << e.EdgeIndex1() << ", " << e.EdgeIndex2() << ")";
    return out.str();
}

int ringSign(const Ring& ring) {
    rytest::ExactSum a;
    a.addTwiceArea(ring);
    return a.sign();
}

/// Exact check: kept area == sum of `plus` ring areas - sum of `minus` ring areas.
void expectKeptArea(const RyTriangulationImpl& m,
                    const std::vector<Ring>& plus,
                    const std::vector<Ring>& minus) {
    rytest::ExactSum sum;
    for (const PkMeshTriangle& t : m.meshTriangles) {
        const int* v = triVerts(t);
        ASSERT_FALSE(v[0] < 0 || v[1] < 0 || v[2] < 0) << "a ghost triangle was kept";
        sum.addTwiceArea(vertexXY(m.vertices[std::size_t(v[0])]),
                         vertexXY(m.vertices[std::size_t(v[1])]),
                         vertexXY(m.vertices[std::size_t(v[2])]));
    }
    for (const Ring& r : plus) sum.addTwiceArea(r, -ringSign(r));
    for (const Ring& r : minus) sum.addTwiceArea(r, ringSign(r));
    EXPECT_EQ(sum.sign(), 0) << "kept area minus expected area (twice): " << sum.approximate();
}

/// Even-odd count of the ring edges crossed by the ray from p towards +x (exact orientation).
int rayCrossings(const double* p, const std::vector<Ring>& rings) {
    int count = 0;
    for (const Ring& r : rings) {
        for (std::size_t i = 0; i < r.size(); ++i) {
            const double* a = r[i].data();
            const double* b = r[(i + 1) % r.size()].data();
            if ((a[1] > p[1]) == (b[1] > p[1])) continue;
            // The crossing lies right of p when p is on the side of a->b facing -x.
            const double o = orient2d(a, b, p);
            if (b[1] > a[1] ? o > 0 : o < 0) ++count;
        }
    }
    return count;
}

/// Every real triangle is kept exactly when its centroid lies inside by the even-odd rule.
void expectKeptByParity(const RyTriangulationImpl& m, const std::vector<Ring>& rings) {
    std::set<std::array<int, 3>> kept;
    for (const PkMeshTriangle& t : m.meshTriangles) {
        const int* v = triVerts(t);
        kept.insert({v[0], v[1], v[2]});
    }
    int wrong = 0;
    std::string first;
    for (const PkMeshTriangle& t : m.triangles) {
        if (isGhost(t)) continue;
        const int* v = triVerts(t);
        double c[2] = {0, 0};
        for (int k = 0; k < 3; ++k) {
            c[0] += vertexXY(m.vertices[std::size_t(v[k])])[0] / 3;
            c[1] += vertexXY(m.vertices[std::size_t(v[k])])[1] / 3;
        }
        const bool inside = rayCrossings(c, rings) % 2 == 1;
        if (inside != (kept.count({v[0], v[1], v[2]}) == 1)) {
            if (wrong++ == 0) {
                first = "(" + std::to_string(v[0]) + ", " + std::to_string(v[1]) + ", " +
                        std::to_string(v[2]) + ") inside " + std::to_string(inside);
            }
        }
    }
    EXPECT_EQ(wrong, 0) << "triangles kept against the even-odd rule, first " << first;
}

void expectValid(const RyTriangulationImpl& m, const Edges& edges, int inputVertexCount) {
    MeshValidatorOptions options;
    RY_EXPECT_VALID_MESH(m, options);
    rytest::ConstraintCheckOptions c;
    c.requiredSegments = edges;
    c.inputSegments = edges;
    c.inputVertexCount = inputVertexCount;
    const std::vector<std::string> v = rytest::checkConstraintRecords(m, c);
    EXPECT_TRUE(v.empty()) << formatViolations(v);
}

Ring square(double x0, double y0, double x1, double y1) {
    return {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}};
}

/// A star-shaped noisy circle of n vertices.
Ring noisyCircle(double cx, double cy, double r, int n, double noise, rytest::Rng& rng) {
    Ring ring;
    for (int i = 0; i < n; ++i) {
        const double a = 6.283185307179586 * (i + 0.4 * rng.uniform()) / n;
        const double rr = r * (1.0 + noise * (rng.uniform() - 0.5));
        ring.push_back({cx + rr * std::cos(a), cy + rr * std::sin(a)});
    }
    return ring;
}

void addPoints(Scene& s, int n, double lo, double hi, std::uint64_t seed) {
    const Points extra = rytest::uniformPoints(n, seed, lo, hi);
    s.points.insert(s.points.end(), extra.begin(), extra.end());
}

/// Runs the scene in both insertion orders and checks area, parity and validity.
void checkScene(const Scene& s,
                const std::vector<Ring>& plus,
                const std::vector<Ring>& minus,
                bool parity = true) {
    for (bool sort : {true, false}) {
        SCOPED_TRACE(sort ? "sorted insertion" : "shuffled insertion");
        Cdt c = runCdt(s.points, s.edges, sort);
        ASSERT_EQ(c.status, StatusOk) << describe(s);
        c.handle->deleteOuterTrianglesAndHoles();
        const RyTriangulationImpl& m = *c.impl;
        expectValid(m, s.edges, int(s.points.size()));
        expectKeptArea(m, plus, minus);
        if (parity) expectKeptByParity(m, s.rings);
        EXPECT_EQ(c.handle->getMeshTriangles().size(), m.meshTriangles.size());
    }
}

// ---- the exact oracle itself
// ----------------------------------------------------------------------

TEST(ExactAreaOracle, AgreesWithRationalArithmetic) {
    rytest::Rng rng(77);
    for (int round = 0; round < 200; ++round) {
        rytest::ExactSum sum;
#ifdef RY_HAVE_GMP
        mpq_class exact = 0;
#endif
        double approx = 0;
        std::vector<std::array<double, 3>> terms;
        for (int i = 0; i < 20; ++i) {
            const double a = std::ldexp(rng.uniform(-1, 1), int(rng.below(200)) - 100);
            const double b = std::ldexp(rng.uniform(-1, 1), int(rng.below(200)) - 100);
            const int sign = rng.below(2) ? 1 : -1;
            sum.addProduct(a, b, sign);
            terms.push_back({a, b, double(sign)});
#ifdef RY_HAVE_GMP
            exact += sign * mpq_class(a) * mpq_class(b);
#endif
            approx += sign * a * b;
        }
#ifdef RY_HAVE_GMP
        EXPECT_EQ(sum.sign(), sgn(exact)) << round;
        EXPECT_NEAR(sum.approximate(), exact.get_d(), 1e-14 * std::fabs(exact.get_d())) << round;
#endif
        EXPECT_NEAR(sum.approximate(), approx, 1e-12 * std::fabs(approx) + 1e-300);
        // Taking the same products away again, in reverse order, leaves exactly zero.
        for (auto it = terms.rbegin(); it != terms.rend(); ++it) {
            sum.addProduct((*it)[0], (*it)[1], -int((*it)[2]));
        }
        EXPECT_EQ(sum.sign(), 0) << round;
    }
    // Cancellation far below the rounding of a double sum.
    rytest::ExactSum s;
    s.addProduct(1e16, 1.0);
    s.addProduct(1.0, 1.0);
    s.addProduct(-1e16, 1.0);
    EXPECT_EQ(s.sign(), 1);
    s.addProduct(1.0, 1.0, -1);
    EXPECT_EQ(s.sign(), 0);
    s.addProduct(0x1p-1074, 0x1p-1074, -1);
    EXPECT_EQ(s.sign(), -1);
    const double tri[3][2] = {{0, 0}, {3, 0}, {0, 2}};
    rytest::ExactSum area;
    area.addTwiceArea(tri[0], tri[1], tri[2]);
    EXPECT_EQ(area.approximate(), 6.0);
}

// ---- depth labelling
// -------------------------------------------------------------------------------

TEST(HoleRemoval, NoConstraintsAppendsNothing) {
    const Points pts = rytest::uniformPoints(300, 4);
    for (bool sort : {true, false}) {
        RyTriangulation plain(sort, true);
        ASSERT_EQ(plain.delaunayTriangulation(pts), StatusOk);
        plain.deleteOuterTrianglesAndHoles();
        EXPECT_TRUE(plain.getMeshTriangles().empty());
        const std::vector<int> depths = RyTriangulationAccess::impl(plain)->labelTriangleDepths();
        EXPECT_EQ(*std::max_element(depths.begin(), depths.end()), 0);

        Cdt c = runCdt(pts, {}, sort);
        ASSERT_EQ(c.status, StatusOk);
        c.handle->deleteOuterTrianglesAndHoles();
        EXPECT_TRUE(c.handle->getMeshTriangles().empty());
    }
    RyTriangulation empty;
    empty.deleteOuterTrianglesAndHoles();
    EXPECT_TRUE(empty.getMeshTriangles().empty());
    EXPECT_TRUE(RyTriangulationAccess::impl(empty)->labelTriangleDepths().empty());
}

TEST(HoleRemoval, SingleBoundaryKeepsItsInside) {
    Scene s;
    s.addRing(square(10, 10, 50, 40));
    addPoints(s, 200, 0, 64, 5);  // inside, outside and between
    checkScene(s, {square(10, 10, 50, 40)}, {});
}

TEST(HoleRemoval, SquareWithHoleAndIslandInTheHole) {
    Scene s;
    s.addRing(square(0, 0, 64, 64));
    s.addRing(square(16, 16, 48, 48));
    addPoints(s, 300, -8, 72, 6);
    checkScene(s, {square(0, 0, 64, 64)}, {square(16, 16, 48, 48)});

    s.addRing(square(24, 24, 40, 36));
    checkScene(s, {square(0, 0, 64, 64), square(24, 24, 40, 36)}, {square(16, 16, 48, 48)});

    // Depths by level: outside 0, ring 1, hole 2, island 3.
    Cdt c = runCdt(s.points, s.edges);
    ASSERT_EQ(c.status, StatusOk);
    const RyTriangulationImpl& m = *c.impl;
    const std::vector<int> depths = m.labelTriangleDepths();
    ASSERT_EQ(depths.size(), m.triangles.size());
    for (std::size_t t = 0; t < m.triangles.size(); ++t) {
        const int* v = triVerts(m.triangles[t]);
        if (isGhost(m.triangles[t])) {
            EXPECT_EQ(depths[t], 0) << t;
            continue;
        }
        double cx = 0, cy = 0;
        for (int k = 0; k < 3; ++k) {
            cx += vertexXY(m.vertices[std::size_t(v[k])])[0] / 3;
            cy += vertexXY(m.vertices[std::size_t(v[k])])[1] / 3;
        }
        auto in = [&](double x0, double y0, double x1, double y1) {
            return cx > x0 && cx < x1 && cy > y0 && cy < y1;
        };
        const int expected = in(24, 24, 40, 36)   ? 3
                             : in(16, 16, 48, 48) ? 2
                             : in(0, 0, 64, 64)   ? 1
                                                  : 0;
        EXPECT_EQ(depths[t], expected) << "triangle " << t << " centroid " << cx << ", " << cy;
    }
}

TEST(HoleRemoval, HoleTouchingTheOuterBoundaryAtAVertex) {
    Scene s;
    const Ring outer{{0, 0}, {64, 0}, {64, 64}, {0, 64}, {0, 32}};
    const Ring hole{{0, 32}, {20, 20}, {30, 32}, {20, 44}};
    s.points = {{0, 0, 0},
                {64, 0, 0},
                {64, 64, 0},
                {0, 64, 0},
                {0, 32, 0},
                {20, 20, 0},
                {30, 32, 0},
                {20, 44, 0}};
    for (int i = 0; i < 5; ++i) s.edges.push_back(PkMeshEdge(i, (i + 1) % 5));
    const int h[4] = {4, 5, 6, 7};
    for (int i = 0; i < 4; ++i) s.edges.push_back(PkMeshEdge(h[i], h[(i + 1) % 4]));
    s.rings = {outer, hole};
    addPoints(s, 150, -4, 68, 7);
    checkScene(s, {outer}, {hole});
}

TEST(HoleRemoval, TwoPolygonsSharingAnEdgeAreBothKept) {
    Scene s;
    s.points = {{0, 0, 0}, {32, 0, 0}, {32, 32, 0}, {0, 32, 0}, {64, 0, 0}, {64, 32, 0}};
    s.edges = {PkMeshEdge(0, 1),
               PkMeshEdge(1, 2),
               PkMeshEdge(2, 3),
               PkMeshEdge(3, 0),
               PkMeshEdge(1, 4),
               PkMeshEdge(4, 5),
               PkMeshEdge(5, 2),
               PkMeshEdge(2, 1)};
    s.rings = {square(0, 0, 32, 32), square(32, 0, 64, 32)};
    addPoints(s, 120, -8, 72, 8);
    checkScene(s, {square(0, 0, 32, 32), square(32, 0, 64, 32)}, {});
    Cdt c = runCdt(s.points, s.edges);
    EXPECT_EQ(c.impl->constraintRepeats.at(PkMeshEdge(1, 2)), 1);
}

TEST(HoleRemoval, BoundaryOnTheConvexHull) {
    Scene s;
    s.addRing(square(0, 0, 100, 60));
    addPoints(s, 250, 1, 59, 9);  // all strictly inside: the square is the hull
    checkScene(s, {square(0, 0, 100, 60)}, {});
    Cdt c = runCdt(s.points, s.edges);
    c.handle->deleteOuterTrianglesAndHoles();
    EXPECT_EQ(c.handle->getMeshTriangles().size(), std::size_t(2 * s.points.size() - 4 - 2));
}

TEST(HoleRemoval, OpenPolylineKeepsNothing) {
    Scene s;
    s.points = {{10, 10, 0}, {50, 12, 0}, {52, 50, 0}, {12, 48, 0}};
    s.edges = {PkMeshEdge(0, 1), PkMeshEdge(1, 2), PkMeshEdge(2, 3)};  // three sides only
    addPoints(s, 200, 0, 64, 10);
    for (bool sort : {true, false}) {
        Cdt c = runCdt(s.points, s.edges, sort);
        ASSERT_EQ(c.status, StatusOk);
        c.handle->deleteOuterTrianglesAndHoles();
        EXPECT_TRUE(c.handle->getMeshTriangles().empty());
        expectValid(*c.impl, s.edges, int(s.points.size()));
    }
}

TEST(HoleRemoval, BoundaryGivenTwiceEnclosesLevelTwo) {
    Scene s;
    s.addRing(square(8, 8, 56, 56), 2);
    addPoints(s, 200, 0, 64, 11);
    checkScene(s, {}, {});  // nothing kept: even crossing count everywhere
    Cdt c = runCdt(s.points, s.edges);
    const RyTriangulationImpl& m = *c.impl;
    const std::vector<int> depths = m.labelTriangleDepths();
    int inside = 0;
    for (std::size_t t = 0; t < depths.size(); ++t) {
        EXPECT_TRUE(depths[t] == 0 || depths[t] == 2) << depths[t];
        inside += depths[t] == 2;
    }
    EXPECT_GT(inside, 0);
    // With a hole cut into it, given once, the ring between is at level 2 and the hole at 3.
    s.addRing(square(24, 24, 40, 40));
    checkScene(s, {square(24, 24, 40, 40)}, {});
}

TEST(HoleRemoval, OverlappingBoundariesKeepTheirSymmetricDifference) {
    // Two squares whose sides cross at exactly representable points: the overlap is crossed
    // twice from the outside and dropped.
    Scene s;
    s.addRing(square(0, 0, 32, 32));
    s.addRing(square(16, 16, 48, 48));
    addPoints(s, 150, -4, 52, 12);
    checkScene(s,
               {square(0, 0, 32, 32), square(16, 16, 48, 48)},
               {square(16, 16, 32, 32), square(16, 16, 32, 32)});
}

TEST(HoleRemoval, RandomPolygonsWithHolesAndIslands) {
    for (std::uint64_t seed = 1; seed <= 10; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        rytest::Rng rng(seed);
        Scene s;
        const Ring outer = noisyCircle(0, 0, 1000, 60 + int(rng.below(200)), 0.3, rng);
        s.addRing(outer);
        std::vector<Ring> plus{outer}, minus;
        // Holes on a grid of cells well inside the outer circle; some with an island.
        for (int gx = -2; gx <= 2; ++gx) {
            for (int gy = -2; gy <= 2; ++gy) {
                if (rng.below(3) == 0) continue;
                const double cx = gx * 220 + rng.uniform(-20, 20);
                const double cy = gy * 220 + rng.uniform(-20, 20);
                if (std::hypot(cx, cy) > 600) continue;
                const Ring hole = noisyCircle(cx, cy, 80, 5 + int(rng.below(40)), 0.4, rng);
                s.addRing(hole);
                minus.push_back(hole);
                if (rng.below(2) == 0) {
                    const Ring island = noisyCircle(cx, cy, 30, 3 + int(rng.below(20)), 0.3, rng);
                    s.addRing(island);
                    plus.push_back(island);
                }
            }
        }
        addPoints(s, 1500, -1400, 1400, seed + 100);
        checkScene(s, plus, minus);
    }
}

// ---- the output list ----------------------------------------------------------------------------

TEST(HoleRemoval, KeptTrianglesKeepWorkingListOrderAndContents) {
    Scene s;
    s.addRing(square(0, 0, 64, 64));
    s.addRing(square(16, 16, 48, 48));
    addPoints(s, 200, -8, 72, 13);
    Cdt c = runCdt(s.points, s.edges);
    ASSERT_EQ(c.status, StatusOk);
    const RyTriangulationImpl& m = *c.impl;
    const std::vector<int> depths = m.labelTriangleDepths();
    c.handle->deleteOuterTrianglesAndHoles();
    const std::vector<PkMeshTriangle> out = c.handle->getMeshTriangles();
    std::size_t k = 0;
    for (std::size_t t = 0; t < m.triangles.size(); ++t) {
        if (depths[t] % 2 == 0) continue;
        ASSERT_LT(k, out.size());
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(triVerts(out[k])[i], triVerts(m.triangles[t])[i]);
            EXPECT_EQ(triNbrs(out[k])[i], triNbrs(m.triangles[t])[i]);  // working-list indices
        }
        EXPECT_EQ(PkMeshFields::flags(out[k]), PkMeshFields::flags(m.triangles[t]));
        ++k;
    }
    EXPECT_EQ(k, out.size());

    // A second call appends a second copy; the working mesh and records are untouched.
    const std::vector<PkMeshTriangle> working = m.triangles;
    const std::size_t edges = m.constraintEdges.size();
    c.handle->deleteOuterTrianglesAndHoles();
    const std::vector<PkMeshTriangle> twice = c.handle->getMeshTriangles();
    ASSERT_EQ(twice.size(), 2 * out.size());
    for (std::size_t i = 0; i < out.size(); ++i) {
        for (int j = 0; j < 3; ++j) {
            EXPECT_EQ(triVerts(twice[out.size() + i])[j], triVerts(out[i])[j]);
        }
    }
    EXPECT_EQ(m.constraintEdges.size(), edges);
    ASSERT_EQ(m.triangles.size(), working.size());
    // Ghost removal appends every real triangle after them.
    c.handle->deleteGhostTriangle();
    EXPECT_GT(c.handle->getMeshTriangles().size(), twice.size());
}

/// The labelling as a plain transcription of its rules on ordered containers: the oracle for the
/// flat-array version, down to the order in which a capped flood meets triangles and the rule
/// that the last proposal made to a triangle in one flood wins.
std::vector<int> referenceDepths(const RyTriangulationImpl& m) {
    const int n = int(m.triangles.size());
    std::vector<int> depth(std::size_t(n), RyTriangulationImpl::UnvisitedDepth);
    std::vector<int> stack;
    for (int i = 0; i < n; ++i) {
        PkMeshTriangle t = m.triangles[std::size_t(i)];
        if (t.isGhostTri() || t.isAux()) {
            stack.push_back(i);
            break;
        }
    }
    std::map<int, std::set<int>> pending;
    int maxPending = 0;
    for (int level = 0;; ++level) {
        std::map<int, int> crossing;
        for (int c = 0; !stack.empty(); ++c) {
            const int t = stack.back();
            stack.pop_back();
            depth[std::size_t(t)] = std::min(depth[std::size_t(t)], level);
            crossing.erase(t);
            const PkMeshTriangle tri = m.triangles[std::size_t(t)];
            for (int k = 0; k < 3; ++k) {
                const PkMeshEdge e(tri.getVertexIndexAt(nextLocalIndex(k)),
                                   tri.getVertexIndexAt(prevLocalIndex(k)));
                const int next = tri.getNeighborIndex(e.EdgeIndex1(), e.EdgeIndex2());
                if (next < 0 || depth[std::size_t(next)] <= level) continue;
                if (m.constraintEdges.count(e) != 0) {
                    const auto r = m.constraintRepeats.find(e);
                    crossing[next] = level + 1 + (r == m.constraintRepeats.end() ? 0 : r->second);
                } else {
                    stack.push_back(next);
                }
            }
            if (c >= m.maxIterations) {
                crossing.clear();
                break;
            }
        }
        pending.erase(level);
        for (const auto& [t, d] : crossing) {
            maxPending = std::max(maxPending, d);
            pending[d].insert(t);
        }
        const std::set<int>& next = pending[level + 1];
        stack.assign(next.begin(), next.end());
        if (stack.empty() && maxPending <= level + 1) break;
    }
    return depth;
}

TEST(HoleRemoval, LabellingMatchesItsRulesUnderEveryFloodCap) {
    for (std::uint64_t seed = 1; seed <= 4; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        rytest::Rng rng(seed + 40);
        Scene s;
        s.addRing(noisyCircle(0, 0, 1000, 80, 0.3, rng));
        // Holes (one given twice, so that its edges count two crossings), islands in some, and
        // two rings that overlap, so that floods meet the same triangle from several sides.
        s.addRing(noisyCircle(-400, 0, 200, 12, 0.3, rng), seed == 2 ? 2 : 1);
        s.addRing(noisyCircle(-400, 0, 80, 7, 0.3, rng));
        s.addRing(noisyCircle(350, 100, 250, 15, 0.3, rng));
        s.addRing(noisyCircle(450, 200, 220, 11, 0.3, rng));
        addPoints(s, 800, -1200, 1200, seed + 200);
        Cdt c = runCdt(s.points, s.edges, seed % 2 == 0, true);
        ASSERT_EQ(c.status, StatusOk);
        RyTriangulationImpl& m = *c.impl;
        const int n = int(m.triangles.size());
        for (const int cap : {0, 1, 2, 7, 60, n / 5, n / 2, n, 1000000}) {
            m.maxIterations = cap;
            const std::vector<int> depths = m.labelTriangleDepths();
            ASSERT_EQ(depths, referenceDepths(m)) << "cap " << cap;
        }
    }
}

TEST(HoleRemoval, FloodCapLeavesUnvisitedTrianglesOdd) {
    // With no flood step allowed beyond the seed, every other triangle keeps the unvisited
    // depth, which is odd: all of them are appended, ghost triangles included.
    const Points pts = rytest::uniformPoints(100, 14);
    Cdt c = runCdt(pts, {});
    ASSERT_EQ(c.status, StatusOk);
    RyTriangulationImpl& m = *c.impl;
    m.maxIterations = 0;
    m.deleteOuterTrianglesAndHoles();
    EXPECT_EQ(m.meshTriangles.size(), m.triangles.size() - 1);
    int seed = 0;
    while (!isGhost(m.triangles[std::size_t(seed)])) ++seed;
    const std::vector<int> depths = m.labelTriangleDepths();
    EXPECT_EQ(depths[std::size_t(seed)], 0);
    for (std::size_t t = 0; t < depths.size(); ++t) {
        if (int(t) != seed) {
            EXPECT_EQ(depths[t], RyTriangulationImpl::UnvisitedDepth);
        }
    }
    // A cap counts pops, repeated ones included; ten per triangle labels this mesh completely.
    m.maxIterations = 10 * int(m.triangles.size());
    m.meshTriangles.clear();
    m.deleteOuterTrianglesAndHoles();
    EXPECT_TRUE(m.meshTriangles.empty());
}

}  // namespace
