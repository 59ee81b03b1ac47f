// Input clean-up on large arrays: 1e6 points of which 10% are exact or near copies of others,
// with 2e5 constraint edges. Copying the input back before each call is not timed.
//
//   cleanup_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "cleanup/DuplicateVertices.h"

namespace {

struct Input {
    std::vector<PkGePoint3d> points;
    std::vector<PkMeshEdge> edges;
};

/// `count` points uniform in a 1000 x 1000 square, a tenth of them replaced by copies of others:
/// half bit-identical, half moved by less than the default tolerance (1e-10).
Input duplicatedCloud(int count, int edgeCount) {
    std::mt19937_64 rng(2024);
    std::uniform_real_distribution<double> coordinate(0.0, 1000.0);
    std::uniform_real_distribution<double> nudge(-3e-11, 3e-11);
    Input in;
    const int unique = count - count / 10;
    for (int i = 0; i < unique; ++i) {
        in.points.emplace_back(coordinate(rng), coordinate(rng), coordinate(rng));
    }
    std::uniform_int_distribution<int> pick(0, unique - 1);
    for (int i = unique; i < count; ++i) {
        PkGePoint3d p = in.points[std::size_t(pick(rng))];
        if (i % 2) {
            p.x += nudge(rng);
            p.y += nudge(rng);
        }
        in.points.push_back(p);
    }
    std::shuffle(in.points.begin(), in.points.end(), rng);
    std::uniform_int_distribution<int> index(0, count - 1);
    for (int i = 0; i < edgeCount; ++i) in.edges.emplace_back(index(rng), index(rng));
    return in;
}

/// A 1000 x 1000 grid on a vertical wall, seen in the XZ plane: long runs of equal x, every
/// hundredth point repeated.
Input wallGrid(int edgeCount) {
    std::mt19937_64 rng(7);
    Input in;
    for (int i = 0; i < 1000; ++i) {
        for (int k = 0; k < 1000; ++k) in.points.emplace_back(0.5 * i, 3.0, 0.25 * k);
    }
    for (int i = 0; i < 10000; ++i) in.points.push_back(in.points[std::size_t(rng() % 1000000)]);
    std::shuffle(in.points.begin(), in.points.end(), rng);
    std::uniform_int_distribution<int> index(0, int(in.points.size()) - 1);
    for (int i = 0; i < edgeCount; ++i) in.edges.emplace_back(index(rng), index(rng));
    return in;
}

void runWithEdges(benchmark::State& state, const Input& input, PkConvert2dVertex plane) {
    std::vector<PkGePoint3d> points;
    std::vector<PkMeshEdge> edges;
    for (auto _ : state) {
        state.PauseTiming();
        points = input.points;
        edges = input.edges;
        state.ResumeTiming();
        deleteDuplicateVertices(points, edges, plane);
        benchmark::DoNotOptimize(points.data());
        benchmark::DoNotOptimize(edges.data());
    }
    state.counters["kept"] = double(points.size());
    state.SetItemsProcessed(state.iterations() * std::int64_t(input.points.size()));
}

void BM_CleanupWithEdges(benchmark::State& state) {
    static const Input input = duplicatedCloud(1000000, 200000);
    runWithEdges(state, input, kXYPlane);
}
BENCHMARK(BM_CleanupWithEdges)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_CleanupPointsOnly(benchmark::State& state) {
    static const Input input = duplicatedCloud(1000000, 0);
    std::vector<PkGePoint3d> points;
    for (auto _ : state) {
        state.PauseTiming();
        points = input.points;
        state.ResumeTiming();
        deleteDuplicateVertices(points, kXYPlane);
        benchmark::DoNotOptimize(points.data());
    }
    state.counters["kept"] = double(points.size());
}
BENCHMARK(BM_CleanupPointsOnly)->Unit(benchmark::kMillisecond)->UseRealTime();

// Equal-x runs of 1000 points: a scan of the whole x window per edge end would be quadratic.
void BM_CleanupWallGridWithEdges(benchmark::State& state) {
    static const Input input = wallGrid(200000);
    runWithEdges(state, input, kXZPlane);
}
BENCHMARK(BM_CleanupWallGridWithEdges)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
