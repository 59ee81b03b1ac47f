// Verdicts on orientation, hull convexity and local Delaunay use the exact predicates (up to the
// caller's band); the segment tests allow for the rounding of crossing positions.
#include "support/MeshValidator.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>
#include <unordered_set>

#include "mesh/LocalIndex.h"
#include "state/RyTriangulationImpl.h"

namespace rytest {

namespace {

using Triple = std::array<int, 3>;

std::string str(int a, int b) {
    return "(" + std::to_string(a) + ", " + std::to_string(b) + ")";
}
std::string str(const int* v) {
    return "(" + std::to_string(v[0]) + ", " + std::to_string(v[1]) + ", " + std::to_string(v[2]) +
           ")";
}

/// The violations found, one per line, the first 20 only.
struct Report {
    std::string text;
    int count = 0;
    void add(const std::string& line) { text += ++count <= 20 ? line + "\n" : ""; }
    std::string take() { return text + (count > 20 ? "... and more\n" : ""); }
};

long long key(int a, int b) {
    return (static_cast<long long>(a) << 32) | static_cast<unsigned>(b);
}

/// Position of p along a->b (0 at a, 1 at b), its distance to the line, and the slack, relative
/// to the length. A crossing's rounding is a few thousand ulps of the largest coordinate.
void project(const double* p, const double* a, const double* b, double magnitude, double out[3]) {
    const double dx = b[0] - a[0], dy = b[1] - a[1], len2 = dx * dx + dy * dy;
    const double px = p[0] - a[0], py = p[1] - a[1];
    out[0] = (px * dx + py * dy) / len2;
    out[1] = std::fabs(px * dy - py * dx) / len2;
    out[2] = 1e-9 + 0x1p-40 * magnitude / std::sqrt(len2);
}

/// The checks both mesh forms share, on real triangles given as vertex triples.
struct Geometry {
    const std::vector<const double*>& at;
    const Checks& c;
    double band;
    Report& r;
    double magnitude = 0.0;
    std::unordered_map<long long, int> directed;  // directed edge -> triangle

    /// Orientation (when `strict`, zero area too) and each directed edge used once.
    void triangles(const std::vector<Triple>& tris, bool strict) {
        for (const double* p : at) {
            for (int k = 0; k < 2; ++k) {
                if (std::isfinite(p[k])) magnitude = std::max(magnitude, std::fabs(p[k]));
            }
        }
        for (std::size_t t = 0; t < tris.size(); ++t) {
            const int* v = tris[t].data();
            const double o = orient2d(at[v[0]], at[v[1]], at[v[2]]);
            if (c.geometry && !(o > 0.0) && (strict || !(o == 0.0))) {
                r.add("triangle " + str(v) + " is not counter-clockwise");
            }
            for (int k = 0; k < 3; ++k) {
                if (!directed.emplace(key(v[k], v[(k + 1) % 3]), int(t)).second) {
                    r.add("edge " + str(v[k], v[(k + 1) % 3]) + " is used twice one way");
                }
            }
        }
    }

    /// Each edge between two triangles, unless `fixed` holds it, passes the in-circle test.
    template <class Fixed>
    void delaunay(const std::vector<Triple>& tris, Fixed fixed) {
        if (!c.geometry || !c.delaunay) return;
        for (const Triple& v : tris) {
            for (int k = 0; k < 3; ++k) {
                const int a = v[k], b = v[(k + 1) % 3], p = v[(k + 2) % 3];
                const auto twin = directed.find(key(b, a));
                if (a > b || twin == directed.end() || fixed(a, b)) continue;
                const Triple& u = tris[std::size_t(twin->second)];
                const int d = u[0] + u[1] + u[2] - a - b;
                // Both determinants have the same exact value; the smaller estimate keeps
                // rounding at the band's edge from reporting what the flip test accepted.
                const double value = std::min(incircle(at[v[0]], at[v[1]], at[v[2]], at[d]),
                                              incircle(at[u[0]], at[u[1]], at[u[2]], at[p]));
                if (!(value <= band)) r.add("edge " + str(a, b) + " is not locally Delaunay");
            }
        }
    }

