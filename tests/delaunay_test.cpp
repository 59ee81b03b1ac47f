// Delaunay triangulation: the validator on every input family in both insertion orders, the
// insertion order against its plain rule, empty circumcircles by brute force, order independence,
// the helper thread differential, and the nearest-vertex index's search.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <set>

#include "accel/HelperThread.h"
#include "accel/HugePages.h"
#include "order/InsertionOrder.h"
#include "state/RyTriangulationImpl.h"
#include "support/MeshValidator.h"
#include "support/TestSupport.h"

namespace {

using namespace rytest;

std::set<std::vector<int>> realTriangles(const RyTriangulationImpl& m) {
    std::set<std::vector<int>> out;  // rotated to start at the smallest corner
    for (const PkMeshTriangle& t : m.mesh.triangles) {
        std::vector<int> v(triVerts(t), triVerts(t) + 3);
        std::rotate(v.begin(), std::min_element(v.begin(), v.end()), v.end());
        if (v[0] >= 0) out.insert(v);
    }
    return out;
}

struct Family {
    int generator;
    bool sorted;
    std::string name() const {
        return generators()[std::size_t(generator)].name +
               std::string(sorted ? "_sorted" : "_shuffled");
    }
};
void PrintTo(const Family& f, std::ostream* os) {
    *os << f.name();
}

class Families : public testing::TestWithParam<Family> {};

TEST_P(Families, GiveValidDelaunayTriangulations) {
    const Generator& g = generators()[std::size_t(GetParam().generator)];
    for (const int n : {3, 17, 250, 3000, 20000}) {
        const Points points = g.make(n, 1000 + std::uint64_t(n));
        const Outcome run = triangulate(points, nullptr, GetParam().sorted, true, g.band);
        ASSERT_EQ(run.status, StatusOk) << n;
        EXPECT_EQ(validate(run.mesh()), "") << n;
        // The output holds the real triangles in working-list order.
        run.tri->deleteGhostTriangle();
        std::vector<PkMeshTriangle> real, out = run.tri->getMeshTriangles();
        for (const PkMeshTriangle& t : run.mesh().mesh.triangles)
            real.insert(real.end(), !isGhost(t), t);
        EXPECT_TRUE(out.size() == real.size() &&
                    !std::memcmp(out.data(), real.data(), 28 * out.size()));
    }
}

std::vector<Family> allFamilies() {
    std::vector<Family> out;
    for (int g = 0; g < int(generators().size()); ++g)
        for (const bool sorted : {false, true}) out.push_back({g, sorted});
    return out;
}
INSTANTIATE_TEST_SUITE_P(Named,
                         Families,
                         testing::ValuesIn(allFamilies()),
                         [](const testing::TestParamInfo<Family>& info) {
                             return info.param.name();
                         });

/// The Hilbert order's rule rendered plainly, std::nth_element at every split.
void plainHilbert(int* b, int* e, const std::vector<PkMeshPoint3d>& v, int axis, bool ux, bool uy) {
    const auto split = [&v](int* lo, int* hi, int ax, bool up) {
        int* mid = lo + (hi - lo) / 2;
        std::nth_element(lo, mid, hi, [&v, ax, up](int a, int c) {
            const double ca = vertexXY(v[std::size_t(a)])[ax], cc = vertexXY(v[std::size_t(c)])[ax];
            return up ? ca < cc : ca > cc;
        });
        return mid;
    };
    while (e - b > 1) {
        int* m2 = split(b, e, axis, ux);
        int* m1 = split(b, m2, 1 - axis, uy);
        int* m3 = split(m2, e, 1 - axis, !uy);
        plainHilbert(b, m1, v, 1 - axis, uy, ux);
        plainHilbert(m1, m2, v, axis, ux, uy);
        plainHilbert(m2, m3, v, axis, ux, uy);
        const bool nextUx = !uy;
        uy = !ux, ux = nextUx, axis = 1 - axis, b = m3;
    }
}

void plainSpatial(int* b, int* e, const std::vector<PkMeshPoint3d>& v) {
    int* middle = e - b > 64 ? b + (e - b) / 8 : b;
    if (middle != b) plainSpatial(b, middle, v);
    plainHilbert(middle, e, v, 0, false, false);
}

// The insertion order is observable (it fixes the output order), and with distinct coordinates
// it is unique: the library's selection against the plain one, at sizes that reach the staging
// (512 has a stage of exactly 64) and the sampled selection; the grid is the curve's own picture.
TEST(InsertionOrder, MatchesThePlainRule) {
    std::vector<PkMeshPoint3d> grid;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) grid.emplace_back(PkGePoint3d(i + 0.01 * j, j + 0.013 * i, 0));
    std::vector<int> order(16);
    std::iota(order.begin(), order.end(), 0);
    hilbertSort(order.begin(), order.end(), grid, 0, false, false);
    EXPECT_EQ(order, (std::vector<int>{15, 11, 10, 14, 13, 12, 8, 9, 5, 4, 0, 1, 2, 6, 7, 3}));
    for (const int n : {65, 512, 5000, 300000}) {
        for (const Points& points : {uniformPoints(n, 7), generators()[1].make(n, 7)}) {
            const std::vector<PkMeshPoint3d> v(points.begin(), points.end());
            order.resize(std::size_t(n));
            std::iota(order.begin(), order.end(), 0);
            shuffleIndices(order);
            std::vector<int> plain = order;
            plainSpatial(plain.data(), plain.data() + n, v);
            spatialSort(order, v);
            EXPECT_TRUE(order == plain) << n;
        }
    }
}

