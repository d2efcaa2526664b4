// Single values of a record field's type (kind 'u', 'i' or 'f' and 1, 2, 4 or 8 bytes), as
// little-endian bytes: read from text exactly, written as text that reads back to the same bits,
// and turned to the other byte order.
#pragma once

#include <cstddef>
#include <string>

namespace zulformats {

// Parses the text [begin, end) as one value of the type into `out`: integers exactly (a whole
// number written with a decimal point too), floats as the nearest value of their width. False for
// text that is not such a number or a number outside the type's range.
bool parseTypedValue(const char* begin, const char* end, char kind, int size, unsigned char* out);

// Appends the value at `value` as text: integers in decimal, floats in the shortest form that
// reads back to the same bits ("nan", "inf", "-inf" for those).
void appendTypedValue(std::string& text, char kind, int size, const unsigned char* value);

// Reverses the bytes of one value of `size` bytes in place.
void reverseBytes(unsigned char* value, int size);

}  // namespace zulformats
