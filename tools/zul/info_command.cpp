// zul info: what a zul file holds, from its file header and chunk headers alone; no body is
// decoded. The bytes of each data stream come from the size fields of the chunk headers.
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "commands.h"
#include "formats/byte_input.h"
#include "formats/cloud.h"
#include "formats/output_grid.h"
#include "status_text.h"
#include "zul.h"

namespace zultool {

namespace {

constexpr int kMarkerSize = 16;
// In a chunk header: the point count, then the size of each data stream.
constexpr int kCountOffset = 48;
constexpr int kFirstSizeOffset = 52;

// What each data stream would take uncompressed: three doubles, three bytes, one 32-bit
// integer, three floats a point.
constexpr double kRawBytes[4] = {24, 3, 4, 12};
const char* const kStreamNames[4] = {"coordinates", "colour", "reflection", "normals"};

struct FileSummary {
    uint64_t fileBytes = 0;
    int version = 0;
    zul_DataType dataType;
    zul_Header2 header;
    uint64_t chunks = 0;
    uint64_t points = 0;
    bool present[4] = {true, false, false, false};
    uint64_t streamBytes[4] = {};
};

struct DecoderGuard {
    zul_dec_Context context = nullptr;
    ~DecoderGuard() { zul_dec_close(&context); }
};

FileSummary summarise(const std::string& path) {
    ByteInput in(path);
    FileSummary summary;
    summary.fileBytes = in.size();
    auto need = [&](std::vector<char>& bytes, size_t n, zul_Status cut, ZulStage stage) {
        bytes.resize(n);
        if (in.readSome(bytes.data(), n) != n) checkStatus(cut, path, stage);
    };
    std::vector<char> bytes;
    need(bytes, 8, zul_STATUS_TRUNCATED, ZulStage::Open);
    DecoderGuard decoder;
    int headerSize = 0;
    checkStatus(zul_dec_open2(&decoder.context, &headerSize, bytes.data(), nullptr), path,
                ZulStage::Open);
    // Byte 3 of the signature is the format version.
    summary.version = static_cast<unsigned char>(bytes[3]);
    need(bytes, static_cast<size_t>(headerSize), zul_STATUS_TRUNCATED, ZulStage::Open);
    int chunkHeaderSize = 0;
    const char* syncMarker = nullptr;
    checkStatus(zul_dec_decodeFileHeader2(decoder.context, &summary.dataType, &summary.header,
                                          &chunkHeaderSize, &syncMarker, bytes.data()),
                path, ZulStage::Open);
    summary.present[1] = summary.dataType.colorMode != zul_COLOR_NONE;
    summary.present[2] = summary.dataType.reflectionMode != zul_REFLECTION_NONE;
    summary.present[3] = summary.dataType.normalMode != zul_NORMAL_NONE;
    for (;;) {
        bytes.resize(kMarkerSize);
        const size_t got = in.readSome(bytes.data(), kMarkerSize);
        if (got == 0) break;
        if (got < kMarkerSize) checkStatus(zul_STATUS_TRUNCATED, path, ZulStage::Read);
        if (std::memcmp(bytes.data(), syncMarker, kMarkerSize) != 0) {
            checkStatus(zul_STATUS_CORRUPT_DATA, path, ZulStage::Read);
        }
        need(bytes, static_cast<size_t>(chunkHeaderSize), zul_STATUS_TRUNCATED, ZulStage::Read);
        int bodySize = 0;
        checkStatus(zul_dec_decodeChunkHeader(decoder.context, &bodySize, bytes.data()), path,
                    ZulStage::Read);
        const auto* header = reinterpret_cast<const unsigned char*>(bytes.data());
        summary.points += loadLittle<int32_t>(header + kCountOffset);
        int field = 0;
        for (int stream = 0; stream < 4; ++stream) {
            if (!summary.present[stream]) continue;
            summary.streamBytes[stream] +=
                loadLittle<uint32_t>(header + kFirstSizeOffset + 4 * field++);
        }
        ++summary.chunks;
        if (static_cast<uint64_t>(bodySize) > in.size() - in.position()) {
            checkStatus(zul_STATUS_TRUNCATED, path, ZulStage::Read);
        }
        in.seek(in.position() + static_cast<uint64_t>(bodySize));
    }
    return summary;
}

const char* colorName(zul_ColorMode mode) {
    return mode == zul_COLOR_RGB565 ? "rgb565" : mode == zul_COLOR_RGB888 ? "rgb888" : "none";
}

double ratio(double raw, double bytes) { return bytes > 0 ? raw / bytes : 0.0; }

void printText(const std::string& path, const FileSummary& s) {
    const zul_DataType& d = s.dataType;
    const double n = static_cast<double>(s.points);
    std::printf("file         %s, %" PRIu64 " bytes\n", path.c_str(), s.fileBytes);
    std::printf("version      %d\n", s.version);
    std::printf("step         %s\n", stepText(d, s.header).c_str());
    std::printf("colour       %s\n", colorName(d.colorMode));
    if (d.reflectionMode != zul_REFLECTION_NONE) {
        std::printf("reflection   0 .. %d\n", d.maxReflection);
    } else {
        std::printf("reflection   none\n");
    }
    std::printf("normals      %s\n", d.normalMode != zul_NORMAL_NONE ? "spherical" : "none");
    if (s.header.enabled) {
        std::printf("sensor       mount %d, type %d; may scale: %s, rotate: %s, translate: %s\n",
                    static_cast<int>(s.header.sensorMount), static_cast<int>(s.header.sensorType),
                    s.header.hasScaling ? "yes" : "no", s.header.hasRotation ? "yes" : "no",
                    s.header.hasTranslation ? "yes" : "no");
        const double* m = s.header.transformation;
        for (int row = 0; row < 4; ++row) {
            std::printf("%s [%12.9g %12.9g %12.9g %12.9g]\n",
                        row == 0 ? "matrix      " : "            ", m[row], m[4 + row], m[8 + row],
                        m[12 + row]);
        }
    } else {
        std::printf("sensor       none\n");
    }
    std::printf("chunks       %" PRIu64 "\n", s.chunks);
    std::printf("points       %" PRIu64 "\n", s.points);
    std::printf("\n%-12s %14s %12s %14s %8s\n", "stream", "bytes", "bits/point", "raw bytes",
                "ratio");
    uint64_t streams = 0;
    double raw = 0;
    for (int i = 0; i < 4; ++i) {
        if (!s.present[i]) continue;
        streams += s.streamBytes[i];
        raw += kRawBytes[i] * n;
        std::printf("%-12s %14" PRIu64 " %12.3f %14.0f %7.2f:1\n", kStreamNames[i],
                    s.streamBytes[i], n > 0 ? 8.0 * s.streamBytes[i] / n : 0.0, kRawBytes[i] * n,
                    ratio(kRawBytes[i] * n, static_cast<double>(s.streamBytes[i])));
    }
    const uint64_t framing = s.fileBytes - streams;
    std::printf("%-12s %14" PRIu64 " %12.3f\n", "framing", framing,
                n > 0 ? 8.0 * framing / n : 0.0);
    std::printf("%-12s %14" PRIu64 " %12.3f %14.0f %7.2f:1\n", "total", s.fileBytes,
                n > 0 ? 8.0 * s.fileBytes / n : 0.0, raw,
                ratio(raw, static_cast<double>(s.fileBytes)));
}

std::string jsonString(const std::string& text) {
    std::string out = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
            out += escaped;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

void printJson(const std::string& path, const FileSummary& s) {
    const zul_DataType& d = s.dataType;
    const double n = static_cast<double>(s.points);
    std::printf("{\n  \"file\": %s,\n  \"bytes\": %" PRIu64 ",\n  \"version\": %d,\n",
                jsonString(path).c_str(), s.fileBytes, s.version);
    std::printf("  \"step\": %s,\n  \"color\": \"%s\",\n", stepText(d, s.header).c_str(),
                colorName(d.colorMode));
    if (d.reflectionMode != zul_REFLECTION_NONE) {
        std::printf("  \"maxReflection\": %d,\n", d.maxReflection);
    } else {
        std::printf("  \"maxReflection\": null,\n");
    }
    std::printf("  \"normals\": %s,\n", d.normalMode != zul_NORMAL_NONE ? "true" : "false");
    if (s.header.enabled) {
        std::printf(
            "  \"sensor\": {\"mount\": %d, \"type\": %d, \"hasScaling\": %s, "
            "\"hasRotation\": %s, \"hasTranslation\": %s, \"matrix\": [",
            static_cast<int>(s.header.sensorMount), static_cast<int>(s.header.sensorType),
            s.header.hasScaling ? "true" : "false", s.header.hasRotation ? "true" : "false",
            s.header.hasTranslation ? "true" : "false");
        for (int i = 0; i < 16; ++i)
            std::printf("%s%.17g", i ? ", " : "", s.header.transformation[i]);
        std::printf("]},\n");
    } else {
        std::printf("  \"sensor\": null,\n");
    }
    std::printf("  \"chunks\": %" PRIu64 ",\n  \"points\": %" PRIu64 ",\n  \"streams\": {",
                s.chunks, s.points);
    bool first = true;
    uint64_t streams = 0;
    for (int i = 0; i < 4; ++i) {
        if (!s.present[i]) continue;
        streams += s.streamBytes[i];
        std::printf("%s\n    \"%s\": {\"bytes\": %" PRIu64
                    ", \"bitsPerPoint\": %.6g, \"rawBytes\": %.0f, "
                    "\"ratio\": %.6g}",
                    first ? "" : ",", kStreamNames[i], s.streamBytes[i],
                    n > 0 ? 8.0 * s.streamBytes[i] / n : 0.0, kRawBytes[i] * n,
                    ratio(kRawBytes[i] * n, static_cast<double>(s.streamBytes[i])));
        first = false;
    }
    std::printf("\n  },\n  \"framingBytes\": %" PRIu64 "\n}\n", s.fileBytes - streams);
}

}  // namespace

int runInfo(const InfoOptions& options) {
    const FileSummary summary = summarise(options.input);
    if (options.json) {
        printJson(options.input, summary);
    } else {
        printText(options.input, summary);
    }
    return 0;
}

}  // namespace zultool
