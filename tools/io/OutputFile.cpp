#include "io/OutputFile.h"

#include <cerrno>
#include <charconv>
#include <cstring>

#include "io/Platform.h"

namespace rytri {

namespace {

constexpr std::size_t kFlushSize = std::size_t(1) << 20;

}  // namespace

void appendNumber(std::string& out, double value) {
    char text[32];
    const std::to_chars_result r = std::to_chars(text, text + sizeof text, value);
    out.append(text, r.ptr);
}

OutputFile::OutputFile(std::string path) : target(std::move(path)) {
    // Same directory as the target, so that the final rename stays on one file system.
    const std::size_t slash = target.find_last_of(kPathSeparators);
    const std::string dir = slash == std::string::npos ? "" : target.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? target : target.substr(slash + 1);
    temporary = dir + "." + name + ".tmp" + std::to_string(processId());
}

OutputFile::~OutputFile() {
    if (file) std::fclose(file);
    if (!committed && !temporary.empty()) std::remove(temporary.c_str());
}

bool OutputFile::open(std::string& error) {
    file = std::fopen(temporary.c_str(), "wb");
    if (!file) {
        error = "cannot write '" + target + "': " + std::strerror(errno);
        temporary.clear();  // nothing to remove
        return false;
    }
    buffer.reserve(kFlushSize + 4096);
    return true;
}

void OutputFile::flush() {
    if (file && !buffer.empty() &&
        std::fwrite(buffer.data(), 1, buffer.size(), file) != buffer.size()) {
        failed = true;
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
    const int writeErrno = errno;
    if (file && std::fclose(file) != 0) failed = true;
    file = nullptr;
    if (failed) {
        error = "cannot write '" + target + "': " + std::strerror(writeErrno ? writeErrno : EIO);
        return false;
    }
    return true;
}

bool OutputFile::commit(std::string& error) {
    std::string reason;
    if (!replaceFile(temporary, target, reason)) {
        error = "cannot create '" + target + "': " + reason;
        return false;
    }
    committed = true;
    return true;
}

}  // namespace rytri
