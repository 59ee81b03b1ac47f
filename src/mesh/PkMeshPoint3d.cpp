#include "PkMeshPoint3d.h"

static_assert(sizeof(PkMeshPoint3d) == 32, "PkMeshPoint3d must stay 32 bytes");

namespace {

constexpr int kTypeShift = 6;
constexpr std::uint32_t kTypeMask = 7u;

}  // namespace

// Flags and triangle index get defined values although callers must not rely on them before
// assigning the whole record: reading an indeterminate value would be undefined behaviour.
PkMeshPoint3d::PkMeshPoint3d() : flags(0), triangleIndex(-1), point(0.0, 0.0, 0.0) {}

PkMeshPoint3d::PkMeshPoint3d(const PkMeshPoint3d& other) = default;

PkMeshPoint3d::PkMeshPoint3d(PkGePoint3d p) : flags(0), triangleIndex(-1), point(p) {}

PkMeshPoint3d::PkMeshPoint3d(PkGePoint3d p, PkMeshPoint3d::Type& type)
    : flags((std::uint32_t(type) & kTypeMask) << kTypeShift), triangleIndex(-1), point(p) {}

void PkMeshPoint3d::setTriangleIndex(int triangle) {
    triangleIndex = triangle;
}

PkMeshPoint3d& PkMeshPoint3d::operator=(const PkMeshPoint3d& other) = default;

PkGePoint3d PkMeshPoint3d::getPoint() const {
    return point;
}

int PkMeshPoint3d::getTriangleIndex() const {
    return triangleIndex;
}

PkMeshPoint3d::Type PkMeshPoint3d::getType() const {
    return PkMeshPoint3d::Type((flags >> kTypeShift) & kTypeMask);
}
