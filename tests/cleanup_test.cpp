// Input clean-up against a plain statement of its rules: project onto the plane (z becomes 0),
// drop points with a NaN coordinate, stable-sort by x then y, merge each point into the last kept
// one when equal under the global tolerance, and renumber each edge end to the lowest kept point
// equal to its point ((-1, -1) when an end has none or both ends meet). Random inputs are full of
// near-coincident points, chains, copies and non-finite values, under tolerances from 0 to
// infinite, in every plane and an unknown one; the caller's tolerance object is not read.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "support/TestSupport.h"

namespace {

using namespace rytest;

struct Cleaned {
    Points points;
    Edges edges;
    int endsBelowTheirMerge = 0;  ///< ends whose lowest equal point is not the one they merged into
};

Cleaned reference(const Points& input, const Edges& edges, int plane) {
    Points projected;
    std::vector<int> order;
    for (std::size_t i = 0; i < input.size(); ++i) {
        const PkGePoint3d& p = input[i];
        const double u = plane == 2 ? p.y : p.x, v = plane == 0 ? p.y : p.z;
        projected.emplace_back(u, v, 0.0);
        if (plane >= 0 && plane <= 2 && !std::isnan(u) && !std::isnan(v)) order.push_back(int(i));
    }
    std::stable_sort(order.begin(), order.end(), [&](int i, int j) {
        const PkGePoint3d &a = projected[std::size_t(i)], &b = projected[std::size_t(j)];
        return a.x < b.x || (a.x == b.x && a.y < b.y);
    });
    Cleaned out;
    std::vector<int> mergedInto(input.size(), -1);
    for (int i : order) {
        const PkGePoint3d& p = projected[std::size_t(i)];
        if (out.points.empty() || !out.points.back().isEqualTo(p)) out.points.push_back(p);
        mergedInto[std::size_t(i)] = int(out.points.size()) - 1;
    }
    auto lowest = [&](int i) {
        if (i < 0 || i >= int(input.size()) || mergedInto[std::size_t(i)] < 0) return -1;
        for (std::size_t j = 0; j < out.points.size(); ++j) {
            if (!out.points[j].isEqualTo(projected[std::size_t(i)])) continue;
            out.endsBelowTheirMerge += int(j) < mergedInto[std::size_t(i)];
            return int(j);
        }
        return -1;
    };
    for (const PkMeshEdge& e : edges) {
        const int a = lowest(e.EdgeIndex1()), b = lowest(e.EdgeIndex2());
        out.edges.push_back(a < 0 || b < 0 ? PkMeshEdge() : PkMeshEdge(a, b));
    }
    return out;
}

bool sameValues(const Points& a, const Points& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](auto& p, auto& q) {
               return p.x == q.x && p.y == q.y && p.z == q.z;  // -0 and 0 alike
           });
}

bool sameEdges(const Edges& a, const Edges& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](auto& e, auto& f) {
               return e.EdgeIndex1() == f.EdgeIndex1() && e.EdgeIndex2() == f.EdgeIndex2();
           });
}

