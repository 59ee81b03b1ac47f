// Exact orientation of three points in the plane.
#pragma once

namespace ry {

/// Sign of (b - a) x (c - a): 1 when a, b, c turn counter-clockwise, -1 clockwise, 0 on one
/// line. Exact for finite coordinates that are 0 or of magnitude within [2^-200, 2^200] (the
/// range the library accepts): no product overflows or loses bits there.
int orientSign(const double* a, const double* b, const double* c);

/// The same determinant in plain floating point (twice the signed area; not exact).
inline double orientValue(const double* a, const double* b, const double* c) {
    return (b[0] - a[0]) * (c[1] - a[1]) - (b[1] - a[1]) * (c[0] - a[0]);
}

}  // namespace ry
