// rytri_meshcheck: reads meshes written by rytri back, independently of its writers, and checks
// them.
//
//   rytri_meshcheck validate MESH [--area A] [--area-tol R] [--hull] [--delaunay]
//                                 [--constraints] [--all-vertices-used] [--min-triangles N]
//   rytri_meshcheck same MESH1 MESH2 [--edges] [--ignore-z]
//   rytri_meshcheck points MESH POINTS.xyz [ADDED]
//   rytri_meshcheck svg FILE [--contains TEXT] [--lacks TEXT]...
//   rytri_meshcheck shortest NAME.obj    (vertex numbers as std::to_chars writes them)
//
// MESH is NAME.obj (v, f, l lines) or NAME.ele (with NAME.node, and NAME.poly for the
// constraint edges when it exists). Validation: indices in range; every triangle
// counter-clockwise with positive area; every directed edge used once (a consistently oriented
// manifold); the angles around every interior vertex sum to 2 pi and around a boundary vertex
// to at most 2 pi (no overlap or double cover); optionally the kept area, the convex hull's area,
// the empty-circumcircle property off the constraints, and that every constraint edge is a chain
// of mesh edges. Exit 0 when all checks pass, 1 with the violations listed otherwise, 2 on
// unreadable files.
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

struct P {
    double x, y, z;
};

struct MeshFile {
    std::vector<P> vertices;
    std::vector<std::array<long, 3>> triangles;
    std::vector<std::pair<long, long>> edges;
};

