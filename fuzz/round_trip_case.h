// The input of the write-and-read target: a data type, an optional sensor header, a chunk size and
// points, drawn from the fuzz bytes. The seed generator writes bytes in the same layout, with
// RoundTripBytes below, so both sides of the layout live in this one file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "zul.h"

namespace zulfuzz {

// Layout, little-endian, fields in this order:
//   u8  attributes: bits 0-1 colour mode (3 is refused), bit 2 reflection, bit 3 normals,
//       bit 4 a sensor header is passed, bit 5 it is enabled
//   f32 quantisation step, i32 maxReflection, u16 chunk size minus 1
//   with a sensor header: i32 mount, i32 type, u8 flags (bit 0 scaling, 1 unsupported scaling,
//       2 rotation, 3 translation, 4 a raw matrix follows), then either 16 f64 (the matrix,
//       column-major) or 5 f64 (scale, angle about z, translation x, y, z)
//   points, as long as whole ones remain:
//       u8 kind (bit 0: raw f64 position, else 3 x i16 half steps; bit 1: raw f32 normal, else
//       3 x i8 / 127), position, 3 x u8 colour, i32 reflection, normal (attributes present only)
enum : uint8_t {
    kHasReflection = 4,
    kHasNormals = 8,
    kPassHeader = 16,
    kHeaderEnabled = 32,
};
enum : uint8_t {
    kScaling = 1,
    kUnsupportedScaling = 2,
    kRotation = 4,
    kTranslation = 8,
    kRawMatrix = 16,
};
enum : uint8_t {
    kRawPosition = 1,
    kRawNormal = 2,
};

struct RoundTripCase {
    zul_DataType dataType{};
    bool passHeader = false;
    zul_Header2 header{};
    int32_t chunkSize = 1;
    std::vector<zul_Point> points;
};

// False if the bytes end before the points.
bool parseRoundTripCase(const uint8_t* data, size_t size, RoundTripCase& out);

// Appends the fields of the layout to a byte vector.
class RoundTripBytes {
public:
    template <class T>
    RoundTripBytes& put(T value) {
        uint8_t raw[sizeof(T)];
        std::memcpy(raw, &value, sizeof(T));
        bytes.insert(bytes.end(), raw, raw + sizeof(T));
        return *this;
    }
    std::vector<uint8_t> bytes;
};

}  // namespace zulfuzz
