#include "io/TextInput.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace rytri {

bool readWholeFile(const std::string& path, FileText& text, std::string& error) {
    const bool standardInput = path == "-";
    if (!standardInput && text.mapped.map(path)) return true;
    std::string& contents = text.copy;
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

/// Eight ASCII digits at p (little-endian order of the bytes), or false.
bool eightDigits(const char* p, std::uint64_t& value) {
    std::uint64_t v;
    std::memcpy(&v, p, 8);
    if (((v & 0xF0F0F0F0F0F0F0F0) | (((v + 0x0606060606060606) & 0xF0F0F0F0F0F0F0F0) >> 4)) !=
        0x3333333333333333) {
        return false;
    }
    // Pairs, then fours, then all eight, each step combining neighbours in place.
    v -= 0x3030303030303030;
    v = v * 10 + (v >> 8);
    v = (((v & 0x000000FF000000FF) * (100 + (1000000ULL << 32))) +
         (((v >> 16) & 0x000000FF000000FF) * (1 + (10000ULL << 32)))) >>
        32;
    value = v;
    return true;
}

/// Appends the digits at q (at most 20 in all) to m; eight at a time where they come so.
void readDigits(const char*& q, const char* end, std::uint64_t& m, int& digits) {
    std::uint64_t eight;
    while (end - q >= 8 && digits <= 12 && eightDigits(q, eight)) {
        m = 100000000 * m + eight;
        q += 8;
        digits += 8;
    }
    for (; q != end && unsigned(*q - '0') < 10 && digits < 20; ++q, ++digits) {
        m = 10 * m + unsigned(*q - '0');
    }
}

/// Parses `[-]digits[.digits]` of at most 19 digits at p and moves p past it; false (p kept)
/// for any other form or when the result might be inexact. The digits form an integer m up to
/// 2^53 and the point divides by 10^k with k <= 22: both are exact doubles, so the one division
/// rounds correctly, as std::from_chars does (Clinger's fast path).
bool parseDecimal(const char*& p, const char* end, double& value) {
    static constexpr double kPower[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                        1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                        1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    const char* q = p;
    const bool negative = q != end && *q == '-';
    q += negative ? 1 : 0;
    std::uint64_t m = 0;
    int digits = 0;
    readDigits(q, end, m, digits);
    if (digits == 0) return false;
    int places = 0;
    if (q != end && *q == '.') {
        const char* point = q++;
        readDigits(q, end, m, digits);
        places = int(q - point) - 1;
        if (places == 0) return false;
    }
    if (digits > 19 || m > (std::uint64_t(1) << 53)) return false;
    const double magnitude = double(m) / kPower[places];
    value = negative ? -magnitude : magnitude;
    p = q;
    return true;
}

/// Whether c ends a field of a plain line.
bool endsField(const char* p, const char* end) {
    return p == end || *p == '\n' || isSeparator(*p);
}

constexpr std::uint64_t kZeros = 0x3030303030303030;
constexpr std::uint64_t kHighBits = 0x8080808080808080;

std::uint64_t load8(const char* p) {
    std::uint64_t v;
    std::memcpy(&v, p, 8);
    return v;
}

/// The high bit of each byte of x (a text word minus '0' bytewise, by xor) that held no digit.
std::uint64_t nonDigits(std::uint64_t x) {
    return (((x & 0x7F7F7F7F7F7F7F7F) + 0x7676767676767676) | x) & kHighBits;
}

/// Number of digits at the start of the word whose non-digit marks are `marks` (8 when none).
int leadingDigits(std::uint64_t marks) {
    return marks ? __builtin_ctzll(marks) >> 3 : 8;
}

/// The value of the first n (1..8) digits of x, a text word minus '0' bytewise: shifted up so
/// that the digits fill the top bytes behind zeros, then combined as in eightDigits.
std::uint64_t firstDigits(std::uint64_t x, int n) {
    std::uint64_t v = x << (8 * (8 - n));
    v = v * 10 + (v >> 8);
    return (((v & 0x000000FF000000FF) * (100 + (1000000ULL << 32))) +
            (((v >> 16) & 0x000000FF000000FF) * (1 + (10000ULL << 32)))) >>
           32;
}

constexpr std::uint64_t kTens[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000};

/// The quick path's number at p: `[-]d+[.d+]` of at most 15 digits in all, the integer part
/// under eight. Returns the end of the number, or nullptr for any other form (the general path
/// reads it then). Reads at most 18 bytes from p: the caller keeps them readable.
const char* quickNumber(const char* p, double& value) {
    static constexpr double kPower[] = {
        1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15, 1e16};
    // Words both at p and past a sign, chosen once the sign is known: no load waits for it.
    const std::uint64_t w0 = load8(p), w1 = load8(p + 1), w2 = load8(p + 2);
    const bool negative = (w0 & 0xFF) == '-';
    const char* q = p + (negative ? 1 : 0);
    const std::uint64_t a = (negative ? w1 : w0) ^ kZeros;
    const int whole = leadingDigits(nonDigits(a));
    if (whole == 0 || whole == 8) return nullptr;
    if (((a >> (8 * whole)) & 0xFF) != ('.' ^ '0')) {
        const double magnitude = double(std::int64_t(firstDigits(a, whole)));
        value = negative ? -magnitude : magnitude;
        return q + whole;
    }
    // The digits without the point, eight in a word: the integer part's from `a`, then those
    // after the point from the word one byte further on.
    const std::uint64_t low = (std::uint64_t(1) << (8 * whole)) - 1;
    const std::uint64_t first = (a & low) | (((negative ? w2 : w1) ^ kZeros) & ~low);
    const std::uint64_t second = load8(q + 9) ^ kZeros;
    const int firstCount = leadingDigits(nonDigits(first));
    const int digits = firstCount < 8 ? firstCount : 8 + leadingDigits(nonDigits(second));
    if (digits == whole || digits > 15) return nullptr;
    std::uint64_t m = firstDigits(first, firstCount);
    if (digits > 8) m = m * kTens[digits - 8] + firstDigits(second, digits - 8);
    // Under 10^15 < 2^53 both m and 10^places are exact doubles: one correctly rounded division.
    const double magnitude = double(std::int64_t(m)) / kPower[digits - whole];
    value = negative ? -magnitude : magnitude;
    return q + digits + 1;
}

/// A plain line of two or three quick numbers, one blank or tab between them, ending in a line
/// break (`\n` or `\r\n`), at least 64 bytes before `end`; else nullptr. The line reads no
/// more than 3 * 19 bytes (a number its 18, and one byte after its end).
const char* quickLine(const char* p, const char* end, double xyz[3], bool& hasZ) {
    if (end - p < 64) return nullptr;
    for (int count = 0; count < 3; ++count) {
        p = quickNumber(p, xyz[count]);
        if (!p) return nullptr;
        const char c = *p;
        if (c == ' ' || c == '\t') {
            ++p;
            continue;
        }
        if (count == 0) return nullptr;
        hasZ = count == 2;
        if (c == '\n') return p + 1;
        return c == '\r' && p[1] == '\n' ? p + 2 : nullptr;
    }
    return nullptr;
}

}  // namespace

const char* readPlainNumbers(const char* begin, const char* end, double xyz[3], bool& hasZ) {
    if (const char* next = quickLine(begin, end, xyz, hasZ)) return next;
    const char* p = begin;
    int count = 0;
    for (;;) {
        while (p != end && isSeparator(*p)) ++p;
        if (p == end || *p == '\n') break;
        if (count == 3) return nullptr;
        if (!parseDecimal(p, end, xyz[count]) || !endsField(p, end)) {
            // Any other form of number: std::from_chars over the field, as FieldReader reads it.
            const char* field = p;
            while (!endsField(p, end)) ++p;
            if (field != p && *field == '+') ++field;
            const std::from_chars_result r = std::from_chars(field, p, xyz[count]);
            if (r.ec != std::errc() || r.ptr != p || !std::isfinite(xyz[count])) return nullptr;
        }
        ++count;
    }
    if (count < 2) return nullptr;
    hasZ = count == 3;
    return p == end ? p : p + 1;
}

namespace {

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
    const char* decimal = start;
    if (parseDecimal(decimal, textEnd, value) && (decimal == textEnd || isSeparator(*decimal))) {
        rest.remove_prefix(std::size_t(decimal - text));
        return true;
    }
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
