// The shuffled insertions with a helper thread answering the nearest-vertex queries ahead, scouts
// fetching each insertion's reads, and the triangles' corner positions kept beside the mesh.
#include "accel/ShuffledAhead.h"

#include <memory>
#include <new>
#include <system_error>

#include "accel/CornerVertexView.h"
#include "accel/HugePages.h"
#include "accel/InsertionScouts.h"
#include "accel/NearestAhead.h"
#include "platform/Prefetch.h"

namespace {

/// Each insertion appends two slots, in memory the helper populated: the kernel zeroed those
/// lines on the other core, and a store to one would wait there in the store buffer (and hold
/// up the next locked instruction, such as rand's) until the line came over. The insertions
/// kAppendLead positions on are owned in time.
constexpr std::size_t kAppendLead = 16;

/// The corner positions of the first mesh's four slots, [used - 4, used).
void keepFirstCorners(const RyTriangulationImpl& m,
                      const CornerVertexView& view,
                      std::size_t used) {
    for (std::size_t t = used - 4; t < used; ++t) {
        const int* v = triVerts(m.mesh.triangles[t]);
        view.setCorners(int(t),
                        v[0] >= 0 ? view.xy(v[0]) : kNoPosition,
                        v[1] >= 0 ? view.xy(v[1]) : kNoPosition,
                        v[2] >= 0 ? view.xy(v[2]) : kNoPosition);
    }
}

/// Starts the helper on a copy of the locator (three vertices), which stays as it is here until
/// the end; null when no thread is to be had.
std::unique_ptr<NearestAhead> startHelper(const RyTriangulationImpl& m,
                                          const std::vector<int>& order,
                                          const CornerVertexView& view,
                                          std::size_t used,
                                          std::size_t slots) {
    try {
        const SpareRoom room{m.mesh.triangles.data() + used,
                             (m.mesh.triangles.capacity() - used) * sizeof(PkMeshTriangle),
                             2 * sizeof(PkMeshTriangle)};
        const SpareRoom cornerRoom{
            view.corners + 6 * used, (slots - used) * 6 * sizeof(double), 2 * 6 * sizeof(double)};
        return std::make_unique<NearestAhead>(
            VertexKdTree(m.locator), order, 3, m.mesh.vertices, room, cornerRoom);
    } catch (const std::system_error&) {
        return nullptr;
    }
}

/// The loads of insertion i: the position the scouts read kLead insertions on, and the lines
/// the two slots appended kAppendLead insertions on will be written to.
RY_INLINE void fetchAhead(const RyTriangulationImpl& m,
                          const CornerVertexView& view,
                          const std::vector<int>& order,
                          int i,
                          std::size_t slots) {
    const int n = int(order.size());
    if (i + InsertionScouts::kLead < n) {
        __builtin_prefetch(
            &m.mesh.vertices[std::size_t(order[std::size_t(i + InsertionScouts::kLead)])]);
    }
    const std::size_t slot = m.mesh.triangles.size() + 2 * kAppendLead;
    if (slot + 1 < slots) {  // the last line read lies inside corners
        // A slot is 28 bytes of record and 48 of corners: these cover every line.
        prefetchLineForWrite(m.mesh.triangles.data() + slot);
        prefetchLineForWrite(view.corners + 6 * slot);
        prefetchLineForWrite(view.corners + 6 * slot + 8);
    }
}

/// Positions [i, n) with the helper's answers; i ends at the first position not inserted, and
/// `answered` false when the helper gave up there.
PkTriangulationStatus insertWithAnswers(RyTriangulationImpl& m,
                                        const CornerVertexView& view,
                                        NearestAhead& ahead,
                                        const std::vector<int>& order,
                                        std::size_t slots,
                                        int& i,
                                        bool& answered) {
    const int n = int(order.size());
    InsertionScouts scouts(ahead, view, m.mesh.triangles, order);
    const DelaunayContext context = m.delaunay();
    const bool reporting = m.progress.active();
    for (; i < n; ++i) {
        if (reporting && i % ProgressReport::kVertexStride == 0 &&
            !m.progress(kProgressVertices, i, n)) {
            return StatusStopped;
        }
        fetchAhead(m, view, order, i, slots);
        scouts.advance(std::size_t(i));
        int start = 0;
        if (!ahead.nearest(std::size_t(i), start)) {
            answered = false;
            return StatusOk;
        }
        const PkTriangulationStatus status =
            insertVertex(context, view, order[std::size_t(i)], start);
        if (status != StatusOk) return status;
    }
    return StatusOk;
}

}  // namespace

// Each insertion is insertVertexByLocator with the locator's answer taken from the helper, whose
// tree receives the same vertices in the same sequence. The locator itself is not touched until
// the end: it is then the helper's tree when every vertex went in, or gets the vertices that did
// go in (an early stop is rare and costs their insertion into the tree). The insertions keep the
// corner positions of every triangle beside the mesh (CornerVertexView).
PkTriangulationStatus insertShuffledAhead(RyTriangulationImpl& m, const std::vector<int>& order) {
    std::vector<PkMeshTriangle>& triangles = m.mesh.triangles;
    std::vector<PkMeshPoint3d>& vertices = m.mesh.vertices;
    auto plainFrom = [&](int from) {
        return insertShuffledFrom(m.delaunay(), m.locator, m.progress, order, from);
    };
    const int n = int(order.size());
    // Slots [used - 4, used) hold the first mesh; each insertion takes two more.
    const std::size_t used = triangles.size();
    const std::size_t slots = used + 2 * std::size_t(n - 3);
    if (slots > triangles.capacity()) triangles.reserve(slots);
    // Working storage only: without it the insertions run as they do on one thread.
    std::unique_ptr<double[]> corners;
    std::vector<int> triangleOf;
    try {
        corners.reset(new double[6 * slots]);
        triangleOf.resize(std::size_t(n));
    } catch (const std::bad_alloc&) {
        return plainFrom(3);
    }
    adviseHugePages(corners.get(), 6 * slots * sizeof(double));
    for (int v = 0; v < n; ++v)
        triangleOf[std::size_t(v)] = vertexTriangle(vertices[std::size_t(v)]);
    // Whatever the outcome, the records get the triangle indices back before anything else
    // reads them.
    auto copyBack = [&] {
        for (int v = 0; v < n; ++v)
            vertexTriangle(vertices[std::size_t(v)]) = triangleOf[std::size_t(v)];
    };
    const CornerVertexView view{{vertices}, corners.get(), triangleOf.data()};
    keepFirstCorners(m, view, used);
    std::unique_ptr<NearestAhead> ahead = startHelper(m, order, view, used, slots);
    if (!ahead) {
        copyBack();
        return plainFrom(3);
    }
    // The locator as the plain run would leave it after positions [3, end) went in.
    auto catchUpLocator = [&](int end) {
        for (int k = 3; k < end; ++k) m.locator.insertVertex(order[std::size_t(k)], vertices);
    };
    int i = 3;
    bool answered = true;
    PkTriangulationStatus status = StatusOk;
    try {
        status = insertWithAnswers(m, view, *ahead, order, slots, i, answered);
    } catch (...) {
        copyBack();
        ahead.reset();
        catchUpLocator(i);
        throw;
    }
    copyBack();
    if (answered && status == StatusOk && ahead->finish(m.locator)) return StatusOk;
    ahead.reset();
    catchUpLocator(i);
    if (!answered) return plainFrom(i);  // the helper gave up: go on alone
    return status;
}
