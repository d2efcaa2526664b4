#include "ros1_bag_records.h"

#include <bzlib.h>
#include <lz4frame.h>

#include <algorithm>
#include <cstring>

#include "ros_error.h"

namespace zul::ros {

namespace {

const char kMagic[] = "#ROSBAG V2.0\n";
const size_t kMagicSize = 13;
const uint32_t kMaxHeader = 16u << 20;         // a record header, connection definitions included
const uint64_t kMaxChunk = uint64_t(1) << 31;  // a chunk's records, uncompressed
const size_t kChunkTarget = 1u << 20;
const size_t kBagHeaderRecord = 4096;

uint64_t little(const uint8_t* p, int bytes) {
    uint64_t value = 0;
    for (int b = 0; b < bytes; ++b) value |= uint64_t(p[b]) << (8 * b);
    return value;
}

// Time as a sortable number: seconds, then nanoseconds.
uint64_t timeKey(uint64_t stored) { return (stored & 0xffffffffu) << 32 | stored >> 32; }
uint64_t storedTime(uint64_t key) { return (key >> 32) | (key & 0xffffffffu) << 32; }

}  // namespace

const std::string* BagFields::find(const std::string& name) const {
    for (const auto& [key, value] : fields)
        if (key == name) return &value;
    return nullptr;
}

std::string BagFields::text(const std::string& name) const {
    const std::string* value = find(name);
    return value ? *value : std::string();
}

void BagFields::set(const std::string& name, const std::string& value) {
    for (auto& field : fields)
        if (field.first == name) {
            field.second = value;
            return;
        }
    fields.emplace_back(name, value);
}

uint32_t BagFields::u32(const std::string& name) const {
    const std::string* value = find(name);
    if (!value || value->size() != 4) throw Error("a record lacks its 4-byte field '" + name + "'");
    return uint32_t(little(reinterpret_cast<const uint8_t*>(value->data()), 4));
}

uint64_t BagFields::u64(const std::string& name) const {
    const std::string* value = find(name);
    if (!value || value->size() != 8) throw Error("a record lacks its 8-byte field '" + name + "'");
    return little(reinterpret_cast<const uint8_t*>(value->data()), 8);
}

std::string littleBytes(uint64_t value, int bytes) {
    std::string out(size_t(bytes), '\0');
    for (int b = 0; b < bytes; ++b) out[size_t(b)] = char(value >> (8 * b));
    return out;
}

BagFields parseFields(const uint8_t* bytes, size_t size, const std::string& where) {
    BagFields fields;
    size_t pos = 0;
    while (pos < size) {
        if (size - pos < 4) throw Error(where + ": a header field is cut short");
        const uint32_t length = uint32_t(little(bytes + pos, 4));
        pos += 4;
        if (length > size - pos) throw Error(where + ": a header field runs past its header");
        const char* text = reinterpret_cast<const char*>(bytes + pos);
        const char* equals = static_cast<const char*>(std::memchr(text, '=', length));
        if (!equals) throw Error(where + ": a header field has no '='");
        fields.fields.emplace_back(std::string(text, equals),
                                   std::string(equals + 1, text + length));
        pos += length;
    }
    return fields;
}

BagReader::BagReader(const std::string& path) : path_(path), in_(path, std::ios::binary) {
    if (!in_) throw Error(path + ": cannot open");
    in_.seekg(0, std::ios::end);
    size_ = uint64_t(in_.tellg());
    in_.seekg(0);
    char magic[kMagicSize] = {};
    in_.read(magic, kMagicSize);
    if (!in_ || std::memcmp(magic, kMagic, kMagicSize) != 0)
        throw Error(path + ": not a ROS 1 bag of format 2.0 (no #ROSBAG V2.0 line)");
    offset_ = kMagicSize;
}

bool BagReader::nextTop(BagRecord& record) {
    if (offset_ == size_) return false;
    const std::string where = path_ + ": record at byte " + std::to_string(offset_);
    uint8_t word[4];
    auto read = [&](void* into, uint64_t n, const char* what) {
        if (n > size_ - uint64_t(in_.tellg()))
            throw Error(where + ": the bag ends inside its " + what);
        in_.read(static_cast<char*>(into), std::streamsize(n));
        if (!in_) throw Error(where + ": cannot read its " + what);
    };
    read(word, 4, "header length");
    const uint32_t headerSize = uint32_t(little(word, 4));
    if (headerSize > kMaxHeader)
        throw Error(where + ": a header of " + std::to_string(headerSize) + " bytes");
    std::vector<uint8_t> header(headerSize);
    read(header.data(), headerSize, "header");
    record.header = parseFields(header.data(), header.size(), where);
    const std::string* op = record.header.find("op");
    if (!op || op->size() != 1) throw Error(where + ": no op field");
    record.op = uint8_t((*op)[0]);
    read(word, 4, "data length");
    const uint32_t dataSize = uint32_t(little(word, 4));
    if (dataSize > size_ - uint64_t(in_.tellg()))
        throw Error(where + ": the bag ends inside its data");
    record.data.resize(dataSize);
    read(record.data.data(), dataSize, "data");
    offset_ = uint64_t(in_.tellg());
    return true;
}

void BagReader::openChunk(const BagRecord& chunk) {
    const std::string where = path_ + ": chunk at byte " + std::to_string(chunkAt_);
    const std::string compression = chunk.header.text("compression");
    const uint64_t size = chunk.header.u32("size");
    if (size > kMaxChunk) throw Error(where + ": claims " + std::to_string(size) + " bytes");
    if (compression == "none") {
        if (size != chunk.data.size()) throw Error(where + ": its size is not its data's");
        chunk_ = chunk.data;
    } else if (compression == "bz2") {
        chunk_.resize(size);
        unsigned int got = unsigned(size);
        const int status = BZ2_bzBuffToBuffDecompress(
            reinterpret_cast<char*>(chunk_.data()), &got,
            const_cast<char*>(reinterpret_cast<const char*>(chunk.data.data())),
            unsigned(chunk.data.size()), 0, 0);
        if (status != BZ_OK || got != size) throw Error(where + ": its bz2 data is damaged");
    } else if (compression == "lz4") {
        chunk_.resize(size);
        LZ4F_dctx* context = nullptr;
        if (LZ4F_isError(LZ4F_createDecompressionContext(&context, LZ4F_VERSION)))
            throw Error(where + ": cannot start an lz4 decoder");
        size_t out = size, in = chunk.data.size();
        const size_t left =
            LZ4F_decompress(context, chunk_.data(), &out, chunk.data.data(), &in, nullptr);
        LZ4F_freeDecompressionContext(context);
        if (LZ4F_isError(left) || left != 0 || out != size || in != chunk.data.size())
            throw Error(where + ": its lz4 data is damaged");
    } else {
        throw Error(where + ": compression '" + compression +
                    "' is not read (none, bz2 and lz4 are)");
    }
    chunkPos_ = 0;
}

bool BagReader::next(BagRecord& record) {
    for (;;) {
        if (chunkPos_ < chunk_.size()) {
            const std::string where = path_ + ": chunk at byte " + std::to_string(chunkAt_) +
                                      ", record at chunk byte " + std::to_string(chunkPos_);
            auto need = [&](uint64_t n) {
                if (n > chunk_.size() - chunkPos_) throw Error(where + ": runs past its chunk");
            };
            need(4);
            const uint32_t headerSize = uint32_t(little(&chunk_[chunkPos_], 4));
            chunkPos_ += 4;
            need(headerSize);
            record.header = parseFields(&chunk_[chunkPos_], headerSize, where);
            chunkPos_ += headerSize;
            need(4);
            const uint32_t dataSize = uint32_t(little(&chunk_[chunkPos_], 4));
            chunkPos_ += 4;
            need(dataSize);
            record.data.assign(chunk_.begin() + long(chunkPos_),
                               chunk_.begin() + long(chunkPos_ + dataSize));
            chunkPos_ += dataSize;
            const std::string* op = record.header.find("op");
            if (!op || op->size() != 1) throw Error(where + ": no op field");
            record.op = uint8_t((*op)[0]);
            if (record.op == kOpMessage || record.op == kOpConnection) return true;
            continue;
        }
        chunk_.clear();
        chunkPos_ = 0;
        chunkAt_ = offset_;
        BagRecord top;
        if (!nextTop(top)) return false;
        if (top.op == kOpChunk) {
            openChunk(top);
        } else if (top.op == kOpMessage) {
            record = std::move(top);
            return true;
        }
        // Bag header, index data, the connections repeated at the end, chunk infos: the writer
        // makes its own.
    }
}

BagWriter::BagWriter(const std::string& path)
    : path_(path), out_(path, std::ios::binary | std::ios::trunc) {
    if (!out_) throw Error(path + ": cannot create");
    out_.write(kMagic, kMagicSize);
    out_.write(std::string(kBagHeaderRecord, ' ').data(), kBagHeaderRecord);  // written at close
}

void BagWriter::record(std::string& out, const BagFields& header, const uint8_t* data,
                       size_t size) {
    std::string fields;
    for (const auto& [name, value] : header.fields) {
        fields += littleBytes(name.size() + 1 + value.size(), 4);
        fields += name + "=" + value;
    }
    out += littleBytes(fields.size(), 4) + fields + littleBytes(size, 4);
    out.append(reinterpret_cast<const char*>(data), size);
}

void BagWriter::connection(uint32_t id, const std::string& topic, const BagFields& header) {
    connections_[id] = {topic, header};
}

void BagWriter::message(uint32_t connection, uint64_t time, const uint8_t* data, size_t size) {
    if (std::find(announced_.begin(), announced_.end(), connection) == announced_.end()) {
        const auto& [topic, header] = connections_.at(connection);
        std::string definition;
        for (const auto& [name, value] : header.fields)
            definition += littleBytes(name.size() + 1 + value.size(), 4) + name + "=" + value;
        BagFields fields;
        fields.set("op", std::string(1, char(kOpConnection)));
        fields.set("conn", littleBytes(connection, 4));
        fields.set("topic", topic);
        record(chunk_, fields, reinterpret_cast<const uint8_t*>(definition.data()),
               definition.size());
        announced_.push_back(connection);
    }
    index_[connection].emplace_back(time, uint32_t(chunk_.size()));
    BagFields fields;
    fields.set("op", std::string(1, char(kOpMessage)));
    fields.set("conn", littleBytes(connection, 4));
    fields.set("time", littleBytes(time, 8));
    record(chunk_, fields, data, size);
    start_ = std::min(start_, timeKey(time));
    end_ = std::max(end_, timeKey(time));
    if (chunk_.size() >= kChunkTarget) flushChunk();
}

void BagWriter::flushChunk() {
    if (chunk_.empty()) return;
    ChunkInfo info{uint64_t(out_.tellp()), start_, end_, {}};
    std::string bytes;
    BagFields fields;
    fields.set("op", std::string(1, char(kOpChunk)));
    fields.set("compression", "none");
    fields.set("size", littleBytes(chunk_.size(), 4));
    record(bytes, fields, reinterpret_cast<const uint8_t*>(chunk_.data()), chunk_.size());
    for (const auto& [connection, entries] : index_) {
        std::string data;
        for (const auto& [time, offset] : entries)
            data += littleBytes(time, 8) + littleBytes(offset, 4);
        BagFields index;
        index.set("op", std::string(1, char(kOpIndex)));
        index.set("ver", littleBytes(1, 4));
        index.set("conn", littleBytes(connection, 4));
        index.set("count", littleBytes(entries.size(), 4));
        record(bytes, index, reinterpret_cast<const uint8_t*>(data.data()), data.size());
        info.counts[connection] = uint32_t(entries.size());
    }
    out_.write(bytes.data(), std::streamsize(bytes.size()));
    chunks_.push_back(info);
    chunk_.clear();
    index_.clear();
    start_ = UINT64_MAX;
    end_ = 0;
}

void BagWriter::close() {
    flushChunk();
    const uint64_t indexPosition = uint64_t(out_.tellp());
    std::string bytes;
    for (const auto& [id, connection] : connections_) {
        std::string definition;
        for (const auto& [name, value] : connection.second.fields)
            definition += littleBytes(name.size() + 1 + value.size(), 4) + name + "=" + value;
        BagFields fields;
        fields.set("op", std::string(1, char(kOpConnection)));
        fields.set("conn", littleBytes(id, 4));
        fields.set("topic", connection.first);
        record(bytes, fields, reinterpret_cast<const uint8_t*>(definition.data()),
               definition.size());
    }
    for (const ChunkInfo& chunk : chunks_) {
        std::string data;
        for (const auto& [connection, count] : chunk.counts)
            data += littleBytes(connection, 4) + littleBytes(count, 4);
        BagFields fields;
        fields.set("op", std::string(1, char(kOpChunkInfo)));
        fields.set("ver", littleBytes(1, 4));
        fields.set("chunk_pos", littleBytes(chunk.position, 8));
        fields.set("start_time", littleBytes(storedTime(chunk.start), 8));
        fields.set("end_time", littleBytes(storedTime(chunk.end), 8));
        fields.set("count", littleBytes(chunk.counts.size(), 4));
        record(bytes, fields, reinterpret_cast<const uint8_t*>(data.data()), data.size());
    }
    out_.write(bytes.data(), std::streamsize(bytes.size()));
    // The bag header, padded to its fixed size.
    BagFields header;
    header.set("op", std::string(1, char(kOpBagHeader)));
    header.set("index_pos", littleBytes(indexPosition, 8));
    header.set("conn_count", littleBytes(connections_.size(), 4));
    header.set("chunk_count", littleBytes(chunks_.size(), 4));
    std::string head;
    record(head, header, nullptr, 0);
    const size_t padding = kBagHeaderRecord - head.size();
    head.clear();
    const std::string spaces(padding, ' ');
    record(head, header, reinterpret_cast<const uint8_t*>(spaces.data()), spaces.size());
    out_.seekp(kMagicSize);
    out_.write(head.data(), std::streamsize(head.size()));
    out_.close();
    if (!out_) throw Error(path_ + ": cannot write");
}

}  // namespace zul::ros
