#include "RyGeometry.h"

#include <cmath>

PkGeTol::PkGeTol() : mEqualPoint(1e-10), mEqualVector(1e-10) {}

PkGeTol::PkGeTol(double equalPoint, double equalVector)
    : mEqualPoint(equalPoint), mEqualVector(equalVector) {}

double PkGeTol::equalPoint() const {
    return mEqualPoint;
}

double PkGeTol::equalVector() const {
    return mEqualVector;
}

void PkGeTol::setEqualPoint(double value) {
    mEqualPoint = value;
}

void PkGeTol::setEqualVector(double value) {
    mEqualVector = value;
}

PkGeTol PkGeContext::gTol;

bool PkGePoint3d::isEqualTo(const PkGePoint3d& other, const PkGeTol& tol) const {
    const double dx = x - other.x;
    const double dy = y - other.y;
    const double dz = z - other.z;
    // sqrt(fl(dx*dx)) == |dx| in binary floating point, so the computed distance is never below
    // the largest coordinate difference: callers may prune candidates by |dx| > tolerance.
    return std::sqrt(dx * dx + dy * dy + dz * dz) <= tol.equalPoint();
}
