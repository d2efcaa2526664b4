// One line of a text point file at a time: split into its values on reading, composed from a
// point on writing.
#pragma once

#include <string>
#include <vector>

#include "formats/byte_input.h"
#include "formats/cloud.h"

namespace zulformats {

class TextLine {
public:
    // `separators` split values; runs of them count as one.
    explicit TextLine(const char* separators) : separators_(separators) {}

    // Reads the next line that holds anything but separators and splits it; false at the end of
    // the file.
    bool next(ByteInput& in);
    const std::string& text() const { return line_; }
    size_t size() const { return tokens_.size(); }
    // Value `i` as a number; false if it is not one.
    bool number(size_t i, double& value) const;
    // Value `i` as one value of a record field's type (parseTypedValue); false if it is not one.
    bool typed(size_t i, char kind, int size, unsigned char* out) const;

private:
    bool separator(char c) const;

    const char* separators_;
    std::string line_;
    std::vector<const char*> tokens_;
};

// Appends the point's values as a text line ends with "\n": positions with `decimals` decimals,
// then colour (three values, or one packed 0x00RRGGBB word), reflection and normal, as `options`
// has them.
void appendPointLine(std::string& line, const zul_Point& point, const WriteOptions& options,
                     int decimals, char separator, bool packedColor);

}  // namespace zulformats
