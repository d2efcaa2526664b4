// Wide paths to UTF-8, without the locale: the result is the same in every process.
#include "file/wide_path.h"

#include <cstdint>

namespace zullib {

namespace {

const uint32_t kMaxCodePoint = 0x10FFFF;

// A wide character here is one code point (UTF-32).
static_assert(sizeof(wchar_t) == 4, "wide paths are UTF-32 on the platforms zul builds for");

bool isSurrogate(uint32_t c) { return c >= 0xD800 && c <= 0xDFFF; }

void appendUtf8(std::string& out, uint32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

}  // namespace

std::string utf8Path(const wchar_t* path) {
    std::string out;
    for (const wchar_t* p = path; *p; ++p) {
        const uint32_t c = static_cast<uint32_t>(*p);
        if (isSurrogate(c) || c > kMaxCodePoint) return std::string();
        appendUtf8(out, c);
    }
    return out;
}

}  // namespace zullib
