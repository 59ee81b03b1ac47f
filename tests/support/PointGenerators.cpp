#include "support/PointGenerators.h"

#include <algorithm>
#include <cmath>

#include "mesh/RyTriangulationImpl.h"

namespace rytest {

std::uint64_t Rng::next() {
    state += 0x9E3779B97F4A7C15ull;
    std::uint64_t z = state;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

double Rng::uniform() {
    return double(next() >> 11) * 0x1p-53;
}

double Rng::normal() {
    const double u = 1.0 - uniform();  // (0, 1]: the logarithm stays finite
    const double v = uniform();
    return std::sqrt(-2.0 * std::log(u)) * std::cos(6.283185307179586 * v);
}

Points uniformPoints(int n, std::uint64_t seed, double lo, double hi) {
    Rng rng(seed);
    Points points;
    points.reserve(std::size_t(n));
    for (int i = 0; i < n; ++i) {
        const double x = rng.uniform(lo, hi);
        const double y = rng.uniform(lo, hi);
        points.emplace_back(x, y, double(i));
    }
    return points;
}

Points gaussianClusters(int n, int clusters, std::uint64_t seed, double extent, double sigma) {
    Rng rng(seed);
    std::vector<double> centres;
    for (int c = 0; c < clusters; ++c) {
        centres.push_back(rng.uniform(0.0, extent));
        centres.push_back(rng.uniform(0.0, extent));
    }
    Points points;
    points.reserve(std::size_t(n));
    for (int i = 0; i < n; ++i) {
        const std::size_t c = std::size_t(rng.below(std::uint64_t(clusters)));
        const double x = centres[2 * c] + sigma * rng.normal();
        const double y = centres[2 * c + 1] + sigma * rng.normal();
        points.emplace_back(x, y, double(i));
    }
    return points;
}

Points integerGrid(int nx, int ny, double spacing) {
    Points points;
    points.reserve(std::size_t(nx) * std::size_t(ny));
    for (int i = 0; i < nx; ++i) {
        for (int j = 0; j < ny; ++j) points.emplace_back(i * spacing, j * spacing, 0.0);
    }
    return points;
}

Points circlePoints(int n, double radius, std::uint64_t seed) {
    Rng rng(seed);
    Points points;
    points.reserve(std::size_t(n));
    for (int i = 0; i < n; ++i) {
        const double a = rng.uniform(0.0, 6.283185307179586);
        points.emplace_back(radius * std::cos(a), radius * std::sin(a), 0.0);
    }
    return points;
}

Points exactCirclePoints() {
    // 32045 = 5 * 13 * 17 * 29: four primes of the form 4k + 1 give 4 * 3^4 lattice points.
    const long long r = 32045;
    Points points;
    for (long long x = -r; x <= r; ++x) {
        const long long rest = r * r - x * x;
        const long long y = (long long)std::llround(std::sqrt(double(rest)));
        if (y * y != rest) continue;
        points.emplace_back(double(x), double(y), 0.0);
        if (y != 0) points.emplace_back(double(x), double(-y), 0.0);
    }
    return points;
}

Points lineWithFewOff(int n, int off, std::uint64_t seed) {
    Rng rng(seed);
    Points points;
    for (int i = 0; i < n; ++i) {
        const double x = double(2 * i - n);
        points.emplace_back(x, x / 2 + 3, 0.0);
    }
    for (int i = 0; i < off; ++i) {
        const double x = rng.uniform(-n, n);
        const double side = (i % 2 == 0) ? 1.0 : -1.0;
        points.emplace_back(x, x / 2 + 3 + side * rng.uniform(0.5, 50.0), 0.0);
    }
    return points;
}

Points spiralOutward(int n) {
    Points points;
    points.reserve(std::size_t(n));
    for (int i = 0; i < n; ++i) {
        const double r = 1.0 + i;
        const double a = 2.399963229728653 * i;  // golden angle: every side in turn
        points.emplace_back(r * std::cos(a), r * std::sin(a), double(i));
    }
    return points;
}

Points scaledPoints(Points points, double factor) {
    for (PkGePoint3d& p : points) {
        p.x *= factor;
        p.y *= factor;
    }
    return points;
}

Points arrangeForShuffledArrival(const Points& arrival) {
    std::vector<int> order(arrival.size());
    for (std::size_t i = 0; i < order.size(); ++i) order[i] = int(i);
    shuffleIndices(order);
    Points input(arrival.size());
    for (std::size_t i = 0; i < order.size(); ++i) input[std::size_t(order[i])] = arrival[i];
    return input;
}

const std::vector<NamedGenerator>& namedGenerators() {
    static const std::vector<NamedGenerator> generators = {
        {"uniform", [](int n, std::uint64_t s) { return uniformPoints(n, s); }, 1e-9},
        {"clustered", [](int n, std::uint64_t s) { return gaussianClusters(n, 8, s); }, 1e-9},
        {"grid",
         [](int n, std::uint64_t) {
             const int side = std::max(2, int(std::sqrt(double(n))));
             return integerGrid(side, side);
         },
         1e-9},
        {"circle", [](int n, std::uint64_t s) { return circlePoints(n, 1000.0, s); }, 0.0},
        {"exactCircle", [](int, std::uint64_t) { return exactCirclePoints(); }, 1e-9},
        {"line", [](int n, std::uint64_t s) { return lineWithFewOff(n, 5, s); }, 1e-9},
        {"spiral",
         [](int n, std::uint64_t) { return arrangeForShuffledArrival(spiralOutward(n)); },
         1e-9},
        {"sortedByX",
         [](int n, std::uint64_t s) {
             Points p = uniformPoints(n, s);
             std::sort(p.begin(), p.end(), [](const PkGePoint3d& a, const PkGePoint3d& b) {
                 return a.x < b.x;
             });
             return arrangeForShuffledArrival(p);
         },
         1e-9},
        // The predicates are exact for magnitudes in [2^-200, 2^200] (about 6e-61 .. 1.6e60):
        // these two sit near either end, off a power of two so rounding differs from "uniform".
        {"tiny",
         [](int n, std::uint64_t s) { return scaledPoints(uniformPoints(n, s), 3e-55); },
         0.0},
        {"huge",
         [](int n, std::uint64_t s) { return scaledPoints(uniformPoints(n, s), 3e54); },
         0.0},
    };
    return generators;
}

}  // namespace rytest
