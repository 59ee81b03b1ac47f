// The triangulation calls: input checks, the vertex list, the insertion order, the first
// triangle, then one insertion per vertex; for the constrained call, the constraint edges after
// that. The one place where the plain insertion path (delaunay/) and the acceleration layer
// (accel/) meet.
#include "driver/Triangulate.h"

#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>
#include <new>
#include <system_error>
#include <thread>

#include "accel/HelperThread.h"
#include "accel/HugePages.h"
#include "accel/ShuffledAhead.h"
#include "accel/SortAhead.h"
#include "constraints/ConstraintInsertion.h"
#include "delaunay/Delaunay.h"
#include "delaunay/VertexViews.h"
#include "order/InsertionOrder.h"

namespace {

/// Vertex indices are int32 and the mesh holds about 2n triangles.
constexpr std::size_t kMaxPoints = std::size_t(1) << 30;

/// The predicates multiply up to four coordinate differences. With every non-zero coordinate's
/// magnitude within [2^-200, 2^200] those products neither overflow nor lose bits to underflow,
/// so every sign stays exact; outside it they cannot be trusted.
constexpr double kMinMagnitude = 0x1p-200;
constexpr double kMaxMagnitude = 0x1p+200;

bool usableCoordinate(double c) {
    const double m = std::fabs(c);
    return m == 0.0 || (m >= kMinMagnitude && m <= kMaxMagnitude);  // false for NaN and inf
}

/// How createFirstTriangle's three swaps rearrange a sorted order whose first three entries are
/// `front`: afterwards positions 0, 1, 2 hold the corners, and corner k, when it started beyond
/// position 2, has left `replacement[k]` in its place (NoVertex when it started in front). Worked
/// out before the positions beyond the front are known: each corner appears once in the order.
struct FrontSwaps {
    int corner[3];
    int replacement[3];
};

FrontSwaps planFrontSwaps(const int front[3], const int corners[3]) {
    // Slots 0..2 are the front positions; slot 3 + k stands for corner k's own position when it
    // lies beyond the front.
    int value[6];
    bool present[6];
    for (int k = 0; k < 3; ++k) {
        value[k] = front[k];
        present[k] = true;
        value[3 + k] = corners[k];
        present[3 + k] = corners[k] != front[0] && corners[k] != front[1] && corners[k] != front[2];
    }
    for (int k = 0; k < 3; ++k) {
        int slot = 0;
        while (!(present[slot] && value[slot] == corners[k])) ++slot;
        std::swap(value[k], value[slot]);
    }
    FrontSwaps plan;
    for (int k = 0; k < 3; ++k) {
        plan.corner[k] = corners[k];
        plan.replacement[k] = present[3 + k] ? value[3 + k] : NoVertex;
    }
    return plan;
}

// With a helper thread to spare, it populates the back half of the records' room while this
// thread fills the front half (first touches are slow on some virtual machines; see
// populatePages).
void appendVertexRecords(std::vector<PkMeshPoint3d>& vertices,
                         const std::vector<PkGePoint3d>& points) {
    std::thread helper;
    if (useHelperThread(points.size())) {
        const std::size_t half = points.size() / 2;
        const PkMeshPoint3d* back = vertices.data() + vertices.size() + half;
        const std::size_t bytes = (points.size() - half) * sizeof(PkMeshPoint3d);
        try {
            helper = std::thread([back, bytes] { populatePages(back, bytes); });
        } catch (const std::system_error&) {
            // Then this thread touches them all.
        }
    }
    for (const PkGePoint3d& p : points) vertices.emplace_back(p);
    if (helper.joinable()) helper.join();
}

/// The sorted insertions. The order is sorted into keys (vertex and position by rank), on a
/// helper thread for large inputs, and the insertions follow right behind the sort.
/// createFirstTriangle's draws do not depend on the order, so they run while the sort does; its
/// swaps are then applied to each position as it comes (FrontSwaps). Every vertex inserted,
/// every rand call and every slot are those of the plain sequence: shuffle, sort, first
/// triangle, insertions.
///
/// The insertions run on the mesh numbered by position in the order (see RankedVertexView),
/// which makes the same decisions on the same coordinates and fills the same triangle slots;
/// the numbering is mapped back to vertex indices at the end, whatever the outcome. The record
/// holds no constraint yet (the flip loop looks them up by vertex index), and every vertex was
/// just made from a point, so none is excluded.
class SortedRun {
public:
    SortedRun(RyTriangulationImpl& m, std::vector<int>&& order, SortKey* keys, bool helped)
        : m_(m),
          n_(int(order.size())),
          keys_(keys),
          triangleOf_(order.size(), NoTriangle),
          first_(m.mesh.triangles.size()),
          // The helper populates the slots the insertions will append to (room was reserved).
          sort_(std::move(order),
                m.mesh.vertices,
                keys,
                helped,
                m.mesh.triangles.data() + first_,
                (m.mesh.triangles.capacity() - first_) * sizeof(PkMeshTriangle)) {}

