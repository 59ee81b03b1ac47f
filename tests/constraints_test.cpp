// Constraint edges: records and crossing splits, pseudo-polygon triangulation, and insertion of
// constraint edges into the mesh.
//
// Every mesh is checked with the base validator (adjacency, orientation, hull, back-links,
// local Delaunay off constraint edges, Euler count) and with the constraint checks (recorded
// edges present, input segments covered by pieces, crossing vertices on both segments, repeat
// counts and origins consistent). Failing statuses are checked to leave the record as it was,
// byte for byte, where that is the promised behaviour.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

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

// ---- helpers ------------------------------------------------------------------------------------

/// A triangulation handle with its record and the status of its constrained call.
struct Cdt {
    std::unique_ptr<RyTriangulation> handle;
    RyTriangulationImpl* impl = nullptr;
    PkTriangulationStatus status = StatusOk;
};

Cdt runCdt(const Points& points,
           const Edges& edges,
           bool spatialSort = true,
           bool split = true,
           double tolerance = 1e-9) {
    // The first triangle and the point-location walk draw from rand(): reseed so that two runs
    // on the same input build the same mesh.
    std::srand(1);
    Cdt c;
    c.handle = std::make_unique<RyTriangulation>(spatialSort, split);
    c.handle->setCDTTolerence(tolerance);
    c.status = c.handle->delaunayTriangulationWithConstraints(points, edges);
    c.impl = RyTriangulationAccess::impl(*c.handle);
    return c;
}

std::string describe(const Points& points, const Edges& edges) {
    std::ostringstream out;
    out.precision(17);
    out << "points:";
    for (const PkGePoint3d& p : points) out << " (" << p.x << ", " << p.y << ", " << p.z << ")";
    out << "\nedges:";
    for (const PkMeshEdge& e : edges)
        out << " (" << e.EdgeIndex1() << ", " << e.EdgeIndex2() << ")";
    return out.str();
}

/// Base validator plus the constraint checks; `required` segments must be covered by pieces.
void expectValid(const RyTriangulationImpl& m,
                 const Edges& inputEdges,
                 int inputVertexCount,
                 bool allowMissing = false,
                 Edges required = {}) {
    MeshValidatorOptions options;
    // A constraint crossed without splitting leaves the mesh without flips, and the triangles
    // that it shielded need not be Delaunay once it is gone: no local Delaunay check then.
    options.checkDelaunay = !allowMissing;
    RY_EXPECT_VALID_MESH(m, options);
    rytest::ConstraintCheckOptions c;
    c.allowMissing = allowMissing;
    c.requiredSegments = allowMissing ? std::move(required) : inputEdges;
    c.inputSegments = inputEdges;
    c.inputVertexCount = inputVertexCount;
    const std::vector<std::string> violations = rytest::checkConstraintRecords(m, c);
    EXPECT_TRUE(violations.empty()) << formatViolations(violations);
}

/// Everything observable in a record, for "nothing changed" and "same mesh" comparisons.
struct Snapshot {
    std::vector<std::array<long long, 7>> triangles;
    std::vector<std::array<double, 4>> vertices;
    std::vector<int> freeTriangles;
    std::set<std::pair<int, int>> edges;
    std::map<std::pair<int, int>, int> repeats;
    std::map<std::pair<int, int>, std::vector<std::pair<int, int>>> origins;

    bool operator==(const Snapshot& o) const {
        return triangles == o.triangles && vertices == o.vertices &&
               freeTriangles == o.freeTriangles && edges == o.edges && repeats == o.repeats &&
               origins == o.origins;
    }
};

std::pair<int, int> key(const PkMeshEdge& e) {
    return {e.EdgeIndex1(), e.EdgeIndex2()};
}

Snapshot snapshot(const RyTriangulationImpl& m) {
    Snapshot s;
    for (const PkMeshTriangle& t : m.triangles) {
        const int* v = triVerts(t);
        const int* n = triNbrs(t);
        s.triangles.push_back({v[0], v[1], v[2], n[0], n[1], n[2], PkMeshFields::flags(t)});
    }
    for (const PkMeshPoint3d& p : m.vertices) {
        const PkGePoint3d& q = PkMeshFields::point(p);
        s.vertices.push_back({q.x, q.y, q.z, double(vertexTriangle(p))});
    }
    s.freeTriangles = m.freeTriangles;
    for (const PkMeshEdge& e : m.constraintEdges) s.edges.insert(key(e));
    for (const auto& r : m.constraintRepeats) s.repeats[key(r.first)] = r.second;
    for (const auto& o : m.constraintOrigins) {
        std::vector<std::pair<int, int>> list;
        for (const PkMeshEdge& e : o.second) list.push_back(key(e));
        s.origins[key(o.first)] = list;
    }
    return s;
}

int repeatsOf(const RyTriangulationImpl& m, int a, int b) {
    const auto r = m.constraintRepeats.find(PkMeshEdge(a, b));
    return r == m.constraintRepeats.end() ? 0 : r->second;
}

std::vector<std::pair<int, int>> originsOf(const RyTriangulationImpl& m, int a, int b) {
    std::vector<std::pair<int, int>> list;
    const auto o = m.constraintOrigins.find(PkMeshEdge(a, b));
    if (o != m.constraintOrigins.end()) {
        for (const PkMeshEdge& e : o->second) list.push_back(key(e));
    }
    return list;
}

bool hasEdge(const RyTriangulationImpl& m, int a, int b) {
    for (const PkMeshTriangle& t : m.triangles) {
        const int* v = triVerts(t);
        if (v[0] < 0 || v[1] < 0 || v[2] < 0) continue;
        for (int k = 0; k < 3; ++k) {
            if (PkMeshEdge(v[k], v[nextLocalIndex(k)]) == PkMeshEdge(a, b)) return true;
        }
    }
    return false;
}

/// The real triangle (a, d, c) around a that the segment a->b leaves a through (c left, d
/// right of the line, exactly), found by brute force; -1 if none.
int enteredTriangle(const RyTriangulationImpl& m, int a, int b) {
    const double* A = vertexXY(m.vertices[std::size_t(a)]);
    const double* B = vertexXY(m.vertices[std::size_t(b)]);
    for (int t = 0; t < int(m.triangles.size()); ++t) {
        const PkMeshTriangle& T = m.triangles[std::size_t(t)];
        if (isGhost(T)) continue;
        const int* v = triVerts(T);
        for (int i = 0; i < 3; ++i) {
            if (v[i] != a) continue;
            const int d = v[nextLocalIndex(i)];
            const int c = v[prevLocalIndex(i)];
            if (orient2d(A, B, vertexXY(m.vertices[std::size_t(c)])) > 0 &&
                orient2d(A, B, vertexXY(m.vertices[std::size_t(d)])) < 0) {
                return t;
            }
        }
    }
    return -1;
}

/// nx * ny grid with spacing 1, each point moved by up to `jitter` (dyadic, so exact), row
/// major from (0, 0).
Points jitteredGrid(int nx, int ny, double jitter, std::uint64_t seed) {
    rytest::Rng rng(seed);
    Points points;
    for (int j = 0; j < ny; ++j) {
        for (int i = 0; i < nx; ++i) {
            const double dx = std::ldexp(std::floor(rng.uniform(-jitter, jitter) * 1024), -10);
            const double dy = std::ldexp(std::floor(rng.uniform(-jitter, jitter) * 1024), -10);
            points.emplace_back(i + dx, j + dy, double(i + j));
        }
    }
    return points;
}

// ---- constraint records ------------------------------------------------------------------------

TEST(ConstraintRecords, RepeatCountsOnlyCountRepeats) {
    RyTriangulationImpl m;
    const PkMeshEdge e(4, 9);
    m.recordConstraint(e);
    EXPECT_EQ(m.constraintEdges.size(), 1u);
    EXPECT_EQ(m.constraintRepeats.count(e), 0u) << "a first recording is no repeat";
    m.recordConstraint(PkMeshEdge(9, 4));
    m.recordConstraint(e, e);
    EXPECT_EQ(m.constraintEdges.size(), 1u);
    EXPECT_EQ(repeatsOf(m, 4, 9), 2);
    EXPECT_TRUE(m.constraintOrigins.empty()) << "a piece recorded as its own origin has none";
}