// No input point lies strictly inside the circumcircle of an output triangle (exact, band 0):
// small random sets, subsets of a lattice (massively cocircular), and rings near the origin
// beside points up to 2^199. In general position both insertion orders give the same triangles.
TEST(Delaunay, CircumcirclesAreEmptyAndOrderIndependent) {
    for (std::uint64_t seed = 1; seed <= 300; ++seed) {
        Rng rng(seed);
        Points points = seed % 3 ? uniformPoints(4 + rng.below(58), seed, -1.0, 1.0) : Points();
        for (std::set<std::pair<int, int>> used; seed % 3 == 0 && used.size() < 50;) {
            const int x = rng.below(9), y = rng.below(9);
            if (used.insert({x, y}).second) points.emplace_back(x, y, 0.0);
        }
        if (seed % 3 == 2) {
            const double r = std::ldexp(1.0, -66), far = std::ldexp(1.0, 13 + rng.below(187));
            for (PkGePoint3d& p : points)
                p = PkGePoint3d(
                    r * std::cos(3.14159 * p.x) - r, r * std::sin(3.14159 * p.x) - r, 0);
            points.emplace_back(std::nextafter(points[0].x, 1.0), points[0].y, 0.0);
            points.emplace_back(-far, -far, 0.0);
            points.emplace_back(far, -far / 3, 0.0);
        }
        std::set<std::vector<int>> first;
        for (const bool sorted : {true, false}) {
            const Outcome run = triangulate(points, nullptr, sorted, true, 0.0);
            ASSERT_EQ(run.status, StatusOk) << describe(points);
            ASSERT_EQ(validate(run.mesh()), "") << describe(points);
            const std::vector<PkMeshPoint3d>& v = run.mesh().mesh.vertices;
            for (const std::vector<int>& t : realTriangles(run.mesh())) {
                const double *a = vertexXY(v[std::size_t(t[0])]),
                             *b = vertexXY(v[std::size_t(t[1])]);
                for (const PkMeshPoint3d& p : v) {
                    ASSERT_LE(incircle(a, b, vertexXY(v[std::size_t(t[2])]), vertexXY(p)), 0.0)
                        << describe(points);
                }
            }
            if (seed % 3 == 1 && !sorted) {
                EXPECT_EQ(realTriangles(run.mesh()), first);
            }
            first = realTriangles(run.mesh());
        }
    }
}

// Large inputs hand the nearest-vertex queries or the sort to a helper thread: the same record,
// status and rand sequence, also when the run stops early, on ties, and with constraints.
TEST(Delaunay, HelperThreadChangesNothing) {
    Points repeated = uniformPoints(6000, 51), early = uniformPoints(4000, 52);
    repeated.push_back(repeated[2500]);
    early.insert(early.begin(), early[3999]);
    Edges chords;
    for (int i = 0; i < 60; ++i) chords.emplace_back(i * 7919 % 8000, (i * 104729 + 17) % 8000);
    const std::size_t saved = helperThreadMinPoints();
    std::vector<Points> inputs = {
        uniformPoints(30000, 53), gaussianClusters(20000, 20, 54), repeated};
    inputs.insert(inputs.end(), {integerGrid(130, 120), early, uniformPoints(5000, 57)});
    inputs.insert(inputs.end(), {uniformPoints(8000, 60), uniformPoints(4, 58)});
    inputs.push_back(uniformPoints(300000, 61));  // pages turn small on the way (below)
    const auto savedSlow = slowPopulateChunkTime();
    for (const Points& points : inputs) {
        const Edges* edges = points.size() == 8000 ? &chords : nullptr;
        const int limit = points.size() == 5000 ? 30 : 1000000;  // stops at the flip limit
        for (const bool sorted : {false, true}) {
            setHelperThreadMinPoints(std::numeric_limits<std::size_t>::max());
            const Outcome alone = triangulate(points, edges, sorted, true, 1e-9, limit);
            const int next = std::rand();
            setHelperThreadMinPoints(0);
            ASSERT_TRUE(useHelperThread(points.size()));
            // Populating huge pages counts as slow: the helper withdraws the advice mid-run.
            if (points.size() == 300000) setSlowPopulateChunkTime(std::chrono::nanoseconds(0));
            const Outcome helped = triangulate(points, edges, sorted, true, 1e-9, limit);
            setSlowPopulateChunkTime(savedSlow);
            const bool same = std::rand() == next && alone.status == helped.status;
            EXPECT_EQ(differences(alone.mesh(), helped.mesh()) + (same ? "" : "status, rand"), "")
                << points.size() << " " << sorted;
        }
    }
    setHelperThreadMinPoints(saved);
}