    /// Draws the first triangle, moves its corners to the front and numbers them by rank; false
    /// (nothing changed) when no triple was found.
    bool placeFirstTriangle() {
        int corners[3];
        if (n_ == 3) {
            // Three points: no draw, the order stays; only the orientation is chosen.
            sort_.waitFor(2);
            const int a0 = int(keys_[0].index), b0 = int(keys_[1].index);
            const bool ccw =
                classifyPointSide(keys_[2].xy, keys_[0].xy, keys_[1].xy, m_.band) == kLeft;
            corners[0] = ccw ? a0 : b0;
            corners[1] = ccw ? b0 : a0;
            corners[2] = int(keys_[2].index);
        } else {
            if (!drawFirstTriangle(m_.mesh, m_.band, m_.maxIterations, corners)) return false;
            sort_.waitFor(2);
            const int front[3] = {int(keys_[0].index), int(keys_[1].index), int(keys_[2].index)};
            plan_ = planFrontSwaps(front, corners);
            for (int k = 0; k < 3; ++k) keys_[k] = keyOf(corners[k]);
        }
        m_.mesh.appendFirstMesh(corners[0], corners[1], corners[2]);
        for (int r = 0; r < 3; ++r) {
            triangleOf_[std::size_t(r)] =
                vertexTriangle(m_.mesh.vertices[std::size_t(keys_[r].index)]);
        }
        const int rank0 = int(keys_[0].index), rank1 = int(keys_[1].index);
        renumber([&](int v) { return v == rank0 ? 0 : (v == rank1 ? 1 : 2); });
        return true;
    }

    /// Positions 3.. one by one, each walk starting from the vertex inserted just before: the
    /// locator is never consulted, and nothing after this call reads it (a new triangulation
    /// starts from an empty record), so it stays empty.
    PkTriangulationStatus insertRest() {
        const RankedVertexView view{keys_, triangleOf_.data()};
        const DelaunayContext context = m_.delaunay();
        PkTriangulationStatus status = StatusOk;
        const bool reporting = m_.progress.active();
        const int stride = ProgressReport::kVertexStride;
        try {
            for (int i = 3; i < n_ && status == StatusOk; ++i) {
                if (reporting && i % stride == 0 && !m_.progress(kProgressVertices, i, n_)) {
                    status = StatusStopped;
                    break;
                }
                sort_.waitFor(std::size_t(i));
                settle(std::size_t(i));
                settled_ = i + 1;
                status = insertVertex(context, view, i, i - 1);
            }
        } catch (...) {
            mapBack();  // an allocation failure leaves the mesh valid, in vertex indices
            throw;
        }
        mapBack();
        return status;
    }

private:
    SortKey keyOf(int v) const {
        const double* p = vertexXY(m_.mesh.vertices[std::size_t(v)]);
        return SortKey{{p[0], p[1]}, v};
    }
    /// Entry i of the final order: the sorted entry, or what a swap left in a corner's place.
    void settle(std::size_t i) {
        const int v = int(keys_[i].index);
        for (int k = 0; k < 3; ++k) {
            if (v == plan_.corner[k] && plan_.replacement[k] >= 0) {
                keys_[i] = keyOf(plan_.replacement[k]);
                return;
            }
        }
    }
    template <class Map>
    void renumber(Map map) {
        for (std::size_t t = first_; t < m_.mesh.triangles.size(); ++t) {
            int* v = triVerts(m_.mesh.triangles[t]);
            for (int k = 0; k < 3; ++k) {
                if (v[k] >= 0) v[k] = map(v[k]);
            }
        }
    }
    void mapBack() {
        sort_.waitFor(std::size_t(n_) - 1);
        for (int i = settled_; i < n_; ++i) settle(std::size_t(i));
        settled_ = n_;
        renumber([&](int r) { return int(keys_[r].index); });
        for (int r = 0; r < n_; ++r) {
            vertexTriangle(m_.mesh.vertices[std::size_t(keys_[r].index)]) =
                triangleOf_[std::size_t(r)];
        }
    }

