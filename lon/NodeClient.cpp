#include "NodeClient.h"

#include <algorithm>

#include "LonErrors.h"

namespace vx::lon {
namespace {

// The most data bytes a request or an answer carries after its code.
constexpr std::size_t kMaxData = kMaxApdu - 1;

// A write request must fit the node's input buffer; 64 data bytes fit the smallest buffers
// nodes are built with, so longer writes go out as several requests.
constexpr std::size_t kWriteChunk = 64;

// Query SI starts with the largest slice an answer carries and halves it while the node refuses.
constexpr std::uint8_t kLargestSlice = static_cast<std::uint8_t>(kMaxData);
constexpr std::size_t kSiHeader = 6;

// Network-variable indexes from 255 on are sent as 255 followed by the index in two bytes.
constexpr std::uint8_t kIndexEscape = 0xFF;

std::string Hex2(std::uint8_t value) {
    constexpr const char* kDigits = "0123456789ABCDEF";
    return {kDigits[value >> 4], kDigits[value & 0x0F]};
}

std::vector<std::uint8_t> EncodeIndex(std::uint16_t index) {
    if (index < kIndexEscape) return {static_cast<std::uint8_t>(index)};
    return {kIndexEscape, static_cast<std::uint8_t>(index >> 8),
            static_cast<std::uint8_t>(index & 0xFF)};
}

std::vector<std::uint8_t> Apdu(std::uint8_t code, std::span<const std::uint8_t> data) {
    std::vector<std::uint8_t> apdu;
    apdu.reserve(1 + data.size());
    apdu.push_back(code);
    apdu.insert(apdu.end(), data.begin(), data.end());
    return apdu;
}

std::string Bytes(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

}  // namespace

std::string RequestName(std::uint8_t code) {
    if (IsNetworkVariableCode(code)) return "NV update";
    switch (static_cast<Request>(code)) {
        case Request::kQueryStatus:
            return "Query Status";
        case Request::kQueryId:
            return "Query ID";
        case Request::kUpdateDomain:
            return "Update Domain";
        case Request::kQueryDomain:
            return "Query Domain";
        case Request::kQueryNvConfig:
            return "Query NV Config";
        case Request::kSetNodeMode:
            return "Set Node Mode";
        case Request::kReadMemory:
            return "Read Memory";
        case Request::kWriteMemory:
            return "Write Memory";
        case Request::kWink:
            return "Wink";
        case Request::kQuerySi:
            return "Query SI";
        case Request::kNvFetch:
            return "NV Fetch";
    }
    return "request " + Hex2(code);
}

Destination NodeTarget::ToDestination() const {
    Destination destination;
    if (neuronId) {
        destination.format = AddressFormat::kNeuronId;
        destination.subnet = 0;
        destination.neuronId = *neuronId;
    } else {
        destination.format = AddressFormat::kSubnetNode;
    }
    return destination;
}

NodeClient::NodeClient(Session& session, NodeTarget target)
    : m_session(session), m_target(std::move(target)) {}

namespace {

ComError FailureResponse(const Endpoint& node, std::uint8_t request, std::uint8_t response) {
    return LonError(kLonErrFailureResponse, node.Text(false) + " answered " + RequestName(request) +
                                                " with a failure response (" + Hex2(response) +
                                                ")");
}

ComError BadAnswer(const Endpoint& node, std::uint8_t request, const std::string& what) {
    return LonError(kLonErrBadAnswer,
                    node.Text(false) + " answered " + RequestName(request) + " with " + what);
}

ComError WrongLength(const Endpoint& node, std::uint8_t request, std::size_t got,
                     std::size_t expected) {
    return BadAnswer(
        node, request,
        std::to_string(got) + " bytes where " + std::to_string(expected) + " were expected");
}

ComError BadRequest(std::uint8_t request, const std::string& why) {
    return LonError(kLonErrBadRequest, RequestName(request) + " cannot be sent: " + why);
}

}  // namespace

std::vector<std::uint8_t> NodeClient::Expect(std::uint8_t code, std::span<const std::uint8_t> data,
                                             std::size_t minimumLength,
                                             const std::function<bool(const Answer&)>& fits) {
    auto answer = Send(code, data, fits);
    if (answer.data.size() < minimumLength) {
        throw WrongLength(m_target.endpoint, code, answer.data.size(), minimumLength);
    }
    return std::move(answer.data);
}

Answer NodeClient::Send(std::uint8_t code, std::span<const std::uint8_t> data,
                        const std::function<bool(const Answer&)>& fits) {
    if (data.size() > kMaxData) {
        throw BadRequest(code, Bytes(data.size()) + " of data where at most " +
                                   std::to_string(kMaxData) + " fit");
    }
    const auto apdu = Apdu(code, data);
    auto answer = m_session.Request(m_target.endpoint, m_target.ToDestination(), apdu,
                                    RequestName(code), fits);
    if (!IsNetworkVariableCode(code) && answer.code == FailureCode(code)) {
        throw FailureResponse(m_target.endpoint, code, answer.code);
    }
    return answer;
}

std::optional<NodeIdentity> NodeClient::QueryId(std::uint8_t selector) {
    constexpr auto kCode = static_cast<std::uint8_t>(Request::kQueryId);
    std::vector<std::uint8_t> data;
    try {
        const std::uint8_t request[] = {selector};
        data = Expect(kCode, request, 14);
    } catch (const ComError& error) {
        // A node that does not match the selector stays silent.
        if (error.Number() == kLonErrNoAnswer) return std::nullopt;
        throw;
    }
    NodeIdentity identity;
    std::copy_n(data.begin(), identity.neuronId.size(), identity.neuronId.begin());
    std::copy_n(data.begin() + 6, identity.programId.size(), identity.programId.begin());
    return identity;
}

StatusBlock NodeClient::QueryStatus() {
    StatusBlock status;
    const auto data =
        Expect(static_cast<std::uint8_t>(Request::kQueryStatus), {}, status.bytes.size());
    std::copy_n(data.begin(), status.bytes.size(), status.bytes.begin());
    return status;
}

NodeIdentity NodeClient::ReadIdentity() {
    NodeIdentity identity;
    constexpr auto kLength = static_cast<std::uint8_t>(kReadOnlyProgramId + 8);
    const auto data = ReadMemory(MemoryMode::kReadOnlyRelative, kReadOnlyNeuronId, kLength);
    std::copy_n(data.begin() + kReadOnlyNeuronId, identity.neuronId.size(),
                identity.neuronId.begin());
    std::copy_n(data.begin() + kReadOnlyProgramId, identity.programId.size(),
                identity.programId.begin());
    return identity;
}

std::vector<std::uint8_t> NodeClient::ReadMemory(MemoryMode mode, std::uint16_t address,
                                                 std::uint8_t count) {
    constexpr auto kCode = static_cast<std::uint8_t>(Request::kReadMemory);
    if (count < 1 || count > kMaxData) {
        throw BadRequest(kCode, "a read of " + Bytes(count) + " where 1 to " +
                                    std::to_string(kMaxData) + " fit in an answer");
    }
    const std::uint8_t request[] = {static_cast<std::uint8_t>(mode),
                                    static_cast<std::uint8_t>(address >> 8),
                                    static_cast<std::uint8_t>(address & 0xFF), count};
    auto data = Expect(kCode, request, count);
    if (data.size() != count) throw WrongLength(m_target.endpoint, kCode, data.size(), count);
    return data;
}

void NodeClient::WriteMemory(MemoryMode mode, std::uint16_t address,
                             std::span<const std::uint8_t> bytes, std::uint8_t form) {
    constexpr auto kCode = static_cast<std::uint8_t>(Request::kWriteMemory);
    if (bytes.empty()) throw BadRequest(kCode, "a write of no bytes");
    if (address + bytes.size() > 0x10000) {
        throw BadRequest(kCode, "a write of " + Bytes(bytes.size()) + " at " +
                                    std::to_string(address) + " passes the end of memory");
    }
    const bool split = bytes.size() > kWriteChunk;
    std::size_t written = 0;
    while (written < bytes.size()) {
        const std::size_t count = std::min(kWriteChunk, bytes.size() - written);
        const auto at = static_cast<std::uint16_t>(address + written);
        const bool last = written + count == bytes.size();
        // What the node does after a write (a checksum, a reset) must see the whole of it.
        const std::uint8_t chunkForm = last ? form : 0;
        std::vector<std::uint8_t> request = {
            static_cast<std::uint8_t>(mode), static_cast<std::uint8_t>(at >> 8),
            static_cast<std::uint8_t>(at & 0xFF), static_cast<std::uint8_t>(count), chunkForm};
        request.insert(request.end(), bytes.begin() + static_cast<std::ptrdiff_t>(written),
                       bytes.begin() + static_cast<std::ptrdiff_t>(written + count));
        try {
            Expect(kCode, request, 0);
        } catch (const ComError& error) {
            if (!split) throw;
            // Tell exactly what reached the node: a refused part was not written, an unanswered
            // one may or may not have been.
            const auto total = std::to_string(bytes.size());
            const auto range = [](std::size_t from, std::size_t to) {
                return "bytes " + std::to_string(from) + ".." + std::to_string(to - 1);
            };
            std::string reached;
            if (error.Number() != kLonErrNoAnswer) {
                reached = written == 0
                              ? "none of " + total + " bytes written"
                              : range(0, written) + " of " + total + " written, the rest not";
            } else if (written == 0) {
                reached = range(0, count) + " of " + total + " unknown, the rest not written";
            } else {
                reached = range(0, written) + " of " + total + " written, " +
                          range(written, written + count) + " unknown";
                if (!last) reached += ", the rest not";
            }
            throw LonError(error.Number(), error.Description() + " (" + reached + ")");
        }
        written += count;
    }
}

void NodeClient::SetNodeMode(NodeMode mode, std::uint8_t state) {
    std::vector<std::uint8_t> request = {static_cast<std::uint8_t>(mode)};
    if (mode == NodeMode::kChangeState) request.push_back(state);
    Expect(static_cast<std::uint8_t>(Request::kSetNodeMode), request, 0);
}

void NodeClient::Wink() {
    const std::uint8_t apdu[] = {static_cast<std::uint8_t>(Request::kWink)};
    m_session.SendUnacknowledged(m_target.endpoint, m_target.ToDestination(), apdu,
                                 RequestName(apdu[0]));
}

std::vector<std::uint8_t> NodeClient::QuerySelfIdentification() {
    constexpr auto kCode = static_cast<std::uint8_t>(Request::kQuerySi);
    std::vector<std::uint8_t> data;
    std::optional<std::size_t> total;
    std::uint8_t slice = m_slice != 0 ? m_slice : kLargestSlice;
    // Every request either halves the slice (at most 8 times) or brings at least one byte.
    for (std::size_t requests = 0;; ++requests) {
        if (total && data.size() >= *total) break;
        if (requests >= (total ? *total : 0) + 16) {
            throw BadAnswer(m_target.endpoint, kCode,
                            "too little data to read the self-identification data in " +
                                std::to_string(requests) + " requests");
        }
        const std::size_t offset = data.size();
        const auto count = static_cast<std::uint8_t>(
            total ? std::min<std::size_t>(slice, *total - offset) : slice);
        const std::uint8_t request[] = {static_cast<std::uint8_t>(offset >> 8),
                                        static_cast<std::uint8_t>(offset & 0xFF), count};
        const auto apdu = Apdu(kCode, request);
        const auto answer = m_session.Request(m_target.endpoint, m_target.ToDestination(), apdu,
                                              RequestName(kCode));
        if (answer.code == FailureCode(kCode)) {
            // The node refuses slices it cannot fit in one answer: ask again for half as much.
            if (count == 1) throw FailureResponse(m_target.endpoint, kCode, answer.code);
            slice = static_cast<std::uint8_t>(count / 2);
            continue;
        }
        if (answer.data.empty()) {
            throw BadAnswer(m_target.endpoint, kCode,
                            "no data where " + Bytes(count) + " were asked");
        }
        if (answer.data.size() > count) {
            throw WrongLength(m_target.endpoint, kCode, answer.data.size(), count);
        }
        if (count == slice) m_slice = slice;
        data.insert(data.end(), answer.data.begin(), answer.data.end());
        if (!total && data.size() >= 2) {
            total = static_cast<std::size_t>(data[0] << 8 | data[1]);
            if (*total < kSiHeader) {
                throw BadAnswer(m_target.endpoint, kCode,
                                "self-identification data of " + Bytes(*total) +
                                    ", shorter than its " + std::to_string(kSiHeader) +
                                    "-byte header");
            }
        }
    }
    data.resize(*total);
    return data;
}

NvConfig NodeClient::QueryNvConfig(std::uint16_t index) {
    const auto data =
        Expect(static_cast<std::uint8_t>(Request::kQueryNvConfig), EncodeIndex(index), 3);
    NvConfig config;
    config.priority = (data[0] & 0x80) != 0;
    config.output = (data[0] & 0x40) != 0;
    config.selector = static_cast<std::uint16_t>((data[0] & 0x3F) << 8 | data[1]);
    config.turnaround = (data[2] & 0x80) != 0;
    config.service = static_cast<std::uint8_t>((data[2] >> 5) & 0x03);
    config.authenticated = (data[2] & 0x10) != 0;
    config.addressIndex = static_cast<std::uint8_t>(data[2] & 0x0F);
    return config;
}

std::vector<std::uint8_t> NodeClient::FetchNv(std::uint16_t index) {
    constexpr auto kCode = static_cast<std::uint8_t>(Request::kNvFetch);
    const auto echo = EncodeIndex(index);
    // A success for another index is a stale answer whose transaction ID came round again.
    auto data = Expect(kCode, echo, 0, [&](const Answer& answer) {
        return answer.code != SuccessCode(kCode) || answer.data.size() < echo.size() ||
               std::equal(echo.begin(), echo.end(), answer.data.begin());
    });
    const std::size_t compared = std::min(echo.size(), data.size());
    if (!std::equal(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(compared),
                    echo.begin())) {
        throw BadAnswer(
            m_target.endpoint, kCode,
            "the value of another variable where index " + std::to_string(index) + " was asked");
    }
    if (data.size() <= echo.size()) {
        throw LonError(kLonErrBadAnswer, m_target.endpoint.Text(false) + " answered " +
                                             RequestName(kCode) + " of index " +
                                             std::to_string(index) + " with no value");
    }
    data.erase(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(echo.size()));
    return data;
}

void NodeClient::UpdateNv(std::uint16_t selector, std::span<const std::uint8_t> value) {
    constexpr std::uint8_t kNvCode = 0x80;
    // The code byte and the selector's low byte leave the rest of the message for the value.
    constexpr std::size_t kMaxValue = kMaxApdu - 2;
    if (selector > 0x3FFF) {
        throw BadRequest(
            kNvCode, "the selector " + std::to_string(selector) + " is above 3FFF (hexadecimal)");
    }
    if (value.empty() || value.size() > kMaxValue) {
        throw BadRequest(kNvCode, "a value of " + Bytes(value.size()) + " where 1 to " +
                                      std::to_string(kMaxValue) + " fit");
    }
    // Direction bit 0: the update is addressed to the node's input.
    std::vector<std::uint8_t> apdu = {static_cast<std::uint8_t>(kNvCode | ((selector >> 8) & 0x3F)),
                                      static_cast<std::uint8_t>(selector & 0xFF)};
    apdu.insert(apdu.end(), value.begin(), value.end());
    m_session.SendAcknowledged(m_target.endpoint, m_target.ToDestination(), apdu,
                               RequestName(kNvCode));
}

}  // namespace vx::lon
