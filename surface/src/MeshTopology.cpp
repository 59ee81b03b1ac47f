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

void buildAdjacency(MeshTopology& mesh, const std::vector<std::int32_t>& working) {
    // Half-edges are numbered in 32 bits, three a triangle: past that (some 3.6e8 points) every
    // index would be wrong. buildSurface reports the error as too many points for the indices.
    if (mesh.triangles.size() > std::size_t(std::numeric_limits<std::int32_t>::max())) {
        throw std::length_error("too many triangles for 32-bit half-edge indices");
    }
    const std::int64_t m = std::int64_t(mesh.triangleCount());
    mesh.twin.assign(mesh.triangles.size(), -1);
    std::vector<std::int32_t> left;
    // The offset last found in each block of working positions: the best guess there.
    const std::int32_t top =
        working.empty() ? 0 : *std::max_element(working.begin(), working.end());
    std::vector<std::int32_t> blockOffset(std::size_t(top >> kBlockBits) + 1, -1);
    std::int64_t offset = 0;
    for (std::int32_t h = 0; h < std::int32_t(mesh.triangles.size()); ++h) {
        if (mesh.twin[std::size_t(h)] >= 0) continue;
        const std::int32_t a = mesh.origin(h), b = mesh.target(h);
        const std::int64_t n = working[std::size_t(h)];
        std::int32_t found = -1;
        if (n >= 0 && blockOffset[std::size_t(n >> kBlockBits)] >= 0) {
            offset = blockOffset[std::size_t(n >> kBlockBits)];
        }
        for (std::int64_t d = 0; d <= kSearch && found < 0 && n >= 0; ++d) {
            for (const std::int64_t g : {offset + d, offset - d}) {
                const std::int64_t t = n - g;
                if (g < 0 || t < 0 || t >= m || (found = halfEdgeOf(mesh, t, b, a)) < 0) continue;
                offset = g;
                blockOffset[std::size_t(n >> kBlockBits)] = std::int32_t(g);
                break;
            }
        }
        if (found < 0) {
            left.push_back(h);
            continue;
        }
        mesh.twin[std::size_t(h)] = found;
        mesh.twin[std::size_t(found)] = h;
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
