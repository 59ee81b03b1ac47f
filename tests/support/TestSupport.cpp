#include "support/TestSupport.h"

#include <cmath>
#include <cstdio>
#include <cstring>

#include "mesh/RyTriangulationImpl.h"

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

namespace {

Points scaled(Points points, double factor) {
    for (PkGePoint3d& p : points) p.x *= factor, p.y *= factor;
    return points;
}

}  // namespace

const std::vector<Generator>& generators() {
    // Cocircular inputs (grid, circle, lattice circle) need the band or exact in-circle tests;
    // tiny and huge sit near the ends of the exact range [2^-200, 2^200], off a power of two.
    static const std::vector<Generator> list = {
        {"uniform", [](int n, std::uint64_t s) { return uniformPoints(n, s); }, 1e-9},
        {"clustered", [](int n, std::uint64_t s) { return gaussianClusters(n, 8, s); }, 1e-9},
        {"grid",
         [](int n, std::uint64_t) {
             const int side = std::max(2, int(std::sqrt(double(n))));
             return integerGrid(side, side);
         },
         1e-9},
        {"circle",
         [](int n, std::uint64_t s) {
             Rng rng(s);
             Points p;
             for (int i = 0; i < n; ++i) {
                 const double a = rng.uniform(0.0, 6.283185307179586);
                 p.emplace_back(1000 * std::cos(a), 1000 * std::sin(a), 0.0);
             }
             return p;
         },
         0.0},
        {"latticeCircle",
         [](int, std::uint64_t) {
             // x^2 + y^2 = 32045^2 has 324 integer solutions (four primes 4k + 1 in 32045).
             Points p;
             for (long long x = -32045; x <= 32045; ++x) {
                 const long long rest = 32045LL * 32045 - x * x;
                 const long long y = std::llround(std::sqrt(double(rest)));
                 if (y * y != rest) continue;
                 p.emplace_back(double(x), double(y), 0.0);
                 if (y != 0) p.emplace_back(double(x), double(-y), 0.0);
             }
             return p;
         },
         1e-9},
        {"line",
         [](int n, std::uint64_t s) {
             Points p;
             for (int i = 0; i < n; ++i) p.emplace_back(2 * i - n, i - n / 2.0 + 3, 0.0);
             Points off = uniformPoints(5, s, -n, n);
             p.insert(p.end(), off.begin(), off.end());
             return p;
         },
         1e-9},
        {"tiny", [](int n, std::uint64_t s) { return scaled(uniformPoints(n, s), 3e-55); }, 0.0},
        {"huge", [](int n, std::uint64_t s) { return scaled(uniformPoints(n, s), 3e54); }, 0.0},
    };
    return list;
}

Outcome triangulate(const Points& points,
                    const Edges* edges,
                    bool sorted,
                    bool split,
                    double band,
                    int maxIterations) {
    Outcome run;
    run.tri = std::make_unique<RyTriangulation>(sorted, split);
    run.tri->setCDTTolerence(band);
    run.mesh().maxIterations = maxIterations;
    std::srand(1);
    run.status = edges ? run.tri->delaunayTriangulationWithConstraints(points, *edges)
                       : run.tri->delaunayTriangulation(points);
    return run;
}

namespace {

bool sameTriangles(const std::vector<PkMeshTriangle>& a, const std::vector<PkMeshTriangle>& b) {
    return a.size() == b.size() &&
           (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof a[0]) == 0);
}

}  // namespace

std::string differences(const RyTriangulationImpl& a, const RyTriangulationImpl& b) {
    std::string d;
    if (a.options != b.options || a.maxIterations != b.maxIterations) d += "options ";
    if (std::memcmp(&a.cdtTolerance, &b.cdtTolerance, sizeof(double)) != 0) d += "tolerance ";
    if (!sameTriangles(a.triangles, b.triangles)) d += "triangles ";
    if (!sameTriangles(a.meshTriangles, b.meshTriangles)) d += "meshTriangles ";
    if (a.vertices.size() != b.vertices.size() ||
        (!a.vertices.empty() &&
         std::memcmp(
             a.vertices.data(), b.vertices.data(), a.vertices.size() * sizeof a.vertices[0]))) {
        d += "vertices ";
    }
    if (a.freeTriangles != b.freeTriangles) d += "freeTriangles ";
    if (a.constraintEdges != b.constraintEdges || a.constraintRepeats != b.constraintRepeats ||
        a.constraintOrigins != b.constraintOrigins) {
        d += "constraint records";
    }
    return d;
}

std::string describe(const Points& points, const Edges& edges) {
    if (points.size() > 64) return std::to_string(points.size()) + " points";
    std::string s = "points {";
    char text[80];
    for (const PkGePoint3d& p : points) {
        std::snprintf(text, sizeof text, "{%.17g, %.17g}, ", p.x, p.y);
        s += text;
    }
    s += "} edges {";
    for (const PkMeshEdge& e : edges) {
        s += "{" + std::to_string(e.EdgeIndex1()) + ", " + std::to_string(e.EdgeIndex2()) + "}, ";
    }
    return s + "}";
}

}  // namespace rytest
