// The KD-tree vertex locator.
//
// Oracles: a structural check that re-derives every node's box from the tree box by midpoint
// splits with alternating axes and demands that each stored index lie in the closed box of its
// leaf (what makes pruning on the distance to a splitting line sound); a recursive model of the
// search rule, which must pick the same vertex (ties included); and a brute-force scan, which
// bounds the reported distance from below and measures how far the pruning rule strays from the
// true nearest vertex. The rule gives both children of a node the distance from the query to the
// node's splitting line as their bound, so it may skip a subtree on the query's own side that
// holds a closer vertex; that is by design (the answer only seeds a point-location walk).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <iterator>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "PkMeshPoint3d.h"
#include "spatial/VertexKdTree.h"

namespace {

constexpr double kHuge = std::numeric_limits<double>::max();
constexpr int kSplitDepthCap = 4400;

PkMeshPoint3d vertexAt(double x, double y, double z = 0.0) {
    return PkMeshPoint3d(PkGePoint3d(x, y, z));
}

double squaredDistance(const PkMeshPoint3d& a, double x, double y) {
    const PkGePoint3d p = a.getPoint();
    const double dx = x - p.x;
    const double dy = y - p.y;
    return dx * dx + dy * dy;
}

std::string formatPoint(double x, double y) {
    char buffer[96];
    std::snprintf(buffer, sizeof buffer, "(%.17g, %.17g)", x, y);
    return buffer;
}

/// Every structural violation of `tree`, given the indices inserted so far (in any order). The
/// list is capped; the last entry then counts the rest.
std::vector<std::string> checkTree(const VertexKdTree& tree,
                                   const std::vector<PkMeshPoint3d>& vertices,
                                   std::vector<int> inserted) {
    std::vector<std::string> violations;
    int dropped = 0;
    auto report = [&](const std::string& what) {
        if (violations.size() < 20) {
            violations.push_back(what);
        } else {
            ++dropped;
        }
    };
    const int nodeCount = int(tree.nodes.size());
    if (tree.root < 0 || tree.root >= nodeCount) {
        violations.push_back("root " + std::to_string(tree.root) + " out of range");
        return violations;
    }
    if (tree.rootAxis != 0 && tree.rootAxis != 1) report("rootAxis not 0 or 1");
    if (tree.pointCount != int(inserted.size())) {
        report("pointCount " + std::to_string(tree.pointCount) + ", inserted " +
               std::to_string(inserted.size()));
    }
    // Doubling the box in floating point may put the new split an ulp or so off the old edge, so
    // old points may sit that far outside their derived box (inherent to implicit splits, harmless
    // to the search). Anything farther is a misplaced point.
    double slack[2];
    for (int k = 0; k < 2; ++k) {
        slack[k] = 64 * std::numeric_limits<double>::epsilon() *
                   std::max(std::fabs(tree.boxMin[k]), std::fabs(tree.boxMax[k]));
    }
    struct Visit {
        int node;
        double lo[2];
        double hi[2];
        int axis;
        int depth;
    };
    std::vector<char> seen(std::size_t(nodeCount), 0);
    std::vector<int> stored;
    std::vector<Visit> stack{{tree.root,
                              {tree.boxMin[0], tree.boxMin[1]},
                              {tree.boxMax[0], tree.boxMax[1]},
                              tree.rootAxis,
                              0}};
    while (!stack.empty()) {
        const Visit v = stack.back();
        stack.pop_back();
        if (seen[std::size_t(v.node)]) {
            report("node " + std::to_string(v.node) + " reached twice");
            continue;
        }
        seen[std::size_t(v.node)] = 1;
        const KdNode& n = tree.nodes[std::size_t(v.node)];
        if (n.child0 == n.child1) {
            if (int(n.bucket.size()) > VertexKdTree::BucketCapacity && v.depth <= kSplitDepthCap) {
                report("leaf " + std::to_string(v.node) + " at depth " + std::to_string(v.depth) +
                       " holds " + std::to_string(n.bucket.size()));
            }
            for (int u : n.bucket) {
                stored.push_back(u);
                if (u < 0 || u >= int(vertices.size())) {
                    report("index " + std::to_string(u) + " out of range");
                    continue;
                }
                const PkGePoint3d p = vertices[std::size_t(u)].getPoint();
                if (!(v.lo[0] - slack[0] <= p.x && p.x <= v.hi[0] + slack[0] &&
                      v.lo[1] - slack[1] <= p.y && p.y <= v.hi[1] + slack[1])) {
                    report("vertex " + std::to_string(u) + " " + formatPoint(p.x, p.y) +
                           " outside the box [" + formatPoint(v.lo[0], v.lo[1]) + ", " +
                           formatPoint(v.hi[0], v.hi[1]) + "] of leaf " + std::to_string(v.node) +
                           " at depth " + std::to_string(v.depth));
                }
            }
            continue;
        }
        if (!n.bucket.empty()) report("inner node " + std::to_string(v.node) + " holds indices");
        if (n.child0 < 0 || n.child0 >= nodeCount || n.child1 < 0 || n.child1 >= nodeCount) {
            report("node " + std::to_string(v.node) + " has a child out of range");
            continue;
        }
        const double mid = (v.lo[v.axis] + v.hi[v.axis]) * 0.5;
        Visit low = v;
        low.node = n.child0;
        low.hi[v.axis] = mid;
        low.axis = 1 - v.axis;
        low.depth = v.depth + 1;
        Visit high = low;
        high.node = n.child1;
        high.hi[v.axis] = v.hi[v.axis];
        high.lo[v.axis] = mid;
        stack.push_back(low);
        stack.push_back(high);
    }
    for (int i = 0; i < nodeCount; ++i) {
        if (!seen[std::size_t(i)]) report("node " + std::to_string(i) + " orphaned");
    }
    std::sort(stored.begin(), stored.end());
    std::sort(inserted.begin(), inserted.end());
    if (stored != inserted) report("stored indices differ from the inserted ones");
    if (dropped > 0) violations.push_back("... and " + std::to_string(dropped) + " more");
    return violations;
}

std::string joinViolations(const std::vector<std::string>& violations) {
    std::ostringstream out;
    for (const std::string& v : violations) out << "  " << v << "\n";
    return out.str();
}

#define EXPECT_TREE_VALID(tree, vertices, inserted)                                         \
    if (const std::vector<std::string> kdViolations_ = checkTree(tree, vertices, inserted); \
        kdViolations_.empty()) {                                                            \
    } else                                                                                  \
        ADD_FAILURE() << joinViolations(kdViolations_)

/// Model of the search rule, written recursively over the derived boxes: depth first, the child
/// on the query's side first, an entry skipped when the squared distance from the query to its
/// parent's splitting line exceeds the best squared distance so far, a strictly smaller distance
/// needed to replace the best. Both children carry that same bound, so the model (like the
/// locator) may skip a query-side subtree holding a closer vertex; it is the oracle for which
/// vertex the locator reports, while the brute-force scan is the oracle for what that vertex is
/// guaranteed to be (see checkQuery).
struct SearchModel {
    const VertexKdTree& tree;
    const std::vector<PkMeshPoint3d>& vertices;
    double qx;
    double qy;
    double best = kHuge;
    int found = -1;

