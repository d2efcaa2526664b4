// An output written under a temporary name beside its final one and renamed into place only when
// it is complete, so that a failure or an interrupt never leaves a half-written file under the
// final name (nor destroys the file that was there). Without `replace`, an existing file under
// the final name is never replaced, not even one that appears while the output is written.
#pragma once

#include <string>

namespace zulconvert {

class OutputFile {
public:
    explicit OutputFile(const std::string& finalPath, bool replace = false);
    ~OutputFile();  // removes the temporary file unless committed
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    const std::string& temporaryPath() const { return temporary_; }
    // Renames the temporary file to the final name; throws FormatError if that fails or if the
    // final name exists and may not be replaced.
    void commit();

private:
    std::string final_, temporary_;
    bool replace_;
    bool committed_ = false;
    int guard_ = -1;
};

// Writes `text` as the file `path` beside an output (a .prj sidecar) through an OutputFile. A
// file already there with other content is replaced only with `replace`; otherwise it is kept
// and the returned note says so (empty when all went as asked).
std::string writeSidecar(const std::string& path, const std::string& text, bool replace);

// The message for an output that exists and may not be replaced.
std::string existingOutputMessage(const std::string& path);

}  // namespace zulconvert
