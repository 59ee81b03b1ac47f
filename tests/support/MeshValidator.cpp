// Geometry goes through the library's exact predicates, so every verdict on orientation, hull
// convexity and local Delaunay is exact (up to the band the caller names). Positions made at
// constraint crossings are rounded; the segment tests allow for that rounding.
#include "support/MeshValidator.h"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <unordered_map>
#include <unordered_set>

#include "mesh/LocalIndex.h"
#include "mesh/RyTriangulationImpl.h"

namespace rytest {

namespace {

class Report {
public:
    template <class... Parts>
    void add(const Parts&... parts) {
        if (++count > 20) return;
        std::ostringstream out;
        out.precision(17);
        (out << ... << parts);
        text += out.str() + "\n";
    }
    std::string take() {
        if (count > 20) text += "... and " + std::to_string(count - 20) + " more\n";
        return text;
    }

private:
    std::size_t count = 0;
    std::string text;
};

long long key(int a, int b) {
    return (static_cast<long long>(a) << 32) | static_cast<unsigned>(b);
}

/// Position of p along a->b (0 at a, 1 at b), its distance to the line, and the rounding slack
/// of a crossing, all relative to the segment's length. A crossing is computed from the ends of
/// the segments that cross, which may lie far away: its rounding is a few thousand ulps of the
/// largest coordinate however short the piece it ends.
void project(const double* p, const double* a, const double* b, double magnitude, double out[3]) {
    const double dx = b[0] - a[0], dy = b[1] - a[1], len2 = dx * dx + dy * dy;
    const double px = p[0] - a[0], py = p[1] - a[1];
    out[0] = (px * dx + py * dy) / len2;
    out[1] = std::fabs(px * dy - py * dx) / len2;
    out[2] = 1e-9 + 0x1p-40 * magnitude / std::sqrt(len2);
}

/// The checks both mesh forms share, on real triangles given as vertex triples.
class Geometry {
public:
    Geometry(const std::vector<const double*>& xy, const Checks& checks, double band, Report& r)
        : at(xy), c(checks), band(band), r(r) {
        for (const double* p : xy) {
            for (int k = 0; k < 2; ++k) {
                if (std::isfinite(p[k])) magnitude = std::max(magnitude, std::fabs(p[k]));
            }
        }
    }

    /// Orientation (when `strict`, zero area too) and each directed edge used once.
    void triangles(const std::vector<std::array<int, 3>>& tris, bool strict) {
        for (std::size_t t = 0; t < tris.size(); ++t) {
            const std::array<int, 3>& v = tris[t];
            const double o = orient2d(at[v[0]], at[v[1]], at[v[2]]);
            if (c.geometry && !(o > 0.0) && (strict || !(o == 0.0))) {
                r.add(
                    "triangle (", v[0], ", ", v[1], ", ", v[2], ") is not counter-clockwise: ", o);
            }
            for (int k = 0; k < 3; ++k) {
                if (!directed.emplace(key(v[k], v[nextLocalIndex(k)]), int(t)).second) {
                    r.add("edge ", v[k], "->", v[nextLocalIndex(k)], " is used twice");
                }
            }
        }
    }

    /// Each edge between two triangles, unless `fixed` holds it, passes the in-circle test.
    template <class Fixed>
    void delaunay(const std::vector<std::array<int, 3>>& tris, Fixed fixed) {
        if (!c.geometry || !c.delaunay) return;
        for (const std::array<int, 3>& v : tris) {
            for (int k = 0; k < 3; ++k) {
                const int a = v[k], b = v[nextLocalIndex(k)], p = v[prevLocalIndex(k)];
                const auto twin = directed.find(key(b, a));
                if (a > b || twin == directed.end() || fixed(a, b)) continue;
                const std::array<int, 3>& u = tris[std::size_t(twin->second)];
                const int d = u[0] + u[1] + u[2] - a - b;
                if (std::max({a, b, p, d}) >= c.crossingsFrom) continue;
                // Both determinants have the same exact value; the smaller estimate keeps
                // rounding at the band's edge from reporting what the flip test accepted.
                const double value = std::min(incircle(at[v[0]], at[v[1]], at[v[2]], at[d]),
                                              incircle(at[u[0]], at[u[1]], at[u[2]], at[p]));
                if (!(value <= band)) {
                    r.add("edge (",
                          a,
                          ", ",
                          b,
                          ") is not locally Delaunay: ",
                          d,
                          " is inside (",
                          v[0],
                          ", ",
                          v[1],
                          ", ",
                          v[2],
                          ") by ",
                          value);
                }
            }
        }
    }