    RyTriangulationImpl& m_;
    const int n_;
    SortKey* const keys_;
    std::vector<int> triangleOf_;
    const std::size_t first_;
    FrontSwaps plan_{{NoVertex, NoVertex, NoVertex}, {NoVertex, NoVertex, NoVertex}};
    int settled_ = 3;  ///< positions below it hold their final entry
    SortAhead sort_;   ///< last: joined first, before anything it reads goes away
};

PkTriangulationStatus insertVerticesSorted(RyTriangulationImpl& m) {
    const int n = int(m.mesh.vertices.size());
    std::vector<int> order(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) order[std::size_t(i)] = i;
    shuffleIndices(order);
    // Left uninitialised: the sort writes every key before the insertions read it.
    const std::unique_ptr<SortKey[]> keys(new SortKey[std::size_t(n)]);
    const bool helped = useHelperThread(std::size_t(n));
    SortedRun run(m, std::move(order), keys.get(), helped);
    // The helper fills the keys front to back; populate the back half meanwhile (nothing is
    // sorted before every key is made, so this thread would only wait).
    if (helped) populatePages(keys.get() + n / 2, std::size_t(n - n / 2) * sizeof(SortKey));
    if (!run.placeFirstTriangle()) return StatusLocateFailed;
    return run.insertRest();
}

PkTriangulationStatus insertVerticesShuffled(RyTriangulationImpl& m) {
    std::vector<PkMeshPoint3d>& vertices = m.mesh.vertices;
    const int n = int(vertices.size());
    std::vector<int> order(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) order[std::size_t(i)] = i;
    shuffleIndices(order);

    const std::size_t first = m.mesh.triangles.size();
    if (!createFirstTriangle(m.mesh, m.band, m.maxIterations, order)) return StatusLocateFailed;
    const int* corners = triVerts(m.mesh.triangles[first]);
    const std::vector<int> indices(corners, corners + 3);
    std::vector<PkMeshPoint3d> records;
    for (int v : indices) records.push_back(vertices[std::size_t(v)]);
    if (m.locator.isEmpty()) m.locator.build(indices, records);
    if (useHelperThread(std::size_t(n))) return insertShuffledAhead(m, order);
    return insertShuffledFrom(m.delaunay(), m.locator, m.progress, order, 3);
}

}  // namespace

PkTriangulationStatus delaunayTriangulation(RyTriangulationImpl& m,
                                            const std::vector<PkGePoint3d>& points) {
    std::vector<PkMeshPoint3d>& vertices = m.mesh.vertices;
    std::vector<PkMeshTriangle>& triangles = m.mesh.triangles;
    if (points.size() < 3) return StatusTooFewPoints;
    // A non-finite coordinate would defeat every predicate and the locator's box growth, and
    // one of extreme magnitude the predicates' exactness; refuse them before anything changes.
    // So is a count whose triangles would overflow the indices.
    if (points.size() >= kMaxPoints) return StatusFailed;
    for (const PkGePoint3d& p : points) {
        if (!usableCoordinate(p.x) || !usableCoordinate(p.y)) return StatusFailed;
    }
    if (m.used) m.reset();
    m.used = true;
    m.band = m.cdtTolerance >= 0.0 ? m.cdtTolerance : 0.0;  // NaN fails the comparison too

    const int n = int(points.size());
    if (std::size_t(n) > vertices.capacity()) vertices.reserve(std::size_t(n));
    if (2 * std::size_t(n) > triangles.capacity()) triangles.reserve(2 * std::size_t(n));
    // Advised before the first write touches them (a no-op on small inputs).
    adviseHugePages(vertices.data(), vertices.capacity() * sizeof(PkMeshPoint3d));
    adviseHugePages(triangles.data(), triangles.capacity() * sizeof(PkMeshTriangle));
    m.mesh.freeTriangles.clear();
    appendVertexRecords(vertices, points);

    const long long total = n;
    if (!m.progress(kProgressVertices, 0, total)) return StatusStopped;
    const PkTriangulationStatus status = (m.options & RyTriangulationImpl::bSpatialSort)
                                             ? insertVerticesSorted(m)
                                             : insertVerticesShuffled(m);
    if (status == StatusOk && !m.progress(kProgressVertices, total, total)) {
        return StatusStopped;
    }
    return status;
}

PkTriangulationStatus delaunayTriangulationWithConstraints(RyTriangulationImpl& m,
                                                           const std::vector<PkGePoint3d>& points,
                                                           const std::vector<PkMeshEdge>& edges) {
    const PkTriangulationStatus status = delaunayTriangulation(m, points);
    if (status != StatusOk) return status;
    const long long total = static_cast<long long>(edges.size());
    if (!m.progress(kProgressConstraints, 0, total)) return StatusStopped;
    const ConstraintContext context = m.constraintContext();
    long long done = 0;
    for (const PkMeshEdge& edge : edges) {
        const PkTriangulationStatus edgeStatus = insertConstraintEdge(context, edge);
        if (edgeStatus != StatusOk) return edgeStatus;
        if (++done % ProgressReport::kConstraintStride == 0 && done < total &&
            !m.progress(kProgressConstraints, done, total)) {
            return StatusStopped;
        }
    }
    if (!m.progress(kProgressConstraints, total, total)) return StatusStopped;
    return StatusOk;
}
