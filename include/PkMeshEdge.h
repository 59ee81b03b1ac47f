// An undirected mesh edge: two vertex indices, smaller first.
#pragma once

#include "RyTriangulationExport.h"

/// An undirected edge between two vertices, also the form in which constraint segments are
/// given. Invariant kept by every setter: EdgeIndex1() < EdgeIndex2(), or both are -1 (the empty
/// edge). Comparison is signed, so an edge to the ghost vertex (-2) stores -2 first. A plain
/// value: copied by value, nothing owned.
struct RYTRIANGULATION_EXPORT PkMeshEdge {
    /// The empty edge (-1, -1).
    PkMeshEdge();
    /// Copies both indices as they are.
    PkMeshEdge(const PkMeshEdge& other);
    /// Stores (min, max) of the two indices; two equal indices give the empty edge (-1, -1).
    PkMeshEdge(int a, int b);

    /// Same rule as the two-index constructor, on an existing edge.
    void setEdgeIndex(int a, int b);

    /// True when both edges join the same two vertices, in either order.
    bool operator==(const PkMeshEdge& other) const;
    /// Exact negation of operator==.
    bool operator!=(const PkMeshEdge& other) const;
    /// Copies both indices; returns nothing.
    void operator=(const PkMeshEdge& other);

    /// The first (smaller) vertex index, or -1.
    int EdgeIndex1() const;
    /// The second (larger) vertex index, or -1.
    int EdgeIndex2() const;

private:
    friend struct PkMeshFields;
    int first;
    int second;
};
