// Trimming the long triangles off the border of a surface. A work list holds the triangles on
// the border; removing one puts its neighbours on the border and on the list. Each triangle is
// removed at most once and each removal adds at most three entries, so the loop ends.
#include <algorithm>
#include <cmath>

#include "Orient.h"
#include "RySurfaceProducts.h"

namespace ry {

namespace {

std::uint64_t edgeKey(std::int32_t a, std::int32_t b) {
    if (a > b) std::swap(a, b);
    return std::uint64_t(std::uint32_t(a)) << 32 | std::uint32_t(b);
}

/// The constraint edges of the surface, sorted for lookup.
std::vector<std::uint64_t> lineEdges(const Surface& s) {
    std::vector<std::uint64_t> keys(s.edgeCount());
    for (std::size_t i = 0; i < keys.size(); ++i) {
        keys[i] = edgeKey(s.edgeVertices[2 * i], s.edgeVertices[2 * i + 1]);
    }
    std::sort(keys.begin(), keys.end());
    return keys;
}

/// Whether kept triangle t may go: no edge on a constraint line, and an edge on the border
/// longer than the limit. Both only become true as neighbours go, so the outcome does not
/// depend on the order of removal.
bool removable(const Surface& s,
               const std::vector<std::uint64_t>& lines,
               std::size_t t,
               double maxEdge) {
    bool longBorder = false;
    for (std::size_t k = 0; k < 3; ++k) {
        const std::int32_t a = s.triangles[3 * t + k], b = s.triangles[3 * t + (k + 1) % 3];
        if (std::binary_search(lines.begin(), lines.end(), edgeKey(a, b))) return false;
        if (s.neighbors[3 * t + k] < 0 && !longBorder) {
            const double* p = &s.vertices[3 * std::size_t(a)];
            const double* q = &s.vertices[3 * std::size_t(b)];
            longBorder = std::hypot(q[0] - p[0], q[1] - p[1]) > maxEdge;
        }
    }
    return longBorder;
}

/// Drops the removed triangles from the kept list, renumbering the neighbours.
void compact(Surface& s, const std::vector<char>& removed) {
    std::vector<std::int32_t> newIndex(removed.size(), -1);
    std::int32_t count = 0;
    for (std::size_t t = 0; t < removed.size(); ++t) {
        if (!removed[t]) newIndex[t] = count++;
    }
    long double area = 0;
    for (std::size_t t = 0; t < removed.size(); ++t) {
        const std::int32_t* v = &s.triangles[3 * t];
        if (removed[t]) {
            s.removedTriangles.insert(s.removedTriangles.end(), v, v + 3);
            continue;
        }
        const std::size_t to = 3 * std::size_t(newIndex[t]);
        for (std::size_t k = 0; k < 3; ++k) {
            const std::int32_t n = s.neighbors[3 * t + k];
            s.triangles[to + k] = v[k];
            s.neighbors[to + k] = n < 0 ? -1 : newIndex[std::size_t(n)];
        }
        const double* a = &s.vertices[3 * std::size_t(s.triangles[to])];
        area +=
            orientValue(a, &s.vertices[3 * std::size_t(v[1])], &s.vertices[3 * std::size_t(v[2])]);
    }
    s.triangles.resize(3 * std::size_t(count));
    s.neighbors.resize(3 * std::size_t(count));
    s.keptArea = double(area / 2);
}

}  // namespace

std::size_t trimHull(Surface& s, double maxEdge) {
    if (std::isnan(maxEdge) || s.triangles.empty()) return 0;
    const std::vector<std::uint64_t> lines = lineEdges(s);
    const std::size_t m = s.triangleCount();
    std::vector<char> removed(m, 0);
    std::vector<std::size_t> work;
    for (std::size_t t = 0; t < m; ++t) {
        const std::int32_t* n = &s.neighbors[3 * t];
        if (n[0] < 0 || n[1] < 0 || n[2] < 0) work.push_back(t);
    }
    std::size_t count = 0;
    while (!work.empty()) {
        const std::size_t t = work.back();
        work.pop_back();
        if (removed[t] || !removable(s, lines, t, maxEdge)) continue;
        removed[t] = 1;
        ++count;
        for (std::size_t k = 0; k < 3; ++k) {
            const std::int32_t n = s.neighbors[3 * t + k];
            if (n < 0) continue;
            for (std::size_t j = 0; j < 3; ++j) {
                std::int32_t& back = s.neighbors[3 * std::size_t(n) + j];
                if (back == std::int32_t(t)) back = -1;
            }
            work.push_back(std::size_t(n));
        }
    }
    if (count == 0) return 0;
    compact(s, removed);
    if (s.triangles.empty()) {
        s.status = SurfaceStatus::kNothingKept;
        s.message = "no triangle is left after trimming the hull";
        s.advice = "give a larger maximum edge length";
    }
    return count;
}

}  // namespace ry