    void visit(int node, double lo0, double lo1, double hi0, double hi1, int axis, double bound) {
        if (bound > best) return;
        const KdNode& n = tree.nodes[std::size_t(node)];
        if (n.child0 == n.child1) {
            for (int u : n.bucket) {
                const double d = squaredDistance(vertices[std::size_t(u)], qx, qy);
                if (d < best) {
                    best = d;
                    found = u;
                }
            }
            return;
        }
        const double q = axis == 0 ? qx : qy;
        const double mid = axis == 0 ? (lo0 + hi0) * 0.5 : (lo1 + hi1) * 0.5;
        const double gap = (q - mid) * (q - mid);
        const int next = 1 - axis;
        auto low = [&] {
            if (axis == 0) {
                visit(n.child0, lo0, lo1, mid, hi1, next, gap);
            } else {
                visit(n.child0, lo0, lo1, hi0, mid, next, gap);
            }
        };
        auto high = [&] {
            if (axis == 0) {
                visit(n.child1, mid, lo1, hi0, hi1, next, gap);
            } else {
                visit(n.child1, lo0, mid, hi0, hi1, next, gap);
            }
        };
        if (mid > q) {
            low();
            high();
        } else {
            high();
            low();
        }
    }
};

struct QueryStats {
    int queries = 0;
    int failures = 0;
    /// Queries whose reported vertex is farther than the brute-force nearest (allowed).
    int fartherThanNearest = 0;
    double worstRatio = 1.0;
};

/// Queries `tree` at (x, y). Checks: the reported index is the model's (same tie-breaking), an
/// inserted vertex, and its record is returned; the reported distance is never below the
/// brute-force minimum. Not required: distance 0 for a query on an inserted point. A point on the
/// upper edge of the box stays in the old half when the box doubles past it, while a query there
/// descends into the new half first, and the pruning rule may then skip it. Returns false after
/// reporting a failure.
bool checkQuery(VertexKdTree& tree,
                const std::vector<PkMeshPoint3d>& vertices,
                const std::vector<int>& inserted,
                double x,
                double y,
                QueryStats& stats) {
    ++stats.queries;
    double best = kHuge;
    for (int u : inserted) best = std::min(best, squaredDistance(vertices[std::size_t(u)], x, y));
    SearchModel model{tree, vertices, x, y};
    model.visit(tree.root,
                tree.boxMin[0],
                tree.boxMin[1],
                tree.boxMax[0],
                tree.boxMax[1],
                tree.rootAxis,
                kHuge);
    int nearest = -7;
    const PkMeshPoint3d result = tree.findNearestVertex(vertexAt(x, y), vertices, nearest);
    std::ostringstream problem;
    if (nearest != model.found) {
        problem << "reported index " << nearest << ", the search rule gives " << model.found;
    } else if (nearest < 0 || nearest >= int(vertices.size()) ||
               std::find(inserted.begin(), inserted.end(), nearest) == inserted.end()) {
        problem << "reported index " << nearest << " was never inserted";
    } else {
        const PkMeshPoint3d& v = vertices[std::size_t(nearest)];
        const double found = squaredDistance(v, x, y);
        const PkGePoint3d p = v.getPoint();
        const PkGePoint3d r = result.getPoint();
        if (found < best) {
            problem << "reported distance " << found << " below the brute-force minimum " << best;
        } else if (r.x != p.x || r.y != p.y || r.z != p.z ||
                   result.getTriangleIndex() != v.getTriangleIndex() ||
                   result.getType() != v.getType()) {
            problem << "returned record is not a copy of vertex " << nearest;
        } else if (found > best) {
            ++stats.fartherThanNearest;
            stats.worstRatio = std::max(stats.worstRatio, std::sqrt(found / best));
        }
    }
    if (problem.str().empty()) return true;
    ++stats.failures;
    ADD_FAILURE() << "query " << formatPoint(x, y) << ": " << problem.str();
    return false;
}

// ---- named inputs -------------------------------------------------------------------------------

struct Input {
    std::vector<PkMeshPoint3d> vertices;
    /// Queries checked at every checkpoint besides the inserted points themselves.
    std::vector<std::pair<double, double>> queries;
};

/// Two draws in a fixed order (the order of evaluating function arguments is unspecified).
template <class Dx, class Dy>
std::pair<double, double> draw(std::mt19937_64& rng, Dx&& dx, Dy&& dy) {
    const double x = dx(rng);
    const double y = dy(rng);
    return {x, y};
}

PkMeshPoint3d vertexAt(const std::pair<double, double>& p) {
    return vertexAt(p.first, p.second);
}

void addQueriesAround(Input& in, std::mt19937_64& rng, int count, double margin) {
    double lo[2] = {kHuge, kHuge};
    double hi[2] = {-kHuge, -kHuge};
    for (const PkMeshPoint3d& v : in.vertices) {
        const PkGePoint3d p = v.getPoint();
        lo[0] = std::min(lo[0], p.x);
        lo[1] = std::min(lo[1], p.y);
        hi[0] = std::max(hi[0], p.x);
        hi[1] = std::max(hi[1], p.y);
    }
    const double wx = std::max(hi[0] - lo[0], 1.0) * margin;
    const double wy = std::max(hi[1] - lo[1], 1.0) * margin;
    std::uniform_real_distribution<double> ux(lo[0] - wx, hi[0] + wx);
    std::uniform_real_distribution<double> uy(lo[1] - wy, hi[1] + wy);
    for (int i = 0; i < count; ++i) in.queries.push_back(draw(rng, ux, uy));
}

Input uniformInput(std::uint64_t seed) {
    std::mt19937_64 rng(seed);
    std::uniform_real_distribution<double> u(-3.0, 5.0);
    Input in;
    for (int i = 0; i < 1500; ++i) {
        const auto p = draw(rng, u, u);
        in.vertices.push_back(vertexAt(p.first, p.second, double(i)));
    }
    addQueriesAround(in, rng, 48, 0.25);
    addQueriesAround(in, rng, 8, 40.0);
    return in;
}

Input clusteredInput(std::uint64_t seed) {
    std::mt19937_64 rng(seed);
    std::uniform_real_distribution<double> centre(-100.0, 100.0);
    std::normal_distribution<double> spread(0.0, 1.0);
    Input in;
    const double scales[] = {1e-9, 1e-4, 0.3, 2.0};
    for (int c = 0; c < 12; ++c) {
        const double cx = centre(rng);
        const double cy = centre(rng);
        const double s = scales[c % 4];
        for (int i = 0; i < 110; ++i) {
            const auto d = draw(rng, spread, spread);
            in.vertices.push_back(vertexAt(cx + s * d.first, cy + s * d.second));
        }
        // Queries inside the cluster test the pruning at the fine levels.
        for (int i = 0; i < 4; ++i) {
            const auto d = draw(rng, spread, spread);
            in.queries.emplace_back(cx + s * d.first, cy + s * d.second);
        }
    }
    addQueriesAround(in, rng, 32, 0.2);
    return in;
}

Input duplicateHeavyInput(std::uint64_t seed) {
    std::mt19937_64 rng(seed);
    std::uniform_int_distribution<int> coordinate(-6, 6);
    std::vector<std::pair<double, double>> pool;
    for (int i = 0; i < 9; ++i) {
        const auto c = draw(rng, coordinate, coordinate);
        pool.emplace_back(c.first * 0.5, c.second * 0.25);
    }
    std::uniform_int_distribution<std::size_t> pick(0, pool.size() - 1);
    Input in;
    for (int i = 0; i < 700; ++i) {
        const auto& p = pool[pick(rng)];
        in.vertices.push_back(vertexAt(p.first, p.second));
    }
    addQueriesAround(in, rng, 40, 0.5);
    return in;
}

/// Integer lattice: many points sit exactly on splitting lines.
Input gridInput(std::uint64_t seed) {
    std::mt19937_64 rng(seed);
    std::vector<std::pair<int, int>> cells;
    for (int x = 0; x < 37; ++x) {
        for (int y = 0; y < 23; ++y) cells.emplace_back(x, y);
    }
    std::shuffle(cells.begin(), cells.end(), rng);
    Input in;
    for (const auto& c : cells) in.vertices.push_back(vertexAt(c.first, c.second));
    std::uniform_int_distribution<int> half(-10, 84);
    for (int i = 0; i < 48; ++i) {
        const auto c = draw(rng, half, half);
        in.queries.emplace_back(c.first * 0.5, c.second * 0.25);
    }
    return in;
}

/// A dense patch first, then points far to the left, right, above and below (and again further
/// out), mixed with more points in the patch, so the tree grows in all four directions after it
/// has split.
Input growingInput(std::uint64_t seed) {
    std::mt19937_64 rng(seed);
    std::uniform_real_distribution<double> patch(0.0, 1.0);
    Input in;
    for (int i = 0; i < 100; ++i) in.vertices.push_back(vertexAt(draw(rng, patch, patch)));
    const double reach[] = {3.0, 40.0, 1e3, 7e5};
    for (double r : reach) {
        const double directions[4][2] = {{-1, 0}, {1, 0}, {0, 1}, {0, -1}};
        for (const auto& d : directions) {
            for (int i = 0; i < 20; ++i) {
                const double t = patch(rng);
                const auto jitter = draw(rng, patch, patch);
                in.vertices.push_back(vertexAt(d[0] * r * (1 + t) + jitter.first,
                                               d[1] * r * (1 + t) + jitter.second));
                in.vertices.push_back(vertexAt(draw(rng, patch, patch)));
            }
        }
    }
    addQueriesAround(in, rng, 48, 0.1);
    for (int i = 0; i < 16; ++i) in.queries.push_back(draw(rng, patch, patch));
    return in;
}

struct Generator {
    const char* name;
    std::function<Input(std::uint64_t)> make;
};

const Generator kGenerators[] = {
    {"uniform", uniformInput},
    {"clustered", clusteredInput},
    {"duplicateHeavy", duplicateHeavyInput},
    {"grid", gridInput},
    {"growing", growingInput},
};

struct SweepCase {
    int generator;
    bool withBuild;
    std::uint64_t seed;
};

std::string sweepName(const testing::TestParamInfo<SweepCase>& info) {
    return std::string(kGenerators[info.param.generator].name) +
           (info.param.withBuild ? "_build_" : "_insert_") + std::to_string(info.param.seed);
}

std::vector<SweepCase> sweepCases() {
    std::vector<SweepCase> cases;
    for (int g = 0; g < int(std::size(kGenerators)); ++g) {
        for (bool withBuild : {false, true}) {
            for (std::uint64_t seed : {11u, 29u}) cases.push_back({g, withBuild, seed});
        }
    }
    return cases;
}

class KdTreeSweep : public testing::TestWithParam<SweepCase> {};

// Inserts the whole input (after build() of its first three vertices when asked) and compares
// with brute force at checkpoints: queries, every inserted point, and points just off them.
TEST_P(KdTreeSweep, NearestMatchesBruteForce) {
    const SweepCase c = GetParam();
    const Input in = kGenerators[c.generator].make(c.seed);
    SCOPED_TRACE(std::string("generator ") + kGenerators[c.generator].name + ", seed " +
                 std::to_string(c.seed) + (c.withBuild ? ", build first" : ""));
    VertexKdTree tree;
    std::vector<int> inserted;
    std::size_t next = 0;
    if (c.withBuild) {
        tree.build({0, 1, 2}, {in.vertices[0], in.vertices[1], in.vertices[2]});
        inserted = {0, 1, 2};
        next = 3;
    }
    QueryStats stats;
    for (; next <= in.vertices.size(); ++next) {
        const std::size_t n = inserted.size();
        const bool checkpoint =
            n == in.vertices.size() || n < 8 || n % 61 == 0 || n == 64 || n == 65 || n == 66;
        if (checkpoint && n > 0) {
            SCOPED_TRACE("after " + std::to_string(n) + " insertions");
            EXPECT_TREE_VALID(tree, in.vertices, inserted);
            for (const auto& q : in.queries) {
                checkQuery(tree, in.vertices, inserted, q.first, q.second, stats);
            }
            const std::size_t stride = std::max<std::size_t>(1, n / 40);
            for (std::size_t i = 0; i < n; i += stride) {
                const PkGePoint3d p = in.vertices[std::size_t(inserted[i])].getPoint();
                checkQuery(tree, in.vertices, inserted, p.x, p.y, stats);
                checkQuery(tree,
                           in.vertices,
                           inserted,
                           p.x + 1e-7 * (1 + std::fabs(p.x)),
                           p.y - 3e-7 * (1 + std::fabs(p.y)),
                           stats);
            }
            if (stats.failures > 10) break;
        }
        if (next == in.vertices.size()) break;
        tree.insertVertex(int(next), in.vertices);
        inserted.push_back(int(next));
    }
    EXPECT_EQ(stats.failures, 0) << "of " << stats.queries << " queries";
    EXPECT_GT(stats.queries, 100);
    // Not an error: the pruning rule may stop short of the nearest vertex. Reported for scale.
    std::printf("  %d queries, %d reported a vertex farther than the nearest (worst %.3g x)\n",
                stats.queries,
                stats.fartherThanNearest,
                stats.worstRatio);
}

void expectSameTree(const VertexKdTree& a, const VertexKdTree& b) {
    EXPECT_EQ(a.root, b.root);
    EXPECT_EQ(a.rootAxis, b.rootAxis);
    EXPECT_EQ(a.pointCount, b.pointCount);
    EXPECT_EQ(a.boxFitted, b.boxFitted);
    for (int k = 0; k < 2; ++k) {
        EXPECT_EQ(a.boxMin[k], b.boxMin[k]);
        EXPECT_EQ(a.boxMax[k], b.boxMax[k]);
    }
    ASSERT_EQ(a.nodes.size(), b.nodes.size());
    for (std::size_t i = 0; i < a.nodes.size(); ++i) {
        const KdNode& x = a.nodes[i];
        const KdNode& y = b.nodes[i];
        ASSERT_EQ(x.child0, y.child0) << "node " << i;
        ASSERT_EQ(x.child1, y.child1) << "node " << i;
        ASSERT_EQ(x.bucket, y.bucket) << "node " << i;
        ASSERT_EQ(x.coords, y.coords) << "node " << i;
        for (int k = 0; k < 4; ++k) ASSERT_EQ(x.extent[k], y.extent[k]) << "node " << i;
    }
}

/// The search-and-insert in one descent must answer as the search did and leave the tree exactly
/// as the insertion after it would: every node, bucket order, extent and box.
void expectSearchThenInsertMatches(const std::vector<PkMeshPoint3d>& vertices, bool withBuild) {
    VertexKdTree apart, together;
    std::size_t next = 0;
    if (withBuild) {
        const std::vector<PkMeshPoint3d> first(vertices.begin(), vertices.begin() + 3);
        apart.build({0, 1, 2}, first);
        together.build({0, 1, 2}, first);
        next = 3;
    }
    int mismatches = 0;
    for (; next < vertices.size(); ++next) {
        const PkGePoint3d p = vertices[next].getPoint();
        const double xy[2] = {p.x, p.y};
        const int expected = apart.nearestIndex(xy);
        apart.insertPoint(int(next), xy);
        const int got = together.nearestThenInsert(int(next), xy);
        if (got != expected && ++mismatches <= 5) {
            ADD_FAILURE() << "vertex " << next << " at " << formatPoint(p.x, p.y) << ": " << got
                          << " instead of " << expected;
        }
    }
    EXPECT_EQ(mismatches, 0);
    expectSameTree(apart, together);
}

TEST_P(KdTreeSweep, SearchThenInsertMatchesTheTwoCalls) {
    const SweepCase c = GetParam();
    expectSearchThenInsertMatches(kGenerators[c.generator].make(c.seed).vertices, c.withBuild);
}

INSTANTIATE_TEST_SUITE_P(Generators, KdTreeSweep, testing::ValuesIn(sweepCases()), sweepName);

// Coordinates from 2^-200 out to 2^700 (beyond what a triangulation accepts, but finite, which is
// all the tree asks): squared distances to far extents and splitting lines overflow, which can
// end the search's first descent above the leaf.
TEST(VertexKdTree, SearchThenInsertMatchesAtExtremeMagnitudes) {
    for (std::uint64_t seed : {3u, 17u, 40u}) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937_64 rng(seed);
        std::uniform_int_distribution<int> exponent(-200, 700);
        std::uniform_real_distribution<double> mantissa(-1.0, 1.0);
        std::vector<PkMeshPoint3d> vertices;
        for (int i = 0; i < 900; ++i) {
            const double x = std::ldexp(mantissa(rng), exponent(rng));
            const double y = std::ldexp(mantissa(rng), i % 3 == 0 ? 0 : exponent(rng));
            vertices.push_back(vertexAt(x, y));
            if (i % 7 == 0) vertices.push_back(vertexAt(x, y));  // repeats share a leaf
        }
        for (bool withBuild : {false, true}) expectSearchThenInsertMatches(vertices, withBuild);
    }
}

