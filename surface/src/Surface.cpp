// buildSurface: input checks, the height-keeping merge, the library's constrained triangulation
// (finished with deleteGhostTriangle, so every real triangle comes back), then the surface
// layer's own adjacency, constraint lines, labels and flat outputs.
#include <algorithm>
#include <cmath>
#include <cstring>
#if defined(__GLIBC__)
#include <malloc.h>
#endif
#include <map>
#include <new>
#include <stdexcept>
#include <string>

#include "ConstraintTrace.h"
#include "Labels.h"
#include "MeshTopology.h"
#include "Orient.h"
#include "PointMerge.h"
#include "RySurface.h"
#include "RyTriangulation.h"
#include "SurfaceSteps.h"

namespace ry {

namespace {

/// The library's coordinate range: 0, or a magnitude within [2^-200, 2^200].
bool usable(double c) {
    const double m = std::fabs(c);
    return m == 0.0 || (m >= 0x1p-200 && m <= 0x1p+200);
}

bool fail(Surface& s, SurfaceStatus status, std::string message, std::string advice = "") {
    return failSurface(s, status, std::move(message), std::move(advice));
}

std::string point(std::size_t i) {
    return "point " + std::to_string(i);
}

bool checkPoints(const SurfaceInput& in, const SurfaceOptions& o, Surface& s) {
    if (in.xyz.size % 3 != 0) {
        return fail(s, SurfaceStatus::kBadInput, "the coordinates are not x, y, z triples");
    }
    double largest = 0.0;
    for (std::size_t i = 0; i < in.xyz.size / 3; ++i) {
        const double* p = &in.xyz.data[3 * i];
        if (!usable(p[0]) || !usable(p[1]) || std::isinf(p[2])) {
            return fail(s,
                        SurfaceStatus::kBadInput,
                        point(i) +
                            " has a coordinate that is not finite or whose magnitude is "
                            "outside [2^-200, 2^200]",
                        "rescale or shift the coordinates");
        }
        largest = std::max({largest, std::fabs(p[0]), std::fabs(p[1])});
    }
    const double d = o.mergeDistance;
    if (!(d >= 0.0) || std::isinf(d) || (d > 0.0 && largest / d >= 0x1p+52)) {
        return fail(s,
                    SurfaceStatus::kBadInput,
                    "the merge distance must be 0 or a finite number not too small for the "
                    "coordinates (largest coordinate / distance below 2^52)");
    }
    for (std::size_t i = 0; i < in.holePoints.size; ++i) {
        if (!usable(in.holePoints[i]) || in.holePoints.size % 2 != 0) {
            return fail(s, SurfaceStatus::kBadInput, "a hole point is not a finite x, y pair");
        }
    }
    return true;
}

bool checkLines(const SurfaceInput& in, Surface& s) {
    const std::size_t n = in.xyz.size / 3;
    for (std::size_t l = 0; l < in.lines.size(); ++l) {
        const Polyline& line = in.lines[l];
        if (line.first > in.lineVertices.size || line.count > in.lineVertices.size - line.first) {
            return fail(s,
                        SurfaceStatus::kBadInput,
                        "line " + std::to_string(l) + " runs past the end of the line vertices");
        }
        for (std::size_t k = line.first; k < line.first + line.count; ++k) {
            const std::int32_t v = in.lineVertices[k];
            if (v < 0 || std::size_t(v) >= n) {
                return fail(s,
                            SurfaceStatus::kBadInput,
                            "line " + std::to_string(l) + " names point " + std::to_string(v) +
                                ", but the points are numbered 0.." + std::to_string(n - 1));
            }
        }
    }
    return true;
}

bool isRingRole(Role role) {
    return role == Role::kBoundary || role == Role::kHole;
}

/// The lines in merged vertices (s.pointVertex), repeats dropped. Rings (and closed lines) of fewer
/// than three vertices, and open lines of fewer than two, enclose or join nothing: `skip` marks
/// them.
LineChains mapLines(const SurfaceInput& in, std::vector<char>& skip, Surface& s) {
    LineChains chains;
    skip.assign(in.lines.size(), 0);
    for (std::size_t l = 0; l < in.lines.size(); ++l) {
        const Polyline& line = in.lines[l];
        const std::size_t begin = chains.chain.size();
        for (std::size_t k = line.first; k < line.first + line.count; ++k) {
            const std::int32_t v = s.pointVertex[std::size_t(in.lineVertices[k])];
            if (chains.chain.size() == begin || chains.chain.back() != v) chains.chain.push_back(v);
        }
        const bool closed = line.closed || isRingRole(line.role);
        const std::size_t count = chains.chain.size() - begin;
        if (closed && count > 1 && chains.chain.back() == chains.chain[begin]) {
            chains.chain.pop_back();
        }
        if (chains.chain.size() - begin < (closed ? 3u : 2u)) {
            chains.chain.resize(begin);
            skip[l] = 1;
            s.degenerateLines.push_back(std::int32_t(l));
        }
        chains.start.push_back(chains.chain.size());
        chains.role.push_back(line.role);
        chains.closed.push_back(closed);
    }
    return chains;
}

/// Rings with the same vertices as an earlier ring, in either direction and from any start.
void findRepeatedRings(const LineChains& chains, Surface& s) {
    std::map<std::vector<std::int32_t>, std::int32_t> seen;
    for (std::size_t l = 0; l < chains.size(); ++l) {
        const std::size_t first = chains.start[l], count = chains.start[l + 1] - first;
        if (!isRingRole(chains.role[l]) || count < 3) continue;
        const auto* v = &chains.chain[first];
        std::size_t low = 0;
        for (std::size_t k = 1; k < count; ++k) low = v[k] < v[low] ? k : low;
        const bool forward = v[(low + 1) % count] < v[(low + count - 1) % count];
        std::vector<std::int32_t> key(count);
        for (std::size_t k = 0; k < count; ++k) {
            key[k] = v[forward ? (low + k) % count : (low + count - k) % count];
        }
        const auto inserted = seen.emplace(std::move(key), std::int32_t(l));
        if (!inserted.second) {
            s.repeatedRings.push_back(inserted.first->second);
            s.repeatedRings.push_back(std::int32_t(l));
        }
    }
}

/// The library's failure, with advice that fits the cause and the options in force.
bool failTriangulation(int status, const SurfaceOptions& o, Surface& s) {
    s.libraryStatus = status;
    const bool band = o.cdtTolerance > 0.0;
    std::string what, advice;
    switch (status) {
        case StatusTooFewPoints:
            what = "fewer than 3 distinct points";
            advice = "give at least 3 points that span an area";
            break;
        case StatusCoincidentVertex:
            what = "a point lies on a point already inserted";
            advice = !o.merge ? "merge coincident points (merge = true)"
                              : "points lie within the determinant band of each other: use "
                                "cdtTolerance 0, or a merge distance";
            break;
        case StatusLocateFailed:
            what = "no first triangle could be formed or a point could not be located";
            advice = band ? "use cdtTolerance 0"
                          : "the points lie on one line: give points "
                            "that span an area";
            break;
        case StatusConstraintFailed:
            what =
                "a constraint edge could not be forced in (lines that overlap, or cross at "
                "a vertex or at a point that cannot be computed)";
            advice = std::string(band ? "use cdtTolerance 0; " : "") +
                     "look for overlapping lines or lines that cross very close to a vertex";
            break;
        case StatusFailed:
            what = "the vertex where two constraint lines cross could not be inserted";
            advice = "look for lines that cross at a very small angle; or splitCrossing = false";
            break;
        default:
            what = "a search or repair loop reached its limit";
            advice = band ? "use cdtTolerance 0" : "report the input";
            break;
    }
    return fail(s,
                SurfaceStatus::kTriangulationFailed,
                std::string("the triangulation failed with status ") + std::to_string(status) +
                    " (" + libraryStatusName(status) + "): " + what,
                advice);
}

bool forwardProgress(void* context, PkProgressPhase phase, long long done, long long total) {
    const SurfaceOptions& o = *static_cast<const SurfaceOptions*>(context);
    const SurfacePhase to =
        phase == kProgressVertices ? SurfacePhase::kVertices : SurfacePhase::kConstraints;
    return o.progress(o.progressContext, to, done, total);
}

/// The library's constrained triangulation of the merged points; on success `mesh` holds every
/// real triangle and every vertex (those made at crossings last).
bool triangulate(const MergedPoints& merged,
                 ArrayView<double> xyz,
                 const LineChains& chains,
                 const SurfaceOptions& o,
                 MeshTopology& mesh,
                 Surface& s) {
    std::vector<PkGePoint3d> points(merged.size());
    for (std::size_t i = 0; i < points.size(); ++i) {
        points[i] = PkGePoint3d(xyz[3 * i], xyz[3 * i + 1], xyz[3 * i + 2]);
    }
    std::vector<PkMeshEdge> edges;
    for (std::size_t l = 0; l < chains.size(); ++l) {
        const std::size_t first = chains.start[l], count = chains.start[l + 1] - first;
        const std::size_t segments = chains.closed[l] ? count : count - 1;
        for (std::size_t k = 0; count >= 2 && k < segments; ++k) {
            edges.emplace_back(chains.chain[first + k], chains.chain[first + (k + 1) % count]);
        }
    }
    // The library's arrays are gone before its triangles are converted and the positions copied,
    // which keeps the peak down: the output list is taken over, its vertices are the merged
    // points unchanged, then those made at crossings (kept aside).
    std::vector<double> crossings;
    std::vector<PkMeshTriangle> triangles;
    {
        RyTriangulation tri(o.spatialSort, o.splitCrossing);
        tri.setCDTTolerence(o.cdtTolerance);
        if (o.progress) tri.setProgressCallback(forwardProgress, const_cast<SurfaceOptions*>(&o));
        const PkTriangulationStatus status =
            edges.empty() ? tri.delaunayTriangulation(points)
                          : tri.delaunayTriangulationWithConstraints(points, edges);
        if (status == StatusStopped) return fail(s, SurfaceStatus::kStopped, "stopped");
        if (status != StatusOk) return failTriangulation(int(status), o, s);
        points = std::vector<PkGePoint3d>();
        // The triangulation's temporaries stay with glibc's allocator, below its threshold for
        // returning memory: hand them back before the output list adds to the peak.
#if defined(__GLIBC__)
        malloc_trim(0);
#endif
        tri.deleteGhostTriangle();
        triangles = tri.takeMeshTriangles();
        const std::vector<PkMeshPoint3d>& vertices = tri.meshVertices();
        for (std::size_t v = merged.size(); v < vertices.size(); ++v) {
            const PkGePoint3d p = vertices[v].getPoint();
            crossings.insert(crossings.end(), {p.x, p.y, p.z});
        }
    }
    mesh.triangles.resize(3 * triangles.size());
    mesh.working.resize(3 * triangles.size());
    for (std::size_t t = 0; t < triangles.size(); ++t) {
        for (int k = 0; k < 3; ++k) {
            mesh.triangles[3 * t + std::size_t(k)] = triangles[t].getVertexIndexAt(k);
            mesh.working[3 * t + std::size_t(k)] = triangles[t].getNeighborIndex(k);
        }
    }
    triangles = std::vector<PkMeshTriangle>();
    mesh.xyz.reserve(xyz.size + crossings.size());
    mesh.xyz.assign(xyz.data, xyz.data + xyz.size);
    mesh.xyz.insert(mesh.xyz.end(), crossings.begin(), crossings.end());
    return true;
}

bool build(const SurfaceInput& in, const SurfaceOptions& o, Surface& s) {
    if (!checkPoints(in, o, s) || !checkLines(in, s)) return false;
    MergedPoints merged;
    if (!mergePoints(in.xyz, o, merged)) return fail(s, SurfaceStatus::kStopped, "stopped");
    settleHeights(merged, o);
    s.pointVertex = std::move(merged.pointVertex);
    s.repeatedPoints = merged.repeated;
    s.conflictCount = merged.conflictCount;
    s.conflicts = merged.conflicts;
    s.missingHeight = merged.missingHeight;
    s.missingHeightCount = merged.missingHeightCount;
    if (o.duplicates == Duplicates::kError && merged.conflictCount > 0) {
        return fail(s,
                    SurfaceStatus::kHeightConflict,
                    std::to_string(merged.conflictCount) +
                        " points lie on an earlier point with a different height",
                    "keep the first height (Duplicates::kFirst) or their mean (kMean)");
    }
    if (merged.missingHeightCount > 0) {
        return fail(s,
                    SurfaceStatus::kMissingHeight,
                    point(std::size_t(merged.missingHeight)) + " and " +
                        std::to_string(merged.missingHeightCount - 1) +
                        " more have no height and lie outside the points that have one",
                    "give their heights, or a default height (defaultZ)");
    }
    std::vector<char> skip;
    const LineChains chains = mapLines(in, skip, s);
    findRepeatedRings(chains, s);
    MeshTopology mesh;
    // A merge that changed nothing holds a copy of the input's coordinates: read the input's
    // instead, which keeps 24 bytes a point off the peak of the triangulation.
    ArrayView<double> xyz(merged.xyz);
    if (in.xyz.size > 0 && merged.xyz.size() == in.xyz.size &&
        std::memcmp(merged.xyz.data(), in.xyz.data, in.xyz.size * sizeof(double)) == 0) {
        merged.xyz = std::vector<double>();
        xyz = in.xyz;
    }
    if (!triangulate(merged, xyz, chains, o, mesh, s)) return false;
    return finishSurface(mesh, merged, chains, skip, in, o, s);
}

}  // namespace

bool failSurface(Surface& s, SurfaceStatus status, std::string message, std::string advice) {
    s.status = status;
    s.message = std::move(message);
    s.advice = std::move(advice);
    s.triangles.clear();
    s.neighbors.clear();
    s.removedTriangles.clear();
    return false;
}

Surface buildSurface(const SurfaceInput& input, const SurfaceOptions& options) {
    Surface s;
    try {
        build(input, options, s);
    } catch (const std::bad_alloc&) {
        fail(s, SurfaceStatus::kOutOfMemory, "out of memory");
    } catch (const std::length_error&) {
        fail(s, SurfaceStatus::kOutOfMemory, "too many points or triangles for the indices");
    }
    return s;
}

const char* statusName(SurfaceStatus status) {
    switch (status) {
        case SurfaceStatus::kOk:
            return "ok";
        case SurfaceStatus::kBadInput:
            return "bad input";
        case SurfaceStatus::kHeightConflict:
            return "height conflict";
        case SurfaceStatus::kMissingHeight:
            return "missing height";
        case SurfaceStatus::kTriangulationFailed:
            return "triangulation failed";
        case SurfaceStatus::kConstraintMissing:
            return "constraint missing";
        case SurfaceStatus::kNothingKept:
            return "nothing kept";
        case SurfaceStatus::kZeroArea:
            return "zero area";
        case SurfaceStatus::kStopped:
            return "stopped";
        case SurfaceStatus::kOutOfMemory:
            return "out of memory";
    }
    return "unknown";
}

const char* libraryStatusName(int status) {
    switch (status) {
        case StatusFailed:
            return "StatusFailed";
        case StatusTooFewPoints:
            return "StatusTooFewPoints";
        case StatusCoincidentVertex:
            return "StatusCoincidentVertex";
        case StatusLocateFailed:
            return "StatusLocateFailed";
        case StatusConstraintFailed:
            return "StatusConstraintFailed";
        case StatusIterationLimit:
            return "StatusIterationLimit";
        default:
            return "an undocumented status";
    }
}

}  // namespace ry
