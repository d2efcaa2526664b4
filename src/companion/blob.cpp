// zul_xblob_: a stream and its companion in one buffer; and the helpers zul_x_.
#include "format.h"

namespace {

constexpr uint8_t kBlobMagic[4] = {'Z', 'U', 'L', 'B'};
constexpr size_t kBlobHeader = 24;

}  // namespace

extern "C" {

ZUL_API uint64_t zul_x_checksum(const void* bytes, size_t size) {
    return zulx::checksum(bytes, size);
}

ZUL_API const char* zul_x_statusText(zul_Status status) {
    switch (static_cast<int32_t>(status)) {
        case zul_STATUS_OK:
            return "success";
        case zul_STATUS_END_OF_FILE:
            return "end of file";
        case zul_STATUS_READ_ERROR:
            return "cannot be read";
        case zul_STATUS_TRUNCATED:
            return "truncated";
        case zul_STATUS_WRITE_ERROR:
            return "cannot be written";
        case zul_STATUS_BAD_SIGNATURE:
            return "not of this format";
        case zul_STATUS_BAD_VERSION:
            return "of a version this library does not read";
        case zul_STATUS_CORRUPT_DATA:
            return "damaged";
        case zul_STATUS_INVALID_ARGUMENT:
            return "invalid argument";
        case zul_STATUS_INVALID_STATE:
            return "call out of order";
        case 2000:
            return "the companion belongs to another stream";
        case 2001:
            return "the stream's bytes changed since the companion was made";
        default:
            return "unknown status";
    }
}

ZUL_API zul_Status zul_xblob_pack(const void* stream, size_t streamSize, const void* companion,
                                  size_t companionSize, void* out, size_t capacity, size_t* size) {
    if (!size || (!stream && streamSize) || (!companion && companionSize) ||
        streamSize > SIZE_MAX / 2 || companionSize > SIZE_MAX / 2 - kBlobHeader)
        return zul_STATUS_INVALID_ARGUMENT;
    const size_t total = kBlobHeader + streamSize + companionSize;
    *size = total;
    if (!out && capacity == 0) return zul_STATUS_OK;
    if (!out || capacity < total) return zul_STATUS_INVALID_ARGUMENT;
    uint8_t* p = static_cast<uint8_t*>(out);
    std::memcpy(p, kBlobMagic, 4);
    p[4] = 1;  // version
    p[5] = p[6] = p[7] = 0;
    zulx::store<uint64_t>(p + 8, streamSize);
    zulx::store<uint64_t>(p + 16, companionSize);
    if (streamSize) std::memcpy(p + kBlobHeader, stream, streamSize);
    if (companionSize) std::memcpy(p + kBlobHeader + streamSize, companion, companionSize);
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_xblob_unpack(const void* blob, size_t size, const void** stream,
                                    size_t* streamSize, const void** companion,
                                    size_t* companionSize) {
    if (!blob || !stream || !streamSize || !companion || !companionSize)
        return zul_STATUS_INVALID_ARGUMENT;
    const uint8_t* p = static_cast<const uint8_t*>(blob);
    if (size < 4) return zul_STATUS_TRUNCATED;
    if (std::memcmp(p, kBlobMagic, 4) != 0) return zul_STATUS_BAD_SIGNATURE;
    if (size < kBlobHeader) return zul_STATUS_TRUNCATED;
    if (p[4] != 1) return zul_STATUS_BAD_VERSION;
    if (p[5] || p[6] || p[7]) return zul_STATUS_CORRUPT_DATA;
    const uint64_t a = zulx::load<uint64_t>(p + 8), b = zulx::load<uint64_t>(p + 16);
    const uint64_t room = size - kBlobHeader;
    if (a > room || b > room - a) return zul_STATUS_TRUNCATED;
    if (a + b != room) return zul_STATUS_CORRUPT_DATA;
    *stream = p + kBlobHeader;
    *streamSize = static_cast<size_t>(a);
    *companion = b ? p + kBlobHeader + a : nullptr;
    *companionSize = static_cast<size_t>(b);
    return zul_STATUS_OK;
}

}  // extern "C"
