// libFuzzer harness: decodes bytes into points, constraint edges, option bits and a tolerance,
// then runs every exported entry point on them (both clean-up forms, both triangulation calls,
// both finishing calls, copies) and aborts on anything the library does not promise:
//
//   - a status outside 0, 1, 2, 3, 4, 5, 7, or one the input cannot explain (for example
//     StatusFailed for accepted coordinates without constraints);
//   - after StatusOk, a mesh the validator rejects (adjacency, back-links, ghost closure and the
//     Euler count always; orientation, hull convexity and local Delaunay, and the constraint
//     records, whenever the tolerance band cannot blur the geometry: band 0, or integer
//     coordinates and a band below 1, all inside the predicates' exact domain; under a band,
//     the constraints' geometry only while no crossing has added a vertex);
//   - a copy that differs from its source, an output triangle that is not a live triangle,
//     inside/outside labels that change across an edge that is not a constraint;
//   - and, through the sanitizers, any memory error, leak or undefined behaviour.
//
// Every loop of the library is bounded by maxIterations; the harness lowers it to 20000 (or to
// 0..7 when the input asks for it) so that degenerate inputs such as four collinear points give
// StatusLocateFailed after 20000 random draws instead of a million.
//
// Input format (missing bytes read as 0; see fuzz/corpus/make_seeds.py for a writer):
//   header  h0 flags: bit0 bSpatialSort, bit1 bSplitCrossingConstraints, bit2 triangulate the
//              cleaned-up arrays, bits 3-4 projection plane (3 = invalid), bits 5-6
//              constructor (default, two flags, counted, throwing count), bit 7 raw tolerance
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
#include <limits>
#include <set>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "RyTriangulation.h"
#include "mesh/HelperThread.h"
#include "mesh/RyTriangulationAccess.h"
#include "mesh/RyTriangulationImpl.h"
#include "support/ConstraintChecks.h"
#include "support/MeshValidator.h"

