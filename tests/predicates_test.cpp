// Robust predicates: exact signs against a GMP rational oracle on random, nearly degenerate and
// exactly degenerate inputs, with a count of which stage answered (the counted code is the
// shipped code: the predicates are templates over a stage-statistics policy). Also the expansion
// arithmetic's invariants, the constants and the classifications' tolerance bands.
#include "predicates/Predicates.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#ifdef RY_HAVE_GMP
#include <gmpxx.h>
#endif

namespace {

using namespace predicates;

using Pt = std::array<double, 2>;

struct Tri {
    Pt a, b, c;
};
struct Quad {
    Pt a, b, c, d;
};

/// SplitMix64: the same stream on every platform.
class Rng {
public:
    explicit Rng(std::uint64_t seed) : state(seed) {}
    std::uint64_t next() {
        std::uint64_t z = (state += 0x9e3779b97f4a7c15ull);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
        return z ^ (z >> 31);
    }
    double uniform() { return double(next() >> 11) * 0x1p-53; }
    double uniform(double lo, double hi) { return lo + (hi - lo) * uniform(); }
    int below(int n) { return int(next() % std::uint64_t(n)); }

private:
    std::uint64_t state;
};

/// Finite x moved by k representable steps (towards +inf for k > 0), across zero as well.
double ulps(double x, std::int64_t k) {
    // Map the bit patterns onto a monotonic integer line (+0 and -0 both to 0) and step there.
    std::int64_t i;
    std::memcpy(&i, &x, sizeof i);
    if (i < 0) i = std::numeric_limits<std::int64_t>::min() - i;
    i += k;
    if (i < 0) i = std::numeric_limits<std::int64_t>::min() - i;
    std::memcpy(&x, &i, sizeof x);
    return x;
}

int sign(double v) {
    return (v > 0.0) - (v < 0.0);
}

std::string show(const Pt& p) {
    std::ostringstream s;
    s.precision(17);
    s << "(" << p[0] << ", " << p[1] << ")";
    return s.str();
}
std::string show(const Tri& t) {
    return show(t.a) + " " + show(t.b) + " " + show(t.c);
}
std::string show(const Quad& q) {
    return show(q.a) + " " + show(q.b) + " " + show(q.c) + " " + show(q.d);
}

/// Stage counts of a run of counted predicate calls.
struct Tally {
    std::uint64_t hits[kStageCount] = {};
    StageCounter counter() { return StageCounter{hits}; }
    double orient(const Tri& t) {
        return orient2dAdaptive(t.a.data(), t.b.data(), t.c.data(), counter());
    }
    double inCircle(const Quad& q) {
        return incircleAdaptive(q.a.data(), q.b.data(), q.c.data(), q.d.data(), counter());
    }
    std::string str() const {
        std::ostringstream s;
        s << "A=" << hits[kStageA] << " B=" << hits[kStageB]
          << " tail-free=" << hits[kStageTailFree] << " C=" << hits[kStageC]
          << " exact=" << hits[kStageExact];
        return s.str();
    }
    void add(const Tally& o) {
        for (int i = 0; i < kStageCount; ++i) hits[i] += o.hits[i];
    }
};

double plainOrient(const Tri& t) {
    return (t.a[0] - t.c[0]) * (t.b[1] - t.c[1]) - (t.a[1] - t.c[1]) * (t.b[0] - t.c[0]);
}

double plainInCircle(const Quad& q) {
    const double adx = q.a[0] - q.d[0], ady = q.a[1] - q.d[1];
    const double bdx = q.b[0] - q.d[0], bdy = q.b[1] - q.d[1];
    const double cdx = q.c[0] - q.d[0], cdy = q.c[1] - q.d[1];
    return (adx * adx + ady * ady) * (bdx * cdy - cdx * bdy) +
           (bdx * bdx + bdy * bdy) * (cdx * ady - adx * cdy) +
           (cdx * cdx + cdy * cdy) * (adx * bdy - bdx * ady);
}

// --- generators -----------------------------------------------------------------------------

/// Points uniform in [offset, offset + extent)^2.
std::vector<Tri> randomTriangles(std::uint64_t seed, int n, double offset, double extent) {
    Rng rng(seed);
    auto pt = [&] { return Pt{offset + extent * rng.uniform(), offset + extent * rng.uniform()}; };
    std::vector<Tri> out;
    for (int i = 0; i < n; ++i) out.push_back({pt(), pt(), pt()});
    return out;
}

std::vector<Quad> randomQuads(std::uint64_t seed, int n, double offset, double extent) {
    Rng rng(seed);
    auto pt = [&] { return Pt{offset + extent * rng.uniform(), offset + extent * rng.uniform()}; };
    std::vector<Quad> out;
    for (int i = 0; i < n; ++i) out.push_back({pt(), pt(), pt(), pt()});
    return out;
}

/// c = a + t (b - a) rounded, then moved by up to 3 ulps in x and/or y; a and b are random in a
/// box of size `extent` at `offset`.
std::vector<Tri> nearlyCollinear(std::uint64_t seed, int n, double offset, double extent) {
    Rng rng(seed);
    std::vector<Tri> out;
    for (int i = 0; i < n; ++i) {
        const Pt a{offset + extent * rng.uniform(), offset + extent * rng.uniform()};
        const Pt b{offset + extent * rng.uniform(), offset + extent * rng.uniform()};
        const double t = rng.uniform(-1.0, 2.0);
        Pt c{a[0] + t * (b[0] - a[0]), a[1] + t * (b[1] - a[1])};
        c[0] = ulps(c[0], rng.below(7) - 3);
        c[1] = ulps(c[1], rng.below(7) - 3);
        // Rotate the roles so that the perturbed point is not always the last argument.
        switch (rng.below(3)) {
            case 0:
                out.push_back({a, b, c});
                break;
            case 1:
                out.push_back({c, a, b});
                break;
            default:
                out.push_back({b, c, a});
                break;
        }
    }
    return out;
}

/// Exactly collinear: s * (x, y) for powers of two s (scaling by them is exact), so the
/// coordinate differences are generally inexact while the determinant is exactly 0.
std::vector<Tri> exactlyCollinear(std::uint64_t seed, int n, double xScale, double yScale) {
    Rng rng(seed);
    static const double kScales[] = {1.0, 2.0, -8.0, 0.5, -0.25, 1024.0, -1.0};
    std::vector<Tri> out;
    for (int i = 0; i < n; ++i) {
        const double x = xScale * rng.uniform(0.5, 1.0), y = yScale * rng.uniform(-1.0, 1.0);
        const double s0 = kScales[rng.below(7)], s1 = kScales[rng.below(7)],
                     s2 = kScales[rng.below(7)];
        out.push_back({{s0 * x, s0 * y}, {s1 * x, s1 * y}, {s2 * x, s2 * y}});
    }
    return out;
}

/// Points of exactly collinear triples moved by a few ulps.
std::vector<Tri> perturbedCollinear(std::uint64_t seed, int n, double xScale, double yScale) {
    Rng rng(seed ^ 0x5555);
    std::vector<Tri> out = exactlyCollinear(seed, n, xScale, yScale);
    for (Tri& t : out) {
        Pt& p = rng.below(2) ? t.a : t.c;
        const int axis = rng.below(2);
        p[axis] = ulps(p[axis], rng.below(7) - 3);
    }
    return out;
}

/// Corners of an axis-parallel rectangle (always exactly cocircular), in a random rotation of
/// roles, counter-clockwise or clockwise.
Quad rectangle(Rng& rng, double x0, double x1, double y0, double y1) {
    const Pt p[4] = {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}};
    const int r = rng.below(4);
    Quad q{p[r], p[(r + 1) % 4], p[(r + 2) % 4], p[(r + 3) % 4]};
    if (rng.below(2)) std::swap(q.a, q.b);
    return q;
}

