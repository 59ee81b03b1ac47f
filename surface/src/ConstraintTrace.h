// Following the constraint lines through the finished mesh: each segment of a line becomes the
// chain of mesh edges the library made of it.
#pragma once

#include <cstdint>
#include <vector>

#include "MeshTopology.h"
#include "RySurface.h"

namespace ry {

/// The lines in merged vertex indices: line i is chain[start[i] .. start[i + 1]), without
/// repeated consecutive vertices (nor a closing repeat of the first); closed[i] joins the last
/// vertex to the first.
struct LineChains {
    std::vector<std::int32_t> chain;
    std::vector<std::size_t> start{0};
    std::vector<Role> role;
    std::vector<char> closed;

    std::size_t size() const { return role.size(); }
};

struct TracedLines {
    /// One entry per mesh edge of a line: a half-edge of it, the vertex the line runs from along
    /// it, and the line.
    std::vector<std::int32_t> pieceEdge;
    std::vector<std::int32_t> pieceFrom;
    std::vector<std::int32_t> pieceLine;
    /// Segments that are no chain of mesh edges (merged vertex indices).
    std::vector<MissingSegment> missing;
    /// Per vertex made at a crossing (index - firstCreated): heights interpolated along the
    /// lines through it, summed, and their number.
    std::vector<double> heightSum;
    std::vector<std::int32_t> heightCount;
};

/// Vertices from `firstCreated` on were made by the library where constraints cross.
TracedLines traceLines(const MeshTopology& mesh,
                       const LineChains& lines,
                       std::int32_t firstCreated);

}  // namespace ry
