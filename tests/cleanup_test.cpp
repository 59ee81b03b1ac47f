// Input clean-up: projection, merging of equal points and renumbering of constraint edges.
//
// The main oracle is a plain implementation of the rules (stable sort, merge against the most
// recently kept point, renumbering by a full scan from the start of the merged list), compared
// with the library on random inputs full of near-coincident points and chains, under several
// global tolerances. The support library's allocation budget makes the N-th allocation throw.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "RyTriangulation.h"
#include "mesh/RyTriangulationImpl.h"
#include "support/AllocationBudget.h"

namespace {

// ---- helpers ----------------------------------------------------------------

/// Sets PkGeContext::gTol for one scope and restores it afterwards.
class GlobalToleranceScope {
public:
    explicit GlobalToleranceScope(double equalPoint) : saved(PkGeContext::gTol) {
        PkGeContext::gTol.setEqualPoint(equalPoint);
    }
    ~GlobalToleranceScope() { PkGeContext::gTol = saved; }
    GlobalToleranceScope(const GlobalToleranceScope&) = delete;
    GlobalToleranceScope& operator=(const GlobalToleranceScope&) = delete;

private:
    PkGeTol saved;
};

std::string hex(double v) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%a", v);
    return buffer;
}

std::string describe(const PkGePoint3d& p) {
    return "(" + hex(p.x) + ", " + hex(p.y) + ", " + hex(p.z) + ")";
}

std::string describe(const std::vector<PkGePoint3d>& points) {
    std::string s;
    for (std::size_t i = 0; i < points.size(); ++i) {
        s += "  [" + std::to_string(i) + "] " + describe(points[i]) + "\n";
    }
    return s;
}

std::string describe(const std::vector<PkMeshEdge>& edges) {
    std::string s;
    for (const PkMeshEdge& e : edges) {
        s += " (" + std::to_string(e.EdgeIndex1()) + "," + std::to_string(e.EdgeIndex2()) + ")";
    }
    return s;
}

bool sameBits(const PkGePoint3d& a, const PkGePoint3d& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

bool sameBits(const std::vector<PkGePoint3d>& a, const std::vector<PkGePoint3d>& b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (!sameBits(a[i], b[i])) return false;
    }
    return true;
}

bool sameEdges(const std::vector<PkMeshEdge>& a, const std::vector<PkMeshEdge>& b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (a[i].EdgeIndex1() != b[i].EdgeIndex1() || a[i].EdgeIndex2() != b[i].EdgeIndex2()) {
            return false;
        }
    }
    return true;
}

PkGePoint3d P(double x, double y, double z = 0.0) {
    return PkGePoint3d(x, y, z);
}

std::vector<PkGePoint3d> cleaned(std::vector<PkGePoint3d> points,
                                 PkConvert2dVertex plane = kXYPlane) {
    deleteDuplicateVertices(points, plane);
    return points;
}

// ---- reference --------------------------------------------------------------

struct Cleaned {
    std::vector<PkGePoint3d> points;
    std::vector<PkMeshEdge> edges;
    /// Edge ends whose lowest equal position lies below the point they were merged into.
    int endsBelowMergeTarget = 0;
};

/// The rules written out plainly, including this library's choices for what they leave open:
/// projected points with a NaN coordinate are dropped, an end naming no projected point or matching
/// nothing makes its edge (-1, -1).
Cleaned reference(const std::vector<PkGePoint3d>& input,
                  const std::vector<PkMeshEdge>& edges,
                  PkConvert2dVertex plane) {
    std::vector<PkGePoint3d> projected;
    std::vector<bool> usable;
    for (const PkGePoint3d& p : input) {
        PkGePoint3d q;
        bool known = true;
        if (plane == kXYPlane) {
            q = P(p.x, p.y);
        } else if (plane == kXZPlane) {
            q = P(p.x, p.z);
        } else if (plane == kYZPlane) {
            q = P(p.y, p.z);
        } else {
            known = false;
        }
        projected.push_back(q);
        usable.push_back(known && !std::isnan(q.x) && !std::isnan(q.y));
    }

    std::vector<int> order;
    for (std::size_t i = 0; i < projected.size(); ++i) {
        if (usable[i]) order.push_back(int(i));
    }
    std::stable_sort(order.begin(), order.end(), [&](int i, int j) {
        const PkGePoint3d& a = projected[std::size_t(i)];
        const PkGePoint3d& b = projected[std::size_t(j)];
        return a.x < b.x || (a.x == b.x && a.y < b.y);
    });

    Cleaned out;
    std::vector<int> mergedInto(projected.size(), -1);
    for (int i : order) {
        const PkGePoint3d& p = projected[std::size_t(i)];
        if (out.points.empty() || !out.points.back().isEqualTo(p, PkGeContext::gTol)) {
            out.points.push_back(p);
        }
        mergedInto[std::size_t(i)] = int(out.points.size()) - 1;
    }

    const auto lowest = [&](int index) {
        if (index < 0 || index >= int(input.size()) || !usable[std::size_t(index)]) return -1;
        for (std::size_t j = 0; j < out.points.size(); ++j) {
            if (out.points[j].isEqualTo(projected[std::size_t(index)], PkGeContext::gTol)) {
                if (int(j) < mergedInto[std::size_t(index)]) ++out.endsBelowMergeTarget;
                return int(j);
            }
        }
        return -1;
    };
    for (const PkMeshEdge& e : edges) {
        const int k1 = lowest(e.EdgeIndex1());
        const int k2 = lowest(e.EdgeIndex2());
        out.edges.push_back(k1 < 0 || k2 < 0 ? PkMeshEdge() : PkMeshEdge(k1, k2));
    }
    return out;
}

