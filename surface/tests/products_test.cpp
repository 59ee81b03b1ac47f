// What the surface layer makes from a surface, against exact geometry: volumes of a pyramid and
// a ramp, contours of a plane, a cone and a saddle (and their areas against the volumes' plan
// areas), and hull trimming that stops at lines and keeps the adjacency mutual.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <set>

#include "RySurfaceProducts.h"

namespace {

struct Points {
    std::vector<double> xyz;
    std::vector<std::int32_t> lineVertices;
    ry::SurfaceInput input;

    void add(double x, double y, double z) {
        for (double c : {x, y, z}) xyz.push_back(c);
    }
    ry::Surface build() {
        input.xyz = xyz;
        input.lineVertices = lineVertices;
        ry::Surface s = ry::buildSurface(input);
        EXPECT_TRUE(s.ok()) << s.message;
        return s;
    }
};

/// A grid over [0, n]^2 with z = f(x, y), and `extra` random points inside.
template <class F>
ry::Surface grid(int n, F f, int extra = 0) {
    Points p;
    for (int i = 0; i <= n; ++i) {
        for (int j = 0; j <= n; ++j) p.add(i, j, f(i, j));
    }
    std::mt19937 random(7);
    std::uniform_real_distribution<double> at(0.0, n);
    for (int i = 0; i < extra; ++i) {
        const double x = at(random), y = at(random);
        p.add(x, y, f(x, y));
    }
    return p.build();
}

double ringArea(const ry::Contours& c, std::size_t line) {
    double twice = 0.0;
    const std::size_t first = c.offsets[line], n = c.offsets[line + 1] - first;
    for (std::size_t i = 0; i < n; ++i) {
        const double* a = &c.xy[2 * (first + i)];
        const double* b = &c.xy[2 * (first + (i + 1) % n)];
        twice += a[0] * b[1] - b[0] * a[1];
    }
    return twice / 2;
}

TEST(Volumes, PyramidAndRampAgainstDatums) {
    Points pyramid;  // base 2 x 2 at height 0, apex 3 above its centre: volume 4
    for (double xy : {0.0, 2.0}) pyramid.add(xy, 0, 0), pyramid.add(xy, 2, 0);
    pyramid.add(1, 1, 3);
    const ry::Surface s = pyramid.build();
    const ry::Volumes at0 = ry::surfaceVolumes(s, 0.0), at3 = ry::surfaceVolumes(s, 3.0);
    EXPECT_DOUBLE_EQ(at0.cut, 4.0);
    EXPECT_EQ(at0.fill, 0.0);
    EXPECT_DOUBLE_EQ(at3.fill, 8.0);  // the 2 x 2 x 3 box less the pyramid
    EXPECT_EQ(at3.cut, 0.0);
    // At half height the top pyramid (base 1 x 1, height 1.5) is cut; the rest of the box filled.
    const ry::Volumes half = ry::surfaceVolumes(s, 1.5);
    EXPECT_DOUBLE_EQ(half.cut, 0.5);
    EXPECT_DOUBLE_EQ(half.fill, 2.5);
    EXPECT_DOUBLE_EQ(half.cutArea, 1.0);
    EXPECT_DOUBLE_EQ(half.fillArea, 3.0);
    EXPECT_DOUBLE_EQ(half.area3d, 4.0 * std::sqrt(1.0 + 9.0));  // four faces, slant height sqrt 10
    // A ramp z = x over [0, 10]^2 with random points: triangles cut by the datum in every way.
    const ry::Surface ramp = grid(
        10, [](double x, double) { return x; }, 300);
    for (double d : {0.0, 2.5, 7.0, 10.0}) {
        const ry::Volumes v = ry::surfaceVolumes(ramp, d);
        EXPECT_NEAR(v.cut, 5.0 * (10 - d) * (10 - d), 1e-10) << d;
        EXPECT_NEAR(v.fill, 5.0 * d * d, 1e-10) << d;
        EXPECT_NEAR(v.cutArea, 10.0 * (10 - d), 1e-10) << d;
        EXPECT_NEAR(v.area2d, 100.0, 1e-10);
        EXPECT_NEAR(v.area3d, 100.0 * std::sqrt(2.0), 1e-10);
    }
}

/// No zero-length segment, and no segment twice (either way) among the lines of one level.
void expectSimpleLines(const ry::Contours& c) {
    std::set<std::tuple<double, double, double, double, double>> seen;
    for (std::size_t l = 0; l < c.lineCount(); ++l) {
        const std::size_t first = c.offsets[l], n = c.offsets[l + 1] - first;
        ASSERT_GE(n, 2u);
        for (std::size_t i = 0; i + (c.closed[l] ? 0 : 1) < n; ++i) {
            const double* a = &c.xy[2 * (first + i)];
            const double* b = &c.xy[2 * (first + (i + 1) % n)];
            ASSERT_FALSE(a[0] == b[0] && a[1] == b[1]) << "level " << c.level[l];
            auto key = std::make_tuple(c.level[l], a[0], a[1], b[0], b[1]);
            if (std::make_pair(b[0], b[1]) < std::make_pair(a[0], a[1]))
                key = std::make_tuple(c.level[l], b[0], b[1], a[0], a[1]);
            ASSERT_TRUE(seen.insert(key).second) << "segment twice at level " << c.level[l];
        }
    }
}

TEST(Contours, PlaneGivesOneStraightLinePerLevelFromBorderToBorder) {
    const ry::Surface s = grid(
        20, [](double x, double y) { return 0.3 * x + 0.7 * y + 5.0; }, 500);
    std::vector<double> levels;
    ASSERT_TRUE(ry::contourLevels(s, 1.0, 0.5, levels));
    EXPECT_EQ(levels.size(), 20u);  // 5.5 .. 24.5
    const ry::Contours c = ry::contourLines(s, levels);
    ASSERT_EQ(c.lineCount(), levels.size());
    expectSimpleLines(c);
    for (std::size_t l = 0; l < c.lineCount(); ++l) {
        EXPECT_EQ(c.level[l], levels[l]);
        EXPECT_FALSE(c.closed[l]);
        for (std::size_t i = c.offsets[l]; i < c.offsets[l + 1]; ++i) {
            const double x = c.xy[2 * i], y = c.xy[2 * i + 1];
            EXPECT_NEAR(0.3 * x + 0.7 * y + 5.0, levels[l], 1e-12);
            const bool end = i == c.offsets[l] || i + 1 == c.offsets[l + 1];
            if (end) {
                EXPECT_TRUE(x == 0 || y == 0 || x == 20 || y == 20) << x << " " << y;
            }
        }
    }
    std::vector<double> many;
    EXPECT_FALSE(ry::contourLevels(s, 1e-6, 0.0, many));  // more than the limit
    EXPECT_FALSE(ry::contourLevels(s, 0.0, 0.0, many));
}

TEST(Contours, ConeGivesOneClosedRingPerLevelEnclosingTheAreaAbove) {
    Points cone;  // rings of radius r at height 6 - r, staggered, around an apex at height 6
    cone.add(0, 0, 6);
    for (int r = 1; r <= 6; ++r) {
        for (int k = 0; k < 6 * r; ++k) {
            const double a = (k + 0.5 * (r % 2)) * 6.283185307179586 / (6 * r);
            cone.add(r * std::cos(a), r * std::sin(a), 6 - r);
        }
    }
    const ry::Surface s = cone.build();
    std::vector<double> levels;
    ASSERT_TRUE(ry::contourLevels(s, 0.5, 0.0, levels));
    const ry::Contours c = ry::contourLines(s, levels);
    // Levels 0 (no ground below) and 6 (the apex: a ring shrunk to a point) give no line.
    ASSERT_EQ(c.lineCount(), levels.size() - 2);
    expectSimpleLines(c);
    for (std::size_t l = 0; l < c.lineCount(); ++l) {
        EXPECT_EQ(c.level[l], 0.5 * double(l + 1));
        EXPECT_TRUE(c.closed[l]);
        // Counter-clockwise around the higher ground; enclosing exactly the plan area above.
        EXPECT_NEAR(ringArea(c, l), ry::surfaceVolumes(s, c.level[l]).cutArea, 1e-9);
        const double r = 6 - c.level[l];
        if (r != std::floor(r)) continue;
        // At a ring's height the line is that ring, its vertices exactly.
        ASSERT_EQ(c.offsets[l + 1] - c.offsets[l], std::size_t(6 * r));
        for (std::size_t i = c.offsets[l]; i < c.offsets[l + 1]; ++i) {
            EXPECT_NEAR(std::hypot(c.xy[2 * i], c.xy[2 * i + 1]), r, 1e-14);
        }
    }
}

TEST(Contours, SaddleAndVerticesOnLevelsNeverBranch) {
    // z = x y: at level 0 every vertex on an axis lies on the level (counted above). Two lines,
    // one around each quadrant below, each on its own quadrant's side of the axes.
    const ry::Surface s = grid(6, [](double x, double y) { return (x - 3) * (y - 3); });
    const std::vector<double> zero = {0.0};
    const ry::Contours c = ry::contourLines(s, zero);
    ASSERT_EQ(c.lineCount(), 2u);
    expectSimpleLines(c);
    for (std::size_t l = 0; l < 2; ++l) {
        EXPECT_FALSE(c.closed[l]);
        const double side = c.xy[2 * c.offsets[l]] < 3 || c.xy[2 * c.offsets[l] + 1] > 3 ? 1 : -1;
        for (std::size_t i = c.offsets[l]; i < c.offsets[l + 1]; ++i) {
            const double x = c.xy[2 * i] - 3, y = c.xy[2 * i + 1] - 3;
            EXPECT_TRUE((x == 0 || y == 0) && side * x <= 0 && side * y >= 0) << x << " " << y;
        }
    }
    // Integer heights on integer levels everywhere: still simple lines, open ones on the border.
    const ry::Surface bumpy =
        grid(12, [](double x, double y) { return std::round(3 * std::sin(x) * std::cos(y / 2)); });
    std::vector<double> levels;
    ASSERT_TRUE(ry::contourLevels(bumpy, 1.0, 0.0, levels));
    const ry::Contours b = ry::contourLines(bumpy, levels);
    expectSimpleLines(b);
    for (std::size_t l = 0; l < b.lineCount(); ++l) {
        if (b.closed[l]) continue;
        for (std::size_t i : {b.offsets[l], b.offsets[l + 1] - 1}) {
            const double x = b.xy[2 * i], y = b.xy[2 * i + 1];
            EXPECT_TRUE(x == 0 || y == 0 || x == 12 || y == 12) << x << " " << y;
        }
    }
}

TEST(HullTrim, RemovesLongBorderTrianglesUpToTheLines) {
    // A 10 x 10 grid and a far point above it: the fan to the far point is trimmed off.
    Points p;
    for (int i = 0; i <= 10; ++i) {
        for (int j = 0; j <= 10; ++j) p.add(i, j, 0);
    }
    p.add(5, 30, 0);
    ry::Surface s = p.build();
    const std::size_t all = s.triangleCount();
    ry::Surface trimmed = s;
    EXPECT_EQ(ry::trimHull(trimmed, 3.0), 10u);
    EXPECT_EQ(trimmed.keptArea, 100.0);
    EXPECT_EQ(trimmed.removedTriangles.size(), 30u);
    // A breakline up to the far point keeps the two triangles along it.
    p.lineVertices = {5 * 11 + 10, 121};  // from (5, 10)
    p.input.lines = {{ry::Role::kBreakline, false, 0, 2}};
    ry::Surface guarded = p.build();
    EXPECT_EQ(ry::trimHull(guarded, 3.0), 8u);
    EXPECT_EQ(guarded.keptArea, 120.0);
    for (ry::Surface* t : {&trimmed, &guarded}) {
        ASSERT_EQ(t->triangleCount() + t->removedTriangles.size() / 3, all);
        for (std::size_t i = 0; i < t->neighbors.size(); ++i) {
            const std::int32_t n = t->neighbors[i];
            if (n < 0) continue;
            int back = 0;
            for (int k = 0; k < 3; ++k) back += t->neighbors[3 * std::size_t(n) + k] == int(i / 3);
            EXPECT_EQ(back, 1);
        }
    }
    EXPECT_EQ(ry::trimHull(s, 0.5), all);  // everything goes: said, not silent
    EXPECT_EQ(s.status, ry::SurfaceStatus::kNothingKept);
}

}  // namespace
