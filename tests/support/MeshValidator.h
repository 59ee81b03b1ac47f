// Invariant checks on a triangulation record, shared by the tests, the fuzz harnesses and the
// benchmarks. Every check names the offending triangle or vertex; an empty list means the mesh
// is a valid (constrained) Delaunay triangulation closed by ghost triangles.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

struct RyTriangulationImpl;

struct MeshValidatorOptions {
    /// Accept real triangles of exactly zero area (three collinear input points give one).
    bool allowDegenerate = false;
    /// Vertices with triangle index -1 were never inserted; skip them instead of failing.
    bool skipUninserted = false;
    /// Check that every edge between two real triangles is locally Delaunay.
    bool checkDelaunay = true;
    /// Check the triangle counts against Euler's relation for the hull found.
    bool checkEuler = true;
    /// Also run checkConstraintEdges.
    bool checkConstraints = false;
    /// Tolerance band of the in-circle and hull-convexity checks; negative means the record's
    /// cdtTolerance (a negative or NaN tolerance counts as 0, as in the library).
    double band = -1.0;
};

/// Every invariant the working mesh of `mesh` violates; empty when it is valid. Slots listed in
/// `freeTriangles` are skipped. The list is capped (the last entry then counts the rest).
std::vector<std::string> validateMesh(const RyTriangulationImpl& mesh,
                                      const MeshValidatorOptions& options = {});

/// Every recorded constraint edge that is not an edge of a live real triangle.
std::vector<std::string> checkConstraintEdges(const RyTriangulationImpl& mesh);

/// The first `limit` violations, one per line, for a failure message.
std::string formatViolations(const std::vector<std::string>& violations, std::size_t limit = 20);

/// GoogleTest helpers (they expand only where gtest is included), e.g.
///   RY_EXPECT_VALID_MESH(impl, options) << "seed " << seed;
#define RY_EXPECT_VALID_MESH(mesh, options)                                             \
    if (const std::vector<std::string> ryViolations_ = validateMesh((mesh), (options)); \
        ryViolations_.empty()) {                                                        \
    } else                                                                              \
        ADD_FAILURE() << formatViolations(ryViolations_)
#define RY_ASSERT_VALID_MESH(mesh, options)                                             \
    if (const std::vector<std::string> ryViolations_ = validateMesh((mesh), (options)); \
        ryViolations_.empty()) {                                                        \
    } else                                                                              \
        FAIL() << formatViolations(ryViolations_)
