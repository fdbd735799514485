#include "Discover.h"

#include <algorithm>
#include <optional>
#include <vector>

#include <fmt/format.h>

#include "CDevice.h"
#include "LonErrors.h"
#include "NodeClient.h"
#include "SupportRoutines.h"
#include "Table.h"
#include "ToolErrors.h"

namespace vx::vxctl {
namespace {

// Query ID answered only by nodes that are not configured, so configured ones stay quiet.
constexpr std::uint8_t kUnconfiguredNodes = 0;
constexpr lon::Endpoint kDomainWide{{239, 192, 0, 0}, lon::kLonIpPort};
constexpr std::chrono::milliseconds kBroadcastWindow{1000};

std::uint32_t ToNumber(const std::array<std::uint8_t, 4>& address) {
    return static_cast<std::uint32_t>(address[0]) << 24 |
           static_cast<std::uint32_t>(address[1]) << 16 |
           static_cast<std::uint32_t>(address[2]) << 8 | address[3];
}

std::array<std::uint8_t, 4> FromNumber(std::uint32_t number) {
    return {static_cast<std::uint8_t>(number >> 24), static_cast<std::uint8_t>(number >> 16),
            static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)};
}

std::string AddressText(const std::array<std::uint8_t, 4>& address) {
    return fmt::format("{}.{}.{}.{}", address[0], address[1], address[2], address[3]);
}

std::array<std::uint8_t, 4> ParseAddress(std::string_view text, std::string_view whole) {
    const auto endpoint = text.find(':') == std::string_view::npos ? lon::Endpoint::Parse(text)
                                                                   : std::optional<lon::Endpoint>();
    if (!endpoint) {
        throw UsageError(
            fmt::format("--range {}: '{}' is no IPv4 address (a range is FIRST-LAST, for example "
                        "127.0.0.2-127.0.0.20)",
                        whole, text));
    }
    return endpoint->address;
}

template <std::size_t N>
std::string Hex(const std::array<std::uint8_t, N>& bytes) {
    return BytesToHex(ByteArray(0, std::vector<std::uint8_t>(bytes.begin(), bytes.end())));
}

// One node that answered, with what it told.
struct Answered {
    lon::Endpoint from;
    std::optional<lon::NodeIdentity> identity;
    std::optional<lon::StatusBlock> status;
    std::string error;  // why the rest is missing: a node that answered part of what was asked
};

// Asks the identity and state of what answers at the client's address; nothing when no answer
// came at all. A node that stops answering or fails part-way is listed with what it gave.
std::optional<Answered> Ask(lon::NodeClient& client, std::optional<lon::NodeIdentity> identity) {
    Answered found{client.Target().endpoint, identity, std::nullopt, {}};
    bool answered = found.identity.has_value();
    try {
        if (!found.identity) {
            found.identity = client.QueryId(kUnconfiguredNodes);
            answered = found.identity.has_value();
        }
        found.status = client.QueryStatus();
        answered = true;
        if (!found.identity) found.identity = client.ReadIdentity();
    } catch (const ComError& error) {
        if (error.Number() == lon::kLonErrSocket) throw;
        if (!answered && error.Number() == lon::kLonErrNoAnswer) return std::nullopt;
        found.error = error.Description();
    }
    return found;
}

Json NodeJson(const Answered& node) {
    Json json = {{"address", node.from.Text(false)},
                 {"neuronId", nullptr},
                 {"programId", nullptr},
                 {"state", nullptr}};
    if (node.identity) {
        json["neuronId"] = FormatDashedHex(Hex(node.identity->neuronId));
        json["programId"] = Hex(node.identity->programId);
    }
    if (node.status) {
        json["state"] = NodeStateText(node.status->NodeState(), node.status->Mode());
    }
    if (!node.error.empty()) json["error"] = node.error;
    return json;
}

std::string Cell(const Json& value) {
    return value.is_null() ? "?" : value.get<std::string>();
}

}  // namespace

std::uint32_t AddressRange::Count() const {
    return ToNumber(last) - ToNumber(first) + 1;
}

std::string AddressRange::Text() const {
    if (first == last) return AddressText(first);
    return AddressText(first) + "-" + AddressText(last);
}

