#include "commands/json_text.h"

#include <cstdio>

namespace zulconvert {

std::string jsonString(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        if (static_cast<unsigned char>(c) < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
            out += escaped;
            continue;
        }
        out += c;
    }
    return out + "\"";
}

}  // namespace zulconvert
