#include "io/Columns.h"

#include <algorithm>
#include <cctype>

#include "io/TextInput.h"

namespace rytri {

namespace {

/// Field letter for a header name, or '-' when the name is not one we know.
char letterOf(std::string_view name) {
    std::string key;
    for (char c : name) {
        if (std::isalnum(static_cast<unsigned char>(c))) {
            key += char(std::tolower(static_cast<unsigned char>(c)));
        }
    }
    static const struct {
        const char* names;
        char letter;
    } kNames[] = {
        {" p pt pnt point pointid pointno pointnumber id name number no num station ", 'P'},
        {" n north northing y lat latitude ", 'N'},
        {" e east easting x lon long longitude ", 'E'},
        {" z elev elevation height h rl level alt altitude ", 'Z'},
        {" d desc description code descriptor note notes remark remarks feature ", 'D'},
    };
    for (const auto& entry : kNames) {
        if (!key.empty() && std::string(entry.names).find(" " + key + " ") != std::string::npos) {
            return entry.letter;
        }
    }
    return '-';
}

bool validLayout(const std::string& fields, std::string& error) {
    for (char c : std::string("PNEZD")) {
        const auto count = std::count(fields.begin(), fields.end(), c);
        if (count > 1) {
            error = std::string("column ") + c + " appears twice";
            return false;
        }
        if ((c == 'N' || c == 'E') && count == 0) {
            error = "the columns must include E (easting, x) and N (northing, y)";
            return false;
        }
    }
    return true;
}

}  // namespace

bool parseColumns(std::string_view text, ColumnLayout& layout, std::string& error) {
    layout.fields.clear();
    for (char c : text) {
        c = char(std::toupper(static_cast<unsigned char>(c)));
        if (c == 'X') c = 'E';
        if (c == 'Y') c = 'N';
        if (std::string("PNEZD-").find(c) == std::string::npos) {
            error = std::string("unknown column letter '") + c + "' (use P, N, E, Z, D, X, Y or -)";
            return false;
        }
        layout.fields += c;
    }
    return validLayout(layout.fields, error);
}

bool headerColumns(std::string_view line, ColumnLayout& layout) {
    FieldReader fields(line);
    std::string letters;
    while (!fields.atEnd()) {
        const char c = letterOf(fields.peek());
        letters += letters.find(c) != std::string::npos && c != '-' ? '-' : c;
        fields.skip();
    }
    std::string error;
    if (!validLayout(letters, error)) return false;
    layout.fields = letters;
    return true;
}

bool parsePointLine(std::string_view line,
                    const ColumnLayout& layout,
                    PointFields& out,
                    std::string& error) {
    FieldReader fields(line);
    std::string what;
    out.hasZ = false;
    if (layout.plain()) {
        // Two or three numbers and nothing else, in one pass; any other line goes the way below,
        // which counts the fields first and names what is wrong.
        FieldReader fast(line);
        if (fast.number(out.x, what) && fast.number(out.y, what)) {
            out.hasZ = !fast.atEnd();
            if ((!out.hasZ || fast.number(out.z, what)) && fast.atEnd()) return true;
        }
        out.hasZ = false;
        const int count = fields.remaining();
        if (count > 3) {
            error = std::to_string(count) +
                    " fields where 'x y [z]' has at most 3: name the columns with --columns "
                    "(for example PNEZD) or a header line";
            return false;
        }
        out.hasZ = count == 3;
        if (!fields.number(out.x, what) || !fields.number(out.y, what) ||
            (out.hasZ && !fields.number(out.z, what))) {
            error = "expected 'x y [z]': " + what;
            return false;
        }
        return true;
    }
    bool hasX = false, hasY = false;
    for (char c : layout.fields) {
        if (fields.atEnd()) break;
        double* target = c == 'E' ? &out.x : c == 'N' ? &out.y : c == 'Z' ? &out.z : nullptr;
        if (c == 'P') out.id = fields.peek();
        if (c == 'D') break;  // the description runs to the end of the line
        if (!target) {
            fields.skip();
            continue;
        }
        if (!fields.number(*target, what)) {
            error = "expected columns " + layout.fields + ": " + what;
            return false;
        }
        (c == 'E' ? hasX : c == 'N' ? hasY : out.hasZ) = true;
    }
    if (!hasX || !hasY) {
        error = "expected columns " + layout.fields + ": the easting or northing is missing";
        return false;
    }
    return true;
}

}  // namespace rytri
