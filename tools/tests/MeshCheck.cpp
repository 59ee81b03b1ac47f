// rytri_meshcheck: reads meshes written by rytri back, independently of its writers, and checks
// them with the shared mesh validator.
//
//   rytri_meshcheck validate MESH [--area A] [--area-tol R] [--hull] [--delaunay]
//                                 [--constraints] [--all-vertices-used] [--min-triangles N]
//   rytri_meshcheck same MESH1 MESH2 [--edges] [--ignore-z]
//   rytri_meshcheck points MESH POINTS.xyz [ADDED]
//   rytri_meshcheck svg FILE [--contains TEXT] [--lacks TEXT]...
//
// MESH is NAME.obj (v, f, l lines) or NAME.ele (with NAME.node, and NAME.poly for the
// constraint edges when it exists). Validation: indices in range; every triangle
// counter-clockwise by the exact test; every directed edge used once; no vertex wrapped twice;
// optionally the kept area, the convex hull's area, local Delaunay off the constraints (band
// 1e-9, the library's default), every constraint edge a chain of mesh edges. Exit 0 when all
// checks pass, 1 with the problems listed otherwise, 2 on unreadable files or bad usage.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/MeshValidator.h"

namespace {

struct MeshFile {
    std::vector<std::array<double, 3>> vertices;
    std::vector<std::array<int, 3>> triangles;
    std::vector<PkMeshEdge> edges;
};

/// The lines of a file without comments and blank lines, split into words.
bool words(const std::string& path, std::vector<std::vector<std::string>>& lines) {
    std::ifstream in(path);
    std::string line, word;
    while (in && std::getline(in, line)) {
        std::istringstream split(line.substr(0, line.find('#')));
        std::vector<std::string> w;
        while (split >> word) w.push_back(word);
        if (!w.empty()) lines.push_back(w);
    }
    return bool(std::ifstream(path));
}

bool fail(const std::string& message) {
    std::fprintf(stderr, "meshcheck: %s\n", message.c_str());
    return false;
}

/// obj: v x y z, f a b c, l a b (1-based). ele: NAME.node "n 2 attributes" then "i x y [z]",
/// NAME.ele "m 3" then "i a b c", NAME.poly "0 ..", "s ..", then "i a b" (base of the .node).
bool readMesh(const std::string& path, MeshFile& m) {
    const bool obj = path.size() > 4 && path.compare(path.size() - 4, 4, ".obj") == 0;
    const std::string stem = path.substr(0, path.size() - 4);
    std::vector<std::vector<std::string>> node, ele, poly;
    if (!obj && path.compare(path.size() - 4, 4, ".ele") != 0)
        return fail("unknown mesh format: " + path);
    if (!words(obj ? path : stem + ".node", node) || (!obj && !words(path, ele)))
        return fail("cannot read " + path);
    try {
        long base = 1;
        for (std::size_t k = !obj; k < node.size(); ++k) {
            const std::vector<std::string>& w = node[k];
            if (obj && w[0] == "v") {
                m.vertices.push_back({std::stod(w.at(1)), std::stod(w.at(2)), std::stod(w.at(3))});
            } else if (obj && (w[0] == "f" || w[0] == "l")) {
                if (w.size() != (w[0] == "f" ? 4u : 3u)) return fail("bad element in " + path);
                const int a = std::stoi(w[1]) - 1, b = std::stoi(w[2]) - 1;
                if (w[0] == "l") m.edges.emplace_back(a, b);
                if (w[0] == "f") m.triangles.push_back({a, b, std::stoi(w[3]) - 1});
            } else if (!obj) {
                if (k == 1) base = std::stol(w.at(0));
                if (std::stol(w.at(0)) != base + long(k) - 1 || std::stol(node[0].at(1)) != 2)
                    return fail("bad .node");
                m.vertices.push_back(
                    {std::stod(w.at(1)), std::stod(w.at(2)), w.size() > 3 ? std::stod(w[3]) : 0.0});
            }
        }
        if (!obj && long(node.size()) != std::stol(node[0].at(0)) + 1)
            return fail("bad .node header");
        for (std::size_t k = 1; k < ele.size(); ++k) {
            m.triangles.push_back({std::stoi(ele[k].at(1)) - int(base),
                                   std::stoi(ele[k].at(2)) - int(base),
                                   std::stoi(ele[k].at(3)) - int(base)});
        }
        if (!obj && (long(ele.size()) != std::stol(ele[0].at(0)) + 1 || ele[0].at(1) != "3"))
            return fail("bad .ele");
        if (!obj && words(stem + ".poly", poly)) {
            for (long k = 0; k < std::stol(poly.at(1).at(0)); ++k) {
                const std::vector<std::string>& w = poly.at(std::size_t(k) + 2);
                m.edges.emplace_back(std::stoi(w.at(1)) - int(base),
                                     std::stoi(w.at(2)) - int(base));
            }
        }
    } catch (const std::exception&) {
        return fail("unreadable line in " + path);
    }
    return true;
}

using Point = std::array<double, 3>;

long double twiceArea(const Point& a, const Point& b, const Point& c) {
    return (b[0] - (long double)a[0]) * (c[1] - (long double)a[1]) -
           (b[1] - (long double)a[1]) * (c[0] - (long double)a[0]);
}

int report(const std::vector<std::string>& problems, const std::string& ok) {
    for (const std::string& p : problems) std::fprintf(stderr, "meshcheck: %s\n", p.c_str());
    if (problems.empty()) std::printf("%s\n", ok.c_str());
    return problems.empty() ? 0 : 1;
}

int validate(const MeshFile& m, int argc, char** argv) {
    double area = NAN, areaTol = 1e-9;
    bool hull = false, allUsed = false;
    long minTriangles = 1;
    rytest::Checks checks;
    checks.delaunay = false;
    checks.band = 1e-9;
    std::vector<PkMeshEdge> segments = m.edges;
    for (int i = 0; i < argc; ++i) {
        const std::string a = argv[i];
        const bool value = i + 1 < argc;
        if (a == "--area" && value) {
            area = std::stod(argv[++i]);
        } else if (a == "--area-tol" && value) {
            areaTol = std::stod(argv[++i]);
        } else if (a == "--min-triangles" && value) {
            minTriangles = std::stol(argv[++i]);
        } else if (a == "--hull" || a == "--delaunay" || a == "--constraints" ||
                   a == "--all-vertices-used") {
            hull |= a == "--hull";
            checks.delaunay |= a == "--delaunay";
            allUsed |= a == "--all-vertices-used";
            if (a == "--constraints") checks.required = segments;
        } else {
            std::fprintf(stderr, "meshcheck: unknown option %s\n", a.c_str());
            return 2;
        }
    }
    rytest::PlainMesh plain;
    for (const auto& p : m.vertices) plain.xy.push_back({p[0], p[1]});
    plain.triangles = m.triangles;
    std::istringstream found(rytest::validate(plain, checks));
    std::vector<std::string> problems;
    for (std::string line; std::getline(found, line);) problems.push_back(line);
    if (long(m.triangles.size()) < minTriangles)
        problems.push_back("only " + std::to_string(m.triangles.size()) + " triangles");
    std::vector<char> used(m.vertices.size(), 0);
    long double sum = 0;
    for (const auto& t : m.triangles) {
        if (std::any_of(t.begin(), t.end(), [&](int i) { return i < 0 || i >= int(used.size()); }))
            return report({"an index out of range"}, "");
        sum += twiceArea(m.vertices[std::size_t(t[0])],
                         m.vertices[std::size_t(t[1])],
                         m.vertices[std::size_t(t[2])]) /
               2;
        for (int i : t) used[std::size_t(i)] = 1;
    }
    if (allUsed && std::count(used.begin(), used.end(), 0) > 0)
        problems.push_back("a vertex is in no triangle");
    if (!std::isnan(area) &&
        std::fabs(double(sum) - area) > areaTol * std::max(1.0, std::fabs(area))) {
        problems.push_back("kept area " + std::to_string(double(sum)) + " differs from " +
                           std::to_string(area));
    }
    if (hull) {  // Andrew's monotone chain, lower then upper
        std::vector<Point> p = m.vertices, h;
        std::sort(p.begin(), p.end());
        for (int pass = 0; pass < 2 && p.size() > 2; ++pass) {
            const std::size_t start = h.size();
            for (const Point& q : p) {
                while (h.size() >= start + 2 && twiceArea(h[h.size() - 2], h.back(), q) <= 0)
                    h.pop_back();
                h.push_back(q);
            }
            h.pop_back();
            std::reverse(p.begin(), p.end());
        }
        long double twice = 0;
        for (std::size_t i = 1; i + 1 < h.size(); ++i) twice += twiceArea(h[0], h[i], h[i + 1]);
        if (std::fabs(double(sum) - double(twice / 2)) > 1e-9 * std::max(1.0L, twice / 2)) {
            problems.push_back("area " + std::to_string(double(sum)) +
                               " differs from the convex hull's");
        }
    }
    char ok[160];
    std::snprintf(ok,
                  sizeof ok,
                  "ok: %zu vertices, %zu triangles, %zu constraint edges, area %.12g",
                  m.vertices.size(),
                  m.triangles.size(),
                  m.edges.size(),
                  double(sum));
    return report(problems, ok);
}

int same(const MeshFile& a, const MeshFile& b, bool edges, bool ignoreZ) {
    std::vector<std::string> problems;
    auto vertex = [&](const std::array<double, 3>& p) {
        return std::array<double, 3>{p[0], p[1], ignoreZ ? 0 : p[2]};
    };
    for (std::size_t i = 0; i < std::max(a.vertices.size(), b.vertices.size()) && problems.empty();
         ++i) {
        if (i >= a.vertices.size() || i >= b.vertices.size() ||
            vertex(a.vertices[i]) != vertex(b.vertices[i])) {
            problems.push_back("vertex " + std::to_string(i) + " differs (or the counts do)");
        }
    }
    auto canonical = [](const MeshFile& m) {  // rotated to the smallest corner, orientation kept
        std::multiset<std::array<int, 3>> s;
        for (std::array<int, 3> t : m.triangles) {
            std::rotate(t.begin(), std::min_element(t.begin(), t.end()), t.end());
            s.insert(t);
        }
        return s;
    };
    if (canonical(a) != canonical(b)) problems.push_back("the triangle sets differ");
    auto edgeSet = [](const MeshFile& m) {
        std::multiset<std::pair<int, int>> s;
        for (const PkMeshEdge& e : m.edges) s.emplace(e.EdgeIndex1(), e.EdgeIndex2());
        return s;
    };
    if (edges && edgeSet(a) != edgeSet(b)) problems.push_back("the constraint edges differ");
    return report(problems,
                  "same: " + std::to_string(a.vertices.size()) + " vertices, " +
                      std::to_string(a.triangles.size()) + " triangles");
}

/// Every vertex is an input point, height included (at most `added` made at crossings), and
/// every input position is a vertex.
int points(const MeshFile& m, const std::string& path, long added) {
    std::vector<std::vector<std::string>> lines;
    if (!words(path, lines))
        return std::fprintf(stderr, "meshcheck: cannot read %s\n", path.c_str()), 2;
    std::map<std::pair<double, double>, std::set<double>> input;
    for (std::vector<std::string> w : lines) {
        std::string text;
        for (std::string& s : w) text += s + " ";
        std::replace(text.begin(), text.end(), ',', ' ');
        std::istringstream in(text);
        double x, y, z = 0.0;
        if (in >> x >> y) input[{x, y}].insert((in >> z, z));
    }
    std::vector<std::string> problems;
    std::set<std::pair<double, double>> seen;
    long strangers = 0;
    for (const auto& p : m.vertices) {
        const auto it = input.find({p[0], p[1]});
        if (it == input.end()) {
            ++strangers;
            continue;
        }
        seen.insert(it->first);
        if (!it->second.count(p[2]))
            problems.push_back("a vertex has a height no input point there has");
    }
    if (strangers > added)
        problems.push_back(std::to_string(strangers) + " vertices are not input points");
    if (seen.size() != input.size())
        problems.push_back("input positions are missing from the mesh");
    return report(problems, "points ok: " + std::to_string(m.vertices.size()) + " vertices");
}

int svg(const std::string& path, int argc, char** argv) {
    std::ifstream in(path);
    if (!in) return std::fprintf(stderr, "meshcheck: cannot read %s\n", path.c_str()), 2;
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::vector<std::string> problems;
    const std::size_t end = text.rfind("</svg>");
    if (text.find("<svg") == std::string::npos || end == std::string::npos ||
        text.find_first_not_of(" \r\n", end + 6) != std::string::npos) {
        problems.push_back("not one <svg> element");
    }
    long open = 0;  // every element opened is closed
    for (std::size_t i = text.find('<'); i != std::string::npos; i = text.find('<', i + 1)) {
        const std::size_t close = text.find('>', i);
        if (close == std::string::npos) open = -1000000;
        if (close == std::string::npos || text[i + 1] == '?' || text[i + 1] == '!') continue;
        open += text[i + 1] == '/' ? -1 : text[close - 1] != '/';
    }
    if (open != 0) problems.push_back("unbalanced elements");
    for (int i = 0; i + 1 < argc; i += 2) {
        if ((text.find(argv[i + 1]) != std::string::npos) !=
            (std::string(argv[i]) == "--contains")) {
            problems.push_back(std::string(argv[i]) + " '" + argv[i + 1] + "' fails");
        }
    }
    return report(problems, "svg ok: " + std::to_string(text.size()) + " bytes");
}

}  // namespace

int main(int argc, char** argv) {
    const std::string command = argc > 2 ? argv[1] : "";
    if (command == "svg") return svg(argv[2], argc - 3, argv + 3);
    MeshFile first, second;
    if (command == "validate" || command == "same" || command == "points") {
        if (!readMesh(argv[2], first)) return 2;
        if (command == "validate") return validate(first, argc - 3, argv + 3);
        if (argc >= 4 && command == "points")
            return points(first, argv[3], argc >= 5 ? std::stol(argv[4]) : 0);
        if (argc >= 4 && readMesh(argv[3], second)) {
            const std::vector<std::string> flags(argv + 4, argv + argc);
            auto has = [&](const char* f) { return std::count(flags.begin(), flags.end(), f) > 0; };
            return same(first, second, has("--edges"), has("--ignore-z"));
        }
    }
    std::fprintf(stderr,
                 "usage: rytri_meshcheck validate MESH [checks] | same MESH1 MESH2 [--edges] | "
                 "points MESH POINTS [ADDED] | svg FILE [--contains TEXT]...\n");
    return 2;
}
