// Output files that appear under their name only when complete: everything is written to a
// temporary file in the same directory, which is renamed at the end.
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

    /// Creates the temporary file; false with a message naming the target on failure.
    bool open(std::string& error);
    /// Buffered append.
    void write(std::string_view text);
    /// Appends the shortest text that reads back as exactly `value`.
    void writeNumber(double value);
    void writeInteger(long long value);
    /// Flushes and closes the temporary file (not yet visible under its name).
    bool close(std::string& error);
    /// Renames the closed temporary file to its name.
    bool commit(std::string& error);

    const std::string& path() const { return target; }

private:
    void flush();

    std::string target;
    std::string temporary;
    std::FILE* file = nullptr;
    std::string buffer;
    bool failed = false;
    bool committed = false;
};

/// Appends the shortest round-trip form of `value` to `out`.
void appendNumber(std::string& out, double value);

}  // namespace rytri
