// The tool's own conversions of LAS, PCD, PLY, text and KITTI files, from Python.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <vector>

#include "base/limits.h"
#include "bindings.h"
#include "commands/commands.h"
#include "py_errors.h"

namespace py = pybind11;

namespace zulpy {

namespace {

template <typename T>
void take(py::dict& options, const char* key, T& field) {
    if (!options.contains(key)) return;
    field = options[key].cast<T>();
    PyDict_DelItemString(options.ptr(), key);
}

// A NUL would end the name the system sees early: another file would be opened or written.
void checkPath(const std::string& path, const char* role) {
    if (path.find('\0') != std::string::npos)
        throw py::value_error(std::string(role) +
                              ": a NUL character cannot be part of a file name");
}

void refuseRest(const py::dict& options, const char* function) {
    for (const auto& item : options) {
        throw py::type_error(std::string(function) + "() got an unexpected keyword argument '" +
                             item.first.cast<std::string>() + "'");
    }
}

py::tuple compress(const std::string& source, const std::string& target, py::dict options) {
    checkPath(source, "src");
    checkPath(target, "dst");
    zulconvert::CompressOptions o;
    o.input = source;
    o.output = target;
    o.quiet = true;
    o.force = true;
    take(options, "force", o.force);
    take(options, "threads", o.threads);
    take(options, "step", o.step);
    take(options, "color", o.color);
    take(options, "reflection", o.reflection);
    take(options, "intensity_scale", o.intensityScale);
    take(options, "normals", o.normals);
    take(options, "no_normals", o.noNormals);
    take(options, "chunk_size", o.chunk);
    take(options, "order", o.order);
    take(options, "order_budget", o.orderBudgetMiB);
    take(options, "translate", o.translate);
    take(options, "scale", o.scale);
    take(options, "rotate", o.rotate);
    take(options, "sensor_mount", o.sensorMount);
    take(options, "sensor_type", o.sensorType);
    take(options, "sensor_header", o.sensorHeader);
    take(options, "quiet", o.quiet);
    take(options, "companion", o.companion);
    take(options, "keep_order", o.keepOrder);
    take(options, "exact", o.exact);
    if (o.companion != "auto" && o.companion != "always" && o.companion != "never") {
        throw py::value_error("companion=\"" + o.companion + "\": use auto, always or never");
    }
    refuseRest(options, "compress");
    zulconvert::CompressReport report;
    o.report = &report;
    {
        py::gil_scoped_release release;
        zulconvert::runCompress(o);
    }
    return py::make_tuple(report.kept, report.dropped, report.changed);
}

int decompress(const std::string& source, const std::string& target, py::dict options) {
    checkPath(source, "src");
    checkPath(target, "dst");
    zulconvert::DecompressOptions o;
    o.input = source;
    o.output = target;
    o.quiet = true;
    o.force = true;
    take(options, "force", o.force);
    bool transform = true;
    take(options, "transform", transform);
    o.noTransform = !transform;
    take(options, "threads", o.threads);
    take(options, "encoding", o.encoding);
    take(options, "las_version", o.lasVersion);
    take(options, "quiet", o.quiet);
    bool companion = true;
    take(options, "companion", companion);
    o.noCompanion = !companion;
    take(options, "chunk_budget", o.chunkBudgetMiB);
    take(options, "point_density", o.pointDensity);
    take(options, "las_color_scale", o.lasColorScale);
    if (o.lasColorScale != 0 && o.lasColorScale != 1 && o.lasColorScale != 256 &&
        o.lasColorScale != 257) {
        throw py::value_error("las_color_scale: give 1, 256 or 257");
    }
    if (!zulbase::chunkBudgetValid(o.chunkBudgetMiB)) {
        throw py::value_error("chunk_budget: give 1 to " +
                              std::to_string(zulbase::kMaxChunkBudgetMiB) + " MiB");
    }
    if (!zulbase::pointDensityValid(o.pointDensity)) {
        throw py::value_error("point_density: give 0 to " +
                              std::to_string(zulbase::kMaxPointDensity));
    }
    take(options, "pcd_type", o.pcdType);
    std::vector<double> box;
    take(options, "bbox", box);  // checked by zul.decompress
    if (box.size() == 6) {
        o.box = true;
        std::copy(box.begin(), box.begin() + 3, o.boxMin);
        std::copy(box.begin() + 3, box.end(), o.boxMax);
    }
    refuseRest(options, "decompress");
    py::gil_scoped_release release;
    return zulconvert::runDecompress(o);
}

}  // namespace

void bindConvert(py::module_& m) {
    m.def("compress", &compress, py::arg("source"), py::arg("target"), py::arg("options"));
    m.def("decompress", &decompress, py::arg("source"), py::arg("target"), py::arg("options"));
}

}  // namespace zulpy
