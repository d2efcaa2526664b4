#include "commands/companion_report.h"

#include <filesystem>
#include <utility>
#include <vector>

#include "commands/companion_write.h"
#include "commands/json_text.h"
#include "zul_companion.h"

namespace zulconvert {

namespace {

const char* typeName(zul_FieldType type) {
    static const char* const names[] = {"?",   "u8",  "i8",  "u16", "i16", "u32",
                                        "i32", "u64", "i64", "f32", "f64", "raw"};
    return type >= 1 && type <= 11 ? names[type] : "?";
}

// The conventions of an open companion, keys and values, in their order.
std::vector<std::pair<std::string, std::string>> conventionsOf(zul_xin_Reader reader) {
    int32_t count = 0;
    zul_xin_getConventionCount(reader, &count);
    std::vector<std::pair<std::string, std::string>> conventions;
    for (int32_t i = 0; i < count; ++i) {
        const char* key = nullptr;
        const char* value = nullptr;
        if (zul_xin_getConvention(reader, i, &key, &value) == zul_STATUS_OK)
            conventions.emplace_back(key, value);
    }
    return conventions;
}

}  // namespace

std::string conventionOf(zul_xin_Reader reader, const char* key) {
    for (const auto& convention : conventionsOf(reader))
        if (convention.first == key) return convention.second;
    return "";
}

std::string companionInfoText(const std::string& streamPath) {
    const std::string path = companionPath(streamPath);
    if (!std::filesystem::exists(path)) return "";
    CompanionReader guard;
    zul_Status status = zul_xin_openFile(&guard.reader, path.c_str());
    if (status == zul_STATUS_OK) status = zul_xin_bindStreamFile(guard.reader, streamPath.c_str());
    if (status != zul_STATUS_OK) {
        return "companion    " + path + ": refused (" + zul_x_statusText(status) + ")\n";
    }
    zul_CompanionInfo info = {};
    zul_xin_getInfo(guard.reader, &info);
    const char* format = "";
    zul_xin_getFormat(guard.reader, &format);
    std::string text = "companion    " + path + ", " + std::to_string(info.fileSize) + " bytes" +
                       (format[0] ? std::string(", from ") + format : "") +
                       (info.hasOrder ? ", the input's order" : "") + "\n";
    for (const auto& convention : conventionsOf(guard.reader))
        text += "convention   " + convention.first + " = " + convention.second + "\n";
    std::string fields;
    for (int32_t f = 0; f < info.numFields; ++f) {
        zul_FieldInfo field = {};
        zul_xin_getField(guard.reader, f, &field);
        fields += std::string(f ? ", " : "") + field.name + " (" + typeName(field.type) +
                  (field.type == zul_FIELD_RAW ? " " + std::to_string(field.width) : "") + ")";
    }
    text += "fields       " + (fields.empty() ? std::string("none") : fields) + "\n";
    return text;
}

std::string companionInfoJson(const std::string& streamPath) {
    const std::string path = companionPath(streamPath);
    if (!std::filesystem::exists(path)) return "null";
    CompanionReader guard;
    zul_Status status = zul_xin_openFile(&guard.reader, path.c_str());
    const bool opened = status == zul_STATUS_OK;
    if (opened) status = zul_xin_bindStreamFile(guard.reader, streamPath.c_str());
    std::string text = "{\"file\": " + jsonString(path) +
                       ", \"bound\": " + (status == zul_STATUS_OK ? "true" : "false");
    if (status != zul_STATUS_OK) text += ", \"refused\": " + jsonString(zul_x_statusText(status));
    if (!opened) return text + "}";
    zul_CompanionInfo info = {};
    zul_xin_getInfo(guard.reader, &info);
    const char* format = "";
    zul_xin_getFormat(guard.reader, &format);
    text += ", \"bytes\": " + std::to_string(info.fileSize) +
            ", \"format\": " + jsonString(format) +
            ", \"order\": " + (info.hasOrder ? "true" : "false") + ", \"conventions\": {";
    const char* comma = "";
    for (const auto& convention : conventionsOf(guard.reader)) {
        text += comma + jsonString(convention.first) + ": " + jsonString(convention.second);
        comma = ", ";
    }
    text += "}, \"fields\": [";
    for (int32_t f = 0; f < info.numFields; ++f) {
        zul_FieldInfo field = {};
        zul_xin_getField(guard.reader, f, &field);
        text += std::string(f ? ", " : "") + "{\"name\": " + jsonString(field.name) +
                ", \"type\": \"" + typeName(field.type) +
                "\", \"width\": " + std::to_string(field.width) + "}";
    }
    return text + "]}";
}

std::string verifyCompanion(const std::string& streamPath) {
    const std::string path = companionPath(streamPath);
    if (!std::filesystem::exists(path)) return "";
    CompanionReader guard;
    zul_Status status = zul_xin_openFile(&guard.reader, path.c_str());
    if (status != zul_STATUS_OK) {
        return path + ": the companion is damaged (" + zul_x_statusText(status) + ")";
    }
    zul_CompanionInfo info = {};
    zul_xin_getInfo(guard.reader, &info);
    int64_t numBad = 0;
    std::vector<int64_t> bad(64);
    status = zul_xin_verifyFile(guard.reader, streamPath.c_str(), bad.data(),
                                static_cast<int64_t>(bad.size()), &numBad);
    if (status == zul_STATUS_OK) {
        for (int64_t c = 0; c < info.numChunks && status == zul_STATUS_OK; ++c) {
            status = zul_xin_checkBlock(guard.reader, c);
            if (status != zul_STATUS_OK) {
                return path + ": the fields of chunk " + std::to_string(c) + " are damaged (" +
                       zul_x_statusText(status) + ")";
            }
        }
        return "";
    }
    if (status == zul_STATUS_COMPANION_MISMATCH) {
        return path + " does not belong to " + streamPath + " (another stream's companion)";
    }
    if (status != zul_STATUS_STREAM_CHANGED) {
        return path + ": cannot be checked against " + streamPath + " (" +
               zul_x_statusText(status) + ")";
    }
    std::string named;
    for (int64_t k = 0; k < std::min<int64_t>(numBad, static_cast<int64_t>(bad.size())); ++k) {
        const int64_t c = bad[static_cast<size_t>(k)];
        named += std::string(k ? ", " : "") + (c < 0 ? std::string("the stream's head")
                                               : c >= info.numChunks
                                                   ? std::string("bytes after the last chunk")
                                                   : "chunk " + std::to_string(c));
    }
    if (numBad > static_cast<int64_t>(bad.size())) named += " and more";
    return streamPath + ": its bytes are not those " + path + " was made for: " + named +
           " changed or lost";
}

}  // namespace zulconvert
