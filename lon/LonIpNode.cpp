#include "LonIpNode.h"

#include <chrono>
#include <unordered_map>
#include <utility>

#include "LonErrors.h"
#include "SelfIdentification.h"
#include "automation/Hex.h"
#include "interfaces/INodeVariable.h"
#include "interfaces/INodeVariableAccess.h"
#include "interfaces/ITypeRegistry.h"

namespace vx::lon {
namespace {

// A state read and a mode read that follow each other ask one Query Status between them: the
// library reads both for one state text, after the communication check has asked already.
constexpr std::chrono::milliseconds kStatusReuse{1000};

Variant HostBytes(std::vector<std::uint8_t> value) {
    return Variant(ByteArray(0, std::move(value)));
}

// The bytes a host writes: a Byte array, any lower bound.
const std::vector<std::uint8_t>& BytesToWrite(const Variant& value) {
    const auto* bytes = value.Get<ByteArray>();
    if (!bytes) RaiseRuntimeError(kErrTypeMismatch, kLonSource);
    return bytes->Values();
}

void CheckLength(const std::string& name, const char* kind, std::size_t expected,
                 std::size_t given) {
    if (given != expected) {
        throw LonError(kLonErrWrongLength, name + ": a value of " + std::to_string(given) +
                                               " bytes for a " + kind + " of " +
                                               std::to_string(expected));
    }
}

}  // namespace

// What the node and its records share: the records keep working after the node object is gone,
// as a host's records do. The lists stay with the node, so that no record keeps itself alive.
struct LonIpNode::State {
    State(const Endpoint& node, LonIpOptions givenOptions)
        : options(std::move(givenOptions)),
          session(node, options.host),
          client(session, NodeTarget{node, options.neuronId}) {}

    LonIpOptions options;
    Session session;
    NodeClient client;

    std::optional<SelfIdentification> selfIdentification;
    std::optional<NodeIdentity> identity;
    std::optional<StatusBlock> status;
    std::chrono::steady_clock::time_point statusAt;

    const SelfIdentification& ReadSelfIdentification() {
        if (!selfIdentification) {
            const auto bytes = client.QuerySelfIdentification();
            auto parsed = ParseSelfIdentification(bytes);
            if (!parsed.data) {
                throw LonError(kLonErrBadAnswer, client.Target().endpoint.Text(false) +
                                                     " sent self-identification data that "
                                                     "cannot be read: " +
                                                     parsed.error);
            }
            selfIdentification = std::move(parsed.data);
        }
        return *selfIdentification;
    }

    const NodeIdentity& Identity() {
        if (!identity) identity = client.ReadIdentity();
        return *identity;
    }

    void KeepStatus(const StatusBlock& block) {
        status = block;
        statusAt = std::chrono::steady_clock::now();
    }

    const StatusBlock& Status() {
        if (!status || std::chrono::steady_clock::now() - statusAt > kStatusReuse) {
            KeepStatus(client.QueryStatus());
        }
        return *status;
    }
};

namespace {

using NodeState = LonIpNode::State;

class NetworkVariableRecord final : public INodeVariable {
public:
    NetworkVariableRecord(std::shared_ptr<NodeState> state, std::uint16_t index)
        : m_state(std::move(state)), m_index(index) {}

    std::string Name() const override {
        const std::string& name = Variable().name;
        return name.empty() ? "nv" + std::to_string(m_index) : name;
    }
    std::int16_t Index() const override { return static_cast<std::int16_t>(m_index); }
    std::string SelfDoc() const override { return Variable().selfDoc; }
    std::int32_t TypeIndex() const override { return Variable().typeIndex; }
    std::string SelfDocName() const override { return {}; }
    std::int32_t ByteLength() const override {
        return static_cast<std::int32_t>(KnownLength().value_or(0));
    }
    bool IsOutput() const override {
        try {
            return Config().output;
        } catch (const ComError&) {
            // The direction only labels the record; a node that does not answer now still has
            // its variables, named by the convention.
            return Name().starts_with("nvo");
        }
    }

    Variant ReadValue() override {
        auto value = m_state->client.FetchNv(m_index);
        m_learnedLength = value.size();
        return HostBytes(std::move(value));
    }

