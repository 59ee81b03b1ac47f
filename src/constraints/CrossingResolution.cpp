// What a constraint walk does when it meets an earlier constraint (u, w) that it must cross and
// split. The crossing point is rounded to doubles. Where the split there would leave a flat or
// turned triangle (decided exactly), the exact crossing lies within rounding of the boundary of
// the two triangles beside u-w: next to an end of u-w, or beside a sliver (the pivot or the far
// vertex within rounding of the line u-w). In exact arithmetic the split would still make valid,
// thin triangles; after rounding one of these stands in for it, in this order:
//   1. the rounded point within reach of u or w: the segment passes through that end and u-w
//      stays whole;
//   2. within reach of the pivot or the far vertex (the apexes): both constraints pass through
//      it; u-w is rerouted as the two mesh edges to that apex;
//   3. a point a few ulps away at which the split is sound;
//   4. a point a few ulps away strictly inside one of the two triangles: the vertex goes in
//      there and u-w is rerouted through it, leaving the edge u-w a plain edge;
//   5. an apex within rounding of the line u-w and between its ends: u-w is rerouted through it
//      and the segment walked again; it then crosses one of the shorter edges to the apex, whose
//      other side is a different triangle;
// and only when none applies is the crossing refused (StatusConstraintFailed, nothing changed).
// All of them rely on the rounded crossing lying within rounding of both segments; a crossing of
// nearly parallel lines that rounding put farther off is refused before any plan.
//
// Termination: each plan queues pieces, and one input edge takes at most maxIterations pieces;
// every loop here is bounded by a constant or by maxIterations. Beyond that bound, each plan
// makes progress: it adds a vertex, cuts the segment at an existing vertex, or replaces a
// constraint edge by two strictly shorter ones between existing vertices (which can happen only
// finitely often between two new vertices). Edges that stop being constraints may no longer be
// locally Delaunay; they are collected, with every edge the rest of the same input edge touches,
// and flipped back by Lawson's algorithm when that input edge ends (also after a failure).
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "constraints/ConstraintInsertion.h"
#include "mesh/LocalIndex.h"

namespace {

/// How close to a vertex, relative to the crossing's own coordinates, a rounded crossing point
/// may lie and still count as that vertex; also how far from a constraint's line an apex may lie
/// to be taken as on it. A few thousand ulps: far beyond the rounding of a well-conditioned
/// crossing, far below any visible bend.
constexpr double kSnapReach = 0x1p-40;

/// How far, in ulps of each coordinate, a rounded crossing may be moved (plans 3 and 4).
constexpr int kNudgeUlps = 3;

/// v moved by k ulps (k of either sign).
double stepUlps(double v, int k) {
    for (; k > 0; --k) v = std::nextafter(v, HUGE_VAL);
    for (; k < 0; ++k) v = std::nextafter(v, -HUGE_VAL);
    return v;
}

/// Whether the rounded crossing P of the lines A-B and U-W lies within rounding of both segments:
/// off neither line, nor beyond an end of either, by more than kSnapReach of the largest
/// coordinate it was computed from. Nearly parallel lines cross ill-conditioned; rounded, their
/// crossing can land anywhere along them.
bool onBothSegments(
    const double* P, const double* A, const double* B, const double* U, const double* W) {
    double magnitude = std::max(std::fabs(P[0]), std::fabs(P[1]));
    for (const double* Q : {A, B, U, W}) {
        magnitude = std::max({magnitude, std::fabs(Q[0]), std::fabs(Q[1])});
    }
    const double reach = kSnapReach * magnitude;
    auto near = [&](const double* S, const double* T) {
        const double ex = T[0] - S[0], ey = T[1] - S[1];
        const double length = std::sqrt(ex * ex + ey * ey);
        const double along = ((P[0] - S[0]) * ex + (P[1] - S[1]) * ey) / length;
        return std::fabs(orient2d(S, T, P)) <= reach * length && along >= -reach &&
               along <= length + reach;
    };
    return near(A, B) && near(U, W);
}

/// The vertex of triangle t that is neither u nor w.
inline int thirdVertex(const PkMeshTriangle& t, int u, int w) {
    const int* v = triVerts(t);
    return (v[0] != u && v[0] != w) ? v[0] : ((v[1] != u && v[1] != w) ? v[1] : v[2]);
}

/// The corners around a crossed edge u-w: t is (C, U, W) and n is (O, W, U), both
/// counter-clockwise (O null when n is a ghost triangle). The split at P makes (C, U, P),
/// (C, P, W), (O, W, P) and (O, P, U): P must lie in the angle at C and in the angle at O.
struct CrossingCorners {
    const double* U;
    const double* W;
    const double* C;
    const double* O;
    bool pivotAngle(const double* P) const {
        return orient2d(C, U, P) > 0 && orient2d(W, C, P) > 0;
    }
    bool farAngle(const double* P) const {
        return O == nullptr || (orient2d(O, W, P) > 0 && orient2d(U, O, P) > 0);
    }
    bool sound(const double* P) const { return pivotAngle(P) && farAngle(P); }
};

/// Tries the points `radius` ulps around p (a ring; 0 is p itself), row by row, and moves p to
/// the first that `accept` takes; false when none does.
template <class Accept>
bool nudge(PkGePoint3d& p, int radius, Accept accept) {
    const double P[2] = {p.x, p.y};
    for (int dy = -radius; dy <= radius; ++dy) {
        for (int dx = -radius; dx <= radius; ++dx) {
            if (std::max(std::abs(dx), std::abs(dy)) != radius) continue;
            const double q[2] = {stepUlps(P[0], dx), stepUlps(P[1], dy)};
            // Never into the range below 2^-200 where the predicates' bounds fail.
            if ((q[0] != 0 && std::fabs(q[0]) < 0x1p-200) ||
                (q[1] != 0 && std::fabs(q[1]) < 0x1p-200)) {
                continue;
            }
            if (accept(q)) {
                p.x = q[0];
                p.y = q[1];
                return true;
            }
        }
    }
    return false;
}

/// An apex (the pivot first) on the line u-w within `reach`, between its ends; NoVertex when
/// none.
int detourApex(const std::vector<PkMeshPoint3d>& vertices,
               const CrossingCorners& k,
               const int apexes[2],
               double reach2) {
    const double ex = k.W[0] - k.U[0], ey = k.W[1] - k.U[1];
    const double length2 = ex * ex + ey * ey;
    for (int a = 0; a < 2; ++a) {
        if (apexes[a] < 0) continue;
        const double* A = vertexXY(vertices[std::size_t(apexes[a])]);
        const double along = (A[0] - k.U[0]) * ex + (A[1] - k.U[1]) * ey;
        const double off = std::fabs(orient2d(k.U, k.W, A));
        if (along > 0 && along < length2 && off * off <= reach2 * length2) return apexes[a];
    }
    return NoVertex;
}

}  // namespace

