// zul_xout_: the companion writer.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <exception>
#include <functional>
#include <numeric>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <tuple>
#include <vector>

#include "column_codec.h"
#include "head.h"
#include "stream_bytes.h"

using namespace zulx;

namespace {

// `path` opened for writing, emptied only when it holds something: reopening an empty file (a
// temporary name the caller made) with O_TRUNC makes the file system write it back on close.
std::FILE* openForWriting(const std::string& path) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    struct stat info;
    std::FILE* file = nullptr;
    if (fd >= 0 && ::fstat(fd, &info) == 0 && (info.st_size == 0 || ::ftruncate(fd, 0) == 0))
        file = ::fdopen(fd, "wb");
    if (file == nullptr && fd >= 0) ::close(fd);
    return file;
}

// Runs `work(k)` for k from 0 to `count` - 1 on up to `threads` threads, the caller's among them,
// each taking the next k; the first exception thrown is thrown again here once all have stopped.
void runTasks(int threads, size_t count, const std::function<void(size_t)>& work) {
    std::atomic<size_t> next{0};
    std::exception_ptr failure;
    std::atomic<bool> failed{false};
    const auto worker = [&]() {
        try {
            for (size_t k; !failed && (k = next++) < count;) work(k);
        } catch (...) {
            if (!failed.exchange(true)) failure = std::current_exception();
        }
    };
    std::vector<std::thread> others;
    const size_t helpers = std::min(static_cast<size_t>(threads), count);
    try {
        for (size_t t = 1; t < helpers; ++t) others.emplace_back(worker);
    } catch (const std::system_error&) {
        // A thread the system cannot start leaves fewer, never the work undone.
    }
    worker();
    for (std::thread& t : others) t.join();
    if (failure) std::rethrow_exception(failure);
}

// With threads, the chunks complete before their columns are coded are coded together once they
// hold this many points (and at the end): each column of the batch on one thread.
constexpr int64_t kBatchPoints = int64_t{1} << 17;

}  // namespace

struct zul_xout_WriterStruct {
    enum class Binding { none, byParts, whole };

    std::string path;
    bool toMemory = true;
    bool failed = false;
    bool finished = false;
    Head head;
    Meta meta;
    Binding binding = Binding::none;
    std::set<std::string> conventionKeys;
    std::vector<uint8_t> streamHead;  // of a binding by parts
    // The blocks made so far, back to back; the chunk being written and its segments.
    std::vector<uint8_t> blocks;
    size_t nextChunk = 0;
    std::vector<std::vector<uint8_t>> segments;
    std::vector<bool> written;
    // A chunk's columns that come in directory order are coded as they come, into the blocks, not
    // copied (with the order, once the order has come): the first `codedFields`, from `chunkAt`.
    size_t codedFields = 0, chunkAt = 0;
    // With the order, the chunk's input order once its order has come (inputOrderOf).
    bool orderReady = false;
    std::vector<uint32_t> chunkOrder;
    std::vector<CodingChoice> choices;  // a field's, kept from chunk to chunk
    CodingChoice orderChoice;
    std::vector<uint8_t> output;
    // The threads the columns are coded on (zul_xout_setThreads); with more than one, the chunks
    // whose columns all came, waiting to be coded as a batch: their point counts and columns.
    int threads = 1;
    std::vector<int64_t> waitingCounts;
    std::vector<std::vector<std::vector<uint8_t>>> waitingSegments;
    int64_t waitingPoints = 0;

