// Wide paths to UTF-8, without the locale: the result is the same in every process.
#include "file/wide_path.h"

#include <cstdint>

namespace zullib {

namespace {

const uint32_t kMaxCodePoint = 0x10FFFF;

bool isHighSurrogate(uint32_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool isLowSurrogate(uint32_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

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
        uint32_t c = static_cast<uint32_t>(*p);
        if (sizeof(wchar_t) == 2) c &= 0xFFFF;
        if (sizeof(wchar_t) == 2 && isHighSurrogate(c) && isLowSurrogate(p[1] & 0xFFFF)) {
            c = 0x10000 + ((c - 0xD800) << 10) + ((static_cast<uint32_t>(p[1]) & 0xFFFF) - 0xDC00);
            ++p;
        } else if (isHighSurrogate(c) || isLowSurrogate(c) || c > kMaxCodePoint) {
            return std::string();
        }
        appendUtf8(out, c);
    }
    return out;
}

}  // namespace zullib
