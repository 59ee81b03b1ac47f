#include "DemoSite.h"

#include <cmath>
#include <cstdint>
#include <vector>

namespace rytri {

namespace {

constexpr double kPi = 3.14159265358979323846;

/// SplitMix64: a tiny generator whose sequence is the same on every platform (the standard
/// distributions are not).
struct SplitMix64 {
    std::uint64_t state;
    std::uint64_t next() {
        std::uint64_t z = (state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    /// Uniform in [0, 1).
    double unit() { return double(next() >> 11) * 0x1.0p-53; }
};

struct Xy {
    double x, y;
};
using Ring = std::vector<Xy>;

/// Smooth terrain: a gentle slope, rolling hills, a knoll in the east and a hollow at the pond.
double terrain(double x, double y) {
    const double knoll =
        std::exp(-((x - 400.0) * (x - 400.0) + (y - 200.0) * (y - 200.0)) / 3000.0);
    const double hollow =
        std::exp(-((x - 150.0) * (x - 150.0) + (y - 175.0) * (y - 175.0)) / 1500.0);
    return 120.0 + 0.03 * x - 0.02 * y + 6.0 * std::sin(x / 60.0) * std::cos(y / 45.0) +
           4.0 * knoll - 3.0 * hollow;
}

double signedArea(const Ring& ring) {
    double twice = 0.0;
    for (std::size_t i = 0; i < ring.size(); ++i) {
        const Xy& a = ring[i];
        const Xy& b = ring[(i + 1) % ring.size()];
        twice += a.x * b.y - b.x * a.y;
    }
    return 0.5 * twice;
}

bool insideRing(const Ring& ring, double x, double y) {
    bool inside = false;
    for (std::size_t i = 0, j = ring.size() - 1; i < ring.size(); j = i++) {
        const Xy& a = ring[i];
        const Xy& b = ring[j];
        if ((a.y > y) != (b.y > y) && x < (b.x - a.x) * (y - a.y) / (b.y - a.y) + a.x) {
            inside = !inside;
        }
    }
    return inside;
}

double segmentDistance(Xy a, Xy b, double x, double y) {
    const double dx = b.x - a.x, dy = b.y - a.y;
    const double len2 = dx * dx + dy * dy;
    double t = len2 > 0.0 ? ((x - a.x) * dx + (y - a.y) * dy) / len2 : 0.0;
    t = t < 0.0 ? 0.0 : (t > 1.0 ? 1.0 : t);
    const double ex = a.x + t * dx - x, ey = a.y + t * dy - y;
    return std::sqrt(ex * ex + ey * ey);
}

double polylineDistance(const Ring& line, bool closed, double x, double y) {
    double best = INFINITY;
    const std::size_t n = line.size();
    for (std::size_t i = 0; i + (closed ? 0 : 1) < n; ++i) {
        best = std::fmin(best, segmentDistance(line[i], line[(i + 1) % n], x, y));
    }
    return best;
}

/// Survey points: uniform over the bounding box, kept inside the site and outside the holes
/// with a 1 m margin from every boundary and 0.5 m from every breakline.
void addSurveyPoints(Site& site,
                     const Ring& outer,
                     const Ring& pond,
                     const Ring& building,
                     const std::vector<Ring>& breaklines) {
    SplitMix64 random{20240611u};
    const std::size_t surveyCount = 3000;
    const std::size_t firstSurvey = site.points.size();
    while (site.points.size() - firstSurvey < surveyCount) {
        const double x = 500.0 * random.unit();
        const double y = 300.0 * random.unit();
        if (!insideRing(outer, x, y) || insideRing(pond, x, y) || insideRing(building, x, y)) {
            continue;
        }
        if (polylineDistance(outer, true, x, y) < 1.0 || polylineDistance(pond, true, x, y) < 1.0 ||
            polylineDistance(building, true, x, y) < 1.0) {
            continue;
        }
        bool nearBreakline = false;
        for (const Ring& line : breaklines)
            nearBreakline |= polylineDistance(line, false, x, y) < 0.5;
        if (nearBreakline) continue;
        site.points.emplace_back(x, y, terrain(x, y));
    }
}

}  // namespace

DemoSite makeDemoSite() {
    // Outer boundary: star-shaped around the site's centre, so the polygon is simple.
    Ring outer;
    const int outerCount = 30;
    for (int k = 0; k < outerCount; ++k) {
        const double a = 2.0 * kPi * k / outerCount;
        const double f = 1.0 + 0.07 * std::sin(3.0 * a + 0.4) + 0.04 * std::cos(5.0 * a) +
                         0.02 * std::sin(8.0 * a);
        outer.push_back({250.0 + 215.0 * f * std::cos(a), 150.0 + 128.0 * f * std::sin(a)});
    }
    // The pond: a slightly wobbly circle.
    Ring pond;
    const int pondCount = 24;
    for (int k = 0; k < pondCount; ++k) {
        const double a = 2.0 * kPi * k / pondCount;
        const double r = 30.0 * (1.0 + 0.05 * std::sin(2.0 * a));
        pond.push_back({150.0 + r * std::cos(a), 175.0 + r * std::sin(a)});
    }
    // The building: a 56 x 34 m rectangle turned by 20 degrees.
    Ring building;
    const double turn = 20.0 * kPi / 180.0, c = std::cos(turn), s = std::sin(turn);
    for (const Xy corner : {Xy{-28, -17}, Xy{28, -17}, Xy{28, 17}, Xy{-28, 17}}) {
        building.push_back(
            {345.0 + c * corner.x - s * corner.y, 105.0 + s * corner.x + c * corner.y});
    }
    // Breaklines: open polylines inside the site, clear of the holes. Open lines enclose
    // nothing, so they shape the mesh without changing what is inside.
    const std::vector<Ring> breaklines = {
        {{75, 115},
         {110, 105},
         {160, 112},
         {215, 128},
         {255, 150},
         {290, 188},
         {330, 212},
         {385, 222}},
        {{195, 242}, {235, 228}, {275, 234}, {318, 248}, {352, 255}},
        {{405, 150}, {428, 180}, {440, 208}},
    };

    DemoSite demo;
    Site& site = demo.site;
    auto addPoint = [&](Xy p) {
        site.points.emplace_back(p.x, p.y, terrain(p.x, p.y));
        return int(site.points.size()) - 1;
    };
    auto addLine = [&](const Ring& ring, ry::Role role) {
        ry::Polyline line;
        line.role = role;
        line.closed = role != ry::Role::kBreakline;
        line.first = site.lineVertices.size();
        line.count = ring.size();
        site.lines.push_back(line);
        site.lineOrigins.push_back(SourceRef());
        for (const Xy& p : ring) site.lineVertices.push_back(addPoint(p));
    };
    addLine(outer, ry::Role::kBoundary);
    addLine(pond, ry::Role::kHole);
    // The pond's edge is the water line: one level all round.
    for (std::size_t i = site.points.size() - pond.size(); i < site.points.size(); ++i) {
        site.points[i].z = terrain(150.0, 205.0);
    }
    addLine(building, ry::Role::kHole);
    for (const Ring& line : breaklines) addLine(line, ry::Role::kBreakline);

    const std::size_t firstSurvey = site.points.size();
    addSurveyPoints(site, outer, pond, building, breaklines);
    // A surveyor's repeated shots: the same position measured twice, heights a centimetre apart.
    demo.repeatedPoints = 25;
    for (std::size_t k = 0; k < demo.repeatedPoints; ++k) {
        const PkGePoint3d p = site.points[firstSurvey + k * 97];
        site.points.emplace_back(p.x, p.y, p.z + 0.01);
    }

    demo.outerArea = std::fabs(signedArea(outer));
    demo.holeArea = std::fabs(signedArea(pond)) + std::fabs(signedArea(building));
    return demo;
}

}  // namespace rytri