TEST(Cleanup, FollowsThePlainRules) {
    const double t = 1e-10, inf = std::numeric_limits<double>::infinity();
    struct Scenario {
        double tolerance;
        std::vector<double> bases, offsets;  // coordinates gather around bases, moved by offsets
    };
    // With a subnormal tolerance dx * dx underflows: points far apart in one axis compare equal.
    const Scenario scenarios[] = {
        {t, {0.0, 1.0, -3.5, 1e3}, {0.0, 0.3 * t, 0.6 * t, 0.7 * t, t, 1.4 * t}},
        {0.01, {0.0, 0.25, 7.0}, {0.0, 0.004, 0.006, 0.01, 0.013, 0.03}},
        {0.0, {0.0, 1.0}, {0.0, 1e-16, 2.2e-16, 1e-10}},
        {-1.0, {0.0, 2.0}, {0.0, 1e-12, 0.5}},
        {1e-320, {0.0}, {0.0, 5e-321, 1e-318, 1e-200, 1e-160, 1e-150}},
        {inf, {0.0, 1.0, 1e300}, {0.0, 1e-10, 1.0}},
    };
    const PkGeTol saved = PkGeContext::gTol;
    int below = 0;
    for (const Scenario& s : scenarios) {
        PkGeContext::gTol.setEqualPoint(s.tolerance);
        for (std::uint64_t seed = 1; seed <= 12; ++seed) {
            Rng rng(seed);
            auto coordinate = [&] {
                double v = s.bases[std::size_t(rng.below(int(s.bases.size())))];
                for (int k = rng.below(3); k > 0; --k) {
                    v += s.offsets[std::size_t(rng.below(int(s.offsets.size())))] *
                         (rng.below(2) ? 1 : -1);
                }
                return v;
            };
            const double step =
                s.tolerance > 0 && s.tolerance < inf ? 0.6 * s.tolerance : s.offsets.back();
            Points points;
            for (int n = 1 + rng.below(400); int(points.size()) < n;) {
                PkGePoint3d p(coordinate(), coordinate(), coordinate());
                const int kind = rng.below(10);
                if (kind == 8 && !points.empty())
                    p = points[std::size_t(rng.below(int(points.size())))];
                if (kind == 9)
                    (&p.x)[rng.below(3)] =
                        std::vector<double>{std::nan(""), inf, -inf}[std::size_t(rng.below(3))];
                for (int i = kind >= 6 && kind <= 7 ? 2 + rng.below(8) : 1, dir = rng.below(4);
                     i > 0;
                     --i) {
                    points.push_back(p);  // a chain of steps within tolerance
                    p.x += dir != 1 ? step : 0.0;
                    p.y += dir == 0 ? 0.0 : dir == 3 ? -step : step;
                    p.z += dir == 2 ? step : 0.0;
                }
            }
            Edges edges;
            const int n = int(points.size());
            for (int i = 0; i < 2 * n; ++i)
                edges.emplace_back(rng.below(n + 2) - (i % 16 == 0), rng.below(n));
            for (int plane : {int(seed % 3), 3 + int(seed % 5 == 0)}) {
                const Cleaned expected = reference(points, edges, plane);
                below += expected.endsBelowTheirMerge;
                RyTriangulation tri;
                PkConvert2dVertex form = PkConvert2dVertex(plane);
                PkGeTol ignored(1.0, 1.0);
                Points got = points, only = points;
                Edges gotEdges = edges;
                tri.deleteDuplicateVertices(got, gotEdges, form, ignored);
                tri.deleteDuplicateVertices(only, form, ignored);
                ASSERT_TRUE(sameValues(got, expected.points))
                    << s.tolerance << " " << describe(points);
                ASSERT_TRUE(sameValues(only, expected.points));
                ASSERT_TRUE(sameEdges(gotEdges, expected.edges))
                    << s.tolerance << " " << describe(points, edges);
                EXPECT_EQ(int(form), plane);
                EXPECT_EQ(ignored.equalPoint(), 1.0);
            }
        }
    }
    PkGeContext::gTol = saved;
    EXPECT_GT(below, 20) << "no end tested the lowest-equal-point rule";
}

// A point equal to a kept one is merged even when the sort puts a different point between them
// (the merge only looks back one kept point); its edge ends still go to the lowest equal point.
TEST(Cleanup, EndsGoToTheLowestEqualPoint) {
    RyTriangulation tri;
    PkConvert2dVertex plane = kXYPlane;
    PkGeTol tol;
    const PkGePoint3d a(1, 0, 0), b(1 + 5e-11, 0, 0), c(1, 100, 0);
    Points points = {b, c, a};
    Edges edges = {PkMeshEdge(0, 1), PkMeshEdge(0, 2), PkMeshEdge(1, 2)};
    tri.deleteDuplicateVertices(points, edges, plane, tol);
    EXPECT_TRUE(sameValues(points, {a, c, b}));
    EXPECT_TRUE(sameEdges(edges, {PkMeshEdge(0, 1), PkMeshEdge(), PkMeshEdge(0, 1)}));
}

}  // namespace
