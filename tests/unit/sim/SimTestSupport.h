#pragma once

// Talking to a simulated node the way the library does: through the host's item records and
// network-management requests.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "SimulatedNode.h"
#include "interfaces/INodeVariable.h"
#include "interfaces/INodeVariableAccess.h"

namespace vx::sim::test {

using Bytes = std::vector<std::uint8_t>;

inline std::shared_ptr<INodeVariable> VariableRecordOf(SimulatedNode& node,
                                                       const std::string& name) {
    for (const auto& item : node.NetworkVariables()->Items()) {
        auto variable = std::dynamic_pointer_cast<INodeVariable>(item);
        if (variable && variable->Name() == name) return variable;
    }
    return nullptr;
}

inline std::shared_ptr<INodeVariableAccess> ItemRecordOf(SimulatedNode& node,
                                                         const std::string& name) {
    for (const auto& item : node.ConfigurationProperties()->Items()) {
        auto access = std::dynamic_pointer_cast<INodeVariableAccess>(item);
        if (access && access->Name() == name) return access;
    }
    return nullptr;
}

inline Bytes ReadVariable(SimulatedNode& node, const std::string& name) {
    return VariableRecordOf(node, name)->ReadValue().Get<ByteArray>()->Values();
}

inline void WriteVariable(SimulatedNode& node, const std::string& name, Bytes value) {
    VariableRecordOf(node, name)->WriteValue(Variant(ByteArray(0, std::move(value))));
}

inline void WriteItem(SimulatedNode& node, const std::string& name, Bytes value) {
    Variant bytes(ByteArray(0, std::move(value)));
    ItemRecordOf(node, name)->WriteValue(bytes);
}

// A request and what came back in its arguments.
struct Reply {
    std::string code;
    std::string data;
    std::int32_t length = 0;
};

inline Reply Send(SimulatedNode& node, std::string code, std::string data, std::int32_t length) {
    node.SendNetworkMessage(code, data, length);
    return {code, data, length};
}

}  // namespace vx::sim::test