namespace {

constexpr std::size_t kMaxPoints = 384;
constexpr std::size_t kMaxEdges = 64;
constexpr int kFuzzIterations = 20000;

class Reader {
public:
    Reader(const std::uint8_t* data, std::size_t size) : p(data), end(data + size) {}
    std::uint8_t byte() { return p < end ? *p++ : 0; }
    /// The next sizeof(T) bytes, little-endian.
    template <class T>
    T value() {
        static_assert(sizeof(T) <= sizeof(std::uint64_t), "at most 8 bytes");
        std::uint64_t bits = 0;
        for (std::size_t i = 0; i < sizeof(T); ++i) bits |= std::uint64_t(byte()) << (8 * i);
        T v;
        std::memcpy(&v, &bits, sizeof(T));
        return v;
    }
    bool done() const { return p >= end; }

private:
    const std::uint8_t* p;
    const std::uint8_t* end;
};

[[noreturn]] void finding(const std::string& what) {
    std::fprintf(stderr, "FINDING: %s\n", what.c_str());
    std::fflush(stderr);
    std::abort();
}

void require(bool ok, const std::string& what) {
    if (!ok) finding(what);
}

const double kSpecial[] = {std::numeric_limits<double>::quiet_NaN(),
                           std::numeric_limits<double>::infinity(),
                           -std::numeric_limits<double>::infinity(),
                           1e300,
                           -1e300,
                           1e-300,
                           -1e-300,
                           std::numeric_limits<double>::denorm_min(),
                           1e-310,
                           DBL_MAX,
                           -DBL_MAX,
                           0.0,
                           -0.0,
                           1.0,
                           -1.0,
                           0.5,
                           1e150,
                           1e-150,
                           9007199254740992.0,
                           9007199254740993.0 * (1.0 + DBL_EPSILON),
                           3.0,
                           2.0};

const double kTolerances[] = {1e-9,
                              0.0,
                              1e-12,
                              1e-6,
                              1e-3,
                              1.0,
                              -1.0,
                              std::numeric_limits<double>::quiet_NaN(),
                              std::numeric_limits<double>::infinity(),
                              1e-300,
                              1e300,
                              1e-9};

const double kPointTolerances[] = {1e-10, 0.0, 1e-6, 1e-3};

struct Input {
    std::uint8_t flags = 0;
    double tolerance = 1e-9;
    double pointTolerance = 1e-10;
    unsigned seed = 0;
    int maxIterations = kFuzzIterations;
    std::vector<PkGePoint3d> points;
    std::vector<PkMeshEdge> edges;
};

Input decode(const std::uint8_t* data, std::size_t size) {
    Reader in(data, size);
    Input d;
    d.flags = in.byte();
    const std::uint8_t tolSelector = in.byte();
    const std::uint8_t h2 = in.byte();
    const int scaleExponent = int(std::int8_t(in.byte())) * 8;
    const int pointRecords = in.byte();
    const int edgeRecords = in.byte();
    const std::uint8_t h6 = in.byte();
    d.tolerance =
        (d.flags & 0x80) ? in.value<double>() : kTolerances[tolSelector % std::size(kTolerances)];
    d.pointTolerance = kPointTolerances[h2 & 3];
    d.seed = h2 >> 2;
    d.maxIterations = h6 < 8 ? int(h6) : kFuzzIterations;
    const double scale = std::ldexp(1.0, scaleExponent);

    std::vector<PkGePoint3d>& pts = d.points;
    auto add = [&](double x, double y, double z) {
        if (pts.size() < kMaxPoints) pts.emplace_back(x, y, z);
    };
    for (int r = 0; r < pointRecords && !in.done() && pts.size() < kMaxPoints; ++r) {
        const std::uint8_t tag = in.byte();
        const int a = tag >> 3;
        switch (tag & 7) {
            case 0: {
                const double x = in.value<double>();
                const double y = in.value<double>();
                add(x, y, in.value<double>());
                break;
            }
            case 1: {
                const double x = std::int8_t(in.byte()) * scale;
                add(x, std::int8_t(in.byte()) * scale, a);
                break;
            }
            case 2: {
                const double x = in.value<std::int16_t>() * scale;
                add(x, in.value<std::int16_t>() * scale, 0.0);
                break;
            }
            case 3: {
                const std::uint8_t which = in.byte();
                if (pts.empty()) break;
                PkGePoint3d q = pts[which % pts.size()];
                double& c = (a & 1) ? q.y : q.x;
                const int steps = (a >> 1) - 8;  // -8..7 ulps
                const double toward = steps < 0 ? -INFINITY : INFINITY;
                for (int s = 0; s < std::abs(steps); ++s) c = std::nextafter(c, toward);
                add(q.x, q.y, q.z + 1.0);
                break;
            }
            case 4: {
                const double radius = (int(std::int8_t(in.byte())) + 129) * scale;
                const double cx = std::int8_t(in.byte()) * scale;
                const double cy = std::int8_t(in.byte()) * scale;
                const double phase = in.byte() / 256.0;
                const int k = a + 1;
                for (int i = 0; i < k; ++i) {
                    const double angle = 6.283185307179586 * (i + phase) / k;
                    add(cx + radius * std::cos(angle), cy + radius * std::sin(angle), 0.0);
                }
                break;
            }
            case 5: {
                const double x0 = std::int8_t(in.byte()), y0 = std::int8_t(in.byte());
                const double dx = std::int8_t(in.byte()) / 16.0, dy = std::int8_t(in.byte()) / 16.0;
                for (int i = 0; i <= a; ++i) add((x0 + i * dx) * scale, (y0 + i * dy) * scale, 0.0);
                break;
            }
            case 6: {
                const double x = kSpecial[in.byte() % std::size(kSpecial)];
                add(x, kSpecial[in.byte() % std::size(kSpecial)], 0.0);
                break;
            }
            case 7: {
                const int rows = (a & 3) + 1;
                const int cols = in.byte() % 16 + 1;
                const double ox = std::int8_t(in.byte()), oy = std::int8_t(in.byte());
                for (int i = 0; i < rows; ++i) {
                    for (int j = 0; j < cols; ++j) add((ox + j) * scale, (oy + i) * scale, 0.0);
                }
                break;
            }
        }
    }

    const int n = int(pts.size());
    std::vector<PkMeshEdge>& edges = d.edges;
    auto index = [&](std::uint8_t b) { return int(b) % (n + 2) - 1; };
    for (int r = 0; r < edgeRecords && !in.done() && edges.size() < kMaxEdges; ++r) {
        const std::uint8_t tag = in.byte();
        switch (tag & 3) {
            case 0: {
                const int i = index(in.byte());
                edges.emplace_back(i, index(in.byte()));
                break;
            }
            case 1: {
                const int i = in.value<std::int32_t>();
                edges.emplace_back(i, in.value<std::int32_t>());
                break;
            }
            case 2: {
                const std::uint8_t which = in.byte();
                if (edges.empty()) break;
                const PkMeshEdge e = edges[which % edges.size()];
                edges.push_back((tag & 4) ? PkMeshEdge(e.EdgeIndex2(), e.EdgeIndex1()) : e);
                break;
            }
            case 3: {
                const int k = (tag >> 3) + 1;
                const int start = index(in.byte());
                for (int i = 0; i < k && edges.size() < kMaxEdges; ++i) {
                    const bool closing = (tag & 4) && i == k - 1 && k > 2;
                    edges.emplace_back(start + i, closing ? start : start + i + 1);
                }
                break;
            }
        }
    }
    return d;
}

bool sameBits(double a, double b) {
    return std::memcmp(&a, &b, sizeof(double)) == 0;
}

bool sameTriangles(const std::vector<PkMeshTriangle>& a, const std::vector<PkMeshTriangle>& b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (!std::equal(triVerts(a[i]), triVerts(a[i]) + 3, triVerts(b[i])) ||
            !std::equal(triNbrs(a[i]), triNbrs(a[i]) + 3, triNbrs(b[i])) ||
            PkMeshFields::flags(a[i]) != PkMeshFields::flags(b[i])) {
            return false;
        }
    }
    return true;
}

