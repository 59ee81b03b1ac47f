#include "Options.h"

#include <cmath>
#include <cstdio>

#include "io/Columns.h"
#include "io/TextInput.h"

#ifndef RYTRI_VERSION
#define RYTRI_VERSION "unknown"
#endif

namespace rytri {

namespace {

const char* const kUsage =
    "Usage: rytri [options] INPUT\n"
    "       rytri --demo [--out-dir DIR] [options]\n"
    "\n"
    "Triangulates survey points, with boundaries, holes and breaklines, and writes the surface.\n"
    "The input format follows the extension ('-' reads standard input; give --format):\n"
    "  .node          vertices of a mesh generator ('index x y [attributes] [marker]'; the first\n"
    "                 attribute is the height z); numbered from 0 or 1, as the file starts\n"
    "  .poly          vertices, segments and hole points: as mesh generators do, the regions\n"
    "                 around the hole points and outside the outermost segments are removed\n"
    "  .obj           'v x y [z]' vertices and 'l a b ...' line elements as constraint edges\n"
    "                 (in groups named boundary, hole or breakline: with that role)\n"
    "  .xml, .landxml LandXML: the points (Pnts, CgPoints), breaklines and boundaries (outer,\n"
    "                 island; void as holes) of the first surface; its faces are not read\n"
    "  anything else  plain points, one per line, fields separated by blanks, commas or\n"
    "                 semicolons, '#' comments: 'x y [z]', or the columns of a header line\n"
    "                 (such as point,northing,easting,elevation,description) or of --columns\n"
    "\n"
    "Constraint lines (each option may repeat):\n"
    "  --boundary FILE     closed rings around the surface\n"
    "  --hole FILE         closed rings cut out of it (a boundary inside a hole is an island)\n"
    "  --breaklines FILE   open or closed polylines forced into the mesh; they never change\n"
    "                      what is kept\n"
    "                      A line file holds one vertex 'x y [z]' per line, lines separated by a\n"
    "                      blank line; rings close themselves. The vertices join the points; one\n"
    "                      without z takes the height of a point at its position, else of the\n"
    "                      surface of the points. The innermost ring around a triangle decides;\n"
    "                      a ring given twice counts once, as a hole if it is given as one; a\n"
    "                      breakline on a ring changes nothing.\n"
    "  --edges FILE        plain constraint edges for point lists and .node: 'i j' per line,\n"
    "                      0-based; kept is what lies inside an odd number of them (even-odd)\n"
    "\n"
    "Input options:\n"
    "  --columns ORDER     the fields of a point line: P point id, N northing (y), E easting\n"
    "                      (x), Z height, D description, X, Y, or - to skip; e.g. PNEZD, PENZD,\n"
    "                      NEZ, ENZ, XYZ, XY\n"
    "  --format FMT        read the input as points, node, poly, obj or landxml whatever its\n"
    "                      name\n"
    "  --default-z Z       height of point lines and line vertices that have none (else a\n"
    "                      line without z among lines with z is an error)\n"
    "  --duplicates first|mean|error\n"
    "                      the height of points at the same x, y: the first, their mean, or\n"
    "                      stop when they differ (default first; differences are reported)\n"
    "  --demo              use the embedded demonstration site instead of a file (with\n"
    "                      contours every 1 unless --contours is given)\n"
    "\n"
    "Output:\n"
    "  -o, --output FILE   write the mesh; FILE ending in .obj writes Wavefront OBJ (faces, and\n"
    "                      constraint edges as 'l' lines); ending in .node or .ele writes the\n"
    "                      pair NAME.node and NAME.ele (and NAME.poly with the constraint\n"
    "                      edges); .xml or .landxml LandXML 1.2 (the TIN, point ids kept, with\n"
    "                      its breaklines and boundaries); .dxf ASCII DXF (R12 entities:\n"
    "                      3DFACEs, lines and contours, each kind on a layer); .geojson the\n"
    "                      contours (needs --contours). '-' writes OBJ to standard output. May\n"
    "                      be given more than once. A symbolic link is followed; a device or\n"
    "                      FIFO is written in place.\n"
    "  --svg FILE          draw the mesh: kept triangles filled by height, removed ones\n"
    "                      outlined, constraint lines by role ('-': standard output)\n"
    "  --svg-limit N       above N triangles the picture shows a grid of mean heights instead of\n"
    "                      every triangle, so that a browser can still render it (default 200000)\n"
    "  --report FILE       every figure of the summary (counts, areas, volumes, times) as JSON\n"
    "  --units m|ft|usft   the linear unit LandXML names (default m: metres)\n"
    "  --out-dir DIR       with neither -o nor --svg, write DIR/NAME.obj and DIR/NAME.svg (NAME:\n"
    "                      the input's name without extension, 'site' for the demo); default '.'\n"
    "\n"
    "Surface products:\n"
    "  --contours I        contour lines every I of height, from --contour-base Z (default 0):\n"
    "                      drawn in the SVG (every fifth, the index contours, labelled), written\n"
    "                      to DXF and GeoJSON. A vertex exactly at a level counts as above it.\n"
    "  --volume-datum Z    cut (surface above Z) and fill (below Z) volumes against the level Z,\n"
    "                      each triangle split exactly where it crosses it; plan and sloped areas\n"
    "  --max-edge L        trim the hull: remove, repeatedly, border triangles with an edge on\n"
    "                      the border longer than L (plan length). A triangle with an edge on a\n"
    "                      constraint line (boundary, hole, breakline) is never removed: lines\n"
    "                      stop the trimming and stay in the surface\n"
    "\n"
    "Triangulation options:\n"
    "  --keep all|inside   all: every triangle of the convex hull; inside (the default when\n"
    "                      there are boundaries, holes or edges): with boundaries or holes, the\n"
    "                      triangles whose innermost ring is a boundary (no boundary: all but\n"
    "                      the holes); else as the .poly or the even-odd rule above says\n"
    "  --dedupe xy|xz|yz   merge coincident points first, comparing them in this plane, which\n"
    "                      is also the plane triangulated (default: xy)\n"
    "  --no-dedupe         skip the merge (a repeated point then stops the run)\n"
    "  --tolerance T       points closer than T merge (default 0: only identical positions)\n"
    "  --cdt-tolerance D   band around zero within which an orientation or in-circle\n"
    "                      determinant counts as zero (default 0: every decision exact)\n"
    "  --no-spatial-sort   insert in shuffled order instead of a space-filling-curve order\n"
    "  --no-split-crossing a line crossing an earlier one is not split at the crossing: a\n"
    "                      crossed breakline is left out (with a warning), a crossed boundary\n"
    "                      or hole is an error\n"
    "\n"
    "Reporting:\n"
    "  --stats             timing of each phase, counts and peak memory\n"
    "  --progress          a line per phase with its percentage on stderr (default: only when\n"
    "                      stderr is a terminal and the run takes more than a second)\n"
    "  --quiet             print only errors\n"
    "  --help, --version\n"
    "\n"
    "Exit status: 0 success; 1 the triangulation failed, kept nothing or no area, or a\n"
    "constraint line is not in the mesh; 2 usage, input or output error.\n";

bool parseDouble(const std::string& text, double& value) {
    FieldReader fields(text);
    std::string what;
    return fields.remaining() == 1 && fields.number(value, what);
}

/// Options that take a word from a fixed list; -1 when `arg` is none of them, else 0 or the
/// exit code of a usage error.
int parseChoice(const std::string& arg, const std::string& v, bool present, Options& o) {
    if (arg == "--keep") {
        if (!present) return usageError("--keep needs 'all' or 'inside'");
        if (v != "all" && v != "inside") {
            return usageError("--keep takes 'all' or 'inside', not '" + v + "'");
        }
        o.keep = v == "all" ? Keep::kAll : Keep::kInside;
    } else if (arg == "--dedupe") {
        if (!present) return usageError("--dedupe needs a plane: xy, xz or yz");
        if (v != "xy" && v != "xz" && v != "yz") {
            return usageError("--dedupe takes xy, xz or yz, not '" + v + "'");
        }
        o.plane = v == "xy" ? 0 : v == "xz" ? 1 : 2;
        o.dedupe = true;
    } else if (arg == "--duplicates") {
        if (v != "first" && v != "mean" && v != "error") {
            return usageError("--duplicates takes first, mean or error");
        }
        o.duplicates = v == "first"  ? ry::Duplicates::kFirst
                       : v == "mean" ? ry::Duplicates::kMean
                                     : ry::Duplicates::kError;
    } else if (arg == "--format") {
        if (!parseFormat(v, o.read.format)) {
            return usageError("--format takes points, node, poly, obj or landxml, not '" + v + "'");
        }
        o.read.hasFormat = true;
    } else if (arg == "--units") {
        if (v != "m" && v != "ft" && v != "usft") return usageError("--units takes m, ft or usft");
        o.units = v == "m" ? Units::kMeter : v == "ft" ? Units::kFoot : Units::kUsSurveyFoot;
    } else if (arg == "--columns") {
        ColumnLayout layout;
        std::string error;
        if (!parseColumns(v, layout, error)) return usageError("--columns " + v + ": " + error);
        o.read.columns = v;
    } else {
        return -1;
    }
    return 0;
}

/// Options that take a number or a file name; -1 when `arg` is none of them.
int parseValue(const std::string& arg, const std::string& v, bool present, Options& o) {
    double number = 0.0;
    const bool isNumber = present && parseDouble(v, number);
    if (arg == "--svg-limit") {
        if (!isNumber || number < 0.0 || number != std::floor(number)) {
            return usageError("--svg-limit needs a whole number >= 0");
        }
        o.svgLimit = static_cast<long long>(number);
    } else if (arg == "--tolerance" || arg == "--cdt-tolerance") {
        if (!isNumber || number < 0.0) return usageError(arg + " needs a number >= 0");
        (arg == "--tolerance" ? o.tolerance : o.cdtTolerance) = number;
    } else if (arg == "--contours" || arg == "--max-edge") {
        if (!isNumber || !(number > 0.0)) return usageError(arg + " needs a number > 0");
        (arg == "--contours" ? o.contourInterval : o.maxEdge) = number;
    } else if (arg == "--contour-base" || arg == "--volume-datum") {
        if (!isNumber) return usageError(arg + " needs a number");
        (arg == "--contour-base" ? o.contourBase : o.datum) = number;
        o.hasDatum |= arg == "--volume-datum";
    } else if (arg == "--default-z") {
        if (!isNumber) return usageError("--default-z needs a number");
        o.read.defaultZ = number;
    } else if (arg == "-o" || arg == "--output") {
        if (!present) return usageError(arg + " needs a file name");
        o.outputs.push_back(v);
    } else if (arg == "--svg" || arg == "--out-dir" || arg == "--edges" || arg == "--report") {
        if (!present) return usageError(arg + " needs a file name");
        (arg == "--svg"      ? o.svg
         : arg == "--edges"  ? o.edgesFile
         : arg == "--report" ? o.report
                             : o.outDir) = v;
    } else if (arg == "--boundary" || arg == "--hole" || arg == "--breaklines") {
        if (!present) return usageError(arg + " needs a file name");
        const ry::Role role = arg == "--boundary" ? ry::Role::kBoundary
                              : arg == "--hole"   ? ry::Role::kHole
                                                  : ry::Role::kBreakline;
        o.lineFiles.push_back({role, v});
    } else {
        return parseChoice(arg, v, present, o);
    }
    return 0;
}

/// Options without a value; -1 when `arg` is none of them.
int parseFlag(const std::string& arg, Options& o) {
    if (arg == "--help" || arg == "-h") {
        std::fputs(kUsage, stdout);
        return kExitOk;
    }
    if (arg == "--version") {
        std::printf("rytri %s\n", RYTRI_VERSION);
        return kExitOk;
    }
    bool* flag = arg == "--demo"                   ? &o.demo
                 : arg == "--stats"                ? &o.stats
                 : arg == "--quiet" || arg == "-q" ? &o.quiet
                                                   : nullptr;
    if (flag) {
        *flag = true;
    } else if (arg == "--no-dedupe" || arg == "--no-spatial-sort" || arg == "--no-split-crossing") {
        (arg == "--no-dedupe"         ? o.dedupe
         : arg == "--no-spatial-sort" ? o.spatialSort
                                      : o.splitCrossing) = false;
    } else if (arg == "--progress") {
        o.progress = 1;
    } else {
        return -1;
    }
    return -2;  // taken, go on
}

int checkCombination(const Options& o) {
    if (o.demo && !o.input.empty()) return usageError("--demo takes no input file");
    if (!o.demo && o.input.empty()) return usageError("no input file");
    if (o.demo && !o.edgesFile.empty()) return usageError("--edges cannot be used with --demo");
    if (o.input == "-" && !o.read.hasFormat) {
        return usageError("reading standard input needs --format points|node|poly|obj");
    }
    int stdinUses = o.input == "-";
    stdinUses += o.edgesFile == "-";
    for (const LineFile& f : o.lineFiles) stdinUses += f.path == "-";
    if (stdinUses > 1) return usageError("standard input ('-') can be read only once");
    if (o.contourBase != 0.0 && o.contourInterval == 0.0) {
        return usageError("--contour-base needs --contours INTERVAL");
    }
    return -1;
}

}  // namespace

void printError(const std::string& message) {
    std::fprintf(stderr, "rytri: error: %s\n", message.c_str());
}

int usageError(const std::string& message) {
    printError(message);
    std::fprintf(stderr, "Try 'rytri --help'.\n");
    return kExitUsage;
}

int parseOptions(int argc, char** argv, Options& o) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const int flag = parseFlag(arg, o);
        if (flag == -2) continue;
        if (flag >= 0) return flag;
        const bool present = i + 1 < argc;
        const std::string v = present ? argv[i + 1] : "";
        const int value = parseValue(arg, v, present, o);
        if (value > 0) return value;
        if (value == 0) {
            ++i;
        } else if (arg.size() > 1 && arg[0] == '-') {
            return usageError("unknown option '" + arg + "'");
        } else if (o.input.empty()) {
            o.input = arg;
        } else {
            return usageError("more than one input file ('" + o.input + "' and '" + arg + "')");
        }
    }
    if (o.demo && o.contourInterval == 0.0) o.contourInterval = 1.0;
    return checkCombination(o);
}

}  // namespace rytri
