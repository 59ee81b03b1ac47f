// Shared by the tests and benchmarks: inputs, a runner, record comparison, allocation budget.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "RyTriangulation.h"
#include "api/RyTriangulationAccess.h"

namespace rytest {

using Points = std::vector<PkGePoint3d>;
using Edges = std::vector<PkMeshEdge>;

/// SplitMix64: the same stream on every platform.
struct Rng {
    explicit Rng(std::uint64_t seed) : state(seed) {}
    std::uint64_t state;
    std::uint64_t next();
    double uniform() { return double(next() >> 11) * 0x1p-53; }
    double uniform(double lo, double hi) { return lo + (hi - lo) * uniform(); }
    int below(int n) { return int(next() % std::uint64_t(n)); }
};

/// n points uniform in [lo, hi)^2 (z the index); in Gaussian blobs; (i, j) * spacing numbered
/// j * nx + i (collinear and cocircular everywhere); from "x y x y ..."; edges from "a b ...".
Points uniformPoints(int n, std::uint64_t seed, double lo = 0.0, double hi = 1000.0);
Points gaussianClusters(
    int n, int clusters, std::uint64_t seed, double extent = 1000.0, double sigma = 5.0);
Points integerGrid(int nx, int ny, double spacing = 1.0);
Points parse(const char* xy);
Edges edges(const char* pairs);

/// Named input families for parameterised suites, with the band that keeps each exact.
struct Generator {
    const char* name;
    Points (*make)(int n, std::uint64_t seed);
    double band;
};
const std::vector<Generator>& generators();

inline RyTriangulationImpl& record(RyTriangulation& t) {
    return *RyTriangulationAccess::impl(t);
}

/// A triangulation (constrained when `edges` is given) from a fixed rand() seed.
struct Outcome {
    std::unique_ptr<RyTriangulation> tri;
    PkTriangulationStatus status = StatusOk;
    RyTriangulationImpl& mesh() const { return record(*tri); }
};
Outcome triangulate(const Points& points,
                    const Edges* edges,
                    bool sorted = true,
                    bool split = true,
                    double band = 1e-9,
                    int limit = 1000000);

/// What differs between two records, bit for bit ("" when nothing does).
std::string differences(const RyTriangulationImpl& a, const RyTriangulationImpl& b);

/// The input (up to 64 points), to reproduce a failure.
std::string describe(const Points& points, const Edges& edges = {});

/// Allocations left before the test executables' operator new throws std::bad_alloc; -1: none.
extern std::atomic<long> allocationBudget;

}  // namespace rytest
