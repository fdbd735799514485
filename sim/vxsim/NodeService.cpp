#include "NodeService.h"

#include "NodeClient.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "Hex.h"
#include "SelfIdentification.h"
#include "SimErrors.h"
#include "automation/ComError.h"

namespace vx::vxsim {
namespace {

using Bytes = std::vector<std::uint8_t>;
using ByteSpan = std::span<const std::uint8_t>;

// Network-management and diagnostic requests the node serves: the codes the host's client sends.
constexpr auto Code(lon::Request request) {
    return static_cast<std::uint8_t>(request);
}
constexpr std::uint8_t kQueryStatus = Code(lon::Request::kQueryStatus);
constexpr std::uint8_t kQueryId = Code(lon::Request::kQueryId);
constexpr std::uint8_t kQueryNvConfig = Code(lon::Request::kQueryNvConfig);
constexpr std::uint8_t kSetNodeMode = Code(lon::Request::kSetNodeMode);
constexpr std::uint8_t kReadMemory = Code(lon::Request::kReadMemory);
constexpr std::uint8_t kWriteMemory = Code(lon::Request::kWriteMemory);
constexpr std::uint8_t kWink = Code(lon::Request::kWink);
constexpr std::uint8_t kQuerySi = Code(lon::Request::kQuerySi);
constexpr std::uint8_t kNvFetch = Code(lon::Request::kNvFetch);

// Query ID selectors. The node is never selected: nothing here selects it.
constexpr std::uint8_t kSelectUnconfigured = 0;
constexpr std::uint8_t kSelectSelected = 1;
constexpr std::uint8_t kSelectSelectedUnconfigured = 2;

constexpr std::uint8_t kModeOffline = 0;
constexpr std::uint8_t kModeOnline = 1;
constexpr std::uint8_t kModeReset = 2;
constexpr std::uint8_t kModeChangeState = 3;

constexpr std::int32_t kStateUnconfigured = 2;
constexpr std::int32_t kStateApplicationless = 3;
constexpr std::int32_t kStateConfigured = 4;
constexpr std::int32_t kStateHardOffline = 6;

// Wink with this sub-command sends the node's identity instead of winking.
constexpr std::uint8_t kSendIdentity = 0x01;

// A network-variable index of 255 or more follows this byte, most significant byte first.
constexpr std::uint8_t kIndexEscape = 0xFF;
// An unbound network variable's selector counts down from here by its index.
constexpr std::int32_t kUnboundSelectorBase = 0x3FFF;

// A network-variable message: 1, direction (1 output), the selector's high six bits.
constexpr std::uint8_t kNvOutput = 0x40;
constexpr std::uint8_t kNvSelectorHigh = 0x3F;

// Descriptor flags of the self-identification data that the node's variables carry.
constexpr std::uint8_t kSiPolled = 0x20;
constexpr std::uint8_t kSiConfigClass = 0x01;

constexpr std::size_t kNeuronIdBytes = 6;
constexpr std::size_t kProgramIdBytes = 8;

enum class Service { kNone, kRequest, kAcknowledged, kRepeated, kUnacknowledged };

Service ServiceOf(const lon::Datagram& datagram) {
    switch (datagram.pduFormat) {
        case lon::PduFormat::kApdu:
            return Service::kUnacknowledged;
        case lon::PduFormat::kSpdu:
            return datagram.pduType == static_cast<std::uint8_t>(lon::SpduType::kRequest)
                       ? Service::kRequest
                       : Service::kNone;
        case lon::PduFormat::kTpdu:
            if (datagram.pduType == static_cast<std::uint8_t>(lon::TpduType::kAcknowledged)) {
                return Service::kAcknowledged;
            }
            if (datagram.pduType == static_cast<std::uint8_t>(lon::TpduType::kUnackRepeated)) {
                return Service::kRepeated;
            }
            return Service::kNone;
        case lon::PduFormat::kAuthPdu:
            break;
    }
    return Service::kNone;
}

// What a datagram the node does not take in is, for the description.
std::string IgnoredPdu(const lon::Datagram& datagram) {
    const auto type = datagram.pduType;
    switch (datagram.pduFormat) {
        case lon::PduFormat::kSpdu:
            if (type == static_cast<std::uint8_t>(lon::SpduType::kResponse)) {
                return fmt::format("response TID {}", datagram.transaction);
            }
            return fmt::format("session reminder TID {}", datagram.transaction);
        case lon::PduFormat::kTpdu:
            if (type == static_cast<std::uint8_t>(lon::TpduType::kAck)) {
                return fmt::format("acknowledgement TID {}", datagram.transaction);
            }
            return fmt::format("transport reminder TID {}", datagram.transaction);
        case lon::PduFormat::kAuthPdu:
            return "authentication PDU";
        case lon::PduFormat::kApdu:
            break;
    }
    return "APDU";
}

std::string ServiceText(Service service, std::uint8_t transaction) {
    switch (service) {
        case Service::kRequest:
            return fmt::format("request TID {}", transaction);
        case Service::kAcknowledged:
            return fmt::format("acknowledged TID {}", transaction);
        case Service::kRepeated:
            return fmt::format("repeated TID {}", transaction);
        case Service::kUnacknowledged:
        case Service::kNone:
            break;
    }
    return "unacknowledged";
}

std::int32_t Selector(ByteSpan apdu) {
    return (apdu[0] & kNvSelectorHigh) << 8 | apdu[1];
}

std::string RequestName(ByteSpan apdu) {
    const std::uint8_t code = apdu[0];
    if (lon::IsNetworkVariableCode(code)) {
        if (apdu.size() < 2) return fmt::format("network-variable message {:02X}", code);
        return fmt::format("{} selector {:04X}", apdu.size() == 2 ? "NV poll" : "NV update",
                           Selector(apdu));
    }
    return lon::RequestName(code);
}

// A network-variable index as requests carry it: one byte, or the escape and two bytes.
struct IndexField {
    std::int32_t index = 0;
    std::size_t length = 0;
};

std::optional<IndexField> ReadIndex(ByteSpan data) {
    if (data.empty()) return std::nullopt;
    if (data[0] != kIndexEscape) return IndexField{data[0], 1};
    if (data.size() < 3) return std::nullopt;
    return IndexField{data[1] << 8 | data[2], 3};
}

Bytes ValueBytes(const Variant& value) {
    const auto* bytes = value.Get<ByteArray>();
    if (bytes == nullptr) {
        throw sim::SimError(sim::kSimErrFailureResponse, "the node's value is no byte array");
    }
    return bytes->Values();
}

Bytes FixedBytes(const std::string& hex, std::size_t count, const char* what) {
    auto bytes = sim::ParseHex(hex);
    if (!bytes || bytes->size() != count) {
        throw sim::SimError(sim::kSimErrFailureResponse,
                            fmt::format("the node's {} \"{}\" is not {} bytes", what, hex, count));
    }
    return *bytes;
}

[[noreturn]] void Invalid(const std::string& what) {
    throw ComError(kErrInvalidProcedureCall, "Vx.Sim.NodeService", what);
}

std::vector<std::uint8_t> BuildNodeSelfIdentification(const sim::NodeDescription& description) {
    std::int32_t highest = -1;
    for (const auto& variable : description.variables)
        highest = std::max(highest, variable.index);
    lon::SelfIdentification data;
    data.nodeSelfDoc = description.selfDoc;
    // Indexes without a variable keep an empty entry, so that each entry stays at its index.
    data.variables.resize(static_cast<std::size_t>(highest + 1));
    for (const auto& variable : description.variables) {
        lon::SiVariable& entry = data.variables[static_cast<std::size_t>(variable.index)];
        entry.descriptor = static_cast<std::uint8_t>((variable.polled ? kSiPolled : 0) |
                                                     (variable.isConfigClass ? kSiConfigClass : 0));
        entry.typeIndex = variable.typeIndex >= 1 && variable.typeIndex <= 0xFF
                              ? static_cast<std::uint8_t>(variable.typeIndex)
                              : 0;
        entry.name = variable.name;
        entry.selfDoc = variable.selfDoc;
    }
    return lon::BuildSelfIdentification(data).value_or(Bytes{});
}

lon::Datagram ReplyTo(const lon::Datagram& request, std::uint8_t type, Bytes apdu) {
    lon::Datagram reply;
    reply.priority = request.priority;
    // A sender that enclosed its own address may own no IP address derived from it: name it.
    if (request.source) {
        reply.destination.format = lon::AddressFormat::kExplicitSubnetNode;
        reply.destination.subnet = request.source->address.subnet;
        reply.destination.node = request.source->address.node;
    }
    reply.pduFormat = request.pduFormat;
    reply.pduType = type;
    reply.transaction = request.transaction;
    reply.apdu = std::move(apdu);
    return reply;
}

}  // namespace

struct NodeService::Outcome {
    // False when the node took nothing in: it sends nothing, not even an acknowledgement, and
    // a retry is acted on again.
    bool received = true;
    // The APDU that answers a request; nothing when the node sends no answer.
    std::optional<Bytes> answer;
    // What the node did, for the description.
    std::string note;
};

NodeService::Outcome NodeService::Answered(std::vector<std::uint8_t> apdu, std::string note) {
    return {true, std::move(apdu), std::move(note)};
}

NodeService::Outcome NodeService::Silent(std::string note) {
    return {true, std::nullopt, std::move(note)};
}

// A network-variable message has no failure response; the sender hears nothing.
NodeService::Outcome NodeService::Failure(std::uint8_t code, std::string note) {
    if (lon::IsNetworkVariableCode(code)) return Silent(std::move(note));
    return Answered({lon::FailureCode(code)}, std::move(note));
}

namespace {

Bytes Concatenate(std::initializer_list<ByteSpan> parts) {
    Bytes out;
    for (const ByteSpan part : parts)
        out.insert(out.end(), part.begin(), part.end());
    return out;
}

}  // namespace

NodeService::NodeService(sim::SimulatedNodePtr node, NodeServiceOptions options)
    : m_node(std::move(node)), m_options(std::move(options)), m_records(m_options.receiveTimer) {
    if (!m_node) Invalid("no node to serve");
    const auto& address = m_options.address;
    if (address.subnet == 0 || address.node == 0 || address.node > 127 || !address.domain.empty()) {
        Invalid(fmt::format("{}/{} is no node address (subnet 1..255, node 1..127, no domain)",
                            address.subnet, address.node));
    }
    if (m_options.siSliceLimit == 0 || m_options.siSliceLimit > kMaxSiSlice) {
        Invalid(fmt::format("a Query SI slice of {} bytes (1..{})", m_options.siSliceLimit,
                            kMaxSiSlice));
    }
    if (m_options.receiveTimer.count() < 0) Invalid("a negative receive timer");

    const sim::NodeDescription& description = m_node->Description();
    if (const auto id = sim::ParseHex(description.neuronId); id && id->size() == kNeuronIdBytes) {
        m_neuronId.emplace();
        std::copy(id->begin(), id->end(), m_neuronId->begin());
    }
    m_selfIdentification = BuildNodeSelfIdentification(description);
    for (const ObjectPtr& item : m_node->NetworkVariables()->Items()) {
        if (auto variable = std::dynamic_pointer_cast<INodeVariable>(item)) {
            m_variablesByIndex.emplace(variable->Index(), std::move(variable));
        }
    }
}

std::optional<std::vector<std::uint8_t>> NodeService::Handle(
    std::span<const std::uint8_t> datagram, const lon::Endpoint& from,
    std::chrono::steady_clock::time_point now) {
    const std::string sender = from.Text();
    const lon::DecodeResult decoded = lon::Decode(datagram);
    if (!decoded) {
        m_lastExchange =
            sender + " undecodable datagram: ignored (" + lon::DecodeErrorText(decoded.error) + ")";
        return std::nullopt;
    }
    const lon::Datagram& request = *decoded.datagram;
    const Service service = ServiceOf(request);
    if (service == Service::kNone || request.apdu.empty()) {
        m_lastExchange = sender + " " + IgnoredPdu(request) + ": ignored";
        return std::nullopt;
    }
    const std::string summary = sender + " " + RequestName(request.apdu) + ", " +
                                ServiceText(service, request.transaction) + ": ";
    if (request.authenticated) {
        m_lastExchange = summary + "ignored (authenticated, and the node holds no key)";
        return std::nullopt;
    }
    if (!AddressedToUs(request.destination)) {
        m_lastExchange = summary + "ignored (addressed to another node)";
        return std::nullopt;
    }
    if (!m_node->Answering()) {
        m_lastExchange = summary + "no answer (the node does not answer)";
        return std::nullopt;
    }

    // A bare APDU carries no transaction ID: the node cannot tell its copies apart.
    const bool hasTransaction = service != Service::kUnacknowledged;
    TransactionKey key{from, request.source, request.pduFormat, request.priority,
                       request.transaction};
    if (hasTransaction) {
        if (const ReceiveRecord* retry = m_records.FindRetry(key, request.apdu, now)) {
            m_lastExchange = summary + "retry, not acted on again; " +
                             (retry->reply ? "sent the same reply" : "no reply, as before");
            return retry->reply;
        }
    }

    Outcome outcome = Act(request.apdu, service == Service::kRequest);
    const std::string note = outcome.note.empty() ? "" : " (" + outcome.note + ")";
    if (!outcome.received) {
        m_lastExchange = summary + "no answer" + note;
        return std::nullopt;
    }
    std::optional<Bytes> reply;
    std::string result;
    if (service == Service::kRequest) {
        if (outcome.answer) {
            const auto& answer = *outcome.answer;
            result = fmt::format("answered {:02X}, {} bytes", answer.front(), answer.size() - 1);
            reply =
                lon::Encode(ReplyTo(request, static_cast<std::uint8_t>(lon::SpduType::kResponse),
                                    std::move(*outcome.answer)));
        } else {
            result = "no answer";
        }
    } else if (service == Service::kAcknowledged) {
        result = "acknowledged";
        reply = lon::Encode(ReplyTo(request, static_cast<std::uint8_t>(lon::TpduType::kAck), {}));
    } else {
        result = "taken, no reply";
    }
    if (hasTransaction) m_records.Remember(std::move(key), request.apdu, reply, now);
    m_lastExchange = summary + result + note;
    return reply;
}

bool NodeService::AddressedToUs(const lon::Destination& destination) const {
    const auto& own = m_options.address;
    switch (destination.format) {
        case lon::AddressFormat::kSubnetNode:  // the IP address it was sent to is ours
        case lon::AddressFormat::kDomainBroadcast:
            return true;
        case lon::AddressFormat::kSubnetBroadcast:
            return destination.subnet == own.subnet;
        case lon::AddressFormat::kNeuronId:
            return m_neuronId && destination.neuronId == *m_neuronId;
        case lon::AddressFormat::kExplicitSubnetNode:
            return destination.subnet == own.subnet && destination.node == own.node;
        case lon::AddressFormat::kGroup:
        case lon::AddressFormat::kGroupResponse:
            break;  // the node belongs to no group
    }
    return false;
}

NodeService::Outcome NodeService::Act(std::span<const std::uint8_t> apdu, bool asRequest) {
    const std::uint8_t code = apdu.front();
    try {
        Outcome outcome = ActOnCode(apdu, asRequest);
        if (outcome.answer && outcome.answer->size() > lon::kMaxApdu) {
            return Failure(code, fmt::format("an answer of {} bytes does not fit in one packet",
                                             outcome.answer->size()));
        }
        return outcome;
    } catch (const ComError& error) {
        if (error.Number() == sim::kSimErrNoAnswer)
            return {false, std::nullopt, error.Description()};
        return Failure(code, error.Description());
    }
}

NodeService::Outcome NodeService::ActOnCode(std::span<const std::uint8_t> apdu, bool asRequest) {
    const std::uint8_t code = apdu.front();
    const ByteSpan data = apdu.subspan(1);
    if (lon::IsNetworkVariableCode(code)) return NetworkVariableMessage(apdu, asRequest);
    switch (code) {
        case kQueryStatus:
        case kReadMemory:
        case kWriteMemory:
            return PassToNode(apdu);
        case kQueryId:
            return QueryId(data);
        case kSetNodeMode:
            return SetNodeMode(data);
        case kWink:
            return Wink(data);
        case kQuerySi:
            return QuerySelfIdentification(data);
        case kQueryNvConfig:
            return QueryVariableConfig(data);
        case kNvFetch:
            return FetchVariable(data);
        default:
            return Failure(code, "the node does not serve this request");
    }
}

// The node model answers these itself, on its memory image.
NodeService::Outcome NodeService::PassToNode(std::span<const std::uint8_t> apdu) {
    std::string code = sim::ToHex(apdu.first(1));
    std::string data = sim::ToHex(apdu.subspan(1));
    auto length = static_cast<std::int32_t>(apdu.size());
    m_node->SendNetworkMessage(code, data, length);
    const auto answerCode = sim::ParseHex(code);
    const auto answerData = sim::ParseHex(data);
    if (!answerCode || answerCode->size() != 1 || !answerData || length < 1 ||
        static_cast<std::size_t>(length - 1) > answerData->size()) {
        return Failure(apdu.front(), "the node's answer cannot be sent");
    }
    return Answered(Concatenate(
        {*answerCode, ByteSpan(*answerData).first(static_cast<std::size_t>(length - 1))}));
}

NodeService::Outcome NodeService::QueryId(std::span<const std::uint8_t> data) {
    if (data.empty()) return Failure(kQueryId, "no selector");
    switch (data[0]) {
        case kSelectUnconfigured: {
            const std::int32_t state = m_node->NodeState();
            if (state != kStateUnconfigured && state != kStateApplicationless) {
                return Silent(fmt::format("not selected: the node is in state {}", state));
            }
            return Answered(Concatenate({Bytes{lon::SuccessCode(kQueryId)}, Identity()}));
        }
        case kSelectSelected:
        case kSelectSelectedUnconfigured:
            return Silent("the node is not selected");
        default:
            return Failure(kQueryId, fmt::format("no selector {}", data[0]));
    }
}

NodeService::Outcome NodeService::SetNodeMode(std::span<const std::uint8_t> data) {
    const Bytes success = {lon::SuccessCode(kSetNodeMode)};
    if (data.size() == 1 && data[0] == kModeOffline) {
        m_node->SetMode(0);
        return Answered(success, "application offline");
    }
    // A reset restarts the application, which comes back online.
    if (data.size() == 1 && (data[0] == kModeOnline || data[0] == kModeReset)) {
        m_node->SetMode(1);
        return Answered(success,
                        data[0] == kModeReset ? "application reset" : "application online");
    }
    if (data.size() == 2 && data[0] == kModeChangeState) {
        const std::int32_t state = data[1];
        if (state == kStateConfigured || state == kStateUnconfigured ||
            state == kStateApplicationless || state == kStateHardOffline) {
            m_node->SetNodeState(state);
            return Answered(success, fmt::format("state {}", state));
        }
        return Failure(kSetNodeMode, fmt::format("no node state {}", state));
    }
    return Failure(kSetNodeMode, "no such mode");
}

NodeService::Outcome NodeService::Wink(std::span<const std::uint8_t> data) {
    if (data.empty()) {
        m_node->Wink();
        return Answered({lon::SuccessCode(kWink)}, "winked");
    }
    if (data.size() == 2 && data[0] == kSendIdentity && data[1] == 0) {
        return Answered(Concatenate({Bytes{lon::SuccessCode(kWink), 0}, Identity()}),
                        "sent its identity");
    }
    return Failure(kWink, "no such wink");
}

NodeService::Outcome NodeService::QuerySelfIdentification(std::span<const std::uint8_t> data) {
    if (data.size() != 3) return Failure(kQuerySi, "offset and count expected");
    const std::size_t offset = static_cast<std::size_t>(data[0] << 8 | data[1]);
    const std::size_t count = data[2];
    const std::size_t size = m_selfIdentification.size();
    if (count == 0 || count > m_options.siSliceLimit || offset > size || count > size - offset) {
        return Failure(kQuerySi, fmt::format("no slice of {} bytes at {} (the data has {}, slices "
                                             "up to {})",
                                             count, offset, size, m_options.siSliceLimit));
    }
    return Answered(Concatenate({Bytes{lon::SuccessCode(kQuerySi)},
                                 ByteSpan(m_selfIdentification).subspan(offset, count)}));
}

NodeService::Outcome NodeService::QueryVariableConfig(std::span<const std::uint8_t> data) {
    const auto field = ReadIndex(data);
    if (!field || field->length != data.size()) return Failure(kQueryNvConfig, "index expected");
    const NodeVariablePtr variable = VariableAt(field->index);
    if (!variable || field->index > kUnboundSelectorBase) {
        return Failure(kQueryNvConfig, fmt::format("no network variable {}", field->index));
    }
    // Unbound: the selector is the index's, the service acknowledged, address table entry 0.
    const std::int32_t selector = kUnboundSelectorBase - field->index;
    const auto direction = static_cast<std::uint8_t>(variable->IsOutput() ? kNvOutput : 0);
    return Answered(
        {lon::SuccessCode(kQueryNvConfig), static_cast<std::uint8_t>(direction | selector >> 8),
         static_cast<std::uint8_t>(selector & 0xFF), 0},
        variable->Name());
}

NodeService::Outcome NodeService::FetchVariable(std::span<const std::uint8_t> data) {
    const auto field = ReadIndex(data);
    if (!field || field->length != data.size()) return Failure(kNvFetch, "index expected");
    const NodeVariablePtr variable = VariableAt(field->index);
    if (!variable) return Failure(kNvFetch, fmt::format("no network variable {}", field->index));
    const Bytes value = ValueBytes(variable->ReadValue());
    return Answered(Concatenate({Bytes{lon::SuccessCode(kNvFetch)}, data, value}),
                    variable->Name());
}

NodeService::Outcome NodeService::NetworkVariableMessage(std::span<const std::uint8_t> apdu,
                                                         bool asRequest) {
    if (apdu.size() < 2) return Failure(apdu.front(), "no selector");
    const std::int32_t selector = Selector(apdu);
    const NodeVariablePtr variable = VariableAt(kUnboundSelectorBase - selector);
    const ByteSpan value = apdu.subspan(2);
    if (!variable) return Silent(fmt::format("no network variable has selector {:04X}", selector));
    const std::string name = variable->Name();
    const auto answerWith = [&](ByteSpan held) {
        return Concatenate({Bytes{static_cast<std::uint8_t>(0x80 | kNvOutput | selector >> 8),
                                  static_cast<std::uint8_t>(selector & 0xFF)},
                            held});
    };
    if (value.empty()) {
        if (!asRequest) return Silent(name + " polled without asking for an answer");
        return Answered(answerWith(ValueBytes(variable->ReadValue())), name);
    }
    // The transport acknowledges what it received; the application drops a value that does not
    // fit the variable.
    if (value.size() != static_cast<std::size_t>(variable->ByteLength())) {
        return Silent(fmt::format("{} bytes for {} of {}: value ignored", value.size(), name,
                                  variable->ByteLength()));
    }
    variable->WriteValue(Variant(ByteArray(0, Bytes(value.begin(), value.end()))));
    if (!asRequest) return Silent(name + " updated");
    return Answered(answerWith(m_node->VariableValue(name)), name + " updated");
}

NodeVariablePtr NodeService::VariableAt(std::int32_t index) const {
    const auto found = m_variablesByIndex.find(index);
    return found == m_variablesByIndex.end() ? nullptr : found->second;
}

std::vector<std::uint8_t> NodeService::Identity() {
    return Concatenate({FixedBytes(m_node->NeuronIDText(), kNeuronIdBytes, "Neuron ID"),
                        FixedBytes(m_node->ProgramIDText(), kProgramIdBytes, "program ID")});
}

}  // namespace vx::vxsim
