// rytri: triangulate survey points and breaklines from the command line.
//
//   read -> clean-up (merge repeated points) -> triangulate with constraints -> finish (keep all
//   triangles, or the inside of the boundaries) -> write .obj / .node+.ele / .svg
//
// Built on the library's public interface only. Exit codes: 0 success, 1 the triangulation
// reported a failure status, 2 usage, input or output errors.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "DemoSite.h"
#include "RyTriangulation.h"
#include "Site.h"
#include "io/MeshWriters.h"
#include "io/OutputFile.h"
#include "io/Platform.h"
#include "io/SiteReaders.h"
#include "io/TextInput.h"

#ifndef RYTRI_VERSION
#define RYTRI_VERSION "unknown"
#endif

namespace rytri {
namespace {

constexpr int kExitOk = 0;
constexpr int kExitStatus = 1;
constexpr int kExitUsage = 2;

// The inside rule counts boundary crossings by a flood, nesting level by nesting level, and the
// library ends a level's flood after this many triangle visits: what it has not reached by then
// counts as inside. A visit happens when a triangle is first reached or revisited from a stack
// entry it had several of; each first visit adds at most three entries, so a level never needs
// more than four visits per triangle of the mesh, and a mesh of at most a quarter as many
// triangles is labelled in full.
constexpr std::size_t kInsideRuleVisitLimit = 1000000;
constexpr std::size_t kInsideRuleSafeTriangles = kInsideRuleVisitLimit / 4;

const char* const kUsage =
    "Usage: rytri [options] INPUT\n"
    "       rytri --demo [--out-dir DIR] [options]\n"
    "\n"
    "Triangulates points, with breaklines and boundaries as constraint edges, and writes the\n"
    "mesh. The input format follows the extension:\n"
    "  .node          vertices of a mesh generator ('index x y [attributes] [marker]'; the first\n"
    "                 attribute is the height z); numbered from 0 or 1, as the file starts\n"
    "  .poly          vertices and segments (constraint edges); hole points and regional\n"
    "                 attributes are ignored: holes are the regions inside an even number of\n"
    "                 closed boundaries\n"
    "  .obj           'v x y [z]' vertices and 'l a b ...' line elements as constraint edges\n"
    "  anything else  plain points, 'x y [z]' or 'x,y,z' per line, '#' comments, z = 0 if absent\n"
    "\n"
    "Output:\n"
    "  -o, --output FILE   write the mesh; FILE ending in .obj writes Wavefront OBJ (faces, and\n"
    "                      constraint edges as 'l' lines); ending in .node or .ele writes the\n"
    "                      pair NAME.node and NAME.ele (and NAME.poly with the constraint edges).\n"
    "                      May be given more than once.\n"
    "  --svg FILE          draw the mesh: triangles in thin lines, kept triangles filled by\n"
    "                      height, constraint edges bold\n"
    "  --svg-limit N       above N triangles the picture shows a grid of mean heights instead of\n"
    "                      every triangle, so that a browser can still render it (default 200000)\n"
    "  --out-dir DIR       with neither -o nor --svg, write DIR/NAME.obj and DIR/NAME.svg (NAME:\n"
    "                      the input's name without extension, 'site' for the demo); default '.'\n"
    "\n"
    "Input options:\n"
    "  --edges FILE        constraint edges for plain points or .node: 'i j' per line, 0-based\n"
    "  --demo              use the embedded demonstration site instead of a file\n"
    "\n"
    "Triangulation options:\n"
    "  --keep all|inside   all: every triangle of the triangulation; inside: only the triangles\n"
    "                      inside the closed boundaries, holes removed (default: inside when\n"
    "                      there are constraint edges, else all)\n"
    "  --dedupe xy|xz|yz   merge repeated points first, comparing them in this plane, which is\n"
    "                      also the plane triangulated (default: xy)\n"
    "  --no-dedupe         skip the clean-up (a repeated point then stops the run)\n"
    "  --tolerance T       points closer than T merge in the clean-up (default 1e-10)\n"
    "  --cdt-tolerance D   band around zero within which an orientation or in-circle\n"
    "                      determinant counts as zero (default 1e-9)\n"
    "  --no-spatial-sort   insert in shuffled order instead of a space-filling-curve order\n"
    "  --no-split-crossing a constraint crossing an earlier one is not split at the crossing\n"
    "\n"
    "Reporting:\n"
    "  --stats             timing of each phase, counts and peak memory\n"
    "  --quiet             print only errors\n"
    "  --help, --version\n"
    "\n"
    "Exit status: 0 success, 1 the triangulation failed, 2 usage, input or output error.\n";

enum class Keep { kDefault, kAll, kInside };

struct Options {
    std::string input;
    std::string edgesFile;
    std::vector<std::string> outputs;
    std::string svg;
    std::string outDir = ".";
    bool demo = false;
    Keep keep = Keep::kDefault;
    bool dedupe = true;
    int plane = 0;
    double tolerance = -1.0;
    double cdtTolerance = -1.0;
    bool spatialSort = true;
    bool splitCrossing = true;
    bool stats = false;
    bool quiet = false;
    long long svgLimit = 200000;
};

void printError(const std::string& message) {
    std::fprintf(stderr, "rytri: error: %s\n", message.c_str());
}

int usageError(const std::string& message) {
    printError(message);
    std::fprintf(stderr, "Try 'rytri --help'.\n");
    return kExitUsage;
}

bool parseDouble(const std::string& text, double& value) {
    FieldReader fields(text);
    std::string what;
    return fields.remaining() == 1 && fields.number(value, what);
}

/// Returns -1 when parsing should go on, else the exit code.
int parseOptions(int argc, char** argv, Options& o) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        auto value = [&](std::string& out) {
            if (i + 1 >= argc) return false;
            out = argv[++i];
            return true;
        };
        std::string v;
        if (arg == "--help" || arg == "-h") {
            std::fputs(kUsage, stdout);
            return kExitOk;
        } else if (arg == "--version") {
            std::printf("rytri %s\n", RYTRI_VERSION);
            return kExitOk;
        } else if (arg == "-o" || arg == "--output") {
            if (!value(v)) return usageError(arg + " needs a file name");
            o.outputs.push_back(v);
        } else if (arg == "--svg") {
            if (!value(o.svg)) return usageError("--svg needs a file name");
        } else if (arg == "--svg-limit") {
            double limit;
            if (!value(v) || !parseDouble(v, limit) || limit < 0.0 || limit != std::floor(limit)) {
                return usageError("--svg-limit needs a whole number >= 0");
            }
            o.svgLimit = static_cast<long long>(limit);
        } else if (arg == "--out-dir") {
            if (!value(o.outDir)) return usageError("--out-dir needs a directory");
        } else if (arg == "--edges") {
            if (!value(o.edgesFile)) return usageError("--edges needs a file name");
        } else if (arg == "--demo") {
            o.demo = true;
        } else if (arg == "--keep") {
            if (!value(v)) return usageError("--keep needs 'all' or 'inside'");
            if (v == "all") {
                o.keep = Keep::kAll;
            } else if (v == "inside") {
                o.keep = Keep::kInside;
            } else {
                return usageError("--keep takes 'all' or 'inside', not '" + v + "'");
            }
        } else if (arg == "--dedupe") {
            if (!value(v)) return usageError("--dedupe needs a plane: xy, xz or yz");
            if (v == "xy") {
                o.plane = 0;
            } else if (v == "xz") {
                o.plane = 1;
            } else if (v == "yz") {
                o.plane = 2;
            } else {
                return usageError("--dedupe takes xy, xz or yz, not '" + v + "'");
            }
            o.dedupe = true;
        } else if (arg == "--no-dedupe") {
            o.dedupe = false;
        } else if (arg == "--tolerance" || arg == "--cdt-tolerance") {
            double t;
            if (!value(v) || !parseDouble(v, t) || t < 0.0) {
                return usageError(arg + " needs a number >= 0");
            }
            (arg == "--tolerance" ? o.tolerance : o.cdtTolerance) = t;
        } else if (arg == "--no-spatial-sort") {
            o.spatialSort = false;
        } else if (arg == "--no-split-crossing") {
            o.splitCrossing = false;
        } else if (arg == "--stats") {
            o.stats = true;
        } else if (arg == "--quiet" || arg == "-q") {
            o.quiet = true;
        } else if (arg.size() > 1 && arg[0] == '-') {
            return usageError("unknown option '" + arg + "'");
        } else if (o.input.empty()) {
            o.input = arg;
        } else {
            return usageError("more than one input file ('" + o.input + "' and '" + arg + "')");
        }
    }
    if (o.demo && !o.input.empty()) return usageError("--demo takes no input file");
    if (!o.demo && o.input.empty()) return usageError("no input file");
    if (o.demo && !o.edgesFile.empty()) return usageError("--edges cannot be used with --demo");
    return -1;
}

