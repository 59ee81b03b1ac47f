// The checks, in the order a broken mesh usually shows them: element records, adjacency,
// orientation, ghost closure of the hull, vertex back-links, local Delaunay, Euler count.
//
// Geometry goes through the library's exact predicates. Coordinates whose largest magnitude lies
// outside the predicates' exact range [2^-200, 2^200] are first scaled by one power of two
// (exact, so every sign is kept) and the band with them.
#include "support/MeshValidator.h"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <unordered_set>

#include "mesh/LocalIndex.h"
#include "mesh/RyTriangulationImpl.h"

namespace {

constexpr std::size_t kMaxViolations = 200;

class Report {
public:
    template <class... Parts>
    void add(const Parts&... parts) {
        if (list.size() >= kMaxViolations) {
            ++dropped;
            return;
        }
        std::ostringstream out;
        out.precision(17);
        (out << ... << parts);
        list.push_back(out.str());
    }
    std::vector<std::string> take() {
        if (dropped > 0) list.push_back("... and " + std::to_string(dropped) + " more violations");
        return std::move(list);
    }

private:
    std::vector<std::string> list;
    std::size_t dropped = 0;
};

class Validator {
public:
    Validator(const RyTriangulationImpl& mesh, const MeshValidatorOptions& options)
        : m(mesh), opt(options) {}

    std::vector<std::string> run() {
        prepareCoordinates();
        const int nt = int(m.triangles.size());
        live.assign(std::size_t(nt), 1);
        for (int f : m.freeTriangles) {
            if (f < 0 || f >= nt) {
                r.add("freeTriangles holds ", f, ", outside the triangle list");
            } else {
                live[std::size_t(f)] = 0;
            }
        }
        sound.assign(std::size_t(nt), 0);
        orientation.assign(std::size_t(nt), 0.0);
        inMesh.assign(m.vertices.size(), 0);

        for (int t = 0; t < nt; ++t) {
            if (live[std::size_t(t)]) checkRecord(t);
        }
        for (int t = 0; t < nt; ++t) {
            if (sound[std::size_t(t)]) checkAdjacency(t);
        }
        checkVertices();
        checkHull();
        if (opt.checkDelaunay) checkDelaunay();
        if (opt.checkEuler) checkEuler();
        if (opt.checkConstraints) {
            for (std::string& v : checkConstraintEdges(m)) r.add(v);
        }
        return r.take();
    }

private:
    const RyTriangulationImpl& m;
    MeshValidatorOptions opt;
    Report r;

    std::vector<double> xy;           // scaled x, y of every vertex
    double orientBand = 0.0;          // band for twice-area values at the scaled coordinates
    double circleBand = 0.0;          // band for in-circle values at the scaled coordinates
    std::vector<char> live;           // not in freeTriangles
    std::vector<char> sound;          // live, vertex indices in range, at most one ghost vertex
    std::vector<double> orientation;  // orient2d of each sound real triangle
    std::vector<char> inMesh;         // vertex is a corner of some sound triangle
    int realCount = 0;
    std::vector<int> ghosts;

    const double* at(int v) const { return &xy[2 * std::size_t(v)]; }
    const PkMeshTriangle& tri(int t) const { return m.triangles[std::size_t(t)]; }
    bool isGhostTriangle(int t) const {
        const int* v = triVerts(tri(t));
        return v[0] == GhostVertex || v[1] == GhostVertex || v[2] == GhostVertex;
    }

    void prepareCoordinates() {
        double band = opt.band >= 0.0 ? opt.band : m.cdtTolerance;
        if (!(band >= 0.0)) band = 0.0;
        double maxAbs = 0.0;
        for (const PkMeshPoint3d& p : m.vertices) {
            const double* q = vertexXY(p);
            if (std::isfinite(q[0])) maxAbs = std::max(maxAbs, std::fabs(q[0]));
            if (std::isfinite(q[1])) maxAbs = std::max(maxAbs, std::fabs(q[1]));
        }
        // The predicates are exact for magnitudes in [2^-200, 2^200], what the library accepts:
        // such coordinates are used as they are, whatever their spread (scaling the largest down
        // would push the smallest out of that range). Beyond it the smallest power of two that
        // brings the largest back is used.
        int shift = 0;
        if (maxAbs > 0.0 && (maxAbs > 0x1p200 || maxAbs < 0x1p-200)) {
            int e = 0;
            std::frexp(maxAbs, &e);  // maxAbs < 2^e
            shift = maxAbs > 0x1p200 ? 200 - e : -e;
        }
        xy.resize(2 * m.vertices.size());
        for (std::size_t i = 0; i < m.vertices.size(); ++i) {
            const double* q = vertexXY(m.vertices[i]);
            xy[2 * i] = std::ldexp(q[0], shift);
            xy[2 * i + 1] = std::ldexp(q[1], shift);
        }
        orientBand = std::ldexp(band, 2 * shift);
        circleBand = std::ldexp(band, 4 * shift);
    }