/// The observable state of two records is equal (the locator is compared by its size only).
void requireSameRecord(const RyTriangulationImpl& a, const RyTriangulationImpl& b) {
    require(a.options == b.options, "copy: options differ");
    require(sameTriangles(a.triangles, b.triangles), "copy: triangles differ");
    require(sameTriangles(a.meshTriangles, b.meshTriangles), "copy: meshTriangles differ");
    require(a.vertices.size() == b.vertices.size(), "copy: vertex counts differ");
    for (std::size_t i = 0; i < a.vertices.size(); ++i) {
        const PkGePoint3d& p = PkMeshFields::point(a.vertices[i]);
        const PkGePoint3d& q = PkMeshFields::point(b.vertices[i]);
        require(sameBits(p.x, q.x) && sameBits(p.y, q.y) && sameBits(p.z, q.z) &&
                    vertexTriangle(a.vertices[i]) == vertexTriangle(b.vertices[i]) &&
                    PkMeshFields::flags(a.vertices[i]) == PkMeshFields::flags(b.vertices[i]),
                "copy: vertex " + std::to_string(i) + " differs");
    }
    require(a.freeTriangles == b.freeTriangles, "copy: freeTriangles differ");
    require(a.constraintEdges == b.constraintEdges, "copy: constraintEdges differ");
    require(a.constraintRepeats == b.constraintRepeats, "copy: constraintRepeats differ");
    require(a.constraintOrigins == b.constraintOrigins, "copy: constraintOrigins differ");
    require(a.maxIterations == b.maxIterations, "copy: maxIterations differ");
    require(sameBits(a.cdtTolerance, b.cdtTolerance), "copy: cdtTolerance differs");
}

/// Every x and y 0 or of a magnitude in [2^-200, 2^200] (false for NaN and infinities): the
/// predicates' exact domain, and the input the library accepts.
bool inExactDomain(const std::vector<PkGePoint3d>& pts) {
    for (const PkGePoint3d& p : pts) {
        for (double c : {p.x, p.y}) {
            const double m = std::fabs(c);
            if (m != 0.0 && !(m >= 0x1p-200 && m <= 0x1p200)) return false;
        }
    }
    return true;
}

bool integerXY(const std::vector<PkGePoint3d>& pts) {
    for (const PkGePoint3d& p : pts) {
        if (p.x != std::floor(p.x) || p.y != std::floor(p.y)) return false;
    }
    return true;
}

/// Integer x and y of magnitude at most 2^20.
bool smallIntegerXY(const std::vector<PkGePoint3d>& pts) {
    for (const PkGePoint3d& p : pts) {
        if (!(std::fabs(p.x) <= 0x1p20 && std::fabs(p.y) <= 0x1p20)) return false;
    }
    return integerXY(pts);
}

bool hasDuplicateXY(const std::vector<PkGePoint3d>& pts) {
    std::set<std::pair<double, double>> seen;
    for (const PkGePoint3d& p : pts) {
        // +0.0 and -0.0 are the same point.
        if (!seen.insert({p.x + 0.0, p.y + 0.0}).second) return true;
    }
    return false;
}

/// All points on one line, exactly (the first two distinct points define it).
bool allCollinear(const std::vector<PkGePoint3d>& pts) {
    std::size_t j = 1;
    while (j < pts.size() && pts[j].x == pts[0].x && pts[j].y == pts[0].y) ++j;
    if (j >= pts.size()) return true;
    for (std::size_t k = j + 1; k < pts.size(); ++k) {
        if (orient2d(&pts[0].x, &pts[j].x, &pts[k].x) != 0.0) return false;
    }
    return true;
}

