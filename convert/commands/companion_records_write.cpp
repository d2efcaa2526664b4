// compress's companion of a PCD or PLY file: the records read, matched to the stored points, cut
// into the columns of companion_records.h; the points the stream could not hold as rows.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "base/worker_threads.h"
#include "commands/chunk_batches.h"
#include "commands/chunk_walk.h"
#include "commands/companion_las.h"
#include "commands/companion_match.h"
#include "commands/companion_records.h"
#include "commands/companion_write.h"
#include "formats/output_grid.h"
#include "zul_companion.h"

namespace zulconvert {

using namespace zulformats;

namespace {

const auto check = &checkCompanion;

// The file's bytes before its first record and after its last.
std::vector<unsigned char> sourceBytes(const std::string& path, uint64_t begin, uint64_t end) {
    std::ifstream in(path, std::ios::binary);
    std::vector<unsigned char> bytes;
    const uint64_t size = std::filesystem::file_size(path);
    if (!in || begin > end || end > size) {
        throw FormatError(path + ": cannot be read again for its header");
    }
    bytes.resize(static_cast<size_t>(begin + (size - end)));
    in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(begin));
    in.seekg(static_cast<std::streamoff>(end));
    in.read(reinterpret_cast<char*>(bytes.data() + begin),
            static_cast<std::streamsize>(size - end));
    if (!in) throw FormatError(path + ": changed while it was compressed");
    return bytes;
}

// How far the stream moves a geometry field from the file's values: the largest distance (NaN
// once one is not finite) and how many values it changes.
struct Rounding {
    double largest = 0;
    int64_t changed = 0;
};

// A distance of the note, rounded up to 3 digits; `half` (half a step) when within it.
std::string distanceText(double distance, double half) {
    char text[32];
    if (distance <= half) {
        std::snprintf(text, sizeof text, "%.6g", half);
    } else {
        const double unit = std::pow(10.0, std::floor(std::log10(distance)) - 2);
        std::snprintf(text, sizeof text, "%.3g", std::ceil(distance / unit) * unit);
    }
    return text;
}

// What the stream rounds of the positions (`normals` false) or normals, as the tool's note and the
// report's change: empty when no value changes.
std::string roundingNote(bool normals, double step, const Rounding& r, bool forPython) {
    if (r.changed == 0) return std::string();
    char stepText[32];
    std::snprintf(stepText, sizeof stepText, "%.6g", step);
    const std::string how =
        normals ? "normals are kept as the stream's directions, each component within " +
                      distanceText(r.largest, 0) + " of its float"
                : std::string("positions are kept at a step of ") + stepText + ", each within " +
                      distanceText(r.largest, step / 2) + " of its float";
    return how + (forPython ? " (exact=True keeps their float bits in the companion)"
                            : " (--exact keeps their float bits in the companion)");
}

// A normal's component the stream moves farther than this is no rounding: its bits are kept.
constexpr double kNormalLimit = 0.05;

}  // namespace