CrossingPlan planCrossing(const TriangleMesh& mesh, int t, int j, int n, PkGePoint3d& p) {
    const std::vector<PkMeshTriangle>& triangles = mesh.triangles;
    const std::vector<PkMeshPoint3d>& vertices = mesh.vertices;
    const int* v = triVerts(triangles[std::size_t(t)]);
    const int pivot = v[j];
    const int u = v[nextLocalIndex(j)];
    const int w = v[prevLocalIndex(j)];
    int far = NoVertex;
    if (n >= 0 && n < int(triangles.size()) && !isGhost(triangles[std::size_t(n)])) {
        far = thirdVertex(triangles[std::size_t(n)], u, w);
    }
    auto xy = [&](int i) { return vertexXY(vertices[std::size_t(i)]); };
    const CrossingCorners k{xy(u), xy(w), xy(pivot), far >= 0 ? xy(far) : nullptr};
    if (k.sound(&p.x)) return {CrossingPlan::kSplit, NoVertex, t, false};

    const double* P = &p.x;
    auto distance2 = [&](const double* Q) {
        return (P[0] - Q[0]) * (P[0] - Q[0]) + (P[1] - Q[1]) * (P[1] - Q[1]);
    };
    const double reach = kSnapReach * std::max(std::fabs(P[0]), std::fabs(P[1]));
    const double reach2 = reach * reach;
    const double du = distance2(k.U), dw = distance2(k.W);
    if (std::min(du, dw) <= reach2)
        return {CrossingPlan::kThroughEnd, du <= dw ? u : w, NoTriangle, false};

    const double dc = distance2(k.C);
    const double dfar = k.O != nullptr ? distance2(k.O) : HUGE_VAL;
    if (std::min(dc, dfar) <= reach2) {
        return {CrossingPlan::kThroughApex, dc <= dfar ? pivot : far, NoTriangle, false};
    }

    // Nearest first: rings of growing distance in ulps (0 only for the insertion).
    auto sound = [&](const double* q) { return k.sound(q); };
    for (int radius = 1; radius <= kNudgeUlps; ++radius) {
        if (nudge(p, radius, sound)) return {CrossingPlan::kSplit, NoVertex, t, true};
    }
    int inside = NoTriangle;
    auto inOneTriangle = [&](const double* q) {
        const double side = orient2d(k.U, k.W, q);
        if (side > 0 && k.pivotAngle(q)) inside = t;
        if (side < 0 && k.O != nullptr && k.farAngle(q)) inside = n;
        return inside >= 0;
    };
    for (int radius = 0; radius <= kNudgeUlps; ++radius) {
        if (nudge(p, radius, inOneTriangle))
            return {CrossingPlan::kInsert, NoVertex, inside, radius > 0};
    }
    const int apexes[2] = {pivot, far};
    const int apex = detourApex(vertices, k, apexes, reach2);
    if (apex >= 0) return {CrossingPlan::kDetour, apex, NoTriangle, false};
    return {CrossingPlan::kRefused, NoVertex, NoTriangle, false};
}

