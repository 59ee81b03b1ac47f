// The slow paths of the adaptive predicates and the expansion arithmetic they run on. Every
// working array has the largest length its step can produce, so nothing is allocated.
#include "predicates/Predicates.h"

namespace predicates {

int scaleExpansion(int elen, const double* e, double b, double* h) {
    if (elen == 0 || b == 0.0) return 0;
    int n = 0;
    double q, t;
    twoProduct(e[0], b, q, t);
    if (t != 0.0) h[n++] = t;
    for (int i = 1; i < elen; ++i) {
        double p1, p0, s;
        twoProduct(e[i], b, p1, p0);
        twoSum(q, p0, s, t);
        if (t != 0.0) h[n++] = t;
        fastTwoSum(p1, s, q, t);
        if (t != 0.0) h[n++] = t;
    }
    if (q != 0.0) h[n++] = q;
    return n;
}

int sumExpansions(int elen, const double* e, int flen, const double* f, double* h) {
    if (elen == 0 || flen == 0) {
        const double* src = elen == 0 ? f : e;
        const int len = elen == 0 ? flen : elen;
        for (int i = 0; i < len; ++i) h[i] = src[i];
        return len;
    }
    // Merge by increasing magnitude (e first on ties), then sweep in place: the write index never
    // passes the read index, so h holds both the merged input and the output.
    int i = 0, j = 0, m = 0;
    while (i < elen && j < flen) h[m++] = std::fabs(e[i]) <= std::fabs(f[j]) ? e[i++] : f[j++];
    while (i < elen) h[m++] = e[i++];
    while (j < flen) h[m++] = f[j++];

    int n = 0;
    double q, t;
    fastTwoSum(h[1], h[0], q, t);
    if (t != 0.0) h[n++] = t;
    for (int k = 2; k < m; ++k) {
        twoSum(q, h[k], q, t);
        if (t != 0.0) h[n++] = t;
    }
    if (q != 0.0) h[n++] = q;
    return n;
}

template <class Stats>
double orient2dSlow(const double* pa, const double* pb, const double* pc, Stats stats) {
    double detsum;
    orient2dStageAPortable(pa, pb, pc, detsum);
    const double acx = pa[0] - pc[0];
    const double bcx = pb[0] - pc[0];
    const double acy = pa[1] - pc[1];
    const double bcy = pb[1] - pc[1];

    // Stage B: the exact determinant of the rounded differences.
    double b[4];
    const int blen = twoTwoDiff(acx, bcy, acy, bcx, b);
    double det = estimate(blen, b);
    if (std::fabs(det) >= std::fabs(ccwErrBoundB * detsum)) {
        stats.hit(kStageB);
        return det;
    }

    const double acxtail = twoDiffTail(pa[0], pc[0], acx);
    const double bcxtail = twoDiffTail(pb[0], pc[0], bcx);
    const double acytail = twoDiffTail(pa[1], pc[1], acy);
    const double bcytail = twoDiffTail(pb[1], pc[1], bcy);
    if (acxtail == 0.0 && acytail == 0.0 && bcxtail == 0.0 && bcytail == 0.0) {
        stats.hit(kStageTailFree);  // b is the exact determinant; its estimate has its sign
        return det;
    }

    // Stage C: first-order correction for the rounding of the differences.
    const double bound = std::fabs(resultErrBound * std::fabs(det) + ccwErrBoundC * detsum);
    det = ((acxtail * bcy + bcytail * acx) - (bcxtail * acy + acytail * bcx)) + det;
    if (std::fabs(det) >= bound) {
        stats.hit(kStageC);
        return det;
    }

    // Exact: add the three remaining tail products to b.
    double u[4], c1[8], c2[12], d[16];
    int ulen = twoTwoDiff(acxtail, bcy, acytail, bcx, u);
    const int c1len = sumExpansions(blen, b, ulen, u, c1);
    ulen = twoTwoDiff(acx, bcytail, acy, bcxtail, u);
    const int c2len = sumExpansions(c1len, c1, ulen, u, c2);
    ulen = twoTwoDiff(acxtail, bcytail, acytail, bcxtail, u);
    const int dlen = sumExpansions(c2len, c2, ulen, u, d);
    stats.hit(kStageExact);
    return dlen > 0 ? d[dlen - 1] : 0.0;
}

namespace {

/// minor * x * x + minor * y * y for a 2x2 minor of at most 4 components (result at most 32).
int liftMinor(int mlen, const double* minor, double x, double y, double* h) {
    double x1[8], x2[16], y1[8], y2[16];
    const int x1len = scaleExpansion(mlen, minor, x, x1);
    const int x2len = scaleExpansion(x1len, x1, x, x2);
    const int y1len = scaleExpansion(mlen, minor, y, y1);
    const int y2len = scaleExpansion(y1len, y1, y, y2);
    return sumExpansions(x2len, x2, y2len, y2, h);
}

/// The negation of an expansion is an expansion.
void negate(int len, double* e) {
    for (int i = 0; i < len; ++i) e[i] = -e[i];
}

/// cofactor * x * s + cofactor * y * s' (s = sign) for a cofactor of at most 12 components:
/// each part scaled twice (24, then 48), the sum at most 96.
int liftCofactor(int clen, const double* cof, double x, double y, bool negative, double* h) {
    double t24[24], tx[48], ty[48];
    int len = scaleExpansion(clen, cof, x, t24);
    const int txlen = scaleExpansion(len, t24, negative ? -x : x, tx);
    len = scaleExpansion(clen, cof, y, t24);
    const int tylen = scaleExpansion(len, t24, negative ? -y : y, ty);
    return sumExpansions(txlen, tx, tylen, ty, h);
}

}  // namespace

template <class Stats>
double incircleSlow(const double* pa,
                    const double* pb,
                    const double* pc,
                    const double* pd,
                    double permanent,
                    Stats stats) {
    const double adx = pa[0] - pd[0];
    const double bdx = pb[0] - pd[0];
    const double cdx = pc[0] - pd[0];
    const double ady = pa[1] - pd[1];
    const double bdy = pb[1] - pd[1];
    const double cdy = pc[1] - pd[1];

    // Stage B: the exact determinant of the rounded differences.
    double bc[4], ca[4], ab[4];
    const int bclen = twoTwoDiff(bdx, cdy, cdx, bdy, bc);
    const int calen = twoTwoDiff(cdx, ady, adx, cdy, ca);
    const int ablen = twoTwoDiff(adx, bdy, bdx, ady, ab);
    double adet[32], bdet[32], cdet[32], abdet[64], fin[96];
    const int alen = liftMinor(bclen, bc, adx, ady, adet);
    const int blen = liftMinor(calen, ca, bdx, bdy, bdet);
    const int clen = liftMinor(ablen, ab, cdx, cdy, cdet);
    const int ablen2 = sumExpansions(alen, adet, blen, bdet, abdet);
    const int finlen = sumExpansions(ablen2, abdet, clen, cdet, fin);
    double det = estimate(finlen, fin);
    if (std::fabs(det) >= std::fabs(iccErrBoundB * permanent)) {
        stats.hit(kStageB);
        return det;
    }

    const double adxtail = twoDiffTail(pa[0], pd[0], adx);
    const double adytail = twoDiffTail(pa[1], pd[1], ady);
    const double bdxtail = twoDiffTail(pb[0], pd[0], bdx);
    const double bdytail = twoDiffTail(pb[1], pd[1], bdy);
    const double cdxtail = twoDiffTail(pc[0], pd[0], cdx);
    const double cdytail = twoDiffTail(pc[1], pd[1], cdy);
    if (adxtail == 0.0 && bdxtail == 0.0 && cdxtail == 0.0 && adytail == 0.0 && bdytail == 0.0 &&
        cdytail == 0.0) {
        stats.hit(kStageTailFree);  // fin is the exact determinant; its estimate has its sign
        return det;
    }

    // Stage C: first-order correction for the rounding of the differences.
    const double bound = std::fabs(resultErrBound * std::fabs(det) + iccErrBoundC * permanent);
    const double alift = ady * ady + adx * adx;
    const double blift = bdy * bdy + bdx * bdx;
    const double clift = cdy * cdy + cdx * cdx;
    const double a = ((bdxtail * cdy + cdytail * bdx) - (cdxtail * bdy + bdytail * cdx)) * alift +
                     2.0 * (adytail * ady + adxtail * adx) * (bdx * cdy - bdy * cdx);
    const double b = ((cdxtail * ady + adytail * cdx) - (adxtail * cdy + cdytail * adx)) * blift +
                     2.0 * (bdytail * bdy + bdxtail * bdx) * (ady * cdx - cdy * adx);
    const double c = ((adxtail * bdy + bdytail * adx) - (bdxtail * ady + adytail * bdx)) * clift +
                     2.0 * (cdytail * cdy + cdxtail * cdx) * (bdy * adx - ady * bdx);
    det = a + b + c + det;
    if (std::fabs(det) >= bound) {
        stats.hit(kStageC);
        return det;
    }

    // No incremental stage: recompute from the absolute coordinates.
    stats.hit(kStageExact);
    return incircleExact(pa, pb, pc, pd);
}

template double orient2dSlow<NoStageStats>(const double*,
                                           const double*,
                                           const double*,
                                           NoStageStats);
template double orient2dSlow<StageCounter>(const double*,
                                           const double*,
                                           const double*,
                                           StageCounter);
template double incircleSlow<NoStageStats>(
    const double*, const double*, const double*, const double*, double, NoStageStats);
template double incircleSlow<StageCounter>(
    const double*, const double*, const double*, const double*, double, StageCounter);

}  // namespace predicates