/// Points equal by value (so +0.0 and -0.0 agree: their order among exact ties is free).
bool sameValues(const std::vector<PkGePoint3d>& a, const std::vector<PkGePoint3d>& b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (a[i].x != b[i].x || a[i].y != b[i].y || a[i].z != b[i].z) return false;
    }
    return true;
}

// ---- random inputs ----------------------------------------------------------

/// A family of inputs for one global tolerance: coordinates are built from `base` values and
/// small offsets, so that many points are near-coincident in both axes.
struct Scenario {
    const char* name;
    double gTol;
    std::vector<double> bases;    // coordinate values points gather around
    std::vector<double> offsets;  // multiples added to them (also with both signs)
};

std::vector<Scenario> scenarios() {
    const double t = 1e-10;
    return {
        {"default tolerance",
         t,
         {0.0, 1.0, -3.5, 1e3},
         {0.0, 0.3 * t, 0.6 * t, 0.7 * t, t, 1.4 * t}},
        {"coarse tolerance", 0.01, {0.0, 0.25, 7.0}, {0.0, 0.004, 0.006, 0.01, 0.013, 0.03}},
        {"zero tolerance", 0.0, {0.0, 1.0}, {0.0, 1e-16, 2.2e-16, 1e-10}},
        {"negative tolerance", -1.0, {0.0, 2.0}, {0.0, 1e-12, 0.5}},
        // dx * dx underflows to zero here, so points much farther apart than the tolerance
        // compare equal: the pruning must not lose them.
        {"subnormal tolerance",
         1e-320,
         {0.0},
         {0.0, 5e-321, 1e-318, 1e-200, 1e-160, 1e-150, 1e-140}},
        {"infinite tolerance",
         std::numeric_limits<double>::infinity(),
         {0.0, 1.0, 1e300},
         {0.0, 1e-10, 1.0}},
    };
}

double coordinate(std::mt19937_64& rng, const Scenario& s) {
    std::uniform_int_distribution<std::size_t> pickBase(0, s.bases.size() - 1);
    std::uniform_int_distribution<std::size_t> pickOffset(0, s.offsets.size() - 1);
    std::uniform_int_distribution<int> terms(0, 2);
    double v = s.bases[pickBase(rng)];
    for (int k = terms(rng); k > 0; --k) {
        const double o = s.offsets[pickOffset(rng)];
        v += (rng() & 1) ? o : -o;
    }
    return v;
}

/// Random points: clusters around shared coordinates, chains with steps of 0.6 tolerance along
/// x, along y or diagonally, exact copies, and a few non-finite coordinates.
std::vector<PkGePoint3d> randomPoints(std::mt19937_64& rng, const Scenario& s, int count) {
    std::vector<PkGePoint3d> points;
    const double step = s.gTol > 0.0 && std::isfinite(s.gTol) ? 0.6 * s.gTol : s.offsets.back();
    std::uniform_int_distribution<int> kind(0, 9);
    while (int(points.size()) < count) {
        const int k = kind(rng);
        if (k <= 5) {
            points.push_back(P(coordinate(rng, s), coordinate(rng, s), coordinate(rng, s)));
        } else if (k <= 7) {
            PkGePoint3d p = P(coordinate(rng, s), coordinate(rng, s), coordinate(rng, s));
            const int dir = int(rng() % 4);
            for (int i = int(rng() % 8) + 2; i > 0; --i) {
                points.push_back(p);
                if (dir != 1) p.x += step;
                if (dir != 0) p.y += (dir == 3 ? -step : step);
                if (dir == 2) p.z += step;
            }
        } else if (k == 8 && !points.empty()) {
            points.push_back(points[rng() % points.size()]);
        } else {
            const double bad[] = {std::numeric_limits<double>::quiet_NaN(),
                                  std::numeric_limits<double>::infinity(),
                                  -std::numeric_limits<double>::infinity()};
            PkGePoint3d p = P(coordinate(rng, s), coordinate(rng, s), coordinate(rng, s));
            (&p.x)[rng() % 3] = bad[rng() % 3];
            points.push_back(p);
        }
    }
    points.resize(std::size_t(count));
    std::shuffle(points.begin(), points.end(), rng);
    return points;
}

