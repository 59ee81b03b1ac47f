#include "Report.h"

#include <algorithm>
#include <cmath>

#include "RyTriangulation.h"
#include "io/OutputFile.h"
#include "io/TextFormat.h"

#ifndef RYTRI_VERSION
#define RYTRI_VERSION "unknown"
#endif

namespace rytri {

namespace {

void warn(const Options& o, const std::string& text) {
    if (!o.quiet) std::fprintf(stderr, "rytri: warning: %s\n", text.c_str());
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

void printConflicts(const Site& site, const ry::Surface& s, const Options& o) {
    if (s.conflictCount == 0) return;
    const char* kept = o.duplicates == ry::Duplicates::kMean ? "their mean" : "the first";
    warn(o,
         counted(s.conflictCount, "point lies", "points lie") +
             " on an earlier point with a different height" +
             (o.duplicates == ry::Duplicates::kError ? "" : std::string(" (kept: ") + kept + ")") +
             (s.conflicts.size() < s.conflictCount
                  ? "; the first " + std::to_string(s.conflicts.size())
                  : "") +
             ":");
    for (const ry::HeightConflict& c : s.conflicts) {
        if (o.quiet && o.duplicates != ry::Duplicates::kError) break;
        std::fprintf(stderr,
                     "rytri:   %s z %s and %s z %s\n",
                     site.where(std::size_t(c.first)).c_str(),
                     formatNumber(c.firstZ, 10).c_str(),
                     site.where(std::size_t(c.other)).c_str(),
                     formatNumber(c.otherZ, 10).c_str());
    }
}

/// Meaning of a library status in the tool's words, with advice that fits the options in force.
std::string libraryAdvice(int status, const Options& o) {
    const bool band = o.cdtTolerance > 0.0;
    switch (status) {
        case StatusFailed:
            return "look for constraint lines that cross at a very small angle; or "
                   "--no-split-crossing";
        case StatusTooFewPoints:
            return "give at least 3 distinct points (coincident ones are merged)";
        case StatusCoincidentVertex:
            return !o.dedupe ? "merge coincident points with --dedupe xy (the default)"
                   : band    ? "points lie within the determinant band of each other: leave out "
                               "--cdt-tolerance, or merge them with a larger --tolerance"
                             : "merge points that differ by rounding with --tolerance T";
        case StatusLocateFailed:
            return band ? "leave out --cdt-tolerance (every decision is then exact)"
                        : "check that the points are not all collinear";
        case StatusConstraintFailed:
            return std::string(band ? "leave out --cdt-tolerance; " : "") +
                   "look for overlapping constraint lines or lines that cross very close to a "
                   "vertex; or --no-split-crossing";
        default:
            return band ? "leave out --cdt-tolerance" : "report the input";
    }
}

const char* libraryMeaning(int status) {
    switch (status) {
        case StatusFailed:
            return "the vertex where two constraints cross could not be inserted";
        case StatusTooFewPoints:
            return "fewer than 3 points are left to triangulate";
        case StatusCoincidentVertex:
            return "a point lies on a point already inserted";
        case StatusLocateFailed:
            return "a point could not be located in the mesh, or no first triangle could be "
                   "formed (for instance all points lie on one line)";
        case StatusConstraintFailed:
            return "a constraint edge could not be inserted (no triangle at its start is entered "
                   "by it, or two constraints cross at a point that cannot be computed or is an "
                   "end point)";
        default:
            return "a search or repair loop reached its limit of 1000000 steps";
    }
}

std::string segmentText(const Site& site, const ry::MissingSegment& m) {
    return describeLine(site, std::size_t(m.line)) + ": the segment from " +
           site.where(std::size_t(m.from)) + " to " + site.where(std::size_t(m.to));
}

/// The lines of --max-edge, --contours and --volume-datum.
void printProducts(std::FILE* out, const Options& o, const RunFigures& f) {
    if (o.maxEdge > 0) {
        std::fprintf(out,
                     "  hull trim    %s removed (border edges longer than %s)\n",
                     counted(f.trimmed, "triangle", "triangles").c_str(),
                     formatNumber(o.maxEdge).c_str());
    }
    if (o.contourInterval > 0) {
        std::fprintf(out,
                     "  contours     %s at %s (every %s from %s)\n",
                     counted(f.contourLines, "line", "lines").c_str(),
                     counted(f.contourLevels, "level", "levels").c_str(),
                     formatNumber(o.contourInterval).c_str(),
                     formatNumber(o.contourBase).c_str());
    }
    if (f.hasVolumes) {
        const ry::Volumes& v = f.volumes;
        std::fprintf(out,
                     "  volumes      datum %s: cut %s, fill %s (plan area above %s, below %s)\n"
                     "  areas        plan %s, sloped %s\n",
                     formatNumber(v.datum, 10).c_str(),
                     formatNumber(v.cut, 10).c_str(),
                     formatNumber(v.fill, 10).c_str(),
                     formatNumber(v.cutArea, 10).c_str(),
                     formatNumber(v.fillArea, 10).c_str(),
                     formatNumber(v.area2d, 10).c_str(),
                     formatNumber(v.area3d, 10).c_str());
    }
}

/// A JSON object written member by member.
class JsonObject {
public:
    explicit JsonObject(std::string& text) : text(text) { text += "{"; }
    void key(const char* name) {
        text += first ? "\n  \"" : ",\n  \"";
        text += name;
        text += "\": ";
        first = false;
    }
    void number(const char* name, double value) {
        key(name);
        if (std::isfinite(value)) {
            appendNumber(text, value);
        } else {
            text += "null";
        }
    }
    void string(const char* name, const std::string& value) {
        key(name);
        quote(value);
    }
    void quote(const std::string& value) {
        text += '"';
        for (unsigned char c : value) {
            if (c == '"' || c == '\\') {
                text += '\\';
                text += char(c);
            } else if (c < 0x20) {
                char escaped[8];
                std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
                text += escaped;
            } else {
                text += char(c);
            }
        }
        text += '"';
    }
    void close() { text += "\n}"; }

private:
    std::string& text;
    bool first = true;
};

}  // namespace

std::string counted(std::size_t n, const char* one, const char* many) {
    return std::to_string(n) + " " + (n == 1 ? one : many);
}

std::string describeLine(const Site& site, std::size_t line) {
    if (line < site.lines.size()) {
        const SourceRef at = site.lineOrigins[line];
        const std::string where =
            at.file >= 0 ? site.files[std::size_t(at.file)] + ":" + std::to_string(at.line)
                         : "line " + std::to_string(line);
        return std::string(roleName(site.lines[line].role)) + " at " + where;
    }
    const PkMeshEdge& e = site.edges[line - site.lines.size()];
    return "edge " + std::to_string(e.EdgeIndex1()) + "-" + std::to_string(e.EdgeIndex2());
}

void printWarnings(const Site& site, const ry::Surface& s, const Options& o) {
    for (const std::string& w : site.warnings) warn(o, w);
    if (s.status != ry::SurfaceStatus::kHeightConflict) printConflicts(site, s, o);
    for (std::int32_t line : s.degenerateLines) {
        warn(o,
             describeLine(site, std::size_t(line)) +
                 " encloses or joins nothing once coincident points merge; ignored");
    }
    for (std::size_t i = 0; i + 1 < s.repeatedRings.size(); i += 2) {
        const std::size_t a = std::size_t(s.repeatedRings[i]),
                          b = std::size_t(s.repeatedRings[i + 1]);
        const bool mixed = site.lines[a].role != site.lines[b].role;
        warn(o,
             describeLine(site, b) + " repeats " + describeLine(site, a) +
                 (mixed ? " (the same ring as a boundary and a hole: the hole wins)"
                        : " (the same ring: it counts once)"));
    }
    for (const ry::MissingSegment& m : s.missing) {
        if (s.ok()) {
            warn(o,
                 segmentText(site, m) +
                     " is crossed by a later line and left out of the mesh (--no-split-crossing)");
        }
    }
    if (s.ignoredHolePoints > 0) {
        warn(o,
             counted(s.ignoredHolePoints, "hole point lies", "hole points lie") +
                 " outside the convex hull; ignored");
    }
}

int reportFailure(const Site& site,
                  const ry::Surface& s,
                  const Options& o,
                  const std::string& label) {
    using ry::SurfaceStatus;
    switch (s.status) {
        case SurfaceStatus::kTriangulationFailed:
            printError("triangulation of " + label + " failed with status " +
                       std::to_string(s.libraryStatus) + " (" +
                       ry::libraryStatusName(s.libraryStatus) +
                       "): " + libraryMeaning(s.libraryStatus) + ".");
            std::fprintf(stderr, "rytri: try: %s.\n", libraryAdvice(s.libraryStatus, o).c_str());
            return kExitStatus;
        case SurfaceStatus::kMissingHeight:
            printError(site.where(std::size_t(s.missingHeight)) +
                       ": no height, and it lies outside the points that have one (no surface "
                       "to take it from)" +
                       (s.missingHeightCount > 1
                            ? " (" + std::to_string(s.missingHeightCount - 1) + " more like it)"
                            : "") +
                       "; give 'x y z', or a height for them with --default-z Z");
            return kExitUsage;
        case SurfaceStatus::kHeightConflict:
            printConflicts(site, s, o);
            printError(
                "coincident points with different heights (--duplicates error); keep the "
                "first (--duplicates first) or their mean (--duplicates mean)");
            return kExitUsage;
        case SurfaceStatus::kConstraintMissing:
            for (const ry::MissingSegment& m : s.missing) {
                std::fprintf(
                    stderr, "rytri: %s is not in the mesh\n", segmentText(site, m).c_str());
            }
            printError(label + ": " +
                       (s.missing.empty() ? s.message : "a constraint line is not in the mesh") +
                       "; the surface would not follow it");
            std::fprintf(stderr,
                         "rytri: try: %s.\n",
                         o.splitCrossing ? "report the input" : "leave out --no-split-crossing");
            return kExitStatus;
        case SurfaceStatus::kNothingKept:
            printError(label + ": no triangle kept (" + std::to_string(s.allTriangles) +
                       " removed): " +
                       (s.keep == ry::KeepRule::kEvenOdd
                            ? "the even-odd rule of plain edges keeps what lies "
                              "inside an odd number of closed lines; open lines "
                              "enclose nothing, and a ring given twice cancels "
                              "itself"
                            : "no region lies inside a boundary and outside the "
                              "holes"));
            std::fprintf(stderr,
                         "rytri: try: %s.\n",
                         s.keep == ry::KeepRule::kEvenOdd
                             ? "--boundary, --hole and --breaklines to give lines their roles, or "
                               "--keep all"
                             : "check the boundaries and holes, or --keep all");
            return kExitStatus;
        case SurfaceStatus::kZeroArea:
            printError(label + ": the kept triangles have no area: all points lie on one line");
            return kExitStatus;
        case SurfaceStatus::kOutOfMemory:
            printError("out of memory");
            return kExitUsage;
        default:
            printError(label + ": " + s.message + (s.advice.empty() ? "" : "; " + s.advice));
            return s.status == SurfaceStatus::kBadInput ? kExitUsage : kExitStatus;
    }
}

void printSummary(std::FILE* out, const ry::Surface& s, const Options& o, const RunFigures& f) {
    std::fprintf(out, "rytri %s: %s\n", RYTRI_VERSION, f.label.c_str());
    std::fprintf(out, "  points       %zu read", f.pointsRead);
    if (o.dedupe) std::fprintf(out, ", %zu repeated merged", s.repeatedPoints);
    std::fprintf(out, " -> %zu vertices", s.vertexCount() - s.crossingVertices);
    if (s.crossingVertices > 0) {
        std::fprintf(out, " (+%zu at constraint crossings)", s.crossingVertices);
    }
    std::fprintf(out, "\n  constraints  %zu edges\n", s.edgeCount());
    std::fprintf(out, "  triangles    %zu kept", s.triangleCount());
    if (s.keep == ry::KeepRule::kAll) {
        std::fprintf(out, " (all)\n");
    } else {
        std::fprintf(out,
                     " (%s), %zu removed (outside or in holes)\n",
                     s.keep == ry::KeepRule::kRings     ? "inside the boundaries"
                     : s.keep == ry::KeepRule::kEvenOdd ? "even-odd rule"
                                                        : "outside and hole points removed",
                     s.allTriangles - s.triangleCount());
    }
    std::fprintf(out, "  kept area    %s\n", formatNumber(s.keptArea, 10).c_str());
    if (f.siteArea >= 0) {
        std::fprintf(out,
                     "  site area    %s (boundary %s - holes %s)\n",
                     formatNumber(f.siteArea, 10).c_str(),
                     formatNumber(f.outerArea, 10).c_str(),
                     formatNumber(f.holeArea, 10).c_str());
    }
    printProducts(out, o, f);
    const bool products = o.maxEdge > 0 || o.contourInterval > 0 || o.hasDatum;
    std::fprintf(
        out,
        "  time         read %s, clean-up %s, triangulate %s, finish %s, %s%swrite %s; total %s\n",
        formatMs(f.readMs).c_str(),
        o.dedupe ? formatMs(f.cleanMs).c_str() : "off",
        formatMs(f.triangulateMs).c_str(),
        formatMs(f.finishMs).c_str(),
        products ? "products " : "",
        products ? (formatMs(f.productsMs) + ", ").c_str() : "",
        formatMs(f.writeMs).c_str(),
        formatMs(f.totalMs).c_str());
    if (o.stats) {
        const double seconds = f.triangulateMs / 1000.0;
        std::fprintf(out,
                     "  rate         %s points/s triangulated\n",
                     seconds > 0.0 ? formatNumber(double(s.vertexCount()) / seconds).c_str() : "-");
        double minH = INFINITY, maxH = -INFINITY;
        for (std::size_t v = 0; v < s.vertexCount(); ++v) {
            minH = std::min(minH, s.vertices[3 * v + 2]);
            maxH = std::max(maxH, s.vertices[3 * v + 2]);
        }
        std::fprintf(out,
                     "  height       %s .. %s\n",
                     formatNumber(minH).c_str(),
                     formatNumber(maxH).c_str());
        std::fprintf(out,
                     "  options      clean-up %s, spatial sort %s, split crossings %s, merge "
                     "distance %s, determinant band %s\n",
                     o.dedupe ? (o.plane == 0   ? "xy"
                                 : o.plane == 1 ? "xz"
                                                : "yz")
                              : "off",
                     o.spatialSort ? "on" : "off",
                     o.splitCrossing ? "on" : "off",
                     formatNumber(o.tolerance).c_str(),
                     formatNumber(o.cdtTolerance > 0.0 ? o.cdtTolerance : 0.0).c_str());
        if (f.peakKiB >= 0)
            std::fprintf(out, "  peak memory  %.1f MiB\n", double(f.peakKiB) / 1024.0);
    }
    std::fprintf(out, "  wrote       ");
    for (std::size_t i = 0; i < f.written.size(); ++i) {
        std::fprintf(out, "%s %s", i == 0 ? "" : ",", f.written[i].c_str());
    }
    std::fprintf(out, "\n");
}

}  // namespace rytri

namespace rytri {

void writeReport(const ry::Surface& s, const Options& o, const RunFigures& f, OutputFile& out) {
    std::string text;
    JsonObject r(text);
    r.string("tool", "rytri");
    r.string("version", RYTRI_VERSION);
    r.string("input", f.label);
    r.number("pointsRead", double(f.pointsRead));
    r.number("repeatedMerged", double(s.repeatedPoints));
    r.number("heightConflicts", double(s.conflictCount));
    r.number("vertices", double(s.vertexCount() - s.crossingVertices));
    r.number("crossingVertices", double(s.crossingVertices));
    r.number("constraintEdges", double(s.edgeCount()));
    r.number("trianglesKept", double(s.triangleCount()));
    r.number("trianglesRemoved", double(s.allTriangles - s.triangleCount()));
    r.number("keptArea", s.keptArea);
    if (f.siteArea >= 0) r.number("siteArea", f.siteArea);
    if (o.maxEdge > 0) {
        r.number("maxEdge", o.maxEdge);
        r.number("trianglesTrimmed", double(f.trimmed));
    }
    if (o.contourInterval > 0) {
        r.number("contourInterval", o.contourInterval);
        r.number("contourBase", o.contourBase);
        r.number("contourLevels", double(f.contourLevels));
        r.number("contourLines", double(f.contourLines));
    }
    if (f.hasVolumes) {
        r.number("datum", f.volumes.datum);
        r.number("cut", f.volumes.cut);
        r.number("fill", f.volumes.fill);
        r.number("cutArea", f.volumes.cutArea);
        r.number("fillArea", f.volumes.fillArea);
        r.number("area2d", f.volumes.area2d);
        r.number("area3d", f.volumes.area3d);
    }
    const std::pair<const char*, double> times[] = {{"readMs", f.readMs},
                                                    {"cleanUpMs", f.cleanMs},
                                                    {"triangulateMs", f.triangulateMs},
                                                    {"finishMs", f.finishMs},
                                                    {"productsMs", f.productsMs},
                                                    {"writeMs", f.writeMs},
                                                    {"totalMs", f.totalMs}};
    for (const auto& t : times) r.number(t.first, t.second);
    if (f.peakKiB >= 0) r.number("peakMemoryMiB", double(f.peakKiB) / 1024.0);
    r.key("written");
    text += "[";
    for (std::size_t i = 0; i < f.written.size(); ++i) {
        if (i > 0) text += ", ";
        r.quote(f.written[i]);
    }
    text += "]";
    r.close();
    text += "\n";
    out.write(text);
}

}  // namespace rytri
