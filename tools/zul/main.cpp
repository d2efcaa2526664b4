// The zul command line: compress, decompress, info and demo.
#include <CLI/CLI.hpp>
#include <iostream>

#include "commands.h"
#include "formats/cloud.h"

using namespace zultool;

int main(int argc, char** argv) {
    CLI::App app{
        "zul: compress 3-D point clouds (LAS, PCD, PLY, XYZ/CSV, KITTI .bin) into zul files "
        "and back"};
    app.require_subcommand(1);
    app.set_version_flag("--version", std::to_string(zul_libversion_major()) + "." +
                                          std::to_string(zul_libversion_minor()) + "." +
                                          std::to_string(zul_libversion_patch()));

    CompressOptions compress;
    CLI::App* c = app.add_subcommand("compress", "Compress a point cloud file into a zul file");
    c->add_option("input", compress.input, "LAS, PCD, PLY, XYZ/CSV or KITTI .bin file")->required();
    c->add_option("output", compress.output, "the zul file to write")->required();
    c->add_option("--step", compress.step,
                  "quantisation step (default: the LAS scale, else 0.001)");
    c->add_option("--color", compress.color,
                  "none, rgb565 or rgb888 (default: rgb888 if the "
                  "input has colour)");
    c->add_option("--reflection", compress.reflection,
                  "none, or the largest reflection kept (default: the input's range or type)");
    c->add_option("--intensity-scale", compress.intensityScale,
                  "factor applied to intensities before rounding (default 1; 255 for 0..1)");
    c->add_flag("--normals", compress.normals, "keep normals (an error if the input has none)");
    c->add_flag("--no-normals", compress.noNormals, "leave normals out");
    c->add_option("--chunk", compress.chunk, "points a chunk (default 10000)");
    c->add_option("--order", compress.order,
                  "plan (default): the cutting into chunks that makes the smallest file, block "
                  "by block; kd: spatially compact cells; input: the input's order")
        ->check(CLI::IsMember({"plan", "kd", "input"}));
    c->add_option("--order-budget", compress.orderBudgetMiB,
                  "MiB for the points cut at once; larger inputs are cut block by block "
                  "(default 256)")
        ->check(CLI::Range(1, 1 << 20));
    c->add_option("--translate", compress.translate, "sensor header translation X Y Z")
        ->expected(3);
    c->add_option("--scale", compress.scale, "sensor header uniform scale");
    c->add_option("--rotate", compress.rotate, "sensor header rotation, 3x3, row after row")
        ->expected(9);
    c->add_option("--sensor-mount", compress.sensorMount, "sensor mount (0, 10-13, 20-22, 30-32)");
    c->add_option("--sensor-type", compress.sensorType, "sensor type (0 to 10)");
    c->add_flag("--sensor-header", compress.sensorHeader,
                "write a sensor header (a version 2 stream) even without a transformation");
    c->add_flag("--keep-invalid", compress.keepInvalid,
                "keep points with NaN or infinite coordinates (stored as the format does)");
    c->add_flag("-q,--quiet", compress.quiet, "no progress bar and no notes");
    c->add_flag("-v,--verbose", compress.verbose, "tell how the chunks were cut");

    DecompressOptions decompress;
    CLI::App* d = app.add_subcommand("decompress", "Write a zul file as another format");
    d->add_option("input", decompress.input, "the zul file")->required();
    d->add_option("output", decompress.output, ".las .pcd .ply .xyz .csv or .bin file")->required();
    d->add_flag("--no-transform", decompress.noTransform,
                "leave points in the stored frame (ignore the sensor header's matrix)");
    d->add_option("--encoding", decompress.encoding,
                  "PCD: binary, ascii, binary_compressed; PLY: binary_little_endian, "
                  "binary_big_endian, ascii");
    d->add_option("--las-version", decompress.lasVersion, "1.2 (default) or 1.4");
    d->add_flag("-q,--quiet", decompress.quiet, "no progress bar");

    InfoOptions info;
    CLI::App* i = app.add_subcommand("info", "Describe a zul file without decoding its points");
    i->add_option("input", info.input, "the zul file")->required();
    i->add_flag("--json", info.json, "print JSON");

    DemoOptions demo;
    CLI::App* m = app.add_subcommand("demo", "Compress and check a built-in lidar scan");
    m->add_option("--points", demo.points, "points in the scan (default 1000000)");
    m->add_option("--keep", demo.keep, "keep the compressed scan in this file");
    m->add_flag("-q,--quiet", demo.quiet, "no progress bar");

    CLI11_PARSE(app, argc, argv);
    try {
        if (c->parsed()) return runCompress(compress);
        if (d->parsed()) return runDecompress(decompress);
        if (i->parsed()) return runInfo(info);
        return runDemo(demo);
    } catch (const FormatError& error) {
        std::cerr << "zul: " << error.what() << "\n";
    } catch (const std::bad_alloc&) {
        std::cerr << "zul: out of memory\n";
    } catch (const std::exception& error) {
        std::cerr << "zul: " << error.what() << "\n";
    }
    return 1;
}
