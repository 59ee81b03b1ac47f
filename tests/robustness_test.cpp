// Failure paths and the object's contract. One table of statuses and iteration limits: each row
// must end in its documented status with a structurally valid (partial) mesh, the evidence that
// the named limit stopped it, and an object that still copies and triangulates. One allocation
// sweep over every entry point: a failure propagates std::bad_alloc and leaves the object (and the
// caller's arrays) usable and unchanged where promised. Then the handle's members and the
// exported records' members.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <functional>
#include <limits>
#include <numeric>
#include <stdexcept>

#include "mesh/HelperThread.h"
#include "mesh/RyTriangulationImpl.h"
#include "support/MeshValidator.h"
#include "support/TestSupport.h"

namespace {

using namespace rytest;

/// The object still works: a copy and an assigned object equal it, and a new constrained
/// triangulation on it succeeds with a valid mesh.
void expectUsable(RyTriangulation& t) {
    RyTriangulation copy(t), assigned(false, false);
    assigned = t;
    EXPECT_EQ(differences(record(t), record(copy)), "");
    EXPECT_EQ(differences(record(t), record(assigned)), "");
    const Points grid = integerGrid(6, 6);
    const Edges ring = {PkMeshEdge(7, 10),
                        PkMeshEdge(10, 28),
                        PkMeshEdge(28, 25),
                        PkMeshEdge(25, 7),
                        PkMeshEdge(0, 35),
                        PkMeshEdge(5, 30),
                        PkMeshEdge(10, 7)};
    const int limit = record(t).maxIterations;
    record(t).maxIterations = 1000000;
    ASSERT_EQ(t.delaunayTriangulationWithConstraints(grid, ring), StatusOk);
    record(t).maxIterations = limit;
    Checks c;
    c.allowMissing = !(record(t).options & RyTriangulationImpl::bSplitCrossingConstraints);
    c.delaunay = !c.allowMissing;
    EXPECT_EQ(validate(record(t), c), "");
}

struct Row {
    const char* name;
    Points points;
    Edges edges;  // empty: delaunayTriangulation
    PkTriangulationStatus status;
    int maxIterations = 1000000;
    double band = 1e-9;
    bool split = true;
    std::function<void(const RyTriangulationImpl&)> evidence = [](const RyTriangulationImpl&) {};
    int orders = 3;  // bit 0 shuffled, bit 1 sorted: where the limit is met first
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.name;
}

/// Vertices inserted: between the first three and all of them when a limit stopped the
/// insertions.
std::function<void(const RyTriangulationImpl&)> stoppedAfter(int atLeast) {
    return [atLeast](const RyTriangulationImpl& m) {
        int inserted = 0;
        for (const PkMeshPoint3d& v : m.vertices) inserted += v.getTriangleIndex() >= 0;
        EXPECT_TRUE(inserted >= atLeast && inserted < int(m.vertices.size())) << inserted;
    };
}

void untouched(const RyTriangulationImpl& m) {
    EXPECT_TRUE(m.vertices.empty() && m.triangles.empty());
}

void nothingBuilt(const RyTriangulationImpl& m) {
    EXPECT_TRUE(m.triangles.empty());
    for (const PkMeshPoint3d& v : m.vertices) EXPECT_EQ(v.getTriangleIndex(), -1);
}

std::vector<Row> rows() {
    Points repeated = uniformPoints(30, 7), nan = integerGrid(3, 3), inf = nan;
    repeated.insert(repeated.begin() + 15, repeated[10]);
    nan[4].x = std::nan("");
    inf[4].y = -std::numeric_limits<double>::infinity();
    const double big = 0x1p200, small = 0x1p-200;
    // The segment 0-1 crosses 2-3 at (0, 0), 5e-11 from its end: equal under the global
    // tolerance. At scale 1e-6 the crossing directions' cross product is below the fixed 1e-10.
    const Points nearEnd = {{0, -1, 0}, {0, 5e-11, 0}, {-1, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    const Points tinyCross = {
        {0, -1e-6, 0}, {0, 1e-6, 0}, {-1e-6, 0, 0}, {1e-6, 0, 0}, {5e-7, 7e-7, 0}};
    const Edges crossing = {PkMeshEdge(2, 3), PkMeshEdge(0, 1)};
    Points line;  // 30 vertices on y = 0, the others off it
    for (int i = 0; i < 60; ++i)
        line.emplace_back(i % 30 + (i >= 30) * 0.5, i < 30 ? 0 : i % 2 ? 1.3 : -1.1, 0);
    return {
        {"too_few_points",
         uniformPoints(2, 1),
         {},
         StatusTooFewPoints,
         1000000,
         1e-9,
         true,
         untouched},
        {"no_points_constrained",
         {},
         {PkMeshEdge(0, 1)},
         StatusTooFewPoints,
         1000000,
         1e-9,
         true,
         untouched},
        {"repeated_point", repeated, {}, StatusCoincidentVertex},
        {"four_collinear",
         {{0, 0, 0}, {1, 2, 0}, {3, 6, 0}, {-2, -4, 0}},
         {},
         StatusLocateFailed,
         2000,
         1e-9,
         true,
         nothingBuilt},
        {"collinear_within_band",
         {{0, 0, 0}, {1, 0, 0}, {2, 1e-10, 0}, {3, 0, 0}, {4, -1e-10, 0}},
         {},
         StatusLocateFailed,
         2000,
         1e-9,
         true,
         nothingBuilt},
        {"three_collinear",
         {{0, 0, 0}, {1, 1, 0}, {5, 5, 0}},
         {},
         StatusOk,
         1000000,
         1e-9,
         true,
         [](const RyTriangulationImpl& m) { EXPECT_EQ(m.triangles.size(), 4u); }},
        {"nan_coordinate", nan, {PkMeshEdge(0, 8)}, StatusFailed, 1000000, 1e-9, true, untouched},
        {"infinite_coordinate", inf, {}, StatusFailed, 1000000, 1e-9, true, untouched},
        {"beyond_2_200",
         {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0x1p201, 2, 0}},
         {},
         StatusFailed,
         1000000,
         1e-9,
         true,
         untouched},
        {"below_2_minus_200",
         {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0x1p200, 0x1.8p-201, 0}},
         {},
         StatusFailed,
         1000000,
         1e-9,
         true,
         untouched},
        {"subnormal",
         {{5e-324, 0, 0}, {0, 5e-324, 0}, {1e-323, 1.5e-323, 0}, {0, 0, 0}},
         {},
         StatusFailed,
         1000000,
         1e-9,
         true,
         untouched},
        {"ends_of_the_exact_range",
         {{big, 0, 0}, {-big, 0, 0}, {0, big, 0}, {0, -big, 0}, {small, small, 0}, {0, 0, 0}},
         {PkMeshEdge(0, 1), PkMeshEdge(2, 3)},
         StatusOk,
         20000,
         0.0},
        {"negative_band_is_zero",
         integerGrid(6, 6),
         {PkMeshEdge(0, 35), PkMeshEdge(5, 30)},
         StatusOk,
         1000000,
         -1.0},
        {"nan_band_is_zero",
         integerGrid(6, 6),
         {PkMeshEdge(0, 35), PkMeshEdge(5, 30)},
         StatusOk,
         1000000,
         std::nan("")},
        {"first_triangle_without_attempts",
         integerGrid(3, 3),
         {},
         StatusLocateFailed,
         0,
         1e-9,
         true,
         nothingBuilt},
        // Walks from the nearest vertex are short, flips are not; walks from the previous vertex
        // in the sorted order can be long.
        {"flip_limit",
         uniformPoints(2000, 57),
         {},
         StatusIterationLimit,
         20,
         1e-9,
         true,
         stoppedAfter(20),
         1},
        {"walk_limit",
         uniformPoints(2000, 57),
         {},
         StatusLocateFailed,
         30,
         1e-9,
         true,
         stoppedAfter(20),
         2},
        {"piece_limit",
         line,
         {PkMeshEdge(0, 29)},
         StatusIterationLimit,
         20,
         1e-9,
         true,
         [](const RyTriangulationImpl& m) {  // the 21st piece went in, then the count stopped
             EXPECT_EQ(m.constraintEdges.size(), 21u);
             EXPECT_EQ(m.constraintEdges.count(PkMeshEdge(20, 21)), 1u);
         },
         1},
        {"crossing_at_an_end",
         nearEnd,
         crossing,
         StatusConstraintFailed,
         1000000,
         0.0,
         true,
         [](const RyTriangulationImpl& m) { EXPECT_EQ(m.constraintEdges.size(), 1u); }},
        {"crossing_at_an_end_unsplit", nearEnd, crossing, StatusOk, 1000000, 0.0, false},
        {"nearly_parallel_below_the_threshold",
         tinyCross,
         crossing,
         StatusConstraintFailed,
         1000000,
         0.0},
        {"nearly_parallel_unsplit", tinyCross, crossing, StatusOk, 1000000, 0.0, false},
    };
}

class Statuses : public testing::TestWithParam<Row> {};

TEST_P(Statuses, EndInTheDocumentedStatus) {
    const Row& row = GetParam();
    for (const bool sorted : {true, false}) {
        if (!(row.orders & (sorted ? 2 : 1))) continue;
        const Outcome run = triangulate(row.points,
                                        row.edges.empty() ? nullptr : &row.edges,
                                        sorted,
                                        row.split,
                                        row.band,
                                        row.maxIterations);
        EXPECT_EQ(run.status, row.status) << (sorted ? "sorted" : "shuffled");
        Checks c;
        c.partial = run.status != StatusOk;
        c.allowDegenerate = row.points.size() == 3;
        c.allowMissing = !row.split;
        c.geometry = run.status == StatusOk;
        c.delaunay = row.split;
        c.crossingsFrom = int(row.points.size());
        if (row.status == StatusOk && !row.edges.empty()) {
            c.required = row.split ? row.edges : Edges{row.edges.back()};
        }
        EXPECT_EQ(validate(run.mesh(), c), "");
        row.evidence(run.mesh());
        expectUsable(*run.tri);
    }
}

INSTANTIATE_TEST_SUITE_P(Table,
                         Statuses,
                         testing::ValuesIn(rows()),
                         [](const testing::TestParamInfo<Row>& info) { return info.param.name; });

// Limits met inside one constraint edge, on a finished Delaunay mesh: the walk along it leaves
// the mesh as it was (7), and so does turning around its start (5).
TEST(Statuses, ConstraintLimitsLeaveTheMeshAsItWas) {
    const Outcome run = triangulate(integerGrid(8, 8), nullptr);
    RyTriangulationImpl& m = run.mesh();
    const RyTriangulationImpl before = m;
    // From vertex 27 (the smaller index: the walk starts there) to a b that no grid vertex
    // cuts, leaving 27 not through the first triangle turned to, with no room to turn further.
    const int* v = triVerts(m.triangles[std::size_t(vertexTriangle(m.vertices[27]))]);
    const double* c = vertexXY(m.vertices[std::size_t(v[v[0] == 27 ? 2 : v[1] == 27 ? 0 : 1])]);
    int b = 28;
    while (m.isMeshEdge(27, b) || std::gcd(b % 8 - 3, b / 8 - 3) != 1 ||
           orient2d(vertexXY(m.vertices[27]), vertexXY(m.vertices[std::size_t(b)]), c) >= 0) {
        ++b;
    }
    m.maxIterations = 0;
    EXPECT_EQ(m.insertConstraintEdge(PkMeshEdge(27, b)), StatusConstraintFailed) << b;
    m.maxIterations = 6;  // room to turn around vertex 8, not to walk to 55
    EXPECT_EQ(m.insertConstraintEdge(PkMeshEdge(8, 55)), StatusIterationLimit);
    m.maxIterations = before.maxIterations;
    EXPECT_EQ(differences(m, before), "");
    EXPECT_EQ(m.insertConstraintEdge(PkMeshEdge(8, 55)), StatusOk);
}

/// Runs `call` under every allocation budget until it succeeds; after each failure `after`.
template <class Call, class After>
void sweep(Call call, After after) {
    EXPECT_GT(sweepAllocations(call, after), 0) << "never ran out, or never succeeded";
}

TEST(OutOfMemory, EveryEntryPointPropagatesAndRecovers) {
    sweep([] { RyTriangulation t; }, [](int) {});
    sweep([] { RyTriangulation t(100); }, [](int) {});
    sweep([] { RyTriangulation t(true, false); }, [](int) {});
    const Points grid = integerGrid(6, 6);
    const Edges edges = {PkMeshEdge(7, 10),
                         PkMeshEdge(10, 28),
                         PkMeshEdge(28, 25),
                         PkMeshEdge(25, 7),
                         PkMeshEdge(0, 35),
                         PkMeshEdge(5, 30),
                         PkMeshEdge(10, 7)};
    RyTriangulation source;
    ASSERT_EQ(source.delaunayTriangulationWithConstraints(grid, edges), StatusOk);
    source.deleteOuterTrianglesAndHoles();
    sweep([&] { RyTriangulation copy(source); }, [](int) {});
    // A failed assignment leaves the target as it was.
    RyTriangulation target;
    ASSERT_EQ(target.delaunayTriangulation(integerGrid(4, 4)), StatusOk);
    RyTriangulation before(target);
    sweep([&] { target = source; },
          [&](int) { EXPECT_EQ(differences(record(target), record(before)), ""); });
    // Both calls, both orders, with and without the helper thread (either thread may run out):
    // a valid partial mesh in vertex indices after every failure of the plain call, and a
    // usable object.
    const Points many = uniformPoints(1500, 11);
    const std::size_t saved = helperThreadMinPoints();
    for (int mode = 0; mode < 8; ++mode) {
        setHelperThreadMinPoints(mode & 4 ? 0 : std::numeric_limits<std::size_t>::max());
        const bool plain = !(mode & 2);
        RyTriangulation t(mode & 1, true);
        int deepest = 0;
        sweep(
            [&] {
                std::srand(5);
                plain ? t.delaunayTriangulation(many)
                      : t.delaunayTriangulationWithConstraints(grid, edges);
            },
            [&](int budget) {
                if (!plain) return budget % 7 ? void() : expectUsable(t);
                Checks c;
                c.partial = true;
                c.geometry = false;  // a flip sequence may have been cut short
                EXPECT_EQ(validate(record(t), c), "") << "budget " << budget;
                int inserted = 0;
                for (const PkMeshPoint3d& v : record(t).vertices)
                    inserted += v.getTriangleIndex() >= 0;
                deepest = std::max(deepest, inserted);
            });
        expectUsable(t);
        EXPECT_TRUE(!plain || deepest > 3)
            << "no budget ran out inside the insertions, mode " << mode;
    }
    setHelperThreadMinPoints(saved);
    // Finishing keeps what it appended; clean-up leaves the caller's arrays as they were.
    sweep([&] { RyTriangulation(source).deleteOuterTrianglesAndHoles(); }, [](int) {});
    sweep([&] { RyTriangulation(source).deleteGhostTriangle(); }, [](int) {});
    Points messy = grid, p = grid;
    messy.push_back(grid[3]);
    messy.emplace_back(std::nan(""), 0, 0);
    Edges messyEdges = edges, e = edges;
    messyEdges.emplace_back(3, 37);
    p = messy;
    e = messyEdges;
    PkConvert2dVertex plane = kXYPlane;
    PkGeTol tol;
    sweep([&] { source.deleteDuplicateVertices(p, e, plane, tol); },
          [&](int) {
              EXPECT_EQ(std::memcmp(p.data(), messy.data(), messy.size() * sizeof messy[0]), 0);
              EXPECT_TRUE(e == messyEdges);
          });
    EXPECT_EQ(p.size(), grid.size());
}

TEST(Handle, ConstructionCopiesAndTheMissingRecord) {
    EXPECT_EQ(record(*std::make_unique<RyTriangulation>()).options, 3u);
    EXPECT_EQ(record(*std::make_unique<RyTriangulation>(true, false)).options, 1u);
    EXPECT_EQ(record(*std::make_unique<RyTriangulation>(false, true)).options, 2u);
    RyTriangulation counted(100);
    EXPECT_EQ(record(counted).options, 0u);
    EXPECT_GE(record(counted).triangles.capacity(), 200u);
    EXPECT_EQ(record(counted).maxIterations, 1000000);
    EXPECT_EQ(record(counted).cdtTolerance, 1e-9);
    for (int n : {-1, INT_MIN, 1 << 30, INT_MAX})
        EXPECT_THROW(RyTriangulation t(n), std::length_error) << n;

    // Triangles come out only after a finishing call; a copy finishes on its own.
    RyTriangulation t;
    t.setCDTTolerence(-0.0);
    EXPECT_TRUE(std::signbit(record(t).cdtTolerance));
    ASSERT_EQ(t.delaunayTriangulation(uniformPoints(12, 3)), StatusOk);
    EXPECT_TRUE(t.getMeshTriangles().empty());
    RyTriangulation copy(t);
    copy.deleteGhostTriangle();
    std::size_t real = 0;
    for (const PkMeshTriangle& tri : record(t).triangles) real += !isGhost(tri);
    EXPECT_EQ(copy.getMeshTriangles().size(), real);
    EXPECT_TRUE(t.getMeshTriangles().empty());
    const RyTriangulationImpl snapshot = record(copy);
    RyTriangulation& alias = copy;
    copy = alias;
    EXPECT_EQ(differences(record(copy), snapshot), "");
    // A second triangulation starts from a clean record, options and tolerance kept.
    std::srand(1);
    ASSERT_EQ(copy.delaunayTriangulation(integerGrid(3, 3)), StatusOk);
    EXPECT_EQ(copy.getMeshVertices().size(), 9u);
    EXPECT_TRUE(copy.getMeshTriangles().empty());
    EXPECT_EQ(differences(record(copy),
                          record(*triangulate(integerGrid(3, 3), nullptr, true, true, -0.0).tri)),
              "");

    // Without a record the calls report StatusLocateFailed and everything else does nothing.
    RyTriangulationAccess::dropRecord(t);
    Points points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    Edges edges = {PkMeshEdge(0, 1)};
    PkConvert2dVertex plane = kXYPlane;
    PkGeTol tol;
    t.setCDTTolerence(1.0);
    t.deleteDuplicateVertices(points, plane, tol);
    t.deleteDuplicateVertices(points, edges, plane, tol);
    EXPECT_EQ(points.size(), 3u);
    EXPECT_EQ(t.delaunayTriangulation(points), StatusLocateFailed);
    EXPECT_EQ(t.delaunayTriangulationWithConstraints(points, edges), StatusLocateFailed);
    t.deleteGhostTriangle();
    t.deleteOuterTrianglesAndHoles();
    EXPECT_TRUE(t.getMeshTriangles().empty() && t.getMeshVertices().empty());
    RyTriangulation fromEmpty(t);
    EXPECT_EQ(RyTriangulationAccess::impl(fromEmpty), nullptr);
}

TEST(Records, ExportedMembersFollowTheirRules) {
    for (int a = -3; a <= 4; ++a) {
        for (int b = -3; b <= 4; ++b) {
            PkMeshEdge set(1, 2);
            set.setEdgeIndex(a, b);
            const PkMeshEdge e(a, b), copy(e);
            EXPECT_EQ(e.EdgeIndex1(), a == b ? -1 : std::min(a, b));
            EXPECT_EQ(e.EdgeIndex2(), a == b ? -1 : std::max(a, b));
            EXPECT_TRUE(set == e && copy == e && e == PkMeshEdge(b, a) && !(e != PkMeshEdge(b, a)));
            EXPECT_EQ(e != PkMeshEdge(1, 2), !(a + b == 3 && a * b == 2));
        }
    }
    PkMeshTriangle t;
    EXPECT_TRUE(t.isGhostTri() && !t.isAux() && t.getVertexIndexAt(1) == -1 &&
                t.getNeighborIndex(1) == -1);
    t.setVertexIndex(10, 11, 12);
    t.setNeighborIndex(20, 21, 22);
    EXPECT_FALSE(t.isGhostTri());
    for (int k = -2; k <= 4; ++k) {
        const int clamped = std::min(2, std::max(0, k));
        EXPECT_EQ(t.getVertexIndexAt(k), 10 + clamped);
        EXPECT_EQ(t.getNeighborIndex(k), 20 + clamped);
    }
    for (int k = 0; k < 3; ++k) {
        int opposed = -7;
        EXPECT_TRUE(t.isContain(10 + k) && t.getOpposedTriangle(10 + k, opposed));
        EXPECT_EQ(opposed, 20 + (k + 1) % 3);
        EXPECT_EQ(t.getLocalVertexIndex(10 + k), k);
        EXPECT_EQ(t.getLocalNeighborIndex(20 + k), k);
        EXPECT_EQ(t.getNeighborIndex(10 + k, 10 + (k + 1) % 3), 20 + k);
        EXPECT_EQ(t.getNeighborIndex(10 + (k + 1) % 3, 10 + k), 20 + k);
    }
    int opposed = -7;
    EXPECT_FALSE(t.isContain(13) || t.getOpposedTriangle(13, opposed));
    EXPECT_EQ(opposed, -7);
    EXPECT_EQ(t.getLocalVertexIndex(13) + t.getLocalNeighborIndex(23), 4);
    EXPECT_EQ(t.getNeighborIndex(10, 99), 22);
    EXPECT_EQ(t.getNeighborIndex(98, 99), 21);
    t.setVertexIndexAt(-2, 7);
    t.setNeighborIndexAt(21, -5);
    EXPECT_TRUE(t.isGhostTri() && t.getVertexIndexAt(2) == -2 && t.getNeighborIndex(0) == 21);
    EXPECT_TRUE(t.updateNeighborIndexAt(50, 21));  // the first match only
    EXPECT_TRUE(t.getNeighborIndex(0) == 50 && t.getNeighborIndex(1) == 21);
    EXPECT_FALSE(t.updateNeighborIndexAt(51, 99));
    PkMeshFields::flags(t) = 0xfffffffeu;
    t.setFlagbAux(true);
    EXPECT_TRUE(t.isAux() && PkMeshFields::flags(t) == 0xffffffffu);
    t.setFlagbAux(false);
    EXPECT_EQ(PkMeshFields::flags(t), 0xfffffffeu);

    PkMeshPoint3d::Type excluded = PkMeshPoint3d::kExcluded;
    PkMeshPoint3d v(PkGePoint3d(1, 2, 3), excluded), plain(PkGePoint3d(4, 5, 6));
    EXPECT_EQ(v.getType(), PkMeshPoint3d::kExcluded);
    EXPECT_EQ(plain.getType(), PkMeshPoint3d::kRegular);
    EXPECT_EQ(v.getTriangleIndex(), -1);
    v.setTriangleIndex(9);
    EXPECT_TRUE(v.getTriangleIndex() == 9 && v.getPoint().z == 3 && PkMeshFields::flags(v) == 64u);
}

}  // namespace
