// The exported orderer: the stored order of a chunk (stored_order.h) with working memory kept
// from call to call.
#include <vector>

#include "bulk/status_guard.h"
#include "bulk/stored_order.h"
#include "frame/data_type.h"
#include "zul_bulk.h"

struct zul_bulk_OrdererStruct {
    zul_DataType dataType = {};
    std::vector<zullib::zul_QuantizedPoint> records;
    std::vector<unsigned char> scratch;
};

extern "C" {

ZUL_API zul_Status zul_bulk_openOrderer(zul_bulk_Orderer* orderer, const zul_DataType* dataType) {
    if (!orderer) return zul_STATUS_INVALID_ARGUMENT;
    *orderer = nullptr;
    return zulbulk::guardStatus([&] {
        *orderer = new zul_bulk_OrdererStruct();
        if (!dataType || !zullib::DataType::isValid(*dataType)) return zul_STATUS_INVALID_ARGUMENT;
        (*orderer)->dataType = *dataType;
        return zul_STATUS_OK;
    });
}

ZUL_API zul_Status zul_bulk_orderChunk(zul_bulk_Orderer orderer, const zul_PointData* points,
                                       uint32_t* order, int* unique) {
    if (!orderer || !points || !order || points->numPoints < 0 ||
        (points->numPoints > 0 && !points->positions))
        return zul_STATUS_INVALID_ARGUMENT;
    return zulbulk::guardStatus([&] {
        const bool alone = zulbulk::storedOrder(orderer->dataType, *points, order, orderer->records,
                                                orderer->scratch);
        if (unique) *unique = alone ? 1 : 0;
        return zul_STATUS_OK;
    });
}

ZUL_API void zul_bulk_closeOrderer(zul_bulk_Orderer* orderer) {
    if (!orderer) return;
    delete *orderer;
    *orderer = nullptr;
}

}  // extern "C"
