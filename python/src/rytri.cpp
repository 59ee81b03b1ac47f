// The rytri Python module: triangulate() on the surface layer. The surface's result vectors are
// moved into numpy arrays whose base is a capsule owning them (no copy); the GIL is released
// while the surface is built, so other Python threads run meanwhile.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Inputs.h"
#include "Products.h"
#include "RySurface.h"
#include "RySurfaceProducts.h"

namespace rytri {

namespace {

PyObject* gTriangulationError = nullptr;

/// A numpy array over the vector's elements (viewed as T); a capsule owns the vector from here
/// on, so the array needs no copy.
template <class T, class V>
py::array adopt(std::vector<V>&& values, std::vector<py::ssize_t> shape) {
    static_assert(sizeof(T) == sizeof(V), "the array views the vector's elements as T");
    auto owner = std::make_unique<std::vector<V>>(std::move(values));
    const T* data = reinterpret_cast<const T*>(owner->data());
    py::capsule base(owner.get(), [](void* p) { delete static_cast<std::vector<V>*>(p); });
    owner.release();
    return py::array_t<T>(std::move(shape), data, base);
}

template <class T, class V>
py::array adoptRows(std::vector<V>&& values, py::ssize_t columns) {
    const auto rows = py::ssize_t(values.size()) / columns;
    return adopt<T>(std::move(values), {rows, columns});
}

/// The result of triangulate(). Arrays are numpy arrays; indices are int32.
struct Result {
    py::object vertices;         ///< (k, 3) float64: x, y, z
    py::object triangles;        ///< (m, 3) int32 vertex indices, counter-clockwise
    py::object neighbors;        ///< (m, 3) int32: the triangle across edge (j, j+1), or -1
    py::object constraintEdges;  ///< (e, 2) int32 vertex indices
    py::object constraintRoles;  ///< (e,) int32: BOUNDARY, HOLE, BREAKLINE or EDGE
    py::object constraintLines;  ///< (e,) int32: the input line of each edge
    py::object vertexSource;     ///< (k,) int32: input row of each vertex, -1 at a crossing
    py::object pointVertex;      ///< (rows,) int32: vertex of each input row
    py::object holeSeeds;        ///< (h, 2) float64
    double keptArea = 0.0;
    std::string keep;
    std::size_t allTriangles = 0;
    std::size_t repeatedPoints = 0;
    std::size_t heightConflicts = 0;
    std::size_t crossingVertices = 0;
    std::size_t ignoredHolePoints = 0;
    std::size_t trimmedTriangles = 0;
    py::list conflicts;        ///< (first, other, first z, other z), the first ten
    py::list missing;          ///< (line, from point, to point): breaklines left out
    py::list degenerateLines;  ///< lines that enclose or join nothing after merging
    py::list repeatedRings;    ///< (earlier, later) rings with the same vertices
    // Contours and volumes are methods (Products.h): they take arguments.
};

Result makeResult(ry::Surface&& s) {
    Result r;
    r.keptArea = s.keptArea;
    r.keep = keepRuleName(s.keep);
    r.allTriangles = s.allTriangles;
    r.repeatedPoints = s.repeatedPoints;
    r.heightConflicts = s.conflictCount;
    r.crossingVertices = s.crossingVertices;
    r.ignoredHolePoints = s.ignoredHolePoints;
    for (const ry::HeightConflict& c : s.conflicts) {
        r.conflicts.append(py::make_tuple(c.first, c.other, c.firstZ, c.otherZ));
    }
    for (const ry::MissingSegment& m : s.missing) {
        r.missing.append(py::make_tuple(m.line, m.from, m.to));
    }
    for (std::int32_t l : s.degenerateLines) r.degenerateLines.append(l);
    for (std::size_t i = 0; i + 1 < s.repeatedRings.size(); i += 2) {
        r.repeatedRings.append(py::make_tuple(s.repeatedRings[i], s.repeatedRings[i + 1]));
    }
    r.vertices = adoptRows<double>(std::move(s.vertices), 3);
    r.triangles = adoptRows<std::int32_t>(std::move(s.triangles), 3);
    r.neighbors = adoptRows<std::int32_t>(std::move(s.neighbors), 3);
    r.constraintEdges = adoptRows<std::int32_t>(std::move(s.edgeVertices), 2);
    r.constraintRoles = adoptRows<std::int32_t>(std::move(s.edgeRole), 1).attr("reshape")(-1);
    r.constraintLines = adoptRows<std::int32_t>(std::move(s.edgeLine), 1).attr("reshape")(-1);
    r.vertexSource = adoptRows<std::int32_t>(std::move(s.vertexSource), 1).attr("reshape")(-1);
    r.pointVertex = adoptRows<std::int32_t>(std::move(s.pointVertex), 1).attr("reshape")(-1);
    r.holeSeeds = adoptRows<double>(std::move(s.holeSeeds), 2);
    return r;
}

/// The surface layer's wording of its options, in this module's argument names.
std::string pythonWords(std::string text) {
    static const std::pair<const char*, const char*> kWords[] = {
        {"merge coincident points (merge = true)", "merge coincident points (dedupe=True)"},
        {"cdtTolerance 0", "cdt_tolerance=0"},
        {"splitCrossing = false", "split_crossing=False"},
        {"(splitCrossing)", "(split_crossing=True)"},
        {"Duplicates::kFirst", "duplicates=\"first\""},
        {"(kMean)", "(duplicates=\"mean\")"},
        {"(defaultZ)", "(default_z)"},
        {"a larger maximum edge length", "a larger max_edge"},
    };
    for (const auto& [from, to] : kWords) {
        for (std::size_t at = text.find(from); at != std::string::npos;
             at = text.find(from, at + std::strlen(to))) {
            text.replace(at, std::strlen(from), to);
        }
    }
    return text;
}

[[noreturn]] void raiseFailure(const ry::Surface& s) {
    const std::string message = pythonWords(s.message);
    const py::handle type(gTriangulationError);
    py::object error = type(message + (s.advice.empty() ? "" : " (" + pythonWords(s.advice) + ")"));
    error.attr("status") = ry::statusName(s.status);
    error.attr("value") = int(s.status);
    error.attr("message") = message;
    error.attr("advice") = pythonWords(s.advice);
    error.attr("library_status") = s.libraryStatus;
    PyErr_SetObject(type.ptr(), error.ptr());
    throw py::error_already_set();
}

/// Calls the Python progress callback from inside buildSurface (holding the GIL only for it). An
/// exception in the callback stops the call and is raised again afterwards.
struct ProgressRelay {
    py::object callback;
    std::optional<py::error_already_set> error;

