// The library's neighbour indices point into its working mesh, whose ghost triangles (one per
// hull edge) the finished list leaves out: output triangle k sits at working position k + g,
// with g the number of ghost slots before it, a step function of the position with one step per
// hull edge. So a neighbour index n gives the triangle across at n - g, with g guessed from the
// last offset found near n, and every guess is checked: that triangle must hold the same edge the
// other way round (a directed edge belongs to one triangle only, so a hit is exact).
//
// Every half-edge looks for its own twin (so each pair is found twice): the searches then
// neither wait for nor write to one another. A hull edge's search always fails (the triangle
// across is a ghost); when the failures are not just those, some search missed a real triangle
// whose own search may have found its twin, and a pass over the pairs makes them mutual. Those
// missed from both sides are paired by sorting their edges.
#include "MeshTopology.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

#include "Orient.h"

namespace ry {

namespace {

/// How far from the guessed offset the guesses go before the edge is left to the sort.
constexpr std::int64_t kSearch = 64;
/// Working positions are grouped in blocks of 2^kBlockBits for the guesses: a block's offsets
/// then differ by less than kSearch.
constexpr int kBlockBits = 6;
/// How many blocks below an unseen one are looked at for its first guess.
constexpr std::int32_t kBlocksBelow = 64;

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

/// The guess for working position n in a block not seen yet: the offset of the nearest block
/// below that has one (the offset only grows with the position), else the last one found.
std::int32_t firstGuess(const std::vector<std::int32_t>& blockOffset,
                        std::int32_t n,
                        std::int64_t offset) {
    const std::int32_t block = n >> kBlockBits;
    for (std::int32_t j = block - 1; j >= 0 && j >= block - kBlocksBelow; --j) {
        if (blockOffset[std::size_t(j)] >= 0) return blockOffset[std::size_t(j)];
    }
    return std::int32_t(offset);
}

/// Replaces each half-edge's working index in `links` by its twin, or by -1 where the search
/// fails (those go to `left`). `top`: the highest working index. Returns how many vertices the
/// triangles use.
std::int64_t findTwins(const MeshTopology& mesh,
                       std::vector<std::int32_t>& links,
                       std::int32_t top,
                       std::vector<std::int32_t>& left) {
    const std::int32_t m = std::int32_t(mesh.triangleCount());
    const std::int32_t count = std::int32_t(mesh.triangles.size());
    const std::int32_t* corners = mesh.triangles.data();
    // The offset last found in each block of working positions: the best guess there.
    std::vector<std::int32_t> blockOffset(std::size_t(top >> kBlockBits) + 1, -1);
    std::int64_t offset = 0;
    std::vector<char> used(mesh.xyz.size() / 3, 0);
    for (std::int32_t h0 = 0; h0 < count; h0 += 3) {
        const std::int32_t* c = corners + h0;
        for (int k = 0; k < 3; ++k) {
            const std::int32_t h = h0 + k, a = c[k], b = c[nextCorner(k)];
            if (std::size_t(a) >= used.size()) used.resize(std::size_t(a) + 1, 0);
            used[std::size_t(a)] = 1;
            const std::int32_t n = links[std::size_t(h)];
            if (n < 0) {
                links[std::size_t(h)] = -1;
                left.push_back(h);
                continue;
            }
            std::int32_t& known = blockOffset[std::size_t(n >> kBlockBits)];
            const std::int32_t before = known;
            const std::int32_t guess = before >= 0 ? before : firstGuess(blockOffset, n, offset);
            offset = known = guess;
            // The first guess, checked without branches: which corner holds the twin follows
            // no pattern a processor could predict.
            const std::int32_t t = n - guess;
            const std::int32_t inside = std::uint32_t(t) < std::uint32_t(m) ? t : 0;
            const std::int32_t* v = corners + 3 * std::size_t(inside);
            const int e0 = (v[0] == b) & (v[1] == a), e1 = (v[1] == b) & (v[2] == a),
                      e2 = (v[2] == b) & (v[0] == a);
            std::int32_t found = 3 * inside + e1 + 2 * e2;
            if (((e0 | e1 | e2) & int(t == inside)) == 0) {
                found = searchTwin(mesh, n, a, b, offset);
                known = found >= 0 ? std::int32_t(offset) : before;
                if (found < 0) left.push_back(h);
            }
            links[std::size_t(h)] = found;
        }
    }
    return std::count(used.begin(), used.end(), 1);
}

}  // namespace

void buildAdjacency(MeshTopology& mesh) {
    // Half-edges are numbered in 32 bits, three a triangle: past that (some 3.6e8 points) every
    // index would be wrong. buildSurface reports the error as too many points for the indices.
    if (mesh.triangles.size() > std::size_t(std::numeric_limits<std::int32_t>::max())) {
        throw std::length_error("too many triangles for 32-bit half-edge indices");
    }
    const std::vector<std::int32_t>& working = mesh.working;
    const std::int32_t top =
        std::max(working.empty() ? 0 : *std::max_element(working.begin(), working.end()), 0);
    std::vector<std::int32_t> left;
    // The twins take the place of the working indices.
    const std::int64_t vertices = findTwins(mesh, mesh.working, top, left);
    mesh.twin = std::move(mesh.working);
    mesh.working = std::vector<std::int32_t>();
    // The triangles cover the hull of their vertices, a disk: with V vertices in use and m
    // triangles it has 2V - m - 2 hull edges (Euler). Every hull edge's search fails, so the
    // failed searches are the hull edges exactly when there are that many; else some search
    // missed a real twin, and the pairs are made mutual.
    const std::int64_t hullEdges = 2 * vertices - std::int64_t(mesh.triangleCount()) - 2;
    if (std::int64_t(left.size()) != hullEdges) {
        for (std::size_t h = 0; h < mesh.twin.size(); ++h) {
            const std::int32_t across = mesh.twin[h];
            if (across >= 0 && mesh.twin[std::size_t(across)] < 0) {
                mesh.twin[std::size_t(across)] = std::int32_t(h);
            }
        }
    }
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
