// Writes a large test site for the rytri end-to-end tests: N points spread uniformly over
// [0, 1000)^2 by a SplitMix64 generator started from SEED, then the four corners of a small
// square boundary around the centre, as "x y" lines; and the boundary's edges as "i j" lines.
//   rytri_bigsite N SEED points.xyz edges.txt [spelled]
// With "spelled" each point is "x y z" in decimals of 1 to 21 digits with the point anywhere, a
// sign or none, sometimes an exponent: the forms a quick reader takes and those it leaves; no
// corners then, and the file's length is a multiple of 4096 bytes.
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
    // Mostly the quick reader's form `[-]d+[.d+]`, the counts of digits around its limits (8
    // before the point, 16 in all) and now and then a form it leaves ("1.", ".5", '+', an
    // exponent), with blanks, tabs or commas between and some CRLF endings.
    auto quick = [&] {
        std::string text = below(3) == 0 ? "-" : below(40) == 0 ? "+" : "";
        const int whole = below(16) > 0 ? 1 + below(7) : below(2) * 8, places = below(17 - whole);
        for (int k = 0; k < whole; ++k) text += char('0' + below(10));
        if (places > 0 || below(30) == 0) text += '.';
        for (int k = 0; k < places; ++k) text += char('0' + below(10));
        if (whole + places == 0) text += '0';
        if (below(40) == 0) text += "e" + std::to_string(below(41) - 20);
        return text;
    };
    std::string body;
    for (long i = 0; spelled && i < n; ++i) {
        const bool anyForm = below(4) == 0;
        const char* between = below(16) > 0 ? " " : below(2) ? "\t" : ", ";
        for (int k = 0; k < 3; ++k) body += (anyForm ? spell() : quick()) + (k < 2 ? between : "");
        body += below(16) > 0 ? "\n" : "\r\n";
    }
    if (spelled) {
        // The file ends at the end of a page (the reader maps an unreadable one after it), in a
        // short line without a line break: a read past its end faults. A comment line first makes
        // up the length.
        body += "-1 2.5 3";
        const std::size_t length = body.size() + 2;
        std::fprintf(points,
                     "#%s\n%s",
                     std::string((4096 - length % 4096) % 4096, '-').c_str(),
                     body.c_str());
    }
    for (long i = 0; !spelled && i < n; ++i) {
        const double x = 1000 * unit();
        std::fprintf(points, "%.9f %.9f\n", x, 1000 * unit());
    }
    if (!spelled) std::fprintf(points, "480 480\n520 480\n520 520\n480 520\n");
    for (long k = 0; k < 4; ++k) std::fprintf(edges, "%ld %ld\n", n + k, n + (k + 1) % 4);
    return std::fclose(points) == 0 && std::fclose(edges) == 0 ? 0 : 1;
}
