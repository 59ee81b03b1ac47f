// The surface layer through its public interface: exact kept areas against polygon areas, the
// labels against a point-in-polygon oracle, adjacency against the triangles' shared edges, the
// height-keeping merge, and every refusal of a wrong surface.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <map>
#include <random>

#include "RySurface.h"

namespace {

using ry::Role;

/// A site under construction: points, and lines over them.
struct Site {
    std::vector<double> xyz;
    std::vector<std::int32_t> lineVertices;
    ry::SurfaceInput input;

    std::int32_t point(double x, double y, double z = 0.0) {
        xyz.insert(xyz.end(), {x, y, z});
        return std::int32_t(xyz.size() / 3 - 1);
    }
    void line(Role role, const std::vector<std::array<double, 3>>& vertices, bool closed = false) {
        ry::Polyline l;
        l.role = role;
        l.closed = closed;
        l.first = lineVertices.size();
        l.count = vertices.size();
        input.lines.push_back(l);
        for (const auto& v : vertices) lineVertices.push_back(point(v[0], v[1], v[2]));
    }
    void square(Role role, double x0, double y0, double x1, double y1) {
        line(role, {{{x0, y0, 0}}, {{x1, y0, 0}}, {{x1, y1, 0}}, {{x0, y1, 0}}});
    }
    ry::Surface build(ry::SurfaceOptions options = ry::SurfaceOptions()) {
        input.xyz = xyz;
        input.lineVertices = lineVertices;
        return ry::buildSurface(input, options);
    }
};

void randomPoints(Site& site, int n, double size, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> unit(0.0, size);
    for (int i = 0; i < n; ++i) site.point(unit(random), unit(random), unit(random));
}

/// Every neighbour link is mutual and joins two kept triangles across the same edge, and every
/// shared edge of the kept list is linked.
void expectAdjacency(const ry::Surface& s) {
    std::map<std::pair<int, int>, int> directed;
    for (std::size_t t = 0; t < s.triangleCount(); ++t) {
        for (int k = 0; k < 3; ++k) {
            directed[{s.triangles[3 * t + k], s.triangles[3 * t + (k + 1) % 3]}] = int(t);
        }
    }
    for (std::size_t t = 0; t < s.triangleCount(); ++t) {
        for (int k = 0; k < 3; ++k) {
            const auto twin =
                directed.find({s.triangles[3 * t + (k + 1) % 3], s.triangles[3 * t + k]});
            EXPECT_EQ(s.neighbors[3 * t + k], twin == directed.end() ? -1 : twin->second);
        }
    }
}

TEST(Surface, BoundaryHoleAndIslandKeepTheExactAreaWithAdjacency) {
    Site site;
    randomPoints(site, 3000, 100.0, 1);
    site.square(Role::kBoundary, 10, 10, 90, 90);
    site.square(Role::kHole, 30, 30, 70, 70);
    site.square(Role::kBoundary, 40, 40, 60, 60);   // an island
    site.square(Role::kBreakline, 20, 20, 80, 80);  // closed breakline: changes nothing
    site.input.lines.back().closed = true;
    const ry::Surface s = site.build();
    ASSERT_TRUE(s.ok()) << s.message;
    EXPECT_EQ(s.keep, ry::KeepRule::kRings);
    EXPECT_NEAR(s.keptArea, 6400.0 - 1600.0 + 400.0, 1e-9);
    expectAdjacency(s);
    EXPECT_EQ(s.holeSeeds.size(), 2u);  // inside the hole, around the island
}

/// Labels of random nested and overlapping rings agree with an independent oracle: the rings
/// around each kept or removed triangle's centroid by ray crossing, the smallest deciding.
TEST(Surface, LabelsAgreeWithAPointInPolygonOracle) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        Site site;
        randomPoints(site, 400, 100.0, seed);
        std::mt19937 random(seed);
        std::uniform_real_distribution<double> at(0.0, 100.0);
        std::vector<std::array<double, 5>> rings;  // x0, y0, x1, y1, role
        for (int r = 0; r < 5; ++r) {
            double x0 = at(random), x1 = at(random), y0 = at(random), y1 = at(random);
            if (x0 > x1) std::swap(x0, x1);
            if (y0 > y1) std::swap(y0, y1);
            const Role role = r % 2 ? Role::kHole : Role::kBoundary;
            site.square(role, x0, y0, x1, y1);
            rings.push_back({x0, y0, x1, y1, double(role)});
        }
        ry::SurfaceOptions options;
        options.keepRemoved = true;
        const ry::Surface s = site.build(options);
        if (s.status == ry::SurfaceStatus::kNothingKept) continue;
        ASSERT_TRUE(s.ok()) << s.message;
        auto expectKept = [&](const std::vector<std::int32_t>& triangles, bool kept) {
            for (std::size_t t = 0; t < triangles.size() / 3; ++t) {
                double cx = 0, cy = 0;
                for (int k = 0; k < 3; ++k) {
                    cx += s.vertices[3 * triangles[3 * t + k]] / 3;
                    cy += s.vertices[3 * triangles[3 * t + k] + 1] / 3;
                }
                double best = INFINITY;
                bool keep = true;
                for (const auto& r : rings) keep &= !(r[4] == double(Role::kBoundary));
                for (const auto& r : rings) {
                    const double area = (r[2] - r[0]) * (r[3] - r[1]);
                    if (cx > r[0] && cx < r[2] && cy > r[1] && cy < r[3] && area < best) {
                        best = area;
                        keep = r[4] == double(Role::kBoundary);
                    }
                }
                ASSERT_EQ(keep, kept) << "seed " << seed << " centroid " << cx << " " << cy;
            }
        };
        expectKept(s.triangles, true);
        expectKept(s.removedTriangles, false);
    }
}

