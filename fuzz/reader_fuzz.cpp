// Fuzzes rytri's input readers. The first byte picks the format, the rest becomes the file:
//   0: plain points, 1: .node, 2: .poly, 3: .obj,
//   4: plain points and an edge list, split at the first zero byte.
// A reader must return; on success every coordinate is finite and every edge joins two distinct
// points, smaller index first (or is (-1, -1) from a .obj line repeating a vertex); on failure the
// message names the file. RY_FUZZ_VERBOSE=1 prints each outcome.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "ScratchFiles.h"
#include "io/SiteReaders.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const int format = data[0] % 5;
    std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1), edgeText;
    if (format == 4 && text.find('\0') != std::string_view::npos) {
        edgeText = text.substr(text.find('\0') + 1);
        text = text.substr(0, text.find('\0'));
    }
    const char* names[] = {"points.xyz", "site.node", "site.poly", "site.obj", "points.xyz"};
    const std::filesystem::path path = scratch::directory("rytri_reader_fuzz_") / names[format];
    const std::filesystem::path edges = path.parent_path() / "edges.txt";
    scratch::writeFile(path, text);
    scratch::writeFile(edges, edgeText);
    rytri::Site site;
    std::string error, failed = path.string();
    bool ok = rytri::readSite(path.string(), site, error);
    if (ok && format == 4) {
        ok = rytri::readEdgeList(edges.string(), site, error);
        failed = edges.string();
    }
    std::string finding;
    if (!ok && error.find(failed) == std::string::npos)
        finding = "a message that does not name the file";
    for (const PkGePoint3d& p : site.points) {
        if (ok && !(std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z)))
            finding = "a non-finite coordinate";
    }
    for (const PkMeshEdge& e : site.edges) {
        const long long a = e.EdgeIndex1(), b = e.EdgeIndex2(), n = (long long)site.points.size();
        if (ok && !(format == 3 && a == -1 && b == -1) && !(a >= 0 && a < b && b < n))
            finding = "an edge out of range";
    }
    if (std::getenv("RY_FUZZ_VERBOSE"))
        std::fprintf(stderr, "%zu points read; %s\n", site.points.size(), error.c_str());
    if (finding.empty()) return 0;
    std::fprintf(stderr, "reader_fuzz: %s\n%s\n", finding.c_str(), error.c_str());
    std::abort();
}
