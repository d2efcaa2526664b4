// zul.ros: serialised PointCloud2 messages to zul CompressedPointCloud2 messages and back, and a
// message's fields as they are, for numpy (convert/ros).
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <string>

#include "bindings.h"
#include "ros/bag_files.h"
#include "ros/zul_ros.h"

namespace py = pybind11;
using namespace zul::ros;

namespace zulpy {

namespace {

Serialization familyOf(bool ros1) { return ros1 ? Serialization::Ros1 : Serialization::Ros2; }

std::string_view viewOf(const py::bytes& data) {
    char* bytes = nullptr;
    Py_ssize_t size = 0;
    if (PyBytes_AsStringAndSize(data.ptr(), &bytes, &size) != 0) throw py::error_already_set();
    return {bytes, size_t(size)};
}

py::bytes toBytes(const std::vector<uint8_t>& bytes) {
    return py::bytes(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

const uint8_t* dataOf(std::string_view view) {
    return reinterpret_cast<const uint8_t*>(view.data());
}

// A PointCloud2, or a zul CompressedPointCloud2 decompressed, as a dict of its fields.
py::dict cloudOf(const py::bytes& data, bool ros1, uint64_t maxDataBytes) {
    const std::string_view view = viewOf(data);
    PointCloud2 cloud;
    bool compressed = false;
    {
        py::gil_scoped_release release;
        CompressedPointCloud2 message;
        try {
            message = readCompressedPointCloud2(dataOf(view), view.size(), familyOf(ros1));
            compressed = message.format == formatName();
        } catch (const Error&) {
        }
        DecodeOptions options;
        options.maxDataBytes = maxDataBytes;
        cloud = compressed ? decompressCloud(message, options)
                           : readPointCloud2(dataOf(view), view.size(), familyOf(ros1));
    }
    const CloudDescription& c = cloud.cloud;
    py::list fields;
    for (const PointField& field : c.fields)
        fields.append(py::make_tuple(field.name, field.offset, field.datatype, field.count));
    py::dict header;
    header["seq"] = c.header.seq;
    header["sec"] = c.header.sec;
    header["nanosec"] = c.header.nanosec;
    header["frame_id"] = py::bytes(c.header.frameId);
    py::dict out;
    out["header"] = header;
    out["height"] = c.height;
    out["width"] = c.width;
    out["fields"] = fields;
    out["is_bigendian"] = c.isBigendian;
    out["point_step"] = c.pointStep;
    out["row_step"] = c.rowStep;
    out["is_dense"] = c.isDense;
    out["data"] = toBytes(cloud.data);
    out["compressed"] = compressed;
    return out;
}

}  // namespace

void bindRos(py::module_& module) {
    static py::object* errorClass =
        new py::object(py::module_::import("zul._errors").attr("Error"));
    py::register_exception_translator([](std::exception_ptr pointer) {
        try {
            if (pointer) std::rethrow_exception(pointer);
        } catch (const Error& error) {
            py::object instance = (*errorClass)(error.what(), 0, "refused", -1);
            PyErr_SetObject(errorClass->ptr(), instance.ptr());
        }
    });
    module.def(
        "ros_encode",
        [](const py::bytes& data, double step, bool ros1, uint32_t chunkPoints,
           uint32_t tileColumns) {
            const std::string_view view = viewOf(data);
            EncodeOptions options;
            options.step = step;
            options.chunkPoints = chunkPoints;
            options.tileColumns = tileColumns;
            std::vector<uint8_t> out;
            {
                py::gil_scoped_release release;
                out = compressMessage(dataOf(view), view.size(), familyOf(ros1), options);
            }
            return toBytes(out);
        },
        py::arg("data"), py::arg("step"), py::arg("ros1"), py::arg("chunk_points"),
        py::arg("tile_columns"));
    module.def(
        "ros_decode",
        [](const py::bytes& data, bool ros1, uint64_t maxDataBytes) {
            const std::string_view view = viewOf(data);
            DecodeOptions options;
            options.maxDataBytes = maxDataBytes;
            std::vector<uint8_t> out;
            {
                py::gil_scoped_release release;
                out = decompressMessage(dataOf(view), view.size(), familyOf(ros1), options);
            }
            return toBytes(out);
        },
        py::arg("data"), py::arg("ros1"), py::arg("max_data_bytes"));
    module.def(
        "ros_bag",
        [](const std::string& operation, const std::string& in, const std::string& out,
           double step) {
            BagResult result;
            {
                py::gil_scoped_release release;
                EncodeOptions options;
                options.step = step;
                result = operation == "compress" ? compressBag(in, out, options)
                                                 : decompressBag(in, out);
            }
            return py::make_tuple(result.converted, result.problems);
        },
        py::arg("operation"), py::arg("in"), py::arg("out"), py::arg("step"));
    module.def("ros_list_bag", [](const std::string& path) {
        py::list topics;
        for (const BagTopic& topic : listBag(path))
            topics.append(py::make_tuple(topic.name, topic.type, topic.messages, topic.bytes));
        return topics;
    });
    module.def("ros_cloud", &cloudOf, py::arg("data"), py::arg("ros1"), py::arg("max_data_bytes"));
}

}  // namespace zulpy
