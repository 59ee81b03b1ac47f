// The library forces a segment p-q in as a chain of mesh edges: through the vertices that lie
// exactly on it (with the determinant band 0), through vertices it makes where it crosses an
// earlier constraint (at the rounded crossing, so within rounding of the line), and rarely
// through an end of the crossed constraint when the crossing rounds onto it. The walk below
// follows that chain from p: at each vertex it takes the mesh edge to q if there is one, else
// the neighbour ahead that lies exactly on the rest of the segment or was made at a crossing
// (nearest first), else the one nearest the line within rounding reach. Nothing else can carry
// the chain, so when no neighbour qualifies the segment is not in the mesh.
#include "ConstraintTrace.h"

#include <algorithm>
#include <cmath>

#include "Orient.h"

namespace ry {

namespace {

/// How far from the line (relative to the coordinates' size) a chain vertex may lie: far beyond
/// the rounding of crossings and of their snapping to an end, far below anything visible.
constexpr double kReach = 0x1p-30;

struct SegmentWalk {
    const MeshTopology& mesh;
    std::int32_t firstCreated;
    std::int32_t p, q;
    const double* P;
    const double* Q;
    double dx, dy, end, reach;

    SegmentWalk(const MeshTopology& m, std::int32_t created, std::int32_t from, std::int32_t to)
        : mesh(m), firstCreated(created), p(from), q(to), P(m.xy(from)), Q(m.xy(to)) {
        dx = Q[0] - P[0];
        dy = Q[1] - P[1];
        end = dx * dx + dy * dy;
        const double size = std::max(
            {std::fabs(P[0]), std::fabs(P[1]), std::fabs(Q[0]), std::fabs(Q[1]), std::sqrt(end)});
        reach = kReach * size * std::sqrt(end);  // in units of the orientation determinant
    }

    double along(std::int32_t v) const {
        const double* V = mesh.xy(v);
        return (V[0] - P[0]) * dx + (V[1] - P[1]) * dy;
    }

    /// Rank of x as the next chain vertex after v (lower is better), or 9 when it cannot be.
    int rank(std::int32_t v, std::int32_t x, double at) const {
        if (x == q) return 0;
        const double t = along(x);
        if (!(t > at && t < end)) return 9;
        const double* X = mesh.xy(x);
        if (orientSign(mesh.xy(v), Q, X) == 0 || orientSign(P, Q, X) == 0) return 1;
        if (!(std::fabs(orientValue(P, Q, X)) <= reach)) return 9;
        return x >= firstCreated ? 1 : 2;
    }

    /// The mesh edge from v that continues the chain (a half-edge of it, and its other end),
    /// or {-1, -1}.
    std::pair<std::int32_t, std::int32_t> next(std::int32_t v, double at) const {
        std::pair<std::int32_t, std::int32_t> best{-1, -1};
        int bestRank = 9;
        double bestAt = 0.0;
        auto consider = [&](std::int32_t h, std::int32_t x) {
            const int r = rank(v, x, at);
            const double t = along(x);
            if (r < bestRank || (r == bestRank && t < bestAt)) {
                best = {h, x};
                bestRank = r;
                bestAt = t;
            }
            return r == 0;
        };
        mesh.forEachNeighbour(v, consider);
        return bestRank < 9 ? best : std::pair<std::int32_t, std::int32_t>{-1, -1};
    }

    /// Appends the chain's edges (a half-edge each, and the vertex it is walked from); false
    /// when it breaks off.
    bool run(std::vector<std::pair<std::int32_t, std::int32_t>>& chain) const {
        std::int32_t v = p;
        double at = 0.0;
        const std::size_t limit = mesh.vertexEdge.size();  // every step reaches a new vertex
        for (std::size_t steps = 0; v != q; ++steps) {
            const auto step =
                steps < limit ? next(v, at) : std::pair<std::int32_t, std::int32_t>{-1, -1};
            if (step.first < 0) return false;
            chain.emplace_back(step.first, v);
            v = step.second;
            at = along(v);
        }
        return true;
    }
};

}  // namespace

TracedLines traceLines(const MeshTopology& mesh,
                       const LineChains& lines,
                       std::int32_t firstCreated) {
    TracedLines traced;
    const std::size_t created = mesh.xyz.size() / 3 - std::size_t(firstCreated);
    traced.heightSum.assign(created, 0.0);
    traced.heightCount.assign(created, 0);
    std::vector<std::pair<std::int32_t, std::int32_t>> chain;
    for (std::size_t line = 0; line < lines.size(); ++line) {
        const std::size_t first = lines.start[line], last = lines.start[line + 1];
        const std::size_t count = last - first;
        const std::size_t segments = lines.closed[line] && count >= 3 ? count : count - 1;
        for (std::size_t s = 0; count >= 2 && s < segments; ++s) {
            const std::int32_t a = lines.chain[first + s];
            const std::int32_t b = lines.chain[s + 1 < count ? first + s + 1 : first];
            const SegmentWalk walk(mesh, firstCreated, a, b);
            chain.clear();
            if (!walk.run(chain)) {
                traced.missing.push_back({std::int32_t(line), a, b});
                continue;
            }
            const double za = mesh.xyz[3 * std::size_t(a) + 2];
            const double zb = mesh.xyz[3 * std::size_t(b) + 2];
            for (const auto& [h, from] : chain) {
                traced.pieceEdge.push_back(h);
                traced.pieceFrom.push_back(from);
                traced.pieceLine.push_back(std::int32_t(line));
                const std::int32_t x = mesh.origin(h) == from ? mesh.target(h) : mesh.origin(h);
                if (x < firstCreated || walk.end <= 0.0) continue;
                const double t = std::clamp(walk.along(x) / walk.end, 0.0, 1.0);
                traced.heightSum[std::size_t(x - firstCreated)] += za + (zb - za) * t;
                ++traced.heightCount[std::size_t(x - firstCreated)];
            }
        }
    }
    return traced;
}

}  // namespace ry
