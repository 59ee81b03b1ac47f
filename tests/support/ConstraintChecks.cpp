#include "support/ConstraintChecks.h"

#include <algorithm>
#include <cmath>
#include <sstream>

#include "mesh/LocalIndex.h"
#include "mesh/RyTriangulationImpl.h"

namespace rytest {

namespace {

/// Largest |x| or |y| of the mesh's vertices.
double coordinateMagnitude(const RyTriangulationImpl& mesh) {
    double magnitude = 0.0;
    for (const PkMeshPoint3d& v : mesh.vertices) {
        magnitude = std::max({magnitude, std::fabs(vertexXY(v)[0]), std::fabs(vertexXY(v)[1])});
    }
    return magnitude;
}

/// Projects P onto the segment A-B: `along` (0 at A, 1 at B) and `off` (distance to the line),
/// relative to the segment's length. `slack` is the rounding of positions made at crossings,
/// relative to that length: a crossing is computed from the ends of the segments that cross,
/// which may lie far away, so its rounding is a few thousand ulps of the mesh's largest
/// coordinate `magnitude`, however short the piece it ends.
void projectOnSegment(const double* A,
                      const double* B,
                      const double* P,
                      double magnitude,
                      double& along,
                      double& off,
                      double& slack) {
    const double dx = B[0] - A[0], dy = B[1] - A[1];
    const double len2 = dx * dx + dy * dy;
    const double px = P[0] - A[0], py = P[1] - A[1];
    along = (px * dx + py * dy) / len2;
    off = std::fabs(px * dy - py * dx) / len2;
    slack = 0x1p-40 * magnitude / std::sqrt(len2);
}

std::string edgeText(const PkMeshEdge& e) {
    return "(" + std::to_string(e.EdgeIndex1()) + ", " + std::to_string(e.EdgeIndex2()) + ")";
}

/// Edges of the live real triangles, as a set and as a neighbour list per vertex.
class MeshEdges {
public:
    explicit MeshEdges(const RyTriangulationImpl& mesh)
        : m(mesh), magnitude(coordinateMagnitude(mesh)), around(mesh.vertices.size()) {
        std::vector<char> live(m.triangles.size(), 1);
        for (int f : m.freeTriangles) {
            if (f >= 0 && f < int(live.size())) live[std::size_t(f)] = 0;
        }
        const int nv = int(m.vertices.size());
        for (std::size_t t = 0; t < m.triangles.size(); ++t) {
            const int* v = triVerts(m.triangles[t]);
            if (!live[t] || v[0] < 0 || v[1] < 0 || v[2] < 0) continue;
            if (v[0] >= nv || v[1] >= nv || v[2] >= nv) continue;
            for (int k = 0; k < 3; ++k) {
                const int a = v[k], b = v[nextLocalIndex(k)];
                if (edges.insert(PkMeshEdge(a, b)).second) {
                    around[std::size_t(a)].push_back(b);
                    around[std::size_t(b)].push_back(a);
                }
            }
        }
    }

    bool has(const PkMeshEdge& e) const { return edges.count(e) != 0; }

    /// Position of v along a->b (0 at a, 1 at b), its distance to the line and the rounding
    /// slack, all relative to the segment's length.
    void project(int v, int a, int b, double& along, double& off, double& slack) const {
        projectOnSegment(vertexXY(m.vertices[std::size_t(a)]),
                         vertexXY(m.vertices[std::size_t(b)]),
                         vertexXY(m.vertices[std::size_t(v)]),
                         magnitude,
                         along,
                         off,
                         slack);
    }

