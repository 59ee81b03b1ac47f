// The first mesh: a counter-clockwise triple drawn with rand, closed by three ghost triangles.
#include <cstdlib>
#include <utility>

#include "state/RyTriangulationImpl.h"

bool RyTriangulationImpl::createFirstTriangle(std::vector<int>& order) {
    const int n = int(order.size());
    int corners[3];
    if (n == 3) {
        const int a0 = order[0], b0 = order[1], c0 = order[2];
        const bool ccw = classifyPointSide(vertexXY(vertices[std::size_t(c0)]),
                                           vertexXY(vertices[std::size_t(a0)]),
                                           vertexXY(vertices[std::size_t(b0)]),
                                           band) == kLeft;
        corners[0] = ccw ? a0 : b0;
        corners[1] = ccw ? b0 : a0;
        corners[2] = c0;
    } else {
        if (!drawFirstTriangle(corners)) return false;
        for (int k = 0; k < 3; ++k) {
            for (int p = 0; p < n; ++p) {
                if (order[std::size_t(p)] == corners[k]) {
                    std::swap(order[std::size_t(k)], order[std::size_t(p)]);
                    break;
                }
            }
        }
    }
    appendFirstMesh(corners[0], corners[1], corners[2]);
    return true;
}

bool RyTriangulationImpl::drawFirstTriangle(int corners[3]) {
    const int n = int(vertices.size());
    // Rejected draws are not counted as attempts; the draw cap only guards against a vertex
    // list where no three distinct usable vertices exist.
    const long long drawCap = 64LL * (long long)maxIterations + 1024;
    long long draws = 0;
    int attempts = 0;
    for (;;) {
        if (++draws > drawCap) return false;
        const int s0 = std::rand() % n;
        const int s1 = std::rand() % n;
        const int s2 = std::rand() % n;
        if (s0 == s1 || s0 == s2 || s1 == s2) continue;
        if (vertexType(vertices[std::size_t(s0)]) == PkMeshPoint3d::kExcluded ||
            vertexType(vertices[std::size_t(s1)]) == PkMeshPoint3d::kExcluded ||
            vertexType(vertices[std::size_t(s2)]) == PkMeshPoint3d::kExcluded) {
            continue;
        }
        const PointSide side = classifyPointSide(vertexXY(vertices[std::size_t(s2)]),
                                                 vertexXY(vertices[std::size_t(s0)]),
                                                 vertexXY(vertices[std::size_t(s1)]),
                                                 band);
        ++attempts;
        if (attempts > maxIterations) return false;
        if (side == kLeft) {
            corners[0] = s0;
            corners[1] = s1;
            corners[2] = s2;
            return true;
        }
    }
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
void RyTriangulationImpl::appendFirstMesh(int a, int b, int c) {
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
