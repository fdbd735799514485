#include "Vxctl.h"

#include <filesystem>
#include <functional>
#include <map>
#include <optional>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "ConfigCommands.h"
#include "Discover.h"
#include "Interrupt.h"
#include "Operations.h"
#include "TypeRegistry.h"
#include "Watch.h"

namespace vx::vxctl {
namespace {

constexpr const char* kHint =
    "hint: 'vxctl --help' lists the commands, 'vxctl COMMAND --help' describes one";

constexpr const char* kDescription =
    "vxctl: look at an Orvex controller, read and change its values, send it commands, and back "
    "up and restore its configuration.\n\n"
    "The controller is on the network or in the vxctl process. --device lonip://HOST[:PORT] "
    "reaches a node over LON/IP (UDP port 2541; /NEURONID after the address reaches it by its "
    "Neuron ID), and changes stay on the node. 'default' (the family's controller) or a node "
    "file (.json, .xif) is simulated in the vxctl process: every run loads it afresh, so what "
    "set, command, request, name and the config commands change lasts for that run alone.\n\n"
    "A network node's configuration items that are no network variables are reached in its "
    "memory, where a layout places them: the items with an address of the node file --layout "
    "names, or without it the default controller's for a node with its program ID (none for "
    "other nodes). The built-in revision description serves a node with the default "
    "controller's program ID unless --revision says otherwise.";

constexpr const char* kFooter =
    "Exit codes: 0 done; 1 a library error (number, source and description are printed) or the "
    "controller did not do what was asked; 2 a command line that cannot be meant; 3 the connect "
    "stopped part-way: the command ran on what was loaded, and the failure is printed. A node "
    "that does not answer is a failure (1); a malformed lonip:// address, a usage error (2). "
    "4 nothing raised but the controller did not do what was asked (a reset still running after "
    "the wait, a restored value that did not read back); 5 a configuration file that cannot be "
    "read or does not fit the controller, nothing sent; 6 a restore that stopped part-way, what "
    "arrived listed; 130 SIGINT or SIGTERM, what may be left open said.";

// Everything the command line can give.
struct CommandLine {
    DeviceChoice device;
    int timeoutMs = 0;
    int retries = 0;
    std::string range;
    bool broadcast = false;
    bool json = false;
    bool values = false;
    std::int32_t object = 0;
    std::string path;
    std::string value;
    std::string location = std::string(kNameLocation);
    std::string name;
    std::int32_t requestObject = 0;
    std::string request;
    std::int32_t level = 2;
    std::string file;
    RestoreOptions restore;
    WatchOptions watch;
    std::ostream* out = nullptr;  // where a command that streams writes as it goes
    std::map<std::string, std::vector<std::int32_t>> commandArguments;
    std::vector<std::int32_t> commandData;
};

CLI::Validator FileOr(std::vector<std::string_view> words, const std::string& shown,
                      bool networkNode = false) {
    return CLI::Validator(
        [words = std::move(words), networkNode](std::string& value) -> std::string {
            for (const auto word : words) {
                if (value == word) return {};
            }
            if (networkNode && IsLonIpAddress(value)) {
                try {
                    ParseDeviceAddress(value);
                    return {};
                } catch (const UsageError& error) {
                    return error.what();
                }
            }
            if (std::filesystem::is_regular_file(value)) return {};
            return "no such file: " + value;
        },
        shown);
}

CLI::Validator HostAddress() {
    return CLI::Validator(
        [](std::string& value) -> std::string {
            if (lon::Endpoint::Parse(value)) return {};
            return "'" + value +
                   "' is no IPv4 address with an optional port (for example 127.0.0.1 or "
                   "127.0.0.1:2541)";
        },
        "ADDR[:PORT]");
}

std::optional<std::int32_t> Given(const CLI::Option* option, std::int32_t value) {
    if (option->count() == 0) return std::nullopt;
    return value;
}

// What the command line asks for: to run once the controller is connected, or (discover) without
// a controller.
using Action = std::function<Outcome(Session&)>;
using StandaloneAction = std::function<Outcome()>;

// Defines the options and commands; parsing a command sets `action` or `standalone`.
void DefineCommandLine(CLI::App& app, CommandLine& line, Action& action,
                       StandaloneAction& standalone) {
    const auto runs = [&action](CLI::App* command, Action run) {
        command->callback([&action, run = std::move(run)] { action = run; });
    };
    app.fallthrough();  // the options before the commands also after them
    app.require_subcommand(1);
    app.add_option("--device", line.device.device,
                   "the controller: lonip://HOST[:PORT][/NEURONID] (a node on the network), "
                   "'default' (the family's controller, simulated in process), or a node "
                   "description (.json) or device interface file (.xif) simulated in process")
        ->check(FileOr({kDefaultDevice}, "lonip://HOST|FILE|default", true))
        ->capture_default_str();
    app.add_option("--revision", line.device.revision,
                   "the revision description: 'default' (built-in), 'none', or a file; without "
                   "it, the built-in one for the default controller's program ID")
        ->check(FileOr({kDefaultRevision, kNoRevision}, "FILE|default|none"));
    app.add_option("--layout", line.device.layout,
                   "for a network node: a node file (.json, .xif) whose configuration items "
                   "with a memory address the node keeps; without it, the default controller's "
                   "for a node with its program ID. Ignored for a node simulated in process")
        ->check(CLI::ExistingFile);
    app.add_option("--timeout", line.timeoutMs,
                   "LON/IP: how long one attempt waits for its answer, in "
                   "milliseconds (default 250, for discover 100). Ignored for "
                   "a node simulated in process")
        ->type_name("MS")
        ->check(CLI::Range(1, 10000));
    app.add_option("--retries", line.retries,
                   "LON/IP: attempts after the first (default 3, for discover "
                   "1). Ignored for a node simulated in process")
        ->type_name("N")
        ->check(CLI::Range(0, 10));
    app.add_option("--local", line.device.network.local,
                   "LON/IP: the host's own address and port (default: the address the system "
                   "sends from to the node, port 2541). Two hosts at once need two addresses")
        ->check(HostAddress());
    app.add_flag("--json", line.json, "output for scripts: one JSON document on stdout");

    runs(app.add_subcommand("info",
                            "identity, state, self-documentation, revision and the "
                            "functional blocks the node lists"),
         [](Session& session) { return Info(session); });

    auto* objects =
        app.add_subcommand("objects",
                           "the objects with the profile and block name the node lists, and "
                           "their variables with the host's direction, as a tree");
    objects->add_flag("--values", line.values, "read and show every value");
    runs(objects, [&line](Session& session) { return Objects(session, line.values); });

    auto* get = app.add_subcommand("get", "read a value from the controller");
    get->add_option("NAME", line.path, "variable[.field...][[entry]]")->required();
    auto* getObject = get->add_option("--object", line.object, "the object that holds it");
    runs(get, [&line, getObject](Session& session) {
        return Get(session, line.path, Given(getObject, line.object));
    });

    auto* set = app.add_subcommand(
        "set",
        "write a value to the controller (configuration values in a configuration download)");
    set->add_option("NAME", line.path, "variable[.field...][[entry]]")->required();
    set->add_option("VALUE", line.value,
                    "a number, with a unit if wanted (\"72 F\"); an enumeration member; true or "
                    "false; a text; 'invalid' for the type's invalid code; a whole structure, its "
                    "fields in order (\"100 1\") or a JSON object of some ('{\"value\": 50}'); "
                    "raw bytes in hexadecimal for a value of no known type (0x0102). A value the "
                    "type cannot hold is refused with its range, nothing written")
        ->required();
    auto* setObject = set->add_option("--object", line.object, "the object that holds it");
    runs(set, [&line, setObject](Session& session) {
        return Set(session, line.path, line.value, Given(setObject, line.object));
    });

    runs(app.add_subcommand("wink", "make the controller show itself"),
         [](Session& session) { return Wink(session); });
    runs(app.add_subcommand("ping", "check that the controller answers"),
         [](Session& session) { return Ping(session); });

    auto* name = app.add_subcommand("name", "read the device name, or write it and read it back");
    name->add_option("--location", line.location,
                     "a four-digit memory address, or a location the file directory resolves")
        ->capture_default_str();
    auto* nameText = name->add_option("TEXT", line.name, "the new name (30 characters at most)");
    runs(name, [&line, nameText](Session& session) {
        return Name(session, line.location,
                    nameText->count() ? std::optional(line.name) : std::nullopt);
    });

    auto* command = app.add_subcommand("command", "send one of the family's device commands");
    command->require_subcommand(1);
    for (const auto& family : FamilyCommands()) {
        auto* sub = command->add_subcommand(family.name, family.help);
        auto& values = line.commandArguments[family.name];
        values.resize(family.parameters.size());
        for (std::size_t i = 0; i < family.parameters.size(); ++i) {
            sub->add_option(family.parameters[i], values[i], ParameterRangeText(family.name, i))
                ->required();
        }
        if (family.takesData) {
            sub->add_option("BYTE", line.commandData, "up to ten data bytes, 0 to 255 each");
        }
        runs(sub, [&line, &values, name = family.name](Session& session) {
            std::vector<std::int32_t> arguments = values;
            arguments.insert(arguments.end(), line.commandData.begin(), line.commandData.end());
            return SendCommand(session, name, arguments);
        });
    }
    runs(app.add_subcommand("command-status", "the controller's answer to the last command"),
         [](Session& session) { return CommandStatus(session); });

    auto* status = app.add_subcommand("status", "object status flags");
    auto* statusObject = status->add_option("--object", line.object, "one object only");
    runs(status, [&line, statusObject](Session& session) {
        return ObjectStatus(session, Given(statusObject, line.object));
    });

    auto* request = app.add_subcommand("request", "send an object request");
    request->add_option("OBJECT", line.requestObject, "the object")->required();
    request->add_option("REQUEST", line.request, "RQ_DISABLED, DISABLED or its number")->required();
    runs(request,
         [&line](Session& session) { return Request(session, line.requestObject, line.request); });

    auto* config = app.add_subcommand("config", "the controller's configuration");
    config->require_subcommand(1);
    runs(config->add_subcommand("upload", "read the configuration"),
         [](Session& session) { return ConfigUpload(session); });
    auto* download = config->add_subcommand(
        "download", "send the configuration values of levels 2 to LEVEL again as they are");
    download->add_option("--level", line.level, "2, or 3 with a fresh checksum and a restart")
        ->check(CLI::IsMember({2, 3}))
        ->capture_default_str();
    auto* downloadObject =
        download->add_option("--object", line.object, "only this object's values");
    runs(download, [&line, downloadObject](Session& session) {
        return ConfigDownload(session, line.level, Given(downloadObject, line.object));
    });
    auto* save = config->add_subcommand(
        "save", "write the configuration to a JSON file: raw bytes with engineering values");
    save->add_option("FILE", line.file, "the file")->required();
    runs(save, [&line](Session& session) { return ConfigSave(session, line.file); });
    auto* restore = config->add_subcommand(
        "restore",
        "check a saved configuration against the controller, then write what differs, download "
        "it and read it back; a file that does not fit is refused before anything is sent");
    restore->add_option("FILE", line.file, "a file written by config save")
        ->required()
        ->check(CLI::ExistingFile);
    restore->add_flag("--dry-run", line.restore.dryRun,
                      "show what would change, field by field, and send nothing");
    restore->add_flag("--skip-unknown", line.restore.skipUnknown,
                      "restore the rest of a file that holds values the controller does not have");
    runs(restore,
         [&line](Session& session) { return ConfigRestore(session, line.file, line.restore); });
    auto* diff = config->add_subcommand(
        "diff", "compare a saved configuration with the controller, field by field");
    diff->add_option("FILE", line.file, "a file written by config save")
        ->required()
        ->check(CLI::ExistingFile);
    runs(diff, [&line](Session& session) { return ConfigDiff(session, line.file); });

    auto* watch = app.add_subcommand(
        "watch", "read values again every interval: one line for each change, with its time");
    watch->add_option("NAME", line.watch.names, "variable[.field...][[entry]], one or more")
        ->required();
    auto* watchObject = watch->add_option("--object", line.object, "the object that holds them");
    watch->add_option("--interval", line.watch.intervalSeconds, "seconds between reads")
        ->check(CLI::Range(kShortestWatchInterval, kLongestWatchInterval))
        ->capture_default_str();
    watch->add_option("--count", line.watch.count, "stop after N reads (default: until Ctrl-C)")
        ->type_name("N")
        ->check(CLI::PositiveNumber);
    watch
        ->add_option("--format", line.watch.format,
                     "text, csv (a header, then time,name,value,raw) or jsonl (one JSON object "
                     "a line); --json gives one document at the end instead")
        ->check(CLI::IsMember({"text", "csv", "jsonl"}))
        ->capture_default_str();
    runs(watch, [&line, watchObject](Session& session) {
        line.watch.object = Given(watchObject, line.object);
        return Watch(session, line.watch, *line.out, line.json);
    });

    auto* discover = app.add_subcommand(
        "discover", "the LON/IP nodes that answer on a range of addresses (needs no --device)");
    discover->add_option("--range", line.range, "FIRST-LAST, IPv4, at most 1024 addresses")
        ->required();
    discover->add_flag("--broadcast", line.broadcast,
                       "also ask the whole domain at once (multicast to 239.192.0.0:2541, "
                       "answers collected for 1 s)");
    discover->callback([&line, &standalone] {
        standalone = [&line] {
            return Discover(ParseAddressRange(line.range), line.device.network, line.broadcast);
        };
    });

    app.footer(kFooter);  // after the commands, which would inherit it
}

// Connects, runs the action and reports: its output on `out`, failures on `err`.
int Execute(const Action& action, const StandaloneAction& standalone, const CommandLine& line,
            std::ostream& out, std::ostream& err, bool terminal) {
    Progress progress(terminal ? &err : nullptr);
    const InterruptibleClockGuard interruptible;
    std::optional<ProgressClockGuard> clock;
    if (terminal) clock.emplace(progress);
    UseStandardTypes();

    std::optional<ComError> connectError;
    std::string stoppedAt;
    const auto reportConnectError = [&](bool shown) {
        if (!connectError) return;
        err << "vxctl: the connect stopped part-way, " << ErrorText(*connectError) << "\n";
        if (!stoppedAt.empty()) err << "vxctl: it stopped at " << stoppedAt << "\n";
        if (shown) err << "vxctl: shown is what was loaded before it stopped\n";
    };
    const auto printMessage = [&](const std::string& message) {
        if (line.json) out << Json{{"error", {{"message", message}}}}.dump(2) << "\n";
        err << "vxctl: " << message << "\n";
    };
    try {
        Outcome outcome;
        if (standalone) {
            outcome = standalone();
        } else {
            Session session(line.device, progress);
            connectError = session.ConnectError();
            stoppedAt = session.ConnectStoppedAt();
            outcome = action(session);
            if (session.ResetUnfinished() && outcome.failure.empty()) {
                outcome.failure =
                    "the controller still reported its application reset after the wait of 90 s";
                outcome.failureCode = kExitNotDone;
            }
        }
        if (connectError) outcome.json["connectError"] = ErrorJson(*connectError);
        if (!stoppedAt.empty()) outcome.json["connectError"]["stoppedAt"] = stoppedAt;
        out << (line.json ? outcome.json.dump(2) + "\n" : outcome.text);
        for (const auto& note : outcome.notes)
            err << "vxctl: " << note << "\n";
        if (!outcome.failure.empty()) err << "vxctl: " << outcome.failure << "\n";
        reportConnectError(true);
        if (!outcome.failure.empty()) return outcome.failureCode;
        return connectError ? kExitPartial : kExitSuccess;
    } catch (const ComError& error) {
        if (line.json) {
            Json document = {{"error", ErrorJson(error)}};
            if (connectError) document["connectError"] = ErrorJson(*connectError);
            if (!stoppedAt.empty()) document["connectError"]["stoppedAt"] = stoppedAt;
            out << document.dump(2) << "\n";
        }
        err << "vxctl: " << ErrorText(error) << "\n";
        reportConnectError(false);
        return kExitFailure;
    } catch (const DownloadStopped& stopped) {
        if (line.json) {
            Json document = {{"error", stopped.Error() ? ErrorJson(*stopped.Error())
                                                       : Json{{"message", stopped.what()}}}};
            document["error"]["downloadClosed"] = stopped.PhaseClosed();
            out << document.dump(2) << "\n";
        }
        err << "vxctl: " << stopped.what() << "\nvxctl: " << stopped.PhaseText() << "\n";
        return stopped.Error() ? kExitFailure : kExitInterrupted;
    } catch (const Interrupted& stop) {
        printMessage(std::string(stop.what()) + " before the command finished");
        return kExitInterrupted;
    } catch (const UsageError& error) {
        printMessage(error.what());
        err << kHint << "\n";
        return kExitUsage;
    } catch (const FileRefusedError& error) {
        printMessage(error.what());
        return kExitFileRefused;
    } catch (const ToolError& error) {
        printMessage(error.what());
        reportConnectError(false);
        return kExitFailure;
    }
}

}  // namespace

int Run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err,
        bool terminal) {
    CommandLine line;
    line.out = &out;
    Action action;
    StandaloneAction standalone;
    CLI::App app(kDescription, "vxctl");
    DefineCommandLine(app, line, action, standalone);

    std::vector<const char*> argv = {"vxctl"};
    for (const auto& argument : arguments)
        argv.push_back(argument.c_str());
    try {
        app.parse(static_cast<int>(argv.size()), argv.data());
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
            return app.exit(error, out, err);  // --help
        }
        err << "vxctl: " << error.what() << "\n" << kHint << "\n";
        return kExitUsage;
    }
    // Unset, each command takes its own default.
    if (app.get_option("--timeout")->count() > 0) {
        line.device.network.timeout = std::chrono::milliseconds(line.timeoutMs);
    }
    if (app.get_option("--retries")->count() > 0) line.device.network.retries = line.retries;
    return Execute(action, standalone, line, out, err, terminal);
}

}  // namespace vx::vxctl
