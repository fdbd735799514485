#include "Session.h"

#include <algorithm>
#include <asio.hpp>
#include <charconv>
#include <random>
#include <set>
#include <system_error>

#include "LonErrors.h"

namespace vx::lon {

// ---- Endpoint
// ------------------------------------------------------------------------------------

std::string Endpoint::Text(bool withPort) const {
    std::string text;
    for (std::size_t i = 0; i < address.size(); ++i) {
        if (i > 0) text += '.';
        text += std::to_string(address[i]);
    }
    if (withPort || port != kLonIpPort) text += ':' + std::to_string(port);
    return text;
}

namespace {

// Decimal digits only, no sign, no leading zero (which other tools read as octal).
std::optional<unsigned> ParseDecimal(std::string_view text, std::size_t maxDigits) {
    if (text.empty() || text.size() > maxDigits) return std::nullopt;
    if (text.size() > 1 && text.front() == '0') return std::nullopt;
    unsigned value = 0;
    const auto* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end) return std::nullopt;
    return value;
}

}  // namespace

std::optional<Endpoint> Endpoint::Parse(std::string_view text) {
    Endpoint endpoint;
    const auto colon = text.find(':');
    if (colon != std::string_view::npos) {
        const auto port = ParseDecimal(text.substr(colon + 1), 5);
        if (!port || *port < 1 || *port > 65535) return std::nullopt;
        endpoint.port = static_cast<std::uint16_t>(*port);
        text = text.substr(0, colon);
    }
    for (std::size_t i = 0; i < endpoint.address.size(); ++i) {
        const auto dot = text.find('.');
        const bool last = i + 1 == endpoint.address.size();
        if (last != (dot == std::string_view::npos)) return std::nullopt;
        const auto octet = ParseDecimal(text.substr(0, dot), 3);
        if (!octet || *octet > 255) return std::nullopt;
        endpoint.address[i] = static_cast<std::uint8_t>(*octet);
        text = last ? std::string_view() : text.substr(dot + 1);
    }
    return endpoint;
}

// ---- Session
// -------------------------------------------------------------------------------------

namespace {

using asio::ip::udp;
using Clock = std::chrono::steady_clock;

// Big enough that an oversize datagram arrives oversize rather than cut to a decodable length.
constexpr std::size_t kReceiveBuffer = 1500;

udp::endpoint ToAsio(const Endpoint& endpoint) {
    return {asio::ip::address_v4(endpoint.address), endpoint.port};
}

Endpoint FromAsio(const udp::endpoint& endpoint) {
    Endpoint result;
    if (endpoint.address().is_v4()) result.address = endpoint.address().to_v4().to_bytes();
    result.port = endpoint.port();
    return result;
}

bool IsMulticast(const Endpoint& endpoint) {
    return (endpoint.address[0] & 0xF0) == 0xE0;
}

void CheckTiming(const Timing& timing) {
    if (timing.transmitTimer < std::chrono::milliseconds(1)) {
        throw LonError(kLonErrBadAddress, "the transmit timer must be 1 ms or more");
    }
    if (timing.retries < 0) {
        throw LonError(kLonErrBadAddress, "the number of retries must be 0 or more");
    }
}

void CheckHostAddress(const LonAddress& address) {
    if (address.node > 127) {
        throw LonError(kLonErrBadAddress,
                       "the host's node number " + std::to_string(address.node) + " is above 127");
    }
    const auto length = address.domain.size();
    if (length != 0 && length != 1 && length != 3 && length != 6) {
        throw LonError(kLonErrBadAddress, "the host's domain has " + std::to_string(length) +
                                              " bytes where 0, 1, 3 or 6 are possible");
    }
}

// Whether a response's code can answer the request's: a network-management or diagnostic request
// is answered by its success or failure code, a network-variable poll by a network-variable
// message.
bool Answers(std::uint8_t request, std::uint8_t response) {
    if (IsNetworkVariableCode(request)) return IsNetworkVariableCode(response);
    return response == SuccessCode(request) || response == FailureCode(request);
}

struct Received {
    Endpoint from;
    std::span<const std::uint8_t> bytes;
};

}  // namespace

