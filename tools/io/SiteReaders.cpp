#include "io/SiteReaders.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <limits>

#include "io/Columns.h"
#include "io/Platform.h"
#include "io/TextInput.h"

namespace rytri {

namespace {

std::string lowerExtension(const std::string& path) {
    const std::size_t slash = path.find_last_of(kPathSeparators);
    const std::size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    std::string ext = path.substr(dot);
    for (char& c : ext) c = char(std::tolower(static_cast<unsigned char>(c)));
    return ext;
}

std::string plural(long long n, const std::string& word) {
    if (n == 1) return "1 " + word;
    return std::to_string(n) + " " + (word == "vertex" ? std::string("vertices") : word + "s");
}

/// Parses a vertex or segment count of a header line.
bool readCount(FieldReader& fields,
               const char* name,
               long long& count,
               const std::string& path,
               int line,
               std::string& error) {
    std::string what;
    if (!fields.integer(count, what)) {
        error = located(path, line, std::string("expected the number of ") + name + ": " + what);
        return false;
    }
    if (count < 0 || count > 1000000000) {
        error = located(
            path, line, std::string("impossible number of ") + name + ": " + std::to_string(count));
        return false;
    }
    return true;
}

/// The vertex block shared by .node and .poly: a header `n dim attributes markers` already
/// read, then n lines `index x y [attributes] [marker]`. The first attribute is the height z.
/// The first index fixes the base (0 or 1); later ones must follow on.
bool readNodeBlock(LineCursor& lines,
                   const std::string& path,
                   long long count,
                   long long attributes,
                   long long markers,
                   Site& site,
                   int& base,
                   std::string& error) {
    // A header may claim more than the file holds: reserve no more than its lines could give.
    site.points.reserve(std::size_t(std::min<long long>(count, lines.bytesLeft() / 6 + 1)));
    std::string what;
    for (long long k = 0; k < count; ++k) {
        if (!lines.next()) {
            error = located(path,
                            lines.lineNumber(),
                            "the header announces " + plural(count, "vertex") +
                                " but the file ends after " + std::to_string(k));
            return false;
        }
        FieldReader fields(lines.line());
        long long index;
        double x, y, z = 0.0;
        if (!fields.integer(index, what)) {
            error = located(path, lines.lineNumber(), "expected a vertex number: " + what);
            return false;
        }
        if (k == 0) {
            if (index != 0 && index != 1) {
                error = located(
                    path,
                    lines.lineNumber(),
                    "the first vertex must be numbered 0 or 1, not " + std::to_string(index));
                return false;
            }
            base = int(index);
        } else if (index != base + k) {
            error = located(path,
                            lines.lineNumber(),
                            "vertex number " + std::to_string(index) +
                                " out of sequence (expected " + std::to_string(base + k) + ")");
            return false;
        }
        if (!fields.number(x, what) || !fields.number(y, what)) {
            error = located(path, lines.lineNumber(), "bad vertex coordinate: " + what);
            return false;
        }
        if (attributes > 0 && !fields.number(z, what)) {
            error = located(path, lines.lineNumber(), "bad vertex attribute: " + what);
            return false;
        }
        const int extra = fields.remaining();
        if (extra > std::max<long long>(attributes - 1, 0) + markers) {
            error = located(path,
                            lines.lineNumber(),
                            "too many fields for a vertex (the header announces " +
                                plural(attributes, "attribute") + " and " +
                                plural(markers, "boundary marker") + ")");
            return false;
        }
        site.points.emplace_back(x, y, z);
        site.origins.push_back({0, lines.lineNumber()});
    }
    return true;
}

/// Header `n dim attributes markers` (only n is required).
bool readNodeHeader(LineCursor& lines,
                    const std::string& path,
                    long long& count,
                    long long& attributes,
                    long long& markers,
                    std::string& error) {
    if (!lines.next()) {
        error = located(path,
                        lines.lineNumber(),
                        "empty file: expected the header line "
                        "'vertices dimension attributes markers'");
        return false;
    }
    FieldReader fields(lines.line());
    const int line = lines.lineNumber();
    if (!readCount(fields, "vertices", count, path, line, error)) return false;
    long long dimension = 2;
    attributes = 0;
    markers = 0;
    std::string what;
    if (!fields.atEnd() && !fields.integer(dimension, what)) {
        error = located(path, line, "bad dimension: " + what);
        return false;
    }
    if (dimension != 2) {
        error = located(path, line, "dimension must be 2, not " + std::to_string(dimension));
        return false;
    }
    if (!fields.atEnd() && !readCount(fields, "attributes", attributes, path, line, error)) {
        return false;
    }
    if (!fields.atEnd() && !readCount(fields, "boundary markers", markers, path, line, error)) {
        return false;
    }
    if (markers > 1) {
        error = located(path, line, "the number of boundary markers must be 0 or 1");
        return false;
    }
    return true;
}

bool readNodeFile(const std::string& path, Site& site, int& base, std::string& error) {
    FileText text;
    if (!readWholeFile(path, text, error)) return false;
    LineCursor lines(text.view());
    long long count, attributes, markers;
    if (!readNodeHeader(lines, path, count, attributes, markers, error)) return false;
    base = 0;
    return readNodeBlock(lines, path, count, attributes, markers, site, base, error);
}

/// The segment block of a .poly file: a header `segments markers`, then `index a b [marker]`.
bool readPolySegments(
    LineCursor& lines, const std::string& path, int base, Site& site, std::string& error) {
    std::string what;
    if (!lines.next()) {
        error = located(
            path, lines.lineNumber(), "the file ends before the segment header 'segments markers'");
        return false;
    }
    long long segments, segmentMarkers = 0;
    FieldReader header(lines.line());
    if (!readCount(header, "segments", segments, path, lines.lineNumber(), error)) return false;
    if (!header.atEnd() &&
        !readCount(header, "boundary markers", segmentMarkers, path, lines.lineNumber(), error)) {
        return false;
    }
    const long long n = static_cast<long long>(site.points.size());
    site.edges.reserve(std::size_t(std::min<long long>(segments, lines.bytesLeft() / 6 + 1)));
    for (long long k = 0; k < segments; ++k) {
        if (!lines.next()) {
            error = located(path,
                            lines.lineNumber(),
                            "the segment header announces " + plural(segments, "segment") +
                                " but the file ends after " + std::to_string(k));
            return false;
        }
        FieldReader fields(lines.line());
        long long index, a, b;
        if (!fields.integer(index, what) || !fields.integer(a, what) || !fields.integer(b, what)) {
            error = located(path, lines.lineNumber(), "bad segment: " + what);
            return false;
        }
        if (fields.remaining() > segmentMarkers) {
            error = located(path, lines.lineNumber(), "too many fields for a segment");
            return false;
        }
        for (long long end : {a, b}) {
            if (end < base || end >= n + base) {
                error = located(path,
                                lines.lineNumber(),
                                "segment endpoint " + std::to_string(end) +
                                    " out of range (vertices are numbered " + std::to_string(base) +
                                    ".." + std::to_string(n + base - 1) + ")");
                return false;
            }
        }
        if (a == b) {
            site.warnings.push_back(
                located(path,
                        lines.lineNumber(),
                        "segment joins vertex " + std::to_string(a) + " to itself; skipped"));
            continue;
        }
        site.edges.emplace_back(int(a - base), int(b - base));
    }
    return true;
}

/// The optional trailing sections of a .poly file: hole points `index x y`, kept, then regional
/// attributes, read for their syntax and set aside.
bool readPolyHoles(LineCursor& lines, const std::string& path, Site& site, std::string& error) {
    if (!lines.next()) return true;
    FieldReader header(lines.line());
    long long holes;
    if (!readCount(header, "holes", holes, path, lines.lineNumber(), error)) return false;
    std::string what;
    for (long long k = 0; k < holes; ++k) {
        if (!lines.next()) {
            error = located(path, lines.lineNumber(), "the file ends inside the hole list");
            return false;
        }
        FieldReader fields(lines.line());
        long long index;
        double x, y;
        if (!fields.integer(index, what) || !fields.number(x, what) || !fields.number(y, what)) {
            error = located(path, lines.lineNumber(), "bad hole point: " + what);
            return false;
        }
        site.holePoints.insert(site.holePoints.end(), {x, y});
    }
    if (!lines.next()) return true;
    FieldReader regionFields(lines.line());
    long long regions;
    if (!readCount(regionFields, "regions", regions, path, lines.lineNumber(), error)) return false;
    for (long long k = 0; k < regions; ++k) {
        if (!lines.next()) {
            error = located(path, lines.lineNumber(), "the file ends inside the region list");
            return false;
        }
    }
    if (regions > 0) {
        site.warnings.push_back(path + ": " + plural(regions, "regional attribute") + " ignored");
    }
    return true;
}

bool readPolyFile(const std::string& path, Site& site, std::string& error) {
    FileText text;
    if (!readWholeFile(path, text, error)) return false;
    LineCursor lines(text.view());
    long long count, attributes, markers;
    if (!readNodeHeader(lines, path, count, attributes, markers, error)) return false;
    int base = 0;
    if (count > 0) {
        if (!readNodeBlock(lines, path, count, attributes, markers, site, base, error))
            return false;
    } else {
        // No vertices here: they live in the .node file of the same name.
        const std::string nodePath = path.substr(0, path.size() - 5) + ".node";
        std::string nodeError;
        if (!readNodeFile(nodePath, site, base, nodeError)) {
            error = located(
                path,
                lines.lineNumber(),
                "no vertices in the file, and its .node file could not be read: " + nodeError);
            return false;
        }
    }
    return readPolySegments(lines, path, base, site, error) &&
           readPolyHoles(lines, path, site, error);
}

/// The role of a group or object name of an .obj file: lines in groups named boundary, hole or
/// breakline (as rytri writes them) keep their role; others are plain edges.
bool objRole(std::string_view name, ry::Role& role) {
    std::string key(name);
    for (char& c : key) c = char(std::tolower(static_cast<unsigned char>(c)));
    if (key.rfind("boundar", 0) == 0)
        role = ry::Role::kBoundary;
    else if (key.rfind("hole", 0) == 0)
        role = ry::Role::kHole;
    else if (key.rfind("breakline", 0) == 0)
        role = ry::Role::kBreakline;
    else
        return false;
    return true;
}

/// A line element of an .obj file, its indices resolved (0-based), with its line for messages.
struct ObjLine {
    std::vector<long long> vertices;
    int line;
    bool hasRole;
    ry::Role role;
    bool afterGroup;  ///< the first line element after a `g` or `o` statement
};

bool readObjLineElement(FieldReader& fields,
                        long long vertexCount,
                        std::vector<long long>& out,
                        std::string& what) {
    while (!fields.atEnd()) {
        std::string field(fields.peek());
        field = field.substr(0, field.find('/'));  // "l v/vt" form
        FieldReader one(field);
        long long index = 0;
        if (!one.integer(index, what)) {
            what = "bad line element index: " + what;
            return false;
        }
        if (index == 0) {
            what = "line element index 0: indices start at 1";
            return false;
        }
        fields.skip();
        // 1-based, or negative: relative to the vertices read so far.
        out.push_back(index > 0 ? index - 1 : vertexCount + index);
    }
    return true;
}

/// Adds an .obj line element to the site: plain ones as edges; with a role, as a polyline,
/// joined to the previous one of the same group where it goes on from its end (rytri writes
/// each line as its edges in order, in a group of its own).
void addObjLine(const ObjLine& l, Site& site) {
    if (!l.hasRole) {
        for (std::size_t k = 0; k + 1 < l.vertices.size(); ++k)
            site.edges.emplace_back(int(l.vertices[k]), int(l.vertices[k + 1]));
        return;
    }
    const bool joins = !l.afterGroup && !site.lines.empty() && site.lines.back().role == l.role &&
                       site.lineVertices.back() == l.vertices.front();
    if (!joins) {
        ry::Polyline line;
        line.role = l.role;
        line.closed = l.role != ry::Role::kBreakline;
        line.first = site.lineVertices.size();
        site.lines.push_back(line);
        site.lineOrigins.push_back({0, l.line});
    }
    for (std::size_t k = joins ? 1 : 0; k < l.vertices.size(); ++k) {
        site.lineVertices.push_back(std::int32_t(l.vertices[k]));
        ++site.lines.back().count;
    }
}

bool readObjFile(const std::string& path, Site& site, std::string& error) {
    FileText text;
    if (!readWholeFile(path, text, error)) return false;
    LineCursor lines(text.view());
    std::string what;
    long long faces = 0;
    bool hasRole = false, afterGroup = false;
    ry::Role role = ry::Role::kEdge;
    // Line elements are resolved at the end, since negative indices count back from the
    // vertices read so far: store them already resolved, with their line for range messages.
    std::vector<ObjLine> pending;
    while (lines.next()) {
        FieldReader fields(lines.line());
        const std::string_view tag = fields.peek();
        fields.skip();
        if (tag == "v") {
            double x, y, z = 0.0;
            if (!fields.number(x, what) || !fields.number(y, what) ||
                (!fields.atEnd() && !fields.number(z, what))) {
                error = located(path, lines.lineNumber(), "bad vertex: " + what);
                return false;
            }
            site.points.emplace_back(x, y, z);
            site.origins.push_back({0, lines.lineNumber()});
        } else if (tag == "l") {
            pending.push_back({{}, lines.lineNumber(), hasRole, role, afterGroup});
            afterGroup = false;
            if (!readObjLineElement(
                    fields, (long long)site.points.size(), pending.back().vertices, what)) {
                error = located(path, lines.lineNumber(), what);
                return false;
            }
        } else if (tag == "f") {
            ++faces;
        } else if (tag == "g" || tag == "o") {
            hasRole = objRole(fields.peek(), role);
            afterGroup = true;
        }
        // Other statements (vn, vt, s, usemtl, mtllib) carry nothing used here.
    }
    const long long n = static_cast<long long>(site.points.size());
    for (const ObjLine& l : pending) {
        for (long long end : l.vertices) {
            if (end < 0 || end >= n) {
                error = located(path,
                                l.line,
                                "line element refers to vertex " + std::to_string(end + 1) +
                                    ", but the file has " + plural(n, "vertex"));
                return false;
            }
        }
        if (l.vertices.size() >= 2) addObjLine(l, site);
    }
    if (faces > 0) {
        site.warnings.push_back(path + ": " + plural(faces, "face") +
                                " ignored: the vertices are triangulated anew");
    }
    return true;
}

}  // namespace

namespace {

/// The first data line, when it starts with a word: the column names it gives (unless --columns
/// named them), else skipped with a warning. True when it was a header.
bool readHeader(LineCursor& lines,
                const std::string& path,
                const ReadOptions& options,
                ColumnLayout& layout,
                Site& site) {
    const std::string_view head = FieldReader(lines.line()).peek();
    const char c = head.empty() ? '0' : head.front();
    const bool word = std::isalpha(static_cast<unsigned char>(c)) && head != "inf" &&
                      head != "nan" && head != "infinity";
    if (!word) return false;
    if (options.columns.empty() && headerColumns(lines.line(), layout)) return true;
    site.warnings.push_back(
        located(path,
                lines.lineNumber(),
                "skipped as a column header: '" + std::string(lines.line()) + "'"));
    return true;
}

/// Reads the plain 'x y [z]' lines that follow the current one, up to the first that is not.
void readPlainLines(LineCursor& lines, int& lineWithoutZ, Site& site) {
    const std::string_view rest = lines.rest();
    const char* p = rest.data();
    const char* const end = p + rest.size();
    int count = 0;
    double xyz[3];
    bool hasZ = false;
    while (p != end) {
        const char* next = readPlainNumbers(p, end, xyz, hasZ);
        if (!next) break;
        ++count;
        if (!hasZ && lineWithoutZ == 0) lineWithoutZ = lines.lineNumber() + count;
        site.hasHeights |= hasZ;
        site.points.emplace_back(
            xyz[0], xyz[1], hasZ ? xyz[2] : std::numeric_limits<double>::quiet_NaN());
        p = next;
    }
    site.addOrigins(0, lines.lineNumber() + 1, std::size_t(count));
    lines.skipLines(std::size_t(p - rest.data()), count);
}

/// Heights of lines read without one: the default, else an error naming the first such line
/// when others have one, else 0 (a file without heights).
bool settleHeights(Site& site,
                   std::size_t first,
                   int lineWithoutZ,
                   const ReadOptions& options,
                   const std::string& path,
                   std::string& error) {
    const bool anyZ = site.hasHeights;
    if (anyZ && lineWithoutZ > 0 && std::isnan(options.defaultZ)) {
        error = located(path,
                        lineWithoutZ,
                        "no height (z) on this line, though other lines have one; give it, or "
                        "a height for such lines with --default-z Z");
        return false;
    }
    // Only lines without a height left one unset (NaN).
    if (lineWithoutZ == 0) return true;
    const double fill = std::isnan(options.defaultZ) ? 0.0 : options.defaultZ;
    for (std::size_t i = first; i < site.points.size(); ++i) {
        if (std::isnan(site.points[i].z)) site.points[i].z = fill;
    }
    return true;
}

/// A polyline whose vertices have heights must have them all (unless a default fills the gaps).
bool mixedHeights(const std::string& path,
                  int withZ,
                  int withoutZ,
                  const ReadOptions& options,
                  std::string& error) {
    if (withZ == 0 || withoutZ == 0 || !std::isnan(options.defaultZ)) return true;
    error = located(path,
                    withoutZ,
                    "no height (z) here, though other vertices of this line have one; give it, "
                    "or a height for such vertices with --default-z Z");
    return false;
}

}  // namespace

InputFormat inputFormatOf(const std::string& path) {
    const std::string ext = lowerExtension(path);
    if (ext == ".node") return InputFormat::kNode;
    if (ext == ".poly") return InputFormat::kPoly;
    if (ext == ".obj") return InputFormat::kObj;
    if (ext == ".xml" || ext == ".landxml") return InputFormat::kLandXml;
    return InputFormat::kPoints;
}

bool parseFormat(const std::string& name, InputFormat& format) {
    if (name == "points" || name == "xyz" || name == "csv" || name == "txt") {
        format = InputFormat::kPoints;
    } else if (name == "node" || name == "poly" || name == "obj" || name == "landxml") {
        format = inputFormatOf("." + name);
    } else {
        return false;
    }
    return true;
}

bool readPointList(const std::string& path,
                   const ReadOptions& options,
                   Site& site,
                   std::string& error) {
    FileText text;
    if (!readWholeFile(path, text, error)) return false;
    ColumnLayout layout;
    if (!options.columns.empty() && !parseColumns(options.columns, layout, error)) return false;
    // Rough count for one reservation: about 25 bytes per point line.
    site.points.reserve(text.view().size() / 25 + 16);
    site.origins.reserve(text.view().size() / 25 + 16);
    LineCursor lines(text.view());
    int lineWithoutZ = 0;
    PointFields fields;
    for (bool first = true;; first = false) {
        // After the first line (which may be a header) plain lines go the quick way, until one
        // that is not: a blank, a comment, or one with something to say about it.
        if (!first && layout.plain()) readPlainLines(lines, lineWithoutZ, site);
        if (!lines.next()) break;
        if (first && readHeader(lines, path, options, layout, site)) continue;
        std::string what;
        if (!parsePointLine(lines.line(), layout, fields, what)) {
            error = located(path, lines.lineNumber(), what);
            return false;
        }
        if (!fields.hasZ && lineWithoutZ == 0) lineWithoutZ = lines.lineNumber();
        site.hasHeights |= fields.hasZ;
        site.points.emplace_back(
            fields.x, fields.y, fields.hasZ ? fields.z : std::numeric_limits<double>::quiet_NaN());
        site.addOrigins(0, lines.lineNumber(), 1);
        if (layout.has('P')) site.ids.emplace_back(fields.id);
    }
    return settleHeights(site, 0, lineWithoutZ, options, path, error);
}

bool readEdgeList(const std::string& path, Site& site, std::string& error) {
    FileText text;
    if (!readWholeFile(path, text, error)) return false;
    LineCursor lines(text.view());
    std::string what;
    const long long n = static_cast<long long>(site.points.size());
    while (lines.next()) {
        FieldReader fields(lines.line());
        long long a, b;
        if (!fields.integer(a, what) || !fields.integer(b, what)) {
            error =
                located(path, lines.lineNumber(), "expected 'i j' (two point indices): " + what);
            return false;
        }
        if (!fields.atEnd()) {
            error = located(
                path, lines.lineNumber(), "expected 'i j' (two point indices), found more fields");
            return false;
        }
        for (long long end : {a, b}) {
            if (end < 0 || end >= n) {
                error = located(path,
                                lines.lineNumber(),
                                "edge index " + std::to_string(end) +
                                    " out of range: the points are numbered 0.." +
                                    std::to_string(n - 1));
                return false;
            }
        }
        if (a == b) {
            site.warnings.push_back(
                located(path,
                        lines.lineNumber(),
                        "edge joins point " + std::to_string(a) + " to itself; skipped"));
            continue;
        }
        site.edges.emplace_back(int(a), int(b));
    }
    return true;
}

bool readPolylines(const std::string& path,
                   ry::Role role,
                   const ReadOptions& options,
                   Site& site,
                   std::string& error) {
    FileText text;
    if (!readWholeFile(path, text, error)) return false;
    const std::int32_t file = std::int32_t(site.files.size());
    site.files.push_back(path == "-" ? "standard input" : path);
    const std::size_t firstPoint = site.points.size();
    const bool ring = role == ry::Role::kBoundary || role == ry::Role::kHole;
    LineCursor lines(text.view());
    int withZ = 0, withoutZ = 0;  // lines of the current polyline with and without a height
    while (lines.next()) {
        FieldReader fields(lines.line());
        double x, y, z = std::numeric_limits<double>::quiet_NaN();
        std::string what;
        if (!fields.number(x, what) || !fields.number(y, what) ||
            (!fields.atEnd() && !fields.number(z, what)) || !fields.atEnd()) {
            if (what.empty()) what = "more than three fields";
            error = located(path, lines.lineNumber(), "expected 'x y [z]': " + what);
            return false;
        }
        if (site.lines.empty() || lines.afterBlank() || site.lineOrigins.back().file != file) {
            if (!mixedHeights(path, withZ, withoutZ, options, error)) return false;
            withZ = withoutZ = 0;
            ry::Polyline line;
            line.role = role;
            line.closed = ring;
            line.first = site.lineVertices.size();
            site.lines.push_back(line);
            site.lineOrigins.push_back({file, lines.lineNumber()});
        }
        (std::isnan(z) ? withoutZ : withZ) = lines.lineNumber();
        site.lineVertices.push_back(std::int32_t(site.points.size()));
        ++site.lines.back().count;
        site.points.emplace_back(x, y, z);
        site.origins.push_back({file, lines.lineNumber()});
    }
    if (!mixedHeights(path, withZ, withoutZ, options, error)) return false;
    // Without a height a vertex takes the default, or (NaN) a coincident point's or the
    // surface's, or 0 when the site has no heights at all.
    const double fill = !std::isnan(options.defaultZ) ? options.defaultZ
                        : site.hasHeights             ? std::numeric_limits<double>::quiet_NaN()
                                                      : 0.0;
    for (std::size_t i = firstPoint; i < site.points.size(); ++i) {
        if (std::isnan(site.points[i].z)) site.points[i].z = fill;
    }
    if (!site.ids.empty()) site.ids.resize(site.points.size());
    return true;
}

bool readSite(const std::string& path, Site& site, std::string& error) {
    return readSite(path, ReadOptions(), site, error);
}

bool readSite(const std::string& path, const ReadOptions& options, Site& site, std::string& error) {
    site = Site();
    site.files.push_back(path == "-" ? "standard input" : path);
    int base = 0;
    bool ok;
    switch (options.hasFormat ? options.format : inputFormatOf(path)) {
        case InputFormat::kNode:
            ok = readNodeFile(path, site, base, error);
            break;
        case InputFormat::kPoly:
            ok = readPolyFile(path, site, error);
            break;
        case InputFormat::kObj:
            ok = readObjFile(path, site, error);
            break;
        case InputFormat::kLandXml:
            return readLandXml(path, site, error);
        default:
            return readPointList(path, options, site, error);
    }
    // Mesh formats carry a height where they have one (else 0).
    for (const PkGePoint3d& p : site.points) site.hasHeights |= p.z != 0.0;
    return ok;
}

}  // namespace rytri
