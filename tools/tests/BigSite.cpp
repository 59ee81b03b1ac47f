// Writes a large test site for the rytri end-to-end tests: N points spread uniformly over
// [0, 1000)^2 by a generator started from SEED, then the four corners of a small square boundary
// around the centre, as "x y" lines; and the boundary's four edges as "i j" lines.
//   rytri_bigsite N SEED points.xyz edges.txt
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

std::uint64_t splitMix(std::uint64_t& state) {
    std::uint64_t z = (state += 0x9e3779b97f4a7c15ull);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    return z ^ (z >> 31);
}

double unit(std::uint64_t& state) {
    return double(splitMix(state) >> 11) * 0x1p-53;
}

}  // namespace

int main(int argc, char** argv) {
    long n = 0;
    std::uint64_t state = 0;
    auto number = [](const char* text, auto& value) {
        return std::from_chars(text, text + std::strlen(text), value).ec == std::errc();
    };
    if (argc != 5 || !number(argv[1], n) || n < 1 || !number(argv[2], state)) {
        std::fprintf(stderr, "usage: rytri_bigsite N SEED points.xyz edges.txt\n");
        return 2;
    }
    std::FILE* points = std::fopen(argv[3], "w");
    std::FILE* edges = std::fopen(argv[4], "w");
    if (!points || !edges) {
        std::perror("rytri_bigsite");
        return 1;
    }
    for (long i = 0; i < n; ++i)
        std::fprintf(points, "%.9f %.9f\n", 1000 * unit(state), 1000 * unit(state));
    std::fprintf(points, "480 480\n520 480\n520 520\n480 520\n");
    for (long k = 0; k < 4; ++k) std::fprintf(edges, "%ld %ld\n", n + k, n + (k + 1) % 4);
    const bool ok = std::fclose(points) == 0 && std::fclose(edges) == 0;
    return ok ? 0 : 1;
}
