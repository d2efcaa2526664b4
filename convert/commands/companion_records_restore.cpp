// decompress with the companion of a PCD or PLY file (companion_records.h).
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <numeric>

#include "commands/chunk_batches.h"
#include "commands/chunk_walk.h"
#include "commands/companion_las.h"
#include "commands/companion_records.h"
#include "commands/companion_report.h"
#include "commands/companion_restore_fill.h"
#include "commands/output_file.h"
#include "commands/salvage.h"
#include "formats/byte_output.h"
#include "formats/record_writer.h"
#include "formats/text_numbers.h"
#include "formats/text_records.h"

namespace zulconvert {

using namespace zulformats;

namespace {

[[noreturn]] void damaged(const std::string& path, const std::string& what) {
    throw FormatError(path + ": " + what +
                      "; decompress with --no-companion to write the stream alone");
}

// The stored records (`data`, records of `width` bytes) and the rows the stream could not hold, in
// the order they are written. With the input's order (one place a stored record in `order`, one a
// row in `rowIndices`, ascending) that makes every place once, each record goes to its place;
// other orders (a part of the file, a damaged companion) are sorted, ties in stored order, and the
// rows merged in by number. Without the order, the rows follow the stored records.
std::vector<unsigned char> inWrittenOrder(std::vector<unsigned char>& data,
                                          const std::vector<uint64_t>* order,
                                          const std::vector<unsigned char>& rows,
                                          const std::vector<uint64_t>& rowIndices, size_t width) {
    const uint64_t stored = data.size() / width;
    const uint64_t written = stored + rowIndices.size();
    std::vector<unsigned char> all;
    if (order == nullptr) {
        all.swap(data);
        all.insert(all.end(), rows.begin(), rows.end());
        return all;
    }
    if (std::is_sorted(rowIndices.begin(), rowIndices.end())) {
        all.resize(written * width);
        std::vector<unsigned char> taken(written, 0);
        const int64_t numRows = static_cast<int64_t>(rowIndices.size());
        if (placeRecords(rows.data(), numRows, width, rowIndices.data(), written, taken.data(),
                         all.data()) == numRows &&
            placeRecords(data.data(), static_cast<int64_t>(stored), width, order->data(), written,
                         taken.data(), all.data()) == static_cast<int64_t>(stored))
            return all;
        all.clear();
    }
    std::vector<uint64_t> rank(stored);
    std::iota(rank.begin(), rank.end(), uint64_t{0});
    std::stable_sort(rank.begin(), rank.end(),
                     [&](uint64_t a, uint64_t b) { return (*order)[a] < (*order)[b]; });
    all.reserve(written * width);
    size_t nextRow = 0;
    for (uint64_t k = 0; k <= stored; ++k) {
        while (nextRow < rowIndices.size() &&
               (k == stored || rowIndices[nextRow] <= (*order)[rank[k]])) {
            all.insert(all.end(), rows.begin() + static_cast<std::ptrdiff_t>(nextRow * width),
                       rows.begin() + static_cast<std::ptrdiff_t>((nextRow + 1) * width));
            ++nextRow;
        }
        if (k < stored) {
            const unsigned char* r = data.data() + rank[k] * width;
            all.insert(all.end(), r, r + width);
        }
    }
    return all;
}

// How a text output spells each field: a position or normal whose residual the companion lacks
// as the stream rounded it, every other value exactly.
std::vector<TextSpelling> textSpelling(const RecordLayout& layout,
                                       const std::vector<RecordColumn>& columns,
                                       const std::vector<int32_t>& fieldOf,
                                       const std::string& rounded) {
    std::vector<TextSpelling> spelling(layout.fields.size(), TextSpelling::Exact);
    const std::string names = " " + rounded + " ";
    for (size_t c = 0; c < columns.size(); ++c) {
        const RecordField& field = layout.fields[columns[c].field];
        if (columns[c].residual && fieldOf[c] < 0 && roundedGeometry(field) &&
            names.find(" " + columns[c].name + " ") != std::string::npos)
            spelling[columns[c].field] =
                field.role >= FieldRole::NX ? TextSpelling::Float : TextSpelling::Decimals;
    }
    return spelling;
}

}  // namespace

bool ownsRecords(zul_SourceKind kind, Format format, zul_xin_Reader reader) {
    if (kind == zul_SOURCE_PCD || kind == zul_SOURCE_PLY)
        return format == (kind == zul_SOURCE_PCD ? Format::Pcd : Format::Ply);
    const char* word = nullptr;
    zul_xin_getFormat(reader, &word);
    const std::string text = word ? word : "";
    return kind == zul_SOURCE_OTHER && isTextFormat(format) &&
           text.compare(0, 4, format == Format::Csv ? "csv " : "xyz ") == 0;
}

std::string textExtension(zul_xin_Reader reader) {
    zul_SourceKind kind = zul_SOURCE_NONE;
    const void* bytes = nullptr;
    size_t size = 0;
    zul_xin_getSource(reader, &kind, &bytes, &size);
    for (const Format format : {Format::Xyz, Format::Csv}) {
        if (!ownsRecords(kind, format, reader)) continue;
        std::string own = std::filesystem::path(conventionOf(reader, "name")).extension().string();
        for (char& c : own) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        const bool same =
            format == Format::Csv ? own == ".csv" : own == ".xyz" || own == ".txt" || own == ".pts";
        return same ? own : extensionOfFormat(format);
    }
    return "";
}

int restoreRecords(const DecompressOptions& options, Format format, zul_xin_Reader reader,
                   const std::string& path) {
    const auto start = std::chrono::steady_clock::now();
    RecordLayout layout;
    if (!parseLayoutText(conventionOf(reader, "fields"), layout))
        damaged(path, "its record layout is damaged");
    zul_SourceKind kind = zul_SOURCE_NONE;
    const void* sourceBytes = nullptr;
    size_t sourceSize = 0;
    zul_xin_getSource(reader, &kind, &sourceBytes, &sourceSize);
    const char* source = static_cast<const char*>(sourceBytes);
    const std::string headerText = conventionOf(reader, "header size");
    char* end = nullptr;
    const unsigned long long headerSize = std::strtoull(headerText.c_str(), &end, 10);
    if (headerText.empty() || *end != '\0' || headerSize > sourceSize)
        damaged(path, "its header size is damaged");
    const char* formatName = nullptr;
    zul_xin_getFormat(reader, &formatName);
    const std::string word = formatName ? formatName : "";
    layout.encoding =
        word.substr(word.find(' ') == std::string::npos ? word.size() : word.find(' ') + 1);
    const double factor = std::atof(conventionOf(reader, "intensity factor").c_str());
    const double intensityFactor = factor > 0 ? factor : 1;
    const std::vector<RecordColumn> columns = recordColumns(layout);
    std::vector<int32_t> fieldOf(columns.size(), -1);
    for (size_t c = 0; c < columns.size(); ++c) {
        zul_xin_findField(reader, columns[c].name.c_str(), &fieldOf[c]);
        zul_FieldInfo info = {};
        if (fieldOf[c] >= 0 && (zul_xin_getField(reader, fieldOf[c], &info) != zul_STATUS_OK ||
                                info.width != columns[c].width)) {
            damaged(path, "field \"" + columns[c].name + "\" is not of its record's width");
        }
        if (fieldOf[c] < 0 && !columns[c].residual)
            damaged(path, "lacks the field \"" + columns[c].name + "\"");
    }
    zul_CompanionInfo info = {};
    zul_xin_getInfo(reader, &info);

    IndexGuard index;
    ZulFileHead head;
    WalkEnd intact;
    const int64_t usable = openForRestore(options, index, head, intact);
    std::vector<int64_t> chunks(static_cast<size_t>(usable));
    std::iota(chunks.begin(), chunks.end(), int64_t{0});

    const size_t width = layout.size;
    std::vector<unsigned char> data, records, column;
    std::vector<uint64_t> order, chunkOrder;
    unsigned char given[8];
    ChunkBatches batches(options.input, index.index, false, chunks, options.threads);
    const zul_Header2& header = head.header;
    while (batches.next()) {
        const zul_bulk_Points& points = batches.points();
        int64_t at = 0;
        for (size_t b = 0; b < batches.deliveredChunks(); ++b) {
            const int64_t number = batches.batchChunks()[b];
            const int64_t n = [&] {
                zul_idx_Chunk chunk = {};
                zul_idx_getChunk(index.index, number, &chunk);
                return chunk.numPoints;
            }();
            zul_CompanionChunk bound = {};
            if (zul_xin_getChunk(reader, number, &bound) != zul_STATUS_OK ||
                bound.chunk.numPoints != n) {
                throw FormatError(path + " does not belong to " + options.input + " (chunk " +
                                  std::to_string(number) + " is another)");
            }
            records.assign(static_cast<size_t>(n) * width, 0);
            std::vector<double> q(static_cast<size_t>(3 * n));
            for (int64_t i = 0; i < n; ++i) {
                const int64_t k = at + i;
                StreamPoint p{{0, 0, 0},
                              points.colors ? points.colors + 3 * k : nullptr,
                              points.reflections ? points.reflections + k : nullptr,
                              points.normals ? points.normals + 3 * k : nullptr};
                residualWorld(points.positions + 3 * k, header.transformation, header.enabled, p.q);
                std::copy(p.q, p.q + 3, q.begin() + 3 * i);
                unsigned char* r = records.data() + static_cast<size_t>(i) * width;
                for (const RecordField& f : layout.fields) {
                    if (f.role == FieldRole::None) continue;
                    streamValue(f, p, intensityFactor, given);
                    std::memcpy(r + f.offset, given, static_cast<size_t>(f.size));
                }
            }
            for (size_t c = 0; c < columns.size(); ++c) {
                if (fieldOf[c] < 0) continue;
                const size_t w = static_cast<size_t>(columns[c].width);
                column.resize(static_cast<size_t>(n) * w);
                const zul_Status status =
                    zul_xin_readColumn(reader, number, fieldOf[c], column.data(), n);
                if (status != zul_STATUS_OK) {
                    damaged(path, "chunk " + std::to_string(number) + "'s fields cannot be read (" +
                                      zul_x_statusText(status) + ")");
                }
                for (int64_t i = 0; i < n; ++i) {
                    unsigned char* r = records.data() + static_cast<size_t>(i) * width;
                    const unsigned char* v = column.data() + static_cast<size_t>(i) * w;
                    if (columns[c].residual) {
                        addValue(r + columns[c].offset, v, columns[c].width);
                    } else {
                        std::memcpy(r + columns[c].offset, v, w);
                    }
                }
            }
            if (info.hasOrder) {
                chunkOrder.resize(static_cast<size_t>(n));
                const zul_Status status = zul_xin_readOrder(reader, number, chunkOrder.data(), n);
                if (status != zul_STATUS_OK) {
                    damaged(path, "chunk " + std::to_string(number) + "'s order cannot be read (" +
                                      zul_x_statusText(status) + ")");
                }
            }
            if (!options.box) {
                data.insert(data.end(), records.begin(), records.end());
                if (info.hasOrder) order.insert(order.end(), chunkOrder.begin(), chunkOrder.end());
            }
            for (int64_t i = 0; i < n && options.box; ++i) {
                bool inside = true;
                for (int axis = 0; axis < 3; ++axis) {
                    const double v = q[static_cast<size_t>(3 * i + axis)];
                    inside = inside && v >= options.boxMin[axis] && v <= options.boxMax[axis];
                }
                if (!inside) continue;
                const unsigned char* r = records.data() + static_cast<size_t>(i) * width;
                data.insert(data.end(), r, r + width);
                if (info.hasOrder) order.push_back(chunkOrder[static_cast<size_t>(i)]);
            }
            at += n;
        }
        if (batches.status() != zul_STATUS_OK) break;
    }
    checkStatus(batches.status(), options.input, ZulStage::Read);

    // The points the stream could not hold: back in their places when the whole file is written.
    int64_t rowCount = 0;
    int32_t rowWidth = 0;
    zul_xin_getRowInfo(reader, &rowCount, &rowWidth);
    const bool whole = !options.box && !options.salvage;
    std::vector<uint64_t> rowIndices;
    std::vector<unsigned char> rows;
    if (rowCount > 0 && whole) {
        const uint64_t stored = data.size() / width;
        if (static_cast<size_t>(rowWidth) != width ||
            static_cast<uint64_t>(rowCount) > (uint64_t{1} << 40) - stored)
            damaged(path, "its rows do not fit its records");
        rowIndices.resize(static_cast<size_t>(rowCount));
        rows.resize(static_cast<size_t>(rowCount) * width);
        const zul_Status status =
            zul_xin_readRows(reader, rowIndices.data(), rows.data(), rowCount);
        if (status != zul_STATUS_OK)
            damaged(path,
                    std::string("its rows cannot be read (") + zul_x_statusText(status) + ")");
    }
    const uint64_t written = data.size() / width + rowIndices.size();
    std::vector<unsigned char> all =
        inWrittenOrder(data, info.hasOrder ? &order : nullptr, rows, rowIndices, width);
    std::vector<unsigned char>().swap(data);

    const bool recount = written != static_cast<uint64_t>(info.numPoints + rowCount);
    // --encoding writes another encoding of the format.
    if (!options.encoding.empty()) layout.encoding = options.encoding;
    const bool text = isTextFormat(format);
    if (text && !options.encoding.empty())
        throw FormatError(options.output + ": --encoding is for PCD and PLY output");
    const bool countLine = !conventionOf(reader, "count line").empty();
    const std::string headerPart =
        text ? (recount && countLine
                    ? recountTextHeader(std::string(source, source + headerSize), written)
                    : std::string(source, source + headerSize))
        : recount || !options.encoding.empty()
            ? rewriteHeader(std::string(source, source + headerSize), format,
                            recount ? static_cast<int64_t>(written) : -1, options.encoding)
            : std::string(source, source + headerSize);
    if (recount && !options.quiet) {
        std::cerr << "zul: " << options.output << " holds " << written << " of the "
                  << info.numPoints + rowCount << " points; its header says so"
                  << (format == Format::Pcd ? " (an unorganised cloud)" : "") << "\n";
    }
    OutputFile output(options.output, options.force);
    {
        ByteOutput out(output.temporaryPath());
        out.text(headerPart);
        if (text) {
            writeTextRecords(
                out, options.output, layout,
                textSpelling(layout, columns, fieldOf, conventionOf(reader, "rounded")),
                decimalsFor(worldStep(head)), all.data(), written,
                headerSize >= 2 && source[headerSize - 2] == '\r' ? "\r\n" : "\n");
        } else {
            writeRecordData(out, options.output, format, layout, all.data(), written);
        }
        out.write(source + headerSize, sourceSize - headerSize);
        out.close();
    }
    output.commit();
    if (!options.quiet) {
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        std::printf("%s + %s -> %s (%s, the input's header and fields%s): %llu points, %.2f s\n",
                    options.input.c_str(), path.c_str(), options.output.c_str(),
                    zulformats::formatName(format), info.hasOrder ? " in its order" : "",
                    static_cast<unsigned long long>(written), seconds);
    }
    return options.salvage ? reportSalvage(options, intact, static_cast<int64_t>(written)) : 0;
}

}  // namespace zulconvert
