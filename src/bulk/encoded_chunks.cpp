#include "bulk/encoded_chunks.h"

#include <algorithm>
#include <vector>

#include "frame/data_type.h"

namespace zulbulk {

namespace {

// Bytes gathered before a write: chunks are small, a system call each would cost more.
const size_t kSlab = size_t{1} << 20;

uint64_t littleEndian(const unsigned char* bytes, int count) {
    uint64_t value = 0;
    for (int i = count - 1; i >= 0; --i) value = value << 8 | bytes[i];
    return value;
}

// After the marker: the box (six 8-byte corners), the point count, a size a stream.
const int kCountAt = ZUL_SYNC_MARKER_SIZE + 6 * 8;

}  // namespace

int64_t encodedChunkPoints(const char* bytes) {
    return static_cast<int64_t>(
        littleEndian(reinterpret_cast<const unsigned char*>(bytes) + kCountAt, 4));
}

bool encodedChunkWhole(const zul_DataType& type, const char* bytes, int64_t size) {
    const int64_t front = ZUL_SYNC_MARKER_SIZE + zullib::DataType::getChunkHeaderSize(type);
    if (bytes == nullptr || size < front) return false;
    const unsigned char* header = reinterpret_cast<const unsigned char*>(bytes) + kCountAt;
    const uint64_t points = littleEndian(header, 4);
    if (points < 1 || points > ZUL_MAX_CHUNK_SIZE) return false;
    int64_t total = front;
    for (const unsigned char* s = header + 4;
         s < reinterpret_cast<const unsigned char*>(bytes) + front; s += 4)
        total += static_cast<int64_t>(littleEndian(s, 4));
    return total == size;
}

int64_t appendEncoded(const char* marker, const char* const* chunks, const int64_t* sizes,
                      int64_t count, const std::function<bool(const char*, size_t)>& write) {
    std::vector<char> slab;
    slab.reserve(kSlab);
    int64_t gathered = 0;  // chunks whose bytes are in the file or the slab
    int64_t written = 0;   // chunks whose bytes are in the file
    const auto flush = [&] {
        if (!slab.empty() && !write(slab.data(), slab.size())) return false;
        slab.clear();
        written = gathered;
        return true;
    };
    for (int64_t k = 0; k < count; ++k) {
        const size_t size = static_cast<size_t>(sizes[k]);
        if (slab.size() + size > kSlab && !flush()) return written;
        slab.insert(slab.end(), marker, marker + ZUL_SYNC_MARKER_SIZE);
        slab.insert(slab.end(), chunks[k] + ZUL_SYNC_MARKER_SIZE, chunks[k] + size);
        ++gathered;
    }
    flush();
    return written;
}

}  // namespace zulbulk
