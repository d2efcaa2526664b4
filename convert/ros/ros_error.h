// The one error of the ROS message codec: a message that cannot be read, converted or restored,
// with a text that names the message part and what is wrong with it.
#pragma once

#include <stdexcept>
#include <string>

namespace zul::ros {

class Error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace zul::ros
