#include "PkMeshPoint3d.h"

#include <type_traits>

#include "mesh/MeshFields.h"

static_assert(sizeof(PkMeshPoint3d) == 32, "PkMeshPoint3d must stay 32 bytes");
static_assert(std::is_trivially_copyable<PkMeshPoint3d>::value,
              "PkMeshPoint3d copies must stay plain memory copies");

namespace {

constexpr int kTypeShift = 6;
constexpr std::uint32_t kTypeMask = 7u;

}  // namespace

PkMeshPoint3d::PkMeshPoint3d(PkGePoint3d p, PkMeshPoint3d::Type& type)
    : flags((std::uint32_t(type) & kTypeMask) << kTypeShift), triangleIndex(NoTriangle), point(p) {}

void PkMeshPoint3d::setTriangleIndex(int triangle) {
    triangleIndex = triangle;
}

PkGePoint3d PkMeshPoint3d::getPoint() const {
    return point;
}

int PkMeshPoint3d::getTriangleIndex() const {
    return triangleIndex;
}

PkMeshPoint3d::Type PkMeshPoint3d::getType() const {
    return PkMeshPoint3d::Type((flags >> kTypeShift) & kTypeMask);
}