/// The first triangle's draws replayed on rand() from seed 1, as the host sees them: three values
/// per draw, a draw repeating an index not counted, the first counted draw whose third vertex
/// lies strictly left of the first two taken, given up at counted draw limit + 1. Integer
/// coordinates keep the side test exact. {-1, -1, -1} when it gives up.
std::array<int, 3> replayFirstTriangle(const Points& p, int limit) {
    std::srand(1);
    const int n = int(p.size());
    for (int counted = 1;; ++counted) {
        int s[3];
        do {
            for (int& v : s) v = std::rand() % n;
        } while (s[0] == s[1] || s[0] == s[2] || s[1] == s[2]);
        const PkGePoint3d &a = p[std::size_t(s[0])], &b = p[std::size_t(s[1])];
        const PkGePoint3d& c = p[std::size_t(s[2])];
        if (counted > limit) return {-1, -1, -1};
        if ((b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x) > 0) return {s[0], s[1], s[2]};
    }
}

// The rand sequence is part of the contract. Points on a line: the call gives up after exactly
// the replayed draws. One point inside the hull of the other three: the fourth vertex lands inside
// the first triangle (records p -> 4, corners -> 0, 0, 5) or beyond two of its edges, where one
// ghost flip leaves the new vertex recording that flip's triangle (4 or 5), whatever the order.
TEST(Delaunay, FirstTriangleAndFirstInsertionFollowTheRandDraws) {
    for (int n = 4; n <= 7; ++n) {
        Points line;
        for (int i = 0; i < n; ++i) line.emplace_back(i, 2 * i, 0);
        for (const int limit : {1, 2, 5, 13}) {
            ASSERT_EQ(replayFirstTriangle(line, limit)[0], -1);
            const int next = std::rand();
            const Outcome run = triangulate(line, nullptr, n % 2 == 0, true, 1e-9, limit);
            EXPECT_TRUE(run.status == StatusLocateFailed && std::rand() == next)
                << "n " << n << ", limit " << limit;
        }
    }
    int inside = 0, beyond = 0;
    Points p = parse("0 0 10 1 4 12 5 4");  // the last point lies inside the others' triangle
    std::sort(p.begin(), p.end(), [](auto& a, auto& b) { return a.x < b.x; });
    do {
        const std::array<int, 3> c = replayFirstTriangle(p, 1000000);
        const int q = 6 - c[0] - c[1] - c[2];
        for (const bool sorted : {false, true}) {
            const Outcome run = triangulate(p, nullptr, sorted);
            ASSERT_EQ(run.status, StatusOk);
            auto at = [&](int v) {
                return vertexTriangle(run.mesh().mesh.vertices[std::size_t(v)]);
            };
            if (p[std::size_t(q)].x == 5) {
                ++inside;
                EXPECT_TRUE(at(q) == 4 && at(c[0]) == 0 && at(c[1]) == 0 && at(c[2]) == 5)
                    << describe(p);
            } else {
                // The ghost flip moves the new vertex and its other corners to its triangle.
                ++beyond;
                EXPECT_TRUE(at(q) == 4 || at(q) == 5) << at(q) << " " << describe(p);
                const int* corners = triVerts(run.mesh().mesh.triangles[std::size_t(at(q))]);
                for (int k = 0; k < 3; ++k)
                    EXPECT_TRUE(corners[k] < 0 || at(corners[k]) == at(q)) << describe(p);
            }
        }
    } while (std::next_permutation(p.begin(), p.end(), [](auto& a, auto& b) { return a.x < b.x; }));
    EXPECT_TRUE(inside > 0 && beyond > 0);
}

