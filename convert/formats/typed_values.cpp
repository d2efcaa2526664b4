#include "formats/typed_values.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace zulformats {

namespace {

template <typename T>
void storeValue(unsigned char* out, T value) {
    std::memcpy(out, &value, sizeof value);
}

template <typename T>
T loadValue(const unsigned char* in) {
    T value;
    std::memcpy(&value, in, sizeof value);
    return value;
}

template <typename T>
bool parseInteger(const char* begin, const char* end, unsigned char* out) {
    if (begin != end && *begin == '+') ++begin;
    T value = 0;
    const std::from_chars_result result = std::from_chars(begin, end, value);
    if (result.ec == std::errc() && result.ptr == end) {
        storeValue(out, value);
        return true;
    }
    // "3.0" or "1e3" of a writer that prints every value as a float: a whole number in range.
    double wide = 0;
    const std::from_chars_result asFloat = std::from_chars(begin, end, wide);
    if (asFloat.ec != std::errc() || asFloat.ptr != end || wide != std::floor(wide) ||
        !(wide >= static_cast<double>(std::numeric_limits<T>::min())) ||
        !(wide <= static_cast<double>(std::numeric_limits<T>::max())) ||
        std::fabs(wide) > 9007199254740992.0) {
        return false;
    }
    storeValue(out, static_cast<T>(wide));
    return true;
}

template <typename T>
bool parseFloat(const char* begin, const char* end, unsigned char* out) {
    if (begin != end && *begin == '+') ++begin;
    T value = 0;
    const std::from_chars_result result = std::from_chars(begin, end, value);
    // Out of range (ec set) is refused rather than taken as infinity.
    if (result.ec != std::errc() || result.ptr != end) return false;
    storeValue(out, value);
    return true;
}

template <typename T>
void appendInteger(std::string& text, const unsigned char* value) {
    text += std::to_string(loadValue<T>(value));
}

template <typename T>
void appendFloating(std::string& text, const unsigned char* value) {
    const T v = loadValue<T>(value);
    if (std::isnan(v)) {
        text += "nan";
        return;
    }
    char buffer[64];
    const std::to_chars_result result = std::to_chars(buffer, buffer + sizeof buffer, v);
    text.append(buffer, result.ptr);
}

}  // namespace

bool parseTypedValue(const char* begin, const char* end, char kind, int size, unsigned char* out) {
    switch (kind == 'f' ? size : kind == 'u' ? 10 + size : 20 + size) {
        case 4:
            return parseFloat<float>(begin, end, out);
        case 8:
            return parseFloat<double>(begin, end, out);
        case 11:
            return parseInteger<uint8_t>(begin, end, out);
        case 12:
            return parseInteger<uint16_t>(begin, end, out);
        case 14:
            return parseInteger<uint32_t>(begin, end, out);
        case 18:
            return parseInteger<uint64_t>(begin, end, out);
        case 21:
            return parseInteger<int8_t>(begin, end, out);
        case 22:
            return parseInteger<int16_t>(begin, end, out);
        case 24:
            return parseInteger<int32_t>(begin, end, out);
        case 28:
            return parseInteger<int64_t>(begin, end, out);
        default:
            return false;
    }
}

void appendTypedValue(std::string& text, char kind, int size, const unsigned char* value) {
    switch (kind == 'f' ? size : kind == 'u' ? 10 + size : 20 + size) {
        case 4:
            return appendFloating<float>(text, value);
        case 8:
            return appendFloating<double>(text, value);
        case 11:
            return appendInteger<uint8_t>(text, value);
        case 12:
            return appendInteger<uint16_t>(text, value);
        case 14:
            return appendInteger<uint32_t>(text, value);
        case 18:
            return appendInteger<uint64_t>(text, value);
        case 21:
            return appendInteger<int8_t>(text, value);
        case 22:
            return appendInteger<int16_t>(text, value);
        case 24:
            return appendInteger<int32_t>(text, value);
        case 28:
            return appendInteger<int64_t>(text, value);
        default:
            break;
    }
}

void reverseBytes(unsigned char* value, int size) { std::reverse(value, value + size); }

}  // namespace zulformats
