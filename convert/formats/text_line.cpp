#include "formats/text_line.h"

#include <cstdlib>
#include <cstring>

#include "formats/text_numbers.h"
#include "formats/typed_values.h"

namespace zulformats {

bool TextLine::separator(char c) const {
    return c != '\0' && std::strchr(separators_, c) != nullptr;
}

bool TextLine::next(ByteInput& in) {
    for (;;) {
        if (!in.readLine(line_)) return false;
        tokens_.clear();
        for (const char* p = line_.c_str(); *p != '\0';) {
            while (separator(*p)) ++p;
            if (*p == '\0') break;
            tokens_.push_back(p);
            while (*p != '\0' && !separator(*p)) ++p;
        }
        if (!tokens_.empty()) return true;
    }
}

bool TextLine::number(size_t i, double& value) const {
    char* end = nullptr;
    value = std::strtod(tokens_[i], &end);
    return end != tokens_[i] && (*end == '\0' || separator(*end));
}

bool TextLine::typed(size_t i, char kind, int size, unsigned char* out) const {
    const char* end = tokens_[i];
    while (*end != '\0' && !separator(*end)) ++end;
    return parseTypedValue(tokens_[i], end, kind, size, out);
}

void appendPointLine(std::string& line, const zul_Point& point, const WriteOptions& options,
                     int decimals, char separator, bool packedColor) {
    for (int axis = 0; axis < 3; ++axis) {
        if (axis > 0) line += separator;
        appendFixed(line, point.position[axis], decimals);
    }
    if (options.color && packedColor) {
        line += separator;
        line += std::to_string(uint32_t{point.color[0]} << 16 | uint32_t{point.color[1]} << 8 |
                               point.color[2]);
    } else if (options.color) {
        for (int c = 0; c < 3; ++c) (line += separator) += std::to_string(point.color[c]);
    }
    if (options.intensity) (line += separator) += std::to_string(point.reflection);
    if (options.normals) {
        for (int c = 0; c < 3; ++c) {
            line += separator;
            appendFloat(line, point.normal[c]);
        }
    }
    line += '\n';
}

}  // namespace zulformats
