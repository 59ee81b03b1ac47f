// The first mesh: a counter-clockwise triple drawn with rand, closed by three ghost triangles.
#include <cstdlib>
#include <utility>

#include "delaunay/Delaunay.h"

bool createFirstTriangle(TriangleMesh& mesh,
                         double band,
                         int maxIterations,
                         std::vector<int>& order) {
    const std::vector<PkMeshPoint3d>& vertices = mesh.vertices;
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
        if (!drawFirstTriangle(mesh, band, maxIterations, corners)) return false;
        for (int k = 0; k < 3; ++k) {
            for (int p = 0; p < n; ++p) {
                if (order[std::size_t(p)] == corners[k]) {
                    std::swap(order[std::size_t(k)], order[std::size_t(p)]);
                    break;
                }
            }
        }
    }
    mesh.appendFirstMesh(corners[0], corners[1], corners[2]);
    return true;
}

bool drawFirstTriangle(const TriangleMesh& mesh, double band, int maxIterations, int corners[3]) {
    const std::vector<PkMeshPoint3d>& vertices = mesh.vertices;
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
