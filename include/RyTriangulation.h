// Planar Delaunay and constrained Delaunay triangulation.
//
// Call order: construct; optionally setCDTTolerence; optionally deleteDuplicateVertices on your
// own arrays; one triangulation call; one finishing call; the getters.
#pragma once

#include <vector>

#include "PkMeshEdge.h"
#include "PkMeshPoint3d.h"
#include "PkMeshTriangle.h"
#include "RyGeometry.h"
#include "RyTriangulationExport.h"

/// Result of the triangulation calls. The numbers are part of the interface.
enum PkTriangulationStatus : int {
    /// The triangulation and every constraint went in.
    StatusOk = 0,
    /// A non-finite input coordinate, a vertex index out of range, flip legalisation broke off,
    /// or the vertex at a constraint crossing could not be inserted.
    StatusFailed = 1,
    /// Fewer than 3 points.
    StatusTooFewPoints = 2,
    /// A point lies on an already inserted vertex (within the tolerance band). Remove duplicates
    /// with deleteDuplicateVertices first.
    StatusCoincidentVertex = 3,
    /// No implementation record, point location found no triangle, or no first triangle could be
    /// formed (for instance all points on one line).
    StatusLocateFailed = 4,
    /// A constraint could not be inserted: no triangle around its start vertex is entered by it,
    /// or the crossing point of two constraints could not be computed or equals an end point.
    StatusConstraintFailed = 5,
    /// A loop reached its iteration limit (1000000).
    StatusIterationLimit = 7,
    /// The progress callback (setProgressCallback) asked the call to stop; the mesh is left as
    /// after any other failure. Only a host that sets a callback sees it. (6 is not used.)
    StatusStopped = 8,
};

/// Plane onto which deleteDuplicateVertices projects the points. Numbers are part of the
/// interface.
enum PkConvert2dVertex : int {
    kXYPlane = 0,  ///< (x, y)
    kXZPlane = 1,  ///< (x, z)
    kYZPlane = 2,  ///< (y, z)
};

/// Phases of a triangulation call reported to a progress callback.
enum PkProgressPhase : int {
    kProgressVertices = 0,     ///< inserting the points; done and total count points
    kProgressConstraints = 1,  ///< forcing in the constraint edges; done and total count edges
};

/// Progress callback: `context` as given to setProgressCallback, the phase, and how much of it is
/// done. Returning false asks the running call to stop.
typedef bool (*PkProgressCallback)(void* context,
                                   PkProgressPhase phase,
                                   long long done,
                                   long long total);

struct RyTriangulationImpl;

/// The triangulation object: a handle owning one implementation record (working mesh, output
/// mesh, vertex locator, constraint records, options, tolerance). Copies are deep and share
/// nothing. One object must not be used from two threads at once; separate objects share only
/// the C runtime's rand() state, which the triangulation draws from (it never seeds it).
///
/// Geometric decisions take the exact sign of a determinant, then treat values within the band of
/// setCDTTolerence (default 1e-9, in the input's units) as zero: at degree scale that band is far
/// too wide, so set it to 0 for geographic coordinates (see setCDTTolerence).
///
/// A triangulation call on an object that already holds a triangulation starts from a clean
/// record; options and tolerance are kept. Input rejected with StatusFailed (non-finite
/// coordinates) or StatusTooFewPoints leaves the previous result in place.
class RYTRIANGULATION_EXPORT RyTriangulation {
public:
    /// Options: spatial sort and crossing-constraint splitting both on; tolerance 1e-9.
    RyTriangulation();
    /// Options both off; reserves room for 2n triangles and n vertices. A negative n, or n of
    /// 2^30 or more, throws std::length_error.
    RyTriangulation(int expectedPoints);
    /// bSpatialSort: insert in a multiscale Hilbert order walking from the previous vertex
    /// (otherwise shuffled order, walking from the nearest inserted vertex).
    /// bSplitCrossingConstraints: a constraint crossing an earlier one is split at a new vertex
    /// at the crossing (otherwise the earlier one is crossed and leaves the mesh).
    RyTriangulation(bool bSpatialSort, bool bSplitCrossingConstraints);
    /// Deep copy of the whole state.
    RyTriangulation(const RyTriangulation& other);
    /// Deep copy of the whole state. The copy is built before the old record is released, so an
    /// allocation failure (std::bad_alloc) leaves this object exactly as it was.
    RyTriangulation& operator=(const RyTriangulation& other);
    ~RyTriangulation();

