#pragma once

// vxctl, the service technician's command-line tool, as a function that tests can call.

#include <ostream>
#include <string>
#include <vector>

namespace vx::vxctl {

enum ExitCode : int {
    kExitSuccess = 0,
    kExitFailure = 1,  // a library error, or the controller did not do what was asked
    kExitUsage = 2,    // the command line cannot be meant
    kExitPartial = 3,  // the connect stopped part-way; the command ran on what was loaded
};

// Runs one command line (the arguments after the program name): output on `out`, messages on
// `err`. With `terminal` set, `err` is a terminal and long work shows a progress bar there.
int Run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err,
        bool terminal = false);

}  // namespace vx::vxctl
