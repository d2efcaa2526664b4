// The exported zul_dec_ functions: a null handle is refused here, every other check is the
// context's.
#include "decoder/dec_context.h"
#include "zul.h"

extern "C" {

ZUL_API zul_Status zul_dec_open(zul_dec_Context* context, int* fileHeaderSize,
                                const char* signature) {
    return zul_dec_open2(context, fileHeaderSize, signature, nullptr);
}

ZUL_API zul_Status zul_dec_open2(zul_dec_Context* context, int* fileHeaderSize,
                                 const char* signature, const zul_dec_Params* params) {
    if (!context) return zul_STATUS_INVALID_ARGUMENT;
    // The context is handed out before any check, so even a failed open leaves one to close.
    *context = new zul_dec_ContextStruct();
    return (*context)->open(fileHeaderSize, signature, params);
}

ZUL_API zul_Status zul_dec_decodeFileHeader(zul_dec_Context context, zul_DataType* dataType,
                                            int* chunkHeaderSize, const char** syncMarker,
                                            const char* fileHeader) {
    if (!context) return zul_STATUS_INVALID_ARGUMENT;
    return context->decodeFileHeader(dataType, nullptr, chunkHeaderSize, syncMarker, fileHeader);
}

ZUL_API zul_Status zul_dec_decodeFileHeader2(zul_dec_Context context, zul_DataType* dataType,
                                             zul_Header2* header2, int* chunkHeaderSize,
                                             const char** syncMarker, const char* fileHeader) {
    if (!context) return zul_STATUS_INVALID_ARGUMENT;
    return context->decodeFileHeader(dataType, header2, chunkHeaderSize, syncMarker, fileHeader);
}

ZUL_API zul_Status zul_dec_decodeChunkHeader(zul_dec_Context context, int* chunkBodySize,
                                             const char* chunkHeader) {
    if (!context) return zul_STATUS_INVALID_ARGUMENT;
    return context->decodeChunkHeader(chunkBodySize, chunkHeader, nullptr);
}

ZUL_API zul_Status zul_dec_getNumPointsInChunk(zul_dec_Context context, int* numPoints) {
    if (!context || !numPoints) return zul_STATUS_INVALID_ARGUMENT;
    return context->getNumPointsInChunk(*numPoints);
}

ZUL_API zul_Status zul_dec_decodeChunkBody(zul_dec_Context context, zul_PointData* points,
                                           const char* chunkBody) {
    if (!context) return zul_STATUS_INVALID_ARGUMENT;
    return context->decodeChunkBody(points, chunkBody);
}

ZUL_API void zul_dec_close(zul_dec_Context* context) {
    if (!context || !*context) return;
    delete *context;
    *context = nullptr;
}

}  // extern "C"