TEST(ConstraintRecords, OriginsAreListedOnceInOrderAdded) {
    RyTriangulationImpl m;
    const PkMeshEdge piece(2, 5), o1(1, 5), o2(2, 8);
    m.recordConstraint(piece, o1);
    m.recordConstraint(piece, PkMeshEdge(5, 1));
    m.recordConstraint(piece, o2);
    m.recordConstraint(piece, o1);
    EXPECT_EQ(originsOf(m, 2, 5), (std::vector<std::pair<int, int>>{{1, 5}, {2, 8}}));
    EXPECT_EQ(repeatsOf(m, 2, 5), 3);

    std::vector<PkMeshEdge> list{PkMeshEdge(1, 2)};
    addOrigin(list, PkMeshEdge(2, 1));
    EXPECT_EQ(list.size(), 1u);
    mergeOrigins(list, {PkMeshEdge(3, 4), PkMeshEdge(1, 2), PkMeshEdge(4, 3), PkMeshEdge(0, 7)});
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(key(list[1]), std::make_pair(3, 4));
    EXPECT_EQ(key(list[2]), std::make_pair(0, 7));
    EXPECT_GE(list.capacity(), 5u) << "merge reserves for the whole source first";
}

/// Four vertices A, B, U, W; only their positions matter to intersectLines.
RyTriangulationImpl lineRecord(const Points& four) {
    RyTriangulationImpl m;
    for (const PkGePoint3d& p : four) m.vertices.emplace_back(p);
    return m;
}

TEST(ConstraintRecords, IntersectLinesParallelThresholdIsAbsoluteAndInclusive) {
    // d1 = (1, 0); d2 = (1, dy): the cross product is exactly dy.
    for (double dy : {1e-10, -1e-10, 0.0, 5e-11}) {
        SCOPED_TRACE(dy);
        RyTriangulationImpl m = lineRecord({{0, 0, 1}, {1, 0, 2}, {5, 0, 3}, {6, dy, 4}});
        PkGePoint3d p(7, 8, 9);
        EXPECT_FALSE(m.intersectLines(0, 1, 2, 3, p));
        EXPECT_EQ(p.x, 0.0);
        EXPECT_EQ(p.y, 0.0);
        EXPECT_EQ(p.z, 0.0);
    }
    for (double dy : {2e-10, -2e-10}) {
        SCOPED_TRACE(dy);
        RyTriangulationImpl m = lineRecord({{0, 0, 1}, {1, 0, 2}, {5, 0, 3}, {6, dy, 4}});
        PkGePoint3d p;
        EXPECT_TRUE(m.intersectLines(0, 1, 2, 3, p)) << "not parallel beyond 1e-10";
        EXPECT_NEAR(p.x, 5.0, 1e-6);  // the crossing of the infinite lines, beyond B
        EXPECT_EQ(p.y, 0.0);
    }
}

TEST(ConstraintRecords, IntersectLinesCrossingAndMeanZ) {
    // Lines through (0,0)-(4,4) and (0,4)-(4,0) cross at (2,2); the segments need not reach it.
    RyTriangulationImpl m = lineRecord({{0, 0, 1}, {1, 1, 10}, {0, 4, 100}, {4, 0, 1000}});
    PkGePoint3d p;
    ASSERT_TRUE(m.intersectLines(0, 1, 2, 3, p));
    EXPECT_EQ(p.x, 2.0);
    EXPECT_EQ(p.y, 2.0);
    EXPECT_EQ(p.z, (((10.0 + 1.0) + 100.0) + 1000.0) * 0.25);
    // Arbitrary z, arbitrary orientation: z is the mean of the four in the stated order.
    RyTriangulationImpl n = lineRecord({{-3, 1, 0.1}, {7, 2, 0.7}, {1, -5, 1e16}, {2, 9, -1e16}});
    ASSERT_TRUE(n.intersectLines(0, 1, 2, 3, p));
    EXPECT_EQ(p.z, (((0.7 + 0.1) + 1e16) + -1e16) * 0.25);
    EXPECT_NEAR(orient2d(vertexXY(n.vertices[0]), vertexXY(n.vertices[1]), &p.x), 0.0, 1e-12);
}

TEST(ConstraintRecords, OriginCheckExcusesOnlyRoundingOfNearlyParallelCrossings) {
    // o = 0-1 was split at vertex 4, made where segment 2-3 (through 4, slope k) crossed it.
    // Vertex 4 lies beyond o's end at 1, as rounding puts a crossing of nearly parallel lines;
    // a crossing at a wide angle cannot land there, nor can an input vertex.
    struct Case {
        const char* what;
        double k;
        int inputVertexCount;
        bool excused;
    };
    for (const Case& c : {Case{"nearly parallel crossing", 1e-18, 4, true},
                          Case{"wide-angle crossing", 1.0, 4, false},
                          Case{"input vertex, nearly parallel", 1e-18, 5, false}}) {
        SCOPED_TRACE(c.what);
        RyTriangulationImpl m = lineRecord(
            {{0, 0, 0}, {1, 0, 0}, {-8.9, -10 * c.k, 0}, {5, 3.9 * c.k, 0}, {1.1, 0, 0}});
        const PkMeshEdge o(0, 1);
        m.recordConstraint(PkMeshEdge(0, 4), o);
        m.recordConstraint(PkMeshEdge(1, 4), o);
        m.recordConstraint(PkMeshEdge(2, 4));
        m.recordConstraint(PkMeshEdge(3, 4));
        rytest::ConstraintCheckOptions options;
        options.allowMissing = true;  // no triangles: only the records are checked
        options.inputVertexCount = c.inputVertexCount;
        const std::vector<std::string> violations = rytest::checkConstraintRecords(m, options);
        const auto offOrigin = std::count_if(violations.begin(), violations.end(), [](auto& v) {
            return v.find("does not lie on its origin") != std::string::npos;
        });
        EXPECT_EQ(offOrigin, c.excused ? 0 : 2) << formatViolations(violations);
    }
}

/// A small Delaunay mesh (square with a centre-less 3x3 pattern) to split edges in.
Cdt smallMesh() {
    Points pts{{0, 0, 0}, {4, 0, 0}, {4, 4, 0}, {0, 4, 0}, {1, 2, 0}, {3, 2.5, 0}, {2, 0.5, 0}};
    return runCdt(pts, {});
}

/// A real triangle holding the edge (u, w), or -1 (the split is always handed the real one).
int triangleWithEdge(const RyTriangulationImpl& m, int u, int w) {
    for (int t = 0; t < int(m.triangles.size()); ++t) {
        if (isGhost(m.triangles[std::size_t(t)])) continue;
        if (getLocalEdgeIndex(m.triangles[std::size_t(t)], u, w) >= 0) return t;
    }
    return -1;
}

TEST(ConstraintRecords, SplitPassesRepeatsAndOriginsToBothHalves) {
    Cdt c = smallMesh();
    ASSERT_EQ(c.status, StatusOk);
    RyTriangulationImpl& m = *c.impl;
    // Pick a mesh edge between two real vertices and make it a constraint given three times
    // with two origins.
    int u = -1, w = -1;
    for (const PkMeshTriangle& t : m.triangles) {
        if (!isGhost(t)) {
            u = triVerts(t)[0];
            w = triVerts(t)[1];
            break;
        }
    }
    ASSERT_GE(u, 0);
    const PkMeshEdge edge(u, w);
    m.recordConstraint(edge, PkMeshEdge(u, 100));
    m.recordConstraint(edge, PkMeshEdge(w, 200));
    m.recordConstraint(edge);
    // One half is a constraint already (recorded ahead of its vertex): it keeps its own repeat
    // and origin on top of those passed on by the split.
    const int before = int(m.vertices.size());
    m.recordConstraint(PkMeshEdge(u, before), PkMeshEdge(70, 80));
    const double* U = vertexXY(m.vertices[std::size_t(u)]);
    const double* W = vertexXY(m.vertices[std::size_t(w)]);
    const PkGePoint3d p((U[0] + W[0]) / 2, (U[1] + W[1]) / 2, 42.0);
    const int t = triangleWithEdge(m, u, w);
    ASSERT_GE(t, 0);
    const int nv = m.splitConstraintEdge(edge, p, t);
    ASSERT_EQ(nv, before);
    ASSERT_EQ(int(m.vertices.size()), before + 1);
    EXPECT_EQ(m.vertices[std::size_t(nv)].getPoint().z, 42.0);
    EXPECT_EQ(PkMeshFields::flags(m.vertices[std::size_t(nv)]), 0u);
    EXPECT_EQ(m.vertices[std::size_t(nv)].getType(), PkMeshPoint3d::Type(0));

    EXPECT_EQ(m.constraintEdges.count(edge), 0u);
    EXPECT_EQ(m.constraintRepeats.count(edge), 0u);
    EXPECT_EQ(m.constraintOrigins.count(edge), 0u);
    const std::vector<std::pair<int, int>> origins{key(PkMeshEdge(u, 100)),
                                                   key(PkMeshEdge(w, 200))};
    for (int end : {u, w}) {
        SCOPED_TRACE(end);
        EXPECT_EQ(m.constraintEdges.count(PkMeshEdge(end, nv)), 1u);
        EXPECT_TRUE(hasEdge(m, end, nv));
    }
    EXPECT_EQ(repeatsOf(m, w, nv), 2);
    EXPECT_EQ(originsOf(m, w, nv), origins);
    EXPECT_EQ(repeatsOf(m, u, nv), 3) << "its own repeat from the split's recording, plus 2";
    EXPECT_EQ(originsOf(m, u, nv),
              (std::vector<std::pair<int, int>>{{70, 80}, origins[0], origins[1]}));
    MeshValidatorOptions options;
    RY_EXPECT_VALID_MESH(m, options);
}

