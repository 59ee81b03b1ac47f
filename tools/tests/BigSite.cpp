// Writes a large test site for the rytri end-to-end tests: N points spread uniformly over
// [0, 1000)^2 by a SplitMix64 generator started from SEED, then the four corners of a small
// square boundary around the centre, as "x y" lines; and the boundary's edges as "i j" lines.
//   rytri_bigsite N SEED points.xyz edges.txt [spelled]
// With "spelled" each point is "x y z" in decimals of 1 to 21 digits with the point anywhere, a
// sign or none, sometimes an exponent: the forms a quick reader takes and those it leaves.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

int main(int argc, char** argv) {
    if (argc != 5 && argc != 6) {
        return std::fprintf(stderr, "usage: rytri_bigsite N SEED points edges [spelled]\n"), 2;
    }
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
    const bool spelled = argc == 6 && std::strcmp(argv[5], "spelled") == 0;
    auto below = [&unit](int n) { return int(unit() * n); };
    auto spell = [&] {
        std::string text = below(3) == 0 ? "-" : below(8) == 0 ? "+" : "";
        const int digits = 1 + below(21), point = below(digits + 1);
        for (int k = 0; k < digits; ++k) {
            if (k == point && k > 0) text += '.';
            text += char('0' + below(10));
        }
        if (below(8) == 0) text += "e" + std::to_string(below(41) - 20);
        return text;
    };
    for (long i = 0; spelled && i < n; ++i) {
        std::fprintf(points, "%s %s %s\n", spell().c_str(), spell().c_str(), spell().c_str());
    }
    for (long i = 0; !spelled && i < n; ++i) {
        const double x = 1000 * unit();
        std::fprintf(points, "%.9f %.9f\n", x, 1000 * unit());
    }
    std::fprintf(points, "480 480\n520 480\n520 520\n480 520\n");
    for (long k = 0; k < 4; ++k) std::fprintf(edges, "%ld %ld\n", n + k, n + (k + 1) % 4);
    return std::fclose(points) == 0 && std::fclose(edges) == 0 ? 0 : 1;
}
