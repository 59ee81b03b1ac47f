// Robust predicates against a GMP rational oracle: exact signs on random, nearly degenerate
// (moved by ulps) and exactly degenerate inputs from the unit box to 1e12, every adaptive stage
// reached; the classifications' bands.
#include "predicates/Predicates.h"

#include <gmpxx.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "support/TestSupport.h"

namespace {

using namespace predicates;
using Pt = std::array<double, 2>;
using Quad = std::array<Pt, 4>;  // orient2d reads the first three

int sign(double v) {
    return (v > 0) - (v < 0);
}

/// x moved by k representable steps, across zero as well.
double ulps(double x, std::int64_t k) {
    std::int64_t i;
    std::memcpy(&i, &x, 8);
    i = i < 0 ? std::numeric_limits<std::int64_t>::min() - i + k : i + k;
    i = i < 0 ? std::numeric_limits<std::int64_t>::min() - i : i;
    std::memcpy(&x, &i, 8);
    return x;
}

/// The determinants over T: double (the plain formula) or mpq_class (exact).
template <class T>
T orient(const Quad& s) {
    return (T(s[0][0]) - s[2][0]) * (T(s[1][1]) - s[2][1]) -
           (T(s[0][1]) - s[2][1]) * (T(s[1][0]) - s[2][0]);
}
template <class T>
T inCircle(const Quad& s) {
    T d[3][3];
    for (int i = 0; i < 3; ++i) {
        d[i][0] = T(s[std::size_t(i)][0]) - s[3][0];
        d[i][1] = T(s[std::size_t(i)][1]) - s[3][1];
        d[i][2] = d[i][0] * d[i][0] + d[i][1] * d[i][1];
    }
    return d[0][2] * (d[1][0] * d[2][1] - d[2][0] * d[1][1]) +
           d[1][2] * (d[2][0] * d[0][1] - d[0][0] * d[2][1]) +
           d[2][2] * (d[0][0] * d[1][1] - d[1][0] * d[0][1]);
}

std::vector<Quad> cases(bool hardOnly) {
    rytest::Rng rng(11);
    auto pt = [&](double offset, double extent) {
        return Pt{offset + extent * rng.uniform(), offset + extent * rng.uniform()};
    };
    auto nudge = [&](Pt& p) {
        const std::size_t axis = std::size_t(rng.below(2));
        p[axis] = ulps(p[axis], rng.below(7) - 3);
    };
    std::vector<Quad> out;
    for (int i = 0; i < 6000 && !hardOnly; ++i) {
        const double offset = i % 3 == 0 ? 0.0 : i % 3 == 1 ? 1e6 : 1e12;
        out.push_back({pt(offset, 1e3), pt(offset, 1e3), pt(offset, 1e3), pt(offset, 1e3)});
        // c on the line a-b rounded, moved by a few ulps, in each role in turn.
        Quad s{pt(offset, 1.0), pt(offset, 1.0), {}, pt(offset, 1.0)};
        const double t = rng.uniform(-1.0, 2.0);
        s[2] = {s[0][0] + t * (s[1][0] - s[0][0]), s[0][1] + t * (s[1][1] - s[0][1])};
        nudge(s[2]);
        std::swap(s[2], s[std::size_t(rng.below(3))]);
        out.push_back(s);
        // Exactly collinear through the origin (power-of-two multiples), or moved.
        const double x = std::ldexp(rng.uniform(0.5, 1.0), rng.below(80)),
                     y = x * rng.uniform(-1, 1);
        const double k[] = {1.0, 2.0, -8.0, 0.5, -0.25, 1024.0, -1.0};
        for (Pt& p : s) p = Pt{k[rng.below(7)] * x, 0.0}, p[1] = p[0] / x * y;
        if (i % 2) nudge(s[std::size_t(rng.below(3))]);
        out.push_back(s);
        // Isosceles trapezoids on a dyadic grid (exactly cocircular), or moved.
        const double g = std::ldexp(1.0, rng.below(60) - 30), m = g * double(rng.next() >> 34);
        const double u = g * double(rng.next() >> 34), v = g * double(rng.next() >> 34);
        const double y0 = g * double(rng.next() >> 34), y1 = y0 + g * double(rng.next() >> 20);
        s = {Pt{m - u, y0}, Pt{m + u, y0}, Pt{m + v, y1}, Pt{m - v, y1}};
        if (i % 2) nudge(s[std::size_t(rng.below(4))]);
        std::swap(s[0], s[std::size_t(rng.below(4))]);
        out.push_back(s);
        // A rectangle with a tiny coordinate per axis beside 1, moved: for the exact stage.
        const double x0 = 1e-17 * rng.uniform(1, 2), x1 = rng.uniform(0.5, 1);
        const double ya = -1e-17 * rng.uniform(1, 2), yb = rng.uniform(0.5, 1);
        s = {Pt{x0, ya}, Pt{x1, ya}, Pt{x1, yb}, Pt{x0, yb}};
        nudge(s[std::size_t(rng.below(4))]);
        out.push_back(s);
    }
    // 32 x 32 ulp grids of the last point around collinear and cocircular positions.
    for (double b : {0.5, 1e12 + 0.25}) {
        for (int i = 0; i < 1024; ++i) {
            const Pt moved{ulps(b, i / 32), ulps(b, i % 32)},
                corner{ulps(0.1 * b, i / 32 - 16), 24.1};
            out.push_back({Pt{12.1 * b, 12.1 * b}, Pt{24.3 * b, 24.3 * b}, moved, Pt{}});
            out.push_back({Pt{0.1 * b, 0.7}, Pt{12.3 * b, 0.7}, Pt{12.3 * b, 24.1}, corner});
            out.back()[3][1] = ulps(24.1, i % 32 - 16);
        }
    }
    return out;
}

TEST(Predicates, ExactSignsThroughEveryStage) {
    std::uint64_t orientHits[kStageCount] = {}, circleHits[kStageCount] = {};
    int wrong = 0, plainWrong = 0;
    for (const Quad& s : cases(false)) {
        const double *a = s[0].data(), *b = s[1].data(), *c = s[2].data(), *d = s[3].data();
        const int o = sgn(orient<mpq_class>(s)), i = sgn(inCircle<mpq_class>(s));
        const double counted = orient2dAdaptive(a, b, c, StageCounter{orientHits});
        const double circle = incircleAdaptive(a, b, c, d, StageCounter{circleHits});
        wrong +=
            sign(counted) != o || sign(orient2d(b, a, c)) != -o || orient2d(a, b, c) != counted;
        wrong += sign(circle) != i || sign(incircleExact(a, b, c, d)) != i;
        wrong += sign(incircle(b, a, c, d)) != -i || sign(incircle(d, b, c, a)) != -i;
        if (wrong == 1 && !HasFailure()) ADD_FAILURE() << a[0] << " " << a[1] << " ...";
    }
    for (const Quad& s : cases(true)) {
        plainWrong += sign(orient<double>(s)) != sgn(orient<mpq_class>(s));
        plainWrong += sign(inCircle<double>(s)) != sgn(inCircle<mpq_class>(s));
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(plainWrong, 100) << "the ulp grids are not hard enough to mean anything";
    for (int s = 0; s < kStageCount; ++s)
        EXPECT_TRUE(orientHits[s] && circleHits[s]) << "stage " << s;
}

// The band is compared with the determinant (twice the area, or the in-circle value), not with a
// distance: outside it the answer follows the exact value, with tol 0 its sign; NaN is on it.
TEST(Predicates, ClassificationsFollowTheExactValueAroundTheBand) {
    const double tol = 1e-9;
    const mpq_class lo = mpq_class(tol) * 999999 / 1000000, hi = mpq_class(tol) * 1000001 / 1000000;
    const PointSide sides[] = {kRight, kOnLine, kLeft};
    const CircleSide circles[] = {kOutsideCircle, kOnCircle, kInsideCircle};
    int inBand = 0, outBand = 0;
    for (int k = -128; k <= 128; ++k) {
        const double off = k % 2 ? 1e6 : 0.0;
        const std::int64_t step = (k / 2) * (off == 0.0 ? 1 << 20 : 1);
        // p near the line a-b; r near (0.75, 1) on the circle through a, b, c.
        const Quad s{Pt{off, off}, Pt{off + 1.0, off + 0.5}, Pt{off, off + 1.0}, Pt{}};
        const Pt p{off + 0.5, ulps(off + 0.25, step)}, r{ulps(off + 0.75, step * 4), off + 1.0};
        const mpq_class d = orient<mpq_class>({s[0], s[1], p, Pt{}}),
                        e = inCircle<mpq_class>({s[0], s[1], s[2], r});
        const double *a = s[0].data(), *b = s[1].data(), *c = s[2].data();
        EXPECT_EQ(classifyPointSide(p.data(), a, b, 0.0), sides[sgn(d) + 1]);
        EXPECT_EQ(classifyInCircle(r.data(), a, b, c, 0.0), circles[sgn(e) + 1]);
        const int ds = abs(d) < lo ? 0 : d > hi ? 1 : d < -hi ? -1 : 2;
        const int es = abs(e) < lo ? 0 : e > hi ? 1 : e < -hi ? -1 : 2;
        EXPECT_TRUE(ds == 2 || classifyPointSide(p.data(), a, b, tol) == sides[ds + 1]) << k;
        EXPECT_TRUE(es == 2 || classifyInCircle(r.data(), a, b, c, tol) == circles[es + 1]) << k;
        inBand += (ds == 0) + (es == 0);
        outBand += (ds == 1 || ds == -1) + (es == 1 || es == -1);
        const Pt nan{std::nan(""), off};
        EXPECT_TRUE(classifyPointSide(nan.data(), a, b, 0) == kOnLine &&
                    classifyInCircle(nan.data(), a, b, c, 0) == kOnCircle);
    }
    EXPECT_TRUE(inBand > 20 && outBand > 20) << inBand << " " << outBand;
}

}  // namespace
