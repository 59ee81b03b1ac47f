// Delaunay triangulation throughput and memory, both insertion orders.
//
// Counters: time_per_point (CPU time of delaunayTriangulation per input point; the machine may
// be shared, so CPU time is steadier than wall time) and
// peak_bytes_per_point (growth of the process's peak resident size during the call, per point;
// the peak is reset before each call). Targets we compare against, not asserted:
//   uniform 1e6, sorted order:  <= 350 ms and <= 120 bytes/point of peak growth;
//   shuffled order:              <= 2x the sorted time;
//   1000 x 1000 integer grid:    <= 3x the uniform time.
// Run in Release:  delaunay_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>

#include "HostPath.h"
#include "PeakMemory.h"
#include "RyTriangulation.h"
#include "api/RyTriangulationAccess.h"
#include "order/InsertionOrder.h"
#include "state/RyTriangulationImpl.h"
#include "support/MeshValidator.h"
#include "support/TestSupport.h"

namespace {

using rytest::Points;

enum Input { kUniform, kClusters, kGrid };

/// Inputs are generated once per size and kept: generation is not what we measure.
const Points& input(Input kind, int n) {
    static std::map<std::pair<int, int>, Points> cache;
    Points& points = cache[{int(kind), n}];
    if (points.empty()) {
        switch (kind) {
            case kUniform:
                points = rytest::uniformPoints(n, 42);
                break;
            case kClusters:
                points = rytest::gaussianClusters(n, 32, 42, 1000.0, 10.0);
                break;
            case kGrid:
                points = rytest::integerGrid(1000, n / 1000);
                break;
        }
    }
    return points;
}

void runTriangulation(benchmark::State& state, Input kind, bool sorted) {
    const int n = int(state.range(0));
    const Points& points = input(kind, n);
    long long peakGrowth = -1;
    bool validated = false;
    for (auto _ : state) {
        state.PauseTiming();
        std::srand(1);
        auto tri = std::make_unique<RyTriangulation>(sorted, true);
        rytest::releaseFreedMemory();
        rytest::resetPeakMemory();
        const long long before = rytest::currentMemoryBytes();
        state.ResumeTiming();

        const PkTriangulationStatus status = tri->delaunayTriangulation(points);

        state.PauseTiming();
        const long long peak = rytest::peakMemoryBytes();
        // The allocator returns what it frees (see main), so every call starts from fresh pages;
        // keep the largest growth seen.
        if (before >= 0 && peak >= 0) peakGrowth = std::max(peakGrowth, peak - before);
        if (status != StatusOk) {
            state.SkipWithError("triangulation failed");
        } else if (!validated && n <= 100000) {
            // One check per benchmark that the timed code produced a valid mesh.
            const std::string violations = rytest::validate(*RyTriangulationAccess::impl(*tri));
            if (!violations.empty()) state.SkipWithError(violations.c_str());
            validated = true;
        }
        tri.reset();
        state.ResumeTiming();
    }
    // Seconds per point (printed with an SI prefix: "650n" is 650 ns).
    state.counters["time_per_point"] = benchmark::Counter(
        double(n), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    state.counters["peak_bytes_per_point"] = double(peakGrowth) / double(n);
    state.SetItemsProcessed(state.iterations() * n);
}

void BM_UniformSorted(benchmark::State& s) {
    runTriangulation(s, kUniform, true);
}
void BM_UniformShuffled(benchmark::State& s) {
    runTriangulation(s, kUniform, false);
}
void BM_ClustersSorted(benchmark::State& s) {
    runTriangulation(s, kClusters, true);
}
void BM_ClustersShuffled(benchmark::State& s) {
    runTriangulation(s, kClusters, false);
}
void BM_GridSorted(benchmark::State& s) {
    runTriangulation(s, kGrid, true);
}
void BM_GridShuffled(benchmark::State& s) {
    runTriangulation(s, kGrid, false);
}

/// The sorted mode's insertion order alone (shuffle and multiscale Hilbert sort), its share of
/// the sorted time.
void BM_InsertionOrder(benchmark::State& state) {
    const Points& points = input(kUniform, int(state.range(0)));
    std::vector<PkMeshPoint3d> vertices(points.begin(), points.end());
    std::vector<int> order(points.size());
    for (auto _ : state) {
        for (std::size_t i = 0; i < order.size(); ++i) order[i] = int(i);
        shuffleIndices(order);
        spatialSort(order, vertices);
        benchmark::DoNotOptimize(order.data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

/// What a host waits for, beside the call alone, in one run: the default object's
/// delaunayTriangulation, then deleteGhostTriangle, then one pass over the triangles read through
/// the zero-copy accessor, and (timed apart) the same pass over a copy from getMeshTriangles.
/// Counters per repetition: each step in ms, and the two whole paths over the call alone
/// (path_accessor, path_getter; targets 1.15 and 1.35 at 1e6), and the call's peak growth per
/// point beyond the input (target at 1e7: at most 130 bytes).
void BM_UniformEndToEnd(benchmark::State& state) {
    const int n = int(state.range(0));
    const Points& points = input(kUniform, n);
    rytest::HostPath path;
    for (auto _ : state) {
        std::srand(1);
        auto tri = std::make_unique<RyTriangulation>();
        path.run(
            state,
            *tri,
            [&](RyTriangulation& t) { return t.delaunayTriangulation(points); },
            [](RyTriangulation& t) { t.deleteGhostTriangle(); });
        tri.reset();
    }
    path.report(state, double(n));
}

BENCHMARK(BM_InsertionOrder)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_UniformSorted)->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_UniformShuffled)->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ClustersSorted)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ClustersShuffled)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GridSorted)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GridShuffled)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_UniformEndToEnd)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseManualTime();
// 1e7 points: run on its own (--benchmark_filter=EndToEnd/10000000); about 3 GB.
BENCHMARK(BM_UniformEndToEnd)
    ->Arg(10000000)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime()
    ->Iterations(1);

}  // namespace

int main(int argc, char** argv) {
    rytest::usePlainAllocatorThresholds();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