// ---- edge cases ---------------------------------------------------------------------------------

TEST(VertexKdTree, ConstructionGivesOneEmptyLeafOverThePlane) {
    VertexKdTree tree;
    EXPECT_TRUE(tree.isEmpty());
    ASSERT_EQ(tree.nodes.size(), 1u);
    EXPECT_EQ(tree.root, 0);
    EXPECT_EQ(tree.nodes[0].child0, tree.nodes[0].child1);
    EXPECT_TRUE(tree.nodes[0].bucket.empty());
    EXPECT_GE(tree.nodes[0].bucket.capacity(), 32u);
    EXPECT_EQ(tree.boxMin[0], -kHuge);
    EXPECT_EQ(tree.boxMin[1], -kHuge);
    EXPECT_EQ(tree.boxMax[0], kHuge);
    EXPECT_EQ(tree.boxMax[1], kHuge);
    EXPECT_EQ(tree.rootAxis, 0);
    EXPECT_EQ(tree.pointCount, 0);
    EXPECT_FALSE(tree.boxFitted);
    EXPECT_EQ(tree.searchStack.size(), 32u);
}

TEST(VertexKdTree, EmptyTreeLeavesThePresetIndex) {
    VertexKdTree tree;
    const std::vector<PkMeshPoint3d> vertices{vertexAt(1, 1)};
    for (int preset : {0, 12345, -1}) {
        int nearest = preset;
        const PkMeshPoint3d result = tree.findNearestVertex(vertexAt(1, 1), vertices, nearest);
        EXPECT_EQ(nearest, preset);
        EXPECT_EQ(result.getPoint().x, 0.0);
        EXPECT_EQ(result.getPoint().y, 0.0);
        EXPECT_EQ(result.getPoint().z, 0.0);
        EXPECT_EQ(result.getTriangleIndex(), -1);
    }
}

