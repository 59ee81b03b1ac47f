// Vertex insertion: locate, split the containing triangle (or the two triangles sharing the
// edge the vertex lies on, or a ghost triangle when it lies outside the hull), then restore the
// Delaunay property with Lawson flips around the new vertex. Ghost triangles take part in the
// flips, which keeps the hull convex when a vertex is added outside it.
#pragma once

#include <utility>

#include "delaunay/PointLocation.h"
#include "delaunay/VertexViews.h"
#include "mesh/LocalIndex.h"
#include "mesh/MeshTopology.h"

template <class View>
PkTriangulationStatus insertVertexAt(
    TriangleMesh& mesh, const View& view, CheckList& list, int t, int p, PointLocation location);
template <class View>
PkTriangulationStatus legalizeAroundVertex(const DelaunayContext& c,
                                           const View& view,
                                           int p,
                                           const CheckList& list);

/// The one insertion routine: walk from the triangle of `start` to `vertex`'s position, split
/// there, legalise. The view (delaunay/VertexViews.h) says where positions and the vertices'
/// triangle indices live.
template <class View>
PkTriangulationStatus insertVertex(const DelaunayContext& c,
                                   const View& view,
                                   int vertex,
                                   int start) {
    PointSide sides[3] = {PointSide(0), PointSide(0), PointSide(0)};
    const int t = locatePoint(c, view, start, view.xy(vertex), sides);
    if (t < 0) return StatusLocateFailed;
    const PointLocation location = combineSides(sides);
    if (location == kOutside) return StatusLocateFailed;
    if (location == kOnVertex) return StatusCoincidentVertex;

    CheckList list;
    const PkTriangulationStatus status = insertVertexAt(c.mesh, view, list, t, vertex, location);
    if (status != StatusOk) return status;
    return legalizeAroundVertex(c, view, vertex, list);
}

/// What every case of a split reads: t as it was, the two slots it takes, the new vertex p, and
/// (for views that keep them) t's corner positions, copied before t's entry is rewritten.
template <class View>
struct SplitSite {
    int t, a, b, p;
    PkMeshTriangle old;
    decltype(std::declval<View>().copyXY(0, 0, 0)) P[3];
    const double* pp;
};

/*
             c2
           / | \
       b  /  p  \  a        t keeps edge c0-c1, a takes c1-c2, b takes c2-c0
         /  / \  \
       c0 ------- c1
             t
*/
template <class View>
RY_INLINE void splitInTriangle(TriangleMesh& m,
                               const View& view,
                               const SplitSite<View>& s,
                               CheckList& list) {
    const int t = s.t, a = s.a, b = s.b, p = s.p;
    const int* c = triVerts(s.old);
    const int* N = triNbrs(s.old);
    const auto& P = s.P;
    setTriangle(m.triangles[std::size_t(t)], c[0], c[1], p, N[0], a, b);
    setTriangle(m.triangles[std::size_t(a)], c[1], c[2], p, N[1], b, t);
    setTriangle(m.triangles[std::size_t(b)], c[2], c[0], p, N[2], t, a);
    view.setCorners(t, P[0], P[1], s.pp);
    view.setCorners(a, P[1], P[2], s.pp);
    view.setCorners(b, P[2], P[0], s.pp);
    view.triangle(p) = a;
    view.triangle(c[0]) = t;
    view.triangle(c[1]) = t;
    view.triangle(c[2]) = b;
    m.replaceNeighbor(N[1], t, a);
    m.replaceNeighbor(N[2], t, b);
    list.push(t);
    list.push(a);
    list.push(b);
}

