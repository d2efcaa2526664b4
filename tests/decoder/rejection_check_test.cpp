// Damaged input is refused by the check meant for it, not by some other check that happens to
// fire as well. Builds that record refusals (debug and fuzz) name the check; elsewhere the status
// alone is checked and nothing is recorded.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "frame/data_check.h"
#include "frame/stored_bytes.h"
#include "support/file_stream.h"
#include "support/test_names.h"

namespace {

const zul_DataType kRGB888 = makeDataType(0.5f, zul_COLOR_RGB888, 0, false);

// A damage done to the one chunk of a small RGB888 stream, and the check that must refuse it.
struct Damage {
    const char* name;
    void (*damage)(Bytes& header, Bytes& body);
    const char* file;   // where the check is, the end of its path
    const char* check;  // the check as written there
};

unsigned char* field(Bytes& bytes, size_t at) {
    return reinterpret_cast<unsigned char*>(&bytes[at]);
}
void addTo(Bytes& bytes, size_t at, int64_t change) {
    zullib::storeLE(field(bytes, at), zullib::loadLE(field(bytes, at), 4) + change, 4);
}
const size_t kCountAt = 48, kCoordinateSizeAt = 52, kColorSizeAt = 56;

class RejectionCheck : public ::testing::TestWithParam<Damage> {};

TEST_P(RejectionCheck, NamesTheCheckThatRefused) {
    const Damage& d = GetParam();
    std::vector<PointCloud> clouds = {randomCloud(400, 3)};
    // The body is cut or padded with zeros to the size the header declares.
    const EncodedStream stream = encodeStream(kRGB888, nullptr, clouds);
    Bytes header = stream.chunkHeaders[0], body = stream.bodies[0];
    d.damage(header, body);
    Decoder decoder;
    decoder.start(stream);
    zullib::clearRefusal();
    zul_Status status = decoder.chunkHeader(header);
    if (status == zul_STATUS_OK) {
        body.resize(static_cast<size_t>(decoder.bodySize), '\0');
        status = decoder.body(body);
    }
    EXPECT_EQ(status, zul_STATUS_CORRUPT_DATA);
    const zullib::Refusal refusal = zullib::firstRefusal();
    if (!zullib::kRefusalsRecorded) {
        EXPECT_EQ(refusal.file, nullptr);
        return;
    }
    ASSERT_NE(refusal.file, nullptr);
    EXPECT_TRUE(std::string(refusal.file).find(d.file) != std::string::npos) << refusal.file;
    EXPECT_EQ(std::string(refusal.check), d.check) << refusal.file << ":" << refusal.line;
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Decoder, RejectionCheck, ::testing::Values(
    Damage{"box upside down on z", [](Bytes& h, Bytes&) { h[47] = '\x80'; },
           "decoder/header_decoder.cpp", "low[axis] <= high[axis]"},
    Damage{"no points", [](Bytes& h, Bytes&) { zullib::storeLE(field(h, kCountAt), 0u, 4); },
           "decoder/header_decoder.cpp", "chunkPoints.numPoints >= 1"},
    Damage{"streams of 2^31 bytes", [](Bytes& h, Bytes&) { zullib::storeLE(field(h, kColorSizeAt), 0x80000000u, 4); },
           "decoder/header_decoder.cpp", "end <= INT32_MAX"},
    Damage{"2^30 points", [](Bytes& h, Bytes&) { zullib::storeLE(field(h, kCountAt), 1u << 30, 4); },
           "decoder/chunk_decoder.cpp", "numPoints < kMaxChunkPoints"},
    Damage{"an escape before the last entry", [](Bytes&, Bytes& b) { b[0] = '\x02'; b[1] = '\xFF'; },
           "entropy/data_stream_reader.h", "entry != 255 || j == count - 1"},
    Damage{"colours a byte longer than their codes", [](Bytes& h, Bytes&) { addTo(h, kColorSizeAt, 1); },
           "decoder/chunk_decoder.cpp", "streamsCanHoldTheCount"},
    Damage{"coordinates a byte longer than their codes", [](Bytes& h, Bytes& b) {
               b.insert(zullib::loadLE(field(h, kCoordinateSizeAt), 4), 1, '\0');
               addTo(h, kCoordinateSizeAt, 1); },
           "decoder/lockstep_streams.cpp", "in.bytePosition == end"}),
    NameOfCase());
// clang-format on

// The file layer refuses a chunk whose marker is not the stream's.
TEST(RejectionCheck, OfADamagedMarkerIsTheFileLayers) {
    std::vector<PointCloud> clouds = {randomCloud(10, 4), randomCloud(10, 5)};
    EncodedStream stream = encodeStream(kRGB888, nullptr, clouds);
    stream.markers[1][7] ^= 0x01;
    const std::string path = ::testing::TempDir() + "rejection_check_marker.zul";
    writeFile(path, fileBytes(stream));
    zul_in_Context reader = nullptr;
    zul_DataType dataType;
    ASSERT_EQ(zul_in_open(&reader, &dataType, path.c_str()), zul_STATUS_OK);
    zullib::clearRefusal();
    zul_Point point;
    zul_Status status;
    int read = 0;
    while ((status = zul_in_readNextPoint(reader, &point)) == zul_STATUS_OK) ++read;
    zul_in_close(&reader);
    std::remove(path.c_str());
    EXPECT_EQ(read, 10);
    EXPECT_EQ(status, zul_STATUS_CORRUPT_DATA);
    if (zullib::kRefusalsRecorded) {
        EXPECT_EQ(std::string(zullib::firstRefusal().check), "syncMarker.equals(markerBuffer)");
    }
}

}  // namespace
