// Constraint edges, checked by the validator's constraint checks (recorded edges in the mesh,
// every input segment a chain of constraint edges through vertices on it, every vertex made at
// a crossing on two input segments, repeats and origins consistent) on random segment soups
// and segment grids, with and without crossing splits, in both insertion orders; exact
// crossings; cuts at vertices on a segment; repeats; invalid edges.
#include <gtest/gtest.h>

#include "mesh/RyTriangulationImpl.h"
#include "support/MeshValidator.h"
#include "support/TestSupport.h"

namespace {

using namespace rytest;

/// The validator's verdict on a constrained run over `n` input points: with splits every input
/// segment is a chain; without, a crossed constraint leaves the mesh unrepaired (no Delaunay
/// check) and only `last` must be a chain.
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
    if (!m.freeTriangles.empty() || m.triangles.size() != 2 * m.vertices.size() - 2) {
        return "slots not reused: " + std::to_string(m.triangles.size());
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

// Horizontal segments, then vertical ones crossing all of them: at integer positions (exact
// crossings) or irregular ones. Each crossing splits both; without splitting the vertical ones
// cross the horizontal ones out of the mesh.
TEST(Constraints, GridOfCrossingSegments) {
    const int rows = 9, cols = 13;
    for (const bool exact : {true, false}) {
        Rng rng(21);
        Points points;
        Edges edges;
        for (int k = 0; k < rows + cols; ++k) {
            const bool row = k < rows;
            const double at =
                row ? 64.0 * (k + 1) / (rows + 1) : 64.0 * (k - rows + 1) / (cols + 1);
            const double a = exact ? std::floor(at) : at + rng.uniform(-1, 1);
            const double b = exact ? a : a + rng.uniform(-0.3, 0.3);
            points.emplace_back(row ? 0 : a, row ? a : -1, k);
            points.emplace_back(row ? 64 : b, row ? b : 65, 2 * k);
            edges.emplace_back(2 * k, 2 * k + 1);
        }
        const int n = int(points.size());
        for (const bool sorted : {true, false}) {
            const Outcome split = triangulate(points, &edges, sorted, true);
            ASSERT_EQ(split.status, StatusOk);
            EXPECT_EQ(check(split, edges, n), "");
            const RyTriangulationImpl& m = split.mesh();
            EXPECT_EQ(int(m.vertices.size()), n + rows * cols);
            EXPECT_EQ(int(m.constraintEdges.size()), rows * (cols + 1) + cols * (rows + 1));
            for (int v = n; exact && v < int(m.vertices.size()); ++v) {
                const double* p = vertexXY(m.vertices[std::size_t(v)]);
                EXPECT_TRUE(p[0] == std::floor(p[0]) && p[1] == std::floor(p[1])) << v;
            }
            const Outcome crossed = triangulate(points, &edges, sorted, false);
            ASSERT_EQ(crossed.status, StatusOk);
            EXPECT_EQ(int(crossed.mesh().vertices.size()), n);
            EXPECT_EQ(check(crossed, edges, n, Edges(edges.begin() + rows, edges.end())), "");
        }
    }
}

// A segment through vertices on its line is cut into pieces between them (in the first turn
// around its start or in the walk); points on the line beyond its ends are no cut. A segment
// given again, or overlapping an earlier one, counts the shared pieces twice.
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
        EXPECT_EQ(m.constraintEdges.size(), 6u);
        for (int i = 0; i < 6; ++i) {
            const auto r = m.constraintRepeats.find(PkMeshEdge(i, i + 1));
            EXPECT_EQ(r == m.constraintRepeats.end() ? 0 : r->second, i == 2 || i == 3 ? 2 : 1);
        }
    }
    // A lattice: the segment (0, 0)-(18, 9) meets (2k, k) only inside the walk.
    const Points grid = integerGrid(20, 20);
    const Edges diagonal = {PkMeshEdge(0, 9 * 20 + 18)};
    const Outcome run = triangulate(grid, &diagonal);
    ASSERT_EQ(run.status, StatusOk);
    EXPECT_EQ(check(run, diagonal, 400), "");
    EXPECT_EQ(run.mesh().constraintEdges.size(), 9u);
}

// Edges with equal ends, a negative index, the ghost vertex's or one past the vertices are
// skipped: the result is that of the valid edges alone.
TEST(Constraints, InvalidEdgesChangeNothing) {
    const Points points = uniformPoints(30, 9);
    const Edges valid = edges("0 29 3 17");
    const Edges noisy = edges("1 1 0 29 -3 4 -2 5 6 30 3 17 -1 -1 2 1073741824");
    for (const bool sorted : {true, false}) {
        const Outcome a = triangulate(points, &valid, sorted),
                      b = triangulate(points, &noisy, sorted);
        ASSERT_EQ(b.status, StatusOk);
        EXPECT_EQ(differences(a.mesh(), b.mesh()), "");
    }
}

}  // namespace
