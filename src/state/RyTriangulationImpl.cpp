#include "state/RyTriangulationImpl.h"

RyTriangulationImpl::RyTriangulationImpl() = default;

void RyTriangulationImpl::reset() {
    mesh.clear();
    meshTriangles.clear();
    locator = VertexKdTree();
    constraints.clear();
    used = false;
}
