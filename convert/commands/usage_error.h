// A command line the tool does not understand: an unknown command or option, a missing or
// contradictory argument. The tool prints it with a hint and exits with status 2, where a file
// that cannot be read or written exits with 1.
#pragma once

#include <stdexcept>

namespace zulconvert {

class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace zulconvert
