// The implementation record behind RyTriangulation: all mesh state, and the declarations of the
// operations on it, each defined in the folder of its concern (named at each group below).
#pragma once

#include <cstdint>
#include <vector>

#include "PkMeshEdge.h"
#include "PkMeshPoint3d.h"
#include "PkMeshTriangle.h"
#include "RyTriangulation.h"
#include "mesh/MeshFields.h"
#include "mesh/MeshTopology.h"
#include "predicates/Predicates.h"
#include "spatial/VertexKdTree.h"

/// Triangles that vertex insertion hands to the flip loop (at most four).
struct CheckList {
    int count = 0;
    int items[4];
    void push(int t) { items[count++] = t; }
};

/// One task of the pseudo-polygon triangulation.
struct PolygonTask {
    int parentSlot;
    int parent;
    int triangle;
    int hi;
    int lo;
};

/// What stands in for the split of a crossed constraint at the rounded crossing (see
/// CrossingResolution.cpp).
struct CrossingPlan {
    enum Kind { kSplit, kThroughEnd, kThroughApex, kInsert, kDetour, kRefused };
    Kind kind;
    /// kThroughEnd, kThroughApex, kDetour: the vertex the constraints are routed through.
    int vertex;
    /// kSplit: the triangle whose exit edge is split; kInsert: the one the vertex goes into.
    int triangle;
    /// kSplit, kInsert: the point was moved off the rounded crossing.
    bool moved;
};

struct RyTriangulationImpl {
    static constexpr std::uint32_t bSpatialSort = 1u << 0;
    static constexpr std::uint32_t bSplitCrossingConstraints = 1u << 1;
    static constexpr int UnvisitedDepth = 2147483647;

    /// Default record (options 0); the constructors of RyTriangulation set the options.
    RyTriangulationImpl();
    RyTriangulationImpl(const RyTriangulationImpl&) = default;
    RyTriangulationImpl& operator=(const RyTriangulationImpl&) = default;

    // --- state -------------------------------------------------------------------------------
    std::uint32_t options = 0;
    std::vector<PkMeshTriangle> triangles;
    std::vector<PkMeshPoint3d> vertices;
    std::vector<PkMeshTriangle> meshTriangles;
    VertexKdTree locator;
    std::vector<int> freeTriangles;
    EdgeSet constraintEdges;
    EdgeMap<int> constraintRepeats;
    EdgeMap<std::vector<PkMeshEdge>> constraintOrigins;
    int maxIterations = 1000000;
    double cdtTolerance = 1e-9;
    /// Opt-in progress reports (setProgressCallback); null reports nothing.
    PkProgressCallback progress = nullptr;
    void* progressContext = nullptr;

    // --- working storage, reused across calls (never part of the observable state) ------------
    /// The tolerance band the geometry uses: cdtTolerance, or 0 when that is negative or NaN.
    double band = 1e-9;
    /// Stack of triangles whose edge opposite the new vertex is to be checked.
    std::vector<int> flipStack;
    /// Edges that may not be locally Delaunay since a constraint was rerouted off them, and the
    /// edges touched after that while the same input edge goes in; legalised at its end.
    std::vector<PkMeshEdge> suspectEdges;
    /// True once a triangulation call has written the record.
    bool used = false;

    /// Reports progress when a callback is set; false when it asks the call to stop.
    bool reportProgress(PkProgressPhase phase, long long done, long long total) const {
        return progress == nullptr || progress(progressContext, phase, done, total);
    }
    /// Points (or constraint edges) between two progress reports: rare enough to cost nothing.
    static constexpr int kProgressStride = 4096;
    static constexpr int kConstraintProgressStride = 256;

    // --- triangle slots ----------------------------------------------------------------------
    /// Slot for a new triangle: the last released slot if any, else a default one appended.
    int allocateTriangle();
    void appendTriangle(const PkMeshTriangle& t);

    // --- the triangulation call (driver/; the loops in delaunay/ and accel/) ------------------
    /// Checks input, empties a used record, fills `vertices`, inserts every vertex.
    PkTriangulationStatus delaunayTriangulation(const std::vector<PkGePoint3d>& points);
    /// Appends one record per point (capacity reserved beforehand).
    void appendVertexRecords(const std::vector<PkGePoint3d>& points);
    PkTriangulationStatus insertVerticesSorted();
    PkTriangulationStatus insertVerticesShuffled();
    /// Inserts order[from..] one by one through the locator.
    PkTriangulationStatus insertShuffledFrom(const std::vector<int>& order, int from);
    /// The same from position 3, with the nearest-vertex queries answered ahead on a helper
    /// thread; the locator ends as the sequential run would leave it.
    PkTriangulationStatus insertShuffledAhead(const std::vector<int>& order);
    /// Builds the first triangle and its three ghost triangles and moves its corners to the front
    /// of `order`. Returns false (nothing changed) when no non-degenerate triple was found.
    bool createFirstTriangle(std::vector<int>& order);
    /// The random draws of createFirstTriangle for more than three vertices: corners receives a
    /// counter-clockwise triple. False when no triple was found within the limits.
    bool drawFirstTriangle(int corners[3]);
    /// Appends the real triangle (a, b, c) and its three ghost triangles; sets the corners'
    /// triangle indices.
    void appendFirstMesh(int a, int b, int c);
    /// Empties the mesh, output, locator and constraint records; keeps options and tolerance.
    void reset();

