#include "commands/companion_write.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <numeric>

#include "commands/chunk_batches.h"
#include "commands/chunk_walk.h"
#include "commands/companion_las.h"
#include "formats/byte_input.h"
#include "formats/las_records.h"
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
            // Mapped whole at once: the records are then read in any order without a fault a page.
            void* at = ::mmap(nullptr, size_, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
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

// Records asked for this many points before they are read.
constexpr size_t kAhead = 16;

// The input points of one chunk by grid point: each stored point takes the first input point of
// its grid point not yet taken (points on one grid point are interchangeable: each keeps its own
// fields).
class ChunkMatcher {
public:
    // The grid points of the input points: three a point in `keys`, or, where `ratio` has no
    // zero, the X, Y and Z of the LAS `records` of `length` bytes times `ratio`.
    ChunkMatcher(const std::vector<int64_t>& keys, const unsigned char* records, size_t length,
                 const int64_t ratio[3])
        : keys_(keys),
          records_(records),
          length_(length),
          fromRecords_(ratio[0] != 0 && ratio[1] != 0 && ratio[2] != 0) {
        for (int axis = 0; axis < 3; ++axis) ratio_[axis] = ratio[axis];
    }

    // The chunk's input points: a table of their grid points, each with its points in the
    // input's order.
    void reset(const uint64_t* inputs, size_t n) {
        entries_.resize(n);
        size_t size = 16;
        while (size < 2 * n) size *= 2;
        slots_.assign(size, kNone);
        mask_ = size - 1;
        bool unordered = false;
        for (size_t i = 0; i < n; ++i) {
            if (fromRecords_ && i + kAhead < n) {
                __builtin_prefetch(records_ + inputs[i + kAhead] * length_);
            }
            Entry& entry = entries_[i];
            entry.input = inputs[i];
            entry.next = kNone;
            if (fromRecords_) {
                const unsigned char* r = records_ + inputs[i] * length_;
                for (int axis = 0; axis < 3; ++axis) {
                    entry.key[axis] = int64_t{loadLittle<int32_t>(r + 4 * axis)} * ratio_[axis];
                }
            } else {
                std::copy_n(&keys_[3 * inputs[i]], 3, entry.key);
            }
            uint32_t& slot = slots_[find(entry.key)];
            const uint32_t index = static_cast<uint32_t>(i);
            if (slot == kNone) {
                slot = index;
                entry.head = entry.tail = index;
                continue;
            }
            // A grid point with more than one point: appended to its list.
            Entry& group = entries_[slot];
            unordered = unordered || entries_[group.tail].input > entry.input;
            entries_[group.tail].next = index;
            group.tail = index;
        }
        if (unordered) orderLists();
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
    static constexpr uint32_t kNone = UINT32_MAX;

    struct Entry {
        int64_t key[3];
        uint64_t input;
        uint32_t next;  // the next point of the same grid point, in the input's order
        uint32_t head;  // of a grid point's first entry: its first point not yet taken
        uint32_t tail;  // of a grid point's first entry: its last point
    };

    static bool same(const int64_t a[3], const int64_t b[3]) {
        return a[0] == b[0] && a[1] == b[1] && a[2] == b[2];
    }

    // The slot of grid point `key`: the one holding it, or the empty one where it goes.
    size_t find(const int64_t key[3]) const {
        uint64_t h = static_cast<uint64_t>(key[0]) * 0x9E3779B97F4A7C15ull ^
                     static_cast<uint64_t>(key[1]) * 0xC2B2AE3D27D4EB4Full ^
                     static_cast<uint64_t>(key[2]) * 0x165667B19E3779F9ull;
        h ^= h >> 29;
        for (size_t at = static_cast<size_t>(h) & mask_;; at = (at + 1) & mask_) {
            const uint32_t slot = slots_[at];
            if (slot == kNone || same(entries_[slot].key, key)) return at;
        }
    }

    // Puts the points of every grid point in the input's order.
    void orderLists() {
        std::vector<uint32_t> list;
        for (const uint32_t slot : slots_) {
            if (slot == kNone || entries_[slot].next == kNone) continue;
            list.clear();
            for (uint32_t i = slot; i != kNone; i = entries_[i].next) list.push_back(i);
            std::sort(list.begin(), list.end(), [&](uint32_t a, uint32_t b) {
                return entries_[a].input < entries_[b].input;
            });
            for (size_t k = 0; k + 1 < list.size(); ++k) entries_[list[k]].next = list[k + 1];
            entries_[list.back()].next = kNone;
            entries_[slot].head = list.front();
        }
    }

    int64_t takeAt(const int64_t g[3]) {
        const uint32_t slot = slots_[find(g)];
        if (slot == kNone) return -1;
        uint32_t& head = entries_[slot].head;
        if (head == kNone) return -1;
        const uint64_t input = entries_[head].input;
        head = entries_[head].next;
        return static_cast<int64_t>(input);
    }

    const std::vector<int64_t>& keys_;
    const unsigned char* records_;
    size_t length_;
    int64_t ratio_[3];
    bool fromRecords_;
    std::vector<Entry> entries_;
    std::vector<uint32_t> slots_;  // open addressing: the first entry of a grid point, or kNone
    size_t mask_ = 0;
};

// `n` values of `width` bytes, `stride` bytes apart from `from`, side by side into `to`.
template <size_t width>
void copyValues(const unsigned char* from, size_t stride, size_t n, unsigned char* to) {
    for (size_t k = 0; k < n; ++k) std::memcpy(to + k * width, from + k * stride, width);
}

void copyColumn(const unsigned char* from, size_t stride, size_t width, size_t n,
                unsigned char* to) {
    switch (width) {
        case 1:
            return copyValues<1>(from, stride, n, to);
        case 2:
            return copyValues<2>(from, stride, n, to);
        case 4:
            return copyValues<4>(from, stride, n, to);
        case 8:
            return copyValues<8>(from, stride, n, to);
        default:
            for (size_t k = 0; k < n; ++k) std::memcpy(to + k * width, from + k * stride, width);
    }
}

const auto check = &checkCompanion;

}  // namespace

void checkCompanion(zul_Status status, const std::string& companion) {
    if (status != zul_STATUS_OK) {
        throw FormatError(companion + ": the companion cannot be written (" +
                          zul_x_statusText(status) + ")");
    }
}

std::vector<int64_t> openWrittenStream(const std::string& streamPath, const std::string& shown,
                                       IndexGuard& index, ZulFileHead& head) {
    checkCompanion(openIndex(streamPath, false, zulbase::kMaxChunkBudgetMiB, 0, index, head),
                   shown);
    int64_t numChunks = 0;
    zul_idx_getCounts(index.index, &numChunks, nullptr);
    std::vector<int64_t> chunks(static_cast<size_t>(numChunks));
    std::iota(chunks.begin(), chunks.end(), int64_t{0});
    return chunks;
}

CompanionRecorder::CompanionRecorder(const CompressOptions& options, Format format,
                                     const CloudReader& reader, double intensityFactor)
    : options_(options), format_(format), reader_(reader), intensityFactor_(intensityFactor) {
    // A LAS file's records, a PCD or PLY file's header, are read again once the stream is
    // written: an input that cannot be read twice (a pipe) gets no fields.
    const bool regular = std::filesystem::is_regular_file(options.input);
    lasFields_ = format == Format::Las && regular;
    recordFields_ = format != Format::Las && regular && reader.records() != nullptr;
    active_ = options.companion == "always" ||
              (options.companion != "never" && (lasFields_ || recordFields_));
    if (options.output == "-") active_ = false;  // standard output has no file beside it
    // An organised cloud's order is its layout: it is kept.
    keepOrder_ = options.keepOrder || (recordFields_ && reader.records()->height > 1);
}

void CompanionRecorder::gridRatios(const int64_t ratio[3]) {
    for (int axis = 0; axis < 3; ++axis) ratio_[axis] = ratio[axis];
    if (active_ && lasFields_) reserveFor(options_.input);
}

void CompanionRecorder::reserveFor(const std::string& input) {
    // Room for the points the header counts, where the file can hold them.
    unsigned char bytes[zulformats::kLas14HeaderSize] = {};
    std::FILE* file = std::fopen(input.c_str(), "rb");
    if (file == nullptr) return;
    const size_t got = std::fread(bytes, 1, sizeof bytes, file);
    std::fclose(file);
    LasHead las;
    std::string problem;
    std::error_code error;
    const uintmax_t size = std::filesystem::file_size(input, error);
    if (error || !parseLasHead(bytes, got, las, problem) || las.count > size / las.recordLength) {
        return;
    }
    if (!recordKeys()) keys_.reserve(3 * las.count);
    inputOf_.reserve(las.count);
}

CompanionRecorder::~CompanionRecorder() = default;

void CompanionRecorder::keep(const zul_Point& prepared, bool kept) {
    if (recordFields_) {
        const unsigned char* record = reader_.record();
        records_.insert(records_.end(), record, record + reader_.records()->size);
        kept_.push_back(kept ? 1 : 0);
    }
    for (int axis = 0; axis < 3; ++axis) {
        keys_.push_back(kept ? nearestInteger(prepared.position[axis]) : 0);
    }
}

std::string CompanionRecorder::finish(const std::string& streamPath,
                                      const std::string& companionPath, int threads) {
    if (lasFields_) return writeLas(streamPath, companionPath, threads);
    if (recordFields_) return writeRecords(streamPath, companionPath, threads);
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
    if (dataEnd > input.size() || las.count != read_) {
        throw FormatError(options_.input + ": changed while it was compressed");
    }
    if (dropped_ > 0) {
        throw FormatError(options_.input + ": " + std::to_string(dropped_) +
                          " points were left out of the stream, so their records cannot come "
                          "back; compress with --no-companion");
    }
    const unsigned char* records = input.bytes() + las.dataOffset;
    const size_t stored = inputOf_.size();
    const auto recordOf = [&](size_t p) { return records + inputOf_[p] * las.recordLength; };
    // The records are read in the stream's order, anywhere in the file: each is asked for well
    // before it is needed.
    const auto prefetch = [&](size_t p) {
        if (p + kAhead < stored) {
            const char* next = reinterpret_cast<const char*>(recordOf(p + kAhead));
            __builtin_prefetch(next);
            __builtin_prefetch(next + las.recordLength - 1);
        }
    };

    // Pass 1: what the stream gives of every stored point's values, against its record.
    IndexGuard index;
    ZulFileHead head;
    const std::vector<int64_t> chunkList = openWrittenStream(streamPath, shown, index, head);
    std::vector<int64_t> chunkStart(1, 0);
    // The differences of X, Y and Z, of the points that have any (few, as a rule).
    struct XyzResidual {
        uint64_t at;
        int32_t value[3];
    };
    std::vector<XyzResidual> xyzResidual;
    std::vector<uint16_t> intensityResidual(stored);
    std::vector<uint8_t> color8(3 * stored);
    bool anyResidual[4] = {};
    // The colour scales tried, and how many values each gives back as they were.
    const int64_t scales[3] = {256, 257, 1};
    int64_t same[3] = {};
    ChunkBatches batches(streamPath, index.index, false, chunkList, threads);
    const zul_Header2& header = head.header;
    ChunkMatcher matcher(keys_, records, las.recordLength, ratio_);
    size_t p = 0;
    while (batches.next()) {
        const zul_bulk_Points& points = batches.points();
        // Each stored point's input point, among those its chunk was written with.
        const size_t first = p;
        for (size_t c = 0; c < batches.deliveredChunks(); ++c) {
            zul_idx_Chunk chunk = {};
            zul_idx_getChunk(index.index, batches.batchChunks()[c], &chunk);
            const size_t n = static_cast<size_t>(chunk.numPoints);
            if (n > stored - p || p - first + n > static_cast<uint64_t>(points.numPoints)) {
                throw FormatError(shown + ": the stream holds more points than " + options_.input +
                                  " gave it");
            }
            matcher.reset(inputOf_.data() + p, n);
            for (size_t k = 0; k < n; ++k, ++p) {
                const double* g = points.positions + 3 * (p - first);
                const int64_t key[3] = {nearestInteger(g[0]), nearestInteger(g[1]),
                                        nearestInteger(g[2])};
                const int64_t found = matcher.take(key);
                if (found < 0) {
                    throw FormatError(shown + ": a stored point matches no point of " +
                                      options_.input + "; compress with --no-companion");
                }
                inputOf_[p] = static_cast<uint64_t>(found);
            }
            chunkStart.push_back(static_cast<int64_t>(p));
            // What the stream gives of their values, against their records.
            for (size_t at = p - n; at < p; ++at) {
                prefetch(at);
                const size_t i = at - first;
                const double* g = points.positions + 3 * i;
                const unsigned char* r = recordOf(at);
                double q[3];
                residualWorld(g, header.transformation, header.enabled, q);
                XyzResidual xyz = {at, {0, 0, 0}};
                for (int axis = 0; axis < 3; ++axis) {
                    const int32_t back = lasCoordinate(q[axis], las.scale[axis], las.offset[axis]);
                    xyz.value[axis] = static_cast<int32_t>(
                        static_cast<uint32_t>(loadLittle<int32_t>(r + 4 * axis)) -
                        static_cast<uint32_t>(back));
                    anyResidual[axis] = anyResidual[axis] || xyz.value[axis] != 0;
                }
                if (xyz.value[0] != 0 || xyz.value[1] != 0 || xyz.value[2] != 0) {
                    xyzResidual.push_back(xyz);
                }
                const int32_t reflection = points.reflections ? points.reflections[i] : 0;
                const uint16_t ir = static_cast<uint16_t>(loadLittle<uint16_t>(r + 12) -
                                                          static_cast<uint16_t>(reflection));
                intensityResidual[at] = ir;
                anyResidual[3] = anyResidual[3] || ir != 0;
                for (int channel = 0; channel < 3; ++channel) {
                    const uint8_t value = points.colors ? points.colors[3 * i + channel] : 0;
                    color8[3 * at + channel] = value;
                    if (las.colorOffset > 0) {
                        const uint16_t own =
                            loadLittle<uint16_t>(r + las.colorOffset + 2 * channel);
                        for (int s = 0; s < 3; ++s) {
                            same[s] += own == static_cast<uint16_t>(value * scales[s]);
                        }
                    }
                }
            }
        }
    }
    if (batches.status() != zul_STATUS_OK) check(batches.status(), shown);
    if (p != stored) {
        throw FormatError(shown + ": the stream holds fewer points than " + options_.input +
                          " gave it");
    }

    // The colour scale that gives the most values back as they were.
    int64_t scale = 256;
    bool lowBytes = false;
    if (las.colorOffset > 0) {
        int64_t best = -1;
        for (int s = 0; s < 3; ++s) {
            if (same[s] > best) best = same[s], scale = scales[s];
        }
        lowBytes = best < static_cast<int64_t>(3 * stored);
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
    // The input's own name (the user's, for a copy of standard input or a pipe); a name it
    // refuses is left out.
    const std::string ownName = std::filesystem::path(shownInput(options_)).filename().string();
    zul_xout_addConvention(writer, "name", ownName.c_str());
    check(zul_xout_bindStreamFile(writer, streamPath.c_str()), shown);
    std::vector<unsigned char> values, chunkRecords;
    const size_t length = las.recordLength;
    for (int64_t c = 0; c + 1 < static_cast<int64_t>(chunkStart.size()); ++c) {
        const size_t begin = static_cast<size_t>(chunkStart[c]);
        const size_t n = static_cast<size_t>(chunkStart[c + 1]) - begin;
        // The chunk's records, gathered once in its order, then cut into columns.
        chunkRecords.resize(n * length);
        for (size_t k = 0; k < n; ++k) {
            prefetch(begin + k);
            std::memcpy(chunkRecords.data() + k * length, recordOf(begin + k), length);
        }
        int32_t field = 0;
        for (const LasColumn& column : columns) {
            const size_t width = static_cast<size_t>(column.width);
            values.resize(n * width);
            copyColumn(chunkRecords.data() + column.offset, length, width, n, values.data());
            check(zul_xout_writeColumn(writer, c, field++, values.data(), static_cast<int64_t>(n)),
                  shown);
        }
        for (int k = 0; k < 7; ++k) {
            if (residualField[k] < 0) continue;
            if (k < 3) {
                std::vector<int32_t> v(n, 0);
                auto from =
                    std::lower_bound(xyzResidual.begin(), xyzResidual.end(), begin,
                                     [](const XyzResidual& r, size_t at) { return r.at < at; });
                for (; from != xyzResidual.end() && from->at < begin + n; ++from) {
                    v[from->at - begin] = from->value[k];
                }
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
                    const unsigned char* r = chunkRecords.data() + p * length + las.colorOffset;
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
            check(zul_xout_writeOrder(writer, c, inputOf_.data() + begin, static_cast<int64_t>(n)),
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
