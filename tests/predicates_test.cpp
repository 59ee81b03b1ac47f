// Robust predicates against a GMP rational oracle: exact signs on random, nearly degenerate
// (moved by ulps) and exactly degenerate inputs from the unit box to 1e12, with every adaptive
// stage reached; the expansion arithmetic's exactness; the vector stage A bit for bit against
// the portable one; the classifications' bands; combineSides over every combination.
#include "predicates/Predicates.h"

#include <gmpxx.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

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
    std::memcpy(&i, &x, sizeof i);
    if (i < 0) i = std::numeric_limits<std::int64_t>::min() - i;
    i += k;
    if (i < 0) i = std::numeric_limits<std::int64_t>::min() - i;
    std::memcpy(&x, &i, sizeof x);
    return x;
}

mpq_class q(double v) {
    return mpq_class(v);  // exact
}

mpq_class exactOrient(const Pt& a, const Pt& b, const Pt& c) {
    return (q(a[0]) - q(c[0])) * (q(b[1]) - q(c[1])) - (q(a[1]) - q(c[1])) * (q(b[0]) - q(c[0]));
}

mpq_class exactInCircle(const Quad& s) {
    mpq_class d[3][3];
    for (int i = 0; i < 3; ++i) {
        d[i][0] = q(s[i][0]) - q(s[3][0]);
        d[i][1] = q(s[i][1]) - q(s[3][1]);
        d[i][2] = d[i][0] * d[i][0] + d[i][1] * d[i][1];
    }
    return d[0][2] * (d[1][0] * d[2][1] - d[2][0] * d[1][1]) +
           d[1][2] * (d[2][0] * d[0][1] - d[0][0] * d[2][1]) +
           d[2][2] * (d[0][0] * d[1][1] - d[1][0] * d[0][1]);
}

double plainOrient(const Quad& s) {
    return (s[0][0] - s[2][0]) * (s[1][1] - s[2][1]) - (s[0][1] - s[2][1]) * (s[1][0] - s[2][0]);
}

double plainInCircle(const Quad& s) {
    double d[3][3];
    for (int i = 0; i < 3; ++i) {
        d[i][0] = s[i][0] - s[3][0];
        d[i][1] = s[i][1] - s[3][1];
        d[i][2] = d[i][0] * d[i][0] + d[i][1] * d[i][1];
    }
    return d[0][2] * (d[1][0] * d[2][1] - d[2][0] * d[1][1]) +
           d[1][2] * (d[2][0] * d[0][1] - d[0][0] * d[2][1]) +
           d[2][2] * (d[0][0] * d[1][1] - d[1][0] * d[0][1]);
}

std::string show(const Quad& s) {
    std::ostringstream out;
    out.precision(17);
    for (const Pt& p : s) out << "(" << p[0] << ", " << p[1] << ") ";
    return out.str();
}

struct Family {
    std::string name;
    std::vector<Quad> cases;
    bool hard = false;  ///< the plain determinants get some signs wrong here
};

