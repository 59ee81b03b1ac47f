// Output files that appear under their name only when complete: a regular file (or a new one) is
// written to a temporary file in its directory, which is renamed at the end; a symbolic link is
// followed, so its target is replaced and the link stays. A device, FIFO or other non-regular
// path is written in place, and "-" is standard output.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace rytri {

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
    /// Buffered append.
    void write(std::string_view text);
    /// Appends the shortest text that reads back as exactly `value`.
    void writeNumber(double value);
    void writeInteger(long long value);
    /// Flushes and closes the file (a temporary one is not yet visible under its name); false
    /// with a message when anything could not be written.
    bool close(std::string& error);
    /// Renames the closed temporary file to its name (nothing to do for a file written in place).
    bool commit(std::string& error);

    const std::string& path() const { return target; }
    static bool isStandardOutput(const std::string& path) { return path == "-"; }

private:
    enum class Mode { kReplace, kInPlace, kStandardOutput };
    void flush();

    std::string target;
    std::string resolved;  ///< the file written: the target of a symbolic link
    std::string temporary;
    Mode mode = Mode::kReplace;
    std::FILE* file = nullptr;
    std::string buffer;
    bool failed = false;
    int writeErrno = 0;
    bool committed = false;
};

/// Appends the shortest round-trip form of `value` to `out`.
void appendNumber(std::string& out, double value);

}  // namespace rytri
