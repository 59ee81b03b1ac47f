// Forcing a constraint edge a-b into the mesh. A walk along the segment collects the triangles
// it crosses and the vertex chains bounding them on its left and right; the crossed slots are
// released and each side is re-triangulated (pseudo-polygon triangulation), so a-b becomes an
// edge. A vertex on the segment cuts it (the rest is queued as a piece of its own); with
// bSplitCrossingConstraints, an earlier constraint in the way is split at the crossing instead.
// The walk only collects: the mesh changes after it has finished, so a walk that fails leaves
// the mesh as it was.
#include "constraints/ConstraintInsertion.h"

#include <algorithm>
#include <cmath>

#include "mesh/LocalIndex.h"

namespace {

/// Absolute slack of the segment box test that decides whether a vertex on the line around the
/// start vertex lies within the segment.
constexpr double kBoxSlack = 1e-10;

inline bool inSegmentBox(const double* P, const double* A, const double* B) {
    return P[0] - std::min(A[0], B[0]) >= -kBoxSlack && P[0] - std::max(A[0], B[0]) <= kBoxSlack &&
           P[1] - std::min(A[1], B[1]) >= -kBoxSlack && P[1] - std::max(A[1], B[1]) <= kBoxSlack;
}

/// Copies of the triangle slots and vertex links that re-triangulating a cavity overwrites.
class CavityBackup {
public:
    void saveTriangle(const TriangleMesh& mesh, int t) {
        triangles.emplace_back(t, mesh.triangles[std::size_t(t)]);
    }
    void saveVertex(const TriangleMesh& mesh, int v) {
        vertices.emplace_back(v, vertexTriangle(mesh.vertices[std::size_t(v)]));
    }
    /// Restores in reverse order, so the first copy of a slot saved twice wins.
    void restore(TriangleMesh& mesh) const {
        for (auto it = triangles.rbegin(); it != triangles.rend(); ++it) {
            mesh.triangles[std::size_t(it->first)] = it->second;
        }
        for (auto it = vertices.rbegin(); it != vertices.rend(); ++it) {
            vertexTriangle(mesh.vertices[std::size_t(it->first)]) = it->second;
        }
    }

private:
    std::vector<std::pair<int, PkMeshTriangle>> triangles;
    std::vector<std::pair<int, int>> vertices;
};

bool allCounterClockwise(const TriangleMesh& mesh, const std::vector<int>& slots) {
    for (int t : slots) {
        const int* v = triVerts(mesh.triangles[std::size_t(t)]);
        if (v[0] < 0 || v[1] < 0 || v[2] < 0) return false;  // chains never hold the ghost vertex
        if (!(orient2d(vertexXY(mesh.vertices[std::size_t(v[0])]),
                       vertexXY(mesh.vertices[std::size_t(v[1])]),
                       vertexXY(mesh.vertices[std::size_t(v[2])])) > 0)) {
            return false;
        }
    }
    return true;
}

}  // namespace

PkTriangulationStatus insertConstraintEdge(const ConstraintContext& c, const PkMeshEdge& edge) {
    std::vector<PkMeshEdge> pendingEdges(1, edge);
    c.suspectEdges.clear();
    PkTriangulationStatus status = StatusOk;
    for (int calls = 0; status == StatusOk && !pendingEdges.empty(); ++calls) {
        const PkMeshEdge piece = pendingEdges.back();
        pendingEdges.pop_back();
        status = insertConstraintSegment(c, piece, piece, pendingEdges);
        if (status == StatusOk && calls >= c.maxIterations) status = StatusIterationLimit;
    }
    // Edges that a rerouted crossing left as plain edges (none in the common case).
    if (!c.suspectEdges.empty()) {
        const PkTriangulationStatus legalized = legalizeSuspectEdges(c);
        if (status == StatusOk) status = legalized;
    }
    return status;
}

