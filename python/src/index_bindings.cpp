// Reading: the chunk index of a file, box selection, and bulk decoding straight into numpy arrays
// with the GIL released.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <vector>

#include "base/limits.h"
#include "bindings.h"
#include "formats/output_grid.h"
#include "py_errors.h"
#include "zul/error.hpp"
#include "zul_bulk.h"

namespace py = pybind11;

namespace zulpy {

namespace {

class Index {
public:
    // Over a file, or over `bytes` kept alive with the index.
    // With a budget of `budgetMiB` a chunk decoded and a density limit of `density` points a
    // byte (0: none): a chunk that claims more points ends the list as damage would, before
    // anything is allocated.
    // With `start`, over the stream that begins at that byte of the file (a later one of
    // several one after another), read by offset as the first stream is.
    Index(const std::string& path, bool transform, int64_t budgetMiB, int64_t density,
          std::string bytes = std::string(), bool inMemory = false, int64_t start = 0)
        : path_(path), bytes_(std::move(bytes)), start_(start) {
        if (path.find('\0') != std::string::npos)
            throw py::value_error("path: a NUL character cannot be part of a file name");
        view_ = bytes_.data();
        viewBytes_ = bytes_.size();
        if (!zulbase::chunkBudgetValid(budgetMiB)) {
            throw py::value_error("chunk_budget: give 1 to " +
                                  std::to_string(zulbase::kMaxChunkBudgetMiB) + " MiB");
        }
        if (!zulbase::pointDensityValid(density)) {
            throw py::value_error("point_density: give 0 to " +
                                  std::to_string(zulbase::kMaxPointDensity));
        }
        const zul_dec_Params params = {transform ? 1 : 0, {0, 0, 0, 0}};
        zul_Status status = inMemory ? zul_idx_openBuffer(&index_, view_, viewBytes_, &params)
                                     : zul_idx_openFileAt(&index_, path.c_str(), start, &params);
        if (status == zul_STATUS_OK && budgetMiB != zulbase::kDefaultChunkBudgetMiB)
            status = zul_idx_setChunkBudget(index_, budgetMiB << 20);
        if (status == zul_STATUS_OK && density != zulbase::kDefaultPointDensity)
            status = zul_idx_setPointDensity(index_, density);
        if (status != zul_STATUS_OK) {
            zul_idx_close(&index_);
            check(status, path_);
        }
        budgetMiB_ = budgetMiB;
        density_ = density;
        zul_idx_getDataType(index_, &dataType_, &header_);
        zul_idx_getCounts(index_, &chunkCount_, &pointCount_);
        transform_ = transform;
        // The index listed its chunks under its default limits: a lower one ends the list at the
        // first chunk past it.
        int64_t before = 0;
        for (int64_t i = 0; i < chunkCount_; ++i) {
            zul_idx_Chunk c;
            zul_idx_getChunk(index_, i, &c);
            before += c.numPoints;
            if (c.numPoints * perPoint() <= (budgetMiB << 20) &&
                (density == 0 ||
                 before <= ZUL_BULK_DENSITY_ALLOWANCE + density * (c.offset + c.size)))
                continue;
            overBudget_ = c;
            std::vector<int64_t> before(static_cast<size_t>(i));
            for (int64_t k = 0; k < i; ++k) before[static_cast<size_t>(k)] = k;
            zul_idx_countPoints(index_, before.data(), i, &pointCount_);
            chunkCount_ = i;
            break;
        }
    }
    ~Index() { zul_idx_close(&index_); }
    Index(const Index&) = delete;
    Index& operator=(const Index&) = delete;

    py::dict dataType() const {
        py::dict d;
        d["step"] = zulformats::outputGrid(dataType_, header_, transform_).step;
        d["step_text"] = zulformats::stepText(dataType_, header_);
        d["stored_step"] = static_cast<double>(dataType_.quantizationStep);
        d["color"] = dataType_.colorMode == zul_COLOR_RGB888   ? py::object(py::str("rgb888"))
                     : dataType_.colorMode == zul_COLOR_RGB565 ? py::object(py::str("rgb565"))
                                                               : py::object(py::none());
        d["max_reflection"] = dataType_.reflectionMode != zul_REFLECTION_NONE
                                  ? py::object(py::int_(dataType_.maxReflection))
                                  : py::object(py::none());
        d["normals"] = dataType_.normalMode != zul_NORMAL_NONE;
        return d;
    }

