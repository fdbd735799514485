#pragma once

// vxctl, the service technician's command-line tool, as a function that tests can call.

#include <ostream>
#include <string>
#include <vector>

namespace vx::vxctl {

// One exit code per kind of failure; scripts branch on them, so they never change meaning.
enum ExitCode : int {
    kExitSuccess = 0,
    kExitFailure = 1,      // the library or the network raised: its number, source and text shown
    kExitUsage = 2,        // the command line cannot be meant (unknown word, bad or refused value)
    kExitPartial = 3,      // the connect stopped part-way; the command ran on what was loaded
    kExitNotDone = 4,      // nothing raised, but the controller did not do what was asked
    kExitFileRefused = 5,  // a file does not fit the device or cannot be read; nothing was sent
    kExitStoppedPartWay = 6,  // a multi-step change stopped part-way; what arrived is listed
    kExitNotConfirmed = 7,    // a change that needs confirmation was not confirmed
    kExitInterrupted = 130,   // SIGINT or SIGTERM; what was done and what may be open is said
};

// Runs one command line (the arguments after the program name): output on `out`, messages on
// `err`. With `terminal` set, `err` is a terminal and long work shows a progress bar there.
int Run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err,
        bool terminal = false);

}  // namespace vx::vxctl
