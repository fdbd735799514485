#include "NodeServer.h"

#include <array>
#include <asio.hpp>
#include <thread>

#include "LonErrors.h"
#include "NodeSnapshot.h"

namespace vx::vxsim {
namespace {

using asio::ip::udp;

// A socket that fails this many receives in a row is not coming back.
constexpr int kMaxReceiveFailures = 100;
// Big enough that an oversize datagram arrives oversize rather than cut to a decodable length.
constexpr std::size_t kReceiveBuffer = 1500;
// Where LON/IP sends domain-wide broadcasts and Neuron-ID addressed packets.
const asio::ip::address_v4 kDomainGroup({239, 192, 0, 0});

lon::Endpoint FromAsio(const udp::endpoint& endpoint) {
    lon::Endpoint result;
    if (endpoint.address().is_v4()) result.address = endpoint.address().to_v4().to_bytes();
    result.port = endpoint.port();
    return result;
}

}  // namespace

struct NodeServer::Impl {
    Impl(NodeService& givenService, NodeServerOptions givenOptions)
        : service(givenService),
          options(std::move(givenOptions)),
          savedChanges(service.Node()->ChangeCount()) {}

    // One socket the node receives on, with what its receive fills: the node's own, and the
    // domain-wide broadcast group's. Answers always go out from the node's own socket.
    struct Inbox {
        explicit Inbox(asio::io_context& context) : socket(context) {}
        udp::socket socket;
        std::array<std::uint8_t, kReceiveBuffer> buffer{};
        udp::endpoint sender;
    };

    void Receive(Inbox& inbox) {
        inbox.socket.async_receive_from(
            asio::buffer(inbox.buffer), inbox.sender,
            [this, &inbox](const asio::error_code& error, std::size_t size) {
                if (error == asio::error::operation_aborted) return;
                if (error) {
                    Log("receiving failed: " + error.message());
                    if (++failures >= kMaxReceiveFailures) {
                        failed = true;
                        own.socket.close();
                        group.socket.close();
                        return;
                    }
                } else {
                    failures = 0;
                    Serve(std::span(inbox.buffer.data(), size), inbox.sender);
                }
                Receive(inbox);
            });
    }

    void JoinDomainGroup(const lon::Endpoint& listen) {
        auto& socket = group.socket;
        asio::error_code error;
        socket.open(udp::v4(), error);
        // Every node on this machine takes the group's packets.
        if (!error) socket.set_option(udp::socket::reuse_address(true), error);
        if (!error) socket.bind(udp::endpoint(kDomainGroup, listen.port), error);
        if (!error) {
            socket.set_option(
                asio::ip::multicast::join_group(kDomainGroup, asio::ip::address_v4(listen.address)),
                error);
        }
        if (error) {
            Log("domain-wide broadcasts are not received here: " + error.message());
            socket.close();
        }
    }

    void Serve(std::span<const std::uint8_t> datagram, const udp::endpoint& sender) {
        const auto reply =
            service.Handle(datagram, FromAsio(sender), std::chrono::steady_clock::now());
        SaveState();
        std::string sent;
        if (reply) {
            asio::error_code error;
            own.socket.send_to(asio::buffer(*reply), sender, 0, error);
            if (error) sent = " [the reply could not be sent: " + error.message() + "]";
        }
        Log(service.LastExchange() + sent);
    }

    void SaveState() {
        const auto changes = service.Node()->ChangeCount();
        if (options.stateFile.empty() || changes == savedChanges) return;
        try {
            sim::WriteFileAtomically(options.stateFile, sim::SaveNodeState(*service.Node()));
            savedChanges = changes;
        } catch (const ComError& error) {
            Log("the state was not saved: " + error.Description());
        }
    }

    void Log(const std::string& line) const {
        if (options.log) options.log(line);
    }

    NodeService& service;
    NodeServerOptions options;
    std::uint64_t savedChanges;
    asio::io_context io;
    Inbox own{io};
    Inbox group{io};
    int failures = 0;
    bool failed = false;
    lon::Endpoint where;
    std::thread thread;
};

NodeServer::NodeServer(NodeService& service, const lon::Endpoint& listen, NodeServerOptions options)
    : m_impl(std::make_unique<Impl>(service, std::move(options))) {
    auto& socket = m_impl->own.socket;
    socket.open(udp::v4());
    asio::error_code error;
    socket.bind(udp::endpoint(asio::ip::address_v4(listen.address), listen.port), error);
    if (error == asio::error::address_in_use) {
        throw lon::LonError(lon::kLonErrSocket,
                            listen.Text() + " is in use (is another vxsim running there?)");
    }
    if (error) {
        throw lon::LonError(lon::kLonErrSocket,
                            "cannot listen on " + listen.Text() + ": " + error.message());
    }
    m_impl->where = FromAsio(socket.local_endpoint());
    if (m_impl->options.domainBroadcasts) m_impl->JoinDomainGroup(m_impl->where);
}

NodeServer::~NodeServer() {
    Stop();
    if (m_impl->thread.joinable()) m_impl->thread.join();
}

bool NodeServer::Run() {
    std::optional<asio::signal_set> signals;
    if (m_impl->options.stopOnSignals) {
        signals.emplace(m_impl->io, SIGINT, SIGTERM);
        signals->async_wait([this](const asio::error_code& error, int) {
            if (!error) m_impl->io.stop();
        });
    }
    m_impl->Receive(m_impl->own);
    if (m_impl->group.socket.is_open()) m_impl->Receive(m_impl->group);
    m_impl->io.run();
    return !m_impl->failed;
}

void NodeServer::Start() {
    m_impl->thread = std::thread([this] { Run(); });
}

void NodeServer::Stop() {
    m_impl->io.stop();
}

lon::Endpoint NodeServer::Where() const {
    return m_impl->where;
}

}  // namespace vx::vxsim
