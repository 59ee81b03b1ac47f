// Output of every real triangle: the working list without the ghost triangles.
#include "state/RyTriangulationImpl.h"

void RyTriangulationImpl::deleteGhostTriangle() {
    const std::size_t n = triangles.size();
    if (meshTriangles.capacity() < n) meshTriangles.reserve(n);
    // Equality with the ghost vertex, not "any negative index": a triangle with a missing (-1)
    // vertex is copied like a real one.
    for (int i = 0; i < int(triangles.size()); ++i) {
        const int* v = triVerts(triangles[std::size_t(i)]);
        if (v[0] != GhostVertex && v[1] != GhostVertex && v[2] != GhostVertex) {
            meshTriangles.push_back(triangles[std::size_t(i)]);
        }
    }
}
