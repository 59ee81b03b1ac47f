// The triangulation calls: input checks, the vertex records, the choice of insertion loop (the
// one place where the plain path and the acceleration layer meet), then the constraint edges.
#pragma once

#include <vector>

#include "PkMeshEdge.h"
#include "RyTriangulation.h"
#include "state/RyTriangulationImpl.h"

/// Checks the input, empties a used record, fills the vertex records, inserts every vertex.
PkTriangulationStatus delaunayTriangulation(RyTriangulationImpl& m,
                                            const std::vector<PkGePoint3d>& points);
/// delaunayTriangulation, then every edge forced in as a constraint, in the given order.
PkTriangulationStatus delaunayTriangulationWithConstraints(RyTriangulationImpl& m,
                                                           const std::vector<PkGePoint3d>& points,
                                                           const std::vector<PkMeshEdge>& edges);
