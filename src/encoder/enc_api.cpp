// The exported zul_enc_ functions: argument checks at the boundary, then the context's members.
#include "encoder/enc_context.h"
#include "encoder/enc_open.h"
#include "frame/data_type.h"
#include "frame/header2.h"
#include "zul.h"

namespace {

// The checks of zul_enc_open2; true if the records may open an encoder, the header filled in.
bool acceptRecords(const zul_DataType* dataType, const zul_Header2* header, zul_Header2& copied) {
    if (!dataType || !zullib::DataType::isValid(*dataType)) return false;
    // A disabled header is not looked at any further: none of its other fields has to be valid.
    if (header && !zullib::Header2::isValid(*header, true)) return false;
    copied = header ? *header : zullib::Header2::disabled();
    return true;
}

}  // namespace

zul_Status zulencoder::openWithMarker(zul_enc_Context* context, const zul_DataType* dataType,
                                      const zul_Header2* header, const char* syncMarker) {
    if (!context) return zul_STATUS_INVALID_ARGUMENT;
    *context = nullptr;
    zul_Header2 copied;
    if (!syncMarker || !acceptRecords(dataType, header, copied)) return zul_STATUS_INVALID_ARGUMENT;
    zullib::zul_SyncMarker marker;
    marker.setBytes(syncMarker);
    *context = new zul_enc_ContextStruct(*dataType, copied, marker);
    return zul_STATUS_OK;
}

extern "C" {

ZUL_API zul_Status zul_enc_open(zul_enc_Context* context, const zul_DataType* dataType) {
    return zul_enc_open2(context, dataType, nullptr);
}

ZUL_API zul_Status zul_enc_open2(zul_enc_Context* context, const zul_DataType* dataType,
                                 const zul_Header2* header) {
    if (!context) return zul_STATUS_INVALID_ARGUMENT;
    *context = nullptr;
    zul_Header2 copied;
    if (!acceptRecords(dataType, header, copied)) return zul_STATUS_INVALID_ARGUMENT;
    *context = new zul_enc_ContextStruct(*dataType, copied);
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_enc_createFileSignature(zul_enc_Context context, const char** signature) {
    if (!context || !signature) return zul_STATUS_INVALID_ARGUMENT;
    *signature = context->getFileSignature();
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_enc_encodeFileHeader(zul_enc_Context context, const char** bytes,
                                            int* size) {
    if (!context || !bytes || !size) return zul_STATUS_INVALID_ARGUMENT;
    context->encodeFileHeader(bytes, size);
    return zul_STATUS_OK;
}

ZUL_API zul_Status zul_enc_encodeChunk(zul_enc_Context context, const char** bytes, int* size,
                                       const zul_PointData* points) {
    if (!context || !bytes || !size || !points) return zul_STATUS_INVALID_ARGUMENT;
    // The arrays are read, never trusted to be there: a negative count or a missing array that
    // the data type needs is refused before the first point is touched.
    const zul_DataType& dataType = context->dataType;
    if (points->numPoints < 0) return zul_STATUS_INVALID_ARGUMENT;
    if (points->numPoints > 0) {
        if (!points->positions) return zul_STATUS_INVALID_ARGUMENT;
        const zullib::ChunkStreams streams(dataType);
        if (streams.color && !points->colors) return zul_STATUS_INVALID_ARGUMENT;
        if (streams.reflection && !points->reflections) return zul_STATUS_INVALID_ARGUMENT;
        if (streams.normals && !points->normals) return zul_STATUS_INVALID_ARGUMENT;
    }
    return context->encodeChunk(bytes, size, points);
}

ZUL_API void zul_enc_close(zul_enc_Context* context) {
    if (!context || !*context) return;
    delete *context;
    *context = nullptr;
}

}  // extern "C"
