// The second half of buildSurface: adjacency, constraint lines, labels, and the flat outputs with
// the checks that refuse a wrong surface (a bounding line not in the mesh, rings that cannot be
// followed, nothing kept, no area).
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <system_error>
#include <thread>

#include "ConstraintTrace.h"
#include "Labels.h"
#include "MeshTopology.h"
#include "Orient.h"
#include "PointMerge.h"
#include "RySurface.h"
#include "SurfaceSteps.h"

namespace ry {

namespace {

bool stop(Surface& s) {
    s.status = SurfaceStatus::kStopped;
    s.message = "stopped";
    return false;
}

bool fail(Surface& s, SurfaceStatus status, std::string message, std::string advice) {
    return failSurface(s, status, std::move(message), std::move(advice));
}

KeepRule resolveRule(KeepRule rule,
                     const LineChains& chains,
                     const std::vector<char>& skip,
                     const SurfaceInput& in) {
    if (rule != KeepRule::kAuto) return rule;
    bool rings = false, edges = false;
    for (std::size_t l = 0; l < chains.size(); ++l) {
        if (skip[l]) continue;
        rings |= chains.role[l] == Role::kBoundary || chains.role[l] == Role::kHole;
        edges |= chains.role[l] == Role::kEdge;
    }
    if (rings) return KeepRule::kRings;
    if (in.holePoints.size >= 2) return KeepRule::kHolePoints;
    return edges ? KeepRule::kEvenOdd : KeepRule::kAll;
}

/// Whether a line of `role` decides what `rule` keeps.
bool bounds(Role role, KeepRule rule) {
    if (rule == KeepRule::kAll || role == Role::kBreakline) return false;
    return rule != KeepRule::kRings || role != Role::kEdge;
}

/// Segments missing from the mesh: reported; an error unless a crossing without splitting
/// removed a line that bounds nothing.
bool checkMissing(const TracedLines& traced,
                  const LineChains& chains,
                  const MergedPoints& merged,
                  const SurfaceOptions& o,
                  Surface& s) {
    std::size_t first = traced.missing.size();  // the first that is an error
    for (const MissingSegment& m : traced.missing) {
        if (first == traced.missing.size() &&
            (o.splitCrossing || bounds(chains.role[std::size_t(m.line)], s.keep))) {
            first = s.missing.size();
        }
        s.missing.push_back({m.line,
                             merged.vertexSource[std::size_t(m.from)],
                             merged.vertexSource[std::size_t(m.to)]});
    }
    if (first == traced.missing.size()) return true;
    const MissingSegment* fatal = &s.missing[first];
    return fail(s,
                SurfaceStatus::kConstraintMissing,
                "the segment of line " + std::to_string(fatal->line) + " from point " +
                    std::to_string(fatal->from) + " to point " + std::to_string(fatal->to) +
                    " is not in the mesh" +
                    (o.splitCrossing ? ""
                                     : " (a later line crossed it, and crossings are not "
                                       "split)"),
                o.splitCrossing ? "report the input" : "split crossing lines (splitCrossing)");
}

/// Moves the positions out of the mesh: the last step that reads them from there.
void emitVertices(MeshTopology& mesh,
                  const MergedPoints& merged,
                  const TracedLines& traced,
                  Surface& s) {
    s.vertices = std::move(mesh.xyz);
    mesh.xyz = std::vector<double>();
    const std::size_t firstCreated = merged.size();
    s.crossingVertices = s.vertices.size() / 3 - firstCreated;
    for (std::size_t c = 0; c < s.crossingVertices; ++c) {
        if (traced.heightCount[c] > 0) {
            s.vertices[3 * (firstCreated + c) + 2] = traced.heightSum[c] / traced.heightCount[c];
        }
    }
    s.vertexSource = merged.vertexSource;
    s.vertexSource.resize(s.vertices.size() / 3, -1);
}

void emitEdges(const MeshTopology& mesh,
               const TracedLines& traced,
               const LineChains& chains,
               Surface& s) {
    const std::size_t n = traced.pieceEdge.size();
    s.edgeVertices.resize(2 * n);
    s.edgeLine = traced.pieceLine;
    s.edgeRole.resize(n);
    for (std::size_t i = 0; i < n; ++i) {
        const std::int32_t h = traced.pieceEdge[i], from = traced.pieceFrom[i];
        s.edgeVertices[2 * i] = from;
        s.edgeVertices[2 * i + 1] = mesh.origin(h) == from ? mesh.target(h) : mesh.origin(h);
        s.edgeRole[i] = chains.role[std::size_t(traced.pieceLine[i])];
    }
}

/// Starts the loads of the corner positions of triangle t. The triangles come in the library's
/// order and their corners in the input's, so a corner is mostly a cache miss, which a loop
/// fetching some triangles ahead overlaps with the others.
inline void fetchCorners(const MeshTopology& mesh, std::size_t t) {
#if defined(__GNUC__)
    const std::int32_t* v = &mesh.triangles[3 * t];
    for (int k = 0; k < 3; ++k) {
        __builtin_prefetch(mesh.xy(v[k]));
        __builtin_prefetch(mesh.xy(v[k]) + 1);
    }
#else
    (void)mesh;
    (void)t;
#endif
}

/// How many triangles ahead the area loops fetch corners.
constexpr std::size_t kFetchAhead = 16;

/// Twice the area of the triangles kept, summed in their order, and whether one of them turns
/// counter-clockwise.
struct KeptArea {
    long double twice = 0;
    bool any = false;