PkTriangulationStatus resolveCrossing(const ConstraintContext& c,
                                      int t,
                                      int j,
                                      int n,
                                      int a,
                                      int b,
                                      PkGePoint3d p,
                                      std::vector<PkMeshEdge>& pendingEdges) {
    const std::vector<PkMeshTriangle>& triangles = c.mesh.triangles;
    const std::vector<PkMeshPoint3d>& vertices = c.mesh.vertices;
    std::vector<PkMeshEdge>& suspectEdges = c.suspectEdges;
    const int* v = triVerts(triangles[std::size_t(t)]);
    const PkMeshEdge crossed(v[nextLocalIndex(j)], v[prevLocalIndex(j)]);
    // Every plan below takes the rounded crossing for the exact one; one far off either segment
    // would bend a constraint past its ends.
    auto xy = [&](int i) { return vertexXY(vertices[std::size_t(i)]); };
    if (!onBothSegments(&p.x, xy(a), xy(b), xy(crossed.EdgeIndex1()), xy(crossed.EdgeIndex2()))) {
        return StatusConstraintFailed;
    }
    const CrossingPlan plan = planCrossing(c.mesh, t, j, n, p);
    int through = plan.vertex;
    switch (plan.kind) {
        case CrossingPlan::kRefused:
            return StatusConstraintFailed;
        case CrossingPlan::kSplit: {
            through = splitConstraintEdge(c, crossed, p, t);
            if (through < 0) return StatusFailed;
            // The flips after the split test only the edges opposite the new vertex. The vertex
            // is rounded off the constraint it splits, so an edge at it may fail the test by a
            // rounding; left alone, a later cavity next to it would build on the miss. With
            // nothing else pending they are settled now, so the next pieces meet a constrained
            // Delaunay mesh and their cavities need no checks.
            const bool pending = plan.moved || !c.suspectEdges.empty();
            noteEdgesAt(c, through);
            if (!pending) {
                const PkTriangulationStatus legalized = legalizeSuspectEdges(c);
                if (legalized != StatusOk) return legalized;
            }
            break;
        }
        case CrossingPlan::kInsert: {
            through = int(vertices.size());
            c.mesh.appendVertex(p);
            CheckList list;
            PkTriangulationStatus status =
                insertVertexAt(c.mesh, list, plan.triangle, through, kInTriangle);
            if (status == StatusOk) status = legalizeAroundVertex(c.delaunay(), through, list);
            if (status != StatusOk) return StatusFailed;
            c.records.split(crossed, through);
            noteEdgesAt(c, through);
            suspectEdges.push_back(crossed);
            break;
        }
        case CrossingPlan::kThroughEnd:
            break;
        case CrossingPlan::kThroughApex:
            c.records.split(crossed, through);
            suspectEdges.push_back(crossed);
            break;
        case CrossingPlan::kDetour:
            c.records.split(crossed, through);
            suspectEdges.push_back(crossed);
            pendingEdges.push_back(PkMeshEdge(a, b));
            return StatusOk;
    }
    pendingEdges.push_back(PkMeshEdge(a, through));
    pendingEdges.push_back(PkMeshEdge(through, b));
    return StatusOk;
}

void noteEdgesAt(const ConstraintContext& c, int vertex) {
    const std::vector<PkMeshTriangle>& triangles = c.mesh.triangles;
    const std::vector<PkMeshPoint3d>& vertices = c.mesh.vertices;
    const int maxIterations = c.maxIterations;
    const int triangleCount = int(triangles.size());
    const int t0 = vertexTriangle(vertices[std::size_t(vertex)]);
    int t = t0;
    for (int count = 0; t >= 0 && t < triangleCount && count < maxIterations; ++count) {
        const int* v = triVerts(triangles[std::size_t(t)]);
        const int i = v[0] == vertex ? 0 : (v[1] == vertex ? 1 : 2);
        c.suspectEdges.push_back(PkMeshEdge(vertex, v[nextLocalIndex(i)]));
        t = triNbrs(triangles[std::size_t(t)])[i];
        if (t == t0) break;
    }
}

