// Triangulation of one side of the cavity left by a constraint edge: a chain from one end of the
// new edge to the other, all on one side of it. Each task picks the chain vertex C whose circle
// with the base edge holds no other chain vertex, writes the triangle (base, C) into its slot, and
// queues the two sub-chains on either side of C (the "pseudo-polygon" step of Anglada's and of
// Shewchuk's constrained Delaunay insertion). An explicit stack replaces recursion.
#include "constraints/ConstraintInsertion.h"
#include "mesh/LocalIndex.h"

namespace {

/// One task of the pseudo-polygon triangulation.
struct PolygonTask {
    int parentSlot;
    int parent;
    int triangle;
    int hi;
    int lo;
};

int findDelaunayVertex(const std::vector<PkMeshPoint3d>& vertices,
                       double band,
                       int lo,
                       int hi,
                       const std::vector<int>& chain) {
    int m = lo + 1;
    if (lo + 1 >= hi) return m;
    const double* A = vertexXY(vertices[std::size_t(chain[std::size_t(lo)])]);
    const double* B = vertexXY(vertices[std::size_t(chain[std::size_t(hi)])]);
    const double* C = vertexXY(vertices[std::size_t(chain[std::size_t(m)])]);
    for (int i = lo + 1; i < hi; ++i) {
        const double* P = vertexXY(vertices[std::size_t(chain[std::size_t(i)])]);
        // Only a vertex strictly inside (beyond the band) displaces the choice, so among
        // cocircular vertices the first in chain order stays.
        if (classifyInCircle(P, A, B, C, band) == kInsideCircle) {
            m = i;
            C = P;
        }
    }
    return m;
}

}  // namespace

bool triangulatePseudoPolygon(TriangleMesh& mesh,
                              double band,
                              const std::vector<int>& chain,
                              EdgeMap<int>& boundaryNeighbours,
                              int own,
                              int partner) {
    std::vector<PkMeshTriangle>& triangles = mesh.triangles;
    std::vector<PkMeshPoint3d>& vertices = mesh.vertices;
    std::vector<PolygonTask> tasks;
    tasks.push_back(PolygonTask{0, partner, own, int(chain.size()) - 1, 0});

    // Links tri's neighbour `slot` across the boundary edge (p, q): to the outside triangle, or,
    // for an edge with the region on both sides (kInteriorEdge), to whichever new triangle meets
    // it second.
    auto linkBoundary = [&](int tri, int slot, int p, int q) {
        const auto found = boundaryNeighbours.find(PkMeshEdge(p, q));
        if (found == boundaryNeighbours.end()) return false;
        if (found->second == kInteriorEdge) {
            found->second = tri;
            return true;
        }
        const int nb = found->second;
        if (nb < 0 || nb >= int(triangles.size())) return false;
        triNbrs(triangles[std::size_t(tri)])[slot] = nb;
        const int k = getLocalEdgeIndex(triangles[std::size_t(nb)], p, q);
        if (k < 0) return false;
        triNbrs(triangles[std::size_t(nb)])[k] = tri;
        return true;
    };

    while (!tasks.empty()) {
        const PolygonTask task = tasks.back();
        tasks.pop_back();
        const int m = findDelaunayVertex(vertices, band, task.lo, task.hi, chain);
        const int A = chain[std::size_t(task.lo)];
        const int B = chain[std::size_t(task.hi)];
        const int C = chain[std::size_t(m)];
        const int tri = task.triangle;

        // Side C-B first allocated and pushed, so side A-C is finished first.
        if (task.hi - m <= 1) {
            if (!linkBoundary(tri, 1, B, C)) return false;
        } else {
            const int next = mesh.allocateTriangle();
            tasks.push_back(PolygonTask{1, tri, next, task.hi, m});
        }
        if (m - task.lo <= 1) {
            if (!linkBoundary(tri, 2, C, A)) return false;
        } else {
            const int next = mesh.allocateTriangle();
            tasks.push_back(PolygonTask{2, tri, next, m, task.lo});
        }

        triNbrs(triangles[std::size_t(task.parent)])[task.parentSlot] = tri;
        PkMeshTriangle& t = triangles[std::size_t(tri)];
        triNbrs(t)[0] = task.parent;
        int* v = triVerts(t);
        v[0] = A, v[1] = B, v[2] = C;
        vertexTriangle(vertices[std::size_t(A)]) = tri;
        vertexTriangle(vertices[std::size_t(B)]) = tri;
        vertexTriangle(vertices[std::size_t(C)]) = tri;
    }
    return true;
}
