// Writes a large test site for the rytri end-to-end tests: N points spread uniformly over
// [0, 1000)^2 by a SplitMix64 generator started from SEED, then the four corners of a small
// square boundary around the centre, as "x y" lines; and the boundary's edges as "i j" lines.
//   rytri_bigsite N SEED points.xyz edges.txt
#include <cstdint>
#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
    if (argc != 5) return std::fprintf(stderr, "usage: rytri_bigsite N SEED points edges\n"), 2;
    const long n = std::atol(argv[1]);
    std::uint64_t state = std::strtoull(argv[2], nullptr, 10);
    auto unit = [&state] {
        std::uint64_t z = (state += 0x9e3779b97f4a7c15ull);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
        return double((z ^ (z >> 31)) >> 11) * 0x1p-53;
    };
    std::FILE *points = std::fopen(argv[3], "w"), *edges = std::fopen(argv[4], "w");
    if (!points || !edges) return std::perror("rytri_bigsite"), 1;
    for (long i = 0; i < n; ++i) {
        const double x = 1000 * unit();
        std::fprintf(points, "%.9f %.9f\n", x, 1000 * unit());
    }
    std::fprintf(points, "480 480\n520 480\n520 520\n480 520\n");
    for (long k = 0; k < 4; ++k) std::fprintf(edges, "%ld %ld\n", n + k, n + (k + 1) % 4);
    return std::fclose(points) == 0 && std::fclose(edges) == 0 ? 0 : 1;
}
