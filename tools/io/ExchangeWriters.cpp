#include "io/ExchangeWriters.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <ctime>
#include <iterator>
#include <unordered_set>

namespace rytri {

namespace {

PkGePoint3d spaceVertex(const MeshOutput& mesh, std::int32_t v) {
    const double* p = &mesh.surface.vertices[3 * std::size_t(v)];
    return toSpace(PkGePoint3d(p[0], p[1], p[2]), mesh.plane);
}

// --- LandXML -----------------------------------------------------------------------------------

/// The P id of each vertex: its input point's id when all such ids are distinct positive whole
/// numbers, else (and for vertices without one) numbers on from the largest id used.
std::vector<long long> pointIds(const MeshOutput& mesh) {
    const ry::Surface& s = mesh.surface;
    std::vector<long long> id(s.vertexCount(), 0);
    std::unordered_set<long long> seen;
    long long largest = 0;
    for (std::size_t v = 0; mesh.ids && v < id.size(); ++v) {
        const std::int32_t source = s.vertexSource[v];
        if (source < 0 || std::size_t(source) >= mesh.ids->size()) continue;
        const std::string& text = (*mesh.ids)[std::size_t(source)];
        long long n = 0;
        const auto r = std::from_chars(text.data(), text.data() + text.size(), n);
        if (r.ec != std::errc() || r.ptr != text.data() + text.size() || n <= 0 ||
            !seen.insert(n).second) {
            continue;
        }
        id[v] = n;
        largest = std::max(largest, n);
    }
    for (long long& n : id) {
        if (n == 0) n = ++largest;
    }
    return id;
}

void writeNez(OutputFile& out, const PkGePoint3d& p) {
    writeTriple(out, p.y, p.x, p.z, " ");
}

void writeSourceData(const MeshOutput& mesh, OutputFile& out) {
    const LinePaths paths = linePaths(mesh.surface);
    out.write("      <SourceData>\n");
    for (int boundaries = 1; boundaries >= 0; --boundaries) {
        std::size_t count = 0;
        for (std::size_t k = 0; k < paths.count(); ++k) {
            const bool ring =
                paths.role[k] == ry::Role::kBoundary || paths.role[k] == ry::Role::kHole;
            if (ring != bool(boundaries)) continue;
            if (count++ == 0)
                out.write(boundaries ? "        <Boundaries>\n" : "        <Breaklines>\n");
            out.write(boundaries ? "          <Boundary name=\"" : "          <Breakline name=\"");
            out.write(roleName(paths.role[k]));
            out.write(" ");
            out.writeInteger(static_cast<long long>(count));
            if (boundaries) {
                out.write(paths.role[k] == ry::Role::kHole ? "\" bndType=\"void\""
                                                           : "\" bndType=\"outer\"");
                out.write(" edgeTrim=\"true\">");
            } else {
                out.write("\" brkType=\"standard\">");
            }
            out.write("<PntList3D>");
            for (std::size_t i = paths.offsets[k]; i < paths.offsets[k + 1]; ++i) {
                if (i > paths.offsets[k]) out.write(" ");
                writeNez(out, spaceVertex(mesh, paths.vertices[i]));
            }
            out.write(boundaries ? "</PntList3D></Boundary>\n" : "</PntList3D></Breakline>\n");
        }
        if (count > 0)
            out.write(boundaries ? "        </Boundaries>\n" : "        </Breaklines>\n");
    }
    out.write("      </SourceData>\n");
}

void writeUnits(Units units, OutputFile& out) {
    out.write("  <Units>\n");
    if (units == Units::kMeter) {
        out.write(
            "    <Metric areaUnit=\"squareMeter\" linearUnit=\"meter\" volumeUnit=\"cubicMeter\" "
            "temperatureUnit=\"celsius\" pressureUnit=\"milliBars\" "
            "angularUnit=\"decimal degrees\" directionUnit=\"decimal degrees\"/>\n");
    } else {
        out.write("    <Imperial areaUnit=\"squareFoot\" linearUnit=\"");
        out.write(units == Units::kFoot ? "foot" : "USSurveyFoot");
        out.write(
            "\" volumeUnit=\"cubicFeet\" temperatureUnit=\"fahrenheit\" "
            "pressureUnit=\"inHG\" angularUnit=\"decimal degrees\" "
            "directionUnit=\"decimal degrees\"/>\n");
    }
    out.write("  </Units>\n");
}

/// <LandXML ...> with the date and time of `timestamp` (UTC).
void writeLandXmlHead(const ExchangeOptions& o, OutputFile& out) {
    const std::time_t when = std::time_t(o.timestamp);
    const std::tm* utc = std::gmtime(&when);
    char stamp[64] = "date=\"1970-01-01\" time=\"00:00:00\"";
    if (utc) std::strftime(stamp, sizeof stamp, "date=\"%Y-%m-%d\" time=\"%H:%M:%S\"", utc);
    out.write(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<LandXML xmlns=\"http://www.landxml.org/schema/LandXML-1.2\" "
        "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
        "xsi:schemaLocation=\"http://www.landxml.org/schema/LandXML-1.2 "
        "http://www.landxml.org/schema/LandXML-1.2/LandXML-1.2.xsd\" version=\"1.2\" ");
    out.write(stamp);
    out.write(">\n");
    writeUnits(o.units, out);
    out.write("  <Application name=\"" + escapeXml(o.application, false) + "\" version=\"" +
              escapeXml(o.version, false) + "\"/>\n");
}

}  // namespace

void writeLandXml(const MeshOutput& mesh, const ExchangeOptions& o, OutputFile& out) {
    const ry::Surface& s = mesh.surface;
    writeLandXmlHead(o, out);
    out.write("  <Surfaces>\n    <Surface name=\"" + escapeXml(mesh.name, false) + "\">\n");
    writeSourceData(mesh, out);
    const ry::Volumes areas = ry::surfaceVolumes(s, 0.0);
    double low = INFINITY, high = -INFINITY;
    for (std::int32_t v : s.triangles) {
        low = std::min(low, spaceVertex(mesh, v).z);
        high = std::max(high, spaceVertex(mesh, v).z);
    }
    out.write("      <Definition surfType=\"TIN\" area2DSurf=\"");
    out.writeNumber(areas.area2d);
    out.write("\" area3DSurf=\"");
    out.writeNumber(areas.area3d);
    out.write("\" elevMax=\"");
    out.writeNumber(high);
    out.write("\" elevMin=\"");
    out.writeNumber(low);
    out.write("\">\n        <Pnts>\n");
    const std::vector<long long> id = pointIds(mesh);
    for (std::size_t v = 0; v < s.vertexCount(); ++v) {
        out.write("          <P id=\"");
        out.writeInteger(id[v]);
        out.write("\">");
        writeNez(out, spaceVertex(mesh, std::int32_t(v)));
        out.write("</P>\n");
    }
    out.write("        </Pnts>\n        <Faces>\n");
    for (std::size_t t = 0; t < s.triangleCount(); ++t) {
        out.write("          <F>");
        for (std::size_t k = 0; k < 3; ++k) {
            if (k > 0) out.write(" ");
            out.writeInteger(id[std::size_t(s.triangles[3 * t + k])]);
        }
        out.write("</F>\n");
    }
    out.write("        </Faces>\n      </Definition>\n    </Surface>\n  </Surfaces>\n</LandXML>\n");
}

// --- DXF ---------------------------------------------------------------------------------------

namespace {

/// Group code and value pairs, codes right-aligned in three columns as CAD programs write them.
class DxfOut {
public:
    explicit DxfOut(OutputFile& out) : out(out) {}
    void text(int code, const char* value) {
        writeCode(code);
        out.write(value);
        out.write("\n");
    }
    void number(int code, double value) {
        writeCode(code);
        out.writeNumber(value);
        out.write("\n");
    }
    void integer(int code, long long value) {
        writeCode(code);
        out.writeInteger(value);
        out.write("\n");
    }
    void point(int code, const PkGePoint3d& p) {
        number(code, p.x);
        number(code + 10, p.y);
        number(code + 20, p.z);
    }

private:
    void writeCode(int code) {
        char text[4] = {' ', ' ', ' ', '\n'};
        for (int i = 2; i >= 0 && (code > 0 || i == 2); --i, code /= 10) {
            text[i] = char('0' + code % 10);
        }
        out.write(std::string_view(text, 4));
    }
    OutputFile& out;
};

struct DxfLayer {
    const char* name;
    int colour;
};
constexpr DxfLayer kLayers[] = {{"0", 7},
                                {"TIN", 8},
                                {"BOUNDARY", 7},
                                {"HOLE", 1},
                                {"BREAKLINE", 5},
                                {"EDGE", 6},
                                {"CONTOUR", 3},
                                {"CONTOUR_INDEX", 30}};

const char* layerOf(ry::Role role) {
    switch (role) {
        case ry::Role::kBoundary:
            return "BOUNDARY";
        case ry::Role::kHole:
            return "HOLE";
        case ry::Role::kBreakline:
            return "BREAKLINE";
        default:
            return "EDGE";
    }
}

void writeDxfHead(const MeshOutput& mesh, DxfOut& d) {
    PkGePoint3d low(INFINITY, INFINITY, INFINITY), high(-INFINITY, -INFINITY, -INFINITY);
    for (std::int32_t v : mesh.surface.triangles) {
        const PkGePoint3d p = spaceVertex(mesh, v);
        low = PkGePoint3d(std::min(low.x, p.x), std::min(low.y, p.y), std::min(low.z, p.z));
        high = PkGePoint3d(std::max(high.x, p.x), std::max(high.y, p.y), std::max(high.z, p.z));
    }
    d.text(0, "SECTION");
    d.text(2, "HEADER");
    d.text(9, "$ACADVER");
    d.text(1, "AC1009");
    d.text(9, "$EXTMIN");
    d.point(10, low);
    d.text(9, "$EXTMAX");
    d.point(10, high);
    d.text(0, "ENDSEC");
    d.text(0, "SECTION");
    d.text(2, "TABLES");
    d.text(0, "TABLE");
    d.text(2, "LTYPE");
    d.integer(70, 1);
    d.text(0, "LTYPE");
    d.text(2, "CONTINUOUS");
    d.integer(70, 0);
    d.text(3, "Solid line");
    d.integer(72, 65);
    d.integer(73, 0);
    d.number(40, 0.0);
    d.text(0, "ENDTAB");
    d.text(0, "TABLE");
    d.text(2, "LAYER");
    d.integer(70, static_cast<long long>(std::size(kLayers)));
    for (const DxfLayer& layer : kLayers) {
        d.text(0, "LAYER");
        d.text(2, layer.name);
        d.integer(70, 0);
        d.integer(62, layer.colour);
        d.text(6, "CONTINUOUS");
    }
    d.text(0, "ENDTAB");
    d.text(0, "ENDSEC");
}

/// Each vertex's x, y and z as text, each ending in a newline, formatted once: a vertex is a
/// corner of about six faces. Value a of vertex v is text[end[3v + a] .. end[3v + a + 1]), at
/// most 25 characters; 32 spare bytes follow the last.
struct VertexText {
    std::string text;
    std::vector<std::size_t> end{0};

