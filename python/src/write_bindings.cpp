// Writing: numpy arrays onto the integer grid of a decimal step, encoded by the bulk encoder on
// several threads.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <vector>

#include "base/worker_threads.h"
#include "bindings.h"
#include "commands/chunk_batches.h"
#include "commands/output_file.h"
#include "commands/point_plan.h"
#include "commands/status_text.h"
#include "formats/output_grid.h"
#include "planner/planned_writer.h"
#include "planner/stream_marker.h"
#include "py_errors.h"
#include "zul_bulk.h"

namespace py = pybind11;

namespace zulpy {

namespace {

template <typename T>
using Array = py::array_t<T, py::array::c_style>;

// The transformation a `sensor` dict asks for.
zulconvert::SensorTransform sensorOf(const py::object& sensor) {
    zulconvert::SensorTransform transform;
    if (sensor.is_none()) return transform;
    const py::dict d = sensor.cast<py::dict>();
    if (d.contains("translation"))
        transform.translate = d["translation"].cast<std::vector<double>>();
    if (d.contains("rotation")) {
        for (const auto& row : d["rotation"].cast<std::vector<std::vector<double>>>()) {
            transform.rotate.insert(transform.rotate.end(), row.begin(), row.end());
        }
    }
    if (d.contains("scale")) transform.scale = d["scale"].cast<double>();
    if (d.contains("mount")) transform.mount = d["mount"].cast<int>();
    if (d.contains("type")) transform.type = d["type"].cast<int>();
    transform.header = true;
    if ((!transform.translate.empty() && transform.translate.size() != 3) ||
        (!transform.rotate.empty() && transform.rotate.size() != 9)) {
        throw py::value_error("sensor: translation takes 3 values and rotation 3 rows of 3");
    }
    return transform;
}

// The points through the chunk planner, which cuts them into chunks in `order` block by block.
zul_Status writePlanned(const std::string& path, const zul_DataType& dataType,
                        const zul_Header2& header, const zul_bulk_Points& points,
                        const std::string& order, int32_t chunkSize, int threads) {
    zulplan::PlanOptions options;
    zulplan::parseOrder(order, options.order);
    options.chunk = chunkSize;
    options.threads = zulbase::threadsFor(threads);
    zulplan::PlannedWriter writer;
    zul_Status status = writer.open(path, dataType, header.enabled ? &header : nullptr, options);
    zul_Point point = {};
    for (int64_t i = 0; i < points.numPoints && status == zul_STATUS_OK; ++i) {
        std::copy(points.positions + 3 * i, points.positions + 3 * i + 3, point.position);
        if (points.colors != nullptr) {
            std::copy(points.colors + 3 * i, points.colors + 3 * i + 3, point.color);
        }
        if (points.reflections != nullptr) point.reflection = points.reflections[i];
        if (points.normals != nullptr) {
            std::copy(points.normals + 3 * i, points.normals + 3 * i + 3, point.normal);
        }
        status = writer.write(point);
    }
    const zul_Status closed = writer.close();
    return status != zul_STATUS_OK ? status : closed;
}

// The points in their order, `chunkSize` a chunk, through the bulk writer, with the sync marker
// drawn from the points.
zul_Status writeInOrder(const std::string& path, const zul_DataType& dataType,
                        const zul_Header2& header, const zul_bulk_Points& points, int32_t chunkSize,
                        int threads, int64_t& failed) {
    zulplan::StreamMarker marker(dataType, &header);
    marker.add(points.positions, points.colors, points.reflections, points.normals,
               static_cast<size_t>(points.numPoints));
    char bytes[ZUL_SYNC_MARKER_SIZE];
    marker.finish(bytes);
    std::vector<int32_t> sizes;
    for (int64_t first = 0; first < points.numPoints; first += chunkSize)
        sizes.push_back(
            static_cast<int32_t>(std::min<int64_t>(chunkSize, points.numPoints - first)));
    zul_bulk_Writer writer = nullptr;
    errno = 0;
    zul_Status status = zul_bulk_openWriter(&writer, path.c_str(), &dataType, &header, bytes,
                                            threads, ZUL_BULK_WRITE_REPLACE);
    if (status == zul_STATUS_OK)
        status = zul_bulk_writeChunks(writer, &points, sizes.data(),
                                      static_cast<int64_t>(sizes.size()), &failed);
    if (status != zul_STATUS_OK) {
        const int reason = errno;
        zul_bulk_abortWriter(&writer);
        errno = reason;
        return status;
    }
    return zul_bulk_closeWriter(&writer);
}

// Encodes the checked arrays into `path`. Positions are divided by `step` onto the integer grid.
// In the input's order, `chunkSize` points a chunk are encoded by the bulk encoder; otherwise the
// chunk planner cuts them; either way on `threads` threads (0: every core). As the tool writes:
// into a unique temporary file put in place when whole; a device, a pipe or a socket written
// through, a symbolic link followed, never replaced.
void write(const std::string& path, const Array<double>& positions, const py::object& colors,
           const py::object& reflections, const py::object& normals, double step,
           int32_t maxReflection, int colorMode, const py::object& sensor, const std::string& order,
           int32_t chunkSize, int threads) {
    const int64_t n = positions.shape(0);
    zul_DataType dataType;
    zul_init_headers(&dataType, nullptr);
    dataType.quantizationStep = 1.0f;
    dataType.colorMode = static_cast<zul_ColorMode>(colorMode);
    zulconvert::GridPlan grid;
    grid.step = step;
    const zul_Header2 header = zulconvert::gridHeader(sensorOf(sensor), grid);

    std::vector<double> onGrid(static_cast<size_t>(3 * n));
    zul_bulk_Points points = {n, onGrid.data(), nullptr, nullptr, nullptr};
    Array<uint8_t> colorArray;
    Array<int32_t> reflectionArray;
    Array<float> normalArray;
    if (!colors.is_none()) {
        colorArray = colors.cast<Array<uint8_t>>();
        points.colors = const_cast<uint8_t*>(colorArray.data());
    }
    if (!reflections.is_none()) {
        reflectionArray = reflections.cast<Array<int32_t>>();
        points.reflections = const_cast<int32_t*>(reflectionArray.data());
        dataType.reflectionMode = zul_REFLECTION_CLAMPED;
        dataType.maxReflection = maxReflection;
    }
    if (!normals.is_none()) {
        normalArray = normals.cast<Array<float>>();
        points.normals = const_cast<float*>(normalArray.data());
        dataType.normalMode = zul_NORMAL_SPHERICAL;
    }
    int64_t failed = -1;
    zul_Status status;
    bool tooFar = false;
    int reason = 0;
    zulconvert::OutputFile output(path, true);
    const std::string& temporary = output.temporaryPath();
    {
        py::gil_scoped_release release;
        const double* p = positions.data();
        for (size_t i = 0; i < onGrid.size(); ++i) {
            onGrid[i] = p[i] / step;
            tooFar = tooFar || !(std::fabs(onGrid[i]) <= 9007199254740992.0);
        }
        if (tooFar) {
            status = zul_STATUS_OK;
        } else if (order == "input") {
            status = writeInOrder(temporary, dataType, header, points, chunkSize, threads, failed);
        } else {
            status = writePlanned(temporary, dataType, header, points, order, chunkSize, threads);
        }
        reason = errno;
    }
    if (tooFar) {
        throw py::value_error("positions: a coordinate lies too far out for a step of " +
                              zulformats::shortestDecimal(step) + " (give a larger step)");
    }
    if (status == zul_STATUS_INVALID_ARGUMENT) {
        throw py::value_error(path +
                              ": the library refused the data type, the sensor header or "
                              "the chunk plan (invalid argument)");
    }
    if (status == zul_STATUS_WRITE_ERROR && reason != 0) {
        throw Failure(path + ": " + zulconvert::statusText(status, zulconvert::ZulStage::Write) +
                          ": " + std::strerror(reason),
                      status, failed);
    }
    check(status, path, failed);
    output.commit();
}

}  // namespace

void bindWrite(py::module_& m) {
    m.def("write", &write, py::arg("path"), py::arg("positions"), py::arg("colors"),
          py::arg("reflections"), py::arg("normals"), py::arg("step"), py::arg("max_reflection"),
          py::arg("color_mode"), py::arg("sensor"), py::arg("order"), py::arg("chunk_size"),
          py::arg("threads"));
}

}  // namespace zulpy
