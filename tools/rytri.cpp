// rytri: triangulate survey points, boundaries, holes and breaklines from the command line.
//
//   read -> surface layer (merge coincident points keeping heights, triangulate with
//   constraints, keep the triangles the lines' roles say) -> write .obj / .node+.ele / .svg
//
// Built on the public interfaces of the library and the surface layer only. Exit codes: 0
// success, 1 the triangulation failed or its result would be wrong, 2 usage, input or output
// errors.
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "DemoSite.h"
#include "Options.h"
#include "Progress.h"
#include "Report.h"
#include "RySurface.h"
#include "RySurfaceProducts.h"
#include "Site.h"
#include "io/ExchangeWriters.h"
#include "io/MeshWriters.h"
#include "io/OutputFile.h"
#include "io/Platform.h"
#include "io/SiteReaders.h"
#include "io/TextFormat.h"

#ifndef RYTRI_VERSION
#define RYTRI_VERSION "unknown"
#endif

namespace rytri {
namespace {

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

struct PlannedOutput {
    enum Kind { kObj, kNodeEle, kSvg, kLandXml, kDxf, kGeoJson, kReport } kind;
    std::string path;  // for kNodeEle: the name without extension
};

/// The format of output `path` from its extension. -1 when all is well.
int planOutput(const std::string& path, const Options& o, std::vector<PlannedOutput>& planned) {
    std::string ext;
    const std::size_t dot = path.find_last_of('.');
    const std::size_t slash = path.find_last_of(kPathSeparators);
    if (dot != std::string::npos && (slash == std::string::npos || dot > slash))
        ext = path.substr(dot);
    for (char& c : ext) c = char(std::tolower(static_cast<unsigned char>(c)));
    const FileKind kind = fileKind(path);
    const bool special = kind.exists && !kind.regular;
    if (ext == ".obj" || OutputFile::isStandardOutput(path) || (ext.empty() && special)) {
        planned.push_back({PlannedOutput::kObj, path});
    } else if (ext == ".node" || ext == ".ele") {
        planned.push_back({PlannedOutput::kNodeEle, path.substr(0, dot)});
    } else if (ext == ".svg") {
        planned.push_back({PlannedOutput::kSvg, path});
    } else if (ext == ".xml" || ext == ".landxml") {
        planned.push_back({PlannedOutput::kLandXml, path});
    } else if (ext == ".dxf") {
        planned.push_back({PlannedOutput::kDxf, path});
    } else if (ext == ".geojson") {
        if (o.contourInterval <= 0.0) {
            return usageError("'" + path +
                              "': GeoJSON output holds the contours: give --contours INTERVAL");
        }
        planned.push_back({PlannedOutput::kGeoJson, path});
    } else {
        return usageError("cannot tell the format of output '" + path +
                          "': use a name ending in .obj, .node, .ele, .svg, .xml, .landxml, .dxf "
                          "or .geojson, or '-' (a device or FIFO without extension gets .obj)");
    }
    return -1;
}

/// No output may overwrite an input. -1 when all is well.
int checkOverwrite(const Options& o, const std::vector<PlannedOutput>& planned) {
    std::vector<std::string> inputs = {o.input, o.edgesFile};
    for (const LineFile& f : o.lineFiles) inputs.push_back(f.path);
    for (const PlannedOutput& p : planned) {
        for (const char* ext : {"", ".node", ".ele", ".poly"}) {
            if ((p.kind == PlannedOutput::kNodeEle) != (ext[0] != '\0')) continue;
            const std::string path = p.path + ext;
            for (const std::string& input : inputs) {
                if (!input.empty() && input != "-" && sameFile(path, input)) {
                    printError("output '" + path +
                               "' would overwrite an input file; name another output with -o or "
                               "--svg");
                    return kExitUsage;
                }
            }
        }
    }
    return -1;
}

/// The outputs, planned first: a bad name fails before any work. -1 when all is well.
int planOutputs(const Options& o, std::vector<PlannedOutput>& planned) {
    for (const std::string& path : o.outputs) {
        if (const int code = planOutput(path, o, planned); code >= 0) return code;
    }
    if (!o.svg.empty()) planned.push_back({PlannedOutput::kSvg, o.svg});
    int toStandardOutput = 0;
    for (const PlannedOutput& p : planned) toStandardOutput += OutputFile::isStandardOutput(p.path);
    toStandardOutput += OutputFile::isStandardOutput(o.report);
    if (toStandardOutput > 1) return usageError("only one output can go to standard output ('-')");
    if (planned.empty()) {
        const std::string stem =
            o.outDir + "/" + (o.demo || o.input == "-" ? std::string("site") : baseName(o.input));
        if (!makeDirectories(o.outDir)) {
            printError("cannot create directory '" + o.outDir + "': " + std::strerror(errno));
            return kExitUsage;
        }
        planned.push_back({PlannedOutput::kObj, stem + ".obj"});
        planned.push_back({PlannedOutput::kSvg, stem + ".svg"});
    }
    // The report comes last: it lists the others and the time they took.
    if (!o.report.empty()) planned.push_back({PlannedOutput::kReport, o.report});
    return checkOverwrite(o, planned);
}

/// Reads the input, the edge list and the line files. -1 when all is well.
int readInputs(const Options& o, Site& site, DemoSite& demo) {
    std::string error;
    if (o.demo) {
        demo = makeDemoSite();
        site = demo.site;
    } else {
        if (!readSite(o.input, o.read, site, error)) {
            printError(error);
            return kExitUsage;
        }
        const InputFormat format = o.read.hasFormat ? o.read.format : inputFormatOf(o.input);
        if (!o.edgesFile.empty()) {
            if (format == InputFormat::kPoly || format == InputFormat::kObj ||
                format == InputFormat::kLandXml) {
                return usageError("--edges is for plain point lists and .node files; '" + o.input +
                                  "' brings its own constraint edges");
            }
            if (!readEdgeList(o.edgesFile, site, error)) {
                printError(error);
                return kExitUsage;
            }
        }
    }
    // An .obj line element from a vertex to itself is no edge; line k of the surface layer is
    // then role line k, or plain edge k - site.lines.size().
    site.edges.erase(std::remove_if(site.edges.begin(),
                                    site.edges.end(),
                                    [](const PkMeshEdge& e) { return e.EdgeIndex1() < 0; }),
                     site.edges.end());
    if (site.points.empty()) {
        printError((o.demo ? std::string("demo site") : o.input) +
                   ": no points to triangulate (the input is empty)");
        return kExitUsage;
    }
    for (const LineFile& f : o.lineFiles) {
        if (!readPolylines(f.path, f.role, o.read, site, error)) {
            printError(error);
            return kExitUsage;
        }
    }
    return -1;
}

/// The keep rule from --keep and what the input brings. -1 when all is well.
int chooseRule(const Options& o, Site& site, const std::string& label, ry::KeepRule& rule) {
    bool rings = false;
    for (const ry::Polyline& line : site.lines) {
        rings |= line.role == ry::Role::kBoundary || line.role == ry::Role::kHole;
    }
    const bool poly = !o.demo && (o.read.hasFormat ? o.read.format : inputFormatOf(o.input)) ==
                                     InputFormat::kPoly;
    if (o.keep == Keep::kAll) {
        rule = ry::KeepRule::kAll;
    } else if (rings) {
        rule = ry::KeepRule::kRings;
        if (!site.holePoints.empty()) {
            site.warnings.push_back(
                label + ": " + counted(site.holePoints.size() / 2, "hole point", "hole points") +
                " ignored: the boundaries and holes decide what is kept");
            site.holePoints.clear();
        }
    } else if (poly) {
        rule = ry::KeepRule::kHolePoints;
    } else if (!site.edges.empty()) {
        rule = ry::KeepRule::kEvenOdd;
    } else if (o.keep == Keep::kInside) {
        return usageError(
            "--keep inside needs constraint edges (boundaries, holes or edges), and " + label +
            " has none");
    } else {
        rule = ry::KeepRule::kAll;
    }
    return -1;
}

/// The surface layer's input: the points in the plane of triangulation, the role lines, then
/// each plain edge as a line of its own.
struct SurfaceBuffers {
    std::vector<double> xyz;
    std::vector<std::int32_t> lineVertices;
    ry::SurfaceInput input;
};

void makeInput(const Site& site, const Options& o, SurfaceBuffers& b) {
    b.xyz.resize(3 * site.points.size());
    for (std::size_t i = 0; i < site.points.size(); ++i) {
        const PkGePoint3d p = toPlane(site.points[i], o.plane);
        b.xyz[3 * i] = p.x;
        b.xyz[3 * i + 1] = p.y;
        b.xyz[3 * i + 2] = p.z;
    }
    b.lineVertices = site.lineVertices;
    b.input.lines = site.lines;
    for (const PkMeshEdge& e : site.edges) {
        ry::Polyline line;
        line.role = ry::Role::kEdge;
        line.first = b.lineVertices.size();
        line.count = 2;
        b.input.lines.push_back(line);
        b.lineVertices.insert(b.lineVertices.end(), {e.EdgeIndex1(), e.EdgeIndex2()});
    }
    b.input.xyz = b.xyz;
    b.input.lineVertices = b.lineVertices;
    b.input.holePoints = site.holePoints;
}

ry::SurfaceOptions surfaceOptions(const Options& o, ry::KeepRule rule, Progress& progress) {
    ry::SurfaceOptions options;
    options.keep = rule;
    options.merge = o.dedupe;
    options.mergeDistance = o.tolerance;
    options.duplicates = o.duplicates;
    options.defaultZ = o.read.defaultZ;
    options.cdtTolerance = o.cdtTolerance > 0.0 ? o.cdtTolerance : 0.0;
    options.spatialSort = o.spatialSort;
    options.splitCrossing = o.splitCrossing;
    options.progress = Progress::report;
    options.progressContext = &progress;
    return options;
}

/// --max-edge, --contours and --volume-datum on the finished surface. -1 when all is well.
int makeProducts(const Options& o,
                 const std::string& label,
                 ry::Surface& s,
                 ContourSet& contours,
                 RunFigures& f) {
    const Clock::time_point start = Clock::now();
    if (o.maxEdge > 0) {
        f.trimmed = ry::trimHull(s, o.maxEdge);
        if (!s.ok()) {
            printError(label + ": no triangle is left after trimming the hull with --max-edge " +
                       formatNumber(o.maxEdge) + " (" + std::to_string(f.trimmed) + " removed)");
            std::fprintf(stderr, "rytri: try: a larger --max-edge.\n");
            return kExitStatus;
        }
    }
    if (o.contourInterval > 0) {
        std::vector<double> levels;
        if (!ry::contourLevels(s, o.contourInterval, o.contourBase, levels)) {
            return usageError("--contours " + formatNumber(o.contourInterval) +
                              " gives more than 100000 levels over the heights of " + label +
                              "; give a larger interval");
        }
        contours.lines = ry::contourLines(s, levels);
        contours.interval = o.contourInterval;
        for (double level : contours.lines.level) {
            const double k = std::round((level - o.contourBase) / o.contourInterval);
            contours.index.push_back(std::fmod(k, 5.0) == 0.0 ? 1 : 0);
        }
        f.contourLevels = levels.size();
        f.contourLines = contours.lines.lineCount();
    }
    if (o.hasDatum) {
        f.hasVolumes = true;
        f.volumes = ry::surfaceVolumes(s, o.datum);
    }
    f.productsMs = millisecondsSince(start);
    return -1;
}

/// LandXML's date: SOURCE_DATE_EPOCH when set (reproducible files), else now.
long long timestamp() {
    const char* fixed = std::getenv("SOURCE_DATE_EPOCH");
    return fixed && *fixed ? std::atoll(fixed) : static_cast<long long>(std::time(nullptr));
}

SvgOptions svgOptions(const ry::Surface& s, const Options& o, const std::string& label) {
    SvgOptions svg;
    svg.triangleLimit = std::size_t(o.svgLimit);
    svg.title = label + ": " + std::to_string(s.vertexCount()) + " vertices, " +
                std::to_string(s.triangleCount()) + " triangles" +
                (s.keep == ry::KeepRule::kAll ? "" : " kept") + ", " +
                std::to_string(s.edgeCount()) + " constraint edges";
    return svg;
}

/// Writes every planned output, the report last with the figures of the rest; only complete
/// files take their names, and only when every one was written. -1 when all is well.
int writeOutputs(const std::vector<PlannedOutput>& planned,
                 const MeshOutput& mesh,
                 const Options& o,
                 Clock::time_point start,
                 RunFigures& f) {
    const Clock::time_point writeStart = Clock::now();
    const ry::Surface& s = mesh.surface;
    const std::string comment = std::string("rytri ") + RYTRI_VERSION + " from " + f.label + ": " +
                                counted(s.vertexCount(), "vertex", "vertices") + ", " +
                                counted(s.triangleCount(), "triangle", "triangles") + ", " +
                                counted(s.edgeCount(), "constraint edge", "constraint edges");
    ExchangeOptions exchange;
    exchange.units = o.units;
    exchange.version = RYTRI_VERSION;
    exchange.timestamp = timestamp();
    std::vector<std::unique_ptr<OutputFile>> files;
    std::string error;
    auto produce = [&](const std::string& path, auto&& writer) {
        files.push_back(std::make_unique<OutputFile>(path));
        OutputFile& file = *files.back();
        if (!file.open(error)) return false;
        writer(file);
        return file.close(error);
    };
    bool ok = true;
    for (std::size_t i = 0; ok && i < planned.size(); ++i) {
        const PlannedOutput& p = planned[i];
        using K = PlannedOutput::Kind;
        if (p.kind == K::kObj) {
            ok = produce(p.path, [&](OutputFile& out) { writeObj(mesh, comment, out); });
        } else if (p.kind == K::kNodeEle) {
            ok = produce(p.path + ".node",
                         [&](OutputFile& out) { writeNode(mesh, comment, out); }) &&
                 produce(p.path + ".ele", [&](OutputFile& out) { writeEle(mesh, comment, out); }) &&
                 (s.edgeCount() == 0 || produce(p.path + ".poly", [&](OutputFile& out) {
                      writePoly(mesh, comment, out);
                  }));
        } else if (p.kind == K::kSvg) {
            const SvgOptions svg = svgOptions(s, o, f.label);
            ok = produce(p.path, [&](OutputFile& out) { writeSvg(mesh, svg, out); });
        } else if (p.kind == K::kLandXml || p.kind == K::kDxf) {
            ok = produce(p.path, [&](OutputFile& out) {
                (p.kind == K::kDxf ? writeDxf : writeLandXml)(mesh, exchange, out);
            });
        } else if (p.kind == K::kGeoJson) {
            ok = produce(p.path, [&](OutputFile& out) { writeGeoJson(mesh, out); });
        } else {
            for (const auto& file : files) f.written.push_back(file->path());
            f.written.push_back(p.path);
            f.writeMs = millisecondsSince(writeStart);
            f.totalMs = millisecondsSince(start);
            f.peakKiB = peakMemoryKiB();
            ok = produce(p.path, [&](OutputFile& out) { writeReport(s, o, f, out); });
        }
    }
    for (std::size_t i = 0; ok && i < files.size(); ++i) ok = files[i]->commit(error);
    if (!ok) {
        printError(error);
        return kExitUsage;  // the destructors remove the temporary files
    }
    if (o.report.empty()) {
        for (const auto& file : files) f.written.push_back(file->path());
        f.writeMs = millisecondsSince(writeStart);
    }
    return -1;
}

int run(const Options& o) {
    const Clock::time_point start = Clock::now();
    RunFigures figures;
    figures.label = o.demo ? std::string("demo site") : o.input == "-" ? "standard input" : o.input;
    std::vector<PlannedOutput> planned;
    if (const int code = planOutputs(o, planned); code >= 0) return code;

    Site site;
    DemoSite demo;
    if (const int code = readInputs(o, site, demo); code >= 0) return code;
    figures.readMs = millisecondsSince(start);
    figures.pointsRead = site.points.size();
    if (o.demo) {
        figures.outerArea = demo.outerArea;
        figures.holeArea = demo.holeArea;
        figures.siteArea = demo.outerArea - demo.holeArea;
    }
    ry::KeepRule rule = ry::KeepRule::kAll;
    if (const int code = chooseRule(o, site, figures.label, rule); code >= 0) return code;

    Progress progress(o.progress > 0, o.quiet);
    SurfaceBuffers buffers;
    makeInput(site, o, buffers);
    // Nothing reads the points again (messages name them by origin): free them for the build.
    site.points = std::vector<PkGePoint3d>();
    site.compactOrigins();
    ry::SurfaceOptions options = surfaceOptions(o, rule, progress);
    options.keepRemoved = std::any_of(planned.begin(), planned.end(), [](const PlannedOutput& p) {
        return p.kind == PlannedOutput::kSvg;
    });
    ry::Surface surface = ry::buildSurface(buffers.input, options);
    progress.finish();
    buffers = SurfaceBuffers();
    printWarnings(site, surface, o);
    if (!surface.ok()) return reportFailure(site, surface, o, figures.label);
    figures.cleanMs = progress.phaseMs(ry::SurfacePhase::kMerge);
    figures.triangulateMs = progress.phaseMs(ry::SurfacePhase::kVertices) +
                            progress.phaseMs(ry::SurfacePhase::kConstraints);
    figures.finishMs = progress.phaseMs(ry::SurfacePhase::kFinish);
    ContourSet contours;
    if (const int code = makeProducts(o, figures.label, surface, contours, figures); code >= 0)
        return code;

    const MeshOutput mesh{surface,
                          o.plane,
                          o.contourInterval > 0 ? &contours : nullptr,
                          &site.ids,
                          o.demo || o.input == "-" ? std::string("site") : baseName(o.input)};
    if (const int code = writeOutputs(planned, mesh, o, start, figures); code >= 0) return code;
    figures.totalMs = millisecondsSince(start);
    if (figures.peakKiB < 0) figures.peakKiB = peakMemoryKiB();
    if (!o.quiet) {
        // With the mesh on standard output, the summary goes to stderr.
        const bool dataOnStdout =
            std::any_of(planned.begin(), planned.end(), [](const PlannedOutput& p) {
                return OutputFile::isStandardOutput(p.path);
            });
        printSummary(dataOnStdout ? stderr : stdout, surface, o, figures);
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
