// The records built from decoded points hold, byte for byte, what the plain per-point functions
// give (residualWorld, lasCoordinate): every kind of matrix, halves, the int32 edges, values no
// int32 holds, blocks and odd counts.
#include "commands/companion_restore_fill.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "formats/byte_input.h"

namespace {

using zulconvert::LasHead;

TEST(LasRecordFill, WritesWhatThePlainFunctionsGive) {
    // Positions in the stored frame, chosen so that the units land on the edges of the rounding.
    const double edges[] = {0.0,
                            -0.0,
                            0.5,
                            -0.5,
                            1.5,
                            -1.5,
                            0.49999999999999994,
                            -0.49999999999999994,
                            2.5000000000000004,
                            2147483647.0,
                            2147483647.4999998,
                            2147483647.5,
                            2147483648.0,
                            -2147483648.0,
                            -2147483648.4999998,
                            -2147483648.5,
                            -2147483649.0,
                            4503599627370497.0,
                            -1e300,
                            std::numeric_limits<double>::infinity(),
                            std::numeric_limits<double>::quiet_NaN(),
                            123456.789,
                            -98765.4321};
    const size_t count = 1030;  // two blocks of 512 and an odd tail
    std::vector<double> positions(3 * count);
    std::vector<int32_t> reflections(count);
    std::vector<uint8_t> colors(3 * count);
    for (size_t k = 0; k < positions.size(); ++k)
        positions[k] = edges[k % (sizeof edges / sizeof edges[0])] * (k % 7 == 3 ? 0.37 : 1.0);
    for (size_t i = 0; i < count; ++i) {
        reflections[i] = static_cast<int32_t>(i * 977) - 300000;
        for (int k = 0; k < 3; ++k) colors[3 * i + k] = static_cast<uint8_t>(i * 31 + 7 * k);
    }
    zul_bulk_Points points = {};
    points.numPoints = static_cast<int64_t>(count);
    points.positions = positions.data();

    const double identity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    const double diagonal[16] = {0.01, 0, 0, 0, 0, -0.25, 0, 0, 0, 0, 3, 0, 1e5, -0.0, 7.5, 1};
    const double full[16] = {0.6, 0.8, 0, 0, -0.8, 0.6, 0, 0, 0, 0, 1, 0, 10, 20, 30, 1};
    struct {
        const char* what;
        bool enabled;
        const double* matrix;
        double scale, offset;
        bool intensity, colour;
        int64_t colourScale;  // beyond 16 bits: the product kept to 16 bits
    } cases[] = {
        {"no matrix", false, identity, 1, 0, true, true, 257},
        {"no matrix, a LAS scale", false, identity, 0.01, -5, false, true, 65536 * 3 + 256},
        {"diagonal", true, diagonal, 0.001, 1000, true, false, 256},
        {"rotated", true, full, 0.5, 0, false, false, 256},
    };
    for (const bool wider : {true, false})
        for (const auto& c : cases) {
            SCOPED_TRACE(std::string(c.what) + (wider ? "" : ", the narrower rounding"));
            zulconvert::allowWiderRounding(wider);
            zul_Header2 header = {};
            header.enabled = c.enabled;
            std::memcpy(header.transformation, c.matrix, sizeof header.transformation);
            LasHead las;
            las.pointFormat = 3;
            las.recordLength = 36;  // two bytes no source writes: zeroed
            las.colorOffset = 28;
            for (int axis = 0; axis < 3; ++axis) las.scale[axis] = c.scale * (axis + 1);
            for (int axis = 0; axis < 3; ++axis) las.offset[axis] = c.offset * axis;
            std::vector<uint64_t> times(count);
            for (size_t i = 0; i < count; ++i) times[i] = 0x0102030405060708u * (i + 1);
            const std::vector<zulconvert::Placed> placed = {{0, 8, 20, -1}};
            const zulconvert::LasRecordFill fill(las, header, c.colourScale, placed);
            points.reflections = c.intensity ? reflections.data() : nullptr;
            points.colors = c.colour ? colors.data() : nullptr;
            const int64_t at = 3;  // past the batch's first points
            const int64_t n = static_cast<int64_t>(count) - at;
            std::vector<unsigned char> records(static_cast<size_t>(n) * las.recordLength, 0xee);
            void* values[] = {times.data()};
            fill.fill(points, at, n, values, records.data());
            for (int64_t i = 0; i < n; ++i) {
                const unsigned char* r = records.data() + static_cast<size_t>(i) * las.recordLength;
                double q[3];
                zulconvert::residualWorld(positions.data() + 3 * (at + i), header.transformation,
                                          header.enabled, q);
                for (int axis = 0; axis < 3; ++axis) {
                    ASSERT_EQ(zulformats::loadLittle<int32_t>(r + 4 * axis),
                              zulconvert::lasCoordinate(q[axis], las.scale[axis], las.offset[axis]))
                        << "point " << i << " axis " << axis << " at " << q[axis];
                }
                ASSERT_EQ(zulformats::loadLittle<uint16_t>(r + 12),
                          c.intensity ? static_cast<uint16_t>(reflections[at + i]) : 0);
                for (int k = 0; k < 3; ++k) {
                    ASSERT_EQ(zulformats::loadLittle<uint16_t>(r + 28 + 2 * k),
                              c.colour
                                  ? static_cast<uint16_t>(colors[3 * (at + i) + k] * c.colourScale)
                                  : 0);
                }
                ASSERT_EQ(zulformats::loadLittle<uint64_t>(r + 20), times[i]);
                for (const size_t b : {14, 15, 16, 17, 18, 19, 34, 35}) ASSERT_EQ(r[b], 0) << b;
            }
        }
    zulconvert::allowWiderRounding(true);
}

// Each record to its place, for the lengths copied as known and any other; a place out of range
// or taken twice stops the copy there.
TEST(PlaceRecords, PutsEachRecordInItsPlaceAndStopsAtADamagedOrder) {
    struct {
        const char* what;
        std::vector<uint64_t> order;
        int64_t stop;  // the record refused, or the count
    } cases[] = {
        {"a permutation", {3, 0, 4, 1, 2}, 5},
        {"a place taken twice", {3, 0, 3, 1, 2}, 2},
        {"a place out of range", {3, 0, 4, 5, 2}, 3},
    };
    for (const size_t length : {20, 28, 30, 34, 21}) {
        for (const auto& c : cases) {
            SCOPED_TRACE(std::string(c.what) + ", length " + std::to_string(length));
            const int64_t n = static_cast<int64_t>(c.order.size());
            std::vector<unsigned char> records(static_cast<size_t>(n) * length);
            for (size_t b = 0; b < records.size(); ++b) records[b] = static_cast<unsigned char>(b);
            std::vector<unsigned char> taken(5, 0), whole(5 * length, 0xee);
            ASSERT_EQ(zulconvert::placeRecords(records.data(), n, length, c.order.data(), 5,
                                               taken.data(), whole.data()),
                      c.stop);
            for (int64_t i = 0; i < c.stop; ++i) {
                const size_t k = static_cast<size_t>(c.order[static_cast<size_t>(i)]);
                EXPECT_EQ(taken[k], 1);
                EXPECT_EQ(std::memcmp(whole.data() + k * length,
                                      records.data() + static_cast<size_t>(i) * length, length),
                          0);
            }
        }
    }
}

}  // namespace
