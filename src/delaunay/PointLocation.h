// Randomised visibility walk. From the current triangle, test its edges starting at a random one
// and cross the first edge that has the point strictly on its outer side; stop in a triangle
// with no such edge, or on entering a ghost triangle (the point is outside the hull). The random
// start edge makes the walk terminate on any triangulation (Devillers, Pion, Teillaud: "Walking
// in a triangulation"); the step bound makes a corrupt mesh fail instead of hang.
#pragma once

#include <cstdlib>

#include "delaunay/Delaunay.h"
#include "mesh/LocalIndex.h"

/// Randomised walk from the triangle of `startVertex` to the triangle holding `point`. Returns
/// the triangle (sides[k]: the point against edge k), or NoTriangle when the walk failed.
template <class View>
int locatePoint(const DelaunayContext& c,
                const View& view,
                int startVertex,
                const double* point,
                PointSide sides[3]) {
    const std::vector<PkMeshTriangle>& triangles = c.mesh.triangles;
    const int triangleCount = int(triangles.size());
    int t = view.triangle(startVertex);
    if (t < 0 || t >= triangleCount) return NoTriangle;

    if (isGhost(triangles[std::size_t(t)])) {
        // Step inside across the ghost triangle's hull edge.
        const int* v = triVerts(triangles[std::size_t(t)]);
        int k = 0;
        while (k < 3 && (v[k] == GhostVertex || v[nextLocalIndex(k)] == GhostVertex)) ++k;
        if (k == 3) return NoTriangle;
        t = triNbrs(triangles[std::size_t(t)])[k];
        if (t < 0 || t > triangleCount - 1) return NoTriangle;
    }

    const int maxVertex = int(c.mesh.vertices.size()) - 1;
    // The edge the walk came through; none at the start.
    int enteredA = NoVertex, enteredB = NoVertex;
    bool entered = false;
    for (int steps = 0;; ++steps) {
        const PkMeshTriangle& tri = triangles[std::size_t(t)];
        const int* v = triVerts(tri);
        int k = std::rand() % 3;
        int crossed = NoLocalIndex;
        for (int j = 0; j < 3; ++j, k = nextLocalIndex(k)) {
            const int a = v[k];
            const int b = v[nextLocalIndex(k)];
            if (a > maxVertex || b > maxVertex || a < 0 || b < 0) return NoTriangle;
            if (entered && ((a == enteredA && b == enteredB) || (a == enteredB && b == enteredA))) {
                sides[k] = kLeft;
                continue;
            }
            sides[k] = classifyPointSide(
                point, view.cornerXY(t, k, a), view.cornerXY(t, nextLocalIndex(k), b), c.band);
            if (sides[k] == kRight) {
                crossed = k;
                break;
            }
        }
        if (crossed >= 0) {
            const int next = triNbrs(tri)[crossed];
            if (next < 0 || next > triangleCount - 1) return NoTriangle;
            enteredA = v[crossed];
            enteredB = v[nextLocalIndex(crossed)];
            entered = true;
            t = next;
            const PkMeshTriangle& nextTri = triangles[std::size_t(t)];
            // The walk leaves through one of these unless it ends here: start all three loads
            // while the sides of this triangle are being decided.
            for (int j = 0; j < 3; ++j) {
                view.fetchTriangle(triangles.data(), triangleCount, triNbrs(nextTri)[j]);
            }
            if (isGhost(nextTri)) {
                const int* g = triVerts(nextTri);
                if (g[0] == GhostVertex) {
                    sides[0] = kGhostSide, sides[1] = kLeft, sides[2] = kGhostSide;
                } else if (g[1] == GhostVertex) {
                    sides[0] = kGhostSide, sides[1] = kGhostSide, sides[2] = kLeft;
                } else {
                    sides[0] = kLeft, sides[1] = kGhostSide, sides[2] = kGhostSide;
                }
                return t;
            }
        }
        // The bound is checked before success, so the step numbered maxIterations fails even
        // when it found the triangle.
        if (steps >= c.maxIterations) return NoTriangle;
        if (crossed < 0) return t;
    }
}