    // Codes the waiting chunks' blocks: their input orders first, chunk by chunk, then each
    // column over the chunks in order (its coding choice goes from chunk to chunk), the widest
    // columns first, on the threads; the blocks are appended in chunk order.
    void codeWaiting() {
        const size_t n = waitingCounts.size();
        if (n == 0) return;
        const size_t numFields = head.fields.size();
        const size_t numSegments = static_cast<size_t>(head.segments());
        std::vector<std::vector<uint32_t>> orders(head.hasOrder ? n : 0);
        if (head.hasOrder)
            runTasks(threads, n, [&](size_t c) {
                orders[c] = inputOrderOf(
                    reinterpret_cast<const uint64_t*>(waitingSegments[c][numFields].data()),
                    waitingCounts[c]);
            });
        const auto widthOf = [&](size_t s) { return s < numFields ? head.fields[s].width : 8; };
        std::vector<size_t> tasks(numSegments);
        std::iota(tasks.begin(), tasks.end(), size_t{0});
        std::stable_sort(tasks.begin(), tasks.end(),
                         [&](size_t a, size_t b) { return widthOf(a) > widthOf(b); });
        std::vector<std::vector<uint8_t>> coded(n * numSegments);
        runTasks(threads, numSegments, [&](size_t k) {
            const size_t s = tasks[k];
            for (size_t c = 0; c < n; ++c) {
                if (s < numFields)
                    encodeBestSegment(waitingSegments[c][s].data(), waitingCounts[c],
                                      head.fields[s].width, head.fields[s].type,
                                      head.hasOrder ? &orders[c] : nullptr, choices[s],
                                      coded[c * numSegments + s]);
                else  // the input indices, with the codings of a u64 column
                    encodeBestSegment(waitingSegments[c][s].data(), waitingCounts[c], 8,
                                      zul_FIELD_U64, nullptr, orderChoice,
                                      coded[c * numSegments + s]);
            }
        });
        for (size_t c = 0; c < n; ++c) {
            const size_t at = blocks.size();
            for (size_t s = 0; s < numSegments; ++s) {
                const std::vector<uint8_t>& segment = coded[c * numSegments + s];
                appendBytes(blocks, segment.data(), segment.size());
            }
            ChunkEntry& entry = head.chunks[nextChunk - n + c];
            entry.blockOffset = static_cast<int64_t>(at);  // from the first block for now
            entry.blockSize = static_cast<int64_t>(blocks.size() - at);
            entry.blockChecksum = checksum(blocks.data() + at, blocks.size() - at);
        }
        waitingCounts.clear();
        waitingSegments.clear();
        waitingPoints = 0;
    }

    // With threads: the chunk at hand, whose columns all came, waits for its batch.
    void queueChunk() {
        const size_t numSegments = static_cast<size_t>(head.segments());
        const int64_t count = head.chunks[nextChunk].chunk.numPoints;
        waitingCounts.push_back(count);
        waitingSegments.emplace_back(numSegments);
        waitingSegments.back().swap(segments);
        written.assign(numSegments, false);
        ++nextChunk;
        waitingPoints += count;
        if (waitingPoints >= kBatchPoints) codeWaiting();
    }

    // Codes and appends the blocks of the chunks whose columns are all there: the order first,
    // for the columns that are coded in the input's order.
    void completeBlocks() {
        const size_t numSegments = static_cast<size_t>(head.segments());
        const size_t numFields = head.fields.size();
        while (nextChunk < head.chunks.size()) {
            for (size_t s = 0; s < numSegments; ++s)
                if (!written[s]) return;
            if (threads > 1) {
                queueChunk();
                continue;
            }
            ChunkEntry& entry = head.chunks[nextChunk];
            const int64_t count = entry.chunk.numPoints;
            if (head.hasOrder && !orderReady) readyOrder(count);
            const size_t at = codedFields > 0 ? chunkAt : blocks.size();
            for (size_t s = codedFields; s < numFields; ++s)
                encodeBestSegment(segments[s].data(), count, head.fields[s].width,
                                  head.fields[s].type, head.hasOrder ? &chunkOrder : nullptr,
                                  choices[s], blocks);
            if (head.hasOrder)  // the input indices, with the codings of a u64 column
                encodeBestSegment(segments[numFields].data(), count, 8, zul_FIELD_U64, nullptr,
                                  orderChoice, blocks);
            for (size_t s = 0; s < numSegments; ++s) {
                segments[s].clear();  // keeps its room for the next chunk's column
                written[s] = false;
            }
            codedFields = 0;
            orderReady = false;
            entry.blockOffset = static_cast<int64_t>(at);  // from the first block for now
            entry.blockSize = static_cast<int64_t>(blocks.size() - at);
            entry.blockChecksum = checksum(blocks.data() + at, blocks.size() - at);
            ++nextChunk;
        }
    }

    // The input order of the chunk at hand, from its order segment (`count` indices).
    void readyOrder(int64_t count) {
        chunkOrder = inputOrderOf(
            reinterpret_cast<const uint64_t*>(segments[head.fields.size()].data()), count);
        orderReady = true;
    }

