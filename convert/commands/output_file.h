// An output written under a temporary name and put in place only when it is complete, so that a
// failure or an interrupt never leaves a half-written file under the final name (nor destroys
// the file that was there). Without `replace`, an existing file under the final name is never
// replaced, not even one that appears while the output is written.
// The temporary name is unique (the process, a counter and random bits) and created exclusively,
// so writers of one path at once, threads of one process included, never share it.
// Outputs that are no regular file are written through, never replaced: "-" (standard output), a
// device (/dev/null), a pipe or a socket get the finished bytes copied from a temporary file in
// the temporary folder (the formats complete their headers at the end); a symbolic link is
// followed, and the file it names is replaced, the link kept.
#pragma once

#include <cstddef>
#include <string>

namespace zulconvert {

class OutputFile {
public:
    explicit OutputFile(const std::string& finalPath, bool replace = false);
    ~OutputFile();  // removes the temporary file unless committed
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    const std::string& temporaryPath() const { return temporary_; }
    // Whether the output is standard output, a device, a pipe or a socket.
    bool writtenThrough() const { return through_; }
    // Puts the finished file in place (renames it, or copies it through); throws FormatError
    // naming the final name and the system's reason if that fails, or if the final name exists
    // and may not be replaced.
    void commit();

private:
    std::string final_, target_, temporary_;
    bool replace_;
    bool through_ = false;
    bool committed_ = false;
    int guard_ = -1;
};

// Whether `path` is "-" or names a device, a pipe or a socket (through a link too): an output
// written through, which -f need not allow.
bool writesThrough(const std::string& path);

// Refuses (FormatError) an output that is the input itself: the same file by device and inode,
// whatever the names.
void refuseSameFile(const std::string& input, const std::string& output);

// Creates a new file of a unique name "<folder>/<stem>-<pid>-<n>-<random>" exclusively; returns
// its descriptor (and its name in `path`, its interrupt guard in `guard`, to release with
// releasePartialFile), or -1 with errno set.
int createUniqueFile(const std::string& folder, const std::string& stem, std::string& path,
                     int& guard);
// $TMPDIR, or /tmp.
std::string temporaryFolder();
// Writes all of `bytes`; false with errno set if the system refuses.
bool writeAll(int fd, const char* bytes, size_t size);

// Writes `text` as the file `path` beside an output (a .prj sidecar) through an OutputFile. A
// file already there with other content is replaced only with `replace`; otherwise it is kept
// and the returned note says so (empty when all went as asked).
std::string writeSidecar(const std::string& path, const std::string& text, bool replace);

// The message for an output that exists and may not be replaced.
std::string existingOutputMessage(const std::string& path);

}  // namespace zulconvert
