// Input clean-up: project the caller's points onto a coordinate plane, sort them by (x, y), merge
// points equal under the host's global tolerance and carry constraint edges over to the merged
// list.
//
// Merging compares each sorted point with the most recently kept one only, so a chain of points
// each within tolerance of its predecessor splits wherever it drifts out of tolerance of the
// run's first point. Renumbering maps each edge end to the LOWEST merged position equal to its
// point, which need not be the position it merged into: a point may also equal an earlier kept
// point that a third point (same x, far y) separated from it in sorted order.
//
// Exception safety: everything is built in new lists; the caller's arrays are swapped in at the
// very end, so std::bad_alloc or std::length_error leaves them unchanged.
#include "cleanup/DuplicateVertices.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <stdexcept>
#include <vector>

#include "mesh/MeshFields.h"

namespace {

/// A projected point with its index in the caller's array; sorted by (x, y), ties by index so
/// the result does not depend on the sort's treatment of equal keys.
struct Record {
    double x;
    double y;
    int index;
};

struct RecordLess {
    bool operator()(const Record& a, const Record& b) const {
        if (a.x != b.x) return a.x < b.x;
        if (a.y != b.y) return a.y < b.y;
        return a.index < b.index;
    }
};

/// The projected (u, v) of p; false for a selector outside the three planes.
bool project(const PkGePoint3d& p, PkConvert2dVertex plane, double& u, double& v) {
    switch (plane) {
        case kXYPlane:
            u = p.x;
            v = p.y;
            return true;
        case kXZPlane:
            u = p.x;
            v = p.z;
            return true;
        case kYZPlane:
            u = p.y;
            v = p.z;
            return true;
    }
    return false;
}

/// Below this half-width, the pruning argument in lowestEqualPosition could fail (dx * dx would
/// be subnormal), so windows are never made narrower than this.
const double kMinWindow = std::ldexp(1.0, -500);

int checkedCount(std::size_t size) {
    if (size > std::size_t(std::numeric_limits<int>::max())) {
        throw std::length_error("vector<T> too long");
    }
    return int(size);
}

/// Projects, drops points with a NaN coordinate, sorts and merges. `merged` receives the kept
/// points; `position`, when given, receives for every caller index the merged position that its
/// point was kept at or merged into, or NoVertex for a point that was not projected (NaN or an
/// unknown plane).
void projectSortMerge(const std::vector<PkGePoint3d>& points,
                      PkConvert2dVertex plane,
                      std::vector<PkGePoint3d>& merged,
                      std::vector<int>* position) {
    const int n = checkedCount(points.size());
    std::vector<Record> records;
    records.reserve(std::size_t(n));
    for (int i = 0; i < n; ++i) {
        double u = 0.0;
        double v = 0.0;
        if (!project(points[std::size_t(i)], plane, u, v)) break;
        // NaN would break the sort's strict weak ordering. Infinities sort as any value and
        // stay: under a finite tolerance they merge with nothing, not even a copy of themselves.
        if (!std::isnan(u) && !std::isnan(v)) records.push_back(Record{u, v, i});
    }
    if (position) position->assign(std::size_t(n), NoVertex);
    std::sort(records.begin(), records.end(), RecordLess());

    // Merge in place: records[0, kept) are the kept points.
    const PkGeTol& tol = PkGeContext::gTol;
    std::size_t kept = 0;
    for (std::size_t r = 0; r < records.size(); ++r) {
        const Record cur = records[r];
        if (kept > 0) {
            const Record& last = records[kept - 1];
            const PkGePoint3d lastPoint(last.x, last.y, 0.0);
            if (lastPoint.isEqualTo(PkGePoint3d(cur.x, cur.y, 0.0), tol)) {
                if (position) (*position)[std::size_t(cur.index)] = int(kept - 1);
                continue;
            }
        }
        records[kept] = cur;
        if (position) (*position)[std::size_t(cur.index)] = int(kept);
        ++kept;
    }

    merged.reserve(kept);
    for (std::size_t k = 0; k < kept; ++k) merged.emplace_back(records[k].x, records[k].y, 0.0);
}

/// Lowest j with merged[j].isEqualTo(q, gTol), or NoVertex. `hint` is a position known to be equal
/// to q (the merge compared them, or q was kept there), so no answer lies beyond it.
///
/// Pruning: isEqualTo computes dx = fl(x_j - q.x) and a distance of at least |dx| whenever
/// |dx| >= kMinWindow (then fl(dx * dx) is normal and sqrt(fl(dx * dx)) == |dx|; adding the
/// other squares only rounds upwards). So every match has fl(x_j - q.x) in [-w, w] with
/// w = max(tol, kMinWindow), and likewise for y. As merged is sorted by x and rounding is
/// monotone, the x candidates form one range of positions; inside a run of equal x the list is
/// sorted by y, so the y candidates of the run form a range as well. Scanning the runs of the
/// x range in order and each run's y range in order finds the lowest match first.
int lowestEqualPosition(const std::vector<PkGePoint3d>& merged,
                        const PkGePoint3d& q,
                        int hint,
                        double w) {
    const PkGeTol& tol = PkGeContext::gTol;
    const auto begin = merged.begin();
    const auto last = begin + (hint + 1);
    const auto leftOfWindow = [&](const PkGePoint3d& p) { return p.x - q.x < -w; };
    // Find the window's first position by doubling steps back from the hint, then bisection:
    // the window is usually a few positions wide, so this stays near the hint in memory.
    // Invariant: no position in [run, hint] is left of the window.
    auto run = last - 1;
    for (std::ptrdiff_t step = 1; run != begin; step *= 2) {
        const auto probe = run - begin > step ? run - step : begin;
        if (leftOfWindow(*probe)) {
            run = std::partition_point(probe + 1, run, leftOfWindow);
            break;
        }
        run = probe;
    }
    while (run != last && !(run->x - q.x > w)) {
        const double runX = run->x;
        const auto runEnd =
            std::partition_point(run, last, [runX](const PkGePoint3d& p) { return !(runX < p.x); });
        auto j =
            std::partition_point(run, runEnd, [&](const PkGePoint3d& p) { return p.y - q.y < -w; });
        for (; j != runEnd && !(j->y - q.y > w); ++j) {
            if (j->isEqualTo(q, tol)) return int(j - begin);
        }
        run = runEnd;
    }
    return NoVertex;
}

/// Lowest matches of points with an infinite coordinate under an infinite tolerance. There two
/// points are equal unless a coordinate difference is NaN, i.e. unless they hold the same
/// infinity in x or in y, so the lowest match depends only on which infinities q holds: one
/// pass finds it for each of the nine cases. A found position is confirmed with isEqualTo (the
/// scan goes on from there should the host's measure disagree). A scan from the start for every
/// end could cost n steps each: every kept point may hold the same infinity as q.
class InfiniteMatches {
public:
    int lowest(const std::vector<PkGePoint3d>& merged, const PkGePoint3d& q) {
        if (!built) build(merged);
        const int start = first[kind(q.x)][kind(q.y)];
        for (std::size_t j = std::size_t(start < 0 ? merged.size() : start); j < merged.size();
             ++j) {
            if (merged[j].isEqualTo(q, PkGeContext::gTol)) return int(j);
        }
        return NoVertex;
    }

private:
    /// 0 for a finite value, 1 for -inf, 2 for +inf.
    static int kind(double c) { return std::isinf(c) ? (c < 0 ? 1 : 2) : 0; }