std::vector<Quad> exactlyCocircular(std::uint64_t seed, int n, double offset, double extent) {
    Rng rng(seed);
    std::vector<Quad> out;
    for (int i = 0; i < n; ++i) {
        // Mix magnitudes: one side near the offset, the other anywhere up to 1e3 * extent away,
        // so that the differences from the last point are rarely exact.
        const double x0 = offset + extent * rng.uniform(), x1 = -x0 * rng.uniform(0.0, 3.0);
        const double y0 = offset * rng.uniform() + extent * rng.uniform(),
                     y1 = y0 + extent * rng.uniform(-1e3, 1e3);
        out.push_back(rectangle(rng, x0, x1, y0, y1));
        // Isosceles trapezoid on a common dyadic grid: (m -+ u, y0), (m -+ v, y1).
        const double g = std::ldexp(1.0, std::ilogb(std::max(offset, extent)) - 30);
        const double m = offset + g * double(rng.next() >> 34), u = g * double(rng.next() >> 34),
                     v = g * double(rng.next() >> 34);
        out.push_back({{m - u, y0}, {m + u, y0}, {m + v, y1}, {m - v, y1}});
    }
    return out;
}

/// Exactly cocircular quads with one coordinate of one point moved by up to 3 ulps.
std::vector<Quad> nearlyCocircular(std::uint64_t seed, int n, double offset, double extent) {
    Rng rng(seed ^ 0xaaaa);
    std::vector<Quad> out = exactlyCocircular(seed, n, offset, extent);
    for (Quad& q : out) {
        Pt* p[4] = {&q.a, &q.b, &q.c, &q.d};
        Pt& t = *p[rng.below(4)];
        const int k = rng.below(6) - 3, axis = rng.below(2);
        t[axis] = ulps(t[axis], k >= 0 ? k + 1 : k);
    }
    return out;
}

/// Rectangles with one tiny coordinate per axis (about 1e-17 beside 1), one coordinate moved by a
/// few ulps: moving a tiny coordinate changes the determinant by about epsilon^2 of its scale,
/// which only the exact evaluation can resolve.
std::vector<Quad> mixedScaleRectangles(std::uint64_t seed, int n) {
    Rng rng(seed);
    std::vector<Quad> out;
    for (int i = 0; i < n; ++i) {
        const double x0 = 1e-17 * rng.uniform(1.0, 2.0), x1 = rng.uniform(0.5, 1.0);
        const double y0 = -1e-17 * rng.uniform(1.0, 2.0), y1 = rng.uniform(0.5, 1.0);
        Quad s = rectangle(rng, x0, x1, y0, y1);
        Pt* p[4] = {&s.a, &s.b, &s.c, &s.d};
        Pt& t = *p[rng.below(4)];
        const int k = rng.below(6) - 3, axis = rng.below(2);
        t[axis] = ulps(t[axis], k >= 0 ? k + 1 : k);
        out.push_back(s);
    }
    return out;
}

/// Points on a circle by cos / sin (cocircular up to rounding), the last one moved by ulps.
std::vector<Quad> roundedCircle(std::uint64_t seed, int n, Pt centre, double radius) {
    Rng rng(seed);
    std::vector<Quad> out;
    auto on = [&] {
        const double t = rng.uniform(0.0, 6.283185307179586);
        return Pt{centre[0] + radius * std::cos(t), centre[1] + radius * std::sin(t)};
    };
    for (int i = 0; i < n; ++i) {
        Quad q{on(), on(), on(), on()};
        const int axis = rng.below(2);
        q.d[axis] = ulps(q.d[axis], rng.below(5) - 2);
        out.push_back(q);
    }
    return out;
}

/// Integer points of x^2 + y^2 = 25 s^2 around an integer centre far from the origin: exactly
/// cocircular with exact differences, then optionally moved by ulps.
std::vector<Quad> integerCircle(std::uint64_t seed, int n, double centre, bool perturb) {
    static const int kP[12][2] = {{5, 0},
                                  {4, 3},
                                  {3, 4},
                                  {0, 5},
                                  {-3, 4},
                                  {-4, 3},
                                  {-5, 0},
                                  {-4, -3},
                                  {-3, -4},
                                  {0, -5},
                                  {3, -4},
                                  {4, -3}};
    Rng rng(seed);
    std::vector<Quad> out;
    for (int i = 0; i < n; ++i) {
        const double s = double(1 + rng.below(1000));
        Pt p[4];
        for (Pt& x : p) {
            const int k = rng.below(12);
            x = {centre + s * kP[k][0], centre + s * kP[k][1]};
        }
        const int axis = rng.below(2);
        if (perturb) p[3][axis] = ulps(p[3][axis], rng.below(2) ? 1 : -1);
        out.push_back({p[0], p[1], p[2], p[3]});
    }
    return out;
}

#ifdef RY_HAVE_GMP

// --- exact oracle ---------------------------------------------------------------------------

mpq_class q(double v) {
    return mpq_class(v);
}  // mpq_set_d is exact

mpq_class exactOrient(const Tri& t) {
    return (q(t.a[0]) - q(t.c[0])) * (q(t.b[1]) - q(t.c[1])) -
           (q(t.a[1]) - q(t.c[1])) * (q(t.b[0]) - q(t.c[0]));
}

mpq_class exactInCircle(const Quad& s) {
    const mpq_class adx = q(s.a[0]) - q(s.d[0]), ady = q(s.a[1]) - q(s.d[1]);
    const mpq_class bdx = q(s.b[0]) - q(s.d[0]), bdy = q(s.b[1]) - q(s.d[1]);
    const mpq_class cdx = q(s.c[0]) - q(s.d[0]), cdy = q(s.c[1]) - q(s.d[1]);
    return (adx * adx + ady * ady) * (bdx * cdy - cdx * bdy) +
           (bdx * bdx + bdy * bdy) * (cdx * ady - adx * cdy) +
           (cdx * cdx + cdy * cdy) * (adx * bdy - bdx * ady);
}

