// The companion NAME.zulx from Python: its columns read chunk by chunk into numpy arrays of their
// types (and the input's order), and a companion of numpy arrays written beside a stream that
// zul.write made, each value matched to its stored point.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cmath>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "base/limits.h"
#include "bindings.h"
#include "commands/chunk_batches.h"
#include "commands/chunk_walk.h"
#include "commands/companion_match.h"
#include "commands/companion_write.h"
#include "commands/output_file.h"
#include "py_errors.h"
#include "zul_companion.h"

namespace py = pybind11;

namespace zulpy {

namespace {

// numpy's type codes of the companion's types, by zul_FieldType.
const char* const kTypeCodes[] = {"",   "u1", "i1", "u2", "i2", "u4",
                                  "i4", "u8", "i8", "f4", "f8", "u1"};

void checkCompanion(zul_Status status, const std::string& path) {
    if (status != zul_STATUS_OK) {
        throw Failure(path + ": the companion cannot be read (" + zul_x_statusText(status) + ")",
                      status);
    }
}

class Companion {
public:
    // Opens the companion at `path` and binds it to the stream at `streamPath`.
    Companion(const std::string& path, const std::string& streamPath) : path_(path) {
        zul_Status status = zul_xin_openFile(&reader_, path.c_str());
        if (status == zul_STATUS_OK) status = zul_xin_bindStreamFile(reader_, streamPath.c_str());
        if (status == zul_STATUS_COMPANION_MISMATCH) {
            zul_xin_close(&reader_);
            throw Failure(
                path + " does not belong to " + streamPath + " (another stream's companion)",
                status);
        }
        if (status != zul_STATUS_OK) zul_xin_close(&reader_);
        checkCompanion(status, path);
        zul_xin_getInfo(reader_, &info_);
    }
    ~Companion() { zul_xin_close(&reader_); }
    Companion(const Companion&) = delete;
    Companion& operator=(const Companion&) = delete;

    // (name, numpy type code, bytes a value) a field.
    std::vector<py::tuple> fields() const {
        std::vector<py::tuple> result;
        for (int32_t f = 0; f < info_.numFields; ++f) {
            zul_FieldInfo field = {};
            zul_xin_getField(reader_, f, &field);
            result.push_back(
                py::make_tuple(std::string(field.name), kTypeCodes[field.type], field.width));
        }
        return result;
    }

    bool hasOrder() const { return info_.hasOrder != 0; }

    std::map<std::string, std::string> conventions() const {
        std::map<std::string, std::string> result;
        int32_t count = 0;
        zul_xin_getConventionCount(reader_, &count);
        for (int32_t i = 0; i < count; ++i) {
            const char *key = nullptr, *value = nullptr;
            zul_xin_getConvention(reader_, i, &key, &value);
            result[key] = value;
        }
        const char* format = nullptr;
        zul_xin_getFormat(reader_, &format);
        result["format"] = format ? format : "";
        return result;
    }

    // Field `field` of the chunks `chunks`, back to back, as a numpy array of its type (raw
    // bytes: n rows of its width).
    py::array column(const std::vector<int64_t>& chunks, int32_t field) const {
        zul_FieldInfo info = {};
        checkCompanion(zul_xin_getField(reader_, field, &info), path_);
        const int64_t total = points(chunks);
        const std::vector<py::ssize_t> shape = info.type == zul_FIELD_RAW
                                                   ? std::vector<py::ssize_t>{total, info.width}
                                                   : std::vector<py::ssize_t>{total};
        py::array values(py::dtype(kTypeCodes[info.type]), shape);
        unsigned char* at = static_cast<unsigned char*>(values.mutable_data());
        for (const int64_t chunk : chunks) {
            const int64_t n = pointsOf(chunk);
            checkCompanion(zul_xin_readColumn(reader_, chunk, field, at, n), path_);
            at += n * info.width;
        }
        return values;
    }

    py::array_t<uint64_t> order(const std::vector<int64_t>& chunks) const {
        py::array_t<uint64_t> values(points(chunks));
        uint64_t* at = values.mutable_data();
        for (const int64_t chunk : chunks) {
            const int64_t n = pointsOf(chunk);
            checkCompanion(zul_xin_readOrder(reader_, chunk, at, n), path_);
            at += n;
        }
        return values;
    }

private:
    int64_t pointsOf(int64_t chunk) const {
        zul_CompanionChunk c = {};
        checkCompanion(zul_xin_getChunk(reader_, chunk, &c), path_);
        return c.chunk.numPoints;
    }
    int64_t points(const std::vector<int64_t>& chunks) const {
        int64_t total = 0;
        for (const int64_t chunk : chunks) total += pointsOf(chunk);
        return total;
    }