// Lawson's flip algorithm from the suspect edges: an edge between two real triangles that is
// not a constraint is flipped when the far vertex lies inside the circle of the near triangle
// (beyond the band) and the quadrilateral is strictly convex; the four outer edges of a flipped
// quadrilateral become suspects. Every flip lowers the lifted surface, so the loop ends; the
// count turns any surprise into StatusIterationLimit.
PkTriangulationStatus legalizeSuspectEdges(const ConstraintContext& c) {
    std::vector<PkMeshTriangle>& triangles = c.mesh.triangles;
    std::vector<PkMeshPoint3d>& vertices = c.mesh.vertices;
    const int maxIterations = c.maxIterations;
    std::vector<PkMeshEdge> stack;
    stack.swap(c.suspectEdges);
    const int triangleCount = int(triangles.size());
    int count = 0;
    while (!stack.empty()) {
        const PkMeshEdge e = stack.back();
        stack.pop_back();
        const int x0 = e.EdgeIndex1(), y0 = e.EdgeIndex2();
        if (x0 < 0 || x0 == y0 || c.records.contains(e)) continue;
        // The triangle t = (x, y, p) with the edge from x to y, for x, y the ends in some order.
        int t = vertexTriangle(vertices[std::size_t(x0)]);
        const int t0 = t;
        int k = NoLocalIndex;
        for (int turns = 0; t >= 0 && t < triangleCount && turns < maxIterations; ++turns) {
            k = getLocalEdgeIndex(triangles[std::size_t(t)], x0, y0);
            if (k >= 0) break;
            const int* v = triVerts(triangles[std::size_t(t)]);
            t = triNbrs(triangles[std::size_t(t)])[v[0] == x0 ? 0 : (v[1] == x0 ? 1 : 2)];
            if (t == t0) break;
        }
        if (k < 0 || t < 0 || t >= triangleCount) continue;  // no longer an edge of the mesh
        PkMeshTriangle& T = triangles[std::size_t(t)];
        const int nt = triNbrs(T)[k];
        if (nt < 0 || nt >= triangleCount || isGhost(T) || isGhost(triangles[std::size_t(nt)])) {
            continue;
        }
        PkMeshTriangle& N = triangles[std::size_t(nt)];
        const int x = triVerts(T)[k], y = triVerts(T)[nextLocalIndex(k)];
        const int p = triVerts(T)[prevLocalIndex(k)];
        const int kn = getLocalEdgeIndex(N, x, y);
        if (kn < 0) continue;
        const int q = triVerts(N)[prevLocalIndex(kn)];
        const double* X = vertexXY(vertices[std::size_t(x)]);
        const double* Y = vertexXY(vertices[std::size_t(y)]);
        const double* Pp = vertexXY(vertices[std::size_t(p)]);
        const double* Q = vertexXY(vertices[std::size_t(q)]);
        if (classifyInCircle(Q, X, Y, Pp, c.band) != kInsideCircle) continue;
        if (!(orient2d(X, Q, Pp) > 0 && orient2d(Q, Y, Pp) > 0)) continue;
        if (++count > maxIterations) return StatusIterationLimit;
        /*
                  p                      p
                /   \                  / | \
          tPX  /  t  \  tYP      tPX  /  |  \  tYP
              x ----- y    ==>       x t | nt y
          nXQ  \ nt  /  nQY      nXQ  \  |  /  nQY
                \   /                  \ | /
                  q                      q
        */
        const int tYP = triNbrs(T)[nextLocalIndex(k)];
        const int tPX = triNbrs(T)[prevLocalIndex(k)];
        const int nXQ = triNbrs(N)[nextLocalIndex(kn)];
        const int nQY = triNbrs(N)[prevLocalIndex(kn)];
        int* tv = triVerts(T);
        int* tn = triNbrs(T);
        tv[0] = x, tv[1] = q, tv[2] = p;
        tn[0] = nXQ, tn[1] = nt, tn[2] = tPX;
        int* nv = triVerts(N);
        int* nn = triNbrs(N);
        nv[0] = q, nv[1] = y, nv[2] = p;
        nn[0] = nQY, nn[1] = tYP, nn[2] = t;
        c.mesh.replaceNeighbor(nXQ, nt, t);
        c.mesh.replaceNeighbor(tYP, t, nt);
        vertexTriangle(vertices[std::size_t(x)]) = t;
        vertexTriangle(vertices[std::size_t(q)]) = t;
        vertexTriangle(vertices[std::size_t(p)]) = t;
        vertexTriangle(vertices[std::size_t(y)]) = nt;
        for (const PkMeshEdge& outer :
             {PkMeshEdge(x, q), PkMeshEdge(q, y), PkMeshEdge(y, p), PkMeshEdge(p, x)}) {
            stack.push_back(outer);
        }
    }
    return StatusOk;
}