/// Two vertices within 1e-10 of each other in both x and y. The constraint code's segment-box
/// test has a fixed absolute slack of 1e-10: among such vertices it takes one on the segment's
/// line behind the start of a piece for one on the piece, which then runs the wrong way along
/// the line (far below the slack the line is all the box holds).
bool withinBoxSlack(const std::vector<PkMeshPoint3d>& vertices) {
    std::vector<std::pair<double, double>> xy;
    for (const PkMeshPoint3d& v : vertices) xy.emplace_back(vertexXY(v)[0], vertexXY(v)[1]);
    std::sort(xy.begin(), xy.end());
    for (std::size_t i = 0; i < xy.size(); ++i) {
        for (std::size_t j = i + 1; j < xy.size() && xy[j].first - xy[i].first <= 1e-10; ++j) {
            if (std::fabs(xy[j].second - xy[i].second) <= 1e-10) return true;
        }
    }
    return false;
}

bool isGeometric(const std::string& violation) {
    for (const char* word : {"counter-clockwise", "zero area", "reflex", "locally Delaunay"}) {
        if (violation.find(word) != std::string::npos) return true;
    }
    return false;
}

/// For a "segment (a, b) is not covered" report: whether a path of constraint edges of the mesh
/// from a to b through vertices on the segment exists after all. The shared check follows the
/// nearest vertex along the segment greedily, and on a long, nearly horizontal segment a vertex
/// at distance 0.8 counts as on it (relative to a length of 1e52), which stalls the greedy walk
/// although the direct edge is there.
bool coveredAfterAll(const RyTriangulationImpl& m, const std::string& violation) {
    int a = 0, b = 0;
    if (std::sscanf(violation.c_str(), "segment (%d, %d) is not covered", &a, &b) != 2) {
        return false;
    }
    const int nv = int(m.vertices.size());
    std::vector<std::vector<int>> around(static_cast<std::size_t>(nv));
    const std::vector<char> live = [&] {
        std::vector<char> l(m.triangles.size(), 1);
        for (int f : m.freeTriangles) l[std::size_t(f)] = 0;
        return l;
    }();
    for (std::size_t t = 0; t < m.triangles.size(); ++t) {
        const int* v = triVerts(m.triangles[t]);
        if (!live[t] || isGhost(m.triangles[t])) continue;
        for (int k = 0; k < 3; ++k) {
            const int p = v[k], q = v[(k + 1) % 3];
            if (m.constraintEdges.count(PkMeshEdge(p, q)) == 0) continue;
            around[std::size_t(p)].push_back(q);  // hull edges appear once: add both ways
            around[std::size_t(q)].push_back(p);
        }
    }
    std::vector<char> seen(std::size_t(nv), 0);
    std::vector<int> stack = {a};
    seen[std::size_t(a)] = 1;
    while (!stack.empty()) {
        const int v = stack.back();
        stack.pop_back();
        if (v == b) return true;
        for (int w : around[std::size_t(v)]) {
            if (seen[std::size_t(w)]) continue;
            if (w != b && !rytest::vertexOnSegment(m, w, a, b, 1e-9)) continue;
            seen[std::size_t(w)] = 1;
            stack.push_back(w);
        }
    }
    return false;
}

/// Structural violations always count; geometric ones only when `strict`.
/// A local-Delaunay violation at a vertex made at a crossing (index n or above). Such a vertex
/// is rounded off the constraint it splits, yet goes into the mesh as a point on that edge, and
/// the flips that follow only test the edges opposite it: an edge at it can miss the exact
/// in-circle test by a rounding-sized amount.
bool delaunayAtCrossingVertex(const std::string& violation, int n) {
    int e0 = 0, e1 = 0, t0 = 0, t1 = 0, d = 0, c0 = 0, c1 = 0, c2 = 0;
    if (std::sscanf(violation.c_str(),
                    "edge (%d, %d) between triangles %d and %d is not locally Delaunay: vertex %d "
                    "lies inside the circle of (%d, %d, %d)",
                    &e0,
                    &e1,
                    &t0,
                    &t1,
                    &d,
                    &c0,
                    &c1,
                    &c2) != 8) {
        return false;
    }
    return std::max({e0, e1, d, c0, c1, c2}) >= n;
}

