// libFuzzer harness: bytes become points, constraint edges, options and a band for every entry
// point; it aborts on a status the input cannot explain, a mesh the validator rejects after
// StatusOk (geometry only where the band cannot blur a sign), a copy that differs, a ghost kept
// inside, and (sanitizers) memory errors. RY_FUZZ_VERBOSE=1 prints the input.
//
// Input format (missing bytes read as 0):
//   header  h0 flags: bit0 bSpatialSort, bit1 bSplitCrossingConstraints, bit2 triangulate the
//              cleaned-up arrays, bits 3-4 projection plane (3 = invalid), bit 6
//              the counted constructor, bit 7 raw tolerance
//           h1 tolerance selector (or, with h0 bit 7, 8 bytes of a raw double follow the header)
//           h2 bits 0-1 global point tolerance selector, bits 2-7 rand() seed
//           h3 int8 scale exponent e: integer coordinates are multiplied by 2^(8e)
//           h4 point record count, h5 edge record count
//           h6 maxIterations: below 8 taken as is, otherwise 20000
//   points  tag t: mode t & 7, argument a = t >> 3
//           0 raw x, y, z (24 bytes)          1 int8 x, y times scale, z = a
//           2 int16 x, y times scale          3 copy of point [byte], nudged by ulps
//           4 a+1 points on a circle          5 a+1 points on a line
//           6 special values for x and y      7 grid of (a&3)+1 rows by (byte%16)+1 columns
//   edges   tag t: mode t & 3
//           0 two bytes, each mapped to -1..n  1 raw int32 pair
//           2 copy of edge [byte], maybe reversed    3 chain of (t>>3)+1 edges from [byte],
//                                                      closed into a ring when bit 2 is set
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "state/RyTriangulationImpl.h"
#include "support/MeshValidator.h"
#include "support/TestSupport.h"

