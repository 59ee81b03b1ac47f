// The implementation record behind RyTriangulation: all mesh state and every operation on it.
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "MeshFields.h"
#include "PkMeshEdge.h"
#include "PkMeshPoint3d.h"
#include "PkMeshTriangle.h"
#include "RyTriangulation.h"
#include "predicates/Predicates.h"
#include "spatial/VertexKdTree.h"

/// Hash of every container keyed by an edge; symmetric in the two indices.
struct PkMeshEdgeHash {
    std::size_t operator()(const PkMeshEdge& e) const {
        const std::uint64_t basis = 0xcbf29ce484222325ull;
        const std::uint64_t i1 = std::uint64_t(std::int64_t(e.EdgeIndex1()));
        const std::uint64_t i2 = std::uint64_t(std::int64_t(e.EdgeIndex2()));
        return std::size_t(((i1 ^ basis) + (i2 ^ basis)) * 0x100000001b3ull);
    }
};

using EdgeSet = std::unordered_set<PkMeshEdge, PkMeshEdgeHash>;
template <class T>
using EdgeMap = std::unordered_map<PkMeshEdge, T, PkMeshEdgeHash>;

/// Triangles that vertex insertion hands to the flip loop (at most four).
struct CheckList {
    int count = 0;
    int items[4];
    void push(int t) { items[count++] = t; }
};

/// Stands for the ghost vertex's position where one is copied; never used in a predicate.
inline constexpr double kNoPosition[2] = {0.0, 0.0};

/// Vertex positions and triangle indices as the insertion code reads and writes them, by vertex
/// index: the vertex records themselves.
struct RecordVertexView {
    std::vector<PkMeshPoint3d>& records;
    const double* xy(int i) const { return vertexXY(records[std::size_t(i)]); }
    int& triangle(int i) const { return vertexTriangle(records[std::size_t(i)]); }
    static constexpr bool keepsCorners = false;
    static constexpr bool scoutedAhead = false;
    /// Position of corner k (vertex v, not the ghost vertex) of triangle t.
    const double* cornerXY(int /*t*/, int /*k*/, int v) const { return xy(v); }
    /// Records the positions of t's corners (where a view keeps them).
    void setCorners(int, const double*, const double*, const double*) const {}
};

/// The same, with each triangle slot's three corner positions kept beside the mesh (six doubles
/// per slot). A triangle's index then gives its corners' positions at once, where the vertex
/// records would be a second load waiting for the first: when the insertions jump around a mesh
/// that no cache holds, the walk and the flip check each wait for one miss instead of two.
/// Positions of the ghost vertex are kept as zeros and never read. The vertices' triangle
/// indices live in a compact array of their own (copied back into the records at the end): the
/// flips rewrite them for vertices whose records nothing else reads, and 16 of them share a
/// cache line where the records hold 2.
struct CornerVertexView : RecordVertexView {
    double* corners;
    int* triangleIndex;
    int& triangle(int i) const { return triangleIndex[i]; }
    const double* cornerXY(int t, int k, int /*v*/) const {
        return corners + 6 * std::size_t(t) + 2 * std::size_t(k);
    }
    static constexpr bool keepsCorners = true;
    /// Used only with the insertion scouts, which fetch the insertions' reads ahead: the walk
    /// and the flip loop start no loads of their own.
    static constexpr bool scoutedAhead = true;
    /// a, b and c may point into t's own entry: all six values are read before any is written.
    void setCorners(int t, const double* a, const double* b, const double* c) const {
        const double v[6] = {a[0], a[1], b[0], b[1], c[0], c[1]};
        double* d = corners + 6 * std::size_t(t);
        for (int k = 0; k < 6; ++k) d[k] = v[k];
    }
};

/// A vertex of the insertion order with its coordinates beside it, so that the sort reads
/// contiguous memory and the insertions read positions by rank. The index is as wide as the
/// coordinates: the partition loops copy whole keys as 8-byte words, and a narrower field stored
/// and then reloaded as part of a wider word stalls store forwarding.
struct SortKey {
    double xy[2];
    std::int64_t index;
};

/// The same for a triangulation numbered in insertion order: vertex r is the r-th inserted, its
/// position and triangle index held in compact arrays. Vertices inserted along a space-filling
/// curve then have their mesh neighbours near them in memory too, where the records (in the
/// caller's order) would put every neighbour's position a cache miss away.
struct RankedVertexView {
    const SortKey* keys;  // x, y of each vertex
    int* triangles;
    const double* xy(int i) const { return keys[i].xy; }
    int& triangle(int i) const { return triangles[i]; }
    static constexpr bool keepsCorners = false;
    static constexpr bool scoutedAhead = false;
    const double* cornerXY(int /*t*/, int /*k*/, int v) const { return xy(v); }
    void setCorners(int, const double*, const double*, const double*) const {}
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

    // --- drivers -----------------------------------------------------------------------------
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

