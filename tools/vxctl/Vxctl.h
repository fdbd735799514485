#pragma once

// vxctl, the service technician's command-line tool, as a function that tests can call.

#include <istream>
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

// Where vxctl meets the technician besides its output.
struct Console {
    // Where confirmations are answered and `vxctl run -` reads its commands; none: a change that
    // needs confirmation is refused without --yes.
    std::istream* in = nullptr;
    // `in` is a terminal: a confirmation is asked there. Otherwise it is refused without --yes,
    // so that a script never waits for an answer that will not come.
    bool inputIsTerminal = false;
    // `err` is a terminal: long work shows a progress bar there.
    bool errorIsTerminal = false;
};

// Runs one command line (the arguments after the program name): output on `out`, messages on
// `err`; returns the exit code.
int Run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err,
        const Console& console);
// As above with no input: with `terminal` set, `err` is a terminal.
int Run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err,
        bool terminal = false);

}  // namespace vx::vxctl
