#include "io/SiteReaders.h"

#include <algorithm>
#include <cctype>

#include "io/TextInput.h"

namespace rytri {

namespace {

std::string lowerExtension(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
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
    std::string text;
    if (!readWholeFile(path, text, error)) return false;
    LineCursor lines(text);
    long long count, attributes, markers;
    if (!readNodeHeader(lines, path, count, attributes, markers, error)) return false;
    base = 0;
    return readNodeBlock(lines, path, count, attributes, markers, site, base, error);
}

bool readPolyFile(const std::string& path, Site& site, std::string& error) {
    std::string text;
    if (!readWholeFile(path, text, error)) return false;
    LineCursor lines(text);
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
            error = located(path,
                            lines.lineNumber(),
                            "no vertices in the file, and its .node file "
                            "could not be read: " +
                                nodeError);
            return false;
        }
    }

    std::string what;
    if (!lines.next()) {
        error = located(path,
                        lines.lineNumber(),
                        "the file ends before the segment header "
                        "'segments markers'");
        return false;
    }
    long long segments, segmentMarkers = 0;
    {
        FieldReader fields(lines.line());
        if (!readCount(fields, "segments", segments, path, lines.lineNumber(), error)) return false;
        if (!fields.atEnd() &&
            !readCount(
                fields, "boundary markers", segmentMarkers, path, lines.lineNumber(), error)) {
            return false;
        }
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
                error =
                    located(path,
                            lines.lineNumber(),
                            "segment endpoint " + std::to_string(end) +
                                " out of range (vertices "
                                "are numbered " +
                                std::to_string(base) + ".." + std::to_string(n + base - 1) + ")");
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

    // Hole points and regional attributes: optional trailing sections; holes here come from the
    // nesting of closed boundaries, so the points are read for their syntax and set aside.
    if (lines.next()) {
        FieldReader fields(lines.line());
        long long holes;
        if (!readCount(fields, "holes", holes, path, lines.lineNumber(), error)) return false;
        for (long long k = 0; k < holes; ++k) {
            if (!lines.next()) {
                error = located(path, lines.lineNumber(), "the file ends inside the hole list");
                return false;
            }
        }
        if (holes > 0) {
            site.warnings.push_back(path + ": " + plural(holes, "hole point") +
                                    " ignored: holes are the regions enclosed by an even number "
                                    "of boundaries");
        }
        if (lines.next()) {
            FieldReader regionFields(lines.line());
            long long regions;
            if (!readCount(regionFields, "regions", regions, path, lines.lineNumber(), error)) {
                return false;
            }
            for (long long k = 0; k < regions; ++k) {
                if (!lines.next()) {
                    error =
                        located(path, lines.lineNumber(), "the file ends inside the region list");
                    return false;
                }
            }
            if (regions > 0) {
                site.warnings.push_back(path + ": " + plural(regions, "regional attribute") +
                                        " ignored");
            }
        }
    }
    return true;
}

bool readObjFile(const std::string& path, Site& site, std::string& error) {
    std::string text;
    if (!readWholeFile(path, text, error)) return false;
    LineCursor lines(text);
    std::string what;
    long long faces = 0;
    // Line elements are resolved at the end, since negative indices count back from the
    // vertices read so far: store them already resolved, with their line for range messages.
    struct PendingEdge {
        long long a, b;
        int line;
    };
    std::vector<PendingEdge> pending;
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
        } else if (tag == "l") {
            long long previous = 0;
            int count = 0;
            while (!fields.atEnd()) {
                std::string field(fields.peek());
                field = field.substr(0, field.find('/'));  // "l v/vt" form
                FieldReader one(field);
                long long index = 0;
                if (!one.integer(index, what)) {
                    error = located(path, lines.lineNumber(), "bad line element index: " + what);
                    return false;
                }
                if (index == 0) {
                    error = located(path,
                                    lines.lineNumber(),
                                    "line element index 0: indices "
                                    "start at 1");
                    return false;
                }
                fields.skip();
                // 1-based, or negative: relative to the vertices read so far.
                const long long resolved =
                    index > 0 ? index - 1 : static_cast<long long>(site.points.size()) + index;
                if (count > 0) pending.push_back({previous, resolved, lines.lineNumber()});
                previous = resolved;
                ++count;
            }
        } else if (tag == "f") {
            ++faces;
        }
        // Other statements (vn, vt, o, g, s, usemtl, mtllib) carry nothing used here.
    }
    const long long n = static_cast<long long>(site.points.size());
    for (const PendingEdge& e : pending) {
        for (long long end : {e.a, e.b}) {
            if (end < 0 || end >= n) {
                error = located(path,
                                e.line,
                                "line element refers to vertex " + std::to_string(end + 1) +
                                    ", but the file has " + plural(n, "vertex"));
                return false;
            }
        }
        site.edges.emplace_back(int(e.a), int(e.b));
    }
    if (faces > 0) {
        site.warnings.push_back(path + ": " + plural(faces, "face") +
                                " ignored: the vertices are triangulated anew");
    }
    return true;
}

}  // namespace

