// Arbitrary bytes as a run of exchanges with the default simulated controller: command frames,
// object requests, network-management requests, alarm polls and value writes. Each exchange is
// answered or raises a ComError; whatever happens, the node's answers keep their shape.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "DefaultController.h"
#include "SimulatedNode.h"
#include "fixtures/Tolerate.h"
#include "interfaces/INodeVariable.h"
#include "interfaces/INodeVariableAccess.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}
    bool Empty() const { return m_at >= m_size; }
    std::uint8_t Byte() { return m_at < m_size ? m_data[m_at++] : 0; }
    Bytes Take(std::size_t count) {
        Bytes bytes;
        for (std::size_t i = 0; i < count; ++i)
            bytes.push_back(Byte());
        return bytes;
    }

private:
    const std::uint8_t* m_data;
    std::size_t m_size;
    std::size_t m_at = 0;
};

std::string Hex(const Bytes& bytes) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

void Write(vx::sim::SimulatedNode& node, std::size_t at, Bytes value) {
    const auto variable =
        std::dynamic_pointer_cast<vx::INodeVariable>(node.NetworkVariables()->Items().at(at));
    variable->WriteValue(vx::Variant(vx::ByteArray(0, std::move(value))));
}

std::size_t IndexOf(vx::sim::SimulatedNode& node, const std::string& name) {
    const auto items = node.NetworkVariables()->Items();
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (std::dynamic_pointer_cast<vx::INodeVariable>(items[i])->Name() == name) return i;
    }
    __builtin_trap();
}

void CheckShapes(const vx::sim::SimulatedNode& node) {
    const auto& status = node.VariableValue("nvoCommandStatus");
    const auto& commands = node.Commands();
    if (status[3] != 0 || status[2] != commands.downloadLevel) __builtin_trap();
    if (((status[1] & 0x04) != 0) != (commands.downloadLevel != 0)) __builtin_trap();
    if (((status[1] & 0x10) != 0) != commands.restarting) __builtin_trap();
    const auto& objectStatus = node.VariableValue("nvoStatus");
    if ((objectStatus[4] & 0x01) != 0 || objectStatus[5] != 0) __builtin_trap();
    if (node.CoveredChecksum().size() != 2) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const auto node = vx::sim::SimulatedNode::Create(vx::sim::DefaultController());
    node->SetRecording(false);
    node->SetResetPolls(input.Byte() % 4);
    const std::size_t command = IndexOf(*node, "nviCommand");
    const std::size_t request = IndexOf(*node, "nviRequest");
    const std::size_t alarm = IndexOf(*node, "nvoAlarmMessage");
    const std::size_t setpoints = IndexOf(*node, "nciSetpoints");
    while (!input.Empty()) {
        switch (input.Byte() % 6) {
            case 0:
                vx::test::Tolerate([&] { Write(*node, command, input.Take(12)); });
                break;
            case 1:
                vx::test::Tolerate([&] { Write(*node, request, input.Take(3)); });
                break;
            case 2: {
                std::string code = Hex(input.Take(1));
                const Bytes body = input.Take(input.Byte() % 40);
                std::string text = Hex(body);
                auto length = static_cast<std::int32_t>(body.size() + 1);
                const bool read = code == "6D" && body.size() == 4;
                bool answered = false;
                vx::test::Tolerate(
                    [&] { answered = node->SendNetworkMessage(code, text, length); });
                if (answered && read && text.size() != 2u * body[3]) __builtin_trap();
                break;
            }
            case 3:
                vx::test::Tolerate([&] {
                    std::dynamic_pointer_cast<vx::INodeVariable>(
                        node->NetworkVariables()->Items().at(alarm))
                        ->ReadValue();
                });
                break;
            case 4:
                vx::test::Tolerate([&] { Write(*node, setpoints, input.Take(12)); });
                break;
            default: {
                const auto item = std::dynamic_pointer_cast<vx::INodeVariableAccess>(
                    node->ConfigurationProperties()->Items().at(0));
                vx::Variant crc(vx::ByteArray(0, input.Take(2)));
                vx::test::Tolerate([&] { item->WriteValue(crc); });
                break;
            }
        }
        CheckShapes(*node);
    }
    return 0;
}
