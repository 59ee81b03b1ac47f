// The corner-position cache of the shuffled insertions on a helper thread.
#pragma once

#include <cstddef>

#include "delaunay/VertexViews.h"

/// The vertex records (RecordVertexView) with each triangle slot's three corner positions kept
/// beside the mesh (six doubles
/// per slot). A triangle's index then gives its corners' positions at once, where the vertex
/// records would be a second load waiting for the first: when the insertions jump around a mesh
/// that no cache holds, the walk and the flip check each wait for one miss instead of two.
/// Positions of the ghost vertex are kept as zeros and never read. The vertices' triangle
/// indices live in a compact array of their own (copied back into the records at the end): the
/// flips rewrite them for vertices whose records nothing else reads, and 16 of them share a
/// cache line where the records hold 2.
/// A corner position copied out of the cache (zeros for the ghost vertex).
struct PositionCopy {
    double xy[2];
    operator const double*() const { return xy; }
};

struct CornerVertexView : RecordVertexView {
    double* corners;
    int* triangleIndex;
    int& triangle(int i) const { return triangleIndex[i]; }
    const double* cornerXY(int t, int k, int /*v*/) const {
        return corners + 6 * std::size_t(t) + 2 * std::size_t(k);
    }
    PositionCopy copyXY(int t, int k, int /*v*/) const {
        const double* q = cornerXY(t, k, 0);
        return {{q[0], q[1]}};
    }
    /// Used only with the insertion scouts, which fetch the insertions' reads ahead: the walk
    /// and the flip loop start no loads of their own.
    void fetchTriangle(const PkMeshTriangle*, int, int) const {}
    /// a, b and c may point into t's own entry: all six values are read before any is written.
    void setCorners(int t, const double* a, const double* b, const double* c) const {
        const double v[6] = {a[0], a[1], b[0], b[1], c[0], c[1]};
        double* d = corners + 6 * std::size_t(t);
        for (int k = 0; k < 6; ++k) d[k] = v[k];
    }
};
