// Output of every real triangle: the working list without the ghost triangles.
#include "finishing/Finishing.h"

void deleteGhostTriangle(const TriangleMesh& mesh, std::vector<PkMeshTriangle>& output) {
    const std::vector<PkMeshTriangle>& triangles = mesh.triangles;
    const std::size_t n = triangles.size();
    if (output.capacity() < n) output.reserve(n);
    // Equality with the ghost vertex, not "any negative index": a triangle with a missing
    // (NoVertex) vertex is copied like a real one.
    for (int i = 0; i < int(triangles.size()); ++i) {
        const int* v = triVerts(triangles[std::size_t(i)]);
        if (v[0] != GhostVertex && v[1] != GhostVertex && v[2] != GhostVertex) {
            output.push_back(triangles[std::size_t(i)]);
        }
    }
}
