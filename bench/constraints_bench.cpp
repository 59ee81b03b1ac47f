// Constrained triangulation and hole removal on a boundary-heavy workload, each stage timed on
// its own: a noisy circle of 10,000 vertices as outer boundary with 200 noisy-circle holes of 50
// vertices (20,000 constraint edges), plus 1e5 or 1e6 uniform points inside; and a grid of
// 200 x 200 crossing segments with splitting on (40,000 crossing vertices).
//
// Targets on the reference machine for the 1e6 workload (not asserted anywhere):
//   total (constrained call + hole removal + reading the triangles back) <= 700 ms,
//   constraint insertion alone <= 60 ms, hole removal alone <= 100 ms.
//
// Run in Release, e.g.
//   constraints_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>
#include <vector>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include "HostPath.h"
#include "PeakMemory.h"
#include "RyTriangulation.h"
#include "api/RyTriangulationAccess.h"
#include "state/RyTriangulationImpl.h"
#include "support/TestSupport.h"

namespace {

using Points = std::vector<PkGePoint3d>;
using Edges = std::vector<PkMeshEdge>;

struct Workload {
    Points points;
    Edges edges;
};

constexpr double kTwoPi = 6.283185307179586;

/// Closed noisy circle through new points: n vertices, radius r * (1 +- noise / 2).
void addNoisyCircle(
    Workload& w, double cx, double cy, double r, int n, double noise, rytest::Rng& rng) {
    const int first = int(w.points.size());
    for (int i = 0; i < n; ++i) {
        const double a = kTwoPi * (i + 0.4 * rng.uniform()) / n;
        const double rr = r * (1.0 + noise * (rng.uniform() - 0.5));
        w.points.emplace_back(cx + rr * std::cos(a), cy + rr * std::sin(a), 0.0);
        w.edges.push_back(PkMeshEdge(first + i, first + (i + 1) % n));
    }
}

/// The outer boundary, the 200 holes and `interior` uniform points in the disc.
Workload makeHoles(int interior) {
    rytest::Rng rng(2024);
    Workload w;
    addNoisyCircle(w, 0, 0, 1000, 10000, 0.02, rng);
    // Hole centres on a jittered grid of spacing 95 inside radius 780: holes of radius about 25
    // never touch each other or the outer boundary.
    int holes = 0;
    for (int gy = -9; gy <= 9 && holes < 200; ++gy) {
        for (int gx = -9; gx <= 9 && holes < 200; ++gx) {
            const double cx = gx * 95.0 + rng.uniform(-10, 10);
            const double cy = gy * 95.0 + rng.uniform(-10, 10);
            if (std::hypot(cx, cy) > 780) continue;
            addNoisyCircle(w, cx, cy, 25, 50, 0.2, rng);
            ++holes;
        }
    }
    while (int(w.points.size()) < 20000 + interior) {
        const double x = rng.uniform(-990, 990), y = rng.uniform(-990, 990);
        if (x * x + y * y < 975.0 * 975.0) w.points.emplace_back(x, y, 0.0);
    }
    return w;
}

const Workload& holesWorkload(int interior) {
    static std::unique_ptr<Workload> small, large;
    std::unique_ptr<Workload>& slot = interior <= 100000 ? small : large;
    if (!slot) slot = std::make_unique<Workload>(makeHoles(interior));
    return *slot;
}

/// 200 horizontal segments across [0, 1000]^2, then 200 vertical ones crossing all of them.
const Workload& gridWorkload() {
    static std::unique_ptr<Workload> w;
    if (w) return *w;
    w = std::make_unique<Workload>();
    const int n = 200;
    for (int j = 0; j < n; ++j) {
        const double y = 1000.0 * (j + 1) / (n + 1);
        w->points.emplace_back(0, y, 0);
        w->points.emplace_back(1000, y, 0);
        w->edges.push_back(PkMeshEdge(2 * j, 2 * j + 1));
    }
    for (int i = 0; i < n; ++i) {
        const double x = 1000.0 * (i + 1) / (n + 1);
        w->points.emplace_back(x, -1, 0);
        w->points.emplace_back(x, 1001, 0);
        w->edges.push_back(PkMeshEdge(2 * n + 2 * i, 2 * n + 2 * i + 1));
    }
    return *w;
}

/// Hands freed heap back to the system (glibc) and restarts the peak at the current size, so
/// that the peak measured next is this benchmark's own, not an earlier one's leftovers.
long long startPeakMeasurement() {
#if defined(__GLIBC__)
    malloc_trim(0);
#endif
    rytest::resetPeakMemory();
    return rytest::currentMemoryBytes();
}

void reportPeak(benchmark::State& state, long long before) {
    const long long peak = rytest::peakMemoryBytes();
    state.counters["peak_MB"] = peak < 0 ? -1.0 : double(peak) / 1e6;
    state.counters["peak_over_start_MB"] = peak < 0 ? -1.0 : double(peak - before) / 1e6;
}

// Delaunay triangulation of the same points, no constraints.
void BM_HolesTriangulation(benchmark::State& state) {
    const Workload& w = holesWorkload(int(state.range(0)));
    for (auto _ : state) {
        RyTriangulation t;
        if (t.delaunayTriangulation(w.points) != StatusOk) state.SkipWithError("triangulation");
        benchmark::DoNotOptimize(RyTriangulationAccess::impl(t)->mesh.triangles.data());
    }
    state.counters["points"] = double(w.points.size());
}

/// The constraint edges alone, inserted into a triangulated default object (untimed setup);
/// returns the vertex count after the last run.
std::size_t timeConstraintInsertion(benchmark::State& state, const Workload& w) {
    std::size_t vertices = 0;
    for (auto _ : state) {
        state.PauseTiming();
        auto t = std::make_unique<RyTriangulation>();
        if (t->delaunayTriangulation(w.points) != StatusOk) state.SkipWithError("triangulation");
        RyTriangulationImpl& m = *RyTriangulationAccess::impl(*t);
        const ConstraintContext context = m.constraintContext();
        state.ResumeTiming();
        for (const PkMeshEdge& e : w.edges) {
            if (insertConstraintEdge(context, e) != StatusOk) {
                state.SkipWithError("constraint");
                break;
            }
        }
        state.PauseTiming();
        vertices = m.mesh.vertices.size();
        t.reset();
        state.ResumeTiming();
    }
    return vertices;
}

void BM_HolesConstraintInsertion(benchmark::State& state) {
    const Workload& w = holesWorkload(int(state.range(0)));
    timeConstraintInsertion(state, w);
    state.counters["edges"] = double(w.edges.size());
}

// deleteOuterTrianglesAndHoles on one constrained mesh, its output emptied between runs.
/// Hole removal alone, with the flood's per-level cap at `maxIterations` pops (`floodCap`).
void runHolesRemoval(benchmark::State& state, int floodCap) {
    const Workload& w = holesWorkload(int(state.range(0)));
    RyTriangulation t;
    if (t.delaunayTriangulationWithConstraints(w.points, w.edges) != StatusOk) {
        state.SkipWithError("constrained triangulation");
        return;
    }
    RyTriangulationImpl& m = *RyTriangulationAccess::impl(t);
    m.maxIterations = floodCap;
    for (auto _ : state) {
        state.PauseTiming();
        std::vector<PkMeshTriangle>().swap(m.meshTriangles);
        state.ResumeTiming();
        t.deleteOuterTrianglesAndHoles();
        benchmark::DoNotOptimize(m.meshTriangles.data());
    }
    state.counters["kept"] = double(m.meshTriangles.size());
    state.counters["triangles"] = double(m.mesh.triangles.size());
}

void BM_HolesRemoval(benchmark::State& state) {
    runHolesRemoval(state, 1000000);  // the default cap
}

// The same with a cap no flood reaches: every triangle is labelled (the default cap stops the
// 1e6-point workload's first flood about half way).
void BM_HolesRemovalFullFlood(benchmark::State& state) {
    runHolesRemoval(state, 1 << 30);
}

// What a host pays: construct, constrained call, hole removal, read the triangles back.
void BM_HolesTotal(benchmark::State& state) {
    const Workload& w = holesWorkload(int(state.range(0)));
    const long long before = startPeakMeasurement();
    for (auto _ : state) {
        RyTriangulation t;
        if (t.delaunayTriangulationWithConstraints(w.points, w.edges) != StatusOk) {
            state.SkipWithError("constrained triangulation");
        }
        t.deleteOuterTrianglesAndHoles();
        const std::vector<PkMeshTriangle> out = t.getMeshTriangles();
        benchmark::DoNotOptimize(out.data());
    }
    reportPeak(state, before);
}

/// The same path step by step in one run: the constrained call, deleteOuterTrianglesAndHoles,
/// one pass over the kept triangles through the zero-copy accessor, and (timed apart) the same
/// pass over a copy from getMeshTriangles. Counters per repetition: each step in ms and the whole
/// paths over the call alone (path_accessor, target 1.2 at 1e6; path_getter).
void BM_HolesEndToEnd(benchmark::State& state) {
    const Workload& w = holesWorkload(int(state.range(0)));
    rytest::HostPath path;
    for (auto _ : state) {
        auto tri = std::make_unique<RyTriangulation>();
        path.run(
            state,
            *tri,
            [&](RyTriangulation& t) {
                return t.delaunayTriangulationWithConstraints(w.points, w.edges);
            },
            [](RyTriangulation& t) { t.deleteOuterTrianglesAndHoles(); });
        tri.reset();
    }
    path.report(state, double(w.points.size()));
}

void BM_CrossingGridConstraintInsertion(benchmark::State& state) {
    const Workload& w = gridWorkload();
    const std::size_t vertices = timeConstraintInsertion(state, w);
    state.counters["crossing_vertices"] = double(vertices - w.points.size());
}

void BM_CrossingGridTotal(benchmark::State& state) {
    const Workload& w = gridWorkload();
    const long long before = startPeakMeasurement();
    for (auto _ : state) {
        RyTriangulation t(true, true);
        if (t.delaunayTriangulationWithConstraints(w.points, w.edges) != StatusOk) {
            state.SkipWithError("constrained triangulation");
        }
        t.deleteOuterTrianglesAndHoles();
        const std::vector<PkMeshTriangle> out = t.getMeshTriangles();
        benchmark::DoNotOptimize(out.data());
    }
    reportPeak(state, before);
}

BENCHMARK(BM_HolesTriangulation)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HolesConstraintInsertion)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HolesRemoval)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HolesRemovalFullFlood)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HolesTotal)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_HolesEndToEnd)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseManualTime();
BENCHMARK(BM_CrossingGridConstraintInsertion)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CrossingGridTotal)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