/// Checks every triangle's sign against the oracle; adds the stage counts to `tally`.
void checkOrientSigns(const std::vector<Tri>& cases, const char* family, Tally& tally) {
    int wrong = 0;
    for (const Tri& t : cases) {
        const double got = tally.orient(t);
        const int want = sgn(exactOrient(t));
        if (sign(got) != want && ++wrong <= 5)
            ADD_FAILURE() << family << ": orient2d " << show(t) << " = " << got << ", exact sign "
                          << want;
        // The uncounted entry point runs the same code.
        EXPECT_EQ(sign(orient2d(t.a.data(), t.b.data(), t.c.data())), want) << show(t);
    }
    EXPECT_EQ(wrong, 0) << family;
}

void checkInCircleSigns(const std::vector<Quad>& cases, const char* family, Tally& tally) {
    int wrong = 0;
    for (const Quad& s : cases) {
        const double got = tally.inCircle(s);
        const int want = sgn(exactInCircle(s));
        if (sign(got) != want && ++wrong <= 5)
            ADD_FAILURE() << family << ": incircle " << show(s) << " = " << got << ", exact sign "
                          << want;
        EXPECT_EQ(sign(incircle(s.a.data(), s.b.data(), s.c.data(), s.d.data())), want) << show(s);
        EXPECT_EQ(sign(incircleExact(s.a.data(), s.b.data(), s.c.data(), s.d.data())), want)
            << show(s);
    }
    EXPECT_EQ(wrong, 0) << family;
}

#endif  // RY_HAVE_GMP

// --- constants ------------------------------------------------------------------------------

TEST(PredicateConstants, MatchTheirDefinitions) {
    static_assert(epsilon == 0x1p-53 && splitter == 134217729.0, "constant-initialised");
    EXPECT_EQ(epsilon, std::numeric_limits<double>::epsilon() / 2);
    EXPECT_EQ(epsilon, std::ldexp(1.0, -53));
    EXPECT_EQ(splitter, std::ldexp(1.0, 27) + 1.0);
    // The decimal values the bounds were published with.
    EXPECT_EQ(epsilon, 1.1102230246251565e-16);
    EXPECT_EQ(resultErrBound, 3.3306690738754706e-16);
    EXPECT_EQ(ccwErrBoundA, 3.3306690738754716e-16);
    EXPECT_EQ(ccwErrBoundB, 2.2204460492503146e-16);
    EXPECT_EQ(ccwErrBoundC, 1.1093356479670487e-31);
    EXPECT_EQ(iccErrBoundA, 1.1102230246251577e-15);
    EXPECT_EQ(iccErrBoundB, 4.440892098500632e-16);
    EXPECT_EQ(iccErrBoundC, 5.423418723394464e-31);
#ifdef RY_HAVE_GMP
    // Every defining formula is exactly representable, so the doubles equal the rationals.
    const mpq_class e = mpq_class(1, 1) / (mpz_class(1) << 53);
    EXPECT_EQ(q(resultErrBound), (3 + 8 * e) * e);
    EXPECT_EQ(q(ccwErrBoundA), (3 + 16 * e) * e);
    EXPECT_EQ(q(ccwErrBoundB), (2 + 12 * e) * e);
    EXPECT_EQ(q(ccwErrBoundC), (9 + 64 * e) * e * e);
    EXPECT_EQ(q(iccErrBoundA), (10 + 96 * e) * e);
    EXPECT_EQ(q(iccErrBoundB), (4 + 48 * e) * e);
    EXPECT_EQ(q(iccErrBoundC), (44 + 576 * e) * e * e);
#endif
}

// --- expansion arithmetic -------------------------------------------------------------------

/// Exponent of the lowest set bit of a non-zero finite double.
int lowBit(double x) {
    int e;
    const double m = std::frexp(std::fabs(x), &e);
    const auto mant = std::uint64_t(std::ldexp(m, 53));
    return e - 53 + __builtin_ctzll(mant);
}

/// An expansion: no zero components, strictly increasing magnitude, pairwise non-overlapping
/// (the lowest bit of each component lies above the highest bit of the one before).
::testing::AssertionResult isExpansion(const double* e, int len) {
    for (int i = 0; i < len; ++i) {
        if (e[i] == 0.0 || !std::isfinite(e[i]))
            return ::testing::AssertionFailure() << "component " << i << " is " << e[i];
        if (i > 0 && !(lowBit(e[i]) > std::ilogb(e[i - 1])))
            return ::testing::AssertionFailure() << "components " << i - 1 << ", " << i
                                                 << " overlap: " << e[i - 1] << ", " << e[i];
    }
    return ::testing::AssertionSuccess();
}

/// A random double: random sign, 53 random bits or only a few (to provoke ties and exact
/// cancellation), exponent in [-40, 40].
double randomDouble(Rng& rng) {
    std::uint64_t mant = (rng.next() >> 11) | (1ull << 52);
    if (rng.below(4) == 0) mant &= ~((1ull << (40 + rng.below(12))) - 1);
    const double v = std::ldexp(double(mant), rng.below(81) - 40 - 52);
    return rng.below(2) ? v : -v;
}

TEST(ExpansionArithmetic, CancellationGivesTheEmptyExpansion) {
    double h[16];
    const double a = 0.1, b = 1e12 / 3.0;
    EXPECT_EQ(twoTwoDiff(a, b, a, b, h), 0);
    EXPECT_EQ(twoTwoDiff(a, b, b, a, h), 0);
    EXPECT_EQ(twoTwoDiff(0.0, b, a, 0.0, h), 0);
    EXPECT_EQ(estimate(0, h), 0.0);

    double e[4], f[4];
    const int elen = twoTwoDiff(0.1, 0.3, 0.7, 1e-9, e);
    ASSERT_GT(elen, 1);
    for (int i = 0; i < elen; ++i) f[i] = -e[i];
    EXPECT_EQ(sumExpansions(elen, e, elen, f, h), 0);
    EXPECT_EQ(scaleExpansion(elen, e, 0.0, h), 0);
    EXPECT_EQ(scaleExpansion(0, e, 3.0, h), 0);
    // An empty operand copies the other.
    ASSERT_EQ(sumExpansions(0, f, elen, e, h), elen);
    for (int i = 0; i < elen; ++i) EXPECT_EQ(h[i], e[i]);
    ASSERT_EQ(sumExpansions(elen, e, 0, f, h), elen);
    for (int i = 0; i < elen; ++i) EXPECT_EQ(h[i], e[i]);
}

TEST(ExpansionArithmetic, SplitHalvesHaveAtMost26Bits) {
    Rng rng(11);
    for (int i = 0; i < 20000; ++i) {
        const double a = randomDouble(rng);
        double hi, lo;
        split(a, hi, lo);
        ASSERT_EQ(hi + lo, a);
        ASSERT_TRUE(hi == 0.0 || std::ilogb(hi) - lowBit(hi) + 1 <= 26) << a;
        ASSERT_TRUE(lo == 0.0 || std::ilogb(lo) - lowBit(lo) + 1 <= 26) << a;
    }
}

