// The exported zul_out_ functions: argument checks at the boundary, then the writer's members.
#include "file/out_context.h"
#include "file/wide_path.h"
#include "frame/data_type.h"
#include "frame/header2.h"
#include "zul.h"

namespace {

// The records are judged before any file is touched; a refused open leaves no context behind.
zul_Status openWriter(zul_out_Context* context, const char* path, const zul_DataType* dataType,
                      const zul_Header2* header) {
    if (!context) return zul_STATUS_INVALID_ARGUMENT;
    *context = nullptr;
    if (!path || !dataType || !zullib::DataType::isValid(*dataType)) {
        return zul_STATUS_INVALID_ARGUMENT;
    }
    if (header && !zullib::Header2::isValid(*header, true)) return zul_STATUS_INVALID_ARGUMENT;
    // From here on the caller holds a context, also when the file cannot be created.
    *context = new zul_out_ContextStruct();
    return (*context)->open(path, *dataType, header);
}

}  // namespace

extern "C" {

ZUL_API zul_Status zul_out_open(zul_out_Context* context, const char* path,
                                const zul_DataType* dataType) {
    return openWriter(context, path, dataType, nullptr);
}

ZUL_API zul_Status zul_out_open2(zul_out_Context* context, const char* path,
                                 const zul_DataType* dataType, const zul_Header2* header) {
    return openWriter(context, path, dataType, header);
}

ZUL_API zul_Status zul_out_open_w(zul_out_Context* context, const wchar_t* path,
                                  const zul_DataType* dataType) {
    return zul_out_open2_w(context, path, dataType, nullptr);
}

ZUL_API zul_Status zul_out_open2_w(zul_out_Context* context, const wchar_t* path,
                                   const zul_DataType* dataType, const zul_Header2* header) {
    if (!path) return openWriter(context, nullptr, dataType, header);
    return openWriter(context, zullib::utf8Path(path).c_str(), dataType, header);
}

ZUL_API zul_Status zul_out_setChunkSize(zul_out_Context context, int chunkSize) {
    if (!context) return zul_STATUS_INVALID_ARGUMENT;
    return context->setChunkSize(chunkSize);
}

ZUL_API zul_Status zul_out_writePoint(zul_out_Context context, const zul_Point* point) {
    if (!context) return zul_STATUS_INVALID_ARGUMENT;
    return context->writePoint(point);
}

ZUL_API zul_Status zul_out_close(zul_out_Context* context) {
    if (!context) return zul_STATUS_INVALID_ARGUMENT;
    if (!*context) return zul_STATUS_OK;
    const zul_Status result = (*context)->close();
    delete *context;
    *context = nullptr;
    return result;
}

}  // extern "C"