struct Session::Impl {
    asio::io_context io;
    udp::socket socket{io};
    std::array<std::uint8_t, kReceiveBuffer> buffer{};
    udp::endpoint sender;
    HostOptions options;
    SessionStats stats;
    std::uint8_t nextTransaction = 1;

    std::uint8_t TakeTransaction() {
        const std::uint8_t transaction = nextTransaction;
        nextTransaction = static_cast<std::uint8_t>(transaction == 15 ? 1 : transaction + 1);
        return transaction;
    }

    void Open(const Endpoint& node) {
        std::error_code error;
        socket.open(udp::v4(), error);
        if (error) throw SocketError("open the host's socket", error);
        if (options.local) {
            Bind(*options.local);
            return;
        }
        Endpoint local;
        local.address = LocalAddressTowards(node);
        local.port = kLonIpPort;
        socket.bind(ToAsio(local), error);
        if (error == asio::error::address_in_use) {
            // Another host holds 2541 on this address; a node of our own can still answer the
            // source port.
            local.port = 0;
            error.clear();
            socket.bind(ToAsio(local), error);
        }
        if (error) throw BindError(local, error);
    }

    void Bind(const Endpoint& local) {
        std::error_code error;
        socket.bind(ToAsio(local), error);
        if (error) throw BindError(local, error);
    }

    std::array<std::uint8_t, 4> LocalAddressTowards(const Endpoint& node) {
        // Connecting a datagram socket sends nothing; it only makes the system choose the route.
        udp::socket probe(io);
        std::error_code error;
        probe.open(udp::v4(), error);
        if (!error) probe.connect(ToAsio(node), error);
        udp::endpoint local;
        if (!error) local = probe.local_endpoint(error);
        if (error) {
            throw LonError(kLonErrSocket, "cannot find the local address that reaches " +
                                              node.Text(false) + ": " + error.message());
        }
        return local.address().to_v4().to_bytes();
    }

    static ComError BindError(const Endpoint& local, const std::error_code& error) {
        return LonError(kLonErrSocket, "cannot open the host's socket on " + local.Text() + ": " +
                                           error.message());
    }

    static ComError SocketError(const std::string& action, const std::error_code& error) {
        return LonError(kLonErrSocket, "cannot " + action + ": " + error.message());
    }

    std::vector<std::uint8_t> Build(const Destination& destination, PduFormat format,
                                    std::uint8_t type, std::uint8_t transaction,
                                    std::span<const std::uint8_t> apdu, std::string_view what) {
        if (apdu.empty() || apdu.size() > kMaxApdu) {
            throw LonError(kLonErrBadRequest,
                           std::string(what) + " cannot be sent: " + std::to_string(apdu.size()) +
                               " bytes of message where 1 to " + std::to_string(kMaxApdu) + " fit");
        }
        Datagram datagram;
        datagram.source = SourceAddress{options.address, true};
        datagram.destination = destination;
        datagram.pduFormat = format;
        datagram.pduType = type;
        datagram.transaction = transaction;
        datagram.apdu.assign(apdu.begin(), apdu.end());
        auto bytes = Encode(datagram);
        if (!bytes) {
            throw LonError(kLonErrBadAddress, std::string(what) +
                                                  " cannot be sent: the destination address cannot "
                                                  "be expressed");
        }
        return std::move(*bytes);
    }

    // Sends one datagram; false when the system refused it.
    bool SendTo(const Endpoint& to, std::span<const std::uint8_t> bytes, std::error_code& error) {
        socket.send_to(asio::buffer(bytes.data(), bytes.size()), ToAsio(to), 0, error);
        if (error) return false;
        ++stats.sent;
        return true;
    }

    void SendOrRaise(const Endpoint& to, std::span<const std::uint8_t> bytes,
                     std::string_view what) {
        std::error_code error;
        if (!SendTo(to, bytes, error)) {
            throw SocketError("send " + std::string(what) + " to " + to.Text(false), error);
        }
    }