#ifdef RY_HAVE_GMP

TEST(ExpansionArithmetic, TwoTermOperationsAreExact) {
    Rng rng(7);
    for (int i = 0; i < 20000; ++i) {
        const double a = randomDouble(rng);
        const double b = rng.below(8) == 0 ? -a : randomDouble(rng);
        SCOPED_TRACE(::testing::Message() << "a = " << a << ", b = " << b);
        double x, y;
        twoSum(a, b, x, y);
        ASSERT_EQ(x, a + b);
        ASSERT_EQ(q(x) + q(y), q(a) + q(b));
        ASSERT_TRUE(y == 0.0 || lowBit(x) > std::ilogb(y));

        const double big = std::fabs(a) >= std::fabs(b) ? a : b, small = big == a ? b : a;
        fastTwoSum(big, small, x, y);
        ASSERT_EQ(q(x) + q(y), q(a) + q(b));

        twoDiff(a, b, x, y);
        ASSERT_EQ(x, a - b);
        ASSERT_EQ(q(x) + q(y), q(a) - q(b));

        twoProduct(a, b, x, y);
        ASSERT_EQ(x, a * b);
        ASSERT_EQ(q(x) + q(y), q(a) * q(b));
        ASSERT_TRUE(y == 0.0 || lowBit(x) > std::ilogb(y));

        const double c = randomDouble(rng), d = rng.below(8) == 0 ? b : randomDouble(rng);
        double h[4];
        const int len = twoTwoDiff(a, b, c, d, h);
        ASSERT_LE(len, 4);
        ASSERT_TRUE(isExpansion(h, len));
        mpq_class sum = 0;
        for (int k = 0; k < len; ++k) sum += q(h[k]);
        ASSERT_EQ(sum, q(a) * q(b) - q(c) * q(d));
    }
}

TEST(ExpansionArithmetic, ScaleAndSumKeepExactValueAndInvariants) {
    struct Exp {
        std::vector<double> c;
        mpq_class value;
    };
    auto sumOf = [](const std::vector<double>& c) {
        mpq_class s = 0;
        for (double v : c) s += q(v);
        return s;
    };
    auto check = [&](const Exp& e, const char* op) {
        ASSERT_TRUE(isExpansion(e.c.data(), int(e.c.size()))) << op;
        ASSERT_EQ(sumOf(e.c), e.value) << op;
        ASSERT_EQ(sign(estimate(int(e.c.size()), e.c.data())), sgn(e.value)) << op;
    };
    Rng rng(3);
    int empties = 0, longest = 0;
    for (int round = 0; round < 300; ++round) {
        std::vector<Exp> pool;
        for (int i = 0; i < 6; ++i) {
            Exp e;
            e.c.resize(4);
            const double a = randomDouble(rng), b = randomDouble(rng), c = randomDouble(rng),
                         d = rng.below(4) ? randomDouble(rng) : a * b / c;
            e.c.resize(std::size_t(twoTwoDiff(a, b, c, d, e.c.data())));
            e.value = q(a) * q(b) - q(c) * q(d);
            check(e, "twoTwoDiff");
            pool.push_back(e);
        }
        for (int step = 0; step < 12; ++step) {
            const Exp& e = pool[std::size_t(rng.below(int(pool.size())))];
            Exp r;
            if (rng.below(3) == 0) {
                const double b = randomDouble(rng);
                r.c.resize(2 * e.c.size());
                r.c.resize(std::size_t(scaleExpansion(int(e.c.size()), e.c.data(), b, r.c.data())));
                r.value = e.value * q(b);
                check(r, "scaleExpansion");
            } else {
                Exp f = pool[std::size_t(rng.below(int(pool.size())))];
                if (rng.below(4) == 0) {  // often cancel exactly
                    for (double& v : f.c) v = -v;
                    f.value = -f.value;
                }
                r.c.resize(e.c.size() + f.c.size());
                r.c.resize(std::size_t(sumExpansions(
                    int(e.c.size()), e.c.data(), int(f.c.size()), f.c.data(), r.c.data())));
                r.value = e.value + f.value;
                check(r, "sumExpansions");
            }
            empties += r.c.empty();
            longest = std::max(longest, int(r.c.size()));
            if (r.c.size() <= 64) pool.push_back(r);
        }
    }
    std::printf("[expansions] empty results: %d, longest: %d components\n", empties, longest);
    EXPECT_GT(empties, 0);
    EXPECT_GT(longest, 8);
}

// --- orient2d -------------------------------------------------------------------------------

TEST(Orient2d, RandomPointsAnswerAtStageAWithExactSign) {
    for (double offset : {0.0, 1e6, 1e12}) {
        Tally tally;
        checkOrientSigns(randomTriangles(1, 5000, offset, 1000.0), "random", tally);
        std::printf("[orient2d random, offset %g] %s\n", offset, tally.str().c_str());
        EXPECT_GT(tally.hits[kStageA], 4900u);
    }
}

TEST(Orient2d, NearlyCollinearGetExactSignsThroughEveryStage) {
    Tally total;
    struct Family {
        const char* name;
        std::vector<Tri> cases;
    };
    const Family families[] = {
        {"line, unit box", nearlyCollinear(21, 3000, 0.0, 1.0)},
        {"line, 1e6", nearlyCollinear(22, 3000, 1e6, 1.0)},
        {"line, 1e12", nearlyCollinear(23, 3000, 1e12, 1e3)},
        {"line, 1e12 wide", nearlyCollinear(24, 3000, 1e12, 1e12)},
        {"exact line moved, 1e12 x 1e6", perturbedCollinear(25, 3000, 1e12, 1e6)},
        {"exact line moved, 1 x 1", perturbedCollinear(26, 3000, 1.0, 1.0)},
    };
    for (const Family& f : families) {
        Tally tally;
        checkOrientSigns(f.cases, f.name, tally);
        std::printf("[orient2d %s] %s\n", f.name, tally.str().c_str());
        total.add(tally);
    }
    std::printf("[orient2d nearly collinear, all] %s\n", total.str().c_str());
    for (int s = 0; s < kStageCount; ++s) EXPECT_GT(total.hits[s], 0u) << "stage " << s;
}

#endif  // RY_HAVE_GMP

TEST(Orient2d, ExactlyCollinearLargeCoordinatesGiveExactlyZero) {
    Tally tally;
    for (const auto& scale : {std::array<double, 2>{1e12, 1e6},
                              std::array<double, 2>{1e6, 1e12},
                              std::array<double, 2>{1e12, 1e12},
                              std::array<double, 2>{1.0, 1e-3}}) {
        for (const Tri& t : exactlyCollinear(31, 2000, scale[0], scale[1])) {
            ASSERT_EQ(tally.orient(t), 0.0) << show(t);
            ASSERT_EQ(classifyPointSide(t.c.data(), t.a.data(), t.b.data(), 0.0), kOnLine);
            ASSERT_EQ(classifyPointSide(t.c.data(), t.a.data(), t.b.data(), 1e-9), kOnLine);
        }
    }
    std::printf("[orient2d exactly collinear] %s\n", tally.str().c_str());
    // Most of them cancel to the empty expansion in the exact stage.
    EXPECT_GT(tally.hits[kStageExact], 1000u);
}

