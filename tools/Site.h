// The data that flows through rytri: an input site as read from its files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "PkMeshEdge.h"
#include "RyGeometry.h"
#include "RySurface.h"

namespace rytri {

/// Where an input item was read: an index into Site::files (-1: made by the program) and a
/// 1-based line.
struct SourceRef {
    std::int32_t file = -1;
    std::int32_t line = 0;
};

/// Points (x, y and a height z; NaN z: no height, for line vertices read without one), plain
/// constraint edges as index pairs into `points`, and constraint lines with their roles. The
/// triangulation works on x and y; z rides along with each point.
struct Site {
    std::vector<PkGePoint3d> points;
    /// Point ids (a P column), one per point when the input had them, else empty.
    std::vector<std::string> ids;
    /// Where each point was read: points [0, linearCount) on lines linearFirst, linearFirst + 1,
    /// ... of file 0 (a point file without comments or blank lines between points needs no record
    /// a point), the points after them at origins[point - linearCount]. Points beyond both have
    /// no known origin (as for the demo).
    std::vector<SourceRef> origins;
    std::size_t linearCount = 0;
    std::int32_t linearFirst = 0;
    std::vector<std::string> files;
    /// Edges of edge lists, .poly segments and .obj lines without a role.
    std::vector<PkMeshEdge> edges;
    /// Lines with roles: the point indices of line k are lineVertices[first .. first + count).
    std::vector<ry::Polyline> lines;
    std::vector<std::int32_t> lineVertices;
    std::vector<SourceRef> lineOrigins;  ///< where each line starts
    /// x, y of the hole points of a .poly file.
    std::vector<double> holePoints;
    /// Whether any point line carried a height.
    bool hasHeights = false;
    /// Non-fatal remarks made while reading (ignored sections, skipped header...).
    std::vector<std::string> warnings;

    /// Records that the next `count` points were read on lines line, line + 1, ... of `file`: as
    /// more of the linear run where they go on from it, else one record each.
    void addOrigins(std::int32_t file, std::int32_t line, std::size_t count) {
        if (file == 0 && origins.empty() &&
            (linearCount == 0 || std::size_t(linearFirst) + linearCount == std::size_t(line))) {
            if (linearCount == 0) linearFirst = line;
            linearCount += count;
            return;
        }
        for (std::size_t k = 0; k < count; ++k) origins.push_back({file, line + std::int32_t(k)});
    }

    /// Frees `origins` when they go on from the linear run line after line through file 0.
    void compactOrigins() {
        if (origins.empty() || origins[0].file != 0) return;
        if (linearCount > 0 &&
            std::size_t(linearFirst) + linearCount != std::size_t(origins[0].line))
            return;
        for (std::size_t i = 1; i < origins.size(); ++i) {
            if (origins[i].file != 0 || origins[i].line != origins[i - 1].line + 1) return;
        }
        if (linearCount == 0) linearFirst = origins[0].line;
        linearCount += origins.size();
        origins = std::vector<SourceRef>();
    }

    /// "file:line" of a point (with its id, when it has one), or "point i" when its origin is
    /// unknown.
    std::string where(std::size_t point) const {
        const std::string id =
            point < ids.size() && !ids[point].empty() ? " (point " + ids[point] + ")" : "";
        if (point < linearCount) {
            return files[0] + ":" + std::to_string(linearFirst + std::int64_t(point)) + id;
        }
        const std::size_t k = point - linearCount;
        if (k < origins.size() && origins[k].file >= 0) {
            return files[std::size_t(origins[k].file)] + ":" + std::to_string(origins[k].line) + id;
        }
        return "point " + std::to_string(point) + id;
    }
};

}  // namespace rytri