    zul_Status startBinding(Binding kind) {
        if (binding != Binding::none || finished) return zul_STATUS_INVALID_STATE;
        binding = kind;
        segments.assign(static_cast<size_t>(head.segments()), {});
        written.assign(static_cast<size_t>(head.segments()), false);
        choices.assign(head.fields.size(), {});
        return zul_STATUS_OK;
    }

    zul_Status bindWhole(const char* streamPath, const void* bytes, size_t size) {
        if (binding != Binding::none || finished) return zul_STATUS_INVALID_STATE;
        StreamFacts facts;
        zul_Status status = readStream(streamPath, bytes, size, true, facts);
        if (status == zul_STATUS_OK) status = facts.damage;
        if (status != zul_STATUS_OK) return status;
        startBinding(Binding::whole);
        std::memcpy(head.marker, facts.marker, 16);
        head.streamHeadSize = facts.headSize;
        head.streamHeadChecksum = facts.headChecksum;
        head.streamSize = facts.size;
        head.chunks.resize(facts.chunks.size());
        for (size_t c = 0; c < facts.chunks.size(); ++c) {
            head.chunks[c].chunk = facts.chunks[c];
            head.chunks[c].checksum = facts.checksums[c];
            head.numPoints += facts.chunks[c].numPoints;
        }
        completeBlocks();
        return zul_STATUS_OK;
    }

    zul_Status writeSegment(int64_t chunk, size_t segment, int32_t width, const void* values,
                            int64_t numValues) {
        if (chunk < 0 || static_cast<size_t>(chunk) != nextChunk || nextChunk >= head.chunks.size())
            return zul_STATUS_INVALID_STATE;
        if (written[segment] || numValues != head.chunks[nextChunk].chunk.numPoints)
            return zul_STATUS_INVALID_ARGUMENT;
        const uint8_t* bytes = static_cast<const uint8_t*>(values);
        written[segment] = true;
        const size_t numFields = head.fields.size();
        if (threads > 1) {  // copied, for the batch
            segments[segment].assign(bytes, bytes + numValues * width);
            completeBlocks();
            return zul_STATUS_OK;
        }
        if (segment == numFields) {  // the order: kept for its own segment, once the fields are
            segments[segment].assign(bytes, bytes + numValues * width);
            readyOrder(numValues);
        } else if ((head.hasOrder && !orderReady) || segment != codedFields) {
            segments[segment].assign(bytes, bytes + numValues * width);
        }
        if (!head.hasOrder || orderReady) {
            if (codedFields == 0 && written[0]) chunkAt = blocks.size();
            for (; codedFields < numFields && written[codedFields]; ++codedFields) {
                const Field& field = head.fields[codedFields];
                encodeBestSegment(codedFields == segment ? bytes : segments[codedFields].data(),
                                  numValues, field.width, field.type,
                                  head.hasOrder ? &chunkOrder : nullptr, choices[codedFields],
                                  blocks);
            }
        }
        completeBlocks();
        return zul_STATUS_OK;
    }

    zul_Status finish() {
        completeBlocks();
        if (binding == Binding::none || nextChunk != head.chunks.size())
            return zul_STATUS_INVALID_STATE;
        codeWaiting();
        if (binding == Binding::byParts)
            head.streamSize = head.chunks.empty()
                                  ? head.streamHeadSize
                                  : head.chunks.back().chunk.offset + head.chunks.back().chunk.size;
        head.headSize = headSizeOf(static_cast<int64_t>(head.chunks.size()),
                                   static_cast<int64_t>(head.fields.size()));
        for (ChunkEntry& entry : head.chunks) entry.blockOffset += head.headSize;
        head.version = meta.rowCount > 0 ? kVersionRows : kVersion;
        const std::vector<uint8_t> metaBytes = writeMeta(meta, head.version);
        head.metaOffset = head.headSize + static_cast<int64_t>(blocks.size());
        head.metaSize = static_cast<int64_t>(metaBytes.size());
        head.metaChecksum = checksum(metaBytes.data(), metaBytes.size());
        const std::vector<uint8_t> headBytes = writeHead(head);
        finished = true;
        if (toMemory) {
            output = headBytes;
            appendBytes(output, blocks.data(), blocks.size());
            appendBytes(output, metaBytes.data(), metaBytes.size());
            std::vector<uint8_t>().swap(blocks);
            return zul_STATUS_OK;
        }
        std::FILE* file = openForWriting(path);
        if (!file) return failed = true, zul_STATUS_WRITE_ERROR;
        bool good = std::fwrite(headBytes.data(), 1, headBytes.size(), file) == headBytes.size();
        good = good && (blocks.empty() ||
                        std::fwrite(blocks.data(), 1, blocks.size(), file) == blocks.size());
        good = good && std::fwrite(metaBytes.data(), 1, metaBytes.size(), file) == metaBytes.size();
        good = std::fclose(file) == 0 && good;
        if (!good) {
            std::remove(path.c_str());
            failed = true;
            return zul_STATUS_WRITE_ERROR;
        }
        return zul_STATUS_OK;
    }
};