// p splits edge e0-e1 (edge k) of t (whose third vertex is o) and of u across it (third vertex
// w, the ghost vertex when the edge is on the hull).
//
//              o
//           b / | \ t
//           e1--p--e0
//           a \ | / u
//              w
template <class View>
RY_INLINE PkTriangulationStatus
splitOnEdge(TriangleMesh& m, const View& view, const SplitSite<View>& s, int k, CheckList& list) {
    const int t = s.t, a = s.a, b = s.b, p = s.p;
    const int* c = triVerts(s.old);
    const int* N = triNbrs(s.old);
    const int e0 = c[k], e1 = c[nextLocalIndex(k)], o = c[prevLocalIndex(k)];
    const int u = N[k];
    if (u < 0 || u >= int(m.triangles.size())) return StatusFailed;
    const PkMeshTriangle oldU = m.triangles[std::size_t(u)];
    const int* uc = triVerts(oldU);
    const int* uN = triNbrs(oldU);
    int j = 0;
    while (j < 3 && uc[j] != e0) ++j;
    if (j == 3) return StatusFailed;
    const int w = uc[nextLocalIndex(j)];
    const int uN0w = uN[j];
    const int uNw1 = uN[nextLocalIndex(j)];

    const auto pw = view.copyXY(u, nextLocalIndex(j), w);
    const auto& P = s.P;
    const double *pe0 = P[k], *pe1 = P[nextLocalIndex(k)], *po = P[prevLocalIndex(k)];
    view.setCorners(t, s.pp, po, pe0);
    view.setCorners(u, s.pp, pe0, pw);
    view.setCorners(a, pe1, s.pp, pw);
    view.setCorners(b, s.pp, pe1, po);
    setTriangle(m.triangles[std::size_t(t)], p, o, e0, b, N[prevLocalIndex(k)], u);
    setTriangle(m.triangles[std::size_t(u)], p, e0, w, t, uN0w, a);
    setTriangle(m.triangles[std::size_t(a)], e1, p, w, b, u, uNw1);
    setTriangle(m.triangles[std::size_t(b)], p, e1, o, a, N[nextLocalIndex(k)], t);
    view.triangle(p) = t;
    // Each old corner keeps a triangle it still belongs to: e0 and o are in t, e1 in b.
    view.triangle(c[0]) = k == 2 ? b : t;
    view.triangle(c[1]) = k == 0 ? b : t;
    view.triangle(c[2]) = k == 2 ? t : b;
    if (w != GhostVertex) view.triangle(w) = u;
    m.replaceNeighbor(N[nextLocalIndex(k)], t, b);
    m.replaceNeighbor(uNw1, u, a);
    list.push(t);
    list.push(u);
    list.push(a);
    list.push(b);
    return StatusOk;
}

// Rotate t to (r0, r1, G); the real triangle M0 lies across the hull edge r0-r1 and p beyond it.
// t becomes the real triangle (r0, r1, p) with new ghosts a and b beside it.
//
//          G     p     G
//            b / | \ a
//             r0-t-r1
//               M0
template <class View>
RY_INLINE PkTriangulationStatus
splitGhost(TriangleMesh& m, const View& view, const SplitSite<View>& s, CheckList& list) {
    const int t = s.t, a = s.a, b = s.b, p = s.p;
    const int* c = triVerts(s.old);
    const int* N = triNbrs(s.old);
    const int r = c[0] == GhostVertex ? 0 : (c[1] == GhostVertex ? 1 : 2);
    const int i0 = nextLocalIndex(r), i1 = nextLocalIndex(i0);
    const int r0 = c[i0], r1 = c[i1];
    const int M0 = N[i0], M1 = N[i1], M2 = N[r];
    if (r0 < 0 || r1 < 0) return StatusFailed;

    setTriangle(m.triangles[std::size_t(t)], r0, r1, p, M0, a, b);
    setTriangle(m.triangles[std::size_t(a)], p, r1, GhostVertex, t, M1, b);
    setTriangle(m.triangles[std::size_t(b)], r0, p, GhostVertex, t, a, M2);
    const auto& P = s.P;
    view.setCorners(t, P[i0], P[i1], s.pp);
    view.setCorners(a, s.pp, P[i1], kNoPosition);
    view.setCorners(b, P[i0], s.pp, kNoPosition);
    view.triangle(p) = t;
    view.triangle(r0) = t;
    view.triangle(r1) = t;
    m.replaceNeighbor(M1, t, a);
    m.replaceNeighbor(M2, t, b);
    list.push(t);
    list.push(a);
    list.push(b);
    return StatusOk;
}

template <class View>
PkTriangulationStatus insertVertexAt(
    TriangleMesh& mesh, const View& view, CheckList& list, int t, int p, PointLocation location) {
    const int a = mesh.allocateTriangle();
    const int b = mesh.allocateTriangle();
    const PkMeshTriangle old = mesh.triangles[std::size_t(t)];
    const int* c = triVerts(old);
    // Splitting inside or on an edge needs a real triangle; callers locate one, but a bad
    // caller must not make the writes below index the vertex list with the ghost vertex.
    if (location != kInGhostTriangle && (c[0] < 0 || c[1] < 0 || c[2] < 0)) return StatusFailed;
    const SplitSite<View> site{
        t,
        a,
        b,
        p,
        old,
        {view.copyXY(t, 0, c[0]), view.copyXY(t, 1, c[1]), view.copyXY(t, 2, c[2])},
        view.xy(p)};
    if (location == kInTriangle) {
        splitInTriangle(mesh, view, site, list);
        return StatusOk;
    }
    if (location == kOnEdge0 || location == kOnEdge1 || location == kOnEdge2) {
        return splitOnEdge(mesh, view, site, location - kOnEdge0, list);
    }
    if (location == kInGhostTriangle) return splitGhost(mesh, view, site, list);
    return StatusOk;
}