    void WriteValue(const Variant& bytes) override {
        const auto& value = BytesToWrite(bytes);
        std::optional<std::size_t> length = KnownLength();
        if (!length) {
            // A variable of no standard type: its length is what the node holds.
            ReadValue();
            length = m_learnedLength;
        }
        CheckLength(Name(), "network variable", *length, value.size());
        m_state->client.UpdateNv(Config().selector, value);
    }

private:
    const SiVariable& Variable() const { return m_state->selfIdentification->variables[m_index]; }

    std::optional<std::size_t> KnownLength() const {
        if (const std::int32_t type = Variable().typeIndex; type > 0) {
            if (const auto typedef_ = CurrentTypeRegistry()->TypeByIndex(type)) {
                if (const std::int32_t size = typedef_->ByteSize(); size > 0) {
                    return static_cast<std::size_t>(size);
                }
            }
        }
        return m_learnedLength;
    }

    const NvConfig& Config() const {
        if (!m_config) m_config = m_state->client.QueryNvConfig(m_index);
        return *m_config;
    }

    std::shared_ptr<NodeState> m_state;
    std::uint16_t m_index;
    mutable std::optional<NvConfig> m_config;
    std::optional<std::size_t> m_learnedLength;
};

class ConfigItemRecord final : public INodeVariableAccess {
public:
    ConfigItemRecord(std::shared_ptr<NodeState> state, ConfigItemLayout layout)
        : m_state(std::move(state)), m_layout(std::move(layout)) {}

    std::string Layout() const override { return m_layout.layout; }
    std::string Name() const override { return m_layout.name; }

    Variant ReadValue() override {
        return HostBytes(
            m_state->client.ReadMemory(MemoryMode::kAbsolute, m_layout.address, m_layout.length));
    }

