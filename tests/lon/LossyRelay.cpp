#include "LossyRelay.h"

#include <array>
#include <asio.hpp>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

namespace vx::lon::test {
namespace {

using asio::ip::udp;

udp::endpoint ToAsio(const Endpoint& endpoint) {
    return {asio::ip::address_v4(endpoint.address), endpoint.port};
}

constexpr std::size_t Slot(Direction direction) {
    return direction == Direction::kToNode ? 0 : 1;
}

// One direction's faults.
struct Faults {
    std::uint32_t dropNext = 0;
    // Drawn against the generator's full range, so the same seed loses the same datagrams on
    // every platform.
    std::optional<std::uint32_t> dropBelow;
    std::mt19937 random;
    bool duplicate = false;
    std::chrono::milliseconds delay{0};
    bool reorder = false;
    std::optional<std::uint32_t> awayAfter;
    // The last datagram counted for awayAfter: its retries do not count again, so that a cut
    // falls on the same exchange however often the host had to repeat one before.
    std::vector<std::uint8_t> lastCounted;
};

struct Packet {
    std::vector<std::uint8_t> bytes;
    udp::endpoint to;
};

}  // namespace

struct LossyRelay::Impl {
    Impl(const Endpoint& at, const Endpoint& nodeAt)
        : hostSide(io, ToAsio(at)),
          nodeSide(io, udp::endpoint(ToAsio(at).address(), 0)),
          node(ToAsio(nodeAt)) {}

    asio::io_context io;
    udp::socket hostSide;
    udp::socket nodeSide;
    udp::endpoint node;

    std::array<std::uint8_t, 1500> hostBuffer{};
    std::array<std::uint8_t, 1500> nodeBuffer{};
    udp::endpoint hostSender;
    udp::endpoint nodeSender;

    // The relay thread's own: which host sent each transaction, and the host heard from last
    // for answers that name no transaction of one.
    std::map<std::uint8_t, udp::endpoint> hostOfTransaction;
    std::optional<udp::endpoint> lastHost;

    mutable std::mutex mutex;
    std::array<Faults, 2> faults;
    std::array<RelayCounts, 2> counts;
    std::array<std::optional<Packet>, 2> held;
    bool away = false;

    std::thread thread;

    void ReceiveFromHost() {
        hostSide.async_receive_from(
            asio::buffer(hostBuffer), hostSender,
            [this](const std::error_code& error, std::size_t size) {
                if (error == asio::error::operation_aborted) return;
                if (!error) {
                    std::vector<std::uint8_t> bytes(hostBuffer.begin(),
                                                    hostBuffer.begin() + static_cast<long>(size));
                    if (const auto decoded = Decode(bytes);
                        decoded && decoded.datagram->pduFormat != PduFormat::kApdu) {
                        hostOfTransaction[decoded.datagram->transaction] = hostSender;
                    }
                    lastHost = hostSender;
                    Relay(Direction::kToNode, {std::move(bytes), node});
                }
                ReceiveFromHost();
            });
    }

    void ReceiveFromNode() {
        nodeSide.async_receive_from(
            asio::buffer(nodeBuffer), nodeSender,
            [this](const std::error_code& error, std::size_t size) {
                if (error == asio::error::operation_aborted) return;
                if (!error && nodeSender == node) {
                    std::vector<std::uint8_t> bytes(nodeBuffer.begin(),
                                                    nodeBuffer.begin() + static_cast<long>(size));
                    std::optional<udp::endpoint> host = lastHost;
                    if (const auto decoded = Decode(bytes); decoded) {
                        const auto known = hostOfTransaction.find(decoded.datagram->transaction);
                        if (known != hostOfTransaction.end()) host = known->second;
                    }
                    if (host) Relay(Direction::kToClient, {std::move(bytes), *host});
                }
                ReceiveFromNode();
            });
    }

    void Relay(Direction direction, Packet packet) {
        const std::size_t d = Slot(direction);
        std::vector<Packet> out;
        int copies = 1;
        std::chrono::milliseconds delay{0};
        {
            std::lock_guard lock(mutex);
            Faults& fault = faults[d];
            RelayCounts& count = counts[d];
            if (fault.awayAfter && packet.bytes != fault.lastCounted) {
                if (*fault.awayAfter == 0) {
                    away = true;
                    fault.awayAfter.reset();
                } else {
                    --*fault.awayAfter;
                    fault.lastCounted = packet.bytes;
                }
            }
            bool lost = away;
            if (!lost && fault.dropNext > 0) {
                --fault.dropNext;
                lost = true;
            }
            if (!lost && fault.dropBelow && fault.random() < *fault.dropBelow) lost = true;
            if (lost) {
                ++count.dropped;
                return;
            }
            ++count.passed;
            if (fault.duplicate) {
                copies = 2;
                ++count.duplicated;
            }
            delay = fault.delay;
            if (fault.reorder && !held[d]) {
                held[d] = std::move(packet);
                return;
            }
            out.push_back(std::move(packet));
            if (held[d]) {
                out.push_back(std::move(*held[d]));
                held[d].reset();
            }
        }
        for (const Packet& each : out) {
            for (int copy = 0; copy < copies; ++copy)
                Send(direction, each, delay);
        }
    }