    // --- point location and insertion (delaunay/) --------------------------------------------
    /// Randomised walk from the triangle of `startVertex` to the triangle holding `point`.
    /// Returns the triangle (sides[k]: the point against edge k) or -1.
    template <class View>
    int locatePoint(const View& view, int startVertex, const double* point, PointSide sides[3]);
    /// The one insertion routine: walk from the triangle of `start` to `vertex`'s position,
    /// split there, legalise. The view (delaunay/VertexViews.h) says where positions and the
    /// vertices' triangle indices live.
    template <class View>
    PkTriangulationStatus insertVertex(const View& view, int vertex, int start);
    /// insertVertex starting at the locator's nearest vertex; the locator then gets `vertex`.
    PkTriangulationStatus insertVertexByLocator(int vertex);
    /// Splits triangle t (or t and its neighbour) at vertex p; fills `list` with the triangles to
    /// check. A location other than in-triangle, on an edge or in a ghost triangle changes nothing
    /// but the two allocated slots.
    /// StatusFailed (nothing changed but the two slots) when the mesh around t is inconsistent.
    PkTriangulationStatus insertVertexAt(CheckList& list, int t, int p, PointLocation location);
    template <class View>
    PkTriangulationStatus insertVertexAt(
        const View& view, CheckList& list, int t, int p, PointLocation location);
    /// Lawson flips around p until every edge opposite p is locally Delaunay.
    PkTriangulationStatus legalizeAroundVertex(int p, const CheckList& list);
    template <class View>
    PkTriangulationStatus legalizeAroundVertex(const View& view, int p, const CheckList& list);
    void replaceNeighbor(int x, int oldIndex, int newIndex) {
        replaceNeighborIn(triangles.data(), int(triangles.size()), x, oldIndex, newIndex);
    }

    // --- constraints -------------------------------------------------------------------------
    PkTriangulationStatus delaunayTriangulationWithConstraints(
        const std::vector<PkGePoint3d>& points, const std::vector<PkMeshEdge>& edges);
    PkTriangulationStatus insertConstraintEdge(const PkMeshEdge& edge);
    PkTriangulationStatus insertConstraintSegment(const PkMeshEdge& piece,
                                                  const PkMeshEdge& origin,
                                                  std::vector<PkMeshEdge>& pendingEdges);
    bool isMeshEdge(int a, int b) const;
    /// Returns false when a boundary edge is missing from the map (an inconsistent region).
    bool triangulatePseudoPolygon(const std::vector<int>& chain,
                                  EdgeMap<int>& boundaryNeighbours,
                                  int own,
                                  int partner);
    int findDelaunayVertex(int lo, int hi, const std::vector<int>& chain) const;
    void recordConstraint(const PkMeshEdge& piece, const PkMeshEdge& origin);
    void recordConstraint(const PkMeshEdge& piece);
    bool intersectLines(int a, int b, int u, int w, PkGePoint3d& p) const;
    /// How the walk resolves its crossing with the constraint that is the exit edge of triangle
    /// t (pivot at local position j, n beyond); p, the rounded crossing, may move a few ulps.
    CrossingPlan planCrossing(int t, int j, int n, PkGePoint3d& p) const;
    /// Carries out the plan for the piece a-b and queues what remains of the piece.
    PkTriangulationStatus resolveCrossing(
        int t, int j, int n, int a, int b, PkGePoint3d p, std::vector<PkMeshEdge>& pendingEdges);
    /// Adds the edges of every triangle around the vertex to `suspectEdges`.
    void noteEdgesAround(int vertex);
    /// Lawson flips from `suspectEdges` (emptied) until all edges they reach are locally
    /// Delaunay or constraints.
    PkTriangulationStatus legalizeSuspectEdges();
    bool allCounterClockwise(const std::vector<int>& slots) const;
    int splitConstraintEdge(const PkMeshEdge& edge, const PkGePoint3d& p, int t);
    /// Replaces the constraint `edge` (u, w) in the records by (u, v) and (v, w), which carry
    /// its repeat count and origins; the mesh is not touched.
    void splitConstraintRecords(const PkMeshEdge& edge, int v);
    void appendVertex(const PkGePoint3d& p);

    // --- finishing ---------------------------------------------------------------------------
    void deleteGhostTriangle();
    void deleteOuterTrianglesAndHoles();
    std::vector<int> labelTriangleDepths() const;
};

// Constraint-record helpers.
void addOrigin(std::vector<PkMeshEdge>& list, const PkMeshEdge& edge);
void mergeOrigins(std::vector<PkMeshEdge>& destination, const std::vector<PkMeshEdge>& source);
