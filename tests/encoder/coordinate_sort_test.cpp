// The order of a chunk's records: by slot 0, 1, 2, and records that share a position in the order
// the comparison sort gives them from the order they came in, whatever path the sort takes
// (comparison, radix on packed or wide keys, records compared directly for keys of over 64 bits).
#include "encoder/coordinate_sort.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "support/test_names.h"

namespace {

using zullib::zul_QuantizedPoint;

struct SortCase {
    const char* name;
    int numPoints;
    int cells, shift;  // slots are (0 .. cells-1) << shift
};

class CoordinateSort : public ::testing::TestWithParam<SortCase> {};

TEST_P(CoordinateSort, OrdersTiesAsTheComparisonSortOfTheGivenOrder) {
    const SortCase& c = GetParam();
    std::mt19937 random(11);
    std::uniform_int_distribution<int64_t> cell(0, c.cells - 1);
    std::vector<zul_QuantizedPoint> points(static_cast<size_t>(c.numPoints));
    for (size_t i = 0; i < points.size(); ++i) {
        // Equal positions are never neighbours in the given order, so the radix sort is taken.
        do {
            for (int64_t& slot : points[i].coordinates) slot = cell(random) << c.shift;
        } while (i > 0 && std::equal(points[i].coordinates, points[i].coordinates + 3,
                                     points[i - 1].coordinates));
        points[i].reflection = static_cast<int32_t>(i);  // which record is which
    }
    std::vector<zul_QuantizedPoint> expected = points;
    std::sort(expected.begin(), expected.end(), [](const auto& a, const auto& b) {
        return std::lexicographical_compare(a.coordinates, a.coordinates + 3, b.coordinates,
                                            b.coordinates + 3);
    });
    std::vector<unsigned char> scratch;
    zullib::sortByCoordinates(points, scratch);
    int ties = 0;
    for (size_t i = 0; i < points.size(); ++i) {
        ASSERT_EQ(points[i].reflection, expected[i].reflection) << "record " << i;
        ties += i > 0 && std::equal(points[i].coordinates, points[i].coordinates + 3,
                                    points[i - 1].coordinates);
    }
    EXPECT_GT(ties, 10) << "the case must have ties to order";
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Encoder, CoordinateSort, ::testing::Values(
    SortCase{"comparison below the radix size", 1000, 8, 0},
    SortCase{"radix on packed keys", 4096, 16, 0},
    SortCase{"radix in three passes", 5000, 16, 5},
    SortCase{"radix on wide keys in three passes", 5000, 16, 7},
    SortCase{"radix on keys over 32 bits", 4096, 16, 16},
    SortCase{"keys over 64 bits", 3000, 4, 22}),
    NameOfCase());
// clang-format on

// Records already in order are left so, and one pair out of order is still found, on both sides
// of the radix size.
TEST(CoordinateSort, RecordsInOrderAndOnePairOut) {
    for (const int n : {1000, 4096}) {
        for (const bool swapped : {false, true}) {
            std::vector<zul_QuantizedPoint> points(static_cast<size_t>(n));
            for (size_t i = 0; i < points.size(); ++i) {
                const int64_t k = static_cast<int64_t>(3 * i);
                points[i].coordinates[0] = k / 100;
                points[i].coordinates[1] = k % 100;
                points[i].coordinates[2] = static_cast<int64_t>(i % 2);
                points[i].reflection = static_cast<int32_t>(i);
            }
            if (swapped) std::swap(points[n / 2], points[n / 2 + 1]);
            std::vector<unsigned char> scratch;
            zullib::sortByCoordinates(points, scratch);
            for (size_t i = 0; i < points.size(); ++i)
                ASSERT_EQ(points[i].reflection, static_cast<int32_t>(i)) << n << swapped << i;
        }
    }
}

}  // namespace