// 64 points fill the root leaf; the 65th fits the box to the leaf, splits it along x at the box
// midpoint and keeps bucket order on both sides. Points on the midpoint belong to the high side,
// both when the leaf is split and when inserted afterwards.
TEST(VertexKdTree, SixtyFifthInsertionSplitsAtTheBoxMidpoint) {
    std::vector<PkMeshPoint3d> vertices;
    for (int i = 0; i < 64; ++i) vertices.push_back(vertexAt(double((i * 5) % 9), double(i / 9)));
    vertices.push_back(vertexAt(4.0, 3.5));  // exactly on the midpoint x = 4
    vertices.push_back(vertexAt(4.0, 0.5));  // on the midpoint again, after the split
    vertices.push_back(vertexAt(3.999, 6.0));
    VertexKdTree tree;
    for (int i = 0; i < 64; ++i) tree.insertVertex(i, vertices);
    ASSERT_EQ(tree.nodes.size(), 1u);
    std::vector<int> all(64);
    for (int i = 0; i < 64; ++i) all[std::size_t(i)] = i;
    EXPECT_EQ(tree.nodes[0].bucket, all);
    EXPECT_FALSE(tree.boxFitted);
    EXPECT_EQ(tree.boxMax[0], kHuge);

    tree.insertVertex(64, vertices);
    EXPECT_TRUE(tree.boxFitted);
    EXPECT_EQ(tree.boxMin[0], 0.0);
    EXPECT_EQ(tree.boxMax[0], 8.0);
    EXPECT_EQ(tree.boxMin[1], 0.0);
    EXPECT_EQ(tree.boxMax[1], 7.0);
    EXPECT_EQ(tree.root, 0);
    ASSERT_EQ(tree.nodes.size(), 3u);
    const KdNode& root = tree.nodes[0];
    ASSERT_NE(root.child0, root.child1);
    EXPECT_TRUE(root.bucket.empty());
    std::vector<int> low;
    std::vector<int> high;
    for (int i = 0; i < 64; ++i)
        (vertices[std::size_t(i)].getPoint().x < 4.0 ? low : high).push_back(i);
    high.push_back(64);
    EXPECT_EQ(tree.nodes[std::size_t(root.child0)].bucket, low);
    EXPECT_EQ(tree.nodes[std::size_t(root.child1)].bucket, high);

    tree.insertVertex(65, vertices);
    tree.insertVertex(66, vertices);
    high.push_back(65);
    low.push_back(66);
    EXPECT_EQ(tree.nodes[std::size_t(root.child0)].bucket, low);
    EXPECT_EQ(tree.nodes[std::size_t(root.child1)].bucket, high);
    std::vector<int> inserted = all;
    inserted.insert(inserted.end(), {64, 65, 66});
    EXPECT_TREE_VALID(tree, vertices, inserted);
}

