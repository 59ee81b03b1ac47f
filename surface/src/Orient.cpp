// A floating-point filter decides almost every call; the rest expands the determinant into six
// exact products and adds them exactly, as in "Adaptive Precision Floating-Point Arithmetic and
// Fast Robust Geometric Predicates". Compiled without fused multiply-add (the error bound and
// the two-product assume separately rounded operations).
#include "Orient.h"

#include <cmath>

namespace ry {

namespace {

constexpr double kEpsilon = 0x1p-53;
constexpr double kFilterBound = (3.0 + 16.0 * kEpsilon) * kEpsilon;
constexpr double kSplitter = 134217729.0;  // 2^27 + 1

/// x + y == a + b exactly (round to nearest, no overflow).
inline void twoSum(double a, double b, double& x, double& y) {
    x = a + b;
    const double bv = x - a;
    const double av = x - bv;
    y = (a - av) + (b - bv);
}

/// x + y == a * b exactly (Dekker's product; no overflow or underflow in the domain).
inline void twoProduct(double a, double b, double& x, double& y) {
    x = a * b;
    const double ca = kSplitter * a, cb = kSplitter * b;
    const double ah = ca - (ca - a), al = a - ah;
    const double bh = cb - (cb - b), bl = b - bh;
    y = al * bl - (((x - ah * bh) - al * bh) - ah * bl);
}

/// Adds b to the expansion e[0..n) (non-overlapping, increasing magnitude); returns n + 1.
inline int grow(double* e, int n, double b) {
    double q = b;
    for (int i = 0; i < n; ++i) {
        double sum, error;
        twoSum(q, e[i], sum, error);
        e[i] = error;
        q = sum;
    }
    e[n] = q;
    return n + 1;
}

int exactSign(const double* a, const double* b, const double* c) {
    // (bx - ax)(cy - ay) - (by - ay)(cx - ax) with the ax*ay terms cancelled.
    const double factors[6][2] = {
        {b[0], c[1]}, {-b[0], a[1]}, {-a[0], c[1]}, {-b[1], c[0]}, {b[1], a[0]}, {a[1], c[0]}};
    double e[12];
    int n = 0;
    for (const auto& f : factors) {
        double x, y;
        twoProduct(f[0], f[1], x, y);
        n = grow(e, n, y);
        n = grow(e, n, x);
    }
    // The largest component decides the sign: the last non-zero one.
    for (int i = n - 1; i >= 0; --i) {
        if (e[i] != 0.0) return e[i] > 0.0 ? 1 : -1;
    }
    return 0;
}

}  // namespace

int orientSign(const double* a, const double* b, const double* c) {
    const double left = (b[0] - a[0]) * (c[1] - a[1]);
    const double right = (b[1] - a[1]) * (c[0] - a[0]);
    const double det = left - right;
    const double bound = kFilterBound * (std::fabs(left) + std::fabs(right));
    if (det > bound) return 1;
    if (-det > bound) return -1;
    return exactSign(a, b, c);
}

}  // namespace ry