TEST(ConstraintRecords, SplitOfAnEdgeWithoutOriginsNamesTheEdge) {
    Cdt c = smallMesh();
    ASSERT_EQ(c.status, StatusOk);
    RyTriangulationImpl& m = *c.impl;
    ASSERT_TRUE(hasEdge(m, 0, 1));  // hull edge of the square
    m.recordConstraint(PkMeshEdge(0, 1));
    const int t = triangleWithEdge(m, 0, 1);
    const int nv = m.splitConstraintEdge(PkMeshEdge(0, 1), PkGePoint3d(1.5, 0, 0), t);
    ASSERT_EQ(nv, 7);
    for (int end : {0, 1}) {
        EXPECT_EQ(originsOf(m, end, nv), (std::vector<std::pair<int, int>>{{0, 1}}));
        EXPECT_EQ(repeatsOf(m, end, nv), 0);
    }
    EXPECT_EQ(m.constraintEdges.size(), 2u);
    MeshValidatorOptions options;
    RY_EXPECT_VALID_MESH(m, options);
    std::vector<std::string> v = checkConstraintEdges(m);
    EXPECT_TRUE(v.empty()) << formatViolations(v);
}

// ---- pseudo-polygon triangulation -------------------------------------------------------------

/// A chain P[0..n-1] with its base edge P[0]-P[n-1]: slot `partner` stands for the triangle on
/// the other side of the base, and every chain edge (P[i], P[i+1]) has an outside triangle
/// holding it as its edge 0, registered in the boundary map.
struct PolygonHarness {
    RyTriangulationImpl m;
    std::vector<int> chain;
    EdgeMap<int> boundary;
    std::vector<int> outside;
    int partner = -1;
    int own = -1;

    explicit PolygonHarness(const std::vector<std::array<double, 2>>& points) {
        for (const auto& p : points) m.vertices.emplace_back(PkGePoint3d(p[0], p[1], 0));
        const int n = int(points.size());
        const int far = n;  // a vertex beyond the chain, corner of every outside triangle
        m.vertices.emplace_back(PkGePoint3d(0, -1e6, 0));
        for (int i = 0; i < n; ++i) chain.push_back(i);
        partner = m.allocateTriangle();
        triVerts(m.triangles[std::size_t(partner)])[0] = n - 1;
        triVerts(m.triangles[std::size_t(partner)])[1] = 0;
        triVerts(m.triangles[std::size_t(partner)])[2] = far;
        for (int i = 0; i + 1 < n; ++i) {
            const int t = m.allocateTriangle();
            int* v = triVerts(m.triangles[std::size_t(t)]);
            v[0] = i + 1, v[1] = i, v[2] = far;
            boundary[PkMeshEdge(i, i + 1)] = t;
            outside.push_back(t);
        }
        own = m.allocateTriangle();
    }

    std::array<int, 3> verts(int t) const {
        const int* v = triVerts(m.triangles[std::size_t(t)]);
        return {v[0], v[1], v[2]};
    }
    std::array<int, 3> nbrs(int t) const {
        const int* v = triNbrs(m.triangles[std::size_t(t)]);
        return {v[0], v[1], v[2]};
    }
    const double* at(int v) const { return vertexXY(m.vertices[std::size_t(v)]); }
};

TEST(PseudoPolygon, ThreeVertexChainIsTheOwnTriangleAndAllocatesNothing) {
    PolygonHarness h({{0, 0}, {1, 2}, {3, 0}});
    const std::size_t size = h.m.triangles.size();
    h.m.freeTriangles = {};
    ASSERT_TRUE(h.m.triangulatePseudoPolygon(h.chain, h.boundary, h.own, h.partner));
    EXPECT_EQ(h.m.triangles.size(), size);
    EXPECT_EQ(h.verts(h.own), (std::array<int, 3>{0, 2, 1}));
    EXPECT_EQ(h.nbrs(h.own), (std::array<int, 3>{h.partner, h.outside[1], h.outside[0]}));
    EXPECT_EQ(triNbrs(h.m.triangles[std::size_t(h.partner)])[0], h.own);
    EXPECT_EQ(triNbrs(h.m.triangles[std::size_t(h.outside[0])])[0], h.own);
    EXPECT_EQ(triNbrs(h.m.triangles[std::size_t(h.outside[1])])[0], h.own);
    for (int v = 0; v < 3; ++v) EXPECT_EQ(vertexTriangle(h.m.vertices[std::size_t(v)]), h.own);
}

TEST(PseudoPolygon, CocircularChainIsAFanAroundItsLastVertex) {
    // Integer points on x^2 + y^2 = 25: exactly cocircular, so no vertex ever displaces the
    // first choice.
    PolygonHarness h({{-5, 0}, {-4, 3}, {-3, 4}, {0, 5}, {3, 4}, {4, 3}, {5, 0}});
    ASSERT_TRUE(h.m.triangulatePseudoPolygon(h.chain, h.boundary, h.own, h.partner));
    std::set<std::array<int, 3>> expected, got;
    for (int i = 0; i <= 4; ++i) expected.insert({i, 6, i + 1});
    for (int t = h.own; t < int(h.m.triangles.size()); ++t) got.insert(h.verts(t));
    EXPECT_EQ(got, expected);
    EXPECT_EQ(h.verts(h.own), (std::array<int, 3>{0, 6, 1}));
}

TEST(PseudoPolygon, FiveVertexChainSlotOrder) {
    // P2 lies inside the circle of (P0, P4, P1), P3 outside that of (P0, P4, P2): m = 2 first.
    PolygonHarness h({{0, 0}, {1, 1}, {2, 1}, {3, 1}, {4, 0}});
    ASSERT_EQ(h.m.findDelaunayVertex(0, 4, h.chain), 2);
    const int first = int(h.m.triangles.size());  // no free slots: appended in order
    ASSERT_TRUE(h.m.triangulatePseudoPolygon(h.chain, h.boundary, h.own, h.partner));
    const int second = first + 1;
    ASSERT_EQ(int(h.m.triangles.size()), first + 2);
    EXPECT_EQ(h.verts(h.own), (std::array<int, 3>{0, 4, 2}));
    EXPECT_EQ(h.nbrs(h.own), (std::array<int, 3>{h.partner, first, second}));
    EXPECT_EQ(h.verts(first), (std::array<int, 3>{2, 4, 3}));
    EXPECT_EQ(h.verts(second), (std::array<int, 3>{0, 2, 1}));
    EXPECT_EQ(h.nbrs(first), (std::array<int, 3>{h.own, h.outside[3], h.outside[2]}));
    EXPECT_EQ(h.nbrs(second), (std::array<int, 3>{h.own, h.outside[1], h.outside[0]}));
    // The second slot is filled before the first: P2 ends naming the first slot, P0 the second.
    EXPECT_EQ(vertexTriangle(h.m.vertices[2]), first);
    EXPECT_EQ(vertexTriangle(h.m.vertices[0]), second);
    EXPECT_EQ(vertexTriangle(h.m.vertices[4]), first);
}

