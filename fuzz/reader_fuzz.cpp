// Fuzzes rytri's input readers. The first byte picks the format; the rest becomes the file:
//   0: plain points, 1: .node, 2: .poly, 3: .obj,
//   4: plain points and an edge list, split at the first zero byte, 5: LandXML.
// Whatever the bytes, a reader must return (no crash, hang or sanitizer report), and:
//   - on success every x and y is finite, every z finite or NaN (no height: LandXML's 2D
//     points and lines take one from the surface), and every edge joins two distinct points of the
//     site (a .obj line element may repeat a vertex: that edge holds (-1, -1), which the
//     library skips);
//   - on failure the message names the file, with a line number for a problem in the text.
// RY_FUZZ_VERBOSE=1 prints each input's outcome.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

#include "ScratchFiles.h"
#include "io/SiteReaders.h"

namespace {

[[noreturn]] void fail(const std::string& what, const std::string& detail) {
    std::fprintf(stderr, "reader_fuzz: %s\n%s\n", what.c_str(), detail.c_str());
    std::abort();
}

void checkSite(const rytri::Site& site, bool objFormat, const std::string& path) {
    for (const PkGePoint3d& p : site.points) {
        if (!std::isfinite(p.x) || !std::isfinite(p.y) || std::isinf(p.z))
            fail("a non-finite coordinate was accepted", path);
    }
    const long long n = static_cast<long long>(site.points.size());
    for (const PkMeshEdge& e : site.edges) {
        const long long a = e.EdgeIndex1(), b = e.EdgeIndex2();
        // An edge built from one index twice holds (-1, -1), which the library skips.
        if (objFormat && a == -1 && b == -1) continue;
        if (a < 0 || a >= n || b < 0 || b >= n) fail("an edge index out of range", path);
        if (a >= b) fail("an edge not stored as (smaller, larger) index", path);
    }
}

void checkError(const std::string& error, const std::string& path) {
    if (error.empty()) fail("a reader failed without a message", path);
    const bool namesFile = error.compare(0, path.size(), path) == 0 ||
                           error.find("'" + path + "'") != std::string::npos;
    if (!namesFile) fail("a message that does not name the file", error);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const int format = data[0] % 6;
    const std::string_view body(reinterpret_cast<const char*>(data + 1), size - 1);
    static const char* const kNames[] = {
        "points.xyz", "site.node", "site.poly", "site.obj", "points.xyz", "site.xml"};
    const std::filesystem::path path = scratch::directory("rytri_reader_fuzz") / kNames[format];
    std::string_view text = body, edgeText;
    if (format == 4) {
        const std::size_t cut = body.find('\0');
        text = body.substr(0, cut);
        edgeText = cut == std::string_view::npos ? std::string_view() : body.substr(cut + 1);
    }
    scratch::writeFile(path, text);

    rytri::Site site;
    std::string error;
    bool ok = rytri::readSite(path.string(), site, error);
    std::string failedPath = path.string();
    if (ok && format == 4) {
        const std::filesystem::path edges = scratch::directory("rytri_reader_fuzz") / "edges.txt";
        scratch::writeFile(edges, edgeText);
        ok = rytri::readEdgeList(edges.string(), site, error);
        if (!ok) failedPath = edges.string();
    }
    if (ok) {
        checkSite(site, format == 3, path.string());
    } else {
        checkError(error, failedPath);
    }
    if (std::getenv("RY_FUZZ_VERBOSE")) {
        std::fprintf(stderr,
                     "format %d: %s, %zu points, %zu edges, %zu warnings\n",
                     format,
                     ok ? "read" : error.c_str(),
                     site.points.size(),
                     site.edges.size(),
                     site.warnings.size());
    }
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
    return 0;
}
