// buildSurface on points read from a file of raw float64 x, y, z triples (the points
// bench/python_bench.py hands the Python module), timed call by call: the C++ side of the
// binding's overhead.
//
//   surface_timing POINTS.f64 [CALLS]    prints "seconds triangles" for each call
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <vector>

#include "RySurface.h"

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: surface_timing POINTS.f64 [CALLS]\n");
        return 2;
    }
    std::ifstream in(argv[1], std::ios::binary | std::ios::ate);
    std::vector<double> xyz(std::size_t(in.tellg()) / sizeof(double));
    in.seekg(0);
    in.read(reinterpret_cast<char*>(xyz.data()), std::streamsize(xyz.size() * sizeof(double)));
    if (!in || xyz.size() % 3 != 0) {
        std::fprintf(stderr, "surface_timing: cannot read x, y, z triples from %s\n", argv[1]);
        return 2;
    }
    const int calls = argc > 2 ? std::atoi(argv[2]) : 1;
    for (int call = 0; call < calls; ++call) {
        ry::SurfaceInput input;
        input.xyz = xyz;
        const auto start = std::chrono::steady_clock::now();
        const ry::Surface s = ry::buildSurface(input);
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
        if (!s.ok()) {
            std::fprintf(stderr, "surface_timing: %s\n", s.message.c_str());
            return 1;
        }
        std::printf("%.6f %zu\n", seconds.count(), s.triangleCount());
    }
    return 0;
}