std::vector<PkMeshEdge> randomEdges(std::mt19937_64& rng, int pointCount, int count) {
    std::vector<PkMeshEdge> edges;
    std::uniform_int_distribution<int> index(0, std::max(0, pointCount - 1));
    for (int i = 0; i < count; ++i) {
        const int a = index(rng);
        int b = index(rng);
        switch (rng() % 16) {
            case 0:
                b = pointCount + int(rng() % 3);  // past the end
                break;
            case 1:
                b = -1 - int(rng() % 2);  // negative
                break;
            default:
                break;
        }
        edges.emplace_back(a, b);
    }
    return edges;
}

// ---- the oracle comparison --------------------------------------------------

TEST(CleanupOracle, MatchesPlainFullScanOnNearCoincidentInputs) {
    const PkConvert2dVertex planes[] = {kXYPlane, kXZPlane, kYZPlane};
    int compared = 0;
    int endsBelowMergeTarget = 0;
    for (const Scenario& s : scenarios()) {
        GlobalToleranceScope scope(s.gTol);
        for (std::uint64_t seed = 1; seed <= 12; ++seed) {
            std::mt19937_64 rng(seed);
            const int n = 1 + int(rng() % 400);
            const PkConvert2dVertex plane = planes[seed % 3];
            const std::vector<PkGePoint3d> points = randomPoints(rng, s, n);
            const std::vector<PkMeshEdge> edges = randomEdges(rng, n, 2 * n);
            SCOPED_TRACE(testing::Message() << "scenario '" << s.name << "' seed " << seed
                                            << " plane " << int(plane) << " n " << n);

            const Cleaned expected = reference(points, edges, plane);
            std::vector<PkGePoint3d> gotPoints = points;
            std::vector<PkMeshEdge> gotEdges = edges;
            deleteDuplicateVertices(gotPoints, gotEdges, plane);
            ASSERT_TRUE(sameValues(gotPoints, expected.points))
                << "input:\n"
                << describe(points) << "got:\n"
                << describe(gotPoints) << "expected:\n"
                << describe(expected.points);
            ASSERT_TRUE(sameEdges(gotEdges, expected.edges))
                << "input points:\n"
                << describe(points) << "input edges:" << describe(edges)
                << "\ngot:     " << describe(gotEdges) << "\nexpected:" << describe(expected.edges);

            // The first form merges identically.
            std::vector<PkGePoint3d> firstForm = points;
            deleteDuplicateVertices(firstForm, plane);
            ASSERT_TRUE(sameValues(firstForm, expected.points));

            endsBelowMergeTarget += expected.endsBelowMergeTarget;
            ++compared;
        }
    }
    EXPECT_EQ(compared, int(scenarios().size()) * 12);
    // The inputs must exercise ends whose lowest equal point is not the one they merged into.
    EXPECT_GT(endsBelowMergeTarget, 20);
}

// Large equal-x columns (a grid seen edge-on) are where a scan of the whole x window would be
// slow; check them against the full scan too.
TEST(CleanupOracle, MatchesFullScanOnGridColumnsAndVerticalLines) {
    GlobalToleranceScope scope(1e-10);
    std::mt19937_64 rng(42);
    std::vector<PkGePoint3d> points;
    for (int i = 0; i < 30; ++i) {
        for (int j = 0; j < 40; ++j) {
            const double jitter = (rng() % 3 == 0) ? 0.7e-10 * double(int(rng() % 3) - 1) : 0.0;
            points.push_back(P(double(i % 3), 0.001 * j + jitter, double(i)));
        }
    }
    std::shuffle(points.begin(), points.end(), rng);
    const std::vector<PkMeshEdge> edges = randomEdges(rng, int(points.size()), 1500);
    for (PkConvert2dVertex plane : {kXYPlane, kXZPlane, kYZPlane}) {
        SCOPED_TRACE(testing::Message() << "plane " << int(plane));
        const Cleaned expected = reference(points, edges, plane);
        std::vector<PkGePoint3d> gotPoints = points;
        std::vector<PkMeshEdge> gotEdges = edges;
        deleteDuplicateVertices(gotPoints, gotEdges, plane);
        EXPECT_TRUE(sameValues(gotPoints, expected.points));
        EXPECT_TRUE(sameEdges(gotEdges, expected.edges));
    }
}

TEST(CleanupOracle, GlobalToleranceIsRestoredByTheScope) {
    const double before = PkGeContext::gTol.equalPoint();
    {
        GlobalToleranceScope scope(0.5);
        EXPECT_EQ(PkGeContext::gTol.equalPoint(), 0.5);
    }
    EXPECT_EQ(PkGeContext::gTol.equalPoint(), before);
}

// ---- projection -------------------------------------------------------------