bool endsWith(const std::string& s, const std::string& tail) {
    return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

/// Lines without comments; blank lines dropped.
bool dataLines(const std::string& path, std::vector<std::string>& lines) {
    std::ifstream in(path);
    if (!in) return false;
    std::string line;
    while (std::getline(in, line)) {
        const std::size_t hash = line.find('#');
        if (hash != std::string::npos) line.erase(hash);
        if (line.find_first_not_of(" \t\r") != std::string::npos) lines.push_back(line);
    }
    return true;
}

bool fail(const std::string& message) {
    std::fprintf(stderr, "meshcheck: %s\n", message.c_str());
    return false;
}

bool readObj(const std::string& path, MeshFile& mesh) {
    std::vector<std::string> lines;
    if (!dataLines(path, lines)) return fail("cannot read " + path);
    for (const std::string& line : lines) {
        std::istringstream in(line);
        std::string tag;
        in >> tag;
        if (tag == "v") {
            P p{0, 0, 0};
            if (!(in >> p.x >> p.y >> p.z)) return fail("bad vertex line in " + path + ": " + line);
            mesh.vertices.push_back(p);
        } else if (tag == "f") {
            std::array<long, 3> t;
            if (!(in >> t[0] >> t[1] >> t[2]))
                return fail("bad face line in " + path + ": " + line);
            long extra;
            if (in >> extra) return fail("face with more than 3 vertices in " + path);
            for (long& i : t) --i;
            mesh.triangles.push_back(t);
        } else if (tag == "l") {
            long a, b;
            if (!(in >> a >> b)) return fail("bad line element in " + path + ": " + line);
            mesh.edges.emplace_back(a - 1, b - 1);
        }
    }
    return true;
}

bool readEle(const std::string& path, MeshFile& mesh) {
    const std::string stem = path.substr(0, path.size() - 4);
    std::vector<std::string> node, ele, poly;
    if (!dataLines(stem + ".node", node)) return fail("cannot read " + stem + ".node");
    if (!dataLines(path, ele)) return fail("cannot read " + path);
    long n = 0, dim = 0, attributes = 0;
    {
        std::istringstream in(node.at(0));
        in >> n >> dim >> attributes;
    }
    if (long(node.size()) != n + 1 || dim != 2)
        return fail("bad .node header in " + stem + ".node");
    long base = -1;
    for (long k = 0; k < n; ++k) {
        std::istringstream in(node[std::size_t(k + 1)]);
        long index;
        P p{0, 0, 0};
        in >> index >> p.x >> p.y;
        if (attributes > 0) in >> p.z;
        if (!in) return fail("bad .node line: " + node[std::size_t(k + 1)]);
        if (k == 0) base = index;
        if (index != base + k) return fail(".node numbering out of sequence");
        mesh.vertices.push_back(p);
    }
    long m = 0, corners = 0;
    {
        std::istringstream in(ele.at(0));
        in >> m >> corners;
    }
    if (long(ele.size()) != m + 1 || corners != 3) return fail("bad .ele header in " + path);
    for (long k = 0; k < m; ++k) {
        std::istringstream in(ele[std::size_t(k + 1)]);
        long index;
        std::array<long, 3> t;
        if (!(in >> index >> t[0] >> t[1] >> t[2])) return fail("bad .ele line");
        for (long& i : t) i -= base;
        mesh.triangles.push_back(t);
    }
    if (dataLines(stem + ".poly", poly)) {
        long segments = 0;
        std::istringstream header(poly.at(1));
        header >> segments;
        for (long k = 0; k < segments; ++k) {
            std::istringstream in(poly.at(std::size_t(k + 2)));
            long index, a, b;
            if (!(in >> index >> a >> b)) return fail("bad .poly segment");
            mesh.edges.emplace_back(a - base, b - base);
        }
    }
    return true;
}

bool readMesh(const std::string& path, MeshFile& mesh) {
    if (endsWith(path, ".obj")) return readObj(path, mesh);
    if (endsWith(path, ".ele")) return readEle(path, mesh);
    return fail("unknown mesh format: " + path);
}

long double orient(const P& a, const P& b, const P& c) {
    return (static_cast<long double>(b.x) - a.x) * (static_cast<long double>(c.y) - a.y) -
           (static_cast<long double>(b.y) - a.y) * (static_cast<long double>(c.x) - a.x);
}

/// > 0 when d lies inside the circle through the counter-clockwise a, b, c.
long double incircle(const P& a, const P& b, const P& c, const P& d) {
    const long double adx = static_cast<long double>(a.x) - d.x,
                      ady = static_cast<long double>(a.y) - d.y;
    const long double bdx = static_cast<long double>(b.x) - d.x,
                      bdy = static_cast<long double>(b.y) - d.y;
    const long double cdx = static_cast<long double>(c.x) - d.x,
                      cdy = static_cast<long double>(c.y) - d.y;
    const long double al = adx * adx + ady * ady, bl = bdx * bdx + bdy * bdy,
                      cl = cdx * cdx + cdy * cdy;
    return adx * (bdy * cl - bl * cdy) - ady * (bdx * cl - bl * cdx) + al * (bdx * cdy - bdy * cdx);
}

double hullArea(std::vector<P> pts) {
    std::sort(pts.begin(), pts.end(), [](const P& a, const P& b) {
        return a.x < b.x || (a.x == b.x && a.y < b.y);
    });
    if (pts.size() < 3) return 0.0;
    std::vector<P> hull(2 * pts.size());
    std::size_t k = 0;
    for (std::size_t i = 0; i < pts.size(); ++i) {
        while (k >= 2 && orient(hull[k - 2], hull[k - 1], pts[i]) <= 0) --k;
        hull[k++] = pts[i];
    }
    for (std::size_t i = pts.size() - 1, t = k + 1; i > 0; --i) {
        while (k >= t && orient(hull[k - 2], hull[k - 1], pts[i - 1]) <= 0) --k;
        hull[k++] = pts[i - 1];
    }
    hull.resize(k - 1);
    long double twice = 0;
    for (std::size_t i = 0; i < hull.size(); ++i) {
        const P& a = hull[i];
        const P& b = hull[(i + 1) % hull.size()];
        twice += static_cast<long double>(a.x) * b.y - static_cast<long double>(b.x) * a.y;
    }
    return double(twice / 2);
}

using Edge = std::pair<long, long>;

struct Report {
    std::vector<std::string> problems;
    void add(const std::string& p) { problems.push_back(p); }
};

std::string tri(const std::array<long, 3>& t) {
    return "(" + std::to_string(t[0]) + ", " + std::to_string(t[1]) + ", " + std::to_string(t[2]) +
           ")";
}

int validate(const MeshFile& mesh, int argc, char** argv) {
    double area = NAN, areaTol = 1e-9;
    bool hull = false, delaunay = false, constraints = false, allUsed = false;
    long minTriangles = 1;
    for (int i = 0; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--area" && i + 1 < argc) {
            area = std::stod(argv[++i]);
        } else if (a == "--area-tol" && i + 1 < argc) {
            areaTol = std::stod(argv[++i]);
        } else if (a == "--hull") {
            hull = true;
        } else if (a == "--delaunay") {
            delaunay = true;
        } else if (a == "--constraints") {
            constraints = true;
        } else if (a == "--all-vertices-used") {
            allUsed = true;
        } else if (a == "--min-triangles" && i + 1 < argc) {
            minTriangles = std::stol(argv[++i]);
        } else {
            std::fprintf(stderr, "meshcheck: unknown option %s\n", a.c_str());
            return 2;
        }
    }
    Report report;
    const long n = long(mesh.vertices.size());
    if (long(mesh.triangles.size()) < minTriangles) {
        report.add("only " + std::to_string(mesh.triangles.size()) +
                   " triangles, expected at least " + std::to_string(minTriangles));
    }
    std::map<Edge, long> directed;  // directed edge -> triangle
    long double areaSum = 0;
    bool indicesOk = true;
    for (std::size_t t = 0; t < mesh.triangles.size(); ++t) {
        const auto& v = mesh.triangles[t];
        if (std::any_of(v.begin(), v.end(), [&](long i) { return i < 0 || i >= n; })) {
            report.add("triangle " + std::to_string(t) + " " + tri(v) +
                       " has an index out of range");
            indicesOk = false;
            continue;
        }
        if (v[0] == v[1] || v[1] == v[2] || v[0] == v[2])
            report.add("triangle " + tri(v) + " repeats a vertex");
        const long double o = orient(mesh.vertices[std::size_t(v[0])],
                                     mesh.vertices[std::size_t(v[1])],
                                     mesh.vertices[std::size_t(v[2])]);
        if (!(o > 0))
            report.add("triangle " + tri(v) + " is not counter-clockwise (twice area " +
                       std::to_string(double(o)) + ")");
        areaSum += o / 2;
        for (int k = 0; k < 3; ++k) {
            const Edge e(v[std::size_t(k)], v[std::size_t((k + 1) % 3)]);
            if (!directed.emplace(e, long(t)).second) {
                report.add("directed edge " + std::to_string(e.first) + "->" +
                           std::to_string(e.second) +
                           " is used by two triangles (overlap or inconsistent orientation)");
            }
        }
    }
    if (indicesOk) {
        // Angle sums: 2 pi around interior vertices, at most 2 pi at boundary vertices.
        std::vector<long double> angle(std::size_t(n), 0);
        std::vector<char> boundary(std::size_t(n), 0), used(std::size_t(n), 0);
        for (const auto& [e, t] : directed) {
            if (!directed.count(Edge(e.second, e.first)))
                boundary[std::size_t(e.first)] = boundary[std::size_t(e.second)] = 1;
        }
        for (const auto& v : mesh.triangles) {
            for (int k = 0; k < 3; ++k) {
                const P& a = mesh.vertices[std::size_t(v[std::size_t(k)])];
                const P& b = mesh.vertices[std::size_t(v[std::size_t((k + 1) % 3)])];
                const P& c = mesh.vertices[std::size_t(v[std::size_t((k + 2) % 3)])];
                const long double ux = static_cast<long double>(b.x) - a.x,
                                  uy = static_cast<long double>(b.y) - a.y;
                const long double wx = static_cast<long double>(c.x) - a.x,
                                  wy = static_cast<long double>(c.y) - a.y;
                angle[std::size_t(v[std::size_t(k)])] +=
                    std::atan2(ux * wy - uy * wx, ux * wx + uy * wy);
                used[std::size_t(v[std::size_t(k)])] = 1;
            }
        }
        const long double twoPi = 2 * 3.14159265358979323846264338327950288L;
        for (long i = 0; i < n; ++i) {
            if (!used[std::size_t(i)]) {
                if (allUsed) report.add("vertex " + std::to_string(i) + " is in no triangle");
                continue;
            }
            const long double sum = angle[std::size_t(i)];
            if (!boundary[std::size_t(i)] && std::fabs(sum - twoPi) > 1e-6) {
                report.add("angles around interior vertex " + std::to_string(i) + " sum to " +
                           std::to_string(double(sum)));
            } else if (boundary[std::size_t(i)] && sum > twoPi + 1e-6) {
                report.add("angles at boundary vertex " + std::to_string(i) + " sum to " +
                           std::to_string(double(sum)) + " > 2 pi");
            }
        }
        if (!std::isnan(area) &&
            std::fabs(double(areaSum) - area) > areaTol * std::max(1.0, std::fabs(area))) {
            report.add("kept area " + std::to_string(double(areaSum)) +
                       " differs from the expected " + std::to_string(area));
        }
        if (hull) {
            const double expected = hullArea(mesh.vertices);
            if (std::fabs(double(areaSum) - expected) > 1e-9 * std::max(1.0, expected)) {
                report.add("area " + std::to_string(double(areaSum)) +
                           " differs from the convex hull's " + std::to_string(expected));
            }
        }
        std::set<Edge> constraintSet;
        for (const Edge& e : mesh.edges)
            constraintSet.emplace(std::min(e.first, e.second), std::max(e.first, e.second));
        if (constraints) {
            for (const Edge& e : mesh.edges) {
                if (e.first < 0 || e.first >= n || e.second < 0 || e.second >= n) {
                    report.add("constraint edge index out of range");
                    continue;
                }
                if (directed.count(e) || directed.count(Edge(e.second, e.first))) continue;
                // Not an edge itself: it must be a chain of mesh edges through vertices lying on
                // it (where it was cut by a vertex or split at a crossing).
                const P& a = mesh.vertices[std::size_t(e.first)];
                const P& b = mesh.vertices[std::size_t(e.second)];
                const long double len2 = (static_cast<long double>(b.x) - a.x) * (b.x - a.x) +
                                         (static_cast<long double>(b.y) - a.y) * (b.y - a.y);
                std::vector<std::pair<long double, long>> on;
                for (long i = 0; i < n; ++i) {
                    const P& p = mesh.vertices[std::size_t(i)];
                    const long double t = ((static_cast<long double>(p.x) - a.x) * (b.x - a.x) +
                                           (static_cast<long double>(p.y) - a.y) * (b.y - a.y)) /
                                          len2;
                    const long double off = std::fabs(orient(a, b, p)) / std::sqrt(len2);
                    if (t > 0 && t < 1 && off <= 1e-7 * std::sqrt(len2)) on.emplace_back(t, i);
                }
                std::sort(on.begin(), on.end());
                long previous = e.first;
                bool chain = true;
                on.emplace_back(1, e.second);
                for (const auto& [t, i] : on) {
                    if (!directed.count(Edge(previous, i)) && !directed.count(Edge(i, previous)))
                        chain = false;
                    previous = i;
                }
                if (!chain)
                    report.add("constraint edge " + std::to_string(e.first) + "-" +
                               std::to_string(e.second) + " is not in the mesh");
            }
        }
        if (delaunay) {
            long violations = 0;
            for (const auto& [e, t] : directed) {
                auto twin = directed.find(Edge(e.second, e.first));
                if (twin == directed.end() || e.first > e.second) continue;
                if (constraintSet.count(
                        Edge(std::min(e.first, e.second), std::max(e.first, e.second))))
                    continue;
                const auto& v = mesh.triangles[std::size_t(t)];
                const auto& w = mesh.triangles[std::size_t(twin->second)];
                long opposite = -1;
                for (long i : w) {
                    if (i != e.first && i != e.second) opposite = i;
                }
                const P& a = mesh.vertices[std::size_t(v[0])];
                const P& b = mesh.vertices[std::size_t(v[1])];
                const P& c = mesh.vertices[std::size_t(v[2])];
                const P& d = mesh.vertices[std::size_t(opposite)];
                // Relative band: the long double determinant of a co-circular quadruple is not
                // exactly zero.
                const long double scale = std::pow(std::max({std::fabs(a.x - d.x),
                                                             std::fabs(a.y - d.y),
                                                             std::fabs(b.x - d.x),
                                                             std::fabs(b.y - d.y),
                                                             std::fabs(c.x - d.x),
                                                             std::fabs(c.y - d.y),
                                                             1e-300}),
                                                   4);
                if (incircle(a, b, c, d) > 1e-12L * scale) {
                    if (++violations <= 5)
                        report.add("edge " + std::to_string(e.first) + "-" +
                                   std::to_string(e.second) + " is not locally Delaunay");
                }
            }
            if (violations > 5)
                report.add(std::to_string(violations) + " non-Delaunay edges in all");
        }
    }
    if (!report.problems.empty()) {
        for (std::size_t i = 0; i < report.problems.size() && i < 20; ++i) {
            std::fprintf(stderr, "meshcheck: %s\n", report.problems[i].c_str());
        }
        std::fprintf(stderr, "meshcheck: %zu problems\n", report.problems.size());
        return 1;
    }
    std::printf("ok: %zu vertices, %zu triangles, %zu constraint edges, area %.12g\n",
                mesh.vertices.size(),
                mesh.triangles.size(),
                mesh.edges.size(),
                double(areaSum));
    return 0;
}