AddressRange ParseAddressRange(std::string_view text) {
    const auto dash = text.find('-');
    AddressRange range;
    range.first = ParseAddress(text.substr(0, dash), text);
    range.last =
        dash == std::string_view::npos ? range.first : ParseAddress(text.substr(dash + 1), text);
    if (ToNumber(range.last) < ToNumber(range.first)) {
        throw UsageError(fmt::format("--range {}: the last address comes before the first", text));
    }
    if (range.Count() > kMostDiscoverAddresses) {
        throw UsageError(fmt::format("--range {}: {} addresses; at most {} are searched at once",
                                     text, range.Count(), kMostDiscoverAddresses));
    }
    return range;
}

Outcome Discover(const AddressRange& range, const NetworkChoice& network, bool broadcast) {
    lon::Session session(lon::Endpoint{range.first, lon::kLonIpPort},
                         HostOptionsFor(network, kDiscoverTiming));
    std::vector<Answered> found;
    const std::uint32_t first = ToNumber(range.first);
    for (std::uint32_t offset = 0; offset < range.Count(); ++offset) {
        lon::NodeClient client(session, {{FromNumber(first + offset), lon::kLonIpPort}, {}});
        if (auto answered = Ask(client, std::nullopt)) found.push_back(std::move(*answered));
    }

    Outcome outcome;
    if (broadcast) {
        const std::uint8_t queryId[] = {static_cast<std::uint8_t>(lon::Request::kQueryId),
                                        kUnconfiguredNodes};
        lon::Destination everyone;
        everyone.format = lon::AddressFormat::kDomainBroadcast;
        std::vector<lon::Heard> heard;
        std::string unsent;
        try {
            // The session gives up quietly where multicast has no route; only its count tells.
            const auto sentBefore = session.Stats().sent;
            heard = session.Collect(kDomainWide, everyone, queryId, kBroadcastWindow);
            if (session.Stats().sent == sentBefore) unsent = "no route for multicast";
        } catch (const ComError& error) {
            unsent = error.Description();
        }
        if (!unsent.empty()) {
            outcome.notes.push_back(
                fmt::format("the domain-wide Query ID to {} could not be sent ({}); only {} was "
                            "searched",
                            kDomainWide.Text(), unsent, range.Text()));
        }
        constexpr std::size_t kIdentityLength = 1 + 6 + 8;  // code, Neuron ID, program ID
        for (const auto& answer : heard) {
            const auto& apdu = answer.datagram.apdu;
            if (apdu.size() < kIdentityLength || apdu[0] != lon::SuccessCode(queryId[0])) continue;
            const bool known = std::any_of(found.begin(), found.end(), [&](const Answered& node) {
                return node.from == answer.from;
            });
            if (known) continue;
            lon::NodeIdentity identity;
            std::copy_n(apdu.begin() + 1, identity.neuronId.size(), identity.neuronId.begin());
            std::copy_n(apdu.begin() + 7, identity.programId.size(), identity.programId.begin());
            lon::NodeClient client(session, {answer.from, {}});
            if (auto answered = Ask(client, identity)) found.push_back(std::move(*answered));
        }
    }
    std::sort(found.begin(), found.end(), [](const Answered& left, const Answered& right) {
        return std::pair(ToNumber(left.from.address), left.from.port) <
               std::pair(ToNumber(right.from.address), right.from.port);
    });

    outcome.json = Json::array();
    Table table;
    if (!found.empty()) table.Row({"address", "Neuron ID", "program ID", "state"});
    for (const auto& node : found) {
        Json json = NodeJson(node);
        std::vector<std::string> row = {json["address"].get<std::string>(), Cell(json["neuronId"]),
                                        Cell(json["programId"]), Cell(json["state"])};
        if (!node.error.empty()) row.push_back("(" + node.error + ")");
        table.Row(std::move(row));
        outcome.json.push_back(std::move(json));
    }
    outcome.text = found.empty() ? fmt::format("no node answered on {}{}\n", range.Text(),
                                               broadcast ? " or to the domain-wide Query ID" : "")
                                 : table.Text();
    return outcome;
}

}  // namespace vx::vxctl
