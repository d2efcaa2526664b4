#include "commands/status_text.h"

#include <cerrno>
#include <cstring>

#include "formats/cloud.h"
#include "zul_bulk.h"

namespace zulconvert {

using namespace zulformats;

namespace {

// Every status in words, once: what it means, in the words of the stage where they differ, and
// the short name said after it in parentheses.
struct StatusWords {
    zul_Status status;
    const char* name;
    const char* text;     // at every stage not given below
    const char* opening;  // opening a file (its signature and header), if said otherwise
    const char* writing;  // writing a file, if said otherwise
};

constexpr StatusWords kStatusWords[] = {
    {zul_STATUS_OK, "ok", "no error", nullptr, nullptr},
    {zul_STATUS_END_OF_FILE, "end of file", "the file ends after its last chunk", nullptr, nullptr},
    {zul_STATUS_READ_ERROR, "read error", "the file cannot be opened or read", nullptr, nullptr},
    {zul_STATUS_TRUNCATED, "truncated", "the file ends inside a chunk",
     "the file ends inside its signature or header", nullptr},
    {zul_STATUS_WRITE_ERROR, "write error", "the file cannot be created or written", nullptr,
     nullptr},
    {zul_STATUS_BAD_SIGNATURE, "bad signature",
     "not a zul file: its first bytes are not the zul signature", nullptr, nullptr},
    {zul_STATUS_BAD_VERSION, "bad version",
     "a zul file of a format version this library does not read", nullptr, nullptr},
    {zul_STATUS_CORRUPT_DATA, "corrupt data",
     "a chunk holds values no writer produces: the file is damaged",
     "the file header holds values no writer produces: the file is damaged", nullptr},
    {zul_STATUS_INVALID_ARGUMENT, "invalid argument", "the library refused a value", nullptr,
     "the library refused a value: a setting out of range, or a normal of length zero"},
    {zul_STATUS_INVALID_STATE, "invalid state", "the library was called out of order", nullptr,
     nullptr},
    {zul_STATUS_OVER_BUDGET, "over budget",
     "a chunk claims more points than the memory budget or the density limit allows", nullptr,
     nullptr},
    {zul_STATUS_OUT_OF_MEMORY, "out of memory", "the memory for the points could not be allocated",
     nullptr, nullptr},
};

}  // namespace

std::string statusText(zul_Status status, ZulStage stage) {
    for (const StatusWords& words : kStatusWords) {
        if (words.status != status) continue;
        const char* text = stage == ZulStage::Open && words.opening    ? words.opening
                           : stage == ZulStage::Write && words.writing ? words.writing
                                                                       : words.text;
        return std::string(text) + " (" + words.name + ")";
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
