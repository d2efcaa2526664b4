// A chunk's columns read at once (zul_xin_readChunk, zul_xin_readChunkFromBlock) give exactly what
// the column-by-column reads give, for any choice of columns and order, with columns coded in
// stored order and in the input's order; wrong calls and damaged blocks are refused.
#include <numeric>

#include "companion/companion_support.h"

namespace {

// Input indices of a chunk's points: a permutation, one with ties, or one spanning more than 32
// bits.
enum class Indices { Permutation, Ties, Wide };

uint64_t inputIndex(Indices kind, size_t i, size_t c, size_t n) {
    const uint64_t k = (i * 7919 + c) % n;
    return kind == Indices::Ties ? k / 3 : kind == Indices::Wide ? k + (k % 2) * (1ull << 40) : k;
}

// A companion whose columns rise in the input's order (so the writer codes them in that order)
// or in stored order, by chunk: both codings in one file. `written` gets every chunk's columns.
ByteVector orderedCompanion(const ByteVector& stream, bool withOrder,
                            Indices kind = Indices::Permutation,
                            std::vector<std::vector<ByteVector>>* written = nullptr) {
    zul::CompanionWriter writer;
    for (const TypeCase& t : allTypes()) writer.addField(t.name, t.type, t.width);
    if (withOrder) writer.keepOrder();
    writer.bindStream(stream);
    const std::vector<int32_t> counts = chunkCounts(stream);
    for (size_t c = 0; c < counts.size(); ++c) {
        const size_t n = static_cast<size_t>(counts[c]);
        std::vector<uint64_t> order(n);
        for (size_t i = 0; i < n; ++i) order[i] = inputIndex(kind, i, c, n);
        if (written) written->emplace_back();
        for (size_t f = 0; f < allTypes().size(); ++f) {
            const int width = allTypes()[f].width;
            const ByteVector rising = columnBytes(1, counts[c], width, unsigned(c * 31 + f));
            ByteVector values(rising.size());
            for (size_t i = 0; i < n; ++i) {
                const size_t from = c % 2 ? i : static_cast<size_t>((i * 7919 + c) % n);
                std::memcpy(&values[i * width], &rising[from * width], size_t(width));
            }
            writer.writeColumn(static_cast<int64_t>(c), static_cast<int>(f), values, width);
            if (written) written->back().push_back(values);
        }
        if (withOrder) writer.writeOrder(static_cast<int64_t>(c), order);
    }
    return writer.finish();
}

struct Choice {
    bool withOrder;  // the companion keeps the order
    int everyNth;    // columns wanted: every n-th (0: none)
    bool order;      // the order wanted
    Indices kind;
};

class ReadChunk : public ::testing::TestWithParam<Choice> {};

TEST_P(ReadChunk, GivesWhatColumnReadsGive) {
    const Choice choice = GetParam();
    // Chunks above 4096 points, whose columns each choose their own coding.
    const ByteVector stream = makeStream(4, 4200, 5);
    std::vector<std::vector<ByteVector>> written;
    const ByteVector companion = orderedCompanion(stream, choice.withOrder, choice.kind, &written);
    zul::CompanionReader reader(companion, stream);
    const int32_t numFields = static_cast<int32_t>(allTypes().size());
    for (int64_t c = 0; c < 4; ++c) {
        const zul_CompanionChunk chunk = reader.chunk(c);
        const int64_t n = chunk.chunk.numPoints;
        // The first segment's coding byte: in the input's order in the even chunks.
        const bool inputOrder = (companion[size_t(chunk.blockOffset)] & 16) != 0;
        if (choice.kind == Indices::Permutation) {
            EXPECT_EQ(inputOrder, choice.withOrder && c % 2 == 0);
        }
        std::vector<ByteVector> rooms(static_cast<size_t>(numFields)), fromBlock = rooms;
        std::vector<void*> values(static_cast<size_t>(numFields), nullptr), blockValues = values;
        for (int32_t f = 0; f < numFields; ++f) {
            if (choice.everyNth == 0 || f % choice.everyNth != 0) continue;
            rooms[size_t(f)].assign(size_t(n * allTypes()[size_t(f)].width), 0xEE);
            fromBlock[size_t(f)] = rooms[size_t(f)];
            values[size_t(f)] = rooms[size_t(f)].data();
            blockValues[size_t(f)] = fromBlock[size_t(f)].data();
        }
        std::vector<uint64_t> order(size_t(n), 99), blockOrder = order;
        uint64_t* wanted = choice.order ? order.data() : nullptr;
        ASSERT_EQ(zul_xin_readChunk(reader.handle(), c, values.data(), numFields, wanted, n),
                  zul_STATUS_OK);
        ASSERT_EQ(
            zul_xin_readChunkFromBlock(reader.handle(), c, companion.data() + chunk.blockOffset,
                                       size_t(chunk.blockSize), blockValues.data(), numFields,
                                       choice.order ? blockOrder.data() : nullptr, n),
            zul_STATUS_OK);
        for (int32_t f = 0; f < numFields; ++f) {
            SCOPED_TRACE(std::string(allTypes()[size_t(f)].name) + " chunk " + std::to_string(c));
            if (!values[size_t(f)]) continue;
            EXPECT_EQ(rooms[size_t(f)], written[size_t(c)][size_t(f)]);
            EXPECT_EQ(rooms[size_t(f)], reader.column<uint8_t>(c, f));
            EXPECT_EQ(fromBlock[size_t(f)], rooms[size_t(f)]);
        }
        if (choice.everyNth == 1) {  // the C++ call, all columns
            std::vector<uint64_t> viaClass;
            EXPECT_EQ(reader.columns(c, choice.order ? &viaClass : nullptr), written[size_t(c)]);
            if (choice.order) {
                EXPECT_EQ(viaClass, order);
            }
        }
        if (choice.order) {
            EXPECT_EQ(order, reader.order(c));
            for (size_t i = 0; i < order.size(); ++i)
                ASSERT_EQ(order[i], inputIndex(choice.kind, i, size_t(c), order.size()));
            EXPECT_EQ(blockOrder, order);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Choices, ReadChunk,
                         ::testing::Values(Choice{true, 1, true, Indices::Permutation},
                                           Choice{true, 1, false, Indices::Permutation},
                                           Choice{true, 3, true, Indices::Permutation},
                                           Choice{true, 0, true, Indices::Permutation},
                                           Choice{true, 2, false, Indices::Permutation},
                                           Choice{true, 1, true, Indices::Ties},
                                           Choice{true, 1, true, Indices::Wide},
                                           Choice{false, 1, false, Indices::Permutation},
                                           Choice{false, 4, false, Indices::Permutation}));

// The calls a reader refuses, and a block with a flipped bit.
TEST(ReadChunk, RefusesWrongCallsAndDamage) {
    const ByteVector stream = makeStream(2, 300, 6);
    const ByteVector plain = orderedCompanion(stream, false);
    ByteVector damaged = orderedCompanion(stream, true);
    zul::CompanionReader plainReader(plain, stream);
    const int32_t numFields = static_cast<int32_t>(allTypes().size());
    std::vector<ByteVector> rooms;
    std::vector<void*> values;
    for (const TypeCase& t : allTypes()) rooms.emplace_back(size_t(300 * t.width));
    for (ByteVector& room : rooms) values.push_back(room.data());
    std::vector<uint64_t> order(300);
    const zul_xin_Reader r = plainReader.handle();
    EXPECT_EQ(zul_xin_readChunk(r, 2, values.data(), numFields, nullptr, 300),
              zul_STATUS_INVALID_ARGUMENT);  // no such chunk
    EXPECT_EQ(zul_xin_readChunk(r, 0, values.data(), numFields - 1, nullptr, 300),
              zul_STATUS_INVALID_ARGUMENT);  // another field count
    EXPECT_EQ(zul_xin_readChunk(r, 0, nullptr, numFields, nullptr, 300),
              zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_xin_readChunk(r, 0, values.data(), numFields, nullptr, 299),
              zul_STATUS_INVALID_ARGUMENT);  // too little room
    EXPECT_EQ(zul_xin_readChunk(r, 0, values.data(), numFields, order.data(), 300),
              zul_STATUS_INVALID_STATE);  // no order kept
    EXPECT_EQ(zul_xin_readChunk(nullptr, 0, values.data(), numFields, nullptr, 300),
              zul_STATUS_INVALID_ARGUMENT);
    const zul_CompanionChunk first = plainReader.chunk(0);
    EXPECT_EQ(zul_xin_readChunkFromBlock(r, 0, plain.data() + first.blockOffset,
                                         size_t(first.blockSize) - 1, values.data(), numFields,
                                         nullptr, 300),
              zul_STATUS_INVALID_ARGUMENT);  // not the block's size
    damaged[size_t(zul::CompanionReader(damaged).chunk(1).blockOffset + 20)] ^= 0x10;
    zul::CompanionReader damagedReader(damaged, stream);
    EXPECT_EQ(
        zul_xin_readChunk(damagedReader.handle(), 1, values.data(), numFields, order.data(), 300),
        zul_STATUS_CORRUPT_DATA);
    EXPECT_EQ(
        zul_xin_readChunk(damagedReader.handle(), 0, values.data(), numFields, order.data(), 300),
        zul_STATUS_OK);
}

}  // namespace
