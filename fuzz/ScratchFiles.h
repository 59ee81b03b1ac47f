// Scratch files for the rytri harnesses: a directory of the process's own, removed at a normal
// exit (a finding aborts and leaves it for inspection).
#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace scratch {

/// TMPDIR/PREFIX_PID, created on the first call. Never destroyed: the exit handler that removes
/// the directory is registered before a static's destructor would be, so it would run after it.
inline const std::filesystem::path& directory(const char* prefix) {
    static const std::filesystem::path& path = *[prefix] {
        auto* p = new std::filesystem::path(std::filesystem::temp_directory_path() /
                                            (prefix + std::to_string(::getpid())));
        std::filesystem::create_directories(*p);
        std::atexit([] { std::filesystem::remove_all(directory(nullptr)); });
        return p;
    }();
    return path;
}

inline void writeFile(const std::filesystem::path& path, std::string_view bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out.write(bytes.data(), std::streamsize(bytes.size()))) {
        std::fprintf(stderr, "cannot write scratch file %s\n", path.string().c_str());
        std::abort();
    }
}

}  // namespace scratch
