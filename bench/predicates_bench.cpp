// Cost per call of the robust predicates on well-conditioned input, beside the plain (non-robust)
// double determinant in the same run, plus the slow paths on nearly degenerate input. *Uniform
// measures independent calls (throughput), *Chained calls whose answer picks the next input
// (latency, as in a walk). The machine is shared: interleave the repetitions.
//   predicates_bench --benchmark_repetitions=15 --benchmark_min_time=0.05
//       --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "predicates/Predicates.h"

namespace {

constexpr std::size_t kPoints = std::size_t(1) << 12;  // 64 KB of coordinates: stays in L2

std::uint64_t splitMix(std::uint64_t& state) {
    std::uint64_t z = (state += 0x9e3779b97f4a7c15ull);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    return z ^ (z >> 31);
}

/// kPoints + 3 points uniform in [0, 1000)^2 (the extra ones let every window of four consecutive
/// points be read without wrapping).
const std::vector<double>& uniformPoints() {
    static const std::vector<double> pts = [] {
        std::uint64_t state = 1;
        std::vector<double> v(2 * (kPoints + 3));
        for (double& x : v) x = 1000.0 * double(splitMix(state) >> 11) * 0x1p-53;
        return v;
    }();
    return pts;
}

struct PlainOrient {
    double operator()(const double* pa, const double* pb, const double* pc) const {
        return (pa[0] - pc[0]) * (pb[1] - pc[1]) - (pa[1] - pc[1]) * (pb[0] - pc[0]);
    }
};
struct RobustOrient {
    double operator()(const double* pa, const double* pb, const double* pc) const {
        return orient2d(pa, pb, pc);
    }
};
struct PlainInCircle {
    double operator()(const double* pa,
                      const double* pb,
                      const double* pc,
                      const double* pd) const {
        const double adx = pa[0] - pd[0], ady = pa[1] - pd[1];
        const double bdx = pb[0] - pd[0], bdy = pb[1] - pd[1];
        const double cdx = pc[0] - pd[0], cdy = pc[1] - pd[1];
        const double alift = adx * adx + ady * ady;
        const double blift = bdx * bdx + bdy * bdy;
        const double clift = cdx * cdx + cdy * cdy;
        return alift * (bdx * cdy - cdx * bdy) + blift * (cdx * ady - adx * cdy) +
               clift * (adx * bdy - bdx * ady);
    }
};
struct RobustInCircle {
    double operator()(const double* pa,
                      const double* pb,
                      const double* pc,
                      const double* pd) const {
        return incircle(pa, pb, pc, pd);
    }
};
struct ExactInCircle {
    double operator()(const double* pa,
                      const double* pb,
                      const double* pc,
                      const double* pd) const {
        return incircleExact(pa, pb, pc, pd);
    }
};

template <class F>
void orientUniform(benchmark::State& state) {
    const double* pts = uniformPoints().data();
    const F f;
    std::size_t i = 0;
    for (auto _ : state) {
        const double* p = pts + 2 * i;
        double r = f(p, p + 2, p + 4);
        benchmark::DoNotOptimize(r);
        i = (i + 1) & (kPoints - 1);
    }
    state.SetItemsProcessed(std::int64_t(state.iterations()));
}

template <class F>
void inCircleUniform(benchmark::State& state) {
    const double* pts = uniformPoints().data();
    const F f;
    std::size_t i = 0;
    for (auto _ : state) {
        const double* p = pts + 2 * i;
        double r = f(p, p + 2, p + 4, p + 6);
        benchmark::DoNotOptimize(r);
        i = (i + 1) & (kPoints - 1);
    }
    state.SetItemsProcessed(std::int64_t(state.iterations()));
}

// The same calls where each answer picks the next input, as in a walk or a flip loop: the
// latency of one call, not the throughput of many independent ones.
template <class F>
void orientChained(benchmark::State& state) {
    const double* pts = uniformPoints().data();
    const F f;
    std::size_t i = 0;
    for (auto _ : state) {
        const double* p = pts + 2 * i;
        const double r = f(p, p + 2, p + 4);
        i = (i + 1 + std::size_t(r > 0.0)) & (kPoints - 1);
    }
    benchmark::DoNotOptimize(i);
    state.SetItemsProcessed(std::int64_t(state.iterations()));
}

template <class F>
void inCircleChained(benchmark::State& state) {
    const double* pts = uniformPoints().data();
    const F f;
    std::size_t i = 0;
    for (auto _ : state) {
        const double* p = pts + 2 * i;
        const double r = f(p, p + 2, p + 4, p + 6);
        i = (i + 1 + std::size_t(r > 0.0)) & (kPoints - 1);
    }
    benchmark::DoNotOptimize(i);
    state.SetItemsProcessed(std::int64_t(state.iterations()));
}

/// The classification the triangulation calls, for the record.
void classifyPointSideUniform(benchmark::State& state) {
    const double* pts = uniformPoints().data();
    std::size_t i = 0;
    for (auto _ : state) {
        const double* p = pts + 2 * i;
        PointSide s = classifyPointSide(p, p + 2, p + 4, 1e-9);
        benchmark::DoNotOptimize(s);
        i = (i + 1) & (kPoints - 1);
    }
}

void classifyInCircleUniform(benchmark::State& state) {
    const double* pts = uniformPoints().data();
    std::size_t i = 0;
    for (auto _ : state) {
        const double* p = pts + 2 * i;
        CircleSide s = classifyInCircle(p, p + 2, p + 4, p + 6, 1e-9);
        benchmark::DoNotOptimize(s);
        i = (i + 1) & (kPoints - 1);
    }
}

double ulps(double x, int k) {
    for (int i = 0; i < k; ++i) x = std::nextafter(x, HUGE_VAL);
    return x;
}

/// Triples on y = x / 2 with the last point moved by 0..3 ulps: the slow path of orient2d.
const std::vector<double>& nearlyCollinear() {
    static const std::vector<double> v = [] {
        std::uint64_t state = 2;
        std::vector<double> out;
        for (std::size_t i = 0; i < 1024; ++i) {
            const double t[3] = {double(splitMix(state) >> 11) * 0x1p-53,
                                 10.0 + double(splitMix(state) >> 11) * 0x1p-53,
                                 20.0 + double(splitMix(state) >> 11) * 0x1p-53};
            for (double x : t) out.insert(out.end(), {x, 0.5 * x});
            out[out.size() - 1] = ulps(out.back(), int(splitMix(state) % 4));
        }
        return out;
    }();
    return v;
}

/// Rectangle corners with the last moved by 0..3 ulps: the slow path of incircle.
const std::vector<double>& nearlyCocircular() {
    static const std::vector<double> v = [] {
        std::uint64_t state = 3;
        std::vector<double> out;
        auto u = [&] { return double(splitMix(state) >> 11) * 0x1p-53; };
        for (std::size_t i = 0; i < 1024; ++i) {
            const double x0 = u(), x1 = 10.0 + u(), y0 = u(), y1 = 10.0 + u();
            out.insert(out.end(), {x0, y0, x1, y0, x1, y1, x0, y1});
            out[out.size() - 1] = ulps(out.back(), int(splitMix(state) % 4));
        }
        return out;
    }();
    return v;
}

template <class F>
void orientNearlyCollinear(benchmark::State& state) {
    const std::vector<double>& v = nearlyCollinear();
    const F f;
    std::size_t i = 0;
    for (auto _ : state) {
        const double* p = v.data() + 6 * i;
        double r = f(p, p + 2, p + 4);
        benchmark::DoNotOptimize(r);
        i = (i + 1) & 1023;
    }
}

template <class F>
void inCircleNearlyCocircular(benchmark::State& state) {
    const std::vector<double>& v = nearlyCocircular();
    const F f;
    std::size_t i = 0;
    for (auto _ : state) {
        const double* p = v.data() + 8 * i;
        double r = f(p, p + 2, p + 4, p + 6);
        benchmark::DoNotOptimize(r);
        i = (i + 1) & 1023;
    }
}

BENCHMARK_TEMPLATE(orientUniform, PlainOrient);
BENCHMARK_TEMPLATE(orientUniform, RobustOrient);
BENCHMARK_TEMPLATE(inCircleUniform, PlainInCircle);
BENCHMARK_TEMPLATE(inCircleUniform, RobustInCircle);
BENCHMARK_TEMPLATE(orientChained, PlainOrient);
BENCHMARK_TEMPLATE(orientChained, RobustOrient);
BENCHMARK_TEMPLATE(inCircleChained, PlainInCircle);
BENCHMARK_TEMPLATE(inCircleChained, RobustInCircle);
BENCHMARK(classifyPointSideUniform);
BENCHMARK(classifyInCircleUniform);
BENCHMARK_TEMPLATE(orientNearlyCollinear, PlainOrient);
BENCHMARK_TEMPLATE(orientNearlyCollinear, RobustOrient);
BENCHMARK_TEMPLATE(inCircleNearlyCocircular, PlainInCircle);
BENCHMARK_TEMPLATE(inCircleNearlyCocircular, RobustInCircle);
BENCHMARK_TEMPLATE(inCircleUniform, ExactInCircle);

}  // namespace

BENCHMARK_MAIN();
