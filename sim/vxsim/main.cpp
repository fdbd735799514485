// vxsim: one simulated controller served as a LON/IP node on a UDP address, so that a host (the
// library's LonIpNode, a network-services tool) reaches the same node model over a network
// (docs/sim.md, "vxsim, the node on the network").
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cctype>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "DefaultController.h"
#include "NodeJson.h"
#include "NodeServer.h"
#include "NodeService.h"
#include "NodeSnapshot.h"
#include "automation/ComError.h"

namespace {

namespace fs = std::filesystem;
using vx::vxsim::NodeService;

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

constexpr const char* kDescription =
    "vxsim serves one simulated controller as a LON/IP node on a UDP address: it answers the\n"
    "network-management and network-variable messages a host sends, from the node model of the\n"
    "simulator (docs/sim.md).";

struct CommandLine {
    std::string listen;
    std::string device;
    std::string stateFile;
    bool verbose = false;
    std::string address = "1/1";
    std::int64_t receiveTimer = 2000;
    std::size_t siSlice = vx::vxsim::kMaxSiSlice;
    std::uint32_t latency = 0;
    std::optional<std::int32_t> resetPolls;
    std::vector<std::string> faults;
};

// A start-up failure: the message is printed after "vxsim: " and the program exits 1.
struct StartError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

std::optional<std::int64_t> ParseInteger(std::string_view text) {
    std::int64_t value = 0;
    bool negative = !text.empty() && text.front() == '-';
    if (negative) text.remove_prefix(1);
    if (text.empty() || text.size() > 9) return std::nullopt;
    for (const char c : text) {
        if (c < '0' || c > '9') return std::nullopt;
        value = value * 10 + (c - '0');
    }
    return negative ? -value : value;
}

// SUBNET/NODE, subnet 1..255 and node 1..127.
vx::lon::LonAddress ParseAddress(const std::string& text) {
    const auto slash = text.find('/');
    const auto subnet = ParseInteger(std::string_view(text).substr(0, slash));
    const auto node = slash == std::string::npos
                          ? std::nullopt
                          : ParseInteger(std::string_view(text).substr(slash + 1));
    if (!subnet || !node || *subnet < 1 || *subnet > 255 || *node < 1 || *node > 127) {
        throw StartError("--address " + text +
                         ": a LonTalk address is SUBNET/NODE, subnet 1..255, node 1..127");
    }
    return {static_cast<std::uint8_t>(*subnet), static_cast<std::uint8_t>(*node), {}};
}

// OPERATION[:TARGET][=COUNT]: the next COUNT calls (1 unless given, -1 every call) get no answer.
vx::sim::Fault ParseFault(const std::string& text) {
    vx::sim::Fault fault;
    std::string_view rest = text;
    if (const auto equals = rest.find('='); equals != std::string_view::npos) {
        const auto count = ParseInteger(rest.substr(equals + 1));
        if (!count || *count == 0 || *count < vx::sim::kFaultAlways) {
            throw StartError("--fault " + text + ": the count is 1 or more, or -1 for every call");
        }
        fault.count = static_cast<std::int32_t>(*count);
        rest = rest.substr(0, equals);
    }
    if (const auto colon = rest.find(':'); colon != std::string_view::npos) {
        fault.target = std::string(rest.substr(colon + 1));
        rest = rest.substr(0, colon);
    }
    fault.operation = std::string(rest);
    // The node names message codes in upper case ("6D").
    if (fault.operation == "SendNetworkMessage") {
        for (char& c : fault.target)
            c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    fault.kind = vx::sim::FaultKind::kNoAnswer;
    return fault;
}

std::string ReadWholeFile(const fs::path& path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) throw StartError("cannot open " + path.string());
    std::stringstream content;
    content << stream.rdbuf();
    return content.str();
}

struct LoadedNode {
    vx::sim::SimulatedNodePtr node;
    std::string origin;  // what the node was made from, for the start-up line
};

LoadedNode LoadNodeFor(const CommandLine& line) {
    // A state file holds the node as a previous run left it; it wins over --device.
    if (!line.stateFile.empty()) {
        std::error_code error;
        const bool exists = fs::exists(line.stateFile, error);
        if (error) {
            throw StartError("cannot look at the state file " + line.stateFile + ": " +
                             error.message());
        }
        if (exists && !fs::is_regular_file(line.stateFile, error)) {
            throw StartError("the state file " + line.stateFile +
                             " is no regular file (it is left as it is)");
        }
        if (exists) {
            try {
                const std::string text = ReadWholeFile(line.stateFile);
                return {vx::sim::LoadNodeState(text, line.stateFile),
                        "the state file " + line.stateFile};
            } catch (const std::exception& failure) {
                throw StartError(std::string(failure.what()) + " (the state file " +
                                 line.stateFile + " is left as it is)");
            }
        }
    }
    if (line.device == "default") {
        return {vx::sim::SimulatedNode::Create(vx::sim::DefaultController()),
                "the default controller"};
    }
    return {vx::sim::SimulatedNode::Create(vx::sim::LoadNode(line.device)), line.device};
}

std::string TimeOfDay() {
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    std::tm local{};
    localtime_r(&seconds, &local);
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() %
        1000;
    return fmt::format("{:02}:{:02}:{:02}.{:03}", local.tm_hour, local.tm_min, local.tm_sec,
                       milliseconds);
}

void DefineCommandLine(CLI::App& app, CommandLine& line) {
    app.add_option("--listen", line.listen,
                   "the IPv4 address and UDP port to serve on, ADDRESS[:PORT] (port 2541 unless "
                   "given)")
        ->required();
    app.add_option("--device", line.device,
                   "the node: default (the built-in controller), a node file (.json) or a device "
                   "interface file (.xif)")
        ->required();
    app.add_option("--state", line.stateFile,
                   "a state file: the node is loaded from it when it exists, and saved to it "
                   "whenever it changes");
    app.add_flag("--verbose", line.verbose, "one line per exchange on the standard error");
    app.add_option("--address", line.address,
                   "the node's LonTalk address, SUBNET/NODE (domain of length 0)")
        ->capture_default_str();
    app.add_option("--receive-timer", line.receiveTimer,
                   "milliseconds a transaction is remembered, so that retries are not acted on "
                   "twice")
        ->check(CLI::Range(0, 3600000))
        ->capture_default_str();
    app.add_option("--si-slice", line.siSlice,
                   "the largest slice of self-identification data one Query SI may ask for")
        ->check(CLI::Range(std::size_t{1}, vx::vxsim::kMaxSiSlice))
        ->capture_default_str();
    app.add_option("--latency", line.latency,
                   "milliseconds every exchange waits before it is answered")
        ->check(CLI::Range(0, 600000));
    app.add_option_function<std::int32_t>(
           "--reset-polls", [&line](const std::int32_t& polls) { line.resetPolls = polls; },
           "reads of the alarm message an application restart lasts (-1 never ends)")
        ->check(CLI::Range(-1, 1000000));
    app.add_option("--fault", line.faults,
                   "OPERATION[:TARGET][=COUNT]: the next COUNT calls (1 unless given, -1 every "
                   "call) of ReadValue, WriteValue, SendNetworkMessage or Wink get no answer; "
                   "repeatable")
        ->allow_extra_args(false);
}

int Serve(const CommandLine& line) {
    const auto listen = vx::lon::Endpoint::Parse(line.listen);
    if (!listen) {
        throw StartError("--listen " + line.listen + ": an IPv4 address, optionally :PORT");
    }
    vx::vxsim::NodeServiceOptions options;
    options.address = ParseAddress(line.address);
    options.receiveTimer = std::chrono::milliseconds(line.receiveTimer);
    options.siSliceLimit = line.siSlice;

    LoadedNode loaded = LoadNodeFor(line);
    const vx::sim::SimulatedNodePtr& node = loaded.node;
    // A node that runs for long keeps no record of its exchanges.
    node->SetRecording(false);
    node->SetLatency(line.latency);
    if (line.resetPolls) node->SetResetPolls(*line.resetPolls);
    NodeService service(node, options);
    for (const auto& text : line.faults)
        node->InjectFault(ParseFault(text));
    if (service.SelfIdentificationData().empty()) {
        std::cerr << "vxsim: the node's self-identification data is too long to serve; Query SI "
                     "will fail\n";
    }

    vx::vxsim::NodeServerOptions serving;
    serving.stateFile = line.stateFile;
    serving.stopOnSignals = true;
    serving.domainBroadcasts = true;
    if (line.verbose) {
        serving.log = [](const std::string& exchange) {
            std::cerr << TimeOfDay() << " " << exchange << "\n";
        };
    }
    std::optional<vx::vxsim::NodeServer> server;
    try {
        server.emplace(service, *listen, serving);
    } catch (const vx::ComError& error) {
        throw StartError(error.Description());
    }
    std::cout << fmt::format("vxsim: serving {} (Neuron ID {}, LonTalk address {}/{}) on {}",
                             loaded.origin, node->Description().neuronId, options.address.subnet,
                             options.address.node, listen->Text())
              << std::endl;
    return server->Run() ? 0 : kExitFailure;
}

}  // namespace

int main(int argc, char** argv) {
    CommandLine line;
    CLI::App app(kDescription, "vxsim");
    DefineCommandLine(app, line);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
            return app.exit(error);  // --help
        }
        std::cerr << "vxsim: " << error.what() << "\nRun vxsim --help for the options.\n";
        return kExitUsage;
    }
    try {
        return Serve(line);
    } catch (const StartError& error) {
        std::cerr << "vxsim: " << error.what() << "\n";
    } catch (const vx::ComError& error) {
        std::cerr << "vxsim: " << error.Description() << "\n";
    } catch (const std::exception& error) {
        std::cerr << "vxsim: " << error.what() << "\n";
    }
    return kExitFailure;
}
