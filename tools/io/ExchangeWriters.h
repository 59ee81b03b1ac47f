// Writers of the exchange formats of survey and CAD work: LandXML 1.2 (the TIN with its source
// breaklines and boundaries), ASCII DXF (R12 entities: 3DFACE per triangle, polylines for the
// lines and the contours, a layer for each kind) and GeoJSON contours. Coordinates go back to
// space (x, y, z) from the plane of triangulation.
#pragma once

#include <string>

#include "io/MeshWriters.h"
#include "io/OutputFile.h"

namespace rytri {

/// Linear unit of the coordinates, as LandXML and DXF name it.
enum class Units { kMeter, kFoot, kUsSurveyFoot };

struct ExchangeOptions {
    Units units = Units::kMeter;
    std::string application = "rytri";
    std::string version;
    /// Seconds since 1970 (UTC) for LandXML's date and time.
    long long timestamp = 0;
};

/// LandXML 1.2: Units, one Surface with its SourceData (Boundaries: boundaries "outer", holes
/// "void"; Breaklines: breaklines and plain edges) and its Definition (surfType "TIN", Pnts with
/// P id="..." as "northing easting elevation", Faces with F "a b c" counter-clockwise seen from
/// above). Points keep their input ids where those are distinct positive whole numbers; the
/// others are numbered on from the largest.
void writeLandXml(const MeshOutput& mesh, const ExchangeOptions& options, OutputFile& out);

/// ASCII DXF, R12 entities (read by current programs as well): a 3DFACE per kept triangle on
/// layer TIN, the constraint lines as 3D POLYLINEs on layers BOUNDARY, HOLE, BREAKLINE and EDGE,
/// contours as 2D POLYLINEs at their elevation on CONTOUR and CONTOUR_INDEX; every layer in the
/// LAYER table.
void writeDxf(const MeshOutput& mesh, const ExchangeOptions& options, OutputFile& out);

/// The contours as a GeoJSON FeatureCollection of LineStrings [x, y, z] (a closed line repeats
/// its first position) with the properties "elevation" and "index".
void writeGeoJson(const MeshOutput& mesh, OutputFile& out);

}  // namespace rytri
