// What the fuzz targets share: a check that stops the run, the entry point, the budget of points
// a target decodes, owners of the library's handles, the scratch file of the file targets, the
// two references a target compares the library with (the in-memory decoder split as a caller
// splits a stream, and the rules of the format for a written point), the file reader's run, and
// the input of the write-and-read target.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "zul.h"
#include "zul_bulk.h"

// A failed check is a finding: the process aborts, which libFuzzer reports with the input, and
// which fails the replay of a corpus.
#define FUZZ_CHECK(condition) \
    ((condition) ? void() : zulfuzz::checkFailed(__FILE__, __LINE__, #condition))

// The entry point of a target that runs `check(data, size)`. Running out of memory is the one way
// the library may leave a call other than by a status.
#define FUZZ_TARGET(check)                                                    \
    extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) { \
        try {                                                                 \
            check(data, size);                                                \
        } catch (const std::bad_alloc&) {                                     \
        }                                                                     \
        return 0;                                                             \
    }

namespace zulfuzz {

[[noreturn]] inline void checkFailed(const char* file, int line, const char* condition) {
    std::fprintf(stderr, "%s:%d: check failed: %s\n", file, line, condition);
    std::abort();
}

// A chunk may hold a billion identical points in a few bytes, all of them valid, so the targets
// behave as a host with the bulk layer's default limits does: a chunk whose claimed count would
// decode into more than ZUL_BULK_DEFAULT_CHUNK_BUDGET bytes, or would bring the points decoded
// before it and its own past the density limit for the bytes up to its end, is skipped from its
// header, where the chunk index stops. No run then decodes more than densityBound(input size)
// points. Under AddressSanitizer a failed allocation aborts instead of throwing, so these limits,
// not std::bad_alloc, keep a run inside its memory and time.
inline int64_t densityBound(int64_t bytes) {
    return ZUL_BULK_DENSITY_ALLOWANCE + ZUL_BULK_DEFAULT_POINT_DENSITY * bytes;
}

// True if a chunk of `numPoints` points of the type, ending at byte `end` of the stream behind
// `before` points, passes the bulk layer's chunk budget or its density limit.
inline bool overReaderLimits(int64_t before, int64_t numPoints, int64_t end,
                             const zul_DataType& type) {
    const int64_t perPoint = ZUL_BULK_DECODED_BYTES_PER_POINT + 24 +
                             (type.colorMode != zul_COLOR_NONE ? 3 : 0) +
                             (type.reflectionMode != zul_REFLECTION_NONE ? 4 : 0) +
                             (type.normalMode != zul_NORMAL_NONE ? 12 : 0);
    return numPoints * perPoint > ZUL_BULK_DEFAULT_CHUNK_BUDGET ||
           before + numPoints > densityBound(end);
}

// The owner of a handle or record, released on every way out of a check, a failed one included.
template <class T, void (*release)(T*)>
struct Owner {
    T value{};
    ~Owner() { release(&value); }
};
using DecoderHandle = Owner<zul_dec_Context, zul_dec_close>;
using ReaderHandle = Owner<zul_in_Context, zul_in_close>;

// The path of this process's scratch file, in TMPDIR or /tmp; removed when the process exits.
inline const std::string& scratchPath() {
    static const std::string path = [] {
        const char* folder = std::getenv("TMPDIR");
        std::string p = (folder && *folder) ? folder : "/tmp";
        p += "/zul-fuzz-" + std::to_string(getpid()) + ".zul";
        std::atexit([] { std::remove(scratchPath().c_str()); });
        return p;
    }();
    return path;
}

// Replaces the scratch file's contents with the bytes.
inline void writeScratch(const uint8_t* data, size_t size) {
    std::FILE* file = std::fopen(scratchPath().c_str(), "wb");
    FUZZ_CHECK(file != nullptr);
    FUZZ_CHECK(size == 0 || std::fwrite(data, 1, size, file) == size);
    FUZZ_CHECK(std::fclose(file) == 0);
}

// ---- The in-memory decoder: a whole stream held in memory, decoded as a caller would split it:
// the signature, the file header, then chunk after chunk of sync marker, chunk header and body.
// Every step also checks the decoder's state machine: the calls that must be refused at that
// point are made and must be.
struct DecodedStream {
    // The status of zul_dec_open2, or else of the file header; zul_STATUS_TRUNCATED if the bytes
    // end inside either.
    zul_Status openStatus = zul_STATUS_OK;
    // How the chunks ended: zul_STATUS_END_OF_FILE at a chunk boundary, zul_STATUS_TRUNCATED
    // inside a chunk, or the status of the call that refused a marker, header or body.
    zul_Status endStatus = zul_STATUS_END_OF_FILE;
    zul_DataType dataType{};
    zul_Header2 header2{};
    // Every point of the chunks decoded, in stream order; absent attributes are zero.
    std::vector<zul_Point> points;
    // The chunks ended in a body: cut short or refused by the decoder.
    bool endedInBody = false;
    // Points in the chunk headers read, decoded or not.
    int64_t pointsDeclared = 0;
    // A chunk passed the chunk budget or the density limit and was skipped.
    bool skippedChunk = false;
    // The first chunk skipped (where the chunk index stops), or -1.
    int64_t overBudgetChunk = -1;
};

DecodedStream decodeInMemory(const uint8_t* data, size_t size, int applyTransformation);

// Appends the points of a decoded chunk, reading every element of every array the data type has,
// and checks what holds for any decoded chunk; `transformed`: through a sensor header's matrix.
void appendPoints(const zul_PointData& chunk, const zul_DataType& type, bool transformed,
                  std::vector<zul_Point>& points);

// ---- The file reader on the scratch file: opened, counted with zul_in_getNumPoints and read
// with zul_in_readNextPoint to the end, with the checks that hold for any file.
struct ReaderRun {
    zul_Status opened = zul_STATUS_OK;
    zul_DataType type{};
    zul_Header2 header{};  // zero unless `way` is 0 or 1
    zul_Status counted = zul_STATUS_OK;
    int64_t count = -1;
    // Whether the points were read (the count succeeded, and is within the budget); then the
    // points and the status that ended the reading.
    bool read = false;
    std::vector<zul_Point> points;
    zul_Status end = zul_STATUS_OK;
};

// `way`: 0 zul_in_open2 leaving points in the stored frame, 1 zul_in_open2 transforming,
// 2 zul_in_open, 3 zul_in_open2_w without parameters (both transforming).
ReaderRun readScratch(int way);

// ---- What a stream must give back for a point that was written: the rules of the format
// written out once more, independently of the library, from the public records alone.

// True if, on some axis, the grid indices of the points span 2^63 or more. The stored slots are
// signed 64-bit numbers, so such a chunk is not representable: the encoder writes it without
// noticing, and what it decodes to is not defined. Reading it must still be safe.
bool spanIsUnrepresentable(const zul_Point* points, size_t count, float step);

// True if the writer refuses a chunk that holds this normal: it is shorter than 1e-6.
bool isTooShort(const float* normal);

// The point the reader gives back, before any transformation, for a point that was written.
// Fields of attributes the data type lacks are zero.
zul_Point storedPoint(const zul_Point& written, const zul_DataType& type);

// The points `actual` are `expected`, bit for bit and in order, each brought through the sensor
// header's transformation if the header is enabled.
void checkSamePoints(const std::vector<zul_Point>& expected, const std::vector<zul_Point>& actual,
                     const zul_Header2& header = {}, const zul_DataType& type = {});

// ---- The input of the write-and-read target: a Settings record, then PointRecord records as long
// as whole ones remain, each as it lies in memory on this machine (padding included); and the
// data type, optional sensor header, chunk size and points drawn from it.
struct Settings {
    uint8_t attributes;  // bits 0-1 the colour mode (3 is refused), then the flags below
    uint8_t flags;       // of the sensor header, below
    uint16_t chunkSizeMinus1;
    float step;
    int32_t maxReflection, mount, type;
    double matrix[16];  // the sensor header's, column-major; with kAngleForm: scale, angle about
                        // z, translation x, y, z
};
enum : uint8_t { kHasReflection = 4, kHasNormals = 8, kPassHeader = 16, kHeaderEnabled = 32 };
enum : uint8_t { kScaling = 1, kUnsupported = 2, kRotation = 4, kTranslation = 8, kAngleForm = 16 };

struct PointRecord {
    uint8_t kind;  // the flags below
    uint8_t color[3];
    int32_t reflection;
    int16_t halfSteps[3];  // with kGridPosition, the position in half steps
    int8_t gridNormal[3];  // with kGridNormal, the normal in 127ths
    float normal[3];       // else these two
    double position[3];
};
enum : uint8_t { kGridPosition = 1, kGridNormal = 2 };

struct RoundTripCase {
    zul_DataType dataType{};
    bool passHeader = false;
    zul_Header2 header{};
    int32_t chunkSize = 1;
    std::vector<zul_Point> points;
};

// False if the bytes end before the points.
bool parseRoundTripCase(const uint8_t* data, size_t size, RoundTripCase& out);

}  // namespace zulfuzz