    /// Pieces from a to b along constraint edges of the mesh whose inner vertices lie on the
    /// segment, each step to the nearest such vertex farther along; empty when stuck.
    std::vector<PkMeshEdge> path(int a, int b, double tol) const {
        std::vector<PkMeshEdge> pieces;
        const int nv = int(m.vertices.size());
        if (a < 0 || b < 0 || a >= nv || b >= nv || a == b) return pieces;
        int v = a;
        double at = 0.0;
        for (int guard = 0; v != b && guard <= nv; ++guard) {
            int best = -1;
            double bestAlong = 2.0;
            for (int w : around[std::size_t(v)]) {
                if (m.constraintEdges.count(PkMeshEdge(v, w)) == 0) continue;
                double along = 1.0, off = 0.0, slack = 0.0;
                if (w != b) project(w, a, b, along, off, slack);
                if (off > tol + slack || along <= at || along > 1.0 + tol + slack) continue;
                if (along < bestAlong) {
                    best = w;
                    bestAlong = along;
                }
            }
            if (best < 0) return {};
            pieces.push_back(PkMeshEdge(v, best));
            v = best;
            at = bestAlong;
        }
        if (v != b) return {};
        return pieces;
    }

private:
    const RyTriangulationImpl& m;
    double magnitude;
    EdgeSet edges;
    std::vector<std::vector<int>> around;
};

/// Whether v lies on the origin segment o. A vertex made at a crossing (index `madeFrom` or
/// above) was computed as the crossing of o's line with the crossing segment's line, so its
/// rounding along o grows as 1 / sin of the angle between the two: at nearly parallel lines it
/// can land beyond o's ends. That angle is read off the constraint edges at v that are not
/// pieces of o (the pieces of the crossing segment).
bool onOrigin(
    const RyTriangulationImpl& mesh, int v, const PkMeshEdge& o, int madeFrom, double tol) {
    const int nv = int(mesh.vertices.size());
    const int a = o.EdgeIndex1(), b = o.EdgeIndex2();
    if (v < 0 || a < 0 || b < 0 || v >= nv || a >= nv || b >= nv || a == b) return false;
    const double* A = vertexXY(mesh.vertices[std::size_t(a)]);
    const double* B = vertexXY(mesh.vertices[std::size_t(b)]);
    const double* P = vertexXY(mesh.vertices[std::size_t(v)]);
    double along, off, slack;
    projectOnSegment(A, B, P, coordinateMagnitude(mesh), along, off, slack);
    if (off > tol + slack) return false;
    double alongSlack = slack;
    const bool within = along >= -tol - slack && along <= 1.0 + tol + slack;
    if (!within && v >= madeFrom) {
        const double dx = B[0] - A[0], dy = B[1] - A[1];
        double sine = 1.0;
        for (const PkMeshEdge& e : mesh.constraintEdges) {
            const int x = e.EdgeIndex1() == v   ? e.EdgeIndex2()
                          : e.EdgeIndex2() == v ? e.EdgeIndex1()
                                                : -1;
            if (x < 0 || x >= nv) continue;
            const auto found = mesh.constraintOrigins.find(e);
            if (found != mesh.constraintOrigins.end() &&
                std::find(found->second.begin(), found->second.end(), o) != found->second.end()) {
                continue;  // a piece of o itself
            }
            const double* X = vertexXY(mesh.vertices[std::size_t(x)]);
            const double ex = X[0] - P[0], ey = X[1] - P[1];
            const double lengths = std::hypot(dx, dy) * std::hypot(ex, ey);
            if (lengths > 0.0) sine = std::min(sine, std::fabs(dx * ey - dy * ex) / lengths);
        }
        alongSlack = sine > 0.0 ? slack / sine : HUGE_VAL;
    }
    return along >= -tol - alongSlack && along <= 1.0 + tol + alongSlack;
}

}  // namespace

bool vertexOnSegment(
    const RyTriangulationImpl& mesh, int v, int a, int b, double relativeTolerance) {
    const int nv = int(mesh.vertices.size());
    if (v < 0 || a < 0 || b < 0 || v >= nv || a >= nv || b >= nv || a == b) return false;
    double along, off, slack;
    projectOnSegment(vertexXY(mesh.vertices[std::size_t(a)]),
                     vertexXY(mesh.vertices[std::size_t(b)]),
                     vertexXY(mesh.vertices[std::size_t(v)]),
                     coordinateMagnitude(mesh),
                     along,
                     off,
                     slack);
    const double tol = relativeTolerance + slack;
    return off <= tol && along >= -tol && along <= 1.0 + tol;
}

std::vector<PkMeshEdge> constraintPath(const RyTriangulationImpl& mesh,
                                       int a,
                                       int b,
                                       double relativeTolerance) {
    return MeshEdges(mesh).path(a, b, relativeTolerance);
}

std::vector<std::string> checkConstraintRecords(const RyTriangulationImpl& mesh,
                                                const ConstraintCheckOptions& options) {
    std::vector<std::string> out;
    auto add = [&](const std::string& s) {
        if (out.size() < 200) out.push_back(s);
    };
    const MeshEdges edges(mesh);
    const int nv = int(mesh.vertices.size());
    const double tol = options.relativeTolerance;
    const int madeFrom = std::max(options.inputVertexCount, 0);

    for (const PkMeshEdge& e : mesh.constraintEdges) {
        const int a = e.EdgeIndex1(), b = e.EdgeIndex2();
        if (a < 0 || b >= nv || a == b) {
            add("constraint edge " + edgeText(e) + " does not join two vertices");
            continue;
        }
        if (!options.allowMissing && !edges.has(e)) {
            add("constraint edge " + edgeText(e) + " is not an edge of a real triangle");
        }
    }

    for (const auto& entry : mesh.constraintRepeats) {
        if (mesh.constraintEdges.count(entry.first) == 0) {
            add("repeat count of " + edgeText(entry.first) + " but it is no constraint edge");
        }
        if (entry.second < 1) {
            add("repeat count of " + edgeText(entry.first) + " is " + std::to_string(entry.second));
        }
    }

    for (const auto& entry : mesh.constraintOrigins) {
        const PkMeshEdge& piece = entry.first;
        const std::vector<PkMeshEdge>& list = entry.second;
        if (mesh.constraintEdges.count(piece) == 0) {
            add("origins of " + edgeText(piece) + " but it is no constraint edge");
        }
        if (list.empty()) add("empty origin list of " + edgeText(piece));
        for (std::size_t i = 0; i < list.size(); ++i) {
            const PkMeshEdge& o = list[i];
            if (o == piece) add("piece " + edgeText(piece) + " lists itself as its origin");
            for (std::size_t j = i + 1; j < list.size(); ++j) {
                if (list[j] == o) {
                    add("origin " + edgeText(o) + " listed twice for " + edgeText(piece));
                }
            }
            // A piece is part of every longer piece it was cut or split from.
            const bool inside = onOrigin(mesh, piece.EdgeIndex1(), o, madeFrom, tol) &&
                                onOrigin(mesh, piece.EdgeIndex2(), o, madeFrom, tol);
            if (options.checkGeometry && !inside) {
                add("piece " + edgeText(piece) + " does not lie on its origin " + edgeText(o));
            }
        }
    }

    auto valid = [&](const PkMeshEdge& s) {
        return s.EdgeIndex1() >= 0 && s.EdgeIndex2() < nv && s.EdgeIndex1() != s.EdgeIndex2();
    };
    if (!options.checkGeometry) return out;
    for (const PkMeshEdge& s : options.requiredSegments) {
        if (!valid(s)) continue;  // skipped by the insertion as well
        if (edges.path(s.EdgeIndex1(), s.EdgeIndex2(), tol).empty()) {
            add("segment " + edgeText(s) + " is not covered by constraint edges of the mesh");
        }
    }

    if (options.inputVertexCount >= 0) {
        for (int v = options.inputVertexCount; v < nv; ++v) {
            int on = 0;
            for (const PkMeshEdge& s : options.inputSegments) {
                if (valid(s) && vertexOnSegment(mesh, v, s.EdgeIndex1(), s.EdgeIndex2(), tol)) ++on;
            }
            if (on < 2) {
                std::ostringstream text;
                text.precision(17);
                const double* p = vertexXY(mesh.vertices[std::size_t(v)]);
                text << "crossing vertex " << v << " (" << p[0] << ", " << p[1] << ") lies on "
                     << on << " input segment(s), not two";
                add(text.str());
            }
        }
    }
    return out;
}

namespace {
__extension__ typedef unsigned __int128 U128;
}  // namespace

void ExactSum::addShifted(std::uint64_t low, std::uint64_t high, int bit, bool subtract) {
    const U128 value = (U128(high) << 64) | low;
    // value < 2^106 spans at most three limbs from limb bit / 64 on.
    const int first = bit / 64;
    const int shift = bit % 64;
    std::uint64_t parts[3];
    parts[0] = std::uint64_t(value << shift);
    const U128 upper = shift == 0 ? (value >> 64) : (value >> (64 - shift));
    parts[1] = std::uint64_t(upper);
    parts[2] = std::uint64_t(upper >> 64);
    U128 carry = 0;  // carry (add) or borrow (subtract)
    for (int i = first; i < kLimbs; ++i) {
        const std::uint64_t part = i - first < 3 ? parts[i - first] : 0;
        if (i - first >= 3 && carry == 0) break;
        const U128 limb = limbs[std::size_t(i)];
        if (subtract) {
            const U128 take = (U128)part + carry;
            carry = take > limb ? 1 : 0;
            limbs[std::size_t(i)] = std::uint64_t(limb - take);
        } else {
            const U128 sum = limb + part + carry;
            carry = sum >> 64;
            limbs[std::size_t(i)] = std::uint64_t(sum);
        }
    }
}

void ExactSum::addProduct(double a, double b, int sign) {
    if (a == 0.0 || b == 0.0) return;
    int ea = 0, eb = 0;
    const double fa = std::frexp(a, &ea);  // a = fa * 2^ea, 0.5 <= |fa| < 1
    const double fb = std::frexp(b, &eb);
    const std::int64_t ma = std::int64_t(std::ldexp(fa, 53));  // exact: 53 significant bits
    const std::int64_t mb = std::int64_t(std::ldexp(fb, 53));
    const bool negative = ((ma < 0) != (mb < 0)) != (sign < 0);
    const U128 product =
        (U128)std::uint64_t(ma < 0 ? -ma : ma) * (U128)std::uint64_t(mb < 0 ? -mb : mb);
    addShifted(
        std::uint64_t(product), std::uint64_t(product >> 64), ea + eb - 106 + kOrigin, negative);
}

void ExactSum::addTwiceArea(const double* a, const double* b, const double* c, int sign) {
    // (b - a) x (c - a) expanded into products of the coordinates themselves, so nothing rounds.
    addProduct(a[0], b[1], sign);
    addProduct(a[1], b[0], -sign);
    addProduct(b[0], c[1], sign);
    addProduct(b[1], c[0], -sign);
    addProduct(c[0], a[1], sign);
    addProduct(c[1], a[0], -sign);
}

void ExactSum::addTwiceArea(const std::vector<std::array<double, 2>>& ring, int sign) {
    for (std::size_t i = 0; i < ring.size(); ++i) {
        const std::array<double, 2>& p = ring[i];
        const std::array<double, 2>& q = ring[(i + 1) % ring.size()];
        addProduct(p[0], q[1], sign);
        addProduct(p[1], q[0], -sign);
    }
}

int ExactSum::sign() const {
    if (limbs[kLimbs - 1] >> 63) return -1;
    for (std::uint64_t l : limbs) {
        if (l != 0) return 1;
    }
    return 0;
}

double ExactSum::approximate() const {
    std::array<std::uint64_t, kLimbs> magnitude = limbs;
    const bool negative = sign() < 0;
    if (negative) {  // two's complement negation
        U128 carry = 1;
        for (std::uint64_t& l : magnitude) {
            const U128 v = (U128)std::uint64_t(~l) + carry;
            l = std::uint64_t(v);
            carry = v >> 64;
        }
    }
    double value = 0.0;
    for (int i = kLimbs - 1; i >= 0; --i) {
        value += std::ldexp(double(magnitude[std::size_t(i)]), 64 * i - kOrigin);
    }
    return negative ? -value : value;
}

}  // namespace rytest
