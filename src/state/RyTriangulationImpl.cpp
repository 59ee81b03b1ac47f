#include "state/RyTriangulationImpl.h"

RyTriangulationImpl::RyTriangulationImpl() = default;

int RyTriangulationImpl::allocateTriangle() {
    if (!freeTriangles.empty()) {
        const int slot = freeTriangles.back();
        freeTriangles.pop_back();
        return slot;
    }
    triangles.emplace_back();
    return int(triangles.size()) - 1;
}

void RyTriangulationImpl::appendTriangle(const PkMeshTriangle& t) {
    triangles.push_back(t);
}

void RyTriangulationImpl::reset() {
    triangles.clear();
    vertices.clear();
    meshTriangles.clear();
    locator = VertexKdTree();
    freeTriangles.clear();
    constraintEdges.clear();
    constraintRepeats.clear();
    constraintOrigins.clear();
    used = false;
}
