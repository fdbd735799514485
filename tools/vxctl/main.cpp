// vxctl: the service technician's command-line tool (Vxctl.h).
#include <unistd.h>

#include <iostream>
#include <string>
#include <vector>

#include "Interrupt.h"
#include "Vxctl.h"

int main(int argc, char** argv) {
    vx::vxctl::InstallInterruptHandlers();
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const vx::vxctl::Console console{&std::cin, isatty(STDIN_FILENO) != 0,
                                     isatty(STDERR_FILENO) != 0};
    return vx::vxctl::Run(arguments, std::cout, std::cerr, console);
}