namespace {

/// Side of vertex v against the segment pa->pb, in the band. The ends are copies: splitting a
/// crossed constraint appends a vertex, which may move the vertex list.
struct SegmentSide {
    const TriangleMesh& m;
    double band;
    PkGePoint3d pa, pb;
    PointSide operator()(int v) const {
        return classifyPointSide(vertexXY(m.vertices[std::size_t(v)]), &pa.x, &pb.x, band);
    }
    bool within(int v) const {
        return inSegmentBox(vertexXY(m.vertices[std::size_t(v)]), &pa.x, &pb.x);
    }
};

/// The region a piece a-e crosses: the vertex chains on its left and right (from a), the crossed
/// triangles, and the triangle across each boundary edge (kInteriorEdge for one met twice).
struct Cavity {
    std::vector<int> left, right, crossed;
    EdgeMap<int> boundary;
    int end = NoVertex;     ///< e: the first vertex on the segment after a (b at the latest)
    int last = NoTriangle;  ///< the crossed triangle that holds e

    /// A crossed triangle n entered across (p, q): one more boundary edge on either chain.
    void offer(const TriangleMesh& m, int p, int q, int n) {
        const int across = getNeighborAcrossEdge(m.triangles[std::size_t(n)], p, q);
        const auto inserted = boundary.emplace(PkMeshEdge(p, q), across);
        if (!inserted.second) inserted.first->second = kInteriorEdge;
    }
};

/// Turns around a until a triangle (a, d, c) has c on the left and d on the right of a->b: the
/// segment leaves a through it, and the cavity starts there. A vertex on the segment next to a
/// cuts the segment there instead: the piece is then settled and the cavity stays empty.
PkTriangulationStatus findExit(const ConstraintContext& context,
                               int a,
                               int b,
                               const SegmentSide& side,
                               const PkMeshEdge& origin,
                               std::vector<PkMeshEdge>& pendingEdges,
                               Cavity& cavity) {
    const std::vector<PkMeshTriangle>& triangles = context.mesh.triangles;
    const int triangleCount = int(triangles.size());
    const int t0 = vertexTriangle(context.mesh.vertices[std::size_t(a)]);
    int t = t0;
    int c = NoVertex, d = NoVertex;
    for (int count = 0;;) {
        const PkMeshTriangle& T = triangles[std::size_t(t)];
        const int* v = triVerts(T);
        const int i = cornerIndex(v, a);
        d = v[nextLocalIndex(i)];
        c = v[prevLocalIndex(i)];
        if (!isGhost(T)) {
            const PointSide sc = side(c);
            if (sc == kOnLine && side.within(c)) {
                context.records.record(PkMeshEdge(a, c), origin);
                pendingEdges.push_back(PkMeshEdge(c, b));
                return StatusOk;
            }
            if (sc == kLeft) {
                const PointSide sd = side(d);
                if (sd == kOnLine && side.within(d)) {
                    context.records.record(PkMeshEdge(a, d), origin);
                    pendingEdges.push_back(PkMeshEdge(d, b));
                    return StatusOk;
                }
                if (sd == kRight) break;
            }
            ++count;
        }
        t = triNbrs(T)[i];
        if (t == t0 || count >= context.maxIterations || t < 0 || t >= triangleCount) {
            return StatusConstraintFailed;
        }
    }
    for (std::vector<int>* list : {&cavity.left, &cavity.right, &cavity.crossed}) list->reserve(5);
    cavity.left.push_back(a);
    cavity.left.push_back(c);
    cavity.right.push_back(a);
    cavity.right.push_back(d);
    cavity.crossed.push_back(t);
    cavity.boundary[PkMeshEdge(a, c)] = getNeighborAcrossEdge(triangles[std::size_t(t)], a, c);
    cavity.boundary[PkMeshEdge(a, d)] = getNeighborAcrossEdge(triangles[std::size_t(t)], a, d);
    cavity.last = t;
    return StatusOk;
}

/// Walks along the segment from the exit triangle to the first vertex on it. The pivot is the
/// chain vertex of the current triangle that the segment passes; it leaves through the edge
/// (u, w) opposite the pivot. With crossings split, an earlier constraint in the way is split
/// where the segment crosses it and both halves of this segment queued (`resolved`); nothing
/// collected so far is used.
PkTriangulationStatus walkCavity(const ConstraintContext& c,
                                 const PkMeshEdge& piece,
                                 const SegmentSide& side,
                                 std::vector<PkMeshEdge>& pendingEdges,
                                 Cavity& cavity,
                                 bool& resolved) {
    const int a = piece.EdgeIndex1(), b = piece.EdgeIndex2();
    const int triangleCount = int(c.mesh.triangles.size());
    int pivot = a;
    int cur = cavity.last;
    for (int steps = 0;; ++steps) {
        const int* v = triVerts(c.mesh.triangles[std::size_t(cur)]);
        const int j = cornerIndex(v, pivot);
        const int u = v[nextLocalIndex(j)];
        const int w = v[prevLocalIndex(j)];
        const int n = triNbrs(c.mesh.triangles[std::size_t(cur)])[nextLocalIndex(j)];
        if (c.splitCrossings && c.records.contains(PkMeshEdge(u, w))) {
            resolved = true;
            PkGePoint3d p;
            if (!intersectLines(c.mesh, a, b, u, w, p)) return StatusConstraintFailed;
            if (p.isEqualTo(side.pa, PkGeContext::gTol) ||
                p.isEqualTo(side.pb, PkGeContext::gTol)) {
                return StatusConstraintFailed;
            }
            return resolveCrossing(c, cur, j, n, a, b, p, pendingEdges);
        }
        // A segment between two vertices stays inside the hull; stepping into a ghost triangle
        // means rounding led the walk astray. Nothing has changed yet, so stop cleanly.
        if (n < 0 || n >= triangleCount || isGhost(c.mesh.triangles[std::size_t(n)])) {
            return StatusConstraintFailed;
        }
        const int* nv = triVerts(c.mesh.triangles[std::size_t(n)]);
        const int o =
            (nv[0] != u && nv[0] != w) ? nv[0] : ((nv[1] != u && nv[1] != w) ? nv[1] : nv[2]);
        const PointSide so = side(o);
        if (so == kLeft || so == kRight) {
            std::vector<int>& chain = so == kLeft ? cavity.left : cavity.right;
            pivot = chain.back();
            chain.push_back(o);
            cavity.offer(c.mesh, pivot, o, n);
        } else if (o == a) {
            // The walk has come round to its own start: only a mesh bent by the tolerance
            // band (near-flat triangles) allows that. Nothing has changed yet.
            return StatusConstraintFailed;
        } else {
            cavity.end = o;  // a vertex on the segment (b itself at the latest) ends this piece
        }
        cavity.crossed.push_back(n);
        cur = n;
        if (steps >= c.maxIterations) return StatusIterationLimit;
        const int* cv = triVerts(c.mesh.triangles[std::size_t(cur)]);
        const int e = cavity.end >= 0 ? cavity.end : b;
        if (cv[0] == e || cv[1] == e || cv[2] == e) break;
    }
    if (cavity.end < 0) cavity.end = b;
    cavity.last = cur;
    return StatusOk;
}

/// Closes the cavity at its end vertex; false when a boundary edge of either chain is not known
/// (an inconsistent region, refused before anything changes).
bool closeCavity(const TriangleMesh& m, Cavity& cavity) {
    const int l = cavity.left.back(), r = cavity.right.back(), e = cavity.end;
    const PkMeshTriangle& last = m.triangles[std::size_t(cavity.last)];
    cavity.boundary[PkMeshEdge(l, e)] = getNeighborAcrossEdge(last, l, e);
    cavity.boundary[PkMeshEdge(r, e)] = getNeighborAcrossEdge(last, r, e);
    cavity.left.push_back(e);
    cavity.right.push_back(e);
    for (const std::vector<int>* chain : {&cavity.left, &cavity.right}) {
        for (std::size_t k = 0; k + 1 < chain->size(); ++k) {
            if (cavity.boundary.count(PkMeshEdge((*chain)[k], (*chain)[k + 1])) == 0) return false;
        }
    }
    return true;
}

/// Re-triangulates both sides of the closed cavity in its released slots; a result that is not
/// a sound mesh is undone (false).
bool fillCavity(TriangleMesh& m, double band, Cavity& cavity) {
    // Everything the re-triangulation writes: the crossed slots, the links of the triangles
    // around the cavity, the triangle index of each chain vertex.
    CavityBackup backup;
    for (int crossed : cavity.crossed) backup.saveTriangle(m, crossed);
    for (const auto& entry : cavity.boundary) {
        if (entry.second >= 0) backup.saveTriangle(m, entry.second);
    }
    for (const std::vector<int>* chain : {&cavity.left, &cavity.right}) {
        for (int vertex : *chain) backup.saveVertex(m, vertex);
    }
    const std::size_t freeCount = m.freeTriangles.size();
    for (int crossed : cavity.crossed) m.freeTriangles.push_back(crossed);
    std::reverse(cavity.right.begin(), cavity.right.end());
    const int t1 = m.allocateTriangle();
    const int t2 = m.allocateTriangle();
    // Chains of k crossed triangles hold k + 4 entries, so exactly the k released slots are
    // taken again. With a band that blurs the in-circle test (tiny spacings) the choice of the
    // third vertex can fold a non-convex side; such a piece is undone and refused.
    if (!triangulatePseudoPolygon(m, band, cavity.left, cavity.boundary, t1, t2) ||
        !triangulatePseudoPolygon(m, band, cavity.right, cavity.boundary, t2, t1) ||
        !allCounterClockwise(m, cavity.crossed)) {
        backup.restore(m);
        m.freeTriangles.resize(freeCount);
        return false;
    }
    return true;
}

}  // namespace