#ifdef RY_HAVE_GMP

/// One ulp grid: the robust predicate's wrong signs and, for comparison, the plain determinant's
/// (wrong: zero or flipped; flipped: the opposite non-zero sign, the worst being the largest).
struct GridReport {
    Tally tally;
    int wrong = 0, plainWrong = 0, plainFlipped = 0, exactZeros = 0;
    double worstPlain = 0.0;
    std::string worst = "none";

    void add(int want, double robust, double plain, const std::string& input) {
        exactZeros += want == 0;
        if (sign(robust) != want && ++wrong <= 5)
            ADD_FAILURE() << input << ": got " << robust << ", exact sign " << want;
        if (sign(plain) == want) return;
        ++plainWrong;
        if (sign(plain) == -want && want != 0) {
            ++plainFlipped;
            if (std::fabs(plain) > std::fabs(worstPlain)) worstPlain = plain, worst = input;
        }
    }
    void print(const char* name) const {
        std::printf(
            "[%s] 1024 points, %d exactly degenerate; robust wrong %d; plain wrong %d, flipped %d "
            "(worst flip: plain %.3g at %s); %s\n",
            name,
            exactZeros,
            wrong,
            plainWrong,
            plainFlipped,
            worstPlain,
            worst.c_str(),
            tally.str().c_str());
    }
};

/// Signs on a 32 x 32 grid of ulp steps of one point of an exactly collinear triple: not one may
/// be wrong. The moved point is the last argument, the one the differences are taken from, where
/// the plain determinant does worst.
void orientUlpGrid(Pt a0, Pt b, Pt c, const char* name) {
    GridReport r;
    for (int i = 0; i < 32; ++i) {
        for (int j = 0; j < 32; ++j) {
            const Tri t{b, c, {ulps(a0[0], i), ulps(a0[1], j)}};
            r.add(sgn(exactOrient(t)), r.tally.orient(t), plainOrient(t), show(t));
        }
    }
    r.print(name);
    EXPECT_EQ(r.wrong, 0);
    EXPECT_GT(r.plainWrong, 0) << "the grid is not hard enough to mean anything";
}

TEST(Orient2d, UlpGridAroundCollinearPointsHasNoWrongSign) {
    orientUlpGrid({0.5, 0.5}, {12.1, 12.1}, {24.3, 24.3}, "orient2d grid near origin");
    const double x0 = 1e12 + 0.25, x1 = 1.7e12, x2 = 2.9e12;
    orientUlpGrid({x0, 0.5 * x0}, {x1, 0.5 * x1}, {x2, 0.5 * x2}, "orient2d grid around 1e12");
}

TEST(Orient2d, SwappingTwoPointsNegates) {
    std::vector<Tri> cases = randomTriangles(41, 2000, 0.0, 1.0);
    for (const auto& more : {nearlyCollinear(42, 2000, 1e6, 1.0),
                             perturbedCollinear(43, 2000, 1e12, 1e6),
                             exactlyCollinear(44, 500, 1e12, 1e12)})
        cases.insert(cases.end(), more.begin(), more.end());
    int exactlyNegated = 0;
    for (const Tri& t : cases) {
        Tally tally;
        const double d = tally.orient(t);
        const double ab = orient2d(t.b.data(), t.a.data(), t.c.data());
        EXPECT_EQ(sign(ab), -sign(d)) << show(t);
        EXPECT_EQ(sign(orient2d(t.c.data(), t.b.data(), t.a.data())), -sign(d)) << show(t);
        EXPECT_EQ(sign(orient2d(t.a.data(), t.c.data(), t.b.data())), -sign(d)) << show(t);
        // Stage A computes the two products in swapped roles: the value negates exactly.
        if (tally.hits[kStageA]) {
            EXPECT_EQ(ab, -d) << show(t);
        }
        exactlyNegated += ab == -d;
        for (double tol : {0.0, 1e-9}) {
            const PointSide s = classifyPointSide(t.c.data(), t.a.data(), t.b.data(), tol);
            const PointSide r = classifyPointSide(t.c.data(), t.b.data(), t.a.data(), tol);
            EXPECT_EQ(s == kLeft, r == kRight) << show(t);
            EXPECT_EQ(s == kOnLine, r == kOnLine) << show(t);
        }
    }
    std::printf("[orient2d swap] %d of %zu values negated exactly\n", exactlyNegated, cases.size());
}

// --- incircle -------------------------------------------------------------------------------

TEST(InCircle, RandomPointsAnswerAtStageAWithExactSign) {
    for (double offset : {0.0, 1e6, 1e12}) {
        Tally tally;
        checkInCircleSigns(randomQuads(2, 3000, offset, 1000.0), "random", tally);
        std::printf("[incircle random, offset %g] %s\n", offset, tally.str().c_str());
        EXPECT_GT(tally.hits[kStageA], 2900u);
    }
}

TEST(InCircle, NearlyCocircularGetExactSignsThroughEveryStage) {
    Tally total;
    struct Family {
        const char* name;
        std::vector<Quad> cases;
    };
    const Family families[] = {
        {"rectangles moved, unit", nearlyCocircular(51, 1500, 0.0, 1.0)},
        {"rectangles moved, 1e6", nearlyCocircular(52, 1500, 1e6, 1.0)},
        {"rectangles moved, 1e12", nearlyCocircular(53, 1500, 1e12, 1e3)},
        {"cos/sin circle, unit", roundedCircle(54, 1500, {0.0, 0.0}, 1.0)},
        {"cos/sin circle, 1e6", roundedCircle(55, 1500, {1e6, -1e6}, 0.01)},
        {"integer circle, 1e12", integerCircle(56, 1500, 1e12, false)},
        {"integer circle moved, 1e12", integerCircle(57, 1500, 1e12, true)},
        {"integer circle moved, 1e6", integerCircle(58, 1500, 1e6, true)},
        {"mixed-scale rectangles moved", mixedScaleRectangles(59, 1500)},
    };
    for (const Family& f : families) {
        Tally tally;
        checkInCircleSigns(f.cases, f.name, tally);
        std::printf("[incircle %s] %s\n", f.name, tally.str().c_str());
        total.add(tally);
    }
    std::printf("[incircle nearly cocircular, all] %s\n", total.str().c_str());
    for (int s = 0; s < kStageCount; ++s) EXPECT_GT(total.hits[s], 0u) << "stage " << s;
}

#endif  // RY_HAVE_GMP

