#include "commands/output_file.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

#include "commands/interrupt.h"
#include "formats/byte_output.h"
#include "formats/cloud.h"

namespace zulconvert {

using namespace zulformats;

std::string existingOutputMessage(const std::string& path) {
    return path + ": exists already; use -f (--force) to replace it";
}

int createUniqueFile(const std::string& folder, const std::string& stem, std::string& path,
                     int& guard) {
    static std::atomic<unsigned long> counter{0};
    std::random_device device;
    for (int attempt = 0; attempt < 16; ++attempt) {
        char suffix[64];
        std::snprintf(suffix, sizeof suffix, "-%ld-%lu-%08x", static_cast<long>(::getpid()),
                      counter.fetch_add(1), static_cast<unsigned>(device()));
        path = (folder.empty() ? "" : folder + "/") + stem + suffix;
        // Guarded before it exists, so that an interrupt never leaves it behind.
        guard = guardPartialFile(path);
        const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd >= 0) return fd;
        const int reason = errno;
        releasePartialFile(guard);
        guard = -1;
        errno = reason;
        if (reason != EEXIST) return -1;
    }
    return -1;
}

std::string temporaryFolder() {
    const char* folder = std::getenv("TMPDIR");
    return folder != nullptr && *folder != '\0' ? folder : "/tmp";
}

bool writeAll(int fd, const char* bytes, size_t size) {
    while (size > 0) {
        const ssize_t done = ::write(fd, bytes, size);
        if (done < 0 && errno == EINTR) continue;
        if (done < 0) return false;
        if (done == 0) {
            errno = ENOSPC;
            return false;
        }
        bytes += done;
        size -= static_cast<size_t>(done);
    }
    return true;
}

bool writesThrough(const std::string& path) {
    struct stat info;
    if (path == "-") return true;
    return ::stat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode);
}

void refuseSameFile(const std::string& input, const std::string& output) {
    struct stat in, out;
    if (output == "-" || input == "-" || ::stat(input.c_str(), &in) != 0 ||
        ::stat(output.c_str(), &out) != 0 || !S_ISREG(out.st_mode))
        return;
    if (in.st_dev == out.st_dev && in.st_ino == out.st_ino)
        throw FormatError(output + ": is the input itself; name another output");
}

OutputFile::OutputFile(const std::string& finalPath, bool replace)
    : final_(finalPath), target_(finalPath), replace_(replace) {
    namespace fs = std::filesystem;
    through_ = writesThrough(finalPath);
    std::string folder;
    std::string stem;
    if (through_) {
        folder = temporaryFolder();
        stem = "zul-output";
    } else {
        const fs::path path(finalPath);
        if (path.filename().empty()) throw FormatError(finalPath + ": is not a file name");
        if (fs::is_directory(path)) throw FormatError(finalPath + ": is a folder");
        if (!replace_ && fs::exists(path)) throw FormatError(existingOutputMessage(final_));
        // A link is followed: the file it names is replaced, in its own folder.
        std::error_code error;
        fs::path target = path;
        for (int hop = 0; hop < 40 && fs::is_symlink(fs::symlink_status(target, error)); ++hop) {
            const fs::path next = fs::read_symlink(target, error);
            if (error) break;
            target = next.is_absolute() ? next : target.parent_path() / next;
        }
        target_ = target.string();
        folder = target.parent_path().string();
        stem = "." + target.filename().string() + ".partial";
    }
    const int fd = createUniqueFile(folder, stem, temporary_, guard_);
    if (fd < 0) {
        throw FormatError(final_ + ": cannot create the file (" + std::strerror(errno) + ")");
    }
    ::close(fd);
}

OutputFile::~OutputFile() {
    if (!committed_) std::remove(temporary_.c_str());
    releasePartialFile(guard_);
}

namespace {

// Copies the file `from` to the descriptor `to`; false with errno set if a read or write fails.
bool copyTo(const std::string& from, int to) {
    const int in = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0) return false;
    std::vector<char> buffer(1 << 20);
    bool done = true;
    for (;;) {
        const ssize_t got = ::read(in, buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) {
            done = got == 0;
            break;
        }
        if (!writeAll(to, buffer.data(), static_cast<size_t>(got))) {
            done = false;
            break;
        }
    }
    const int reason = errno;
    ::close(in);
    errno = reason;
    return done;
}

}  // namespace

void OutputFile::commit() {
    if (through_) {
        const bool standard = final_ == "-";
        const int out =
            standard ? STDOUT_FILENO : ::open(final_.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
        bool done = out >= 0 && copyTo(temporary_, out);
        int reason = errno;
        if (out >= 0 && !standard && ::close(out) != 0 && done) {
            done = false;
            reason = errno;
        }
        if (!done) {
            throw FormatError((standard ? std::string("standard output") : final_) +
                              ": writing failed (" + std::strerror(reason) + ")");
        }
        std::remove(temporary_.c_str());
        committed_ = true;
        releasePartialFile(guard_);
        guard_ = -1;
        return;
    }
    int result = 0;
    if (replace_) {
        result = std::rename(temporary_.c_str(), target_.c_str());
    } else {
        result =
            ::renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD, target_.c_str(), RENAME_NOREPLACE);
        // A file system without the flag: the check and the rename are then two steps.
        if (result != 0 && (errno == EINVAL || errno == ENOSYS)) {
            if (std::filesystem::exists(target_)) throw FormatError(existingOutputMessage(final_));
            result = std::rename(temporary_.c_str(), target_.c_str());
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