TEST(VertexKdTree, BuildSetsTheBoundingBoxWithoutFitting) {
    std::vector<PkMeshPoint3d> vertices;
    for (int i = 0; i < 8; ++i) vertices.push_back(vertexAt(100.0 + i, 100.0));
    vertices[7] = vertexAt(1, 2);
    vertices[3] = vertexAt(4, -1);
    vertices[5] = vertexAt(2, 6);
    VertexKdTree tree;
    tree.build({7, 3, 5}, {vertices[7], vertices[3], vertices[5]});
    EXPECT_FALSE(tree.isEmpty());
    EXPECT_EQ(tree.pointCount, 3);
    EXPECT_FALSE(tree.boxFitted);
    EXPECT_EQ(tree.boxMin[0], 1.0);
    EXPECT_EQ(tree.boxMin[1], -1.0);
    EXPECT_EQ(tree.boxMax[0], 4.0);
    EXPECT_EQ(tree.boxMax[1], 6.0);
    ASSERT_EQ(tree.nodes.size(), 1u);
    EXPECT_EQ(tree.nodes[0].bucket, (std::vector<int>{7, 3, 5}));
    int nearest = 0;
    tree.findNearestVertex(vertexAt(3.9, -0.5), vertices, nearest);
    EXPECT_EQ(nearest, 3);
    EXPECT_TREE_VALID(tree, vertices, (std::vector<int>{7, 3, 5}));
}

