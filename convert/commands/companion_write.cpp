#include "commands/companion_write.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <unordered_map>

#include "commands/chunk_batches.h"
#include "commands/chunk_walk.h"
#include "commands/companion_las.h"
#include "formats/byte_input.h"
#include "zul_companion.h"

namespace zulconvert {

using namespace zulformats;

std::string companionPath(const std::string& streamPath) {
    const std::filesystem::path path(streamPath);
    std::string ext = path.extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    if (ext == ".zul") return streamPath + "x";
    return streamPath + ".zulx";
}

std::unique_ptr<OutputFile> openCompanionOutput(const CompressOptions& options, bool active) {
    const std::string path = companionPath(options.output);
    if (active) return std::make_unique<OutputFile>(path, options.force);
    if (std::filesystem::exists(path)) {
        if (!options.force) throw FormatError(existingOutputMessage(path));
        std::filesystem::remove(path);
    }
    return nullptr;
}

namespace {

// The input file, mapped for reading its records by number.
class MappedFile {
public:
    explicit MappedFile(const std::string& path) {
        const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        struct stat st = {};
        if (fd < 0 || ::fstat(fd, &st) != 0) {
            if (fd >= 0) ::close(fd);
            throw FormatError(path + ": cannot be read again for its fields (" +
                              std::strerror(errno) + ")");
        }
        size_ = static_cast<size_t>(st.st_size);
        if (size_ > 0) {
            void* at = ::mmap(nullptr, size_, PROT_READ, MAP_PRIVATE, fd, 0);
            if (at == MAP_FAILED) {
                ::close(fd);
                throw FormatError(path + ": cannot be read again for its fields (" +
                                  std::strerror(errno) + ")");
            }
            bytes_ = static_cast<const unsigned char*>(at);
        }
        ::close(fd);
    }
    ~MappedFile() {
        if (bytes_) ::munmap(const_cast<unsigned char*>(bytes_), size_);
    }
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;
    const unsigned char* bytes() const { return bytes_; }
    size_t size() const { return size_; }

private:
    const unsigned char* bytes_ = nullptr;
    size_t size_ = 0;
};

// Input points by grid point: each stored point takes the first input point of its grid point
// not yet taken (points on one grid point are interchangeable: each keeps its own fields).
class PointMatcher {
public:
    PointMatcher(const std::vector<int64_t>& keys, const std::vector<uint8_t>& kept) : keys_(keys) {
        for (size_t i = 0; i < kept.size(); ++i) {
            if (kept[i]) sorted_.push_back(i);
        }
        std::sort(sorted_.begin(), sorted_.end(), [&](uint64_t a, uint64_t b) {
            return std::lexicographical_compare(&keys_[3 * a], &keys_[3 * a + 3], &keys_[3 * b],
                                                &keys_[3 * b + 3]) ||
                   (std::equal(&keys_[3 * a], &keys_[3 * a + 3], &keys_[3 * b]) && a < b);
        });
    }

    // The input point at grid point `g` (or, failing that, at a neighbouring one: a position
    // halfway between two grid points may round either way); -1 when none is left.
    int64_t take(const int64_t g[3]) {
        int64_t found = takeAt(g);
        for (int d = 0; found < 0 && d < 27; ++d) {
            const int64_t n[3] = {g[0] + d % 3 - 1, g[1] + (d / 3) % 3 - 1, g[2] + d / 9 - 1};
            found = takeAt(n);
        }
        return found;
    }

private:
    int64_t takeAt(const int64_t g[3]) {
        const auto less = [&](uint64_t a, const int64_t* key) {
            return std::lexicographical_compare(&keys_[3 * a], &keys_[3 * a + 3], key, key + 3);
        };
        const size_t start = static_cast<size_t>(
            std::lower_bound(sorted_.begin(), sorted_.end(), g, less) - sorted_.begin());
        if (start == sorted_.size() || !std::equal(g, g + 3, &keys_[3 * sorted_[start]])) return -1;
        size_t& next = taken_.try_emplace(start, start).first->second;
        if (next == sorted_.size() || !std::equal(g, g + 3, &keys_[3 * sorted_[next]])) return -1;
        return static_cast<int64_t>(sorted_[next++]);
    }

