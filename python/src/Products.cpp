// The result's mesh is copied into a surface of the surface layer with the GIL held and its
// indices checked there: the arrays are writeable, so they may have been changed in place, and
// the computation then runs without the GIL on memory no other thread can reach.
#include "Products.h"

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "RySurfaceProducts.h"

namespace rytri {

namespace {

PyObject* gContourLine = nullptr;  // the named tuples, kept for the module's life
PyObject* gVolumes = nullptr;

/// The most levels an interval may give (the tool's limit too).
constexpr std::size_t kLevelLimit = 100000;

std::string repr(double value) {
    return py::repr(py::float_(value));
}

/// The values of a (rows, 3) result array.
template <class T>
void copyRows(const py::object& obj, const char* name, std::vector<T>& out) {
    const auto a = py::array_t<T, py::array::c_style | py::array::forcecast>::ensure(obj);
    if (!a || a.ndim() != 2 || a.shape(1) != 3) {
        throw py::value_error(std::string("the result's ") + name + " are no longer (rows, 3)");
    }
    out.assign(a.data(), a.data() + a.size());
}

/// Every index from `lowest` up to below `count`; a ValueError naming the first that is not.
void checkIndices(const std::vector<std::int32_t>& v,
                  std::int32_t lowest,
                  std::size_t count,
                  const char* name,
                  const char* what) {
    for (std::size_t i = 0; i < v.size(); ++i) {
        if (v[i] < lowest || (v[i] >= 0 && std::size_t(v[i]) >= count)) {
            throw py::value_error("the result's " + std::string(name) + "[" +
                                  std::to_string(i / 3) + "] names " + what + " " +
                                  std::to_string(v[i]) + " of " + std::to_string(count));
        }
    }
}

/// The result's mesh as a surface: vertices, triangles and (for contours) neighbours.
ry::Surface meshOf(const py::object& vertices,
                   const py::object& triangles,
                   const py::object* neighbors) {
    ry::Surface s;
    copyRows(vertices, "vertices", s.vertices);
    copyRows(triangles, "triangles", s.triangles);
    checkIndices(s.triangles, 0, s.vertexCount(), "triangles", "vertex");
    if (neighbors) {
        copyRows(*neighbors, "neighbors", s.neighbors);
        if (s.neighbors.size() != s.triangles.size()) {
            throw py::value_error("the result's neighbors no longer match its triangles");
        }
        checkIndices(s.neighbors, -1, s.triangleCount(), "neighbors", "triangle");
    }
    return s;
}

}  // namespace

void addProductTypes(py::module_& m) {
    const py::object namedtuple = py::module_::import("collections").attr("namedtuple");
    py::object line = namedtuple("ContourLine", "level points closed", py::arg("module") = "rytri");
    line.attr("__doc__") =
        "A contour line: level (float); points, (k, 3) float64 x, y, level (a view into one array "
        "holding every line of the call); closed (bool): the last point joins back to the first, "
        "which is not repeated; else the line ends on the border of the kept triangles. Lines "
        "run with the higher ground on their left: closed ones counter-clockwise around it.";
    py::object volumes = namedtuple("Volumes",
                                    "datum cut fill cut_area fill_area area_2d area_3d",
                                    py::arg("module") = "rytri");
    volumes.attr("__doc__") =
        "Volumes against a horizontal datum: cut (the surface above it), fill (below it), "
        "cut_area and fill_area (plan areas above and below; parts exactly at the datum count in "
        "neither), area_2d (plan area of the kept triangles) and area_3d (their sloped area).";
    m.attr("ContourLine") = line;
    m.attr("Volumes") = volumes;
    gContourLine = line.release().ptr();
    gVolumes = volumes.release().ptr();
}

py::list contours(const py::object& vertices,
                  const py::object& triangles,
                  const py::object& neighbors,
                  const py::object& levelsArg,
                  std::optional<double> interval,
                  double base) {
    std::vector<double> levels;
    if (levelsArg.is_none() == !interval) {
        throw py::value_error("contours needs either levels or interval");
    }
    if (interval) {
        if (!(*interval > 0.0) || std::isinf(*interval)) {
            throw py::value_error("interval must be a finite number > 0, not " + repr(*interval));
        }
        if (!std::isfinite(base)) throw py::value_error("base must be finite, not " + repr(base));
    } else {
        if (base != 0.0) throw py::value_error("base goes with interval, not with levels");
        const auto a =
            py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(levelsArg);
        if (!a || a.ndim() != 1) throw py::value_error("levels must be a 1-D array of numbers");
        levels.assign(a.data(), a.data() + a.size());
        for (std::size_t i = 0; i < levels.size(); ++i) {
            if (!std::isfinite(levels[i])) {
                throw py::value_error("levels[" + std::to_string(i) + "] is not finite (" +
                                      repr(levels[i]) + ")");
            }
        }
    }
    const ry::Surface s = meshOf(vertices, triangles, &neighbors);
    ry::Contours lines;
    bool tooMany = false;
    {
        py::gil_scoped_release release;
        tooMany = interval && !ry::contourLevels(s, *interval, base, levels, kLevelLimit);
        if (!tooMany) lines = ry::contourLines(s, levels);
    }
    if (tooMany) {
        throw py::value_error("interval=" + repr(*interval) + " gives more than " +
                              std::to_string(kLevelLimit) +
                              " levels over the surface's heights; give a larger interval");
    }
    const std::size_t n = lines.offsets.back();
    py::array_t<double> points({py::ssize_t(n), py::ssize_t(3)});
    double* xyz = points.mutable_data();
    py::list out;
    for (std::size_t k = 0; k < lines.lineCount(); ++k) {
        const std::size_t first = lines.offsets[k], end = lines.offsets[k + 1];
        for (std::size_t i = first; i < end; ++i) {
            xyz[3 * i] = lines.xy[2 * i];
            xyz[3 * i + 1] = lines.xy[2 * i + 1];
            xyz[3 * i + 2] = lines.level[k];
        }
        out.append(py::handle(gContourLine)(
            lines.level[k], points[py::slice(first, end, 1)], lines.closed[k] != 0));
    }
    return out;
}

py::object volumes(const py::object& vertices, const py::object& triangles, double datum) {
    if (!std::isfinite(datum)) throw py::value_error("datum must be finite, not " + repr(datum));
    const ry::Surface s = meshOf(vertices, triangles, nullptr);
    ry::Volumes v;
    {
        py::gil_scoped_release release;
        v = ry::surfaceVolumes(s, datum);
    }
    return py::handle(gVolumes)(v.datum, v.cut, v.fill, v.cutArea, v.fillArea, v.area2d, v.area3d);
}

const char* const kContoursDoc = R"(Contour lines of the kept triangles.

Either levels (a 1-D array of heights; repeated ones count once) or interval (> 0): the levels
base + k * interval within the heights of the kept triangles (at most 100000). Returns a list of
ContourLine (level, points (k, 3), closed), level by level in ascending order. A vertex exactly
at a level counts as above it, so lines never branch nor run twice along an edge; a peak or a
ridge exactly at a level gives no line there. Computed from vertices, triangles and neighbors as
they stand, without the GIL.)";

const char* const kVolumesDoc = R"(Cut and fill volumes against the horizontal datum (a finite
height), each triangle split exactly where it crosses it, with the plan and sloped areas: a
Volumes (datum, cut, fill, cut_area, fill_area, area_2d, area_3d). Computed from vertices and
triangles as they stand, without the GIL.)";

}  // namespace rytri
