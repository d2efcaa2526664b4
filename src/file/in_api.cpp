// The exported zul_in_ functions: a null handle is refused here, every other check is the
// reader's.
#include "file/in_context.h"
#include "file/wide_path.h"
#include "zul.h"

namespace {

// The context is handed out before anything else is checked, so that unless `context` is null
// the caller always has one to close.
zul_Status openReader(zul_in_Context* context, zul_DataType* dataType, zul_Header2* header,
                      const char* path, const zul_dec_Params* params) {
    if (!context) return zul_STATUS_INVALID_ARGUMENT;
    *context = new zul_in_ContextStruct();
    return (*context)->open(dataType, header, path, params);
}

}  // namespace

extern "C" {

ZUL_API zul_Status zul_in_open(zul_in_Context* context, zul_DataType* dataType, const char* path) {
    return openReader(context, dataType, nullptr, path, nullptr);
}

ZUL_API zul_Status zul_in_open2(zul_in_Context* context, zul_DataType* dataType,
                                zul_Header2* header, const char* path,
                                const zul_dec_Params* params) {
    return openReader(context, dataType, header, path, params);
}

ZUL_API zul_Status zul_in_open_w(zul_in_Context* context, zul_DataType* dataType,
                                 const wchar_t* path) {
    return zul_in_open2_w(context, dataType, nullptr, path, nullptr);
}

ZUL_API zul_Status zul_in_open2_w(zul_in_Context* context, zul_DataType* dataType,
                                  zul_Header2* header, const wchar_t* path,
                                  const zul_dec_Params* params) {
    if (!path) return openReader(context, dataType, header, nullptr, params);
    return openReader(context, dataType, header, zullib::utf8Path(path).c_str(), params);
}

ZUL_API zul_Status zul_in_getNumPoints(zul_in_Context context, int64_t* numPoints) {
    if (!context) return zul_STATUS_INVALID_ARGUMENT;
    return context->getNumPoints(numPoints);
}

ZUL_API zul_Status zul_in_readNextPoint(zul_in_Context context, zul_Point* point) {
    if (!context || !point) return zul_STATUS_INVALID_ARGUMENT;
    return context->readNextPoint(point);
}

ZUL_API void zul_in_close(zul_in_Context* context) {
    if (!context || !*context) return;
    delete *context;
    *context = nullptr;
}

}  // extern "C"