    const std::vector<int64_t>& keys_;
    std::vector<uint64_t> sorted_;
    std::unordered_map<size_t, size_t> taken_;  // first point of a grid point -> next untaken
};

void check(zul_Status status, const std::string& companion) {
    if (status != zul_STATUS_OK) {
        throw FormatError(companion + ": the companion cannot be written (" +
                          zul_x_statusText(status) + ")");
    }
}

}  // namespace

CompanionRecorder::CompanionRecorder(const CompressOptions& options, Format format)
    : options_(options), format_(format) {
    // A LAS file's records are read again once the stream is written: an input that cannot be
    // read twice (a pipe) gets no fields.
    lasFields_ = format == Format::Las && std::filesystem::is_regular_file(options.input);
    active_ = options.companion == "always" || (options.companion != "never" && lasFields_);
    if (options.output == "-") active_ = false;  // standard output has no file beside it
    keepOrder_ = options.keepOrder;
}

CompanionRecorder::~CompanionRecorder() = default;

void CompanionRecorder::add(const zul_Point& prepared, bool kept) {
    if (!active_ || !lasFields_) return;
    for (int axis = 0; axis < 3; ++axis) {
        keys_.push_back(kept ? std::llround(prepared.position[axis]) : 0);
    }
    kept_.push_back(kept ? 1 : 0);
}

std::string CompanionRecorder::finish(const std::string& streamPath,
                                      const std::string& companionPath, int threads) {
    if (lasFields_) return writeLas(streamPath, companionPath, threads);
    // Any other input: the binding alone, for its checksums and chunk index.
    const std::string shown = zulconvert::companionPath(options_.output);
    zul_xout_Writer writer = nullptr;
    check(zul_xout_open(&writer, companionPath.c_str()), shown);
    zul_Status status = zul_xout_setFormat(writer, formatName(format_));
    if (status == zul_STATUS_OK) status = zul_xout_bindStreamFile(writer, streamPath.c_str());
    if (status == zul_STATUS_OK) status = zul_xout_finish(writer, nullptr, nullptr);
    zul_xout_close(&writer);
    check(status, shown);
    return "the chunk checksums and index";
}

std::string CompanionRecorder::writeLas(const std::string& streamPath,
                                        const std::string& companionPath, int threads) {
    const std::string shown = zulconvert::companionPath(options_.output);
    const MappedFile input(options_.input);
    LasHead las;
    std::string problem;
    if (!parseLasHead(input.bytes(), input.size(), las, problem)) {
        throw FormatError(options_.input + ": " + problem);
    }
    const uint64_t dataEnd = las.dataOffset + las.count * las.recordLength;
    if (dataEnd > input.size() || las.count != kept_.size()) {
        throw FormatError(options_.input + ": changed while it was compressed");
    }
    const int64_t dropped =
        static_cast<int64_t>(std::count(kept_.begin(), kept_.end(), uint8_t{0}));
    if (dropped > 0) {
        throw FormatError(options_.input + ": " + std::to_string(dropped) +
                          " points were left out of the stream, so their records cannot come "
                          "back; compress with --no-companion");
    }
    const unsigned char* records = input.bytes() + las.dataOffset;

    // Pass 1: every stored point's input point, and what the stream gives of its values.
    IndexGuard index;
    ZulFileHead head;
    const zul_Status opened =
        openIndex(streamPath, false, zulbase::kMaxChunkBudgetMiB, 0, index, head);
    if (opened != zul_STATUS_OK) check(opened, shown);
    int64_t numChunks = 0;
    zul_idx_getCounts(index.index, &numChunks, nullptr);
    std::vector<int64_t> chunkList(static_cast<size_t>(numChunks));
    for (int64_t c = 0; c < numChunks; ++c) chunkList[static_cast<size_t>(c)] = c;
    std::vector<int64_t> chunkStart(1, 0);
    std::vector<uint64_t> inputOf;
    std::vector<int32_t> xyzResidual;
    std::vector<uint16_t> intensityResidual;
    std::vector<uint8_t> color8;
    bool anyResidual[4] = {};
    PointMatcher matcher(keys_, kept_);
    ChunkBatches batches(streamPath, index.index, false, chunkList, threads);
    const zul_Header2& header = head.header;
    while (batches.next()) {
        const zul_bulk_Points& points = batches.points();
        for (int64_t i = 0; i < points.numPoints; ++i) {
            const double* g = points.positions + 3 * i;
            const int64_t key[3] = {std::llround(g[0]), std::llround(g[1]), std::llround(g[2])};
            const int64_t found = matcher.take(key);
            if (found < 0) {
                throw FormatError(shown + ": a stored point matches no point of " + options_.input +
                                  "; compress with --no-companion");
            }
            inputOf.push_back(static_cast<uint64_t>(found));
            const unsigned char* r = records + static_cast<uint64_t>(found) * las.recordLength;
            double q[3];
            residualWorld(g, header.transformation, header.enabled, q);
            for (int axis = 0; axis < 3; ++axis) {
                const int32_t back = lasCoordinate(q[axis], las.scale[axis], las.offset[axis]);
                const int32_t residual =
                    static_cast<int32_t>(static_cast<uint32_t>(loadLittle<int32_t>(r + 4 * axis)) -
                                         static_cast<uint32_t>(back));
                xyzResidual.push_back(residual);
                anyResidual[axis] = anyResidual[axis] || residual != 0;
            }
            const int32_t stored = points.reflections ? points.reflections[i] : 0;
            const uint16_t ir =
                static_cast<uint16_t>(loadLittle<uint16_t>(r + 12) - static_cast<uint16_t>(stored));
            intensityResidual.push_back(ir);
            anyResidual[3] = anyResidual[3] || ir != 0;
            for (int c = 0; c < 3; ++c)
                color8.push_back(points.colors ? points.colors[3 * i + c] : 0);
        }
        for (size_t c = 0; c < batches.deliveredChunks(); ++c) {
            zul_idx_Chunk chunk = {};
            zul_idx_getChunk(index.index, batches.batchChunks()[c], &chunk);
            chunkStart.push_back(chunkStart.back() + chunk.numPoints);
        }
    }
    if (batches.status() != zul_STATUS_OK) check(batches.status(), shown);

    // The colour scale that gives the most values back as they were.
    const int64_t scales[3] = {256, 257, 1};
    int64_t scale = 256;
    bool lowBytes = false;
    if (las.colorOffset > 0) {
        int64_t best = -1;
        for (const int64_t s : scales) {
            int64_t same = 0;
            for (size_t p = 0; p < inputOf.size(); ++p) {
                const unsigned char* r = records + inputOf[p] * las.recordLength + las.colorOffset;
                for (int c = 0; c < 3; ++c) {
                    same += loadLittle<uint16_t>(r + 2 * c) ==
                            static_cast<uint16_t>(color8[3 * p + c] * s);
                }
            }
            if (same > best) best = same, scale = s;
        }
        lowBytes = best < static_cast<int64_t>(3 * inputOf.size());
    }

    // Pass 2: the companion.
    zul_xout_Writer writer = nullptr;
    check(zul_xout_open(&writer, companionPath.c_str()), shown);
    struct Closer {
        zul_xout_Writer& w;
        ~Closer() { zul_xout_close(&w); }
    } closer{writer};
    const std::vector<LasColumn> columns = lasColumns(las.pointFormat, las.recordLength);
    for (const LasColumn& column : columns) {
        check(zul_xout_addField(writer, column.name, column.type, column.width, nullptr), shown);
    }
    int32_t residualField[7] = {-1, -1, -1, -1, -1, -1, -1};
    for (int k = 0; k < 7; ++k) {
        const bool wanted = k < 4 ? anyResidual[k] : lowBytes;
        if (!wanted) continue;
        check(zul_xout_addField(writer, kLasResidualNames[k], k < 3 ? zul_FIELD_I32 : zul_FIELD_U16,
                                0, &residualField[k]),
              shown);
    }
    if (keepOrder_) check(zul_xout_keepOrder(writer), shown);
    std::vector<unsigned char> source(input.bytes(), input.bytes() + las.dataOffset);
    source.insert(source.end(), input.bytes() + dataEnd, input.bytes() + input.size());
    check(zul_xout_setSource(writer, zul_SOURCE_LAS, source.data(), source.size()), shown);
    const std::string formatText =
        "las 1." + std::to_string(las.minor) + " format " + std::to_string(las.pointFormat);
    check(zul_xout_setFormat(writer, formatText.c_str()), shown);
    if (las.colorOffset > 0) {
        check(zul_xout_addConvention(writer, "colour scale", std::to_string(scale).c_str()), shown);
    }
    const std::string ownName = std::filesystem::path(options_.input).filename().string();
    zul_xout_addConvention(writer, "name", ownName.c_str());  // a name it refuses is left out
    check(zul_xout_bindStreamFile(writer, streamPath.c_str()), shown);
    std::vector<unsigned char> values;
    for (int64_t c = 0; c + 1 < static_cast<int64_t>(chunkStart.size()); ++c) {
        const size_t begin = static_cast<size_t>(chunkStart[c]);
        const size_t n = static_cast<size_t>(chunkStart[c + 1]) - begin;
        int32_t field = 0;
        for (const LasColumn& column : columns) {
            values.resize(n * static_cast<size_t>(column.width));
            for (size_t k = 0; k < n; ++k) {
                std::memcpy(values.data() + k * column.width,
                            records + inputOf[begin + k] * las.recordLength + column.offset,
                            static_cast<size_t>(column.width));
            }
            check(zul_xout_writeColumn(writer, c, field++, values.data(), static_cast<int64_t>(n)),
                  shown);
        }
        for (int k = 0; k < 7; ++k) {
            if (residualField[k] < 0) continue;
            if (k < 3) {
                std::vector<int32_t> v(n);
                for (size_t p = 0; p < n; ++p) v[p] = xyzResidual[3 * (begin + p) + k];
                check(zul_xout_writeColumn(writer, c, residualField[k], v.data(),
                                           static_cast<int64_t>(n)),
                      shown);
            } else if (k == 3) {
                check(
                    zul_xout_writeColumn(writer, c, residualField[k],
                                         intensityResidual.data() + begin, static_cast<int64_t>(n)),
                    shown);
            } else {
                std::vector<uint16_t> v(n);
                for (size_t p = 0; p < n; ++p) {
                    const unsigned char* r =
                        records + inputOf[begin + p] * las.recordLength + las.colorOffset;
                    v[p] = static_cast<uint16_t>(
                        loadLittle<uint16_t>(r + 2 * (k - 4)) -
                        static_cast<uint16_t>(color8[3 * (begin + p) + (k - 4)] * scale));
                }
                check(zul_xout_writeColumn(writer, c, residualField[k], v.data(),
                                           static_cast<int64_t>(n)),
                      shown);
            }
        }
        if (keepOrder_) {
            check(zul_xout_writeOrder(writer, c, inputOf.data() + begin, static_cast<int64_t>(n)),
                  shown);
        }
    }
    check(zul_xout_finish(writer, nullptr, nullptr), shown);
    int fields = static_cast<int>(columns.size());
    for (const int32_t f : residualField) fields += f >= 0;
    return std::to_string(fields) + " fields of every point" +
           (keepOrder_ ? ", the input's order" : "") + " and the LAS header, VLRs and EVLRs";
}

}  // namespace zulconvert