    void WriteValue(Variant& bytes) override {
        const auto& value = BytesToWrite(bytes);
        CheckLength(m_layout.name, "configuration item", m_layout.length, value.size());
        // Form 0: the node only stores the bytes; the library keeps the configuration checksum
        // itself.
        m_state->client.WriteMemory(MemoryMode::kAbsolute, m_layout.address, value, 0);
    }

private:
    std::shared_ptr<NodeState> m_state;
    ConfigItemLayout m_layout;
};

}  // namespace

LonIpUrl ParseLonIpUrl(std::string_view text) {
    constexpr std::string_view kScheme = "lonip://";
    const auto bad = [&](const std::string& why) {
        std::string description(1, '\'');
        description.append(text)
            .append("' is no LON/IP address: ")
            .append(why)
            .append(
                " (lonip://HOST[:PORT][/NEURONID], for example lonip://127.0.0.2 or "
                "lonip://127.0.0.2/05013C7A1F02)");
        return LonError(kLonErrBadAddress, std::move(description));
    };
    if (!text.starts_with(kScheme)) throw bad("it does not start with lonip://");
    std::string_view rest = text.substr(kScheme.size());
    LonIpUrl url;
    if (const auto slash = rest.find('/'); slash != std::string_view::npos) {
        const auto digits = rest.substr(slash + 1);
        const auto bytes = ParseHex(digits);
        if (!bytes || bytes->size() != 6) throw bad("a Neuron ID is 12 hexadecimal digits");
        NeuronId id{};
        std::copy(bytes->begin(), bytes->end(), id.begin());
        url.neuronId = id;
        rest = rest.substr(0, slash);
    }
    const auto endpoint = Endpoint::Parse(rest);
    if (!endpoint) throw bad("the host is an IPv4 address with an optional port 1..65535");
    url.endpoint = *endpoint;
    return url;
}

namespace {

void CheckLayout(const std::vector<ConfigItemLayout>& items) {
    for (const auto& item : items) {
        if (item.length == 0 || item.length > kMaxApdu - 1 ||
            item.address + static_cast<std::size_t>(item.length) > 0x10000) {
            throw LonError(kLonErrBadAddress,
                           "configuration item " + item.name +
                               ": a length of 1 to 228 bytes within the node's memory is needed");
        }
    }
}

}  // namespace

std::shared_ptr<LonIpNode> LonIpNode::Open(const Endpoint& node, LonIpOptions options) {
    CheckLayout(options.configItems);
    return std::shared_ptr<LonIpNode>(
        new LonIpNode(std::make_shared<State>(node, std::move(options))));
}

void LonIpNode::SetConfigItems(std::vector<ConfigItemLayout> items) {
    if (m_configItems) {
        throw LonError(kLonErrBadAddress,
                       "the configuration items were listed already: give their layout before");
    }
    CheckLayout(items);
    m_state->options.configItems = std::move(items);
}

LonIpNode::LonIpNode(std::shared_ptr<State> state) : m_state(std::move(state)) {}

LonIpNode::~LonIpNode() = default;

NodeVariableListPtr LonIpNode::ConfigurationProperties() {
    if (!m_configItems) {
        std::vector<ObjectPtr> items;
        for (const auto& layout : m_state->options.configItems) {
            items.push_back(std::make_shared<ConfigItemRecord>(m_state, layout));
        }
        m_configItems = std::make_shared<FixedNodeVariableList>(std::move(items));
    }
    return m_configItems;
}

NodeVariableListPtr LonIpNode::NetworkVariables() {
    if (!m_variables) {
        const auto& data = m_state->ReadSelfIdentification();
        std::vector<ObjectPtr> records;
        records.reserve(data.variables.size());
        for (std::size_t i = 0; i < data.variables.size(); ++i) {
            records.push_back(
                std::make_shared<NetworkVariableRecord>(m_state, static_cast<std::uint16_t>(i)));
        }
        m_variables = std::make_shared<FixedNodeVariableList>(std::move(records));
    }
    return m_variables;
}

std::int32_t LonIpNode::Mode() {
    return m_state->Status().Mode();
}

std::int32_t LonIpNode::NodeState() {
    return m_state->Status().NodeState();
}

std::string LonIpNode::NeuronIDText() {
    return ToHex(m_state->Identity().neuronId);
}

std::string LonIpNode::ProgramIDText() {
    return ToHex(m_state->Identity().programId);
}

std::string LonIpNode::SelfDocText() {
    return m_state->ReadSelfIdentification().nodeSelfDoc;
}

void LonIpNode::Wink() {
    m_state->client.Wink();
}

bool LonIpNode::SendNetworkMessage(std::string& code, std::string& data, std::int32_t& length) {
    const auto codeBytes = ParseHex(code);
    if (!codeBytes || codeBytes->size() != 1) {
        throw LonError(kLonErrBadRequest, "request code \"" + code + "\" is not one byte");
    }
    auto dataBytes = ParseHex(data);
    if (!dataBytes) {
        throw LonError(kLonErrBadRequest, "request " + code + ": data is not hexadecimal");
    }
    // The length counts the code byte; data past it is not sent.
    if (length < 1 || static_cast<std::size_t>(length - 1) > dataBytes->size() ||
        static_cast<std::size_t>(length) > kMaxApdu) {
        throw LonError(kLonErrBadRequest, "request " + code + ": length " + std::to_string(length) +
                                              " does not fit its data");
    }
    dataBytes->resize(static_cast<std::size_t>(length - 1));
    const std::uint8_t requestCode = codeBytes->front();
    const Answer answer = m_state->client.Send(requestCode, *dataBytes);
    if (requestCode == static_cast<std::uint8_t>(Request::kQueryStatus) &&
        answer.data.size() == StatusBlock{}.bytes.size()) {
        StatusBlock block;
        std::copy(answer.data.begin(), answer.data.end(), block.bytes.begin());
        m_state->KeepStatus(block);
    }
    code = ToHex(std::span(&answer.code, 1));
    data = ToHex(answer.data);
    length = static_cast<std::int32_t>(answer.data.size() + 1);
    return true;
}

NodeClient& LonIpNode::Client() {
    return m_state->client;
}

const SessionStats& LonIpNode::Stats() const {
    return m_state->session.Stats();
}

const NodeTarget& LonIpNode::Target() const {
    return m_state->client.Target();
}

}  // namespace vx::lon
