// Topology of the triangle records: the edge hash, edge lookups and the link rewrites that the
// split and the flip are made of.
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <unordered_set>

#include "PkMeshEdge.h"
#include "PkMeshTriangle.h"
#include "mesh/MeshFields.h"

/// Hash of every container keyed by an edge; symmetric in the two indices.
struct PkMeshEdgeHash {
    std::size_t operator()(const PkMeshEdge& e) const {
        const std::uint64_t basis = 0xcbf29ce484222325ull;
        const std::uint64_t i1 = std::uint64_t(std::int64_t(e.EdgeIndex1()));
        const std::uint64_t i2 = std::uint64_t(std::int64_t(e.EdgeIndex2()));
        return std::size_t(((i1 ^ basis) + (i2 ^ basis)) * 0x100000001b3ull);
    }
};

using EdgeSet = std::unordered_set<PkMeshEdge, PkMeshEdgeHash>;
template <class T>
using EdgeMap = std::unordered_map<PkMeshEdge, T, PkMeshEdgeHash>;

/// Sets all three corners and links of t, and its ghost flag from the corners.
inline void setTriangle(PkMeshTriangle& t, int v0, int v1, int v2, int n0, int n1, int n2) {
    int* v = triVerts(t);
    int* n = triNbrs(t);
    v[0] = v0, v[1] = v1, v[2] = v2;
    n[0] = n0, n[1] = n1, n[2] = n2;
    setAuxFromVertices(t);
}

/// Points x's link to `oldIndex` at `newIndex`; nothing when x is out of range or has no such
/// link.
inline void replaceNeighborIn(PkMeshTriangle* tris, int count, int x, int oldIndex, int newIndex) {
    if (x < 0 || x >= count) return;
    int* n = triNbrs(tris[x]);
    for (int k = 0; k < 3; ++k) {
        if (n[k] == oldIndex) {
            n[k] = newIndex;
            return;
        }
    }
}

/// Local position k of t whose edge (vertex k, vertex k+1) joins a and b (either order);
/// NoLocalIndex if none.
inline int getLocalEdgeIndex(const PkMeshTriangle& t, int a, int b) {
    const int* v = triVerts(t);
    for (int k = 0; k < 3; ++k) {
        const int p = v[k];
        const int q = v[k == 2 ? 0 : k + 1];
        if ((p == a && q == b) || (p == b && q == a)) return k;
    }
    return NoLocalIndex;
}

/// Local position of `vertex` among the corners v, which must hold it (2 when it is not 0 or 1).
inline int cornerIndex(const int* v, int vertex) {
    return v[0] == vertex ? 0 : (v[1] == vertex ? 1 : 2);
}

/// Neighbour of t across the edge {a, b}, by the rule of PkMeshTriangle::getNeighborIndex(a, b):
/// for two corners a and b, the neighbour across the edge joining them.
inline int getNeighborAcrossEdge(const PkMeshTriangle& t, int a, int b) {
    const int* v = triVerts(t);
    const int* n = triNbrs(t);
    if (v[0] == a) return v[1] == b ? n[0] : n[2];
    if (v[0] == b) return v[1] == a ? n[0] : n[2];
    return n[1];
}
