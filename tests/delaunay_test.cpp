// Delaunay triangulation: the validator on every named input family in both insertion orders,
// brute-force empty circumcircles, order independence, the documented insertion order (output
// order follows it), the helper thread differential, and the nearest-vertex index's query
// against brute force.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <set>
#include <tuple>

#include "mesh/HelperThread.h"
#include "mesh/RyTriangulationImpl.h"
#include "support/MeshValidator.h"
#include "support/TestSupport.h"

namespace {

using namespace rytest;
using Triple = std::array<int, 3>;

/// Real triangles rotated to start at their smallest corner (orientation kept).
std::set<Triple> realTriangles(const RyTriangulationImpl& m) {
    std::set<Triple> out;
    for (const PkMeshTriangle& t : m.triangles) {
        const int* v = triVerts(t);
        const int k = int(std::min_element(v, v + 3) - v);
        if (v[k] >= 0) out.insert({v[k], v[(k + 1) % 3], v[(k + 2) % 3]});
    }
    return out;
}

class Generated : public testing::TestWithParam<std::tuple<int, bool>> {};

TEST_P(Generated, IsAValidDelaunayTriangulation) {
    const Generator& g = generators()[std::size_t(std::get<0>(GetParam()))];
    for (const int n : {3, 17, 250, 3000, 20000}) {
        const Points points = g.make(n, 1000 + std::uint64_t(n));
        SCOPED_TRACE(n);
        const Outcome run = triangulate(points, nullptr, std::get<1>(GetParam()), true, g.band);
        ASSERT_EQ(run.status, StatusOk);
        EXPECT_EQ(validate(run.mesh(), Checks{}), "");
        // The output holds the real triangles, in working-list order; the vertices come back in
        // input order, z included.
        run.tri->deleteGhostTriangle();
        const std::vector<PkMeshTriangle> out = run.tri->getMeshTriangles();
        std::vector<PkMeshTriangle> real;
        for (const PkMeshTriangle& t : run.mesh().triangles) {
            if (!isGhost(t)) real.push_back(t);
        }
        ASSERT_EQ(out.size(), real.size());
        EXPECT_EQ(std::memcmp(out.data(), real.data(), out.size() * sizeof out[0]), 0);
        const std::vector<PkMeshPoint3d> vertices = run.tri->getMeshVertices();
        ASSERT_EQ(vertices.size(), points.size());
        for (std::size_t i = 0; i < points.size(); ++i) {
            const PkGePoint3d p = vertices[i].getPoint();
            EXPECT_EQ(std::memcmp(&p, &points[i], sizeof p), 0);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Families,
                         Generated,
                         testing::Combine(testing::Range(0, int(generators().size())),
                                          testing::Bool()),
                         [](const testing::TestParamInfo<std::tuple<int, bool>>& info) {
                             return std::string(
                                        generators()[std::size_t(std::get<0>(info.param))].name) +
                                    (std::get<1>(info.param) ? "_sorted" : "_shuffled");
                         });

// No input point lies strictly inside the circumcircle of an output triangle (exact, band 0):
// small random sets and subsets of a lattice (massively cocircular), and rings near the origin
// beside points up to 2^199, the whole accepted magnitude range at once.
TEST(Delaunay, CircumcirclesAreEmptyByBruteForce) {
    int meshes = 0;
    for (std::uint64_t seed = 1; seed <= 300; ++seed) {
        Rng rng(seed);
        Points points;
        if (seed % 3 == 0) {
            std::set<std::pair<int, int>> used;
            for (int n = 3 + rng.below(50); int(used.size()) < n;) {
                const int x = rng.below(9), y = rng.below(9);
                if (used.insert({x, y}).second) points.emplace_back(x, y, 0.0);
            }
        } else if (seed % 3 == 1) {
            points = uniformPoints(3 + rng.below(58), seed, -1.0, 1.0);
        } else {
            const double r = std::ldexp(1.0, -66), far = std::ldexp(1.0, 13 + rng.below(187));
            for (int i = 0, ring = 8 + rng.below(24); i < ring; ++i) {
                const double a = 6.283185307179586 * (i + 0.25 * rng.uniform()) / ring;
                points.emplace_back(-r + r * std::cos(a), -r + r * std::sin(a), 0.0);
            }
            points.push_back(points[0]);
            points.back().x = std::nextafter(points.back().x, 1.0);
            points.emplace_back(-far, -far, 0.0);
            points.emplace_back(far * rng.uniform(0.5, 1.0), -far * rng.uniform(0.5, 1.0), 0.0);
        }
        for (const bool sorted : {true, false}) {
            const Outcome run = triangulate(points, nullptr, sorted, true, 0.0);
            if (run.status == StatusLocateFailed && realTriangles(run.mesh()).empty()) continue;
            ASSERT_EQ(run.status, StatusOk) << describe(points);
            Checks checks;
            checks.allowDegenerate = points.size() == 3;  // three collinear lattice points
            ASSERT_EQ(validate(run.mesh(), checks), "") << describe(points);
            if (points.size() == 3) continue;
            const std::vector<PkMeshPoint3d>& v = run.mesh().vertices;
            for (const Triple& t : realTriangles(run.mesh())) {
                for (const PkMeshPoint3d& p : v) {
                    ASSERT_LE(incircle(vertexXY(v[std::size_t(t[0])]),
                                       vertexXY(v[std::size_t(t[1])]),
                                       vertexXY(v[std::size_t(t[2])]),
                                       vertexXY(p)),
                              0.0)
                        << describe(points);
                }
            }
            ++meshes;
        }
    }
    EXPECT_GT(meshes, 500);
}

// Points in general position have one Delaunay triangulation, whatever the insertion order.
TEST(Delaunay, BothInsertionOrdersGiveTheSameTriangles) {
    for (const int n : {4, 50, 1000, 6000}) {
        const Points points = uniformPoints(n, std::uint64_t(n));
        const Outcome sorted = triangulate(points, nullptr, true, true, 0.0);
        const Outcome shuffled = triangulate(points, nullptr, false, true, 0.0);
        ASSERT_EQ(sorted.status, StatusOk);
        ASSERT_EQ(shuffled.status, StatusOk);
        EXPECT_TRUE(realTriangles(sorted.mesh()) == realTriangles(shuffled.mesh())) << n;
    }
}

std::vector<int> shuffled(int n) {
    std::vector<int> order(std::size_t(n), 0);
    for (int i = 0; i < n; ++i) order[std::size_t(i)] = i;
    shuffleIndices(order);
    return order;
}

// The insertion order is documented (and decides the output order): a SplitMix64 shuffle from
// state 0, then with spatial sorting a multiscale Hilbert sort; the first triangle's corners move
// to the front. The sorted driver must build, slot for slot, what inserting each vertex from the
// previous one in that order builds, with and without its helper thread.
TEST(Delaunay, InsertionFollowsTheDocumentedOrder) {
    EXPECT_EQ(shuffled(4), (std::vector<int>{3, 2, 0, 1}));
    EXPECT_EQ(shuffled(5), (std::vector<int>{3, 2, 4, 1, 0}));
    EXPECT_EQ(shuffled(10), (std::vector<int>{9, 6, 4, 1, 7, 3, 2, 0, 8, 5}));
    // Cell (i, j) of a 4 x 4 grid at (i + 0.01 j, j + 0.013 i), numbered 4 i + j: the Hilbert
    // curve from the upper right corner to the upper left one.
    std::vector<PkMeshPoint3d> grid;
    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 4; ++j) grid.emplace_back(PkGePoint3d(i + 0.01 * j, j + 0.013 * i, 0));
    }
    std::vector<int> order = shuffled(16);
    hilbertSort(order.begin(), order.end(), grid, 0, false, false);
    EXPECT_EQ(order, (std::vector<int>{15, 11, 10, 14, 13, 12, 8, 9, 5, 4, 0, 1, 2, 6, 7, 3}));

    // Three points, shuffled order (1, 2, 0): the real triangle and three ghosts, as documented.
    const Outcome three = triangulate({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, nullptr, false);
    const std::vector<int> first = {1, 2, 0,  1, 2, 3, 0, 2, 1, -2, 0, 3, 2, 1,
                                    0, 2, -2, 0, 1, 3, 1, 1, 0, -2, 0, 2, 1, 1};
    ASSERT_EQ(three.mesh().triangles.size(), 4u);
    EXPECT_EQ(std::memcmp(three.mesh().triangles.data(), first.data(), 4 * 28), 0);
    EXPECT_EQ(three.tri->getMeshVertices()[0].getTriangleIndex(), 2);
    EXPECT_EQ(three.tri->getMeshVertices()[2].getTriangleIndex(), 1);

    for (std::size_t helper : {std::size_t(0), std::numeric_limits<std::size_t>::max()}) {
        const std::size_t saved = helperThreadMinPoints();
        setHelperThreadMinPoints(helper);
        Points repeated = uniformPoints(3000, 41);
        repeated.push_back(repeated[1700]);
        for (const Points& points : {uniformPoints(20000, 42),
                                     integerGrid(90, 110),
                                     repeated,
                                     uniformPoints(5, 43),
                                     uniformPoints(3, 44)}) {
            const Outcome run = triangulate(points, nullptr, true, true, 0.0);
            RyTriangulationImpl replay;
            replay.cdtTolerance = replay.band = 0.0;
            for (const PkGePoint3d& p : points) replay.vertices.emplace_back(p);
            std::vector<int> order = shuffled(int(points.size()));
            spatialSort(order, replay.vertices);
            std::srand(1);
            PkTriangulationStatus status = StatusLocateFailed;
            if (replay.createFirstTriangle(order)) status = StatusOk;
            for (std::size_t i = 3; i < order.size() && status == StatusOk; ++i) {
                status = replay.insertVertexFromPrevious(order[i], order[i - 1]);
            }
            EXPECT_EQ(run.status, status);
            replay.options = run.mesh().options;
            replay.maxIterations = run.mesh().maxIterations;
            EXPECT_EQ(differences(run.mesh(), replay), "") << points.size() << " helper " << helper;
        }
        setHelperThreadMinPoints(saved);
    }
}

// Large inputs hand the nearest-vertex queries (shuffled) or the sort (sorted) to a helper
// thread. Nothing observable may depend on it: the same record, status and rand sequence, also
// when the run stops early and on inputs full of ties, and for the constraint code after it.
TEST(Delaunay, HelperThreadChangesNothing) {
    Points repeated = uniformPoints(6000, 51), early = uniformPoints(4000, 52);
    repeated.push_back(repeated[2500]);
    early.insert(early.begin(), early[3999]);
    Edges chords;
    for (int i = 0; i < 60; ++i) chords.emplace_back((i * 7919) % 8000, (i * 104729 + 17) % 8000);
    const std::vector<std::tuple<Points, const Edges*, int>> cases = {
        {uniformPoints(30000, 53), nullptr, 1000000},
        {gaussianClusters(20000, 20, 54), nullptr, 1000000},
        {integerGrid(130, 120), nullptr, 1000000},
        {repeated, nullptr, 1000000},
        {early, nullptr, 1000000},
        {uniformPoints(5000, 57), nullptr, 30},  // stops at the flip limit
        {uniformPoints(8000, 60), &chords, 1000000},
    };
    const std::size_t saved = helperThreadMinPoints();
    for (const bool sorted : {false, true}) {
        for (const auto& [points, edges, limit] : cases) {
            setHelperThreadMinPoints(std::numeric_limits<std::size_t>::max());
            const Outcome alone = triangulate(points, edges, sorted, true, 1e-9, limit);
            const int randAlone = std::rand();
            setHelperThreadMinPoints(0);
            const Outcome helped = triangulate(points, edges, sorted, true, 1e-9, limit);
            EXPECT_EQ(std::rand(), randAlone);
            EXPECT_EQ(alone.status, helped.status);
            EXPECT_EQ(differences(alone.mesh(), helped.mesh()), "")
                << points.size() << " " << sorted;
        }
    }
    setHelperThreadMinPoints(saved);
}

// The nearest-vertex index answers with a vertex at the smallest distance, whatever the input:
// clusters, lattices full of ties and repeats, lines, points that make the box grow, the ends of
// the magnitude range; built from three points or grown from the whole plane.
double distance2(const PkMeshPoint3d& v, const double* q) {
    const double* p = vertexXY(v);
    return (p[0] - q[0]) * (p[0] - q[0]) + (p[1] - q[1]) * (p[1] - q[1]);
}

/// The documented search: depth first over boxes halved at their midpoints with alternating
/// axes, the query's side first, an entry skipped when the squared distance from the query to
/// its parent's splitting line exceeds the best so far, a strictly smaller distance needed to
/// replace the best. Both children carry that bound, so a closer vertex on the query's own side
/// may be skipped: the answer only seeds a walk.
void searchModel(const VertexKdTree& tree,
                 const std::vector<PkMeshPoint3d>& v,
                 const double* q,
                 int node,
                 std::array<double, 4> box,
                 int axis,
                 double bound,
                 double& best,
                 int& found) {
    if (bound > best) return;
    const KdNode& n = tree.nodes[std::size_t(node)];
    if (n.child0 == n.child1) {
        for (int u : n.bucket) {
            if (distance2(v[std::size_t(u)], q) < best)
                best = distance2(v[std::size_t(u)], q), found = u;
        }
        return;
    }
    const double mid = (box[std::size_t(axis)] + box[std::size_t(axis + 2)]) * 0.5;
    std::array<double, 4> low = box, high = box;
    low[std::size_t(axis + 2)] = high[std::size_t(axis)] = mid;
    const double gap = (q[axis] - mid) * (q[axis] - mid);
    const bool lowFirst = mid > q[axis];
    searchModel(tree,
                v,
                q,
                lowFirst ? n.child0 : n.child1,
                lowFirst ? low : high,
                1 - axis,
                gap,
                best,
                found);
    searchModel(tree,
                v,
                q,
                lowFirst ? n.child1 : n.child0,
                lowFirst ? high : low,
                1 - axis,
                gap,
                best,
                found);
}

// The nearest-vertex index answers by its documented search rule (ties included), never closer
// than the brute-force nearest and mostly at it, whatever the input: clusters, lattices full of
// ties and repeats, lines, points that make the box grow, the ends of the magnitude range; built
// from three points or grown from the whole plane; by each of its three query entry points.
TEST(Delaunay, NearestVertexFollowsItsSearchRule) {
    Points spiral;
    for (int i = 0; i < 3000; ++i)
        spiral.emplace_back(i * std::cos(2.4 * i), i * std::sin(2.4 * i), 0);
    Points repeats = integerGrid(20, 20);
    repeats.insert(repeats.end(), repeats.begin(), repeats.begin() + 200);
    int queries = 0, nearest = 0;
    for (const Points& points : {uniformPoints(3000, 1),
                                 gaussianClusters(3000, 5, 2),
                                 repeats,
                                 spiral,
                                 generators()[5].make(500, 3),
                                 generators()[6].make(3000, 4),
                                 generators()[7].make(3000, 5)}) {
        for (const bool built : {false, true}) {
            std::vector<PkMeshPoint3d> v(points.begin(), points.end());
            VertexKdTree tree;
            if (built) tree.build({0, 1, 2}, {v[0], v[1], v[2]});
            Rng rng(points.size());
            for (int i = built ? 3 : 0; i < int(v.size()); ++i) {
                // A query at the next point (by each entry point in turn, the last one inserting
                // it), and one at a random earlier point.
                auto expect = [&](const double* q, int found) {
                    double best = std::numeric_limits<double>::max(), brute = best;
                    int model = -1;
                    searchModel(tree,
                                v,
                                q,
                                tree.root,
                                {tree.boxMin[0], tree.boxMin[1], tree.boxMax[0], tree.boxMax[1]},
                                tree.rootAxis,
                                best,
                                best,
                                model);
                    for (int j = 0; j < i; ++j)
                        brute = std::min(brute, distance2(v[std::size_t(j)], q));
                    ASSERT_EQ(found, model) << "query " << i << " of " << describe(points);
                    if (found < 0) return;
                    EXPECT_GE(distance2(v[std::size_t(found)], q), brute);
                    nearest += distance2(v[std::size_t(found)], q) == brute;
                    ++queries;
                };
                const double* next = vertexXY(v[std::size_t(i)]);
                if (i > 0) {
                    const double* earlier = vertexXY(v[std::size_t(rng.below(i))]);
                    expect(earlier, tree.nearestIndex(earlier));
                }
                int found = -1;
                if (i % 3 == 0) {
                    expect(next, tree.nearestIndex(next));
                    tree.insertVertex(i, v);
                } else if (i % 3 == 1) {
                    tree.findNearestVertex(v[std::size_t(i)], v, found);
                    expect(next, found);
                    tree.insertVertex(i, v);
                } else {
                    VertexKdTree before = tree;
                    found = tree.nearestThenInsert(i, next);
                    std::swap(tree, before);
                    expect(next, found);
                    std::swap(tree, before);
                }
                if (HasFatalFailure()) return;
            }
        }
    }
    EXPECT_GT(nearest, queries * 9 / 10);
}

}  // namespace
