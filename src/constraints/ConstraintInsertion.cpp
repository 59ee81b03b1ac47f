// Forcing a constraint edge a-b into the mesh. A walk along the segment collects the triangles
// it crosses and the vertex chains bounding them on its left and right; the crossed slots are
// released and each side is re-triangulated (pseudo-polygon triangulation), so a-b becomes an
// edge. A vertex on the segment cuts it (the rest is queued as a piece of its own); with
// bSplitCrossingConstraints, an earlier constraint in the way is split at the crossing instead.
// The walk only collects: the mesh changes after it has finished, so a walk that fails leaves
// the mesh as it was.
#include <algorithm>
#include <cmath>

#include "mesh/LocalIndex.h"
#include "state/RyTriangulationImpl.h"

namespace {

/// Absolute slack of the segment box test that decides whether a vertex on the line around the
/// start vertex lies within the segment.
constexpr double kBoxSlack = 1e-10;

inline bool inSegmentBox(const double* P, const double* A, const double* B) {
    return P[0] - std::min(A[0], B[0]) >= -kBoxSlack && P[0] - std::max(A[0], B[0]) <= kBoxSlack &&
           P[1] - std::min(A[1], B[1]) >= -kBoxSlack && P[1] - std::max(A[1], B[1]) <= kBoxSlack;
}

inline int localIndexOf(const int* v, int vertex) {
    return v[0] == vertex ? 0 : (v[1] == vertex ? 1 : 2);
}

/// Copies of the triangle slots and vertex links that re-triangulating a cavity overwrites.
class CavityBackup {
public:
    void saveTriangle(const RyTriangulationImpl& mesh, int t) {
        triangles.emplace_back(t, mesh.triangles[std::size_t(t)]);
    }
    void saveVertex(const RyTriangulationImpl& mesh, int v) {
        vertices.emplace_back(v, vertexTriangle(mesh.vertices[std::size_t(v)]));
    }
    /// Restores in reverse order, so the first copy of a slot saved twice wins.
    void restore(RyTriangulationImpl& mesh) const {
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

}  // namespace

bool RyTriangulationImpl::allCounterClockwise(const std::vector<int>& slots) const {
    for (int t : slots) {
        const int* v = triVerts(triangles[std::size_t(t)]);
        if (v[0] < 0 || v[1] < 0 || v[2] < 0) return false;  // chains never hold the ghost vertex
        if (!(orient2d(vertexXY(vertices[std::size_t(v[0])]),
                       vertexXY(vertices[std::size_t(v[1])]),
                       vertexXY(vertices[std::size_t(v[2])])) > 0)) {
            return false;
        }
    }
    return true;
}

PkTriangulationStatus RyTriangulationImpl::delaunayTriangulationWithConstraints(
    const std::vector<PkGePoint3d>& points, const std::vector<PkMeshEdge>& edges) {
    const PkTriangulationStatus status = delaunayTriangulation(points);
    if (status != StatusOk) return status;
    const long long total = static_cast<long long>(edges.size());
    if (!reportProgress(kProgressConstraints, 0, total)) return StatusStopped;
    long long done = 0;
    for (const PkMeshEdge& edge : edges) {
        const PkTriangulationStatus edgeStatus = insertConstraintEdge(edge);
        if (edgeStatus != StatusOk) return edgeStatus;
        if (++done % kConstraintProgressStride == 0 && done < total &&
            !reportProgress(kProgressConstraints, done, total)) {
            return StatusStopped;
        }
    }
    if (!reportProgress(kProgressConstraints, total, total)) return StatusStopped;
    return StatusOk;
}

PkTriangulationStatus RyTriangulationImpl::insertConstraintEdge(const PkMeshEdge& edge) {
    std::vector<PkMeshEdge> pendingEdges(1, edge);
    suspectEdges.clear();
    PkTriangulationStatus status = StatusOk;
    for (int calls = 0; status == StatusOk && !pendingEdges.empty(); ++calls) {
        const PkMeshEdge piece = pendingEdges.back();
        pendingEdges.pop_back();
        status = insertConstraintSegment(piece, piece, pendingEdges);
        if (status == StatusOk && calls >= maxIterations) status = StatusIterationLimit;
    }
    // Edges that a rerouted crossing left as plain edges (none in the common case).
    if (!suspectEdges.empty()) {
        const PkTriangulationStatus legalized = legalizeSuspectEdges();
        if (status == StatusOk) status = legalized;
    }
    return status;
}

bool RyTriangulationImpl::isMeshEdge(int a, int b) const {
    const int triangleCount = int(triangles.size());
    const int t0 = vertexTriangle(vertices[std::size_t(a)]);
    if (t0 < 0 || t0 >= triangleCount) return false;
    int t = t0;
    // Turning across the edge (a, next) visits every triangle around a; b is a neighbour of a
    // exactly when it follows a in one of them.
    for (int count = 1;; ++count) {
        const int* v = triVerts(triangles[std::size_t(t)]);
        const int i = localIndexOf(v, a);
        if (v[nextLocalIndex(i)] == b) return true;
        t = triNbrs(triangles[std::size_t(t)])[i];
        if (t == t0 || count >= maxIterations || t < 0 || t >= triangleCount) return false;
    }
}

PkTriangulationStatus RyTriangulationImpl::insertConstraintSegment(
    const PkMeshEdge& piece, const PkMeshEdge& origin, std::vector<PkMeshEdge>& pendingEdges) {
    const int a = piece.EdgeIndex1();
    const int b = piece.EdgeIndex2();
    const int vertexCount = int(vertices.size());
    if (a == b || a < 0 || b < 0 || a >= vertexCount || b >= vertexCount) return StatusOk;
    const int triangleCount = int(triangles.size());
    const int t0 = vertexTriangle(vertices[std::size_t(a)]);
    if (t0 < 0 || t0 >= triangleCount) return StatusConstraintFailed;

    if (isMeshEdge(a, b)) {
        recordConstraint(piece, origin);
        return StatusOk;
    }

    // Copies: splitting a crossed constraint appends a vertex, which may move the vertex list.
    const PkGePoint3d pa = PkMeshFields::point(vertices[std::size_t(a)]);
    const PkGePoint3d pb = PkMeshFields::point(vertices[std::size_t(b)]);
    const double* A = &pa.x;
    const double* B = &pb.x;
    auto side = [&](int v) {
        return classifyPointSide(vertexXY(vertices[std::size_t(v)]), A, B, band);
    };

    // Turn around a until a triangle (a, d, c) has c on the left and d on the right of a->b:
    // the segment leaves a through it. A vertex on the segment next to a cuts the segment there.
    int t = t0;
    int c = -1, d = -1;
    for (int count = 0;;) {
        const PkMeshTriangle& T = triangles[std::size_t(t)];
        const int* v = triVerts(T);
        const int i = localIndexOf(v, a);
        d = v[nextLocalIndex(i)];
        c = v[prevLocalIndex(i)];
        if (!isGhost(T)) {
            const PointSide sc = side(c);
            if (sc == kOnLine && inSegmentBox(vertexXY(vertices[std::size_t(c)]), A, B)) {
                recordConstraint(PkMeshEdge(a, c), origin);
                pendingEdges.push_back(PkMeshEdge(c, b));
                return StatusOk;
            }
            if (sc == kLeft) {
                const PointSide sd = side(d);
                if (sd == kOnLine && inSegmentBox(vertexXY(vertices[std::size_t(d)]), A, B)) {
                    recordConstraint(PkMeshEdge(a, d), origin);
                    pendingEdges.push_back(PkMeshEdge(d, b));
                    return StatusOk;
                }
                if (sd == kRight) break;
            }
            ++count;
        }
        t = triNbrs(T)[i];
        if (t == t0 || count >= maxIterations || t < 0 || t >= triangleCount) {
            return StatusConstraintFailed;
        }
    }

    // Walk along the segment. The pivot is the chain vertex of the current triangle that the
    // segment passes; it leaves through the edge (u, w) opposite the pivot.
    std::vector<int> leftChain;
    std::vector<int> rightChain;
    std::vector<int> crossedTriangles;
    leftChain.reserve(5);
    rightChain.reserve(5);
    crossedTriangles.reserve(5);
    EdgeMap<int> boundaryNeighbours;
    leftChain.push_back(a);
    leftChain.push_back(c);
    rightChain.push_back(a);
    rightChain.push_back(d);
    crossedTriangles.push_back(t);
    boundaryNeighbours[PkMeshEdge(a, c)] = getNeighborAcrossEdge(triangles[std::size_t(t)], a, c);
    boundaryNeighbours[PkMeshEdge(a, d)] = getNeighborAcrossEdge(triangles[std::size_t(t)], a, d);
    auto offer = [&](int p, int q, int n) {
        const int across = getNeighborAcrossEdge(triangles[std::size_t(n)], p, q);
        const auto inserted = boundaryNeighbours.emplace(PkMeshEdge(p, q), across);
        if (!inserted.second) inserted.first->second = -1;  // met twice: inside the region
    };

    int pivot = a;
    int e = b;
    int cur = t;
    const bool splitCrossings = (options & bSplitCrossingConstraints) != 0;
    for (int steps = 0;; ++steps) {
        const PkMeshTriangle& T = triangles[std::size_t(cur)];
        const int* v = triVerts(T);
        const int j = localIndexOf(v, pivot);
        const int u = v[nextLocalIndex(j)];
        const int w = v[prevLocalIndex(j)];
        const int n = triNbrs(T)[nextLocalIndex(j)];

        if (splitCrossings && constraintEdges.count(PkMeshEdge(u, w)) != 0) {
            // An earlier constraint is in the way: split it where the segment crosses it and
            // queue both halves of this segment; nothing collected so far is used.
            PkGePoint3d p;
            if (!intersectLines(a, b, u, w, p)) return StatusConstraintFailed;
            if (p.isEqualTo(pa, PkGeContext::gTol) || p.isEqualTo(pb, PkGeContext::gTol)) {
                return StatusConstraintFailed;
            }
            return resolveCrossing(cur, j, n, a, b, p, pendingEdges);
        }

        // A segment between two vertices stays inside the hull; stepping into a ghost triangle
        // means rounding led the walk astray. Nothing has changed yet, so stop cleanly.
        if (n < 0 || n >= triangleCount || isGhost(triangles[std::size_t(n)])) {
            return StatusConstraintFailed;
        }
        const int* nv = triVerts(triangles[std::size_t(n)]);
        const int o =
            (nv[0] != u && nv[0] != w) ? nv[0] : ((nv[1] != u && nv[1] != w) ? nv[1] : nv[2]);

        const PointSide so = side(o);
        if (so == kLeft) {
            const int newPivot = leftChain.back();
            leftChain.push_back(o);
            crossedTriangles.push_back(n);
            offer(newPivot, o, n);
            pivot = newPivot;
        } else if (so == kRight) {
            const int newPivot = rightChain.back();
            rightChain.push_back(o);
            crossedTriangles.push_back(n);
            offer(newPivot, o, n);
            pivot = newPivot;
        } else if (o == a) {
            // The walk has come round to its own start: only a mesh bent by the tolerance
            // band (near-flat triangles) allows that. Nothing has changed yet.
            return StatusConstraintFailed;
        } else {
            e = o;  // a vertex on the segment (b itself at the latest) ends this piece
            crossedTriangles.push_back(n);
        }
        cur = n;
        if (steps >= maxIterations) return StatusIterationLimit;
        const int* cv = triVerts(triangles[std::size_t(cur)]);
        if (cv[0] == e || cv[1] == e || cv[2] == e) break;
    }

    // Close the cavity and check that every boundary edge of both chains is known before
    // anything changes: an inconsistent region is refused rather than read past.
    const int l = leftChain.back();
    const int r = rightChain.back();
    boundaryNeighbours[PkMeshEdge(l, e)] = getNeighborAcrossEdge(triangles[std::size_t(cur)], l, e);
    boundaryNeighbours[PkMeshEdge(r, e)] = getNeighborAcrossEdge(triangles[std::size_t(cur)], r, e);
    leftChain.push_back(e);
    rightChain.push_back(e);
    for (const std::vector<int>* chain : {&leftChain, &rightChain}) {
        for (std::size_t k = 0; k + 1 < chain->size(); ++k) {
            if (boundaryNeighbours.count(PkMeshEdge((*chain)[k], (*chain)[k + 1])) == 0) {
                return StatusConstraintFailed;
            }
        }
    }

    // Everything the re-triangulation writes: the crossed slots, the links of the triangles
    // around the cavity, the triangle index of each chain vertex. Kept so that a result that is
    // not a sound mesh can be undone.
    CavityBackup backup;
    for (int crossed : crossedTriangles) backup.saveTriangle(*this, crossed);
    for (const auto& entry : boundaryNeighbours) {
        if (entry.second >= 0) backup.saveTriangle(*this, entry.second);
    }
    for (const std::vector<int>* chain : {&leftChain, &rightChain}) {
        for (int vertex : *chain) backup.saveVertex(*this, vertex);
    }
    const std::size_t freeCount = freeTriangles.size();

    for (int crossed : crossedTriangles) freeTriangles.push_back(crossed);
    std::reverse(rightChain.begin(), rightChain.end());
    const int t1 = allocateTriangle();
    const int t2 = allocateTriangle();
    // Chains of k crossed triangles hold k + 4 entries, so exactly the k released slots are
    // taken again. With a band that blurs the in-circle test (tiny spacings) the choice of the
    // third vertex can fold a non-convex side; such a piece is undone and refused.
    if (!triangulatePseudoPolygon(leftChain, boundaryNeighbours, t1, t2) ||
        !triangulatePseudoPolygon(rightChain, boundaryNeighbours, t2, t1) ||
        !allCounterClockwise(crossedTriangles)) {
        backup.restore(*this);
        freeTriangles.resize(freeCount);
        return StatusConstraintFailed;
    }

    if (!suspectEdges.empty()) {
        for (const auto& entry : boundaryNeighbours) suspectEdges.push_back(entry.first);
    }
    if (e == origin.EdgeIndex2()) {
        recordConstraint(piece, origin);
    } else {
        recordConstraint(PkMeshEdge(a, e), origin);
        pendingEdges.push_back(PkMeshEdge(e, origin.EdgeIndex2()));
    }
    return StatusOk;
}
