#include "bulk/bulk_writer.h"

#include <algorithm>
#include <atomic>

#include "bulk/encoded_chunks.h"
#include "bulk/stored_order.h"
#include "bulk/worker_threads.h"
#include "encoder/enc_context.h"
#include "encoder/enc_open.h"

zul_bulk_WriterStruct::~zul_bulk_WriterStruct() {
    for (zul_enc_Context& encoder : encoders_) zul_enc_close(&encoder);
}

void zul_bulk_WriterStruct::openEncoders(size_t count) {
    encoders_.reserve(count);
    while (encoders_.size() < count) {
        zul_enc_Context encoder = nullptr;
        zulencoder::openWithMarker(&encoder, &dataType, hasHeader ? &header : nullptr, syncMarker_);
        encoders_.push_back(encoder);
    }
}

zul_Status zul_bulk_WriterStruct::open(const char* path, const zul_DataType& type,
                                       const zul_Header2* given, const char* marker,
                                       int threadCount, bool publish) {
    dataType = type;
    hasHeader = given != nullptr;
    if (given) header = *given;
    threads = threadCount;
    encoders_.reserve(1);
    zul_enc_Context first = nullptr;
    // Without a marker the first encoder draws one, as zul_enc_open2 and zul_out_ draw it.
    if (marker)
        zulencoder::openWithMarker(&first, &dataType, given, marker);
    else
        zul_enc_open2(&first, &dataType, given);
    encoders_.push_back(first);
    if (!first) return zul_STATUS_INVALID_ARGUMENT;
    const char* fileHeader = nullptr;
    int fileHeaderSize = 0;
    zul_enc_encodeFileHeader(first, &fileHeader, &fileHeaderSize);
    std::copy(first->syncMarker.bytes, first->syncMarker.bytes + ZUL_SYNC_MARKER_SIZE, syncMarker_);
    const char* signature = nullptr;
    zul_enc_createFileSignature(first, &signature);
    zul_Status status = file.open(path, publish);
    if (status != zul_STATUS_OK) return status;
    if (!file.write(signature, ZUL_SIGNATURE_SIZE) ||
        !file.write(fileHeader, static_cast<size_t>(fileHeaderSize)))
        return zul_STATUS_WRITE_ERROR;
    failed = false;
    return zul_STATUS_OK;
}

zul_Status zul_bulk_WriterStruct::write(const zul_bulk_Points& points,
                                        const std::vector<zulbulk::PlannedChunk>& plan,
                                        uint32_t* storedOrder, int64_t* failedAt) {
    *failedAt = -1;
    if (plan.empty()) return zul_STATUS_OK;
    // Failed until the chunks are all written, also when an exception leaves this call.
    failed = true;
    const int workers =
        zulbulk::resolveThreads(threads, static_cast<int64_t>(plan.size()), points.numPoints);
    openEncoders(static_cast<size_t>(workers));
    const std::vector<zul_enc_Context> used(encoders_.begin(), encoders_.begin() + workers);
    const zul_Status status = zulbulk::encodeChunks(
        used, points, plan, [&](const char* bytes, size_t size) { return file.write(bytes, size); },
        storedOrder, failedAt);
    failed = status != zul_STATUS_OK;
    return status;
}

zul_Status zul_bulk_WriterStruct::writeEncoded(const char* const* chunks, const int64_t* sizes,
                                               int64_t count, int64_t* failedAt) {
    *failedAt = -1;
    failed = true;
    const int64_t written = zulbulk::appendEncoded(
        syncMarker_, chunks, sizes, count,
        [&](const char* bytes, size_t size) { return file.write(bytes, size); });
    failed = written != count;
    if (!failed) return zul_STATUS_OK;
    *failedAt = written;
    return zul_STATUS_WRITE_ERROR;
}

void zul_bulk_WriterStruct::orderChunks(const zul_bulk_Points& points,
                                        const std::vector<zulbulk::PlannedChunk>& plan,
                                        uint32_t* storedOrder) const {
    std::atomic<size_t> next{0};
    const int workers =
        zulbulk::resolveThreads(threads, static_cast<int64_t>(plan.size()), points.numPoints);
    zulbulk::runWorkers(
        workers,
        [&](int) {
            std::vector<zullib::zul_QuantizedPoint> records;
            std::vector<unsigned char> scratch;
            for (size_t k; (k = next++) < plan.size();) {
                const size_t first = static_cast<size_t>(plan[k].first);
                const zul_PointData slice = {
                    plan[k].count, points.positions + 3 * first,
                    points.colors ? points.colors + 3 * first : nullptr,
                    points.reflections ? points.reflections + first : nullptr,
                    points.normals ? points.normals + 3 * first : nullptr};
                zulbulk::storedOrder(dataType, slice, storedOrder + first, records, scratch);
            }
        },
        [&] { next = plan.size(); });
}