TEST(Surface, HeightsAreKeptMergedAndDraped) {
    Site site;
    site.point(0, 0, 1);
    site.point(10, 0, 2);
    site.point(10, 10, 3);
    site.point(0, 10, 4);
    site.point(0, 0, 5);                                           // on point 0, another height
    site.point(10, 0, 2);                                          // on point 1, the same height
    site.line(Role::kBreakline, {{{5, 5, NAN}}, {{0, 10, NAN}}});  // drape, and take point 3's
    ry::SurfaceOptions options;
    ry::Surface s = site.build(options);
    ASSERT_TRUE(s.ok()) << s.message;
    EXPECT_EQ(s.repeatedPoints, 3u);
    ASSERT_EQ(s.conflictCount, 1u);
    EXPECT_EQ(s.conflicts[0].first, 0);
    EXPECT_EQ(s.conflicts[0].other, 4);
    EXPECT_EQ(s.conflicts[0].otherZ, 5.0);
    EXPECT_EQ(s.vertices[2], 1.0);                         // the first height
    EXPECT_EQ(s.vertices[3 * s.pointVertex[7] + 2], 4.0);  // point 3's height
    // The centre lies on both diagonals: whichever the mesh has (or a vertex's fan) gives it.
    const double draped = s.vertices[3 * s.pointVertex[6] + 2];
    EXPECT_TRUE(draped == 2.0 || draped == 2.5 || draped == 3.0) << draped;
    options.duplicates = ry::Duplicates::kMean;
    EXPECT_EQ(site.build(options).vertices[2], 3.0);
    options.duplicates = ry::Duplicates::kError;
    EXPECT_EQ(site.build(options).status, ry::SurfaceStatus::kHeightConflict);
    site.point(20, 20, NAN);  // outside the points with heights, and no default
    EXPECT_EQ(site.build().status, ry::SurfaceStatus::kMissingHeight);
    options = ry::SurfaceOptions();
    options.defaultZ = 9.0;
    s = site.build(options);
    EXPECT_EQ(s.vertices[3 * s.pointVertex[8] + 2], 9.0);
}

TEST(Surface, CrossingLinesGetAVertexWithInterpolatedHeight) {
    Site site;
    site.square(Role::kBoundary, 0, 0, 100, 100);
    site.line(Role::kBreakline, {{{20, 50, 10}}, {{80, 50, 30}}});
    site.line(Role::kBreakline, {{{50, 20, 100}}, {{50, 90, 240}}});
    const ry::Surface s = site.build();
    ASSERT_TRUE(s.ok()) << s.message;
    ASSERT_EQ(s.crossingVertices, 1u);
    const std::size_t v = s.vertexCount() - 1;
    EXPECT_EQ(s.vertexSource[v], -1);
    EXPECT_EQ(s.vertices[3 * v + 2], (20.0 + 160.0) / 2);  // the mean along both lines
    EXPECT_EQ(s.edgeCount(), 4u + 4u);
}

