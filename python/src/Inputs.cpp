#include "Inputs.h"

#include <cmath>
#include <limits>
#include <string>

namespace rytri {

namespace {

[[noreturn]] void bad(const std::string& message) {
    throw py::value_error(message);
}

std::string shapeOf(const py::array& a) {
    std::string s = "(";
    for (py::ssize_t i = 0; i < a.ndim(); ++i) {
        s += (i > 0 ? ", " : "") + std::to_string(a.shape(i));
    }
    return s + (a.ndim() == 1 ? ",)" : ")");
}

std::string describe(const py::array& a) {
    return "shape " + shapeOf(a) + " and dtype " + std::string(py::str(a.dtype()));
}

/// `obj` as a numpy array of numbers (the same object when it is one).
py::array numbers(const py::object& obj, const std::string& name) {
    py::array a = py::array::ensure(obj);
    if (!a) bad(name + " must be an array of numbers");
    const char kind = a.dtype().kind();
    if (kind != 'f' && kind != 'i' && kind != 'u') {
        bad(name + " must hold numbers, got " + describe(a));
    }
    return a;
}

bool isIntegral(const py::array& a) {
    return a.dtype().kind() == 'i' || a.dtype().kind() == 'u';
}

/// True when `a` is an (n, 2) or (n, 3) array.
bool isCoordinates(const py::array& a) {
    return a.ndim() == 2 && (a.shape(1) == 2 || a.shape(1) == 3);
}

/// Every value of the (rows, 2 | 3) array finite; otherwise a ValueError naming the first.
void checkFinite(const py::array_t<double>& a, const std::string& name) {
    const auto v = a.unchecked<2>();
    for (py::ssize_t i = 0; i < v.shape(0); ++i) {
        for (py::ssize_t j = 0; j < v.shape(1); ++j) {
            if (!std::isfinite(v(i, j))) {
                bad(name + "[" + std::to_string(i) + "]: " + "xyz"[j] + " is not finite (" +
                    std::string(py::repr(py::float_(v(i, j)))) + ")");
            }
        }
    }
}

/// Appends the rows of a coordinate array to `xyz`, with `z` where it has two columns.
void appendRows(const py::array_t<double>& a, double z, std::vector<double>& xyz) {
    const auto v = a.unchecked<2>();
    for (py::ssize_t i = 0; i < v.shape(0); ++i) {
        xyz.insert(xyz.end(), {v(i, 0), v(i, 1), v.shape(1) == 3 ? v(i, 2) : z});
    }
}

/// Point indices of an integer array, each checked against the `points` rows.
void appendIndices(const py::array& a,
                   const std::string& name,
                   std::size_t points,
                   std::vector<std::int32_t>& out) {
    const auto indices = py::array_t<std::int64_t, py::array::c_style | py::array::forcecast>(a);
    const std::int64_t* v = indices.data();
    for (py::ssize_t i = 0; i < indices.size(); ++i) {
        if (v[i] < 0 || std::uint64_t(v[i]) >= points) {
            bad(name + " names point " + std::to_string(v[i]) + " (at position " +
                std::to_string(i) + "), but points has " + std::to_string(points) + " rows");
        }
        out.push_back(std::int32_t(v[i]));
    }
}

struct PolylineArg {
    ry::Role role;
    std::string name;
    py::array array;
    bool coordinates;
};

/// The polylines of one role: a sequence of 1-D integer arrays (point indices) or (k, 2 | 3)
/// coordinate arrays.
void collectPolylines(const py::object& sequence,
                      ry::Role role,
                      const char* name,
                      std::vector<PolylineArg>& out) {
    if (sequence.is_none()) return;
    if (py::isinstance<py::str>(sequence) || !py::isinstance<py::iterable>(sequence)) {
        bad(std::string(name) + " must be a sequence of polylines");
    }
    std::size_t i = 0;
    for (const py::handle item : sequence) {
        const std::string label = std::string(name) + "[" + std::to_string(i++) + "]";
        const py::array a = numbers(py::reinterpret_borrow<py::object>(item), label);
        const bool indices = a.ndim() == 1 && (isIntegral(a) || a.size() == 0);
        if (!indices && !isCoordinates(a)) {
            bad(label +
                " must be a 1-D integer array of point indices or a (k, 2) or (k, 3) array of "
                "coordinates, got " +
                describe(a));
        }
        out.push_back({role, label, a, !indices});
    }
}

}  // namespace

void readGeometry(Request& r,
                  const py::object& points,
                  const py::object& edges,
                  const py::object& boundaries,
                  const py::object& holes,
                  const py::object& breaklines,
                  const py::object& holePoints) {
    const py::array p = numbers(points, "points");
    if (!isCoordinates(p)) bad("points must be an (n, 2) or (n, 3) array, got " + describe(p));
    r.points = std::size_t(p.shape(0));

    std::vector<PolylineArg> lines;
    collectPolylines(boundaries, ry::Role::kBoundary, "boundaries", lines);
    collectPolylines(holes, ry::Role::kHole, "holes", lines);
    collectPolylines(breaklines, ry::Role::kBreakline, "breaklines", lines);
    std::size_t rows = r.points;
    for (const PolylineArg& line : lines)
        rows += line.coordinates ? std::size_t(line.array.shape(0)) : 0;
    if (rows > std::size_t(std::numeric_limits<std::int32_t>::max())) {
        bad("too many points: at most 2^31 - 1 with the polylines' coordinates");
    }

    // The points: read in place when they are already x, y, z float64 rows and nothing joins
    // them; otherwise copied, z = 0 for (n, 2) points and NaN (the height of the surface there)
    // for (k, 2) polyline coordinates.
    const auto pd = py::array_t<double, py::array::forcecast>::ensure(p);
    checkFinite(pd, "points");
    const bool inPlace =
        rows == r.points && pd.shape(1) == 3 && (pd.flags() & py::array::c_style) != 0;
    if (inPlace) {
        r.pointsArray = pd;
        r.input.xyz = ry::ArrayView<double>(pd.data(), std::size_t(pd.size()));
    } else {
        r.xyz.reserve(3 * rows);
        appendRows(pd, 0.0, r.xyz);
    }
    for (const PolylineArg& line : lines) {
        const std::size_t first = r.lineVertices.size();
        if (line.coordinates) {
            const auto c = py::array_t<double, py::array::forcecast>::ensure(line.array);
            checkFinite(c, line.name);
            const std::size_t start = r.xyz.size() / 3;
            for (py::ssize_t k = 0; k < c.shape(0); ++k) {
                r.lineVertices.push_back(std::int32_t(start + std::size_t(k)));
            }
            appendRows(c, std::numeric_limits<double>::quiet_NaN(), r.xyz);
        } else {
            appendIndices(line.array, line.name, r.points, r.lineVertices);
        }
        r.input.lines.push_back({line.role, false, first, r.lineVertices.size() - first});
    }
    if (!inPlace) r.input.xyz = r.xyz;

    if (!edges.is_none()) {
        const py::array e = numbers(edges, "edges");
        if (e.size() > 0 && (!isIntegral(e) || e.ndim() != 2 || e.shape(1) != 2)) {
            bad("edges must be an (e, 2) integer array of point index pairs, got " + describe(e));
        }
        const std::size_t first = r.lineVertices.size();
        if (e.size() > 0) appendIndices(e, "edges", r.points, r.lineVertices);
        for (std::size_t k = first; k < r.lineVertices.size(); k += 2) {
            r.input.lines.push_back({ry::Role::kEdge, false, k, 2});
        }
    }
    r.input.lineVertices = r.lineVertices;

    if (!holePoints.is_none()) {
        const py::array h = numbers(holePoints, "hole_points");
        if (h.size() > 0) {
            if (h.ndim() != 2 || h.shape(1) != 2) {
                bad("hole_points must be an (h, 2) array, got " + describe(h));
            }
            const auto hd = py::array_t<double, py::array::forcecast>::ensure(h);
            checkFinite(hd, "hole_points");
            const auto v = hd.unchecked<2>();
            for (py::ssize_t i = 0; i < v.shape(0); ++i) {
                r.holePoints.insert(r.holePoints.end(), {v(i, 0), v(i, 1)});
            }
        }
        r.input.holePoints = r.holePoints;
    }
}

namespace {
const char* const kKeepNames[] = {"auto", "all", "rings", "even_odd", "hole_points"};
const char* const kDuplicatesNames[] = {"first", "mean", "error"};
}  // namespace

ry::KeepRule keepRule(const std::string& name) {
    for (int k = 0; k < 5; ++k) {
        if (name == kKeepNames[k]) return ry::KeepRule(k);
    }
    bad("keep must be \"auto\", \"all\", \"rings\", \"even_odd\" or \"hole_points\", not \"" +
        name + "\"");
}

ry::Duplicates duplicatesPolicy(const std::string& name) {
    for (int k = 0; k < 3; ++k) {
        if (name == kDuplicatesNames[k]) return ry::Duplicates(k);
    }
    bad("duplicates must be \"first\", \"mean\" or \"error\", not \"" + name + "\"");
}

const char* keepRuleName(ry::KeepRule rule) {
    return kKeepNames[int(rule)];
}

}  // namespace rytri
