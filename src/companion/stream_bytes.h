// Bytes of a stream or a companion, from memory or from a file read by offset (pread, so that
// several threads may read one file at once).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "zul_companion.h"

namespace zulx {

class ByteSource {
public:
    ByteSource() = default;
    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;
    ~ByteSource();

    // zul_STATUS_OK or zul_STATUS_READ_ERROR.
    zul_Status openFile(const char* path);
    void openMemory(const void* bytes, size_t size);

    int64_t size() const { return size_; }
    // Reads `size` bytes at `offset` into `out` (resized). zul_STATUS_OK; zul_STATUS_TRUNCATED
    // when they lie past the end; zul_STATUS_READ_ERROR.
    zul_Status read(int64_t offset, int64_t size, std::vector<uint8_t>& out) const;
    // As read, without a copy: points at the bytes of a memory source, or into `copy` (filled
    // by read) for a file.
    zul_Status view(int64_t offset, int64_t size, std::vector<uint8_t>& copy,
                    const uint8_t*& bytes) const;

private:
    int fd_ = -1;
    const uint8_t* memory_ = nullptr;
    int64_t size_ = 0;
};

// What a companion binds of a stream: its head, its sync marker and its chunks.
struct StreamFacts {
    uint8_t marker[16] = {};
    int64_t headSize = 0;
    uint64_t headChecksum = 0;
    int64_t size = 0;
    std::vector<zul_idx_Chunk> chunks;
    std::vector<uint64_t> checksums;    // filled only when asked for
    zul_Status damage = zul_STATUS_OK;  // where the walk over the chunks stopped
};

// Reads the head of a stream: sync marker, head size and checksum. Returns zul_STATUS_OK or the
// status of the decoder that refuses the head (zul_STATUS_TRUNCATED for a short one).
zul_Status readStreamHead(const ByteSource& stream, StreamFacts& facts);

// Reads the head and lists the chunks with the chunk index (opened on `path`, or on `bytes` when
// `path` is null); with `withChecksums`, checksums every chunk's bytes.
zul_Status readStream(const char* path, const void* bytes, size_t size, bool withChecksums,
                      StreamFacts& facts);

}  // namespace zulx