std::array<long, 3> canonical(std::array<long, 3> t) {
    // Rotate (orientation kept) so the smallest index comes first.
    while (t[0] > t[1] || t[0] > t[2]) t = {t[1], t[2], t[0]};
    return t;
}

int same(const MeshFile& a, const MeshFile& b, bool edges, bool ignoreZ) {
    Report report;
    if (a.vertices.size() != b.vertices.size()) {
        report.add("vertex counts differ: " + std::to_string(a.vertices.size()) + " and " +
                   std::to_string(b.vertices.size()));
    } else {
        for (std::size_t i = 0; i < a.vertices.size(); ++i) {
            const P &p = a.vertices[i], &q = b.vertices[i];
            if (p.x != q.x || p.y != q.y || (!ignoreZ && p.z != q.z)) {
                char text[200];
                std::snprintf(text,
                              sizeof text,
                              "vertex %zu differs: (%.17g %.17g %.17g) and (%.17g %.17g %.17g)",
                              i,
                              p.x,
                              p.y,
                              p.z,
                              q.x,
                              q.y,
                              q.z);
                report.add(text);
                break;
            }
        }
    }
    std::multiset<std::array<long, 3>> ta, tb;
    for (const auto& t : a.triangles) ta.insert(canonical(t));
    for (const auto& t : b.triangles) tb.insert(canonical(t));
    if (ta != tb) {
        std::vector<std::array<long, 3>> onlyA, onlyB;
        std::set_difference(ta.begin(), ta.end(), tb.begin(), tb.end(), std::back_inserter(onlyA));
        std::set_difference(tb.begin(), tb.end(), ta.begin(), ta.end(), std::back_inserter(onlyB));
        report.add("triangle sets differ: " + std::to_string(onlyA.size()) +
                   " only in the first (e.g. " +
                   (onlyA.empty() ? std::string("-") : tri(onlyA[0])) + "), " +
                   std::to_string(onlyB.size()) + " only in the second (e.g. " +
                   (onlyB.empty() ? std::string("-") : tri(onlyB[0])) + ")");
    }
    if (edges) {
        std::multiset<Edge> ea, eb;
        for (const Edge& e : a.edges)
            ea.emplace(std::min(e.first, e.second), std::max(e.first, e.second));
        for (const Edge& e : b.edges)
            eb.emplace(std::min(e.first, e.second), std::max(e.first, e.second));
        if (ea != eb)
            report.add("constraint edges differ: " + std::to_string(ea.size()) + " and " +
                       std::to_string(eb.size()));
    }
    if (!report.problems.empty()) {
        for (const std::string& p : report.problems)
            std::fprintf(stderr, "meshcheck: %s\n", p.c_str());
        return 1;
    }
    std::printf("same: %zu vertices, %zu triangles\n", a.vertices.size(), a.triangles.size());
    return 0;
}

