#include "mesh/RyTriangulationImpl.h"

// Placeholder until constraint insertion lands.
PkTriangulationStatus RyTriangulationImpl::delaunayTriangulationWithConstraints(
    const std::vector<PkGePoint3d>&, const std::vector<PkMeshEdge>&) {
    return StatusFailed;
}
