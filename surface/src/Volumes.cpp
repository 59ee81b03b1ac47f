// Cut and fill against a horizontal datum, and the plan and sloped areas of the kept triangles.
//
// Over a triangle of plan area A with heights h1, h2, h3 above the datum, the surface is linear,
// so the signed volume is A (h1 + h2 + h3) / 3. Where the datum crosses the triangle, the part on
// the side of the lone vertex i is a similar triangle with plan area A hi^2 / ((hi - hj)(hi - hk))
// and volume that area times hi / 3 (a pyramid's); the other side is the signed volume minus it.
#include <cmath>

#include "RySurfaceProducts.h"

namespace ry {

namespace {

struct Sums {
    long double cut = 0, fill = 0, cutArea = 0, fillArea = 0, area2d = 0, area3d = 0;
};

/// Adds a triangle of plan area `a` with heights h above the datum.
void addPrism(Sums& sum, double a, const double h[3]) {
    int above = 0, below = 0;
    for (int k = 0; k < 3; ++k) {
        above += h[k] > 0.0;
        below += h[k] < 0.0;
    }
    const long double net = (long double)a * ((long double)h[0] + h[1] + h[2]) / 3;
    if (below == 0 || above == 0) {
        (below == 0 ? sum.cut : sum.fill) += below == 0 ? net : -net;
        if (above > 0) sum.cutArea += a;
        if (below > 0) sum.fillArea += a;
        return;
    }
    // The lone vertex: the only one above, or the only one below.
    const bool loneAbove = above == 1;
    int i = 0;
    while (loneAbove ? !(h[i] > 0.0) : !(h[i] < 0.0)) ++i;
    const long double hi = h[i], hj = h[(i + 1) % 3], hk = h[(i + 2) % 3];
    const long double part = hi * hi / ((hi - hj) * (hi - hk));  // its share of the plan area
    const long double lone = a * part * hi / 3;                  // its signed volume
    if (loneAbove) {
        sum.cut += lone;
        sum.fill += lone - net;
        sum.cutArea += a * part;
        sum.fillArea += a * (1 - part);
    } else {
        sum.fill -= lone;
        sum.cut += net - lone;
        sum.fillArea += a * part;
        sum.cutArea += a * (1 - part);
    }
}

}  // namespace

Volumes surfaceVolumes(const Surface& s, double datum) {
    Sums sum;
    for (std::size_t t = 0; t < s.triangleCount(); ++t) {
        const double* p[3];
        double h[3];
        for (int k = 0; k < 3; ++k) {
            p[k] = &s.vertices[3 * std::size_t(s.triangles[3 * t + std::size_t(k)])];
            h[k] = p[k][2] - datum;
        }
        const double ux = p[1][0] - p[0][0], uy = p[1][1] - p[0][1], uz = p[1][2] - p[0][2];
        const double vx = p[2][0] - p[0][0], vy = p[2][1] - p[0][1], vz = p[2][2] - p[0][2];
        const double a = 0.5 * (ux * vy - uy * vx);
        const double nx = uy * vz - uz * vy, ny = uz * vx - ux * vz;
        sum.area2d += a;
        sum.area3d += 0.5 * std::sqrt(nx * nx + ny * ny + 4.0 * a * a);
        addPrism(sum, a, h);
    }
    Volumes v;
    v.datum = datum;
    v.cut = double(sum.cut);
    v.fill = double(sum.fill);
    v.cutArea = double(sum.cutArea);
    v.fillArea = double(sum.fillArea);
    v.area2d = double(sum.area2d);
    v.area3d = double(sum.area3d);
    return v;
}

}  // namespace ry