void requireValid(
    const RyTriangulationImpl& m, int n, bool strict, bool degenerateAllowed, const char* what) {
    MeshValidatorOptions options;
    options.allowDegenerate = degenerateAllowed;
    // Without crossing splits, a constraint crossed by a later one leaves the mesh but its
    // neighbourhood is not re-legalised: the result is then not a constrained Delaunay mesh of
    // the surviving constraints, by design.
    options.checkDelaunay = checkConstraintEdges(m).empty();
    std::vector<std::string> violations = validateMesh(m, options);
    if (std::getenv("RY_FUZZ_VERBOSE") && !violations.empty()) {
        std::fprintf(stderr,
                     "%s (strict %d):\n%s\n",
                     what,
                     int(strict),
                     formatViolations(violations, 8).c_str());
    }
    if (!strict) {
        // Geometry under a band that blurs signs is not checked; the count line of a capped
        // list says nothing about which kind was dropped.
        violations.erase(
            std::remove_if(violations.begin(),
                           violations.end(),
                           [](const std::string& v) { return v.rfind("... and ", 0) == 0; }),
            violations.end());
        violations.erase(std::remove_if(violations.begin(), violations.end(), isGeometric),
                         violations.end());
    }
    violations.erase(
        std::remove_if(violations.begin(),
                       violations.end(),
                       [n](const std::string& v) { return delaunayAtCrossingVertex(v, n); }),
        violations.end());
    if (!violations.empty()) finding(std::string(what) + ":\n" + formatViolations(violations));
}

void checkCleanup(const Input& d) {
    PkGeTol tol;
    PkConvert2dVertex plane = PkConvert2dVertex((d.flags >> 3) & 3);
    RyTriangulation cleaner;

    std::vector<PkGePoint3d> pointsOnly = d.points;
    cleaner.deleteDuplicateVertices(pointsOnly, plane, tol);
    std::vector<PkGePoint3d> points = d.points;
    std::vector<PkMeshEdge> edges = d.edges;
    cleaner.deleteDuplicateVertices(points, edges, plane, tol);

    require(pointsOnly.size() <= d.points.size(), "clean-up grew the point array");
    require(edges.size() == d.edges.size(), "clean-up changed the number of edges");
    if (int(plane) > 2) {
        require(pointsOnly.empty(), "clean-up with an invalid plane kept points");
        return;
    }
    require(pointsOnly.size() == points.size(), "the two clean-up forms disagree on the count");
    for (std::size_t i = 0; i < points.size(); ++i) {
        const PkGePoint3d& p = points[i];
        require(!std::isnan(p.x) && !std::isnan(p.y) && p.z == 0.0,
                "clean-up kept a NaN or unprojected point");
        require(sameBits(p.x, pointsOnly[i].x) && sameBits(p.y, pointsOnly[i].y),
                "the two clean-up forms disagree on point " + std::to_string(i));
    }
    for (const PkMeshEdge& e : edges) {
        const int a = e.EdgeIndex1(), b = e.EdgeIndex2();
        require((a == -1 && b == -1) || (a >= 0 && a < b && b < int(points.size())),
                "clean-up left an edge (" + std::to_string(a) + ", " + std::to_string(b) + ")");
    }
}

bool sameLocator(const VertexKdTree& a, const VertexKdTree& b) {
    if (a.root != b.root || a.rootAxis != b.rootAxis || a.pointCount != b.pointCount ||
        a.boxFitted != b.boxFitted || a.nodes.size() != b.nodes.size()) {
        return false;
    }
    for (int k = 0; k < 2; ++k) {
        if (!sameBits(a.boxMin[k], b.boxMin[k]) || !sameBits(a.boxMax[k], b.boxMax[k])) {
            return false;
        }
    }
    for (std::size_t i = 0; i < a.nodes.size(); ++i) {
        const KdNode& x = a.nodes[i];
        const KdNode& y = b.nodes[i];
        if (x.child0 != y.child0 || x.child1 != y.child1 || x.bucket != y.bucket ||
            x.coords.size() != y.coords.size()) {
            return false;
        }
        for (std::size_t c = 0; c < x.coords.size(); ++c) {
            if (!sameBits(x.coords[c], y.coords[c])) return false;
        }
    }
    return true;
}

RyTriangulation makeObject(const Input& d, int count);

