#include "io/OutputFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>

namespace rytri {

namespace {

constexpr std::size_t kFlushSize = std::size_t(1) << 20;

/// The path a chain of symbolic links leads to (a link's relative target is read from the
/// link's directory); the path itself when it is no link. Dangling links lead to where the
/// file will be made.
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

std::string reason(int error) {
    return std::strerror(error ? error : EIO);
}

}  // namespace

void appendNumber(std::string& out, double value) {
    char text[32];
    const std::to_chars_result r = std::to_chars(text, text + sizeof text, value);
    out.append(text, r.ptr);
}

OutputFile::OutputFile(std::string path) : target(std::move(path)) {}

OutputFile::~OutputFile() {
    if (file && mode != Mode::kStandardOutput) std::fclose(file);
    if (!committed && !temporary.empty()) std::remove(temporary.c_str());
}

bool OutputFile::open(std::string& error) {
    buffer.reserve(kFlushSize + 4096);
    if (isStandardOutput(target)) {
        mode = Mode::kStandardOutput;
        file = stdout;
        return true;
    }
    resolved = followLinks(target);
    struct stat info;
    const bool exists = ::stat(resolved.c_str(), &info) == 0;
    if (exists && !S_ISREG(info.st_mode)) {
        mode = Mode::kInPlace;
        file = std::fopen(resolved.c_str(), "wb");
    } else {
        // Same directory as the file, so that the final rename stays on one file system.
        const std::size_t slash = resolved.find_last_of('/');
        const std::string dir = slash == std::string::npos ? "" : resolved.substr(0, slash + 1);
        const std::string name = slash == std::string::npos ? resolved : resolved.substr(slash + 1);
        temporary = dir + "." + name + ".tmp" + std::to_string(long(::getpid()));
        file = std::fopen(temporary.c_str(), "wb");
        if (!file) temporary.clear();  // nothing to remove
        // The replacement keeps the permissions of the file it replaces.
        if (file && exists) ::fchmod(::fileno(file), info.st_mode & 07777);
    }
    if (!file) {
        error = "cannot write '" + target + "': " + reason(errno);
        return false;
    }
    return true;
}

void OutputFile::flush() {
    if (file && !buffer.empty() && !failed &&
        std::fwrite(buffer.data(), 1, buffer.size(), file) != buffer.size()) {
        failed = true;
        writeErrno = errno;
    }
    buffer.clear();
}

void OutputFile::write(std::string_view text) {
    buffer.append(text);
    if (buffer.size() >= kFlushSize) flush();
}

void OutputFile::writeNumber(double value) {
    appendNumber(buffer, value);
    if (buffer.size() >= kFlushSize) flush();
}

void OutputFile::writeInteger(long long value) {
    char text[24];
    const std::to_chars_result r = std::to_chars(text, text + sizeof text, value);
    buffer.append(text, r.ptr);
    if (buffer.size() >= kFlushSize) flush();
}

bool OutputFile::close(std::string& error) {
    flush();
    if (file && !failed && std::fflush(file) != 0) {
        failed = true;
        writeErrno = errno;
    }
    if (file && mode != Mode::kStandardOutput && std::fclose(file) != 0 && !failed) {
        failed = true;
        writeErrno = errno;
    }
    file = nullptr;
    if (failed) {
        error = "cannot write '" + target + "': " + reason(writeErrno);
        return false;
    }
    return true;
}

bool OutputFile::commit(std::string& error) {
    if (mode == Mode::kReplace && std::rename(temporary.c_str(), resolved.c_str()) != 0) {
        error = "cannot create '" + target + "': " + std::strerror(errno);
        return false;
    }
    committed = true;
    return true;
}

}  // namespace rytri
