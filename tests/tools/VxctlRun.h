#pragma once

// Runs vxctl as a program, the way scripts and technicians run it, and keeps what it printed.

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
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

// Runs vxctl with `input` on its standard input, or with none.
inline Finished Vxctl(const std::vector<std::string>& arguments,
                      const std::optional<std::string>& input = std::nullopt) {
    const auto in = ScratchFile(".in");
    const auto out = ScratchFile(".out");
    const auto err = ScratchFile(".err");
    if (input) std::ofstream(in, std::ios::binary) << *input;
    std::string command = ShellQuoted(VXCTL_PROGRAM);
    // Appended, not " " + ...: g++ 12 at -O3 takes that for an overlapping copy (a false
    // -Wrestrict).
    for (const auto& argument : arguments)
        command.append(" ").append(ShellQuoted(argument));
    command.append(" >").append(ShellQuoted(out.string()));
    command.append(" 2>").append(ShellQuoted(err.string()));
    command.append(" <").append(input ? ShellQuoted(in.string()) : std::string("/dev/null"));
    const int status = std::system(command.c_str());
    Finished run{WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(out), ReadFile(err)};
    for (const auto& path : {in, out, err})
        std::filesystem::remove(path);
    return run;
}

}  // namespace vx::test
