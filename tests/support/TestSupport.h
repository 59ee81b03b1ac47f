// Shared by the tests (and the benchmarks): deterministic inputs, a runner that triangulates and
// exposes the record to the validator, record comparison, and an allocation budget that makes
// the global operator new of a test executable throw std::bad_alloc on demand.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "RyTriangulation.h"
#include "mesh/RyTriangulationAccess.h"

namespace rytest {

using Points = std::vector<PkGePoint3d>;
using Edges = std::vector<PkMeshEdge>;

/// SplitMix64: the same stream on every platform.
class Rng {
public:
    explicit Rng(std::uint64_t seed) : state(seed) {}
    std::uint64_t next();
    double uniform() { return double(next() >> 11) * 0x1p-53; }
    double uniform(double lo, double hi) { return lo + (hi - lo) * uniform(); }
    int below(int n) { return int(next() % std::uint64_t(n)); }

private:
    std::uint64_t state;
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

/// A triangulation from a fixed rand() seed (the first triangle and the walks draw from it),
/// constrained when `edges` is given.
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

/// What differs between two records ("" when nothing does): options, limits, working and output
/// triangles, vertex records bit for bit, free slots, constraint records.
std::string differences(const RyTriangulationImpl& a, const RyTriangulationImpl& b);

/// The input (up to 64 points), to reproduce a failure.
std::string describe(const Points& points, const Edges& edges = {});

/// Makes allocations throw std::bad_alloc once `budget` of them are spent, while alive.
struct AllocationBudget {
    explicit AllocationBudget(long budget);
    ~AllocationBudget();
};

/// Runs `call` under budgets 0, 1, 2, ... until it does not throw, calling `after(budget)` after
/// each failure; returns the number of failures.
template <class Call, class After>
int sweepAllocations(Call call, After after) {
    for (int budget = 0;; ++budget) {
        try {
            AllocationBudget scope(budget);
            call();
            return budget;
        } catch (const std::bad_alloc&) {
        }
        after(budget);
    }
}

}  // namespace rytest
