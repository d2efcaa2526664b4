#include "formats/text_records.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "formats/byte_input.h"
#include "formats/text_numbers.h"

namespace zulformats {

namespace {

// The shortest of 1 to `most` significant digits that reads back to `value` (as a float when
// `single`).
void appendShortest(std::string& out, double value, bool single) {
    if (std::isnan(value)) {
        out += std::signbit(value) ? "-nan" : "nan";
        return;
    }
    if (std::isinf(value)) {
        out += value < 0 ? "-inf" : "inf";
        return;
    }
    char text[400];
    const int most = single ? 9 : 17;
    int digits = 1;
    for (;; ++digits) {
        std::snprintf(text, sizeof text, "%.*e", digits - 1, value);
        const double back = single ? std::strtof(text, nullptr) : std::strtod(text, nullptr);
        if (back == value || digits == most) break;
    }
    // Those digits without an exponent where the number is of a usual size.
    const int exponent = std::atoi(std::strchr(text, 'e') + 1);
    if (exponent >= -5 && exponent < 17)
        std::snprintf(text, sizeof text, "%.*f", std::max(0, digits - 1 - exponent), value);
    out += text;
}

}  // namespace

void writeTextRecords(ByteOutput& out, const std::string& path, const RecordLayout& layout,
                      const std::vector<TextSpelling>& spelling, int decimals,
                      const unsigned char* records, uint64_t count, const char* lineEnd) {
    const std::string& word = layout.encoding;
    const bool decimalComma = word == "semicolon decimal-comma";
    const char separator = word == "space"                       ? ' '
                           : word == "tab"                       ? '\t'
                           : word == "comma"                     ? ','
                           : word == "semicolon" || decimalComma ? ';'
                                                                 : '\0';
    if (separator == '\0' || spelling.size() != layout.fields.size())
        throw FormatError(path + ": the text encoding \"" + printable(word) + "\" is not one");
    std::string line;
    for (uint64_t i = 0; i < count; ++i) {
        const unsigned char* record = records + i * layout.size;
        line.clear();
        for (size_t f = 0; f < layout.fields.size(); ++f) {
            const RecordField& field = layout.fields[f];
            if (f > 0) line += separator;
            const size_t start = line.size();
            if (field.kind == 'i') {
                int64_t v;
                std::memcpy(&v, record + field.offset, 8);
                line += std::to_string(v);
                continue;
            }
            double v;
            std::memcpy(&v, record + field.offset, 8);
            if (spelling[f] == TextSpelling::Decimals && std::isfinite(v)) {
                appendFixed(line, v, decimals);
            } else {
                appendShortest(line, v, spelling[f] == TextSpelling::Float);
            }
            if (decimalComma)
                std::replace(line.begin() + static_cast<std::ptrdiff_t>(start), line.end(), '.',
                             ',');
        }
        line += lineEnd;
        out.text(line);
    }
}

std::string recountTextHeader(const std::string& header, uint64_t count) {
    size_t start = 0;
    while (start < header.size()) {
        const size_t end = std::min(header.find('\n', start), header.size());
        const std::string line = header.substr(start, end - start);
        const size_t first = line.find_first_not_of(" \t\r");
        if (first != std::string::npos && line[first] != '#' && line.compare(first, 2, "//") != 0)
            return header.substr(0, start) + std::to_string(count) +
                   (line.back() == '\r' ? "\r" : "") + header.substr(end);
        start = end + 1;
    }
    return header;
}

}  // namespace zulformats
