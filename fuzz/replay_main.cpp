// Replays fuzz inputs through the harness without libFuzzer, so the seed corpus and every input
// that once exposed a fault run with the ordinary tests (and under their sanitizers). A finding
// aborts, which fails the test.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

bool replay(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "cannot read %s\n", file.string().c_str());
        return false;
    }
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)),
                                  std::istreambuf_iterator<char>());
    std::fprintf(stderr, "replaying %s\n", file.string().c_str());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path path(argv[i]);
        std::vector<std::filesystem::path> files;
        if (std::filesystem::is_directory(path)) {
            for (const auto& entry : std::filesystem::directory_iterator(path)) {
                if (entry.is_regular_file()) files.push_back(entry.path());
            }
        } else {
            files.push_back(path);
        }
        for (const std::filesystem::path& file : files) {
            if (!replay(file)) return 1;
            ++count;
        }
    }
    if (count == 0) {
        std::fprintf(stderr, "no inputs given\n");
        return 1;
    }
    std::printf("%d inputs replayed without a finding\n", count);
    return 0;
}
