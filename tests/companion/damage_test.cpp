// Damaged companions and blobs: every prefix and every flipped byte is refused with a status,
// never read as good, never a crash.
#include "companion/companion_support.h"

namespace {

// Opens the bytes and reads everything they hold; returns the first status that is not OK.
zul_Status readAll(const ByteVector& bytes) {
    zul_xin_Reader reader = nullptr;
    zul_Status status = zul_xin_openBuffer(&reader, bytes.data(), bytes.size());
    zul_CompanionInfo info = {};
    if (status == zul_STATUS_OK) status = zul_xin_getInfo(reader, &info);
    std::vector<uint8_t> values;
    for (int64_t c = 0; c < info.numChunks && status == zul_STATUS_OK; ++c) {
        zul_CompanionChunk chunk;
        zul_xin_getChunk(reader, c, &chunk);
        for (int32_t f = -1; f < info.numFields && status == zul_STATUS_OK; ++f) {
            zul_FieldInfo field = {};
            field.width = 8;
            if (f >= 0) zul_xin_getField(reader, f, &field);
            values.resize(static_cast<size_t>(chunk.chunk.numPoints) * field.width);
            status = f < 0
                         ? zul_xin_readOrder(reader, c, reinterpret_cast<uint64_t*>(values.data()),
                                             chunk.chunk.numPoints)
                         : zul_xin_readColumn(reader, c, f, values.data(), chunk.chunk.numPoints);
        }
    }
    int64_t rows = 0;
    int32_t width = 0;
    if (status == zul_STATUS_OK) status = zul_xin_getRowInfo(reader, &rows, &width);
    if (status == zul_STATUS_OK && rows > 0) {
        std::vector<uint64_t> indices(static_cast<size_t>(rows));
        values.resize(static_cast<size_t>(rows) * static_cast<size_t>(width));
        status = zul_xin_readRows(reader, indices.data(), values.data(), rows);
    }
    zul_xin_close(&reader);
    return status;
}

class DamagedCompanion : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        stream = new ByteVector(makeStream(2, 40, 7));
        companion = new ByteVector(makeCompanion(*stream, true, true));
    }
    static void TearDownTestSuite() { delete stream, delete companion; }
    static ByteVector* stream;
    static ByteVector* companion;
};
ByteVector* DamagedCompanion::stream = nullptr;
ByteVector* DamagedCompanion::companion = nullptr;

TEST_F(DamagedCompanion, EveryPrefixIsRefused) {
    ASSERT_EQ(readAll(*companion), zul_STATUS_OK);
    for (size_t length = 0; length < companion->size(); ++length) {
        const ByteVector prefix(companion->begin(), companion->begin() + length);
        const zul_Status status = readAll(prefix);
        ASSERT_TRUE(status == zul_STATUS_TRUNCATED || status == zul_STATUS_CORRUPT_DATA)
            << length << " bytes: " << status;
    }
    ByteVector longer = *companion;
    longer.push_back(0);
    EXPECT_EQ(readAll(longer), zul_STATUS_CORRUPT_DATA);
}

// A flipped bit anywhere (one a byte, turning) is caught by a checksum or a check.
TEST_F(DamagedCompanion, EveryFlippedBitIsCaught) {
    for (size_t at = 0; at < companion->size(); ++at) {
        ByteVector damaged = *companion;
        damaged[at] ^= static_cast<uint8_t>(1u << (at % 8));
        const zul_Status status = readAll(damaged);
        ASSERT_NE(status, zul_STATUS_OK) << "byte " << at;
        ASSERT_LT(status, zul_STATUS_INVALID_ARGUMENT) << "byte " << at;
    }
}

TEST_F(DamagedCompanion, HeadSizeNeedsTheHeader) {
    int64_t headSize = 0;
    EXPECT_EQ(zul_xin_getHeadSize(companion->data(), 111, &headSize), zul_STATUS_TRUNCATED);
    ByteVector other = *companion;
    other[0] = 'x';
    EXPECT_EQ(zul_xin_getHeadSize(other.data(), 112, &headSize), zul_STATUS_BAD_SIGNATURE);
    other = *companion;
    other[8] = 3;
    EXPECT_EQ(readAll(other), zul_STATUS_BAD_VERSION);
    other = *companion;
    other[8] = 1;  // the version is under the head's checksum
    EXPECT_EQ(readAll(other), zul_STATUS_CORRUPT_DATA);
    other = *companion;
    other[16] = 0xFF, other[20] = 0xFF;  // chunk count far beyond the file
    EXPECT_EQ(zul_xin_getHeadSize(other.data(), 112, &headSize), zul_STATUS_CORRUPT_DATA);
}

TEST(CompanionBlob, PacksAndRefusesDamage) {
    const ByteVector stream = makeStream(1, 20, 8), companion = makeCompanion(stream, false);
    size_t size = 0;
    ASSERT_EQ(zul_xblob_pack(stream.data(), stream.size(), companion.data(), companion.size(),
                             nullptr, 0, &size),
              zul_STATUS_OK);
    EXPECT_EQ(size, 24 + stream.size() + companion.size());
    ByteVector blob(size);
    EXPECT_EQ(zul_xblob_pack(stream.data(), stream.size(), companion.data(), companion.size(),
                             blob.data(), size - 1, &size),
              zul_STATUS_INVALID_ARGUMENT);
    ASSERT_EQ(zul_xblob_pack(stream.data(), stream.size(), companion.data(), companion.size(),
                             blob.data(), blob.size(), &size),
              zul_STATUS_OK);
    const void *s = nullptr, *c = nullptr;
    size_t sSize = 0, cSize = 0;
    ASSERT_EQ(zul_xblob_unpack(blob.data(), blob.size(), &s, &sSize, &c, &cSize), zul_STATUS_OK);
    EXPECT_EQ(ByteVector(static_cast<const uint8_t*>(s), static_cast<const uint8_t*>(s) + sSize),
              stream);
    EXPECT_EQ(ByteVector(static_cast<const uint8_t*>(c), static_cast<const uint8_t*>(c) + cSize),
              companion);
    struct Case {
        size_t at;  // the byte changed, or the length kept when `cut`
        bool cut;
        zul_Status status;
    };
    const Case cases[] = {
        {0, false, zul_STATUS_BAD_SIGNATURE}, {4, false, zul_STATUS_BAD_VERSION},
        {6, false, zul_STATUS_CORRUPT_DATA},  {15, false, zul_STATUS_TRUNCATED},
        {23, false, zul_STATUS_TRUNCATED},    {3, true, zul_STATUS_TRUNCATED},
        {23, true, zul_STATUS_TRUNCATED},     {size - 1, true, zul_STATUS_TRUNCATED}};
    for (const Case& k : cases) {
        ByteVector damaged = blob;
        if (k.cut)
            damaged.resize(k.at);
        else
            damaged[k.at] ^= 0x40;
        EXPECT_EQ(zul_xblob_unpack(damaged.data(), damaged.size(), &s, &sSize, &c, &cSize),
                  k.status)
            << k.at;
    }
    blob.push_back(0);
    EXPECT_EQ(zul_xblob_unpack(blob.data(), blob.size(), &s, &sSize, &c, &cSize),
              zul_STATUS_CORRUPT_DATA);
}

}  // namespace
