// The fast steps over whole stream bodies against the checked steps alone: a coordinate stream and
// a colour stream read side by side (as a chunk's streams are) in each form a chunk can take -
// look-ups and the register, the register alone, the general step - must give the records and
// end positions that reading every point with checked steps gives, and the points written.
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <random>
#include <vector>

#include "entropy/data_stream_reader.h"
#include "entropy/data_stream_writer.h"
#include "entropy/prefix_optimizer.h"
#include "frame/bit_length.h"
#include "support/test_names.h"

using namespace zullib;

namespace {

using Coordinates = zul_QuantizedPoint::CoordinateAccessor;
using Colors = zul_QuantizedPoint::RGBAccessor;
using Points = std::vector<zul_QuantizedPoint>;

struct StepCase {
    const char* name;
    size_t points;
    int coordinateBits;          // 60: an escape too long for the register
    int expectedForm;            // of the side-by-side steps
    bool constantColor = false;  // black: a colour stream of no bits, read whole (readBitless)
    bool noisyColor = false;     // random colours: escapes short enough for the look-ups
};

void PrintTo(const StepCase& c, std::ostream* os) { *os << c.name; }

// A random walk of small steps with now and then a jump anywhere (an escape); slot 0 sorted.
Points walk(size_t count, int coordinateBits, uint64_t seed, bool constantColor, bool noisyColor) {
    std::mt19937_64 random(seed);
    const uint64_t mask = coordinateBits == 64 ? ~uint64_t{0} : (uint64_t{1} << coordinateBits) - 1;
    Points points(count);
    int64_t current[3] = {0, 0, 0};
    uint8_t rgb[3] = {0, 0, 0};
    for (zul_QuantizedPoint& point : points) {
        for (int c = 0; c < 3; ++c) {
            const int width = static_cast<int>(random() % 9);
            int64_t step = static_cast<int64_t>(random() % (uint64_t{1} << width));
            if (c > 0 && random() % 2) step = -step;
            if (random() % 50 == 0) step = static_cast<int64_t>(random() & (mask >> 4));
            if (c > 0 && random() % 60 == 0) current[c] = 0;
            current[c] = static_cast<int64_t>(static_cast<uint64_t>(current[c] + step) & mask);
            point.coordinates[c] = current[c];
            rgb[c] = static_cast<uint8_t>(rgb[c] + (random() % 100 == 0 ? random() : random() % 5));
            point.rgb[c] = constantColor ? 0 : noisyColor ? static_cast<uint8_t>(random()) : rgb[c];
        }
    }
    // Slot 0 never falls.
    for (size_t i = 1; i < points.size(); ++i)
        if (points[i].coordinates[0] < points[i - 1].coordinates[0])
            points[i].coordinates[0] = points[i - 1].coordinates[0];
    return points;
}

// One stream: its tables, from the points' own deltas, then its body.
template <class Accessor>
std::vector<unsigned char> writeStream(const Points& points, const int* bits) {
    constexpr int kComponents = Accessor::kNumComponents;
    std::map<int, int> frequencies[kComponents];
    int64_t previous[kComponents];
    for (int c = 0; c < kComponents; ++c) previous[c] = Accessor::predecessor(c);
    for (const zul_QuantizedPoint& point : points)
        for (int c = 0; c < kComponents; ++c) {
            const int64_t delta = Accessor::delta(c, previous[c], Accessor::get(point, c));
            previous[c] = Accessor::get(point, c);
            ++frequencies[c][Accessor::nonNegative(c) ? bitLength(static_cast<uint64_t>(delta))
                                                      : signedBitLength(delta)];
        }
    std::vector<int> tables[kComponents];
    int widths[kComponents];
    for (int c = 0; c < kComponents; ++c) {
        widths[c] = bits[c];
        PrefixOptimizer::findBestBitLengthsForPrefixes(tables[c], frequencies[c], bits[c], 6);
    }
    std::vector<unsigned char> bytes;
    BitStreamOut out(bytes, 0);
    writeStreamTables(out, tables, kComponents);
    writeStreamBody<Accessor>(out, points, widths, tables);
    bytes.resize(static_cast<size_t>(out.bytePosition));
    return bytes;
}

// A stream opened for reading: its cursor past the tables, and its tables.
template <class Accessor>
struct OpenStream {
    OpenStream(const std::vector<unsigned char>& bytes, const int* bits)
        : in(bytes.data(), static_cast<int64_t>(bytes.size()), 0), bits(bits) {
        EXPECT_EQ(readStreamTables<Accessor>(in, tables), zul_STATUS_OK);
    }
    BitStreamIn in;
    const int* bits;
    std::vector<int> tables[Accessor::kNumComponents];
};

class FastSteps : public ::testing::TestWithParam<StepCase> {};

TEST_P(FastSteps, GiveWhatCheckedStepsGive) {
    const StepCase& c = GetParam();
    const Points written =
        walk(c.points, c.coordinateBits, c.points, c.constantColor, c.noisyColor);
    const int coordinateBits[3] = {c.coordinateBits, c.coordinateBits, c.coordinateBits};
    const int colorBits[3] = {8, 8, 8};
    const std::vector<unsigned char> coordinateBytes =
        writeStream<Coordinates>(written, coordinateBits);
    const std::vector<unsigned char> colorBytes = writeStream<Colors>(written, colorBits);

    // Side by side, then each stream alone to its end.
    OpenStream<Coordinates> fastCoordinates(coordinateBytes, coordinateBits);
    OpenStream<Colors> fastColors(colorBytes, colorBits);
    Points fast(c.points);
    StreamBodyReader<Coordinates> coordinates(fastCoordinates.in, coordinateBits,
                                              fastCoordinates.tables, c.points);
    StreamBodyReader<Colors> colors(fastColors.in, colorBits, fastColors.tables, c.points);
    EXPECT_EQ(std::min(coordinates.form(), colors.form()), c.expectedForm);
    if (c.noisyColor) {
        // The escape is the last prefix: its code fits the look-up.
        const std::vector<int>& red = fastColors.tables[0];
        ASSERT_EQ(red.back(), 255);
        EXPECT_LE(static_cast<int>(red.size()) - 1 + 8, CodeLookup::kPeekBits);
    }
    ASSERT_EQ(colors.bitless(), c.constantColor);
    if (c.constantColor) colors.readBitless(fast, 0);
    const size_t sideBySide = c.constantColor ? readFastRuns(fast, 0, coordinates)
                                              : readFastRuns(fast, 0, coordinates, colors);
    EXPECT_GT(sideBySide, c.points / 2);
    const auto finish = [&](auto& reader) {
        if (reader.bitless()) {
            EXPECT_EQ(reader.finish(), zul_STATUS_OK);
            return;
        }
        reader.stopFast();
        for (size_t i = readFastRuns(fast, sideBySide, reader); i < fast.size(); ++i)
            reader.readChecked(fast[i]);
        EXPECT_EQ(reader.finish(), zul_STATUS_OK);
    };
    finish(coordinates);
    finish(colors);

    // Checked steps only.
    OpenStream<Coordinates> plainCoordinates(coordinateBytes, coordinateBits);
    OpenStream<Colors> plainColors(colorBytes, colorBits);
    Points plain(c.points);
    const auto readPlain = [&](auto& stream, auto accessor) {
        StreamBodyReader<decltype(accessor)> reader(stream.in, stream.bits, stream.tables,
                                                    c.points);
        reader.stopFast();
        for (zul_QuantizedPoint& point : plain) reader.readChecked(point);
        EXPECT_EQ(reader.finish(), zul_STATUS_OK);
    };
    readPlain(plainCoordinates, Coordinates());
    readPlain(plainColors, Colors());

    EXPECT_EQ(fastCoordinates.in.bytePosition, static_cast<int64_t>(coordinateBytes.size()));
    EXPECT_EQ(fastColors.in.bytePosition, static_cast<int64_t>(colorBytes.size()));
    EXPECT_EQ(plainCoordinates.in.bytePosition, fastCoordinates.in.bytePosition);
    EXPECT_EQ(plainColors.in.bytePosition, fastColors.in.bytePosition);
    for (size_t i = 0; i < c.points; ++i) {
        for (int k = 0; k < 3; ++k) {
            ASSERT_EQ(fast[i].coordinates[k], plain[i].coordinates[k]) << "point " << i;
            ASSERT_EQ(fast[i].rgb[k], plain[i].rgb[k]) << "point " << i;
            ASSERT_EQ(fast[i].coordinates[k], written[i].coordinates[k]) << "point " << i;
            ASSERT_EQ(fast[i].rgb[k], written[i].rgb[k]) << "point " << i;
        }
    }
}

// Look-up tables are built from 4 x 2^10 points on.
INSTANTIATE_TEST_SUITE_P(
    Forms, FastSteps,
    ::testing::Values(StepCase{"lookups and register", 5000, 18, kTabledForm},
                      StepCase{"register alone", 3000, 18, kRegisterForm},
                      StepCase{"general for too long an escape", 5000, 60, kGeneralForm},
                      StepCase{"general in a short chunk", 700, 60, kGeneralForm},
                      StepCase{"constant colour, no bits", 5000, 18, kTabledForm, true},
                      StepCase{"constant colour in a short chunk", 700, 60, kGeneralForm, true},
                      StepCase{"noisy colour", 5000, 18, kTabledForm, false, true},
                      StepCase{"noisy colour, general", 5000, 60, kGeneralForm, false, true}),
    NameOfCase());

}  // namespace
