// The LandXML reader: the points (Pnts/P, CgPoints/CgPoint: "northing easting [elevation]"),
// breaklines and boundaries (PntList3D or PntList2D) of the first Surface, so that a surface
// can be read back and triangulated anew. Faces are not read. A small pull scanner does the XML:
// tags with attributes, text, comments, CDATA and declarations; no DTD.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "io/SiteReaders.h"
#include "io/TextInput.h"

namespace rytri {

namespace {

/// One XML event at a time: a start tag (name and attribute text), an end tag (a start tag
/// ending in "/>" is followed by its end), or text. Names lose their namespace prefix.
class XmlCursor {
public:
    enum Kind { kStart, kEnd, kText, kDone, kError };

    explicit XmlCursor(std::string_view text) : text(text) {}
    Kind next();
    std::string_view name;        ///< of a tag
    std::string_view attributes;  ///< of a start tag, raw
    std::string_view content;     ///< of text, raw
    std::string what;             ///< why kError
    int line = 1;

    /// The value of attribute `key` of the current start tag (entities decoded), or false.
    bool attribute(const char* key, std::string& value) const;

private:
    bool skipPast(const char* end);
    std::string_view text;
    std::size_t at = 0;
    bool pendingEnd = false;
};

bool XmlCursor::skipPast(const char* end) {
    const std::size_t found = text.find(end, at);
    const std::size_t stop = found == std::string_view::npos ? text.size() : found;
    for (std::size_t i = at; i < stop; ++i) line += text[i] == '\n';
    at = found == std::string_view::npos ? text.size() : found + std::strlen(end);
    return found != std::string_view::npos;
}

XmlCursor::Kind XmlCursor::next() {
    if (pendingEnd) {
        pendingEnd = false;
        return kEnd;
    }
    while (at < text.size()) {
        if (text[at] != '<') {
            const std::size_t end = std::min(text.find('<', at), text.size());
            content = text.substr(at, end - at);
            for (char c : content) line += c == '\n';
            at = end;
            return kText;
        }
        const std::string_view rest = text.substr(at);
        const bool cdata = rest.rfind("<![CDATA[", 0) == 0;
        if (cdata || rest.rfind("<!--", 0) == 0 || rest.rfind("<?", 0) == 0 ||
            rest.rfind("<!", 0) == 0) {
            const std::size_t start = at + 9;
            const char* end = cdata ? "]]>" : rest[1] == '?' ? "?>" : rest[2] == '-' ? "-->" : ">";
            if (!skipPast(end)) return what = "unterminated markup", kError;
            if (!cdata) continue;
            content = text.substr(start, at - 3 - start);
            return kText;
        }
        const std::size_t start = at;
        if (!skipPast(">")) return what = "a tag without its '>'", kError;
        std::string_view tag = text.substr(start + 1, at - start - 2);
        const bool end = !tag.empty() && tag.front() == '/';
        if (end) tag.remove_prefix(1);
        pendingEnd = !end && !tag.empty() && tag.back() == '/';
        if (pendingEnd) tag.remove_suffix(1);
        const std::size_t nameEnd = std::min(tag.find_first_of(" \t\r\n"), tag.size());
        name = tag.substr(0, nameEnd);
        attributes = tag.substr(nameEnd);
        if (name.empty()) return what = "a tag without a name", kError;
        const std::size_t colon = name.find(':');
        if (colon != std::string_view::npos) name.remove_prefix(colon + 1);
        return end ? kEnd : kStart;
    }
    return kDone;
}

bool XmlCursor::attribute(const char* key, std::string& value) const {
    const std::size_t keyLength = std::strlen(key);
    for (std::size_t i = attributes.find(key); i != std::string_view::npos;
         i = attributes.find(key, i + 1)) {
        const bool starts = i == 0 || std::strchr(" \t\r\n", attributes[i - 1]);
        std::size_t j = i + keyLength;
        while (j < attributes.size() && std::strchr(" \t\r\n", attributes[j])) ++j;
        if (!starts || j >= attributes.size() || attributes[j] != '=') continue;
        ++j;
        while (j < attributes.size() && std::strchr(" \t\r\n", attributes[j])) ++j;
        if (j >= attributes.size() || (attributes[j] != '"' && attributes[j] != '\'')) return false;
        const std::size_t close = attributes.find(attributes[j], j + 1);
        if (close == std::string_view::npos) return false;
        value.clear();
        for (std::size_t k = j + 1; k < close; ++k) {
            static const char* const kEntities[][2] = {
                {"&amp;", "&"}, {"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&apos;", "'"}};
            bool decoded = false;
            for (const auto& e : kEntities) {
                if (attributes.compare(k, std::strlen(e[0]), e[0]) == 0) {
                    value += e[1];
                    k += std::strlen(e[0]) - 1;
                    decoded = true;
                    break;
                }
            }
            if (!decoded) value += attributes[k];
        }
        return true;
    }
    return false;
}

/// The state of the reader: which element's text is being gathered, and what it becomes.
struct LandXmlState {
    LandXmlState(const std::string& path, Site& site, std::string& error)
        : path(path), site(site), error(error) {}
    const std::string& path;
    Site& site;
    std::string& error;
    int surfaces = 0;  ///< Surface elements started
    bool inSurface = false;
    bool skipSurface = false;
    long long faces = 0;
    std::string gathering;  ///< "P", "CgPoint", "PntList3D", "PntList2D" or empty
    std::string text;       ///< its text so far
    int textLine = 0;       ///< where the element started
    std::string id;         ///< of a P or CgPoint
    bool hasRole = false;   ///< inside a Breakline or a Boundary to read
    ry::Role role = ry::Role::kBreakline;
    /// Lines read, added after the points so that the points keep their order whatever the
    /// order of the elements.
    struct Line {
        ry::Role role;
        bool closed;
        int line;
        std::vector<PkGePoint3d> points;
    };
    std::vector<Line> lines;
};

/// Numbers of a point or point list: "northing easting [elevation]" each; `per` is 2 or 3, or 0
/// for 2 or 3 (a single point).
bool parseTriples(LandXmlState& st, int per, std::vector<PkGePoint3d>& points) {
    for (char& c : st.text) {
        if (c == '\n') c = ' ';
    }
    FieldReader fields(st.text);
    const int n = fields.remaining();
    if (per == 0 && (n == 2 || n == 3)) per = n;
    if (per == 0 || n == 0 || n % per != 0) {
        st.error =
            located(st.path,
                    st.textLine,
                    "expected 'northing easting" + std::string(per == 2 ? "'" : " elevation'") +
                        (per == 0 ? " for a point" : " triples") + ", found " + std::to_string(n) +
                        " numbers");
        return false;
    }
    std::string what;
    for (int i = 0; i < n; i += per) {
        double north, east, z = std::numeric_limits<double>::quiet_NaN();
        if (!fields.number(north, what) || !fields.number(east, what) ||
            (per == 3 && !fields.number(z, what))) {
            st.error = located(st.path, st.textLine, "bad coordinate: " + what);
            return false;
        }
        points.emplace_back(east, north, z);
    }
    return true;
}

bool finishText(LandXmlState& st, bool list3d) {
    std::vector<PkGePoint3d> points;
    const bool list = st.gathering.rfind("PntList", 0) == 0;
    if (!parseTriples(st, list ? (list3d ? 3 : 2) : 0, points)) return false;
    Site& site = st.site;
    if (!list) {
        site.hasHeights |= !std::isnan(points[0].z);
        site.points.push_back(points[0]);
        site.origins.push_back({0, st.textLine});
        site.ids.push_back(st.id);
        return true;
    }
    const bool closed = points.size() > 2 && points.front().x == points.back().x &&
                        points.front().y == points.back().y;
    if (closed) points.pop_back();
    st.lines.push_back({st.role, closed || st.role != ry::Role::kBreakline, st.textLine, points});
    return true;
}

void addLines(const LandXmlState& st) {
    Site& site = st.site;
    for (const LandXmlState::Line& l : st.lines) {
        ry::Polyline line;
        line.role = l.role;
        line.closed = l.closed;
        line.first = site.lineVertices.size();
        line.count = l.points.size();
        site.lines.push_back(line);
        site.lineOrigins.push_back({0, l.line});
        for (const PkGePoint3d& p : l.points) {
            site.lineVertices.push_back(std::int32_t(site.points.size()));
            site.points.push_back(p);
            site.origins.push_back({0, l.line});
        }
    }
}

bool startElement(LandXmlState& st, const XmlCursor& xml) {
    const std::string_view name = xml.name;
    if (name == "Surface" && ++st.surfaces > 1) st.skipSurface = true;
    if (st.skipSurface) return true;
    st.textLine = xml.line;
    if (name == "P" || name == "CgPoint") {
        st.gathering = std::string(name);
        st.id.clear();
        xml.attribute(name == "P" ? "id" : "name", st.id);
    } else if (name == "Breakline") {
        st.hasRole = true;
        st.role = ry::Role::kBreakline;
    } else if (name == "Boundary") {
        std::string type;
        xml.attribute("bndType", type);
        st.hasRole = type == "outer" || type == "island" || type == "void";
        st.role = type == "void" ? ry::Role::kHole : ry::Role::kBoundary;
        if (!st.hasRole) {
            st.site.warnings.push_back(
                located(st.path,
                        xml.line,
                        "boundary of type '" + type + "' ignored (not outer, island or void)"));
        }
    } else if ((name == "PntList3D" || name == "PntList2D") && st.hasRole) {
        st.gathering = std::string(name);
    } else if (name == "F") {
        ++st.faces;
    }
    return true;
}

bool endElement(LandXmlState& st, std::string_view name) {
    if (name == "Surface" && st.skipSurface) {
        st.skipSurface = false;
        return true;
    }
    if (st.skipSurface) return true;
    if (name == "Breakline" || name == "Boundary") st.hasRole = false;
    if (st.gathering.empty() || name != st.gathering) return true;
    const bool ok =
        (name == "CgPoint" && st.text.find_first_not_of(" \t\r\n") == std::string::npos) ||
        finishText(st, name == "PntList3D");
    st.gathering.clear();
    st.text.clear();
    return ok;
}

/// Remarks on what was left out, and the check that there is something to triangulate.
bool finishLandXml(const LandXmlState& st, bool root) {
    Site& site = st.site;
    if (!root) {
        st.error = st.path + ": not a LandXML file (no <LandXML> element)";
        return false;
    }
    if (site.points.empty()) {
        st.error = st.path + ": no points (<Pnts><P> or <CgPoints><CgPoint>) to triangulate";
        return false;
    }
    addLines(st);
    if (!site.ids.empty()) site.ids.resize(site.points.size());
    // Without heights anywhere, 2D points and lines lie at 0; else one without a height takes it
    // from a coincident point or the surface (NaN), as the vertices of line files do.
    for (PkGePoint3d& p : site.points) {
        if (!site.hasHeights && std::isnan(p.z)) p.z = 0.0;
    }
    if (st.surfaces > 1) {
        site.warnings.push_back(st.path + ": " + std::to_string(st.surfaces - 1) +
                                " more surface(s) ignored: only the first is read");
    }
    if (st.faces > 0) {
        site.warnings.push_back(st.path + ": " + std::to_string(st.faces) +
                                " face(s) ignored: the points are triangulated anew");
    }
    return true;
}

}  // namespace

bool readLandXml(const std::string& path, Site& site, std::string& error) {
    FileText text;
    if (!readWholeFile(path, text, error)) return false;
    XmlCursor xml(text.view());
    LandXmlState st{path, site, error};
    std::vector<std::string_view> open;
    bool root = false;
    for (;;) {
        const XmlCursor::Kind kind = xml.next();
        if (kind == XmlCursor::kDone) break;
        if (kind == XmlCursor::kError) {
            error = located(path, xml.line, "malformed XML: " + xml.what);
            return false;
        }
        if (kind == XmlCursor::kText) {
            if (!st.gathering.empty()) st.text.append(xml.content);
        } else if (kind == XmlCursor::kStart) {
            root |= open.empty() && xml.name == "LandXML";
            open.push_back(xml.name);
            if (!startElement(st, xml)) return false;
        } else if (open.empty() || open.back() != xml.name) {
            error = located(path,
                            xml.line,
                            "malformed XML: </" + std::string(xml.name) + "> closes " +
                                (open.empty() ? "nothing" : "<" + std::string(open.back()) + ">"));
            return false;
        } else {
            open.pop_back();
            if (!endElement(st, xml.name)) return false;
        }
    }
    if (!open.empty()) {
        error = located(
            path, xml.line, "malformed XML: <" + std::string(open.back()) + "> is not closed");
        return false;
    }
    return finishLandXml(st, root);
}

}  // namespace rytri