    void checkRecord(int t) {
        const PkMeshTriangle& tr = tri(t);
        const int* v = triVerts(tr);
        const int nv = int(m.vertices.size());
        int ghostCount = 0;
        bool ok = true;
        for (int k = 0; k < 3; ++k) {
            if (v[k] == GhostVertex) {
                ++ghostCount;
            } else if (v[k] < 0 || v[k] >= nv) {
                r.add("triangle ", t, ": vertex ", k, " is ", v[k], ", not a vertex index");
                ok = false;
            }
        }
        if (ghostCount > 1) {
            r.add("triangle ", t, " holds the ghost vertex ", ghostCount, " times");
            ok = false;
        }
        if (v[0] == v[1] || v[1] == v[2] || v[2] == v[0]) {
            r.add("triangle ", t, " repeats a vertex: (", v[0], ", ", v[1], ", ", v[2], ")");
            ok = false;
        }
        const std::uint32_t flags = PkMeshFields::flags(tr);
        if (bool(flags & bAux) != (ghostCount == 1)) {
            r.add("triangle ",
                  t,
                  ": bAux is ",
                  (flags & bAux),
                  " but it holds the ghost vertex ",
                  ghostCount,
                  " times");
        }
        if ((flags & ~bAux) != 0) r.add("triangle ", t, ": flag bits other than bAux set: ", flags);
        if (!ok) return;

        sound[std::size_t(t)] = 1;
        for (int k = 0; k < 3; ++k) {
            if (v[k] >= 0) inMesh[std::size_t(v[k])] = 1;
        }
        if (ghostCount == 1) {
            ghosts.push_back(t);
            return;
        }
        ++realCount;
        const double o = orient2d(at(v[0]), at(v[1]), at(v[2]));
        orientation[std::size_t(t)] = o;
        if (!(o >= 0.0)) {
            r.add("triangle ",
                  t,
                  " (",
                  v[0],
                  ", ",
                  v[1],
                  ", ",
                  v[2],
                  ") is not counter-clockwise: orient2d = ",
                  o);
        } else if (o == 0.0 && !opt.allowDegenerate) {
            r.add("triangle ", t, " (", v[0], ", ", v[1], ", ", v[2], ") has zero area");
        }
    }

    void checkAdjacency(int t) {
        const PkMeshTriangle& tr = tri(t);
        const int* v = triVerts(tr);
        const int* n = triNbrs(tr);
        const int nt = int(m.triangles.size());
        for (int k = 0; k < 3; ++k) {
            const int a = v[k], b = v[nextLocalIndex(k)];
            const int u = n[k];
            if (u < 0 || u >= nt) {
                r.add("triangle ", t, ": neighbour ", k, " is ", u, ", not a triangle index");
                continue;
            }
            if (u == t) {
                r.add("triangle ", t, " is its own neighbour ", k);
                continue;
            }
            if (!live[std::size_t(u)]) {
                r.add("triangle ", t, ": neighbour ", k, " is ", u, ", a released slot");
                continue;
            }
            const int* uv = triVerts(tri(u));
            int j = 0;
            while (j < 3 && !(uv[j] == b && uv[nextLocalIndex(j)] == a)) ++j;
            if (j == 3) {
                r.add("triangle ",
                      t,
                      ": neighbour ",
                      k,
                      " = ",
                      u,
                      " does not hold the edge (",
                      b,
                      ", ",
                      a,
                      ")");
                continue;
            }
            if (triNbrs(tri(u))[j] != t) {
                r.add("triangle ",
                      t,
                      ": neighbour ",
                      k,
                      " = ",
                      u,
                      " links back to ",
                      triNbrs(tri(u))[j],
                      " across (",
                      b,
                      ", ",
                      a,
                      ")");
            }
            if (a >= 0 && b >= 0 && isGhostTriangle(t) && isGhostTriangle(u)) {
                r.add("ghost triangles ", t, " and ", u, " share the real edge (", a, ", ", b, ")");
            }
        }
    }

