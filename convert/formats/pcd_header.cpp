#include "formats/pcd_header.h"

#include <cerrno>
#include <cstring>
#include <limits>
#include <sstream>

namespace zulformats {

namespace {

std::vector<std::string> words(const std::string& line) {
    std::istringstream stream(line);
    std::vector<std::string> result;
    for (std::string word; stream >> word;) result.push_back(word);
    return result;
}

uint64_t number(ByteInput& in, const std::string& key, const std::string& word) {
    char* end = nullptr;
    errno = 0;
    const unsigned long long value = std::strtoull(word.c_str(), &end, 10);
    if (word.empty() || *end != '\0' || word[0] == '-' || errno != 0) {
        in.fail("the PCD header's " + key + " is not a count: \"" + printable(word) + "\"");
    }
    return value;
}

}  // namespace

const PcdField* PcdHeader::find(const std::string& name) const {
    for (const PcdField& field : fields) {
        if (field.name == name) return &field;
    }
    return nullptr;
}

PcdHeader readPcdHeader(ByteInput& in) {
    PcdHeader header;
    std::vector<std::string> sizes, types, counts;
    uint64_t width = 0, height = 1;
    bool havePoints = false;
    std::string line;
    for (int lineNumber = 0;; ++lineNumber) {
        if (lineNumber > 1000 || !in.readLine(line, 1 << 16)) {
            in.fail("the PCD header has no DATA line (not a PCD file, or cut short)");
        }
        const std::vector<std::string> w = words(line);
        if (w.empty() || w[0][0] == '#') continue;
        const std::string& key = w[0];
        const std::vector<std::string> values(w.begin() + 1, w.end());
        if (key == "VERSION") continue;
        if (key == "VIEWPOINT") {
            const std::vector<std::string> identity = {"0", "0", "0", "1", "0", "0", "0"};
            header.customViewpoint = values != identity;
            continue;
        }
        if (key == "FIELDS" || key == "COLUMNS") {
            for (const std::string& name : values) header.fields.push_back({name});
        } else if (key == "SIZE") {
            sizes = values;
        } else if (key == "TYPE") {
            types = values;
        } else if (key == "COUNT") {
            counts = values;
        } else if (key == "WIDTH" && values.size() == 1) {
            width = number(in, key, values[0]);
        } else if (key == "HEIGHT" && values.size() == 1) {
            height = number(in, key, values[0]);
        } else if (key == "POINTS" && values.size() == 1) {
            header.points = number(in, key, values[0]);
            havePoints = true;
        } else if (key == "DATA" && values.size() == 1) {
            if (values[0] == "ascii") {
                header.data = PcdData::Ascii;
            } else if (values[0] == "binary") {
                header.data = PcdData::Binary;
            } else if (values[0] == "binary_compressed") {
                header.data = PcdData::BinaryCompressed;
            } else {
                in.fail("PCD data \"" + printable(values[0]) + "\" is not supported");
            }
            break;
        } else {
            in.fail("the PCD header has a line it cannot read: \"" + printable(line) + "\"");
        }
    }
    const size_t n = header.fields.size();
    if (n == 0 || sizes.size() != n || types.size() != n ||
        (!counts.empty() && counts.size() != n)) {
        in.fail("the PCD header's FIELDS, SIZE, TYPE and COUNT do not match");
    }
    for (size_t i = 0; i < n; ++i) {
        PcdField& field = header.fields[i];
        field.size = static_cast<int>(number(in, "SIZE", sizes[i]));
        field.type = types[i].size() == 1 ? types[i][0] : '?';
        const uint64_t count = counts.empty() ? 1 : number(in, "COUNT", counts[i]);
        const bool sizeOk = field.type == 'F' ? (field.size == 4 || field.size == 8)
                                              : (field.size == 1 || field.size == 2 ||
                                                 field.size == 4 || field.size == 8);
        if (!sizeOk || (field.type != 'F' && field.type != 'U' && field.type != 'I')) {
            in.fail("the PCD field " + printable(field.name) + " has an unknown type or size");
        }
        if (count < 1 || count > 4096)
            in.fail("the PCD field " + printable(field.name) + " has a bad COUNT");
        field.count = static_cast<int>(count);
        field.offset = header.recordSize;
        field.column = header.valuesPerPoint;
        header.recordSize += static_cast<size_t>(field.size) * field.count;
        header.valuesPerPoint += field.count;
    }
    header.width = width;
    header.height = height;
    if (!havePoints) {
        if (height != 0 && width > std::numeric_limits<uint64_t>::max() / height) {
            in.fail("the PCD header's WIDTH and HEIGHT are too large");
        }
        header.points = width * height;
    }
    for (const char* axis : {"x", "y", "z"}) {
        if (header.find(axis) == nullptr) in.fail(std::string("the PCD file has no field ") + axis);
    }
    return header;
}

double pcdValue(const PcdField& field, const unsigned char* bytes) {
    switch (field.type) {
        case 'F':
            return field.size == 4 ? loadLittle<float>(bytes) : loadLittle<double>(bytes);
        case 'U':
            switch (field.size) {
                case 1:
                    return bytes[0];
                case 2:
                    return loadLittle<uint16_t>(bytes);
                case 4:
                    return loadLittle<uint32_t>(bytes);
                default:
                    return static_cast<double>(loadLittle<uint64_t>(bytes));
            }
        default:
            switch (field.size) {
                case 1:
                    return static_cast<int8_t>(bytes[0]);
                case 2:
                    return loadLittle<int16_t>(bytes);
                case 4:
                    return loadLittle<int32_t>(bytes);
                default:
                    return static_cast<double>(loadLittle<int64_t>(bytes));
            }
    }
}

}  // namespace zulformats
