// Readers of the input formats: plain point lists (columns named or from a header) with an
// optional edge list, the .node and .poly formats of mesh generators, Wavefront .obj (vertices
// and line elements), and polyline files for boundaries, holes and breaklines.
#pragma once

#include <limits>
#include <string>

#include "Site.h"

namespace rytri {

enum class InputFormat { kPoints, kNode, kPoly, kObj, kLandXml };

/// Chosen by extension: .node, .poly, .obj, .xml or .landxml; anything else is a plain point
/// list.
InputFormat inputFormatOf(const std::string& path);
/// A --format name: points (also xyz, csv, txt), node, poly, obj or landxml.
bool parseFormat(const std::string& name, InputFormat& format);

struct ReadOptions {
    /// --columns (empty: from a header line, else 'x y [z]').
    std::string columns;
    /// --default-z: the height of point lines and line vertices without one (NaN: none).
    double defaultZ = std::numeric_limits<double>::quiet_NaN();
    /// --format: overrides the extension (required for "-", standard input).
    bool hasFormat = false;
    InputFormat format = InputFormat::kPoints;
};

/// Reads `path` ("-": standard input) in the format of its extension into `site` (replacing its
/// contents). Returns false with a message "file:line: reason" (or "cannot open ...") in
/// `error`. Non-fatal remarks go to site.warnings.
bool readSite(const std::string& path, Site& site, std::string& error);
bool readSite(const std::string& path, const ReadOptions& options, Site& site, std::string& error);

/// Plain points: one point per line, fields separated by blanks, commas or semicolons; `#`
/// comments. Without --columns a first line of names is read as a header (and used when it names
/// easting and northing); else each line is `x y [z]`. A line without z among lines with z is an
/// error unless options.defaultZ is set; a file without any z gets z = 0 (or the default).
bool readPointList(const std::string& path,
                   const ReadOptions& options,
                   Site& site,
                   std::string& error);

/// LandXML: the points (Pnts/P with their ids, CgPoints/CgPoint) and the breaklines and
/// boundaries (outer and island as boundaries, void as holes) of the first surface.
bool readLandXml(const std::string& path, Site& site, std::string& error);

/// Appends the edges of an edge list (`i j` per line, 0-based indices into site.points).
bool readEdgeList(const std::string& path, Site& site, std::string& error);

/// Appends the polylines of `path` with `role`: one vertex `x y [z]` per line, polylines
/// separated by blank lines; the vertices join site.points. Rings (boundaries, holes) close
/// themselves. Vertices without z get options.defaultZ, else NaN (a height from a coincident
/// point) when the site has heights, else 0.
bool readPolylines(const std::string& path,
                   ry::Role role,
                   const ReadOptions& options,
                   Site& site,
                   std::string& error);

}  // namespace rytri
