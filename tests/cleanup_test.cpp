// Input clean-up against its rules stated plainly: project (z becomes 0), drop NaN points, sort
// stably by x then y, merge each point into the last kept one when equal under the tolerance,
// renumber edge ends to the lowest kept point equal to theirs ((-1, -1) when there is none), on
// near-coincident points, chains, copies and non-finite values, tolerances 0 to infinite.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "support/TestSupport.h"

namespace {

using namespace rytest;

struct Cleaned {
    Points points;
    Edges edges;
    int below = 0;  ///< ends whose lowest equal point is not the one they merged into
};

Cleaned reference(const Points& input, const Edges& edges, int plane) {
    Points projected;
    std::vector<int> order, into(input.size(), -1);
    for (const PkGePoint3d& p : input) {
        projected.emplace_back(plane == 2 ? p.y : p.x, plane == 0 ? p.y : p.z, 0.0);
        const bool known = plane >= 0 && plane <= 2 && !std::isnan(projected.back().x) &&
                           !std::isnan(projected.back().y);
        if (known) order.push_back(int(projected.size()) - 1);
    }
    std::stable_sort(order.begin(), order.end(), [&](int i, int j) {
        const PkGePoint3d &a = projected[std::size_t(i)], &b = projected[std::size_t(j)];
        return a.x < b.x || (a.x == b.x && a.y < b.y);
    });
    Cleaned out;
    for (int i : order) {
        const PkGePoint3d& p = projected[std::size_t(i)];
        if (out.points.empty() || !out.points.back().isEqualTo(p)) out.points.push_back(p);
        into[std::size_t(i)] = int(out.points.size()) - 1;
    }
    auto lowest = [&](int i) {
        for (std::size_t j = 0;
             i >= 0 && i < int(input.size()) && into[std::size_t(i)] >= 0 && j < out.points.size();
             ++j) {
            if (!out.points[j].isEqualTo(projected[std::size_t(i)])) continue;
            out.below += int(j) < into[std::size_t(i)];
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

/// Equal points (-0 as 0: the order among exact ties is free) and equal edges.
bool same(const Points& a, const Points& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](auto& p, auto& q) {
        return p.x == q.x && p.y == q.y && p.z == q.z;
    });
}

TEST(Cleanup, FollowsThePlainRules) {
    const double t = 1e-10, inf = HUGE_VAL;
    // Coordinates: bases moved by offsets. A subnormal tolerance underflows dx * dx.
    const std::vector<std::vector<double>> scenarios[] = {
        {{t}, {0.0, 1.0, -3.5, 1e3}, {0.0, 0.3 * t, 0.6 * t, 0.7 * t, t, 1.4 * t}},
        {{0.01}, {0.0, 0.25, 7.0}, {0.0, 0.004, 0.006, 0.01, 0.013, 0.03}},
        {{0.0}, {0.0, 1.0}, {0.0, 1e-16, 2.2e-16, 1e-10}},
        {{-1.0}, {0.0, 2.0}, {0.0, 1e-12, 0.5}},
        {{1e-320}, {0.0}, {0.0, 5e-321, 1e-318, 1e-200, 1e-160, 1e-150}},
        {{inf}, {0.0, 1.0, 1e300}, {0.0, 1e-10, 1.0}},
    };
    const PkGeTol saved = PkGeContext::gTol;
    int below = 0;
    for (const auto& s : scenarios) {
        const double tol = s[0][0], step = tol > 0 && tol < inf ? 0.6 * tol : s[2].back();
        PkGeContext::gTol.setEqualPoint(tol);
        for (std::uint64_t seed = 1; seed <= 12; ++seed) {
            Rng rng(seed);
            auto pick = [&](const std::vector<double>& v) {
                return v[std::size_t(rng.below(int(v.size())))];
            };
            auto coordinate = [&] {
                return pick(s[1]) + (rng.below(3) - 1) * pick(s[2]) +
                       (rng.below(3) - 1) * pick(s[2]);
            };
            Points points;
            for (int n = 1 + rng.below(400); int(points.size()) < n;) {
                PkGePoint3d p(coordinate(), coordinate(), coordinate());
                const int kind = rng.below(10), dir = rng.below(4);
                if (kind == 8 && !points.empty())
                    p = points[std::size_t(rng.below(int(points.size())))];
                for (int k = kind == 9 ? 1 + rng.below(2) : 0; k > 0; --k)
                    (&p.x)[rng.below(3)] = pick({std::nan(""), inf, -inf});
                for (int i = kind == 6 || kind == 7 ? 2 + rng.below(8) : 1; i > 0; --i) {
                    points.push_back(p);  // chains of steps within tolerance along x, y, x and z
                    p.x += dir != 1 ? step : 0.0;
                    p.y += dir == 0 ? 0.0 : dir == 3 ? -step : step;
                    p.z += dir == 2 ? step : 0.0;
                }
            }
            Edges edges;
            for (int i = 0, n = int(points.size()); i < 2 * n; ++i)
                edges.emplace_back(rng.below(n + 2) - (i % 16 == 0), rng.below(n));
            for (int plane : {int(seed % 3), 3 + int(seed % 5 == 0)}) {
                const Cleaned expected = reference(points, edges, plane);
                below += expected.below;
                PkConvert2dVertex form = PkConvert2dVertex(plane);
                PkGeTol ignored(1.0, 1.0);
                Points got = points, only = points;
                Edges gotEdges = edges;
                RyTriangulation().deleteDuplicateVertices(got, gotEdges, form, ignored);
                RyTriangulation().deleteDuplicateVertices(only, form, ignored);
                ASSERT_TRUE(same(got, expected.points) && gotEdges == expected.edges)
                    << tol << " " << describe(points, edges);
                ASSERT_TRUE(same(only, expected.points));
                EXPECT_TRUE(int(form) == plane && ignored.equalPoint() == 1.0);
            }
        }
    }
    PkGeContext::gTol = saved;
    EXPECT_GT(below, 20) << "no end tested the lowest-equal-point rule";
}

}  // namespace
