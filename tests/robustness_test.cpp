// Failure paths and the object's contract: one table of statuses and iteration limits (each row
// ends in its status with a valid partial mesh, the evidence of what stopped it, and an object
// still usable); one allocation sweep over every entry point; the handle; the triangle type.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "accel/HelperThread.h"
#include "state/RyTriangulationImpl.h"
#include "support/MeshValidator.h"
#include "support/TestSupport.h"

namespace {

using namespace rytest;

const Points kGrid = integerGrid(6, 6);
const Edges kRing = edges("7 10 10 28 28 25 25 7 0 35 5 30 10 7");  // a ring, crossed, repeated

/// The object still works: copies equal it, and a new constrained triangulation on it succeeds.
void expectUsable(RyTriangulation& t) {
    RyTriangulation copy(t), assigned(false, false);
    assigned = t;
    EXPECT_EQ(differences(record(t), record(copy)) + differences(record(t), record(assigned)), "");
    const int limit = record(t).maxIterations;
    record(t).maxIterations = 1000000;
    ASSERT_EQ(t.delaunayTriangulationWithConstraints(kGrid, kRing), StatusOk);
    record(t).maxIterations = limit;
    Checks c;
    c.allowMissing = !(record(t).options & RyTriangulationImpl::bSplitCrossingConstraints);
    c.delaunay = !c.allowMissing;
    EXPECT_EQ(validate(record(t), c), "");
}

int inserted(const RyTriangulationImpl& m) {
    int n = 0;
    for (const PkMeshPoint3d& v : m.mesh.vertices) n += v.getTriangleIndex() >= 0;
    return n;
}

/// What a run left, -1 where not checked: vertices, inserted vertices (below -1: at least that
/// many, not all), constraint edges, and one edge among them.
struct Left {
    int vertices = -1, inserted = -1, constraints = -1;
    PkMeshEdge edge = PkMeshEdge();
};
const Left none, refused{0, 0}, unbuilt{-1, 0}, stopped{-1, -20}, first{-1, -1, 1};

void expectLeft(const Left& e, const RyTriangulationImpl& m) {
    const int n = inserted(m), all = int(m.mesh.vertices.size());
    EXPECT_TRUE(e.vertices < 0 || all == e.vertices) << all;
    EXPECT_TRUE(e.inserted == -1 ||
                (e.inserted < 0 ? n >= -e.inserted && n < all : n == e.inserted))
        << n;
    EXPECT_TRUE(e.inserted != 0 || m.mesh.triangles.empty());
    EXPECT_TRUE(e.constraints < 0 || int(m.constraints.edges.size()) == e.constraints);
    EXPECT_TRUE(e.edge == PkMeshEdge() || m.constraints.edges.count(e.edge));
}

struct Row {
    const char* name;
    Points points;
    Edges edges;  // empty: delaunayTriangulation
    PkTriangulationStatus status;
    Left left = none;
    int limit = 1000000;
    double band = 1e-9;
    bool split = true;
    int orders = 3;  // bit 0 shuffled, bit 1 sorted: where the limit is met first
    friend void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }
};

