#include "output_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "formats/cloud.h"

namespace zultool {

OutputFile::OutputFile(const std::string& finalPath) : final_(finalPath) {
    const std::filesystem::path path(finalPath);
    if (path.filename().empty()) throw FormatError(finalPath + ": is not a file name");
    if (std::filesystem::is_directory(path)) throw FormatError(finalPath + ": is a folder");
    temporary_ = (path.parent_path() /
                  ("." + path.filename().string() + ".partial-" + std::to_string(::getpid())))
                     .string();
}

OutputFile::~OutputFile() {
    if (!committed_) std::remove(temporary_.c_str());
}

void OutputFile::commit() {
    if (std::rename(temporary_.c_str(), final_.c_str()) != 0) {
        throw FormatError(final_ + ": cannot put the finished file in place (" +
                          std::strerror(errno) + ")");
    }
    committed_ = true;
}

}  // namespace zultool
