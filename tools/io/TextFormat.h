// Small pieces of text that several writers and the report share.
#pragma once

#include <string>
#include <string_view>

#include "RySurface.h"
#include "io/OutputFile.h"

namespace rytri {

/// "boundary", "hole", "breakline" or "edge".
const char* roleName(ry::Role role);

/// `value` as printf's "%.*g" writes it with `digits` significant digits.
std::string formatNumber(double value, int digits = 6);

/// `text` with &, <, " (and > when `greater`) as XML entities.
std::string escapeXml(std::string_view text, bool greater = true);

/// Three numbers in their shortest round-trip text, `between` between them.
/// (Inline: it writes every vertex of a large mesh.)
template <class Text>
inline void writeTriple(Text& out, double a, double b, double c, std::string_view between) {
    out.writeNumber(a);
    out.write(between);
    out.writeNumber(b);
    out.write(between);
    out.writeNumber(c);
}

}  // namespace rytri