    void checkVertices() {
        const int nt = int(m.triangles.size());
        for (int i = 0; i < int(m.vertices.size()); ++i) {
            const int t = vertexTriangle(m.vertices[std::size_t(i)]);
            if (t == -1 && opt.skipUninserted && !inMesh[std::size_t(i)]) continue;
            if (t < 0 || t >= nt || !live[std::size_t(t)]) {
                r.add("vertex ", i, ": triangle index ", t, " names no live triangle");
                continue;
            }
            const int* v = triVerts(tri(t));
            if (v[0] != i && v[1] != i && v[2] != i) {
                r.add("vertex ",
                      i,
                      ": triangle ",
                      t,
                      " (",
                      v[0],
                      ", ",
                      v[1],
                      ", ",
                      v[2],
                      ") does not have it as a corner");
            }
        }
    }

    // Ghost triangle (x, y, G) holds the hull edge y -> x; its neighbour across (y, G) holds the
    // next hull edge z -> y, so following those links walks the hull clockwise.
    void checkHull() {
        if (ghosts.empty()) {
            if (realCount > 0) r.add("the mesh has real triangles but no ghost triangles");
            return;
        }
        std::vector<char> seen(m.triangles.size(), 0);
        std::unordered_set<int> hullVertices;
        for (int g : ghosts) {
            int x, y;
            if (!hullEdge(g, x, y)) continue;
            if (!hullVertices.insert(y).second) {
                r.add("hull vertex ", y, " starts two hull edges (ghost triangle ", g, ")");
            }
            const int next = nextGhost(g);
            if (next < 0) continue;
            int y2, z;
            if (!hullEdge(next, y2, z) || y2 != y) {
                r.add("ghost triangle ",
                      g,
                      ": its neighbour across (",
                      y,
                      ", G) is ",
                      next,
                      ", not the next ghost triangle");
                continue;
            }
            const double o = orient2d(at(x), at(y), at(z));
            if (o > orientBand) {
                r.add("hull is reflex at vertex ",
                      y,
                      " between ghost triangles ",
                      g,
                      " and ",
                      next,
                      ": orient2d(",
                      x,
                      ", ",
                      y,
                      ", ",
                      z,
                      ") = ",
                      o);
            }
        }
        // One cycle through every ghost triangle: the hull is a single closed curve.
        int g = ghosts.front();
        std::size_t steps = 0;
        while (g >= 0 && !seen[std::size_t(g)] && steps <= ghosts.size()) {
            seen[std::size_t(g)] = 1;
            g = nextGhost(g);
            ++steps;
        }
        if (g != ghosts.front() || steps != ghosts.size()) {
            r.add("the ghost triangles do not form one cycle: from ",
                  ghosts.front(),
                  " the walk ",
                  "covers ",
                  steps,
                  " of ",
                  ghosts.size(),
                  " and stops at ",
                  g);
        }
    }

    /// The ghost triangle rotated to (x, y, G); false when it is not a sound ghost triangle.
    bool hullEdge(int g, int& x, int& y) const {
        if (g < 0 || g >= int(m.triangles.size()) || !sound[std::size_t(g)] ||
            !isGhostTriangle(g)) {
            return false;
        }
        const int* v = triVerts(tri(g));
        int k = 0;
        while (v[k] != GhostVertex) ++k;
        x = v[nextLocalIndex(k)];
        y = v[prevLocalIndex(k)];
        return true;
    }

    int nextGhost(int g) const {
        const int* v = triVerts(tri(g));
        int k = 0;
        while (v[k] != GhostVertex) ++k;
        const int next = triNbrs(tri(g))[prevLocalIndex(k)];  // across (y, G)
        if (next < 0 || next >= int(m.triangles.size()) || !sound[std::size_t(next)] ||
            !isGhostTriangle(next)) {
            return -1;
        }
        return next;
    }

