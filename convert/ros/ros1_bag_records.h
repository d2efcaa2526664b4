// The records of a ROS 1 bag (format 2.0): header fields, reading a bag's records and its chunks'
// records in file order, and writing a bag with chunks, index data, connections and chunk infos.
#pragma once

#include <cstdint>
#include <fstream>
#include <map>
#include <string>
#include <vector>

namespace zul::ros {

// A record header or a connection header: name=value fields, in their order.
struct BagFields {
    std::vector<std::pair<std::string, std::string>> fields;
    const std::string* find(const std::string& name) const;
    std::string text(const std::string& name) const;  // "" if absent
    void set(const std::string& name, const std::string& value);
    uint32_t u32(const std::string& name) const;  // throws Error if absent or not 4 bytes
    uint64_t u64(const std::string& name) const;
};

BagFields parseFields(const uint8_t* bytes, size_t size, const std::string& where);
std::string littleBytes(uint64_t value, int bytes);

enum BagOp : uint8_t {
    kOpMessage = 2,
    kOpBagHeader = 3,
    kOpIndex = 4,
    kOpChunk = 5,
    kOpChunkInfo = 6,
    kOpConnection = 7
};

struct BagRecord {
    uint8_t op = 0;
    BagFields header;
    std::vector<uint8_t> data;
};

// Reads the records of a bag in file order; the records of each chunk come as if they stood at
// the top level. Throws Error naming the file and the byte of a damage.
class BagReader {
public:
    explicit BagReader(const std::string& path);
    // The next connection or message record; false at the end of the file.
    bool next(BagRecord& record);
    uint64_t position() const { return offset_; }
    uint64_t size() const { return size_; }

private:
    bool nextTop(BagRecord& record);
    void openChunk(const BagRecord& chunk);

    std::string path_;
    std::ifstream in_;
    uint64_t size_ = 0, offset_ = 0;
    std::vector<uint8_t> chunk_;
    size_t chunkPos_ = 0;
    uint64_t chunkAt_ = 0;
};

// Writes a bag: connections are announced before their first message, messages gathered into
// uncompressed chunks of about 1 MiB, then the index. close() finishes the file.
class BagWriter {
public:
    explicit BagWriter(const std::string& path);
    void connection(uint32_t id, const std::string& topic, const BagFields& header);
    void message(uint32_t connection, uint64_t time, const uint8_t* data, size_t size);
    void close();

private:
    void record(std::string& out, const BagFields& header, const uint8_t* data, size_t size);
    void flushChunk();

    std::string path_;
    std::ofstream out_;
    std::string chunk_;
    std::map<uint32_t, std::vector<std::pair<uint64_t, uint32_t>>> index_;  // time, offset
    std::map<uint32_t, std::pair<std::string, BagFields>> connections_;
    std::vector<uint32_t> announced_;
    struct ChunkInfo {
        uint64_t position, start, end;
        std::map<uint32_t, uint32_t> counts;
    };
    std::vector<ChunkInfo> chunks_;
    uint64_t start_ = UINT64_MAX, end_ = 0;
};

}  // namespace zul::ros
