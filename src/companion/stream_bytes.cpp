#include "stream_bytes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "format.h"

namespace zulx {

ByteSource::~ByteSource() {
    if (fd_ >= 0) ::close(fd_);
}

zul_Status ByteSource::openFile(const char* path) {
    fd_ = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd_ < 0) return zul_STATUS_READ_ERROR;
    struct stat info;
    if (::fstat(fd_, &info) != 0 || !S_ISREG(info.st_mode)) return zul_STATUS_READ_ERROR;
    size_ = info.st_size;
    return zul_STATUS_OK;
}

void ByteSource::openMemory(const void* bytes, size_t size) {
    memory_ = static_cast<const uint8_t*>(bytes);
    size_ = static_cast<int64_t>(size);
}

zul_Status ByteSource::read(int64_t offset, int64_t size, std::vector<uint8_t>& out) const {
    if (offset < 0 || size < 0 || offset > size_ || size > size_ - offset)
        return zul_STATUS_TRUNCATED;
    out.resize(static_cast<size_t>(size));
    if (memory_) {
        if (size) std::memcpy(out.data(), memory_ + offset, static_cast<size_t>(size));
        return zul_STATUS_OK;
    }
    int64_t done = 0;
    while (done < size) {
        const ssize_t got = ::pread(fd_, out.data() + done, static_cast<size_t>(size - done),
                                    static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return zul_STATUS_READ_ERROR;
        if (got == 0) return zul_STATUS_TRUNCATED;  // the file shrank
        done += got;
    }
    return zul_STATUS_OK;
}

zul_Status ByteSource::view(int64_t offset, int64_t size, std::vector<uint8_t>& copy,
                            const uint8_t*& bytes) const {
    if (memory_) {
        if (offset < 0 || size < 0 || offset > size_ || size > size_ - offset)
            return zul_STATUS_TRUNCATED;
        bytes = memory_ + offset;
        return zul_STATUS_OK;
    }
    const zul_Status status = read(offset, size, copy);
    bytes = copy.data();
    return status;
}

zul_Status readStreamHead(const ByteSource& stream, StreamFacts& facts) {
    std::vector<uint8_t> signature, header;
    zul_Status status = stream.read(0, 8, signature);
    if (status != zul_STATUS_OK) return status;
    zul_dec_Context decoder = nullptr;
    int headerSize = 0;
    status = zul_dec_open2(&decoder, &headerSize, reinterpret_cast<const char*>(signature.data()),
                           nullptr);
    if (status == zul_STATUS_OK) status = stream.read(8, headerSize, header);
    if (status == zul_STATUS_OK) {
        zul_DataType dataType;
        zul_Header2 header2;
        int chunkHeaderSize = 0;
        const char* marker = nullptr;
        status = zul_dec_decodeFileHeader2(decoder, &dataType, &header2, &chunkHeaderSize, &marker,
                                           reinterpret_cast<const char*>(header.data()));
        if (status == zul_STATUS_OK) {
            std::memcpy(facts.marker, marker, 16);
            facts.headSize = 8 + headerSize;
            signature.insert(signature.end(), header.begin(), header.end());
            facts.headChecksum = checksum(signature.data(), signature.size());
            facts.size = stream.size();
        }
    }
    zul_dec_close(&decoder);
    return status;
}

zul_Status readStream(const char* path, const void* bytes, size_t size, bool withChecksums,
                      StreamFacts& facts) {
    ByteSource stream;
    if (path) {
        if (stream.openFile(path) != zul_STATUS_OK) return zul_STATUS_READ_ERROR;
    } else {
        stream.openMemory(bytes, size);
    }
    zul_Status status = readStreamHead(stream, facts);
    if (status != zul_STATUS_OK) return status;
    zul_idx_Index index = nullptr;
    status = path ? zul_idx_openFile(&index, path, nullptr)
                  : zul_idx_openBuffer(&index, bytes, size, nullptr);
    int64_t numChunks = 0;
    if (status == zul_STATUS_OK) status = zul_idx_getCounts(index, &numChunks, nullptr);
    if (status == zul_STATUS_OK) status = zul_idx_getDamage(index, &facts.damage, nullptr, nullptr);
    facts.chunks.resize(status == zul_STATUS_OK ? static_cast<size_t>(numChunks) : 0);
    for (int64_t c = 0; c < numChunks && status == zul_STATUS_OK; ++c)
        status = zul_idx_getChunk(index, c, &facts.chunks[static_cast<size_t>(c)]);
    zul_idx_close(&index);
    if (status != zul_STATUS_OK || !withChecksums) return status;
    std::vector<uint8_t> copy;
    for (const zul_idx_Chunk& c : facts.chunks) {
        const uint8_t* chunk = nullptr;
        status = stream.view(c.offset, c.size, copy, chunk);
        if (status != zul_STATUS_OK) return status;
        facts.checksums.push_back(checksum(chunk, static_cast<size_t>(c.size)));
    }
    return zul_STATUS_OK;
}

}  // namespace zulx
