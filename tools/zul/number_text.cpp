#include "number_text.h"

#include <algorithm>
#include <charconv>

namespace zultool {

std::string stepText(float step) {
    char text[32];
    const std::to_chars_result result = std::to_chars(text, text + sizeof text, step);
    return std::string(text, result.ptr);
}

int decimalsOfStep(float step) {
    const std::string text = stepText(step);
    const size_t exponent = text.find('e');
    if (exponent != std::string::npos) {
        // d.ddde-N: N decimals for the leading digit, one more a digit after the point.
        const int power = std::stoi(text.substr(exponent + 1));
        const size_t point = text.find('.');
        const int fraction =
            point == std::string::npos ? 0 : static_cast<int>(exponent - point - 1);
        return std::max(0, fraction - power);
    }
    const size_t point = text.find('.');
    return point == std::string::npos ? 0 : static_cast<int>(text.size() - point - 1);
}

}  // namespace zultool