    // The next datagram that arrives before `deadline`, or nothing when the time is up.
    std::optional<Received> ReceiveUntil(Clock::time_point deadline) {
        // A bounded number of receive errors (an ICMP report of an earlier send surfaces as one on
        // some systems); each takes no time, so the deadline alone would not bound the loop.
        for (int errors = 0; errors < 16; ++errors) {
            if (Clock::now() >= deadline) return std::nullopt;
            bool done = false;
            std::error_code result;
            std::size_t length = 0;
            socket.async_receive_from(asio::buffer(buffer), sender,
                                      [&](const std::error_code& error, std::size_t size) {
                                          done = true;
                                          result = error;
                                          length = size;
                                      });
            io.restart();
            io.run_until(deadline);
            if (!done) {
                socket.cancel();
                io.restart();
                io.run();
            }
            if (result == asio::error::operation_aborted) return std::nullopt;
            if (!result) {
                ++stats.received;
                return Received{FromAsio(sender), std::span(buffer.data(), length)};
            }
            if (result != asio::error::connection_refused &&
                result != asio::error::connection_reset) {
                throw SocketError("receive on the host's socket", result);
            }
        }
        return std::nullopt;
    }

    // One exchange: sends `bytes` up to 1 + retries times and returns the first datagram that
    // `accept` takes, waiting the transmit timer for each attempt.
    template <typename Accept>
    Datagram Exchange(const Endpoint& to, std::span<const std::uint8_t> bytes,
                      std::string_view what, Accept accept) {
        ++stats.exchanges;
        const int attempts = 1 + options.timing.retries;
        for (int attempt = 0; attempt < attempts; ++attempt) {
            if (attempt > 0) ++stats.retries;
            SendOrRaise(to, bytes, what);
            // A dropped datagram does not restart the timer: the attempt keeps its deadline.
            const auto deadline = Clock::now() + options.timing.transmitTimer;
            while (const auto received = ReceiveUntil(deadline)) {
                if (received->from == to) {
                    auto decoded = Decode(received->bytes);
                    if (decoded && accept(*decoded.datagram)) {
                        ++stats.accepted;
                        return std::move(*decoded.datagram);
                    }
                }
                ++stats.dropped;
            }
        }
        throw LonError(kLonErrNoAnswer, "no answer from " + to.Text(false) + " after " +
                                            std::to_string(attempts) +
                                            (attempts == 1 ? " attempt (" : " attempts (") +
                                            std::string(what) + ")");
    }
};

Session::Session(const Endpoint& node, HostOptions options) : m_impl(std::make_unique<Impl>()) {
    CheckTiming(options.timing);
    CheckHostAddress(options.address);
    m_impl->options = std::move(options);
    m_impl->Open(node);
    std::random_device random;
    m_impl->nextTransaction = static_cast<std::uint8_t>(1 + random() % 15);
}

Session::~Session() = default;

namespace {

Answer Split(const Datagram& response) {
    Answer answer;
    answer.code = response.apdu.front();
    answer.data.assign(response.apdu.begin() + 1, response.apdu.end());
    return answer;
}

}  // namespace

Answer Session::Request(const Endpoint& to, const Destination& destination,
                        std::span<const std::uint8_t> apdu, std::string_view what,
                        const std::function<bool(const Answer&)>& fits) {
    const std::uint8_t transaction = m_impl->TakeTransaction();
    const auto bytes =
        m_impl->Build(destination, PduFormat::kSpdu, static_cast<std::uint8_t>(SpduType::kRequest),
                      transaction, apdu, what);
    const std::uint8_t code = apdu.front();
    auto response = m_impl->Exchange(to, bytes, what, [&](const Datagram& datagram) {
        return datagram.pduFormat == PduFormat::kSpdu &&
               datagram.pduType == static_cast<std::uint8_t>(SpduType::kResponse) &&
               datagram.transaction == transaction && Answers(code, datagram.apdu.front()) &&
               (!fits || fits(Split(datagram)));
    });
    return Split(response);
}