    void add(const MeshTopology& mesh, const std::int32_t* v) {
        const double* a = mesh.xy(v[0]);
        const double* b = mesh.xy(v[1]);
        const double* c = mesh.xy(v[2]);
        twice += orientValue(a, b, c);
        any = any || orientSign(a, b, c) > 0;
    }
};

KeptArea wholeArea(const MeshTopology& mesh) {
    KeptArea area;
    const std::size_t m = mesh.triangleCount();
    for (std::size_t t = 0; t < m; ++t) {
        if (t + kFetchAhead < m) fetchCorners(mesh, t + kFetchAhead);
        area.add(mesh, &mesh.triangles[3 * t]);
    }
    return area;
}

/// Below this many triangles the finishing stays on the calling thread.
constexpr std::size_t kHelperMinTriangles = std::size_t(1) << 15;

/// Whether the finishing of a mesh of `triangles` may use a helper thread: not for small ones,
/// not on one processor, and not with RYTRI_THREADS=1 (which keeps the library on one too).
bool useHelperThread(std::size_t triangles) {
    if (triangles < kHelperMinTriangles) return false;
    const char* setting = std::getenv("RYTRI_THREADS");
    if (setting != nullptr && std::strcmp(setting, "1") == 0) return false;
    return std::thread::hardware_concurrency() != 1;
}

/// The area of a surface that keeps every triangle, summed on a helper thread while the
/// adjacency and the lines are made (they leave the triangles and positions alone), or on the
/// calling thread when asked for without one. The sum is the same either way.
class WholeAreaAhead {
public:
    WholeAreaAhead(const MeshTopology& mesh, bool ahead) : mesh(mesh) {
        if (!ahead) return;
        try {
            helper = std::thread([this] { area = wholeArea(this->mesh); });
        } catch (const std::system_error&) {
            // No thread to be had: summed when asked for.
        }
    }
    ~WholeAreaAhead() { wait(); }
    WholeAreaAhead(const WholeAreaAhead&) = delete;
    WholeAreaAhead& operator=(const WholeAreaAhead&) = delete;