namespace {

bool usable(zul_xout_Writer writer) { return writer && !writer->failed; }

bool boxValid(const zul_idx_Chunk& c) {
    for (int a = 0; a < 3; ++a)
        if (c.gridMin[a] > c.gridMax[a] || !(c.min[a] <= c.max[a])) return false;
    return true;
}

}  // namespace

extern "C" {

ZUL_API zul_Status zul_xout_open(zul_xout_Writer* writer, const char* path) {
    if (!writer) return zul_STATUS_INVALID_ARGUMENT;
    *writer = new zul_xout_WriterStruct();
    if (path) (*writer)->path = path, (*writer)->toMemory = false;
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_xout_addField(zul_xout_Writer writer, const char* name, zul_FieldType type,
                                     int32_t width, int32_t* field) {
    if (!writer || !name) return zul_STATUS_INVALID_ARGUMENT;
    if (writer->failed || writer->binding != zul_xout_WriterStruct::Binding::none ||
        writer->head.fields.size() >= static_cast<size_t>(kMaxFields))
        return zul_STATUS_INVALID_STATE;
    const size_t length = std::strlen(name);
    if (length == 0 || length > ZUL_FIELD_NAME_MAX) return zul_STATUS_INVALID_ARGUMENT;
    if (type == zul_FIELD_RAW) {
        if (width < 1 || width > 65535) return zul_STATUS_INVALID_ARGUMENT;
    } else {
        width = typeWidth(type);
        if (width == 0) return zul_STATUS_INVALID_ARGUMENT;
    }
    for (const Field& f : writer->head.fields)
        if (f.name == name) return zul_STATUS_INVALID_ARGUMENT;
    if (field) *field = static_cast<int32_t>(writer->head.fields.size());
    writer->head.fields.push_back(Field{name, type, width});
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_xout_keepOrder(zul_xout_Writer writer) {
    if (!writer) return zul_STATUS_INVALID_ARGUMENT;
    if (writer->failed || writer->binding != zul_xout_WriterStruct::Binding::none)
        return zul_STATUS_INVALID_STATE;
    writer->head.hasOrder = true;
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_xout_setThreads(zul_xout_Writer writer, int32_t threads) {
    if (!writer || threads < 1) return zul_STATUS_INVALID_ARGUMENT;
    if (writer->failed || writer->binding != zul_xout_WriterStruct::Binding::none)
        return zul_STATUS_INVALID_STATE;
    writer->threads = threads;
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_xout_setSource(zul_xout_Writer writer, zul_SourceKind kind,
                                      const void* bytes, size_t size) {
    if (!writer || (!bytes && size) || kind < zul_SOURCE_NONE || kind > zul_SOURCE_OTHER)
        return zul_STATUS_INVALID_ARGUMENT;
    if (!usable(writer) || writer->finished) return zul_STATUS_INVALID_STATE;
    writer->meta.sourceKind = kind;
    writer->meta.source.assign(static_cast<const uint8_t*>(bytes),
                               static_cast<const uint8_t*>(bytes) + size);
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_xout_setFormat(zul_xout_Writer writer, const char* format) {
    if (!writer || !format) return zul_STATUS_INVALID_ARGUMENT;
    if (!usable(writer) || writer->finished) return zul_STATUS_INVALID_STATE;
    writer->meta.format = format;
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_xout_addConvention(zul_xout_Writer writer, const char* key,
                                          const char* value) {
    if (!writer || !key || !*key || !value || writer->conventionKeys.count(key))
        return zul_STATUS_INVALID_ARGUMENT;
    if (!usable(writer) || writer->finished) return zul_STATUS_INVALID_STATE;
    writer->conventionKeys.insert(key);
    writer->meta.conventions.emplace_back(key, value);
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_xout_setRows(zul_xout_Writer writer, const uint64_t* indices,
                                    const void* rows, int64_t count, int32_t width) {
    if (!writer || count < 0 || count > (int64_t{1} << 40) || (count > 0 && (!indices || !rows)) ||
        (count > 0 && (width < 1 || width > kMaxRowWidth)))
        return zul_STATUS_INVALID_ARGUMENT;
    for (int64_t i = 1; i < count; ++i)
        if (indices[i] <= indices[i - 1]) return zul_STATUS_INVALID_ARGUMENT;
    if (!usable(writer) || writer->finished) return zul_STATUS_INVALID_STATE;
    Meta& meta = writer->meta;
    meta.rowCount = count;
    meta.rowWidth = count > 0 ? width : 0;
    meta.rowIndices = MetaSegment();
    meta.rowBytes = MetaSegment();
    if (count == 0) return zul_STATUS_OK;
    // Ascending indices: deltas in planes; rows (mostly alike): zstd alone.
    for (auto [segment, values, w, coding] :
         {std::make_tuple(&meta.rowIndices, static_cast<const void*>(indices), int32_t{8},
                          uint8_t{kTransformDelta | kBytePlanes | kZstd}),
          std::make_tuple(&meta.rowBytes, rows, width, uint8_t{kZstd})}) {
        std::vector<uint8_t> coded;
        encodeSegment(values, count, w, coding, /*level=*/1, coded);
        segment->coding = coded[0];
        segment->bytes.assign(coded.begin() + kSegmentHeaderSize, coded.end());
    }
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_xout_bindStreamBuffer(zul_xout_Writer writer, const void* bytes,
                                             size_t size) {
    if (!writer || (!bytes && size)) return zul_STATUS_INVALID_ARGUMENT;
    if (writer->failed) return zul_STATUS_INVALID_STATE;
    return writer->bindWhole(nullptr, bytes, size);
}

ZUL_API zul_Status zul_xout_bindStreamFile(zul_xout_Writer writer, const char* path) {
    if (!writer || !path) return zul_STATUS_INVALID_ARGUMENT;
    if (writer->failed) return zul_STATUS_INVALID_STATE;
    return writer->bindWhole(path, nullptr, 0);
}

ZUL_API zul_Status zul_xout_beginStream(zul_xout_Writer writer, const void* head, size_t headSize) {
    if (!writer || !head) return zul_STATUS_INVALID_ARGUMENT;
    if (writer->failed || writer->binding != zul_xout_WriterStruct::Binding::none ||
        writer->finished)
        return zul_STATUS_INVALID_STATE;
    ByteSource source;
    source.openMemory(head, headSize);
    StreamFacts facts;
    const zul_Status status = readStreamHead(source, facts);
    if (status != zul_STATUS_OK) return status;
    if (facts.headSize != static_cast<int64_t>(headSize)) return zul_STATUS_INVALID_ARGUMENT;
    writer->startBinding(zul_xout_WriterStruct::Binding::byParts);
    std::memcpy(writer->head.marker, facts.marker, 16);
    writer->head.streamHeadSize = facts.headSize;
    writer->head.streamHeadChecksum = facts.headChecksum;
    writer->streamHead.assign(static_cast<const uint8_t*>(head),
                              static_cast<const uint8_t*>(head) + headSize);
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_xout_addChunk(zul_xout_Writer writer, const zul_idx_Chunk* chunk,
                                     uint64_t checksum) {
    if (!writer || !chunk) return zul_STATUS_INVALID_ARGUMENT;
    if (writer->failed || writer->binding != zul_xout_WriterStruct::Binding::byParts ||
        writer->finished)
        return zul_STATUS_INVALID_STATE;
    Head& head = writer->head;
    const int64_t expected = head.chunks.empty()
                                 ? head.streamHeadSize
                                 : head.chunks.back().chunk.offset + head.chunks.back().chunk.size;
    if (chunk->numPoints < 1 || chunk->numPoints > kMaxChunkPoints || chunk->offset != expected ||
        chunk->size < 16 || chunk->size > INT64_MAX - chunk->offset || !boxValid(*chunk))
        return zul_STATUS_INVALID_ARGUMENT;
    ChunkEntry entry;
    entry.chunk = *chunk;
    entry.chunk.reserved = 0;
    entry.checksum = checksum;
    head.chunks.push_back(entry);
    head.numPoints += chunk->numPoints;
    writer->completeBlocks();
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_xout_addChunkBytes(zul_xout_Writer writer, const void* chunk, size_t size) {
    if (!writer || !chunk) return zul_STATUS_INVALID_ARGUMENT;
    if (writer->failed || writer->binding != zul_xout_WriterStruct::Binding::byParts ||
        writer->finished)
        return zul_STATUS_INVALID_STATE;
    // The stream's head and this chunk make a stream of one chunk, which the index reads.
    std::vector<uint8_t> alone = writer->streamHead;
    appendBytes(alone, chunk, size);
    zul_idx_Index index = nullptr;
    zul_Status status = zul_idx_openBuffer(&index, alone.data(), alone.size(), nullptr);
    int64_t numChunks = 0;
    zul_Status damage = zul_STATUS_OK;
    zul_idx_Chunk info = {};
    if (status == zul_STATUS_OK) status = zul_idx_getCounts(index, &numChunks, nullptr);
    if (status == zul_STATUS_OK) status = zul_idx_getDamage(index, &damage, nullptr, nullptr);
    if (status == zul_STATUS_OK && damage != zul_STATUS_OK) status = damage;
    if (status == zul_STATUS_OK && numChunks != 1) status = zul_STATUS_CORRUPT_DATA;
    if (status == zul_STATUS_OK) status = zul_idx_getChunk(index, 0, &info);
    zul_idx_close(&index);
    if (status != zul_STATUS_OK) return status;
    const Head& head = writer->head;
    info.offset = head.chunks.empty()
                      ? head.streamHeadSize
                      : head.chunks.back().chunk.offset + head.chunks.back().chunk.size;
    return zul_xout_addChunk(writer, &info, checksum(chunk, size));
}

ZUL_API zul_Status zul_xout_writeColumn(zul_xout_Writer writer, int64_t chunk, int32_t field,
                                        const void* values, int64_t numValues) {
    if (!writer || (!values && numValues) || field < 0 ||
        static_cast<size_t>(field) >= writer->head.fields.size())
        return zul_STATUS_INVALID_ARGUMENT;
    if (!usable(writer) || writer->finished ||
        writer->binding == zul_xout_WriterStruct::Binding::none)
        return zul_STATUS_INVALID_STATE;
    const Field& f = writer->head.fields[static_cast<size_t>(field)];
    return writer->writeSegment(chunk, static_cast<size_t>(field), f.width, values, numValues);
}

ZUL_API zul_Status zul_xout_writeOrder(zul_xout_Writer writer, int64_t chunk,
                                       const uint64_t* indices, int64_t numValues) {
    if (!writer || (!indices && numValues)) return zul_STATUS_INVALID_ARGUMENT;
    if (!usable(writer) || writer->finished || !writer->head.hasOrder ||
        writer->binding == zul_xout_WriterStruct::Binding::none)
        return zul_STATUS_INVALID_STATE;
    return writer->writeSegment(chunk, writer->head.fields.size(), 8, indices, numValues);
}

ZUL_API zul_Status zul_xout_finish(zul_xout_Writer writer, const void** bytes, size_t* size) {
    if (!writer || (writer->toMemory && (!bytes || !size))) return zul_STATUS_INVALID_ARGUMENT;
    if (!usable(writer) || writer->finished) return zul_STATUS_INVALID_STATE;
    const zul_Status status = writer->finish();
    if (status == zul_STATUS_OK && writer->toMemory) {
        *bytes = writer->output.data();
        *size = writer->output.size();
    }
    return status;
}

ZUL_API void zul_xout_close(zul_xout_Writer* writer) {
    if (!writer) return;
    delete *writer;
    *writer = nullptr;
}

}  // extern "C"
