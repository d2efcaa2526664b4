#include "commands/companion_records.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <set>
#include <sstream>
#include <type_traits>

#include "formats/byte_input.h"

namespace zulconvert {

using namespace zulformats;

namespace {

zul_FieldType fieldType(char kind, int size) {
    switch (kind == 'f' ? size : kind == 'u' ? 10 + size : 20 + size) {
        case 4:
            return zul_FIELD_F32;
        case 8:
            return zul_FIELD_F64;
        case 11:
            return zul_FIELD_U8;
        case 12:
            return zul_FIELD_U16;
        case 14:
            return zul_FIELD_U32;
        case 18:
            return zul_FIELD_U64;
        case 21:
            return zul_FIELD_I8;
        case 22:
            return zul_FIELD_I16;
        case 24:
            return zul_FIELD_I32;
        case 28:
            return zul_FIELD_I64;
        default:
            return zul_FIELD_RAW;
    }
}

zul_FieldType unsignedType(int width) {
    return width == 1   ? zul_FIELD_U8
           : width == 2 ? zul_FIELD_U16
           : width == 4 ? zul_FIELD_U32
                        : zul_FIELD_U64;
}

template <typename T>
void storeAs(unsigned char* out, double v) {
    T value = 0;
    if constexpr (std::is_floating_point<T>::value) {
        value = static_cast<T>(v);
    } else if (v == v) {
        const double lo = static_cast<double>(std::numeric_limits<T>::min());
        const double hi = static_cast<double>(std::numeric_limits<T>::max());
        const double r = std::round(v);
        // The largest 64-bit values are not doubles: what lies beyond the range becomes its end.
        value = r <= lo   ? std::numeric_limits<T>::min()
                : r >= hi ? std::numeric_limits<T>::max()
                          : static_cast<T>(r);
    }
    std::memcpy(out, &value, sizeof value);
}

void storeNumber(const RecordField& field, double v, unsigned char* out) {
    switch (fieldType(field.kind, field.size)) {
        case zul_FIELD_F32:
            return storeAs<float>(out, v);
        case zul_FIELD_F64:
            return storeAs<double>(out, v);
        case zul_FIELD_U8:
            return storeAs<uint8_t>(out, v);
        case zul_FIELD_U16:
            return storeAs<uint16_t>(out, v);
        case zul_FIELD_U32:
            return storeAs<uint32_t>(out, v);
        case zul_FIELD_U64:
            return storeAs<uint64_t>(out, v);
        case zul_FIELD_I8:
            return storeAs<int8_t>(out, v);
        case zul_FIELD_I16:
            return storeAs<int16_t>(out, v);
        case zul_FIELD_I32:
            return storeAs<int32_t>(out, v);
        case zul_FIELD_I64:
            return storeAs<int64_t>(out, v);
        default:
            std::memset(out, 0, static_cast<size_t>(field.size));
    }
}

template <typename T>
double loadAs(const unsigned char* bytes) {
    T value;
    std::memcpy(&value, bytes, sizeof value);
    return static_cast<double>(value);
}

template <typename T>
void combine(unsigned char* a, const unsigned char* b, bool add) {
    T x, y;
    std::memcpy(&x, a, sizeof x);
    std::memcpy(&y, b, sizeof y);
    x = static_cast<T>(add ? x + y : x - y);
    std::memcpy(a, &x, sizeof x);
}

void combineValue(unsigned char* a, const unsigned char* b, int width, bool add) {
    switch (width) {
        case 1:
            return combine<uint8_t>(a, b, add);
        case 2:
            return combine<uint16_t>(a, b, add);
        case 4:
            return combine<uint32_t>(a, b, add);
        default:
            return combine<uint64_t>(a, b, add);
    }
}

}  // namespace

std::vector<RecordColumn> recordColumns(const RecordLayout& layout) {
    std::vector<RecordColumn> columns;
    std::set<std::string> taken;
    const auto add = [&](std::string name, zul_FieldType type, int width, size_t field,
                         size_t offset, bool residual) {
        const std::string base = name;
        for (int n = 2; taken.count(name); ++n) name = base + "#" + std::to_string(n);
        if (name.size() > ZUL_FIELD_NAME_MAX || name.find('\0') != std::string::npos) {
            throw FormatError("the field \"" + printable(base) + "\" has a name longer than " +
                              std::to_string(ZUL_FIELD_NAME_MAX) +
                              " bytes, which a companion cannot hold; compress with "
                              "--no-companion");
        }
        taken.insert(name);
        columns.push_back({name, type, width, field, offset, residual});
    };
    for (size_t f = 0; f < layout.fields.size(); ++f) {
        const RecordField& field = layout.fields[f];
        if (field.role != FieldRole::None) {
            add(field.name + "_residual", unsignedType(field.size), field.size, f, field.offset,
                true);
            continue;
        }
        const zul_FieldType type = fieldType(field.kind, field.size);
        for (int k = 0; k < field.count; ++k) {
            add(field.count == 1 ? field.name : field.name + "[" + std::to_string(k) + "]", type,
                field.size, f, field.offset + static_cast<size_t>(field.size) * k, false);
        }
    }
    return columns;
}

std::string layoutText(const RecordLayout& layout) {
    std::string text;
    for (const RecordField& f : layout.fields) {
        text += f.name + " " + f.kind + " " + std::to_string(f.size) + " " +
                std::to_string(f.count) + " " + std::to_string(f.offset) + " " +
                std::to_string(static_cast<int>(f.role)) + "; ";
    }
    if (!text.empty()) text.resize(text.size() - 2);
    return text;
}

bool parseLayoutText(const std::string& text, RecordLayout& layout) {
    std::istringstream in(text);
    std::string line;
    layout.fields.clear();
    layout.size = 0;
    while (std::getline(in, line, ';')) {
        std::istringstream words(line);
        RecordField f;
        int role = 0;
        std::string kind, rest;
        if (!(words >> f.name >> kind >> f.size >> f.count >> f.offset >> role) ||
            (words >> rest) || kind.size() != 1 ||
            (kind[0] != 'u' && kind[0] != 'i' && kind[0] != 'f') ||
            (f.size != 1 && f.size != 2 && f.size != 4 && f.size != 8) ||
            (kind[0] == 'f' && f.size < 4) || f.count < 1 || f.count > 65536 || role < 0 ||
            role > static_cast<int>(FieldRole::NZ) || f.offset != layout.size ||
            (role != 0 && f.count != 1) || layout.fields.size() >= 65536) {
            return false;
        }
        f.kind = kind[0];
        f.role = static_cast<FieldRole>(role);
        layout.size += static_cast<size_t>(f.size) * f.count;
        layout.fields.push_back(f);
    }
    // A record is at most as wide as a row the companion holds (1 MiB).
    return !layout.fields.empty() && layout.size <= (size_t{1} << 20);
}

void streamValue(const RecordField& field, const StreamPoint& point, double intensityFactor,
                 unsigned char* out) {
    const auto channel = [&](int c) -> double {
        if (!point.color) return 0;
        const double v = point.color[c];
        // A text file's channel (8 bytes) is the number itself.
        return field.kind == 'f' ? v / 255.0 : field.size == 8 || field.size == 1 ? v : v * 257.0;
    };
    switch (field.role) {
        case FieldRole::X:
        case FieldRole::Y:
        case FieldRole::Z:
            return storeNumber(field, point.q[static_cast<int>(field.role) - 1], out);
        case FieldRole::PackedColor: {
            const uint32_t word = point.color ? uint32_t{point.color[0]} << 16 |
                                                    uint32_t{point.color[1]} << 8 | point.color[2]
                                              : 0;
            std::memset(out, 0, static_cast<size_t>(field.size));
            std::memcpy(out, &word, std::min<size_t>(4, static_cast<size_t>(field.size)));
            return;
        }
        case FieldRole::Red:
        case FieldRole::Green:
        case FieldRole::Blue:
            return storeNumber(
                field, channel(static_cast<int>(field.role) - static_cast<int>(FieldRole::Red)),
                out);
        case FieldRole::Intensity:
            return storeNumber(field, point.reflection ? *point.reflection / intensityFactor : 0,
                               out);
        case FieldRole::NX:
        case FieldRole::NY:
        case FieldRole::NZ:
            return storeNumber(
                field,
                point.normal
                    ? point.normal[static_cast<int>(field.role) - static_cast<int>(FieldRole::NX)]
                    : 0,
                out);
        default:
            std::memset(out, 0, static_cast<size_t>(field.size));
    }
}

double loadNumber(const RecordField& field, const unsigned char* bytes) {
    switch (fieldType(field.kind, field.size)) {
        case zul_FIELD_F32:
            return loadAs<float>(bytes);
        case zul_FIELD_F64:
            return loadAs<double>(bytes);
        case zul_FIELD_U8:
            return loadAs<uint8_t>(bytes);
        case zul_FIELD_U16:
            return loadAs<uint16_t>(bytes);
        case zul_FIELD_U32:
            return loadAs<uint32_t>(bytes);
        case zul_FIELD_U64:
            return loadAs<uint64_t>(bytes);
        case zul_FIELD_I8:
            return loadAs<int8_t>(bytes);
        case zul_FIELD_I16:
            return loadAs<int16_t>(bytes);
        case zul_FIELD_I32:
            return loadAs<int32_t>(bytes);
        case zul_FIELD_I64:
            return loadAs<int64_t>(bytes);
        default:
            return std::numeric_limits<double>::quiet_NaN();
    }
}

bool roundedGeometry(const RecordField& field) {
    switch (field.role) {
        case FieldRole::X:
        case FieldRole::Y:
        case FieldRole::Z:
        case FieldRole::NX:
        case FieldRole::NY:
        case FieldRole::NZ:
            return true;
        default:
            return false;
    }
}

void subtractValue(unsigned char* a, const unsigned char* b, int width) {
    combineValue(a, b, width, false);
}
void addValue(unsigned char* a, const unsigned char* b, int width) {
    combineValue(a, b, width, true);
}

double worldStep(const ZulFileHead& head) {
    const double* m = head.header.transformation;
    return static_cast<double>(head.dataType.quantizationStep) *
           (head.header.enabled ? std::sqrt(m[0] * m[0] + m[1] * m[1] + m[2] * m[2]) : 1);
}

bool isTextFormat(Format format) { return format == Format::Xyz || format == Format::Csv; }

void wholeNumberColumns(RecordLayout& layout, std::vector<unsigned char>& records) {
    const size_t n = layout.size == 0 ? 0 : records.size() / layout.size;
    for (RecordField& field : layout.fields) {
        if (field.kind != 'f' || field.size != 8 || roundedGeometry(field)) continue;
        bool whole = true;
        for (size_t i = 0; i < n && whole; ++i) {
            double v;
            std::memcpy(&v, records.data() + i * layout.size + field.offset, 8);
            whole = v == std::floor(v) && v >= -9223372036854775808.0 &&
                    v < 9223372036854775808.0 && !(v == 0 && std::signbit(v));
        }
        if (!whole) {
            if (field.role >= FieldRole::Red && field.role <= FieldRole::Blue)
                field.role = FieldRole::None;
            continue;
        }
        for (size_t i = 0; i < n; ++i) {
            unsigned char* at = records.data() + i * layout.size + field.offset;
            double v;
            std::memcpy(&v, at, 8);
            const int64_t k = static_cast<int64_t>(v);
            std::memcpy(at, &k, 8);
        }
        field.kind = 'i';
    }
}

std::string recordFormatText(Format format, const RecordLayout& layout) {
    return std::string(format == Format::Pcd   ? "pcd "
                       : format == Format::Ply ? "ply "
                       : format == Format::Csv ? "csv "
                                               : "xyz ") +
           layout.encoding;
}

}  // namespace zulconvert
