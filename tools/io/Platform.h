// The operating-system calls of rytri, each with a POSIX and a Windows side (Platform.cpp).
#pragma once

#include <string>

namespace rytri {

/// Characters that end a directory in a path: Windows also takes the backslash.
#if defined(_WIN32)
constexpr const char* kPathSeparators = "/\\";
#else
constexpr const char* kPathSeparators = "/";
#endif

/// True when both paths exist and name the same file (through links or other spellings too).
bool sameFile(const std::string& a, const std::string& b);

/// mkdir -p: creates the directory and any missing parents. On failure errno says why.
bool makeDirectories(const std::string& path);

/// Peak resident memory of the process so far in KiB, or -1 when unknown.
long peakMemoryKiB();

/// This process's id, to tell the temporary files of concurrent runs apart.
long processId();

/// Renames `from` to `to`, replacing a file already named `to` in one step. On failure `reason`
/// says why.
bool replaceFile(const std::string& from, const std::string& to, std::string& reason);

}  // namespace rytri