    /// The sum; the triangles and positions may change once this returns.
    KeptArea get() {
        if (!helper.joinable()) return wholeArea(mesh);
        helper.join();
        return area;
    }
    /// Joins the helper, should it still run.
    void wait() {
        if (helper.joinable()) helper.join();
    }

private:
    const MeshTopology& mesh;
    std::thread helper;
    KeptArea area;
};

bool emitTriangles(MeshTopology& mesh,
                   const std::vector<char>& kept,
                   WholeAreaAhead& whole,
                   const SurfaceOptions& o,
                   Surface& s) {
    const std::size_t m = mesh.triangleCount();
    s.allTriangles = m;
    std::size_t count = 0;
    for (std::size_t t = 0; t < m; ++t) count += kept[t] ? 1 : 0;
    KeptArea area;
    if (count == m) {
        // Every triangle kept (a plain point cloud): the mesh's own arrays become the surface's
        // instead of being copied, so the peak holds one list of triangles, not two.
        area = whole.get();
        for (std::int32_t& across : mesh.twin) across = across < 0 ? -1 : across / 3;
        s.triangles = std::move(mesh.triangles);
        s.neighbors = std::move(mesh.twin);
        mesh.triangles = std::vector<std::int32_t>();
        mesh.twin = std::vector<std::int32_t>();
    } else {
        std::vector<std::int32_t> newIndex(m, -1);
        std::int32_t next = 0;
        for (std::size_t t = 0; t < m; ++t) newIndex[t] = kept[t] ? next++ : -1;
        s.triangles.reserve(3 * count);
        s.neighbors.reserve(3 * count);
        for (std::size_t t = 0; t < m; ++t) {
            if (t + kFetchAhead < m) fetchCorners(mesh, t + kFetchAhead);
            const std::int32_t* v = &mesh.triangles[3 * t];
            std::vector<std::int32_t>& to = kept[t] ? s.triangles : s.removedTriangles;
            if (kept[t] || o.keepRemoved) to.insert(to.end(), v, v + 3);
            if (!kept[t]) continue;
            for (std::size_t k = 0; k < 3; ++k) {
                const std::int32_t across = mesh.twin[3 * t + k];
                s.neighbors.push_back(across < 0 ? -1 : newIndex[std::size_t(across / 3)]);
            }
            area.add(mesh, v);
        }
    }
    s.keptArea = double(area.twice / 2);
    if (count == 0) {
        return fail(s,
                    SurfaceStatus::kNothingKept,
                    "no triangle is kept",
                    s.keep == KeepRule::kEvenOdd
                        ? "under the even-odd rule open lines enclose nothing and a ring given "
                          "twice cancels itself: give boundaries and holes their roles"
                        : "check that the boundaries enclose points and the holes do not cover "
                          "everything");
    }
    if (!area.any) {
        return fail(s,
                    SurfaceStatus::kZeroArea,
                    "the kept triangles have no area: the points lie on one line",
                    "give points that span an area");
    }
    return true;
}

/// One point inside each region of left-out triangles (joined across edges that carry no line)
/// that no open hull edge lets out: the centroid of its largest triangle.
void findHoleSeeds(const MeshTopology& mesh,
                   const EdgeGroups& groups,
                   const std::vector<char>& kept,
                   Surface& s) {
    std::vector<char> seen(mesh.triangleCount(), 0);
    std::vector<std::int32_t> region;
    for (std::size_t start = 0; start < seen.size(); ++start) {
        if (kept[start] || seen[start]) continue;
        bool open = false;
        region.assign(1, std::int32_t(start));
        seen[start] = 1;
        for (std::size_t i = 0; i < region.size(); ++i) {
            for (std::int32_t h = 3 * region[i]; h < 3 * region[i] + 3; ++h) {
                if (groups.of(h) >= 0) continue;
                const std::int32_t across = mesh.twin[std::size_t(h)];
                open |= across < 0;
                if (across < 0 || seen[std::size_t(across / 3)]) continue;
                seen[std::size_t(across / 3)] = 1;
                region.push_back(across / 3);
            }
        }
        if (open) continue;
        std::int32_t best = region[0];
        double bestArea = -1.0;
        for (std::int32_t t : region) {
            const std::int32_t* v = &mesh.triangles[3 * std::size_t(t)];
            const double area = orientValue(mesh.xy(v[0]), mesh.xy(v[1]), mesh.xy(v[2]));
            if (area > bestArea) bestArea = area, best = t;
        }
        const std::int32_t* v = &mesh.triangles[3 * std::size_t(best)];
        for (int axis = 0; axis < 2; ++axis) {
            s.holeSeeds.push_back(
                (mesh.xy(v[0])[axis] + mesh.xy(v[1])[axis] + mesh.xy(v[2])[axis]) / 3.0);
        }
    }
}

/// What follows the tracing: the missing segments, the labels, the triangles kept and the hole
/// seeds; false when the surface fails or stops there.
bool keepTriangles(MeshTopology& mesh,
                   const TracedLines& traced,
                   const MergedPoints& merged,
                   const LineChains& chains,
                   const std::vector<char>& skip,
                   const SurfaceInput& in,
                   WholeAreaAhead& whole,
                   const SurfaceOptions& o,
                   Surface& s) {
    if (!checkMissing(traced, chains, merged, o, s)) return false;
    if (o.progress && !o.progress(o.progressContext, SurfacePhase::kFinish, 2, 3)) return stop(s);
    const EdgeGroups groups = groupPieces(mesh, traced);
    const LabelResult labels = labelTriangles(s.keep, mesh, groups, chains, skip, in.holePoints);
    s.ignoredHolePoints = labels.ignoredHolePoints;
    if (labels.disagreements > 0) {
        return fail(s,
                    SurfaceStatus::kConstraintMissing,
                    "the rings could not be followed as closed chains of mesh edges",
                    "report the input");
    }
    if (!emitTriangles(mesh, labels.kept, whole, o, s)) return false;
    findHoleSeeds(mesh, groups, labels.kept, s);
    return true;
}

}  // namespace

bool finishSurface(MeshTopology& mesh,
                   const MergedPoints& merged,
                   const LineChains& chains,
                   const std::vector<char>& skip,
                   const SurfaceInput& in,
                   const SurfaceOptions& o,
                   Surface& s) {
    auto step = [&](std::int64_t done) {
        return !o.progress || o.progress(o.progressContext, SurfacePhase::kFinish, done, 3);
    };
    if (!step(0)) return stop(s);
    // Under KeepRule::kAll every triangle is kept, so the area can be summed meanwhile.
    const KeepRule rule = resolveRule(o.keep, chains, skip, in);
    WholeAreaAhead whole(mesh, rule == KeepRule::kAll && useHelperThread(mesh.triangleCount()));
    buildAdjacency(mesh);
    if (!chains.chain.empty()) findVertexEdges(mesh);
    if (!step(1)) return stop(s);
    const TracedLines traced = traceLines(mesh, chains, std::int32_t(merged.size()));
    s.keep = rule;
    emitEdges(mesh, traced, chains, s);
    const bool kept = keepTriangles(mesh, traced, merged, chains, skip, in, whole, o, s);
    whole.wait();
    emitVertices(mesh, merged, traced, s);  // last: it takes the positions out of the mesh
    return kept && (step(3) || stop(s));
}

}  // namespace ry
