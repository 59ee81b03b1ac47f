// Stand-in for the host's geometry library: only the point type, the tolerance type and the
// point-equality test that the triangulation library uses.
#pragma once

#include "RyGeometryExport.h"

/// Tolerances of the host's geometry operations.
class RYGEOMETRY_EXPORT PkGeTol {
public:
    /// Both tolerances 1e-10.
    PkGeTol();
    PkGeTol(double equalPoint, double equalVector);

    /// Largest Euclidean distance at which two points count as equal.
    double equalPoint() const;
    /// Tolerance for vector comparisons (not used by the triangulation).
    double equalVector() const;
    void setEqualPoint(double value);
    void setEqualVector(double value);

private:
    double mEqualPoint;
    double mEqualVector;
};

/// Process-wide settings of the geometry library.
struct RYGEOMETRY_EXPORT PkGeContext {
    /// The global tolerance used wherever no tolerance is passed. Not synchronised: set it before
    /// starting threads that read it.
    static PkGeTol gTol;
};

/// A 3D point: exactly three public doubles x, y, z in this order, so that code may read x and
/// the double after it as a 2D point.
class RYGEOMETRY_EXPORT PkGePoint3d {
public:
    PkGePoint3d() : x(0.0), y(0.0), z(0.0) {}
    PkGePoint3d(double xx, double yy, double zz) : x(xx), y(yy), z(zz) {}

    /// True when the Euclidean distance to `other` is at most `tol.equalPoint()`. Any NaN
    /// coordinate makes the points unequal.
    bool isEqualTo(const PkGePoint3d& other, const PkGeTol& tol = PkGeContext::gTol) const;

    double x;
    double y;
    double z;
};

static_assert(sizeof(PkGePoint3d) == 3 * sizeof(double),
              "PkGePoint3d must be three packed doubles");
