// Construction, the signature step and the chunk count of the decoder context.
#include "decoder/dec_context.h"

#include "frame/data_type.h"
#include "frame/file_signature.h"
#include "frame/header2.h"

zul_dec_ContextStruct::zul_dec_ContextStruct()
    : state(zul_dec_STATE_NEW),
      header2(zullib::Header2::disabled()),
      transformPositions(false),
      transformNormals(false),
      normalTransformation(),
      params(),
      version(0),
      fileHeaderV1(),
      fileHeaderV2(),
      chunkHeaderSize(0),
      chunkPoints(),
      chunkPointsCapacity(0),
      chunkBodySize(0),
      coordinateStreamEnd(0),
      colorStreamEnd(0),
      reflectionStreamEnd(0),
      normalStreamEnd(0) {
    zullib::DataType::init(dataType, 0.0001f, zul_COLOR_NONE, zul_REFLECTION_NONE, 0,
                           zul_NORMAL_NONE);
}

zul_dec_ContextStruct::~zul_dec_ContextStruct() { freeChunkPoints(); }

zul_Status zul_dec_ContextStruct::open(int* fileHeaderSize, const char* signature,
                                       const zul_dec_Params* callerParams) {
    if (!fileHeaderSize || !signature) return zul_STATUS_INVALID_ARGUMENT;
    if (state != zul_dec_STATE_NEW) return zul_STATUS_INVALID_STATE;
    // The params are judged before the signature is looked at.
    if (callerParams) {
        params = *callerParams;
        if (static_cast<uint32_t>(params.applyTransformation) > 1)
            return zul_STATUS_INVALID_ARGUMENT;
    } else {
        params = zul_dec_Params();
        params.applyTransformation = 1;
    }
    version = zullib::signatureVersion(signature);
    if (version < 0) return zul_STATUS_BAD_SIGNATURE;
    const int size = zullib::fileHeaderSize(version);
    if (size == 0) return zul_STATUS_BAD_VERSION;
    *fileHeaderSize = size;
    state = zul_dec_STATE_SIGNATURE_READ;
    return zul_STATUS_OK;
}

zul_Status zul_dec_ContextStruct::getNumPointsInChunk(int& numPoints) {
    // A count below 1 means no chunk header has succeeded since the last failure (or ever).
    if (state != zul_dec_STATE_READY_FOR_CHUNK && state != zul_dec_STATE_CHUNK_HEADER_READ)
        return zul_STATUS_INVALID_STATE;
    if (chunkPoints.numPoints < 1) return zul_STATUS_INVALID_STATE;
    numPoints = chunkPoints.numPoints;
    return zul_STATUS_OK;
}
