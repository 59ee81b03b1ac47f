// The triangulation call: input checks, the vertex list, the insertion order, the first triangle,
// then one insertion per vertex. The one place where the plain insertion path (delaunay/) and the
// acceleration layer (accel/) meet.
#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>
#include <new>
#include <system_error>
#include <thread>

#include "accel/HelperThread.h"
#include "accel/HugePages.h"
#include "accel/SortAhead.h"
#include "delaunay/VertexViews.h"
#include "order/InsertionOrder.h"
#include "state/RyTriangulationImpl.h"

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

}  // namespace

PkTriangulationStatus RyTriangulationImpl::delaunayTriangulation(
    const std::vector<PkGePoint3d>& points) {
    if (points.size() < 3) return StatusTooFewPoints;
    // A non-finite coordinate would defeat every predicate and the locator's box growth, and
    // one of extreme magnitude the predicates' exactness; refuse them before anything changes.
    // So is a count whose triangles would overflow the indices.
    if (points.size() >= kMaxPoints) return StatusFailed;
    for (const PkGePoint3d& p : points) {
        if (!usableCoordinate(p.x) || !usableCoordinate(p.y)) return StatusFailed;
    }
    if (used) reset();
    used = true;
    band = cdtTolerance >= 0.0 ? cdtTolerance : 0.0;  // NaN fails the comparison too

    const int n = int(points.size());
    if (std::size_t(n) > vertices.capacity()) vertices.reserve(std::size_t(n));
    if (2 * std::size_t(n) > triangles.capacity()) triangles.reserve(2 * std::size_t(n));
    // Advised before the first write touches them (a no-op on small inputs).
    adviseHugePages(vertices.data(), vertices.capacity() * sizeof(PkMeshPoint3d));
    adviseHugePages(triangles.data(), triangles.capacity() * sizeof(PkMeshTriangle));
    freeTriangles.clear();
    appendVertexRecords(points);

    const long long total = n;
    if (!reportProgress(kProgressVertices, 0, total)) return StatusStopped;
    const PkTriangulationStatus status =
        (options & bSpatialSort) ? insertVerticesSorted() : insertVerticesShuffled();
    if (status == StatusOk && !reportProgress(kProgressVertices, total, total)) {
        return StatusStopped;
    }
    return status;
}

namespace {

/// How createFirstTriangle's three swaps rearrange a sorted order whose first three entries are
/// `front`: afterwards positions 0, 1, 2 hold the corners, and corner k, when it started beyond
/// position 2, has left `replacement[k]` in its place (-1 when it started in front). Worked out
/// before the positions beyond the front are known: each corner appears once in the order.
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
        plan.replacement[k] = present[3 + k] ? value[3 + k] : -1;
    }
    return plan;
}

}  // namespace

