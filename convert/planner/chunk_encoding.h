// Encoding the chunks of a cutting through the public encoder: the points of a chunk are gathered
// into the parallel arrays the encoder reads. Used both to measure what a cutting costs and to
// produce the chunks that are stored.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "base/point_columns.h"
#include "planner/cutting.h"
#include "zul.h"
#include "zul_bulk.h"

namespace zulplan {

// Which chunks of a cutting a measure takes: those whose number is a multiple of `every`
// (`multiples`), or the others; every chunk by default.
struct ChunkSubset {
    size_t every = 1;
    bool multiples = true;
    bool has(size_t chunk) const { return (chunk % every == 0) == multiples; }
};

class ChunkEncoder {
public:
    // An encoder of streams of `type` with the optional sensor `header` (null: version 1). The
    // outcome of opening is status().
    ChunkEncoder(const zul_DataType& type, const zul_Header2* header);
    ~ChunkEncoder() {
        zul_enc_close(&encoder_);
        zul_bulk_closeOrderer(&orderer_);
    }
    ChunkEncoder(const ChunkEncoder&) = delete;
    ChunkEncoder& operator=(const ChunkEncoder&) = delete;

    zul_Status status() const { return opened_; }
    zul_enc_Context context() const { return encoder_; }

    // Encodes points[indices[0 .. count)] as one chunk; the bytes stay valid until the next call.
    zul_Status encode(const zul_Point* points, const uint32_t* indices, size_t count,
                      const char** bytes, int* size);
    // The same chunk, byte for byte, and the order it stores the points in: they are gathered
    // into `out` (arrays with room for `count` points of the type) in the order given, and
    // stored[k] gets the place there of the point the chunk stores k-th. The order is found
    // before the encoding, and where no two points share a grid point the encoder is handed them
    // in it and does not sort.
    zul_Status encodeStored(const zul_Point* points, const uint32_t* indices, size_t count,
                            const zul_PointData& out, uint32_t* stored, const char** bytes,
                            int* size);
    // Adds the bytes of every chunk of `cutting` (of `subset`) to `total`.
    zul_Status measure(const zul_Point* points, const Cutting& cutting, uint64_t& total,
                       ChunkSubset subset = ChunkSubset());
    // The same, but gives up (and sets `over`) as soon as `total` times `scale` is sure to exceed
    // what `bound` holds by then: a cutting that cannot be the cheapest is not measured whole.
    zul_Status measure(const zul_Point* points, const Cutting& cutting, uint64_t& total,
                       const std::atomic<uint64_t>& bound, double scale, bool& over,
                       ChunkSubset subset = ChunkSubset());

private:
    zul_DataType type_;
    zul_enc_Context encoder_ = nullptr;
    zul_Status opened_;
    zulbase::PointColumns columns_;
    zul_bulk_Orderer orderer_ = nullptr;  // opened by the first encodeStored
    zulbase::PointColumns sorted_;        // encodeStored's points in their stored order
};

}  // namespace zulplan
