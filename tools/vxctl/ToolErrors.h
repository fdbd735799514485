#pragma once

#include <stdexcept>

namespace vx::vxctl {

// The request cannot be met on this device (a name it does not have, a file that cannot be read):
// exit code 1.
class ToolError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The command line asks for something that cannot be meant: exit code 2, with a hint.
class UsageError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace vx::vxctl
