#include "io/MeshWriters.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

#include "io/ParallelLines.h"
#include "io/TextFormat.h"

namespace rytri {

PkGePoint3d toSpace(const PkGePoint3d& p, int plane) {
    switch (plane) {
        case 1:  // u = x, v = z, h = y
            return PkGePoint3d(p.x, p.z, p.y);
        case 2:  // u = y, v = z, h = x
            return PkGePoint3d(p.z, p.x, p.y);
        default:
            return p;
    }
}

LinePaths linePaths(const ry::Surface& s) {
    LinePaths paths;
    for (std::size_t i = 0; i < s.edgeCount(); ++i) {
        const std::int32_t from = s.edgeVertices[2 * i], to = s.edgeVertices[2 * i + 1];
        const bool goesOn =
            i > 0 && s.edgeLine[i] == s.edgeLine[i - 1] && paths.vertices.back() == from;
        if (!goesOn) {
            if (i > 0) paths.offsets.push_back(paths.vertices.size());
            paths.role.push_back(s.edgeRole[i]);
            paths.vertices.push_back(from);
        }
        paths.vertices.push_back(to);
    }
    if (!paths.role.empty()) paths.offsets.push_back(paths.vertices.size());
    return paths;
}

namespace {

void writeComment(OutputFile& out, const std::string& comment) {
    if (comment.empty()) return;
    std::size_t start = 0;
    while (start <= comment.size()) {
        const std::size_t end = std::min(comment.find('\n', start), comment.size());
        out.write("# ");
        out.write(std::string_view(comment).substr(start, end - start));
        out.write("\n");
        start = end + 1;
    }
}

const char* planeNote(int plane) {
    switch (plane) {
        case 1:
            return "triangulated in the x-z plane: u = x, v = z, attribute = y";
        case 2:
            return "triangulated in the y-z plane: u = y, v = z, attribute = x";
        default:
            return "u = x, v = y, attribute = z";
    }
}

void writeVertex(OutputFile& out, const char* tag, const PkGePoint3d& p) {
    out.write(tag);
    writeTriple(out, p.x, p.y, p.z, " ");
    out.write("\n");
}

PkGePoint3d vertexAt(const ry::Surface& s, std::size_t v) {
    return PkGePoint3d(s.vertices[3 * v], s.vertices[3 * v + 1], s.vertices[3 * v + 2]);
}

}  // namespace

void writeObj(const MeshOutput& mesh, const std::string& comment, OutputFile& out) {
    const ry::Surface& s = mesh.surface;
    writeComment(out, comment);
    // Longest lines: "v " and three numbers of at most 24 characters; "f " and three of 11.
    writeLines(out, s.vertexCount(), 80, [&](std::size_t v, TextBlock& text) {
        text.write("v ");
        const PkGePoint3d p = toSpace(vertexAt(s, v), mesh.plane);
        writeTriple(text, p.x, p.y, p.z, " ");
        text.write("\n");
    });
    // Seen from the positive height axis the triangles run counter-clockwise in (u, v); for the
    // x-z plane that axis is y and (x, z, y) is a left-handed relabelling, so flip the order to
    // keep the faces' normals on the height side.
    const bool flip = mesh.plane == 1;
    writeLines(out, s.triangleCount(), 40, [&](std::size_t t, TextBlock& text) {
        const std::int32_t* v = &s.triangles[3 * t];
        text.write("f ");
        text.writeInteger(v[0] + 1);
        text.write(" ");
        text.writeInteger((flip ? v[2] : v[1]) + 1);
        text.write(" ");
        text.writeInteger((flip ? v[1] : v[2]) + 1);
        text.write("\n");
    });
    // Lines with roles go in groups named after the role, which the .obj reader gives back.
    bool roles = false;
    for (ry::Role role : s.edgeRole) roles |= role != ry::Role::kEdge;
    for (std::size_t i = 0; i < s.edgeCount(); ++i) {
        if (roles && (i == 0 || s.edgeLine[i] != s.edgeLine[i - 1])) {
            out.write("g ");
            out.write(roleName(s.edgeRole[i]));
            out.write("\n");
        }
        out.write("l ");
        out.writeInteger(s.edgeVertices[2 * i] + 1);
        out.write(" ");
        out.writeInteger(s.edgeVertices[2 * i + 1] + 1);
        out.write("\n");
    }
}

void writeNode(const MeshOutput& mesh, const std::string& comment, OutputFile& out) {
    const ry::Surface& s = mesh.surface;
    writeComment(out, comment);
    writeComment(out, planeNote(mesh.plane));
    out.writeInteger(static_cast<long long>(s.vertexCount()));
    out.write(" 2 1 0\n");
    for (std::size_t v = 0; v < s.vertexCount(); ++v) {
        out.writeInteger(static_cast<long long>(v) + 1);
        writeVertex(out, " ", vertexAt(s, v));
    }
}

void writeEle(const MeshOutput& mesh, const std::string& comment, OutputFile& out) {
    const ry::Surface& s = mesh.surface;
    writeComment(out, comment);
    out.writeInteger(static_cast<long long>(s.triangleCount()));
    out.write(" 3 0\n");
    for (std::size_t t = 0; t < s.triangleCount(); ++t) {
        out.writeInteger(static_cast<long long>(t) + 1);
        for (int k = 0; k < 3; ++k) {
            out.write(" ");
            out.writeInteger(s.triangles[3 * t + std::size_t(k)] + 1);
        }
        out.write("\n");
    }
}

void writePoly(const MeshOutput& mesh, const std::string& comment, OutputFile& out) {
    const ry::Surface& s = mesh.surface;
    writeComment(out, comment);
    out.write("# the vertices are in the .node file of the same name\n0 2 1 0\n");
    out.writeInteger(static_cast<long long>(s.edgeCount()));
    out.write(" 0\n");
    for (std::size_t i = 0; i < s.edgeCount(); ++i) {
        out.writeInteger(static_cast<long long>(i) + 1);
        out.write(" ");
        out.writeInteger(s.edgeVertices[2 * i] + 1);
        out.write(" ");
        out.writeInteger(s.edgeVertices[2 * i + 1] + 1);
        out.write("\n");
    }
    out.write("# a point in each region left out\n");
    out.writeInteger(static_cast<long long>(s.holeSeeds.size() / 2));
    out.write("\n");
    for (std::size_t i = 0; i + 1 < s.holeSeeds.size(); i += 2) {
        out.writeInteger(static_cast<long long>(i / 2) + 1);
        out.write(" ");
        out.writeNumber(s.holeSeeds[i]);
        out.write(" ");
        out.writeNumber(s.holeSeeds[i + 1]);
        out.write("\n");
    }
}

// --- SVG ---------------------------------------------------------------------------------------

namespace {

struct Rgb {
    int r, g, b;
};

/// Blue (low) through pale yellow to red (high): reads as a height map and survives greyscale.
constexpr std::array<Rgb, 5> kRamp = {
    {{44, 123, 182}, {171, 217, 233}, {255, 255, 191}, {253, 174, 97}, {215, 25, 28}}};

Rgb rampColour(double t) {
    if (!(t > 0.0)) t = 0.0;
    if (t > 1.0) t = 1.0;
    const double s = t * double(kRamp.size() - 1);
    const std::size_t i = std::min(std::size_t(s), kRamp.size() - 2);
    const double f = s - double(i);
    const Rgb a = kRamp[i], b = kRamp[i + 1];
    return {int(std::lround(a.r + f * (b.r - a.r))),
            int(std::lround(a.g + f * (b.g - a.g))),
            int(std::lround(a.b + f * (b.b - a.b)))};
}

std::string hex(Rgb c) {
    char text[8];
    std::snprintf(text, sizeof text, "#%02x%02x%02x", c.r, c.g, c.b);
    return text;
}

/// Pixel coordinates rounded to 0.01 px: short, and finer than any screen.
void appendPixel(std::string& out, double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", value);
    // Drop trailing zeros ("12.50" -> "12.5", "3.00" -> "3").
    std::size_t n = std::strlen(text);
    while (n > 0 && text[n - 1] == '0') --n;
    if (n > 0 && text[n - 1] == '.') --n;
    out.append(text, n);
}

struct Frame {
    double minU, maxV, scale, left, top;
    double width, height;  ///< of the plot area, in pixels
    double minH, maxH;
    double x(double u) const { return left + (u - minU) * scale; }
    double y(double v) const { return top + (maxV - v) * scale; }
    double heightT(double h) const { return maxH > minH ? (h - minH) / (maxH - minH) : 0.5; }
};

/// The extent of what is drawn (kept and removed triangles, constraint edges; every vertex
/// when there are none) and the heights of the kept triangles.
Frame frameOf(const ry::Surface& s, double size) {
    const double inf = std::numeric_limits<double>::infinity();
    double minU = inf, maxU = -inf, minV = inf, maxV = -inf, minH = inf, maxH = -inf;
    auto grow = [&](std::int32_t i) {
        const double* p = &s.vertices[3 * std::size_t(i)];
        minU = std::min(minU, p[0]);
        maxU = std::max(maxU, p[0]);
        minV = std::min(minV, p[1]);
        maxV = std::max(maxV, p[1]);
    };
    for (std::int32_t i : s.triangles) {
        grow(i);
        minH = std::min(minH, s.vertices[3 * std::size_t(i) + 2]);
        maxH = std::max(maxH, s.vertices[3 * std::size_t(i) + 2]);
    }
    for (std::int32_t i : s.removedTriangles) grow(i);
    for (std::int32_t i : s.edgeVertices) grow(i);
    for (std::size_t i = 0; !(minU <= maxU) && i < s.vertexCount(); ++i) grow(std::int32_t(i));
    if (!(minU <= maxU)) minU = maxU = minV = maxV = 0.0;
    if (!(minH <= maxH)) minH = maxH = 0.0;
    const double longer = std::max(maxU - minU, maxV - minV);
    const double scale = longer > 0.0 ? size / longer : 1.0;
    return {minU,
            maxV,
            scale,
            20.0,
            50.0,
            std::max((maxU - minU) * scale, 1.0),
            std::max((maxV - minV) * scale, 1.0),
            minH,
            maxH};
}

void appendTriangle(std::string& to, const ry::Surface& s, const Frame& frame, const int* v) {
    to += "<path d=\"M";
    for (int k = 0; k < 3; ++k) {
        const double* p = &s.vertices[3 * std::size_t(v[k])];
        if (k > 0) to += 'L';
        appendPixel(to, frame.x(p[0]));
        to += ' ';
        appendPixel(to, frame.y(p[1]));
    }
    to += "Z\"";
}

/// Kept triangles filled by mean height, removed ones outlined; `stroke` is the line width.
void drawTriangles(std::string& body,
                   const ry::Surface& s,
                   const Frame& frame,
                   bool drawRemoved,
                   double stroke,
                   bool faint) {
    if (drawRemoved && !s.removedTriangles.empty()) {
        body += "<g fill=\"none\" stroke=\"#9a9a9a\" stroke-width=\"";
        appendPixel(body, stroke);
        body += "\">\n";
        for (std::size_t t = 0; t < s.removedTriangles.size() / 3; ++t) {
            appendTriangle(body, s, frame, &s.removedTriangles[3 * t]);
            body += "/>\n";
        }
        body += "</g>\n";
    }
    // Fainter under contours, which then carry the shape.
    body += faint ? "<g stroke=\"#303030\" stroke-opacity=\"0.35\""
                  : "<g stroke=\"#303030\" stroke-opacity=\"0.7\"";
    body += " stroke-linejoin=\"round\" stroke-width=\"";
    appendPixel(body, stroke);
    body += "\">\n";
    for (std::size_t t = 0; t < s.triangleCount(); ++t) {
        const int* v = &s.triangles[3 * t];
        double h = 0.0;
        for (int k = 0; k < 3; ++k) h += s.vertices[3 * std::size_t(v[k]) + 2] / 3.0;
        appendTriangle(body, s, frame, v);
        body += " fill=\"" + hex(rampColour(frame.heightT(h))) + "\"/>\n";
    }
    body += "</g>\n";
}

/// Mean heights on a grid of cells: each cell takes the triangles covering its centre; a
/// triangle covering no centre counts at its centroid's cell, so slivers are not lost.
struct HeightGrid {
    int nx, ny;
    std::vector<double> sum;
    std::vector<int> count;