TEST(InCircle, ExactlyCocircularLargeCoordinatesGiveExactlyZero) {
    Tally tally;
    for (double offset : {0.0, 1e6, 1e12}) {
        for (const Quad& s : exactlyCocircular(61, 1000, offset, 1e3)) {
            ASSERT_EQ(tally.inCircle(s), 0.0) << show(s);
            ASSERT_EQ(incircleExact(s.a.data(), s.b.data(), s.c.data(), s.d.data()), 0.0)
                << show(s);
            ASSERT_EQ(classifyInCircle(s.d.data(), s.a.data(), s.b.data(), s.c.data(), 0.0),
                      kOnCircle);
        }
    }
    for (const Quad& s : integerCircle(62, 1000, 1e12, false))
        ASSERT_EQ(tally.inCircle(s), 0.0) << show(s);
    std::printf("[incircle exactly cocircular] %s\n", tally.str().c_str());
    EXPECT_GT(tally.hits[kStageExact], 1000u);
    EXPECT_GT(tally.hits[kStageTailFree], 100u);
}

#ifdef RY_HAVE_GMP

/// Signs on a 32 x 32 grid of ulp steps of pd around the fourth corner of a rectangle.
void inCircleUlpGrid(double x0, double x1, double y0, double y1, const char* name) {
    GridReport r;
    for (int i = 0; i < 32; ++i) {
        for (int j = 0; j < 32; ++j) {
            const Quad s{{x0, y0}, {x1, y0}, {x1, y1}, {ulps(x0, i - 16), ulps(y1, j - 16)}};
            r.add(sgn(exactInCircle(s)), r.tally.inCircle(s), plainInCircle(s), show(s));
        }
    }
    r.print(name);
    EXPECT_EQ(r.wrong, 0);
    EXPECT_GT(r.plainWrong, 0) << "the grid is not hard enough to mean anything";
}

TEST(InCircle, UlpGridAroundCocircularPointsHasNoWrongSign) {
    inCircleUlpGrid(0.1, 12.3, 0.7, 24.1, "incircle grid near origin");
    inCircleUlpGrid(1e6 + 0.1, 2.7e6 + 0.3, -1e6 + 0.7, 1.3e6 + 0.1, "incircle grid around 1e6");
}

TEST(InCircle, SwappingTwoPointsNegates) {
    std::vector<Quad> cases = randomQuads(71, 2000, 0.0, 1.0);
    for (const auto& more : {nearlyCocircular(72, 1000, 1e6, 1.0),
                             roundedCircle(73, 1000, {0.0, 0.0}, 1.0),
                             exactlyCocircular(74, 300, 1e12, 1e3)})
        cases.insert(cases.end(), more.begin(), more.end());
    for (const Quad& s : cases) {
        Tally tally;
        const double d = tally.inCircle(s);
        const double ba = incircle(s.b.data(), s.a.data(), s.c.data(), s.d.data());
        EXPECT_EQ(sign(ba), -sign(d)) << show(s);
        EXPECT_EQ(sign(incircle(s.c.data(), s.b.data(), s.a.data(), s.d.data())), -sign(d));
        EXPECT_EQ(sign(incircle(s.a.data(), s.c.data(), s.b.data(), s.d.data())), -sign(d));
        EXPECT_EQ(sign(incircle(s.d.data(), s.b.data(), s.c.data(), s.a.data())), -sign(d));
        // Swapping a and b swaps the first two terms of stage A: the value negates exactly.
        if (tally.hits[kStageA]) {
            EXPECT_EQ(ba, -d) << show(s);
        }
    }
}

#endif  // RY_HAVE_GMP

#if defined(__SSE2__)
// The vector stage A must be the portable one, bit for bit: its value (not only its sign) feeds
// the tolerance bands, so builds with and without it must classify alike.
std::uint64_t bitsOf(double v) {
    std::uint64_t u;
    std::memcpy(&u, &v, sizeof u);
    return u;
}

/// Equal bits, or both NaN (the payload may differ).
void expectSameDouble(double vector, double portable, const std::string& what) {
    if (std::isnan(portable)) {
        EXPECT_TRUE(std::isnan(vector)) << what;
    } else {
        EXPECT_EQ(bitsOf(vector), bitsOf(portable)) << what << ": " << vector << " vs " << portable;
    }
}

/// Points that reach every floating-point corner the stage-A code can meet.
const Pt kOddPoints[] = {{std::numeric_limits<double>::infinity(), 0.0},
                         {-std::numeric_limits<double>::infinity(), 1.0},
                         {std::numeric_limits<double>::quiet_NaN(), 2.0},
                         {0.0, -0.0},
                         {1e300, 1e-300},
                         {-1e-310, 5e-324}};

TEST(StageA, VectorOrientIsBitIdenticalToPortable) {
    std::vector<Tri> cases = randomTriangles(91, 4000, 0.0, 1.0);
    for (const auto& more : {randomTriangles(92, 2000, -1e9, 2e9),
                             nearlyCollinear(93, 2000, 1e6, 1.0),
                             exactlyCollinear(94, 1000, 1e12, 1e3),
                             perturbedCollinear(95, 1000, 1.0, 1e-8)})
        cases.insert(cases.end(), more.begin(), more.end());
    for (const Pt& p : kOddPoints) {
        cases.push_back({p, {1.0, 0.0}, {0.0, 1.0}});
        cases.push_back({{1.0, 0.0}, {0.0, 1.0}, p});
    }
    for (const Tri& t : cases) {
        double sumV = 0.0, sumP = 0.0;
        const double v = orient2dStageAVector(t.a.data(), t.b.data(), t.c.data(), sumV);
        const double p = orient2dStageAPortable(t.a.data(), t.b.data(), t.c.data(), sumP);
        expectSameDouble(v, p, show(t));
        expectSameDouble(sumV, sumP, show(t));
        // The inline test compares both lanes at once: it must accept exactly what the scalar
        // bound accepts, NaN included, and return the same value when it does.
        std::uint64_t hits[kStageCount] = {};
        const double r = orient2dAdaptive(t.a.data(), t.b.data(), t.c.data(), StageCounter{hits});
        const bool scalarAccepts = std::fabs(p) >= ccwErrBoundA * sumP;
        EXPECT_EQ(hits[kStageA] == 1, scalarAccepts) << show(t);
        if (scalarAccepts) expectSameDouble(r, p, show(t));
    }
}

/// Quads whose coordinates are scaled by 2^k for k across the whole exponent range, so that the
/// lifts, their products and the bounds overflow, underflow into subnormals or vanish.
std::vector<Quad> rescaledQuads(std::uint64_t seed, const std::vector<Quad>& base) {
    Rng rng(seed);
    std::vector<Quad> out;
    for (Quad s : base) {
        const int k = rng.below(2 * 540) - 540;
        for (Pt* p : {&s.a, &s.b, &s.c, &s.d}) {
            (*p)[0] = std::ldexp((*p)[0], k);
            (*p)[1] = std::ldexp((*p)[1], k);
        }
        out.push_back(s);
    }
    return out;
}

