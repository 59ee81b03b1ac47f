// Scratch files for the harnesses that reach rytri through the file system: a directory of the
// process's own, removed at a normal exit (a finding aborts and leaves it for inspection), and
// whole-file writes.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>

namespace scratch {

inline std::filesystem::path& directoryPath() {
    static std::filesystem::path path;
    return path;
}

inline void removeDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(directoryPath(), ignored);
}

/// TMPDIR/PREFIX_PID, created on the first call.
inline const std::filesystem::path& directory(const char* prefix) {
    static const bool made = [prefix] {
        directoryPath() = std::filesystem::temp_directory_path() /
                          (std::string(prefix) + "_" + std::to_string(::getpid()));
        std::filesystem::create_directories(directoryPath());
        std::atexit(removeDirectory);
        return true;
    }();
    (void)made;
    return directoryPath();
}

inline void writeFile(const std::filesystem::path& path, std::string_view bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), std::streamsize(bytes.size()));
    if (!out) {
        std::fprintf(stderr, "cannot write scratch file %s\n", path.string().c_str());
        std::abort();
    }
}

}  // namespace scratch