std::vector<Row> rows() {
    Points repeated = uniformPoints(30, 7), nan = kGrid, line = parse("0 0");
    repeated.insert(repeated.begin() + 15, repeated[10]);
    nan[4].x = std::nan("");
    nan[5].y = -HUGE_VAL;
    for (int i = 1; i < 60; ++i)
        line.emplace_back(i % 30 + (i >= 30) * 0.5, i < 30 ? 0 : i % 2 ? 1.3 : -1.1, 0);
    Points ends = parse("1 0 -1 0 0 1 0 -1 0 0 0 0"), below = parse("0 0 1 0 0 1 1 3");
    for (int i = 0; i < 4; ++i)
        ends[std::size_t(i)].x *= 0x1p200, ends[std::size_t(i)].y *= 0x1p200;
    ends[4] = PkGePoint3d(0x1p-200, 0x1p-200, 0);
    below[3] = PkGePoint3d(0x1p200, 0x1.8p-201, 0);
    // The segment 0-1 crosses 2-3 at (0, 0), 5e-11 from its end: equal under the global
    // tolerance. At scale 1e-6 the directions' cross product is below the fixed 1e-10.
    const Points nearEnd = parse("0 -1 0 5e-11 -1 0 1 0 0 1");
    const Points parallel = parse("0 -1e-6 0 1e-6 -1e-6 0 1e-6 0 5e-7 7e-7");
    const Points many = uniformPoints(2000, 57), grid3 = integerGrid(3, 3);
    const Points inBand = parse("0 0 1 0 2 1e-10 3 0 4 -1e-10");
    const Edges x = edges("2 3 0 1"), ab = edges("0 1"), diagonals = edges("0 35 5 30");
    const Left pieces{-1, -1, 21, PkMeshEdge(20, 21)};  // the 21st went in, then the stop
    const double nanBand = std::nan("");
    Points strip = parse("-1 0.5 41 0.5");  // the segment 0-1 crosses 80 triangles
    for (int i = 0; i < 80; ++i) strip.emplace_back(i / 2 + (i % 2) * 0.5, i % 2, 0);
    const Left unwalked{-1, 82, 0};  // the mesh as it was
    // A 16 x 4 grid of spacing 2^-8 under a band of 1e-6: every cavity side is fanned whatever its
    // shape; a piece whose fan would fold the mesh is undone and refused.
    Points fold;
    for (int c = 0; c < 64; ++c)
        fold.emplace_back(std::ldexp(c / 4 - 1, -8), std::ldexp(c % 4 - 1, -8), 0);
    Edges folding;
    for (int c = 5; c < 15; ++c) folding.emplace_back(4 * c + 3, 4 * c + 7);
    folding.emplace_back(0, 63);
    for (int c = 0; c < 15; ++c) folding.emplace_back(4 * c, 4 * c + 4);
    // 0-5 crosses 1-2 (split) and, rounded, lands on the end of 3-4: it passes through it.
    const Points crossedEnd = parse("15872 0 16128 0 12288 256 14592 256 14848 256 13312 512");
    const Left throughEnd{7, -1, -1, PkMeshEdge(3, 4)};
    // Splitting 2-3 at the crossing needs more flips than 3: the vertex stays, 2-3 stays whole.
    const Left unsplit{6, -1, 1};
    const Points turn = parse("6 5 13 12 12 13 1 5 3 2 4 14 0 8 4 0");
    return {
        {"too_few_points", uniformPoints(2, 1), {}, StatusTooFewPoints, refused},
        {"no_points_constrained", {}, edges("0 1"), StatusTooFewPoints, refused},
        {"repeated_point", repeated, {}, StatusCoincidentVertex},
        {"four_collinear", parse("0 0 1 2 3 6 -2 -4"), {}, StatusLocateFailed, unbuilt, 2000},
        {"collinear_in_band", inBand, {}, StatusLocateFailed, unbuilt, 2000},
        {"three_collinear", parse("0 0 1 1 5 5"), {}, StatusOk},
        {"non_finite_coordinates", nan, edges("0 8"), StatusFailed, refused},
        {"beyond_2_200", parse("0 0 1 0 0 1 3.3e60 2"), {}, StatusFailed, refused},
        {"below_2_minus_200", below, {}, StatusFailed, refused},
        {"ends_of_the_exact_range", ends, edges("0 1 2 3"), StatusOk, none, 20000, 0.0},
        {"negative_band_is_zero", kGrid, diagonals, StatusOk, none, 1000000, -1.0},
        {"nan_band_is_zero", kGrid, diagonals, StatusOk, none, 1000000, nanBand},
        {"no_first_triangle_attempt", grid3, {}, StatusLocateFailed, unbuilt, 0},
        {"flip_limit", many, {}, StatusIterationLimit, stopped, 20, 1e-9, true, 1},
        {"walk_limit", many, {}, StatusLocateFailed, stopped, 30, 1e-9, true, 2},
        {"constraint_walk_limit", strip, ab, StatusIterationLimit, unwalked, 20, 1e-9, true, 1},
        {"piece_limit", line, edges("0 29"), StatusIterationLimit, pieces, 20, 1e-9, true, 1},
        // 29 pieces within a limit of 29: the last is already a mesh edge, recorded at once.
        {"piece_limit_exact", line, edges("0 29"), StatusOk, Left{-1, -1, 29}, 29, 1e-9, true, 1},
        {"crossing_at_an_end", nearEnd, x, StatusConstraintFailed, first, 1000000, 0.0},
        {"crossing_at_an_end_unsplit", nearEnd, x, StatusOk, none, 1000000, 0.0, false},
        {"nearly_parallel", parallel, x, StatusConstraintFailed, first, 1000000, 0.0},
        {"nearly_parallel_unsplit", parallel, x, StatusOk, none, 1000000, 0.0, false},
        {"through_a_crossed_end",
         crossedEnd,
         edges("1 2 3 4 0 5"),
         StatusOk,
         throughEnd,
         1000000,
         0},
        {"split_flip_limit",
         parse("0 -1 0 1 -1 0 1 0 0.2 -3"),
         edges("2 3 0 1"),
         StatusFailed,
         unsplit,
         3},
        {"band_fold_refused", fold, folding, StatusConstraintFailed, none, 1000000, 1e-6, false},
        // Small meshes whose next step meets the limit exactly (under glibc's rand sequence):
        // the walk to a point that finds its triangle at step 3 of 3 still fails; the turn
        // around vertex 0 towards 4 at step 5 of 5.
        {"walk_limit_exact",
         parse("24 30 8 11 35 39 47 48 6 18 14 33 12 16"),
         {},
         StatusLocateFailed,
         Left{7, -3},
         3,
         1e-9,
         true,
         2},
        {"turn_limit", turn, edges("0 4"), StatusConstraintFailed, none, 5, 0.0, true, 2},
    };
}