/// Quads whose coordinates are drawn from a few special values (infinities, NaN, signed zeros,
/// the extremes of the range), so that every mix of them meets the bounds.
std::vector<Quad> specialValueQuads(std::uint64_t seed, int n) {
    const double inf = std::numeric_limits<double>::infinity();
    const double palette[] = {inf,
                              -inf,
                              std::numeric_limits<double>::quiet_NaN(),
                              0.0,
                              -0.0,
                              1.0,
                              -1.0,
                              0.5,
                              1e300,
                              -1e300,
                              1e-300,
                              5e-324};
    Rng rng(seed);
    auto pick = [&] { return palette[rng.below(int(std::size(palette)))]; };
    std::vector<Quad> out;
    for (int i = 0; i < n; ++i)
        out.push_back({{pick(), pick()}, {pick(), pick()}, {pick(), pick()}, {pick(), pick()}});
    return out;
}

TEST(StageA, VectorInCircleAnswersExactlyAsThePermanentBound) {
    std::vector<Quad> cases = randomQuads(81, 4000, 0.0, 1.0);
    for (const auto& more : {randomQuads(82, 2000, -1e9, 2e9),
                             randomQuads(83, 2000, 1e12, 1e-3),
                             nearlyCocircular(84, 2000, 1e6, 1.0),
                             roundedCircle(85, 1000, {3.0, -7.0}, 1e-5),
                             mixedScaleRectangles(86, 2000),
                             exactlyCocircular(87, 500, 1e12, 1e3),
                             rescaledQuads(88, randomQuads(89, 4000, 0.0, 1.0)),
                             rescaledQuads(90, nearlyCocircular(91, 4000, 1.0, 1.0)),
                             specialValueQuads(92, 5000)})
        cases.insert(cases.end(), more.begin(), more.end());
    for (const Pt& p : kOddPoints) {
        cases.push_back({p, {1.0, 0.0}, {0.0, 1.0}, {0.25, 0.5}});
        cases.push_back({{1.0, 0.0}, {0.0, 1.0}, {0.25, 0.5}, p});
    }
    int onlyPermanent = 0;  // certified by the permanent but not by the lift bound
    for (const Quad& s : cases) {
        double liftBound = 0.0, permanent = 0.0;
        const double v =
            incircleStageAVector(s.a.data(), s.b.data(), s.c.data(), s.d.data(), liftBound);
        const double p =
            incircleStageAPortable(s.a.data(), s.b.data(), s.c.data(), s.d.data(), permanent);
        expectSameDouble(v, p, show(s));
        // The lift bound may only certify what the permanent certifies.
        const bool byLift = std::fabs(v) >= iccLiftErrBound * liftBound;
        const bool byPermanent = std::fabs(p) >= iccErrBoundA * permanent;
        if (byLift) {
            EXPECT_TRUE(byPermanent) << show(s) << ": det " << p << ", permanent " << permanent
                                     << ", lift bound " << liftBound;
        }
        onlyPermanent += byPermanent && !byLift;
        // And the whole predicate returns what the permanent's stage A and the slow stages give.
        const double full = incircle(s.a.data(), s.b.data(), s.c.data(), s.d.data());
        const double reference =
            incircleStageA(s.a.data(), s.b.data(), s.c.data(), s.d.data(), NoStageStats{});
        expectSameDouble(full, reference, show(s));
    }
    // The fallback to the permanent is reached (and checked above), not only the fast test.
    EXPECT_GT(onlyPermanent, 0);
}
#endif

// --- classifications ------------------------------------------------------------------------

TEST(ClassifyPointSide, ToleranceBandIsOnTwiceTheArea) {
    const Pt a{0.0, 0.0}, b{1.0, 0.0};
    struct Case {
        double y, tol;
        PointSide want;
    };
    const Case cases[] = {
        {5e-10, 1e-9, kOnLine},   // doubled area 5e-10 inside the band
        {-5e-10, 1e-9, kOnLine},  //
        {5e-10, 0.0, kLeft},      // tol 0 follows the sign
        {-5e-10, 0.0, kRight},    //
        {5e-10, 1e-10, kLeft},    //
        {2e-9, 1e-9, kLeft},      //
        {-2e-9, 1e-9, kRight},    //
        {0.0, 0.0, kOnLine},      //
        {1e-300, 0.0, kLeft},     // the exact sign, however small
    };
    for (const Case& c : cases) {
        const Pt p{0.5, c.y};
        EXPECT_EQ(classifyPointSide(p.data(), a.data(), b.data(), c.tol), c.want)
            << "y = " << c.y << ", tol = " << c.tol;
        // The opposite direction mirrors the answer.
        const PointSide mirrored = c.want == kLeft ? kRight : c.want == kRight ? kLeft : kOnLine;
        EXPECT_EQ(classifyPointSide(p.data(), b.data(), a.data(), c.tol), mirrored);
    }
    // The same 5e-10 band far from the origin: doubled area (b.x - a.x) * (p.y - a.y).
    const Pt fa{1e6, 1e6}, fb{1e6 + 1.0, 1e6};
    const Pt inBand{1e6 + 0.5, ulps(1e6, 4)};  // 4 ulps of 1e6: 4.66e-10
    EXPECT_EQ(classifyPointSide(inBand.data(), fa.data(), fb.data(), 1e-9), kOnLine);
    EXPECT_EQ(classifyPointSide(inBand.data(), fa.data(), fb.data(), 0.0), kLeft);
    const Pt outBand{1e6 + 0.5, ulps(1e6, -12)};  // -1.4e-9
    EXPECT_EQ(classifyPointSide(outBand.data(), fa.data(), fb.data(), 1e-9), kRight);
}

TEST(ClassifyPointSide, NaNIsOnLine) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const Pt a{0.0, 0.0}, b{1.0, 0.0};
    for (const Pt& p : {Pt{nan, 1.0}, Pt{0.5, nan}, Pt{nan, nan}}) {
        EXPECT_TRUE(std::isnan(orient2d(a.data(), b.data(), p.data())));
        EXPECT_EQ(classifyPointSide(p.data(), a.data(), b.data(), 0.0), kOnLine);
        EXPECT_EQ(classifyPointSide(p.data(), a.data(), b.data(), 1e-9), kOnLine);
        EXPECT_EQ(classifyPointSide(a.data(), p.data(), b.data(), 0.0), kOnLine);
    }
}

TEST(ClassifyInCircle, NaNIsOnCircle) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const Pt a{0.0, 0.0}, b{1.0, 0.0}, c{0.0, 1.0};
    for (const Pt& p : {Pt{nan, 0.5}, Pt{0.5, nan}}) {
        EXPECT_TRUE(std::isnan(incircle(a.data(), b.data(), c.data(), p.data())));
        EXPECT_EQ(classifyInCircle(p.data(), a.data(), b.data(), c.data(), 0.0), kOnCircle);
        EXPECT_EQ(classifyInCircle(p.data(), a.data(), b.data(), c.data(), 1e-9), kOnCircle);
        EXPECT_EQ(classifyInCircle(a.data(), p.data(), b.data(), c.data(), 1e-9), kOnCircle);
    }
}