/// Large inputs run part of the work on a helper thread; fuzz inputs are far below that size, so
/// force it on for a second run from the same rand seed: the record (locator included), the
/// status and the rand sequence after it must be those of the run without it.
void checkHelperThread(const Input& d,
                       const std::vector<PkGePoint3d>& points,
                       const RyTriangulationImpl& plain,
                       PkTriangulationStatus plainStatus) {
    const int randAfterPlain = std::rand();
    const std::size_t saved = helperThreadMinPoints();
    setHelperThreadMinPoints(0);
    RyTriangulation helped = makeObject(d, int(points.size()));
    RyTriangulationImpl* hm = RyTriangulationAccess::impl(helped);
    hm->maxIterations = d.maxIterations;
    helped.setCDTTolerence(d.tolerance);
    std::srand(d.seed);
    const PkTriangulationStatus status = helped.delaunayTriangulation(points);
    const int randAfterHelped = std::rand();
    setHelperThreadMinPoints(saved);
    require(status == plainStatus, "the helper thread changed the status");
    require(randAfterHelped == randAfterPlain, "the helper thread changed the rand sequence");
    requireSameRecord(plain, *hm);
    require(sameLocator(plain.locator, hm->locator), "the helper thread changed the locator");
}

RyTriangulation makeObject(const Input& d, int count) {
    const bool sort = d.flags & 1, split = d.flags & 2;
    switch ((d.flags >> 5) & 3) {
        case 0: {
            RyTriangulation t;
            RyTriangulationAccess::impl(t)->options = (sort ? 1u : 0u) | (split ? 2u : 0u);
            return t;
        }
        case 2: {
            RyTriangulation t(count);
            RyTriangulationAccess::impl(t)->options = (sort ? 1u : 0u) | (split ? 2u : 0u);
            return t;
        }
        case 3: {
            bool threw = false;
            try {
                RyTriangulation t(count % 2 ? -1 - count : (1 << 30) + count);
            } catch (const std::length_error&) {
                threw = true;
            }
            require(threw, "an impossible reservation did not throw std::length_error");
            break;
        }
    }
    return RyTriangulation(sort, split);
}

/// The output triangles of `m` as vertex triples.
std::set<std::tuple<int, int, int>> outputSet(const RyTriangulationImpl& m) {
    std::set<std::tuple<int, int, int>> out;
    for (const PkMeshTriangle& t : m.meshTriangles) {
        const int* v = triVerts(t);
        require(out.insert({v[0], v[1], v[2]}).second, "a triangle is output twice");
    }
    return out;
}

std::vector<char> liveSlots(const RyTriangulationImpl& m) {
    std::vector<char> live(m.triangles.size(), 1);
    for (int f : m.freeTriangles) live[std::size_t(f)] = 0;
    return live;
}

/// deleteGhostTriangle on a valid mesh outputs exactly its live real triangles.
void checkGhostRemoval(const RyTriangulationImpl& m) {
    const std::set<std::tuple<int, int, int>> out = outputSet(m);
    const std::vector<char> live = liveSlots(m);
    std::size_t real = 0;
    for (std::size_t t = 0; t < m.triangles.size(); ++t) {
        const int* v = triVerts(m.triangles[t]);
        if (!live[t] || isGhost(m.triangles[t])) continue;
        ++real;
        require(out.count({v[0], v[1], v[2]}) == 1, "a real triangle is missing from the output");
    }
    require(out.size() == real, "deleteGhostTriangle output a ghost or released triangle");
}

