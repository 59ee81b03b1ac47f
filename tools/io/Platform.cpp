#include "io/Platform.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#if defined(_WIN32)
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <io.h>
#include <windows.h>
// After windows.h, which it needs. Version 2 takes the call from kernel32: no psapi.dll.
#ifndef PSAPI_VERSION
#define PSAPI_VERSION 2
#endif
#include <psapi.h>
#else
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>
#endif

namespace rytri {

#if defined(_WIN32)

namespace {

/// The system's message for GetLastError() `code`, without the trailing line break.
std::string systemMessage(DWORD code) {
    char text[512];
    DWORD n = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                             nullptr,
                             code,
                             0,
                             text,
                             sizeof text,
                             nullptr);
    while (n > 0 && (text[n - 1] == '\n' || text[n - 1] == '\r' || text[n - 1] == '.')) --n;
    return n > 0 ? std::string(text, n) : "system error " + std::to_string(code);
}

/// Volume and file index: what identifies a file across paths.
bool fileIdentity(const std::string& path, BY_HANDLE_FILE_INFORMATION& info) {
    const HANDLE h = CreateFileA(path.c_str(),
                                 0,
                                 FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                 nullptr,
                                 OPEN_EXISTING,
                                 FILE_FLAG_BACKUP_SEMANTICS,
                                 nullptr);
    if (h == INVALID_HANDLE_VALUE) return false;
    const bool ok = GetFileInformationByHandle(h, &info) != 0;
    CloseHandle(h);
    return ok;
}

bool isDirectory(const std::string& path) {
    const DWORD attributes = GetFileAttributesA(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

}  // namespace

bool sameFile(const std::string& a, const std::string& b) {
    BY_HANDLE_FILE_INFORMATION ia, ib;
    return fileIdentity(a, ia) && fileIdentity(b, ib) &&
           ia.dwVolumeSerialNumber == ib.dwVolumeSerialNumber &&
           ia.nFileIndexHigh == ib.nFileIndexHigh && ia.nFileIndexLow == ib.nFileIndexLow;
}

bool makeDirectories(const std::string& path) {
    for (std::size_t cut = path.find_first_of(kPathSeparators, 1);;
         cut = path.find_first_of(kPathSeparators, cut + 1)) {
        const std::string prefix = path.substr(0, cut);
        // A drive ("C:") exists already and cannot be created.
        const bool drive = prefix.size() == 2 && prefix[1] == ':';
        if (!prefix.empty() && !drive && !CreateDirectoryA(prefix.c_str(), nullptr) &&
            GetLastError() != ERROR_ALREADY_EXISTS) {
            errno = GetLastError() == ERROR_ACCESS_DENIED ? EACCES : ENOENT;
            return false;
        }
        if (cut == std::string::npos) break;
    }
    if (isDirectory(path)) return true;
    errno = ENOTDIR;
    return false;
}

long peakMemoryKiB() {
    PROCESS_MEMORY_COUNTERS counters;
    if (!GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters)) return -1;
    return long(counters.PeakWorkingSetSize / 1024);
}

long processId() {
    return long(GetCurrentProcessId());
}

bool stderrIsTerminal() {
    return _isatty(_fileno(stderr)) != 0;
}

std::string followLinks(std::string path) {
    return path;
}

FileKind fileKind(const std::string& path) {
    FileKind kind;
    const DWORD attributes = GetFileAttributesA(path.c_str());
    kind.exists = attributes != INVALID_FILE_ATTRIBUTES;
    // Devices such as NUL have no attributes to read; only a plain file is replaced.
    kind.regular = kind.exists && !(attributes & FILE_ATTRIBUTE_DIRECTORY) &&
                   !(attributes & FILE_ATTRIBUTE_DEVICE);
    return kind;
}

void copyPermissions(std::FILE*, unsigned) {}

bool replaceFile(const std::string& from, const std::string& to, std::string& reason) {
    // rename() on Windows refuses an existing target; this replaces it in one step.
    if (MoveFileExA(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        return true;
    reason = systemMessage(GetLastError());
    return false;
}

MappedFile::~MappedFile() = default;

bool MappedFile::map(const std::string&) {
    return false;
}

#else

bool sameFile(const std::string& a, const std::string& b) {
    struct stat sa, sb;
    return ::stat(a.c_str(), &sa) == 0 && ::stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev &&
           sa.st_ino == sb.st_ino;
}

bool makeDirectories(const std::string& path) {
    for (std::size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
        const std::string prefix = path.substr(0, slash);
        if (!prefix.empty() && ::mkdir(prefix.c_str(), 0777) != 0 && errno != EEXIST) return false;
        if (slash == std::string::npos) break;
    }
    struct stat info;
    if (::stat(path.c_str(), &info) != 0) return false;
    if (!S_ISDIR(info.st_mode)) errno = ENOTDIR;
    return S_ISDIR(info.st_mode);
}

long peakMemoryKiB() {
    struct rusage usage;
    if (::getrusage(RUSAGE_SELF, &usage) != 0) return -1;
    return usage.ru_maxrss;  // KiB on Linux
}

long processId() {
    return long(::getpid());
}

bool stderrIsTerminal() {
    return ::isatty(STDERR_FILENO) == 1;
}

std::string followLinks(std::string path) {
    for (int hops = 0; hops < 40; ++hops) {
        struct stat info;
        if (::lstat(path.c_str(), &info) != 0 || !S_ISLNK(info.st_mode)) break;
        std::string link(std::size_t(info.st_size > 0 ? info.st_size : 4096) + 1, '\0');
        const ssize_t length = ::readlink(path.c_str(), &link[0], link.size());
        if (length < 0) break;
        link.resize(std::size_t(length));
        const std::size_t slash = path.find_last_of('/');
        path = link.front() == '/' || slash == std::string::npos ? link
                                                                 : path.substr(0, slash + 1) + link;
    }
    return path;
}

FileKind fileKind(const std::string& path) {
    FileKind kind;
    struct stat info;
    kind.exists = ::stat(path.c_str(), &info) == 0;
    kind.regular = kind.exists && S_ISREG(info.st_mode);
    kind.permissions = kind.exists ? unsigned(info.st_mode & 07777) : 0;
    return kind;
}

void copyPermissions(std::FILE* file, unsigned permissions) {
    ::fchmod(::fileno(file), mode_t(permissions));
}

bool replaceFile(const std::string& from, const std::string& to, std::string& reason) {
    if (std::rename(from.c_str(), to.c_str()) == 0) return true;
    reason = std::strerror(errno);
    return false;
}

namespace {

/// The message for a mapped file cut short while it is read (a read past its new end raises
/// SIGBUS): said, and the run ends as for an unreadable input, instead of a crash.
char truncatedMessage[512];
std::size_t truncatedLength = 0;
/// Mapped files alive, and the handler to put back when the last one goes.
int guardedFiles = 0;
struct sigaction previousAction;

extern "C" void onTruncatedFile(int) {
    const ssize_t written = ::write(STDERR_FILENO, truncatedMessage, truncatedLength);
    (void)written;
    ::_exit(2);
}

void guardAgainstTruncation(const std::string& path) {
    const int n = std::snprintf(truncatedMessage,
                                sizeof truncatedMessage,
                                "rytri: %s: the file was cut short while it was read\n",
                                path.c_str());
    truncatedLength = n < 0 ? 0 : std::min(std::size_t(n), sizeof truncatedMessage - 1);
    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    action.sa_handler = onTruncatedFile;
    if (guardedFiles++ == 0) ::sigaction(SIGBUS, &action, &previousAction);
}

}  // namespace

MappedFile::~MappedFile() {
    if (!data) return;
    ::munmap(data, span);
    if (--guardedFiles == 0) ::sigaction(SIGBUS, &previousAction, nullptr);
}

bool MappedFile::map(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY);
    if (fd < 0) return false;
    struct stat info;
    if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0) {
        int flags = MAP_PRIVATE;
#if defined(MAP_POPULATE)
        flags |= MAP_POPULATE;  // the pages the page cache holds, mapped in one go
#endif
        // The text, then at least one page that cannot be read: a read past the end faults at
        // once instead of reading whatever memory follows.
        const std::size_t bytes = std::size_t(info.st_size);
        const std::size_t page = std::size_t(::sysconf(_SC_PAGESIZE));
        const std::size_t room = (bytes / page + 2) * page;
        void* base = ::mmap(nullptr, room, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (base != MAP_FAILED) {
            if (::mmap(base, bytes, PROT_READ, flags | MAP_FIXED, fd, 0) != MAP_FAILED) {
                guardAgainstTruncation(path);
                data = base;
                size = bytes;
                span = room;
            } else {
                ::munmap(base, room);
            }
        }
    }
    ::close(fd);
    return data != nullptr;
}

#endif

bool useSecondThread() {
    const char* setting = std::getenv("RYTRI_THREADS");
    // Exactly "1", as the library reads it.
    if (setting != nullptr && std::strcmp(setting, "1") == 0) return false;
    return std::thread::hardware_concurrency() != 1;
}

}  // namespace rytri
