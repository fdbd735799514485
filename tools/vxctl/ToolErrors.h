#pragma once

#include <stdexcept>

namespace vx::vxctl {

// The request cannot be met on this device (a name it does not have, a file that cannot be read):
// exit code 1.
class ToolError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A file that cannot be read or does not fit the device; nothing was sent: exit code 5.
class FileRefusedError : public ToolError {
    using ToolError::ToolError;
};

// The command line asks for something that cannot be meant: exit code 2, with a hint.
class UsageError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace vx::vxctl
