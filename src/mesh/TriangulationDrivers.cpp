#include "mesh/RyTriangulationImpl.h"

// Placeholder until the drivers land.
PkTriangulationStatus RyTriangulationImpl::delaunayTriangulation(const std::vector<PkGePoint3d>&) {
    return StatusFailed;
}
