// The triangulation as flat arrays with its own adjacency. Half-edge h = 3t + k of triangle t
// runs from corner k to corner k + 1 (counter-clockwise); its twin runs the other way in the
// triangle across.
//
//              c              corners a, b, c = 0, 1, 2 of triangle t
//       3t+2  / t \  3t+1     half-edges: 3t+0 a->b, 3t+1 b->c, 3t+2 c->a
//            a-----b
//             3t+0
#pragma once

#include <cstdint>
#include <vector>

namespace ry {

inline int nextCorner(int k) {
    return k == 2 ? 0 : k + 1;
}

struct MeshTopology {
    std::vector<double> xyz;              ///< x, y, z of each vertex
    std::vector<std::int32_t> triangles;  ///< three corners each, counter-clockwise
    std::vector<std::int32_t> twin;       ///< per half-edge: the opposite one, or -1 on the hull
    std::vector<std::int32_t> outStart;   ///< per vertex, with one past the end: range in outEdges
    std::vector<std::int32_t> outEdges;   ///< the half-edges leaving each vertex

    std::size_t triangleCount() const { return triangles.size() / 3; }
    const double* xy(std::int32_t v) const { return &xyz[3 * std::size_t(v)]; }
    std::int32_t origin(std::int32_t h) const { return triangles[std::size_t(h)]; }
    std::int32_t target(std::int32_t h) const {
        return triangles[std::size_t(h - h % 3 + nextCorner(h % 3))];
    }
};

/// Fills outStart, outEdges and twin from xyz and triangles.
void buildAdjacency(MeshTopology& mesh);

}  // namespace ry
