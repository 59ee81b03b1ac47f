// Python arguments read into the surface layer's flat input: points, edges and polylines checked
// (shape, finite values, indices in range) with a ValueError that names the argument, the row and
// the problem. A C-contiguous float64 (n, 3) points array with no polyline coordinates is read in
// place; everything else is copied into arrays owned here.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "RySurface.h"

namespace rytri {

namespace py = pybind11;

/// A surface input and the memory it points into (the caller's arrays are kept alive here too).
struct Request {
    ry::SurfaceInput input;
    ry::SurfaceOptions options;
    /// Rows of the `points` argument (the polylines' coordinates follow them in input.xyz).
    std::size_t points = 0;

    py::object pointsArray;   ///< the caller's array when read in place
    std::vector<double> xyz;  ///< points, then polyline coordinates, when copied
    std::vector<std::int32_t> lineVertices;
    std::vector<double> holePoints;
};

/// The point rows of `points` ((n, 2) or (n, 3)), the lines of `edges` (an (e, 2) integer array
/// of point index pairs, kEdge lines) and of the polylines in `boundaries`, `holes` and
/// `breaklines` (each a 1-D integer array of point indices or a (k, 2) or (k, 3) array of
/// coordinates that join the points), and `holePoints` ((h, 2), or None). Throws
/// py::value_error on bad input.
void readGeometry(Request& request,
                  const py::object& points,
                  const py::object& edges,
                  const py::object& boundaries,
                  const py::object& holes,
                  const py::object& breaklines,
                  const py::object& holePoints);

/// The keep rule by its Python name ("auto", "all", "rings", "even_odd", "hole_points").
ry::KeepRule keepRule(const std::string& name);
/// The duplicates policy by its Python name ("first", "mean", "error").
ry::Duplicates duplicatesPolicy(const std::string& name);
/// Python names of the keep rules, indexed by KeepRule.
const char* keepRuleName(ry::KeepRule rule);

}  // namespace rytri
