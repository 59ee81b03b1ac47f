// Vertex insertion: locate, split the containing triangle (or the two triangles sharing the
// edge the vertex lies on, or a ghost triangle when it lies outside the hull), then restore the
// Delaunay property with Lawson flips around the new vertex. Ghost triangles take part in the
// flips, which keeps the hull convex when a vertex is added outside it.
#pragma once

#include "delaunay/PointLocation.h"
#include "delaunay/VertexViews.h"
#include "mesh/LocalIndex.h"
#include "mesh/MeshTopology.h"
#include "state/RyTriangulationImpl.h"

template <class View>
PkTriangulationStatus RyTriangulationImpl::insertVertex(const View& view, int vertex, int start) {
    PointSide sides[3] = {PointSide(0), PointSide(0), PointSide(0)};
    const int t = locatePoint(view, start, view.xy(vertex), sides);
    if (t < 0) return StatusLocateFailed;
    const PointLocation location = combineSides(sides);
    if (location == kOutside) return StatusLocateFailed;
    if (location == kOnVertex) return StatusCoincidentVertex;

    CheckList list;
    const PkTriangulationStatus status = insertVertexAt(view, list, t, vertex, location);
    if (status != StatusOk) return status;
    return legalizeAroundVertex(view, vertex, list);
}

