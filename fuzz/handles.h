// Owners of the library's handles for the fuzz targets: a handle is closed on every way out of a
// check, a failed one included.
#pragma once

#include "zul.h"

namespace zulfuzz {

struct DecoderHandle {
    zul_dec_Context context = nullptr;
    ~DecoderHandle() { zul_dec_close(&context); }
};

struct ReaderHandle {
    zul_in_Context context = nullptr;
    ~ReaderHandle() { zul_in_close(&context); }
};

}  // namespace zulfuzz