struct StatusInfo {
    const char* name;
    const char* meaning;
    const char* advice;
};

StatusInfo describeStatus(int status) {
    switch (status) {
        case StatusFailed:
            return {"StatusFailed",
                    "a coordinate was not finite, a vertex index was out of range, restoring the "
                    "Delaunay property broke off, or the vertex where two constraints cross could "
                    "not be inserted",
                    "check the input for odd values; try --no-split-crossing if constraint edges "
                    "cross"};
        case StatusTooFewPoints:
            return {"StatusTooFewPoints",
                    "fewer than 3 points are left to triangulate",
                    "give at least 3 distinct points (the clean-up merges repeated ones)"};
        case StatusCoincidentVertex:
            return {"StatusCoincidentVertex",
                    "a point lies on a point already inserted",
                    "remove repeated points with --dedupe xy (or a larger --tolerance when they "
                    "differ by rounding)"};
        case StatusLocateFailed:
            return {"StatusLocateFailed",
                    "a point could not be located in the mesh, or no first triangle could be "
                    "formed (for instance all points lie on one line)",
                    "check that the points are not all collinear; try --no-spatial-sort or "
                    "--cdt-tolerance 0"};
        case StatusConstraintFailed:
            return {"StatusConstraintFailed",
                    "a constraint edge could not be inserted (no triangle at its start is entered "
                    "by it, or two constraints cross at a point that cannot be computed or is an "
                    "end point)",
                    "look for overlapping or nearly touching constraint edges; try "
                    "--no-split-crossing, or --dedupe with a larger --tolerance"};
        case StatusIterationLimit:
            return {"StatusIterationLimit",
                    "a search or repair loop reached its limit of 1000000 steps",
                    "the input is probably degenerate (many points on a line or circle); try "
                    "--no-spatial-sort or --cdt-tolerance 0"};
        default:
            return {"unknown status", "the library reported an undocumented status", "report it"};
    }
}

