// Fuzzes rytri end to end: the bytes become an input file, and the tool runs on it as from a
// shell (read, clean-up, triangulation, finishing, every writer). Layout of the input:
//   byte 0: the format, as in reader_fuzz (0 points, 1 .node, 2 .poly, 3 .obj, 4 points and an
//           edge list split at the first zero byte);
//   byte 1: option bits: 1 --keep all (else the default), 2 --no-dedupe, 4 --no-spatial-sort,
//           8 --no-split-crossing, 16 also --svg, 32 write .node/.ele instead of .obj,
//           64 --dedupe xz, 128 --svg-limit 4 (the thinned picture);
//   the rest: the file.
// The run must end with exit code 0, 1 or 2 (no crash, hang or sanitizer report), write its
// outputs only on success, and every written .obj face must name vertices of the file.
// RY_FUZZ_VERBOSE=1 shows the tool's own messages.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "ScratchFiles.h"

int rytriMain(int argc, char** argv);

namespace {

[[noreturn]] void fail(const std::string& what) {
    std::fprintf(stderr, "tool_fuzz: %s\n", what.c_str());
    std::abort();
}

/// Every face of an .obj written by the tool names vertices 1..(number of 'v' lines).
void checkObj(const std::filesystem::path& path) {
    std::ifstream in(path);
    std::string line;
    long long vertices = 0;
    std::vector<long long> faceIndices;
    while (std::getline(in, line)) {
        if (line.rfind("v ", 0) == 0) {
            ++vertices;
        } else if (line.rfind("f ", 0) == 0) {
            long long a = 0, b = 0, c = 0;
            if (std::sscanf(line.c_str() + 2, "%lld %lld %lld", &a, &b, &c) != 3)
                fail("unreadable face '" + line + "' in " + path.string());
            faceIndices.insert(faceIndices.end(), {a, b, c});
        }
    }
    for (long long i : faceIndices) {
        if (i < 1 || i > vertices)
            fail("a face names vertex " + std::to_string(i) + " of " + std::to_string(vertices) +
                 " in " + path.string());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    const int format = data[0] % 5;
    const unsigned options = data[1];
    const std::string_view body(reinterpret_cast<const char*>(data + 2), size - 2);
    static const char* const kNames[] = {"in.xyz", "in.node", "in.poly", "in.obj", "in.xyz"};
    const std::filesystem::path& dir = scratch::directory("rytri_tool_fuzz");
    for (const auto& entry : std::filesystem::directory_iterator(dir))
        std::filesystem::remove(entry.path());

    std::string_view text = body;
    std::vector<std::string> args = {"rytri", (dir / kNames[format]).string()};
    if (format == 4) {
        const std::size_t cut = body.find('\0');
        text = body.substr(0, cut);
        scratch::writeFile(
            dir / "edges.txt",
            cut == std::string_view::npos ? std::string_view() : body.substr(cut + 1));
        args.insert(args.end(), {"--edges", (dir / "edges.txt").string()});
    }
    scratch::writeFile(dir / kNames[format], text);

    const bool nodeEle = (options & 32u) != 0;
    const std::filesystem::path out = dir / (nodeEle ? "out.ele" : "out.obj");
    args.insert(args.end(), {"-o", out.string()});
    if (options & 1u) args.insert(args.end(), {"--keep", "all"});
    if (options & 2u) args.push_back("--no-dedupe");
    if (options & 4u) args.push_back("--no-spatial-sort");
    if (options & 8u) args.push_back("--no-split-crossing");
    if (options & 16u) args.insert(args.end(), {"--svg", (dir / "out.svg").string()});
    if (options & 64u) args.insert(args.end(), {"--dedupe", "xz"});
    if (options & 128u) args.insert(args.end(), {"--svg-limit", "4"});
    const bool verbose = std::getenv("RY_FUZZ_VERBOSE") != nullptr;
    if (!verbose) args.push_back("--quiet");

    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    // The tool reports on stdout and stderr; keep the fuzzer's output readable.
    std::fflush(stdout);
    std::fflush(stderr);
    const int code = rytriMain(int(args.size()), argv.data());
    if (verbose) std::fprintf(stderr, "exit code %d\n", code);
    if (code < 0 || code > 2) fail("exit code " + std::to_string(code));
    const bool wrote = std::filesystem::exists(out);
    if (code == 0 && !wrote) fail("success without the requested output");
    if (code != 0 && wrote)
        fail("output written by a failing run (exit code " + std::to_string(code) + ")");
    if (code == 0 && !nodeEle) checkObj(out);
    return 0;
}
