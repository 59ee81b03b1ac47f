// Randomised visibility walk. From the current triangle, test its edges starting at a random one
// and cross the first edge that has the point strictly on its outer side; stop in a triangle
// with no such edge, or on entering a ghost triangle (the point is outside the hull). The random
// start edge makes the walk terminate on any triangulation (Devillers, Pion, Teillaud: "Walking
// in a triangulation"); the step bound makes a corrupt mesh fail instead of hang.
#pragma once

#include <cstdlib>

#include "mesh/LocalIndex.h"
#include "state/RyTriangulationImpl.h"

template <class View>
int RyTriangulationImpl::locatePoint(const View& view,
                                     int startVertex,
                                     const double* point,
                                     PointSide sides[3]) {
    const int triangleCount = int(triangles.size());
    int t = view.triangle(startVertex);
    if (t < 0 || t >= triangleCount) return -1;

    if (isGhost(triangles[std::size_t(t)])) {
        // Step inside across the ghost triangle's hull edge.
        const int* v = triVerts(triangles[std::size_t(t)]);
        int k = 0;
        while (k < 3 && (v[k] == GhostVertex || v[nextLocalIndex(k)] == GhostVertex)) ++k;
        if (k == 3) return -1;
        t = triNbrs(triangles[std::size_t(t)])[k];
        if (t < 0 || t > triangleCount - 1) return -1;
    }

    const int maxVertex = int(vertices.size()) - 1;
    int enteredA = -1, enteredB = -1;  // the edge the walk came through; none at the start
    bool entered = false;
    for (int steps = 0;; ++steps) {
        const PkMeshTriangle& tri = triangles[std::size_t(t)];
        const int* v = triVerts(tri);
        int k = std::rand() % 3;
        int crossed = -1;
        for (int j = 0; j < 3; ++j, k = nextLocalIndex(k)) {
            const int a = v[k];
            const int b = v[nextLocalIndex(k)];
            if (a > maxVertex || b > maxVertex || a < 0 || b < 0) return -1;
            if (entered && ((a == enteredA && b == enteredB) || (a == enteredB && b == enteredA))) {
                sides[k] = kLeft;
                continue;
            }
            sides[k] = classifyPointSide(
                point, view.cornerXY(t, k, a), view.cornerXY(t, nextLocalIndex(k), b), band);
            if (sides[k] == kRight) {
                crossed = k;
                break;
            }
        }
        if (crossed >= 0) {
            const int next = triNbrs(tri)[crossed];
            if (next < 0 || next > triangleCount - 1) return -1;
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
        if (steps >= maxIterations) return -1;
        if (crossed < 0) return t;
    }
}
