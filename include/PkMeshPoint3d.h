// One mesh vertex: a type, one triangle touching it, and its point.
#pragma once

#include <cstdint>

#include "RyGeometry.h"
#include "RyTriangulationExport.h"

/// A mesh vertex: flags (bits 6..8 hold the Type), the index of one triangle of the working mesh
/// having it as a corner (-1 when none yet; may be a ghost triangle), and its point. Only x and y
/// take part in the geometry; z is carried along. A plain 32-byte value.
class RYTRIANGULATION_EXPORT PkMeshPoint3d {
public:
    /// Vertex type, stored in 3 bits (only the low 3 bits of a value survive).
    enum Type : int {
        /// An ordinary vertex; every vertex the library creates has this type.
        kRegular = 0,
        /// Never a corner of the first triangle, and skipped by the spatially sorted insertion
        /// (it then takes the triangle index of the vertex inserted before it).
        kExcluded = 1,
    };

    /// Point (0, 0, 0), flags 0, triangle index -1.
    PkMeshPoint3d() : flags(0), triangleIndex(-1), point(0.0, 0.0, 0.0) {}
    // Defaulted here, not in the library: the type stays trivially copyable, so vertex lists of
    // millions of entries copy as plain memory.
    PkMeshPoint3d(const PkMeshPoint3d& other) = default;
    /// Point := p, type kRegular, triangle index -1.
    PkMeshPoint3d(PkGePoint3d p) : flags(0), triangleIndex(-1), point(p) {}
    /// Point := p, type := (type AND 7), triangle index -1.
    PkMeshPoint3d(PkGePoint3d p, PkMeshPoint3d::Type& type);

    void setTriangleIndex(int triangle);
    /// Copies flags, point and triangle index.
    PkMeshPoint3d& operator=(const PkMeshPoint3d& other) = default;

    /// The vertex position.
    PkGePoint3d getPoint() const;
    /// One triangle of the working mesh having this vertex as a corner, or -1.
    int getTriangleIndex() const;
    /// The vertex type (0..7).
    Type getType() const;

private:
    friend struct PkMeshFields;
    std::uint32_t flags;
    int triangleIndex;
    PkGePoint3d point;
};