class Statuses : public testing::TestWithParam<Row> {};

TEST_P(Statuses, EndInTheDocumentedStatus) {
    const Row& row = GetParam();
    for (const bool sorted : {true, false}) {
        if (!(row.orders & (sorted ? 2 : 1))) continue;
        const Edges* edges = row.edges.empty() ? nullptr : &row.edges;
        const Outcome run = triangulate(row.points, edges, sorted, row.split, row.band, row.limit);
        EXPECT_EQ(run.status, row.status) << (sorted ? "sorted" : "shuffled");
        Checks c;
        c.partial = run.status != StatusOk;
        c.allowDegenerate = row.points.size() == 3;
        c.allowMissing = !row.split || run.status == StatusFailed;
        c.geometry = run.status == StatusOk;
        c.delaunay = row.split;
        c.crossingsFrom = int(row.points.size());
        if (run.status == StatusOk && edges)
            c.required = row.split ? row.edges : Edges{row.edges.back()};
        EXPECT_EQ(validate(run.mesh(), c), "");
        expectLeft(row.left, run.mesh());
        expectUsable(*run.tri);
    }
}

INSTANTIATE_TEST_SUITE_P(Table, Statuses, testing::ValuesIn(rows()), [](const auto& info) {
    return std::string(info.param.name);
});

/// Runs `call` under allocation budgets 0, 1, 2, ... until it succeeds, `after(budget)` after
/// each failure; some budget must fail.
template <class Call, class After>
void sweep(Call call, After after) {
    for (long budget = 0;; after(int(budget++))) {
        allocationBudget = budget;
        try {
            call();
            allocationBudget = -1;
            EXPECT_GT(budget, 0) << "never ran out";
            return;
        } catch (const std::bad_alloc&) {
            allocationBudget = -1;
        }
    }
}

TEST(OutOfMemory, EveryEntryPointPropagatesAndRecovers) {
    sweep([] { RyTriangulation t; }, [](int) {});
    sweep([] { RyTriangulation t(100); }, [](int) {});
    sweep([] { RyTriangulation t(true, false); }, [](int) {});
    RyTriangulation source, target;
    ASSERT_EQ(source.delaunayTriangulationWithConstraints(kGrid, kRing), StatusOk);
    source.deleteOuterTrianglesAndHoles();
    sweep([&] { RyTriangulation copy(source); }, [](int) {});
    ASSERT_EQ(target.delaunayTriangulation(integerGrid(4, 4)), StatusOk);
    RyTriangulation before(target);  // a failed assignment leaves the target as it was
    sweep([&] { target = source; },
          [&](int) { EXPECT_EQ(differences(record(target), record(before)), ""); });
    // Both calls and orders, with and without the helper: a valid partial mesh after each failure.
    const Points many = uniformPoints(1000, 11);
    const std::size_t saved = helperThreadMinPoints();
    for (int mode = 0; mode < 8; ++mode) {
        setHelperThreadMinPoints(mode & 4 ? 0 : std::numeric_limits<std::size_t>::max());
        const bool plain = !(mode & 2);
        RyTriangulation t(mode & 1, true);
        int deepest = 0;
        Checks c;
        c.partial = true;
        c.geometry = false;  // a flip sequence may have been cut short
        sweep(
            [&] {
                std::srand(5);
                plain ? t.delaunayTriangulation(many)
                      : t.delaunayTriangulationWithConstraints(kGrid, kRing);
            },
            [&](int budget) {
                if (!plain) return budget % 7 ? void() : expectUsable(t);
                EXPECT_EQ(validate(record(t), c), "") << "budget " << budget;
                deepest = std::max(deepest, inserted(record(t)));
            });
        expectUsable(t);
        EXPECT_TRUE(!plain || deepest > 3)
            << "no budget ran out inside the insertions, mode " << mode;
    }
    setHelperThreadMinPoints(saved);
    // Finishing keeps what it appended; clean-up leaves the caller's arrays as they were.
    sweep([&] { RyTriangulation(source).deleteOuterTrianglesAndHoles(); }, [](int) {});
    sweep([&] { RyTriangulation(source).deleteGhostTriangle(); }, [](int) {});
    Points messy = kGrid;
    messy.push_back(kGrid[3]);
    messy.emplace_back(std::nan(""), 0, 0);
    const Edges messyEdges = edges("7 10 10 28 3 37 36 0");
    Points p = messy;
    Edges e = messyEdges;
    PkConvert2dVertex plane = kXYPlane;
    PkGeTol tol;
    sweep(
        [&] { source.deleteDuplicateVertices(p, e, plane, tol); },
        [&](int) {
            EXPECT_TRUE(!std::memcmp(p.data(), messy.data(), 24 * messy.size()) && e == messyEdges);
        });
    EXPECT_EQ(p.size(), kGrid.size());
}

