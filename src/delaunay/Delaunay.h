// The Delaunay insertion's entry points and what they work on besides a vertex view: the mesh,
// the settings every walk and flip reads, the flip loop's stack. The templates on a view
// (locatePoint, insertVertex) are in PointLocation.h and VertexInsertion.h.
#pragma once

#include <vector>

#include "RyTriangulation.h"
#include "mesh/MeshTopology.h"
#include "mesh/TriangleMesh.h"
#include "predicates/Predicates.h"
#include "spatial/VertexKdTree.h"

struct DelaunayContext {
    TriangleMesh& mesh;
    /// Edges the flips keep: the constraint edges (none while the vertices go in).
    const EdgeSet& constraints;
    /// Working storage of the flip loop, reused across insertions.
    std::vector<int>& flipStack;
    /// Tolerance band of the predicates (0 or more).
    double band;
    /// Bound of every walk and repair loop.
    int maxIterations;
};

/// Triangles that vertex insertion hands to the flip loop (at most four).
struct CheckList {
    int count = 0;
    int items[4];
    void push(int t) { items[count++] = t; }
};

/// Opt-in progress reports (setProgressCallback); a null callback reports nothing.
struct ProgressReport {
    PkProgressCallback callback = nullptr;
    void* context = nullptr;

    /// Points (or constraint edges) between two reports: rare enough to cost nothing.
    static constexpr int kVertexStride = 4096;
    static constexpr int kConstraintStride = 256;

    bool active() const { return callback != nullptr; }
    /// False when the callback asks the call to stop.
    bool operator()(PkProgressPhase phase, long long done, long long total) const {
        return callback == nullptr || callback(context, phase, done, total);
    }
};

/// The one insertion routine, on any view (defined in VertexInsertion.h, instantiated there for
/// the ranked view and in accel/ for the corner view).
template <class View>
PkTriangulationStatus insertVertex(const DelaunayContext& c,
                                   const View& view,
                                   int vertex,
                                   int start);
/// insertVertex on the vertex records, starting at the locator's nearest vertex; the locator
/// then gets `vertex`.
PkTriangulationStatus insertVertexByLocator(const DelaunayContext& c,
                                            VertexKdTree& locator,
                                            int vertex);
/// The plain shuffled loop: inserts order[from..] one by one through the locator.
PkTriangulationStatus insertShuffledFrom(const DelaunayContext& c,
                                         VertexKdTree& locator,
                                         const ProgressReport& progress,
                                         const std::vector<int>& order,
                                         int from);
/// Splits triangle t (or t and its neighbour) at vertex p on the vertex records; fills `list`
/// with the triangles to check. StatusFailed (nothing changed but the two allocated slots) when
/// the mesh around t is inconsistent; a location other than in-triangle, on an edge or in a
/// ghost triangle changes nothing but those slots.
PkTriangulationStatus insertVertexAt(
    TriangleMesh& mesh, CheckList& list, int t, int p, PointLocation location);
/// Lawson flips around p on the vertex records until every edge opposite p is locally Delaunay.
PkTriangulationStatus legalizeAroundVertex(const DelaunayContext& c, int p, const CheckList& list);

/// Builds the first triangle and its three ghost triangles and moves its corners to the front
/// of `order`. Returns false (nothing changed) when no non-degenerate triple was found.
bool createFirstTriangle(TriangleMesh& mesh,
                         double band,
                         int maxIterations,
                         std::vector<int>& order);
/// The random draws of createFirstTriangle for more than three vertices: corners receives a
/// counter-clockwise triple. False when no triple was found within the limits.
bool drawFirstTriangle(const TriangleMesh& mesh, double band, int maxIterations, int corners[3]);
