// The one mesh validator (unit tests, fuzz harnesses, rytri's mesh checker, benchmarks): it
// returns the violations found, one per line naming the element at fault, or "" when valid.
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
    /// Vertices from this index on were made at crossings: each lies on two of the input segments
    /// (within the rounding of a crossing).
    int crossingsFrom = INT_MAX;
    /// The input segments (default: `required`) that crossing vertices and origins must lie on.
    std::vector<PkMeshEdge> inputs;
};

/// A triangulation record: slots, adjacency, ghosts closing a convex hull, vertex back-links, the
/// Euler count, orientation, local Delaunay off constraints, the constraint records.
std::string validate(const RyTriangulationImpl& mesh, const Checks& checks = {});

/// A mesh as a file holds it: indices, orientation, each directed edge used once, `required`
/// segments as chains of mesh edges, local Delaunay off those chains.
struct PlainMesh {
    std::vector<std::array<double, 2>> xy;
    std::vector<std::array<int, 3>> triangles;
};
std::string validate(const PlainMesh& mesh, const Checks& checks);

/// Whether point p lies on segment a-b within a relative tolerance plus the rounding of a
/// crossing computed at coordinates of magnitude `magnitude`.
bool onSegment(const double* p, const double* a, const double* b, double magnitude);

}  // namespace rytest
