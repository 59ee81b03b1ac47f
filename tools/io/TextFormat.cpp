#include "io/TextFormat.h"

#include <cstdio>

namespace rytri {

const char* roleName(ry::Role role) {
    switch (role) {
        case ry::Role::kBoundary:
            return "boundary";
        case ry::Role::kHole:
            return "hole";
        case ry::Role::kBreakline:
            return "breakline";
        default:
            return "edge";
    }
}

std::string formatNumber(double value, int digits) {
    char text[48];
    std::snprintf(text, sizeof text, "%.*g", digits, value);
    return text;
}

std::string escapeXml(std::string_view text, bool greater) {
    std::string out;
    for (char c : text) {
        if (c == '&') {
            out += "&amp;";
        } else if (c == '<') {
            out += "&lt;";
        } else if (c == '>' && greater) {
            out += "&gt;";
        } else if (c == '"') {
            out += "&quot;";
        } else {
            out += c;
        }
    }
    return out;
}

}  // namespace rytri