    void build(const std::vector<PkGePoint3d>& merged) {
        built = true;
        for (auto& row : first) row[0] = row[1] = row[2] = NoVertex;
        for (std::size_t j = merged.size(); j-- > 0;) {
            const int kx = kind(merged[j].x), ky = kind(merged[j].y);
            for (int cx = 0; cx < 3; ++cx) {
                for (int cy = 0; cy < 3; ++cy) {
                    const bool clash = (cx != 0 && kx == cx) || (cy != 0 && ky == cy);
                    if (!clash) first[cx][cy] = int(j);
                }
            }
        }
    }

    bool built = false;
    int first[3][3];
};

}  // namespace

void deleteDuplicateVertices(std::vector<PkGePoint3d>& points, PkConvert2dVertex plane) {
    std::vector<PkGePoint3d> merged;
    projectSortMerge(points, plane, merged, nullptr);
    points.swap(merged);
}

void deleteDuplicateVertices(std::vector<PkGePoint3d>& points,
                             std::vector<PkMeshEdge>& edges,
                             PkConvert2dVertex plane) {
    const int m = checkedCount(edges.size());
    std::vector<PkGePoint3d> merged;
    std::vector<int> position;
    projectSortMerge(points, plane, merged, &position);

    const double tol = PkGeContext::gTol.equalPoint();
    // A negative or NaN tolerance makes every isEqualTo false, even of a point with itself (and
    // a NaN window would turn each search into a scan of the whole list).
    const bool anyEqual = tol >= 0.0;
    const double w = std::max(tol, kMinWindow);
    const int n = int(points.size());
    InfiniteMatches infiniteMatches;
    // The new index of an edge end, or NoVertex when it names no projected point or (only possible
    // under a tolerance that makes nothing equal) no merged point equals its point. The point is
    // projected again from the caller's array, which is still untouched.
    const auto renumber = [&](int index) {
        if (!anyEqual || index < 0 || index >= n) return NoVertex;
        const int hint = position[std::size_t(index)];
        if (hint < 0) return NoVertex;
        double u = 0.0;
        double v = 0.0;
        project(points[std::size_t(index)], plane, u, v);
        const PkGePoint3d q(u, v, 0.0);
        if (!std::isfinite(u) || !std::isfinite(v)) {
            // Any difference with an infinity is infinite or NaN: only an infinite tolerance
            // can match, and then the window argument no longer holds.
            if (tol < std::numeric_limits<double>::infinity()) return NoVertex;
            return infiniteMatches.lowest(merged, q);
        }
        return lowestEqualPosition(merged, q, hint, w);
    };

    std::vector<PkMeshEdge> renumbered;
    renumbered.reserve(std::size_t(m));
    for (const PkMeshEdge& edge : edges) {
        const int k1 = renumber(edge.EdgeIndex1());
        const int k2 = renumber(edge.EdgeIndex2());
        renumbered.push_back(k1 < 0 || k2 < 0 ? PkMeshEdge() : PkMeshEdge(k1, k2));
    }

    points.swap(merged);
    edges.swap(renumbered);
}