    py::object sensor() const {
        if (!header_.enabled) return py::none();
        py::dict d;
        d["mount"] = static_cast<int>(header_.sensorMount);
        d["type"] = static_cast<int>(header_.sensorType);
        d["may_scale"] = header_.hasScaling;
        d["may_rotate"] = header_.hasRotation;
        d["may_translate"] = header_.hasTranslation;
        py::array_t<double> matrix({4, 4});
        auto m = matrix.mutable_unchecked<2>();
        for (int row = 0; row < 4; ++row) {
            for (int column = 0; column < 4; ++column)
                m(row, column) = header_.transformation[4 * column + row];
        }
        d["matrix"] = matrix;
        return std::move(d);
    }

    py::list chunks() const {
        py::list list;
        for (int64_t i = 0; i < chunkCount_; ++i) {
            zul_idx_Chunk c;
            zul_idx_getChunk(index_, i, &c);
            list.append(py::make_tuple(start_ + c.offset, c.size, c.numPoints,
                                       py::make_tuple(c.min[0], c.min[1], c.min[2]),
                                       py::make_tuple(c.max[0], c.max[1], c.max[2])));
        }
        return list;
    }

    // (status code, status name, chunk, byte offset, message) of where the index stopped, or
    // None for a stream that ends cleanly.
    py::object damage() const {
        zul_Status status = zul_STATUS_OK;
        int64_t chunk = 0, offset = 0;
        zul_idx_getDamage(index_, &status, &chunk, &offset);
        if (overBudget_.size > 0) {
            status = zul_STATUS_OVER_BUDGET;
            chunk = chunkCount_;
            offset = overBudget_.offset;
        }
        if (status == zul_STATUS_OK) return py::none();
        offset += start_;
        try {
            check(status, path_, chunk, offset);
        } catch (const Failure& failure) {
            std::string message = failure.what();
            // A wrong sync marker where the next chunk would begin, and the bytes there the
            // signature of a stream: one stream after another, as `cat a.zul b.zul` makes.
            if (nextStream() >= 0) {
                message = path_ + ": another zul stream begins at byte " + std::to_string(offset) +
                          " (a file of streams one after another, as cat makes): zul.read, "
                          "zul.Reader, zul.chunks and zul.decompress read them all, one index "
                          "a stream";
            }
            if (status == zul_STATUS_OVER_BUDGET) message += overText(offset - start_);
            return py::make_tuple(static_cast<int>(status), zul::statusName(status), chunk, offset,
                                  message);
        }
        return py::none();
    }

    std::vector<int64_t> select(const std::vector<double>& box) const {
        if (box.size() != 6)
            throw py::value_error("bbox: give (minx, miny, minz, maxx, maxy, maxz)");
        int64_t count = 0;
        const zul_Status first =
            zul_idx_selectBox(index_, box.data(), box.data() + 3, nullptr, 0, &count);
        if (first == zul_STATUS_INVALID_ARGUMENT) {
            throw py::value_error(
                "bbox: every value a number and each minimum at most its maximum");
        }
        check(first, path_);
        std::vector<int64_t> chosen(static_cast<size_t>(count));
        check(zul_idx_selectBox(index_, box.data(), box.data() + 3, chosen.data(), count, &count),
              path_);
        return chosen;
    }