/// Every vertex of the mesh is one of the input points, height included (vertices added at
/// constraint crossings excepted: at most `added` of them), and every input position is a vertex.
int checkPoints(const MeshFile& mesh, const std::string& path, long added) {
    std::vector<std::string> lines;
    if (!dataLines(path, lines)) {
        std::fprintf(stderr, "meshcheck: cannot read %s\n", path.c_str());
        return 2;
    }
    std::map<std::pair<double, double>, std::set<double>> input;
    for (std::string line : lines) {
        std::replace(line.begin(), line.end(), ',', ' ');
        std::istringstream in(line);
        double x, y, z = 0.0;
        if (!(in >> x >> y)) continue;
        in >> z;
        input[{x, y}].insert(z);
    }
    Report report;
    long strangers = 0;
    std::set<std::pair<double, double>> seen;
    for (std::size_t i = 0; i < mesh.vertices.size(); ++i) {
        const P& p = mesh.vertices[i];
        auto it = input.find({p.x, p.y});
        if (it == input.end()) {
            ++strangers;
            continue;
        }
        seen.insert(it->first);
        if (!it->second.count(p.z)) {
            char text[160];
            std::snprintf(
                text,
                sizeof text,
                "vertex %zu (%.17g, %.17g) has height %.17g, which no input point there has",
                i,
                p.x,
                p.y,
                p.z);
            report.add(text);
        }
    }
    if (strangers > added)
        report.add(std::to_string(strangers) + " vertices are not input points (at most " +
                   std::to_string(added) + " expected)");
    if (seen.size() != input.size())
        report.add(std::to_string(input.size() - seen.size()) +
                   " input positions are missing from the mesh");
    if (!report.problems.empty()) {
        for (const std::string& p : report.problems)
            std::fprintf(stderr, "meshcheck: %s\n", p.c_str());
        return 1;
    }
    std::printf(
        "points ok: %zu vertices, %zu input positions\n", mesh.vertices.size(), input.size());
    return 0;
}

