// The deliverables of a 1e6-triangle surface: contours at 50 levels (target: under 0.5 s), cut
// and fill, and the DXF and LandXML writers (target: each under 1 s), writing real files in the
// working directory (the DXF also into /dev/null: its formatting alone). The surface is built
// once, untimed.
//
//   deliverables_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <string>

#include "RySurfaceProducts.h"
#include "io/ExchangeWriters.h"

namespace {

/// 500,000 points on a rolling terrain over 1000 x 1000 (about 1e6 triangles), with 50 contour
/// levels spread over its heights.
struct Site {
    ry::Surface surface;
    std::vector<double> levels;
    rytri::ContourSet contours;

    Site() {
        std::mt19937_64 random(11);
        std::uniform_real_distribution<double> at(0.0, 1000.0);
        std::vector<double> xyz;
        for (int i = 0; i < 500000; ++i) {
            const double x = at(random), y = at(random);
            for (double c : {x, y, 100.0 + 30.0 * std::sin(x / 150.0) * std::cos(y / 120.0)}) {
                xyz.push_back(c);
            }
        }
        ry::SurfaceInput input;
        input.xyz = xyz;
        surface = ry::buildSurface(input);
        double low = INFINITY, high = -INFINITY;
        for (std::size_t v = 0; v < surface.vertexCount(); ++v) {
            low = std::fmin(low, surface.vertices[3 * v + 2]);
            high = std::fmax(high, surface.vertices[3 * v + 2]);
        }
        for (int k = 0; k < 50; ++k) levels.push_back(low + (k + 0.5) * (high - low) / 50.0);
        contours.lines = ry::contourLines(surface, levels);
        contours.index.assign(contours.lines.lineCount(), 0);
        contours.interval = (high - low) / 50.0;
    }
};

const Site& site() {
    static const Site s;
    return s;
}

void BM_Contours50(benchmark::State& state) {
    const Site& s = site();
    std::size_t points = 0;
    for (auto _ : state) {
        const ry::Contours c = ry::contourLines(s.surface, s.levels);
        points = c.xy.size() / 2;
        benchmark::DoNotOptimize(c.xy.data());
    }
    state.counters["triangles"] = double(s.surface.triangleCount());
    state.counters["levels"] = double(s.levels.size());
    state.counters["points"] = double(points);
}
BENCHMARK(BM_Contours50)->Unit(benchmark::kMillisecond);

void BM_Volumes(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(ry::surfaceVolumes(site().surface, 115.0).cut);
}
BENCHMARK(BM_Volumes)->Unit(benchmark::kMillisecond);

template <class Writer>
void writeFile(benchmark::State& state, const char* name, Writer&& writer) {
    const Site& s = site();
    const rytri::MeshOutput mesh{s.surface, 0, &s.contours, nullptr, "bench"};
    rytri::ExchangeOptions options;
    options.version = "bench";
    std::string error;
    for (auto _ : state) {
        rytri::OutputFile out(name);
        if (!out.open(error)) state.SkipWithError(error.c_str());
        writer(mesh, options, out);
        if (!out.close(error) || !out.commit(error)) state.SkipWithError(error.c_str());
    }
    std::FILE* file = std::string(name) == "/dev/null" ? nullptr : std::fopen(name, "rb");
    if (file) {
        std::fseek(file, 0, SEEK_END);
        state.counters["MB"] = double(std::ftell(file)) / 1e6;
        std::fclose(file);
    }
    if (std::string(name) != "/dev/null") std::remove(name);
}

void BM_WriteDxf(benchmark::State& state) {
    writeFile(state, "deliverables_bench.dxf", rytri::writeDxf);
}
BENCHMARK(BM_WriteDxf)->Unit(benchmark::kMillisecond);

// The formatting alone: the same bytes into /dev/null (no page cache, no disk).
void BM_FormatDxf(benchmark::State& state) {
    writeFile(state, "/dev/null", rytri::writeDxf);
}
BENCHMARK(BM_FormatDxf)->Unit(benchmark::kMillisecond);

void BM_WriteLandXml(benchmark::State& state) {
    writeFile(state, "deliverables_bench.xml", rytri::writeLandXml);
}
BENCHMARK(BM_WriteLandXml)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
