// The header of a PLY file: its encoding and elements with their properties, and the reading of
// one value of a property's type.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "formats/byte_input.h"

namespace zulformats {

enum class PlyEncoding { Ascii, BinaryLittle, BinaryBig };

struct PlyProperty {
    std::string name;
    int size = 4;       // bytes of a value: 1, 2, 4 or 8
    char kind = 'f';    // 'f' float, 'u' unsigned, 'i' signed
    bool list = false;  // a list: a count of countSize bytes, then values of this type
    int countSize = 1;
    size_t offset = 0;  // byte offset in a record of scalar properties
};

struct PlyElement {
    std::string name;
    uint64_t count = 0;
    std::vector<PlyProperty> properties;
    size_t recordSize = 0;  // for elements of scalar properties only
    bool hasList = false;

    const PlyProperty* find(const std::string& name) const;
};

struct PlyHeader {
    PlyEncoding encoding = PlyEncoding::Ascii;
    std::vector<PlyElement> elements;
};

// Reads the header up to and including "end_header"; throws FormatError for what it cannot read.
PlyHeader readPlyHeader(ByteInput& in);

// One value of a property's type at `bytes`, in the file's byte order.
double plyValue(const PlyProperty& property, const unsigned char* bytes, bool bigEndian);

}  // namespace zulformats
