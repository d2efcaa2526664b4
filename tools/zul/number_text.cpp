#include "number_text.h"

#include <charconv>

namespace zultool {

std::string stepText(float step) {
    char text[32];
    const std::to_chars_result result =
        std::to_chars(text, text + sizeof text, step, std::chars_format::fixed);
    return std::string(text, result.ptr);
}

int decimalsOfStep(float step) {
    const std::string text = stepText(step);
    const size_t point = text.find('.');
    return point == std::string::npos ? 0 : static_cast<int>(text.size() - point - 1);
}

}  // namespace zultool