TEST(PseudoPolygon, FreedSlotsAreTakenFromTheBackOfTheStack) {
    PolygonHarness h({{0, 0}, {1, 1}, {2, 1}, {3, 1}, {4, 0}});
    const int a = h.m.allocateTriangle(), b = h.m.allocateTriangle();
    h.m.freeTriangles = {a, b};
    const std::size_t size = h.m.triangles.size();
    ASSERT_TRUE(h.m.triangulatePseudoPolygon(h.chain, h.boundary, h.own, h.partner));
    EXPECT_EQ(h.m.triangles.size(), size);
    EXPECT_TRUE(h.m.freeTriangles.empty());
    EXPECT_EQ(h.verts(b), (std::array<int, 3>{2, 4, 3}));  // first allocation: top of the stack
    EXPECT_EQ(h.verts(a), (std::array<int, 3>{0, 2, 1}));
}

TEST(PseudoPolygon, EdgeWithTheRegionOnBothSidesLinksItsTwoTriangles) {
    // Chain P0, X, Y, X, P4: the dangling edge X-Y lies inside the region, map value -1.
    PolygonHarness h({{0, 0}, {2, 3}, {2, 1}, {2, 3}, {4, 0}});
    // Vertices 1 and 3 are the same point: use vertex 1 for both.
    h.chain = {0, 1, 2, 1, 4};
    h.boundary.clear();
    h.outside.clear();
    for (auto [p, q] : {std::pair<int, int>{0, 1}, {1, 4}}) {
        const int t = h.m.allocateTriangle();
        int* v = triVerts(h.m.triangles[std::size_t(t)]);
        v[0] = q, v[1] = p, v[2] = 5;
        h.boundary[PkMeshEdge(p, q)] = t;
        h.outside.push_back(t);
    }
    h.boundary[PkMeshEdge(1, 2)] = -1;
    const int firstNew = int(h.m.triangles.size());
    ASSERT_TRUE(h.m.triangulatePseudoPolygon(h.chain, h.boundary, h.own, h.partner));
    // Own (P0, P4, Y); then (P0, Y, X) and (Y, P4, X), sharing X-Y.
    EXPECT_EQ(h.verts(h.own), (std::array<int, 3>{0, 4, 2}));
    int withA = -1, withB = -1;
    for (int t = firstNew; t < int(h.m.triangles.size()); ++t) {
        if (h.verts(t) == std::array<int, 3>{0, 2, 1}) withA = t;
        if (h.verts(t) == std::array<int, 3>{2, 4, 1}) withB = t;
    }
    ASSERT_GE(withA, 0);
    ASSERT_GE(withB, 0);
    EXPECT_EQ(h.nbrs(withA)[1], withB) << "across (Y, X)";
    EXPECT_EQ(h.nbrs(withB)[2], withA) << "across (X, Y)";
    EXPECT_TRUE(h.boundary.at(PkMeshEdge(1, 2)) == withA ||
                h.boundary.at(PkMeshEdge(1, 2)) == withB);
}

TEST(PseudoPolygon, MissingBoundaryEdgeIsRefused) {
    PolygonHarness h({{0, 0}, {1, 2}, {3, 0}});
    h.boundary.erase(PkMeshEdge(1, 2));
    EXPECT_FALSE(h.m.triangulatePseudoPolygon(h.chain, h.boundary, h.own, h.partner));
}

TEST(PseudoPolygon, ConvexChainsGiveEmptyCircles) {
    // Chains on a parabola are in convex position, so the Delaunay triangulation of their
    // vertices is a triangulation of the polygon: every circle must be empty, the area exact.
    for (std::uint64_t seed = 1; seed <= 40; ++seed) {
        SCOPED_TRACE(seed);
        rytest::Rng rng(seed);
        const int inner = 1 + int(rng.below(30));
        std::set<int> xs;
        while (int(xs.size()) < inner) xs.insert(1 + int(rng.below(1023)));
        std::vector<std::array<double, 2>> pts{{0, 0}};
        for (int x : xs) pts.push_back({double(x), double(x) * (1024 - x) / 1024.0});
        pts.push_back({1024, 0});
        PolygonHarness h(pts);
        const int n = int(pts.size());
        const int firstNew = int(h.m.triangles.size());
        h.m.band = 0.0;
        ASSERT_TRUE(h.m.triangulatePseudoPolygon(h.chain, h.boundary, h.own, h.partner));
        std::vector<int> made{h.own};
        for (int t = firstNew; t < int(h.m.triangles.size()); ++t) made.push_back(t);
        ASSERT_EQ(int(made.size()), n - 2);
        rytest::ExactSum area;
        area.addTwiceArea(pts, 1);  // the chain runs clockwise around the polygon
        for (int t : made) {
            const auto v = h.verts(t);
            ASSERT_GT(orient2d(h.at(v[0]), h.at(v[1]), h.at(v[2])), 0.0) << t;
            area.addTwiceArea(h.at(v[0]), h.at(v[1]), h.at(v[2]));
            for (int q = 0; q < n; ++q) {
                EXPECT_LE(incircle(h.at(v[0]), h.at(v[1]), h.at(v[2]), h.at(q)), 0.0)
                    << "vertex " << q << " inside the circle of triangle " << t;
            }
            // Neighbour links are symmetric.
            const auto nb = h.nbrs(t);
            for (int k = 0; k < 3; ++k) {
                const int* w = triVerts(h.m.triangles[std::size_t(nb[k])]);
                const int j = getLocalEdgeIndex(
                    h.m.triangles[std::size_t(nb[k])], v[k], v[nextLocalIndex(k)]);
                ASSERT_GE(j, 0) << "neighbour " << nb[k] << " (" << w[0] << "," << w[1] << ","
                                << w[2] << ") lacks the edge";
                EXPECT_EQ(triNbrs(h.m.triangles[std::size_t(nb[k])])[j], t);
            }
        }
        EXPECT_EQ(area.sign(), 0) << "area difference " << area.approximate();
    }
}

// ---- insertion: basic cases --------------------------------------------------------------------

TEST(ConstraintInsertion, ExistingEdgeIsOnlyRecorded) {
    Cdt c = smallMesh();
    ASSERT_EQ(c.status, StatusOk);
    RyTriangulationImpl& m = *c.impl;
    int u = -1, w = -1;
    for (const PkMeshTriangle& t : m.triangles) {
        if (!isGhost(t)) {
            u = triVerts(t)[1];
            w = triVerts(t)[2];
            break;
        }
    }
    const Snapshot before = snapshot(m);
    EXPECT_EQ(m.insertConstraintEdge(PkMeshEdge(u, w)), StatusOk);
    Snapshot after = snapshot(m);
    EXPECT_EQ(after.triangles, before.triangles);
    EXPECT_EQ(after.edges, (std::set<std::pair<int, int>>{key(PkMeshEdge(u, w))}));
    EXPECT_TRUE(after.repeats.empty());
    EXPECT_EQ(m.insertConstraintEdge(PkMeshEdge(w, u)), StatusOk);
    EXPECT_EQ(repeatsOf(m, u, w), 1);
    EXPECT_EQ(snapshot(m).triangles, before.triangles);
    EXPECT_TRUE(m.constraintOrigins.empty());
}

TEST(ConstraintInsertion, InvalidEdgesAreSkippedWithoutChange) {
    Cdt c = smallMesh();
    ASSERT_EQ(c.status, StatusOk);
    RyTriangulationImpl& m = *c.impl;
    const Snapshot before = snapshot(m);
    const int n = int(m.vertices.size());
    for (const PkMeshEdge& e : {PkMeshEdge(3, 3),
                                PkMeshEdge(-1, 2),
                                PkMeshEdge(-5, -3),
                                PkMeshEdge(2, n),
                                PkMeshEdge(n + 10, 0),
                                PkMeshEdge(GhostVertex, 1),
                                PkMeshEdge()}) {
        SCOPED_TRACE(testing::Message() << e.EdgeIndex1() << "," << e.EdgeIndex2());
        EXPECT_EQ(m.insertConstraintEdge(e), StatusOk);
        EXPECT_TRUE(snapshot(m) == before);
    }
    // Through the call: the invalid edges change nothing around the valid one.
    Points pts{{0, 0, 0}, {4, 0, 0}, {4, 4, 0}, {0, 4, 0}, {1, 2, 0}, {3, 2.5, 0}, {2, 0.5, 0}};
    for (bool sort : {true, false}) {
        Cdt plain = runCdt(pts, {PkMeshEdge(0, 2)}, sort);
        Cdt noisy = runCdt(pts,
                           {PkMeshEdge(1, 1),
                            PkMeshEdge(0, 2),
                            PkMeshEdge(-3, 4),
                            PkMeshEdge(6, 7),
                            PkMeshEdge(2, 99)},
                           sort);
        ASSERT_EQ(plain.status, StatusOk);
        ASSERT_EQ(noisy.status, StatusOk);
        EXPECT_TRUE(snapshot(*plain.impl) == snapshot(*noisy.impl)) << "sort " << sort;
    }
}

