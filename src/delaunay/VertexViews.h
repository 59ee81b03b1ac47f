// Views: vertex positions and triangle indices as the insertion code reads and writes them. The
// insertion templates (delaunay/InsertionSteps.h) take any type with these members; the
// acceleration layer adds one that keeps the triangles' corner positions
// (accel/CornerVertexView.h).
#pragma once

#include <cstddef>
#include <vector>

#include "PkMeshPoint3d.h"
#include "mesh/MeshFields.h"
#include "order/InsertionOrder.h"

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
