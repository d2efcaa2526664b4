// The absolute widths of the attribute streams: the bits in which any value of a component is
// stored behind the escape. They follow from the data type alone (the coordinate widths come from
// each chunk's box), and the writer and the reader derive them alike; they are never stored.
#pragma once

#include <cstdint>

#include "frame/bit_length.h"
#include "frame/data_type.h"
#include "zul.h"

namespace zullib {

struct AttributeWidths {
    explicit AttributeWidths(const zul_DataType& dataType) {
        const bool rgb565 = dataType.colorMode == zul_COLOR_RGB565;
        const bool rgb888 = dataType.colorMode == zul_COLOR_RGB888;
        for (int c = 0; c < 3; ++c) rgbBits[c] = rgb888 ? 8 : rgb565 ? (c == 1 ? 6 : 5) : 0;
        reflectionBits[0] = bitLength(static_cast<uint32_t>(dataType.maxReflection));
        const bool normals = ChunkStreams(dataType).normals;
        normalBits[0] = normals ? 8 : 0;
        normalBits[1] = normals ? 7 : 0;
    }

    int rgbBits[3];         // 5, 6, 5 for RGB565; 8, 8, 8 for RGB888
    int reflectionBits[1];  // bitLength(maxReflection)
    int normalBits[2];      // longitude cell 8, latitude row 7
};

}  // namespace zullib