using Clock = std::chrono::steady_clock;

double millisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

std::string formatMs(double ms) {
    char text[32];
    if (ms < 10.0) {
        std::snprintf(text, sizeof text, "%.2f ms", ms);
    } else if (ms < 10000.0) {
        std::snprintf(text, sizeof text, "%.0f ms", ms);
    } else {
        std::snprintf(text, sizeof text, "%.1f s", ms / 1000.0);
    }
    return text;
}

std::string formatNumber(double value, int digits = 6) {
    char text[48];
    std::snprintf(text, sizeof text, "%.*g", digits, value);
    return text;
}

std::string counted(std::size_t n, const char* one, const char* many) {
    return std::to_string(n) + " " + (n == 1 ? one : many);
}

std::string baseName(const std::string& path) {
    const std::size_t slash = path.find_last_of(kPathSeparators);
    std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    const std::size_t dot = name.find_last_of('.');
    if (dot != std::string::npos && dot > 0) name = name.substr(0, dot);
    return name.empty() ? "mesh" : name;
}

/// Plane coordinates (u, v) and height h of a point, for the plane of triangulation.
PkGePoint3d toPlane(const PkGePoint3d& p, int plane) {
    switch (plane) {
        case 1:
            return PkGePoint3d(p.x, p.z, p.y);
        case 2:
            return PkGePoint3d(p.y, p.z, p.x);
        default:
            return p;
    }
}