    void Send(Direction direction, const Packet& packet, std::chrono::milliseconds delay) {
        udp::socket& socket = direction == Direction::kToNode ? nodeSide : hostSide;
        if (delay.count() == 0) {
            std::error_code ignored;  // a lost datagram is what this relay is for
            socket.send_to(asio::buffer(packet.bytes), packet.to, 0, ignored);
            return;
        }
        auto timer = std::make_shared<asio::steady_timer>(io, delay);
        timer->async_wait([this, timer, direction, packet](const std::error_code& error) {
            if (!error) Send(direction, packet, std::chrono::milliseconds(0));
        });
    }
};

LossyRelay::LossyRelay(const Endpoint& at, const Endpoint& node, std::chrono::milliseconds lifetime)
    : m_impl(std::make_unique<Impl>(at, node)), m_where(at) {
    m_impl->ReceiveFromHost();
    m_impl->ReceiveFromNode();
    m_impl->thread = std::thread([impl = m_impl.get(), lifetime] { impl->io.run_for(lifetime); });
}

LossyRelay::~LossyRelay() {
    Stop();
}

void LossyRelay::Stop() {
    if (!m_impl->thread.joinable()) return;
    m_impl->io.stop();
    m_impl->thread.join();
}

void LossyRelay::DropNext(Direction direction, std::uint32_t count) {
    std::lock_guard lock(m_impl->mutex);
    m_impl->faults[Slot(direction)].dropNext = count;
}

void LossyRelay::DropAtRandom(Direction direction, double probability, std::uint32_t seed) {
    if (probability < 0 || probability > 1) {
        throw std::invalid_argument("a probability is between 0 and 1");
    }
    std::lock_guard lock(m_impl->mutex);
    Faults& fault = m_impl->faults[Slot(direction)];
    fault.random.seed(seed);
    if (probability == 0) {
        fault.dropBelow.reset();
    } else {
        // 2^32 * probability, kept below 2^32: a probability of 1 loses all but a 2^-32 chance.
        fault.dropBelow =
            static_cast<std::uint32_t>(std::min(probability * 4294967296.0, 4294967295.0));
    }
}

void LossyRelay::Duplicate(Direction direction, bool on) {
    std::lock_guard lock(m_impl->mutex);
    m_impl->faults[Slot(direction)].duplicate = on;
}

void LossyRelay::Delay(Direction direction, std::chrono::milliseconds delay) {
    std::lock_guard lock(m_impl->mutex);
    m_impl->faults[Slot(direction)].delay = delay;
}

void LossyRelay::Reorder(Direction direction, bool on) {
    std::lock_guard lock(m_impl->mutex);
    const std::size_t d = Slot(direction);
    m_impl->faults[d].reorder = on;
    if (!on && m_impl->held[d]) {
        // The sockets belong to the relay thread: the held datagram goes out there.
        asio::post(m_impl->io,
                   [impl = m_impl.get(), direction, packet = std::move(*m_impl->held[d]),
                    delay = m_impl->faults[d].delay] { impl->Send(direction, packet, delay); });
        m_impl->held[d].reset();
    }
}

void LossyRelay::GoAway() {
    std::lock_guard lock(m_impl->mutex);
    m_impl->away = true;
}

void LossyRelay::GoAwayAfter(Direction direction, std::uint32_t passing) {
    std::lock_guard lock(m_impl->mutex);
    Faults& fault = m_impl->faults[Slot(direction)];
    fault.awayAfter = passing;
    fault.lastCounted.clear();
}

void LossyRelay::ComeBack() {
    std::lock_guard lock(m_impl->mutex);
    m_impl->away = false;
    for (Faults& fault : m_impl->faults)
        fault.awayAfter.reset();
}

RelayCounts LossyRelay::Counts(Direction direction) const {
    std::lock_guard lock(m_impl->mutex);
    return m_impl->counts[Slot(direction)];
}

}  // namespace vx::lon::test
