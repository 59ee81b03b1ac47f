// Replays fuzz inputs (files, or every file of a directory) through a harness without libFuzzer,
// so the seed corpora and every input that once exposed a fault run with the ordinary tests and
// under their sanitizers. A finding aborts, which fails the test.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        std::vector<std::filesystem::path> files{argv[i]};
        if (std::filesystem::is_directory(argv[i]))
            files.assign(std::filesystem::directory_iterator(argv[i]), {});
        for (const std::filesystem::path& file : files) {
            std::ifstream in(file, std::ios::binary);
            const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), {});
            if (!in && !in.eof()) return std::fprintf(stderr, "cannot read %s\n", argv[i]), 1;
            std::fprintf(stderr, "replaying %s\n", file.string().c_str());
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                   bytes.size());
            ++count;
        }
    }
    std::printf("%d inputs replayed without a finding\n", count);
    return count == 0;
}
