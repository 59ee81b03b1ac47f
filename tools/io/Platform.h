// The operating-system calls of rytri, each with a POSIX and a Windows side (Platform.cpp).
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

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

/// Whether the tool may use a second thread (to read and to write): not with RYTRI_THREADS=1,
/// which keeps the library on one too, nor on a single processor.
bool useSecondThread();

/// Whether standard error goes to a terminal (progress lines are shown there only).
bool stderrIsTerminal();

/// This process's id, to tell the temporary files of concurrent runs apart.
long processId();

/// Renames `from` to `to`, replacing a file already named `to` in one step. On failure `reason`
/// says why.
bool replaceFile(const std::string& from, const std::string& to, std::string& reason);

/// The path a chain of symbolic links leads to (a relative link is read from the link's
/// directory); the path itself when it is no link. A dangling link leads to where the file will
/// be made. Windows: the path as given.
std::string followLinks(std::string path);

struct FileKind {
    bool exists = false;
    bool regular = false;      ///< a plain file, as opposed to a device, FIFO or directory
    unsigned permissions = 0;  ///< POSIX mode bits; 0 on Windows
};
FileKind fileKind(const std::string& path);

/// A whole regular file mapped read-only into memory: no copy, and no fresh pages to fill. An
/// unreadable page follows it: a read past the end faults rather than reading other memory.
class MappedFile {
public:
    MappedFile() = default;
    ~MappedFile();
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    /// Maps `path`; false (and nothing mapped) when it is no regular file, is empty, cannot be
    /// opened, or the system maps no files here (Windows): the caller then reads it.
    bool map(const std::string& path);
    std::string_view text() const { return std::string_view(static_cast<const char*>(data), size); }

private:
    void* data = nullptr;
    std::size_t size = 0;
    std::size_t span = 0;  ///< bytes reserved: the text and an unreadable page after it
};

/// Gives an open file the permission bits of the file it will replace (nothing on Windows).
void copyPermissions(std::FILE* file, unsigned permissions);

}  // namespace rytri