    /// Whether a-b is a chain of `edges` through vertices on the segment; adds its edges to `on`.
    bool chain(int a,
               int b,
               std::unordered_map<int, std::vector<int>>& edges,
               std::unordered_set<long long>& on) {
        std::unordered_map<int, int> from = {{a, a}};
        for (std::vector<int> stack = {a}; !stack.empty() && from.count(b) == 0;) {
            const int v = stack.back();
            stack.pop_back();
            for (int w : edges[v]) {
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
};

bool validSegment(const PkMeshEdge& s, int n) {
    return s.EdgeIndex1() >= 0 && s.EdgeIndex2() < n;
}

int ghostCorner(const int* v) {
    return v[0] == GhostVertex ? 0 : v[1] == GhostVertex ? 1 : v[2] == GhostVertex ? 2 : -1;
}

}  // namespace

bool onSegment(const double* p, const double* a, const double* b, double magnitude) {
    double q[3];
    project(p, a, b, magnitude, q);
    return q[1] <= q[2] && q[0] >= -q[2] && q[0] <= 1.0 + q[2];
}

std::string validate(const RyTriangulationImpl& m, const Checks& c) {
    Report r;
    const int nt = int(m.mesh.triangles.size()), nv = int(m.mesh.vertices.size());
    std::vector<char> live(std::size_t(nt), 1), sound(std::size_t(nt), 0);
    std::vector<char> used(std::size_t(nv), 0);
    for (int f : m.mesh.freeTriangles) {
        if (f < 0 || f >= nt) r.add("freeTriangles holds " + std::to_string(f));
        if (f >= 0 && f < nt) live[std::size_t(f)] = 0;
    }
    auto corners = [&](int t) { return triVerts(m.mesh.triangles[std::size_t(t)]); };
    auto links = [&](int t) { return triNbrs(m.mesh.triangles[std::size_t(t)]); };
    auto ghost = [&](int t) {
        return t >= 0 && t < nt && sound[std::size_t(t)] && ghostCorner(corners(t)) >= 0;
    };
    std::vector<int> ghosts;
    std::vector<Triple> real;
    for (int t = 0; t < nt; ++t) {
        const int* v = corners(t);
        const int g = (v[0] == GhostVertex) + (v[1] == GhostVertex) + (v[2] == GhostVertex);
        bool ok = g <= 1 && v[0] != v[1] && v[1] != v[2] && v[2] != v[0];
        for (int k = 0; k < 3; ++k) ok = ok && (v[k] == GhostVertex || (v[k] >= 0 && v[k] < nv));
        if (!live[std::size_t(t)]) continue;
        if (!ok) r.add("triangle " + std::to_string(t) + " has corners " + str(v));
        if (PkMeshFields::flags(m.mesh.triangles[std::size_t(t)]) != (g == 1 ? bAux : 0u)) {
            r.add("triangle " + std::to_string(t) + " has wrong flags");
        }
        if (!ok) continue;
        sound[std::size_t(t)] = 1;
        for (int k = 0; k < 3; ++k) used[std::size_t(std::max(v[k], 0))] |= v[k] >= 0;
        if (g == 1) ghosts.push_back(t);
        if (g == 0) real.push_back({v[0], v[1], v[2]});
    }
    // Neighbour k lies across the edge from corner k to corner k+1 and links back.
    for (int t = 0; t < nt; ++t) {
        for (int k = 0; k < 3 && sound[std::size_t(t)]; ++k) {
            const int a = corners(t)[k], b = corners(t)[(k + 1) % 3], u = links(t)[k];
            int j = 0;
            while (u >= 0 && u < nt && j < 3 &&
                   !(corners(u)[j] == b && corners(u)[(j + 1) % 3] == a))
                ++j;
            if (u < 0 || u >= nt || u == t || !sound[std::size_t(u)] || j == 3 ||
                links(u)[j] != t) {
                r.add("triangle " + std::to_string(t) + ": neighbour " + std::to_string(k) +
                      " is wrong");
            } else if (a >= 0 && b >= 0 && ghost(t) && ghost(u)) {
                r.add("ghost triangles " + str(t, u) + " share a real edge");
            }
        }
    }
    for (int i = 0; i < nv; ++i) {
        const int t = vertexTriangle(m.mesh.vertices[std::size_t(i)]);
        if (t == -1 && c.partial && !used[std::size_t(i)]) continue;
        const int* v = t >= 0 && t < nt && live[std::size_t(t)] ? corners(t) : nullptr;
        if (!v || (v[0] != i && v[1] != i && v[2] != i)) {
            r.add("vertex " + std::to_string(i) + ": its triangle does not hold it");
        }
    }

    std::vector<const double*> at;
    for (const PkMeshPoint3d& p : m.mesh.vertices) at.push_back(vertexXY(p));
    // The library treats a negative or NaN tolerance as 0.
    const double band = c.band >= 0.0 ? c.band : m.cdtTolerance > 0.0 ? m.cdtTolerance : 0.0;
    Geometry g{at, c, band, r, 0.0, {}};
    // Ghost (x, y, G) holds hull edge y -> x, its neighbour across (y, G) z -> y: one convex cycle.
    std::size_t steps = 0;
    for (int t = ghosts.empty() ? -1 : ghosts[0]; steps <= ghosts.size() && ghost(t); ++steps) {
        const int* v = corners(t);
        const int k = ghostCorner(v), next = links(t)[(k + 2) % 3];
        if (!ghost(next)) break;
        const int* w = corners(next);
        const int j = ghostCorner(w), x = v[(k + 1) % 3], y = v[(k + 2) % 3], z = w[(j + 2) % 3];
        if (c.geometry && w[(j + 1) % 3] == y && orient2d(at[x], at[y], at[z]) > band) {
            r.add("the hull turns reflex at vertex " + std::to_string(y));
        }
        t = next;
        if (t == ghosts[0]) ++steps;
        if (t == ghosts[0]) break;
    }
    if (steps != ghosts.size() || (ghosts.empty() && !real.empty())) {
        r.add("the " + std::to_string(ghosts.size()) + " ghost triangles do not form one cycle");
    }
    const long long n = std::count(used.begin(), used.end(), 1), h = (long long)ghosts.size();
    if (!c.partial && !ghosts.empty() && (long long)real.size() != 2 * n - h - 2) {
        r.add("Euler: " + std::to_string(real.size()) + " triangles for " + str(int(n), int(h)) +
              " vertices");
    }
    g.triangles(real, !c.allowDegenerate);
    g.delaunay(real,
               [&](int a, int b) { return m.constraints.edges.count(PkMeshEdge(a, b)) != 0; });

    // Constraint records: in the mesh, repeats counted, origins and crossings on input segments.
    const std::vector<PkMeshEdge>& inputs = c.inputs.empty() ? c.required : c.inputs;
    const bool segments = c.geometry && !inputs.empty();
    std::unordered_map<int, std::vector<int>> pieces;
    for (const PkMeshEdge& e : m.constraints.edges) {
        const int a = e.EdgeIndex1(), b = e.EdgeIndex2();
        if (a >= 0 && b < nv && g.directed.count(key(a, b)) + g.directed.count(key(b, a))) {
            pieces[a].push_back(b);
            pieces[b].push_back(a);
        } else if (!c.allowMissing || a < 0 || b >= nv) {
            r.add("constraint edge " + str(a, b) + " is not an edge of the mesh");
        }
    }
    for (const auto& [e, count] : m.constraints.repeats) {
        if (count < 1 || m.constraints.edges.count(e) == 0)
            r.add("repeat count of " + str(e.EdgeIndex1(), e.EdgeIndex2()));
    }
    for (const auto& [e, list] : m.constraints.origins) {
        bool ok = !list.empty() && m.constraints.edges.count(e) != 0 && e.EdgeIndex2() < nv;
        for (const PkMeshEdge& o : list) {
            ok =
                ok && o != e && validSegment(o, nv) && std::count(list.begin(), list.end(), o) == 1;
            double p[3], q[3];
            if (!ok || !segments) continue;
            project(at[e.EdgeIndex1()], at[o.EdgeIndex1()], at[o.EdgeIndex2()], g.magnitude, p);
            project(at[e.EdgeIndex2()], at[o.EdgeIndex1()], at[o.EdgeIndex2()], g.magnitude, q);
            ok = p[1] <= p[2] && q[1] <= q[2];
        }
        if (!ok) r.add("origins of " + str(e.EdgeIndex1(), e.EdgeIndex2()) + " are wrong");
    }
    std::unordered_set<long long> chained;
    for (const PkMeshEdge& s : c.required) {
        const int a = s.EdgeIndex1(), b = s.EdgeIndex2();
        if (validSegment(s, nv) && !g.chain(a, b, pieces, chained))
            r.add("segment " + str(a, b) + " is no chain");
    }
    for (int v = std::max(c.crossingsFrom, 0); segments && v < nv; ++v) {
        int on = 0;
        for (const PkMeshEdge& s : inputs) {
            on += validSegment(s, nv) &&
                  onSegment(at[v], at[s.EdgeIndex1()], at[s.EdgeIndex2()], g.magnitude);
        }
        if (on < 2)
            r.add("crossing vertex " + std::to_string(v) + " lies on " + std::to_string(on) +
                  " segments");
    }
    return r.take();
}

std::string validate(const PlainMesh& m, const Checks& c) {
    Report r;
    const int nv = int(m.xy.size());
    std::vector<const double*> at;
    for (const std::array<double, 2>& p : m.xy) at.push_back(p.data());
    std::vector<Triple> tris;
    for (const Triple& v : m.triangles) {
        const bool in = std::all_of(v.begin(), v.end(), [&](int i) { return i >= 0 && i < nv; });
        if (in && v[0] != v[1] && v[1] != v[2] && v[2] != v[0]) tris.push_back(v);
        if (!(in && v[0] != v[1] && v[1] != v[2] && v[2] != v[0]))
            r.add("triangle " + str(v.data()) + " has bad corners");
    }
    Geometry g{at, c, c.band >= 0.0 ? c.band : 0.0, r, 0.0, {}};
    g.triangles(tris, true);
    std::unordered_map<int, std::vector<int>> edges;
    for (const auto& [e, t] : g.directed) {
        const int a = int(e >> 32), b = int(e & 0xffffffff);
        if (a < b || !g.directed.count(key(b, a))) edges[a].push_back(b), edges[b].push_back(a);
    }
    std::unordered_set<long long> chained;
    for (const PkMeshEdge& s : c.required) {
        const int a = s.EdgeIndex1(), b = s.EdgeIndex2();
        if (!validSegment(s, nv) || !g.chain(a, b, edges, chained))
            r.add("segment " + str(a, b) + " is no chain");
    }
    g.delaunay(tris, [&](int a, int b) { return chained.count(key(a, b)) != 0; });
    return r.take();
}

}  // namespace rytest
