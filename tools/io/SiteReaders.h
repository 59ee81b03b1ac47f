// Readers of the input formats: plain point lists with an optional edge list, the .node and .poly
// formats of mesh generators, and Wavefront .obj (vertices and line elements).
#pragma once

#include <string>

#include "Site.h"

namespace rytri {

enum class InputFormat { kPoints, kNode, kPoly, kObj };

/// Chosen by extension: .node, .poly, .obj; anything else is a plain point list.
InputFormat inputFormatOf(const std::string& path);

/// Reads `path` in the format of its extension into `site` (replacing its contents). Returns
/// false with a message "file:line: reason" (or "cannot open ...") in `error`. Non-fatal remarks
/// go to site.warnings.
bool readSite(const std::string& path, Site& site, std::string& error);

/// Plain points: one point per line, `x y [z]` separated by blanks or commas; `#` comments; z is
/// 0 when absent. A first line that starts with a letter is taken as a column header.
bool readPointList(const std::string& path, Site& site, std::string& error);

/// Appends the edges of an edge list (`i j` per line, 0-based indices into site.points).
bool readEdgeList(const std::string& path, Site& site, std::string& error);

}  // namespace rytri
