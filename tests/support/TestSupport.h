// Shared by the tests (and the benchmarks): deterministic point generators, a runner that
// triangulates and exposes the record for the validator, and an allocation budget that makes
// the global operator new of a test executable throw std::bad_alloc on demand.
#pragma once

#include <cstdint>
#include <cstdlib>
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

/// n points uniform in [lo, hi)^2; z carries the index.
Points uniformPoints(int n, std::uint64_t seed, double lo = 0.0, double hi = 1000.0);
/// n points in Gaussian blobs of deviation `sigma` centred uniformly in [0, extent)^2.
Points gaussianClusters(
    int n, int clusters, std::uint64_t seed, double extent = 1000.0, double sigma = 5.0);
/// nx * ny points (i, j) * spacing, numbered j * nx + i: cocircular and collinear everywhere.
Points integerGrid(int nx, int ny, double spacing = 1.0);
/// Points from "x y x y ...", and edges from "a b a b ...".
Points parse(const char* xy);
Edges edges(const char* pairs);

/// A named input family for parameterised suites, with the band that keeps it exact.
struct Generator {
    const char* name;
    Points (*make)(int n, std::uint64_t seed);
    double band;
};
const std::vector<Generator>& generators();

/// The record behind a handle, for the validator.
inline RyTriangulationImpl& record(RyTriangulation& t) {
    return *RyTriangulationAccess::impl(t);
}

/// One triangulation run from a fixed rand() seed (the first triangle and the walks draw from
/// it), constrained when `edges` is given.
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
                    int maxIterations = 1000000);

/// Makes allocations fail (std::bad_alloc) once `budget` of them are spent, while alive.
class AllocationBudget {
public:
    explicit AllocationBudget(long budget);
    ~AllocationBudget();
};

/// Runs `call` under budgets 0, 1, 2, ... until it no longer throws, calling `after(budget)`
/// after each failure. Returns the number of failures, or -1 if it never succeeded.
template <class Call, class After>
int sweepAllocations(Call call, After after, int limit = 20000) {
    for (int budget = 0; budget < limit; ++budget) {
        try {
            AllocationBudget scope(budget);
            call();
            return budget;
        } catch (const std::bad_alloc&) {
        }
        after(budget);
    }
    return -1;
}

/// What differs between two records ("" when nothing does): options, limits, the working and
/// output triangles with links and flags, the vertex records bit for bit, free slots and the
/// constraint records.
std::string differences(const RyTriangulationImpl& a, const RyTriangulationImpl& b);

/// The input in full (up to 64 points), to reproduce a failure.
std::string describe(const Points& points, const Edges& edges = {});

}  // namespace rytest
