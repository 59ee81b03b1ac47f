// The insertion templates for the plain views, and the entry points that take no view.
#include "delaunay/VertexInsertion.h"

PkTriangulationStatus insertVertexByLocator(const DelaunayContext& c,
                                            VertexKdTree& locator,
                                            int vertex) {
    std::vector<PkMeshPoint3d>& vertices = c.mesh.vertices;
    if (vertex < 0 || vertex > int(vertices.size()) - 1) return StatusFailed;
    int start = 0;
    locator.findNearestVertex(vertices[std::size_t(vertex)], vertices, start);

    const PkTriangulationStatus status = insertVertex(c, RecordVertexView{vertices}, vertex, start);
    if (status == StatusOk) locator.insertVertex(vertex, vertices);
    return status;
}

PkTriangulationStatus insertShuffledFrom(const DelaunayContext& c,
                                         VertexKdTree& locator,
                                         const ProgressReport& progress,
                                         const std::vector<int>& order,
                                         int from) {
    const int n = int(order.size());
    constexpr int kPrefetchDistance = 8;  // as in the sorted mode
    const bool reporting = progress.active();
    for (int i = from; i < n; ++i) {
        if (reporting && i % ProgressReport::kVertexStride == 0 &&
            !progress(kProgressVertices, i, n)) {
            return StatusStopped;
        }
        if (i + kPrefetchDistance < n) {
            __builtin_prefetch(
                &c.mesh.vertices[std::size_t(order[std::size_t(i + kPrefetchDistance)])]);
        }
        const PkTriangulationStatus status =
            insertVertexByLocator(c, locator, order[std::size_t(i)]);
        if (status != StatusOk) return status;
    }
    return StatusOk;
}

PkTriangulationStatus insertVertexAt(
    TriangleMesh& mesh, CheckList& list, int t, int p, PointLocation location) {
    return insertVertexAt(mesh, RecordVertexView{mesh.vertices}, list, t, p, location);
}

PkTriangulationStatus legalizeAroundVertex(const DelaunayContext& c, int p, const CheckList& list) {
    return legalizeAroundVertex(c, RecordVertexView{c.mesh.vertices}, p, list);
}

template PkTriangulationStatus insertVertex(const DelaunayContext&,
                                            const RankedVertexView&,
                                            int,
                                            int);
