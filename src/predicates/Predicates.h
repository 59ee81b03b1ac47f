// Exact-sign orientation and in-circle predicates and the tolerance-band classifications built on
// them, after Shewchuk, "Adaptive Precision Floating-Point Arithmetic and Fast Robust Geometric
// Predicates": a cheap floating-point evaluation with an a-priori error bound (stage A, inline
// here), then, only when that bound cannot certify the sign, successively more exact stages built
// on floating-point expansions (one out-of-line function per predicate, fixed stack arrays).
//
// Domain. The sign returned is the exact sign of the determinant of the input coordinates for
// every finite input whose intermediate values neither overflow nor underflow. A sufficient
// condition: every coordinate is 0 or has a magnitude in [2^-200, 2^200]; then every non-zero
// intermediate is a multiple of 2^-1008 (degree four at most) and far below the overflow limit.
// The arithmetic must be IEEE double, round to nearest even, no extended precision and no fused
// multiply-add contraction (compile every includer with -ffp-contract=off). NaN or infinite
// coordinates propagate into the value (the classifications turn NaN into kOnLine / kOnCircle).
//
// Points are passed as a pointer to x; y is the next double (a z after it is never read).
#pragma once

#include <cmath>
#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#if defined(__GNUC__)
#define RY_PRED_INLINE __attribute__((always_inline)) inline
#define RY_PRED_NOINLINE __attribute__((noinline))
#define RY_PRED_LIKELY(x) __builtin_expect(!!(x), 1)
#else
#define RY_PRED_INLINE inline
#define RY_PRED_NOINLINE
#define RY_PRED_LIKELY(x) (x)
#endif

/// Side of a point against a directed line.
enum PointSide : int { kGhostSide = 1, kLeft = 2, kRight = 3, kOnLine = 4 };

/// Location of a point relative to a triangle; edge k joins vertex k and vertex k+1.
enum PointLocation : int {
    kInTriangle = 0,
    kOutside = 1,
    kOnEdge0 = 2,
    kOnEdge1 = 3,
    kOnEdge2 = 4,
    kOnVertex = 5,
    kInGhostTriangle = 6,
};

/// Side of a point against a circumcircle.
enum CircleSide : int { kInsideCircle = 0, kOutsideCircle = 1, kOnCircle = 2 };