InputFormat inputFormatOf(const std::string& path) {
    const std::string ext = lowerExtension(path);
    if (ext == ".node") return InputFormat::kNode;
    if (ext == ".poly") return InputFormat::kPoly;
    if (ext == ".obj") return InputFormat::kObj;
    return InputFormat::kPoints;
}

bool readPointList(const std::string& path, Site& site, std::string& error) {
    std::string text;
    if (!readWholeFile(path, text, error)) return false;
    // Rough count for one reservation: about 25 bytes per point line.
    site.points.reserve(text.size() / 25 + 16);
    LineCursor lines(text);
    std::string what;
    bool first = true;
    int extraColumnsLine = 0;
    while (lines.next()) {
        FieldReader fields(lines.line());
        if (first) {
            first = false;
            const std::string_view head = fields.peek();
            const char c = head.empty() ? '0' : head.front();
            const bool word = std::isalpha(static_cast<unsigned char>(c)) && head != "inf" &&
                              head != "nan" && head != "infinity";
            if (word) {
                site.warnings.push_back(
                    located(path,
                            lines.lineNumber(),
                            "skipped as a column header: '" + std::string(lines.line()) + "'"));
                continue;
            }
        }
        double x, y, z = 0.0;
        if (!fields.number(x, what) || !fields.number(y, what) ||
            (!fields.atEnd() && !fields.number(z, what))) {
            error = located(path, lines.lineNumber(), "expected 'x y [z]': " + what);
            return false;
        }
        if (!fields.atEnd() && extraColumnsLine == 0) extraColumnsLine = lines.lineNumber();
        site.points.emplace_back(x, y, z);
    }
    if (extraColumnsLine > 0) {
        site.warnings.push_back(
            located(path, extraColumnsLine, "columns after x y z ignored (from this line on)"));
    }
    return true;
}

bool readEdgeList(const std::string& path, Site& site, std::string& error) {
    std::string text;
    if (!readWholeFile(path, text, error)) return false;
    LineCursor lines(text);
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
            error = located(path,
                            lines.lineNumber(),
                            "expected 'i j' (two point indices), found "
                            "more fields");
            return false;
        }
        for (long long end : {a, b}) {
            if (end < 0 || end >= n) {
                error = located(path,
                                lines.lineNumber(),
                                "edge index " + std::to_string(end) +
                                    " out of range: the points "
                                    "are numbered 0.." +
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

bool readSite(const std::string& path, Site& site, std::string& error) {
    site = Site();
    int base = 0;
    switch (inputFormatOf(path)) {
        case InputFormat::kNode:
            return readNodeFile(path, site, base, error);
        case InputFormat::kPoly:
            return readPolyFile(path, site, error);
        case InputFormat::kObj:
            return readObjFile(path, site, error);
        case InputFormat::kPoints:
            break;
    }
    return readPointList(path, site, error);
}

}  // namespace rytri
