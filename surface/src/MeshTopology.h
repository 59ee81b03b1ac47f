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
    std::vector<double> xyz;               ///< x, y, z of each vertex
    std::vector<std::int32_t> triangles;   ///< three corners each, counter-clockwise
    std::vector<std::int32_t> twin;        ///< per half-edge: the opposite one, or -1 on the hull
    std::vector<std::int32_t> vertexEdge;  ///< per vertex: a half-edge leaving it, or -1
    /// Per half-edge, the library's neighbour across it (a working-mesh index), until the
    /// adjacency is built.
    std::vector<std::int32_t> working;

    std::size_t triangleCount() const { return triangles.size() / 3; }
    const double* xy(std::int32_t v) const { return &xyz[3 * std::size_t(v)]; }
    std::int32_t origin(std::int32_t h) const { return triangles[std::size_t(h)]; }
    std::int32_t next(std::int32_t h) const { return h - h % 3 + nextCorner(h % 3); }
    std::int32_t previous(std::int32_t h) const {
        return h - h % 3 + nextCorner(nextCorner(h % 3));
    }
    std::int32_t target(std::int32_t h) const { return triangles[std::size_t(next(h))]; }

    /// Calls f(h, x) for every neighbour x of v, with h a half-edge of the edge v-x: turning
    /// counter-clockwise from vertexEdge[v] across the half-edges leaving v, then, when the hull
    /// stops the turn, clockwise from it. Returns early when f returns true.
    template <class F>
    void forEachNeighbour(std::int32_t v, F&& f) const {
        const std::int32_t first = vertexEdge[std::size_t(v)];
        if (first < 0) return;
        std::int32_t h = first;
        do {
            if (f(h, target(h))) return;
            const std::int32_t in = previous(h);  // the edge back into v in this triangle
            h = twin[std::size_t(in)];
            if (h < 0) {
                if (f(in, origin(in))) return;
                break;
            }
        } while (h != first);
        if (h == first) return;
        for (h = twin[std::size_t(first)]; h >= 0 && next(h) != first;) {
            h = next(h);  // leaves v, clockwise from the last
            if (f(h, target(h))) return;
            h = twin[std::size_t(h)];
        }
    }
};

/// Fills twin from the triangles and the library's neighbour indices (`working`), which it uses
/// up: working is left empty.
void buildAdjacency(MeshTopology& mesh);

/// Fills vertexEdge (needed by forEachNeighbour).
void findVertexEdges(MeshTopology& mesh);

/// The triangle holding p (on its boundary counts), or -1 outside the hull; needs twin. The
/// walk starts at triangle `start` (a triangle near p makes it short).
std::int32_t locateTriangle(const MeshTopology& mesh, const double* p, std::int32_t start = 0);

}  // namespace ry
