#include "commands/output_file.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "commands/interrupt.h"
#include "formats/byte_output.h"
#include "formats/cloud.h"

namespace zulconvert {

using namespace zulformats;

std::string existingOutputMessage(const std::string& path) {
    return path + ": exists already; use -f (--force) to replace it";
}

OutputFile::OutputFile(const std::string& finalPath, bool replace)
    : final_(finalPath), replace_(replace) {
    const std::filesystem::path path(finalPath);
    if (path.filename().empty()) throw FormatError(finalPath + ": is not a file name");
    if (std::filesystem::is_directory(path)) throw FormatError(finalPath + ": is a folder");
    if (!replace_ && std::filesystem::exists(path))
        throw FormatError(existingOutputMessage(final_));
    temporary_ = (path.parent_path() /
                  ("." + path.filename().string() + ".partial-" + std::to_string(::getpid())))
                     .string();
    guard_ = guardPartialFile(temporary_);
}

OutputFile::~OutputFile() {
    if (!committed_) std::remove(temporary_.c_str());
    releasePartialFile(guard_);
}

void OutputFile::commit() {
    int result = 0;
    if (replace_) {
        result = std::rename(temporary_.c_str(), final_.c_str());
    } else {
        result =
            ::renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD, final_.c_str(), RENAME_NOREPLACE);
        // A file system without the flag: the check and the rename are then two steps.
        if (result != 0 && (errno == EINVAL || errno == ENOSYS)) {
            if (std::filesystem::exists(final_)) throw FormatError(existingOutputMessage(final_));
            result = std::rename(temporary_.c_str(), final_.c_str());
        }
        if (result != 0 && errno == EEXIST) throw FormatError(existingOutputMessage(final_));
    }
    if (result != 0) {
        throw FormatError(final_ + ": cannot put the finished file in place (" +
                          std::strerror(errno) + ")");
    }
    committed_ = true;
    releasePartialFile(guard_);
    guard_ = -1;
}

std::string writeSidecar(const std::string& path, const std::string& text, bool replace) {
    if (!replace && std::filesystem::exists(path)) {
        std::ifstream in(path, std::ios::binary);
        const std::string there((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
        if (there == text) return "";
        return path + " exists already with another coordinate system; kept (use -f to replace it)";
    }
    OutputFile sidecar(path, replace);
    ByteOutput out(sidecar.temporaryPath());
    out.text(text);
    out.close();
    sidecar.commit();
    return "";
}

}  // namespace zulconvert
