// Opening an encoder from inside the library with a sync marker chosen by the caller, for the
// encoders that make the chunks of one stream together (the bulk writer). Not exported.
#pragma once

#include "zul.h"

namespace zulencoder {

// As zul_enc_open2, but the stream's sync marker is the 16 bytes at `syncMarker` (not null)
// instead of drawn at random: two encoders opened with the same records and marker make the same
// signature, file header and chunks. Same statuses as zul_enc_open2.
zul_Status openWithMarker(zul_enc_Context* context, const zul_DataType* dataType,
                          const zul_Header2* header, const char* syncMarker);

}  // namespace zulencoder
