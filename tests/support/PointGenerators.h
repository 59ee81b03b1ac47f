// Named point-set generators for tests and benchmarks. Every generator is deterministic in its
// arguments (own SplitMix64 stream, no library distributions), so a seed reproduces the input on
// any platform.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "RyGeometry.h"

namespace rytest {

using Points = std::vector<PkGePoint3d>;

/// SplitMix64 stream with the helpers the generators need.
class Rng {
public:
    explicit Rng(std::uint64_t seed) : state(seed) {}
    std::uint64_t next();
    /// Uniform in [0, 1) with 53 random bits.
    double uniform();
    double uniform(double lo, double hi) { return lo + (hi - lo) * uniform(); }
    /// Uniform integer in [0, n).
    std::uint64_t below(std::uint64_t n) { return next() % n; }
    /// Standard normal (Box-Muller).
    double normal();

private:
    std::uint64_t state;
};

/// n points uniform in the square [lo, hi)^2 (z carries the point's index).
Points uniformPoints(int n, std::uint64_t seed, double lo = 0.0, double hi = 1000.0);
/// n points in `clusters` Gaussian blobs of deviation `sigma` centred uniformly in [0, extent)^2.
Points gaussianClusters(
    int n, int clusters, std::uint64_t seed, double extent = 1000.0, double sigma = 5.0);
/// nx * ny integer points (i * spacing, j * spacing): massively cocircular and collinear.
Points integerGrid(int nx, int ny, double spacing = 1.0);
/// n points at radius `radius` around (0, 0), at uniformly random angles (cocircular up to
/// rounding: the hardest in-circle input).
Points circlePoints(int n, double radius, std::uint64_t seed);
/// All integer points on x^2 + y^2 = 32045^2 (exactly cocircular; 324 of them).
Points exactCirclePoints();
/// n points on the line y = x / 2 + 3 (x integer, exact) and `off` points off it.
Points lineWithFewOff(int n, int off, std::uint64_t seed);
/// A growing spiral: point i lies farther from the origin than every earlier point, so in this
/// order each one arrives outside the hull of its predecessors, on every side in turn.
Points spiralOutward(int n);
/// Every coordinate multiplied by `factor` (a power of two keeps the geometry exact).
Points scaledPoints(Points points, double factor);
/// Reorders `arrival` so that the shuffled insertion mode inserts it in the given order: the
/// fixed shuffle of n indices puts input index order[i] at position i.
Points arrangeForShuffledArrival(const Points& arrival);

/// A generator with a name for parameterised suites and benchmarks.
struct NamedGenerator {
    std::string name;
    std::function<Points(int n, std::uint64_t seed)> make;
    /// Tolerance band that keeps the mesh exact at this generator's scale.
    double band;
};

/// uniform, clustered, grid, circle, exactCircle, line, spiral, sortedByX, tiny, huge.
const std::vector<NamedGenerator>& namedGenerators();

}  // namespace rytest
