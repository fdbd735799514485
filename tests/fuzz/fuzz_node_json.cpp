// Arbitrary text as a node description and as a revision description: each reader gives a
// description or its ComError, nothing else. What a reader accepts, the simulated node and the
// library's revision registry take without complaint.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "CDeviceRevision.h"
#include "NodeJson.h"
#include "RevisionJson.h"
#include "SimulatedNode.h"
#include "fixtures/Tolerate.h"
#include "interfaces/INodeVariable.h"

namespace {

void CheckNode(const vx::sim::NodeDescription& description) {
    std::shared_ptr<vx::sim::SimulatedNode> node;
    try {
        node = vx::sim::SimulatedNode::Create(description);
    } catch (...) {
        __builtin_trap();  // the reader let through a node no host holds
    }
    for (const auto& item : node->NetworkVariables()->Items()) {
        const auto variable = std::dynamic_pointer_cast<vx::INodeVariable>(item);
        const vx::Variant value = variable->ReadValue();
        const auto* bytes = value.Get<vx::ByteArray>();
        if (!bytes || static_cast<std::int32_t>(bytes->Count()) != variable->ByteLength()) {
            __builtin_trap();
        }
    }
}

void CheckRevision(const vx::sim::RevisionDescription& description) {
    const auto registry = std::make_shared<vx::CDeviceRevision>();
    try {
        vx::sim::RegisterRevision(description, *registry);
    } catch (...) {
        __builtin_trap();  // the reader let through a list the registry refuses
    }
    for (const auto& object : description.objects) {
        if (registry->CRCVarCount(object.object) != static_cast<std::int32_t>(object.crc.size())) {
            __builtin_trap();
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    vx::test::Tolerate([&] { CheckNode(vx::sim::ReadNodeJson(text, "fuzz.json")); });
    vx::test::Tolerate([&] { CheckRevision(vx::sim::ReadRevisionJson(text, "fuzz.json")); });
    return 0;
}