TEST(ConstraintInsertion, EitherIndexOrderGivesTheSameMesh) {
    const Points pts = jitteredGrid(12, 9, 0.3, 5);
    for (bool sort : {true, false}) {
        const Edges forward{PkMeshEdge(0, 107), PkMeshEdge(11, 96), PkMeshEdge(50, 3)};
        Edges reversed;
        for (const PkMeshEdge& e : forward) {
            PkMeshEdge r;
            r.setEdgeIndex(e.EdgeIndex2(), e.EdgeIndex1());
            reversed.push_back(r);
        }
        Cdt a = runCdt(pts, forward, sort);
        Cdt b = runCdt(pts, reversed, sort);
        ASSERT_EQ(a.status, StatusOk);
        ASSERT_EQ(b.status, StatusOk);
        EXPECT_TRUE(snapshot(*a.impl) == snapshot(*b.impl));
        expectValid(*a.impl, forward, int(pts.size()));
    }
}

TEST(ConstraintInsertion, CavityOfTwoTrianglesIsAFlip) {
    // A flat convex quadrilateral whose Delaunay diagonal is the short 1-3; forcing the long
    // 0-2 flips it.
    Points pts{{0, 0, 0}, {10, -1, 0}, {20, 0, 0}, {10, 1, 0}};
    for (bool sort : {true, false}) {
        Cdt plain = runCdt(pts, {}, sort);
        ASSERT_TRUE(hasEdge(*plain.impl, 1, 3));
        Cdt c = runCdt(pts, {PkMeshEdge(0, 2)}, sort);
        ASSERT_EQ(c.status, StatusOk);
        EXPECT_EQ(c.impl->triangles.size(), plain.impl->triangles.size());
        EXPECT_TRUE(hasEdge(*c.impl, 0, 2));
        EXPECT_FALSE(hasEdge(*c.impl, 1, 3));
        EXPECT_TRUE(c.impl->freeTriangles.empty());
        expectValid(*c.impl, {PkMeshEdge(0, 2)}, 4);
    }
}

TEST(ConstraintInsertion, LongConstraintReusesTheCrossedSlots) {
    // A diagonal through a 100 x 100 jittered grid crosses a few hundred triangles; a zigzag of
    // long segments crosses thousands in all.
    const Points pts = jitteredGrid(100, 100, 0.25, 11);
    // Vertex i + 100 j sits near (i, j); the segments do not cross each other.
    const Edges edges{PkMeshEdge(0, 9999),
                      PkMeshEdge(1, 9899),
                      PkMeshEdge(100, 9998),
                      PkMeshEdge(9900, 5048),
                      PkMeshEdge(99, 4951)};
    for (bool sort : {true, false}) {
        SCOPED_TRACE(sort);
        Cdt plain = runCdt(pts, {}, sort);
        ASSERT_EQ(plain.status, StatusOk);
        Cdt c = runCdt(pts, {}, sort);
        RyTriangulationImpl& m = *c.impl;
        // Ghost triangles are never crossed: their slots keep their corners (the real neighbour
        // across the hull edge may be a crossed triangle now living in another slot).
        std::vector<std::pair<int, PkMeshTriangle>> ghosts;
        for (int t = 0; t < int(m.triangles.size()); ++t) {
            if (isGhost(m.triangles[std::size_t(t)]))
                ghosts.emplace_back(t, m.triangles[std::size_t(t)]);
        }
        for (const PkMeshEdge& e : edges) ASSERT_EQ(m.insertConstraintEdge(e), StatusOk);
        EXPECT_EQ(m.triangles.size(), plain.impl->triangles.size());
        EXPECT_TRUE(m.freeTriangles.empty());
        for (const auto& g : ghosts) {
            const PkMeshTriangle& now = m.triangles[std::size_t(g.first)];
            for (int k = 0; k < 3; ++k) EXPECT_EQ(triVerts(now)[k], triVerts(g.second)[k]);
        }
        EXPECT_EQ(m.vertices.size(), pts.size());
        expectValid(m, edges, int(pts.size()));
    }
}

// ---- vertices on the segment and overlaps -------------------------------------------------------

TEST(ConstraintInsertion, SegmentThroughVerticesIsCutIntoPieces) {
    // Vertices 0..6 on y = x / 2 (exactly), others around; the segment 0-6 passes through 1..5.
    Points pts;
    for (int i = 0; i <= 6; ++i) pts.emplace_back(2.0 * i, 1.0 * i, 0);
    for (int i = 0; i < 6; ++i) {
        pts.emplace_back(2.0 * i + 0.7, i + 1.9, 0);
        pts.emplace_back(2.0 * i + 1.3, i - 0.8, 0);
    }
    // On the line but beyond the ends (outside the segment's box): never a cut.
    pts.emplace_back(-2, -1, 0);
    pts.emplace_back(14, 7, 0);
    for (bool sort : {true, false}) {
        for (bool reversed : {false, true}) {
            SCOPED_TRACE(testing::Message() << "sort " << sort << " reversed " << reversed);
            // Reversed numbering: the segment is walked from the other end.
            Points input = pts;
            Edges edges{PkMeshEdge(0, 6)};
            if (reversed) {
                for (int i = 0; i <= 6; ++i) input[std::size_t(i)] = pts[std::size_t(6 - i)];
            }
            Cdt c = runCdt(input, edges, sort);
            ASSERT_EQ(c.status, StatusOk) << describe(input, edges);
            const RyTriangulationImpl& m = *c.impl;
            expectValid(m, edges, int(input.size()));
            EXPECT_EQ(m.constraintEdges.size(), 6u);
            for (int i = 0; i < 6; ++i)
                EXPECT_EQ(m.constraintEdges.count(PkMeshEdge(i, i + 1)), 1u);
            // Each cut names the piece it was cut from; the last piece was inserted whole.
            for (int i = 0; i < 5; ++i) {
                EXPECT_EQ(originsOf(m, i, i + 1), (std::vector<std::pair<int, int>>{{i, 6}}))
                    << "piece " << i;
            }
            EXPECT_TRUE(originsOf(m, 5, 6).empty());
            EXPECT_TRUE(m.constraintRepeats.empty());
        }
    }
}

TEST(ConstraintInsertion, SegmentCutByVerticesMetInsideTheWalk) {
    // Integer grid (massively cocircular): the segment (0, 0)-(18, 9) passes through (2k, k),
    // none of which is a neighbour of the previous one, so every cut happens in the walk.
    const Points pts = rytest::integerGrid(20, 20);
    auto at = [](int x, int y) { return 20 * x + y; };  // column by column
    ASSERT_EQ(pts[std::size_t(at(18, 9))].x, 18.0);
    ASSERT_EQ(pts[std::size_t(at(18, 9))].y, 9.0);
    const Edges edges{PkMeshEdge(at(0, 0), at(18, 9))};
    for (bool sort : {true, false}) {
        SCOPED_TRACE(sort);
        Cdt c = runCdt(pts, edges, sort);
        ASSERT_EQ(c.status, StatusOk);
        const RyTriangulationImpl& m = *c.impl;
        expectValid(m, edges, int(pts.size()));
        ASSERT_EQ(m.constraintEdges.size(), 9u);
        for (int k = 0; k < 9; ++k) {
            const int from = at(2 * k, k), to = at(2 * k + 2, k + 1);
            SCOPED_TRACE(k);
            EXPECT_EQ(m.constraintEdges.count(PkMeshEdge(from, to)), 1u);
            if (k < 8) {
                EXPECT_EQ(originsOf(m, from, to),
                          (std::vector<std::pair<int, int>>{{from, at(18, 9)}}));
            } else {
                EXPECT_TRUE(originsOf(m, from, to).empty());
            }
        }
        EXPECT_EQ(m.vertices.size(), pts.size());
    }
}

