// The insertion templates for the plain views, and the entry points that take no view.
#include "delaunay/VertexInsertion.h"

PkTriangulationStatus RyTriangulationImpl::insertVertexByLocator(int vertex) {
    if (vertex < 0 || vertex > int(vertices.size()) - 1) return StatusFailed;
    int start = 0;
    locator.findNearestVertex(vertices[std::size_t(vertex)], vertices, start);

    const PkTriangulationStatus status = insertVertex(RecordVertexView{vertices}, vertex, start);
    if (status == StatusOk) locator.insertVertex(vertex, vertices);
    return status;
}

PkTriangulationStatus RyTriangulationImpl::insertShuffledFrom(const std::vector<int>& order,
                                                              int from) {
    const int n = int(order.size());
    constexpr int kPrefetchDistance = 8;  // as in the sorted mode
    const bool reporting = progress != nullptr;
    for (int i = from; i < n; ++i) {
        if (reporting && i % kProgressStride == 0 && !reportProgress(kProgressVertices, i, n)) {
            return StatusStopped;
        }
        if (i + kPrefetchDistance < n) {
            __builtin_prefetch(&vertices[std::size_t(order[std::size_t(i + kPrefetchDistance)])]);
        }
        const PkTriangulationStatus status = insertVertexByLocator(order[std::size_t(i)]);
        if (status != StatusOk) return status;
    }
    return StatusOk;
}

PkTriangulationStatus RyTriangulationImpl::insertVertexAt(CheckList& list,
                                                          int t,
                                                          int p,
                                                          PointLocation location) {
    return insertVertexAt(RecordVertexView{vertices}, list, t, p, location);
}

PkTriangulationStatus RyTriangulationImpl::legalizeAroundVertex(int p, const CheckList& list) {
    return legalizeAroundVertex(RecordVertexView{vertices}, p, list);
}

template PkTriangulationStatus RyTriangulationImpl::insertVertex(const RankedVertexView&, int, int);
