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

#include "base/worker_threads.h"
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

namespace {

const auto check = &checkCompanion;

}  // namespace

void checkCompanion(zul_Status status, const std::string& companion) {
    if (status != zul_STATUS_OK) {
        throw FormatError(companion + ": the companion cannot be written (" +
                          zul_x_statusText(status) + ")");
    }
}

CompanionWriter::CompanionWriter(const std::string& path, const std::string& shown) {
    checkCompanion(zul_xout_open(&writer_, path.c_str()), shown);
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
    if (active_ && lasFields_) mapLas(options_.input);
}

void CompanionRecorder::mapLas(const std::string& input) {
    // A file that cannot be mapped or read as LAS is named when the companion is written.
    try {
        lasInput_ = std::make_unique<MappedFile>(input);
    } catch (const FormatError&) {
        return;
    }
    LasHead las;
    std::string problem;
    if (!parseLasHead(lasInput_->bytes(), lasInput_->size(), las, problem) ||
        las.dataOffset + las.count * las.recordLength > lasInput_->size()) {
        return;
    }
    stored_.start(las, lasInput_->bytes() + las.dataOffset, ratio_);
    lasMapped_ = true;
}

std::function<void(const std::vector<zulplan::StoredChunk>&)> CompanionRecorder::chunkRecorder() {
    if (!active_ || !lasMapped_) return {};
    const int threads = zulbase::threadsFor(options_.threads);
    return [this, threads](const std::vector<zulplan::StoredChunk>& chunks) {
        stored_.add(chunks, threads);
    };
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
    if (!lasInput_) lasInput_ = std::make_unique<MappedFile>(options_.input);
    const MappedFile& input = *lasInput_;
    LasHead las;
    std::string problem;
    if (!parseLasHead(input.bytes(), input.size(), las, problem)) {
        throw FormatError(options_.input + ": " + problem);
    }
    const uint64_t dataEnd = las.dataOffset + las.count * las.recordLength;
    if (dataEnd > input.size() || las.count != read_ || !lasMapped_ || stored_.changed()) {
        throw FormatError(options_.input + ": changed while it was compressed");
    }
    if (dropped_ > 0) {
        throw FormatError(options_.input + ": " + std::to_string(dropped_) +
                          " points were left out of the stream, so their records cannot come "
                          "back; compress with --no-companion");
    }
    const unsigned char* records = input.bytes() + las.dataOffset;
    const zulplan::LargeVector<uint64_t>& inputOf = stored_.inputOf;
    const size_t stored = inputOf.size();
    const auto recordOf = [&](size_t p) { return records + inputOf[p] * las.recordLength; };

    // What the stream gives of every stored point's values, against its record, as the stream's
    // writer stored them.
    const std::vector<int64_t>& chunkStart = stored_.chunkStart;
    const std::vector<LasStoredPoints::XyzResidual>& xyzResidual = stored_.xyzResidual;
    const zulplan::LargeVector<uint16_t>& intensityResidual = stored_.intensityResidual;
    const zulplan::LargeVector<uint8_t>& color8 = stored_.color8;
    const bool* anyResidual = stored_.anyResidual;
    const int64_t* same = stored_.same;
    const int64_t* scales = LasStoredPoints::kScales;

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

    // The companion.
    const CompanionWriter output(companionPath, shown);
    const zul_xout_Writer writer = output.get();
    const std::vector<LasColumn>& columns = stored_.columns();
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
    check(zul_xout_setThreads(writer, zulbase::threadsFor(threads)), shown);
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
    for (int64_t c = 0; c + 1 < static_cast<int64_t>(chunkStart.size()); ++c) {
        const size_t begin = static_cast<size_t>(chunkStart[c]);
        const size_t n = static_cast<size_t>(chunkStart[c + 1]) - begin;
        // The order first: the writer then codes each column as it comes, without a copy.
        if (keepOrder_) {
            check(zul_xout_writeOrder(writer, c, inputOf.data() + begin, static_cast<int64_t>(n)),
                  shown);
        }
        // The columns as the stored points gathered them, chunk by chunk.
        for (size_t j = 0; j < columns.size(); ++j) {
            check(zul_xout_writeColumn(writer, c, static_cast<int32_t>(j),
                                       stored_.columnValues(begin, n, j), static_cast<int64_t>(n)),
                  shown);
        }
        for (int k = 0; k < 7; ++k) {
            if (residualField[k] < 0) continue;
            if (k < 3) {
                std::vector<int32_t> v(n, 0);
                auto from = std::lower_bound(
                    xyzResidual.begin(), xyzResidual.end(), begin,
                    [](const LasStoredPoints::XyzResidual& r, size_t at) { return r.at < at; });
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
                // (Only where some 16-bit colour has low bytes: its records are read again.)
                for (size_t p = 0; p < n; ++p) {
                    const unsigned char* r = recordOf(begin + p) + las.colorOffset;
                    v[p] = static_cast<uint16_t>(
                        loadLittle<uint16_t>(r + 2 * (k - 4)) -
                        static_cast<uint16_t>(color8[3 * (begin + p) + (k - 4)] * scale));
                }
                check(zul_xout_writeColumn(writer, c, residualField[k], v.data(),
                                           static_cast<int64_t>(n)),
                      shown);
            }
        }
    }
    check(zul_xout_finish(writer, nullptr, nullptr), shown);
    int fields = static_cast<int>(columns.size());
    for (const int32_t f : residualField) fields += f >= 0;
    return std::to_string(fields) + " fields of every point" +
           (keepOrder_ ? ", the input's order" : "") + " and the LAS header, VLRs and EVLRs";
}

}  // namespace zulconvert
