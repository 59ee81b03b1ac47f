// Which mesh edges are constraints, how often each was given, and which input edges each piece
// was cut from. The hole flood counts crossings by these records; the mesh itself does not mark
// constraints.
#pragma once

#include <vector>

#include "PkMeshEdge.h"
#include "mesh/MeshTopology.h"

struct ConstraintRecords {
    /// The mesh edges that are constraints.
    EdgeSet edges;
    /// For an edge given k + 1 times (counting pieces of longer inputs): k. The hole flood counts
    /// a crossing of it k + 1 times.
    EdgeMap<int> repeats;
    /// For a piece of a longer input edge: the input edges it was cut from.
    EdgeMap<std::vector<PkMeshEdge>> origins;

    bool contains(const PkMeshEdge& e) const { return edges.count(e) != 0; }
    /// Records `piece`, cut from the input edge `origin` (the piece itself when whole).
    void record(const PkMeshEdge& piece, const PkMeshEdge& origin);
    void record(const PkMeshEdge& piece);
    /// Replaces the constraint `edge` (u, w) by (u, v) and (v, w), which carry its repeat count
    /// and origins; the mesh is not touched.
    void split(const PkMeshEdge& edge, int v);
    void clear();
};

/// Adds `edge` to `list` unless it is there.
void addOrigin(std::vector<PkMeshEdge>& list, const PkMeshEdge& edge);
void mergeOrigins(std::vector<PkMeshEdge>& destination, const std::vector<PkMeshEdge>& source);