namespace predicates {

// --- constants: all exact in double, so constant folding cannot change them --------------------
constexpr double epsilon = 0x1p-53;        // half an ulp of 1.0
constexpr double splitter = 0x1p27 + 1.0;  // splits a double into two 26-bit halves
constexpr double resultErrBound = (3.0 + 8.0 * epsilon) * epsilon;
constexpr double ccwErrBoundA = (3.0 + 16.0 * epsilon) * epsilon;
constexpr double ccwErrBoundB = (2.0 + 12.0 * epsilon) * epsilon;
constexpr double ccwErrBoundC = (9.0 + 64.0 * epsilon) * epsilon * epsilon;
constexpr double iccErrBoundA = (10.0 + 96.0 * epsilon) * epsilon;
constexpr double iccErrBoundB = (4.0 + 48.0 * epsilon) * epsilon;
constexpr double iccErrBoundC = (44.0 + 576.0 * epsilon) * epsilon * epsilon;
/// Scales incircle's lift bound (see incircleStageAVector): a margin of 11/10 over
/// iccErrBoundA covers the at most seven roundings on each side (243 epsilon < 1).
constexpr double iccLiftErrBound = 11.0 * epsilon;

// --- exact arithmetic primitives ----------------------------------------------------------------
// An expansion is an array of non-overlapping doubles in increasing magnitude whose exact sum is
// its value; producers drop zero components, so length 0 is the value 0 and the last component
// carries the sign.

/// x = fl(a + b) and x + y == a + b exactly (any a, b).
RY_PRED_INLINE void twoSum(double a, double b, double& x, double& y) {
    x = a + b;
    const double bv = x - a;
    const double av = x - bv;
    y = (a - av) + (b - bv);
}

/// x = fl(a + b) and x + y == a + b exactly; requires |a| >= |b|.
RY_PRED_INLINE void fastTwoSum(double a, double b, double& x, double& y) {
    x = a + b;
    y = b - (x - a);
}

/// For x = fl(a - b): the y with x + y == a - b exactly.
RY_PRED_INLINE double twoDiffTail(double a, double b, double x) {
    const double bv = a - x;
    const double av = x + bv;
    return (a - av) + (bv - b);
}

/// x = fl(a - b) and x + y == a - b exactly.
RY_PRED_INLINE void twoDiff(double a, double b, double& x, double& y) {
    x = a - b;
    y = twoDiffTail(a, b, x);
}

/// hi + lo == a exactly, each with at most 26 significant bits, so products of halves are exact.
RY_PRED_INLINE void split(double a, double& hi, double& lo) {
    const double c = splitter * a;
    const double big = c - a;
    hi = c - big;
    lo = a - hi;
}

/// x = fl(a * b) and x + y == a * b exactly.
RY_PRED_INLINE void twoProduct(double a, double b, double& x, double& y) {
    x = a * b;
    double ahi, alo, bhi, blo;
    split(a, ahi, alo);
    split(b, bhi, blo);
    y = alo * blo - (((x - ahi * bhi) - alo * bhi) - ahi * blo);
}

/// The expansion of a*b - c*d (at most 4 components, zeros dropped) into h; returns its length.
RY_PRED_INLINE int twoTwoDiff(double a, double b, double c, double d, double* h) {
    double x1, x0, y1, y0;
    twoProduct(a, b, x1, x0);
    twoProduct(c, d, y1, y0);
    double i, r0, j, k, i2, r1, r3, r2;
    twoDiff(x0, y0, i, r0);
    twoSum(x1, i, j, k);
    twoDiff(k, y1, i2, r1);
    twoSum(j, i2, r3, r2);
    int n = 0;
    // A NaN compares unequal to zero and is kept, so it reaches the result.
    if (r0 != 0.0) h[n++] = r0;
    if (r1 != 0.0) h[n++] = r1;
    if (r2 != 0.0) h[n++] = r2;
    if (r3 != 0.0) h[n++] = r3;
    return n;
}

/// The expansion e * b into h (at most 2 * elen components); h must not overlap e.
int scaleExpansion(int elen, const double* e, double b, double* h);

/// The expansion e + f into h (at most elen + flen components); h must not overlap e or f.
int sumExpansions(int elen, const double* e, int flen, const double* f, double* h);

/// Plain floating-point sum of the components, smallest first; 0 for the empty expansion.
RY_PRED_INLINE double estimate(int elen, const double* e) {
    double q = elen > 0 ? e[0] : 0.0;
    for (int i = 1; i < elen; ++i) q += e[i];
    return q;
}

// --- stage statistics ---------------------------------------------------------------------------
// The predicates are templates over a tiny policy told which stage returned: a no-op in
// production, a counter in the tests, so the counted code is the shipped code.

/// kStageTailFree: stage B's value returned because the coordinate differences were exact.
enum Stage : int { kStageA, kStageB, kStageTailFree, kStageC, kStageExact, kStageCount };

struct NoStageStats {
    void hit(Stage) const {}
};

struct StageCounter {
    std::uint64_t* hits;  // kStageCount entries
    void hit(Stage s) const { ++hits[s]; }
};

/// Stages B, C and exact of orient2d. Stage A's |detleft + detright| is recomputed there rather
/// than passed: keeping it alive past the test costs the inline code a register copy per call.
template <class Stats>
RY_PRED_NOINLINE double orient2dSlow(const double* pa,
                                     const double* pb,
                                     const double* pc,
                                     Stats stats);
/// Stages B and C of incircle, then the exact evaluation.
template <class Stats>
RY_PRED_NOINLINE double incircleSlow(const double* pa,
                                     const double* pb,
                                     const double* pc,
                                     const double* pd,
                                     double permanent,
                                     Stats stats);

extern template double orient2dSlow<NoStageStats>(const double*,
                                                  const double*,
                                                  const double*,
                                                  NoStageStats);
extern template double orient2dSlow<StageCounter>(const double*,
                                                  const double*,
                                                  const double*,
                                                  StageCounter);
extern template double incircleSlow<NoStageStats>(
    const double*, const double*, const double*, const double*, double, NoStageStats);
extern template double incircleSlow<StageCounter>(
    const double*, const double*, const double*, const double*, double, StageCounter);

/// Stage A of orient2d, portable form: the determinant in plain floating point, and in `detsum`
/// |detleft + detright|, the magnitude its rounding error is bounded by.
RY_PRED_INLINE double orient2dStageAPortable(const double* pa,
                                             const double* pb,
                                             const double* pc,
                                             double& detsum) {
    const double acx = pa[0] - pc[0];
    const double bcx = pb[0] - pc[0];
    const double acy = pa[1] - pc[1];
    const double bcy = pb[1] - pc[1];
    const double detleft = acx * bcy;
    const double detright = acy * bcx;
    detsum = std::fabs(detleft + detright);
    return detleft - detright;
}

#if defined(__SSE2__)
/// Clears the sign bits: fabs in both lanes.
RY_PRED_INLINE __m128d absPd(__m128d v) {
    return _mm_and_pd(v, _mm_castsi128_pd(_mm_set1_epi64x(0x7fffffffffffffffLL)));
}

/// (det, detleft + detright) from the operations of orient2dStageAPortable, paired: lane 0 is
/// detleft + (-detright), which IEEE defines to be detleft - detright, so one addition gives both.
RY_PRED_INLINE __m128d orient2dPair(const double* pa, const double* pb, const double* pc) {
    const __m128d c = _mm_loadu_pd(pc);
    const __m128d ac = _mm_sub_pd(_mm_loadu_pd(pa), c);              // (acx, acy)
    const __m128d bc = _mm_sub_pd(_mm_loadu_pd(pb), c);              // (bcx, bcy)
    const __m128d prod = _mm_mul_pd(ac, _mm_shuffle_pd(bc, bc, 1));  // (detleft, detright)
    // (detright, detleft) by an integer shuffle, which writes a fresh register: the two-operand
    // float shuffles would first need a copy of prod.
    const __m128d swapped =
        _mm_castsi128_pd(_mm_shuffle_epi32(_mm_castpd_si128(prod), _MM_SHUFFLE(1, 0, 3, 2)));
    return _mm_add_pd(prod, _mm_xor_pd(swapped, _mm_set_pd(0.0, -0.0)));
}

/// The same values as orient2dStageAPortable, bit for bit.
RY_PRED_INLINE double orient2dStageAVector(const double* pa,
                                           const double* pb,
                                           const double* pc,
                                           double& detsum) {
    const __m128d pair = orient2dPair(pa, pb, pc);
    detsum = std::fabs(_mm_cvtsd_f64(_mm_unpackhi_pd(pair, pair)));
    return _mm_cvtsd_f64(pair);
}
#endif

/// Stage A of orient2d.
template <class Stats>
RY_PRED_INLINE double orient2dAdaptive(const double* pa,
                                       const double* pb,
                                       const double* pc,
                                       Stats stats) {
    // When the products differ in sign or one is zero, det suffered no cancellation and
    // |detleft + detright| <= |det|, so this single, well-predicted test accepts those cases as
    // well; only same-sign products are really checked against the bound.
#if defined(__SSE2__)
    // (|det|, ccwErrBoundA * detsum) in one pass, then one comparison of the two lanes.
    const __m128d pair = orient2dPair(pa, pb, pc);
    const __m128d mag = _mm_mul_pd(absPd(pair), _mm_set_pd(ccwErrBoundA, 1.0));
    const __m128d bound = _mm_castsi128_pd(_mm_shuffle_epi32(_mm_castpd_si128(mag), 0xee));
    if (RY_PRED_LIKELY(_mm_comige_sd(mag, bound))) {
        stats.hit(kStageA);
        return _mm_cvtsd_f64(pair);
    }
#else
    double detsum;
    const double det = orient2dStageAPortable(pa, pb, pc, detsum);
    if (RY_PRED_LIKELY(std::fabs(det) >= ccwErrBoundA * detsum)) {
        stats.hit(kStageA);
        return det;
    }
#endif
    return orient2dSlow(pa, pb, pc, stats);
}

/// Stage A of incircle, portable form: the determinant in plain floating point, and in
/// `permanent` the magnitude its rounding error is bounded by.
RY_PRED_INLINE double incircleStageAPortable(
    const double* pa, const double* pb, const double* pc, const double* pd, double& permanent) {
    const double adx = pa[0] - pd[0];
    const double bdx = pb[0] - pd[0];
    const double cdx = pc[0] - pd[0];
    const double ady = pa[1] - pd[1];
    const double bdy = pb[1] - pd[1];
    const double cdy = pc[1] - pd[1];
    const double alift = ady * ady + adx * adx;
    const double blift = bdy * bdy + bdx * bdx;
    const double clift = cdy * cdy + cdx * cdx;
    const double bdxcdy = bdx * cdy;
    const double cdxbdy = cdx * bdy;
    const double cdxady = cdx * ady;
    const double adxcdy = adx * cdy;
    const double adxbdy = adx * bdy;
    const double bdxady = bdx * ady;
    permanent = ((std::fabs(adxcdy) + std::fabs(cdxady)) * blift +
                 (std::fabs(cdxbdy) + std::fabs(bdxcdy)) * alift) +
                (std::fabs(bdxady) + std::fabs(adxbdy)) * clift;
    return ((cdxady - adxcdy) * blift + (bdxcdy - cdxbdy) * alift) + (adxbdy - bdxady) * clift;
}

#if defined(__SSE2__)
/// The determinant of incircleStageAPortable, two operations per instruction: each lane performs
/// the identical IEEE operation on the identical operands (sums and products commute exactly),
/// so the value is bit-identical; the tests hold it to that.
///
/// Instead of the permanent it returns the cheaper `liftBound` = alift*blift + clift*(alift +
/// blift). On the same differences, |bdx*cdy| + |cdx*bdy| <= sqrt(blift*clift) <=
/// (blift + clift) / 2 (Cauchy-Schwarz, then the means), and likewise for the other two minors,
/// so the exact permanent is at most the exact liftBound. Both are sums of products of
/// non-negative terms, each computed with at most seven roundings, so iccLiftErrBound *
/// liftBound >= iccErrBoundA * permanent holds for the computed values too, rounding being
/// monotone. (Subnormal intermediates add absolute errors below 2^-1072: against a bound above
/// 2^-1060 they vanish in the 10% margin, and below it both scaled bounds round to zero.) A
/// determinant that passes the test on liftBound therefore passes the permanent's test, and
/// stage A answers exactly as with the permanent.
RY_PRED_INLINE double incircleStageAVector(
    const double* pa, const double* pb, const double* pc, const double* pd, double& liftBound) {
    const __m128d d = _mm_loadu_pd(pd);
    const __m128d a = _mm_sub_pd(_mm_loadu_pd(pa), d);  // (adx, ady)
    const __m128d b = _mm_sub_pd(_mm_loadu_pd(pb), d);  // (bdx, bdy)
    const __m128d c = _mm_sub_pd(_mm_loadu_pd(pc), d);  // (cdx, cdy)
    const __m128d a2 = _mm_mul_pd(a, a);
    const __m128d b2 = _mm_mul_pd(b, b);
    const __m128d c2 = _mm_mul_pd(c, c);
    const __m128d liftAB = _mm_add_pd(_mm_unpackhi_pd(a2, b2), _mm_unpacklo_pd(a2, b2));
    const __m128d liftC = _mm_add_sd(_mm_unpackhi_pd(c2, c2), c2);  // lane 0
    const __m128d p1 = _mm_mul_pd(b, _mm_shuffle_pd(c, c, 1));      // (bdx*cdy, bdy*cdx)
    const __m128d p2 = _mm_mul_pd(c, _mm_shuffle_pd(a, a, 1));      // (cdx*ady, cdy*adx)
    const __m128d p3 = _mm_mul_pd(a, _mm_shuffle_pd(b, b, 1));      // (adx*bdy, ady*bdx)
    // Minors for the a and b lifts side by side, then for c (lane 0).
    const __m128d minorAB = _mm_sub_pd(_mm_unpacklo_pd(p1, p2), _mm_unpackhi_pd(p1, p2));
    const __m128d minorC = _mm_sub_sd(p3, _mm_unpackhi_pd(p3, p3));
    // (b + a) + c, with the a and b terms added across lanes.
    const __m128d termAB = _mm_mul_pd(minorAB, liftAB);
    const __m128d det = _mm_add_sd(_mm_add_sd(_mm_shuffle_pd(termAB, termAB, 1), termAB),
                                   _mm_mul_sd(minorC, liftC));
    const __m128d liftBA = _mm_shuffle_pd(liftAB, liftAB, 1);
    const __m128d bound =
        _mm_add_sd(_mm_mul_sd(liftAB, liftBA), _mm_mul_sd(_mm_add_sd(liftAB, liftBA), liftC));
    liftBound = _mm_cvtsd_f64(bound);
    return _mm_cvtsd_f64(det);
}
#endif

/// Stage A of incircle with the permanent's error bound.
template <class Stats>
RY_PRED_INLINE double incircleStageA(
    const double* pa, const double* pb, const double* pc, const double* pd, Stats stats) {
    double permanent;
    const double det = incircleStageAPortable(pa, pb, pc, pd, permanent);
    if (RY_PRED_LIKELY(std::fabs(det) >= iccErrBoundA * permanent)) {
        stats.hit(kStageA);
        return det;
    }
    return incircleSlow(pa, pb, pc, pd, permanent, stats);
}

#if defined(__SSE2__)
/// What the lift bound could not certify: stage A again with the permanent, then the slow
/// stages. Out of line, so that the inline code stays small.
template <class Stats>
RY_PRED_NOINLINE double incircleUncertified(
    const double* pa, const double* pb, const double* pc, const double* pd, Stats stats) {
    return incircleStageA(pa, pb, pc, pd, stats);
}
#endif

/// Stage A of incircle. With SSE2 the cheaper lift bound is tried first; it certifies a subset
/// of what the permanent certifies (see incircleStageAVector), with the same value returned.
template <class Stats>
RY_PRED_INLINE double incircleAdaptive(
    const double* pa, const double* pb, const double* pc, const double* pd, Stats stats) {
#if defined(__SSE2__)
    double liftBound;
    const double det = incircleStageAVector(pa, pb, pc, pd, liftBound);
    // Non-finite values answer alike too: a NaN bound or determinant fails both tests, and the
    // permanent is NaN only where the determinant is (the same products and lifts feed both).
    if (RY_PRED_LIKELY(std::fabs(det) >= iccLiftErrBound * liftBound)) {
        stats.hit(kStageA);
        return det;
    }
    return incircleUncertified(pa, pb, pc, pd, stats);
#else
    return incircleStageA(pa, pb, pc, pd, stats);
#endif
}

}  // namespace predicates

