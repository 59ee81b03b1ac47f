// Which triangles the surface keeps, from the traced constraint lines and the keep rule.
#pragma once

#include <cstdint>
#include <vector>

#include "ConstraintTrace.h"
#include "MeshTopology.h"
#include "RySurface.h"

namespace ry {

/// The constraint lines on each mesh edge: group g holds line[start[g] .. start[g + 1]), one
/// entry per time a line runs along the edge; both half-edges of the edge name the group.
struct EdgeGroups {
    /// Per half-edge, its group or -1; empty when no line is in the mesh (all -1).
    std::vector<std::int32_t> ofHalfEdge;
    std::vector<std::int32_t> start{0};
    std::vector<std::int32_t> line;

    std::int32_t of(std::int32_t h) const {
        return ofHalfEdge.empty() ? -1 : ofHalfEdge[std::size_t(h)];
    }
};

EdgeGroups groupPieces(const MeshTopology& mesh, const TracedLines& traced);

struct LabelResult {
    std::vector<char> kept;  ///< per triangle
    /// Crossings where a triangle's set of rings disagrees with its neighbour's (each counted
    /// from both sides): rings that could not be followed as closed chains. 0 when all is well.
    std::size_t disagreements = 0;
    std::size_t ignoredHolePoints = 0;
};

/// Labels every triangle by `rule` (not kAuto). `skip[line]` marks lines that take no part
/// (degenerate rings).
LabelResult labelTriangles(KeepRule rule,
                           const MeshTopology& mesh,
                           const EdgeGroups& groups,
                           const LineChains& lines,
                           const std::vector<char>& skip,
                           ArrayView<double> holePoints);

}  // namespace ry
