#pragma once

// Runs vxctl as a program, the way scripts and technicians run it, and keeps what it printed.

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "fixtures/ChildProcess.h"

namespace vx::test {

struct Finished {
    int exitCode = -1;
    std::string out;
    std::string err;
};

inline std::string ShellQuoted(const std::string& argument) {
    std::string quoted = "'";
    for (const char c : argument)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

// A file name of this process's own in the temporary folder.
inline std::filesystem::path ScratchFile(const std::string& suffix) {
    static std::atomic<int> counter = 0;
    return std::filesystem::temp_directory_path() /
           ("vxctl-test-" + std::to_string(getpid()) + "-" + std::to_string(counter++) + suffix);
}

inline Finished Vxctl(const std::vector<std::string>& arguments) {
    const auto out = ScratchFile(".out");
    const auto err = ScratchFile(".err");
    std::string command = ShellQuoted(VXCTL_PROGRAM);
    // Appended, not " " + ...: g++ 12 at -O3 takes that for an overlapping copy (a false
    // -Wrestrict).
    for (const auto& argument : arguments)
        command.append(" ").append(ShellQuoted(argument));
    command += " >" + ShellQuoted(out.string()) + " 2>" + ShellQuoted(err.string()) + " </dev/null";
    const int status = std::system(command.c_str());
    Finished run{WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(out), ReadFile(err)};
    std::filesystem::remove(out);
    std::filesystem::remove(err);
    return run;
}

}  // namespace vx::test