    /// Whether a-b is a chain of `edges` through vertices on the segment; adds its edges.
    bool chain(int a,
               int b,
               const std::unordered_map<int, std::vector<int>>& edges,
               std::unordered_set<long long>& on) {
        std::unordered_map<int, int> from = {{a, a}};
        std::vector<int> stack = {a};
        while (!stack.empty() && from.count(b) == 0) {
            const int v = stack.back();
            stack.pop_back();
            const auto around = edges.find(v);
            if (around == edges.end()) continue;
            for (int w : around->second) {
                if (from.count(w) == 0 && (w == b || onSegment(at[w], at[a], at[b], magnitude))) {
                    from[w] = v;
                    stack.push_back(w);
                }
            }
        }
        if (from.count(b) == 0) return false;
        for (int v = b; v != a; v = from[v])
            on.insert(key(std::min(v, from[v]), std::max(v, from[v])));
        return true;
    }

    const std::vector<const double*>& at;
    const Checks& c;
    double band;
    Report& r;
    double magnitude = 0.0;
    std::unordered_map<long long, int> directed;  // directed edge -> triangle
};

bool validSegment(const PkMeshEdge& s, int n) {
    return s.EdgeIndex1() >= 0 && s.EdgeIndex2() < n;
}

}  // namespace

bool onSegment(const double* p, const double* a, const double* b, double magnitude) {
    double q[3];
    project(p, a, b, magnitude, q);
    return q[1] <= q[2] && q[0] >= -q[2] && q[0] <= 1.0 + q[2];
}

std::string validate(const RyTriangulationImpl& m, const Checks& c) {
    Report r;
    const int nt = int(m.triangles.size()), nv = int(m.vertices.size());
    std::vector<char> live(std::size_t(nt), 1), sound(std::size_t(nt), 0), used(std::size_t(nv), 0);
    for (int f : m.freeTriangles) {
        if (f < 0 || f >= nt) {
            r.add("freeTriangles holds ", f);
        } else {
            live[std::size_t(f)] = 0;
        }
    }
    auto corners = [&](int t) { return triVerts(m.triangles[std::size_t(t)]); };
    auto ghost = [&](int t) {
        const int* v = corners(t);
        return v[0] == GhostVertex || v[1] == GhostVertex || v[2] == GhostVertex;
    };
    std::vector<int> ghosts;
    std::vector<std::array<int, 3>> real;
    for (int t = 0; t < nt; ++t) {
        if (!live[std::size_t(t)]) continue;
        const int* v = corners(t);
        const int g = (v[0] == GhostVertex) + (v[1] == GhostVertex) + (v[2] == GhostVertex);
        bool ok = g <= 1 && v[0] != v[1] && v[1] != v[2] && v[2] != v[0];
        for (int k = 0; k < 3; ++k) ok = ok && (v[k] == GhostVertex || (v[k] >= 0 && v[k] < nv));
        if (!ok) r.add("triangle ", t, " has corners (", v[0], ", ", v[1], ", ", v[2], ")");
        const std::uint32_t flags = PkMeshFields::flags(m.triangles[std::size_t(t)]);
        if (flags != (g == 1 ? bAux : 0u)) r.add("triangle ", t, " has flags ", flags);
        if (!ok) continue;
        sound[std::size_t(t)] = 1;
        for (int k = 0; k < 3; ++k) {
            if (v[k] >= 0) used[std::size_t(v[k])] = 1;
        }
        if (g == 1) {
            ghosts.push_back(t);
        } else {
            real.push_back({v[0], v[1], v[2]});
        }
    }

    // Neighbour k lies across the edge from corner k to corner k+1 and links back.
    for (int t = 0; t < nt; ++t) {
        if (!sound[std::size_t(t)]) continue;
        const int* v = corners(t);
        for (int k = 0; k < 3; ++k) {
            const int a = v[k], b = v[nextLocalIndex(k)],
                      u = triNbrs(m.triangles[std::size_t(t)])[k];
            if (u < 0 || u >= nt || u == t || !sound[std::size_t(u)]) {
                r.add("triangle ", t, ": neighbour ", k, " is ", u);
                continue;
            }
            int j = 0;
            while (j < 3 && !(corners(u)[j] == b && corners(u)[nextLocalIndex(j)] == a)) ++j;
            if (j == 3 || triNbrs(m.triangles[std::size_t(u)])[j] != t) {
                r.add("triangle ",
                      t,
                      ": neighbour ",
                      k,
                      " = ",
                      u,
                      " does not hold (",
                      b,
                      ", ",
                      a,
                      ") or link back");
            } else if (a >= 0 && b >= 0 && ghost(t) && ghost(u)) {
                r.add("ghost triangles ", t, " and ", u, " share a real edge");
            }
        }
    }

    for (int i = 0; i < nv; ++i) {
        const int t = vertexTriangle(m.vertices[std::size_t(i)]);
        if (t == -1 && c.partial && !used[std::size_t(i)]) continue;
        const int* v = t >= 0 && t < nt && live[std::size_t(t)] ? corners(t) : nullptr;
        if (!v || (v[0] != i && v[1] != i && v[2] != i)) {
            r.add("vertex ", i, ": its triangle ", t, " does not hold it");
        }
    }

    std::vector<const double*> at;
    for (const PkMeshPoint3d& p : m.vertices) at.push_back(vertexXY(p));
    const double band = c.band >= 0.0 ? c.band : m.cdtTolerance > 0.0 ? m.cdtTolerance : 0.0;
    Geometry g(at, c, band, r);

    // Ghost (x, y, G) holds the hull edge y -> x; its neighbour across (y, G) the next one,
    // z -> y. Following those links must visit every ghost once and turn convex.
    for (int t : ghosts) {
        const int* v = corners(t);
        const int k = v[0] == GhostVertex ? 0 : v[1] == GhostVertex ? 1 : 2;
        const int x = v[nextLocalIndex(k)], y = v[prevLocalIndex(k)];
        const int next = triNbrs(m.triangles[std::size_t(t)])[prevLocalIndex(k)];
        if (next < 0 || next >= nt || !sound[std::size_t(next)] || !ghost(next)) continue;
        const int* w = corners(next);
        const int j = w[0] == GhostVertex ? 0 : w[1] == GhostVertex ? 1 : 2;
        const int z = w[prevLocalIndex(j)];
        if (c.geometry && w[nextLocalIndex(j)] == y && orient2d(at[x], at[y], at[z]) > band) {
            r.add("the hull turns reflex at vertex ", y);
        }
    }
    if (!ghosts.empty()) {
        std::size_t steps = 0;
        int t = ghosts.front();
        do {
            const int* v = corners(t);
            const int k = v[0] == GhostVertex ? 0 : v[1] == GhostVertex ? 1 : 2;
            t = triNbrs(m.triangles[std::size_t(t)])[prevLocalIndex(k)];
        } while (++steps <= ghosts.size() && t >= 0 && t < nt && sound[std::size_t(t)] &&
                 ghost(t) && t != ghosts.front());
        if (t != ghosts.front() || steps != ghosts.size()) {
            r.add("the ", ghosts.size(), " ghost triangles do not form one cycle");
        }
    } else if (!real.empty()) {
        r.add("real triangles but no ghost triangles");
    }
    if (!c.partial && !(real.empty() && ghosts.empty())) {
        const long long n = std::count(used.begin(), used.end(), 1), h = (long long)ghosts.size();
        if ((long long)real.size() != 2 * n - h - 2) {
            r.add("Euler: ", real.size(), " triangles for ", n, " vertices, ", h, " on the hull");
        }
    }

    g.triangles(real, !c.allowDegenerate);
    g.delaunay(real, [&](int a, int b) { return m.constraintEdges.count(PkMeshEdge(a, b)) != 0; });

    // Constraint records: present in the mesh, repeats counted, and where segments are given
    // (their geometry is then trusted), origins along their pieces.
    const std::vector<PkMeshEdge>& inputs = c.inputs.empty() ? c.required : c.inputs;
    const bool segments = c.geometry && !inputs.empty();
    std::unordered_map<int, std::vector<int>> pieces;
    for (const PkMeshEdge& e : m.constraintEdges) {
        const int a = e.EdgeIndex1(), b = e.EdgeIndex2();
        const bool present =
            a >= 0 && b < nv && g.directed.count(key(a, b)) + g.directed.count(key(b, a));
        if (present) {
            pieces[a].push_back(b);
            pieces[b].push_back(a);
        } else if (!c.allowMissing || a < 0 || b >= nv) {
            r.add("constraint edge (", a, ", ", b, ") is not an edge of the mesh");
        }
    }
    for (const auto& [e, count] : m.constraintRepeats) {
        if (count < 1 || m.constraintEdges.count(e) == 0) {
            r.add("repeat count ", count, " for (", e.EdgeIndex1(), ", ", e.EdgeIndex2(), ")");
        }
    }
    for (const auto& [e, list] : m.constraintOrigins) {
        const int a = e.EdgeIndex1(), b = e.EdgeIndex2();
        bool ok = !list.empty() && m.constraintEdges.count(e) != 0;
        for (std::size_t i = 0; i < list.size() && ok; ++i) {
            const int oa = list[i].EdgeIndex1(), ob = list[i].EdgeIndex2();
            ok = list[i] != e && validSegment(list[i], nv) &&
                 std::count(list.begin(), list.end(), list[i]) == 1;
            double p[3], q[3];
            if (ok && segments && a >= 0 && b < nv) {
                project(at[a], at[oa], at[ob], g.magnitude, p);
                project(at[b], at[oa], at[ob], g.magnitude, q);
                ok = p[1] <= p[2] && q[1] <= q[2];
            }
        }
        if (!ok) r.add("origins of (", a, ", ", b, ") are wrong");
    }
    std::unordered_set<long long> chained;
    for (const PkMeshEdge& s : c.required) {
        if (validSegment(s, nv) && !g.chain(s.EdgeIndex1(), s.EdgeIndex2(), pieces, chained)) {
            r.add("segment (", s.EdgeIndex1(), ", ", s.EdgeIndex2(), ") is not a constraint chain");
        }
    }
    for (int v = std::max(c.crossingsFrom, 0); segments && v < nv; ++v) {
        int on = 0;
        for (const PkMeshEdge& s : inputs) {
            on += validSegment(s, nv) &&
                  onSegment(at[v], at[s.EdgeIndex1()], at[s.EdgeIndex2()], g.magnitude);
        }
        if (on < 2) r.add("crossing vertex ", v, " lies on ", on, " input segments");
    }
    return r.take();
}

std::string validate(const PlainMesh& m, const Checks& c) {
    Report r;
    const int nv = int(m.xy.size());
    std::vector<const double*> at;
    for (const std::array<double, 2>& p : m.xy) at.push_back(p.data());
    std::vector<std::array<int, 3>> tris;
    for (const std::array<int, 3>& v : m.triangles) {
        const bool ok = v[0] != v[1] && v[1] != v[2] && v[2] != v[0] &&
                        std::all_of(v.begin(), v.end(), [&](int i) { return i >= 0 && i < nv; });
        if (ok) {
            tris.push_back(v);
        } else {
            r.add("triangle (", v[0], ", ", v[1], ", ", v[2], ") has bad corners");
        }
    }
    Geometry g(at, c, c.band >= 0.0 ? c.band : 0.0, r);
    g.triangles(tris, true);
    // Around a vertex with every edge shared the angles sum to 2 pi; 4 pi means a double cover.
    std::vector<long double> angle(std::size_t(nv), 0.0L);
    std::vector<char> rim(std::size_t(nv), 0);
    std::unordered_map<int, std::vector<int>> edges;
    for (const std::array<int, 3>& v : tris) {
        for (int k = 0; k < 3; ++k) {
            const int a = v[k], b = v[nextLocalIndex(k)], p = v[prevLocalIndex(k)];
            if (g.directed.count(key(b, a)) == 0) rim[std::size_t(a)] = rim[std::size_t(b)] = 1;
            if (a < b || g.directed.count(key(b, a)) == 0) {
                edges[a].push_back(b);
                edges[b].push_back(a);
            }
            const long double ux = at[b][0] - (long double)at[a][0],
                              uy = at[b][1] - (long double)at[a][1];
            const long double wx = at[p][0] - (long double)at[a][0],
                              wy = at[p][1] - (long double)at[a][1];
            angle[std::size_t(a)] += std::atan2(ux * wy - uy * wx, ux * wx + uy * wy);
        }
    }
    for (int i = 0; i < nv; ++i) {
        const long double turn = angle[std::size_t(i)] / (2 * 3.14159265358979323846L);
        if (rim[std::size_t(i)] ? turn > 1 + 1e-9 : turn != 0 && std::fabs(turn - 1) > 1e-9) {
            r.add("the triangles around vertex ", i, " turn ", double(turn), " times");
        }
    }
    std::unordered_set<long long> chained;
    for (const PkMeshEdge& s : c.required) {
        if (!validSegment(s, nv) || !g.chain(s.EdgeIndex1(), s.EdgeIndex2(), edges, chained)) {
            r.add("segment (", s.EdgeIndex1(), ", ", s.EdgeIndex2(), ") is not a chain of edges");
        }
    }
    g.delaunay(tris, [&](int a, int b) { return chained.count(key(a, b)) != 0; });
    return r.take();
}

}  // namespace rytest
