#include "io/MeshWriters.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

namespace rytri {

namespace {

/// (u, v, h) of the triangulation plane back to (x, y, z).
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

}  // namespace

void writeObj(const Mesh& mesh, const std::string& comment, OutputFile& out) {
    writeComment(out, comment);
    for (const PkGePoint3d& p : mesh.vertices) {
        const PkGePoint3d q = toSpace(p, mesh.plane);
        out.write("v ");
        out.writeNumber(q.x);
        out.write(" ");
        out.writeNumber(q.y);
        out.write(" ");
        out.writeNumber(q.z);
        out.write("\n");
    }
    // Seen from the positive height axis the triangles run counter-clockwise in (u, v); for the
    // x-z plane that axis is y and (x, z, y) is a left-handed relabelling, so flip the order to
    // keep the faces' normals on the height side.
    const bool flip = mesh.plane == 1;
    for (std::size_t t = 0; t < mesh.triangleCount(); ++t) {
        const int* v = &mesh.triangles[3 * t];
        out.write("f ");
        out.writeInteger(v[0] + 1);
        out.write(" ");
        out.writeInteger((flip ? v[2] : v[1]) + 1);
        out.write(" ");
        out.writeInteger((flip ? v[1] : v[2]) + 1);
        out.write("\n");
    }
    for (const PkMeshEdge& e : mesh.edges) {
        if (e.EdgeIndex1() < 0) continue;
        out.write("l ");
        out.writeInteger(e.EdgeIndex1() + 1);
        out.write(" ");
        out.writeInteger(e.EdgeIndex2() + 1);
        out.write("\n");
    }
}

void writeNode(const Mesh& mesh, const std::string& comment, OutputFile& out) {
    writeComment(out, comment);
    writeComment(out, planeNote(mesh.plane));
    out.writeInteger(static_cast<long long>(mesh.vertices.size()));
    out.write(" 2 1 0\n");
    long long index = 1;
    for (const PkGePoint3d& p : mesh.vertices) {
        out.writeInteger(index++);
        out.write(" ");
        out.writeNumber(p.x);
        out.write(" ");
        out.writeNumber(p.y);
        out.write(" ");
        out.writeNumber(p.z);
        out.write("\n");
    }
}

void writeEle(const Mesh& mesh, const std::string& comment, OutputFile& out) {
    writeComment(out, comment);
    out.writeInteger(static_cast<long long>(mesh.triangleCount()));
    out.write(" 3 0\n");
    for (std::size_t t = 0; t < mesh.triangleCount(); ++t) {
        const int* v = &mesh.triangles[3 * t];
        out.writeInteger(static_cast<long long>(t) + 1);
        for (int k = 0; k < 3; ++k) {
            out.write(" ");
            out.writeInteger(v[k] + 1);
        }
        out.write("\n");
    }
}

void writePoly(const Mesh& mesh, const std::string& comment, OutputFile& out) {
    writeComment(out, comment);
    out.write("# the vertices are in the .node file of the same name\n0 2 1 0\n");
    long long count = 0;
    for (const PkMeshEdge& e : mesh.edges) count += e.EdgeIndex1() >= 0 ? 1 : 0;
    out.writeInteger(count);
    out.write(" 0\n");
    long long index = 1;
    for (const PkMeshEdge& e : mesh.edges) {
        if (e.EdgeIndex1() < 0) continue;
        out.writeInteger(index++);
        out.write(" ");
        out.writeInteger(e.EdgeIndex1() + 1);
        out.write(" ");
        out.writeInteger(e.EdgeIndex2() + 1);
        out.write("\n");
    }
    out.write("0\n");
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

std::string escapeXml(const std::string& text) {
    std::string out;
    for (char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += c;
        }
    }
    return out;
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

std::string formatHeight(double h) {
    char text[32];
    std::snprintf(text, sizeof text, "%.4g", h);
    return text;
}

struct Frame {
    double minU, maxV, scale, left, top;
    double x(double u) const { return left + (u - minU) * scale; }
    double y(double v) const { return top + (maxV - v) * scale; }
};

}  // namespace

void writeSvg(const Mesh& mesh, const SvgOptions& options, OutputFile& out) {
    // Extent: the vertices of the triangles and edges drawn (all vertices when there are none).
    double minU = std::numeric_limits<double>::infinity(), maxU = -minU;
    double minV = minU, maxV = -minU;
    double minH = minU, maxH = -minU;
    auto grow = [&](int i) {
        const PkGePoint3d& p = mesh.vertices[std::size_t(i)];
        minU = std::min(minU, p.x);
        maxU = std::max(maxU, p.x);
        minV = std::min(minV, p.y);
        maxV = std::max(maxV, p.y);
    };
    for (int i : mesh.triangles) {
        grow(i);
        const double h = mesh.vertices[std::size_t(i)].z;
        minH = std::min(minH, h);
        maxH = std::max(maxH, h);
    }
    for (int i : mesh.removedTriangles) grow(i);
    for (const PkMeshEdge& e : mesh.edges) {
        if (e.EdgeIndex1() < 0) continue;
        grow(e.EdgeIndex1());
        grow(e.EdgeIndex2());
    }
    if (!(minU <= maxU)) {
        for (std::size_t i = 0; i < mesh.vertices.size(); ++i) grow(int(i));
    }
    if (!(minU <= maxU)) minU = maxU = minV = maxV = 0.0;
    if (!(minH <= maxH)) minH = maxH = 0.0;
    const double width = std::max(maxU - minU, 1e-300);
    const double height = std::max(maxV - minV, 1e-300);
    const double longer = std::max(maxU - minU, maxV - minV);
    const double scale = longer > 0.0 ? options.size / longer : 1.0;
    const double plotW = std::max(width * scale, 1.0);
    const double plotH = std::max(height * scale, 1.0);

    const std::size_t kept = mesh.triangleCount();
    const std::size_t removed = mesh.removedTriangles.size() / 3;
    const bool aggregate = kept > options.triangleLimit;
    const bool drawRemoved = !aggregate && kept + removed <= options.triangleLimit;
    std::size_t edgeCount = 0;
    for (const PkMeshEdge& e : mesh.edges) edgeCount += e.EdgeIndex1() >= 0 ? 1 : 0;
    const std::size_t edgeStep =
        edgeCount > options.edgeLimit ? (edgeCount + options.edgeLimit - 1) / options.edgeLimit : 1;

    std::vector<std::string> notes;
    const Frame frame{minU, maxV, scale, 20.0, 50.0};
    const double legendX = frame.left + plotW + 30.0;
    const double totalW = legendX + 110.0;
    const double notesTop = frame.top + std::max(plotH, 220.0) + 25.0;

    std::string s;
    s.reserve(1 << 16);
    // The picture's body is built first; the notes (what was thinned) go below it at the end.
    std::string body;
    body.reserve(std::min<std::size_t>(kept, options.triangleLimit) * 64 + 4096);

    auto appendTriangle = [&](std::string& to, const int* v) {
        to += "<path d=\"M";
        for (int k = 0; k < 3; ++k) {
            const PkGePoint3d& p = mesh.vertices[std::size_t(v[k])];
            if (k > 0) to += 'L';
            appendPixel(to, frame.x(p.x));
            to += ' ';
            appendPixel(to, frame.y(p.y));
        }
        to += "Z\"";
    };
    const double heightSpan = maxH - minH;
    auto heightT = [&](double h) { return heightSpan > 0.0 ? (h - minH) / heightSpan : 0.5; };

    const std::size_t drawnTriangles = kept + (drawRemoved ? removed : 0);
    const double strokeWidth = drawnTriangles > 20000 ? 0.08 : drawnTriangles > 2000 ? 0.2 : 0.4;
    if (drawRemoved && removed > 0) {
        body += "<g fill=\"none\" stroke=\"#9a9a9a\" stroke-width=\"";
        appendPixel(body, strokeWidth);
        body += "\">\n";
        for (std::size_t t = 0; t < removed; ++t) {
            appendTriangle(body, &mesh.removedTriangles[3 * t]);
            body += "/>\n";
        }
        body += "</g>\n";
    } else if (removed > 0) {
        notes.push_back(std::to_string(removed) +
                        " removed triangles (outside or in holes) not drawn");
    }

    if (!aggregate) {
        body +=
            "<g stroke=\"#303030\" stroke-opacity=\"0.7\" stroke-linejoin=\"round\" "
            "stroke-width=\"";
        appendPixel(body, strokeWidth);
        body += "\">\n";
        for (std::size_t t = 0; t < kept; ++t) {
            const int* v = &mesh.triangles[3 * t];
            const double h =
                (mesh.vertices[std::size_t(v[0])].z + mesh.vertices[std::size_t(v[1])].z +
                 mesh.vertices[std::size_t(v[2])].z) /
                3.0;
            appendTriangle(body, v);
            body += " fill=\"" + hex(rampColour(heightT(h))) + "\"/>\n";
        }
        body += "</g>\n";
    } else {
        // Too many triangles for a browser: rasterise them into cells of a few pixels and draw
        // each row's runs of equal colour as one rectangle. Each cell takes the mean height of
        // the triangles covering its centre; a triangle covering no centre counts at its
        // centroid's cell, so slivers are not lost.
        const double cell = 3.0;
        const int nx = std::max(1, int(std::ceil(plotW / cell)));
        const int ny = std::max(1, int(std::ceil(plotH / cell)));
        std::vector<double> sum(std::size_t(nx) * std::size_t(ny), 0.0);
        std::vector<int> count(sum.size(), 0);
        for (std::size_t t = 0; t < kept; ++t) {
            const int* v = &mesh.triangles[3 * t];
            double cx[3], cy[3], h = 0.0;
            for (int k = 0; k < 3; ++k) {
                const PkGePoint3d& p = mesh.vertices[std::size_t(v[k])];
                cx[k] = (frame.x(p.x) - frame.left) / cell;
                cy[k] = (frame.y(p.y) - frame.top) / cell;
                h += p.z / 3.0;
            }
            const int i0 = std::max(0, int(std::ceil(std::min({cx[0], cx[1], cx[2]}) - 0.5)));
            const int i1 = std::min(nx - 1, int(std::floor(std::max({cx[0], cx[1], cx[2]}) - 0.5)));
            const int j0 = std::max(0, int(std::ceil(std::min({cy[0], cy[1], cy[2]}) - 0.5)));
            const int j1 = std::min(ny - 1, int(std::floor(std::max({cy[0], cy[1], cy[2]}) - 0.5)));
            bool covered = false;
            for (int j = j0; j <= j1; ++j) {
                for (int i = i0; i <= i1; ++i) {
                    const double px = i + 0.5, py = j + 0.5;
                    int positive = 0, negative = 0;
                    for (int k = 0; k < 3; ++k) {
                        const int l = k == 2 ? 0 : k + 1;
                        const double side =
                            (cx[l] - cx[k]) * (py - cy[k]) - (cy[l] - cy[k]) * (px - cx[k]);
                        positive += side > 0.0;
                        negative += side < 0.0;
                    }
                    if (positive == 0 || negative == 0) {
                        const std::size_t c = std::size_t(j) * std::size_t(nx) + std::size_t(i);
                        sum[c] += h;
                        ++count[c];
                        covered = true;
                    }
                }
            }
            if (!covered) {
                const int i = std::clamp(int((cx[0] + cx[1] + cx[2]) / 3.0), 0, nx - 1);
                const int j = std::clamp(int((cy[0] + cy[1] + cy[2]) / 3.0), 0, ny - 1);
                const std::size_t c = std::size_t(j) * std::size_t(nx) + std::size_t(i);
                sum[c] += h;
                ++count[c];
            }
        }
        body += "<g shape-rendering=\"crispEdges\">\n";
        for (int j = 0; j < ny; ++j) {
            int i = 0;
            while (i < nx) {
                const std::size_t c = std::size_t(j) * std::size_t(nx) + std::size_t(i);
                if (count[c] == 0) {
                    ++i;
                    continue;
                }
                // 64 colour levels: enough for the eye, and long runs.
                const int level = int(std::lround(heightT(sum[c] / count[c]) * 63.0));
                int end = i + 1;
                while (end < nx) {
                    const std::size_t d = std::size_t(j) * std::size_t(nx) + std::size_t(end);
                    if (count[d] == 0 ||
                        int(std::lround(heightT(sum[d] / count[d]) * 63.0)) != level) {
                        break;
                    }
                    ++end;
                }
                body += "<rect x=\"";
                appendPixel(body, frame.left + i * cell);
                body += "\" y=\"";
                appendPixel(body, frame.top + j * cell);
                body += "\" width=\"";
                appendPixel(body, (end - i) * cell);
                body += "\" height=\"";
                appendPixel(body, cell);
                body += "\" fill=\"" + hex(rampColour(level / 63.0)) + "\"/>\n";
                i = end;
            }
        }
        body += "</g>\n";
        notes.push_back("Thinned for display: " + std::to_string(kept) +
                        " triangles are more than " + std::to_string(options.triangleLimit) +
                        ", so the fill is drawn as a " + std::to_string(nx) + " x " +
                        std::to_string(ny) +
                        " grid of mean heights and the triangle edges are not drawn.");
    }

    if (edgeCount > 0) {
        body +=
            "<path fill=\"none\" stroke=\"#000\" stroke-width=\"1.6\" stroke-linecap=\"round\" "
            "d=\"";
        std::size_t index = 0;
        for (const PkMeshEdge& e : mesh.edges) {
            if (e.EdgeIndex1() < 0) continue;
            if (index++ % edgeStep != 0) continue;
            const PkGePoint3d& a = mesh.vertices[std::size_t(e.EdgeIndex1())];
            const PkGePoint3d& b = mesh.vertices[std::size_t(e.EdgeIndex2())];
            body += 'M';
            appendPixel(body, frame.x(a.x));
            body += ' ';
            appendPixel(body, frame.y(a.y));
            body += 'L';
            appendPixel(body, frame.x(b.x));
            body += ' ';
            appendPixel(body, frame.y(b.y));
        }
        body += "\"/>\n";
        if (edgeStep > 1) {
            notes.push_back("Thinned for display: 1 in " + std::to_string(edgeStep) + " of " +
                            std::to_string(edgeCount) + " constraint edges drawn.");
        }
    }

    const double totalH = notesTop + 18.0 * double(notes.size()) + 10.0;
    char head[512];
    std::snprintf(head,
                  sizeof head,
                  "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.0f\" height=\"%.0f\" "
                  "viewBox=\"0 0 %.0f %.0f\" font-family=\"sans-serif\" font-size=\"13\">\n",
                  std::ceil(totalW),
                  std::ceil(totalH),
                  std::ceil(totalW),
                  std::ceil(totalH));
    s += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    s += head;
    s += "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";
    s += "<text x=\"20\" y=\"28\" font-size=\"16\">" + escapeXml(options.title) + "</text>\n";
    out.write(s);
    out.write(body);

    // Legend: the height ramp from bottom (low) to top (high).
    s.clear();
    const double barX = legendX, barY = frame.top, barH = 200.0;
    s += "<defs><linearGradient id=\"ramp\" x1=\"0\" y1=\"1\" x2=\"0\" y2=\"0\">";
    for (std::size_t i = 0; i < kRamp.size(); ++i) {
        char stop[96];
        std::snprintf(stop,
                      sizeof stop,
                      "<stop offset=\"%.2f\" stop-color=\"%s\"/>",
                      double(i) / double(kRamp.size() - 1),
                      hex(kRamp[i]).c_str());
        s += stop;
    }
    s += "</linearGradient></defs>\n";
    char legend[1024];
    std::snprintf(legend,
                  sizeof legend,
                  "<g class=\"legend\"><text x=\"%.1f\" y=\"%.1f\">height</text>\n"
                  "<rect x=\"%.1f\" y=\"%.1f\" width=\"18\" height=\"%.1f\" fill=\"url(#ramp)\" "
                  "stroke=\"#000\" stroke-width=\"0.5\"/>\n"
                  "<text x=\"%.1f\" y=\"%.1f\">%s</text>\n"
                  "<text x=\"%.1f\" y=\"%.1f\">%s</text>\n"
                  "<text x=\"%.1f\" y=\"%.1f\">%s</text></g>\n",
                  barX,
                  barY - 8.0,
                  barX,
                  barY,
                  barH,
                  barX + 24.0,
                  barY + 5.0,
                  formatHeight(maxH).c_str(),
                  barX + 24.0,
                  barY + barH / 2.0 + 4.0,
                  formatHeight(0.5 * (minH + maxH)).c_str(),
                  barX + 24.0,
                  barY + barH + 4.0,
                  formatHeight(minH).c_str());
    s += legend;
    char key[512];
    std::snprintf(key,
                  sizeof key,
                  "<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"#000\" "
                  "stroke-width=\"1.6\"/><text x=\"%.1f\" y=\"%.1f\">constraint</text>\n",
                  barX,
                  barY + barH + 30.0,
                  barX + 18.0,
                  barY + barH + 30.0,
                  barX + 24.0,
                  barY + barH + 34.0);
    if (edgeCount > 0) s += key;
    for (std::size_t i = 0; i < notes.size(); ++i) {
        char note[64];
        std::snprintf(note,
                      sizeof note,
                      "<text class=\"note\" x=\"20\" y=\"%.1f\">",
                      notesTop + 18.0 * double(i));
        s += note;
        s += escapeXml(notes[i]) + "</text>\n";
    }
    s += "</svg>\n";
    out.write(s);
}

}  // namespace rytri