TEST(ConstraintInsertion, CollinearOverlapCountsTheSharedPieceTwice) {
    // a, b, c on one line; constraint a-b first, then a-c containing it.
    const std::vector<std::array<int, 3>> numberings{{0, 1, 2}, {2, 1, 0}, {1, 0, 2}, {0, 2, 1}};
    for (const auto& idx : numberings) {
        for (bool sort : {true, false}) {
            SCOPED_TRACE(testing::Message() << idx[0] << idx[1] << idx[2] << " sort " << sort);
            Points pts(3);
            pts[std::size_t(idx[0])] = {0, 0, 0};
            pts[std::size_t(idx[1])] = {4, 2, 0};
            pts[std::size_t(idx[2])] = {10, 5, 0};
            for (int i = 0; i < 5; ++i) {
                pts.emplace_back(2.0 * i + 0.5, i + 3.0, 0);
                pts.emplace_back(2.0 * i + 1.5, i - 2.0, 0);
            }
            const int a = idx[0], b = idx[1], cc = idx[2];
            const Edges edges{PkMeshEdge(a, b), PkMeshEdge(a, cc)};
            Cdt c = runCdt(pts, edges, sort);
            ASSERT_EQ(c.status, StatusOk);
            const RyTriangulationImpl& m = *c.impl;
            expectValid(m, edges, int(pts.size()));
            EXPECT_EQ(m.constraintEdges.size(), 2u);
            EXPECT_EQ(repeatsOf(m, a, b), 1);
            EXPECT_EQ(repeatsOf(m, b, cc), 0);
            EXPECT_EQ(m.constraintEdges.count(PkMeshEdge(b, cc)), 1u);
        }
    }
}

TEST(ConstraintInsertion, DuplicateEdgesCountRepeats) {
    const Points pts = jitteredGrid(8, 8, 0.3, 3);
    const Edges edges{PkMeshEdge(0, 63), PkMeshEdge(63, 0), PkMeshEdge(0, 63), PkMeshEdge(7, 56)};
    for (bool split : {true, false}) {
        Cdt c = runCdt(pts, edges, true, split);
        ASSERT_EQ(c.status, StatusOk);
        const RyTriangulationImpl& m = *c.impl;
        if (split) {
            // 7-56 crossed 0-63: both halves of 0-63 keep its repeat count of 2.
            ASSERT_EQ(m.vertices.size(), 65u);
            EXPECT_EQ(repeatsOf(m, 0, 64), 2);
            EXPECT_EQ(repeatsOf(m, 64, 63), 2);
            EXPECT_EQ(repeatsOf(m, 7, 64), 0);
            EXPECT_EQ(originsOf(m, 0, 64), (std::vector<std::pair<int, int>>{{0, 63}}));
            expectValid(m, edges, 64);
        } else {
            EXPECT_EQ(repeatsOf(m, 0, 63), 2);
            EXPECT_EQ(m.vertices.size(), 64u);
            EXPECT_FALSE(hasEdge(m, 0, 63)) << "crossed by the later 7-56";
            expectValid(m, edges, 64, true, {PkMeshEdge(7, 56)});
        }
    }
}

// ---- crossing constraints -----------------------------------------------------------------------

TEST(ConstraintCrossing, TwoCrossingConstraintsWithAndWithoutSplit) {
    Points pts{{-4, 0, 1}, {4, 0, 3}, {0, -4, 10}, {0, 4, 30}, {-3, 3, 0}, {3, -3, 0}, {2, 3, 0}};
    const Edges edges{PkMeshEdge(0, 1), PkMeshEdge(2, 3)};
    for (bool sort : {true, false}) {
        SCOPED_TRACE(sort);
        Cdt s = runCdt(pts, edges, sort, true);
        ASSERT_EQ(s.status, StatusOk);
        const RyTriangulationImpl& m = *s.impl;
        ASSERT_EQ(m.vertices.size(), 8u);
        const PkGePoint3d& p = m.vertices[7].getPoint();
        EXPECT_EQ(p.x, 0.0);
        EXPECT_EQ(p.y, 0.0);
        EXPECT_EQ(p.z, (((30.0 + 10.0) + 1.0) + 3.0) * 0.25);
        EXPECT_EQ(m.constraintEdges.size(), 4u);
        for (int end : {0, 1, 2, 3}) {
            EXPECT_EQ(m.constraintEdges.count(PkMeshEdge(end, 7)), 1u);
            EXPECT_EQ(repeatsOf(m, end, 7), 0);
        }
        // The earlier edge was split: its halves name it; the later one was inserted in halves.
        EXPECT_EQ(originsOf(m, 0, 7), (std::vector<std::pair<int, int>>{{0, 1}}));
        EXPECT_EQ(originsOf(m, 1, 7), (std::vector<std::pair<int, int>>{{0, 1}}));
        EXPECT_TRUE(originsOf(m, 2, 7).empty());
        expectValid(m, edges, 7);

        Cdt n = runCdt(pts, edges, sort, false);
        ASSERT_EQ(n.status, StatusOk);
        EXPECT_EQ(n.impl->vertices.size(), 7u);
        EXPECT_TRUE(hasEdge(*n.impl, 2, 3));
        EXPECT_FALSE(hasEdge(*n.impl, 0, 1));
        EXPECT_EQ(n.impl->constraintEdges.size(), 2u) << "the crossed edge stays recorded";
        expectValid(*n.impl, edges, 7, true, {PkMeshEdge(2, 3)});
    }
}

TEST(ConstraintCrossing, StarThroughACommonCentre) {
    // k segments through the origin with symmetric ends: the first crossing is exactly (0, 0),
    // and every later segment passes through that vertex and is cut there.
    for (int k : {2, 3, 5, 8}) {
        for (bool sort : {true, false}) {
            SCOPED_TRACE(testing::Message() << "k " << k << " sort " << sort);
            Points pts;
            Edges edges;
            const std::vector<std::array<int, 2>> dirs{
                {16, 0}, {0, 16}, {16, 16}, {16, -16}, {16, 8}, {8, 16}, {-8, 16}, {16, -8}};
            for (int i = 0; i < k; ++i) {
                const int x = dirs[std::size_t(i)][0], y = dirs[std::size_t(i)][1];
                pts.emplace_back(x, y, i);
                pts.emplace_back(-x, -y, 100 + i);
                edges.push_back(PkMeshEdge(2 * i, 2 * i + 1));
            }
            pts.emplace_back(5, 11, 0);
            pts.emplace_back(-13, 2, 0);
            const int n = int(pts.size());
            Cdt c = runCdt(pts, edges, sort, true);
            ASSERT_EQ(c.status, StatusOk) << describe(pts, edges);
            const RyTriangulationImpl& m = *c.impl;
            ASSERT_EQ(int(m.vertices.size()), n + 1);
            const PkGePoint3d& centre = m.vertices[std::size_t(n)].getPoint();
            EXPECT_EQ(centre.x, 0.0);
            EXPECT_EQ(centre.y, 0.0);
            EXPECT_EQ(centre.z, (((1.0 + 0.0) + 100.0) + 101.0) * 0.25);  // first two segments
            EXPECT_EQ(int(m.constraintEdges.size()), 2 * k);
            for (int i = 0; i < 2 * k; ++i)
                EXPECT_EQ(m.constraintEdges.count(PkMeshEdge(i, n)), 1u);
            expectValid(m, edges, n);
        }
    }
}

/// Horizontal segments first, then vertical ones crossing all of them. With `power` the
/// crossings are exact (multiples of a power of two); otherwise the grid is irregular.
struct SegmentGrid {
    Points points;
    Edges horizontal, vertical;
};

SegmentGrid segmentGrid(int rows, int cols, bool exact, std::uint64_t seed) {
    rytest::Rng rng(seed);
    SegmentGrid g;
    const double w = 64.0, h = 64.0;
    auto coord = [&](int i, int n, double extent) {
        const double regular = extent * (i + 1) / (n + 1);
        return exact ? std::floor(regular) : regular + rng.uniform(-0.2, 0.2) * extent / (n + 1);
    };
    for (int j = 0; j < rows; ++j) {
        const double y = coord(j, rows, h);
        const double y2 = exact ? y : y + rng.uniform(-0.3, 0.3);
        g.points.emplace_back(0, y, 0);
        g.points.emplace_back(w, y2, 0);
        g.horizontal.push_back(PkMeshEdge(int(g.points.size()) - 2, int(g.points.size()) - 1));
    }
    for (int i = 0; i < cols; ++i) {
        const double x = coord(i, cols, w);
        const double x2 = exact ? x : x + rng.uniform(-0.3, 0.3);
        g.points.emplace_back(x, -1, 0);
        g.points.emplace_back(x2, h + 1, 0);
        g.vertical.push_back(PkMeshEdge(int(g.points.size()) - 2, int(g.points.size()) - 1));
    }
    return g;
}