    // The points of `chunks` (all, for None) as numpy arrays, decoded on `threads` threads
    // without the GIL; a damaged chunk raises zul.Error naming it.
    py::dict decode(const py::object& chunkList, int threads) const {
        std::vector<int64_t> chunks;
        if (chunkList.is_none()) {
            chunks.resize(static_cast<size_t>(chunkCount_));
            for (int64_t i = 0; i < chunkCount_; ++i) chunks[static_cast<size_t>(i)] = i;
        } else {
            chunks = chunkList.cast<std::vector<int64_t>>();
        }
        int64_t count = 0;
        const zul_Status counted =
            zul_idx_countPoints(index_, chunks.data(), static_cast<int64_t>(chunks.size()), &count);
        if (counted == zul_STATUS_INVALID_ARGUMENT)
            throw py::index_error("chunk number out of range");
        check(counted, path_);
        // Arrays the machine cannot hold are refused before they are allocated: an
        // over-committed allocation would be filled until the system kills the interpreter.
        const int64_t perPoint = 24 + (dataType_.colorMode != zul_COLOR_NONE ? 3 : 0) +
                                 (dataType_.reflectionMode != zul_REFLECTION_NONE ? 4 : 0) +
                                 (dataType_.normalMode != zul_NORMAL_NONE ? 12 : 0);
        const double memory = static_cast<double>(::sysconf(_SC_PHYS_PAGES)) *
                              static_cast<double>(::sysconf(_SC_PAGE_SIZE));
        if (memory > 0 && static_cast<double>(count) * perPoint > memory) {
            const std::string message =
                path_ + ": its " + std::to_string(count) + " points take " +
                std::to_string(static_cast<int64_t>(count * perPoint >> 20)) +
                " MiB decoded, more than this machine's memory (read it by box or with "
                "zul.Reader, chunk by chunk)";
            PyErr_SetString(PyExc_MemoryError, message.c_str());
            throw py::error_already_set();
        }
        const py::ssize_t n = static_cast<py::ssize_t>(count);
        py::array_t<double> positions({n, py::ssize_t{3}});
        py::object colors = py::none(), reflections = py::none(), normals = py::none();
        zul_bulk_Points points = {count, positions.mutable_data(), nullptr, nullptr, nullptr};
        if (dataType_.colorMode != zul_COLOR_NONE) {
            py::array_t<uint8_t> a({n, py::ssize_t{3}});
            points.colors = a.mutable_data();
            colors = a;
        }
        if (dataType_.reflectionMode != zul_REFLECTION_NONE) {
            py::array_t<int32_t> a(n);
            points.reflections = a.mutable_data();
            reflections = a;
        }
        if (dataType_.normalMode != zul_NORMAL_NONE) {
            py::array_t<float> a({n, py::ssize_t{3}});
            points.normals = a.mutable_data();
            normals = a;
        }
        int64_t failed = -1;
        zul_Status status;
        {
            py::gil_scoped_release release;
            status =
                zul_bulk_decodeChunks(index_, chunks.data(), static_cast<int64_t>(chunks.size()),
                                      threads, &points, &failed);
        }
        if (status != zul_STATUS_OK) {
            zul_idx_Chunk c = {};
            if (failed >= 0) zul_idx_getChunk(index_, failed, &c);
            check(status, path_, failed, failed >= 0 ? start_ + c.offset : -1);
        }
        py::dict result;
        result["positions"] = positions;
        result["colors"] = colors;
        result["reflections"] = reflections;
        result["normals"] = normals;
        return result;
    }

    // The byte where another stream begins after the last chunk of this one, or -1: the index
    // stopped at a wrong sync marker where the next chunk would begin, and the bytes there are
    // the signature of a stream.
    int64_t nextStream() const {
        zul_Status status = zul_STATUS_OK;
        int64_t chunk = 0, offset = 0;
        zul_idx_getDamage(index_, &status, &chunk, &offset);
        if (status != zul_STATUS_CORRUPT_DATA || chunk != chunkCount_ || overBudget_.size > 0)
            return -1;
        const std::string signature = bytesAt(0, 3);
        if (signature.empty() || bytesAt(offset, 3) != signature) return -1;
        return start_ + offset;
    }

    int64_t start() const { return start_; }
    int64_t numChunks() const { return chunkCount_; }
    int64_t numPoints() const { return pointCount_; }

private:
    // The `size` bytes at `at` of the stream, or "" if it holds fewer.
    std::string bytesAt(int64_t at, size_t size) const {
        std::string bytes(size, '\0');
        if (view_ != nullptr && viewBytes_ > 0) {
            if (at < 0 || at + static_cast<int64_t>(size) > static_cast<int64_t>(viewBytes_))
                return "";
            std::memcpy(bytes.data(), view_ + at, size);
        } else {
            std::ifstream in(path_, std::ios::binary);
            if (!in.seekg(start_ + at) ||
                !in.read(bytes.data(), static_cast<std::streamsize>(size)))
                return "";
        }
        return bytes;
    }

    // The count the header of the chunk at `offset` claims, behind its sync marker and its box,
    // then the sizes of its streams; false if they cannot be read.
    bool readClaim(int64_t offset, int64_t& count, int64_t& chunkBytes) const {
        const int64_t at = offset + ZUL_SYNC_MARKER_SIZE + 48;
        const int streams = 1 + (dataType_.colorMode != zul_COLOR_NONE) +
                            (dataType_.reflectionMode != zul_REFLECTION_NONE) +
                            (dataType_.normalMode != zul_NORMAL_NONE);
        const int64_t wanted = 4 * (1 + streams);
        const std::string fields = bytesAt(at, static_cast<size_t>(wanted));
        if (fields.empty()) return false;
        const auto word = [&](int k) {
            const auto* w = reinterpret_cast<const unsigned char*>(fields.data()) + 4 * k;
            return int64_t{w[0]} | int64_t{w[1]} << 8 | int64_t{w[2]} << 16 | int64_t{w[3]} << 24;
        };
        count = word(0);
        chunkBytes = ZUL_SYNC_MARKER_SIZE + 48 + wanted;
        for (int k = 1; k <= streams; ++k) chunkBytes += word(k);
        return true;
    }

