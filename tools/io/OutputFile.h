// Output files that appear under their name only when complete: a regular file (or a new one) is
// written to a temporary file in its directory, which is renamed at the end; a symbolic link is
// followed, so its target is replaced and the link stays. A device, FIFO or other non-regular
// path is written in place, and "-" is standard output.
#pragma once

#include <charconv>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

namespace rytri {

/// Writes at `at` the shortest text that reads back as exactly `value`, as std::to_chars does
/// (at most 24 characters); returns its end.
char* writeShortest(char* at, double value);

/// Text formatted apart from the file (on another thread), then appended whole. The caller
/// keeps within its capacity: each write assumes the room is there.
class TextBlock {
public:
    explicit TextBlock(std::size_t capacity)
        : buffer(new char[capacity]), cursor(buffer.get()), limit(cursor + capacity) {}
    void write(std::string_view text) {
        std::memcpy(cursor, text.data(), text.size());
        cursor += text.size();
    }
    void writeNumber(double value) { cursor = writeShortest(cursor, value); }
    void writeInteger(long long value) { cursor = std::to_chars(cursor, limit, value).ptr; }
    std::string_view text() const {
        return std::string_view(buffer.get(), std::size_t(cursor - buffer.get()));
    }
    void clear() { cursor = buffer.get(); }

private:
    std::unique_ptr<char[]> buffer;
    char* cursor;
    char* limit;
};

class OutputFile {
public:
    explicit OutputFile(std::string path);
    /// Removes the temporary file unless committed.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Creates the temporary file (or opens the path in place); false with a message naming the
    /// target on failure.
    bool open(std::string& error);
    /// Buffered append. Numbers are formatted straight into the buffer (these run millions of
    /// times for a large mesh).
    void write(std::string_view text) {
        if (text.size() > std::size_t(limit - cursor)) return writeLong(text);
        std::memcpy(cursor, text.data(), text.size());
        cursor += text.size();
    }
    /// Appends the shortest text that reads back as exactly `value`.
    void writeNumber(double value) {
        if (limit - cursor < kNumberRoom) flush();
        cursor = writeShortest(cursor, value);
    }
    void writeInteger(long long value) {
        if (limit - cursor < kNumberRoom) flush();
        cursor = std::to_chars(cursor, limit, value).ptr;
    }
    /// Flushes and closes the file (a temporary one is not yet visible under its name); false
    /// with a message when anything could not be written.
    bool close(std::string& error);
    /// Renames the closed temporary file to its name (nothing to do for a file written in place).
    bool commit(std::string& error);

    const std::string& path() const { return target; }
    static bool isStandardOutput(const std::string& path) { return path == "-"; }

private:
    enum class Mode { kReplace, kInPlace, kStandardOutput };
    /// Room for any number's text (a double's shortest form takes at most 24 characters).
    static constexpr std::ptrdiff_t kNumberRoom = 32;
    void flush();
    void writeLong(std::string_view text);

    std::string target;
    std::string resolved;  ///< the file written: the target of a symbolic link
    std::string temporary;
    Mode mode = Mode::kReplace;
    std::FILE* file = nullptr;
    std::unique_ptr<char[]> buffer;
    char* cursor = nullptr;  ///< the end of what is buffered
    char* limit = nullptr;   ///< the end of the buffer
    bool failed = false;
    int writeErrno = 0;
    bool committed = false;
};

/// Appends the shortest round-trip form of `value` to `out`.
void appendNumber(std::string& out, double value);

}  // namespace rytri