TEST(ConstraintCrossing, GridOfSegments) {
    for (bool exact : {true, false}) {
        for (bool sort : {true, false}) {
            SCOPED_TRACE(testing::Message() << "exact " << exact << " sort " << sort);
            const int rows = 9, cols = 13;
            const SegmentGrid g = segmentGrid(rows, cols, exact, 21);
            Edges edges = g.horizontal;
            edges.insert(edges.end(), g.vertical.begin(), g.vertical.end());
            const int n = int(g.points.size());

            Cdt s = runCdt(g.points, edges, sort, true);
            ASSERT_EQ(s.status, StatusOk) << describe(g.points, edges);
            const RyTriangulationImpl& m = *s.impl;
            EXPECT_EQ(int(m.vertices.size()), n + rows * cols);
            EXPECT_EQ(int(m.constraintEdges.size()), rows * (cols + 1) + cols * (rows + 1));
            expectValid(m, edges, n);
            // Horizontal pieces all name their input segment; vertical pieces were inserted as
            // halves of their own and name nothing.
            for (const PkMeshEdge& e : g.horizontal) {
                const Edges path = rytest::constraintPath(m, e.EdgeIndex1(), e.EdgeIndex2());
                ASSERT_EQ(int(path.size()), cols + 1);
                for (const PkMeshEdge& piece : path) {
                    EXPECT_EQ(originsOf(m, piece.EdgeIndex1(), piece.EdgeIndex2()),
                              (std::vector<std::pair<int, int>>{key(e)}));
                }
            }
            for (const PkMeshEdge& e : g.vertical) {
                const Edges path = rytest::constraintPath(m, e.EdgeIndex1(), e.EdgeIndex2());
                ASSERT_EQ(int(path.size()), rows + 1);
                for (const PkMeshEdge& piece : path) {
                    EXPECT_TRUE(originsOf(m, piece.EdgeIndex1(), piece.EdgeIndex2()).empty());
                }
            }
            if (exact) {
                for (int v = n; v < int(m.vertices.size()); ++v) {
                    const PkGePoint3d& p = m.vertices[std::size_t(v)].getPoint();
                    EXPECT_EQ(p.x, std::floor(p.x));
                    EXPECT_EQ(p.y, std::floor(p.y));
                }
            }

            Cdt k = runCdt(g.points, edges, sort, false);
            ASSERT_EQ(k.status, StatusOk);
            EXPECT_EQ(int(k.impl->vertices.size()), n);
            EXPECT_EQ(k.impl->constraintEdges.size(), edges.size());
            for (const PkMeshEdge& e : g.horizontal) {
                EXPECT_FALSE(hasEdge(*k.impl, e.EdgeIndex1(), e.EdgeIndex2()));
            }
            expectValid(*k.impl, edges, n, true, g.vertical);
        }
    }
}

TEST(ConstraintCrossing, RandomSegmentSoup) {
    // Random segments between random points, many crossing each other at arbitrary angles.
    for (std::uint64_t seed = 1; seed <= 12; ++seed) {
        for (bool split : {true, false}) {
            SCOPED_TRACE(testing::Message() << "seed " << seed << " split " << split);
            const Points pts = rytest::uniformPoints(200, seed, 0.0, 1000.0);
            rytest::Rng rng(seed * 7919);
            Edges edges;
            for (int i = 0; i < 40; ++i) {
                edges.push_back(PkMeshEdge(int(rng.below(200)), int(rng.below(200))));
            }
            Cdt c = runCdt(pts, edges, seed % 2 == 0, split);
            ASSERT_EQ(c.status, StatusOk) << describe(pts, edges);
            if (split) {
                expectValid(*c.impl, edges, 200);
            } else {
                expectValid(*c.impl, edges, 200, true, {edges.back()});
            }
        }
    }
}

// ---- statuses
// ------------------------------------------------------------------------------------

TEST(ConstraintStatus, CrossingAtAnEndPointFails) {
    // The segment 0-1 crosses the constraint U-W (2-3) at (0, 0), and one of its ends lies
    // 5e-11 from there: equal under gTol. Tolerance 0 keeps that end off the line U-W.
    for (bool atB : {false, true}) {
        SCOPED_TRACE(atB ? "crossing equals the far end" : "crossing equals the start");
        const Points pts =
            atB ? Points{{0, -1, 0}, {0, 5e-11, 0}, {-1, 0, 0}, {1, 0, 0}, {0, 1, 0}}
                : Points{{0, -5e-11, 0}, {0, 1, 0}, {-1, 0, 0}, {1, 0, 0}, {0, -1, 0}};
        Cdt c = runCdt(pts, {PkMeshEdge(2, 3)}, true, true, 0.0);
        ASSERT_EQ(c.status, StatusOk);
        RyTriangulationImpl& m = *c.impl;
        ASSERT_TRUE(hasEdge(m, 2, 3));
        const Snapshot before = snapshot(m);
        EXPECT_EQ(m.insertConstraintEdge(PkMeshEdge(0, 1)), StatusConstraintFailed);
        EXPECT_TRUE(snapshot(m) == before);
        // The same through the call.
        Cdt d = runCdt(pts, {PkMeshEdge(2, 3), PkMeshEdge(0, 1)}, false, true, 0.0);
        EXPECT_EQ(d.status, StatusConstraintFailed);
        // Without splitting the crossing is not computed and the segment goes in.
        Cdt n = runCdt(pts, {PkMeshEdge(2, 3), PkMeshEdge(0, 1)}, true, false, 0.0);
        EXPECT_EQ(n.status, StatusOk);
        EXPECT_TRUE(hasEdge(*n.impl, 0, 1));
    }
}

TEST(ConstraintStatus, NearlyParallelByTheAbsoluteThresholdFails) {
    // At the scale 1e-6 the direction cross product is 4e-12, below the fixed 1e-10.
    const double s = 1e-6;
    Points pts{{0, -s, 0}, {0, s, 0}, {-s, 0, 0}, {s, 0, 0}, {0.5 * s, 0.7 * s, 0}};
    Cdt c = runCdt(pts, {PkMeshEdge(2, 3)}, true, true, 0.0);
    ASSERT_EQ(c.status, StatusOk);
    RyTriangulationImpl& m = *c.impl;
    const Snapshot before = snapshot(m);
    EXPECT_EQ(m.insertConstraintEdge(PkMeshEdge(0, 1)), StatusConstraintFailed);
    EXPECT_TRUE(snapshot(m) == before);
    // Without splitting the same input goes in.
    Cdt n = runCdt(pts, {PkMeshEdge(2, 3), PkMeshEdge(0, 1)}, true, false, 0.0);
    EXPECT_EQ(n.status, StatusOk);
    EXPECT_TRUE(hasEdge(*n.impl, 0, 1));
}

TEST(ConstraintStatus, NoEnteredTriangleAroundTheStartFails) {
    // With a band wider than every determinant each neighbour is "on the line", but none lies
    // in the box of the horizontal segment: the turn around a finds nothing.
    Points pts{{0, 0, 0}, {10, 0, 0}, {5, 1, 0}, {5, -1, 0}, {2, 3, 0}, {8, -3, 0}};
    Cdt c = runCdt(pts, {});
    ASSERT_EQ(c.status, StatusOk);
    RyTriangulationImpl& m = *c.impl;
    ASSERT_FALSE(hasEdge(m, 0, 1));
    m.band = 1e9;
    const Snapshot before = snapshot(m);
    EXPECT_EQ(m.insertConstraintEdge(PkMeshEdge(0, 1)), StatusConstraintFailed);
    EXPECT_TRUE(snapshot(m) == before);
}

