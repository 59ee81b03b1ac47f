#include "io/OutputFile.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "io/Platform.h"

namespace rytri {

namespace {

constexpr std::size_t kBufferSize = std::size_t(1) << 20;

std::string reason(int error) {
    return std::strerror(error ? error : EIO);
}

}  // namespace

namespace {

constexpr std::uint64_t kPowers[] = {1,
                                     10,
                                     100,
                                     1000,
                                     10000,
                                     100000,
                                     1000000,
                                     10000000,
                                     100000000,
                                     1000000000,
                                     10000000000,
                                     100000000000,
                                     1000000000000,
                                     10000000000000,
                                     100000000000000,
                                     1000000000000000,
                                     10000000000000000,
                                     100000000000000000,
                                     1000000000000000000,
                                     10000000000000000000u};

/// Decimal digits of x (1 for 0).
int digitCount(std::uint64_t x) {
#if defined(__GNUC__)
    // floor(log10) from the bit length (1233 / 4096 just above log10(2)), corrected once.
    const int t = ((64 - __builtin_clzll(x | 1)) * 1233) >> 12;
    return t + 1 - ((x | 1) < kPowers[t] ? 1 : 0);
#else
    int n = 1;
    while (n < 20 && x >= kPowers[n]) ++n;
    return n;
#endif
}

/// Writes the last `count` decimal digits of x (leading zeros included) at `at`, two at a time;
/// returns the digits left, x / 10^count.
std::uint64_t writeDigits(char* at, std::uint64_t x, int count) {
    static constexpr char kPairs[] =
        "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
        "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
        "8081828384858687888990919293949596979899";
    char* end = at + count;
    for (; count >= 2; count -= 2, x /= 100) {
        end -= 2;
        std::memcpy(end, kPairs + 2 * (x % 100), 2);
    }
    if (count > 0) {
        *--end = char('0' + x % 10);
        x /= 10;
    }
    return x;
}

}  // namespace

// std::to_chars finds the shortest digits that read back as the value (about 50 ns a number
// here; a mesh of 1e6 points has 3e6 of them). Coordinates mostly have few decimal places, and
// for those the shortest digits come cheaper: with |value| * 10^p below 2^52, a double's spacing
// there is below 10^-p, so at most one decimal of p places reads back as the value; when
// n / 10^p (n the scaled value rounded, both exact doubles, the division correctly rounded as a
// reader rounds the text) is the value, n's digits without its trailing zeros are the shortest
// ones. std::to_chars then writes them in fixed notation unless the exponent form is shorter (on
// a tie fixed), which is decided the same way here; anything else is left to std::to_chars. So
// the text is std::to_chars's, character for character.
char* writeShortest(char* at, double value) {
    static constexpr double kScale[] = {1e9, 1e6, 1e3};
    static constexpr int kPlaces[] = {9, 6, 3};
    const double magnitude = std::fabs(value);
    for (int i = 0; i < 3; ++i) {
        const double scaled = magnitude * kScale[i];
        if (!(scaled < 0x1p52)) continue;  // NaN too
        // Any integer near will do: the division below decides. (Signed conversions: one
        // instruction each way, and n < 2^52.)
        const std::int64_t near = std::int64_t(scaled + 0.5);
        if (double(near) / kScale[i] != magnitude || near == 0) break;
        std::uint64_t n = std::uint64_t(near);
        int places = kPlaces[i];
        for (; places >= 3 && n % 1000 == 0; places -= 3) n /= 1000;
        for (; places > 0 && n % 10 == 0; --places) n /= 10;
        // n's digits are the significant ones but for an integer's trailing zeros; the point
        // goes `places` from the right, with zeros before them when n is shorter.
        const int digits = digitCount(n);
        const int wholeDigits = digits > places ? digits - places : 1;
        int significant = digits;
        if (places == 0) {
            for (std::uint64_t w = n; w % 10 == 0; w /= 10) --significant;
        }
        // The exponent here (digits - places - 1) has two digits at most: "e+NN" or "e-NN".
        const int fixedLength = wholeDigits + (places > 0 ? places + 1 : 0);
        const int exponentLength = significant + (significant > 1 ? 1 : 0) + 4;
        if (exponentLength < fixedLength) break;
        if (std::signbit(value)) *at++ = '-';
        if (places == 0) {
            writeDigits(at, n, wholeDigits);
            return at + wholeDigits;
        }
        // The fraction's digits first: what is left of n is the whole part.
        writeDigits(at, writeDigits(at + wholeDigits + 1, n, places), wholeDigits);
        at[wholeDigits] = '.';
        return at + wholeDigits + 1 + places;
    }
    return std::to_chars(at, at + 32, value).ptr;
}

void appendNumber(std::string& out, double value) {
    char text[32];
    out.append(text, writeShortest(text, value));
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
    // A block formatted apart goes to the file as it is, after what is buffered.
    if (text.size() >= kBufferSize / 2) {
        flush();
        if (file && !failed && std::fwrite(text.data(), 1, text.size(), file) != text.size()) {
            failed = true;
            writeErrno = errno;
        }
        return;
    }
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