TEST(ClassifyInCircle, SidesOfTheUnitSquaresCircle) {
    // Circle through (0,0), (1,0), (0,1): centre (0.5, 0.5), (1,1) on it.
    const Pt a{0.0, 0.0}, b{1.0, 0.0}, c{0.0, 1.0};
    const Pt centre{0.5, 0.5}, far{3.0, 3.0}, on{1.0, 1.0};
    EXPECT_EQ(classifyInCircle(centre.data(), a.data(), b.data(), c.data(), 1e-9), kInsideCircle);
    EXPECT_EQ(classifyInCircle(far.data(), a.data(), b.data(), c.data(), 1e-9), kOutsideCircle);
    EXPECT_EQ(classifyInCircle(on.data(), a.data(), b.data(), c.data(), 0.0), kOnCircle);
    // Clockwise triangle: the sign flips.
    EXPECT_EQ(classifyInCircle(centre.data(), b.data(), a.data(), c.data(), 0.0), kOutsideCircle);
}

#ifdef RY_HAVE_GMP

/// Both classifications against the exact value: outside the band by a relative margin the
/// answer is fixed by the exact determinant; with tol 0 it is the exact sign.
TEST(Classifications, FollowExactValuesAroundTheBand) {
    const double tol = 1e-9;
    const mpq_class qtol(tol), lo = qtol * mpq_class(999999, 1000000),
                               hi = qtol * mpq_class(1000001, 1000000);
    int inBand = 0, outBand = 0;
    // Doubled areas from 0 to about 2.5e-9 across the band, near the origin and at 1e6.
    for (double offset : {0.0, 1e6}) {
        const Pt a{offset, offset}, b{offset + 1.0, offset + 0.5};
        for (int k = -64; k <= 64; ++k) {
            const Pt p{offset + 0.5, ulps(offset + 0.25, k * (offset == 0.0 ? 1 << 20 : 1))};
            const mpq_class d = exactOrient({a, b, p});
            const PointSide s = classifyPointSide(p.data(), a.data(), b.data(), tol);
            EXPECT_EQ(classifyPointSide(p.data(), a.data(), b.data(), 0.0),
                      sgn(d) > 0   ? kLeft
                      : sgn(d) < 0 ? kRight
                                   : kOnLine);
            if (abs(d) < lo) {
                EXPECT_EQ(s, kOnLine) << show(p);
                ++inBand;
            }
            if (d > hi) {
                EXPECT_EQ(s, kLeft) << show(p);
                ++outBand;
            }
            if (d < -hi) {
                EXPECT_EQ(s, kRight) << show(p);
                ++outBand;
            }
        }
    }
    EXPECT_GT(inBand, 10);
    EXPECT_GT(outBand, 10);

    // In-circle values across the band: p moves along the diagonal through (1,1) by ulps.
    const Pt a{0.0, 0.0}, b{1.0, 0.0}, c{0.0, 1.0};
    inBand = outBand = 0;
    for (int k = -64; k <= 64; ++k) {
        const Pt p{ulps(1.0, k * (1 << 18)), 1.0};
        const mpq_class d = exactInCircle({a, b, c, p});
        const CircleSide s = classifyInCircle(p.data(), a.data(), b.data(), c.data(), tol);
        EXPECT_EQ(classifyInCircle(p.data(), a.data(), b.data(), c.data(), 0.0),
                  sgn(d) > 0   ? kInsideCircle
                  : sgn(d) < 0 ? kOutsideCircle
                               : kOnCircle);
        if (abs(d) < lo) {
            EXPECT_EQ(s, kOnCircle) << show(p);
            ++inBand;
        }
        if (d > hi) {
            EXPECT_EQ(s, kInsideCircle) << show(p);
            ++outBand;
        }
        if (d < -hi) {
            EXPECT_EQ(s, kOutsideCircle) << show(p);
            ++outBand;
        }
    }
    EXPECT_GT(inBand, 10);
    EXPECT_GT(outBand, 10);
}

#endif  // RY_HAVE_GMP

TEST(CombineSides, NamedCases) {
    auto combine = [](PointSide s0, PointSide s1, PointSide s2) {
        const PointSide s[3] = {s0, s1, s2};
        return combineSides(s);
    };
    EXPECT_EQ(combine(kOnLine, kOnLine, kLeft), kOnVertex);
    EXPECT_EQ(combine(kLeft, kLeft, kOnLine), kOnEdge2);
    EXPECT_EQ(combine(kGhostSide, kRight, kLeft), kInGhostTriangle);
    EXPECT_EQ(combine(kRight, kGhostSide, kLeft), kOutside);
    EXPECT_EQ(combine(kLeft, kLeft, kLeft), kInTriangle);
    EXPECT_EQ(combine(kOnLine, kLeft, kLeft), kOnEdge0);
    EXPECT_EQ(combine(kLeft, kOnLine, kLeft), kOnEdge1);
    EXPECT_EQ(combine(kOnLine, kOnLine, kOnLine), kOnVertex);
    EXPECT_EQ(combine(kOnLine, kLeft, kRight), kOutside);
    EXPECT_EQ(combine(kLeft, kOnLine, kGhostSide), kInGhostTriangle);
    // Values other than 1, 3 and 4 count as kLeft.
    EXPECT_EQ(combine(PointSide(0), PointSide(7), kOnLine), kOnEdge2);
}

TEST(CombineSides, EveryCombinationFollowsTheRules) {
    const PointSide all[] = {PointSide(0), kGhostSide, kLeft, kRight, kOnLine};
    for (PointSide s0 : all)
        for (PointSide s1 : all)
            for (PointSide s2 : all) {
                const PointSide s[3] = {s0, s1, s2};
                const PointLocation got = combineSides(s);
                SCOPED_TRACE(::testing::Message() << s0 << " " << s1 << " " << s2);
                // The first kRight or kGhostSide decides.
                int first = -1;
                for (int k = 0; k < 3 && first < 0; ++k)
                    if (s[k] == kRight || s[k] == kGhostSide) first = k;
                if (first >= 0) {
                    EXPECT_EQ(got, s[first] == kRight ? kOutside : kInGhostTriangle);
                    continue;
                }
                const int on = (s0 == kOnLine) + (s1 == kOnLine) + (s2 == kOnLine);
                // None: inside; two or three: on a vertex; one: kOnEdge0 + its index.
                int expected = on == 0 ? kInTriangle : kOnVertex;
                for (int k = 0; k < 3; ++k)
                    if (on == 1 && s[k] == kOnLine) expected = kOnEdge0 + k;
                EXPECT_EQ(int(got), expected);
            }
}

}  // namespace