/// Every number of the file's vertex lines is written as std::to_chars writes the double it reads
/// as: the shortest text that reads back as that double.
int checkShortest(const std::string& path) {
    std::ifstream in(path);
    std::string line, field;
    long numbers = 0;
    while (std::getline(in, line)) {
        if (line.rfind("v ", 0) != 0) continue;
        std::istringstream fields(line.substr(2));
        while (fields >> field) {
            double value = 0;
            std::from_chars(field.data(), field.data() + field.size(), value);
            char text[32];
            const std::string shortest(text, std::to_chars(text, text + sizeof text, value).ptr);
            if (field != shortest) {
                std::fprintf(stderr,
                             "meshcheck: '%s' is not written '%s'\n",
                             field.c_str(),
                             shortest.c_str());
                return 1;
            }
            ++numbers;
        }
    }
    std::printf("shortest: %ld numbers\n", numbers);
    return numbers > 0 ? 0 : 1;
}

int checkSvg(const std::string& path, int argc, char** argv) {
    std::ifstream in(path);
    if (!in) {
        std::fprintf(stderr, "meshcheck: cannot read %s\n", path.c_str());
        return 2;
    }
    std::stringstream buffer;
    buffer << in.rdbuf();
    const std::string text = buffer.str();
    Report report;
    if (text.find("<svg") == std::string::npos) report.add("no <svg> element");
    const std::size_t end = text.rfind("</svg>");
    if (end == std::string::npos || text.find_first_not_of(" \r\n", end + 6) != std::string::npos)
        report.add("does not end with </svg>");
    // Every element opened is closed: count '<' tags against '/>' and '</'.
    long open = 0;
    for (std::size_t i = 0; i + 1 < text.size(); ++i) {
        if (text[i] != '<') continue;
        if (text[i + 1] == '?' || text[i + 1] == '!') continue;
        if (text[i + 1] == '/') {
            --open;
            continue;
        }
        const std::size_t close = text.find('>', i);
        if (close == std::string::npos) {
            report.add("unterminated tag");
            break;
        }
        if (text[close - 1] != '/') ++open;
    }
    if (open != 0) report.add("unbalanced elements (" + std::to_string(open) + " left open)");
    for (int i = 0; i < argc; ++i) {
        const std::string a = argv[i];
        if ((a == "--contains" || a == "--lacks") && i + 1 < argc) {
            const std::string needle = argv[++i];
            const bool found = text.find(needle) != std::string::npos;
            if (found != (a == "--contains"))
                report.add((found ? "contains '" : "lacks '") + needle + "'");
        }
    }
    if (!report.problems.empty()) {
        for (const std::string& p : report.problems)
            std::fprintf(stderr, "meshcheck: %s: %s\n", path.c_str(), p.c_str());
        return 1;
    }
    std::printf("svg ok: %zu bytes\n", text.size());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr,
                     "usage: rytri_meshcheck validate MESH [checks] | same MESH1 MESH2 [--edges] | "
                     "svg FILE [--contains TEXT]\n");
        return 2;
    }
    const std::string command = argv[1];
    if (command == "svg") return checkSvg(argv[2], argc - 3, argv + 3);
    if (command == "shortest") return checkShortest(argv[2]);
    MeshFile first;
    if (!readMesh(argv[2], first)) return 2;
    if (command == "validate") return validate(first, argc - 3, argv + 3);
    if (command == "points" && argc >= 4)
        return checkPoints(first, argv[3], argc >= 5 ? std::stol(argv[4]) : 0);
    if (command == "same" && argc >= 4) {
        MeshFile second;
        if (!readMesh(argv[3], second)) return 2;
        bool edges = false, ignoreZ = false;
        for (int i = 4; i < argc; ++i) {
            edges |= std::string(argv[i]) == "--edges";
            ignoreZ |= std::string(argv[i]) == "--ignore-z";
        }
        return same(first, second, edges, ignoreZ);
    }
    std::fprintf(stderr, "meshcheck: unknown command %s\n", command.c_str());
    return 2;
}
