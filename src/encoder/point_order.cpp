// The order in which a chunk stores its points, and the statistics of the deltas in that order.
#include "encoder/coordinate_sort.h"
#include "encoder/enc_context.h"
#include "frame/bit_length.h"

using zullib::zul_QuantizedPoint;

namespace {

// Counts in flat arrays first (a bit count is 0 to 64), then adds the non-zero counts to the maps.
template <class Accessor>
void countComponents(const std::vector<zul_QuantizedPoint>& points, std::map<int, int>* maps) {
    constexpr int kComponents = Accessor::kNumComponents;
    int counts[kComponents][65] = {};
    int64_t previous[kComponents];
    for (int c = 0; c < kComponents; ++c) previous[c] = Accessor::predecessor(c);
    for (const zul_QuantizedPoint& point : points) {
        for (int c = 0; c < kComponents; ++c) {
            const int64_t current = Accessor::get(point, c);
            const int64_t delta = Accessor::delta(c, previous[c], current);
            previous[c] = current;
            // Slot 0 of the coordinates is sorted, so its delta is counted without a sign.
            const int bits = Accessor::nonNegative(c)
                                 ? zullib::bitLength(static_cast<uint64_t>(delta))
                                 : zullib::signedBitLength(delta);
            ++counts[c][bits];
        }
    }
    for (int c = 0; c < kComponents; ++c)
        for (int bits = 0; bits <= 64; ++bits)
            if (counts[c][bits] != 0) maps[c][bits] += counts[c][bits];
}

}  // namespace

void zul_enc_ContextStruct::sortQuantizedPoints(QuantizedPoints& points) {
    zullib::sortByCoordinates(points, chunkBuffer);
}

void zul_enc_ContextStruct::countDeltaBitLengthFrequencies(const QuantizedPoints& points,
                                                           Frequencies (&coordinateFrequencies)[3],
                                                           Frequencies (&rgbFrequencies)[3],
                                                           Frequencies (&reflectionFrequencies)[1],
                                                           Frequencies (&normalFrequencies)[2]) {
    countComponents<zul_QuantizedPoint::CoordinateAccessor>(points, coordinateFrequencies);
    if (dataType.colorMode != zul_COLOR_NONE)
        countComponents<zul_QuantizedPoint::RGBAccessor>(points, rgbFrequencies);
    if (dataType.reflectionMode != zul_REFLECTION_NONE)
        countComponents<zul_QuantizedPoint::ReflectionAccessor>(points, reflectionFrequencies);
    if (dataType.normalMode != zul_NORMAL_NONE)
        countComponents<zul_QuantizedPoint::NormalAccessor>(points, normalFrequencies);
}
