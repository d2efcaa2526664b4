#include "formats/ply_header.h"

#include <sstream>

namespace zulformats {

namespace {

// Size and kind of a PLY type name, or false.
bool plyType(const std::string& name, int& size, char& kind) {
    static const struct {
        const char* name;
        int size;
        char kind;
    } kTypes[] = {{"char", 1, 'i'},  {"int8", 1, 'i'},    {"uchar", 1, 'u'},  {"uint8", 1, 'u'},
                  {"short", 2, 'i'}, {"int16", 2, 'i'},   {"ushort", 2, 'u'}, {"uint16", 2, 'u'},
                  {"int", 4, 'i'},   {"int32", 4, 'i'},   {"uint", 4, 'u'},   {"uint32", 4, 'u'},
                  {"float", 4, 'f'}, {"float32", 4, 'f'}, {"double", 8, 'f'}, {"float64", 8, 'f'}};
    for (const auto& type : kTypes) {
        if (name == type.name) {
            size = type.size;
            kind = type.kind;
            return true;
        }
    }
    return false;
}

}  // namespace

const PlyProperty* PlyElement::find(const std::string& wanted) const {
    for (const PlyProperty& property : properties) {
        if (property.name == wanted) return &property;
    }
    return nullptr;
}

PlyHeader readPlyHeader(ByteInput& in) {
    PlyHeader header;
    std::string line;
    if (!in.readLine(line, 64) || line != "ply") in.fail("not a PLY file (no \"ply\" line)");
    bool haveFormat = false;
    for (int lineNumber = 1;; ++lineNumber) {
        if (lineNumber > 10000 || !in.readLine(line, 1 << 16)) {
            in.fail("the PLY header has no end_header line (cut short)");
        }
        std::istringstream words(line);
        std::string key;
        words >> key;
        if (key == "end_header") break;
        if (key.empty() || key == "comment" || key == "obj_info") continue;
        if (key == "format") {
            std::string encoding, version;
            words >> encoding >> version;
            if (encoding == "ascii") {
                header.encoding = PlyEncoding::Ascii;
            } else if (encoding == "binary_little_endian") {
                header.encoding = PlyEncoding::BinaryLittle;
            } else if (encoding == "binary_big_endian") {
                header.encoding = PlyEncoding::BinaryBig;
            } else {
                in.fail("PLY format \"" + printable(encoding) + "\" is not supported");
            }
            haveFormat = true;
        } else if (key == "element") {
            PlyElement element;
            std::string count;
            words >> element.name >> count;
            char* end = nullptr;
            element.count = std::strtoull(count.c_str(), &end, 10);
            if (count.empty() || *end != '\0' || count[0] == '-') {
                in.fail("the PLY element " + printable(element.name) + " has no valid count");
            }
            header.elements.push_back(element);
        } else if (key == "property") {
            if (header.elements.empty()) in.fail("a PLY property comes before any element");
            PlyElement& element = header.elements.back();
            PlyProperty property;
            std::string type;
            words >> type;
            if (type == "list") {
                std::string countType;
                char countKind;
                words >> countType >> type;
                if (!plyType(countType, property.countSize, countKind) || countKind == 'f') {
                    in.fail("a PLY list has a bad count type");
                }
                property.list = true;
                element.hasList = true;
            }
            words >> property.name;
            if (!plyType(type, property.size, property.kind) || property.name.empty()) {
                in.fail("the PLY property line \"" + printable(line) + "\" is not valid");
            }
            property.offset = element.recordSize;
            if (!property.list) element.recordSize += property.size;
            element.properties.push_back(property);
        } else {
            in.fail("the PLY header has a line it cannot read: \"" + printable(line) + "\"");
        }
    }
    if (!haveFormat) in.fail("the PLY header has no format line");
    return header;
}

double plyValue(const PlyProperty& property, const unsigned char* bytes, bool bigEndian) {
    unsigned char b[8];
    for (int i = 0; i < property.size; ++i) b[i] = bytes[bigEndian ? property.size - 1 - i : i];
    switch (property.kind) {
        case 'f':
            return property.size == 4 ? loadLittle<float>(b) : loadLittle<double>(b);
        case 'u':
            return property.size == 1   ? b[0]
                   : property.size == 2 ? loadLittle<uint16_t>(b)
                                        : loadLittle<uint32_t>(b);
        default:
            return property.size == 1   ? static_cast<int8_t>(b[0])
                   : property.size == 2 ? loadLittle<int16_t>(b)
                                        : loadLittle<int32_t>(b);
    }
}

}  // namespace zulformats
