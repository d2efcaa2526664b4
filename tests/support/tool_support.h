// What the tool's tests share: a private folder per test, the shared clouds, the tool run as a
// program with its output and exit code, and whole clouds read through the tool's readers.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "formats/cloud.h"
#include "support/host_files.h"
#include "support/temp_folder.h"
#include "zul_bulk.h"

// readFile and writeFile under the names the conversions' tests use.
inline std::string readBytes(const std::string& path) { return readFile(path); }
inline void writeBytes(const std::string& path, const std::string& bytes) {
    writeFile(path, bytes);
}

inline std::string dataFile(const std::string& name) {
    return std::string(ZUL_DATA_DIR) + "/" + name;
}

// The text with {d} made the folder and {data} that of the shared clouds.
inline std::string expand(std::string text, const std::string& folder) {
    for (const auto& [key, value] :
         {std::pair<std::string, std::string>{"{d}", folder}, {"{data}", ZUL_DATA_DIR}}) {
        for (size_t at; (at = text.find(key)) != std::string::npos;)
            text.replace(at, key.size(), value);
    }
    return text;
}

class ToolTest : public TempFolderTest {
protected:
    // The files the folder holds, by name.
    std::vector<std::string> folderContents() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
};

struct ToolRun {
    int exitCode = -1;
    std::string output;  // standard output and standard error together
};

// Runs a shell command; its exit code (-1 if it died of a signal) and its standard output.
inline ToolRun runShell(const std::string& command) {
    ToolRun run;
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) return run;
    for (char buffer[4096]; size_t n = std::fread(buffer, 1, sizeof buffer, pipe);)
        run.output.append(buffer, n);
    const int status = ::pclose(pipe);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

// Runs the zul program with `arguments` (already quoted for the shell).
inline ToolRun runTool(const std::string& arguments) {
    return runShell(std::string(ZUL_TOOL_PATH) + " " + arguments + " 2>&1");
}

// Whether the tool ran with `arguments` and succeeded; its output if not.
inline ::testing::AssertionResult toolSucceeds(const std::string& arguments) {
    const ToolRun run = runTool(arguments);
    if (run.exitCode == 0) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "zul " << arguments << ": exit " << run.exitCode << "\n"
                                         << run.output;
}

struct CloudPoint {
    zul_Point point;
    double intensity;
};

// Every point of a file, read with the tool's reader for its extension.
inline std::vector<CloudPoint> readCloud(const std::string& path,
                                         zulformats::CloudLayout* layout = nullptr) {
    std::unique_ptr<zulformats::CloudReader> reader =
        zulformats::openCloudReader(path, zulformats::formatOfPath(path));
    if (layout != nullptr) *layout = reader->layout();
    std::vector<CloudPoint> points;
    CloudPoint p = {};
    while (reader->read(p.point)) {
        p.intensity = reader->intensity();
        points.push_back(p);
    }
    return points;
}

struct ZulFile {
    std::vector<zul_Point> points;
    std::vector<int> chunkCounts;
};

// Every point of a zul file as the point-by-point reader hands it out, and the size of every
// chunk as the chunk index lists them, which must reach the end of the file.
inline ZulFile readZul(const std::string& path) {
    ZulFile file;
    zul_idx_Index index = nullptr;
    int64_t chunks = 0, points = 0, where = 0;
    zul_Status damage = zul_STATUS_OK;
    EXPECT_EQ(zul_idx_openFile(&index, path.c_str(), nullptr), zul_STATUS_OK) << path;
    zul_idx_getCounts(index, &chunks, &points);
    for (int64_t k = 0; k < chunks; ++k) {
        zul_idx_Chunk chunk = {};
        zul_idx_getChunk(index, k, &chunk);
        file.chunkCounts.push_back(chunk.numPoints);
    }
    zul_idx_getDamage(index, &damage, &where, nullptr);
    EXPECT_EQ(damage, zul_STATUS_OK) << path;
    zul_idx_close(&index);
    file.points = readWithReader(path, &damage);
    EXPECT_EQ(damage, zul_STATUS_END_OF_FILE) << path;
    return file;
}

template <typename T>
void put(std::string& bytes, size_t at, T value) {
    std::memcpy(&bytes[at], &value, sizeof value);
}

// A LAS file of `count` points built field by field: version 1.minor, the point format and record
// length, scales and offsets, ten bytes of something before the points, the count in the 64-bit
// field only (1.4) or the 32-bit one; `record(i, r)` fills point i's record r.
inline std::string lasBytes(int minor, int format, uint16_t recordLength,
                            const std::array<double, 6>& scaleAndOffset, uint32_t count,
                            bool count64,
                            const std::function<void(uint32_t, std::string&)>& record) {
    const uint16_t headerSize = minor >= 4 ? 375 : 227;
    std::string bytes(headerSize, '\0');
    std::memcpy(&bytes[0], "LASF", 4);
    bytes[24] = 1;
    bytes[25] = static_cast<char>(minor);
    put<uint16_t>(bytes, 94, headerSize);
    put<uint32_t>(bytes, 96, headerSize + 10u);
    bytes[104] = static_cast<char>(format);
    put<uint16_t>(bytes, 105, recordLength);
    put<uint32_t>(bytes, 107, count64 ? 0 : count);
    std::memcpy(&bytes[131], scaleAndOffset.data(), 48);
    if (count64) put<uint64_t>(bytes, 247, count);
    bytes += std::string(10, 'v');
    std::string r(recordLength, '\0');
    for (uint32_t i = 0; i < count; ++i) {
        record(i, r);
        bytes += r;
    }
    return bytes;
}