    explicit VertexText(const MeshOutput& mesh) {
        const std::size_t n = mesh.surface.vertexCount();
        text.reserve(n * 60);
        end.reserve(3 * n + 1);
        for (std::size_t v = 0; v < n; ++v) {
            const PkGePoint3d p = spaceVertex(mesh, std::int32_t(v));
            for (double c : {p.x, p.y, p.z}) {
                appendNumber(text, c);
                text += '\n';
                end.push_back(text.size());
            }
        }
        text.append(32, '\0');  // so that a value can be copied 32 bytes at a time
    }
    std::string_view value(std::int32_t v, int a) const {
        const std::size_t i = 3 * std::size_t(v) + std::size_t(a);
        return std::string_view(text).substr(end[i], end[i + 1] - end[i]);
    }
};

/// A 3DFACE per kept triangle, its fourth corner repeating the third.
void writeFaces(const MeshOutput& mesh, OutputFile& out) {
    static const char* const kCodes[4][3] = {{" 10\n", " 20\n", " 30\n"},
                                             {" 11\n", " 21\n", " 31\n"},
                                             {" 12\n", " 22\n", " 32\n"},
                                             {" 13\n", " 23\n", " 33\n"}};
    const VertexText text(mesh);
    const std::vector<std::int32_t>& triangles = mesh.surface.triangles;
    constexpr std::string_view kHead = "  0\n3DFACE\n  8\nTIN\n";
    char face[512];  // the head, then 12 codes and values of at most 25 characters (+ 32 spare)
    for (std::size_t t = 0; t < triangles.size(); t += 3) {
        char* to = face;
        std::memcpy(to, kHead.data(), kHead.size());
        to += kHead.size();
        for (int k = 0; k < 4; ++k) {
            const std::int32_t v = triangles[t + std::size_t(std::min(k, 2))];
            for (int a = 0; a < 3; ++a) {
                const std::string_view value = text.value(v, a);
                std::memcpy(to, kCodes[k][a], 4);
                std::memcpy(to + 4, value.data(), 32);  // fixed size: one inlined move
                to += 4 + value.size();
            }
        }
        out.write(std::string_view(face, std::size_t(to - face)));
    }
}

/// A POLYLINE with its VERTEXes and SEQEND; `flags` 8 for a 3D polyline, 0 for a 2D one at
/// `elevation`, plus 1 when closed.
template <class Vertex>
void writePolyline(
    DxfOut& d, const char* layer, int flags, double elevation, std::size_t n, Vertex&& vertex) {
    d.text(0, "POLYLINE");
    d.text(8, layer);
    d.integer(66, 1);
    d.point(10, PkGePoint3d(0.0, 0.0, elevation));
    d.integer(70, flags);
    for (std::size_t i = 0; i < n; ++i) {
        d.text(0, "VERTEX");
        d.text(8, layer);
        d.point(10, vertex(i));
        if (flags & 8) d.integer(70, 32);
    }
    d.text(0, "SEQEND");
    d.text(8, layer);
}

}  // namespace

void writeDxf(const MeshOutput& mesh, const ExchangeOptions&, OutputFile& out) {
    const ry::Surface& s = mesh.surface;
    DxfOut d(out);
    writeDxfHead(mesh, d);
    d.text(0, "SECTION");
    d.text(2, "ENTITIES");
    writeFaces(mesh, out);
    const LinePaths paths = linePaths(s);
    for (std::size_t k = 0; k < paths.count(); ++k) {
        const std::int32_t* v = &paths.vertices[paths.offsets[k]];
        std::size_t n = paths.offsets[k + 1] - paths.offsets[k];
        const bool closed = n > 2 && v[0] == v[n - 1];
        if (closed) --n;
        writePolyline(d, layerOf(paths.role[k]), 8 | (closed ? 1 : 0), 0.0, n, [&](std::size_t i) {
            return spaceVertex(mesh, v[i]);
        });
    }
    if (mesh.contours) {
        const ry::Contours& c = mesh.contours->lines;
        for (std::size_t l = 0; l < c.lineCount(); ++l) {
            const std::size_t first = c.offsets[l];
            // At their elevation in the plan; 3D when triangulated in another plane.
            const int flags = (mesh.plane == 0 ? 0 : 8) | (c.closed[l] ? 1 : 0);
            writePolyline(
                d,
                mesh.contours->index[l] ? "CONTOUR_INDEX" : "CONTOUR",
                flags,
                mesh.plane == 0 ? c.level[l] : 0.0,
                c.offsets[l + 1] - first,
                [&](std::size_t i) {
                    return toSpace(
                        PkGePoint3d(c.xy[2 * (first + i)], c.xy[2 * (first + i) + 1], c.level[l]),
                        mesh.plane);
                });
        }
    }
    d.text(0, "ENDSEC");
    d.text(0, "EOF");
}

// --- GeoJSON -----------------------------------------------------------------------------------

void writeGeoJson(const MeshOutput& mesh, OutputFile& out) {
    out.write("{\"type\": \"FeatureCollection\", \"features\": [");
    const ry::Contours* c = mesh.contours ? &mesh.contours->lines : nullptr;
    for (std::size_t l = 0; c && l < c->lineCount(); ++l) {
        out.write(l == 0 ? "\n" : ",\n");
        out.write("{\"type\": \"Feature\", \"properties\": {\"elevation\": ");
        out.writeNumber(c->level[l]);
        out.write(mesh.contours->index[l] ? ", \"index\": true}" : ", \"index\": false}");
        out.write(", \"geometry\": {\"type\": \"LineString\", \"coordinates\": [");
        const std::size_t n = c->offsets[l + 1] - c->offsets[l];
        for (std::size_t i = 0; i <= n; ++i) {
            if (i == n && !c->closed[l]) break;
            const std::size_t p = c->offsets[l] + i % n;
            const PkGePoint3d q =
                toSpace(PkGePoint3d(c->xy[2 * p], c->xy[2 * p + 1], c->level[l]), mesh.plane);
            out.write(i == 0 ? "[" : ", [");
            writeTriple(out, q.x, q.y, q.z, ", ");
            out.write("]");
        }
        out.write("]}}");
    }
    out.write("\n]}\n");
}

}  // namespace rytri
