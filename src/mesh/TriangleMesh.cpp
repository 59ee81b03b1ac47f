#include "mesh/TriangleMesh.h"

#include "mesh/LocalIndex.h"

int TriangleMesh::allocateTriangle() {
    if (!freeTriangles.empty()) {
        const int slot = freeTriangles.back();
        freeTriangles.pop_back();
        return slot;
    }
    triangles.emplace_back();
    return int(triangles.size()) - 1;
}

// First mesh for the counter-clockwise triple a, b, c: the real triangle 0 and one ghost triangle
// per edge, each holding that edge reversed and the ghost vertex G as vertex 2.
//
//                 c
//        3       / \       2
//     (a,c,G)   / 0 \   (c,b,G)
//              a-----b
//                 1
//              (b,a,G)
//
void TriangleMesh::appendFirstMesh(int a, int b, int c) {
    const int base = int(triangles.size());
    PkMeshTriangle t;
    t.setVertexIndex(a, b, c);
    t.setNeighborIndex(base + 1, base + 2, base + 3);
    t.setFlagbAux(false);
    appendTriangle(t);
    t.setVertexIndex(b, a, GhostVertex);
    t.setNeighborIndex(base + 0, base + 3, base + 2);
    t.setFlagbAux(true);
    appendTriangle(t);
    t.setVertexIndex(c, b, GhostVertex);
    t.setNeighborIndex(base + 0, base + 1, base + 3);
    appendTriangle(t);
    t.setVertexIndex(a, c, GhostVertex);
    t.setNeighborIndex(base + 0, base + 2, base + 1);
    appendTriangle(t);
    vertexTriangle(vertices[std::size_t(a)]) = base + 0;
    vertexTriangle(vertices[std::size_t(b)]) = base + 1;
    vertexTriangle(vertices[std::size_t(c)]) = base + 2;
}

bool TriangleMesh::isMeshEdge(int a, int b, int maxSteps) const {
    const int triangleCount = int(triangles.size());
    const int t0 = vertexTriangle(vertices[std::size_t(a)]);
    if (t0 < 0 || t0 >= triangleCount) return false;
    int t = t0;
    // Turning across the edge (a, next) visits every triangle around a; b is a neighbour of a
    // exactly when it follows a in one of them.
    for (int count = 1;; ++count) {
        const int* v = triVerts(triangles[std::size_t(t)]);
        const int i = cornerIndex(v, a);
        if (v[nextLocalIndex(i)] == b) return true;
        t = triNbrs(triangles[std::size_t(t)])[i];
        if (t == t0 || count >= maxSteps || t < 0 || t >= triangleCount) return false;
    }
}

void TriangleMesh::clear() {
    triangles.clear();
    vertices.clear();
    freeTriangles.clear();
}
