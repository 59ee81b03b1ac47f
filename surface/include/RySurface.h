// Survey surfaces on top of the triangulation library: points with heights, boundaries, holes
// and breaklines in; a triangulated surface (kept triangles with their adjacency, heights kept,
// constraint edges with their role) out.
//
//   merge coincident points (heights kept) -> constrained triangulation (library) -> follow
//   every constraint line through the mesh -> label the triangles by the keep rule -> flat arrays
//
// Everything is plain data in flat arrays (x, y, z triples; index triples), so that bindings can
// hand them over without copies. Bad input never throws: the result carries a status and a
// message.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "RySurfaceExport.h"

namespace ry {

/// A read-only view of a caller's array: a std::vector, or any memory that outlives the call
/// (for instance a numpy buffer).
template <class T>
struct ArrayView {
    const T* data = nullptr;
    std::size_t size = 0;

    ArrayView() = default;
    ArrayView(const T* d, std::size_t n) : data(d), size(n) {}
    ArrayView(const std::vector<T>& v) : data(v.data()), size(v.size()) {}
    const T& operator[](std::size_t i) const { return data[i]; }
};

/// What a constraint line means.
enum class Role : std::int32_t {
    /// A closed ring around the surface.
    kBoundary = 0,
    /// A closed ring cut out of the surface (an island inside it is a boundary again).
    kHole = 1,
    /// An open or closed polyline forced into the mesh; it never changes what is kept.
    kBreakline = 2,
    /// A plain constraint line (edge lists, .poly segments): its meaning comes from the keep
    /// rule; under KeepRule::kRings it acts as a breakline.
    kEdge = 3,
};

/// A constraint line: `count` point indices starting at `first` in SurfaceInput::lineVertices.
/// A closed line joins its last vertex back to its first (rings are always closed).
struct Polyline {
    Role role = Role::kBreakline;
    bool closed = false;
    std::size_t first = 0;
    std::size_t count = 0;
};

/// Which triangles the surface keeps.
enum class KeepRule : std::int32_t {
    /// kRings when a boundary or hole is given, else kHolePoints when hole points are given,
    /// else kEvenOdd when kEdge lines are given, else kAll.
    kAuto = 0,
    /// Every triangle of the convex hull.
    kAll = 1,
    /// A triangle is kept when the innermost ring around it (the smallest by area; of identical
    /// rings a hole) is a boundary; with no boundary at all, everything but the holes is kept.
    kRings = 2,
    /// Kept when the fewest crossings of boundary, hole and kEdge lines from outside the hull is
    /// odd (a line given twice counts twice).
    kEvenOdd = 3,
    /// As mesh generators do: the regions around the hole points and the region outside,
    /// bounded by boundary, hole and kEdge lines, are removed; the rest is kept.
    kHolePoints = 4,
};

/// The height of a merged point when coincident points differ in height.
enum class Duplicates : std::int32_t {
    kFirst = 0,  ///< the first height in input order
    kMean = 1,   ///< the mean of the heights
    kError = 2,  ///< SurfaceStatus::kHeightConflict
};

/// Phases reported to a progress callback.
enum class SurfacePhase : std::int32_t {
    kMerge = 0,        ///< merging coincident points; counts points
    kVertices = 1,     ///< inserting the vertices; counts vertices
    kConstraints = 2,  ///< forcing in the constraint edges; counts edges
    kFinish = 3,       ///< adjacency, constraint lines, labels; counts steps
};

/// Returns false to ask buildSurface to stop (SurfaceStatus::kStopped).
using SurfaceProgress = bool (*)(void* context,
                                 SurfacePhase phase,
                                 std::int64_t done,
                                 std::int64_t total);

struct SurfaceInput {
    /// x, y, z of each point. A NaN z means "no height": the point takes the height of a
    /// coincident point, else SurfaceOptions::defaultZ when it is a number, else the height of
    /// the surface of the points that have one (linear on their Delaunay triangle).
    ArrayView<double> xyz;
    /// The lines' point indices, line after line.
    ArrayView<std::int32_t> lineVertices;
    std::vector<Polyline> lines;
    /// x, y of each hole point (KeepRule::kHolePoints).
    ArrayView<double> holePoints;
};

struct SurfaceOptions {
    KeepRule keep = KeepRule::kAuto;
    /// Merge coincident points (else a repeated point stops the triangulation).
    bool merge = true;
    /// Points closer than this merge into the first of them; 0 merges identical x, y only.
    double mergeDistance = 0.0;
    Duplicates duplicates = Duplicates::kFirst;
    /// Height of points left without one; NaN: the height of the surface of the points that
    /// have one, and outside it an error (kMissingHeight).
    double defaultZ = std::numeric_limits<double>::quiet_NaN();
    /// The library's determinant band: 0 decides every orientation and in-circle test exactly.
    double cdtTolerance = 0.0;
    bool spatialSort = true;
    /// Split crossing constraint lines at a new vertex (else the earlier one is crossed out: a
    /// breakline so lost is reported in Surface::missing; a ring is an error).
    bool splitCrossing = true;
    /// Also return the triangles left out (Surface::removedTriangles).
    bool keepRemoved = false;
    /// Height conflicts listed in full (Surface::conflicts); all are counted.
    std::size_t conflictLimit = 10;
    SurfaceProgress progress = nullptr;
    void* progressContext = nullptr;
};

enum class SurfaceStatus : std::int32_t {
    kOk = 0,
    /// A coordinate that is not finite or out of range, an index out of range, too few points.
    kBadInput = 1,
    /// Duplicates::kError and coincident points with different heights (see conflicts).
    kHeightConflict = 2,
    /// A point without height outside the points that have one, and no default
    /// (missingHeight names the first).
    kMissingHeight = 3,
    /// The library reported a failure status (libraryStatus).
    kTriangulationFailed = 4,
    /// A constraint edge is not in the mesh (see missing), or the rings could not be followed.
    kConstraintMissing = 5,
    /// The keep rule keeps no triangle.
    kNothingKept = 6,
    /// The kept triangles have no area (all points on one line).
    kZeroArea = 7,
    /// The progress callback asked to stop.
    kStopped = 8,
    kOutOfMemory = 9,
};

/// Two coincident points with different heights (input point indices).
struct HeightConflict {
    std::int32_t first;
    std::int32_t other;
    double firstZ;
    double otherZ;
};

/// A segment of a constraint line that is not a chain of mesh edges (input point indices).
struct MissingSegment {
    std::int32_t line;
    std::int32_t from;
    std::int32_t to;
};

struct Surface {
    SurfaceStatus status = SurfaceStatus::kOk;
    /// What went wrong, as a sentence; empty on success.
    std::string message;
    /// What to try, in terms of the options above; empty when there is nothing to suggest.
    std::string advice;
    /// The library's PkTriangulationStatus behind kTriangulationFailed.
    int libraryStatus = 0;
    KeepRule keep = KeepRule::kAll;  ///< the rule applied (kAuto resolved)