PkTriangulationStatus insertConstraintSegment(const ConstraintContext& c,
                                              const PkMeshEdge& piece,
                                              const PkMeshEdge& origin,
                                              std::vector<PkMeshEdge>& pendingEdges) {
    const std::vector<PkMeshPoint3d>& vertices = c.mesh.vertices;
    const int a = piece.EdgeIndex1();
    const int b = piece.EdgeIndex2();
    const int vertexCount = int(vertices.size());
    if (a == b || a < 0 || b < 0 || a >= vertexCount || b >= vertexCount) return StatusOk;
    const int t0 = vertexTriangle(vertices[std::size_t(a)]);
    if (t0 < 0 || t0 >= int(c.mesh.triangles.size())) return StatusConstraintFailed;
    if (c.mesh.isMeshEdge(a, b, c.maxIterations)) {
        c.records.record(piece, origin);
        return StatusOk;
    }
    const SegmentSide side{c.mesh,
                           c.band,
                           PkMeshFields::point(vertices[std::size_t(a)]),
                           PkMeshFields::point(vertices[std::size_t(b)])};
    Cavity cavity;
    PkTriangulationStatus status = findExit(c, a, b, side, origin, pendingEdges, cavity);
    if (status != StatusOk || cavity.crossed.empty()) return status;
    bool resolved = false;
    status = walkCavity(c, piece, side, pendingEdges, cavity, resolved);
    if (status != StatusOk || resolved) return status;
    if (!closeCavity(c.mesh, cavity) || !fillCavity(c.mesh, c.band, cavity)) {
        return StatusConstraintFailed;
    }

    const int e = cavity.end;
    if (!c.suspectEdges.empty()) {
        for (const auto& entry : cavity.boundary) c.suspectEdges.push_back(entry.first);
    }
    if (e == origin.EdgeIndex2()) {
        c.records.record(piece, origin);
    } else {
        c.records.record(PkMeshEdge(a, e), origin);
        pendingEdges.push_back(PkMeshEdge(e, origin.EdgeIndex2()));
    }
    return StatusOk;
}