    HeightGrid(int nx, int ny)
        : nx(nx), ny(ny), sum(std::size_t(nx) * std::size_t(ny), 0.0), count(sum.size(), 0) {}
    void add(int i, int j, double h) {
        const std::size_t c = std::size_t(j) * std::size_t(nx) + std::size_t(i);
        sum[c] += h;
        ++count[c];
    }
    /// Colour level 0..63 of a cell, or -1 when empty.
    int level(int i, int j, const Frame& frame) const {
        const std::size_t c = std::size_t(j) * std::size_t(nx) + std::size_t(i);
        return count[c] == 0 ? -1 : int(std::lround(frame.heightT(sum[c] / count[c]) * 63.0));
    }
};

/// Adds triangle (cx, cy in cell units, mean height h) to the cells whose centre it covers.
void rasterise(HeightGrid& grid, const double cx[3], const double cy[3], double h) {
    const int i0 = std::max(0, int(std::ceil(std::min({cx[0], cx[1], cx[2]}) - 0.5)));
    const int i1 = std::min(grid.nx - 1, int(std::floor(std::max({cx[0], cx[1], cx[2]}) - 0.5)));
    const int j0 = std::max(0, int(std::ceil(std::min({cy[0], cy[1], cy[2]}) - 0.5)));
    const int j1 = std::min(grid.ny - 1, int(std::floor(std::max({cy[0], cy[1], cy[2]}) - 0.5)));
    bool covered = false;
    for (int j = j0; j <= j1; ++j) {
        for (int i = i0; i <= i1; ++i) {
            const double px = i + 0.5, py = j + 0.5;
            int positive = 0, negative = 0;
            for (int k = 0; k < 3; ++k) {
                const int l = k == 2 ? 0 : k + 1;
                const double side = (cx[l] - cx[k]) * (py - cy[k]) - (cy[l] - cy[k]) * (px - cx[k]);
                positive += side > 0.0;
                negative += side < 0.0;
            }
            if (positive == 0 || negative == 0) {
                grid.add(i, j, h);
                covered = true;
            }
        }
    }
    if (!covered) {
        grid.add(std::clamp(int((cx[0] + cx[1] + cx[2]) / 3.0), 0, grid.nx - 1),
                 std::clamp(int((cy[0] + cy[1] + cy[2]) / 3.0), 0, grid.ny - 1),
                 h);
    }
}

/// Too many triangles for a browser: the grid of mean heights, each row's runs of one colour
/// as one rectangle. Returns the note that says so.
std::string drawGrid(std::string& body,
                     const ry::Surface& s,
                     const Frame& frame,
                     std::size_t limit) {
    const double cell = 3.0;
    HeightGrid grid(std::max(1, int(std::ceil(frame.width / cell))),
                    std::max(1, int(std::ceil(frame.height / cell))));
    for (std::size_t t = 0; t < s.triangleCount(); ++t) {
        double cx[3], cy[3], h = 0.0;
        for (int k = 0; k < 3; ++k) {
            const double* p = &s.vertices[3 * std::size_t(s.triangles[3 * t + std::size_t(k)])];
            cx[k] = (frame.x(p[0]) - frame.left) / cell;
            cy[k] = (frame.y(p[1]) - frame.top) / cell;
            h += p[2] / 3.0;
        }
        rasterise(grid, cx, cy, h);
    }
    body += "<g shape-rendering=\"crispEdges\">\n";
    for (int j = 0; j < grid.ny; ++j) {
        for (int i = 0; i < grid.nx;) {
            const int level = grid.level(i, j, frame);
            int end = i + 1;
            while (end < grid.nx && grid.level(end, j, frame) == level) ++end;
            if (level >= 0) {
                body += "<rect x=\"";
                appendPixel(body, frame.left + i * cell);
                body += "\" y=\"";
                appendPixel(body, frame.top + j * cell);
                body += "\" width=\"";
                appendPixel(body, (end - i) * cell);
                body += "\" height=\"";
                appendPixel(body, cell);
                body += "\" fill=\"" + hex(rampColour(level / 63.0)) + "\"/>\n";
            }
            i = end;
        }
    }
    body += "</g>\n";
    return "Thinned for display: " + std::to_string(s.triangleCount()) +
           " triangles are more than " + std::to_string(limit) + ", so the fill is drawn as a " +
           std::to_string(grid.nx) + " x " + std::to_string(grid.ny) +
           " grid of mean heights and the triangle edges are not drawn.";
}

/// How the lines of each role are drawn; rings last, so they lie on top.
struct RoleStyle {
    ry::Role role;
    const char* label;
    const char* stroke;
};
constexpr RoleStyle kRoleStyles[] = {
    {ry::Role::kBreakline,
     "breakline",
     "stroke=\"#1f4e9a\" stroke-width=\"1.6\" stroke-dasharray=\"6 3\""},
    {ry::Role::kEdge, "constraint", "stroke=\"#000\" stroke-width=\"1.6\""},
    {ry::Role::kHole, "hole", "stroke=\"#8a1c1c\" stroke-width=\"2\""},
    {ry::Role::kBoundary, "boundary", "stroke=\"#000\" stroke-width=\"2\""},
};

/// The constraint edges, one path per role; above the limit an even subset. Returns a note
/// when thinned.
std::string drawEdges(std::string& body,
                      const ry::Surface& s,
                      const Frame& frame,
                      std::size_t limit) {
    const std::size_t step = s.edgeCount() > limit ? (s.edgeCount() + limit - 1) / limit : 1;
    for (const RoleStyle& style : kRoleStyles) {
        std::string d;
        for (std::size_t i = 0; i < s.edgeCount(); i += step) {
            if (s.edgeRole[i] != style.role) continue;
            for (int k = 0; k < 2; ++k) {
                const double* p =
                    &s.vertices[3 * std::size_t(s.edgeVertices[2 * i + std::size_t(k)])];
                d += k == 0 ? 'M' : 'L';
                appendPixel(d, frame.x(p[0]));
                d += ' ';
                appendPixel(d, frame.y(p[1]));
            }
        }
        if (d.empty()) continue;
        body += "<path fill=\"none\" stroke-linecap=\"round\" ";
        body += style.stroke;
        body += " d=\"" + d + "\"/>\n";
    }
    if (step == 1) return "";
    return "Thinned for display: 1 in " + std::to_string(step) + " of " +
           std::to_string(s.edgeCount()) + " constraint edges drawn.";
}

constexpr const char* kContourColour = "#3d2b1f";

/// The label of an index contour at the middle vertex of its drawn points, turned along the
/// line and kept upright, on a white halo.
void labelContour(std::string& labels, const std::vector<double>& px, double level) {
    const std::size_t mid = px.size() / 4;  // a vertex near the middle (px holds x, y pairs)
    const std::size_t a = mid > 0 ? mid - 1 : 0, b = std::min(mid + 1, px.size() / 2 - 1);
    double angle = std::atan2(px[2 * b + 1] - px[2 * a + 1], px[2 * b] - px[2 * a]) *
                   57.29577951308232;  // degrees
    if (angle > 90) angle -= 180;
    if (angle < -90) angle += 180;
    labels += "<text x=\"";
    appendPixel(labels, px[2 * mid]);
    labels += "\" y=\"";
    appendPixel(labels, px[2 * mid + 1]);
    labels += "\" transform=\"rotate(";
    appendPixel(labels, angle);
    labels += ' ';
    appendPixel(labels, px[2 * mid]);
    labels += ' ';
    appendPixel(labels, px[2 * mid + 1]);
    labels += ")\">" + formatNumber(level, 4) + "</text>\n";
}

/// Contour lines over the fill: thin ones, and index contours thicker with their heights as
/// labels where they are long enough to carry one. Points within half a pixel of the last one
/// drawn are skipped, which bounds the picture for any number of lines.
void drawContours(std::string& body, const ContourSet& c, const Frame& frame) {
    std::string paths[2], labels;
    std::vector<double> px;
    for (std::size_t l = 0; l < c.lines.lineCount(); ++l) {
        px.clear();
        double length = 0.0;
        for (std::size_t i = c.lines.offsets[l]; i < c.lines.offsets[l + 1]; ++i) {
            const double x = frame.x(c.lines.xy[2 * i]), y = frame.y(c.lines.xy[2 * i + 1]);
            const bool last = i + 1 == c.lines.offsets[l + 1];
            const double step = px.empty() ? 1.0 : std::hypot(x - px[px.size() - 2], y - px.back());
            if (step < 0.5 && !last) continue;
            length += px.empty() ? 0.0 : step;
            px.push_back(x);
            px.push_back(y);
        }
        if (px.size() < 4) continue;
        std::string& d = paths[c.index[l] ? 1 : 0];
        for (std::size_t i = 0; i < px.size(); i += 2) {
            d += i == 0 ? 'M' : 'L';
            appendPixel(d, px[i]);
            d += ' ';
            appendPixel(d, px[i + 1]);
        }
        if (c.lines.closed[l]) d += 'Z';
        if (c.index[l] && length > 80.0) labelContour(labels, px, c.lines.level[l]);
    }
    for (int index = 0; index < 2; ++index) {
        if (paths[index].empty()) continue;
        body += std::string("<path fill=\"none\" stroke=\"") + kContourColour +
                "\" stroke-linejoin=\"round\" stroke-opacity=\"0.85\" stroke-width=\"" +
                (index ? "1.1" : "0.45") + "\" d=\"" + paths[index] + "\"/>\n";
    }
    body += std::string(
                "<g class=\"contour-labels\" font-size=\"10\" text-anchor=\"middle\" "
                "dominant-baseline=\"central\" fill=\"") +
            kContourColour +
            "\" stroke=\"#ffffff\" stroke-width=\"2.5\" stroke-opacity=\"0.8\" "
            "paint-order=\"stroke\">\n" +
            labels + "</g>\n";
}

/// The legend's entry for the contours: their style, interval and index interval.
std::string contourKey(const ContourSet& contours, double x, double y) {
    char text[512];
    std::snprintf(text,
                  sizeof text,
                  "<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"%s\" "
                  "stroke-width=\"1.1\"/><text x=\"%.1f\" y=\"%.1f\">contours %s</text>\n"
                  "<text x=\"%.1f\" y=\"%.1f\">(index %s)</text>\n",
                  x,
                  y - 4.0,
                  x + 18.0,
                  y - 4.0,
                  kContourColour,
                  x + 24.0,
                  y,
                  formatNumber(contours.interval, 4).c_str(),
                  x + 24.0,
                  y + 16.0,
                  formatNumber(5.0 * contours.interval, 4).c_str());
    return text;
}

/// The height ramp from bottom (low) to top (high) at (x, y), and a key of the line styles.
std::string legend(const ry::Surface& s, const Frame& frame, const ContourSet* contours, double x) {
    std::string out = "<defs><linearGradient id=\"ramp\" x1=\"0\" y1=\"1\" x2=\"0\" y2=\"0\">";
    for (std::size_t i = 0; i < kRamp.size(); ++i) {
        char stop[96];
        std::snprintf(stop,
                      sizeof stop,
                      "<stop offset=\"%.2f\" stop-color=\"%s\"/>",
                      double(i) / double(kRamp.size() - 1),
                      hex(kRamp[i]).c_str());
        out += stop;
    }
    out += "</linearGradient></defs>\n";
    const double y = frame.top, barH = 200.0;
    char text[1024];
    std::snprintf(text,
                  sizeof text,
                  "<g class=\"legend\"><text x=\"%.1f\" y=\"%.1f\">height</text>\n"
                  "<rect x=\"%.1f\" y=\"%.1f\" width=\"18\" height=\"%.1f\" "
                  "fill=\"url(#ramp)\" stroke=\"#000\" stroke-width=\"0.5\"/>\n"
                  "<text x=\"%.1f\" y=\"%.1f\">%s</text>\n<text x=\"%.1f\" y=\"%.1f\">%s</text>\n"
                  "<text x=\"%.1f\" y=\"%.1f\">%s</text></g>\n",
                  x,
                  y - 8.0,
                  x,
                  y,
                  barH,
                  x + 24.0,
                  y + 5.0,
                  formatNumber(frame.maxH, 4).c_str(),
                  x + 24.0,
                  y + barH / 2.0 + 4.0,
                  formatNumber(0.5 * (frame.minH + frame.maxH), 4).c_str(),
                  x + 24.0,
                  y + barH + 4.0,
                  formatNumber(frame.minH, 4).c_str());
    out += text;
    double keyY = y + barH + 30.0;
    if (s.edgeCount() > 0) {
        std::snprintf(
            text, sizeof text, "<text x=\"%.1f\" y=\"%.1f\">constraint lines</text>\n", x, keyY);
        out += text;
    }
    for (const RoleStyle& style : kRoleStyles) {
        if (std::find(s.edgeRole.begin(), s.edgeRole.end(), style.role) == s.edgeRole.end())
            continue;
        keyY += 20.0;
        std::snprintf(text,
                      sizeof text,
                      "<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" %s/>"
                      "<text x=\"%.1f\" y=\"%.1f\">%s</text>\n",
                      x,
                      keyY - 4.0,
                      x + 18.0,
                      keyY - 4.0,
                      style.stroke,
                      x + 24.0,
                      keyY,
                      style.label);
        out += text;
    }
    if (contours && contours->lines.lineCount() > 0) out += contourKey(*contours, x, keyY + 30.0);
    return out;
}

}  // namespace

void writeSvg(const MeshOutput& mesh, const SvgOptions& options, OutputFile& out) {
    const ry::Surface& s = mesh.surface;
    const Frame frame = frameOf(s, options.size);
    const std::size_t kept = s.triangleCount();
    const std::size_t removed = s.removedTriangles.size() / 3;
    const bool aggregate = kept > options.triangleLimit;
    const bool drawRemoved = !aggregate && kept + removed <= options.triangleLimit;
    std::vector<std::string> notes;
    // The picture's body is built first; the notes (what was thinned) go below it at the end.
    std::string body;
    body.reserve(std::min<std::size_t>(kept, options.triangleLimit) * 64 + 4096);
    if (aggregate) {
        notes.push_back(drawGrid(body, s, frame, options.triangleLimit));
    } else {
        const std::size_t drawn = kept + (drawRemoved ? removed : 0);
        drawTriangles(body,
                      s,
                      frame,
                      drawRemoved,
                      drawn > 20000  ? 0.08
                      : drawn > 2000 ? 0.2
                                     : 0.4,
                      mesh.contours != nullptr);
    }
    if (removed > 0 && !drawRemoved) {
        notes.push_back(std::to_string(removed) +
                        " removed triangles (outside or in holes) not drawn");
    }
    if (mesh.contours) drawContours(body, *mesh.contours, frame);
    const std::string edgeNote = drawEdges(body, s, frame, options.edgeLimit);
    if (!edgeNote.empty()) notes.push_back(edgeNote);

    const double legendX = frame.left + frame.width + 30.0;
    const double totalW = std::ceil(legendX + 110.0);
    const double notesTop = frame.top + std::max(frame.height, 320.0) + 25.0;
    const double totalH = std::ceil(notesTop + 18.0 * double(notes.size()) + 10.0);
    char head[512];
    std::snprintf(head,
                  sizeof head,
                  "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                  "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.0f\" height=\"%.0f\" "
                  "viewBox=\"0 0 %.0f %.0f\" font-family=\"sans-serif\" font-size=\"13\">\n"
                  "<rect width=\"100%%\" height=\"100%%\" fill=\"#ffffff\"/>\n",
                  totalW,
                  totalH,
                  totalW,
                  totalH);
    out.write(head);
    out.write("<text x=\"20\" y=\"28\" font-size=\"16\">" + escapeXml(options.title) + "</text>\n");
    out.write(body);
    out.write(legend(s, frame, mesh.contours, legendX));
    for (std::size_t i = 0; i < notes.size(); ++i) {
        char note[64];
        std::snprintf(note,
                      sizeof note,
                      "<text class=\"note\" x=\"20\" y=\"%.1f\">",
                      notesTop + 18.0 * double(i));
        out.write(note);
        out.write(escapeXml(notes[i]) + "</text>\n");
    }
    out.write("</svg>\n");
}

}  // namespace rytri