TEST(CleanupProjection, EachPlaneTakesItsTwoCoordinatesAndZeroesZ) {
    const std::vector<PkGePoint3d> one = {P(1, 2, 3)};
    EXPECT_TRUE(sameBits(cleaned(one, kXYPlane), {P(1, 2, 0)}));
    EXPECT_TRUE(sameBits(cleaned(one, kXZPlane), {P(1, 3, 0)}));
    EXPECT_TRUE(sameBits(cleaned(one, kYZPlane), {P(2, 3, 0)}));
}

TEST(CleanupProjection, OutputIsSortedByXThenYNotInInputOrder) {
    EXPECT_TRUE(sameBits(cleaned({P(3, 0, 7), P(1, 0, 2)}), {P(1, 0, 0), P(3, 0, 0)}));
    EXPECT_TRUE(sameBits(cleaned({P(1, 5, 0), P(1, -2, 0), P(0, 9, 0)}),
                         {P(0, 9, 0), P(1, -2, 0), P(1, 5, 0)}));
}

TEST(CleanupProjection, WhetherPointsMergeDependsOnThePlane) {
    // Equal in x and z, far apart in y.
    const std::vector<PkGePoint3d> points = {P(1, 2, 3), P(1, 5, 3)};
    EXPECT_EQ(cleaned(points, kXYPlane).size(), 2u);
    EXPECT_TRUE(sameBits(cleaned(points, kXZPlane), {P(1, 3, 0)}));
    EXPECT_EQ(cleaned(points, kYZPlane).size(), 2u);
}

TEST(CleanupProjection, UnknownPlaneGivesNoPointsAndVoidsEveryEdge) {
    for (int selector : {3, -1, 1000}) {
        SCOPED_TRACE(selector);
        std::vector<PkGePoint3d> points = {P(0, 0, 0), P(1, 0, 0), P(0, 1, 0)};
        EXPECT_TRUE(cleaned(points, PkConvert2dVertex(selector)).empty());

        std::vector<PkMeshEdge> edges = {PkMeshEdge(0, 1), PkMeshEdge(1, 2), PkMeshEdge(0, 9)};
        deleteDuplicateVertices(points, edges, PkConvert2dVertex(selector));
        EXPECT_TRUE(points.empty());
        EXPECT_TRUE(sameEdges(edges, {PkMeshEdge(), PkMeshEdge(), PkMeshEdge()}));
    }
}

// ---- merging ----------------------------------------------------------------

TEST(CleanupMerge, BitIdenticalPointsMergeIntoOne) {
    EXPECT_TRUE(sameBits(cleaned({P(2, 2, 1), P(0, 0, 0), P(2, 2, 5), P(2, 2, 1)}),
                         {P(0, 0, 0), P(2, 2, 0)}));
}

TEST(CleanupMerge, PointsWithinToleranceMergeAndTheFirstInSortedOrderSurvives) {
    GlobalToleranceScope scope(1.0 / 1024);
    const double t = 1.0 / 1024;
    // Distance exactly t is still equal; the next double above is not.
    EXPECT_TRUE(sameBits(cleaned({P(5 + t, 0), P(5, 0)}), {P(5, 0)}));
    EXPECT_TRUE(sameBits(cleaned({P(5, t), P(5, 0)}), {P(5, 0)}));
    EXPECT_EQ(cleaned({P(0, 0), P(std::nextafter(t, 1.0), 0)}).size(), 2u);
}

TEST(CleanupMerge, DiagonalDistanceCountsNotTheCoordinateDifferences) {
    GlobalToleranceScope scope(5.0);
    EXPECT_TRUE(sameBits(cleaned({P(13, 14), P(10, 10)}), {P(10, 10)}));  // distance 5
    EXPECT_EQ(cleaned({P(10, 10), P(14, 13.5)}).size(), 2u);              // distance > 5
    EXPECT_EQ(cleaned({P(10, 10), P(14, 14)}).size(), 2u);  // each difference 4, distance 5.66
}

TEST(CleanupMerge, ChainSplitsWhereItLeavesToleranceOfTheRunsFirstPoint) {
    GlobalToleranceScope scope(1.0 / 1024);
    const double s = 0.625 / 1024;  // each step within tolerance of the previous point
    const std::vector<PkGePoint3d> chain = {
        P(4 * s, 0), P(s, 0), P(0, 0), P(3 * s, 0), P(2 * s, 0)};
    // Runs start at 0 and 2s (more than t = 1.6s from 0), then 4s (2s from 2s).
    EXPECT_TRUE(sameBits(cleaned(chain), {P(0, 0), P(2 * s, 0), P(4 * s, 0)}));

    // Ends go to the lowest equal survivor: 3s equals 2s and 4s, so it goes to 2s.
    std::vector<PkGePoint3d> points = chain;
    std::vector<PkMeshEdge> edges = {PkMeshEdge(1, 3), PkMeshEdge(0, 3), PkMeshEdge(2, 1)};
    deleteDuplicateVertices(points, edges, kXYPlane);
    EXPECT_TRUE(sameEdges(edges, {PkMeshEdge(0, 1), PkMeshEdge(1, 2), PkMeshEdge()}))
        << describe(edges);
}

