#include "commands/companion_restore.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <numeric>

#include "commands/chunk_batches.h"
#include "commands/chunk_walk.h"
#include "commands/companion_las.h"
#include "commands/companion_records.h"
#include "commands/companion_report.h"
#include "commands/companion_restore_fill.h"
#include "commands/companion_restore_runs.h"
#include "commands/companion_write.h"
#include "commands/output_file.h"
#include "commands/salvage.h"
#include "commands/status_text.h"
#include "formats/byte_input.h"
#include "formats/byte_output.h"
#include "formats/las_records.h"
#include "zul_companion.h"

namespace zulconvert {

using namespace zulformats;

namespace {

// Opens and binds the companion of `input`; throws for one that is damaged or another stream's.
// For a salvage, a stream cut or damaged after its head is not bound: each chunk written is then
// compared with the companion's (chunkMatches).
void openCompanion(const std::string& input, const std::string& path, CompanionReader& guard,
                   bool salvage) {
    zul_Status status = zul_xin_openFile(&guard.reader, path.c_str());
    if (status != zul_STATUS_OK) {
        throw FormatError(path + ": the companion of " + input + " cannot be read (" +
                          zul_x_statusText(status) +
                          "); decompress with --no-companion to write the stream alone, "
                          "without the fields it keeps");
    }
    status = zul_xin_bindStreamFile(guard.reader, input.c_str());
    if (status == zul_STATUS_COMPANION_MISMATCH && salvage) return;
    if (status == zul_STATUS_COMPANION_MISMATCH) {
        // A damaged or cut stream is said as such, not as another stream's.
        IndexGuard index;
        zul_Status damage = zul_idx_openFile(&index.index, input.c_str(), nullptr);
        if (damage == zul_STATUS_OK) zul_idx_getDamage(index.index, &damage, nullptr, nullptr);
        checkStatus(damage, input, ZulStage::Read);
        throw FormatError(path + " does not belong to " + input +
                          " (another stream's companion); decompress with --no-companion to "
                          "write the stream alone");
    }
    if (status != zul_STATUS_OK) {
        throw FormatError(path + ": cannot be bound to " + input + " (" + zul_x_statusText(status) +
                          ")");
    }
}

template <typename T>
void put(unsigned char* at, T value) {
    std::memcpy(at, &value, sizeof value);
}

// The chunks whose points can be records within the box: every chunk without a box; else those
// whose box through the stream's matrix meets the box widened by a LAS scale step on each side (a
// record's coordinate is its stream position rounded to the scale). Every chunk when a coordinate
// difference column can move a record farther.
std::vector<int64_t> boxChunks(const DecompressOptions& options, int64_t usable, const LasHead& las,
                               const std::vector<Placed>& placed) {
    const bool moved = std::any_of(placed.begin(), placed.end(), [](const Placed& p) {
        return p.residual >= 0 && p.residual < 3;
    });
    std::vector<int64_t> chunks(static_cast<size_t>(usable));
    std::iota(chunks.begin(), chunks.end(), int64_t{0});
    if (!options.box || moved) return chunks;
    IndexGuard index;
    ZulFileHead head;
    checkStatus(
        openIndex(options.input, true, options.chunkBudgetMiB, options.pointDensity, index, head),
        options.input, ZulStage::Open);
    double lo[3], hi[3];
    for (int axis = 0; axis < 3; ++axis) {
        lo[axis] = options.boxMin[axis] - std::abs(las.scale[axis]);
        hi[axis] = options.boxMax[axis] + std::abs(las.scale[axis]);
    }
    int64_t selected = 0;
    checkStatus(zul_idx_selectBox(index.index, lo, hi, nullptr, 0, &selected), options.input,
                ZulStage::Read);
    chunks.resize(static_cast<size_t>(selected));
    checkStatus(zul_idx_selectBox(index.index, lo, hi, chunks.data(), selected, &selected),
                options.input, ZulStage::Read);
    chunks.erase(std::lower_bound(chunks.begin(), chunks.end(), usable), chunks.end());
    return chunks;
}

}  // namespace

std::string companionOutputName(const std::string& input) {
    const std::string path = companionPath(input);
    CompanionReader guard;
    if (!std::filesystem::is_regular_file(path) ||
        zul_xin_openFile(&guard.reader, path.c_str()) != zul_STATUS_OK) {
        return "";
    }
    zul_SourceKind kind = zul_SOURCE_NONE;
    const void* bytes = nullptr;
    size_t size = 0;
    zul_xin_getSource(guard.reader, &kind, &bytes, &size);
    const std::string ext = kind == zul_SOURCE_LAS   ? ".las"
                            : kind == zul_SOURCE_PCD ? ".pcd"
                            : kind == zul_SOURCE_PLY ? ".ply"
                                                     : textExtension(guard.reader);
    if (ext.empty()) return "";
    const std::filesystem::path name(conventionOf(guard.reader, "name"));
    if (!name.empty() && name == name.filename() && name.extension() == ext) return name.string();
    return std::filesystem::path(input).filename().replace_extension(ext).string();
}

bool restoreFromCompanion(const DecompressOptions& options, Format format, int& exitCode) {
    if (options.noCompanion) return false;
    const std::string path = companionPath(options.input);
    if (!std::filesystem::exists(path)) {
        if (format == Format::Las && !options.quiet) {
            std::cerr << "zul: " << options.input << " has no companion " << path
                      << ": the LAS written holds positions, intensity and colour, with a "
                         "header, records and fields of the tool's own\n";
        }
        return false;
    }
    CompanionReader guard;
    openCompanion(options.input, path, guard, options.salvage);
    zul_SourceKind kind = zul_SOURCE_NONE;
    const void* sourceBytes = nullptr;
    size_t sourceSize = 0;
    zul_xin_getSource(guard.reader, &kind, &sourceBytes, &sourceSize);
    zul_CompanionInfo info = {};
    zul_xin_getInfo(guard.reader, &info);
    const bool ownRecords = ownsRecords(kind, format, guard.reader);
    if (ownRecords && !options.noTransform) {
        exitCode = restoreRecords(options, format, guard.reader, path);
        return true;
    }
    if (kind != zul_SOURCE_LAS || format != Format::Las || options.noTransform) {
        if (info.numFields > 0 && !options.quiet) {
            std::cerr << "zul: the " << info.numFields << " fields that " << path
                      << " keeps are left out of " << options.output
                      << (options.noTransform ? " (--no-transform)" : "")
                      << "; they come back in a "
                      << (kind == zul_SOURCE_PCD   ? "PCD"
                          : kind == zul_SOURCE_PLY ? "PLY"
                          : textExtension(guard.reader).empty()
                              ? "LAS"
                              : "text (" + textExtension(guard.reader) + ")")
                      << " output\n";
        }
        return false;
    }
    const auto start = std::chrono::steady_clock::now();
    const unsigned char* source = static_cast<const unsigned char*>(sourceBytes);
    LasHead las;
    std::string problem;
    if (!parseLasHead(source, sourceSize, las, problem) || las.dataOffset > sourceSize) {
        throw FormatError(path + ": its LAS header is damaged (" + problem + ")");
    }
    const std::vector<LasColumn> columns = lasColumns(las.pointFormat, las.recordLength);
    std::vector<Placed> placed;
    for (int32_t f = 0; f < info.numFields; ++f) {
        zul_FieldInfo field = {};
        zul_xin_getField(guard.reader, f, &field);
        Placed p{f, field.width, 0, -1};
        bool known = false;
        for (const LasColumn& column : columns) {
            if (std::strcmp(column.name, field.name) == 0 && column.width == field.width) {
                p.offset = column.offset;
                known = true;
            }
        }
        for (int k = 0; k < 7 && !known; ++k) {
            if (std::strcmp(kLasResidualNames[k], field.name) == 0 &&
                (k < 4 || las.colorOffset > 0) && field.width == (k < 3 ? 4 : 2)) {
                p.residual = k, known = true;
            }
        }
        if (!known) {
            throw FormatError(path + ": field \"" + field.name +
                              "\" has no place in a LAS record of point format " +
                              std::to_string(las.pointFormat));
        }
        placed.push_back(p);
    }
    const std::string scaleText = conventionOf(guard.reader, "colour scale");
    const int64_t colorScale = scaleText.empty() ? 256 : std::atoll(scaleText.c_str());

    IndexGuard index;
    ZulFileHead head;
    WalkEnd intact;
    const int64_t usable = openForRestore(options, index, head, intact);
    std::vector<int64_t> chunks = boxChunks(options, usable, las, placed);

    const size_t length = las.recordLength;
    std::vector<unsigned char> data;
    std::vector<uint64_t> order;
    // The whole file in the input's order: each record goes straight to its place.
    const bool direct = info.hasOrder && !options.box && !options.salvage &&
                        info.numPoints == static_cast<int64_t>(las.count);
    std::vector<unsigned char> taken(direct ? las.count : 0);
    uint64_t placedRecords = 0;
    // Not zeroed: every record of it is written, each once, or nothing is written at all.
    std::unique_ptr<unsigned char[]> whole(direct ? new unsigned char[las.count * length]
                                                  : nullptr);
    // Every record in stored order, as many as the header counts: written chunk by chunk behind
    // the source's own header, not kept.
    const bool streamed = !info.hasOrder && !options.box && !options.salvage &&
                          info.numPoints == static_cast<int64_t>(las.count);
    std::unique_ptr<OutputFile> streamedFile;
    std::unique_ptr<ByteOutput> streamedOut;
    uint64_t streamedRecords = 0;
    if (streamed) {
        streamedFile = std::make_unique<OutputFile>(options.output, options.force);
        streamedOut = std::make_unique<ByteOutput>(streamedFile->temporaryPath());
        streamedOut->write(source, las.dataOffset);
    } else if (!direct && !options.box) {
        // Every record kept: room for them all at once, not grown by copies.
        data.reserve(std::min<uint64_t>(las.count, static_cast<uint64_t>(info.numPoints)) * length);
        if (info.hasOrder) order.reserve(data.capacity() / length);
    }
    const LasRecordFill fill(las, head.header, colorScale, placed);
    RestoreRuns runs(index.index, guard.reader, path, options.input, fill, length, info.hasOrder,
                     std::move(chunks), options.threads);
    RestoredRun run;
    zul_Status failure = zul_STATUS_OK;
    while (failure == zul_STATUS_OK && runs.next(run)) {
        const unsigned char* records = run.records;
        const uint64_t* chunkOrder = run.order;
        for (size_t c = 0; c < run.made; ++c) {
            const int64_t n = run.counts[c];
            const size_t bytes = static_cast<size_t>(n) * length;
            if (streamed) {
                streamedRecords += static_cast<uint64_t>(n);
            } else if (direct) {
                // Every record in its place at once.
                const int64_t placed = placeRecords(records, n, length, chunkOrder, las.count,
                                                    taken.data(), whole.get());
                placedRecords += static_cast<uint64_t>(placed);
                if (placed < n) {
                    throw FormatError(path + ": chunk " + std::to_string(run.chunks[c]) +
                                      "'s order is damaged (record " +
                                      std::to_string(chunkOrder[static_cast<size_t>(placed)]) +
                                      " twice or out of range)");
                }
            } else if (!options.box) {
                // Every record, in stored order: the chunk's at once.
                data.insert(data.end(), records, records + bytes);
                if (info.hasOrder) order.insert(order.end(), chunkOrder, chunkOrder + n);
            } else {
                for (int64_t i = 0; i < n; ++i) {
                    const unsigned char* r = records + static_cast<size_t>(i) * length;
                    double p[3];
                    for (int axis = 0; axis < 3; ++axis) {
                        p[axis] =
                            loadLittle<int32_t>(r + 4 * axis) * las.scale[axis] + las.offset[axis];
                    }
                    bool inside = true;
                    for (int axis = 0; axis < 3; ++axis) {
                        inside = inside && p[axis] >= options.boxMin[axis] &&
                                 p[axis] <= options.boxMax[axis];
                    }
                    if (!inside) continue;
                    data.insert(data.end(), r, r + length);
                    if (info.hasOrder) order.push_back(chunkOrder[static_cast<size_t>(i)]);
                }
            }
            records += bytes;
            if (chunkOrder) chunkOrder += n;
        }
        // The run's records at once, straight from where they were made.
        if (streamed)
            streamedOut->writeInPlace(run.records, static_cast<size_t>(records - run.records));
        if (!run.problem.empty()) throw FormatError(run.problem);
        failure = run.status;
    }
    checkStatus(failure, options.input, ZulStage::Read);
    if (direct && placedRecords != las.count) {
        throw FormatError(path + ": holds " + std::to_string(placedRecords) + " of the " +
                          std::to_string(las.count) + " records its LAS header counts");
    }
    if (streamed) {
        if (streamedRecords != las.count) {
            throw FormatError(path + ": holds " + std::to_string(streamedRecords) + " of the " +
                              std::to_string(las.count) + " records its LAS header counts");
        }
        streamedOut->write(source + las.dataOffset, sourceSize - las.dataOffset);
        streamedOut->close();
        streamedFile->commit();
    }
    const uint64_t written = direct     ? placedRecords
                             : streamed ? streamedRecords
                                        : data.size() / length;

    // The source's header, with the count and box of what is written when that is not all.
    std::vector<unsigned char> head0(source, source + las.dataOffset);
    const unsigned char* tail = source + las.dataOffset;
    const size_t tailSize = sourceSize - las.dataOffset;
    if (written != las.count) {
        double lo[3] = {HUGE_VAL, HUGE_VAL, HUGE_VAL}, hi[3] = {-HUGE_VAL, -HUGE_VAL, -HUGE_VAL};
        for (size_t at = 0; at < data.size(); at += length) {
            for (int axis = 0; axis < 3; ++axis) {
                const double p =
                    loadLittle<int32_t>(data.data() + at + 4 * axis) * las.scale[axis] +
                    las.offset[axis];
                lo[axis] = std::min(lo[axis], p);
                hi[axis] = std::max(hi[axis], p);
            }
        }
        unsigned char* h = head0.data();
        put<uint32_t>(h + 107, written <= UINT32_MAX && !(las.minor >= 4 && las.pointFormat >= 6)
                                   ? static_cast<uint32_t>(written)
                                   : 0);
        if (las.minor >= 4 && las.headerSize >= kLas14HeaderSize) put<uint64_t>(h + 247, written);
        for (int axis = 0; axis < 3; ++axis) {
            put(h + 179 + 16 * axis, written > 0 ? hi[axis] : 0.0);
            put(h + 187 + 16 * axis, written > 0 ? lo[axis] : 0.0);
        }
        const uint64_t oldEnd = las.dataOffset + las.count * length;
        const uint64_t newEnd = las.dataOffset + written * length;
        for (const size_t at : {size_t{227}, size_t{235}}) {
            if ((at == 227 && las.minor < 3) || (at == 235 && las.minor < 4) ||
                head0.size() < at + 8) {
                continue;
            }
            const uint64_t offset = loadLittle<uint64_t>(h + at);
            if (offset >= oldEnd) put<uint64_t>(h + at, offset - oldEnd + newEnd);
        }
        if (!options.quiet) {
            std::cerr << "zul: " << options.output << " holds " << written << " of the "
                      << las.count
                      << " records; its header says so, but its counts by return are the "
                         "input's\n";
        }
    }

    if (!streamed) {
        OutputFile output(options.output, options.force);
        ByteOutput out(output.temporaryPath());
        out.write(head0.data(), head0.size());
        if (info.hasOrder && !direct) {
            std::vector<uint64_t> rank(written);
            std::iota(rank.begin(), rank.end(), uint64_t{0});
            std::stable_sort(rank.begin(), rank.end(),
                             [&](uint64_t a, uint64_t b) { return order[a] < order[b]; });
            for (const uint64_t k : rank) out.write(data.data() + k * length, length);
        } else if (direct) {
            out.write(whole.get(), written * length);
        } else {
            out.write(data.data(), data.size());
        }
        out.write(tail, tailSize);
        out.close();
        output.commit();
    }
    if (!options.quiet) {
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        std::printf("%s + %s -> %s (LAS, the input's header and fields%s): %llu points, %.2f s\n",
                    options.input.c_str(), path.c_str(), options.output.c_str(),
                    info.hasOrder ? " in its order" : "", static_cast<unsigned long long>(written),
                    seconds);
    }
    exitCode = options.salvage ? reportSalvage(options, intact, static_cast<int64_t>(written)) : 0;
    return true;
}

}  // namespace zulconvert
