#include "support/TestSupport.h"

#include <cmath>
#include <cstring>
#include <sstream>

#include "state/RyTriangulationImpl.h"

namespace rytest {

std::uint64_t Rng::next() {
    std::uint64_t z = (state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

Points uniformPoints(int n, std::uint64_t seed, double lo, double hi) {
    Rng rng(seed);
    Points points;
    for (int i = 0; i < n; ++i) {
        const double x = rng.uniform(lo, hi);
        points.emplace_back(x, rng.uniform(lo, hi), double(i));
    }
    return points;
}

Points gaussianClusters(int n, int clusters, std::uint64_t seed, double extent, double sigma) {
    Rng rng(seed);
    std::vector<double> centres;
    for (int c = 0; c < 2 * clusters; ++c) centres.push_back(rng.uniform(0.0, extent));
    Points points;
    for (int i = 0; i < n; ++i) {
        const std::size_t c = 2 * std::size_t(rng.below(clusters));
        const double r = sigma * std::sqrt(-2.0 * std::log(1.0 - rng.uniform()));
        const double a = 6.283185307179586 * rng.uniform();
        points.emplace_back(centres[c] + r * std::cos(a), centres[c + 1] + r * std::sin(a), 0.0);
    }
    return points;
}

Points integerGrid(int nx, int ny, double spacing) {
    Points points;
    for (int j = 0; j < ny; ++j) {
        for (int i = 0; i < nx; ++i) points.emplace_back(i * spacing, j * spacing, 0.5 * i);
    }
    return points;
}

Points parse(const char* xy) {
    std::istringstream in(xy);
    Points points;
    for (double x, y; in >> x >> y;) points.emplace_back(x, y, 0.0);
    return points;
}

Edges edges(const char* pairs) {
    Edges out;
    std::istringstream in(pairs);
    for (int a, b; in >> a >> b;) out.emplace_back(a, b);
    return out;
}

namespace {

Points scaled(Points points, double factor) {
    for (PkGePoint3d& p : points) p.x *= factor, p.y *= factor;
    return points;
}

Points onCircle(int n, std::uint64_t seed) {  // cocircular up to rounding
    Rng rng(seed);
    Points p;
    for (int i = 0; i < n; ++i) {
        const double a = rng.uniform(0.0, 6.283185307179586);
        p.emplace_back(1000 * std::cos(a), 1000 * std::sin(a), 0.0);
    }
    return p;
}

Points lineAndFive(int n, std::uint64_t seed) {  // n points on a line, five off it
    Points p = uniformPoints(5, seed, -n, n);
    for (int i = 0; i < n; ++i) p.emplace_back(2 * i - n, i - n / 2.0 + 3, 0.0);
    return p;
}

Points grid(int n, std::uint64_t) {
    const int side = std::max(2, int(std::sqrt(double(n))));
    return integerGrid(side, side);
}

}  // namespace

const std::vector<Generator>& generators() {
    // Cocircular inputs need the band or exact in-circle tests; tiny and huge sit near the ends
    // of the exact range [2^-200, 2^200], off a power of two.
    static const std::vector<Generator> list = {
        {"uniform", [](int n, std::uint64_t s) { return uniformPoints(n, s); }, 1e-9},
        {"clustered", [](int n, std::uint64_t s) { return gaussianClusters(n, 8, s); }, 1e-9},
        {"grid", grid, 1e-9},
        {"circle", onCircle, 0.0},
        {"line", lineAndFive, 1e-9},
        {"tiny", [](int n, std::uint64_t s) { return scaled(uniformPoints(n, s), 3e-55); }, 0.0},
        {"huge", [](int n, std::uint64_t s) { return scaled(uniformPoints(n, s), 3e54); }, 0.0},
    };
    return list;
}

Outcome triangulate(
    const Points& points, const Edges* edges, bool sorted, bool split, double band, int limit) {
    Outcome run;
    run.tri = std::make_unique<RyTriangulation>(sorted, split);
    run.tri->setCDTTolerence(band);
    run.mesh().maxIterations = limit;
    std::srand(1);
    run.status = edges ? run.tri->delaunayTriangulationWithConstraints(points, *edges)
                       : run.tri->delaunayTriangulation(points);
    return run;
}

std::string differences(const RyTriangulationImpl& a, const RyTriangulationImpl& b) {
    auto same = [](const auto& x, const auto& y) {
        return x.size() == y.size() &&
               (x.empty() || !std::memcmp(x.data(), y.data(), x.size() * sizeof x[0]));
    };
    std::string d;
    if (a.options != b.options || a.maxIterations != b.maxIterations) d += "options ";
    if (std::memcmp(&a.cdtTolerance, &b.cdtTolerance, sizeof(double)) != 0) d += "tolerance ";
    if (!same(a.mesh.triangles, b.mesh.triangles) || !same(a.meshTriangles, b.meshTriangles))
        d += "triangles ";
    if (!same(a.mesh.vertices, b.mesh.vertices) || a.mesh.freeTriangles != b.mesh.freeTriangles)
        d += "vertices ";
    if (a.constraints.edges != b.constraints.edges ||
        a.constraints.repeats != b.constraints.repeats ||
        a.constraints.origins != b.constraints.origins) {
        d += "constraint records";
    }
    return d;
}

std::string describe(const Points& points, const Edges& edges) {
    std::ostringstream s;
    s.precision(17);
    s << points.size() << " points:";
    for (std::size_t i = 0; i < points.size() && points.size() <= 64; ++i)
        s << " " << points[i].x << " " << points[i].y;
    for (const PkMeshEdge& e : edges)
        s << (&e == &edges[0] ? "; edges: " : " ") << e.EdgeIndex1() << " " << e.EdgeIndex2();
    return s.str();
}

}  // namespace rytest
