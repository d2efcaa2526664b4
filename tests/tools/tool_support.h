// What the tool's tests share: a private folder per test, the shared clouds, the tool run as a
// program with its output and exit code, and whole clouds read through the tool's readers.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "formats/cloud.h"
#include "support/temp_folder.h"

inline std::string dataFile(const std::string& name) {
    return std::string(ZUL_DATA_DIR) + "/" + name;
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

// Runs the zul program with `arguments` (already quoted for the shell).
inline ToolRun runTool(const std::string& arguments) {
    ToolRun run;
    const std::string command = std::string(ZUL_TOOL_PATH) + " " + arguments + " 2>&1";
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) return run;
    char buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) run.output.append(buffer, n);
    const int status = ::pclose(pipe);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

inline std::string readText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void writeText(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << bytes;
}

struct CloudPoint {
    zul_Point point;
    double intensity;
};

// Every point of a file, read with the tool's reader for its extension.
inline std::vector<CloudPoint> readCloud(const std::string& path,
                                         zultool::CloudLayout* layout = nullptr) {
    std::unique_ptr<zultool::CloudReader> reader =
        zultool::openCloudReader(path, zultool::formatOfPath(path));
    if (layout != nullptr) *layout = reader->layout();
    std::vector<CloudPoint> points;
    CloudPoint p = {};
    while (reader->read(p.point)) {
        p.intensity = reader->intensity();
        points.push_back(p);
    }
    return points;
}
