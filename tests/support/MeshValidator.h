// The one mesh validator, shared by the unit tests, the fuzz harnesses, rytri's mesh checker and
// the benchmarks. It returns every violation it finds, one per line (capped), or "" when the
// mesh is valid; each line names the triangle, vertex or edge at fault.
#pragma once

#include <array>
#include <climits>
#include <string>
#include <vector>

#include "PkMeshEdge.h"

struct RyTriangulationImpl;

namespace rytest {

struct Checks {
    /// Orientation, hull convexity and local Delaunay; off where a band blurs the signs.
    bool geometry = true;
    /// Local Delaunay across every edge that is not a constraint.
    bool delaunay = true;
    /// Real triangles of zero area are allowed (three collinear input points give one).
    bool allowDegenerate = false;
    /// After a failure: vertices not yet inserted (triangle -1) are skipped, no Euler count.
    bool partial = false;
    /// In-circle and hull band; negative: the record's cdtTolerance (negative or NaN count as 0).
    double band = -1.0;
    /// Recorded constraint edges may be missing from the mesh (crossed without a split).
    bool allowMissing = false;
    /// Segments that must be chains of constraint edges through vertices on them.
    std::vector<PkMeshEdge> required;
    /// Vertices from this index on were made where constraints cross: the rounding of their
    /// positions is excused from the in-circle test, and each lies on two of the input segments.
    int crossingsFrom = INT_MAX;
    /// The input segments (default: `required`). Where there are some (and `geometry`), every
    /// crossing vertex and every recorded origin of a piece is checked against them.
    std::vector<PkMeshEdge> inputs;
};

/// The working mesh of a triangulation record: slots, adjacency, ghost closure of a convex hull,
/// vertex back-links, the Euler count, orientation, local Delaunay off constraints, and the
/// constraint records (edges present, repeats, origins on their segments, required chains).
std::string validate(const RyTriangulationImpl& mesh, const Checks& checks = {});

/// A mesh as a file holds it (real triangles only): indices, orientation, each directed edge
/// used once, each `required` segment a chain of mesh edges through vertices on it, and local
/// Delaunay off those chains.
struct PlainMesh {
    std::vector<std::array<double, 2>> xy;
    std::vector<std::array<int, 3>> triangles;
};
std::string validate(const PlainMesh& mesh, const Checks& checks);

/// Whether point p lies on segment a-b within a relative tolerance plus the rounding of a
/// crossing computed at coordinates of magnitude `magnitude`.
bool onSegment(const double* p, const double* a, const double* b, double magnitude);

}  // namespace rytest