TEST(CleanupMerge, PointBetweenTwoNearPointsInSortedOrderKeepsBoth) {
    GlobalToleranceScope scope(1e-10);
    // a and b are within tolerance; c has a's x and a large y, so the sort puts it between them
    // and b is compared with c only.
    const PkGePoint3d a = P(1, 0), b = P(1 + 5e-11, 0), c = P(1, 100);
    std::vector<PkGePoint3d> points = {b, c, a};
    std::vector<PkMeshEdge> edges = {PkMeshEdge(0, 1), PkMeshEdge(0, 2), PkMeshEdge(1, 2)};
    deleteDuplicateVertices(points, edges, kXYPlane);
    ASSERT_TRUE(sameBits(points, {a, c, b}));
    // b survives at position 2 but equals a at position 0, the lowest equal position.
    EXPECT_TRUE(sameEdges(edges, {PkMeshEdge(0, 1), PkMeshEdge(), PkMeshEdge(0, 1)}))
        << describe(edges);
}

TEST(CleanupMerge, EmptyAndSinglePoint) {
    EXPECT_TRUE(cleaned({}).empty());
    std::vector<PkGePoint3d> points;
    std::vector<PkMeshEdge> edges;
    deleteDuplicateVertices(points, edges, kXZPlane);
    EXPECT_TRUE(points.empty());
    EXPECT_TRUE(edges.empty());

    points = {P(-1.5, 2.5, 9)};
    deleteDuplicateVertices(points, edges, kXYPlane);
    EXPECT_TRUE(sameBits(points, {P(-1.5, 2.5, 0)}));

    // Edges on an empty point array name nothing.
    points.clear();
    edges = {PkMeshEdge(0, 1)};
    deleteDuplicateVertices(points, edges, kXYPlane);
    EXPECT_TRUE(sameEdges(edges, {PkMeshEdge()}));
}

// NaN has no place in the order and is dropped; an infinity sorts like any value and stays,
// but under a finite tolerance it equals nothing, not even its own copy, so its edges match
// nothing. Under an infinite tolerance an infinite difference is within it (a NaN one never is).
TEST(CleanupMerge, NaNPointsAreDroppedAndInfiniteOnesKeptUnmatched) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    const std::vector<PkGePoint3d> points = {P(nan, 0, 0),
                                             P(1, 1, 0),
                                             P(0, inf, 0),
                                             P(0, 0, nan),
                                             P(-inf, 2, 0),
                                             P(2, 2, 0),
                                             P(0, inf, 5)};
    const std::vector<PkMeshEdge> edges = {PkMeshEdge(0, 1),
                                           PkMeshEdge(1, 3),
                                           PkMeshEdge(2, 5),
                                           PkMeshEdge(3, 5),
                                           PkMeshEdge(4, 1),
                                           PkMeshEdge(1, 5)};
    std::vector<PkGePoint3d> xy = points;
    std::vector<PkMeshEdge> xyEdges = edges;
    deleteDuplicateVertices(xy, xyEdges, kXYPlane);
    // z is not projected in the XY plane, so the NaN z of point 3 does not matter; the two
    // copies of (0, inf) both stay.
    EXPECT_TRUE(sameBits(
        xy, {P(-inf, 2, 0), P(0, 0, 0), P(0, inf, 0), P(0, inf, 0), P(1, 1, 0), P(2, 2, 0)}))
        << describe(xy);
    EXPECT_TRUE(sameEdges(xyEdges,
                          {PkMeshEdge(),
                           PkMeshEdge(1, 4),
                           PkMeshEdge(),
                           PkMeshEdge(1, 5),
                           PkMeshEdge(),
                           PkMeshEdge(4, 5)}))
        << describe(xyEdges);

    // In the XZ plane point 3 is dropped instead, and point 2 (infinite y) becomes finite.
    std::vector<PkGePoint3d> xz = points;
    std::vector<PkMeshEdge> xzEdges = edges;
    deleteDuplicateVertices(xz, xzEdges, kXZPlane);
    EXPECT_TRUE(sameBits(xz, {P(-inf, 0, 0), P(0, 0, 0), P(0, 5, 0), P(1, 0, 0), P(2, 0, 0)}))
        << describe(xz);
    EXPECT_TRUE(sameEdges(xzEdges,
                          {PkMeshEdge(),
                           PkMeshEdge(),
                           PkMeshEdge(1, 4),
                           PkMeshEdge(),
                           PkMeshEdge(),
                           PkMeshEdge(3, 4)}))
        << describe(xzEdges);

    // Infinite tolerance: (-inf, 2) comes first and absorbs every point whose difference to it
    // is not NaN, that is all of them; every end then matches position 0, and edges collapse.
    const double saved = PkGeContext::gTol.equalPoint();
    PkGeContext::gTol.setEqualPoint(inf);
    std::vector<PkGePoint3d> all = points;
    std::vector<PkMeshEdge> allEdges = edges;
    deleteDuplicateVertices(all, allEdges, kXYPlane);
    // Differences of like infinities are NaN, so these three all stay; each infinite end finds
    // its lowest match by the scan: (-inf, -inf) matches only (0, inf), which matches position 0.
    std::vector<PkGePoint3d> corners = {P(-inf, -inf), P(-inf, inf), P(0, inf)};
    std::vector<PkMeshEdge> cornerEdges = {PkMeshEdge(0, 2), PkMeshEdge(1, 2)};
    deleteDuplicateVertices(corners, cornerEdges, kXYPlane);
    PkGeContext::gTol.setEqualPoint(saved);
    EXPECT_TRUE(sameBits(all, {P(-inf, 2, 0)})) << describe(all);
    EXPECT_TRUE(sameEdges(allEdges, std::vector<PkMeshEdge>(6, PkMeshEdge())))
        << describe(allEdges);
    EXPECT_TRUE(sameBits(corners, {P(-inf, -inf), P(-inf, inf), P(0, inf)})) << describe(corners);
    EXPECT_TRUE(sameEdges(cornerEdges, {PkMeshEdge(0, 2), PkMeshEdge()})) << describe(cornerEdges);
}

