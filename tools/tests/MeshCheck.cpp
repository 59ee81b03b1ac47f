// rytri_meshcheck: reads rytri's meshes back, independently of its writers, and validates them.
//   rytri_meshcheck validate MESH [--area A] [--area-tol R] [--hull] [--delaunay]
//                                 [--constraints] [--all-vertices-used] [--min-triangles N]
//   rytri_meshcheck same MESH1 MESH2 [--edges] [--ignore-z]
//   rytri_meshcheck points MESH POINTS.xyz [ADDED]
//   rytri_meshcheck svg FILE [--contains TEXT] [--lacks TEXT]...
//   rytri_meshcheck shortest NAME.obj    (vertex numbers as std::to_chars writes them)
//
// MESH is NAME.obj or NAME.ele (with NAME.node, and NAME.poly for constraint edges if present).
// Validation as PlainMesh (band 1e-9), plus the kept area, the hull covered, unused vertices.
// Exit 0 when every check passes, 1 with the problems listed, 2 on unreadable files or usage.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "predicates/Predicates.h"
#include "support/MeshValidator.h"

namespace {

using Point = std::array<double, 3>;
using Words = std::vector<std::vector<std::string>>;

struct MeshFile {
    std::vector<Point> vertices;
    std::vector<std::array<int, 3>> triangles;
    std::vector<PkMeshEdge> edges;
};

/// The words of every line without comments; false when the file cannot be read.
bool read(const std::string& path, Words& lines) {
    std::ifstream in(path);
    for (std::string line, word; std::getline(in, line);) {
        std::istringstream split(line.substr(0, line.find('#')));
        for (lines.emplace_back(); split >> word;) lines.back().push_back(word);
        if (lines.back().empty()) lines.pop_back();
    }
    return bool(std::ifstream(path));
}

/// obj: v x y z, f a b c, l a b (1-based); NAME.node: "n 2 attributes", then "i x y [z]" from a
/// base of 0 or 1; NAME.ele: "m 3", then "i a b c"; NAME.poly: "0 ...", "s ...", then "i a b".
bool readMesh(const std::string& path, MeshFile& m) {
    const std::string stem = path.substr(0, path.size() - std::min<std::size_t>(4, path.size()));
    const bool obj = path == stem + ".obj";
    Words node, ele, poly;
    try {
        if (!read(obj ? path : stem + ".node", node) ||
            (!obj && (path != stem + ".ele" || !read(path, ele))))
            throw 0;
        const int base = obj ? 1 : std::stoi(node.at(1).at(0));
        auto at = [&](const std::vector<std::string>& w, std::size_t k) {
            return std::stoi(w.at(k)) - base;
        };
        const bool z = obj || std::stoi(node[0].at(2)) > 0;
        for (std::size_t k = !obj; k < node.size(); ++k) {
            const std::vector<std::string>& w = node[k];
            const bool line = obj && (w[0] == "f" || w[0] == "l");
            if (line ? w.size() != (w[0] == "f" ? 4u : 3u)
                     : !obj && std::stol(w[0]) != base + long(k) - 1)
                throw 0;
            if (!obj || w[0] == "v")
                m.vertices.push_back(
                    {std::stod(w.at(1)), std::stod(w.at(2)), z ? std::stod(w.at(3)) : 0});
            if (line && w[0] == "f") m.triangles.push_back({at(w, 1), at(w, 2), at(w, 3)});
            if (line && w[0] == "l") m.edges.emplace_back(at(w, 1), at(w, 2));
        }
        for (std::size_t k = 1; k < ele.size(); ++k)
            m.triangles.push_back({at(ele[k], 1), at(ele[k], 2), at(ele[k], 3)});
        const long segments = !obj && read(stem + ".poly", poly) ? std::stol(poly.at(1).at(0)) : 0;
        for (std::size_t k = 2; k < std::size_t(segments) + 2; ++k)
            m.edges.emplace_back(at(poly.at(k), 1), at(poly.at(k), 2));
        if (!obj && (long(node.size()) != std::stol(node[0][0]) + 1 ||
                     long(ele.size()) != std::stol(ele[0][0]) + 1))
            throw 0;
    } catch (...) {
        return std::fprintf(stderr, "meshcheck: cannot read %s\n", path.c_str()), false;
    }
    return true;
}

int report(const std::vector<std::string>& problems, const std::string& ok) {
    for (const std::string& p : problems) std::fprintf(stderr, "meshcheck: %s\n", p.c_str());
    if (problems.empty()) std::printf("%s\n", ok.c_str());
    return problems.empty() ? 0 : 1;
}

int validate(const MeshFile& m, const std::vector<std::string>& options) {
    std::map<std::string, double> value = {
        {"--area", NAN}, {"--area-tol", 1e-9}, {"--min-triangles", 1}};
    const std::set<std::string> known = {
        "--hull", "--delaunay", "--constraints", "--all-vertices-used"};
    std::set<std::string> flags;
    for (std::size_t i = 0; i < options.size(); ++i) {
        if (value.count(options[i]) && i + 1 < options.size()) {
            value[options[i]] = std::stod(options[i + 1]), ++i;
        } else if (known.count(options[i])) {
            flags.insert(options[i]);
        } else {
            return std::fprintf(stderr, "meshcheck: unknown option %s\n", options[i].c_str()), 2;
        }
    }
    rytest::Checks checks;
    checks.band = 1e-9;
    checks.delaunay = flags.count("--delaunay");
    if (flags.count("--constraints")) checks.required = m.edges;
    rytest::PlainMesh plain;
    for (const Point& p : m.vertices) plain.xy.push_back({p[0], p[1]});
    plain.triangles = m.triangles;
    std::istringstream found(rytest::validate(plain, checks));
    std::vector<std::string> problems;
    for (std::string line; std::getline(found, line);) problems.push_back(line);
    if (!problems.empty()) return report(problems, "");
    long double sum = 0;
    std::set<std::pair<int, int>> directed;
    std::vector<char> used(m.vertices.size(), 0);
    for (const auto& t : m.triangles) {
        const Point &a = m.vertices[std::size_t(t[0])], &b = m.vertices[std::size_t(t[1])];
        const Point& c = m.vertices[std::size_t(t[2])];
        sum += ((b[0] - (long double)a[0]) * (c[1] - a[1]) -
                (b[1] - (long double)a[1]) * (c[0] - a[0])) /
               2;
        for (std::size_t k = 0; k < 3; ++k)
            used[std::size_t(t[k])] = 1, directed.emplace(t[k], t[(k + 1) % 3]);
    }
    const double area = value["--area"];
    if (double(m.triangles.size()) < value["--min-triangles"])
        problems.push_back("too few triangles");
    if (flags.count("--all-vertices-used") && std::count(used.begin(), used.end(), 0))
        problems.push_back("an unused vertex");
    if (std::fabs(double(sum) - area) > value["--area-tol"] * std::max(1.0, std::fabs(area)))
        problems.push_back("kept area " + std::to_string(double(sum)) + ", expected " +
                           std::to_string(area));
    for (const auto& [a, b] : flags.count("--hull") ? directed : std::set<std::pair<int, int>>()) {
        const double *p = m.vertices[std::size_t(a)].data(), *q = m.vertices[std::size_t(b)].data();
        if (!directed.count({b, a}) &&
            std::any_of(m.vertices.begin(), m.vertices.end(), [&](const Point& v) {
                return orient2d(p, q, v.data()) < 0;
            }))
            problems.push_back("a boundary edge is no hull edge: " + std::to_string(a));
    }
    return report(problems,
                  "ok: " + std::to_string(m.vertices.size()) + " vertices, " +
                      std::to_string(m.triangles.size()) + " triangles, area " +
                      std::to_string(double(sum)));
}

int same(const MeshFile& a, const MeshFile& b, bool edges, bool ignoreZ) {
    auto contents = [&](const MeshFile& m) {  // triangles rotated to the smallest corner
        std::multiset<std::vector<double>> s;
        for (const Point& p : m.vertices)
            s.insert({0, double(s.size()), p[0], p[1], ignoreZ ? 0 : p[2]});
        for (std::array<int, 3> t : m.triangles) {
            std::rotate(t.begin(), std::min_element(t.begin(), t.end()), t.end());
            s.insert({1, double(t[0]), double(t[1]), double(t[2])});
        }
        for (const PkMeshEdge& e : edges ? m.edges : std::vector<PkMeshEdge>())
            s.insert({2, double(e.EdgeIndex1()), double(e.EdgeIndex2())});
        return s;
    };
    const std::vector<std::string> differ = {"the vertices, triangles or constraint edges differ"};
    return report(contents(a) == contents(b) ? std::vector<std::string>() : differ,
                  "same: " + std::to_string(a.vertices.size()) + " vertices, " +
                      std::to_string(a.triangles.size()) + " triangles");
}

/// Every vertex is an input point, height included (at most `added` were made at crossings), and
/// every input position is a vertex.
int points(const MeshFile& m, const std::string& path, long added) {
    std::ifstream in(path);
    if (!in) return std::fprintf(stderr, "meshcheck: cannot read %s\n", path.c_str()), 2;
    std::set<Point> input;
    std::set<std::pair<double, double>> positions, seen;
    for (std::string line; std::getline(in, line);) {
        std::replace(line.begin(), line.end(), ',', ' ');
        std::istringstream words(line.substr(0, line.find('#')));
        Point p{0, 0, 0};
        if (!(words >> p[0] >> p[1])) continue;
        words >> p[2];
        input.insert(p);
        positions.emplace(p[0], p[1]);
    }
    std::vector<std::string> problems;
    for (const Point& p : m.vertices) {
        if (input.count(p)) seen.emplace(p[0], p[1]);
        if (!input.count(p) && (positions.count({p[0], p[1]}) || --added < 0))
            problems.push_back("a vertex is no input point");
    }
    if (seen != positions) problems.push_back("input positions are missing from the mesh");
    return report(problems, "points ok: " + std::to_string(m.vertices.size()) + " vertices");
}

int svg(const std::string& path, const std::vector<std::string>& options) {
    std::ifstream in(path);
    if (!in) return std::fprintf(stderr, "meshcheck: cannot read %s\n", path.c_str()), 2;
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::vector<std::string> problems;
    long open = 0;  // every element opened is closed
    for (std::size_t i = text.find('<'), close; i != std::string::npos; i = text.find('<', i + 1)) {
        if ((close = text.find('>', i)) == std::string::npos) open = -1000000;
        if (close != std::string::npos && text[i + 1] != '?' && text[i + 1] != '!')
            open += text[i + 1] == '/' ? -1 : text[close - 1] != '/';
    }
    const std::size_t end = text.rfind("</svg>");
    if (open || text.find("<svg") == std::string::npos || end == std::string::npos ||
        text.find_first_not_of(" \r\n", end + 6) != std::string::npos) {
        problems.push_back("not one balanced <svg> element");
    }
    for (std::size_t i = 0; i + 1 < options.size(); i += 2) {
        const bool found = text.find(options[i + 1]) != std::string::npos;
        if (found != (options[i] == "--contains"))
            problems.push_back(options[i] + " '" + options[i + 1] + "' fails");
    }
    return report(problems, "svg ok: " + std::to_string(text.size()) + " bytes");
}

/// Every number of the vertex lines is the shortest text that reads back as its double.
int shortest(const std::string& path) {
    std::ifstream in(path);
    std::string line, field;
    std::vector<std::string> problems;
    long numbers = 0;
    while (std::getline(in, line) && problems.empty()) {
        std::istringstream fields(line.rfind("v ", 0) == 0 ? line.substr(2) : "");
        for (double value = 0; fields >> field; ++numbers) {
            std::from_chars(field.data(), field.data() + field.size(), value);
            char text[32];
            const std::string best(text, std::to_chars(text, text + sizeof text, value).ptr);
            if (field != best) problems.push_back("'" + field + "' is not written '" + best + "'");
        }
    }
    if (numbers == 0) problems.push_back("no vertex numbers");
    return report(problems, "shortest: " + std::to_string(numbers) + " numbers");
}

}  // namespace

int main(int argc, char** argv) {
    const std::string command = argc > 2 ? argv[1] : "";
    const std::vector<std::string> rest(argv + std::min(argc, 3), argv + argc);
    auto has = [&](const char* flag) { return std::count(rest.begin(), rest.end(), flag) > 0; };
    MeshFile first, second;
    if (command == "svg") return svg(argv[2], rest);
    if (command == "shortest") return shortest(argv[2]);
    if (command == "validate") return readMesh(argv[2], first) ? validate(first, rest) : 2;
    if (command == "points" && argc >= 4 && readMesh(argv[2], first))
        return points(first, argv[3], argc >= 5 ? std::stol(argv[4]) : 0);
    if (command == "same" && argc >= 4 && readMesh(argv[2], first) && readMesh(argv[3], second))
        return same(first, second, has("--edges"), has("--ignore-z"));
    std::fprintf(stderr,
                 "usage: rytri_meshcheck validate MESH [checks] | same MESH1 MESH2 [--edges] | "
                 "points MESH POINTS [ADDED] | svg FILE [--contains TEXT]...\n");
    return 2;
}