    std::string path_;
    zul_xin_Reader reader_ = nullptr;
    zul_CompanionInfo info_ = {};
};

// Writes the companion of `fields` (name, array of one value a point in the input's order)
// beside the stream at `streamPath`, which zul.write made of `positions` on the grid of `step`:
// each stored point takes the input point on its grid point (as compress matches them).
void writeCompanion(const std::string& streamPath, const py::array_t<double>& positions,
                    double step, const std::vector<std::pair<std::string, py::array>>& fields,
                    bool keepOrder, int threads) {
    const int64_t n = positions.shape(0);
    const std::string path = zulconvert::companionPath(streamPath);
    std::vector<int64_t> keys(static_cast<size_t>(3 * n));
    const double* p = positions.data();
    for (size_t i = 0; i < keys.size(); ++i) keys[i] = std::llround(p[i] / step);
    const std::vector<uint8_t> kept(static_cast<size_t>(n), 1);
    zul_xout_Writer writer = nullptr;
    zulconvert::OutputFile output(path, true);
    zul_Status status = zul_xout_open(&writer, output.temporaryPath().c_str());
    struct Closer {
        zul_xout_Writer& w;
        ~Closer() { zul_xout_close(&w); }
    } closer{writer};
    std::vector<int> widths;
    for (const auto& [name, array] : fields) {
        const std::string code = array.dtype().kind() + std::to_string(array.itemsize());
        int type = 0;
        for (int t = 1; t <= zul_FIELD_F64; ++t)
            if (code == kTypeCodes[t]) type = t;
        if (type == 0 || array.ndim() != 1 || array.shape(0) != n) {
            throw py::value_error("fields[\"" + name +
                                  "\"]: give a one-dimensional array of one number a point "
                                  "(integers or floats of 1 to 8 bytes)");
        }
        if (status == zul_STATUS_OK)
            status = zul_xout_addField(writer, name.c_str(), static_cast<zul_FieldType>(type), 0,
                                       nullptr);
        if (status == zul_STATUS_INVALID_ARGUMENT)
            throw py::value_error("fields: \"" + name + "\" is empty, repeated or longer than " +
                                  std::to_string(ZUL_FIELD_NAME_MAX) + " bytes");
        widths.push_back(static_cast<int>(array.itemsize()));
    }
    if (status == zul_STATUS_OK && keepOrder) status = zul_xout_keepOrder(writer);
    if (status == zul_STATUS_OK) status = zul_xout_setFormat(writer, "numpy arrays");
    if (status == zul_STATUS_OK) status = zul_xout_bindStreamFile(writer, streamPath.c_str());
    checkCompanion(status, path);
    std::vector<py::array> arrays;
    for (const auto& field : fields)
        arrays.push_back(py::array::ensure(field.second, py::array::c_style));

    py::gil_scoped_release release;
    zulconvert::IndexGuard index;
    zulconvert::ZulFileHead head;
    check(zulconvert::openIndex(streamPath, false, zulbase::kMaxChunkBudgetMiB, 0, index, head),
          streamPath);
    int64_t numChunks = 0;
    zul_idx_getCounts(index.index, &numChunks, nullptr);
    std::vector<int64_t> chunkList(static_cast<size_t>(numChunks));
    for (int64_t c = 0; c < numChunks; ++c) chunkList[static_cast<size_t>(c)] = c;
    zulconvert::PointMatcher matcher(keys, kept);
    zulconvert::ChunkBatches batches(streamPath, index.index, false, chunkList, threads);
    std::vector<uint64_t> inputOf;
    std::vector<unsigned char> values;
    while (batches.next()) {
        const zul_bulk_Points& points = batches.points();
        int64_t at = 0;
        for (size_t b = 0; b < batches.deliveredChunks(); ++b) {
            const int64_t chunk = batches.batchChunks()[b];
            zul_idx_Chunk info = {};
            zul_idx_getChunk(index.index, chunk, &info);
            inputOf.clear();
            for (int64_t i = 0; i < info.numPoints; ++i) {
                const double* g = points.positions + 3 * (at + i);
                const int64_t key[3] = {std::llround(g[0]), std::llround(g[1]), std::llround(g[2])};
                const int64_t found = matcher.take(key);
                if (found < 0) {
                    py::gil_scoped_acquire acquire;
                    throw py::value_error(path + ": a stored point matches none of the positions");
                }
                inputOf.push_back(static_cast<uint64_t>(found));
            }
            for (size_t f = 0; f < arrays.size() && status == zul_STATUS_OK; ++f) {
                const size_t w = static_cast<size_t>(widths[f]);
                const unsigned char* source = static_cast<const unsigned char*>(arrays[f].data());
                values.resize(inputOf.size() * w);
                for (size_t i = 0; i < inputOf.size(); ++i)
                    std::memcpy(values.data() + i * w, source + inputOf[i] * w, w);
                status = zul_xout_writeColumn(writer, chunk, static_cast<int32_t>(f), values.data(),
                                              info.numPoints);
            }
            if (status == zul_STATUS_OK && keepOrder)
                status = zul_xout_writeOrder(writer, chunk, inputOf.data(), info.numPoints);
            at += info.numPoints;
        }
    }
    check(batches.status(), streamPath);
    if (status == zul_STATUS_OK) status = zul_xout_finish(writer, nullptr, nullptr);
    {
        py::gil_scoped_acquire acquire;
        checkCompanion(status, path);
    }
    output.commit();
}

}  // namespace

void bindCompanion(py::module_& m) {
    py::class_<Companion>(m, "Companion")
        .def(py::init<const std::string&, const std::string&>(), py::arg("path"), py::arg("stream"))
        .def("fields", &Companion::fields)
        .def("conventions", &Companion::conventions)
        .def_property_readonly("has_order", &Companion::hasOrder)
        .def("column", &Companion::column, py::arg("chunks"), py::arg("field"))
        .def("order", &Companion::order, py::arg("chunks"));
    m.def("companion_path", &zulconvert::companionPath, py::arg("stream"));
    m.def("write_companion", &writeCompanion, py::arg("stream"), py::arg("positions"),
          py::arg("step"), py::arg("fields"), py::arg("keep_order"), py::arg("threads"));
}

}  // namespace zulpy