    void checkDelaunay() {
        const int nt = int(m.triangles.size());
        for (int t = 0; t < nt; ++t) {
            if (!sound[std::size_t(t)] || isGhostTriangle(t) || orientation[std::size_t(t)] <= 0) {
                continue;
            }
            const int* v = triVerts(tri(t));
            const int* n = triNbrs(tri(t));
            for (int k = 0; k < 3; ++k) {
                const int u = n[k];
                if (u <= t || u >= nt || !sound[std::size_t(u)] || isGhostTriangle(u) ||
                    orientation[std::size_t(u)] <= 0) {
                    continue;
                }
                const int a = v[k], b = v[nextLocalIndex(k)], c = v[prevLocalIndex(k)];
                const int* uv = triVerts(tri(u));
                int j = 0;
                while (j < 3 && !(uv[j] == b && uv[nextLocalIndex(j)] == a)) ++j;
                if (j == 3) continue;  // already reported as an adjacency fault
                if (m.constraintEdges.count(PkMeshEdge(a, b)) != 0) continue;
                const int d = uv[prevLocalIndex(j)];
                // The two determinants have the same exact value; take the smaller estimate so
                // rounding at the band's edge never reports an edge the flip test accepted.
                const double fromT = incircle(at(v[0]), at(v[1]), at(v[2]), at(d));
                const double fromU = incircle(at(uv[0]), at(uv[1]), at(uv[2]), at(c));
                const double value = std::min(fromT, fromU);
                if (!(value <= circleBand)) {
                    r.add("edge (",
                          a,
                          ", ",
                          b,
                          ") between triangles ",
                          t,
                          " and ",
                          u,
                          " is not locally Delaunay: vertex ",
                          d,
                          " lies inside the circle of (",
                          v[0],
                          ", ",
                          v[1],
                          ", ",
                          v[2],
                          "), incircle = ",
                          value);
                }
            }
        }
    }

    void checkEuler() {
        if (realCount == 0 && ghosts.empty()) return;  // no mesh built
        long long n = 0;
        for (char c : inMesh) n += c;
        const long long h = (long long)ghosts.size();
        if (realCount != 2 * n - h - 2) {
            r.add("Euler count: ",
                  realCount,
                  " real triangles for ",
                  n,
                  " vertices and ",
                  h,
                  " hull vertices; expected ",
                  2 * n - h - 2);
        }
    }
};

}  // namespace

std::vector<std::string> validateMesh(const RyTriangulationImpl& mesh,
                                      const MeshValidatorOptions& options) {
    return Validator(mesh, options).run();
}

std::vector<std::string> checkConstraintEdges(const RyTriangulationImpl& mesh) {
    std::vector<char> live(mesh.triangles.size(), 1);
    for (int f : mesh.freeTriangles) {
        if (f >= 0 && f < int(live.size())) live[std::size_t(f)] = 0;
    }
    EdgeSet edges;
    for (std::size_t t = 0; t < mesh.triangles.size(); ++t) {
        const int* v = triVerts(mesh.triangles[t]);
        if (!live[t] || v[0] < 0 || v[1] < 0 || v[2] < 0) continue;
        for (int k = 0; k < 3; ++k) edges.insert(PkMeshEdge(v[k], v[nextLocalIndex(k)]));
    }
    std::vector<std::string> violations;
    for (const PkMeshEdge& e : mesh.constraintEdges) {
        if (edges.count(e) == 0) {
            violations.push_back("constraint edge (" + std::to_string(e.EdgeIndex1()) + ", " +
                                 std::to_string(e.EdgeIndex2()) +
                                 ") is not an edge of a real triangle");
        }
    }
    return violations;
}

std::string formatViolations(const std::vector<std::string>& violations, std::size_t limit) {
    std::string out = std::to_string(violations.size()) + " mesh violation(s):";
    for (std::size_t i = 0; i < violations.size() && i < limit; ++i) {
        out += "\n  ";
        out += violations[i];
    }
    if (violations.size() > limit) out += "\n  ...";
    return out;
}
