// Exact-sign orientation and in-circle predicates (adaptive precision) and the tolerance-band
// classifications built on them. Points are passed as a pointer to x; y is the next double.
#pragma once

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

/// Twice the signed area of (pa, pb, pc), with the exact sign: positive when counter-clockwise.
double orient2d(const double* pa, const double* pb, const double* pc);
/// Positive when pd lies inside the circle through the counter-clockwise pa, pb, pc; exact sign.
double incircle(const double* pa, const double* pb, const double* pc, const double* pd);
/// The exact in-circle determinant's sign-carrying component, computed from scratch.
double incircleExact(const double* pa, const double* pb, const double* pc, const double* pd);

/// kLeft when orient2d(a, b, p) > tol, kRight when < -tol, otherwise (NaN too) kOnLine.
PointSide classifyPointSide(const double* p, const double* a, const double* b, double tol);
/// Three edge sides of one triangle into the point's location.
PointLocation combineSides(const PointSide sides[3]);
/// kInsideCircle when incircle(a, b, c, p) > tol, kOutsideCircle when < -tol, else kOnCircle.
CircleSide classifyInCircle(const double* p,
                            const double* a,
                            const double* b,
                            const double* c,
                            double tol);