// Lawson's flip loop. Every triangle on the stack has p as a corner; the edge opposite p is
// flipped when the vertex D beyond it lies inside the circle through p (or, for two ghost
// triangles, when the hull is concave there). Each flip removes an illegal edge and adds only
// edges at p, so for points in general position the loop ends after O(degree of p) flips; the
// counter turns any surprise into StatusIterationLimit.
//
/*
               C                         C
             / | \                     /   \
        nCP /  |  \ nDC           nCP / u   \ nDC
           /   |   \                 /       \
          p  t | u  D      ==>      p ------- D
           \   |   /                 \       /
        nPA \  |  / nAD           nPA \ t   / nAD
             \ | /                     \   /
               A                         A
*/
/// t = (p, A, C) and u = (C, A, D) across the edge A-C, with the links around them; A or C may
/// be the ghost vertex, D only when u is a ghost triangle whose flip is refused.
struct FlipQuad {
    int t, u, p, A, C, D;
    int i, iD;  ///< p's position in t, D's in u
    int nPA, nCP, nAD, nDC;
};

/// Whether the edge A-C of the quad is to become p-D.
template <class View>
RY_INLINE bool shouldFlip(const DelaunayContext& c,
                          const View& view,
                          const FlipQuad& q,
                          bool tGhost,
                          bool uGhost,
                          double tol,
                          bool anyConstraint) {
    auto xp = [&] { return view.xy(q.p); };
    auto xa = [&] { return view.cornerXY(q.t, nextLocalIndex(q.i), q.A); };
    auto xc = [&] { return view.cornerXY(q.t, prevLocalIndex(q.i), q.C); };
    auto xd = [&] { return view.cornerXY(q.u, q.iD, q.D); };
    if (tGhost && uGhost) {
        // Both outside the old hull: flip when the hull would be concave at the shared real
        // vertex, i.e. D lies strictly on the outer side of the line through p.
        if (q.A == GhostVertex) return classifyPointSide(xd(), xc(), xp(), tol) == kLeft;
        return classifyPointSide(xa(), xd(), xp(), tol) == kLeft;
    }
    if (tGhost || uGhost) return false;
    const bool constrained = anyConstraint && c.constraints.count(PkMeshEdge(q.A, q.C)) != 0;
    if (constrained || classifyInCircle(xp(), xa(), xd(), xc(), tol) != kInsideCircle) {
        return false;
    }
    // The band can put a vertex on an edge that it only lies near (beyond its end), which folds
    // the triangles there. A flip that would leave A or C with two triangles (its third one
    // borders both flipped triangles) wraps triangles around that vertex and breaks the links;
    // an exact Lawson flip never meets one, as its quadrilateral is convex.
    return !(q.nPA == q.nAD || q.nDC == q.nCP || q.D == q.p);
}

