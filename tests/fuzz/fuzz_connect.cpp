// Connects a device to nodes described by arbitrary text: the node self-documentation on the
// first line, then one item per line ("<type index>|<self-documentation>" for a network
// variable, "#<name>|<layout>" for a configuration item). Connect either succeeds or raises a
// ComError; what it built must then browse and disconnect cleanly.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "CDevice.h"
#include "CDeviceRevision.h"
#include "TypeRegistry.h"
#include "fixtures/FakeConnection.h"
#include "fixtures/Tolerate.h"

namespace {

using vx::test::Tolerate;

std::shared_ptr<vx::test::FakeConnection> NodeOf(std::string_view text) {
    auto node = std::make_shared<vx::test::FakeConnection>();
    bool first = true;
    int counter = 0;
    while (!text.empty()) {
        const auto end = text.find('\n');
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (first) {
            node->selfDoc = std::string(line);
            first = false;
            continue;
        }
        const auto bar = line.find('|');
        const std::string_view head = line.substr(0, bar);
        const std::string_view tail =
            bar == std::string_view::npos ? std::string_view() : line.substr(bar + 1);
        if (!head.empty() && head.front() == '#') {
            node->AddItem(std::string(head.substr(1)), std::string(tail));
        } else {
            std::int32_t typeIndex = 0;
            for (const char c : head.substr(0, 3)) {
                if (c >= '0' && c <= '9') typeIndex = typeIndex * 10 + (c - '0');
            }
            auto record =
                node->AddVariable("v" + std::to_string(counter++), std::string(tail), typeIndex);
            record->value = vx::test::HostBytes(std::vector<std::uint8_t>(2, 0));
        }
    }
    return node;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const auto types = vx::UseStandardTypes();
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto node = NodeOf(text);

    // A revision that names a few configuration items, so that some of them bind.
    const auto revision = std::make_shared<vx::CDeviceRevision>();
    revision->IdentifyFileType2Config(
        3, vx::Variant(vx::VariantArray(0, {vx::Variant(1), vx::Variant("nciCrc")})));

    const auto device = std::make_shared<vx::CDevice>();
    Tolerate([&] { device->Connect(node, (size & 1) != 0 ? revision : nullptr); });
    for (const auto& object : device->NewEnum()) {
        (void)object->ProfileName();
        for (const auto& variable : object->NewEnum()) {
            Tolerate([&] { (void)variable->Value(); });
        }
    }
    Tolerate([&] { (void)device->State(false, false); });
    Tolerate([&] { (void)device->Revision(); });
    device->Disconnect();
    return 0;
}