/// Twice the signed area of (pa, pb, pc), with the exact sign: positive when counter-clockwise
/// (pc left of the directed line pa->pb), zero when collinear.
RY_PRED_INLINE double orient2d(const double* pa, const double* pb, const double* pc) {
    return predicates::orient2dAdaptive(pa, pb, pc, predicates::NoStageStats{});
}

/// Positive when pd lies inside the circle through the counter-clockwise pa, pb, pc (the sign
/// flips when they are clockwise), zero when the four are cocircular; exact sign.
RY_PRED_INLINE double incircle(const double* pa,
                               const double* pb,
                               const double* pc,
                               const double* pd) {
    return predicates::incircleAdaptive(pa, pb, pc, pd, predicates::NoStageStats{});
}

/// The in-circle determinant's sign-carrying component, computed exactly from the absolute
/// coordinates (the last stage of incircle; needs about 11 KB of stack).
double incircleExact(const double* pa, const double* pb, const double* pc, const double* pd);

/// kLeft when orient2d(a, b, p) > tol, kRight when < -tol, otherwise (NaN too) kOnLine. The
/// band is on twice the signed area, not on a distance.
RY_PRED_INLINE PointSide classifyPointSide(const double* p,
                                           const double* a,
                                           const double* b,
                                           double tol) {
    const double d = orient2d(a, b, p);
    if (d > tol) return kLeft;
    if (d < -tol) return kRight;
    return kOnLine;
}

/// Three edge sides of one triangle into the point's location.
PointLocation combineSides(const PointSide sides[3]);

/// kInsideCircle when incircle(a, b, c, p) > tol, kOutsideCircle when < -tol, otherwise (NaN
/// too) kOnCircle. The band is on the determinant itself (length^4).
RY_PRED_INLINE CircleSide
classifyInCircle(const double* p, const double* a, const double* b, const double* c, double tol) {
    const double d = incircle(a, b, c, p);
    if (d > tol) return kInsideCircle;
    if (d < -tol) return kOutsideCircle;
    return kOnCircle;
}
