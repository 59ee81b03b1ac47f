// Views: vertex positions and triangle indices as the insertion code reads and writes them, and
// the hooks it calls on the way. The insertion templates (delaunay/VertexInsertion.h) take any
// type with these members; the acceleration layer adds a view that keeps the triangles' corner
// positions and leaves fetching to its scouts (accel/CornerVertexView.h).
//   xy(v)                      position of vertex v (never the ghost vertex)
//   triangle(v)                a triangle holding v, read and written
//   cornerXY(t, k, v)          position of corner k (vertex v, real) of triangle t
//   copyXY(t, k, v)            corner k's position kept for setCorners after t is rewritten
//   setCorners(t, a, b, c)     t's corners were just rewritten to these positions
//   fetchTriangle(tris, n, t)  slot t (when in [0, n)) is about to be read
#pragma once

#include <cstddef>
#include <vector>

#include "PkMeshPoint3d.h"
#include "PkMeshTriangle.h"
#include "mesh/MeshFields.h"
#include "order/InsertionOrder.h"

/// Stands for the ghost vertex's position where one is copied; never used in a predicate.
inline constexpr double kNoPosition[2] = {0.0, 0.0};

/// What the plain views' copyXY gives: they keep no corner positions, so nothing is copied.
struct NoPosition {
    operator const double*() const { return kNoPosition; }
};

/// The plain views' fetch hook: the walk and the flips follow chains of links, each a cache miss
/// in a large mesh, so the next triangles' loads start early.
inline void fetchSlot(const PkMeshTriangle* tris, int count, int t) {
    if (unsigned(t) < unsigned(count)) __builtin_prefetch(&tris[t]);
}

/// Vertex positions and triangle indices by vertex index: the vertex records themselves.
struct RecordVertexView {
    std::vector<PkMeshPoint3d>& records;
    const double* xy(int i) const { return vertexXY(records[std::size_t(i)]); }
    int& triangle(int i) const { return vertexTriangle(records[std::size_t(i)]); }
    const double* cornerXY(int /*t*/, int /*k*/, int v) const { return xy(v); }
    NoPosition copyXY(int, int, int) const { return {}; }
    void setCorners(int, const double*, const double*, const double*) const {}
    void fetchTriangle(const PkMeshTriangle* tris, int count, int t) const {
        fetchSlot(tris, count, t);
    }
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
    const double* cornerXY(int /*t*/, int /*k*/, int v) const { return xy(v); }
    NoPosition copyXY(int, int, int) const { return {}; }
    void setCorners(int, const double*, const double*, const double*) const {}
    void fetchTriangle(const PkMeshTriangle* tris, int count, int t) const {
        fetchSlot(tris, count, t);
    }
};
