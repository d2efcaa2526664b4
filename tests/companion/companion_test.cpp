// The companion written and read back: every column type and coding, the order, the metadata,
// the binding to its stream and the verification of the stream's bytes.
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>

#include "companion/companion_support.h"
#include "support/temp_folder.h"

namespace {

class CompanionFiles : public TempFolderTest {};

void writeFile(const std::string& path, const ByteVector& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

// Every column of every chunk comes back byte for byte, from memory and from a file, with the
// order and the metadata; and through the head alone with the blocks fetched by hand.
TEST_F(CompanionFiles, EveryColumnTypeComesBack) {
    const ByteVector stream = makeStream(4, 700, 1);
    const ByteVector companion = makeCompanion(stream, true, true);
    writeFile(path("a.zul"), stream);
    writeFile(path("a.zulx"), companion);
    const std::vector<int32_t> counts = chunkCounts(stream);
    zul::CompanionReader fromMemory(companion, stream);
    zul::CompanionReader fromFile(path("a.zulx"), path("a.zul"));
    int64_t headSize = 0;
    ASSERT_EQ(zul_xin_getHeadSize(companion.data(), 112, &headSize), zul_STATUS_OK);
    zul_xin_Reader headOnly = nullptr;
    ASSERT_EQ(zul_xin_openHead(&headOnly, companion.data(), static_cast<size_t>(headSize),
                               static_cast<int64_t>(companion.size())),
              zul_STATUS_OK);
    for (const zul::CompanionReader* reader : {&fromMemory, &fromFile}) {
        EXPECT_EQ(reader->info().numChunks, 4);
        EXPECT_EQ(reader->info().numPoints, 2800);
        EXPECT_EQ(reader->info().headSize, headSize);
        ASSERT_EQ(reader->fields().size(), allTypes().size());
        for (size_t c = 0; c < counts.size(); ++c) {
            const zul_CompanionChunk chunk = reader->chunk(static_cast<int64_t>(c));
            for (size_t f = 0; f < allTypes().size(); ++f) {
                const TypeCase& t = allTypes()[f];
                SCOPED_TRACE(std::string(t.name) + " chunk " + std::to_string(c));
                EXPECT_EQ(reader->field(t.name), static_cast<int>(f));
                const ByteVector expected = columnBytes(static_cast<int>(c % 3), counts[c], t.width,
                                                        static_cast<unsigned>(c * 100 + f));
                EXPECT_EQ(reader->column<uint8_t>(static_cast<int64_t>(c), static_cast<int>(f)),
                          expected);
                ByteVector viaHead(expected.size());
                EXPECT_EQ(zul_xin_readColumnFromBlock(
                              headOnly, static_cast<int64_t>(c), static_cast<int32_t>(f),
                              companion.data() + chunk.blockOffset,
                              static_cast<size_t>(chunk.blockSize), viaHead.data(), counts[c]),
                          zul_STATUS_OK);
                EXPECT_EQ(viaHead, expected);
            }
            const std::vector<uint64_t> order = reader->order(static_cast<int64_t>(c));
            for (size_t i = 0; i < order.size(); ++i)
                ASSERT_EQ(order[i], (i * 7919 + c) % order.size());
        }
        EXPECT_EQ(reader->source().first, zul_SOURCE_PLY);
        EXPECT_EQ(reader->source().second, (ByteVector{'p', 'l', 'y', '\n'}));
        EXPECT_EQ(reader->format(), "ply binary_little_endian 1.0");
        using Pairs = std::vector<std::pair<std::string, std::string>>;
        EXPECT_EQ(reader->conventions(),
                  (Pairs{{"colour scale", "257"}, {"intensity factor", "1"}}));
        EXPECT_EQ(reader->rows().indices, rowIndices());
        EXPECT_EQ(reader->rows().bytes, rowBytes());
        EXPECT_TRUE(reader->verify(stream).empty());
    }
    EXPECT_EQ(companion[8], 2);  // rows make a companion of version 2
    EXPECT_EQ(makeCompanion(stream)[8], 1);
    EXPECT_TRUE(zul::CompanionReader(makeCompanion(stream), stream).rows().indices.empty());
    EXPECT_TRUE(fromFile.verifyFile(path("a.zul")).empty());
    zul_idx_Index index = nullptr;
    ASSERT_EQ(zul_idx_openFile(&index, path("a.zul").c_str(), nullptr), zul_STATUS_OK);
    EXPECT_EQ(zul_xin_bindIndex(headOnly, index), zul_STATUS_OK);
    zul_idx_close(&index);
    zul_SourceKind kind;  // the metadata lies after the blocks: not in the head
    const void* source = nullptr;
    size_t sourceSize = 0;
    EXPECT_EQ(zul_xin_getSource(headOnly, &kind, &source, &sourceSize), zul_STATUS_INVALID_STATE);
    zul_xin_close(&headOnly);
}

// The binding by parts, chunk by chunk as an encoder makes them (from their index entries or their
// bytes), writes the very bytes of the binding of the whole stream; a companion of no field and no
// chunk is well formed too.
TEST(Companion, BindingByPartsEqualsWholeBinding) {
    for (int chunks : {0, 3}) {
        const ByteVector stream = makeStream(chunks, 50, 2);
        zul::CompanionWriter whole;
        whole.addField("t", zul_FIELD_F64);
        whole.bindStream(stream);
        zul_xout_Writer parts = nullptr;
        ASSERT_EQ(zul_xout_open(&parts, nullptr), zul_STATUS_OK);
        ASSERT_EQ(zul_xout_addField(parts, "t", zul_FIELD_F64, 0, nullptr), zul_STATUS_OK);
        ASSERT_EQ(zul_xout_beginStream(parts, stream.data(), 36), zul_STATUS_OK);
        zul_idx_Index index = nullptr;
        ASSERT_EQ(zul_idx_openBuffer(&index, stream.data(), stream.size(), nullptr), zul_STATUS_OK);
        std::vector<double> values(50, 1.5);
        for (int c = 0; c < chunks; ++c) {
            zul_idx_Chunk chunk;
            ASSERT_EQ(zul_idx_getChunk(index, c, &chunk), zul_STATUS_OK);
            const uint8_t* bytes = stream.data() + chunk.offset;
            const size_t size = static_cast<size_t>(chunk.size);
            if (c == 1) {  // a part of a chunk is refused, the whole chunk taken
                EXPECT_EQ(zul_xout_addChunkBytes(parts, bytes, size - 1), zul_STATUS_TRUNCATED);
                ASSERT_EQ(zul_xout_addChunkBytes(parts, bytes, size), zul_STATUS_OK);
            } else {
                ASSERT_EQ(zul_xout_addChunk(parts, &chunk, zul_x_checksum(bytes, size)),
                          zul_STATUS_OK);
            }
            ASSERT_EQ(zul_xout_writeColumn(parts, c, 0, values.data(), 50), zul_STATUS_OK);
            whole.writeColumn(c, 0, values);
        }
        zul_idx_close(&index);
        const void* bytes = nullptr;
        size_t size = 0;
        ASSERT_EQ(zul_xout_finish(parts, &bytes, &size), zul_STATUS_OK);
        const ByteVector fromParts(static_cast<const uint8_t*>(bytes),
                                   static_cast<const uint8_t*>(bytes) + size);
        zul_xout_close(&parts);
        const ByteVector fromWhole = whole.finish();
        EXPECT_EQ(fromParts, fromWhole);
        EXPECT_NO_THROW(zul::CompanionReader(fromWhole, stream));
    }
}

// A companion bound to another stream is refused: another marker, or another chunk layout.
// Columns written as they come: in directory order they are coded at once, in any other order
// kept until those before them are there; the bytes are the same either way, and on threads
// (in one batch of chunks, or in several).
TEST(Companion, ColumnsInAnyOrderMakeTheSameBytes) {
    ByteVector stream = makeStream(3, 300, 4);
    std::vector<int32_t> counts = chunkCounts(stream);
    const size_t numFields = allTypes().size();
    const auto companion = [&](bool withOrder, size_t rotate, bool reverse, bool orderFirst,
                               int threads = 1) {
        zul::CompanionWriter writer;
        for (const TypeCase& t : allTypes()) writer.addField(t.name, t.type, t.width);
        if (withOrder) writer.keepOrder();
        writer.setThreads(threads);
        writer.bindStream(stream);
        for (size_t c = 0; c < counts.size(); ++c) {
            std::vector<uint64_t> order(static_cast<size_t>(counts[c]));
            for (size_t i = 0; i < order.size(); ++i) order[i] = (i * 7919 + c) % order.size();
            if (withOrder && orderFirst) writer.writeOrder(static_cast<int64_t>(c), order);
            for (size_t k = 0; k < numFields; ++k) {
                const size_t f = (reverse ? numFields - 1 - k : k + rotate) % numFields;
                const int width = allTypes()[f].width;
                writer.writeColumn(static_cast<int64_t>(c), static_cast<int>(f),
                                   columnBytes(static_cast<int>(c % 3), counts[c], width,
                                               static_cast<unsigned>(c * 100 + f)),
                                   width);
            }
            if (withOrder && !orderFirst) writer.writeOrder(static_cast<int64_t>(c), order);
        }
        return writer.finish();
    };
    for (const bool withOrder : {false, true}) {
        const ByteVector inOrder = companion(withOrder, 0, false, false);
        EXPECT_EQ(companion(withOrder, 0, true, true), inOrder);
        EXPECT_EQ(companion(withOrder, 0, false, true), inOrder);  // coded as they come
        EXPECT_EQ(companion(withOrder, 1, false, false), inOrder);
        EXPECT_EQ(companion(withOrder, numFields / 2, false, true), inOrder);
        EXPECT_EQ(companion(withOrder, 0, false, false, 2), inOrder);
        EXPECT_EQ(companion(withOrder, 1, true, true, 3), inOrder);
        EXPECT_NO_THROW(zul::CompanionReader(inOrder, stream));
    }
    stream = makeStream(30, 5000, 4);  // more points than a batch
    counts = chunkCounts(stream);
    for (const bool withOrder : {false, true})
        EXPECT_EQ(companion(withOrder, 0, false, false, 3), companion(withOrder, 0, false, false));
}

TEST(Companion, CompanionOfAnotherStreamIsRefused) {
    const ByteVector stream = makeStream(3, 100, 3);
    const ByteVector companion = makeCompanion(stream, false);
    const ByteVector others[] = {makeStream(3, 100, 3), makeStream(2, 100, 3),
                                 ByteVector(stream.begin(), stream.end() - 40)};
    zul_xin_Reader reader = nullptr;
    ASSERT_EQ(zul_xin_openBuffer(&reader, companion.data(), companion.size()), zul_STATUS_OK);
    EXPECT_EQ(zul_xin_bindStreamBuffer(reader, stream.data(), stream.size()), zul_STATUS_OK);
    for (const ByteVector& other : others)
        EXPECT_EQ(zul_xin_bindStreamBuffer(reader, other.data(), other.size()),
                  zul_STATUS_COMPANION_MISMATCH);
    zul_idx_Index index = nullptr;
    ASSERT_EQ(zul_idx_openBuffer(&index, others[1].data(), others[1].size(), nullptr),
              zul_STATUS_OK);
    EXPECT_EQ(zul_xin_bindIndex(reader, index), zul_STATUS_COMPANION_MISMATCH);
    zul_idx_close(&index);
    int64_t numBad = 0;
    EXPECT_EQ(zul_xin_verifyBuffer(reader, others[0].data(), others[0].size(), nullptr, 0, &numBad),
              zul_STATUS_COMPANION_MISMATCH);
    zul_xin_close(&reader);
    EXPECT_THROW(zul::CompanionReader(companion, others[0]), zul::Error);
}

// Verify names every changed chunk (where the format's own checks may pass), the chunks a cut
// stream lost, bytes after the last chunk and a changed head.
TEST(Companion, VerifyNamesChangedAndMissingChunks) {
    const ByteVector stream = makeStream(4, 300, 4);
    const ByteVector companion = makeCompanion(stream, false);
    zul::CompanionReader reader(companion);
    const int64_t chunk1 = reader.chunk(1).chunk.offset, chunk3 = reader.chunk(3).chunk.offset;
    struct Case {
        const char* what;
        ByteVector stream;
        std::vector<int64_t> named;
    };
    std::vector<Case> cases = {
        {"intact", stream, {}},
        {"a payload bit of chunk 1", stream, {1}},
        {"bits of chunks 1 and 3", stream, {1, 3}},
        {"cut before chunk 3", ByteVector(stream.begin(), stream.begin() + chunk3), {3}},
        {"cut inside chunk 3", ByteVector(stream.begin(), stream.end() - 1), {3}},
        {"cut before chunk 1", ByteVector(stream.begin(), stream.begin() + chunk1), {1, 2, 3}},
        {"a byte after the end", stream, {4}},
        {"the step in the head", stream, {-1}},
    };
    cases[1].stream[static_cast<size_t>(chunk1 + 100)] ^= 0x10;
    cases[2].stream[static_cast<size_t>(chunk1 + 90)] ^= 0x01;
    cases[2].stream[static_cast<size_t>(chunk3 + 100)] ^= 0x80;
    cases[6].stream.push_back(0);
    cases[7].stream[13] ^= 0x01;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(reader.verify(c.stream), c.named);
    }
}

// Misuse of the writer is refused with the documented status and changes nothing.
TEST(Companion, WriterRefusesMisuse) {
    const ByteVector stream = makeStream(2, 10, 5);
    zul_xout_Writer w = nullptr;
    ASSERT_EQ(zul_xout_open(&w, nullptr), zul_STATUS_OK);
    const std::string longName(ZUL_FIELD_NAME_MAX + 1, 'n');
    uint16_t values[11] = {};
    const void* bytes = nullptr;
    size_t size = 0;
    EXPECT_EQ(zul_xout_addField(w, "", zul_FIELD_U8, 0, nullptr), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_xout_addField(w, longName.c_str(), zul_FIELD_U8, 0, nullptr),
              zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_xout_addField(w, "x", static_cast<zul_FieldType>(12), 0, nullptr),
              zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_xout_addField(w, "x", zul_FIELD_RAW, 0, nullptr), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_xout_addField(w, "a", zul_FIELD_U16, 0, nullptr), zul_STATUS_OK);
    EXPECT_EQ(zul_xout_addField(w, "a", zul_FIELD_U8, 0, nullptr), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_xout_setThreads(w, 0), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_xout_setThreads(w, 2), zul_STATUS_OK);
    EXPECT_EQ(zul_xout_writeColumn(w, 0, 0, values, 10), zul_STATUS_INVALID_STATE);
    EXPECT_EQ(zul_xout_finish(w, &bytes, &size), zul_STATUS_INVALID_STATE);
    EXPECT_EQ(zul_xout_addChunk(w, nullptr, 0), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_xout_bindStreamBuffer(w, stream.data(), 20), zul_STATUS_TRUNCATED);
    EXPECT_EQ(zul_xout_bindStreamBuffer(w, stream.data(), stream.size() - 1), zul_STATUS_TRUNCATED);
    EXPECT_EQ(zul_xout_bindStreamBuffer(w, stream.data(), stream.size()), zul_STATUS_OK);
    EXPECT_EQ(zul_xout_bindStreamBuffer(w, stream.data(), stream.size()), zul_STATUS_INVALID_STATE);
    EXPECT_EQ(zul_xout_addField(w, "b", zul_FIELD_U8, 0, nullptr), zul_STATUS_INVALID_STATE);
    EXPECT_EQ(zul_xout_setThreads(w, 1), zul_STATUS_INVALID_STATE);
    EXPECT_EQ(zul_xout_writeOrder(w, 0, nullptr, 0), zul_STATUS_INVALID_STATE);
    EXPECT_EQ(zul_xout_writeColumn(w, 0, 0, values, 11), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_xout_writeColumn(w, 1, 0, values, 10), zul_STATUS_INVALID_STATE);
    EXPECT_EQ(zul_xout_writeColumn(w, 0, 1, values, 10), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_xout_writeColumn(w, 0, 0, values, 10), zul_STATUS_OK);
    EXPECT_EQ(zul_xout_writeColumn(w, 0, 0, values, 10), zul_STATUS_INVALID_STATE);
    EXPECT_EQ(zul_xout_finish(w, &bytes, &size), zul_STATUS_INVALID_STATE);
    EXPECT_EQ(zul_xout_writeColumn(w, 1, 0, values, 10), zul_STATUS_OK);
    const uint64_t descending[2] = {5, 5};
    EXPECT_EQ(zul_xout_setRows(w, descending, values, 2, 2), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_xout_setRows(w, descending, values, 1, 0), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_xout_setRows(w, nullptr, values, 1, 2), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_xout_setRows(w, descending, values, 1, 2), zul_STATUS_OK);
    EXPECT_EQ(zul_xout_finish(w, nullptr, &size), zul_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(zul_xout_finish(w, &bytes, &size), zul_STATUS_OK);
    EXPECT_EQ(zul_xout_finish(w, &bytes, &size), zul_STATUS_INVALID_STATE);
    EXPECT_EQ(zul_xout_setRows(w, descending, values, 1, 2), zul_STATUS_INVALID_STATE);
    zul_xout_close(&w);
    EXPECT_EQ(w, nullptr);
}

// A path writer that cannot create its file says so and leaves nothing.
TEST_F(CompanionFiles, UnwritablePathIsAWriteError) {
    const ByteVector stream = makeStream(1, 10, 6);
    zul_xout_Writer w = nullptr;
    const std::string target = path("no/such/folder.zulx");
    ASSERT_EQ(zul_xout_open(&w, target.c_str()), zul_STATUS_OK);
    ASSERT_EQ(zul_xout_bindStreamBuffer(w, stream.data(), stream.size()), zul_STATUS_OK);
    EXPECT_EQ(zul_xout_finish(w, nullptr, nullptr), zul_STATUS_WRITE_ERROR);
    zul_xout_close(&w);
    EXPECT_FALSE(std::ifstream(target).good());
}

}  // namespace

namespace {

// The bytes of the blocks of a one-chunk companion of `values` (may be empty) and `order`.
int64_t blockSize(const ByteVector& stream, const std::vector<uint32_t>* values,
                  const std::vector<uint64_t>* order, std::vector<uint32_t>* back = nullptr) {
    zul::CompanionWriter writer;
    if (values) writer.addField("rising", zul_FIELD_U32);
    if (order) writer.keepOrder();
    writer.bindStream(stream);
    if (values) writer.writeColumn(0, 0, *values);
    if (order) writer.writeOrder(0, *order);
    const ByteVector companion = writer.finish();
    zul::CompanionReader reader(companion, stream);
    if (back) *back = reader.column<uint32_t>(0, 0);
    return reader.chunk(0).blockSize;
}

// With the order kept, a column that rises in the input's order but not in stored order is coded
// in the input's order, and comes back in stored order: for input indices close together or
// spread over more than 32 bits, each index once or three times.
struct OrderCase {
    uint64_t stride;  // between consecutive input indices
    size_t repeats;   // of each index
};
class InputOrder : public ::testing::TestWithParam<OrderCase> {};

TEST_P(InputOrder, ColumnsAreCodedInTheInputOrderWhereThatIsSmaller) {
    const ByteVector stream = makeStream(1, 5000, 9);
    std::vector<uint64_t> rank(5000), order(5000);
    for (size_t i = 0; i < rank.size(); ++i) rank[i] = i / GetParam().repeats;
    std::shuffle(rank.begin(), rank.end(), std::mt19937(9));
    std::vector<uint32_t> values(5000), back;
    for (size_t i = 0; i < values.size(); ++i) {
        order[i] = 1000 + rank[i] * GetParam().stride;
        values[i] = static_cast<uint32_t>(rank[i] * 3 + 7);
    }
    const int64_t alone = blockSize(stream, &values, nullptr);
    const int64_t withOrder = blockSize(stream, &values, &order, &back);
    const int64_t orderAlone = blockSize(stream, nullptr, &order);
    EXPECT_EQ(back, values);
    EXPECT_LT(withOrder - orderAlone, alone / 20);
}

INSTANTIATE_TEST_SUITE_P(Companion, InputOrder,
                         ::testing::Values(OrderCase{1, 1}, OrderCase{1, 3},
                                           OrderCase{uint64_t{1} << 20, 1},
                                           OrderCase{uint64_t{1} << 40, 3}));

// A column's coding is kept from chunk to chunk, and tried anew when it stops fitting: a column
// constant for 8 chunks and then rising is coded small again from the second rising chunk on.
TEST(Companion, ColumnCodingFollowsAChangeOfItsValues) {
    const int chunks = 32, points = 1024;
    const ByteVector stream = makeStream(chunks, points, 5);
    zul::CompanionWriter writer;
    writer.addField("time", zul_FIELD_U32);
    writer.bindStream(stream);
    std::vector<uint32_t> values(points);
    for (int c = 0; c < chunks; ++c) {
        for (int i = 0; i < points; ++i)
            values[size_t(i)] = c < 8 ? 0 : uint32_t(c * points + i) * 977u;
        writer.writeColumn(c, 0, values);
    }
    const ByteVector companion = writer.finish();
    zul::CompanionReader reader(companion, stream);
    for (int c = 0; c < chunks; ++c) {
        for (int i = 0; i < points; ++i)
            values[size_t(i)] = c < 8 ? 0 : uint32_t(c * points + i) * 977u;
        ASSERT_EQ(reader.column<uint32_t>(c, 0), values) << "chunk " << c;
        if (c != 8) {
            EXPECT_LT(reader.chunk(c).blockSize, points / 4) << "chunk " << c;
        }
    }
}

}  // namespace

namespace {

// A column of one repeated byte is written as a frame of RLE blocks up to 1 MiB (content sizes
// in 1, 2 and 4 bytes, one block and two) and by zstd beyond: each comes back, in a few bytes.
class RepeatedByte : public ::testing::TestWithParam<int> {};

TEST_P(RepeatedByte, ColumnComesBackSmall) {
    const int points = GetParam();
    const ByteVector stream = makeStream(1, points, 3);
    const std::vector<uint64_t> values(size_t(points), 0x4242424242424242u);
    zul::CompanionWriter writer;
    writer.addField("same", zul_FIELD_U64);
    writer.bindStream(stream);
    writer.writeColumn(0, 0, values);
    const ByteVector companion = writer.finish();
    zul::CompanionReader reader(companion, stream);
    EXPECT_EQ(reader.column<uint64_t>(0, 0), values);
    EXPECT_LT(reader.chunk(0).blockSize, 64);
}

INSTANTIATE_TEST_SUITE_P(Companion, RepeatedByte,
                         ::testing::Values(1, 31, 32, 8223, 8224, 16385, 131072, 131073));

}  // namespace
