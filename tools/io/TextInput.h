// Reading text inputs fast: the whole file in one buffer, lines cut with memchr, numbers parsed
// with std::from_chars. No stream per number.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace rytri {

/// Reads the whole file into `contents` ("-": standard input). On failure returns false and sets
/// `error` to a message naming the file and the system's reason.
bool readWholeFile(const std::string& path, std::string& contents, std::string& error);

/// Walks the data lines of a text: blank lines and `#` comments (to the end of the line) are
/// skipped, and a line number is kept for messages.
class LineCursor {
public:
    explicit LineCursor(std::string_view text) : text(text) {}

    /// Moves to the next line holding data; false at the end of the text.
    bool next();
    /// The current line, comment and trailing blanks removed.
    std::string_view line() const { return current; }
    /// 1-based number of the current line in the file (the last line when at the end).
    int lineNumber() const { return number; }
    /// True when a blank line (empty or only blanks; not a comment) came before the current one
    /// since the previous data line.
    bool afterBlank() const { return blank; }
    /// Bytes after the current line.
    long long bytesLeft() const { return static_cast<long long>(text.size() - offset); }

private:
    std::string_view text;
    std::size_t offset = 0;
    int number = 0;
    bool blank = false;
    std::string_view current;
};

/// Splits one line into fields separated by blanks, tabs, commas or semicolons.
class FieldReader {
public:
    explicit FieldReader(std::string_view line) : rest(line) {}

    /// True when no field is left.
    bool atEnd();
    /// The next field as raw text (empty at the end); does not consume it.
    std::string_view peek();
    /// Parses the next field as a finite double. On failure `what` is set to a short reason and
    /// the field is not consumed.
    bool number(double& value, std::string& what);
    /// Parses the next field as an integer (an optional sign, then digits).
    bool integer(long long& value, std::string& what);
    /// Skips one field.
    void skip();
    /// Number of fields left (counts without consuming).
    int remaining() const;

private:
    void skipSeparators();
    std::string_view rest;
};

/// "file:line: message".
std::string located(const std::string& path, int line, const std::string& message);

}  // namespace rytri