    /// x, y, z of each vertex: the merged points in input order, then the vertices made where
    /// constraint lines cross (their height interpolated along the lines).
    std::vector<double> vertices;
    /// Input point of each vertex (the first of those merged into it); -1 at a crossing.
    std::vector<std::int32_t> vertexSource;
    /// Vertex of each input point.
    std::vector<std::int32_t> pointVertex;
    /// Kept triangles: three vertex indices each, counter-clockwise.
    std::vector<std::int32_t> triangles;
    /// Three per kept triangle: the kept triangle across edge (k, k+1), or -1.
    std::vector<std::int32_t> neighbors;
    /// The triangles left out (with SurfaceOptions::keepRemoved).
    std::vector<std::int32_t> removedTriangles;
    /// x, y of a point inside each region left out that constraint lines enclose: the hole
    /// points of mesh generators, which give the same surface under KeepRule::kHolePoints.
    std::vector<double> holeSeeds;
    /// Constraint edges in the mesh: two vertex indices each, line by line in the lines' order;
    /// an edge on several lines is listed once per line.
    std::vector<std::int32_t> edgeVertices;
    std::vector<std::int32_t> edgeLine;  ///< the input line of each edge
    std::vector<Role> edgeRole;          ///< its role

    std::vector<MissingSegment> missing;
    /// Lines that enclose or join nothing once coincident points are merged.
    std::vector<std::int32_t> degenerateLines;
    /// Rings that repeat an earlier ring (same vertices): pairs (earlier, later).
    std::vector<std::int32_t> repeatedRings;
    std::size_t ignoredHolePoints = 0;  ///< outside the hull

    std::size_t repeatedPoints = 0;  ///< input points merged into an earlier one
    std::size_t conflictCount = 0;   ///< of which with a different height
    std::vector<HeightConflict> conflicts;
    std::int32_t missingHeight = -1;  ///< first input point left without height
    std::size_t missingHeightCount = 0;
    std::size_t crossingVertices = 0;
    std::size_t allTriangles = 0;  ///< of the triangulated hull
    double keptArea = 0.0;

    bool ok() const { return status == SurfaceStatus::kOk; }
    std::size_t vertexCount() const { return vertices.size() / 3; }
    std::size_t triangleCount() const { return triangles.size() / 3; }
    std::size_t edgeCount() const { return edgeLine.size(); }
};

/// Builds the surface. Never throws; a failure is a status with a message, and the arrays then
/// hold no triangles (the reports of the merge and of the lines stay filled).
/// A surface of 32,768 triangles or more that keeps every triangle sums its area on one extra
/// thread, started and joined inside the call (the same sum); RYTRI_THREADS=1 in the
/// environment, or a single processor, keeps it on the caller's thread.
RYSURFACE_EXPORT Surface buildSurface(const SurfaceInput& input,
                                      const SurfaceOptions& options = SurfaceOptions());

/// "ok", "bad input", ... for messages.
RYSURFACE_EXPORT const char* statusName(SurfaceStatus status);
/// The library's status by its name ("StatusFailed", ...), for messages.
RYSURFACE_EXPORT const char* libraryStatusName(int status);

}  // namespace ry