std::vector<Family> families() {
    rytest::Rng rng(11);
    auto pt = [&](double offset, double extent) {
        return Pt{offset + extent * rng.uniform(), offset + extent * rng.uniform()};
    };
    auto nudge = [&](Pt& p) { p[rng.below(2)] = ulps(p[rng.below(2)], rng.below(7) - 3); };
    std::vector<Family> out;
    for (double offset : {0.0, 1e6, 1e12}) {
        Family random{"random at " + std::to_string(offset), {}};
        Family line{"line at " + std::to_string(offset), {}};
        for (int i = 0; i < 1500; ++i) {
            random.cases.push_back(
                {pt(offset, 1e3), pt(offset, 1e3), pt(offset, 1e3), pt(offset, 1e3)});
            // c on the line a-b rounded, moved by a few ulps; each role in turn.
            Quad s{pt(offset, 1.0), pt(offset, 1.0), {}, pt(offset, 1.0)};
            const double t = rng.uniform(-1.0, 2.0);
            s[2] = {s[0][0] + t * (s[1][0] - s[0][0]), s[0][1] + t * (s[1][1] - s[0][1])};
            nudge(s[2]);
            std::swap(s[2], s[std::size_t(rng.below(3))]);
            line.cases.push_back(s);
        }
        out.push_back(random);
        out.push_back(line);
    }
    // Exactly collinear through the origin (scaling by powers of two is exact), and moved.
    Family collinear{"collinear", {}}, cocircular{"cocircular", {}}, mixed{"mixed scale", {}};
    const double scales[] = {1.0, 2.0, -8.0, 0.5, -0.25, 1024.0, -1.0};
    for (int i = 0; i < 2000; ++i) {
        const double x = std::ldexp(rng.uniform(0.5, 1.0), rng.below(80)),
                     y = x * rng.uniform(-1, 1);
        Quad s;
        for (Pt& p : s) {
            const double k = scales[rng.below(7)];
            p = {k * x, k * y};
        }
        if (i % 2) nudge(s[std::size_t(rng.below(3))]);
        collinear.cases.push_back(s);
        // Rectangles and isosceles trapezoids on a dyadic grid are exactly cocircular.
        const double g = std::ldexp(1.0, rng.below(60) - 30), m = g * double(rng.next() >> 34);
        const double u = g * double(rng.next() >> 34), v = g * double(rng.next() >> 34);
        const double y0 = g * double(rng.next() >> 34), y1 = y0 + g * double(rng.next() >> 20);
        Quad trapezoid{Pt{m - u, y0}, Pt{m + u, y0}, Pt{m + v, y1}, Pt{m - v, y1}};
        if (i % 2) nudge(trapezoid[std::size_t(rng.below(4))]);
        std::swap(trapezoid[0], trapezoid[std::size_t(rng.below(4))]);
        cocircular.cases.push_back(trapezoid);
        // One tiny coordinate per axis beside 1: only the exact stage resolves a move.
        const double x0 = 1e-17 * rng.uniform(1, 2), x1 = rng.uniform(0.5, 1);
        const double ym = -1e-17 * rng.uniform(1, 2), y2 = rng.uniform(0.5, 1);
        Quad r{Pt{x0, ym}, Pt{x1, ym}, Pt{x1, y2}, Pt{x0, y2}};
        nudge(r[std::size_t(rng.below(4))]);
        mixed.cases.push_back(r);
    }
    out.push_back(collinear);
    out.push_back(cocircular);
    out.push_back(mixed);
    // 32 x 32 ulp grids of the last point around exactly collinear and cocircular positions.
    for (double base : {0.5, 1e12 + 0.25}) {
        Family grid{"ulp grid at " + std::to_string(base), {}, true};
        for (int i = 0; i < 32; ++i) {
            for (int j = 0; j < 32; ++j) {
                grid.cases.push_back({Pt{12.1 * base, 12.1 * base},
                                      Pt{24.3 * base, 24.3 * base},
                                      Pt{ulps(base, i), ulps(base, j)},
                                      Pt{}});
                grid.cases.push_back({Pt{0.1 * base, 0.7},
                                      Pt{12.3 * base, 0.7},
                                      Pt{12.3 * base, 24.1},
                                      Pt{ulps(0.1 * base, i - 16), ulps(24.1, j - 16)}});
            }
        }
        out.push_back(grid);
    }
    return out;
}

TEST(Predicates, ExactSignsOnEveryFamilyThroughEveryStage) {
    std::uint64_t orientHits[kStageCount] = {}, circleHits[kStageCount] = {};
    for (const Family& f : families()) {
        int wrong = 0, plainWrong = 0;
        for (const Quad& s : f.cases) {
            const double *a = s[0].data(), *b = s[1].data(), *c = s[2].data(), *d = s[3].data();
            const int o = sgn(exactOrient(s[0], s[1], s[2])), i = sgn(exactInCircle(s));
            const double counted = orient2dAdaptive(a, b, c, StageCounter{orientHits});
            wrong += sign(counted) != o || sign(orient2d(b, a, c)) != -o ||
                     sign(orient2d(c, b, a)) != -o || orient2d(a, b, c) != counted;
            const double circle = incircleAdaptive(a, b, c, d, StageCounter{circleHits});
            wrong += sign(circle) != i || sign(incircleExact(a, b, c, d)) != i ||
                     sign(incircle(b, a, c, d)) != -i || sign(incircle(d, b, c, a)) != -i ||
                     incircle(a, b, c, d) != circle;
            plainWrong += sign(plainInCircle(s)) != i || sign(plainOrient(s)) != o;
            if (wrong == 1 && !HasFailure()) ADD_FAILURE() << f.name << ": " << show(s);
        }
        EXPECT_EQ(wrong, 0) << f.name;
        if (f.hard) {
            EXPECT_GT(plainWrong, 0) << f.name << " is not hard enough to mean anything";
        }
    }
    for (int s = 0; s < kStageCount; ++s) {
        EXPECT_GT(orientHits[s], 0u) << "orient2d stage " << s;
        EXPECT_GT(circleHits[s], 0u) << "incircle stage " << s;
    }
}

#if defined(__SSE2__)
bool sameBits(double a, double b) {
    return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b));
}

