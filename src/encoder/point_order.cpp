// The order in which a chunk stores its points, and the statistics of the deltas in that order.
#include <type_traits>

#include "encoder/byte_delta_lengths.h"
#include "encoder/coordinate_sort.h"
#include "encoder/enc_context.h"
#include "frame/bit_length.h"
#include "frame/data_type.h"

using zullib::zul_QuantizedPoint;

namespace {

// The bit counts of one stream's deltas, kept apart until they are added to the caller's.
// Colour channels are bytes, so their deltas lie within +-255 and their lengths are looked up.
template <class Accessor>
struct StreamCounter {
    static constexpr bool kByteDeltas =
        std::is_same<Accessor, zul_QuantizedPoint::RGBAccessor>::value;
    static constexpr int kComponents = Accessor::kNumComponents;
    int counts[kComponents][65] = {};
    int64_t previous[kComponents];

    StreamCounter() {
        for (int c = 0; c < kComponents; ++c) previous[c] = Accessor::predecessor(c);
    }
    void count(const zul_QuantizedPoint& point) {
        ZUL_UNROLL_4
        for (int c = 0; c < kComponents; ++c) {
            const int64_t current = Accessor::get(point, c);
            const int64_t delta = Accessor::delta(c, previous[c], current);
            previous[c] = current;
            // Slot 0 of the coordinates is sorted, so its delta is counted without a sign.
            const int bits = kByteDeltas ? zullib::kByteDeltaLengths.of(delta)
                             : Accessor::nonNegative(c)
                                 ? zullib::bitLength(static_cast<uint64_t>(delta))
                                 : zullib::signedBitLength(delta);
            ++counts[c][bits];
        }
    }
    void addTo(zullib::BitLengthCounts* totals) const {
        for (int c = 0; c < kComponents; ++c)
            for (int bits = 0; bits <= 64; ++bits) totals[c][bits] += counts[c][bits];
    }
};

// One pass over the records for every stream the type has; one loop for each combination, so
// that no point asks which streams there are.
template <bool kColor, bool kReflection, bool kNormals>
void countStreams(const std::vector<zul_QuantizedPoint>& points,
                  zullib::BitLengthCounts (&coordinateFrequencies)[3],
                  zullib::BitLengthCounts (&rgbFrequencies)[3],
                  zullib::BitLengthCounts (&reflectionFrequencies)[1],
                  zullib::BitLengthCounts (&normalFrequencies)[2]) {
    StreamCounter<zul_QuantizedPoint::CoordinateAccessor> coordinates;
    StreamCounter<zul_QuantizedPoint::RGBAccessor> colors;
    StreamCounter<zul_QuantizedPoint::ReflectionAccessor> reflections;
    StreamCounter<zul_QuantizedPoint::NormalAccessor> normals;
    ZUL_UNROLL_4
    for (const zul_QuantizedPoint& point : points) {
        coordinates.count(point);
        if (kColor) colors.count(point);
        if (kReflection) reflections.count(point);
        if (kNormals) normals.count(point);
    }
    coordinates.addTo(coordinateFrequencies);
    if (kColor) colors.addTo(rgbFrequencies);
    if (kReflection) reflections.addTo(reflectionFrequencies);
    if (kNormals) normals.addTo(normalFrequencies);
}

using CountLoop = void (*)(const std::vector<zul_QuantizedPoint>&, zullib::BitLengthCounts (&)[3],
                           zullib::BitLengthCounts (&)[3], zullib::BitLengthCounts (&)[1],
                           zullib::BitLengthCounts (&)[2]);
// Indexed by colour * 4 + reflection * 2 + normals.
const CountLoop kCountLoops[8] = {
    countStreams<false, false, false>, countStreams<false, false, true>,
    countStreams<false, true, false>,  countStreams<false, true, true>,
    countStreams<true, false, false>,  countStreams<true, false, true>,
    countStreams<true, true, false>,   countStreams<true, true, true>};

}  // namespace

void zul_enc_ContextStruct::sortQuantizedPoints(QuantizedPoints& points) {
    zullib::sortByCoordinates(points, chunkBuffer, sortSpare);
}

void zul_enc_ContextStruct::countDeltaBitLengthFrequencies(const QuantizedPoints& points,
                                                           Frequencies (&coordinateFrequencies)[3],
                                                           Frequencies (&rgbFrequencies)[3],
                                                           Frequencies (&reflectionFrequencies)[1],
                                                           Frequencies (&normalFrequencies)[2]) {
    const zullib::ChunkStreams streams(dataType);
    kCountLoops[int{streams.color} * 4 + int{streams.reflection} * 2 + int{streams.normals}](
        points, coordinateFrequencies, rgbFrequencies, reflectionFrequencies, normalFrequencies);
}