// ---- renumbering ------------------------------------------------------------

TEST(CleanupRenumber, EndsThatSortInReverseComeBackSwappedSmallerFirst) {
    std::vector<PkGePoint3d> points = {P(1, 0), P(5, 0), P(3, 0)};
    std::vector<PkMeshEdge> edges = {PkMeshEdge(0, 1), PkMeshEdge(1, 2), PkMeshEdge(0, 2)};
    deleteDuplicateVertices(points, edges, kXYPlane);
    // Point 2 (3, 0) lands between the others.
    EXPECT_TRUE(sameEdges(edges, {PkMeshEdge(0, 2), PkMeshEdge(1, 2), PkMeshEdge(0, 1)}));
    EXPECT_EQ(edges[1].EdgeIndex1(), 1);
    EXPECT_EQ(edges[1].EdgeIndex2(), 2);

    points = {P(9, 0), P(2, 0)};
    edges = {PkMeshEdge(0, 1)};  // stored (0, 1): index 0 now sorts last
    deleteDuplicateVertices(points, edges, kXYPlane);
    EXPECT_EQ(edges[0].EdgeIndex1(), 0);
    EXPECT_EQ(edges[0].EdgeIndex2(), 1);
}

TEST(CleanupRenumber, EdgesThatBecomeIdenticalAreAllKeptInOrder) {
    // Points 0 and 2 are copies, as are 1 and 3: four edges describe one segment.
    std::vector<PkGePoint3d> points = {P(0, 0), P(1, 1), P(0, 0), P(1, 1), P(2, 0)};
    std::vector<PkMeshEdge> edges = {
        PkMeshEdge(0, 1), PkMeshEdge(2, 3), PkMeshEdge(1, 4), PkMeshEdge(3, 0), PkMeshEdge(0, 1)};
    deleteDuplicateVertices(points, edges, kXYPlane);
    ASSERT_EQ(points.size(), 3u);
    EXPECT_TRUE(sameEdges(edges,
                          {PkMeshEdge(0, 1),
                           PkMeshEdge(0, 1),
                           PkMeshEdge(1, 2),
                           PkMeshEdge(0, 1),
                           PkMeshEdge(0, 1)}));
}

TEST(CleanupRenumber, CollapsedAndOutOfRangeEdgesBecomeEmptyInPlace) {
    GlobalToleranceScope scope(1e-10);
    std::vector<PkGePoint3d> points = {P(0, 0), P(3e-11, 0), P(1, 0), P(0.5, 1)};
    std::vector<PkMeshEdge> edges = {PkMeshEdge(0, 1),   // ends merged
                                     PkMeshEdge(0, 2),   // fine
                                     PkMeshEdge(2, 4),   // one past the end
                                     PkMeshEdge(-5, 3),  // negative
                                     PkMeshEdge(),       // already empty
                                     PkMeshEdge(1, 1000000000),
                                     PkMeshEdge(1, 3)};
    deleteDuplicateVertices(points, edges, kXYPlane);
    ASSERT_TRUE(sameBits(points, {P(0, 0), P(0.5, 1), P(1, 0)}));
    EXPECT_TRUE(sameEdges(edges,
                          {PkMeshEdge(),
                           PkMeshEdge(0, 2),
                           PkMeshEdge(),
                           PkMeshEdge(),
                           PkMeshEdge(),
                           PkMeshEdge(),
                           PkMeshEdge(0, 1)}))
        << describe(edges);
}