TEST(Handle, ConstructionCopiesAndTheMissingRecord) {
    RyTriangulation byDefault, flags(true, false), counted(0);  // the smallest count
    EXPECT_TRUE(record(byDefault).options == 3 && record(flags).options == 1);
    EXPECT_TRUE(record(counted).options == 0 && record(counted).cdtTolerance == 1e-9);
    for (int n : {-1, INT_MIN, 1 << 30, INT_MAX})
        EXPECT_THROW(RyTriangulation t(n), std::length_error);
    // A second triangulation starts from a clean record, options and tolerance kept.
    RyTriangulation t, copy;
    t.setCDTTolerence(-0.0);
    ASSERT_EQ(t.delaunayTriangulation(uniformPoints(12, 3)), StatusOk);
    copy = t;
    std::srand(1);
    ASSERT_EQ(copy.delaunayTriangulation(kGrid), StatusOk);
    EXPECT_EQ(differences(record(copy), triangulate(kGrid, nullptr, true, true, -0.0).mesh()), "");
    // Without a record the calls report StatusLocateFailed and everything else does nothing.
    RyTriangulationAccess::dropRecord(t);
    Points points = parse("0 0 1 0 0 1");
    Edges edge = edges("0 1");
    PkConvert2dVertex plane = kXYPlane;
    PkGeTol tol;
    t.setCDTTolerence(1.0);
    t.deleteDuplicateVertices(points, plane, tol);
    t.deleteDuplicateVertices(points, edge, plane, tol);
    EXPECT_EQ(t.delaunayTriangulation(points), StatusLocateFailed);
    EXPECT_EQ(t.delaunayTriangulationWithConstraints(points, edge), StatusLocateFailed);
    t.deleteGhostTriangle();
    t.deleteOuterTrianglesAndHoles();
    EXPECT_TRUE(points.size() == 3 && t.getMeshTriangles().empty() && t.getMeshVertices().empty());
    EXPECT_EQ(RyTriangulationAccess::impl(RyTriangulation(t)), nullptr);
}

// The exported triangle type's members, by the conventions its header documents: neighbour k
// lies across the edge from corner k to corner k + 1, positions are clamped to 0..2.
TEST(Elements, TriangleMembersFollowTheAdjacencyConvention) {
    PkMeshTriangle t;
    int across = -9;
    EXPECT_TRUE(t.isGhostTri() && !t.isAux() && t.getNeighborIndex(5) == -1);
    t.setVertexIndex(4, 5, 6);
    t.setNeighborIndex(7, 8, 9);
    t.setFlagbAux(true);
    for (int k = -1; k <= 3; ++k) {
        const int c = std::clamp(k, 0, 2), v = 4 + c, w = 4 + (c + 1) % 3, n = 7 + c;
        EXPECT_TRUE(t.getVertexIndexAt(k) == v && t.getNeighborIndex(k) == n && t.isContain(v));
        EXPECT_TRUE(t.getLocalVertexIndex(v) == c && t.getLocalNeighborIndex(n) == c);
        EXPECT_TRUE(t.getOpposedTriangle(v, across) && across == 7 + (c + 1) % 3);
        EXPECT_TRUE(t.getNeighborIndex(v, w) == n && t.getNeighborIndex(w, v) == n) << c;
    }
    EXPECT_FALSE(t.isGhostTri() || t.isContain(3) || t.getOpposedTriangle(3, across));
    t.setNeighborIndexAt(8, 7);  // (7, 8, 8): only the first match is replaced
    EXPECT_TRUE(t.updateNeighborIndexAt(1, 8) && t.getNeighborIndex(1) == 1 && t.isAux());
    EXPECT_FALSE(t.updateNeighborIndexAt(0, 3) || across != 7 || t.getNeighborIndex(2) != 8);
    t.setVertexIndexAt(-2, -5);
    EXPECT_TRUE(t.isGhostTri() && t.getVertexIndexAt(0) == -2);
    for (int k = 1; k < 3; ++k) {  // a negative index in any position makes a ghost
        PkMeshTriangle g;
        g.setVertexIndex(1, 2, 3);
        g.setVertexIndexAt(-2, k);
        EXPECT_TRUE(g.isGhostTri()) << k;
    }
}

}  // namespace
