#include "Diagnostics.h"

#include <array>

#include <fmt/format.h>

#include "SimulatedNode.h"
#include "Table.h"
#include "automation/Hex.h"

namespace vx::vxctl {
namespace {

constexpr const char* kQueryStatusCode = "51";
constexpr const char* kSetNodeModeCode = "6C";
constexpr const char* kReadMemoryCode = "6D";
constexpr std::size_t kStatusBlockLength = 15;
constexpr std::uint32_t kDumpLine = 16;  // bytes per line, and per Read Memory request

// The request's response data; the connection's error (no answer, a failure response) passes.
std::vector<std::uint8_t> Exchange(Session& session, std::string code,
                                   const std::vector<std::uint8_t>& data) {
    std::string text = ToHex(data);
    auto length = static_cast<std::int32_t>(data.size() + 1);
    session.HostConnection()->SendNetworkMessage(code, text, length);
    auto bytes = ParseHex(text).value_or(std::vector<std::uint8_t>{});
    if (length >= 1 && static_cast<std::size_t>(length - 1) < bytes.size()) {
        bytes.resize(static_cast<std::size_t>(length - 1));
    }
    return bytes;
}

std::uint32_t Word(const std::vector<std::uint8_t>& bytes, std::size_t at) {
    return static_cast<std::uint32_t>(bytes[at] << 8 | bytes[at + 1]);
}

// The cause bits the Neuron sets on a reset; 0 once cleared.
std::string ResetCauseName(std::uint8_t cause) {
    if (cause == 0) return "cleared";
    if ((cause & 0x03) == 0x01) return "power-up";
    if ((cause & 0x07) == 0x02) return "external";
    if ((cause & 0x1F) == 0x0C) return "watchdog";
    if ((cause & 0x1F) == 0x14) return "software";
    return "unknown";
}

std::string NodeStateName(std::uint8_t state) {
    switch (state) {
        case 0x02:
            return "unconfigured";
        case 0x03:
            return "applicationless";
        case 0x04:
            return "configured, application online";
        case 0x06:
            return "hard offline";
        case 0x0C:
            return "configured, application offline";
        default:
            return "unknown";
    }
}

Json Coded(std::uint32_t code, std::string name) {
    return {{"code", code}, {"name", std::move(name)}};
}

std::string Printable(const std::vector<std::uint8_t>& bytes, std::size_t first, std::size_t end) {
    std::string text;
    for (std::size_t i = first; i < end; ++i)
        text += bytes[i] >= 0x20 && bytes[i] < 0x7F ? static_cast<char>(bytes[i]) : '.';
    return text;
}

}  // namespace

MemoryArea MemoryAreaNamed(std::string_view word) {
    if (word == "read-only") return MemoryArea::kReadOnly;
    if (word == "config") return MemoryArea::kConfig;
    return MemoryArea::kAbsolute;
}

ApplicationMode ApplicationModeNamed(std::string_view word) {
    if (word == "offline") return ApplicationMode::kOffline;
    if (word == "reset") return ApplicationMode::kReset;
    return ApplicationMode::kOnline;
}

Outcome QueryStatus(Session& session) {
    const auto block = Exchange(session, kQueryStatusCode, {});
    if (block.size() < kStatusBlockLength) {
        throw ToolError(
            fmt::format("the node's status block has {} bytes; Query Status answers with {}: {}",
                        block.size(), kStatusBlockLength, ToHex(block)));
    }
    const std::uint8_t cause = block[10];
    const std::uint8_t state = block[11];
    const std::uint8_t lastError = block[13];
    Outcome outcome;
    outcome.json = {{"transmitErrors", Word(block, 0)},
                    {"transactionTimeouts", Word(block, 2)},
                    {"receiveTransactionsFull", Word(block, 4)},
                    {"lostMessages", Word(block, 6)},
                    {"missedMessages", Word(block, 8)},
                    {"resetCause", Coded(cause, ResetCauseName(cause))},
                    {"state", Coded(state, NodeStateName(state))},
                    {"version", block[12]},
                    {"lastError", Coded(lastError, lastError == 0 ? "none" : "logged")},
                    {"model", block[14]},
                    {"raw", ToHex(block)}};
    const auto& json = outcome.json;
    const auto coded = [](const Json& value) {
        return fmt::format("{} (0x{:02X})", value["name"].get<std::string>(),
                           value["code"].get<std::uint32_t>());
    };
    outcome.text = Facts({
        {"transmit errors", std::to_string(Word(block, 0))},
        {"transaction timeouts", std::to_string(Word(block, 2))},
        {"receive transactions full", std::to_string(Word(block, 4))},
        {"lost messages", std::to_string(Word(block, 6))},
        {"missed messages", std::to_string(Word(block, 8))},
        {"reset cause", coded(json["resetCause"])},
        {"state", coded(json["state"])},
        {"firmware version", std::to_string(block[12])},
        {"last error", lastError == 0 ? "none (0x00)" : fmt::format("0x{:02X}", lastError)},
        {"model", fmt::format("0x{:02X}", block[14])},
    });
    return outcome;
}

Outcome ReadMemory(Session& session, std::uint32_t address, std::uint32_t count, MemoryArea area) {
    std::vector<std::uint8_t> bytes;
    while (bytes.size() < count) {
        const auto at = static_cast<std::uint32_t>(address + bytes.size());
        const auto slice =
            std::min<std::uint32_t>(kDumpLine, count - static_cast<std::uint32_t>(bytes.size()));
        std::vector<std::uint8_t> answer;
        try {
            answer =
                Exchange(session, kReadMemoryCode,
                         {static_cast<std::uint8_t>(area), static_cast<std::uint8_t>(at >> 8),
                          static_cast<std::uint8_t>(at & 0xFF), static_cast<std::uint8_t>(slice)});
        } catch (const ComError& error) {
            throw ToolError(
                fmt::format("reading {} bytes at {:04X} stopped at {:04X}, after {} bytes", count,
                            address, at, bytes.size()),
                kExitFailure, error);
        }
        if (answer.size() < slice) {
            throw ToolError(fmt::format("the node answered {} bytes at {:04X} where {} were asked",
                                        answer.size(), at, slice));
        }
        bytes.insert(bytes.end(), answer.begin(), answer.begin() + slice);
    }

    Outcome outcome;
    static constexpr std::array<const char*, 3> kAreas = {"absolute", "read-only", "config"};
    outcome.json = {{"area", kAreas[static_cast<std::size_t>(area)]},
                    {"address", fmt::format("{:04X}", address)},
                    {"count", count},
                    {"bytes", ToHex(bytes)}};
    for (std::size_t line = 0; line < bytes.size(); line += kDumpLine) {
        const std::size_t end = std::min<std::size_t>(bytes.size(), line + kDumpLine);
        std::string hex;
        for (std::size_t i = line; i < line + kDumpLine; ++i)
            hex += i < end ? fmt::format(" {:02X}", bytes[i]) : "   ";
        outcome.text +=
            fmt::format("{:04X} {}  |{}|\n", address + line, hex, Printable(bytes, line, end));
    }
    return outcome;
}

Outcome SetApplicationMode(Session& session, ApplicationMode mode) {
    static constexpr std::array<const char*, 3> kModes = {"offline", "online", "reset"};
    const auto& connection = session.HostConnection();
    if (const auto simulated = std::dynamic_pointer_cast<sim::SimulatedNode>(connection)) {
        // The node in this process takes the mode through its controls, as its network service
        // does: a reset restarts the application, which comes back online.
        simulated->SetMode(mode == ApplicationMode::kOffline ? 0 : 1);
    } else {
        Exchange(session, kSetNodeModeCode, {static_cast<std::uint8_t>(mode)});
    }
    const std::string state = Utf8FromLatin1(session.Device().Info()->State(false, true));
    Outcome outcome;
    outcome.json = {{"mode", kModes[static_cast<std::size_t>(mode)]}, {"state", state}};
    outcome.text =
        fmt::format("{} sent; the controller's state: {}\n",
                    mode == ApplicationMode::kReset
                        ? std::string("application reset")
                        : fmt::format("application {}", kModes[static_cast<std::size_t>(mode)]),
                    state);
    const bool online = state == "Configured/Online";
    if ((mode == ApplicationMode::kOffline) == online) {
        outcome.failure = fmt::format("the controller's state is {} after the mode was set", state);
    }
    return outcome;
}

}  // namespace vx::vxctl
