// Output of the triangles inside the constraint boundaries. Every triangle gets a depth: the
// number of constraint crossings on the way from the outside (an edge recorded k times counts k),
// found level by level from the lowest; odd depths are inside (1: inside a boundary, 2: in a
// hole, 3: on an island in the hole, ...).
#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>

#include "finishing/Finishing.h"
#include "mesh/LocalIndex.h"

namespace {

/// One triangle as the flood reads it when popping it, 16 bytes: the neighbour across the edge
/// opposite each vertex (by the rule of the flood), with bit 31 set when that edge joins two
/// distinct constraint vertices (only those can be constraint edges), or kNoCell; and the depth.
/// Checking a neighbour's depth brings in what popping it reads, and the cells are about half
/// the size of the triangle records the flood would otherwise wander through.
struct FloodCell {
    int across[3];
    int depth;
};
constexpr int kNoCell = -1;
constexpr unsigned kCandidateBit = 0x80000000u;

/// The cells of one labelling, indexed by triangle. Allocated without zero-filling: the build
/// pass writes every cell before anything reads it.
struct FloodCells {
    std::unique_ptr<FloodCell[]> cells;
    std::size_t size = 0;
    const FloodCell& operator[](std::size_t i) const { return cells[i]; }
};

/// Working state of one labelling. While a triangle has not been reached its depth is
/// UnvisitedDepth, or, after a crossing into it was found in the current flood, the level
/// proposed there (above the current level, so the flood's tests read it as not reached). The
/// proposals are moved out and the depth reset when the flood ends.
struct DepthLabelling {
    FloodCells cells;
    std::vector<int> depthStack;
    std::vector<int> proposed;  ///< triangles that received a proposal in this flood
    std::map<int, std::vector<int>> pendingLevels;  ///< by level: triangles first reached there
    long long maxPendingLevel = 0;
};

/// The depth of a triangle not reached yet: above every level.
constexpr int UnvisitedDepth = 2147483647;

/// One bit per vertex: an endpoint of some constraint edge. Small enough to stay in cache while
/// it is read in the vertices' (arbitrary) input order.
class ConstraintVertices {
public:
    ConstraintVertices(const EdgeSet& edges, int vertexCount)
        : bits_((std::size_t(vertexCount) + 63) / 64, 0), count_(vertexCount) {
        for (const PkMeshEdge& e : edges) {
            for (int v : {e.EdgeIndex1(), e.EdgeIndex2()}) {
                if (v >= 0 && v < vertexCount) {
                    bits_[std::size_t(v) >> 6] |= std::uint64_t(1) << (unsigned(v) & 63u);
                }
            }
        }
    }
    bool operator()(int v) const {
        return unsigned(v) < unsigned(count_) &&
               ((bits_[std::size_t(v) >> 6] >> (unsigned(v) & 63u)) & 1u) != 0;
    }

private:
    std::vector<std::uint64_t> bits_;
    int count_;
};

/// The flood's view of every triangle, in one sequential pass.
FloodCells buildCells(const TriangleMesh& mesh, const ConstraintRecords& records) {
    const int n = int(mesh.triangles.size());
    const ConstraintVertices isConstraintVertex(records.edges, int(mesh.vertices.size()));
    // The cell entry for neighbour m across an edge, a candidate when both its ends are
    // constraint vertices.
    auto acrossEntry = [n](int m, bool candidate) {
        if (unsigned(m) >= unsigned(n)) return kNoCell;
        return candidate ? int(unsigned(m) | kCandidateBit) : m;
    };
    FloodCells cells;
    cells.cells.reset(new FloodCell[std::size_t(n)]);
    cells.size = std::size_t(n);
    for (int i = 0; i < n; ++i) {
        const PkMeshTriangle& T = mesh.triangles[std::size_t(i)];
        const int* v = triVerts(T);
        const int* nb = triNbrs(T);
        FloodCell& c = cells.cells[std::size_t(i)];
        c.depth = UnvisitedDepth;
        if (v[0] != v[1] && v[1] != v[2] && v[0] != v[2]) {
            // Proper triangle: the edge opposite vertex k joins vertices k+1 and k+2 (distinct)
            // and its neighbour is neighbour k+1. One bit lookup per vertex serves two edges.
            const bool f0 = isConstraintVertex(v[0]);
            const bool f1 = isConstraintVertex(v[1]);
            const bool f2 = isConstraintVertex(v[2]);
            c.across[0] = acrossEntry(nb[1], f1 && f2);
            c.across[1] = acrossEntry(nb[2], f2 && f0);
            c.across[2] = acrossEntry(nb[0], f0 && f1);
            continue;
        }
        for (int k = 0; k < 3; ++k) {
            // A repeated corner: the edge opposite vertex k and the neighbour across it by the
            // rule of getNeighborAcrossEdge.
            const int p = v[nextLocalIndex(k)];
            const int q = v[prevLocalIndex(k)];
            const int lo = p < q ? p : q;
            const int hi = p < q ? q : p;
            const int m = lo == hi ? getNeighborAcrossEdge(T, NoVertex, NoVertex)
                                   : getNeighborAcrossEdge(T, lo, hi);
            c.across[k] =
                acrossEntry(m, lo != hi && isConstraintVertex(lo) && isConstraintVertex(hi));
        }
    }
    return cells;
}

/// Floods `level` from the stack: everything reachable without crossing a constraint edge.
/// A crossing proposes a deeper level to the triangle beyond it. True when the flood stopped
/// at the iteration limit.
bool floodLevel(const TriangleMesh& mesh,
                const ConstraintRecords& records,
                int maxIterations,
                DepthLabelling& s,
                int level) {
    FloodCell* const cells = s.cells.cells.get();
    auto isConstraint = [&](int a, int b, int& repeats) {
        const PkMeshEdge e(a, b);
        if (!records.contains(e)) return false;
        const auto r = records.repeats.find(e);
        repeats = r == records.repeats.end() ? 0 : r->second;
        return true;
    };
    int processed = 0;
    while (!s.depthStack.empty()) {
        const int t = s.depthStack.back();
        s.depthStack.pop_back();
        // Reaching t without a crossing voids any proposal made to it in this flood (held in
        // its depth); after the flood, depth <= level tells that it was reached.
        FloodCell& c = cells[t];
        if (c.depth > level) c.depth = level;
        for (int k = 0; k < 3; ++k) {
            const int across = c.across[k];
            if (across == kNoCell) continue;
            const int m = int(unsigned(across) & ~kCandidateBit);
            if (cells[m].depth <= level) continue;
            int repeats = 0;
            if (across < 0) {
                const int* v = triVerts(mesh.triangles[std::size_t(t)]);
                const int p = v[nextLocalIndex(k)];
                const int q = v[prevLocalIndex(k)];
                if (isConstraint(p < q ? p : q, p < q ? q : p, repeats)) {
                    // Levels are capped well below the int range; a crossing count that large
                    // cannot come from a real input.
                    const long long proposed = std::min<long long>((long long)level + 1 + repeats,
                                                                   (long long)UnvisitedDepth - 1);
                    if (cells[m].depth == UnvisitedDepth) s.proposed.push_back(m);
                    cells[m].depth = int(proposed);
                    continue;
                }
            }
            s.depthStack.push_back(m);
        }
        if (processed >= maxIterations) return true;
        ++processed;
    }
    return false;
}

/// Moves the proposals of the flood of `level` to the pending levels (dropped when the flood was
/// capped) and loads the stack with the next level's triangles; false when none is left.
bool nextLevel(DepthLabelling& s, int level, bool capped) {
    FloodCell* const cells = s.cells.cells.get();
    s.pendingLevels.erase(level);
    for (int t : s.proposed) {
        const int d = cells[t].depth;
        if (d <= level) continue;  // reached in this flood after all
        cells[t].depth = UnvisitedDepth;
        if (capped) continue;
        s.maxPendingLevel = std::max<long long>(s.maxPendingLevel, d);
        s.pendingLevels[d].push_back(t);
    }
    s.proposed.clear();
    ++level;
    std::vector<int>& next = s.pendingLevels[level];
    std::sort(next.begin(), next.end());
    next.erase(std::unique(next.begin(), next.end()), next.end());
    s.depthStack.assign(next.begin(), next.end());
    if (s.depthStack.empty() && s.maxPendingLevel <= level) return false;
    return level < UnvisitedDepth - 1;
}

/// Labels every triangle of `mesh` with its depth (in the cells' `depth`).
FloodCells floodDepths(const TriangleMesh& mesh,
                       const ConstraintRecords& records,
                       int maxIterations) {
    DepthLabelling s;
    s.cells = buildCells(mesh, records);
    // Seed: the first ghost (or auxiliary) triangle is outside everything.
    const int n = int(mesh.triangles.size());
    for (int i = 0; i < n; ++i) {
        PkMeshTriangle t =
            mesh.triangles[std::size_t(i)];  // a copy: the flag getters are not const
        if (t.isGhostTri() || t.isAux()) {
            s.depthStack.push_back(i);
            break;
        }
    }
    for (int level = 0;; ++level) {
        const bool capped = floodLevel(mesh, records, maxIterations, s, level);
        if (!nextLevel(s, level, capped)) break;
    }
    return std::move(s.cells);
}

}  // namespace

void deleteOuterTrianglesAndHoles(const TriangleMesh& mesh,
                                  const ConstraintRecords& constraints,
                                  int maxIterations,
                                  std::vector<PkMeshTriangle>& output) {
    const FloodCells cells = floodDepths(mesh, constraints, maxIterations);
    const std::size_t n = mesh.triangles.size();
    if (output.capacity() < n) output.reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
        if (cells[i].depth % 2 == 1) output.push_back(mesh.triangles[i]);
    }
}