    // --- point location and insertion --------------------------------------------------------
    /// Randomised walk from the triangle of `startVertex` to the triangle holding `point`.
    /// Returns the triangle (sides[k]: the point against edge k) or -1.
    int locatePoint(int startVertex, const double* point, PointSide sides[3]);
    template <class View>
    int locatePoint(const View& view, int startVertex, const double* point, PointSide sides[3]);
    PkTriangulationStatus insertVertexByLocator(int vertex);
    /// insertVertexByLocator with the locator's answer given as `start`; the locator is not
    /// touched.
    PkTriangulationStatus insertVertexNear(int vertex, int start);
    /// The same, keeping the triangles' corner positions in the view's array.
    PkTriangulationStatus insertVertexNear(const CornerVertexView& view, int vertex, int start);
    PkTriangulationStatus insertVertexFromPrevious(int vertex, int start);
    /// The same on a triangulation numbered in insertion order (no vertex excluded).
    PkTriangulationStatus insertVertexFromPrevious(const RankedVertexView& view,
                                                   int vertex,
                                                   int start);
    /// Walk from the triangle of `start` to `vertex`'s position, insert, legalise.
    template <class View>
    PkTriangulationStatus locateAndInsert(const View& view, int vertex, int start);
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
    void replaceNeighbor(int x, int oldIndex, int newIndex);

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

// Insertion order (spatial sort and shuffle).
void shuffleIndices(std::vector<int>& order);
void spatialSort(std::vector<int>& order, const std::vector<PkMeshPoint3d>& vertices);

/// The spatial sort of an order into keys[0, n), run on a helper thread when asked (and one can
/// be started), else at once. The caller reads a position once `waitFor` has returned for it:
/// the sort finishes the order from the front, and never touches a position again once it is
/// final, so the caller may also rewrite final positions.
class SortAhead {
public:
    /// Takes the order, and frees it once the keys are made.
    /// The helper then populates [spare, spare + spareBytes) (memory the insertions will fill;
    /// see populatePages).
    SortAhead(std::vector<int>&& order,
              const std::vector<PkMeshPoint3d>& vertices,
              SortKey* keys,
              bool helper,
              const void* spare = nullptr,
              std::size_t spareBytes = 0);
    ~SortAhead();  ///< joins the helper (after it finished the sort)
    SortAhead(const SortAhead&) = delete;
    SortAhead& operator=(const SortAhead&) = delete;
    /// Waits until positions up to and including `position` are final.
    void waitFor(std::size_t position) {
        if (position >= seen_) waitSlow(position);
    }

private:
    void run();
    void waitSlow(std::size_t position);

    std::vector<int> order_;
    const std::vector<PkMeshPoint3d>& vertices_;
    SortKey* keys_;
    const void* spare_;
    std::size_t spareBytes_;
    // The helper's counter and the caller's reading of it on lines of their own (the object
    // lives on the caller's stack, among locals it writes on every insertion).
    alignas(64) std::atomic<std::size_t> ready_{0};
    alignas(64) std::size_t seen_ = 0;
    std::thread thread_;
};
/// Hilbert order of [begin, end), first split along `axis` (0 = x, 1 = y): ascending along `axis`
/// when `ux`, along the other axis when `uy` (descending otherwise).
void hilbertSort(std::vector<int>::iterator begin,
                 std::vector<int>::iterator end,
                 const std::vector<PkMeshPoint3d>& vertices,
                 int axis,
                 bool ux,
                 bool uy);

// Constraint-record helpers.
void addOrigin(std::vector<PkMeshEdge>& list, const PkMeshEdge& edge);
void mergeOrigins(std::vector<PkMeshEdge>& destination, const std::vector<PkMeshEdge>& source);
/// Local position k of t whose edge (vertex k, vertex k+1) joins a and b (either order); -1 if
/// none.
inline int getLocalEdgeIndex(const PkMeshTriangle& t, int a, int b) {
    const int* v = triVerts(t);
    for (int k = 0; k < 3; ++k) {
        const int p = v[k];
        const int q = v[k == 2 ? 0 : k + 1];
        if ((p == a && q == b) || (p == b && q == a)) return k;
    }
    return -1;
}

/// Neighbour of t across the edge {a, b}, by the rule of PkMeshTriangle::getNeighborIndex(a, b):
/// for two corners a and b, the neighbour across the edge joining them.
inline int getNeighborAcrossEdge(const PkMeshTriangle& t, int a, int b) {
    const int* v = triVerts(t);
    const int* n = triNbrs(t);
    if (v[0] == a) return v[1] == b ? n[0] : n[2];
    if (v[0] == b) return v[1] == a ? n[0] : n[2];
    return n[1];
}

// Input clean-up (touches only the caller's arrays).
void deleteDuplicateVertices(std::vector<PkGePoint3d>& points, PkConvert2dVertex plane);
void deleteDuplicateVertices(std::vector<PkGePoint3d>& points,
                             std::vector<PkMeshEdge>& edges,
                             PkConvert2dVertex plane);
