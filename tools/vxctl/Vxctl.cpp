#include "Vxctl.h"

#include <charconv>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <sstream>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "BashCompletion.h"
#include "Batch.h"
#include "ConfigCommands.h"
#include "Diagnostics.h"
#include "Discover.h"
#include "ErrorReport.h"
#include "Interrupt.h"
#include "Operations.h"
#include "TypeRegistry.h"
#include "ValueInput.h"
#include "Watch.h"
#include "WordSuggestions.h"

namespace vx::vxctl {
namespace {

constexpr const char* kHint =
    "hint: 'vxctl --help' lists the commands, 'vxctl COMMAND --help' describes one";

constexpr const char* kDescription =
    "vxctl: look at an Orvex controller, read and change its values, send it commands, back up "
    "and restore its configuration, and look into the node itself.\n\n"
    "The controller is on the network or in the vxctl process. --device lonip://HOST[:PORT] "
    "reaches a node over LON/IP (UDP port 2541; /NEURONID after the address reaches it by its "
    "Neuron ID), and changes stay on the node. 'default' (the family's controller) or a node "
    "file (.json, .xif) is simulated in the vxctl process: every run loads it afresh, so what "
    "set, command, request, name, mode and the config commands change lasts for that run alone "
    "(or for one 'vxctl run' batch).\n\n"
    "A network node's configuration items that are no network variables are reached in its "
    "memory, where a layout places them: the items with an address of the node file --layout "
    "names, or without it the default controller's for a node with its program ID (none for "
    "other nodes). The built-in revision description serves a node with the default "
    "controller's program ID unless --revision says otherwise.\n\n"
    "Changes that are hard to undo ask first: command reset-memory, mode reset, a write to an "
    "output or to the configuration checksum. --yes answers for them; without a terminal to ask "
    "on they are refused (exit code 7).";

constexpr const char* kFooter =
    "Exit codes:\n"
    "  0    done\n"
    "  1    the library or the network raised an error (its number, source and text are shown)\n"
    "  2    a command line that cannot be meant: an unknown word, or a value refused (the valid "
    "range is shown); nothing was sent\n"
    "  3    the connect stopped part-way: the command ran on what was loaded\n"
    "  4    nothing raised, but the controller did not do what was asked\n"
    "  5    a file was refused (it does not fit the device or cannot be read); nothing was sent\n"
    "  6    a change of several steps stopped part-way; what arrived is listed\n"
    "  7    a change that needs confirmation was not confirmed (--yes confirms)\n"
    "  130  interrupted (Ctrl-C or SIGTERM); what was done and what may be left open is said\n"
    "With --json, stdout holds one JSON document whatever happens; a failure adds "
    "\"error\": {kind, message, exitCode, number, hex, source, description}.";

// The connection's options, which a batch takes once for all its lines.
constexpr const char* kConnectionOptions[] = {"--device",  "--revision", "--layout", "--timeout",
                                              "--retries", "--local",    "--json"};
// Commands that cannot be a line of a batch: they have no controller or run lines themselves.
constexpr const char* kNoBatchLine[] = {"run", "discover", "completion"};

// Everything the command line can give.
struct CommandLine {
    DeviceChoice device;
    int timeoutMs = 0;
    int retries = 0;
    std::string range;
    bool broadcast = false;
    bool json = false;
    bool yes = false;
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
    std::string batch = "-";
    std::int32_t memoryAddress = 0;
    std::int32_t memoryCount = 0;
    std::string area = "absolute";
    std::string mode;
    std::string shell;
    RestoreOptions restore;
    WatchOptions watch;
    std::ostream* out = nullptr;  // where a command that streams writes as it goes
    std::map<std::string, std::vector<std::int32_t>> commandArguments;
    std::vector<std::int32_t> commandData;
};

// What a parsed command line does. `question` names a change that needs confirmation; it is asked
// before `run` sends anything.
struct Command {
    std::function<std::optional<std::string>(Session&)> question;
    std::function<Outcome(Session&)> run;
    std::function<Outcome()> standalone;  // needs no controller
    bool batch = false;                   // vxctl run: the lines come from a file
};

// ---- Arguments ---------------------------------------------------------------------------------

// "a, b, c". Joined by hand: fmt::join of strings draws a false stringop-overflow warning from
// g++ 12 at -O3.
std::string Listed(const std::vector<std::string>& words) {
    std::string list;
    for (const auto& word : words)
        list += (list.empty() ? "" : ", ") + word;
    return list;
}

// A whole number in decimal, or hexadecimal after 0x.
std::int64_t WholeNumber(const std::string& argument, const std::string& text, std::int64_t low,
                         std::int64_t high) {
    const std::string range = fmt::format("the valid range is {} to {}", low, high);
    std::string_view digits = text;
    int base = 10;
    bool negative = false;
    if (digits.starts_with('-')) {
        negative = true;
        digits.remove_prefix(1);
    }
    if (digits.starts_with("0x") || digits.starts_with("0X")) {
        base = 16;
        digits.remove_prefix(2);
    }
    std::uint64_t magnitude = 0;
    const auto [stop, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), magnitude, base);
    if (digits.empty() || stop != digits.data() + digits.size() ||
        error == std::errc::invalid_argument) {
        throw ArgumentError(argument, text, "a whole number is needed; " + range);
    }
    constexpr std::uint64_t kLargest = 1ULL << 40;  // far beyond any range, so no overflow below
    if (error == std::errc::result_out_of_range || magnitude > kLargest) {
        throw ArgumentError(argument, text, "out of range; " + range);
    }
    const std::int64_t number =
        negative ? -static_cast<std::int64_t>(magnitude) : static_cast<std::int64_t>(magnitude);
    if (number < low || number > high)
        throw ArgumentError(argument, text, "out of range; " + range);
    return number;
}

CLI::Option* AddNumber(CLI::App* app, const std::string& name, std::int32_t& target,
                       std::int64_t low, std::int64_t high, const std::string& help) {
    return app
        ->add_option_function<std::string>(
            name,
            [&target, name, low, high](const std::string& text) {
                target = static_cast<std::int32_t>(WholeNumber(name, text, low, high));
            },
            fmt::format("{} ({} to {})", help, low, high))
        ->type_name("INT");
}

CLI::Option* AddChoice(CLI::App* app, const std::string& name, std::string& target,
                       std::vector<std::string> words, const std::string& help) {
    const std::string list = Listed(words);
    return app
        ->add_option_function<std::string>(
            name,
            [&target, name, words, list](const std::string& text) {
                if (std::find(words.begin(), words.end(), text) == words.end()) {
                    throw ArgumentError(
                        name, text,
                        fmt::format("one of {} is needed{}", list, MeantWords(text, words)));
                }
                target = text;
            },
            help)
        ->type_name(fmt::format("{{{}}}", list));
}

std::function<void(const std::string&)> FileOr(std::vector<std::string> words,
                                               const std::string& name, std::string& target,
                                               bool networkNode = false) {
    return [words = std::move(words), name, &target, networkNode](const std::string& value) {
        target = value;
        for (const auto& word : words) {
            if (value == word) return;
        }
        if (networkNode && IsLonIpAddress(value)) {
            try {
                ParseDeviceAddress(value);
                return;
            } catch (const UsageError& error) {
                throw ArgumentError(name, value, error.what());
            }
        }
        if (std::filesystem::is_regular_file(value)) return;
        throw ArgumentError(name, value,
                            words.empty()
                                ? std::string("no such file")
                                : fmt::format("no such file (or one of: {})", Listed(words)));
    };
}

std::optional<std::int32_t> Given(const CLI::Option* option, std::int32_t value) {
    if (option->count() == 0) return std::nullopt;
    return value;
}

// Ranges of the family's command parameters: bytes where the command frame holds a byte.
struct ParameterRange {
    std::int64_t low;
    std::int64_t high;
};
ParameterRange RangeOf(const std::string& command, const std::string& parameter) {
    constexpr std::int64_t kWord = 65535;
    constexpr std::int64_t kByte = 255;
    if (parameter == "LEVEL") return {2, 3};
    if (parameter == "TIMER" || parameter == "VALUE") return {0, kWord};
    if (parameter == "CODE" && command == "keypress") return {0, kWord};
    if (parameter == "OBJECT" && command == "open-download") return {0, kWord};
    return {0, kByte};
}

std::string ParameterHelp(const std::string& command, const std::string& parameter) {
    if (parameter == "TIMER") return "the timer's number";
    if (parameter == "VALUE") return "the timer's new value";
    if (parameter == "CODE") return command == "keypress" ? "the key's code" : "the command code";
    if (parameter == "OBJECT") return "the object's ID";
    if (parameter == "KIND") return "what to reset";
    if (parameter == "LEVEL") return "the download's level";
    return parameter;
}

// ---- The command line --------------------------------------------------------------------------

// Defines the options and commands; parsing a command line fills `command`.
void DefineCommandLine(CLI::App& app, CommandLine& line, Command& command) {
    const auto runs = [&command](
                          CLI::App* sub, std::function<Outcome(Session&)> run,
                          std::function<std::optional<std::string>(Session&)> question = {}) {
        sub->callback([&command, run = std::move(run), question = std::move(question)] {
            command.run = run;
            command.question = question;
        });
    };
    app.fallthrough();  // the options before the commands also after them
    app.require_subcommand(1);
    app.add_option_function<std::string>(
           "--device", FileOr({std::string(kDefaultDevice)}, "--device", line.device.device, true),
           "the controller: lonip://HOST[:PORT][/NEURONID] (a node on the network), "
           "'default' (the family's controller, simulated in process), or a node "
           "description (.json) or device interface file (.xif) simulated in process "
           "(default: default)")
        ->type_name("lonip://HOST|FILE|default");
    app.add_option_function<std::string>(
           "--revision",
           FileOr({std::string(kDefaultRevision), std::string(kNoRevision)}, "--revision",
                  line.device.revision),
           "the revision description: 'default' (built-in), 'none', or a file; without "
           "it, the built-in one for the default controller's program ID")
        ->type_name("FILE|default|none");
    app.add_option_function<std::string>(
           "--layout", FileOr({}, "--layout", line.device.layout),
           "for a network node: a node file (.json, .xif) whose configuration items "
           "with a memory address the node keeps; without it, the default controller's "
           "for a node with its program ID. Ignored for a node simulated in process")
        ->type_name("FILE");
    AddNumber(&app, "--timeout", line.timeoutMs, 1, 10000,
              "LON/IP: how long one attempt waits for its answer, in milliseconds (default 250, "
              "for discover 100). Ignored for a node simulated in process")
        ->type_name("MS");
    AddNumber(&app, "--retries", line.retries, 0, 10,
              "LON/IP: attempts after the first (default 3, for discover 1). Ignored for a node "
              "simulated in process")
        ->type_name("N");
    app.add_option_function<std::string>(
           "--local",
           [&line](const std::string& value) {
               if (!lon::Endpoint::Parse(value)) {
                   throw ArgumentError("--local", value,
                                       "an IPv4 address with an optional port is needed (for "
                                       "example 127.0.0.1 or 127.0.0.1:2541)");
               }
               line.device.network.local = value;
           },
           "LON/IP: the host's own address and port (default: the address the system "
           "sends from to the node, port 2541). Two hosts at once need two addresses")
        ->type_name("ADDR[:PORT]");
    app.add_flag("--json", line.json,
                 "output for scripts: one JSON document on stdout, also for every failure");
    app.add_flag("-y,--yes", line.yes,
                 "confirm the changes that ask first (reset-memory, mode reset, writes to "
                 "outputs and to the configuration checksum)");

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
    auto* getObject =
        AddNumber(get, "--object", line.object, -1, 65535, "the object that holds it");
    runs(get, [&line, getObject](Session& session) {
        return Get(session, line.path, Given(getObject, line.object));
    });

    auto* set = app.add_subcommand(
        "set",
        "write a value to the controller (configuration values in a configuration download); a "
        "write to an output or to the configuration checksum asks first");
    set->add_option("NAME", line.path, "variable[.field...][[entry]]")->required();
    set->add_option("VALUE", line.value,
                    "a number, with a unit if wanted (\"72 F\"); an enumeration member; true or "
                    "false; a text; 'invalid' for the type's invalid code; a whole structure, its "
                    "fields in order (\"100 1\") or a JSON object of some ('{\"value\": 50}'); "
                    "raw bytes in hexadecimal for a value of no known type (0x0102). A value the "
                    "type cannot hold is refused with its range, nothing written")
        ->required();
    auto* setObject =
        AddNumber(set, "--object", line.object, -1, 65535, "the object that holds it");
    runs(
        set,
        [&line, setObject](Session& session) {
            try {
                return Set(session, line.path, line.value, Given(setObject, line.object));
            } catch (const ComError& error) {
                RethrowForArgument(error, "VALUE", line.value);
            }
        },
        [&line, setObject](Session& session) -> std::optional<std::string> {
            const VariablePath target = session.Find(line.path, Given(setObject, line.object));
            // A value that would be refused is refused before anybody is asked to confirm it.
            if (const auto type = target.element->Typedef(); type && target.entry) {
                CheckValue(*type, line.value, target.Shown());
            } else if (type) {
                PlanWrites(target.element, line.value, target.Shown());
            }
            if (target.variable->Category() == kCategoryOutputNv) {
                return fmt::format("write {} to the controller's output {}", line.value,
                                   target.Shown());
            }
            if (const auto& checksum = session.Device().CommandChannel()->CrcProperty();
                checksum && target.variable == checksum) {
                return fmt::format("overwrite the configuration checksum {} with {}",
                                   target.Shown(), line.value);
            }
            return std::nullopt;
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

    auto* familyCommand = app.add_subcommand("command", "send one of the family's device commands");
    familyCommand->require_subcommand(1);
    for (const auto& family : FamilyCommands()) {
        auto* sub = familyCommand->add_subcommand(family.name, family.help);
        auto& values = line.commandArguments[family.name];
        values.resize(family.parameters.size());
        for (std::size_t i = 0; i < family.parameters.size(); ++i) {
            const auto [low, high] = RangeOf(family.name, family.parameters[i]);
            AddNumber(sub, family.parameters[i], values[i], low, high,
                      ParameterHelp(family.name, family.parameters[i]))
                ->required();
        }
        if (family.takesData) {
            static constexpr std::size_t kMostDataBytes = 10;
            sub->add_option_function<std::vector<std::string>>(
                   "BYTE",
                   [&line](const std::vector<std::string>& texts) {
                       if (texts.size() > kMostDataBytes) {
                           throw ArgumentError(
                               "BYTE", texts[kMostDataBytes],
                               fmt::format("a command takes at most {} data bytes; {} were given",
                                           kMostDataBytes, texts.size()));
                       }
                       line.commandData.clear();
                       for (const auto& text : texts) {
                           line.commandData.push_back(
                               static_cast<std::int32_t>(WholeNumber("BYTE", text, 0, 255)));
                       }
                   },
                   "data bytes, at most ten (0 to 255)")
                ->type_name("INT");
        }
        const bool asks = family.name == "reset-memory";
        runs(
            sub,
            [&line, &values, name = family.name](Session& session) {
                std::vector<std::int32_t> arguments = values;
                arguments.insert(arguments.end(), line.commandData.begin(), line.commandData.end());
                return SendCommand(session, name, arguments);
            },
            [asks, &values](Session&) -> std::optional<std::string> {
                if (!asks) return std::nullopt;
                return fmt::format(
                    "reset the controller's memory to the configuration it was delivered with "
                    "(kind {})",
                    values.front());
            });
    }
    runs(app.add_subcommand("command-status", "the controller's answer to the last command"),
         [](Session& session) { return CommandStatus(session); });

    auto* status = app.add_subcommand("status", "object status flags");
    auto* statusObject = AddNumber(status, "--object", line.object, 0, 65535, "one object only");
    runs(status, [&line, statusObject](Session& session) {
        return ObjectStatus(session, Given(statusObject, line.object));
    });

    auto* request = app.add_subcommand("request", "send an object request");
    AddNumber(request, "OBJECT", line.requestObject, 0, 65535, "the object")->required();
    request->add_option("REQUEST", line.request, "RQ_DISABLED, DISABLED or its number (0 to 255)")
        ->required();
    runs(request,
         [&line](Session& session) { return Request(session, line.requestObject, line.request); });

    auto* config = app.add_subcommand("config", "the controller's configuration");
    config->require_subcommand(1);
    runs(config->add_subcommand("upload", "read the configuration"),
         [](Session& session) { return ConfigUpload(session); });
    auto* download = config->add_subcommand(
        "download", "send the configuration values of levels 2 to LEVEL again as they are");
    AddNumber(download, "--level", line.level, 2, 3,
              "2, or 3 with a fresh checksum and a restart (default 2)");
    auto* downloadObject =
        AddNumber(download, "--object", line.object, 0, 65535, "only this object's values");
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
    restore
        ->add_option_function<std::string>("FILE", FileOr({}, "FILE", line.file),
                                           "a file written by config save")
        ->required();
    restore->add_flag("--dry-run", line.restore.dryRun,
                      "show what would change, field by field, and send nothing");
    restore->add_flag("--skip-unknown", line.restore.skipUnknown,
                      "restore the rest of a file that holds values the controller does not have");
    runs(restore,
         [&line](Session& session) { return ConfigRestore(session, line.file, line.restore); });
    auto* diff = config->add_subcommand(
        "diff", "compare a saved configuration with the controller, field by field");
    diff->add_option_function<std::string>("FILE", FileOr({}, "FILE", line.file),
                                           "a file written by config save")
        ->required();
    runs(diff, [&line](Session& session) { return ConfigDiff(session, line.file); });

    auto* watch = app.add_subcommand(
        "watch", "read values again every interval: one line for each change, with its time");
    watch->add_option("NAME", line.watch.names, "variable[.field...][[entry]], one or more")
        ->required();
    auto* watchObject =
        AddNumber(watch, "--object", line.object, -1, 65535, "the object that holds them");
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

    runs(app.add_subcommand("query-status",
                            "the node's status block: error counters, reset cause, state, "
                            "firmware version, last error, model"),
         [](Session& session) { return QueryStatus(session); });
    auto* readMemory = app.add_subcommand("read-memory", "the node's memory as a hex dump");
    AddNumber(readMemory, "ADDR", line.memoryAddress, 0, 0xFFFF,
              "the first address (decimal, or hexadecimal after 0x)")
        ->required();
    AddNumber(readMemory, "COUNT", line.memoryCount, 1, kMostMemoryBytes, "how many bytes")
        ->required();
    AddChoice(readMemory, "--area", line.area, {"absolute", "read-only", "config"},
              "absolute addresses (default), or offsets into the read-only or configuration data");
    runs(readMemory, [&line](Session& session) {
        if (line.memoryAddress + line.memoryCount > 0x10000) {
            throw ArgumentError("COUNT", std::to_string(line.memoryCount),
                                fmt::format("reaches past the end of the memory at 0xFFFF; at "
                                            "most {} bytes from 0x{:04X}",
                                            0x10000 - line.memoryAddress, line.memoryAddress));
        }
        return ReadMemory(session, static_cast<std::uint32_t>(line.memoryAddress),
                          static_cast<std::uint32_t>(line.memoryCount), MemoryAreaNamed(line.area));
    });
    auto* mode = app.add_subcommand(
        "mode", "take the application online or offline, or reset it (reset asks first)");
    AddChoice(mode, "MODE", line.mode, {"online", "offline", "reset"}, "the mode")->required();
    runs(
        mode,
        [&line](Session& session) {
            return SetApplicationMode(session, ApplicationModeNamed(line.mode));
        },
        [&line](Session&) -> std::optional<std::string> {
            if (line.mode != "reset") return std::nullopt;
            return std::string("reset the controller's application");
        });

    auto* run = app.add_subcommand(
        "run",
        "run the commands of FILE (one command line a line, '#' starts a comment) on one "
        "connection, in order; stops at the first that fails. All lines are checked before the "
        "first is run. The connection's options and --json are given to run, not on the lines");
    run->add_option("FILE", line.batch, "the commands; - or none: standard input")
        ->capture_default_str();
    run->callback([&command] { command.batch = true; });

    auto* discover = app.add_subcommand(
        "discover", "the LON/IP nodes that answer on a range of addresses (needs no --device)");
    discover->add_option("--range", line.range, "FIRST-LAST, IPv4, at most 1024 addresses")
        ->required();
    discover->add_flag("--broadcast", line.broadcast,
                       "also ask the whole domain at once (multicast to 239.192.0.0:2541, "
                       "answers collected for 1 s)");
    discover->callback([&line, &command] {
        command.standalone = [&line] {
            return Discover(ParseAddressRange(line.range), line.device.network, line.broadcast);
        };
    });

    auto* completion =
        app.add_subcommand("completion",
                           "print the bash completion script (install it as "
                           "/usr/share/bash-completion/completions/vxctl, or source it)");
    AddChoice(completion, "SHELL", line.shell, {"bash"}, "the shell")->required();
    completion->callback([&command] {
        command.standalone = [] {
            Outcome outcome;
            outcome.text = kBashCompletion;
            outcome.json = {{"shell", "bash"}, {"script", kBashCompletion}};
            return outcome;
        };
    });

    app.footer(kFooter);  // after the commands, which would inherit it
}

// ---- Parsing -----------------------------------------------------------------------------------

// The names a technician could have meant at `app`'s level.
std::vector<std::string> CommandNames(CLI::App& app) {
    std::vector<std::string> names;
    for (const auto* sub : app.get_subcommands([](CLI::App*) { return true; }))
        names.push_back(sub->get_name());
    return names;
}

std::vector<std::string> OptionNames(CLI::App* app) {
    std::vector<std::string> names;
    const auto add = [&names](std::string name) {
        if (std::find(names.begin(), names.end(), name) == names.end())
            names.push_back(std::move(name));
    };
    for (; app != nullptr; app = app->get_parent()) {
        for (const auto* option : app->get_options()) {
            for (const auto& name : option->get_lnames())
                add("--" + name);
            for (const auto& name : option->get_snames())
                add("-" + name);
        }
    }
    return names;
}

std::string CommandPath(CLI::App* app) {
    std::string path;
    for (; app != nullptr && app->get_parent() != nullptr; app = app->get_parent())
        path = app->get_name() + (path.empty() ? "" : " " + path);
    return path;
}

CLI::App* Deepest(CLI::App& app) {
    CLI::App* deepest = &app;
    for (auto subs = deepest->get_subcommands(); !subs.empty(); subs = deepest->get_subcommands())
        deepest = subs.front();
    return deepest;
}

// What a parse error of CLI11 means, in the words of the command line.
std::string Explain(CLI::App& app, const CLI::ParseError& error) {
    CLI::App* deepest = Deepest(app);
    const std::string path = CommandPath(deepest);
    const std::string in = path.empty() ? "" : fmt::format(" of '{}'", path);
    const auto rest = app.remaining(true);
    const auto commands = CommandNames(*deepest);
    if (!rest.empty()) {
        const std::string& word = rest.front();
        if (word.starts_with('-') && word.size() > 1 && !(word[1] >= '0' && word[1] <= '9')) {
            const std::string option = word.substr(0, word.find('='));
            return fmt::format("unknown option '{}'{}{}", option, in,
                               MeantWords(option, OptionNames(deepest)));
        }
        if (!commands.empty()) {
            return fmt::format(
                "unknown command '{}'{}{}; {}: {}", word, in, MeantWords(word, commands),
                path.empty() ? "the commands" : "'" + path + "' takes", Listed(commands));
        }
        return fmt::format("unexpected argument '{}'{}", word, in);
    }
    if (!commands.empty() && deepest->get_require_subcommand_min() > 0) {
        return fmt::format("{}: {}",
                           path.empty() ? "a command is needed" : "'" + path + "' needs a command",
                           Listed(commands));
    }
    std::string what = error.what();
    if (const auto at = what.rfind(" is required"); at != std::string::npos && at > 0) {
        what = fmt::format("argument {} is missing", what.substr(0, at));
    }
    return path.empty() ? what : fmt::format("{}: {}", path, what);
}

struct Parsed {
    std::unique_ptr<CommandLine> line = std::make_unique<CommandLine>();
    std::unique_ptr<CLI::App> app = std::make_unique<CLI::App>(kDescription, "vxctl");
    Command command;
    std::optional<std::string> help;  // --help: what to print
};

// Parses one command line; a line that cannot be meant raises UsageError.
std::unique_ptr<Parsed> Parse(const std::vector<std::string>& words) {
    auto parsed = std::make_unique<Parsed>();
    DefineCommandLine(*parsed->app, *parsed->line, parsed->command);
    std::vector<const char*> argv = {"vxctl"};
    for (const auto& word : words)
        argv.push_back(word.c_str());
    try {
        parsed->app->parse(static_cast<int>(argv.size()), argv.data());
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != static_cast<int>(CLI::ExitCodes::Success)) {
            throw UsageError(Explain(*parsed->app, error));
        }
        std::ostringstream help;
        parsed->app->exit(error, help, help);
        parsed->help = help.str();
    }
    return parsed;
}

// ---- Running -----------------------------------------------------------------------------------

// A connect that stopped part-way: the library's error and, where known, the variable it
// stopped at.
struct ConnectStop {
    std::optional<ComError> error;
    std::string stoppedAt;

    explicit operator bool() const { return error.has_value(); }
    Json ToJson() const {
        Json json = ErrorJson(*error);
        if (!stoppedAt.empty()) json["stoppedAt"] = stoppedAt;
        return json;
    }
    void Print(std::ostream& err) const {
        err << "vxctl: the connect stopped part-way, " << ErrorText(*error) << "\n";
        if (!stoppedAt.empty()) err << "vxctl: it stopped at " << stoppedAt << "\n";
    }
    static ConnectStop Of(const Session& session) {
        return {session.ConnectError(), session.ConnectStoppedAt()};
    }
};

// How one run reports: text or JSON, and where confirmations are asked.
struct Reporter {
    std::ostream& out;
    std::ostream& err;
    const Console& console;
    bool json = false;
    bool yes = false;
    bool inputIsScript = false;  // the input holds the commands: nothing to ask on

    void Confirm(const std::string& question) const {
        if (yes) return;
        if (console.in == nullptr || !console.inputIsTerminal || inputIsScript) {
            throw NotConfirmedError(fmt::format(
                "not confirmed: {}; --yes confirms it (there is no terminal to ask on)", question));
        }
        err << "vxctl: " << question << "? [y/N] " << std::flush;
        std::string answer;
        std::getline(*console.in, answer);
        if (answer != "y" && answer != "Y" && answer != "yes" && answer != "YES") {
            throw NotConfirmedError(fmt::format("not confirmed: {}", question));
        }
    }

    // Prints the failure; returns its exit code.
    int Fail(const Failure& failure, const ConnectStop& connectError) const {
        if (json) {
            Json document = {{"error", FailureJson(failure)}};
            if (connectError) document["connectError"] = connectError.ToJson();
            out << document.dump(2) << "\n";
        }
        err << "vxctl: " << FailureText(failure) << "\n";
        for (const auto& line : failure.followUp)
            err << "vxctl: " << line << "\n";
        if (connectError) connectError.Print(err);
        if (failure.code == kExitUsage) err << kHint << "\n";
        return failure.code;
    }
};

// Runs `body`, turning what it raises into a Failure.
template <typename Body>
std::optional<Failure> Guarded(Body&& body) {
    try {
        body();
        return std::nullopt;
    } catch (const ComError& error) {
        return FailureOf(error);
    } catch (const DownloadStopped& stopped) {
        Failure failure{stopped.Error() ? kExitFailure : kExitInterrupted, stopped.what(),
                        stopped.Error()};
        failure.followUp.push_back(stopped.PhaseText());
        failure.details["downloadClosed"] = stopped.PhaseClosed();
        return failure;
    } catch (const Interrupted& stop) {
        return Failure{
            kExitInterrupted, std::string(stop.what()) + " before the command finished", {}};
    } catch (const ToolError& error) {
        return FailureOf(error);
    } catch (const std::exception& error) {
        // A fault of vxctl itself: said as such rather than ending the program unexplained.
        return Failure{kExitFailure, fmt::format("internal error: {}", error.what()), {}};
    }
}

// The exit code of an outcome: a failure the controller reported, else the connect's.
ExitCode CodeOf(const Outcome& outcome, const ConnectStop& connectError) {
    if (!outcome.failure.empty()) return static_cast<ExitCode>(outcome.failureCode);
    return connectError ? kExitPartial : kExitSuccess;
}

// The outcome's document with its failure and the connect's, as a script reads it.
Json OutcomeJson(const Outcome& outcome, const ConnectStop& connectError) {
    Json json = outcome.json;
    if (!outcome.failure.empty()) {
        json["error"] =
            FailureJson({static_cast<ExitCode>(outcome.failureCode), outcome.failure, {}});
    }
    if (connectError) json["connectError"] = connectError.ToJson();
    return json;
}

void PrintNotes(const Outcome& outcome, std::ostream& err, const std::string& prefix) {
    for (const auto& note : outcome.notes)
        err << "vxctl: " << prefix << note << "\n";
}

// A reset the library stopped waiting for is no success, though nothing raised.
void CheckReset(const Session& session, Outcome& outcome) {
    if (session.ResetUnfinished() && outcome.failure.empty()) {
        outcome.failure =
            "the controller still reported its application reset after the wait of 90 s";
        outcome.failureCode = kExitNotDone;
    }
}

int RunCommand(const Parsed& parsed, const Reporter& reporter, bool terminal) {
    const CommandLine& line = *parsed.line;
    const InterruptibleClockGuard interruptible;
    Progress progress(terminal ? &reporter.err : nullptr);
    std::optional<ProgressClockGuard> clock;
    if (terminal) clock.emplace(progress);

    ConnectStop connectError;
    Outcome outcome;
    const auto failure = Guarded([&] {
        if (parsed.command.standalone) {
            outcome = parsed.command.standalone();
            return;
        }
        Session session(line.device, progress);
        connectError = ConnectStop::Of(session);
        if (parsed.command.question) {
            if (const auto question = parsed.command.question(session)) {
                reporter.Confirm(*question);
            }
        }
        outcome = parsed.command.run(session);
        CheckReset(session, outcome);
    });
    if (failure) return reporter.Fail(*failure, connectError);

    reporter.out << (reporter.json ? OutcomeJson(outcome, connectError).dump(2) + "\n"
                                   : outcome.text);
    PrintNotes(outcome, reporter.err, "");
    if (!outcome.failure.empty()) reporter.err << "vxctl: " << outcome.failure << "\n";
    if (connectError) {
        connectError.Print(reporter.err);
        reporter.err << "vxctl: shown is what was loaded before it stopped\n";
    }
    return CodeOf(outcome, connectError);
}

std::string ReadBatch(const std::string& file, const Console& console) {
    if (file == "-") {
        if (console.in == nullptr) return {};
        return {std::istreambuf_iterator<char>(*console.in), std::istreambuf_iterator<char>()};
    }
    std::ifstream stream(file, std::ios::binary);
    if (!stream || std::filesystem::is_directory(file)) {
        throw FileRefusedError(fmt::format("cannot read the commands of {}", file));
    }
    std::string text{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    if (stream.bad()) throw FileRefusedError(fmt::format("cannot read the commands of {}", file));
    return text;
}

struct BatchCommand {
    BatchLine line;
    std::unique_ptr<Parsed> parsed;
};

// Parses every line before anything is sent, so that a mistake on the last line leaves the
// controller untouched.
std::vector<BatchCommand> ParseBatchCommands(const std::string& text) {
    std::vector<BatchCommand> commands;
    for (auto& batchLine : ParseBatch(text)) {
        const std::string at = fmt::format("line {} ({}): ", batchLine.number, batchLine.text);
        std::unique_ptr<Parsed> parsed;
        try {
            parsed = Parse(batchLine.words);
        } catch (const ToolError& error) {
            throw UsageError(at + error.what(), error.Cause());
        }
        if (parsed->help) throw UsageError(at + "--help is for the command line, not a batch");
        for (const char* option : kConnectionOptions) {
            if (parsed->app->get_option(option)->count() > 0) {
                throw UsageError(at + fmt::format("{} is given to 'vxctl run' for every line, "
                                                  "not on a line",
                                                  option));
            }
        }
        const std::string word = parsed->app->get_subcommands().front()->get_name();
        for (const char* refused : kNoBatchLine) {
            if (word == refused) {
                throw UsageError(at + fmt::format("'{}' cannot be a line of a batch", word));
            }
        }
        commands.push_back({std::move(batchLine), std::move(parsed)});
    }
    return commands;
}

int RunBatch(const Parsed& parsed, Reporter& reporter, bool terminal) {
    const CommandLine& top = *parsed.line;
    std::vector<BatchCommand> commands;
    if (const auto failure = Guarded(
            [&] { commands = ParseBatchCommands(ReadBatch(top.batch, reporter.console)); })) {
        return reporter.Fail(*failure, {});
    }
    reporter.inputIsScript = top.batch == "-";

    const InterruptibleClockGuard interruptible;
    Progress progress(terminal ? &reporter.err : nullptr);
    std::optional<ProgressClockGuard> clock;
    if (terminal) clock.emplace(progress);

    Json done = Json::array();
    ConnectStop connectError;
    std::optional<Failure> stopped;
    std::size_t ran = 0;
    const auto describe = [](const BatchCommand& command) {
        return Json{{"line", command.line.number}, {"command", command.line.text}};
    };
    const auto failure = Guarded([&] {
        Session session(top.device, progress);
        connectError = ConnectStop::Of(session);
        // Every confirmation first: a refusal leaves the controller untouched.
        for (const auto& command : commands) {
            const auto& question = command.parsed->command.question;
            const bool yes = reporter.yes || command.parsed->line->yes;
            if (!question || yes) continue;
            try {
                if (const auto asked = question(session)) reporter.Confirm(*asked);
            } catch (const ToolError& error) {
                throw ToolError(fmt::format("line {} ({}): {}", command.line.number,
                                            command.line.text, error.what()),
                                error.Code(), error.Cause());
            }
        }
        for (const auto& command : commands) {
            const std::string at =
                fmt::format("line {} ({}): ", command.line.number, command.line.text);
            if (!reporter.json) reporter.out << "# " << at.substr(0, at.size() - 2) << "\n";
            Outcome outcome;
            command.parsed->line->out = &reporter.out;
            const auto lineFailure = Guarded([&] {
                ThrowIfInterrupted();
                outcome = command.parsed->command.run(session);
                CheckReset(session, outcome);
            });
            Json entry = describe(command);
            ++ran;
            if (lineFailure) {
                stopped = *lineFailure;
                stopped->message = at + stopped->message;
                entry["exitCode"] = static_cast<int>(stopped->code);
                entry["error"] = FailureJson(*stopped);
                done.push_back(std::move(entry));
                return;
            }
            const ExitCode code =
                outcome.failure.empty() ? kExitSuccess : static_cast<ExitCode>(outcome.failureCode);
            entry["exitCode"] = static_cast<int>(code);
            entry["result"] = OutcomeJson(outcome, {});
            done.push_back(std::move(entry));
            if (!reporter.json) reporter.out << outcome.text;
            PrintNotes(outcome, reporter.err, at);
            if (code != kExitSuccess) {
                stopped = Failure{code, at + outcome.failure, {}};
                return;
            }
        }
    });
    if (failure) {
        // Nothing ran: the connect or a confirmation stopped the batch.
        stopped = *failure;
    }

    Json notRun = Json::array();
    for (std::size_t i = ran; i < commands.size(); ++i)
        notRun.push_back(describe(commands[i]));
    ExitCode code = stopped ? stopped->code : (connectError ? kExitPartial : kExitSuccess);
    if (reporter.json) {
        Json document = {{"commands", std::move(done)}, {"notRun", notRun}};
        if (stopped) document["error"] = FailureJson(*stopped);
        if (connectError) document["connectError"] = connectError.ToJson();
        reporter.out << document.dump(2) << "\n";
    }
    if (stopped) {
        reporter.err << "vxctl: " << FailureText(*stopped) << "\n";
        for (const auto& line : stopped->followUp)
            reporter.err << "vxctl: " << line << "\n";
        if (!notRun.empty()) {
            reporter.err << fmt::format("vxctl: the batch stopped; {} of {} commands not run\n",
                                        notRun.size(), commands.size());
        }
        if (code == kExitUsage) reporter.err << kHint << "\n";
    }
    if (connectError) {
        connectError.Print(reporter.err);
        reporter.err << "vxctl: the commands ran on what was loaded before it stopped\n";
    }
    return code;
}

// ---- Completion --------------------------------------------------------------------------------

// The words that can follow `words` (the words before the one being completed), one a line. A
// value of an option with a fixed set of words gets those; one that names a file, nothing, so
// that the shell offers files.
std::string CompletionWords(const std::vector<std::string>& words) {
    CommandLine line;
    Command command;
    CLI::App app(kDescription, "vxctl");
    DefineCommandLine(app, line, command);
    const std::map<std::string, std::vector<std::string>> values = {
        {"--device", {"default", "lonip://"}},           {"--revision", {"default", "none"}},
        {"--area", {"absolute", "read-only", "config"}}, {"--level", {"2", "3"}},
        {"--format", {"text", "csv", "jsonl"}},
    };
    const std::map<std::string, std::vector<std::string>> positionals = {
        {"mode", {"online", "offline", "reset"}}, {"completion", {"bash"}}};

    CLI::App* current = &app;
    std::string pending;
    for (const auto& word : words) {
        if (!pending.empty()) {
            pending.clear();
            continue;
        }
        if (word.starts_with("--") && word.find('=') == std::string::npos) {
            for (CLI::App* at = current; at != nullptr; at = at->get_parent()) {
                for (const auto* option : at->get_options()) {
                    if (option->check_lname(word.substr(2)) && option->get_expected_max() > 0)
                        pending = word;
                }
            }
            continue;
        }
        for (auto* sub : current->get_subcommands([](CLI::App*) { return true; })) {
            if (sub->get_name() == word) {
                current = sub;
                break;
            }
        }
    }
    std::vector<std::string> candidates;
    if (!pending.empty()) {
        if (const auto found = values.find(pending); found != values.end())
            candidates = found->second;
    } else {
        candidates = CommandNames(*current);
        if (const auto found = positionals.find(current->get_name()); found != positionals.end())
            candidates.insert(candidates.end(), found->second.begin(), found->second.end());
        for (const auto& option : OptionNames(current)) {
            if (option.starts_with("--")) candidates.push_back(option);
        }
    }
    std::string text;
    for (const auto& candidate : candidates)
        text += candidate + "\n";
    return text;
}

// Whether the arguments ask for JSON, whatever else is wrong with them.
bool AsksForJson(const std::vector<std::string>& arguments) {
    for (const auto& argument : arguments) {
        if (argument == "--") break;
        if (argument == "--json") return true;
    }
    return false;
}

}  // namespace

int Run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err,
        const Console& console) {
    // The completion script's question; not a command a technician types.
    if (!arguments.empty() && arguments.front() == "__complete") {
        out << CompletionWords({arguments.begin() + 1, arguments.end()});
        return kExitSuccess;
    }
    UseStandardTypes();
    Reporter reporter{out, err, console, AsksForJson(arguments)};
    std::unique_ptr<Parsed> parsed;
    if (const auto failure = Guarded([&] { parsed = Parse(arguments); })) {
        return reporter.Fail(*failure, {});
    }
    if (parsed->help) {
        out << (reporter.json ? Json{{"help", *parsed->help}}.dump(2) + "\n" : *parsed->help);
        return kExitSuccess;
    }
    CommandLine& line = *parsed->line;
    line.out = &out;
    reporter.json = line.json;
    reporter.yes = line.yes;
    // Unset, each command takes its own default.
    if (parsed->app->get_option("--timeout")->count() > 0) {
        line.device.network.timeout = std::chrono::milliseconds(line.timeoutMs);
    }
    if (parsed->app->get_option("--retries")->count() > 0) {
        line.device.network.retries = line.retries;
    }
    if (parsed->command.batch) return RunBatch(*parsed, reporter, console.errorIsTerminal);
    return RunCommand(*parsed, reporter, console.errorIsTerminal);
}

int Run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err,
        bool terminal) {
    return Run(arguments, out, err, Console{nullptr, false, terminal});
}

}  // namespace vx::vxctl
