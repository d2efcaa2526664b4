// The companion reader on any bytes, from a buffer, from a file and from its head alone. The three
// must agree on every status and value; every column and the order of every chunk, and the rows,
// are read (up to the budget of values), and a failed read is a status about the data, never a
// crash. The same bytes go through the one-blob unpacker, whose parts must lie inside them.
#include <cstring>
#include <vector>

#include "fuzz_support.h"
#include "zul_companion.h"

using namespace zulfuzz;

namespace {

using CompanionHandle = Owner<zul_xin_Reader, zul_xin_close>;

// Bytes of one column the target decodes at most: a mutated count may ask for far more.
constexpr int64_t kColumnBudget = int64_t{1} << 24;

bool isDataStatus(zul_Status status) {
    return status == zul_STATUS_TRUNCATED || status == zul_STATUS_BAD_SIGNATURE ||
           status == zul_STATUS_BAD_VERSION || status == zul_STATUS_CORRUPT_DATA;
}

void checkBlob(const uint8_t* data, size_t size) {
    const void *stream = nullptr, *companion = nullptr;
    size_t streamSize = 0, companionSize = 0;
    const zul_Status status =
        zul_xblob_unpack(data, size, &stream, &streamSize, &companion, &companionSize);
    if (status != zul_STATUS_OK) {
        FUZZ_CHECK(isDataStatus(status));
        return;
    }
    FUZZ_CHECK(24 + streamSize + companionSize == size);
    FUZZ_CHECK(stream == data + 24);
    FUZZ_CHECK(companionSize == 0 ? companion == nullptr : companion == data + 24 + streamSize);
}

// Reads column `field` (-1: the order) of every chunk through the three readers.
void checkColumns(zul_xin_Reader memory, zul_xin_Reader file, zul_xin_Reader head,
                  const uint8_t* data, const zul_CompanionInfo& info, int32_t field, int width) {
    std::vector<uint8_t> a, b, c;
    for (int64_t chunk = 0; chunk < info.numChunks; ++chunk) {
        zul_CompanionChunk entry;
        FUZZ_CHECK(zul_xin_getChunk(memory, chunk, &entry) == zul_STATUS_OK);
        FUZZ_CHECK(entry.blockOffset >= info.headSize &&
                   entry.blockOffset + entry.blockSize <= info.fileSize);
        const int64_t count = entry.chunk.numPoints;
        if (count * width > kColumnBudget) continue;
        a.assign(static_cast<size_t>(count * width), 0);
        b = a, c = a;
        const zul_Status fromMemory =
            field < 0
                ? zul_xin_readOrder(memory, chunk, reinterpret_cast<uint64_t*>(a.data()), count)
                : zul_xin_readColumn(memory, chunk, field, a.data(), count);
        const zul_Status fromFile =
            field < 0 ? zul_xin_readOrder(file, chunk, reinterpret_cast<uint64_t*>(b.data()), count)
                      : zul_xin_readColumn(file, chunk, field, b.data(), count);
        const zul_Status fromHead =
            zul_xin_readColumnFromBlock(head, chunk, field, data + entry.blockOffset,
                                        static_cast<size_t>(entry.blockSize), c.data(), count);
        FUZZ_CHECK(fromMemory == zul_STATUS_OK || fromMemory == zul_STATUS_CORRUPT_DATA);
        FUZZ_CHECK(fromFile == fromMemory && fromHead == fromMemory);
        if (fromMemory == zul_STATUS_OK) FUZZ_CHECK(a == b && a == c);
        // The whole chunk's read, this column (or the order) alone wanted, gives the same.
        std::vector<void*> rooms(static_cast<size_t>(info.numFields), nullptr);
        std::vector<uint8_t> d(a.size(), 0);
        if (field >= 0) rooms[static_cast<size_t>(field)] = d.data();
        const zul_Status together =
            zul_xin_readChunk(memory, chunk, rooms.data(), info.numFields,
                              field < 0 ? reinterpret_cast<uint64_t*>(d.data()) : nullptr, count);
        FUZZ_CHECK(together == fromMemory);
        if (together == zul_STATUS_OK) FUZZ_CHECK(d == a);
        if (field >= 0)  // too little room is refused before anything is read
            FUZZ_CHECK(zul_xin_readColumn(memory, chunk, field, a.data(), count - 1) ==
                       zul_STATUS_INVALID_ARGUMENT);
    }
}

void checkCompanion(const uint8_t* data, size_t size) {
    checkBlob(data, size);
    CompanionHandle memory, file, head;
    const zul_Status opened = zul_xin_openBuffer(&memory.value, data, size);
    writeScratch(data, size);
    FUZZ_CHECK(zul_xin_openFile(&file.value, scratchPath().c_str()) == opened);
    int64_t headSize = 0;
    const zul_Status peeked = zul_xin_getHeadSize(data, size, &headSize);
    if (opened != zul_STATUS_OK) {
        FUZZ_CHECK(isDataStatus(opened));
        return;
    }
    FUZZ_CHECK(peeked == zul_STATUS_OK && headSize <= static_cast<int64_t>(size));
    FUZZ_CHECK(zul_xin_openHead(&head.value, data, static_cast<size_t>(headSize),
                                static_cast<int64_t>(size)) == zul_STATUS_OK);
    zul_CompanionInfo info;
    FUZZ_CHECK(zul_xin_getInfo(memory.value, &info) == zul_STATUS_OK);
    FUZZ_CHECK(info.headSize == headSize && info.fileSize == static_cast<int64_t>(size));
    for (int32_t f = 0; f < info.numFields; ++f) {
        zul_FieldInfo field;
        FUZZ_CHECK(zul_xin_getField(memory.value, f, &field) == zul_STATUS_OK);
        FUZZ_CHECK(field.name[0] != 0 && std::strlen(field.name) <= ZUL_FIELD_NAME_MAX);
        int32_t found = -1;
        FUZZ_CHECK(zul_xin_findField(memory.value, field.name, &found) == zul_STATUS_OK &&
                   found == f);
        checkColumns(memory.value, file.value, head.value, data, info, f, field.width);
    }
    if (info.hasOrder) checkColumns(memory.value, file.value, head.value, data, info, -1, 8);
    zul_SourceKind kind;
    const void* source = nullptr;
    size_t sourceSize = 0;
    FUZZ_CHECK(zul_xin_getSource(memory.value, &kind, &source, &sourceSize) == zul_STATUS_OK);
    FUZZ_CHECK(sourceSize < size);
    int32_t conventions = 0;
    FUZZ_CHECK(zul_xin_getConventionCount(memory.value, &conventions) == zul_STATUS_OK);
    for (int32_t i = 0; i < conventions; ++i) {
        const char *key = nullptr, *value = nullptr;
        FUZZ_CHECK(zul_xin_getConvention(memory.value, i, &key, &value) == zul_STATUS_OK);
        FUZZ_CHECK(key[0] != 0);
    }
    // The rows: read into buffers of their declared size (within the budget), the same from the
    // file; their numbers ascend.
    int64_t rows = 0;
    int32_t width = 0;
    FUZZ_CHECK(zul_xin_getRowInfo(memory.value, &rows, &width) == zul_STATUS_OK);
    FUZZ_CHECK(rows == 0 || (width >= 1 && width <= (1 << 20)));
    if (rows > 0 && rows * (8 + int64_t{width}) <= kColumnBudget) {
        std::vector<uint64_t> indices(static_cast<size_t>(rows)), again(indices.size());
        std::vector<uint8_t> bytes(static_cast<size_t>(rows * width)), same(bytes.size());
        const zul_Status status =
            zul_xin_readRows(memory.value, indices.data(), bytes.data(), rows);
        FUZZ_CHECK(status == zul_STATUS_OK || status == zul_STATUS_CORRUPT_DATA);
        FUZZ_CHECK(zul_xin_readRows(file.value, again.data(), same.data(), rows) == status);
        if (status == zul_STATUS_OK) {
            FUZZ_CHECK(indices == again && bytes == same);
            for (size_t i = 1; i < indices.size(); ++i) FUZZ_CHECK(indices[i] > indices[i - 1]);
        }
        FUZZ_CHECK(zul_xin_readRows(memory.value, indices.data(), bytes.data(), rows - 1) ==
                   zul_STATUS_INVALID_ARGUMENT);
    }
}

}  // namespace

FUZZ_TARGET(checkCompanion)
