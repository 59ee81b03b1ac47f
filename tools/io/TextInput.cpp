#include "io/TextInput.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace rytri {

bool readWholeFile(const std::string& path, std::string& contents, std::string& error) {
    const bool standardInput = path == "-";
    std::FILE* file = standardInput ? stdin : std::fopen(path.c_str(), "rb");
    if (!file) {
        error = "cannot open '" + path + "': " + std::strerror(errno);
        return false;
    }
    // One read of the whole size: a file of 1e6 points is some 30 MB, read in one go.
    contents.clear();
    bool ok = !standardInput && std::fseek(file, 0, SEEK_END) == 0;
    const long size = ok ? std::ftell(file) : -1;
    if (ok && size >= 0 && std::fseek(file, 0, SEEK_SET) == 0) {
        contents.resize(std::size_t(size));
        const std::size_t got = size > 0 ? std::fread(&contents[0], 1, contents.size(), file) : 0;
        ok = got == contents.size();
    } else {
        // Not seekable (a pipe): read in chunks.
        char buffer[1 << 16];
        std::size_t got;
        while ((got = std::fread(buffer, 1, sizeof buffer, file)) > 0) contents.append(buffer, got);
        ok = true;
    }
    if (std::ferror(file)) ok = false;
    const int savedErrno = errno;
    if (!standardInput) std::fclose(file);
    if (!ok) {
        error = "cannot read '" + path + "': " + std::strerror(savedErrno ? savedErrno : EIO);
        return false;
    }
    return true;
}

bool LineCursor::next() {
    blank = false;
    while (offset < text.size()) {
        const char* begin = text.data() + offset;
        const std::size_t left = text.size() - offset;
        const void* newline = std::memchr(begin, '\n', left);
        const std::size_t length =
            newline ? std::size_t(static_cast<const char*>(newline) - begin) : left;
        offset += length + (newline ? 1 : 0);
        ++number;
        std::string_view line(begin, length);
        if (line.find_first_not_of(" \t\r") == std::string_view::npos) blank = true;
        const std::size_t hash = line.find('#');
        if (hash != std::string_view::npos) line = line.substr(0, hash);
        while (!line.empty() && (line.back() == ' ' || line.back() == '\t' || line.back() == '\r' ||
                                 line.back() == ',' || line.back() == ';')) {
            line.remove_suffix(1);
        }
        std::size_t first = 0;
        while (first < line.size() && (line[first] == ' ' || line[first] == '\t')) ++first;
        line = line.substr(first);
        if (!line.empty()) {
            current = line;
            return true;
        }
    }
    current = {};
    return false;
}

namespace {

bool isSeparator(char c) {
    return c == ' ' || c == '\t' || c == ',' || c == ';' || c == '\r' || c == '\v' || c == '\f';
}

/// A field as shown in a message: quoted, at most 32 characters, control and non-ASCII bytes as
/// '?', so a binary file gives a readable line.
std::string quoted(std::string_view field) {
    std::string out = "'";
    for (std::size_t i = 0; i < field.size() && i < 32; ++i) {
        const unsigned char c = static_cast<unsigned char>(field[i]);
        out += c >= 0x20 && c < 0x7f ? char(c) : '?';
    }
    if (field.size() > 32) out += "...";
    return out + "'";
}

}  // namespace

void FieldReader::skipSeparators() {
    std::size_t i = 0;
    while (i < rest.size() && isSeparator(rest[i])) ++i;
    rest.remove_prefix(i);
}

bool FieldReader::atEnd() {
    skipSeparators();
    return rest.empty();
}

std::string_view FieldReader::peek() {
    skipSeparators();
    std::size_t i = 0;
    while (i < rest.size() && !isSeparator(rest[i])) ++i;
    return rest.substr(0, i);
}

void FieldReader::skip() {
    rest.remove_prefix(peek().size());
}

int FieldReader::remaining() const {
    FieldReader copy = *this;
    int count = 0;
    while (!copy.atEnd()) {
        copy.skip();
        ++count;
    }
    return count;
}

bool FieldReader::number(double& value, std::string& what) {
    // One pass for a well-formed number: the parse stops where the field ends (no separator can
    // be part of a number), so it takes exactly what the field-by-field way below accepts.
    skipSeparators();
    const char* const text = rest.data();
    const char* const textEnd = text + rest.size();
    const char* const start = text != textEnd && *text == '+' ? text + 1 : text;
    const std::from_chars_result fast = std::from_chars(start, textEnd, value);
    if (fast.ec == std::errc() && (fast.ptr == textEnd || isSeparator(*fast.ptr)) &&
        std::isfinite(value)) {
        rest.remove_prefix(std::size_t(fast.ptr - text));
        return true;
    }
    // Anything else again field by field, for the message.
    std::string_view field = peek();
    if (field.empty()) {
        what = "a number is missing";
        return false;
    }
    std::string_view digits = field;
    if (digits.front() == '+') digits.remove_prefix(1);
    const char* end = digits.data() + digits.size();
    const std::from_chars_result r = std::from_chars(digits.data(), end, value);
    if (r.ec == std::errc::result_out_of_range) {
        what = quoted(field) + " is out of the range of a double";
        return false;
    }
    if (r.ec != std::errc() || r.ptr != end) {
        what = quoted(field) + " is not a number";
        return false;
    }
    if (!std::isfinite(value)) {
        what = quoted(field) + " is not a finite number";
        return false;
    }
    rest.remove_prefix(field.size());
    return true;
}

bool FieldReader::integer(long long& value, std::string& what) {
    std::string_view field = peek();
    if (field.empty()) {
        what = "an index is missing";
        return false;
    }
    std::string_view digits = field;
    if (digits.front() == '+') digits.remove_prefix(1);
    const char* end = digits.data() + digits.size();
    const std::from_chars_result r = std::from_chars(digits.data(), end, value);
    if (r.ec != std::errc() || r.ptr != end) {
        what = quoted(field) + " is not an integer";
        return false;
    }
    rest.remove_prefix(field.size());
    return true;
}

std::string located(const std::string& path, int line, const std::string& message) {
    return (path == "-" ? std::string("standard input") : path) + ":" + std::to_string(line) +
           ": " + message;
}

}  // namespace rytri
