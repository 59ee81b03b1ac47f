// The clean-up that keeps heights: coincident points merge into the first of them, and the
// merged point's height follows the Duplicates rule.
#pragma once

#include <cstdint>
#include <vector>

#include "RySurface.h"

namespace ry {

struct MergedPoints {
    /// x, y, z of each merged point, in the order of their first input point.
    std::vector<double> xyz;
    std::vector<std::int32_t> pointVertex;   ///< merged point of each input point
    std::vector<std::int32_t> vertexSource;  ///< first input point of each merged point
    std::size_t repeated = 0;
    std::size_t conflictCount = 0;
    std::vector<HeightConflict> conflicts;
    std::int32_t missingHeight = -1;
    std::size_t missingHeightCount = 0;

    std::size_t size() const { return vertexSource.size(); }
};

/// Merges the points (all kept apart when options.merge is off). Reports progress as
/// SurfacePhase::kMerge; false when the callback asked to stop.
bool mergePoints(ArrayView<double> xyz, const SurfaceOptions& options, MergedPoints& merged);

/// Gives the merged points without height (NaN z) options.defaultZ when it is a number, else the
/// height of the surface of the points that have one (linear on the Delaunay triangle holding
/// them); counts those left without one (outside that surface) in missingHeight(Count).
void settleHeights(MergedPoints& merged, const SurfaceOptions& options);

}  // namespace ry
