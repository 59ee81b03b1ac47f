// The columns of a point file: which field holds the point id, northing, easting, height and
// description, from --columns or from a header line.
#pragma once

#include <string>
#include <string_view>

namespace rytri {

/// One letter per field: P point id, N northing (y), E easting (x), Z height, D description
/// (the rest of the line), '-' a field to skip. Empty: the plain 'x y [z]' of two or three
/// fields.
struct ColumnLayout {
    std::string fields;

    bool plain() const { return fields.empty(); }
    bool has(char c) const { return fields.find(c) != std::string::npos; }
};

/// Parses a --columns value such as PNEZD, PENZD, NEZ, ENZ, XYZ or XY (X is E, Y is N; '-'
/// skips a field). False with a reason when E and N are not there exactly once each, or a
/// letter repeats or is unknown.
bool parseColumns(std::string_view text, ColumnLayout& layout, std::string& error);

/// Reads a header line such as "point,northing,easting,elevation,description" or "x y z"; true
/// when it names easting and northing (unknown names become skipped fields).
bool headerColumns(std::string_view line, ColumnLayout& layout);

/// The fields of one point line.
struct PointFields {
    double x = 0.0, y = 0.0, z = 0.0;
    bool hasZ = false;
    std::string_view id;
};

/// Parses one line by `layout`; false with a reason ("expected ...: why").
bool parsePointLine(std::string_view line,
                    const ColumnLayout& layout,
                    PointFields& out,
                    std::string& error);

}  // namespace rytri