TEST(ConstraintStatus, WalkIntoAGhostTriangleFailsWithoutChange) {
    // In exact arithmetic a segment between two vertices never leaves the hull. To reach the
    // guard, move the far end after triangulating (as a rounding error might): the segment from
    // vertex 5 near (5, 0) now aims at (-20, 22.5) and leaves the grid through its left side
    // near (0, 4.5), far from the triangles of its end vertex 99 in the opposite corner. The
    // walk must stop at the hull and change nothing.
    const Points pts = jitteredGrid(10, 10, 0.2, 9);
    Cdt c = runCdt(pts, {});
    ASSERT_EQ(c.status, StatusOk);
    RyTriangulationImpl& m = *c.impl;
    PkGePoint3d& end = PkMeshFields::point(m.vertices[99]);
    end.x = -20;
    end.y = 22.5;
    const Snapshot before = snapshot(m);
    EXPECT_EQ(m.insertConstraintEdge(PkMeshEdge(5, 99)), StatusConstraintFailed);
    EXPECT_TRUE(snapshot(m) == before);
}

/// Real triangles whose interior the open segment a-b meets (parametric clipping).
int crossedTriangleCount(const RyTriangulationImpl& m, int a, int b) {
    const double* A = vertexXY(m.vertices[std::size_t(a)]);
    const double* B = vertexXY(m.vertices[std::size_t(b)]);
    int count = 0;
    for (const PkMeshTriangle& t : m.triangles) {
        if (isGhost(t)) continue;
        const int* v = triVerts(t);
        double lo = 0.0, hi = 1.0;
        for (int k = 0; k < 3 && lo < hi; ++k) {
            const double* P = vertexXY(m.vertices[std::size_t(v[k])]);
            const double* Q = vertexXY(m.vertices[std::size_t(v[nextLocalIndex(k)])]);
            // Inside: left of P->Q. f(s) = f0 + s * (f1 - f0) along the segment.
            const double f0 = (Q[0] - P[0]) * (A[1] - P[1]) - (Q[1] - P[1]) * (A[0] - P[0]);
            const double f1 = (Q[0] - P[0]) * (B[1] - P[1]) - (Q[1] - P[1]) * (B[0] - P[0]);
            if (f0 <= 0 && f1 <= 0)
                hi = -1.0;
            else if (f0 < 0)
                lo = std::max(lo, f0 / (f0 - f1));
            else if (f1 < 0)
                hi = std::min(hi, f0 / (f0 - f1));
        }
        if (hi - lo > 1e-12) ++count;
    }
    return count;
}

TEST(ConstraintStatus, WalkLimit) {
    const Points pts = jitteredGrid(100, 100, 0.25, 11);
    for (bool sort : {true, false}) {
        SCOPED_TRACE(sort);
        Cdt c = runCdt(pts, {}, sort);
        ASSERT_EQ(c.status, StatusOk);
        RyTriangulationImpl& m = *c.impl;
        const int k = crossedTriangleCount(m, 0, 9999);
        ASSERT_GT(k, 150);
        // k crossed triangles take k - 1 steps; the corner has far fewer than k neighbours.
        m.maxIterations = k - 2;
        const Snapshot before = snapshot(m);
        EXPECT_EQ(m.insertConstraintEdge(PkMeshEdge(0, 9999)), StatusIterationLimit);
        EXPECT_TRUE(snapshot(m) == before);
        m.maxIterations = k - 1;
        EXPECT_EQ(m.insertConstraintEdge(PkMeshEdge(0, 9999)), StatusOk);
        EXPECT_TRUE(hasEdge(m, 0, 9999));
    }
}

TEST(ConstraintStatus, PieceLimit) {
    // Twenty collinear vertices: the input edge 0-19 is cut into 19 pieces, one call each.
    Points pts;
    for (int i = 0; i < 20; ++i) pts.emplace_back(i, 0, 0);
    for (int i = 0; i < 20; ++i) {
        pts.emplace_back(i + 0.5, 1.1, 0);
        pts.emplace_back(i + 0.5, -1.3, 0);
    }
    Cdt c = runCdt(pts, {});
    ASSERT_EQ(c.status, StatusOk);
    RyTriangulationImpl& m = *c.impl;
    m.maxIterations = 8;
    EXPECT_EQ(m.insertConstraintEdge(PkMeshEdge(0, 19)), StatusIterationLimit);
    // The (maxIterations + 1)-th successful piece reports the limit and stays.
    EXPECT_EQ(m.constraintEdges.size(), 9u);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(m.constraintEdges.count(PkMeshEdge(i, i + 1)), 1u);
    // One more allowed call finishes a shorter edge exactly at the limit.
    Cdt d = runCdt(pts, {});
    d.impl->maxIterations = 8;
    EXPECT_EQ(d.impl->insertConstraintEdge(PkMeshEdge(0, 8)), StatusOk);
    EXPECT_EQ(d.impl->constraintEdges.size(), 8u);
}

TEST(ConstraintStatus, FailedCrossingSplitLeavesRecordsAlone) {
    // With no flips allowed, legalising the vertex put on U-W fails: status 1, the vertex stays
    // in the mesh, the records keep U-W whole.
    Points pts{{0, -1, 0}, {0, 1, 0}, {-1, 0, 0}, {1, 0, 0}, {0.2, -3, 0}};
    Cdt c = runCdt(pts, {PkMeshEdge(2, 3)});
    ASSERT_EQ(c.status, StatusOk);
    RyTriangulationImpl& m = *c.impl;
    const int t = enteredTriangle(m, 0, 1);
    ASSERT_GE(t, 0);
    vertexTriangle(m.vertices[0]) = t;  // the turn around A succeeds without counting
    m.maxIterations = 0;
    const Snapshot before = snapshot(m);
    EXPECT_EQ(m.insertConstraintEdge(PkMeshEdge(0, 1)), StatusFailed);
    Snapshot after = snapshot(m);
    EXPECT_EQ(after.edges, before.edges);
    EXPECT_EQ(after.repeats, before.repeats);
    EXPECT_EQ(after.origins, before.origins);
    ASSERT_EQ(m.vertices.size(), 6u);
    const int nt = vertexTriangle(m.vertices[5]);
    ASSERT_GE(nt, 0);
    const int* v = triVerts(m.triangles[std::size_t(nt)]);
    EXPECT_TRUE(v[0] == 5 || v[1] == 5 || v[2] == 5);
    MeshValidatorOptions options;
    options.checkDelaunay = false;
    RY_EXPECT_VALID_MESH(m, options);
}

TEST(ConstraintStatus, NegativeOrNaNToleranceActsAsZero) {
    // Exact collinearities and cocircularities: the band decides nothing here beyond its sign.
    Points pts;
    for (int i = 0; i <= 6; ++i) pts.emplace_back(2.0 * i, 1.0 * i, 0);
    for (int i = 0; i < 6; ++i) {
        pts.emplace_back(2.0 * i + 1, i + 2.5, 0);
        pts.emplace_back(2.0 * i + 1, i - 1.5, 0);
    }
    const Edges edges{PkMeshEdge(0, 6), PkMeshEdge(7, 18), PkMeshEdge(8, 17)};
    for (bool sort : {true, false}) {
        Cdt zero = runCdt(pts, edges, sort, true, 0.0);
        ASSERT_EQ(zero.status, StatusOk);
        expectValid(*zero.impl, edges, int(pts.size()));
        for (double tol : {-1.0, -1e-9, std::numeric_limits<double>::quiet_NaN()}) {
            SCOPED_TRACE(tol);
            Cdt c = runCdt(pts, edges, sort, true, tol);
            ASSERT_EQ(c.status, StatusOk);
            EXPECT_TRUE(snapshot(*c.impl) == snapshot(*zero.impl));
        }
    }
}

TEST(ConstraintStatus, FirstFailureEndsTheCallAndKeepsEarlierEdges) {
    const double s = 1e-6;
    Points pts{{0, -s, 0}, {0, s, 0}, {-s, 0, 0}, {s, 0, 0}, {0.5 * s, 0.7 * s, 0}, {-s, s, 0}};
    // Edge 2 fails (parallel by the absolute threshold); edge 3 is never inserted.
    Cdt c = runCdt(pts, {PkMeshEdge(2, 3), PkMeshEdge(0, 1), PkMeshEdge(5, 4)}, true, true, 0.0);
    EXPECT_EQ(c.status, StatusConstraintFailed);
    EXPECT_EQ(c.impl->constraintEdges.size(), 1u);
    EXPECT_EQ(c.impl->constraintEdges.count(PkMeshEdge(2, 3)), 1u);
    // Fewer than three points: no edge is looked at.
    Cdt few = runCdt({{0, 0, 0}, {1, 0, 0}}, {PkMeshEdge(0, 1)});
    EXPECT_EQ(few.status, StatusTooFewPoints);
    EXPECT_TRUE(few.impl->constraintEdges.empty());
}

}  // namespace
