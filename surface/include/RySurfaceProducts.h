// What is made from a finished surface: contour lines, cut and fill volumes against a datum with
// the plan and sloped areas, and the trimming of long triangles off the hull of an unbounded
// point cloud. Free functions over a Surface; results in flat arrays, as the surface's own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "RySurface.h"
#include "RySurfaceExport.h"

namespace ry {

/// Levels base + k * interval (k whole) from the lowest to the highest vertex height of the kept
/// triangles, ascending. False, with `levels` empty, when the interval is not a positive finite
/// number or more than `limit` levels would result.
RYSURFACE_EXPORT bool contourLevels(const Surface& surface,
                                    double interval,
                                    double base,
                                    std::vector<double>& levels,
                                    std::size_t limit = 100000);

/// Contour lines: line k has the vertices offsets[k] .. offsets[k + 1] - 1, whose x, y are at
/// 2 * i and 2 * i + 1 in `xy`, at height level[k]. A closed line joins its last vertex back to
/// its first (the first is not repeated); an open one ends on the border of the kept triangles.
/// Lines run with the higher ground on their left: closed ones counter-clockwise around it.
struct Contours {
    std::vector<double> xy;
    std::vector<std::size_t> offsets{0};
    std::vector<double> level;
    std::vector<std::uint8_t> closed;

    std::size_t lineCount() const { return level.size(); }
};

/// The contour lines of the kept triangles at each of `levels` (non-finite and repeated levels
/// are skipped; the lines come level by level in ascending order). A vertex exactly at a level
/// counts as above it, for every triangle alike, so lines never branch or run twice along an
/// edge: a line may run along mesh edges through such vertices, and two lines may touch at one
/// (a saddle). Each line is joined across the triangles through their neighbours; no two
/// consecutive vertices are equal. What is above a level only along a line or at a point (a
/// ridge or a peak exactly at the level, lower ground on both sides) gives no line there.
RYSURFACE_EXPORT Contours contourLines(const Surface& surface, ArrayView<double> levels);

/// Volumes between the kept triangles and a horizontal datum, each triangle split exactly where
/// it crosses the datum. Cut is the volume of the surface above the datum (what is dug away to
/// bring it down to the datum), fill the volume below it up to the datum.
struct Volumes {
    double datum = 0.0;
    double cut = 0.0;
    double fill = 0.0;
    double cutArea = 0.0;   ///< plan area where the surface is above the datum
    double fillArea = 0.0;  ///< plan area where it is below (parts exactly at it count in neither)
    double area2d = 0.0;    ///< plan area of the kept triangles
    double area3d = 0.0;    ///< their sloped area
};

RYSURFACE_EXPORT Volumes surfaceVolumes(const Surface& surface, double datum);

/// Removes, repeatedly, kept triangles that have an edge on the border of the surface longer than
/// `maxEdge` (plan length), as survey software does with the slivers along the hull of an
/// unbounded point cloud. Constraint lines stop the trimming: a triangle with an edge on a line of
/// any role (boundary, a hole's rim, breakline, plain edge) is never removed, so every constraint
/// edge of the surface stays an edge of a kept triangle, and the result does not depend on the
/// order of removal. Neighbours, keptArea and the removed list (removedTriangles, to which the
/// trimmed triangles are appended) are kept consistent. Returns the number of triangles removed;
/// when none is left the status becomes kNothingKept.
RYSURFACE_EXPORT std::size_t trimHull(Surface& surface, double maxEdge);

}  // namespace ry
