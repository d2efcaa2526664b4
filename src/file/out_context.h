// The file writer behind zul_out_Context. It collects the points it is given into the arrays of
// one chunk, has its encoder turn a full chunk into bytes, and appends them to the file. It adds
// nothing to the stream: the file is byte for byte what the encoder hands out.
#pragma once

#include <cstdint>
#include <fstream>
#include <memory>

#include "zul.h"

struct zul_out_ContextStruct {
    static constexpr int32_t kDefaultChunkSize = ZUL_DEFAULT_CHUNK_SIZE;
    static constexpr int32_t kMaxChunkSize = ZUL_MAX_CHUNK_SIZE;
    // Arrays for this many points are made up front; a larger chunk size grows them by doubling
    // while the first chunk fills, so that a size no chunk ever reaches costs no memory.
    static constexpr int32_t kUpFrontPoints = 1 << 16;

    zul_out_ContextStruct() = default;
    // Closes the encoder; the file stream closes itself.
    ~zul_out_ContextStruct();
    zul_out_ContextStruct(const zul_out_ContextStruct&) = delete;
    zul_out_ContextStruct& operator=(const zul_out_ContextStruct&) = delete;

    // Creates or empties `path`, then opens the encoder of `dataType` and `header` (both valid;
    // `header` may be null). zul_STATUS_WRITE_ERROR if the file cannot be created: the context
    // stays behind with no file and no encoder.
    zul_Status open(const char* path, const zul_DataType& dataType, const zul_Header2* header);
    zul_Status setChunkSize(int32_t size);
    zul_Status writePoint(const zul_Point* point);
    // Writes the signature and the file header if they are due, then the collected points as one
    // chunk, if there are any. Whatever happens, the collected points are gone afterwards; any
    // failure leaves the writer failed.
    zul_Status flushChunk();
    // Flushes what is due and closes the file and the encoder. The context itself is the
    // caller's to delete.
    zul_Status close();

    bool isOpen = false;
    std::ofstream file;
    zul_enc_Context encoder = nullptr;
    bool headerWritten = false;
    zul_PointData points = {};
    int32_t chunkSize = kDefaultChunkSize;

private:
    // Arrays for `capacity` points of the data type, keeping the points collected so far.
    void resizeArrays(int32_t capacity);
    void freeArrays();

    zul_DataType dataType = {};
    int32_t capacity = 0;
    std::unique_ptr<double[]> positions;
    std::unique_ptr<uint8_t[]> colors;
    std::unique_ptr<int32_t[]> reflections;
    std::unique_ptr<float[]> normals;
};