double kept2dArea(const Mesh& mesh) {
    double twice = 0.0;
    for (std::size_t t = 0; t < mesh.triangleCount(); ++t) {
        const PkGePoint3d& a = mesh.vertices[std::size_t(mesh.triangles[3 * t])];
        const PkGePoint3d& b = mesh.vertices[std::size_t(mesh.triangles[3 * t + 1])];
        const PkGePoint3d& c = mesh.vertices[std::size_t(mesh.triangles[3 * t + 2])];
        twice += (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
    }
    return 0.5 * twice;
}

/// Merges repeated points with the library's clean-up. The clean-up sorts the points and sets
/// their height to 0; the height comes back from the original point with the same plane
/// coordinates (a surviving point keeps its own coordinates exactly, so one always matches; of
/// several identical originals the first in input order gives the height).
void mergeRepeatedPoints(RyTriangulation& triangulation,
                         std::vector<PkGePoint3d>& points,
                         std::vector<PkMeshEdge>& edges,
                         std::size_t& collapsedEdges,
                         std::size_t& unmatched) {
    std::vector<PkGePoint3d> merged(points.size());
    for (std::size_t i = 0; i < points.size(); ++i)
        merged[i] = PkGePoint3d(points[i].x, points[i].y, 0.0);
    std::vector<PkMeshEdge> newEdges = edges;
    PkConvert2dVertex plane = kXYPlane;  // the points are already in plane coordinates
    PkGeTol tolerance = PkGeContext::gTol;
    if (edges.empty()) {
        triangulation.deleteDuplicateVertices(merged, plane, tolerance);
    } else {
        triangulation.deleteDuplicateVertices(merged, newEdges, plane, tolerance);
    }

    std::vector<std::uint32_t> order(points.size());
    for (std::size_t i = 0; i < order.size(); ++i) order[i] = std::uint32_t(i);
    auto less = [&](std::uint32_t a, std::uint32_t b) {
        const PkGePoint3d &p = points[a], &q = points[b];
        if (p.x != q.x) return p.x < q.x;
        if (p.y != q.y) return p.y < q.y;
        return a < b;
    };
    std::sort(order.begin(), order.end(), less);
    // The merged list comes back sorted by the same key, so one forward walk finds almost every
    // match; a binary search covers any other order.
    auto before = [&](std::uint32_t i, const PkGePoint3d& key) {
        const PkGePoint3d& p = points[i];
        return p.x < key.x || (p.x == key.x && p.y < key.y);
    };
    unmatched = 0;
    std::size_t cursor = 0;
    for (PkGePoint3d& m : merged) {
        while (cursor < order.size() && before(order[cursor], m)) ++cursor;
        std::size_t j = cursor;
        if (j >= order.size() || points[order[j]].x != m.x || points[order[j]].y != m.y) {
            j = std::size_t(std::lower_bound(order.begin(), order.end(), m, before) -
                            order.begin());
        }
        if (j < order.size() && points[order[j]].x == m.x && points[order[j]].y == m.y) {
            m.z = points[order[j]].z;
        } else {
            ++unmatched;
        }
    }
    collapsedEdges = 0;
    for (std::size_t k = 0; k < newEdges.size(); ++k) {
        if (newEdges[k].EdgeIndex1() < 0 && edges[k].EdgeIndex1() >= 0) ++collapsedEdges;
    }
    points.swap(merged);
    edges.swap(newEdges);
}

struct TriangleKey {
    int a, b, c;
    bool operator==(const TriangleKey& o) const { return a == o.a && b == o.b && c == o.c; }
};
struct TriangleKeyHash {
    std::size_t operator()(const TriangleKey& k) const {
        std::uint64_t h = std::uint64_t(std::uint32_t(k.a)) * 0x9E3779B97F4A7C15ull;
        h ^= std::uint64_t(std::uint32_t(k.b)) + 0x632BE59BD9B4E019ull + (h << 6) + (h >> 2);
        h ^= std::uint64_t(std::uint32_t(k.c)) + 0x85EBCA77C2B2AE63ull + (h << 6) + (h >> 2);
        return std::size_t(h);
    }
};

void appendTriangles(const std::vector<PkMeshTriangle>& from,
                     std::size_t begin,
                     std::size_t end,
                     std::vector<int>& to) {
    to.reserve(to.size() + 3 * (end - begin));
    for (std::size_t t = begin; t < end; ++t) {
        for (int k = 0; k < 3; ++k) to.push_back(from[t].getVertexIndexAt(k));
    }
}

struct PlannedOutput {
    enum Kind { kObj, kNodeEle, kSvg } kind;
    std::string path;  // for kNodeEle: the name without extension
};

int run(const Options& o) {
    const Clock::time_point start = Clock::now();
    double readMs = 0.0, cleanMs = 0.0, triangulateMs = 0.0, finishMs = 0.0, writeMs = 0.0;
    const std::string label = o.demo ? std::string("demo site") : o.input;

    // --- plan the outputs first: a bad name should fail before any work ---
    std::vector<PlannedOutput> planned;
    for (const std::string& path : o.outputs) {
        std::string ext;
        const std::size_t dot = path.find_last_of('.');
        const std::size_t slash = path.find_last_of('/');
        if (dot != std::string::npos && (slash == std::string::npos || dot > slash))
            ext = path.substr(dot);
        for (char& c : ext) c = char(std::tolower(static_cast<unsigned char>(c)));
        if (ext == ".obj") {
            planned.push_back({PlannedOutput::kObj, path});
        } else if (ext == ".node" || ext == ".ele") {
            planned.push_back({PlannedOutput::kNodeEle, path.substr(0, dot)});
        } else if (ext == ".svg") {
            planned.push_back({PlannedOutput::kSvg, path});
        } else {
            return usageError("cannot tell the format of output '" + path +
                              "': use a name ending in .obj, .node, .ele or .svg");
        }
    }
    if (!o.svg.empty()) planned.push_back({PlannedOutput::kSvg, o.svg});
    if (planned.empty()) {
        const std::string stem =
            o.outDir + "/" + (o.demo ? std::string("site") : baseName(o.input));
        if (!makeDirectories(o.outDir)) {
            printError("cannot create directory '" + o.outDir + "': " + std::strerror(errno));
            return kExitUsage;
        }
        planned.push_back({PlannedOutput::kObj, stem + ".obj"});
        planned.push_back({PlannedOutput::kSvg, stem + ".svg"});
    }
    if (!o.demo) {
        for (const PlannedOutput& p : planned) {
            for (const char* ext : {"", ".node", ".ele", ".poly"}) {
                if ((p.kind == PlannedOutput::kNodeEle) != (ext[0] != '\0')) continue;
                const std::string path = p.path + ext;
                if (sameFile(path, o.input) ||
                    (!o.edgesFile.empty() && sameFile(path, o.edgesFile))) {
                    printError("output '" + path +
                               "' would overwrite an input file; name another "
                               "output with -o or --svg");
                    return kExitUsage;
                }
            }
        }
    }

    // --- read ---
    Clock::time_point phase = Clock::now();
    Site site;
    DemoSite demo;
    if (o.demo) {
        demo = makeDemoSite();
        site = demo.site;
    } else {
        std::string error;
        if (!readSite(o.input, site, error)) {
            printError(error);
            return kExitUsage;
        }
        if (!o.edgesFile.empty()) {
            if (inputFormatOf(o.input) == InputFormat::kPoly ||
                inputFormatOf(o.input) == InputFormat::kObj) {
                return usageError("--edges is for plain point lists and .node files; '" + o.input +
                                  "' brings its own constraint edges");
            }
            if (!readEdgeList(o.edgesFile, site, error)) {
                printError(error);
                return kExitUsage;
            }
        }
    }
    readMs = millisecondsSince(phase);
    if (!o.quiet) {
        for (const std::string& w : site.warnings)
            std::fprintf(stderr, "rytri: warning: %s\n", w.c_str());
    }
    if (site.points.empty()) {
        printError(label + ": no points to triangulate (the input is empty)");
        return kExitUsage;
    }
    const std::size_t pointsRead = site.points.size();
    const std::size_t edgesRead = site.edges.size();

    Keep keep = o.keep;
    if (keep == Keep::kDefault) keep = site.edges.empty() ? Keep::kAll : Keep::kInside;
    if (keep == Keep::kInside && site.edges.empty()) {
        return usageError("--keep inside needs constraint edges (closed boundaries), and " + label +
                          " has none");
    }

    // --- clean-up ---
    phase = Clock::now();
    if (o.tolerance >= 0.0) PkGeContext::gTol.setEqualPoint(o.tolerance);
    RyTriangulation triangulation(o.spatialSort, o.splitCrossing);
    if (o.cdtTolerance >= 0.0) triangulation.setCDTTolerence(o.cdtTolerance);
    std::vector<PkGePoint3d> points(site.points.size());
    for (std::size_t i = 0; i < points.size(); ++i) points[i] = toPlane(site.points[i], o.plane);
    std::vector<PkMeshEdge> edges = site.edges;
    std::size_t collapsedEdges = 0, unmatched = 0;
    if (o.dedupe) {
        mergeRepeatedPoints(triangulation, points, edges, collapsedEdges, unmatched);
        if (unmatched > 0) {
            printError("internal: " + std::to_string(unmatched) +
                       " points came back from the clean-up with coordinates of no input point");
            return kExitStatus;
        }
        if (collapsedEdges > 0 && !o.quiet) {
            std::fprintf(stderr,
                         "rytri: warning: %zu constraint edge%s vanished: both ends merged into "
                         "one point\n",
                         collapsedEdges,
                         collapsedEdges == 1 ? "" : "s");
        }
    }
    cleanMs = millisecondsSince(phase);

    // --- triangulate ---
    phase = Clock::now();
    const PkTriangulationStatus status =
        edges.empty() ? triangulation.delaunayTriangulation(points)
                      : triangulation.delaunayTriangulationWithConstraints(points, edges);
    triangulateMs = millisecondsSince(phase);
    if (status != StatusOk) {
        const StatusInfo info = describeStatus(int(status));
        std::fprintf(stderr,
                     "rytri: error: triangulation of %s failed with status %d (%s): %s.\n"
                     "rytri: try: %s.\n",
                     label.c_str(),
                     int(status),
                     info.name,
                     info.meaning,
                     info.advice);
        if (!o.dedupe && status == StatusCoincidentVertex) {
            std::fprintf(stderr, "rytri: note: the clean-up was off (--no-dedupe)\n");
        }
        return kExitStatus;
    }

    // --- finish ---
    phase = Clock::now();
    Mesh mesh;
    mesh.plane = o.plane;
    mesh.edges = edges;
    const bool wantSvg = std::any_of(planned.begin(), planned.end(), [](const PlannedOutput& p) {
        return p.kind == PlannedOutput::kSvg;
    });
    std::size_t removedCount = 0;
    {
        if (keep == Keep::kInside) {
            triangulation.deleteOuterTrianglesAndHoles();
        } else {
            triangulation.deleteGhostTriangle();
        }
        const std::vector<PkMeshTriangle> kept = triangulation.getMeshTriangles();
        // A ghost triangle (a vertex -2, outside the hull) among the kept ones proves that the
        // inside rule stopped early: the list is wrong, and no writer may index a vertex -2.
        const auto ghost = std::find_if(kept.begin(), kept.end(), [](const PkMeshTriangle& t) {
            return t.getVertexIndexAt(0) < 0 || t.getVertexIndexAt(1) < 0 ||
                   t.getVertexIndexAt(2) < 0;
        });
        if (ghost != kept.end()) {
            std::fprintf(stderr,
                         "rytri: error: the inside rule stopped early on %s: it makes at most "
                         "%zu triangle visits per nesting level of the boundaries, and what it did "
                         "not reach (here even triangles outside the convex hull) counts as "
                         "inside.\n"
                         "rytri: try: --keep all, or split the site into smaller parts.\n",
                         label.c_str(),
                         kInsideRuleVisitLimit);
            return kExitStatus;
        }
        appendTriangles(kept, 0, kept.size(), mesh.triangles);
        if (keep == Keep::kInside) {
            // The finishing calls append to the output list, so running the ghost removal after
            // the inside rule lists every real triangle behind the kept ones: the difference is
            // what the inside rule left out.
            triangulation.deleteGhostTriangle();
            const std::vector<PkMeshTriangle> all = triangulation.getMeshTriangles();
            if (all.size() >= 2 * kept.size()) {
                removedCount = all.size() - 2 * kept.size();
                if (wantSvg) {
                    std::unordered_set<TriangleKey, TriangleKeyHash> inside;
                    inside.reserve(kept.size());
                    for (const PkMeshTriangle& t : kept) {
                        inside.insert(
                            {t.getVertexIndexAt(0), t.getVertexIndexAt(1), t.getVertexIndexAt(2)});
                    }
                    for (std::size_t t = kept.size(); t < all.size(); ++t) {
                        const TriangleKey key{all[t].getVertexIndexAt(0),
                                              all[t].getVertexIndexAt(1),
                                              all[t].getVertexIndexAt(2)};
                        if (!inside.count(key)) {
                            for (int k : {key.a, key.b, key.c}) mesh.removedTriangles.push_back(k);
                        }
                    }
                }
            }
        }
        const std::vector<PkMeshPoint3d> vertices = triangulation.getMeshVertices();
        mesh.vertices.reserve(vertices.size());
        for (const PkMeshPoint3d& v : vertices) mesh.vertices.push_back(v.getPoint());
    }
    finishMs = millisecondsSince(phase);
    const std::size_t crossingVertices =
        mesh.vertices.size() > points.size() ? mesh.vertices.size() - points.size() : 0;
    const double area = kept2dArea(mesh);
    std::size_t constraintCount = 0;
    for (const PkMeshEdge& e : edges) constraintCount += e.EdgeIndex1() >= 0 ? 1 : 0;
    // Two triangle slots per vertex, ghost triangles included (first triangle: four slots).
    const std::size_t meshSlots = mesh.vertices.size() < 2 ? 0 : 2 * mesh.vertices.size() - 2;
    if (keep == Keep::kInside && meshSlots > kInsideRuleSafeTriangles && !o.quiet) {
        std::fprintf(
            stderr,
            "rytri: warning: the inside rule makes at most %zu triangle visits per "
            "nesting level of the boundaries and may have stopped early on this mesh of %zu "
            "triangles, keeping triangles outside the boundaries or in holes too (compare the "
            "kept area with the site's)\n",
            kInsideRuleVisitLimit,
            meshSlots);
    }
    if (mesh.triangles.empty() && !o.quiet) {
        std::fprintf(stderr,
                     "rytri: warning: no triangle kept%s\n",
                     keep == Keep::kInside ? " (no region is enclosed by a closed boundary; "
                                             "--keep all keeps every triangle)"
                                           : "");
    }

    // --- write ---
    phase = Clock::now();
    const std::string comment = std::string("rytri ") + RYTRI_VERSION + " from " + label + ": " +
                                counted(mesh.vertices.size(), "vertex", "vertices") + ", " +
                                counted(mesh.triangleCount(), "triangle", "triangles") + ", " +
                                counted(constraintCount, "constraint edge", "constraint edges");
    std::vector<std::unique_ptr<OutputFile>> files;
    std::vector<std::string> written;
    std::string error;
    auto produce = [&](const std::string& path, auto&& writer) {
        files.push_back(std::make_unique<OutputFile>(path));
        OutputFile& file = *files.back();
        if (!file.open(error)) return false;
        writer(file);
        return file.close(error);
    };
    bool ok = true;
    for (const PlannedOutput& p : planned) {
        if (!ok) break;
        switch (p.kind) {
            case PlannedOutput::kObj:
                ok = produce(p.path, [&](OutputFile& f) { writeObj(mesh, comment, f); });
                break;
            case PlannedOutput::kNodeEle:
                ok = produce(p.path + ".node",
                             [&](OutputFile& f) { writeNode(mesh, comment, f); }) &&
                     produce(p.path + ".ele", [&](OutputFile& f) { writeEle(mesh, comment, f); }) &&
                     (constraintCount == 0 || produce(p.path + ".poly", [&](OutputFile& f) {
                          writePoly(mesh, comment, f);
                      }));
                break;
            case PlannedOutput::kSvg: {
                SvgOptions svg;
                svg.triangleLimit = std::size_t(o.svgLimit);
                svg.title = label + ": " + std::to_string(mesh.vertices.size()) + " vertices, " +
                            std::to_string(mesh.triangleCount()) + " triangles" +
                            (keep == Keep::kInside ? " kept" : "") + ", " +
                            std::to_string(constraintCount) + " constraint edges";
                ok = produce(p.path, [&](OutputFile& f) { writeSvg(mesh, svg, f); });
                break;
            }
        }
    }
    // Only complete files take their names, and only when every one was written.
    for (std::size_t i = 0; ok && i < files.size(); ++i) {
        ok = files[i]->commit(error);
        if (ok) written.push_back(files[i]->path());
    }
    if (!ok) {
        printError(error);
        files.clear();  // removes the temporary files
        return kExitUsage;
    }
    writeMs = millisecondsSince(phase);
    const double totalMs = millisecondsSince(start);

    // --- report ---
    if (!o.quiet) {
        std::printf("rytri %s: %s\n", RYTRI_VERSION, label.c_str());
        std::printf("  points       %zu read", pointsRead);
        if (o.dedupe) {
            std::printf(", %zu repeated merged", pointsRead - points.size());
        }
        std::printf(" -> %zu vertices", points.size());
        if (crossingVertices > 0) std::printf(" (+%zu at constraint crossings)", crossingVertices);
        std::printf("\n");
        std::printf("  constraints  %zu edges", constraintCount);
        if (edgesRead != constraintCount) std::printf(" (%zu given)", edgesRead);
        std::printf("\n");
        std::printf("  triangles    %zu kept", mesh.triangleCount());
        if (keep == Keep::kInside) {
            std::printf(" (inside the boundaries), %zu removed (outside or in holes)",
                        removedCount);
        } else {
            std::printf(" (all)");
        }
        std::printf("\n  kept area    %s\n", formatNumber(area, 10).c_str());
        if (o.demo) {
            std::printf("  site area    %s (boundary %s - holes %s)\n",
                        formatNumber(demo.outerArea - demo.holeArea, 10).c_str(),
                        formatNumber(demo.outerArea, 10).c_str(),
                        formatNumber(demo.holeArea, 10).c_str());
        }
        std::printf(
            "  time         read %s, clean-up %s, triangulate %s, finish %s, write %s; "
            "total %s\n",
            formatMs(readMs).c_str(),
            o.dedupe ? formatMs(cleanMs).c_str() : "off",
            formatMs(triangulateMs).c_str(),
            formatMs(finishMs).c_str(),
            formatMs(writeMs).c_str(),
            formatMs(totalMs).c_str());
        if (o.stats) {
            const double seconds = triangulateMs / 1000.0;
            std::printf(
                "  rate         %s points/s triangulated\n",
                seconds > 0.0 ? formatNumber(double(points.size()) / seconds).c_str() : "-");
            double minH = INFINITY, maxH = -INFINITY;
            for (const PkGePoint3d& p : mesh.vertices) {
                minH = std::min(minH, p.z);
                maxH = std::max(maxH, p.z);
            }
            std::printf("  height       %s .. %s\n",
                        formatNumber(minH).c_str(),
                        formatNumber(maxH).c_str());
            std::printf(
                "  options      keep %s, clean-up %s, spatial sort %s, split crossings %s, "
                "merge distance %s, determinant band %s\n",
                keep == Keep::kInside ? "inside" : "all",
                o.dedupe ? (o.plane == 0   ? "xy"
                            : o.plane == 1 ? "xz"
                                           : "yz")
                         : "off",
                o.spatialSort ? "on" : "off",
                o.splitCrossing ? "on" : "off",
                formatNumber(PkGeContext::gTol.equalPoint()).c_str(),
                o.cdtTolerance >= 0.0 ? formatNumber(o.cdtTolerance).c_str() : "1e-09");
            const long kib = peakMemoryKiB();
            if (kib >= 0) std::printf("  peak memory  %.1f MiB\n", double(kib) / 1024.0);
        }
        std::printf("  wrote       ");
        for (std::size_t i = 0; i < written.size(); ++i) {
            std::printf("%s %s", i == 0 ? "" : ",", written[i].c_str());
        }
        std::printf("\n");
    }
    return kExitOk;
}

}  // namespace
}  // namespace rytri

int main(int argc, char** argv) {
    rytri::Options options;
    const int parsed = rytri::parseOptions(argc, argv, options);
    if (parsed >= 0) return parsed;
    try {
        return rytri::run(options);
    } catch (const std::bad_alloc&) {
        rytri::printError("out of memory");
        return rytri::kExitUsage;
    } catch (const std::exception& e) {
        rytri::printError(std::string("unexpected failure: ") + e.what());
        return rytri::kExitStatus;
    }
}
