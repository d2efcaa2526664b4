// Values the stream holds come back as the source held them, or the user is told how: LAS colour
// held as 8-bit values, times 256 or times 257 in the 16-bit fields; KITTI reflectances at their
// own decimal scale; LAS integers that a finer or coarser grid moves, counted axis by axis. One
// row a generated file.
#include <cstring>

#include "support/test_names.h"
#include "support/tool_support.h"

namespace {

struct ValuesCase {
    const char* name;
    const char* file;
    std::function<std::string()> bytes;
    const char* compressOptions;
    const char* compressNote;  // a fragment of compress's notes ("" none expected)
    const char* absentNote;    // a fragment compress must not say ("" none)
    const char* decompressOptions;
    const char* output;  // the decompressed file, compared raw with the input ("" not compared)
};

void PrintTo(const ValuesCase& c, std::ostream* out) { *out << c.name; }

// A LAS 1.2 file of point format 2, `count` points on a 0.01 grid, every channel colour(i).
std::string colourLas(uint16_t (*colour)(uint32_t), uint32_t count = 50) {
    return lasBytes(2, 2, 26, {0.01, 0.01, 0.01, 0, 0, 0}, count, false,
                    [colour](uint32_t i, std::string& r) {
                        const int32_t xyz[3] = {static_cast<int32_t>(i), 3, 7};
                        std::memcpy(&r[0], xyz, 12);
                        for (int c = 0; c < 3; ++c)
                            put<uint16_t>(r, 20 + 2 * c, colour(i + static_cast<uint32_t>(c)));
                    });
}

// 50 points whose X integers, of a scale of 0.025, fall between the 0.01 grid's points when odd.
std::string quarterScaleLas() {
    return lasBytes(2, 0, 20, {0.025, 0.01, 0.01, 0, 0, 0}, 50, false,
                    [](uint32_t i, std::string& r) {
                        const int32_t xyz[3] = {static_cast<int32_t>(i), 3, 7};
                        std::memcpy(&r[0], xyz, 12);
                    });
}

std::string kitti() {
    const float records[4][4] = {
        {1, 2, 3, 0.99f}, {4, 5, 6, 0.5f}, {7, 8, 9, 0.07f}, {1, 1, 1, 0.0f}};
    return std::string(reinterpret_cast<const char*>(records), sizeof records);
}

const ValuesCase kCases[] = {
    {"colour as it is", "c.las",
     [] { return colourLas([](uint32_t i) { return uint16_t(i * 5); }); }, "",
     "as they are (0 .. 255) in LAS's 16-bit fields, kept exactly", "left out: the low byte",
     "--las-color-scale 1", "back.las"},
    {"colour times 256", "c.las",
     [] { return colourLas([](uint32_t i) { return uint16_t(i * 5 * 256); }); }, "",
     "times 256 (every low byte 0)", "left out: the low byte", "--las-color-scale 256", "back.las"},
    {"colour times 257", "c.las",
     [] { return colourLas([](uint32_t i) { return uint16_t(i * 5 * 257); }); }, "", "", "low byte",
     "", "back.las"},
    {"16-bit colour", "c.las",
     [] { return colourLas([](uint32_t i) { return uint16_t(i * 1000 + 1); }); }, "",
     "left out: the low byte of 16-bit colour", "--las-color-scale", "", ""},
    {"16-bit colour in the last points only", "c.las",
     [] { return colourLas([](uint32_t i) { return uint16_t(i < 9000 ? i % 256 : 300); }, 9002); },
     "", "left out: the low byte of 16-bit colour", "--las-color-scale", "", ""},
    {"kitti reflectance of two decimals", "k.bin", kitti, "",
     "intensities are stored multiplied by 100", "", "", "back.bin"},
    {"scales 0.025 0.01 0.01", "q.las", quarterScaleLas, "",
     "changed 25 values: x values moved onto the grid of 0.01", "y values", "", ""},
    {"step 0.015 on a 0.01 grid", "q.las", quarterScaleLas, "--step 0.015",
     "changed 33 values: x values moved onto the grid of 0.015 (by at most half of it)\nzul: "
     "changed 50 values: z values moved",
     "y values", "", ""},
};

class StreamValues : public ToolTest, public ::testing::WithParamInterface<ValuesCase> {};

// The records of a file with fixed-size records after `header` bytes, sorted.
std::vector<std::string> sortedRecords(const std::string& bytes, size_t header, size_t size) {
    std::vector<std::string> records;
    for (size_t at = header; at + size <= bytes.size(); at += size)
        records.push_back(bytes.substr(at, size));
    std::sort(records.begin(), records.end());
    return records;
}

TEST_P(StreamValues, ComeBackOrAreSaid) {
    const ValuesCase& c = GetParam();
    const std::string input = path(c.file);
    const std::string bytes = c.bytes();
    writeFile(input, bytes);
    const ToolRun run =
        // The stream's own values, as a file without a companion gives them back.
        runTool(std::string("compress --no-companion ") + c.compressOptions + " " + input + " " +
                path("a.zul"));
    ASSERT_EQ(run.exitCode, 0) << run.output;
    EXPECT_NE(run.output.find(c.compressNote), std::string::npos) << run.output;
    if (c.absentNote[0] != '\0') {
        EXPECT_EQ(run.output.find(c.absentNote), std::string::npos) << run.output;
    }
    if (c.output[0] == '\0') return;
    ASSERT_TRUE(toolSucceeds(std::string("decompress -q ") + c.decompressOptions + " " +
                             path("a.zul") + " " + path(c.output)));
    const std::string back = readFile(path(c.output));
    if (std::string(c.output) == "back.bin") {
        EXPECT_EQ(sortedRecords(back, 0, 16), sortedRecords(bytes, 0, 16));
        return;
    }
    // The colours of the LAS records, sorted, as 16-bit values.
    const auto colours = [](const std::string& las) {
        const size_t offset = static_cast<unsigned char>(las[96]) |
                              static_cast<size_t>(static_cast<unsigned char>(las[97])) << 8;
        std::vector<std::string> all;
        for (const std::string& r : sortedRecords(las, offset, 26)) all.push_back(r.substr(20, 6));
        std::sort(all.begin(), all.end());
        return all;
    };
    EXPECT_EQ(colours(back), colours(bytes));
}

INSTANTIATE_TEST_SUITE_P(Cases, StreamValues, ::testing::ValuesIn(kCases), NameOfCase());

// A coordinate system without an EPSG code, kept beside the stream, makes a LAS output 1.4 with
// the system in its WKT record, said, rather than no output.
TEST_F(ToolTest, LasOutputOfASystemWithoutEpsgCodeIsLas14) {
    ASSERT_TRUE(toolSucceeds("compress -q --no-companion " + dataFile("sample_c.las") + " " +
                             path("s.zul")));
    writeFile(path("s.prj"),
              "PROJCS[\"custom\",GEOGCS[\"GCS_WGS_1984\",DATUM[\"D_WGS_1984\",SPHEROID[\"WGS_"
              "1984\",6378137,298.257223563]],PRIMEM[\"Greenwich\",0],UNIT[\"Degree\",0."
              "017453292519943295]],PROJECTION[\"Transverse_Mercator\"],PARAMETER[\"False_"
              "Easting\",500000],PARAMETER[\"False_Northing\",0],PARAMETER[\"Central_Meridian\","
              "13.3],PARAMETER[\"Scale_Factor\",0.9996],PARAMETER[\"Latitude_Of_Origin\",0],"
              "UNIT[\"Meter\",1]]");
    const ToolRun run = runTool("decompress " + path("s.zul") + " " + path("s.las"));
    ASSERT_EQ(run.exitCode, 0) << run.output;
    EXPECT_NE(run.output.find("s.las: written as LAS 1.4, whose WKT record holds the coordinate "
                              "system"),
              std::string::npos)
        << run.output;
    const std::string las = readFile(path("s.las"));
    ASSERT_GT(las.size(), 26u);
    EXPECT_EQ(las[25], 4);
    std::unique_ptr<zulformats::CloudReader> reader =
        zulformats::openCloudReader(path("s.las"), zulformats::Format::Las);
    std::string problem;
    const std::string crs = reader->coordinateSystem(problem);
    EXPECT_NE(crs.find("custom"), std::string::npos) << crs;
}

}  // namespace