// Growth toggles the root axis first, then doubles the box along it toward the point; the old
// root becomes the half facing away from the point.
TEST(VertexKdTree, GrowthTogglesTheAxisAndDoublesTowardThePoint) {
    std::vector<PkMeshPoint3d> vertices{vertexAt(0, 0),
                                        vertexAt(2, 0),
                                        vertexAt(0, 2),
                                        vertexAt(1, 3),
                                        vertexAt(3, 1),
                                        vertexAt(1, -3),
                                        vertexAt(-3, 1)};
    VertexKdTree tree;
    tree.build({0, 1, 2}, {vertices[0], vertices[1], vertices[2]});
    std::vector<int> inserted{0, 1, 2};

    // Above: the axis becomes y and the box doubles upward.
    int oldRoot = tree.root;
    tree.insertVertex(3, vertices);
    inserted.push_back(3);
    EXPECT_EQ(tree.rootAxis, 1);
    EXPECT_EQ(tree.boxMax[1], 4.0);
    EXPECT_EQ(tree.boxMin[1], 0.0);
    EXPECT_EQ(tree.nodes[std::size_t(tree.root)].child0, oldRoot);
    EXPECT_EQ(tree.nodes[std::size_t(tree.nodes[std::size_t(tree.root)].child1)].bucket,
              (std::vector<int>{3}));

    // Right, with rootAxis 1: the axis toggles to x, the box doubles to the right and the old
    // root is child0.
    oldRoot = tree.root;
    tree.insertVertex(4, vertices);
    inserted.push_back(4);
    EXPECT_EQ(tree.rootAxis, 0);
    EXPECT_EQ(tree.boxMin[0], 0.0);
    EXPECT_EQ(tree.boxMax[0], 4.0);
    EXPECT_EQ(tree.nodes[std::size_t(tree.root)].child0, oldRoot);
    EXPECT_EQ(tree.nodes[std::size_t(tree.nodes[std::size_t(tree.root)].child1)].bucket,
              (std::vector<int>{4}));

    // Below: the axis toggles to y, the box doubles downward and the old root is child1.
    oldRoot = tree.root;
    tree.insertVertex(5, vertices);
    inserted.push_back(5);
    EXPECT_EQ(tree.rootAxis, 1);
    EXPECT_EQ(tree.boxMin[1], -4.0);
    EXPECT_EQ(tree.boxMax[1], 4.0);
    EXPECT_EQ(tree.nodes[std::size_t(tree.root)].child1, oldRoot);
    EXPECT_EQ(tree.nodes[std::size_t(tree.nodes[std::size_t(tree.root)].child0)].bucket,
              (std::vector<int>{5}));

    // Left: x again, doubled to the left.
    oldRoot = tree.root;
    tree.insertVertex(6, vertices);
    inserted.push_back(6);
    EXPECT_EQ(tree.rootAxis, 0);
    EXPECT_EQ(tree.boxMin[0], -4.0);
    EXPECT_EQ(tree.boxMax[0], 4.0);
    EXPECT_EQ(tree.nodes[std::size_t(tree.root)].child1, oldRoot);

    EXPECT_EQ(tree.pointCount, 7);
    EXPECT_TREE_VALID(tree, vertices, inserted);
    QueryStats stats;
    for (double x = -5; x <= 5; x += 0.75) {
        for (double y = -5; y <= 5; y += 0.75) checkQuery(tree, vertices, inserted, x, y, stats);
    }
}

// The pruning rule in one picture: after growth in all four directions the query (-2, -2) first
// meets (-3, 1) at squared distance 10; the subtree holding (0, 0) (squared distance 8) lies on
// the query's side of its own split x = 2, but 16 away from that line, so it is skipped. A
// search that gave the query-side child its parent's bound would return vertex 0 instead.
TEST(VertexKdTree, QuerySideSubtreeIsPrunedByItsSplitDistance) {
    const std::vector<PkMeshPoint3d> vertices{vertexAt(0, 0),
                                              vertexAt(2, 0),
                                              vertexAt(0, 2),
                                              vertexAt(1, 3),
                                              vertexAt(3, 1),
                                              vertexAt(1, -3),
                                              vertexAt(-3, 1)};
    VertexKdTree tree;
    tree.build({0, 1, 2}, {vertices[0], vertices[1], vertices[2]});
    for (int v = 3; v < 7; ++v) tree.insertVertex(v, vertices);
    int nearest = -1;
    tree.findNearestVertex(vertexAt(-2, -2), vertices, nearest);
    EXPECT_EQ(nearest, 6);
    tree.findNearestVertex(vertexAt(0.5, 0.5), vertices, nearest);
    EXPECT_EQ(nearest, 0);
}

TEST(VertexKdTree, FarPointGrowsUntilInside) {
    std::vector<PkMeshPoint3d> vertices{
        vertexAt(0, 0), vertexAt(1, 0), vertexAt(0, 1), vertexAt(-1e6, 3e9), vertexAt(5e12, -2)};
    VertexKdTree tree;
    tree.build({0, 1, 2}, {vertices[0], vertices[1], vertices[2]});
    tree.insertVertex(3, vertices);
    tree.insertVertex(4, vertices);
    for (int v = 3; v < 5; ++v) {
        const PkGePoint3d p = vertices[std::size_t(v)].getPoint();
        EXPECT_TRUE(tree.boxMin[0] <= p.x && p.x <= tree.boxMax[0]);
        EXPECT_TRUE(tree.boxMin[1] <= p.y && p.y <= tree.boxMax[1]);
    }
    const std::vector<int> inserted{0, 1, 2, 3, 4};
    EXPECT_TREE_VALID(tree, vertices, inserted);
    QueryStats stats;
    for (int v = 0; v < 5; ++v) {
        const PkGePoint3d p = vertices[std::size_t(v)].getPoint();
        checkQuery(tree, vertices, inserted, p.x, p.y, stats);
    }
    checkQuery(tree, vertices, inserted, 4e12, 0, stats);
    checkQuery(tree, vertices, inserted, 0, 2e9, stats);
    checkQuery(tree, vertices, inserted, 0.2, 0.3, stats);
}

// Among equally near vertices the first one met wins: bucket order inside a leaf, and across a
// split the child on the query's side (a query on the midpoint counts as high side).
TEST(VertexKdTree, TiesGoToTheFirstVertexMet) {
    {
        const std::vector<PkMeshPoint3d> vertices{
            vertexAt(1, 0), vertexAt(-1, 0), vertexAt(0, 1), vertexAt(5, 5)};
        VertexKdTree inOrder;
        VertexKdTree reversed;
        for (int v : {0, 1, 2, 3}) inOrder.insertVertex(v, vertices);
        for (int v : {2, 1, 0, 3}) reversed.insertVertex(v, vertices);
        int nearest = -1;
        inOrder.findNearestVertex(vertexAt(0, 0), vertices, nearest);
        EXPECT_EQ(nearest, 0);
        reversed.findNearestVertex(vertexAt(0, 0), vertices, nearest);
        EXPECT_EQ(nearest, 2);
    }
    {
        // A = (3, 50) and B = (5, 50) end up on either side of the split at x = 4.
        std::vector<PkMeshPoint3d> vertices{vertexAt(3, 50), vertexAt(5, 50)};
        for (int i = 0; i < 63; ++i) vertices.push_back(vertexAt(double(i % 9), 0.0));
        VertexKdTree tree;
        for (int v = 0; v < 64; ++v) tree.insertVertex(v, vertices);
        int nearest = -1;
        tree.findNearestVertex(vertexAt(4, 50), vertices, nearest);
        EXPECT_EQ(nearest, 0) << "one leaf: bucket order";
        tree.insertVertex(64, vertices);
        ASSERT_EQ(tree.nodes.size(), 3u);
        tree.findNearestVertex(vertexAt(4, 50), vertices, nearest);
        EXPECT_EQ(nearest, 1) << "split at x = 4: the high side is searched first";
        tree.findNearestVertex(vertexAt(3.9, 50), vertices, nearest);
        EXPECT_EQ(nearest, 0);
    }
}