    /// Projects `points` onto `plane` (z becomes 0), sorts them by (x, y) and merges points
    /// equal under PkGeContext::gTol. `tol` is not read. Points with a NaN coordinate in the
    /// plane are dropped (they have no place in the order); infinite ones are kept and, under a
    /// finite tolerance, merge with nothing. The array is replaced only at the end; on
    /// std::bad_alloc it is unchanged.
    void deleteDuplicateVertices(std::vector<PkGePoint3d>& points,
                                 PkConvert2dVertex& plane,
                                 PkGeTol& tol);
    /// As above, and renumbers `edges` to the merged list: each end goes to the lowest merged
    /// position equal to its point. An edge whose ends merged, or that names a point outside the
    /// array, a dropped point or a point no merged point equals (an infinite one under a finite
    /// tolerance), becomes (-1, -1) in its place; no edge is removed.
    void deleteDuplicateVertices(std::vector<PkGePoint3d>& points,
                                 std::vector<PkMeshEdge>& edges,
                                 PkConvert2dVertex& plane,
                                 PkGeTol& tol);

    /// Opt-in progress reports of the triangulation calls (null, the default, reports nothing).
    /// The callback runs on the caller's thread at the start and the end of each phase and in
    /// between after about every 4096 points or 256 constraint edges. When it returns false the
    /// call stops there and returns StatusStopped. Kept by a second triangulation call and by
    /// copies of the object; it never changes a result, a status or the use of rand().
    void setProgressCallback(PkProgressCallback callback, void* context);

    /// Delaunay triangulation of the points' x and y, closed by ghost triangles around the hull.
    /// Returns StatusOk, or the first failure: StatusFailed (an x or y that is not finite, or
    /// non-zero with magnitude outside [2^-200, 2^200]; nothing changed), StatusTooFewPoints,
    /// StatusCoincidentVertex (a repeated point), StatusLocateFailed (e.g. four or more points on
    /// one line), StatusIterationLimit. After a failure the vertices inserted so far stay in the
    /// mesh. The output list stays empty until a finishing call.
    PkTriangulationStatus delaunayTriangulation(const std::vector<PkGePoint3d>& points);
    /// delaunayTriangulation, then forces each edge (pairs of point indices, in the given order)
    /// into the mesh. Edges with equal, negative or out-of-range indices are skipped. A vertex
    /// on a segment cuts it; with bSplitCrossingConstraints set, crossing constraints get a new
    /// vertex at the crossing (appended after the caller's points, z the mean of the four
    /// ends'). Adds StatusFailed and StatusConstraintFailed to the statuses above.
    PkTriangulationStatus delaunayTriangulationWithConstraints(
        const std::vector<PkGePoint3d>& points, const std::vector<PkMeshEdge>& edges);

    /// Appends every real triangle of the working mesh to the output list.
    void deleteGhostTriangle();
    /// Appends the triangles inside the constraint boundaries (odd number of crossings from the
    /// outside; holes are even) to the output list. The crossings are counted by a flood that
    /// makes at most 1000000 triangle visits per nesting level; what it has not reached by then
    /// is appended too, ghost triangles (vertex -2) among them. Up to 250000 working triangles
    /// (two per vertex) the flood always finishes.
    void deleteOuterTrianglesAndHoles();

    /// A copy of the output list. Vertex indices refer to getMeshVertices(); neighbour indices
    /// refer to positions in the working mesh, not in this list.
    const std::vector<PkMeshTriangle> getMeshTriangles();
    /// A copy of the vertex list: the caller's points in input order, then any vertex added at a
    /// constraint crossing. Triangle indices refer to the working mesh.
    const std::vector<PkMeshPoint3d> getMeshVertices();

    /// Zero-copy read access, an extension beside the copying getters above: the output list and
    /// the vertex list themselves, with the same contents those getters would return. A reference
    /// stays valid, and its elements unchanged, until the next non-const call on this object
    /// (including assignment and destruction); read what you need before that, or take a copy.
    /// Without an implementation record, empty lists.
    const std::vector<PkMeshTriangle>& meshTriangles() const;
    const std::vector<PkMeshPoint3d>& meshVertices() const;
    /// Hands the output list over without a copy, an extension for hosts that keep the triangles
    /// beyond this object (free it, then build on them): the contents getMeshTriangles() would
    /// return; this object's output list is left empty, as before any finishing call. Without an
    /// implementation record, an empty list.
    std::vector<PkMeshTriangle> takeMeshTriangles();

    /// Sets the band around zero within which an orientation or in-circle determinant (not a
    /// distance) counts as zero; default 1e-9. Negative or NaN behaves as 0.
    /// The determinants are in the input's units: twice a signed triangle area (length^2) and the
    /// in-circle determinant (length^4). For survey coordinates in metres (magnitudes 1e5 to 1e6,
    /// points metres apart) 1e-9 merges only sub-nanometre offsets from a line. In degrees
    /// (magnitudes 1e-3 to 1e2, points 1e-5 to 1e-2 apart) the determinants of nearby points lie
    /// far below 1e-9: a point some metres (1e-5 degrees) off a line 1e-4 long counts as on it and
    /// almost every in-circle test as cocircular, so points collide (StatusCoincidentVertex),
    /// constraints fail and the mesh is far from Delaunay. 0 gives exact decisions at any scale.
    void setCDTTolerence(double tolerance);

private:
    friend struct RyTriangulationAccess;
    RyTriangulationImpl* impl;
};
