// Fuzzes rytri end to end: the bytes become an input file for the tool. Layout of the input:
//   byte 0: the format, as in reader_fuzz;
//   byte 1: option bits: 1 --keep all (else the default), 2 --no-dedupe, 4 --no-spatial-sort,
//           8 --no-split-crossing, 16 also --svg, 32 write .node/.ele instead of .obj,
//           64 --dedupe xz, 128 --svg-limit 4 (the thinned picture);
//   the rest: the file.
// The run must exit with 0, 1 or 2, write its outputs only on success, and write .obj faces that
// name vertices of the file. RY_FUZZ_VERBOSE=1 shows the tool's own messages.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "ScratchFiles.h"

int rytriMain(int argc, char** argv);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    const int format = data[0] % 5;
    const unsigned options = data[1];
    std::string_view text(reinterpret_cast<const char*>(data + 2), size - 2);
    const char* names[] = {"in.xyz", "in.node", "in.poly", "in.obj", "in.xyz"};
    const std::filesystem::path& dir = scratch::directory("rytri_tool_fuzz_");
    for (const auto& entry : std::filesystem::directory_iterator(dir))
        std::filesystem::remove(entry.path());
    std::vector<std::string> args = {"rytri", (dir / names[format]).string()};
    if (format == 4) {
        const std::size_t cut = std::min(text.find('\0'), text.size());
        scratch::writeFile(dir / "edges.txt", text.substr(std::min(cut + 1, text.size())));
        args.insert(args.end(), {"--edges", (dir / "edges.txt").string()});
        text = text.substr(0, cut);
    }
    scratch::writeFile(dir / names[format], text);
    const std::filesystem::path out = dir / (options & 32u ? "out.ele" : "out.obj");
    args.insert(args.end(), {"-o", out.string()});
    std::istringstream groups(
        "--keep all,--no-dedupe,--no-spatial-sort,--no-split-crossing,"
        "--svg,,--dedupe xz,--svg-limit 4");  // option bits 0 to 7
    std::string group, word;
    for (int bit = 0; std::getline(groups, group, ','); ++bit) {
        std::istringstream words(group);
        while ((options >> bit) & 1u && words >> word) args.push_back(word);
        if ((options >> bit) & 1u && group == "--svg") args.push_back((dir / "out.svg").string());
    }
    const bool verbose = std::getenv("RY_FUZZ_VERBOSE") != nullptr;
    if (!verbose) args.push_back("--quiet");
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    std::fflush(stdout);
    std::fflush(stderr);
    const int code = rytriMain(int(args.size()), argv.data());
    std::string finding;
    if (code < 0 || code > 2) finding = "exit code " + std::to_string(code);
    if ((code == 0) != std::filesystem::exists(out))
        finding = "an output missing after success, or written by a failure";
    // Every face of a written .obj names vertices 1..(number of 'v' lines).
    std::ifstream in(out);
    long long vertices = 0, a = 0, b = 0, c = 0;
    for (std::string line; code == 0 && !(options & 32u) && std::getline(in, line);) {
        vertices += line.rfind("v ", 0) == 0;
        if (line.rfind("f ", 0) == 0 &&
            (std::sscanf(line.c_str() + 2, "%lld %lld %lld", &a, &b, &c) != 3 ||
             std::min({a, b, c}) < 1 || std::max({a, b, c}) > vertices)) {
            finding = "a face naming no written vertex: " + line;
        }
    }
    if (verbose) std::fprintf(stderr, "exit code %d\n", code);
    if (finding.empty()) return 0;
    std::fprintf(stderr, "tool_fuzz: %s\n", finding.c_str());
    std::abort();
}
