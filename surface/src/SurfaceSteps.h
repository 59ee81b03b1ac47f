// The steps of buildSurface shared between its two source files.
#pragma once

#include <string>
#include <vector>

#include "ConstraintTrace.h"
#include "MeshTopology.h"
#include "PointMerge.h"
#include "RySurface.h"

namespace ry {

/// Sets the status and message, drops any triangles; returns false.
bool failSurface(Surface& s, SurfaceStatus status, std::string message, std::string advice = "");

/// Adjacency, constraint lines, labels and outputs of a triangulated mesh.
bool finishSurface(MeshTopology& mesh,
                   const MergedPoints& merged,
                   const LineChains& chains,
                   const std::vector<char>& skip,
                   const SurfaceInput& in,
                   const SurfaceOptions& o,
                   Surface& s);

}  // namespace ry