    // Why the chunk at `offset` was refused: its claimed count past the budget or past the
    // density limit, and how to raise it.
    std::string overText(int64_t offset) const {
        int64_t count = -1, chunkBytes = -1;
        if (!readClaim(offset, count, chunkBytes)) return std::string();
        if ((count * perPoint() + (1 << 20) - 1) >> 20 > budgetMiB_) {
            return "; it claims " + std::to_string(count) + " points, past the budget of " +
                   std::to_string(budgetMiB_) + " MiB a chunk (chunk_budget raises it)";
        }
        return "; it claims " + std::to_string(count) + " points in its " +
               std::to_string(chunkBytes) + " bytes, bringing the first " +
               std::to_string(start_ + offset + chunkBytes) + " bytes to " +
               std::to_string(pointCount_ + count) + " points, past the density limit (" +
               std::to_string(ZUL_BULK_DENSITY_ALLOWANCE) + " points and " +
               std::to_string(density_) + " for each byte; point_density raises it, 0 lifts it)";
    }

    // Bytes a point takes decoded, as the index counts them against its budget.
    int64_t perPoint() const {
        return ZUL_BULK_DECODED_BYTES_PER_POINT + 24 +
               (dataType_.colorMode != zul_COLOR_NONE ? 3 : 0) +
               (dataType_.reflectionMode != zul_REFLECTION_NONE ? 4 : 0) +
               (dataType_.normalMode != zul_NORMAL_NONE ? 12 : 0);
    }

    std::string path_;
    std::string bytes_;
    int64_t start_ = 0;           // where the stream begins in the file
    const char* view_ = nullptr;  // the stream's bytes, when read from memory
    size_t viewBytes_ = 0;
    int64_t budgetMiB_ = zulbase::kDefaultChunkBudgetMiB;
    int64_t density_ = zulbase::kDefaultPointDensity;
    zul_idx_Chunk overBudget_ = {};  // the first listed chunk past a budget below the default
    zul_idx_Index index_ = nullptr;
    zul_DataType dataType_;
    zul_Header2 header_;
    int64_t chunkCount_ = 0, pointCount_ = 0;
    bool transform_ = true;
};

// The stream head and the chunks at `ranges` ((offset, bytes) pairs) of the file at `path`, read
// by offset and nothing else, as one stream in memory.
std::unique_ptr<Index> rangesIndex(const std::string& path, int64_t headBytes,
                                   const std::vector<std::pair<int64_t, int64_t>>& ranges,
                                   bool transform, int64_t budgetMiB, int64_t density) {
    std::ifstream in(path, std::ios::binary);
    if (!in) check(zul_STATUS_READ_ERROR, path);
    int64_t total = headBytes;
    for (const auto& range : ranges) total += range.second;
    std::string bytes(static_cast<size_t>(total), '\0');
    char* at = bytes.data();
    const auto readAt = [&](int64_t offset, int64_t size) {
        in.seekg(offset);
        if (!in.read(at, size)) check(zul_STATUS_TRUNCATED, path);
        at += size;
    };
    readAt(0, headBytes);
    for (const auto& range : ranges) readAt(range.first, range.second);
    return std::make_unique<Index>(path, transform, budgetMiB, density, std::move(bytes), true);
}

}  // namespace

void bindIndex(py::module_& m) {
    py::class_<Index>(m, "Index")
        .def(py::init([](const std::string& path, bool transform, int64_t budgetMiB,
                         int64_t density, int64_t start) {
                 return std::make_unique<Index>(path, transform, budgetMiB, density, std::string(),
                                                false, start);
             }),
             py::arg("path"), py::arg("transform") = true,
             py::arg("chunk_budget") = zulbase::kDefaultChunkBudgetMiB,
             py::arg("point_density") = zulbase::kDefaultPointDensity, py::arg("start") = 0)
        .def("next_stream", &Index::nextStream)
        .def_property_readonly("start", &Index::start)
        .def("data_type", &Index::dataType)
        .def("sensor", &Index::sensor)
        .def("chunks", &Index::chunks)
        .def("damage", &Index::damage)
        .def("select", &Index::select)
        .def("decode", &Index::decode, py::arg("chunks") = py::none(), py::arg("threads") = 0)
        .def_property_readonly("num_chunks", &Index::numChunks)
        .def_property_readonly("num_points", &Index::numPoints);
    m.def("ranges_index", &rangesIndex, py::arg("path"), py::arg("head_bytes"), py::arg("ranges"),
          py::arg("transform") = true, py::arg("chunk_budget") = zulbase::kDefaultChunkBudgetMiB,
          py::arg("point_density") = zulbase::kDefaultPointDensity);
}

}  // namespace zulpy
