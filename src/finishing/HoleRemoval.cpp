// Output of the triangles inside the constraint boundaries. Every triangle gets a depth: the
// number of constraint crossings on the way from the outside (an edge recorded k times counts k),
// found level by level from the lowest; odd depths are inside (1: inside a boundary, 2: in a
// hole, 3: on an island in the hole, ...).
#include <algorithm>
#include <cstdint>
#include <map>

#include "mesh/LocalIndex.h"
#include "mesh/RyTriangulationImpl.h"

namespace {

/// Flat working state of one labelling: depths and crossing proposals indexed by triangle.
struct DepthLabelling {
    std::vector<int> depths;
    std::vector<int> depthStack;
    std::vector<int> proposal;  ///< level proposed across a constraint in this flood; 0 = none
    std::vector<int> proposed;  ///< triangles that received a proposal in this flood
    /// Only edges between two constraint vertices can be constraint edges: this filter spares
    /// the hash lookup for almost every edge of a large mesh. One bit per vertex, so that it
    /// stays in cache while the flood reads it in the vertices' (arbitrary) input order.
    std::vector<std::uint64_t> constraintVertex;
    bool isConstraintVertex(int v) const {
        return (constraintVertex[std::size_t(v) >> 6] >> (unsigned(v) & 63u)) & 1u;
    }
};

}  // namespace

std::vector<int> RyTriangulationImpl::labelTriangleDepths() const {
    const int n = int(triangles.size());
    DepthLabelling s;
    s.depths.assign(std::size_t(n), UnvisitedDepth);
    s.proposal.assign(std::size_t(n), 0);
    s.constraintVertex.assign((vertices.size() + 63) / 64, 0);
    for (const PkMeshEdge& e : constraintEdges) {
        for (int v : {e.EdgeIndex1(), e.EdgeIndex2()}) {
            if (v >= 0 && v < int(vertices.size())) {
                s.constraintVertex[std::size_t(v) >> 6] |= std::uint64_t(1) << (unsigned(v) & 63u);
            }
        }
    }
    auto isConstraint = [&](int a, int b, int& repeats) {
        if (a < 0 || b < 0 || a >= int(vertices.size()) || b >= int(vertices.size())) return false;
        if (!s.isConstraintVertex(a) || !s.isConstraintVertex(b)) return false;
        const PkMeshEdge e(a, b);
        if (constraintEdges.count(e) == 0) return false;
        const auto r = constraintRepeats.find(e);
        repeats = r == constraintRepeats.end() ? 0 : r->second;
        return true;
    };

    // Seed: the first ghost (or auxiliary) triangle is outside everything.
    for (int i = 0; i < n; ++i) {
        PkMeshTriangle t = triangles[std::size_t(i)];
        if (t.isGhostTri() || t.isAux()) {
            s.depthStack.push_back(i);
            break;
        }
    }

    std::map<int, std::vector<int>> pendingLevels;
    long long maxPendingLevel = 0;
    int level = 0;
    for (;;) {
        // Flood this level: everything reachable without crossing a constraint edge.
        int processed = 0;
        bool capped = false;
        while (!s.depthStack.empty()) {
            const int t = s.depthStack.back();
            s.depthStack.pop_back();
            // Reaching t without a crossing voids any proposal made to it in this flood; the
            // proposals are read after the flood, where depth <= level tells that it was reached.
            if (s.depths[std::size_t(t)] > level) s.depths[std::size_t(t)] = level;
            const PkMeshTriangle& T = triangles[std::size_t(t)];
            const int* v = triVerts(T);
            const int* nb = triNbrs(T);
            const bool proper = v[0] != v[1] && v[1] != v[2] && v[0] != v[2];
            for (int k = 0; k < 3; ++k) {
                // The edge opposite vertex k, smaller index first, and the neighbour across it
                // by the rule of getNeighborAcrossEdge (neighbour k+1 for a proper triangle).
                const int p = v[nextLocalIndex(k)];
                const int q = v[prevLocalIndex(k)];
                const int lo = p < q ? p : q;
                const int hi = p < q ? q : p;
                const int m = proper     ? nb[nextLocalIndex(k)]
                              : lo == hi ? getNeighborAcrossEdge(T, -1, -1)
                                         : getNeighborAcrossEdge(T, lo, hi);
                if (m < 0 || m >= n || s.depths[std::size_t(m)] <= level) continue;
                int repeats = 0;
                if (lo != hi && isConstraint(lo, hi, repeats)) {
                    // Levels are capped well below the int range; a crossing count that large
                    // cannot come from a real input.
                    const long long proposed = std::min<long long>((long long)level + 1 + repeats,
                                                                   (long long)UnvisitedDepth - 1);
                    if (s.proposal[std::size_t(m)] == 0) s.proposed.push_back(m);
                    s.proposal[std::size_t(m)] = int(proposed);
                } else {
                    __builtin_prefetch(&triangles[std::size_t(m)]);  // popped soon: hide the miss
                    s.depthStack.push_back(m);
                }
            }
            if (processed >= maxIterations) {
                capped = true;
                break;
            }
            ++processed;
        }

        pendingLevels.erase(level);
        for (int t : s.proposed) {
            const int d = s.proposal[std::size_t(t)];
            s.proposal[std::size_t(t)] = 0;
            if (s.depths[std::size_t(t)] <= level || capped) continue;
            maxPendingLevel = std::max<long long>(maxPendingLevel, d);
            pendingLevels[d].push_back(t);
        }
        s.proposed.clear();
        ++level;

        std::vector<int>& next = pendingLevels[level];
        std::sort(next.begin(), next.end());
        next.erase(std::unique(next.begin(), next.end()), next.end());
        s.depthStack.assign(next.begin(), next.end());
        if (s.depthStack.empty() && maxPendingLevel <= level) break;
        if (level >= UnvisitedDepth - 1) break;
    }
    return s.depths;
}

void RyTriangulationImpl::deleteOuterTrianglesAndHoles() {
    const std::vector<int> depths = labelTriangleDepths();
    const std::size_t n = triangles.size();
    if (meshTriangles.capacity() < n) meshTriangles.reserve(n);
    for (int i = 0; i < int(triangles.size()); ++i) {
        if (depths[std::size_t(i)] % 2 == 1) meshTriangles.push_back(triangles[std::size_t(i)]);
    }
}
