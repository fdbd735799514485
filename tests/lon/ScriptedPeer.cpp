#include "ScriptedPeer.h"

#include <algorithm>
#include <asio.hpp>
#include <atomic>
#include <list>
#include <stdexcept>

#ifdef _WIN32
#include <process.h>
#define VX_GETPID _getpid
#else
#include <unistd.h>
#define VX_GETPID getpid
#endif

namespace vx::lon::test {
namespace {

using asio::ip::udp;

udp::endpoint ToAsio(const Endpoint& endpoint) {
    return {asio::ip::address_v4(endpoint.address), endpoint.port};
}

Endpoint FromAsio(const udp::endpoint& endpoint) {
    Endpoint result;
    result.address = endpoint.address().to_v4().to_bytes();
    result.port = endpoint.port();
    return result;
}

std::uint8_t NextTransaction(std::uint8_t transaction) {
    return static_cast<std::uint8_t>(transaction >= 15 ? 1 : transaction + 1);
}

}  // namespace

Endpoint UniqueLoopback(std::uint16_t port) {
    static std::atomic<unsigned> counter{0};
    const auto pid = static_cast<unsigned>(VX_GETPID());
    const unsigned host = counter++ % 254 + 1;
    Endpoint endpoint;
    endpoint.address = {127, static_cast<std::uint8_t>(100 + pid % 100),
                        static_cast<std::uint8_t>(pid / 100 % 250 + 1),
                        static_cast<std::uint8_t>(host)};
    endpoint.port = port;
    return endpoint;
}

Bytes ResponseBytes(std::uint8_t transaction, const Bytes& apdu) {
    // Sized first and copied into: g++ 12 at -O3 misreads an insert after a short start as
    // writing out of bounds.
    Bytes bytes(3 + apdu.size());
    bytes[1] = 0x11;
    bytes[2] = static_cast<std::uint8_t>(0x20 | transaction);
    std::copy(apdu.begin(), apdu.end(), bytes.begin() + 3);
    return bytes;
}

Bytes AckBytes(std::uint8_t transaction) {
    return {0x00, 0x10, static_cast<std::uint8_t>(0x20 | transaction)};
}

Step Silent() {
    return [](const Incoming&) { return std::vector<Outgoing>{}; };
}

Step Reply(Bytes apdu) {
    return [apdu = std::move(apdu)](const Incoming& request) {
        return std::vector<Outgoing>{{ResponseBytes(request.Transaction(), apdu)}};
    };
}

Step ReplyTwice(Bytes apdu) {
    return [apdu = std::move(apdu)](const Incoming& request) {
        const auto bytes = ResponseBytes(request.Transaction(), apdu);
        return std::vector<Outgoing>{{bytes}, {bytes}};
    };
}

Step ReplyLate(Bytes apdu, std::chrono::milliseconds delay) {
    return [apdu = std::move(apdu), delay](const Incoming& request) {
        return std::vector<Outgoing>{{ResponseBytes(request.Transaction(), apdu), delay}};
    };
}

Step ReplyWrongTidFirst(Bytes apdu) {
    return [apdu = std::move(apdu)](const Incoming& request) {
        return std::vector<Outgoing>{{ResponseBytes(NextTransaction(request.Transaction()), apdu)},
                                     {ResponseBytes(request.Transaction(), apdu)}};
    };
}

Step ReplyFromForeign(Bytes apdu) {
    return [apdu = std::move(apdu)](const Incoming& request) {
        Outgoing outgoing{ResponseBytes(request.Transaction(), apdu)};
        outgoing.fromForeign = true;
        return std::vector<Outgoing>{outgoing};
    };
}

Step Acknowledge() {
    return [](const Incoming& request) {
        return std::vector<Outgoing>{{AckBytes(request.Transaction())}};
    };
}

Step Sequence(std::vector<Step> steps) {
    return [steps = std::move(steps)](const Incoming& request) {
        std::vector<Outgoing> all;
        for (const auto& step : steps) {
            auto some = step(request);
            all.insert(all.end(), some.begin(), some.end());
        }
        return all;
    };
}

Step Serve(std::function<Bytes(const Incoming&)> serve) {
    return [serve = std::move(serve)](const Incoming& request) {
        const auto apdu = serve(request);
        if (apdu.empty()) return std::vector<Outgoing>{};
        return std::vector<Outgoing>{{ResponseBytes(request.Transaction(), apdu)}};
    };
}

struct ScriptedPeer::Impl {
    asio::io_context io;
    udp::socket socket{io};
    udp::socket foreign{io};
    std::array<std::uint8_t, 2048> buffer{};
    udp::endpoint sender;
    std::list<asio::steady_timer> timers;