// The vector stage A must give the portable value bit for bit (the value feeds the bands), and
// the incircle lift bound may only certify what the permanent's bound certifies.
TEST(Predicates, VectorStageAIsThePortableOne) {
    const double inf = std::numeric_limits<double>::infinity(), nan = std::nan("");
    const double odd[] = {inf, -inf, nan, 0.0, -0.0, 1.0, -1.0, 0.5, 1e300, -1e300, 1e-300, 5e-324};
    rytest::Rng rng(3);
    int onlyPermanent = 0, count = 0;
    for (const Family& f : families()) {
        for (Quad s : f.cases) {
            if (++count % 3 == 0) {  // rescaled across the exponent range, or special values
                const int k = rng.below(1080) - 540;
                for (Pt& p : s) p = {std::ldexp(p[0], k), std::ldexp(p[1], k)};
                s[std::size_t(rng.below(4))][std::size_t(rng.below(2))] = odd[rng.below(12)];
            }
            const double *a = s[0].data(), *b = s[1].data(), *c = s[2].data(), *d = s[3].data();
            double sumV, sumP, lift, permanent;
            const double v = orient2dStageAVector(a, b, c, sumV),
                         p = orient2dStageAPortable(a, b, c, sumP);
            EXPECT_TRUE(sameBits(v, p) && sameBits(sumV, sumP)) << show(s);
            const double cv = incircleStageAVector(a, b, c, d, lift);
            const double cp = incircleStageAPortable(a, b, c, d, permanent);
            EXPECT_TRUE(sameBits(cv, cp)) << show(s);
            const bool byLift = std::fabs(cv) >= iccLiftErrBound * lift;
            const bool byPermanent = std::fabs(cp) >= iccErrBoundA * permanent;
            EXPECT_TRUE(!byLift || byPermanent) << show(s);
            onlyPermanent += byPermanent && !byLift;
            EXPECT_TRUE(sameBits(incircle(a, b, c, d), incircleStageA(a, b, c, d, NoStageStats{})));
        }
    }
    EXPECT_GT(onlyPermanent, 0) << "the fallback to the permanent was never reached";
}
#endif

/// A random double with 53 or only a few significant bits (ties, exact cancellation).
double randomDouble(rytest::Rng& rng) {
    std::uint64_t mant = (rng.next() >> 11) | (1ull << 52);
    if (rng.below(4) == 0) mant &= ~((1ull << (40 + rng.below(12))) - 1);
    const double v = std::ldexp(double(mant), rng.below(81) - 92);
    return rng.below(2) ? v : -v;
}

/// Exact value, no zero component, strictly increasing and non-overlapping components.
void expectExpansion(const std::vector<double>& e, const mpq_class& value) {
    mpq_class sum = 0;
    for (std::size_t i = 0; i < e.size(); ++i) {
        sum += q(e[i]);
        ASSERT_NE(e[i], 0.0);
        if (i == 0) continue;
        int low = 0;
        std::frexp(e[i], &low);
        const double m = std::fabs(e[i]) / std::ldexp(1.0, low - 53);
        low += __builtin_ctzll(std::uint64_t(m)) - 53;
        ASSERT_GT(low, std::ilogb(e[i - 1])) << e[i - 1] << " overlaps " << e[i];
    }
    ASSERT_EQ(sum, value);
}

TEST(Predicates, ExpansionArithmeticIsExact) {
    rytest::Rng rng(5);
    for (int round = 0; round < 3000; ++round) {
        const double a = randomDouble(rng), b = rng.below(8) ? randomDouble(rng) : -a;
        const double c = randomDouble(rng), d = rng.below(8) ? randomDouble(rng) : b;
        double x, y;
        twoSum(a, b, x, y);
        ASSERT_EQ(q(x) + q(y), q(a) + q(b));
        fastTwoSum(
            std::fabs(a) >= std::fabs(b) ? a : b, std::fabs(a) >= std::fabs(b) ? b : a, x, y);
        ASSERT_EQ(q(x) + q(y), q(a) + q(b));
        twoDiff(a, b, x, y);
        ASSERT_EQ(q(x) + q(y), q(a) - q(b));
        twoProduct(a, b, x, y);
        ASSERT_EQ(q(x) + q(y), q(a) * q(b));
        std::vector<double> e(4), f(4), h(16);
        e.resize(std::size_t(twoTwoDiff(a, b, c, d, e.data())));
        expectExpansion(e, q(a) * q(b) - q(c) * q(d));
        f.resize(std::size_t(twoTwoDiff(c, a, b, rng.below(3) ? d : c * a / b, f.data())));
        const mpq_class fv = [&] {
            mpq_class s = 0;
            for (double v : f) s += q(v);
            return s;
        }();
        h.resize(std::size_t(scaleExpansion(int(e.size()), e.data(), c, h.data())));
        expectExpansion(h, (q(a) * q(b) - q(c) * q(d)) * q(c));
        std::vector<double> s(16), g = f;
        s.resize(
            std::size_t(sumExpansions(int(e.size()), e.data(), int(f.size()), f.data(), s.data())));
        expectExpansion(s, q(a) * q(b) - q(c) * q(d) + fv);
        for (double& v : g) v = -v;  // exact cancellation: the empty expansion
        s.assign(16, 0.0);
        s.resize(
            std::size_t(sumExpansions(int(f.size()), f.data(), int(g.size()), g.data(), s.data())));
        expectExpansion(s, 0);
        ASSERT_EQ(sign(estimate(int(e.size()), e.data())), sgn(q(a) * q(b) - q(c) * q(d)));
    }
}

