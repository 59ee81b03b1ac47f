// Reading text inputs fast: the whole file in one buffer, lines cut with memchr, numbers parsed
// with std::from_chars. No stream per number.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "io/Platform.h"

namespace rytri {

/// The text of a whole input file: mapped where the system can, else read into memory.
class FileText {
public:
    std::string_view view() const { return mapped.text().empty() ? copy : mapped.text(); }

private:
    friend bool readWholeFile(const std::string&, FileText&, std::string&);
    MappedFile mapped;
    std::string copy;
};

/// Reads the whole file ("-": standard input). On failure returns false and sets `error` to a
/// message naming the file and the system's reason.
bool readWholeFile(const std::string& path, FileText& text, std::string& error);

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
    /// The text after the current line.
    std::string_view rest() const { return text.substr(offset); }
    /// Moves past the first `bytes` of rest(), which hold `count` whole data lines that the
    /// caller has read itself.
    void skipLines(std::size_t bytes, int count) {
        offset += bytes;
        number += count;
        blank = false;
        current = {};
    }

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

/// Reads one line of two or three numbers at `begin` (up to its newline or `end`) the quick way:
/// returns the start of the next line, or nullptr when the line is anything else (blank, a
/// comment, another count of fields, a field that is no finite number), which FieldReader then
/// reads. Where it reads a line, it gives the values FieldReader gives.
const char* readPlainNumbers(const char* begin, const char* end, double xyz[3], bool& hasZ);

/// "file:line: message".
std::string located(const std::string& path, int line, const std::string& message);

}  // namespace rytri
