// One triangle of the working or output mesh, with its adjacency.
#pragma once

#include <cstdint>

#include "RyTriangulationExport.h"

/// A mesh triangle: three vertex indices in counter-clockwise order, three neighbour triangle
/// indices and a flags word whose bit 0 is bAux (set on ghost triangles). Index -1 means none;
/// -2 is the ghost vertex at infinity.
///
/// Adjacency convention: neighbour i lies across the edge from vertex i to vertex (i+1) mod 3,
/// so the neighbour opposite vertex k is neighbour (k+1) mod 3.
///
/// Positions given to the *At accessors are clamped: k <= 0 means 0, k >= 2 means 2.
/// A plain value: copied by value, nothing owned.
class RYTRIANGULATION_EXPORT PkMeshTriangle {
public:
    /// Vertices -1, neighbours -1, flags 0.
    PkMeshTriangle() : vertex{-1, -1, -1}, neighbor{-1, -1, -1}, flags(0) {}
    // Defaulted here, not in the library: the type stays trivially copyable, so the meshes of
    // millions of triangles that hosts and the library copy move as plain memory.
    PkMeshTriangle(const PkMeshTriangle& other) = default;
    /// Copy the whole record (vertices, neighbours, flags).
    PkMeshTriangle& operator=(const PkMeshTriangle& other) = default;
    PkMeshTriangle& operator=(PkMeshTriangle&& other) = default;

    /// True when any vertex index is negative (the ghost vertex -2, or -1 for none).
    bool isGhostTri();
    /// Flags bit 0 (bAux): set on the ghost triangles that close the mesh around its hull.
    bool isAux();
    /// Sets flags bit 0; other bits unchanged.
    void setFlagbAux(bool aux);

    /// Vertex at position k (clamped).
    int getVertexIndexAt(int k) const;
    /// Neighbour at position k (clamped): the triangle across edge (vertex k, vertex k+1).
    int getNeighborIndex(int k) const;
    /// Sets vertices 0, 1, 2 in argument order.
    void setVertexIndex(int v0, int v1, int v2);
    /// Sets the vertex at position k (clamped) to `value`.
    void setVertexIndexAt(int value, int k);
    /// Sets neighbours 0, 1, 2 in argument order.
    void setNeighborIndex(int n0, int n1, int n2);
    /// Sets the neighbour at position k (clamped) to `value`.
    void setNeighborIndexAt(int value, int k);
    /// Replaces the first neighbour (in order 0, 1, 2) equal to `oldIndex` by `newIndex` and
    /// returns true; returns false and changes nothing when none matches.
    bool updateNeighborIndexAt(int newIndex, int oldIndex);
    /// Writes the neighbour opposite vertex `vertex` to `triangle` and returns true; returns
    /// false and leaves `triangle` untouched when `vertex` is not a corner.
    bool getOpposedTriangle(int vertex, int& triangle) const;
    /// True when `vertex` is one of the three corners.
    bool isContain(int vertex);
    /// Neighbour across the edge {a, b} (either orientation); a and b must be corners.
    int getNeighborIndex(int a, int b) const;
    /// Position of `vertex`: 0, 1, or 2 (also 2 when it is not a corner).
    int getLocalVertexIndex(int vertex) const;
    /// Position of `triangle` among the neighbours: 0, 1, or 2 (also 2 when absent).
    int getLocalNeighborIndex(int triangle) const;

private:
    friend struct PkMeshFields;
    int vertex[3];
    int neighbor[3];
    std::uint32_t flags;
};