std::string CompanionRecorder::writeRecords(const std::string& streamPath,
                                            const std::string& companionPath, int threads) {
    const std::string shown = zulconvert::companionPath(options_.output);
    RecordLayout layout = *reader_.records();
    if (isTextFormat(format_)) wholeNumberColumns(layout, records_);
    const size_t width = layout.size;
    const std::vector<RecordColumn> columns = recordColumns(layout);

    // Pass 1: every stored point's input point, and the differences of the fields the stream
    // holds from what it gives.
    IndexGuard index;
    ZulFileHead head;
    const std::vector<int64_t> chunkList = openWrittenStream(streamPath, shown, index, head);
    std::vector<int64_t> chunkStart(1, 0);
    std::vector<uint64_t> inputOf;
    std::vector<std::vector<unsigned char>> residuals(columns.size());
    std::vector<bool> anyResidual(columns.size(), false);
    std::vector<Rounding> rounding(columns.size());
    PointMatcher matcher(keys_, kept_);
    ChunkBatches batches(streamPath, index.index, false, chunkList, threads);
    const zul_Header2& header = head.header;
    unsigned char given[8], value[8];
    while (batches.next()) {
        const zul_bulk_Points& points = batches.points();
        for (int64_t i = 0; i < points.numPoints; ++i) {
            const double* g = points.positions + 3 * i;
            const int64_t key[3] = {nearestInteger(g[0]), nearestInteger(g[1]),
                                    nearestInteger(g[2])};
            const int64_t found = matcher.take(key);
            if (found < 0) {
                throw FormatError(shown + ": a stored point matches no point of " + options_.input +
                                  "; compress with --no-companion");
            }
            inputOf.push_back(static_cast<uint64_t>(found));
            StreamPoint p{{0, 0, 0},
                          points.colors ? points.colors + 3 * i : nullptr,
                          points.reflections ? points.reflections + i : nullptr,
                          points.normals ? points.normals + 3 * i : nullptr};
            residualWorld(g, header.transformation, header.enabled, p.q);
            const unsigned char* record = records_.data() + static_cast<size_t>(found) * width;
            for (size_t c = 0; c < columns.size(); ++c) {
                if (!columns[c].residual) continue;
                const RecordField& field = layout.fields[columns[c].field];
                streamValue(field, p, intensityFactor_, given);
                std::memcpy(value, record + field.offset, static_cast<size_t>(field.size));
                if (roundedGeometry(field) &&
                    std::memcmp(value, given, static_cast<size_t>(field.size)) != 0) {
                    Rounding& r = rounding[c];
                    const double d = std::fabs(loadNumber(field, value) - loadNumber(field, given));
                    if (!(d <= r.largest) && r.largest == r.largest) r.largest = d;  // NaN stays
                    ++r.changed;
                }
                subtractValue(value, given, field.size);
                residuals[c].insert(residuals[c].end(), value, value + field.size);
                if (!anyResidual[c])
                    anyResidual[c] = std::any_of(value, value + field.size,
                                                 [](unsigned char b) { return b != 0; });
            }
        }
        for (size_t c = 0; c < batches.deliveredChunks(); ++c) {
            zul_idx_Chunk chunk = {};
            zul_idx_getChunk(index.index, batches.batchChunks()[c], &chunk);
            chunkStart.push_back(chunkStart.back() + chunk.numPoints);
        }
    }
    if (batches.status() != zul_STATUS_OK) check(batches.status(), shown);

    // Without --exact, the residuals of positions and normals the stream holds within its
    // rounding are left out, and the notes say how far they moved.
    const double step = worldStep(head);
    Rounding moved[2];    // positions, normals
    std::string rounded;  // the residual columns left out
    for (size_t c = 0; c < columns.size(); ++c) {
        const RecordField& field = layout.fields[columns[c].field];
        if (options_.exact || !columns[c].residual || !roundedGeometry(field)) continue;
        const bool normal = field.role >= FieldRole::NX;
        const Rounding& r = rounding[c];
        if (!(r.largest <= (normal ? kNormalLimit : step)) || (normal && !head.present[3]))
            continue;
        anyResidual[c] = false;
        if (r.changed > 0) rounded += (rounded.empty() ? "" : " ") + columns[c].name;
        moved[normal].largest = std::max(moved[normal].largest, r.largest);
        moved[normal].changed += r.changed;
    }
    for (const bool normal : {false, true}) {
        const std::string note = roundingNote(normal, step, moved[normal], false);
        if (!note.empty() && !options_.quiet)
            std::fprintf(stderr, "zul: %s: %s\n", shownInput(options_).c_str(), note.c_str());
        if (!note.empty() && options_.report)
            options_.report->changed.emplace_back(roundingNote(normal, step, moved[normal], true),
                                                  moved[normal].changed);
    }

    // Pass 2: the companion.
    const CompanionWriter output(companionPath, shown);
    const zul_xout_Writer writer = output.get();
    std::vector<int32_t> fieldOf(columns.size(), -1);
    for (size_t c = 0; c < columns.size(); ++c) {
        if (columns[c].residual && !anyResidual[c]) continue;
        check(zul_xout_addField(writer, columns[c].name.c_str(), columns[c].type, columns[c].width,
                                &fieldOf[c]),
              shown);
    }
    if (keepOrder_) check(zul_xout_keepOrder(writer), shown);
    check(zul_xout_setThreads(writer, zulbase::threadsFor(threads)), shown);
    const std::vector<unsigned char> source =
        sourceBytes(options_.input, layout.dataBegin, reader_.dataEnd());
    check(zul_xout_setSource(writer,
                             format_ == Format::Pcd   ? zul_SOURCE_PCD
                             : format_ == Format::Ply ? zul_SOURCE_PLY
                                                      : zul_SOURCE_OTHER,
                             source.data(), source.size()),
          shown);
    check(zul_xout_setFormat(writer, recordFormatText(format_, layout).c_str()), shown);
    check(zul_xout_addConvention(writer, "fields", layoutText(layout).c_str()), shown);
    check(zul_xout_addConvention(writer, "header size", std::to_string(layout.dataBegin).c_str()),
          shown);
    if (!rounded.empty()) check(zul_xout_addConvention(writer, "rounded", rounded.c_str()), shown);
    // A .pts file's first line counts the points.
    if (isTextFormat(format_) && reader_.layout().pointCount >= 0)
        check(zul_xout_addConvention(writer, "count line", "1"), shown);
    check(zul_xout_addConvention(writer, "intensity factor",
                                 shortestDecimal(intensityFactor_).c_str()),
          shown);
    // The input's own name (the user's, for a copy of standard input or a pipe); a name it
    // refuses is left out.
    const std::string ownName = std::filesystem::path(shownInput(options_)).filename().string();
    zul_xout_addConvention(writer, "name", ownName.c_str());
    // The points the stream could not hold, whole, with their record numbers.
    std::vector<uint64_t> rowIndices;
    std::vector<unsigned char> rows;
    for (size_t i = 0; i < kept_.size(); ++i) {
        if (kept_[i]) continue;
        rowIndices.push_back(i);
        rows.insert(rows.end(), records_.begin() + static_cast<std::ptrdiff_t>(i * width),
                    records_.begin() + static_cast<std::ptrdiff_t>((i + 1) * width));
    }
    check(zul_xout_setRows(writer, rowIndices.data(), rows.data(),
                           static_cast<int64_t>(rowIndices.size()), static_cast<int32_t>(width)),
          shown);
    check(zul_xout_bindStreamFile(writer, streamPath.c_str()), shown);
    std::vector<unsigned char> values;
    for (int64_t c = 0; c + 1 < static_cast<int64_t>(chunkStart.size()); ++c) {
        const size_t begin = static_cast<size_t>(chunkStart[c]);
        const size_t n = static_cast<size_t>(chunkStart[c + 1]) - begin;
        for (size_t k = 0; k < columns.size(); ++k) {
            if (fieldOf[k] < 0) continue;
            const RecordColumn& column = columns[k];
            const size_t w = static_cast<size_t>(column.width);
            const unsigned char* at = nullptr;
            if (column.residual) {
                at = residuals[k].data() + begin * w;
            } else {
                values.resize(n * w);
                for (size_t p = 0; p < n; ++p) {
                    std::memcpy(values.data() + p * w,
                                records_.data() + inputOf[begin + p] * width + column.offset, w);
                }
                at = values.data();
            }
            check(zul_xout_writeColumn(writer, c, fieldOf[k], at, static_cast<int64_t>(n)), shown);
        }
        if (keepOrder_) {
            check(zul_xout_writeOrder(writer, c, inputOf.data() + begin, static_cast<int64_t>(n)),
                  shown);
        }
    }
    check(zul_xout_finish(writer, nullptr, nullptr), shown);
    const int fields = static_cast<int>(
        std::count_if(fieldOf.begin(), fieldOf.end(), [](int32_t f) { return f >= 0; }));
    std::string kept =
        std::to_string(fields) + (fields == 1 ? " field" : " fields") + " of every point";
    if (!rowIndices.empty())
        kept += ", the " + std::to_string(rowIndices.size()) +
                (rowIndices.size() == 1 ? " point" : " points") + " the stream cannot hold";
    if (keepOrder_) kept += layout.height > 1 ? ", the organised layout" : ", the input's order";
    return kept + (isTextFormat(format_)
                       ? " and the lines before the first point and after the last"
                       : std::string(" and the ") + formatName(format_) + " header");
}

}  // namespace zulconvert