namespace {

using rytest::record;

void require(bool ok, const std::string& what) {
    if (ok) return;
    std::fprintf(stderr, "FINDING: %s\n", what.c_str());
    std::abort();
}

struct Input {
    std::uint8_t flags = 0;
    double tolerance = 1e-9, pointTolerance = 1e-10;
    unsigned seed = 0;
    int maxIterations = 20000;
    std::vector<PkGePoint3d> points;
    std::vector<PkMeshEdge> edges;
};

Input decode(const std::uint8_t* data, std::size_t size) {
    const std::uint8_t* end = data + size;
    auto byte = [&] { return data < end ? *data++ : std::uint8_t(0); };
    auto bits = [&](int bytes) {
        std::uint64_t v = 0;
        for (int i = 0; i < bytes; ++i) v |= std::uint64_t(byte()) << (8 * i);
        return v;
    };
    auto real = [&] {
        const std::uint64_t v = bits(8);
        double d;
        std::memcpy(&d, &v, 8);
        return d;
    };
    const double nan = std::nan(""), inf = HUGE_VAL;
    const double special[] = {nan,    inf,     -inf,     1e300,
                              -1e300, 1e-300,  -1e-300,  5e-324,
                              1e-310, DBL_MAX, -DBL_MAX, 0.0,
                              -0.0,   1.0,     -1.0,     0.5,
                              1e150,  1e-150,  0x1p53,   9007199254740993.0 * (1.0 + DBL_EPSILON),
                              3.0,    2.0};
    const double tolerances[] = {
        1e-9, 0.0, 1e-12, 1e-6, 1e-3, 1.0, -1.0, nan, inf, 1e-300, 1e300, 1e-9};
    Input d;
    d.flags = byte();
    const std::uint8_t tolerance = byte(), h2 = byte();
    const double scale = std::ldexp(1.0, int(std::int8_t(byte())) * 8);
    const int pointRecords = byte(), edgeRecords = byte(), iterations = byte();
    d.tolerance = d.flags & 0x80 ? real() : tolerances[tolerance % 12];
    d.pointTolerance = std::vector<double>{1e-10, 0.0, 1e-6, 1e-3}[h2 & 3];
    d.seed = h2 >> 2;
    d.maxIterations = iterations < 8 ? iterations : 20000;
    std::vector<PkGePoint3d>& pts = d.points;
    auto add = [&](double x, double y, double z) {
        if (pts.size() < 384) pts.emplace_back(x, y, z);
    };
    for (int r = 0; r < pointRecords && data < end && pts.size() < 384; ++r) {
        const std::uint8_t tag = byte();
        const int a = tag >> 3;
        if ((tag & 7) == 0) {
            const double x = real(), y = real();
            add(x, y, real());
        } else if ((tag & 7) == 1) {
            const double x = std::int8_t(byte()) * scale;
            add(x, std::int8_t(byte()) * scale, a);
        } else if ((tag & 7) == 2) {
            const double x = std::int16_t(bits(2)) * scale;
            add(x, std::int16_t(bits(2)) * scale, 0.0);
        } else if ((tag & 7) == 3) {
            const std::uint8_t which = byte();
            if (pts.empty()) continue;
            PkGePoint3d q = pts[which % pts.size()];
            double& c = a & 1 ? q.y : q.x;
            for (int s = 0; s < std::abs((a >> 1) - 8); ++s)
                c = std::nextafter(c, (a >> 1) < 8 ? -inf : inf);
            add(q.x, q.y, q.z + 1.0);
        } else if ((tag & 7) == 4) {
            const double radius = (int(std::int8_t(byte())) + 129) * scale;
            const double cx = std::int8_t(byte()) * scale, cy = std::int8_t(byte()) * scale;
            const double phase = byte() / 256.0;
            for (int i = 0; i <= a; ++i) {
                const double angle = 6.283185307179586 * (i + phase) / (a + 1);
                add(cx + radius * std::cos(angle), cy + radius * std::sin(angle), 0.0);
            }
        } else if ((tag & 7) == 5) {
            const double x0 = std::int8_t(byte()), y0 = std::int8_t(byte());
            const double dx = std::int8_t(byte()) / 16.0, dy = std::int8_t(byte()) / 16.0;
            for (int i = 0; i <= a; ++i) add((x0 + i * dx) * scale, (y0 + i * dy) * scale, 0.0);
        } else if ((tag & 7) == 6) {
            const double x = special[byte() % 22];
            add(x, special[byte() % 22], 0.0);
        } else {
            const int rows = (a & 3) + 1, cols = byte() % 16 + 1;
            const double ox = std::int8_t(byte()), oy = std::int8_t(byte());
            for (int i = 0; i < rows; ++i) {
                for (int j = 0; j < cols; ++j) add((ox + j) * scale, (oy + i) * scale, 0.0);
            }
        }
    }
    const int n = int(pts.size());
    auto index = [&](std::uint8_t b) { return int(b) % (n + 2) - 1; };
    std::vector<PkMeshEdge>& edges = d.edges;
    for (int r = 0; r < edgeRecords && data < end && edges.size() < 64; ++r) {
        const std::uint8_t tag = byte();
        if ((tag & 3) == 0) {
            const int i = index(byte());
            edges.emplace_back(i, index(byte()));
        } else if ((tag & 3) == 1) {
            const int i = int(std::int32_t(bits(4)));
            edges.emplace_back(i, int(std::int32_t(bits(4))));
        } else if ((tag & 3) == 2) {  // reversed or not: an edge is stored as (min, max)
            const std::uint8_t which = byte();
            if (!edges.empty()) edges.push_back(edges[which % edges.size()]);
        } else {
            const int k = (tag >> 3) + 1, start = index(byte());
            for (int i = 0; i < k && edges.size() < 64; ++i) {
                edges.emplace_back(start + i,
                                   (tag & 4) && i == k - 1 && k > 2 ? start : start + i + 1);
            }
        }
    }
    return d;
}

/// Runs one triangulation call on a new object (the counted constructor with bit 6), with the
/// input's options and rand seed; a copy must equal the record.
PkTriangulationStatus run(const Input& d,
                          const std::vector<PkGePoint3d>& points,
                          const std::vector<PkMeshEdge>* edges,
                          RyTriangulation& t) {
    t = d.flags & 0x40 ? RyTriangulation(int(points.size())) : RyTriangulation();
    record(t).options = d.flags & 3u;
    record(t).maxIterations = d.maxIterations;
    t.setCDTTolerence(d.tolerance);
    std::srand(d.seed);
    const PkTriangulationStatus status =
        edges ? t.delaunayTriangulationWithConstraints(points, *edges)
              : t.delaunayTriangulation(points);
    const RyTriangulation copy(t);
    require(rytest::differences(record(t), *RyTriangulationAccess::impl(copy)).empty(),
            "a copy differs");
    return status;
}

/// The finishing calls on a valid mesh (their output is checked by the unit tests' oracles):
/// nothing kept inside without constraints, no ghost triangle kept otherwise.
void finish(const RyTriangulation& source, bool constrained) {
    RyTriangulation ghosts(source), inside(source);
    ghosts.deleteGhostTriangle();
    inside.deleteOuterTrianglesAndHoles();
    for (PkMeshTriangle t : inside.getMeshTriangles())
        require(constrained && !t.isGhostTri(), "the inside rule kept a ghost, or kept anything");
}

/// Two vertices within 1e-10 in x and y: the segment box's absolute slack then reaches from one
/// to the other, and a piece may run the wrong way along its line (so its geometry is not held
/// to the input segments).
bool withinBoxSlack(const RyTriangulationImpl& m) {
    std::vector<std::pair<double, double>> xy;
    for (const PkMeshPoint3d& v : m.mesh.vertices) xy.emplace_back(vertexXY(v)[0], vertexXY(v)[1]);
    std::sort(xy.begin(), xy.end());
    for (std::size_t i = 0; i < xy.size(); ++i) {
        for (std::size_t j = i + 1; j < xy.size() && xy[j].first - xy[i].first <= 1e-10; ++j) {
            if (std::fabs(xy[j].second - xy[i].second) <= 1e-10) return true;
        }
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Input d = decode(data, size);
    PkGeContext::gTol = PkGeTol(d.pointTolerance, 1e-10);
    std::vector<PkGePoint3d> points = d.points, cleaned = d.points;
    std::vector<PkMeshEdge> edges = d.edges, renumbered = d.edges;
    PkConvert2dVertex plane = PkConvert2dVertex((d.flags >> 3) & 3);
    PkGeTol tol;
    RyTriangulation().deleteDuplicateVertices(cleaned, renumbered, plane, tol);
    if (d.flags & 4) points = cleaned, edges = renumbered;
    const int n = int(points.size());
    const bool verbose = std::getenv("RY_FUZZ_VERBOSE") != nullptr;
    if (verbose) std::fprintf(stderr, "%s\n", rytest::describe(points, edges).c_str());
    // The library accepts x and y of 0 or magnitude in [2^-200, 2^200], where its predicates are
    // exact; where the band cannot blur a sign, the geometry must be exact too.
    bool accepted = true, integers = true, small = true;
    std::set<std::pair<double, double>> seen;
    bool repeated = false;
    for (const PkGePoint3d& p : points) {
        for (double c : {p.x, p.y}) {
            accepted &= c == 0 || (std::fabs(c) >= 0x1p-200 && std::fabs(c) <= 0x1p200);
            integers &= c == std::floor(c);
            small &= std::fabs(c) <= 0x1p20;
        }
        repeated |= !seen.insert({p.x + 0.0, p.y + 0.0}).second;
    }
    const double band = d.tolerance >= 0.0 ? d.tolerance : 0.0;
    const bool exact = accepted && (band == 0.0 || (band < 1.0 && integers));
    const bool lowered = d.maxIterations < 20000, split = d.flags & 2;

    RyTriangulation plain, cdt;
    const PkTriangulationStatus s1 = run(d, points, nullptr, plain);
    require(s1 <= 4 || s1 == 7, "delaunayTriangulation returned " + std::to_string(s1));
    require((s1 == StatusTooFewPoints) == (n < 3), "StatusTooFewPoints iff fewer than 3 points");
    require(n < 3 || (s1 == StatusFailed) == !accepted, "StatusFailed iff a coordinate is refused");
    if (s1 == StatusFailed || s1 == StatusTooFewPoints) {
        require(record(plain).mesh.vertices.empty() && record(plain).mesh.triangles.empty(),
                "a refused input changed the record");
    }
    if (exact && !lowered && n >= 4) {
        std::size_t j = 1;  // the first two distinct points define the line
        while (j < points.size() && points[j].x == points[0].x && points[j].y == points[0].y) ++j;
        bool collinear = true;
        for (std::size_t k = j + 1; k < points.size(); ++k) {
            collinear &= orient2d(&points[0].x, &points[j].x, &points[k].x) == 0.0;
        }
        require(s1 != StatusOk || !repeated, "StatusOk with a repeated point");
        require(s1 != StatusCoincidentVertex || repeated,
                "StatusCoincidentVertex without a repeat");
        require((s1 == StatusLocateFailed) == collinear,
                "StatusLocateFailed iff all points are collinear");
        require(s1 != StatusIterationLimit, "StatusIterationLimit on exact input");
    }
    rytest::Checks checks;
    checks.geometry = exact;
    checks.allowDegenerate = n == 3;
    checks.crossingsFrom = n;
    if (s1 == StatusOk) {
        const std::string found = rytest::validate(record(plain), checks);
        require(found.empty(), "delaunayTriangulation:\n" + found);
        if (!lowered) finish(plain, false);
    }

    const PkTriangulationStatus s2 = run(d, points, &edges, cdt);
    require(s2 <= 5 || s2 == 7,
            "delaunayTriangulationWithConstraints returned " + std::to_string(s2));
    require(s1 == StatusOk || s2 == s1, "the constrained call failed differently");
    const RyTriangulationImpl& m = record(cdt);
    if (s2 == StatusOk) {
        checks.allowMissing = !split;
        // A vertex made at a crossing is not an integer, so the band can hide a point inside a
        // circle; a later constraint then forces that sliver's diagonal and no flip follows, and
        // the new triangle's circle may hold a neighbour by more than the band.
        checks.delaunay = split && (band == 0.0 || int(m.mesh.vertices.size()) == n);
        // Under a band, only while no crossing has added a vertex: a chain of short pieces from
        // rounded crossings can drift from its segment by far more than the band.
        if (exact && (band == 0.0 || int(m.mesh.vertices.size()) == n) && !withinBoxSlack(m)) {
            for (const PkMeshEdge& e : edges) {
                if (e.EdgeIndex1() >= 0 && e.EdgeIndex2() < n) checks.required.push_back(e);
                // An edge may name a vertex made at an earlier crossing (the range check is
                // against the vertex list at its turn): it may or may not have gone in.
                if (split && e.EdgeIndex1() >= 0 && e.EdgeIndex2() < int(m.mesh.vertices.size())) {
                    checks.inputs.push_back(e);
                }
            }
            // Without splits a later constraint crosses earlier ones out: the last one stays.
            if (!split && !checks.required.empty())
                checks.required.erase(checks.required.begin(), checks.required.end() - 1);
        }
        const std::string found = rytest::validate(m, checks);
        require(found.empty(), "delaunayTriangulationWithConstraints:\n" + found);
        if (exact && !lowered) finish(cdt, true);
    } else {
        // A vertex off a line lies at least 2^-21 from it: no crossing comes within 1e-10 of an
        // end, and no determinant lies near a threshold. (With a far point a constraint can pass
        // a vertex closer than 1e-10 and fail as documented.)
        require(!(exact && !lowered && s1 == StatusOk && d.pointTolerance == 1e-10 &&
                  int(m.mesh.vertices.size()) == n && integers && small),
                "the constrained call failed on integer input");
    }
    if (verbose)
        std::fprintf(
            stderr, "status %d / %d, %zu vertices\n", int(s1), int(s2), m.mesh.vertices.size());
    return 0;
}
