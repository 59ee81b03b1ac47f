// Direct field access to the exported mesh records for the library's own hot loops. The
// exported accessors are out of line (and clamp their positions); inner loops read the fields.
#pragma once

#include <cstdint>

#include "PkMeshEdge.h"
#include "PkMeshPoint3d.h"
#include "PkMeshTriangle.h"

/// For the small steps that the insertion's hot loops are written as: inlined even where the
/// compiler's estimate would not, so that splitting a loop into named steps costs nothing.
#if defined(__GNUC__)
#define RY_INLINE __attribute__((always_inline)) inline
#else
#define RY_INLINE inline
#endif

struct PkMeshFields {
    static int* vertices(PkMeshTriangle& t) { return t.vertex; }
    static const int* vertices(const PkMeshTriangle& t) { return t.vertex; }
    static int* neighbors(PkMeshTriangle& t) { return t.neighbor; }
    static const int* neighbors(const PkMeshTriangle& t) { return t.neighbor; }
    static std::uint32_t& flags(PkMeshTriangle& t) { return t.flags; }
    static std::uint32_t flags(const PkMeshTriangle& t) { return t.flags; }

    static PkGePoint3d& point(PkMeshPoint3d& v) { return v.point; }
    static const PkGePoint3d& point(const PkMeshPoint3d& v) { return v.point; }
    static int& triangle(PkMeshPoint3d& v) { return v.triangleIndex; }
    static int triangle(const PkMeshPoint3d& v) { return v.triangleIndex; }
    static std::uint32_t flags(const PkMeshPoint3d& v) { return v.flags; }

    static int first(const PkMeshEdge& e) { return e.first; }
    static int second(const PkMeshEdge& e) { return e.second; }
};

/// Short aliases used throughout the library.
inline int* triVerts(PkMeshTriangle& t) {
    return PkMeshFields::vertices(t);
}
inline const int* triVerts(const PkMeshTriangle& t) {
    return PkMeshFields::vertices(t);
}
inline int* triNbrs(PkMeshTriangle& t) {
    return PkMeshFields::neighbors(t);
}
inline const int* triNbrs(const PkMeshTriangle& t) {
    return PkMeshFields::neighbors(t);
}
/// x then y of a vertex, as the predicates read them.
inline const double* vertexXY(const PkMeshPoint3d& v) {
    return &PkMeshFields::point(v).x;
}
inline int& vertexTriangle(PkMeshPoint3d& v) {
    return PkMeshFields::triangle(v);
}
inline int vertexTriangle(const PkMeshPoint3d& v) {
    return PkMeshFields::triangle(v);
}
/// Vertex type (0..7) from flags bits 6..8.
inline int vertexType(const PkMeshPoint3d& v) {
    return int((PkMeshFields::flags(v) >> 6) & 7u);
}

// Sentinel indices. The exported records' defaults are NoVertex (an edge's ends) and NoTriangle
// (a vertex's triangle); the library writes and tests these names, never the bare values.
/// Index of the virtual vertex at infinity shared by all ghost triangles.
constexpr int GhostVertex = -2;
/// A vertex index naming no vertex (an empty edge end, a search that found none).
constexpr int NoVertex = -1;
/// A triangle index naming no triangle: no neighbour, a vertex not yet in the mesh, a walk or
/// search that found none.
constexpr int NoTriangle = -1;
/// A local position (0..2) naming none: no such corner or edge in the triangle.
constexpr int NoLocalIndex = -1;
/// Flags bit 0 of a triangle: set on ghost triangles.
constexpr std::uint32_t bAux = 1u;

/// Sets bAux exactly when the triangle holds the ghost vertex.
inline void setAuxFromVertices(PkMeshTriangle& t) {
    const int* v = triVerts(t);
    std::uint32_t& f = PkMeshFields::flags(t);
    const bool ghost = v[0] == GhostVertex || v[1] == GhostVertex || v[2] == GhostVertex;
    f = ghost ? (f | bAux) : (f & ~bAux);
}

/// Any negative vertex index (ghost vertex or none).
inline bool isGhost(const PkMeshTriangle& t) {
    const int* v = triVerts(t);
    return (v[0] | v[1] | v[2]) < 0;
}