// The band is compared with the determinant (twice the area, or the in-circle value), not with a
// distance: answers follow the exact value outside the band, with tol 0 its exact sign, and NaN
// is on the line or circle.
TEST(Predicates, ClassificationsFollowTheExactValueAroundTheBand) {
    const double tol = 1e-9;
    const mpq_class lo = mpq_class(tol) * mpq_class(999999, 1000000);
    const mpq_class hi = mpq_class(tol) * mpq_class(1000001, 1000000);
    int inBand = 0, outBand = 0;
    for (double offset : {0.0, 1e6}) {
        const Pt a{offset, offset}, b{offset + 1.0, offset + 0.5}, c{offset, offset + 1.0};
        for (int k = -64; k <= 64; ++k) {
            const std::int64_t step = k * (offset == 0.0 ? 1 << 20 : 1);
            const Pt p{offset + 0.5, ulps(offset + 0.25, step)};
            const Pt r{ulps(offset + 0.75, step * 4), offset + 1.0};  // (0.75, 1) is on it
            const mpq_class d = exactOrient(a, b, p), e = exactInCircle({a, b, c, r});
            const PointSide want[] = {kRight, kOnLine, kLeft};
            const CircleSide wantCircle[] = {kOutsideCircle, kOnCircle, kInsideCircle};
            EXPECT_EQ(classifyPointSide(p.data(), a.data(), b.data(), 0.0), want[sgn(d) + 1]);
            EXPECT_EQ(classifyInCircle(r.data(), a.data(), b.data(), c.data(), 0.0),
                      wantCircle[sgn(e) + 1]);
            for (const mpq_class* v : {&d, &e}) {
                const int side = abs(*v) < lo ? 0 : *v > hi ? 1 : *v < -hi ? -1 : 2;
                if (side == 2) continue;
                (side == 0 ? inBand : outBand)++;
                if (v == &d) {
                    EXPECT_EQ(classifyPointSide(p.data(), a.data(), b.data(), tol), want[side + 1]);
                } else {
                    EXPECT_EQ(classifyInCircle(r.data(), a.data(), b.data(), c.data(), tol),
                              wantCircle[side + 1]);
                }
            }
        }
    }
    EXPECT_GT(inBand, 20);
    EXPECT_GT(outBand, 20);
    const Pt a{0, 0}, b{1, 0}, c{0, 1}, nan{std::nan(""), 0.5};
    EXPECT_EQ(classifyPointSide(nan.data(), a.data(), b.data(), 0.0), kOnLine);
    EXPECT_EQ(classifyInCircle(nan.data(), a.data(), b.data(), c.data(), 0.0), kOnCircle);
}

// The first kRight or kGhostSide decides (outside or in the ghost triangle); otherwise no side on
// the line is inside, one is on that edge, two or three on a vertex. Other values count as left.
TEST(Predicates, CombineSidesOverEveryCombination) {
    const PointSide all[] = {PointSide(0), kGhostSide, kLeft, kRight, kOnLine};
    for (PointSide s0 : all) {
        for (PointSide s1 : all) {
            for (PointSide s2 : all) {
                const PointSide s[3] = {s0, s1, s2};
                int expected = -1, on = 0;
                for (int k = 2; k >= 0; --k) {
                    if (s[k] == kRight) expected = kOutside;
                    if (s[k] == kGhostSide) expected = kInGhostTriangle;
                    on += s[k] == kOnLine;
                }
                if (expected < 0) expected = on == 0 ? kInTriangle : on > 1 ? kOnVertex : -1;
                for (int k = 0; k < 3 && expected < 0; ++k) {
                    if (s[k] == kOnLine) expected = kOnEdge0 + k;
                }
                EXPECT_EQ(int(combineSides(s)), expected) << s0 << " " << s1 << " " << s2;
            }
        }
    }
}

}  // namespace
