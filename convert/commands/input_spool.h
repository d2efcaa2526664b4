// An input given as "-" (standard input), a pipe or a device (process substitution, <(cat x.las))
// is read once, as it comes, into a temporary file, which the formats' readers then read as any
// file: they sniff its first bytes and may seek. Memory stays bounded as for a file; the disk
// holds one copy of the input until the run ends. A folder is refused with its name.
#pragma once

#include <string>

namespace zulconvert {

// The name a user gives for standard input and output.
inline bool isStandardStream(const std::string& name) { return name == "-"; }

class InputSpool {
public:
    // Copies `name` to a temporary file if it is "-" or no regular file; throws FormatError
    // naming it (and the system's reason) if it cannot be read, or is a folder.
    explicit InputSpool(const std::string& name);
    ~InputSpool();  // removes the temporary file
    InputSpool(const InputSpool&) = delete;
    InputSpool& operator=(const InputSpool&) = delete;

    // The file to read: the name itself, or the temporary copy.
    const std::string& path() const { return path_; }
    // The name for messages: the user's, "standard input" for "-".
    const std::string& name() const { return name_; }
    // `message` with the temporary file's name replaced by the user's.
    std::string rename(std::string message) const;

private:
    std::string name_, path_;
    bool spooled_ = false;
    int guard_ = -1;
};

}  // namespace zulconvert