/// deleteOuterTrianglesAndHoles on a valid mesh: no ghost in the output, and inside/outside
/// changes only across constraint edges.
void checkHoleRemoval(const RyTriangulationImpl& m) {
    const std::set<std::tuple<int, int, int>> out = outputSet(m);
    const std::vector<char> live = liveSlots(m);
    auto inside = [&](int t) {
        const int* v = triVerts(m.triangles[std::size_t(t)]);
        return out.count({v[0], v[1], v[2]}) == 1;
    };
    for (std::size_t t = 0; t < m.triangles.size(); ++t) {
        if (!live[t]) continue;
        const PkMeshTriangle& T = m.triangles[t];
        if (isGhost(T)) {
            require(!inside(int(t)), "deleteOuterTrianglesAndHoles output a ghost triangle");
            continue;
        }
        const int* v = triVerts(T);
        for (int k = 0; k < 3; ++k) {
            const int u = triNbrs(T)[k];
            const PkMeshEdge e(v[k], v[(k + 1) % 3]);
            if (m.constraintEdges.count(e) != 0) continue;
            require(inside(int(t)) == inside(u),
                    "inside/outside changes across the non-constraint edge (" +
                        std::to_string(e.EdgeIndex1()) + ", " + std::to_string(e.EdgeIndex2()) +
                        ")");
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Input d = decode(data, size);
    PkGeContext::gTol = PkGeTol(d.pointTolerance, 1e-10);

    checkCleanup(d);

    std::vector<PkGePoint3d> points = d.points;
    std::vector<PkMeshEdge> edges = d.edges;
    if (d.flags & 4) {
        PkGeTol tol;
        PkConvert2dVertex plane = PkConvert2dVertex((d.flags >> 3) & 3);
        RyTriangulation().deleteDuplicateVertices(points, edges, plane, tol);
    }
    const int n = int(points.size());
    if (std::getenv("RY_FUZZ_VERBOSE")) {
        for (const PkGePoint3d& p : points)
            std::fprintf(stderr, "  point %a %a %a\n", p.x, p.y, p.z);
        for (const PkMeshEdge& e : edges) {
            std::fprintf(stderr, "  edge %d %d\n", e.EdgeIndex1(), e.EdgeIndex2());
        }
        std::fprintf(stderr,
                     "  tolerance %a, point tolerance %g, seed %u, iterations %d\n",
                     d.tolerance,
                     d.pointTolerance,
                     d.seed,
                     d.maxIterations);
    }
    const bool lowered = d.maxIterations < kFuzzIterations;
    const double band = d.tolerance >= 0.0 ? d.tolerance : 0.0;
    // The library refuses what its predicates cannot decide exactly: non-finite coordinates and
    // non-zero magnitudes outside [2^-200, 2^200].
    const bool accepted = inExactDomain(points);
    // Where the band cannot blur a sign, the geometry must be exact: band 0, or integer
    // coordinates (every non-zero determinant is at least 1) and a band below 1.
    const bool exact = accepted && (band == 0.0 || (band < 1.0 && integerXY(points)));
    const bool split = d.flags & 2;

    // --- unconstrained ---------------------------------------------------------------------
    RyTriangulation plain = makeObject(d, n);
    RyTriangulationImpl* pm = RyTriangulationAccess::impl(plain);
    pm->maxIterations = d.maxIterations;
    plain.setCDTTolerence(d.tolerance);
    std::srand(d.seed);
    const PkTriangulationStatus s1 = plain.delaunayTriangulation(points);
    require(s1 == 0 || s1 == 1 || s1 == 2 || s1 == 3 || s1 == 4 || s1 == 7,
            "delaunayTriangulation returned " + std::to_string(int(s1)));
    require((s1 == StatusTooFewPoints) == (n < 3), "StatusTooFewPoints iff fewer than 3 points");
    if (n >= 3) {
        require((s1 == StatusFailed) == !accepted,
                "StatusFailed iff a coordinate is not finite or outside [2^-200, 2^200]");
    }
    if (s1 == StatusFailed || s1 == StatusTooFewPoints) {
        require(pm->vertices.empty() && pm->triangles.empty(), "rejected input changed the record");
    }
    if (exact && !lowered && n >= 4) {
        const bool duplicates = hasDuplicateXY(points);
        const bool collinear = allCollinear(points);
        require(s1 != StatusOk || !duplicates, "StatusOk with a repeated point");
        require(s1 != StatusCoincidentVertex || duplicates, "StatusCoincidentVertex, no repeat");
        require((s1 == StatusLocateFailed) == collinear, "StatusLocateFailed iff all collinear");
        require(s1 != StatusIterationLimit, "StatusIterationLimit on exact input");
    }
    if (s1 == StatusOk) requireValid(*pm, n, exact, n == 3, "delaunayTriangulation");

    RyTriangulation plainCopy(plain);
    requireSameRecord(*pm, *RyTriangulationAccess::impl(plainCopy));
    checkHelperThread(d, points, *pm, s1);
    plain.deleteGhostTriangle();
    plainCopy.deleteOuterTrianglesAndHoles();
    if (s1 == StatusOk) {
        checkGhostRemoval(*pm);
        require(lowered || RyTriangulationAccess::impl(plainCopy)->meshTriangles.empty(),
                "deleteOuterTrianglesAndHoles without constraints output triangles");
    }

    // --- constrained -----------------------------------------------------------------------
    RyTriangulation cdt = makeObject(d, n);
    RyTriangulationImpl* cm = RyTriangulationAccess::impl(cdt);
    cm->maxIterations = d.maxIterations;
    cdt.setCDTTolerence(d.tolerance);
    std::srand(d.seed);
    const PkTriangulationStatus s2 = cdt.delaunayTriangulationWithConstraints(points, edges);
    require(s2 == 0 || s2 == 1 || s2 == 2 || s2 == 3 || s2 == 4 || s2 == 5 || s2 == 7,
            "delaunayTriangulationWithConstraints returned " + std::to_string(int(s2)));
    // Same points, same rand() seed: the Delaunay phase must end as the plain call did.
    if (s1 != StatusOk) require(s2 == s1, "the constrained call failed differently");
    if (s2 == StatusOk) {
        requireValid(*cm, n, exact, n == 3, "delaunayTriangulationWithConstraints");
        if (exact) {
            rytest::ConstraintCheckOptions options;
            options.allowMissing = !split;
            // Integer input keeps the band from blurring decisions between input vertices, but
            // not once crossings have added vertices: their coordinates are not integers and the
            // pieces ending there can be short, and a band in doubled-area units lets a chain of
            // short pieces drift from the input segment by much more than the band itself.
            // Nor where the segment box's absolute slack reaches from one vertex to another.
            options.checkGeometry =
                (cm->band == 0.0 || int(cm->vertices.size()) == n) && !withinBoxSlack(cm->vertices);
            // An edge may also name a vertex made at an earlier crossing (the range check is
            // against the vertex list at the time): such edges may or may not have gone in.
            std::vector<PkMeshEdge> valid, named;
            for (const PkMeshEdge& e : edges) {
                if (e.EdgeIndex1() < 0) continue;
                if (e.EdgeIndex2() < n) valid.push_back(e);
                if (e.EdgeIndex2() < int(cm->vertices.size())) named.push_back(e);
            }
            if (split) {
                options.requiredSegments = valid;
                options.inputSegments = named;
                options.inputVertexCount = n;
            } else if (!valid.empty()) {
                options.requiredSegments.push_back(valid.back());
            }
            std::vector<std::string> violations = rytest::checkConstraintRecords(*cm, options);
            violations.erase(
                std::remove_if(violations.begin(),
                               violations.end(),
                               [&](const std::string& v) { return coveredAfterAll(*cm, v); }),
                violations.end());
            if (!violations.empty()) {
                if (std::getenv("RY_FUZZ_VERBOSE")) {
                    for (std::size_t v = 0; v < cm->vertices.size(); ++v) {
                        const double* p = vertexXY(cm->vertices[v]);
                        std::fprintf(stderr, "vertex %zu: %.17g %.17g\n", v, p[0], p[1]);
                    }
                    for (const auto& o : cm->constraintOrigins) {
                        for (const PkMeshEdge& e : o.second) {
                            std::fprintf(stderr,
                                         "piece %d %d from %d %d\n",
                                         o.first.EdgeIndex1(),
                                         o.first.EdgeIndex2(),
                                         e.EdgeIndex1(),
                                         e.EdgeIndex2());
                        }
                    }
                }
                finding("constraint records:\n" + formatViolations(violations));
            }
        }
    } else if (exact && !lowered && s1 == StatusOk && d.pointTolerance == 1e-10 &&
               cm->vertices.size() == std::size_t(n) && smallIntegerXY(points)) {
        // Small integers with no crossing vertex yet: a vertex off a line lies at least 2^-21
        // from it, so no crossing comes within the 1e-10 of an end that refuses it, and no
        // determinant lies near a threshold: a constraint cannot fail. (With a far point, a
        // constraint can pass a vertex closer than 1e-10, and then its crossing counts as that
        // end: StatusConstraintFailed, as documented.)
        finding("constrained call failed with status " + std::to_string(int(s2)) +
                " on integer input");
    }

    if (std::getenv("RY_FUZZ_VERBOSE")) {
        std::fprintf(
            stderr,
            "points %d edges %zu options %u band %g exact %d: status %d / %d, %zu vertices\n",
            n,
            edges.size(),
            unsigned(d.flags & 3),
            band,
            int(exact),
            int(s1),
            int(s2),
            cm->vertices.size());
    }

    RyTriangulation cdtCopy(cdt);
    requireSameRecord(*cm, *RyTriangulationAccess::impl(cdtCopy));
    cdt.deleteOuterTrianglesAndHoles();
    cdtCopy.deleteGhostTriangle();
    if (s2 == StatusOk && exact && !lowered) {
        checkHoleRemoval(*cm);
        checkGhostRemoval(*RyTriangulationAccess::impl(cdtCopy));
    }
    // Assignment over a used object, then the getters.
    plainCopy = cdt;
    require(plainCopy.getMeshTriangles().size() == cdt.getMeshTriangles().size() &&
                plainCopy.getMeshVertices().size() == cdt.getMeshVertices().size(),
            "assignment lost part of the state");
    return 0;
}
