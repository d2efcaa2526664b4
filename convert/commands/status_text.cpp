#include "commands/status_text.h"

#include <cerrno>
#include <cstring>

#include "formats/cloud.h"

namespace zulconvert {

using namespace zulformats;

std::string statusText(zul_Status status, ZulStage stage) {
    switch (status) {
        case zul_STATUS_OK:
            return "no error (ok)";
        case zul_STATUS_END_OF_FILE:
            return "the file ends after its last chunk (end of file)";
        case zul_STATUS_READ_ERROR:
            return "the file cannot be opened or read (read error)";
        case zul_STATUS_TRUNCATED:
            return stage == ZulStage::Open
                       ? "the file ends inside its signature or header (truncated)"
                       : "the file ends inside a chunk (truncated)";
        case zul_STATUS_WRITE_ERROR:
            return "the file cannot be created or written (write error)";
        case zul_STATUS_BAD_SIGNATURE:
            return "not a zul file: its first bytes are not the zul signature (bad signature)";
        case zul_STATUS_BAD_VERSION:
            return "a zul file of a format version this library does not read (bad version)";
        case zul_STATUS_CORRUPT_DATA:
            return stage == ZulStage::Open
                       ? "the file header holds values no writer produces: the file is damaged "
                         "(corrupt data)"
                       : "a chunk holds values no writer produces: the file is damaged (corrupt "
                         "data)";
        case zul_STATUS_INVALID_ARGUMENT:
            return stage == ZulStage::Write
                       ? "the library refused a value: a setting out of range, or a normal of "
                         "length zero (invalid argument)"
                       : "the library refused a value (invalid argument)";
        case zul_STATUS_INVALID_STATE:
            return "the library was called out of order (invalid state)";
    }
    return "unknown status " + std::to_string(static_cast<int>(status));
}

void checkStatus(zul_Status status, const std::string& path, ZulStage stage) {
    if (status == zul_STATUS_OK) return;
    std::string text = statusText(status, stage);
    // The system's reason for a failed read or write: a missing folder, a permission, a full disk.
    const int reason = errno;
    if ((status == zul_STATUS_WRITE_ERROR || status == zul_STATUS_READ_ERROR) && reason != 0) {
        text += ": " + std::string(std::strerror(reason));
    }
    throw FormatError(path + ": " + text);
}

}  // namespace zulconvert