    mutable std::mutex mutex;
    mutable std::condition_variable arrived;
    std::vector<Incoming> received;
    std::deque<Step> script;
    Step otherwise = Silent();
    std::thread thread;

    void Receive() {
        socket.async_receive_from(asio::buffer(buffer), sender,
                                  [this](const std::error_code& error, std::size_t length) {
                                      if (error == asio::error::operation_aborted) return;
                                      if (!error) Handle(length);
                                      Receive();
                                  });
    }

    void Handle(std::size_t length) {
        Incoming incoming;
        incoming.from = FromAsio(sender);
        incoming.bytes.assign(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(length));
        if (auto decoded = Decode(incoming.bytes)) incoming.datagram = std::move(decoded.datagram);
        Step step;
        {
            std::lock_guard lock(mutex);
            received.push_back(incoming);
            if (script.empty()) {
                step = otherwise;
            } else {
                step = std::move(script.front());
                script.pop_front();
            }
        }
        arrived.notify_all();
        const auto to = sender;
        for (auto& outgoing : step(incoming)) {
            if (outgoing.delay.count() == 0) {
                SendNow(outgoing, to);
                continue;
            }
            auto& timer = timers.emplace_back(io, outgoing.delay);
            timer.async_wait([this, outgoing, to](const std::error_code& error) {
                if (!error) SendNow(outgoing, to);
            });
        }
    }

    void SendNow(const Outgoing& outgoing, const udp::endpoint& to) {
        std::error_code ignored;
        auto& from = outgoing.fromForeign ? foreign : socket;
        from.send_to(asio::buffer(outgoing.bytes), to, 0, ignored);
    }
};

ScriptedPeer::ScriptedPeer(const Endpoint& at, std::optional<Endpoint> foreign,
                           std::chrono::milliseconds lifetime)
    : m_impl(std::make_unique<Impl>()) {
    Endpoint foreignAt = at;
    foreignAt.port = 0;
    if (foreign) foreignAt = *foreign;
    m_impl->socket.open(udp::v4());
    m_impl->socket.bind(ToAsio(at));
    m_impl->foreign.open(udp::v4());
    m_impl->foreign.bind(ToAsio(foreignAt));
    m_where = FromAsio(m_impl->socket.local_endpoint());
    m_foreign = FromAsio(m_impl->foreign.local_endpoint());
    m_impl->Receive();
    m_impl->thread = std::thread([impl = m_impl.get(), lifetime] { impl->io.run_for(lifetime); });
}

ScriptedPeer::~ScriptedPeer() {
    Stop();
}

void ScriptedPeer::Stop() {
    if (!m_impl->thread.joinable()) return;
    m_impl->io.stop();
    m_impl->thread.join();
}

ScriptedPeer& ScriptedPeer::Then(Step step) {
    std::lock_guard lock(m_impl->mutex);
    m_impl->script.push_back(std::move(step));
    return *this;
}

ScriptedPeer& ScriptedPeer::Then(std::size_t times, const Step& step) {
    std::lock_guard lock(m_impl->mutex);
    for (std::size_t i = 0; i < times; ++i)
        m_impl->script.push_back(step);
    return *this;
}

ScriptedPeer& ScriptedPeer::Otherwise(Step step) {
    std::lock_guard lock(m_impl->mutex);
    m_impl->otherwise = std::move(step);
    return *this;
}

std::vector<Incoming> ScriptedPeer::Received() const {
    std::lock_guard lock(m_impl->mutex);
    return m_impl->received;
}

bool ScriptedPeer::WaitForReceived(std::size_t count, std::chrono::milliseconds limit) const {
    std::unique_lock lock(m_impl->mutex);
    return m_impl->arrived.wait_for(lock, limit, [&] { return m_impl->received.size() >= count; });
}

}  // namespace vx::lon::test
