// What a host waits for, step by step in one run: the triangulation call, a finishing call, one
// pass over the triangles through the zero-copy accessor and (timed apart) the same pass over a
// copy from getMeshTriangles; with the call's peak growth beyond what was resident before it.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <vector>

#include "PeakMemory.h"
#include "RyTriangulation.h"

namespace rytest {

struct HostPath {
    double call = 0, finish = 0, read = 0, getter = 0;  ///< ms, summed over the runs
    long long peakGrowth = -1;

    /// One run on `tri`: triangulate(tri) must return StatusOk, then finishing(tri). The
    /// iteration time is the call, the finishing call and the accessor pass.
    template <class Triangulate, class Finishing>
    void run(benchmark::State& state,
             RyTriangulation& tri,
             Triangulate triangulate,
             Finishing finishing) {
        using Clock = std::chrono::steady_clock;
        auto ms = [](Clock::time_point a, Clock::time_point b) {
            return std::chrono::duration<double, std::milli>(b - a).count();
        };
        releaseFreedMemory();
        resetPeakMemory();
        const long long before = currentMemoryBytes();
        const Clock::time_point t0 = Clock::now();
        if (triangulate(tri) != StatusOk) state.SkipWithError("triangulation");
        const Clock::time_point t1 = Clock::now();
        const long long peak = peakMemoryBytes();
        if (before >= 0 && peak >= 0) peakGrowth = std::max(peakGrowth, peak - before);
        const Clock::time_point t2 = Clock::now();
        finishing(tri);
        const Clock::time_point t3 = Clock::now();
        long long sum = 0;
        for (const PkMeshTriangle& t : tri.meshTriangles()) sum += t.getVertexIndexAt(0);
        const Clock::time_point t4 = Clock::now();
        {
            const std::vector<PkMeshTriangle> copy = tri.getMeshTriangles();
            for (const PkMeshTriangle& t : copy) sum -= t.getVertexIndexAt(0);
        }
        const Clock::time_point t5 = Clock::now();
        if (sum != 0) state.SkipWithError("the copy differs");
        call += ms(t0, t1);
        finish += ms(t2, t3);
        read += ms(t3, t4);
        getter += ms(t4, t5);
        state.SetIterationTime(std::chrono::duration<double>((t1 - t0) + (t4 - t2)).count());
    }

    /// Counters per repetition: each step in ms, the whole paths over the call alone
    /// (path_accessor, path_getter) and the call's peak growth per point.
    void report(benchmark::State& state, double points) const {
        const double k = double(state.iterations());
        state.counters["call_ms"] = call / k;
        state.counters["finish_ms"] = finish / k;
        state.counters["read_ms"] = read / k;
        state.counters["getter_ms"] = getter / k;
        state.counters["path_accessor"] = (call + finish + read) / call;
        state.counters["path_getter"] = (call + finish + getter) / call;
        state.counters["peak_bytes_per_point"] = double(peakGrowth) / points;
    }
};

}  // namespace rytest
