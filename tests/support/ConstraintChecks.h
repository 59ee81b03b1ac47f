// Checks of the constraint records of a triangulation record, complementing the base mesh
// validator (which checks adjacency, orientation, the hull, back-links and local Delaunay off
// constraint edges): recorded edges present in the mesh, input segments covered by constraint
// pieces, crossing vertices on the segments they split, and consistent repeat counts and origins.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "PkMeshEdge.h"

struct RyTriangulationImpl;

namespace rytest {

struct ConstraintCheckOptions {
    /// Recorded constraint edges may be missing from the mesh (a later constraint crossed them
    /// without splitting). Off: every recorded edge must be an edge of a live real triangle.
    bool allowMissing = false;
    /// Input segments that must be the union of constraint edges of the mesh, walked vertex by
    /// vertex along the segment (the last inserted constraints, or all of them).
    std::vector<PkMeshEdge> requiredSegments;
    /// The input segments; with `inputVertexCount` >= 0 every vertex from that index on (a
    /// vertex made at a crossing) must lie on at least two of them. Such vertices, or every
    /// vertex when the count is not given, may lie beyond an end of the origin they split by
    /// the rounding of a crossing of nearly parallel lines.
    std::vector<PkMeshEdge> inputSegments;
    int inputVertexCount = -1;
    /// Distance to a segment's line, relative to the segment's length, that counts as on it.
    double relativeTolerance = 1e-9;
    /// Check where pieces and crossing vertices lie (on their origins, along the required
    /// segments, on two input segments). Off: only the bookkeeping is checked.
    bool checkGeometry = true;
};

/// Every violation found; empty when the records are consistent with the mesh.
std::vector<std::string> checkConstraintRecords(const RyTriangulationImpl& mesh,
                                                const ConstraintCheckOptions& options);

/// Whether vertex v lies on the segment (a, b) of `mesh` within `relativeTolerance` of its
/// length (distance to the line, and between the ends).
bool vertexOnSegment(
    const RyTriangulationImpl& mesh, int v, int a, int b, double relativeTolerance);

/// The constraint pieces, in order from a to b, whose union is the segment (a, b); empty when
/// the segment is not covered by constraint edges of the mesh.
std::vector<PkMeshEdge> constraintPath(const RyTriangulationImpl& mesh,
                                       int a,
                                       int b,
                                       double relativeTolerance = 1e-9);

/// Exact sum of signed products of doubles, in a two's complement fixed-point integer wide
/// enough for every finite product (no rounding at any step): the oracle of the area sums.
class ExactSum {
public:
    /// Adds sign * a * b (sign +1 or -1).
    void addProduct(double a, double b, int sign = 1);
    /// Adds sign * twice the signed area of the triangle (a, b, c) (x then y).
    void addTwiceArea(const double* a, const double* b, const double* c, int sign = 1);
    /// Adds sign * twice the signed area of the closed polygon through `ring` (x then y each).
    void addTwiceArea(const std::vector<std::array<double, 2>>& ring, int sign = 1);
    /// -1, 0 or 1.
    int sign() const;
    /// The value rounded towards zero to a double (for messages).
    double approximate() const;

private:
    static constexpr int kLimbs = 72;     // 4608 bits
    static constexpr int kOrigin = 2304;  // bit position of 2^0
    /// Adds or subtracts (high * 2^64 + low) * 2^(bit - kOrigin); high < 2^42.
    void addShifted(std::uint64_t low, std::uint64_t high, int bit, bool subtract);
    std::array<std::uint64_t, kLimbs> limbs{};
};

}  // namespace rytest