TEST(CleanupRenumber, NegativeOrNaNToleranceMergesNothingAndMatchesNothing) {
    for (double tol : {-1e-10, std::numeric_limits<double>::quiet_NaN()}) {
        SCOPED_TRACE(tol);
        GlobalToleranceScope scope(tol);
        std::vector<PkGePoint3d> points = {P(1, 0), P(1, 0), P(0, 0)};
        std::vector<PkMeshEdge> edges = {PkMeshEdge(0, 2)};
        deleteDuplicateVertices(points, edges, kXYPlane);
        // No point equals even itself, so nothing merges and no end finds its point.
        EXPECT_EQ(points.size(), 3u);
        EXPECT_TRUE(sameEdges(edges, {PkMeshEdge()}));
    }
}

// ---- the public members -----------------------------------------------------

TEST(CleanupPublicApi, CallerToleranceIsNotReadTheGlobalOneIs) {
    const std::vector<PkGePoint3d> input = {P(0, 0, 1), P(0.5, 0, 2), P(3, 4, 5)};
    const std::vector<PkMeshEdge> inputEdges = {PkMeshEdge(0, 1), PkMeshEdge(1, 2)};
    RyTriangulation tri;
    PkConvert2dVertex plane = kXYPlane;

    std::vector<PkGePoint3d> pointsLoose = input, pointsStrict = input;
    std::vector<PkMeshEdge> edgesLoose = inputEdges, edgesStrict = inputEdges;
    PkGeTol loose(1.0, 1.0), strict(1e-12, 1e-12);
    tri.deleteDuplicateVertices(pointsLoose, edgesLoose, plane, loose);
    tri.deleteDuplicateVertices(pointsStrict, edgesStrict, plane, strict);
    EXPECT_EQ(pointsLoose.size(), 3u);
    EXPECT_TRUE(sameBits(pointsLoose, pointsStrict));
    EXPECT_TRUE(sameEdges(edgesLoose, edgesStrict));
    EXPECT_EQ(plane, kXYPlane);
    EXPECT_EQ(loose.equalPoint(), 1.0);

    // The global tolerance does decide.
    GlobalToleranceScope scope(1.0);
    std::vector<PkGePoint3d> points = input;
    tri.deleteDuplicateVertices(points, plane, strict);
    EXPECT_TRUE(sameBits(points, {P(0, 0, 0), P(3, 4, 0)}));
}

// ---- running out of memory --------------------------------------------------

/// Calls `run` with the N-th allocation failing, N = 0, 1, ..., until it succeeds; after each
/// failure `unchanged` must hold. Returns the number of failures seen.
template <class Run, class Check>
int failAllocationsUntilSuccess(Run run, Check unchanged) {
    const int failures = rytest::sweepAllocationBudgets(
        run, [&](int n) { EXPECT_TRUE(unchanged()) << "after a failure at allocation " << n; });
    EXPECT_GE(failures, 0) << "never succeeded";
    return failures;
}

TEST(CleanupOutOfMemory, CallerArraysAreUnchangedAfterEveryAllocationFailure) {
    GlobalToleranceScope scope(1e-10);
    std::mt19937_64 rng(5);
    const Scenario s = scenarios()[0];
    const std::vector<PkGePoint3d> input = randomPoints(rng, s, 300);
    const std::vector<PkMeshEdge> inputEdges = randomEdges(rng, 300, 400);
    const Cleaned expected = reference(input, inputEdges, kXZPlane);

    std::vector<PkGePoint3d> points = input;
    std::vector<PkMeshEdge> edges = inputEdges;
    const PkGePoint3d* pointData = points.data();
    const PkMeshEdge* edgeData = edges.data();
    const int failures = failAllocationsUntilSuccess(
        [&] { deleteDuplicateVertices(points, edges, kXZPlane); },
        [&] {
            return sameBits(points, input) && sameEdges(edges, inputEdges) &&
                   points.data() == pointData && edges.data() == edgeData;
        });
    EXPECT_GE(failures, 2);  // the work does allocate, and each step was made to fail
    EXPECT_TRUE(sameValues(points, expected.points));
    EXPECT_TRUE(sameEdges(edges, expected.edges));

    std::vector<PkGePoint3d> firstForm = input;
    const int firstFailures =
        failAllocationsUntilSuccess([&] { deleteDuplicateVertices(firstForm, kXYPlane); },
                                    [&] { return sameBits(firstForm, input); });
    EXPECT_GE(firstFailures, 1);
    EXPECT_TRUE(sameValues(firstForm, reference(input, {}, kXYPlane).points));
}

// ---- end to end -------------------------------------------------------------