template <class View>
PkTriangulationStatus RyTriangulationImpl::insertVertexAt(
    const View& view, CheckList& list, int t, int p, PointLocation location) {
    const int a = allocateTriangle();
    const int b = allocateTriangle();
    const PkMeshTriangle old = triangles[std::size_t(t)];
    const int* c = triVerts(old);
    const int* N = triNbrs(old);
    // Splitting inside or on an edge needs a real triangle; callers locate one, but a bad
    // caller must not make the writes below index the vertex list with the ghost vertex.
    if (location != kInGhostTriangle && (c[0] < 0 || c[1] < 0 || c[2] < 0)) return StatusFailed;
    // t's corner positions (kept by some views), copied before t's entry is rewritten.
    double P[3][2];
    const double* pp = nullptr;
    if constexpr (View::keepsCorners) {
        for (int k = 0; k < 3; ++k) {
            const double* q = view.cornerXY(t, k, c[k]);
            P[k][0] = q[0], P[k][1] = q[1];
        }
        pp = view.xy(p);
    }

    if (location == kInTriangle) {
        /*
                     c2
                   / | \
               b  /  p  \  a        t keeps edge c0-c1, a takes c1-c2, b takes c2-c0
                 /  / \  \
               c0 ------- c1
                     t
        */
        setTriangle(triangles[std::size_t(t)], c[0], c[1], p, N[0], a, b);
        setTriangle(triangles[std::size_t(a)], c[1], c[2], p, N[1], b, t);
        setTriangle(triangles[std::size_t(b)], c[2], c[0], p, N[2], t, a);
        if constexpr (View::keepsCorners) {
            view.setCorners(t, P[0], P[1], pp);
            view.setCorners(a, P[1], P[2], pp);
            view.setCorners(b, P[2], P[0], pp);
        }
        view.triangle(p) = a;
        view.triangle(c[0]) = t;
        view.triangle(c[1]) = t;
        view.triangle(c[2]) = b;
        replaceNeighbor(N[1], t, a);
        replaceNeighbor(N[2], t, b);
        list.push(t);
        list.push(a);
        list.push(b);
        return StatusOk;
    }

    if (location == kOnEdge0 || location == kOnEdge1 || location == kOnEdge2) {
        // p splits edge e0-e1 of t (whose third vertex is o) and of u across it (third vertex w,
        // the ghost vertex when the edge is on the hull).
        //
        //              o
        //           b / | \ t
        //           e1--p--e0
        //           a \ | / u
        //              w
        const int k = location - kOnEdge0;
        const int e0 = c[k], e1 = c[nextLocalIndex(k)], o = c[prevLocalIndex(k)];
        const int u = N[k];
        if (u < 0 || u >= int(triangles.size())) return StatusFailed;
        const PkMeshTriangle oldU = triangles[std::size_t(u)];
        const int* uc = triVerts(oldU);
        const int* uN = triNbrs(oldU);
        int j = 0;
        while (j < 3 && uc[j] != e0) ++j;
        if (j == 3) return StatusFailed;
        const int w = uc[nextLocalIndex(j)];
        const int uN0w = uN[j];
        const int uNw1 = uN[nextLocalIndex(j)];

        if constexpr (View::keepsCorners) {
            const double* q = w >= 0 ? view.cornerXY(u, nextLocalIndex(j), w) : kNoPosition;
            const double pw[2] = {q[0], q[1]};
            const double* pe0 = P[k];
            const double* pe1 = P[nextLocalIndex(k)];
            const double* po = P[prevLocalIndex(k)];
            view.setCorners(t, pp, po, pe0);
            view.setCorners(u, pp, pe0, pw);
            view.setCorners(a, pe1, pp, pw);
            view.setCorners(b, pp, pe1, po);
        }
        setTriangle(triangles[std::size_t(t)], p, o, e0, b, N[prevLocalIndex(k)], u);
        setTriangle(triangles[std::size_t(u)], p, e0, w, t, uN0w, a);
        setTriangle(triangles[std::size_t(a)], e1, p, w, b, u, uNw1);
        setTriangle(triangles[std::size_t(b)], p, e1, o, a, N[nextLocalIndex(k)], t);
        view.triangle(p) = t;
        // Each old corner keeps a triangle it still belongs to: e0 and o are in t, e1 in b.
        view.triangle(c[0]) = k == 2 ? b : t;
        view.triangle(c[1]) = k == 0 ? b : t;
        view.triangle(c[2]) = k == 2 ? t : b;
        if (w != GhostVertex) view.triangle(w) = u;
        replaceNeighbor(N[nextLocalIndex(k)], t, b);
        replaceNeighbor(uNw1, u, a);
        list.push(t);
        list.push(u);
        list.push(a);
        list.push(b);
        return StatusOk;
    }

    if (location == kInGhostTriangle) {
        // Rotate t to (r0, r1, G); the real triangle M0 lies across the hull edge r0-r1 and p
        // beyond it. t becomes the real triangle (r0, r1, p) with new ghosts a and b beside it.
        //
        //          G     p     G
        //            b / | \ a
        //             r0-t-r1
        //               M0
        int r = 2;
        if (c[0] == GhostVertex) {
            r = 0;
        } else if (c[1] == GhostVertex) {
            r = 1;
        }
        const int s = nextLocalIndex(r);
        const int r0 = c[s], r1 = c[nextLocalIndex(s)];
        const int M0 = N[s], M1 = N[nextLocalIndex(s)], M2 = N[prevLocalIndex(s)];
        if (r0 < 0 || r1 < 0) return StatusFailed;

        setTriangle(triangles[std::size_t(t)], r0, r1, p, M0, a, b);
        setTriangle(triangles[std::size_t(a)], p, r1, GhostVertex, t, M1, b);
        setTriangle(triangles[std::size_t(b)], r0, p, GhostVertex, t, a, M2);
        if constexpr (View::keepsCorners) {
            view.setCorners(t, P[s], P[nextLocalIndex(s)], pp);
            view.setCorners(a, pp, P[nextLocalIndex(s)], kNoPosition);
            view.setCorners(b, P[s], pp, kNoPosition);
        }
        view.triangle(p) = t;
        view.triangle(r0) = t;
        view.triangle(r1) = t;
        replaceNeighbor(M1, t, a);
        replaceNeighbor(M2, t, b);
        list.push(t);
        list.push(a);
        list.push(b);
        return StatusOk;
    }
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
template <class View>
PkTriangulationStatus RyTriangulationImpl::legalizeAroundVertex(const View& view,
                                                                int p,
                                                                const CheckList& list) {
    // The loop keeps its state in locals: the stack, the band, the limit and the triangle array
    // (a flip allocates nothing, so the array stays put). Held in members, each store into the
    // mesh could alias them, and the compiler would reload them all after every flip.
    constexpr std::size_t kInitialStack = 64;
    if (flipStack.size() < kInitialStack) flipStack.resize(kInitialStack);
    int* stack = flipStack.data();
    std::size_t capacity = flipStack.size();
    std::size_t top = 0;
    for (int i = 0; i < list.count; ++i) stack[top++] = list.items[i];
    PkMeshTriangle* const tris = triangles.data();
    const int triangleCount = int(triangles.size());
    const double tol = band;
    const int limit = maxIterations;
    const bool anyConstraint = !constraintEdges.empty();

    int count = 0;
    while (top > 0) {
        const int t = stack[--top];
        PkMeshTriangle& T = tris[t];
        const int* tv = triVerts(T);
        const int* tn = triNbrs(T);
        const int i = tv[0] == p ? 0 : (tv[1] == p ? 1 : 2);
        const int A = tv[nextLocalIndex(i)];
        const int C = tv[prevLocalIndex(i)];
        const int nPA = tn[i];
        const int u = tn[nextLocalIndex(i)];
        const int nCP = tn[prevLocalIndex(i)];
        if (u < 0) continue;
        if (u >= triangleCount) return StatusFailed;

        PkMeshTriangle& U = tris[u];
        const int* uv = triVerts(U);
        const int* un = triNbrs(U);
        int D, nAD, nDC, iD;
        if (un[0] == t) {
            D = uv[2], nAD = un[1], nDC = un[2], iD = 2;
        } else if (un[1] == t) {
            D = uv[0], nAD = un[2], nDC = un[0], iD = 0;
        } else {
            D = uv[1], nAD = un[0], nDC = un[1], iD = 1;
        }
        if (p == -1 || A == -1 || D == -1 || C == -1) return StatusFailed;
        // If the edge flips, both triangles beyond u are read next: start their loads now,
        // beside the load of D's coordinates.
        if constexpr (!View::scoutedAhead) {
            if (unsigned(nAD) < unsigned(triangleCount)) __builtin_prefetch(&tris[nAD]);
            if (unsigned(nDC) < unsigned(triangleCount)) __builtin_prefetch(&tris[nDC]);
        }
        // Positions of the real ones among p, A, D and C (p always is).
        auto xp = [&] { return view.xy(p); };
        auto xa = [&] { return view.cornerXY(t, nextLocalIndex(i), A); };
        auto xc = [&] { return view.cornerXY(t, prevLocalIndex(i), C); };
        auto xd = [&] { return view.cornerXY(u, iD, D); };

        const bool tGhost = isGhost(T);
        const bool uGhost = isGhost(U);
        bool flip = false;
        if (tGhost && uGhost) {
            // Both outside the old hull: flip when the hull would be concave at the shared real
            // vertex, i.e. D lies strictly on the outer side of the line through p.
            if (A == GhostVertex) {
                flip = classifyPointSide(xd(), xc(), xp(), tol) == kLeft;
            } else {
                flip = classifyPointSide(xa(), xd(), xp(), tol) == kLeft;
            }
            if (!flip) continue;
        } else if (!tGhost && !uGhost) {
            const bool constrained = anyConstraint && constraintEdges.count(PkMeshEdge(A, C)) != 0;
            flip = !constrained && classifyInCircle(xp(), xa(), xd(), xc(), tol) == kInsideCircle;
            // The band can put a vertex on an edge that it only lies near (beyond its end),
            // which folds the triangles there. A flip that would leave A or C with two
            // triangles (its third one borders both flipped triangles) wraps triangles around
            // that vertex and breaks the links; an exact Lawson flip never meets one, as its
            // quadrilateral is convex.
            if (flip && (nPA == nAD || nDC == nCP || D == p)) flip = false;
        }
        if (flip) {
            if (top + 2 > capacity) {
                flipStack.resize(2 * capacity);  // may throw: nothing is flipped yet
                stack = flipStack.data();
                capacity = flipStack.size();
            }
            // Edge A-C becomes p-D: t = (p, A, C) and u = (C, A, D) become t = (p, A, D) and
            // u = (D, C, p). D is never the ghost vertex: flips happen between two real or two
            // ghost triangles, and a new ghost triangle keeps the ghost vertex at position 2.
            if constexpr (View::keepsCorners) {
                // The positions are copied out first: A's and C's are in t's entry, D's in u's,
                // and both are rewritten below. D is real here; A or C may be the ghost vertex.
                const double* qa = A >= 0 ? xa() : kNoPosition;
                const double* qc = C >= 0 ? xc() : kNoPosition;
                const double* qd = xd();
                const double* qp = xp();
                const double pa[2] = {qa[0], qa[1]}, pc[2] = {qc[0], qc[1]};
                const double pd[2] = {qd[0], qd[1]};
                if (A == GhostVertex) {
                    view.setCorners(t, pd, qp, kNoPosition);
                    view.setCorners(u, pd, pc, qp);
                } else if (C == GhostVertex) {
                    view.setCorners(t, qp, pa, pd);
                    view.setCorners(u, qp, pd, kNoPosition);
                } else {
                    view.setCorners(t, qp, pa, pd);
                    view.setCorners(u, pd, pc, qp);
                }
            }
            if (A == GhostVertex) {
                setTriangle(T, D, p, GhostVertex, u, nPA, nAD);
                setTriangle(U, D, C, p, nDC, nCP, t);
            } else if (C == GhostVertex) {
                setTriangle(T, p, A, D, nPA, nAD, u);
                setTriangle(U, p, D, GhostVertex, t, nDC, nCP);
            } else {
                setTriangle(T, p, A, D, nPA, nAD, u);
                setTriangle(U, D, C, p, nDC, nCP, t);
            }
            replaceNeighborIn(tris, triangleCount, nAD, u, t);
            replaceNeighborIn(tris, triangleCount, nCP, t, u);
            if (p >= 0) view.triangle(p) = t;
            if (A >= 0) view.triangle(A) = t;
            if (D >= 0) view.triangle(D) = t;
            if (C >= 0) view.triangle(C) = u;
            stack[top++] = t;
            stack[top++] = u;
        }
        if (++count > limit) return StatusIterationLimit;
    }
    return StatusOk;
}