// One leaf holds up to 64 entries, so every tree below is a single bucket, scanned in insertion
// order: the answer is the first inserted vertex at the smallest distance. Points on a 3 x 3
// grid with repeats, queried at grid and half-grid positions, tie at every size and position
// (first or second of a pair, the odd last entry).
TEST(VertexKdTree, BucketScanKeepsTheFirstOfEqualDistances) {
    std::mt19937 rng(17);
    std::uniform_int_distribution<int> cell(0, 2);
    for (int size = 1; size <= VertexKdTree::BucketCapacity; ++size) {
        std::vector<PkMeshPoint3d> vertices;
        for (int i = 0; i < size; ++i) vertices.push_back(vertexAt(cell(rng), cell(rng)));
        VertexKdTree tree;
        for (int v = 0; v < size; ++v) tree.insertVertex(v, vertices);
        ASSERT_EQ(tree.nodes.size(), 1u);
        for (int qx = -1; qx <= 5; ++qx) {
            for (int qy = -1; qy <= 5; ++qy) {
                const double q[2] = {0.5 * qx, 0.5 * qy};
                int expected = -1;
                double best = std::numeric_limits<double>::max();
                for (int v = 0; v < size; ++v) {
                    const PkGePoint3d p = vertices[std::size_t(v)].getPoint();
                    const double d = (q[0] - p.x) * (q[0] - p.x) + (q[1] - p.y) * (q[1] - p.y);
                    if (d < best) best = d, expected = v;
                }
                int nearest = -1;
                tree.findNearestVertex(vertexAt(q[0], q[1]), vertices, nearest);
                ASSERT_EQ(nearest, expected)
                    << "size " << size << " query " << q[0] << ", " << q[1];
            }
        }
    }
}

TEST(VertexKdTree, ResultIsACopyOfTheVertexRecord) {
    PkMeshPoint3d::Type excluded = PkMeshPoint3d::kExcluded;
    std::vector<PkMeshPoint3d> vertices{vertexAt(0, 0, 1.5),
                                        PkMeshPoint3d(PkGePoint3d(2, 2, -7.25), excluded)};
    vertices[1].setTriangleIndex(42);
    VertexKdTree tree;
    tree.insertVertex(0, vertices);
    tree.insertVertex(1, vertices);
    int nearest = 0;
    const PkMeshPoint3d r = tree.findNearestVertex(vertexAt(1.9, 2.2), vertices, nearest);
    EXPECT_EQ(nearest, 1);
    EXPECT_EQ(r.getPoint().z, -7.25);
    EXPECT_EQ(r.getTriangleIndex(), 42);
    EXPECT_EQ(r.getType(), PkMeshPoint3d::kExcluded);
}

// Regression: the 65th point lay outside the box fitted to the 64 points of the full leaf, so it
// sat outside the tree box; a later growth toward it put it into the wrong half and the search
// pruned it away. Story: 64 points in the unit square, then (5, 0.5), then (3, 0.5).
TEST(VertexKdTree, PointOutsideTheFittedBoxStaysFindable) {
    std::vector<PkMeshPoint3d> vertices;
    for (int i = 0; i < 64; ++i) vertices.push_back(vertexAt((i % 8) / 7.0, (i / 8) / 7.0));
    vertices.push_back(vertexAt(5, 0.5));
    vertices.push_back(vertexAt(3, 0.5));
    VertexKdTree tree;
    std::vector<int> inserted;
    for (int v = 0; v < int(vertices.size()); ++v) {
        tree.insertVertex(v, vertices);
        inserted.push_back(v);
    }
    EXPECT_TREE_VALID(tree, vertices, inserted);
    int nearest = -1;
    tree.findNearestVertex(vertexAt(4.9, 0.5), vertices, nearest);
    EXPECT_EQ(nearest, 64);
}

// Points on one axis-parallel line give a box of zero extent along the other axis, which doubling
// would never widen. A point off the line must end the growth and stay consistent with the splits
// already made along the line (their midpoint equals the line's coordinate).
struct LineCase {
    const char* name;
    bool vertical;
    double offSign;
};

class KdTreeLine : public testing::TestWithParam<LineCase> {};

