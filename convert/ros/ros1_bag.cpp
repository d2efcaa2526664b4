#include "ros1_bag.h"

#include <openssl/evp.h>

#include <filesystem>
#include <map>

#include "ros1_bag_records.h"

namespace zul::ros {

namespace {

const char* kHeaderDefinition =
    "================================================================================\n"
    "MSG: std_msgs/Header\n"
    "uint32 seq\ntime stamp\nstring frame_id\n\n"
    "================================================================================\n"
    "MSG: sensor_msgs/PointField\n"
    "uint8 INT8    = 1\nuint8 UINT8   = 2\nuint8 INT16   = 3\nuint8 UINT16  = 4\n"
    "uint8 INT32   = 5\nuint8 UINT32  = 6\nuint8 FLOAT32 = 7\nuint8 FLOAT64 = 8\n\n"
    "string name\nuint32 offset\nuint8  datatype\nuint32 count\n";

const char* kCloudFields =
    "std_msgs/Header header\nuint32 height\nuint32 width\nsensor_msgs/PointField[] fields\n"
    "bool is_bigendian\nuint32 point_step\nuint32 row_step\n";

std::string md5(const std::string& text) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    EVP_Digest(text.data(), text.size(), digest, &size, EVP_md5(), nullptr);
    static const char* hex = "0123456789abcdef";
    std::string out;
    for (unsigned int i = 0; i < size; ++i)
        out += std::string{hex[digest[i] >> 4], hex[digest[i] & 15]};
    return out;
}

// ROS's MD5 sum of a message: of its constants and fields, nested types by their own sums.
std::string headerMd5() { return md5("uint32 seq\ntime stamp\nstring frame_id"); }
std::string pointFieldMd5() {
    return md5(
        "uint8 INT8=1\nuint8 UINT8=2\nuint8 INT16=3\nuint8 UINT16=4\nuint8 INT32=5\n"
        "uint8 UINT32=6\nuint8 FLOAT32=7\nuint8 FLOAT64=8\nstring name\nuint32 offset\n"
        "uint8 datatype\nuint32 count");
}
std::string cloudMd5(const char* tail) {
    return md5(headerMd5() + " header\nuint32 height\nuint32 width\n" + pointFieldMd5() +
               " fields\nbool is_bigendian\nuint32 point_step\nuint32 row_step\n" + tail);
}

std::string compressedDefinition() {
    return std::string(kCloudFields) + "uint8[] compressed_data\nbool is_dense\nstring format\n\n" +
           kHeaderDefinition;
}

std::string cloudDefinition() {
    return std::string(kCloudFields) + "uint8[] data\nbool is_dense\n\n" + kHeaderDefinition;
}

using Convert = std::function<std::vector<uint8_t>(const uint8_t*, size_t)>;

// The connection header a converted connection gets.
BagFields convertedHeader(const BagFields& from, bool compress) {
    BagFields to = from;
    const std::string topic = from.text("topic");
    if (compress) {
        to.set("topic", topic + "/zul");
        to.set("type", kRos1CompressedType);
        to.set("md5sum", cloudMd5("uint8[] compressed_data\nbool is_dense\nstring format"));
        to.set("message_definition", compressedDefinition());
        to.set("zul_type", from.text("type"));
        to.set("zul_md5sum", from.text("md5sum"));
        to.set("zul_message_definition", from.text("message_definition"));
        return to;
    }
    const bool suffixed = topic.size() > 4 && topic.compare(topic.size() - 4, 4, "/zul") == 0;
    to.set("topic", suffixed ? topic.substr(0, topic.size() - 4) : topic + "/restored");
    const std::string* type = from.find("zul_type");
    to.set("type", type ? *type : kRos1PointCloud2Type);
    to.set("md5sum", type ? from.text("zul_md5sum") : cloudMd5("uint8[] data\nbool is_dense"));
    to.set("message_definition", type ? from.text("zul_message_definition") : cloudDefinition());
    BagFields clean;
    for (const auto& field : to.fields)
        if (field.first.rfind("zul_", 0) != 0) clean.fields.push_back(field);
    return clean;
}

BagResult convertRos1(const std::string& in, const std::string& out, const std::string& fromType,
                      bool compress, const Convert& convert, const BagProgress& progress) {
    BagReader reader(in);
    BagWriter writer(out);
    BagResult result;
    struct Connection {
        BagFields header;
        bool converts = false;
        uint32_t same = UINT32_MAX, converted = UINT32_MAX;  // output connection ids
    };
    std::map<uint32_t, Connection> connections;
    uint32_t next = 0;
    std::map<uint32_t, uint64_t> counts;
    BagRecord record;
    for (;;) {
        try {
            if (!reader.next(record)) break;
        } catch (const Error& damage) {
            result.problems.push_back(std::string(damage.what()) +
                                      "; the messages before it are kept");
            break;
        }
        const uint32_t id = record.header.u32("conn");
        if (record.op == kOpConnection) {
            if (connections.count(id)) continue;
            Connection& c = connections[id];
            c.header = parseFields(record.data.data(), record.data.size(),
                                   in + ": connection " + std::to_string(id));
            c.converts = c.header.text("type") == fromType;
            c.same = next++;
            writer.connection(c.same, c.header.text("topic"), c.header);
            if (c.converts) {
                c.converted = next++;
                const BagFields header = convertedHeader(c.header, compress);
                writer.connection(c.converted, header.text("topic"), header);
            }
            continue;
        }
        const auto found = connections.find(id);
        if (found == connections.end())
            throw Error(in + ": a message of connection " + std::to_string(id) +
                        " comes before the connection");
        Connection& c = found->second;
        const uint64_t time = record.header.u64("time");
        const uint64_t number = counts[id]++;
        std::vector<uint8_t> converted;
        if (c.converts) {
            try {
                converted = convert(record.data.data(), record.data.size());
            } catch (const Error& e) {
                result.problems.push_back("topic " + c.header.text("topic") + ", message " +
                                          std::to_string(number) + " at " +
                                          std::to_string(time & 0xffffffffu) + "." +
                                          std::to_string(time >> 32) + " s: " + e.what());
            }
        }
        if (!converted.empty()) {
            writer.message(c.converted, time, converted.data(), converted.size());
            ++result.converted;
        } else {
            writer.message(c.same, time, record.data.data(), record.data.size());
        }
        if (progress && !progress(reader.position(), reader.size())) {
            result.interrupted = true;
            return result;
        }
    }
    writer.close();
    return result;
}

BagResult convertFile(const std::string& in, const std::string& out, const std::string& fromType,
                      bool compress, const Convert& convert, const BagProgress& progress) {
    return wholeOrNothing(out, [&] {
        if (std::filesystem::exists(out) && std::filesystem::equivalent(in, out))
            throw Error(out + ": is the bag being converted");
        return convertRos1(in, out, fromType, compress, convert, progress);
    });
}

}  // namespace

