#include "formats/record_writer.h"

#include <lzf.h>

#include <cstring>
#include <sstream>
#include <vector>

#include "formats/byte_input.h"
#include "formats/typed_values.h"

namespace zulformats {

void writeRecordData(ByteOutput& out, const std::string& path, Format format,
                     const RecordLayout& layout, const unsigned char* records, uint64_t count) {
    const size_t width = layout.size;
    const std::string& encoding = layout.encoding;
    if (encoding == "ascii") {
        std::string line;
        for (uint64_t i = 0; i < count; ++i) {
            line.clear();
            const unsigned char* r = records + i * width;
            for (const RecordField& f : layout.fields) {
                for (int k = 0; k < f.count; ++k) {
                    if (!line.empty()) line += ' ';
                    appendTypedValue(line, f.kind, f.size, r + f.offset + f.size * k);
                }
            }
            line += '\n';
            out.text(line);
        }
    } else if (encoding == "binary" || encoding == "binary_little_endian") {
        if (count > 0) out.write(records, count * width);
    } else if (encoding == "binary_big_endian" && format == Format::Ply) {
        std::vector<unsigned char> record(width);
        for (uint64_t i = 0; i < count; ++i) {
            std::memcpy(record.data(), records + i * width, width);
            for (const RecordField& f : layout.fields)
                reverseBytes(record.data() + f.offset, f.size);
            out.write(record.data(), width);
        }
    } else if (encoding == "binary_compressed" && format == Format::Pcd) {
        if (count * width > 0xFFFFFFFFu)
            throw FormatError(path + ": too many points for one PCD compressed block");
        std::vector<unsigned char> block(count * width);
        unsigned char* at = block.data();
        for (const RecordField& f : layout.fields) {
            const size_t w = static_cast<size_t>(f.size) * f.count;
            for (uint64_t i = 0; i < count; ++i, at += w)
                std::memcpy(at, records + i * width + f.offset, w);
        }
        std::vector<unsigned char> packed(block.size() + block.size() / 16 + 64);
        const unsigned int size =
            block.empty() ? 0
                          : lzf_compress(block.data(), static_cast<unsigned>(block.size()),
                                         packed.data(), static_cast<unsigned>(packed.size()));
        if (!block.empty() && size == 0) throw FormatError(path + ": LZF compression failed");
        out.little<uint32_t>(size);
        out.little<uint32_t>(static_cast<uint32_t>(block.size()));
        out.write(packed.data(), size);
    } else {
        throw FormatError(path + ": the encoding \"" + printable(encoding) + "\" is not one of " +
                          (format == Format::Pcd ? "PCD" : "PLY"));
    }
}

std::string rewriteHeader(const std::string& header, Format format, int64_t count,
                          const std::string& encoding) {
    std::istringstream in(header);
    std::string line, out;
    const std::string n = std::to_string(count);
    while (std::getline(in, line)) {
        const bool cr = !line.empty() && line.back() == '\r';
        if (cr) line.pop_back();
        std::istringstream words(line);
        std::string first, second;
        words >> first >> second;
        const bool recount = count >= 0;
        if (recount && format == Format::Pcd && (first == "WIDTH" || first == "POINTS")) {
            line = first + " " + n;
        } else if (recount && format == Format::Pcd && first == "HEIGHT") {
            line = "HEIGHT 1";
        } else if (recount && format == Format::Ply && first == "element" && second == "vertex") {
            line = "element vertex " + n;
        } else if (!encoding.empty() && format == Format::Pcd && first == "DATA") {
            line = "DATA " + encoding;
        } else if (!encoding.empty() && format == Format::Ply && first == "format") {
            std::string version;
            words >> version;
            line = "format " + encoding + " " + version;
        }
        out += line + (cr ? "\r\n" : "\n");
    }
    if (!header.empty() && header.back() != '\n') out.pop_back();
    return out;
}

}  // namespace zulformats
