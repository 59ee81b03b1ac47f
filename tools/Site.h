// The data that flows through rytri: an input site and the finished mesh.
#pragma once

#include <string>
#include <vector>

#include "PkMeshEdge.h"
#include "RyGeometry.h"

namespace rytri {

/// Points (x, y and a height z) and constraint edges as index pairs into `points`. The
/// triangulation works on x and y; z rides along with each point.
struct Site {
    std::vector<PkGePoint3d> points;
    std::vector<PkMeshEdge> edges;
    /// Non-fatal remarks made while reading (ignored sections, skipped header...).
    std::vector<std::string> warnings;
};

/// A finished mesh in the plane of triangulation: vertex coordinates (u, v, h) where u, v are
/// the triangulated plane and h the remaining coordinate, counter-clockwise triangles as vertex
/// triples, and the constraint edges that were given.
struct Mesh {
    std::vector<PkGePoint3d> vertices;
    std::vector<int> triangles;  ///< 3 entries per triangle
    std::vector<PkMeshEdge> edges;
    /// Triangles that the finishing step left out (outside or in holes); drawn as outlines only.
    std::vector<int> removedTriangles;
    /// 0: (u, v, h) = (x, y, z); 1: (x, z, y); 2: (y, z, x). Used to write 3D coordinates back.
    int plane = 0;

    std::size_t triangleCount() const { return triangles.size() / 3; }
};

}  // namespace rytri
