// The output list: every real triangle, or the triangles inside the constraint boundaries.
#pragma once

#include <vector>

#include "PkMeshTriangle.h"
#include "constraints/ConstraintRecords.h"
#include "mesh/TriangleMesh.h"

/// Appends every real triangle of the mesh to `output`, in slot order.
void deleteGhostTriangle(const TriangleMesh& mesh, std::vector<PkMeshTriangle>& output);
/// Appends the triangles of odd depth (constraint crossings from the outside, an edge recorded
/// k times counting k) to `output`, in slot order; each flood level is bounded by maxIterations.
void deleteOuterTrianglesAndHoles(const TriangleMesh& mesh,
                                  const ConstraintRecords& constraints,
                                  int maxIterations,
                                  std::vector<PkMeshTriangle>& output);
