// The triangulation call: input checks, the vertex list, the insertion order, the first triangle
// closed by three ghost triangles, then one insertion per vertex.
#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>
#include <new>
#include <system_error>
#include <thread>

#include "mesh/HelperThread.h"
#include "mesh/HugePages.h"
#include "mesh/InsertionScouts.h"
#include "mesh/LocalIndex.h"
#include "mesh/Prefetch.h"
#include "mesh/RyTriangulationImpl.h"
#include "spatial/NearestAhead.h"

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
            status = insertVertexFromPrevious(view, i, i - 1);
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

// Each insertion below is insertVertexByLocator with the locator's answer taken from the helper,
// whose tree receives the same vertices in the same sequence. The locator itself is not touched
// until the end: it is then the helper's tree when every vertex went in, or gets the vertices
// that did go in (an early stop is rare and costs their insertion into the tree). The insertions
// keep the corner positions of every triangle beside the mesh (CornerVertexView).
PkTriangulationStatus RyTriangulationImpl::insertShuffledAhead(const std::vector<int>& order) {
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
        return insertShuffledFrom(order, 3);
    }
    adviseHugePages(corners.get(), 6 * slots * sizeof(double));
    for (int v = 0; v < n; ++v)
        triangleOf[std::size_t(v)] = vertexTriangle(vertices[std::size_t(v)]);
    // Whatever the outcome, the records get the triangle indices back before anything else
    // reads them.
    auto copyBack = [&] {
        for (int v = 0; v < n; ++v) {
            vertexTriangle(vertices[std::size_t(v)]) = triangleOf[std::size_t(v)];
        }
    };
    const CornerVertexView view{{vertices}, corners.get(), triangleOf.data()};
    for (std::size_t t = used - 4; t < used; ++t) {
        const int* v = triVerts(triangles[t]);
        view.setCorners(int(t),
                        v[0] >= 0 ? view.xy(v[0]) : kNoPosition,
                        v[1] >= 0 ? view.xy(v[1]) : kNoPosition,
                        v[2] >= 0 ? view.xy(v[2]) : kNoPosition);
    }

    std::unique_ptr<NearestAhead> ahead;
    try {
        // The helper starts from a copy of the locator (three vertices), which stays as it is
        // here until the end.
        const SpareRoom room{triangles.data() + used,
                             (triangles.capacity() - used) * sizeof(PkMeshTriangle),
                             2 * sizeof(PkMeshTriangle)};
        const SpareRoom cornerRoom{
            corners.get() + 6 * used, (slots - used) * 6 * sizeof(double), 2 * 6 * sizeof(double)};
        ahead = std::make_unique<NearestAhead>(
            VertexKdTree(locator), order, 3, vertices, room, cornerRoom);
    } catch (const std::system_error&) {
        copyBack();
        return insertShuffledFrom(order, 3);  // no thread to be had
    }
    // The locator as the plain run would leave it after positions [3, end) went in.
    auto catchUpLocator = [&](int end) {
        for (int k = 3; k < end; ++k) locator.insertVertex(order[std::size_t(k)], vertices);
    };

    constexpr int kPrefetchDistance = InsertionScouts::kLead;  // the scouts read the positions
    // Each insertion appends two slots, in memory the helper populated: the kernel zeroed those
    // lines on the other core, and a store to one would wait there in the store buffer (and hold
    // up the next locked instruction, such as rand's) until the line came over. The insertions
    // kAppendLead positions on are owned in time.
    constexpr std::size_t kAppendLead = 16;
    int i = 3;
    PkTriangulationStatus status = StatusOk;
    bool answered = true;
    InsertionScouts scouts(*ahead, view, triangles, order);
    const bool reporting = progress != nullptr;
    try {
        for (; i < n; ++i) {
            if (reporting && i % kProgressStride == 0 && !reportProgress(kProgressVertices, i, n)) {
                status = StatusStopped;
                break;
            }
            if (i + kPrefetchDistance < n) {
                __builtin_prefetch(
                    &vertices[std::size_t(order[std::size_t(i + kPrefetchDistance)])]);
            }
            scouts.advance(std::size_t(i));
            const std::size_t slot = triangles.size() + 2 * kAppendLead;
            if (slot + 1 < slots) {  // the last line read lies inside corners
                // A slot is 28 bytes of record and 48 of corners: these cover every line.
                prefetchLineForWrite(triangles.data() + slot);
                prefetchLineForWrite(corners.get() + 6 * slot);
                prefetchLineForWrite(corners.get() + 6 * slot + 8);
            }
            int start = 0;
            if (!ahead->nearest(std::size_t(i), start)) {
                answered = false;
                break;
            }
            status = insertVertexNear(view, order[std::size_t(i)], start);
            if (status != StatusOk) break;
        }
    } catch (...) {
        copyBack();
        ahead.reset();
        catchUpLocator(i);
        throw;
    }
    copyBack();
    if (answered && status == StatusOk && ahead->finish(locator)) return StatusOk;
    ahead.reset();
    catchUpLocator(i);
    if (!answered) return insertShuffledFrom(order, i);  // the helper gave up: go on alone
    return status;
}

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