/// Edge A-C becomes p-D: t = (p, A, D) and u = (D, C, p), each turned so that a ghost corner
/// (A or C) stays at position 2, where ghost triangles keep it; the only place that case split
/// is written, for the links and the corner positions alike. D is real here: flips happen
/// between two real or two ghost triangles.
template <class View>
RY_INLINE void flipEdge(PkMeshTriangle* tris,
                        int triangleCount,
                        const View& view,
                        const FlipQuad& q) {
    // Positions first: A's and C's are in t's entry, D's in u's, and both are rewritten below.
    const auto pa = view.copyXY(q.t, nextLocalIndex(q.i), q.A);
    const auto pc = view.copyXY(q.t, prevLocalIndex(q.i), q.C);
    const auto pd = view.copyXY(q.u, q.iD, q.D);
    const double* pp = view.xy(q.p);
    PkMeshTriangle& T = tris[q.t];
    PkMeshTriangle& U = tris[q.u];
    if (q.A == GhostVertex) {
        setTriangle(T, q.D, q.p, GhostVertex, q.u, q.nPA, q.nAD);
        view.setCorners(q.t, pd, pp, kNoPosition);
    } else {
        setTriangle(T, q.p, q.A, q.D, q.nPA, q.nAD, q.u);
        view.setCorners(q.t, pp, pa, pd);
    }
    if (q.C == GhostVertex) {
        setTriangle(U, q.p, q.D, GhostVertex, q.t, q.nDC, q.nCP);
        view.setCorners(q.u, pp, pd, kNoPosition);
    } else {
        setTriangle(U, q.D, q.C, q.p, q.nDC, q.nCP, q.t);
        view.setCorners(q.u, pd, pc, pp);
    }
    replaceNeighborIn(tris, triangleCount, q.nAD, q.u, q.t);
    replaceNeighborIn(tris, triangleCount, q.nCP, q.t, q.u);
    if (q.p >= 0) view.triangle(q.p) = q.t;
    if (q.A >= 0) view.triangle(q.A) = q.t;
    if (q.D >= 0) view.triangle(q.D) = q.t;
    if (q.C >= 0) view.triangle(q.C) = q.u;
}

template <class View>
PkTriangulationStatus legalizeAroundVertex(const DelaunayContext& c,
                                           const View& view,
                                           int p,
                                           const CheckList& list) {
    // The loop keeps its state in locals: the stack, the band, the limit and the triangle array
    // (a flip allocates nothing, so the array stays put). Held in members, each store into the
    // mesh could alias them, and the compiler would reload them all after every flip.
    constexpr std::size_t kInitialStack = 64;
    if (c.flipStack.size() < kInitialStack) c.flipStack.resize(kInitialStack);
    int* stack = c.flipStack.data();
    std::size_t capacity = c.flipStack.size();
    std::size_t top = 0;
    for (int i = 0; i < list.count; ++i) stack[top++] = list.items[i];
    PkMeshTriangle* const tris = c.mesh.triangles.data();
    const int triangleCount = int(c.mesh.triangles.size());
    const double tol = c.band;
    const int limit = c.maxIterations;
    const bool anyConstraint = !c.constraints.empty();

    int count = 0;
    while (top > 0) {
        FlipQuad q;
        q.t = stack[--top];
        q.p = p;
        const PkMeshTriangle& T = tris[q.t];
        const int* tv = triVerts(T);
        const int* tn = triNbrs(T);
        q.i = tv[0] == p ? 0 : (tv[1] == p ? 1 : 2);
        q.A = tv[nextLocalIndex(q.i)];
        q.C = tv[prevLocalIndex(q.i)];
        q.nPA = tn[q.i];
        q.u = tn[nextLocalIndex(q.i)];
        q.nCP = tn[prevLocalIndex(q.i)];
        if (q.u < 0) continue;
        if (q.u >= triangleCount) return StatusFailed;
        const PkMeshTriangle& U = tris[q.u];
        const int* uv = triVerts(U);
        const int* un = triNbrs(U);
        if (un[0] == q.t) {
            q.D = uv[2], q.nAD = un[1], q.nDC = un[2], q.iD = 2;
        } else if (un[1] == q.t) {
            q.D = uv[0], q.nAD = un[2], q.nDC = un[0], q.iD = 0;
        } else {
            q.D = uv[1], q.nAD = un[0], q.nDC = un[1], q.iD = 1;
        }
        if (p == NoVertex || q.A == NoVertex || q.D == NoVertex || q.C == NoVertex) {
            return StatusFailed;
        }
        // If the edge flips, both triangles beyond u are read next: start their loads now,
        // beside the load of D's coordinates.
        view.fetchTriangle(tris, triangleCount, q.nAD);
        view.fetchTriangle(tris, triangleCount, q.nDC);
        const bool tGhost = isGhost(T), uGhost = isGhost(U);
        if (shouldFlip(c, view, q, tGhost, uGhost, tol, anyConstraint)) {
            if (top + 2 > capacity) {
                c.flipStack.resize(2 * capacity);  // may throw: nothing is flipped yet
                stack = c.flipStack.data();
                capacity = c.flipStack.size();
            }
            flipEdge(tris, triangleCount, view, q);
            stack[top++] = q.t;
            stack[top++] = q.u;
        } else if (tGhost && uGhost) {
            continue;  // an unflipped pair of ghosts is not counted
        }
        if (++count > limit) return StatusIterationLimit;
    }
    return StatusOk;
}
