// The library's neighbour indices point into its working mesh (ghost triangles included), so the
// adjacency is rebuilt here: the half-edges are bucketed by their start vertex, and the twin of
// a -> b is the half-edge b -> a in b's bucket (a vertex has six on average).
#include "MeshTopology.h"

namespace ry {

void buildAdjacency(MeshTopology& mesh) {
    const std::size_t vertices = mesh.xyz.size() / 3;
    const std::size_t halfEdges = mesh.triangles.size();
    mesh.outStart.assign(vertices + 1, 0);
    for (std::int32_t v : mesh.triangles) ++mesh.outStart[std::size_t(v) + 1];
    for (std::size_t v = 0; v < vertices; ++v) mesh.outStart[v + 1] += mesh.outStart[v];
    mesh.outEdges.resize(halfEdges);
    {
        std::vector<std::int32_t> fill(mesh.outStart.begin(), mesh.outStart.end() - 1);
        for (std::size_t h = 0; h < halfEdges; ++h) {
            mesh.outEdges[std::size_t(fill[std::size_t(mesh.triangles[h])]++)] = std::int32_t(h);
        }
    }
    mesh.twin.assign(halfEdges, -1);
    for (std::size_t h = 0; h < halfEdges; ++h) {
        if (mesh.twin[h] >= 0) continue;
        const std::int32_t a = mesh.origin(std::int32_t(h));
        const std::int32_t b = mesh.target(std::int32_t(h));
        const std::int32_t end = mesh.outStart[std::size_t(b) + 1];
        for (std::int32_t i = mesh.outStart[std::size_t(b)]; i < end; ++i) {
            const std::int32_t g = mesh.outEdges[std::size_t(i)];
            if (mesh.target(g) == a) {
                mesh.twin[h] = g;
                mesh.twin[std::size_t(g)] = std::int32_t(h);
                break;
            }
        }
    }
}

}  // namespace ry