void Session::SendAcknowledged(const Endpoint& to, const Destination& destination,
                               std::span<const std::uint8_t> apdu, std::string_view what) {
    const std::uint8_t transaction = m_impl->TakeTransaction();
    const auto bytes =
        m_impl->Build(destination, PduFormat::kTpdu,
                      static_cast<std::uint8_t>(TpduType::kAcknowledged), transaction, apdu, what);
    m_impl->Exchange(to, bytes, what, [&](const Datagram& datagram) {
        return datagram.pduFormat == PduFormat::kTpdu &&
               datagram.pduType == static_cast<std::uint8_t>(TpduType::kAck) &&
               datagram.transaction == transaction;
    });
}

void Session::SendUnacknowledged(const Endpoint& to, const Destination& destination,
                                 std::span<const std::uint8_t> apdu, std::string_view what) {
    const auto bytes = m_impl->Build(destination, PduFormat::kApdu, 0, 0, apdu, what);
    m_impl->SendOrRaise(to, bytes, what);
}

std::vector<Heard> Session::Collect(const Endpoint& to, const Destination& destination,
                                    std::span<const std::uint8_t> apdu,
                                    std::chrono::milliseconds window) {
    Impl& impl = *m_impl;
    const std::uint8_t transaction = impl.TakeTransaction();
    const auto bytes =
        impl.Build(destination, PduFormat::kSpdu, static_cast<std::uint8_t>(SpduType::kRequest),
                   transaction, apdu, "discovery request");
    const std::uint8_t code = apdu.front();
    ++impl.stats.exchanges;
    const bool multicast = IsMulticast(to);
    if (multicast) {
        std::error_code ignored;
        impl.socket.set_option(asio::ip::multicast::enable_loopback(true), ignored);
        // A host on a loopback address keeps its broadcast on loopback, where its nodes are,
        // rather than letting the route send it out of the machine.
        const auto local = impl.socket.local_endpoint(ignored).address();
        if (!ignored && local.is_v4() && local.is_loopback()) {
            impl.socket.set_option(asio::ip::multicast::outbound_interface(local.to_v4()), ignored);
        }
    }
    std::error_code error;
    if (!impl.SendTo(to, bytes, error)) {
        // Machines with loopback only have no route for multicast: nobody can answer.
        if (multicast) return {};
        throw Impl::SocketError("send the discovery request to " + to.Text(false), error);
    }

    std::vector<Heard> heard;
    std::set<std::pair<std::array<std::uint8_t, 4>, std::uint16_t>> senders;
    const auto deadline = Clock::now() + window;
    while (const auto received = impl.ReceiveUntil(deadline)) {
        auto decoded = Decode(received->bytes);
        const bool answers =
            decoded && decoded.datagram->pduFormat == PduFormat::kSpdu &&
            decoded.datagram->pduType == static_cast<std::uint8_t>(SpduType::kResponse) &&
            decoded.datagram->transaction == transaction &&
            Answers(code, decoded.datagram->apdu.front());
        if (!answers || !senders.emplace(received->from.address, received->from.port).second) {
            ++impl.stats.dropped;
            continue;
        }
        ++impl.stats.accepted;
        heard.push_back({received->from, std::move(*decoded.datagram)});
    }
    return heard;
}

const Timing& Session::GetTiming() const {
    return m_impl->options.timing;
}

void Session::SetTiming(const Timing& timing) {
    CheckTiming(timing);
    m_impl->options.timing = timing;
}

const LonAddress& Session::HostAddress() const {
    return m_impl->options.address;
}

Endpoint Session::Local() const {
    std::error_code error;
    const auto local = m_impl->socket.local_endpoint(error);
    if (error) return {};
    return FromAsio(local);
}

const SessionStats& Session::Stats() const {
    return m_impl->stats;
}

void Session::ResetStats() {
    m_impl->stats = {};
}

}  // namespace vx::lon
