// The writer behind zul_bulk_Writer: one stream's records and marker, the file it goes to, and
// one encoder a worker, kept from call to call, all carrying the stream's marker.
#pragma once

#include <cstdint>
#include <vector>

#include "bulk/bulk_encode.h"
#include "bulk/target_file.h"
#include "zul_bulk.h"

struct zul_bulk_WriterStruct {
    zul_bulk_WriterStruct() = default;
    ~zul_bulk_WriterStruct();
    zul_bulk_WriterStruct(const zul_bulk_WriterStruct&) = delete;
    zul_bulk_WriterStruct& operator=(const zul_bulk_WriterStruct&) = delete;

    // Opens the first encoder (with the given marker, or one drawn), the file, and writes the
    // signature and the file header. The records are valid.
    zul_Status open(const char* path, const zul_DataType& dataType, const zul_Header2* header,
                    const char* syncMarker, int threads, bool publish);
    // Encodes and writes the chunks of `plan` (checked) on up to `threads` workers, and, with a
    // `storedOrder`, the order each chunk stores its points in (zulbulk::encodeChunks); any
    // failure fails the writer.
    zul_Status write(const zul_bulk_Points& points, const std::vector<zulbulk::PlannedChunk>& plan,
                     uint32_t* storedOrder, int64_t* failedAt);
    // Appends chunks encoded before (checked by the caller), each with the stream's marker; a
    // failed write fails the writer and names the first chunk not wholly written in `failedAt`.
    zul_Status writeEncoded(const char* const* chunks, const int64_t* sizes, int64_t count,
                            int64_t* failedAt);
    // The order each chunk of `plan` stores its points in (zulbulk::storedOrder), into
    // `storedOrder`, on up to `threads` workers; the file is not touched.
    void orderChunks(const zul_bulk_Points& points, const std::vector<zulbulk::PlannedChunk>& plan,
                     uint32_t* storedOrder) const;

    zul_DataType dataType = {};
    zul_Header2 header = {};
    bool hasHeader = false;
    int threads = 0;
    bool failed = true;  // until open succeeds
    zulbulk::TargetFile file;

private:
    // Makes sure there are `count` encoders.
    void openEncoders(size_t count);

    char syncMarker_[ZUL_SYNC_MARKER_SIZE] = {};
    std::vector<zul_enc_Context> encoders_;
};