double triangleAreaSum(RyTriangulation& tri) {
    const std::vector<PkMeshTriangle> triangles = tri.getMeshTriangles();
    const std::vector<PkMeshPoint3d> vertices = tri.getMeshVertices();
    double sum = 0.0;
    for (const PkMeshTriangle& t : triangles) {
        bool inRange = true;
        for (int k = 0; k < 3; ++k) {
            const int v = t.getVertexIndexAt(k);
            inRange = inRange && v >= 0 && v < int(vertices.size());
        }
        EXPECT_TRUE(inRange) << "output triangle names a vertex out of range";
        if (!inRange) continue;
        const PkGePoint3d a = vertices[std::size_t(t.getVertexIndexAt(0))].getPoint();
        const PkGePoint3d b = vertices[std::size_t(t.getVertexIndexAt(1))].getPoint();
        const PkGePoint3d c = vertices[std::size_t(t.getVertexIndexAt(2))].getPoint();
        const double area2 = (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
        EXPECT_GT(area2, 0.0) << "triangle not counter-clockwise";
        sum += 0.5 * area2;
    }
    return sum;
}

TEST(CleanupEndToEnd, DuplicatesBlockTriangulationUntilCleanedUp) {
    std::mt19937_64 rng(11);
    std::uniform_real_distribution<double> unit(0.05, 0.95);
    std::vector<PkGePoint3d> points = {P(0, 0, 1), P(1, 0, 2), P(1, 1, 3), P(0, 1, 4)};
    for (int i = 0; i < 40; ++i) points.push_back(P(unit(rng), unit(rng), double(i)));
    for (int i = 0; i < 6; ++i) points.push_back(points[std::size_t(3 * i + 1)]);

    RyTriangulation raw;
    EXPECT_EQ(raw.delaunayTriangulation(points), StatusCoincidentVertex);

    RyTriangulation tri;
    PkConvert2dVertex plane = kXYPlane;
    PkGeTol tol;
    tri.deleteDuplicateVertices(points, plane, tol);
    ASSERT_EQ(points.size(), 44u);
    ASSERT_EQ(tri.delaunayTriangulation(points), StatusOk);
    tri.deleteGhostTriangle();
    // 44 points, 4 on the hull: 2n - 2 - h triangles covering the unit square.
    EXPECT_EQ(tri.getMeshTriangles().size(), 2u * 44 - 2 - 4);
    EXPECT_NEAR(triangleAreaSum(tri), 1.0, 1e-12);
}

TEST(CleanupEndToEnd, SquareWithHoleGivenThroughDuplicatePoints) {
    GlobalToleranceScope scope(1e-10);
    // Outer square 10 x 10, hole 3 x 3. Each corner also appears as a copy (exact or within
    // tolerance) and the edges use both the originals and the copies.
    std::vector<PkGePoint3d> points = {P(0, 0, 1),
                                       P(10, 0, 1),
                                       P(10, 10, 1),
                                       P(0, 10, 1),  // 0..3 outer
                                       P(3, 3, 2),
                                       P(6, 3, 2),
                                       P(6, 6, 2),
                                       P(3, 6, 2),  // 4..7 hole
                                       P(10, 0, 9),
                                       P(0, 10 + 4e-11, 9),
                                       P(6, 6, 9),
                                       P(3, 3, 9),  // 8..11 copies of 1, 3, 6, 4
                                       P(1, 8, 0),
                                       P(8, 1, 0),
                                       P(8, 8, 0),
                                       P(1, 1, 0),
                                       P(4.5, 1.5, 0)};
    std::vector<PkMeshEdge> edges = {PkMeshEdge(0, 8),
                                     PkMeshEdge(1, 2),
                                     PkMeshEdge(2, 9),
                                     PkMeshEdge(3, 0),
                                     PkMeshEdge(11, 5),
                                     PkMeshEdge(5, 10),
                                     PkMeshEdge(6, 7),
                                     PkMeshEdge(7, 4)};

    RyTriangulation raw;
    EXPECT_EQ(raw.delaunayTriangulationWithConstraints(points, edges), StatusCoincidentVertex);

    RyTriangulation tri;
    PkConvert2dVertex plane = kXYPlane;
    PkGeTol tol;
    tri.deleteDuplicateVertices(points, edges, plane, tol);
    ASSERT_EQ(points.size(), 13u);
    ASSERT_EQ(edges.size(), 8u);
    for (const PkMeshEdge& e : edges) {
        ASSERT_GE(e.EdgeIndex1(), 0) << describe(edges);
        // Every constraint is an axis-parallel side of length 10 or 3.
        const PkGePoint3d a = points[std::size_t(e.EdgeIndex1())];
        const PkGePoint3d b = points[std::size_t(e.EdgeIndex2())];
        const double length = std::abs(a.x - b.x) + std::abs(a.y - b.y);
        EXPECT_TRUE(length == 10.0 || length == 3.0) << describe(edges);
    }

    ASSERT_EQ(tri.delaunayTriangulationWithConstraints(points, edges), StatusOk);
    tri.deleteOuterTrianglesAndHoles();
    EXPECT_NEAR(triangleAreaSum(tri), 100.0 - 9.0, 1e-9);
}

}  // namespace
