#include "io/OutputFile.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "io/Platform.h"

namespace rytri {

namespace {

constexpr std::size_t kBufferSize = std::size_t(1) << 20;

std::string reason(int error) {
    return std::strerror(error ? error : EIO);
}

}  // namespace

void appendNumber(std::string& out, double value) {
    char text[32];
    const std::to_chars_result r = std::to_chars(text, text + sizeof text, value);
    out.append(text, r.ptr);
}

OutputFile::OutputFile(std::string path)
    : target(std::move(path)),
      buffer(new char[kBufferSize]),
      cursor(buffer.get()),
      limit(cursor + kBufferSize) {}

OutputFile::~OutputFile() {
    if (file && mode != Mode::kStandardOutput) std::fclose(file);
    if (!committed && !temporary.empty()) std::remove(temporary.c_str());
}

bool OutputFile::open(std::string& error) {
    if (isStandardOutput(target)) {
        mode = Mode::kStandardOutput;
        file = stdout;
        return true;
    }
    resolved = followLinks(target);
    const FileKind kind = fileKind(resolved);
    if (kind.exists && !kind.regular) {
        mode = Mode::kInPlace;
        file = std::fopen(resolved.c_str(), "wb");
    } else {
        // Same directory as the file, so that the final rename stays on one file system.
        const std::size_t slash = resolved.find_last_of(kPathSeparators);
        const std::string dir = slash == std::string::npos ? "" : resolved.substr(0, slash + 1);
        const std::string name = slash == std::string::npos ? resolved : resolved.substr(slash + 1);
        temporary = dir + "." + name + ".tmp" + std::to_string(processId());
        file = std::fopen(temporary.c_str(), "wb");
        if (!file) temporary.clear();  // nothing to remove
        // The replacement keeps the permissions of the file it replaces.
        if (file && kind.exists) copyPermissions(file, kind.permissions);
    }
    if (!file) {
        error = "cannot write '" + target + "': " + reason(errno);
        return false;
    }
    return true;
}

void OutputFile::flush() {
    const std::size_t size = std::size_t(cursor - buffer.get());
    if (file && size > 0 && !failed && std::fwrite(buffer.get(), 1, size, file) != size) {
        failed = true;
        writeErrno = errno;
    }
    cursor = buffer.get();
}

void OutputFile::writeLong(std::string_view text) {
    // Fill the buffer, then whole buffers at a time: the bytes go out in the same order.
    while (!text.empty()) {
        const std::size_t part = std::min(text.size(), std::size_t(limit - cursor));
        std::memcpy(cursor, text.data(), part);
        cursor += part;
        text.remove_prefix(part);
        if (cursor == limit) flush();
    }
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
    std::string why;
    if (mode == Mode::kReplace && !replaceFile(temporary, resolved, why)) {
        error = "cannot create '" + target + "': " + why;
        return false;
    }
    committed = true;
    return true;
}

}  // namespace rytri
