// The library's neighbour indices point into its working mesh, whose ghost triangles (one per
// hull edge) the finished list leaves out: output triangle k sits at working position k + g,
// with g the number of ghost slots before it, a step function of the position with one step per
// hull edge. So a neighbour index n gives the triangle across at n - g, with g guessed from the
// last offset found near n, and every guess is checked: that triangle must hold the same edge the
// other way round (a directed edge belongs to one triangle only, so a hit is exact). References
// to ghost triangles, and any the search misses, are paired afterwards by sorting their edges.
#include "MeshTopology.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

#include "Orient.h"

namespace ry {

namespace {

/// How far from the guessed offset the guesses go before the edge is left to the sort.
constexpr std::int64_t kSearch = 64;
/// Working positions are grouped in blocks of 2^kBlockBits for the guesses.
constexpr int kBlockBits = 10;

/// The half-edge a -> b of triangle t, or -1.
std::int32_t halfEdgeOf(const MeshTopology& mesh, std::int64_t t, std::int32_t a, std::int32_t b) {
    const std::int32_t* v = &mesh.triangles[3 * std::size_t(t)];
    for (int k = 0; k < 3; ++k) {
        if (v[k] == a && v[nextCorner(k)] == b) return std::int32_t(3 * t + k);
    }
    return -1;
}

/// The half-edge b -> a in the triangle at working position n, found from the offset guess
/// outwards; -1 when none is within reach. Sets offset to the one that found it.
std::int32_t searchTwin(const MeshTopology& mesh,
                        std::int64_t n,
                        std::int32_t a,
                        std::int32_t b,
                        std::int64_t& offset) {
    const std::int64_t m = std::int64_t(mesh.triangleCount());
    for (std::int64_t d = 0; d <= kSearch; ++d) {
        for (const std::int64_t g : {offset + d, offset - d}) {
            const std::int64_t t = n - g;
            if (g < 0 || t < 0 || t >= m) continue;
            const std::int32_t found = halfEdgeOf(mesh, t, b, a);
            if (found < 0) continue;
            offset = g;
            return found;
        }
    }
    return -1;
}

/// Pairs the half-edges left over by their end vertices.
void pairBySorting(MeshTopology& mesh, std::vector<std::int32_t>& left) {
    auto key = [&](std::int32_t h) {
        const std::int32_t a = mesh.origin(h), b = mesh.target(h);
        return std::pair<std::int32_t, std::int32_t>(std::min(a, b), std::max(a, b));
    };
    std::sort(
        left.begin(), left.end(), [&](std::int32_t g, std::int32_t h) { return key(g) < key(h); });
    for (std::size_t i = 0; i + 1 < left.size(); ++i) {
        if (key(left[i]) == key(left[i + 1])) {
            mesh.twin[std::size_t(left[i])] = left[i + 1];
            mesh.twin[std::size_t(left[i + 1])] = left[i];
            ++i;
        }
    }
}

}  // namespace

void buildAdjacency(MeshTopology& mesh) {
    // Half-edges are numbered in 32 bits, three a triangle: past that (some 3.6e8 points) every
    // index would be wrong. buildSurface reports the error as too many points for the indices.
    if (mesh.triangles.size() > std::size_t(std::numeric_limits<std::int32_t>::max())) {
        throw std::length_error("too many triangles for 32-bit half-edge indices");
    }
    // The twins take the place of the working indices, in half-edge order: a pair found from its
    // lower half-edge h marks the higher one with -(h + 2) (the working indices hold no value
    // below -1), which becomes h when the loop gets there.
    std::vector<std::int32_t>& link = mesh.working;
    const std::int64_t m = std::int64_t(mesh.triangleCount());
    const std::int32_t count = std::int32_t(mesh.triangles.size());
    std::vector<std::int32_t> left;
    // The offset last found in each block of working positions: the best guess there.
    const std::int32_t top = link.empty() ? 0 : *std::max_element(link.begin(), link.end());
    std::vector<std::int32_t> blockOffset(std::size_t(std::max(top, 0) >> kBlockBits) + 1, -1);
    std::int64_t offset = 0;
    const std::int32_t* corners = mesh.triangles.data();
    std::int32_t* links = link.data();
    // Which half-edges are marked, and which corner of the guessed triangle holds the twin,
    // follow no pattern a processor could predict: the loop selects with masks (all ones or
    // zero) instead of branching, and only the rare searches beyond the first guess branch. The
    // guess becomes the offset before it is checked, so that no guess waits for the load of a
    // triangle before it.
    auto pair = [&](std::int32_t h, std::int32_t a, std::int32_t b) {
        const std::int32_t n = links[h];
        const std::int32_t marked = -std::int32_t(n < -1);
        const std::int32_t none = -std::int32_t(n < 0);  // marked, or no triangle across
        const std::int32_t across = n & ~none;
        std::int32_t& known = blockOffset[std::size_t(across >> kBlockBits)];
        const std::int32_t before = known;
        const std::int64_t guess = before >= 0 ? before : offset;
        offset = (offset & std::int64_t(none)) | (guess & ~std::int64_t(none));
        known = (before & none) | (std::int32_t(guess) & ~none);
        const std::int64_t t = std::int64_t(across) - guess;
        const std::int64_t inside = t >= 0 && t < m ? t : 0;
        const std::int32_t* v = corners + 3 * inside;
        const int e0 = (v[0] == b) & (v[1] == a), e1 = (v[1] == b) & (v[2] == a),
                  e2 = (v[2] == b) & (v[0] == a);
        std::int32_t found = std::int32_t(3 * inside) + e1 + 2 * e2;
        const int hit = (e0 | e1 | e2) & int(t == inside) & ~none;
        if ((hit | marked) == 0) {
            found = n >= 0 ? searchTwin(mesh, n, a, b, offset) : -1;
            known = found >= 0 ? std::int32_t(offset) : before;
            if (found < 0) left.push_back(h);
        }
        const std::int32_t result = (-(n + 2) & marked) | (found & ~marked);
        links[h] = result;
        // Marks the twin ahead, or pairs it behind (one the search missed); a marked or unpaired
        // h writes its own result again.
        const std::int32_t pairs = -std::int32_t(found >= 0) & ~marked;
        const std::int32_t ahead = -std::int32_t(found > h);
        const std::int32_t mark = (-(h + 2) & ahead) | (h & ~ahead);
        links[(found & pairs) | (h & ~pairs)] = (mark & pairs) | (result & ~pairs);
    };
    for (std::int32_t h = 0; h < count; h += 3) {
        const std::int32_t* v = corners + h;
        pair(h, v[0], v[1]);
        pair(h + 1, v[1], v[2]);
        pair(h + 2, v[2], v[0]);
    }
    mesh.twin = std::move(link);
    link = std::vector<std::int32_t>();
    pairBySorting(mesh, left);
}

void findVertexEdges(MeshTopology& mesh) {
    mesh.vertexEdge.assign(mesh.xyz.size() / 3, -1);
    for (std::size_t h = 0; h < mesh.triangles.size(); ++h) {
        mesh.vertexEdge[std::size_t(mesh.triangles[h])] = std::int32_t(h);
    }
}

// A walk towards p that tries the edges in turn from a rotating start (so it cannot cycle for
// long), then a scan of every triangle should it not arrive.
std::int32_t locateTriangle(const MeshTopology& mesh, const double* p, std::int32_t start) {
    const std::size_t m = mesh.triangleCount();
    if (m == 0) return -1;
    std::int32_t t = start >= 0 && std::size_t(start) < m ? start : 0;
    for (std::size_t steps = 0; steps < 4 * m + 16; ++steps) {
        std::int32_t exit = -1;
        for (int j = 0; j < 3 && exit < 0; ++j) {
            const std::int32_t h = 3 * t + std::int32_t((steps + std::size_t(j)) % 3);
            if (orientSign(mesh.xy(mesh.origin(h)), mesh.xy(mesh.target(h)), p) < 0) exit = h;
        }
        if (exit < 0) return t;
        if (mesh.twin[std::size_t(exit)] < 0) return -1;
        t = mesh.twin[std::size_t(exit)] / 3;
    }
    for (std::size_t s = 0; s < m; ++s) {
        const std::int32_t* v = &mesh.triangles[3 * s];
        if (orientSign(mesh.xy(v[0]), mesh.xy(v[1]), p) >= 0 &&
            orientSign(mesh.xy(v[1]), mesh.xy(v[2]), p) >= 0 &&
            orientSign(mesh.xy(v[2]), mesh.xy(v[0]), p) >= 0) {
            return std::int32_t(s);
        }
    }
    return -1;
}

}  // namespace ry
