// What is made from a triangulate() result: contour lines and cut and fill volumes, computed by
// the surface layer from the result's arrays as they stand (heights changed in place count).
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>  // std::optional arguments

#include <optional>

namespace rytri {

namespace py = pybind11;

/// Adds the named tuples ContourLine and Volumes to the module.
void addProductTypes(py::module_& m);

/// Result.contours(): the lines at `levels` (a 1-D array), or every `interval` from `base`.
py::list contours(const py::object& vertices,
                  const py::object& triangles,
                  const py::object& neighbors,
                  const py::object& levels,
                  std::optional<double> interval,
                  double base);

/// Result.volumes(): cut, fill and areas against a horizontal datum.
py::object volumes(const py::object& vertices, const py::object& triangles, double datum);

extern const char* const kContoursDoc;
extern const char* const kVolumesDoc;

}  // namespace rytri