TEST_P(KdTreeLine, PointOffACollinearRunTerminatesAndIsFound) {
    const LineCase c = GetParam();
    auto onLine = [&](double s, double t) { return c.vertical ? vertexAt(s, t) : vertexAt(t, s); };
    for (double line : {0.0, 7.0, -2.5, 0.1}) {
        SCOPED_TRACE("line at " + std::to_string(line));
        std::vector<PkMeshPoint3d> vertices;
        for (int i = 0; i < 130; ++i) vertices.push_back(onLine(line, double((i * 37) % 130)));
        vertices.push_back(onLine(line + c.offSign * 100.0, 35.0));
        vertices.push_back(onLine(line + c.offSign * 10.0, 20.0));
        vertices.push_back(onLine(line - c.offSign * 0.5, 64.0));
        vertices.push_back(onLine(line + c.offSign * 3e5, -9e4));
        VertexKdTree tree;
        std::vector<int> inserted;
        QueryStats stats;
        for (int v = 0; v < int(vertices.size()); ++v) {
            tree.insertVertex(v, vertices);
            inserted.push_back(v);
            if (v < 129) continue;
            for (int u : inserted) {
                const PkGePoint3d p = vertices[std::size_t(u)].getPoint();
                if (!checkQuery(tree, vertices, inserted, p.x, p.y, stats)) return;
            }
            EXPECT_TREE_VALID(tree, vertices, inserted);
            for (double s = -12; s <= 14; s += 1.0) {
                for (double t = -3; t <= 133; t += 2.5) {
                    const PkGePoint3d p = onLine(line + c.offSign * s, t).getPoint();
                    if (!checkQuery(tree, vertices, inserted, p.x, p.y, stats)) return;
                }
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Directions,
                         KdTreeLine,
                         testing::Values(LineCase{"verticalThenRight", true, 1.0},
                                         LineCase{"verticalThenLeft", true, -1.0},
                                         LineCase{"horizontalThenAbove", false, 1.0},
                                         LineCase{"horizontalThenBelow", false, -1.0}),
                         [](const testing::TestParamInfo<LineCase>& info) {
                             return std::string(info.param.name);
                         });

// More than a leaf of identical points cannot be separated by any split; insertion must stop
// splitting and keep them all. Later points around them (growing the zero-size box in every
// direction) must still be found, and the deep chain makes the search stack grow.
TEST(VertexKdTree, ManyIdenticalPointsTerminate) {
    std::vector<PkMeshPoint3d> vertices;
    for (int i = 0; i < 150; ++i) vertices.push_back(vertexAt(3, 4, double(i)));
    const double around[][2] = {{5, 4}, {3, 9}, {-2, 4}, {3, -1}, {3.5, 4.5}, {2.75, 4}, {3, 4.25}};
    for (const auto& p : around) vertices.push_back(vertexAt(p[0], p[1]));
    VertexKdTree tree;
    std::vector<int> inserted;
    QueryStats stats;
    for (int v = 0; v < int(vertices.size()); ++v) {
        tree.insertVertex(v, vertices);
        inserted.push_back(v);
        if (v < 64 || (v < 150 && v % 40 != 0)) continue;
        SCOPED_TRACE("after vertex " + std::to_string(v));
        EXPECT_TREE_VALID(tree, vertices, inserted);
        for (double x = -3; x <= 6; x += 0.25) {
            for (double y = -2; y <= 10; y += 0.5) {
                if (!checkQuery(tree, vertices, inserted, x, y, stats)) return;
            }
        }
    }
    EXPECT_EQ(tree.pointCount, int(vertices.size()));
    EXPECT_GT(tree.searchStack.size(), 32u);
    EXPECT_EQ(tree.searchStack.size() % 32, 0u);
    EXPECT_EQ(stats.failures, 0);
}

TEST(VertexKdTree, CopyIsIndependent) {
    const Input in = uniformInput(5);
    VertexKdTree tree;
    for (int v = 0; v < 300; ++v) tree.insertVertex(v, in.vertices);
    VertexKdTree copy = tree;
    for (int v = 300; v < 600; ++v) copy.insertVertex(v, in.vertices);
    std::vector<int> first(300);
    std::vector<int> all(600);
    for (int v = 0; v < 600; ++v) all[std::size_t(v)] = v;
    std::copy(all.begin(), all.begin() + 300, first.begin());
    EXPECT_TREE_VALID(tree, in.vertices, first);
    EXPECT_TREE_VALID(copy, in.vertices, all);
    QueryStats stats;
    for (const auto& q : in.queries) {
        checkQuery(tree, in.vertices, first, q.first, q.second, stats);
        checkQuery(copy, in.vertices, all, q.first, q.second, stats);
    }
}

}  // namespace

// A scout only fetches what the query ahead will read, so a wrong turn costs speed and no
// query's answer would show it. Insertion decides where a point belongs: a scout run to the end
// must stop at the leaf that then receives the point (or, when that insertion splits the leaf,
// at the node above the leaf that does).
TEST(VertexKdTree, ScoutEndsAtTheLeafThatReceivesThePoint) {
    // Random positions, and an integer grid whose box makes every split midpoint an integer, so
    // that queries meet the tie rule (a coordinate on the split goes high).
    std::mt19937 rng(71);
    std::uniform_real_distribution<double> coord(-50.0, 50.0);
    std::uniform_int_distribution<int> cell(0, 256);
    const std::function<void(double*)> inputs[] = {
        [&](double* p) { p[0] = coord(rng), p[1] = coord(rng); },
        [&](double* p) { p[0] = cell(rng), p[1] = cell(rng); },
    };
    for (const auto& draw : inputs) {
        VertexKdTree tree;
        int next = 0;
        const double corners[2][2] = {{0.0, 0.0}, {256.0, 256.0}};
        if (&draw == &inputs[1]) {
            for (const auto& c : corners) tree.insertPoint(next++, c);
        }
        for (; next < 20000; ++next) {
            double p[2];
            draw(p);
            tree.insertPoint(next, p);
        }
        auto holds = [&](int node, int v, const auto& self) -> bool {
            const KdNode& n = tree.nodes[std::size_t(node)];
            if (n.child0 == n.child1) return std::count(n.bucket.begin(), n.bucket.end(), v) > 0;
            return self(n.child0, v, self) || self(n.child1, v, self);
        };
        int splits = 0;
        for (int k = 0; k < 3000; ++k, ++next) {
            double q[2];
            draw(q);
            VertexKdTree::Scout scout;
            tree.startScout(scout, q);
            ASSERT_GE(scout.node, 0);
            for (int round = 0; scout.node >= 0 && round < 100; ++round) {
                tree.advanceScout(scout, q, 1);
            }
            ASSERT_GE(scout.leaf, 0);
            const std::size_t before = tree.nodes[std::size_t(scout.leaf)].bucket.size();
            tree.insertPoint(next, q);
            const KdNode& reached = tree.nodes[std::size_t(scout.leaf)];
            if (reached.child0 == reached.child1) {
                EXPECT_EQ(reached.bucket.size(), before + 1) << k;
                EXPECT_EQ(reached.bucket.back(), next) << k;
            } else {
                ++splits;
                EXPECT_TRUE(holds(scout.leaf, next, holds)) << k;
            }
        }
        EXPECT_GT(splits, 0);
        // Outside the tree box there is nothing to scout.
        const double far[2] = {1e6, 0.0};
        VertexKdTree::Scout scout;
        tree.startScout(scout, far);
        EXPECT_LT(scout.node, 0);
    }
}