std::vector<BagTopic> listRos1Bag(const std::string& path) {
    BagReader reader(path);
    std::map<uint32_t, BagTopic> topics;
    BagRecord record;
    while (reader.next(record)) {
        const uint32_t id = record.header.u32("conn");
        if (record.op == kOpConnection) {
            if (topics.count(id)) continue;
            const BagFields header = parseFields(record.data.data(), record.data.size(), path);
            topics[id] = BagTopic{header.text("topic"), header.text("type"), 0, 0};
            continue;
        }
        BagTopic& topic = topics[id];
        ++topic.messages;
        topic.bytes += record.data.size();
    }
    std::vector<BagTopic> list;
    for (const auto& [id, topic] : topics) list.push_back(topic);
    return list;
}

BagResult compressRos1Bag(const std::string& in, const std::string& out,
                          const EncodeOptions& options, const BagProgress& progress) {
    return convertFile(
        in, out, kRos1PointCloud2Type, true,
        [&](const uint8_t* bytes, size_t size) {
            return compressMessage(bytes, size, Serialization::Ros1, options);
        },
        progress);
}

BagResult decompressRos1Bag(const std::string& in, const std::string& out,
                            const DecodeOptions& options, const BagProgress& progress) {
    return convertFile(
        in, out, kRos1CompressedType, false,
        [&](const uint8_t* bytes, size_t size) {
            return decompressMessage(bytes, size, Serialization::Ros1, options);
        },
        progress);
}

}  // namespace zul::ros