double distance2(const PkMeshPoint3d& v, const double* q) {
    const double* p = vertexXY(v);
    return (p[0] - q[0]) * (p[0] - q[0]) + (p[1] - q[1]) * (p[1] - q[1]);
}

/// The documented search over boxes halved at their midpoints, axes alternating: depth first, the
/// query's side first, an entry skipped when the squared distance to its parent's splitting line
/// exceeds the best so far (so a closer vertex on the query's side may be skipped).
struct Search {
    const VertexKdTree& tree;
    const std::vector<PkMeshPoint3d>& v;
    const double* q;
    double best = std::numeric_limits<double>::max();
    int found = -1;
    void visit(int node, std::array<double, 4> box, int axis, double bound) {
        const KdNode& n = tree.nodes[std::size_t(node)];
        for (int u : n.child0 == n.child1 && bound <= best ? n.bucket : std::vector<int>()) {
            if (distance2(v[std::size_t(u)], q) < best)
                best = distance2(v[std::size_t(u)], q), found = u;
        }
        if (n.child0 == n.child1 || bound > best) return;
        const double mid = (box[std::size_t(axis)] + box[std::size_t(axis + 2)]) * 0.5;
        std::array<double, 4> low = box, high = box;
        low[std::size_t(axis + 2)] = high[std::size_t(axis)] = mid;
        const bool lowFirst = mid > q[axis];
        const double gap = (q[axis] - mid) * (q[axis] - mid);
        visit(lowFirst ? n.child0 : n.child1, lowFirst ? low : high, 1 - axis, gap);
        visit(lowFirst ? n.child1 : n.child0, lowFirst ? high : low, 1 - axis, gap);
    }
};

// The nearest-vertex index answers by its documented search (ties included), mostly at the
// brute-force nearest: clusters, lattices with repeats, lines, a growing box, both ends of the
// magnitude range; built from three points or grown; by each of its query entry points.
TEST(Delaunay, NearestVertexFollowsItsSearchRule) {
    Points spiral, repeats = integerGrid(20, 20);
    for (int i = 0; i < 3000; ++i)
        spiral.emplace_back(i * std::cos(2.4 * i), i * std::sin(2.4 * i), 0);
    repeats.insert(repeats.end(), repeats.begin(), repeats.begin() + 200);
    std::vector<Points> inputs = {
        uniformPoints(3000, 1), gaussianClusters(3000, 5, 2), repeats, spiral};
    for (int g = 4; g < 7; ++g) inputs.push_back(generators()[std::size_t(g)].make(3000, 4));
    int queries = 0, nearest = 0;
    for (const Points& points : inputs) {
        for (const bool built : {false, true}) {
            const std::vector<PkMeshPoint3d> v(points.begin(), points.end());
            VertexKdTree tree;
            if (built) tree.build({0, 1, 2}, {v[0], v[1], v[2]});
            Rng rng(points.size());
            auto expect = [&](const double* q, int found, int i) {  // among the first i vertices
                Search model{tree, v, q};
                const double *lo = tree.boxMin, *hi = tree.boxMax;
                model.visit(tree.root, {lo[0], lo[1], hi[0], hi[1]}, tree.rootAxis, 0);
                double brute = std::numeric_limits<double>::max();
                for (int j = 0; j < i; ++j)
                    brute = std::min(brute, distance2(v[std::size_t(j)], q));
                ASSERT_EQ(found, model.found) << "query " << i << " of " << describe(points);
                nearest += found >= 0 && distance2(v[std::size_t(found)], q) == brute;
                queries += found >= 0;
            };
            for (int i = built ? 3 : 0; i < int(v.size()) && !HasFailure(); ++i) {
                const double* next = vertexXY(v[std::size_t(i)]);
                const double* earlier = vertexXY(v[std::size_t(rng.below(i + 1))]);
                expect(earlier, tree.nearestIndex(earlier), i);
                int found = i % 3 == 0 ? tree.nearestIndex(next) : -1;
                if (i % 3 == 1) tree.findNearestVertex(v[std::size_t(i)], v, found);
                VertexKdTree before = i % 3 == 2 ? tree : VertexKdTree();
                if (i % 3 == 2) found = tree.nearestThenInsert(i, next), std::swap(tree, before);
                expect(next, found, i);
                if (i % 3 == 2) std::swap(tree, before);
                if (i % 3 != 2) tree.insertVertex(i, v);
            }
        }
    }
    EXPECT_GT(nearest, queries * 9 / 10);
}

}  // namespace
