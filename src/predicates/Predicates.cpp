// Placeholder: plain double arithmetic until the adaptive predicates land.
#include "predicates/Predicates.h"

double orient2d(const double* pa, const double* pb, const double* pc) {
    return (pa[0] - pc[0]) * (pb[1] - pc[1]) - (pa[1] - pc[1]) * (pb[0] - pc[0]);
}
double incircle(const double* pa, const double* pb, const double* pc, const double* pd) {
    return incircleExact(pa, pb, pc, pd);
}
double incircleExact(const double* pa, const double* pb, const double* pc, const double* pd) {
    const double adx = pa[0] - pd[0], ady = pa[1] - pd[1];
    const double bdx = pb[0] - pd[0], bdy = pb[1] - pd[1];
    const double cdx = pc[0] - pd[0], cdy = pc[1] - pd[1];
    const double al = adx * adx + ady * ady, bl = bdx * bdx + bdy * bdy, cl = cdx * cdx + cdy * cdy;
    return al * (bdx * cdy - cdx * bdy) + bl * (cdx * ady - adx * cdy) + cl * (adx * bdy - bdx * ady);
}
PointSide classifyPointSide(const double* p, const double* a, const double* b, double tol) {
    const double d = orient2d(a, b, p);
    if (d > tol) return kLeft;
    if (d < -tol) return kRight;
    return kOnLine;
}
PointLocation combineSides(const PointSide s[3]) {
    int on = 0;
    for (int k = 0; k < 3; ++k) {
        if (s[k] == kRight) return kOutside;
        if (s[k] == kGhostSide) return kInGhostTriangle;
        if (s[k] == kOnLine) ++on;
    }
    if (on == 0) return kInTriangle;
    if (on >= 2) return kOnVertex;
    return s[0] == kOnLine ? kOnEdge0 : (s[1] == kOnLine ? kOnEdge1 : kOnEdge2);
}
CircleSide classifyInCircle(const double* p, const double* a, const double* b, const double* c, double tol) {
    const double d = incircle(a, b, c, p);
    if (d > tol) return kInsideCircle;
    if (d < -tol) return kOutsideCircle;
    return kOnCircle;
}
