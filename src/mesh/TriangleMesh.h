// The mesh: vertex records, triangle slots (ghost triangles included) and the released slots,
// with the operations on slots and links that every algorithm shares.
#pragma once

#include <vector>

#include "PkMeshPoint3d.h"
#include "PkMeshTriangle.h"
#include "mesh/MeshFields.h"
#include "mesh/MeshTopology.h"

struct TriangleMesh {
    std::vector<PkMeshTriangle> triangles;
    std::vector<PkMeshPoint3d> vertices;
    /// Released slots, reused last released first.
    std::vector<int> freeTriangles;

    /// Slot for a new triangle: the last released slot if any, else a default one appended.
    int allocateTriangle();
    void appendTriangle(const PkMeshTriangle& t) { triangles.push_back(t); }
    void appendVertex(const PkGePoint3d& p) { vertices.emplace_back(p); }
    /// Appends the real triangle (a, b, c), counter-clockwise, and its three ghost triangles;
    /// sets the corners' triangle indices.
    void appendFirstMesh(int a, int b, int c);
    void replaceNeighbor(int x, int oldIndex, int newIndex) {
        replaceNeighborIn(triangles.data(), int(triangles.size()), x, oldIndex, newIndex);
    }
    /// Whether a-b is an edge, by turning around a (at most maxSteps triangles).
    bool isMeshEdge(int a, int b, int maxSteps) const;
    void clear();
};
