// Arbitrary bytes as a run of datagrams to vxsim's request handling over the default controller:
// each a length byte and that many bytes, arriving 100 ms apart from one of two senders, so that
// retries, expired transactions and reused IDs all happen. Nothing may escape Handle; a datagram
// that does not decode changes nothing on the node; every reply decodes and answers the request's
// transaction.
#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "Datagram.h"
#include "DefaultController.h"
#include "NodeService.h"

namespace {

const vx::sim::NodeDescription& Controller() {
    static const vx::sim::NodeDescription description = vx::sim::DefaultController();
    return description;
}

void Check(bool condition) {
    if (!condition) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto node = vx::sim::SimulatedNode::Create(Controller());
    vx::vxsim::NodeService service(node);
    const vx::lon::Endpoint senders[2] = {{{127, 0, 0, 1}, 2541}, {{127, 0, 0, 1}, 40000}};
    const std::span<const std::uint8_t> input(data, size);
    std::chrono::steady_clock::time_point now{};
    for (std::size_t at = 0, count = 0; at < input.size(); ++count) {
        const std::size_t length = std::min<std::size_t>(input[at], input.size() - at - 1);
        const auto datagram = input.subspan(at + 1, length);
        at += 1 + length;
        now += std::chrono::milliseconds(100);

        const auto request = vx::lon::Decode(datagram);
        const auto before = request ? vx::sim::NodeDescription{} : node->Description();
        const auto reply = service.Handle(datagram, senders[count % 2], now);
        if (!request) {
            Check(!reply);
            Check(node->Description() == before);
            continue;
        }
        if (!reply) continue;
        const auto answer = vx::lon::Decode(*reply);
        Check(answer && !answer.datagram->source);
        Check(answer.datagram->transaction == request.datagram->transaction);
        Check(answer.datagram->pduFormat == request.datagram->pduFormat);
    }
    return 0;
}
