// An output written under a temporary name beside its final one and renamed into place only when
// it is complete, so that a failure never leaves a half-written file under the final name (nor
// destroys the file that was there).
#pragma once

#include <string>

namespace zultool {

class OutputFile {
public:
    explicit OutputFile(const std::string& finalPath);
    ~OutputFile();  // removes the temporary file unless committed
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    const std::string& temporaryPath() const { return temporary_; }
    // Renames the temporary file to the final name; throws FormatError if that fails.
    void commit();

private:
    std::string final_, temporary_;
    bool committed_ = false;
};

}  // namespace zultool