TEST(Surface, RefusesWrongSurfaces) {
    Site collinear;
    for (int i = 0; i < 3; ++i) collinear.point(i, 2 * i);
    EXPECT_EQ(collinear.build().status, ry::SurfaceStatus::kZeroArea);

    Site twice;  // a ring given twice as plain edges cancels itself under the even-odd rule
    randomPoints(twice, 50, 10.0, 3);
    twice.square(Role::kEdge, 1, 1, 9, 9);
    twice.input.lines.back().closed = true;
    twice.input.lines.push_back(twice.input.lines.back());
    EXPECT_EQ(twice.build().status, ry::SurfaceStatus::kNothingKept);
    twice.input.lines[0].role = twice.input.lines[1].role = Role::kBoundary;
    const ry::Surface rings = twice.build();
    EXPECT_NEAR(rings.keptArea, 64.0, 1e-12);
    EXPECT_EQ(rings.repeatedRings, (std::vector<std::int32_t>{0, 1}));

    Site crossed;  // without splitting, a crossed boundary leaves the mesh: refused
    crossed.square(Role::kBoundary, 0, 0, 10, 10);
    crossed.line(Role::kBreakline, {{{-5, 5, 0}}, {{15, 5, 0}}});
    crossed.line(Role::kBreakline, {{{5, -5, 0}}, {{5, 15, 0}}});
    ry::SurfaceOptions options;
    options.splitCrossing = false;
    ry::Surface s = crossed.build(options);
    EXPECT_EQ(s.status, ry::SurfaceStatus::kConstraintMissing);
    EXPECT_FALSE(s.missing.empty());
    options.keep = ry::KeepRule::kAll;  // the boundary decides nothing: only reported
    s = crossed.build(options);
    EXPECT_TRUE(s.ok()) << s.message;
    EXPECT_FALSE(s.missing.empty());

    Site bad;
    bad.point(0, 0);
    bad.point(1, 0);
    bad.point(0, NAN);
    EXPECT_EQ(bad.build().status, ry::SurfaceStatus::kBadInput);
}

TEST(Surface, HolePointsRemoveTheirRegion) {
    Site site;
    randomPoints(site, 200, 10.0, 4);
    site.square(Role::kEdge, 0, 0, 10, 10);
    site.input.lines.back().closed = true;
    site.square(Role::kEdge, 2, 2, 4, 4);
    site.input.lines.back().closed = true;
    const std::vector<double> hole = {3.0, 3.0};
    site.input.holePoints = hole;
    ry::Surface s = site.build();
    EXPECT_EQ(s.keep, ry::KeepRule::kHolePoints);
    EXPECT_NEAR(s.keptArea, 100.0 - 4.0, 1e-12);
    EXPECT_EQ(s.holeSeeds.size(), 2u);
}

TEST(Surface, ProgressReportsEveryPhaseAndCanStop) {
    Site site;
    randomPoints(site, 20000, 100.0, 5);
    site.square(Role::kBoundary, 10, 10, 90, 90);
    struct Seen {
        int phases[4] = {0, 0, 0, 0};
        int stopIn = -1;
    } seen;
    ry::SurfaceOptions options;
    options.progressContext = &seen;
    options.progress = [](void* c, ry::SurfacePhase phase, std::int64_t, std::int64_t) {
        Seen& s = *static_cast<Seen*>(c);
        ++s.phases[int(phase)];
        return int(phase) != s.stopIn;
    };
    const ry::Surface full = site.build(options);
    ASSERT_TRUE(full.ok());
    for (int phase = 0; phase < 4; ++phase) EXPECT_GE(seen.phases[phase], 2) << phase;
    for (int phase = 0; phase < 4; ++phase) {
        seen.stopIn = phase;
        const ry::Surface stopped = site.build(options);
        EXPECT_EQ(stopped.status, ry::SurfaceStatus::kStopped);
        EXPECT_TRUE(stopped.triangles.empty());
    }
}

/// Many points on the hull (a circle around random points): the working mesh's ghost triangles
/// sit between the kept ones all along, so its neighbour indices are far from the kept list's.
TEST(Surface, AdjacencyHoldsWithAGhostBesideEveryTriangle) {
    Site site;
    randomPoints(site, 6000, 140.0, 3);
    const std::size_t inside = site.xyz.size();
    for (std::size_t v = 0; v < inside; v += 3) {
        const double angle = 2 * std::acos(-1.0) * double(v) / double(inside);
        site.xyz[v] += 30;
        site.xyz[v + 1] += 30;
        site.xyz.insert(site.xyz.end(),
                        {100 + 100 * std::cos(angle), 100 + 100 * std::sin(angle), 0});
    }
    const ry::Surface s = site.build();
    ASSERT_TRUE(s.ok()) << s.message;
    expectAdjacency(s);
}

}  // namespace