// Kept out of line and apart from incircleSlow so that stage B does not pay for this frame.
RY_PRED_NOINLINE double incircleExact(const double* pa,
                                      const double* pb,
                                      const double* pc,
                                      const double* pd) {
    using namespace predicates;
    // Minor xy = x.x * y.y - y.x * x.y.
    double ab[4], bc[4], cd[4], da[4], ac[4], bd[4];
    const int ablen = twoTwoDiff(pa[0], pb[1], pb[0], pa[1], ab);
    const int bclen = twoTwoDiff(pb[0], pc[1], pc[0], pb[1], bc);
    const int cdlen = twoTwoDiff(pc[0], pd[1], pd[0], pc[1], cd);
    const int dalen = twoTwoDiff(pd[0], pa[1], pa[0], pd[1], da);
    const int aclen = twoTwoDiff(pa[0], pc[1], pc[0], pa[1], ac);
    const int bdlen = twoTwoDiff(pb[0], pd[1], pd[0], pb[1], bd);

    // Cofactors: cda and dab add ac and bd; abc and bcd subtract them.
    double t8[8], abc[12], bcd[12], cda[12], dab[12];
    int len = sumExpansions(cdlen, cd, dalen, da, t8);
    const int cdalen = sumExpansions(len, t8, aclen, ac, cda);
    len = sumExpansions(dalen, da, ablen, ab, t8);
    const int dablen = sumExpansions(len, t8, bdlen, bd, dab);
    negate(aclen, ac);
    negate(bdlen, bd);
    len = sumExpansions(ablen, ab, bclen, bc, t8);
    const int abclen = sumExpansions(len, t8, aclen, ac, abc);
    len = sumExpansions(bclen, bc, cdlen, cd, t8);
    const int bcdlen = sumExpansions(len, t8, bdlen, bd, bcd);

    double adet[96], bdet[96], cdet[96], ddet[96], abdet[192], cddet[192], deter[384];
    const int alen = liftCofactor(bcdlen, bcd, pa[0], pa[1], false, adet);
    const int blen = liftCofactor(cdalen, cda, pb[0], pb[1], true, bdet);
    const int clen = liftCofactor(dablen, dab, pc[0], pc[1], false, cdet);
    const int dlen = liftCofactor(abclen, abc, pd[0], pd[1], true, ddet);
    const int ablen2 = sumExpansions(alen, adet, blen, bdet, abdet);
    const int cdlen2 = sumExpansions(clen, cdet, dlen, ddet, cddet);
    const int deterlen = sumExpansions(ablen2, abdet, cdlen2, cddet, deter);
    return deterlen > 0 ? deter[deterlen - 1] : 0.0;
}

PointLocation combineSides(const PointSide sides[3]) {
    int onLine = 0;
    int lastOnLine = 0;
    for (int k = 0; k < 3; ++k) {
        if (sides[k] == kRight) return kOutside;
        if (sides[k] == kGhostSide) return kInGhostTriangle;
        if (sides[k] == kOnLine) {
            ++onLine;
            lastOnLine = k;
        }
    }
    if (onLine == 0) return kInTriangle;
    if (onLine >= 2) return kOnVertex;
    return PointLocation(kOnEdge0 + lastOnLine);
}