    static bool relay(void* context,
                      ry::SurfacePhase phase,
                      std::int64_t done,
                      std::int64_t total) {
        static const char* const kPhases[] = {"merge", "vertices", "constraints", "finish"};
        auto& self = *static_cast<ProgressRelay*>(context);
        py::gil_scoped_acquire gil;
        try {
            const py::object answer = self.callback(kPhases[int(phase)], done, total);
            return answer.is_none() || bool(py::bool_(answer));
        } catch (py::error_already_set& e) {
            self.error = std::move(e);
            return false;
        }
    }
};

double checkedNumber(double value, const char* name) {
    if (!(value >= 0.0) || std::isinf(value)) {
        throw py::value_error(std::string(name) + " must be a finite number >= 0, not " +
                              std::string(py::repr(py::float_(value))));
    }
    return value;
}

Result triangulate(const py::object& points,
                   const py::object& edges,
                   const py::object& boundaries,
                   const py::object& holes,
                   const py::object& breaklines,
                   const std::string& keep,
                   double cdtTolerance,
                   bool dedupe,
                   bool spatialSort,
                   bool splitCrossing,
                   double mergeDistance,
                   const std::string& duplicates,
                   const py::object& defaultZ,
                   const py::object& holePoints,
                   const py::object& progress,
                   const py::object& maxEdge) {
    Request request;
    readGeometry(request, points, edges, boundaries, holes, breaklines, holePoints);
    ry::SurfaceOptions& o = request.options;
    o.keep = keepRule(keep);
    o.cdtTolerance = checkedNumber(cdtTolerance, "cdt_tolerance");
    o.merge = dedupe;
    o.mergeDistance = checkedNumber(mergeDistance, "merge_distance");
    o.duplicates = duplicatesPolicy(duplicates);
    o.spatialSort = spatialSort;
    o.splitCrossing = splitCrossing;
    if (!defaultZ.is_none()) {
        o.defaultZ = defaultZ.cast<double>();
        if (!std::isfinite(o.defaultZ)) throw py::value_error("default_z must be finite");
    }
    double trimEdge = 0.0;
    if (!maxEdge.is_none()) {
        trimEdge = maxEdge.cast<double>();
        if (!(trimEdge > 0.0) || std::isinf(trimEdge)) {
            throw py::value_error("max_edge must be a finite number > 0, not " +
                                  std::string(py::repr(py::float_(trimEdge))));
        }
    }
    ProgressRelay relay;
    if (!progress.is_none()) {
        if (!PyCallable_Check(progress.ptr())) {
            throw py::value_error("progress must be a callable or None");
        }
        relay.callback = progress;
        o.progress = &ProgressRelay::relay;
        o.progressContext = &relay;
    }

    ry::Surface surface;
    std::size_t trimmed = 0;
    {
        py::gil_scoped_release release;
        surface = ry::buildSurface(request.input, o);
        if (surface.ok() && trimEdge > 0.0) trimmed = ry::trimHull(surface, trimEdge);
    }
    if (relay.error) throw std::move(*relay.error);
    if (!surface.ok()) raiseFailure(surface);
    Result result = makeResult(std::move(surface));
    result.trimmedTriangles = trimmed;
    return result;
}

const char* const kTriangulateDoc = R"(Triangulates points with optional constraint lines.

points: (n, 2) or (n, 3) array of x, y[, z] (read in place when C-contiguous float64 (n, 3);
    (n, 2) points get z = 0). Every value must be finite.
edges: None or an (e, 2) integer array of point index pairs: plain constraint edges. Under
    keep="auto" with no boundary or hole they decide what is kept by the even-odd rule.
boundaries, holes, breaklines: sequences of polylines, each a 1-D integer array of point
    indices or a (k, 2) or (k, 3) array of coordinates (these join the points; without z they
    take the height of a coincident point, else of the surface of the points). Boundaries and
    holes are closed rings; a triangle is kept when the innermost ring around it is a boundary
    (an island in a hole is kept again); with no boundary, everything in the hull but the holes.
    Breaklines are forced into the mesh and never change what is kept.
keep: "auto" (rings if any boundary or hole, else hole points if given, else even-odd if edges
    are given, else all), "all", "rings", "even_odd", "hole_points".
cdt_tolerance: determinant band of the library's tests; 0 decides every test exactly.
dedupe: merge points at the same x, y (heights by `duplicates`: "first", "mean", "error");
    merge_distance > 0 merges points closer than it.
spatial_sort: Hilbert-ordered insertion (else shuffled). split_crossing: crossing lines get a
    vertex at the crossing (else the earlier is crossed out: a breakline so lost is listed in
    `missing`, a ring is an error).
default_z: height of coordinates without z outside the points that have one.
hole_points: (h, 2) array, for keep="hole_points" (as mesh generators' hole points).
progress: None or callable(phase, done, total); returning False stops the call (error status
    "stopped"); an exception raised in it stops the call and propagates. It runs with the GIL.
max_edge: None or a length > 0: removes, repeatedly, triangles with an edge on the border longer
    than it, never one with an edge on a constraint line (as survey software trims the slivers
    off an unbounded point cloud); trimmed_triangles counts them.

Returns a Result. Raises ValueError for bad arguments and TriangulationError (attributes status,
value, message, advice, library_status) when no surface can be built. The GIL is released
during the triangulation; do not modify the input arrays from another thread meanwhile.
The Result's contours() and volumes() give its contour lines and cut and fill volumes.)";

}  // namespace

}  // namespace rytri

PYBIND11_MODULE(rytri, m) {
    using rytri::Result;
    namespace py = pybind11;
    m.doc() = "Exact Delaunay and constrained Delaunay triangulation of survey surfaces.";
    m.attr("__version__") = RYTRI_VERSION;
    m.attr("BOUNDARY") = int(ry::Role::kBoundary);
    m.attr("HOLE") = int(ry::Role::kHole);
    m.attr("BREAKLINE") = int(ry::Role::kBreakline);
    m.attr("EDGE") = int(ry::Role::kEdge);

    rytri::gTriangulationError = PyErr_NewExceptionWithDoc(
        "rytri.TriangulationError",
        "No surface could be built. Attributes: status (name), value (number), message, advice, "
        "library_status (the library's status number when it failed, else 0).",
        PyExc_RuntimeError,
        nullptr);
    if (!rytri::gTriangulationError) throw py::error_already_set();
    m.attr("TriangulationError") = py::handle(rytri::gTriangulationError);

    py::class_<Result>(m, "Result", "A triangulated surface; arrays are numpy, indices int32.")
        .def_readonly("vertices", &Result::vertices, "(k, 3) float64 x, y, z")
        .def_readonly("triangles", &Result::triangles, "(m, 3) int32, counter-clockwise")
        .def_readonly("neighbors",
                      &Result::neighbors,
                      "(m, 3) int32: triangle across edge (j, j+1), -1 at the border")
        .def_readonly("constraint_edges", &Result::constraintEdges, "(e, 2) int32 vertex pairs")
        .def_readonly("constraint_roles",
                      &Result::constraintRoles,
                      "(e,) int32: BOUNDARY, HOLE, BREAKLINE or EDGE")
        .def_readonly("constraint_lines",
                      &Result::constraintLines,
                      "(e,) int32: input line of each edge (boundaries, holes, breaklines, "
                      "then each row of edges)")
        .def_readonly("vertex_source",
                      &Result::vertexSource,
                      "(k,) int32: input row of each vertex (points, then polyline "
                      "coordinates); -1 where lines cross")
        .def_readonly("point_vertex", &Result::pointVertex, "(rows,) int32: vertex of each row")
        .def_readonly("hole_seeds", &Result::holeSeeds, "(h, 2) float64: a point in each hole")
        .def_readonly("kept_area", &Result::keptArea)
        .def_readonly("keep", &Result::keep, "the keep rule applied")
        .def_readonly("all_triangles", &Result::allTriangles, "triangles of the hull")
        .def_readonly("repeated_points", &Result::repeatedPoints)
        .def_readonly("height_conflicts", &Result::heightConflicts)
        .def_readonly("conflicts", &Result::conflicts)
        .def_readonly("crossing_vertices", &Result::crossingVertices)
        .def_readonly("ignored_hole_points", &Result::ignoredHolePoints)
        .def_readonly("missing", &Result::missing)
        .def_readonly("degenerate_lines", &Result::degenerateLines)
        .def_readonly("repeated_rings", &Result::repeatedRings)
        .def_readonly("trimmed_triangles", &Result::trimmedTriangles, "removed by max_edge")
        .def(
            "contours",
            [](const Result& r,
               const py::object& levels,
               std::optional<double> interval,
               double base) {
                return rytri::contours(
                    r.vertices, r.triangles, r.neighbors, levels, interval, base);
            },
            rytri::kContoursDoc,
            py::arg("levels") = py::none(),
            py::kw_only(),
            py::arg("interval") = py::none(),
            py::arg("base") = 0.0)
        .def(
            "volumes",
            [](const Result& r, double datum) {
                return rytri::volumes(r.vertices, r.triangles, datum);
            },
            rytri::kVolumesDoc,
            py::arg("datum"))
        .def("__repr__", [](const Result& r) {
            return "<rytri.Result: " + std::to_string(py::len(r.vertices)) + " vertices, " +
                   std::to_string(py::len(r.triangles)) + " triangles, kept area " +
                   std::string(py::repr(py::float_(r.keptArea))) + ">";
        });

    m.def("triangulate",
          &rytri::triangulate,
          rytri::kTriangulateDoc,
          py::arg("points"),
          py::arg("edges") = py::none(),
          py::kw_only(),
          py::arg("boundaries") = py::tuple(),
          py::arg("holes") = py::tuple(),
          py::arg("breaklines") = py::tuple(),
          py::arg("keep") = "auto",
          py::arg("cdt_tolerance") = 0.0,
          py::arg("dedupe") = true,
          py::arg("spatial_sort") = true,
          py::arg("split_crossing") = true,
          py::arg("merge_distance") = 0.0,
          py::arg("duplicates") = "first",
          py::arg("default_z") = py::none(),
          py::arg("hole_points") = py::none(),
          py::arg("progress") = py::none(),
          py::arg("max_edge") = py::none());
    rytri::addProductTypes(m);
}