// With a helper thread to spare, it populates the back half of the records' room while this
// thread fills the front half (first touches are slow on some virtual machines; see
// populatePages).
void RyTriangulationImpl::appendVertexRecords(const std::vector<PkGePoint3d>& points) {
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

// The order is sorted into keys (vertex and position by rank), on a helper thread for large
// inputs, and the insertions follow right behind the sort. createFirstTriangle's draws do not
// depend on the order, so they run while the sort does; its swaps are then applied to each
// position as it comes (FrontSwaps). Every vertex inserted, every rand call and every slot are
// those of the plain sequence: shuffle, sort, first triangle, insertions.
PkTriangulationStatus RyTriangulationImpl::insertVerticesSorted() {
    const int n = int(vertices.size());
    std::vector<int> order(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) order[std::size_t(i)] = i;
    shuffleIndices(order);
    // Left uninitialised: the sort writes every key before the insertions read it.
    const std::unique_ptr<SortKey[]> keys(new SortKey[std::size_t(n)]);
    std::vector<int> triangleOf(std::size_t(n), -1);
    // The slots the insertions will append to (room for them was reserved).
    const std::size_t used = triangles.size();
    const bool helped = useHelperThread(std::size_t(n));
    SortAhead sort(std::move(order),
                   vertices,
                   keys.get(),
                   helped,
                   triangles.data() + used,
                   (triangles.capacity() - used) * sizeof(PkMeshTriangle));
    // The helper fills the keys front to back; populate the back half meanwhile (nothing is
    // sorted before every key is made, so this thread would only wait).
    if (helped) populatePages(keys.get() + n / 2, std::size_t(n - n / 2) * sizeof(SortKey));

    auto keyOf = [&](int v) {
        const double* p = vertexXY(vertices[std::size_t(v)]);
        return SortKey{{p[0], p[1]}, v};
    };
    int corners[3];
    FrontSwaps plan{{-1, -1, -1}, {-1, -1, -1}};
    if (n == 3) {
        // Three points: no draw, the order stays; only the triangle's orientation is chosen.
        sort.waitFor(2);
        const int a0 = int(keys[0].index), b0 = int(keys[1].index), c0 = int(keys[2].index);
        const bool ccw = classifyPointSide(keys[2].xy, keys[0].xy, keys[1].xy, band) == kLeft;
        corners[0] = ccw ? a0 : b0;
        corners[1] = ccw ? b0 : a0;
        corners[2] = c0;
    } else {
        if (!drawFirstTriangle(corners)) return StatusLocateFailed;
        sort.waitFor(2);
        const int front[3] = {int(keys[0].index), int(keys[1].index), int(keys[2].index)};
        plan = planFrontSwaps(front, corners);
        for (int k = 0; k < 3; ++k) keys[std::size_t(k)] = keyOf(corners[k]);
    }
    // Entry i of the final order: the sorted entry, or what a swap left in a corner's place.
    auto settle = [&](std::size_t i) {
        const int v = int(keys[i].index);
        for (int k = 0; k < 3; ++k) {
            if (v == plan.corner[k] && plan.replacement[k] >= 0) {
                keys[i] = keyOf(plan.replacement[k]);
                return;
            }
        }
    };
    const std::size_t first = triangles.size();
    appendFirstMesh(corners[0], corners[1], corners[2]);

    // Each walk starts from the vertex inserted just before, so the locator is never consulted
    // in this mode, and nothing after this call reads it (a new triangulation starts from an
    // empty record). Filling it would cost a tree descent and bucket space per vertex for
    // nothing, so it stays empty.
    //
    // The insertions run on the mesh numbered by position in the order (see RankedVertexView),
    // which makes the same decisions on the same coordinates and fills the same triangle slots;
    // the numbering is mapped back to vertex indices at the end, whatever the outcome. The
    // record holds no constraint yet (the flip loop looks them up by vertex index), and every
    // vertex was just made from a point, so none is excluded.
    for (int r = 0; r < 3; ++r) {
        triangleOf[std::size_t(r)] =
            vertexTriangle(vertices[std::size_t(keys[std::size_t(r)].index)]);
    }
    auto renumber = [&](auto map) {
        for (std::size_t t = first; t < triangles.size(); ++t) {
            int* v = triVerts(triangles[t]);
            for (int k = 0; k < 3; ++k) {
                if (v[k] >= 0) v[k] = map(v[k]);
            }
        }
    };
    const int rank0 = int(keys[0].index), rank1 = int(keys[1].index);
    renumber([&](int v) { return v == rank0 ? 0 : (v == rank1 ? 1 : 2); });

    int settled = 3;  // positions below it hold their final entry
    auto mapBack = [&] {
        sort.waitFor(std::size_t(n) - 1);
        for (int i = settled; i < n; ++i) settle(std::size_t(i));
        settled = n;
        renumber([&](int r) { return int(keys[std::size_t(r)].index); });
        for (int r = 0; r < n; ++r) {
            vertexTriangle(vertices[std::size_t(keys[std::size_t(r)].index)]) =
                triangleOf[std::size_t(r)];
        }
    };
    const RankedVertexView view{keys.get(), triangleOf.data()};
    PkTriangulationStatus status = StatusOk;
    const bool reporting = progress != nullptr;
    try {
        for (int i = 3; i < n && status == StatusOk; ++i) {
            if (reporting && i % kProgressStride == 0 && !reportProgress(kProgressVertices, i, n)) {
                status = StatusStopped;
                break;
            }
            sort.waitFor(std::size_t(i));
            settle(std::size_t(i));
            settled = i + 1;
            status = insertVertex(view, i, i - 1);
        }
    } catch (...) {
        mapBack();  // an allocation failure leaves the mesh valid, in vertex indices
        throw;
    }
    mapBack();
    return status;
}

PkTriangulationStatus RyTriangulationImpl::insertVerticesShuffled() {
    const int n = int(vertices.size());
    std::vector<int> order(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) order[std::size_t(i)] = i;
    shuffleIndices(order);

    const std::size_t first = triangles.size();
    if (!createFirstTriangle(order)) return StatusLocateFailed;
    const int* corners = triVerts(triangles[first]);
    const std::vector<int> indices(corners, corners + 3);
    std::vector<PkMeshPoint3d> records;
    for (int v : indices) records.push_back(vertices[std::size_t(v)]);
    if (locator.isEmpty()) locator.build(indices, records);
    if (useHelperThread(std::size_t(n))) return insertShuffledAhead(order);
    return insertShuffledFrom(order, 3);
}
