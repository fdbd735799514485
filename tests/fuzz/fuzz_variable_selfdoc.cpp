// Feeds arbitrary self-documentation strings and host names to variable initialisation: each
// input gives a variable or raises a ComError, never anything else.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "CDeviceObject.h"
#include "CDeviceVariable.h"
#include "SelfDoc.h"
#include "fixtures/FakeDevice.h"
#include "fixtures/FakeHost.h"
#include "fixtures/FakeRegistry.h"
#include "fixtures/FakeTypes.h"
#include "fixtures/Tolerate.h"

namespace {

using vx::test::Tolerate;

// A registry that knows a few types by index and by name, so that some inputs get typed values.
vx::test::ScopedTypeRegistry& Registry() {
    static vx::test::ScopedTypeRegistry registry;
    static const bool filled = [] {
        auto word = std::make_shared<vx::test::FakeTypedef>();
        word->bits = 16;
        word->maximum = 65535;
        registry->AddIndex(1, word);
        registry->AddName("nvoTemp", word);
        registry->AddName("UCPT_CRC", word);
        return true;
    }();
    (void)filled;
    return registry;
}

// Exercises a freshly initialised variable the way a host would.
void Use(const vx::DeviceVariablePtr& variable, const vx::DeviceObjectPtr& object) {
    (void)variable->Name();
    (void)variable->Category();
    Tolerate([&] { (void)variable->Value(); });
    Tolerate([&] { variable->SetValue(vx::Variant(std::int32_t{7})); });
    Tolerate([&] { variable->Download(127, true); });
    variable->SetConfigLevel(2);
    variable->SetConfigLevel(0);
    object->AddVariable(variable);
    Tolerate([&] { (void)object->Variable(variable->Name()); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    (void)Registry();
    if (size < 2) return 0;
    const std::uint8_t mode = data[0];
    const std::string rest(reinterpret_cast<const char*>(data + 1), size - 1);
    const auto split = rest.find('\n');
    const std::string hostName = split == std::string::npos ? rest : rest.substr(0, split);
    const std::string selfDoc = split == std::string::npos ? std::string() : rest.substr(split + 1);

    // The parser's name is the host's or a LonMark name found in the text.
    const vx::VariableSelfDoc parsed = vx::ParseVariableSelfDoc(selfDoc, hostName);
    if (parsed.name != hostName &&
        (!vx::IsLonMarkName(parsed.name) || selfDoc.find(parsed.name) == std::string::npos)) {
        __builtin_trap();
    }

    const auto device = std::make_shared<vx::test::FakeDevice>();
    device->connected = (mode & 1) != 0;
    device->progID = "9FFFFF0501040401";
    const auto object = device->AddObject(mode & 7);
    auto variable = std::make_shared<vx::CDeviceVariable>();
    bool made = false;
    switch ((mode >> 3) % 3) {
        case 0: {
            auto record =
                std::make_shared<vx::test::FakeNodeVariable>(hostName, selfDoc, (mode >> 5) & 1);
            record->value = vx::test::HostBytes({data, data + (size % 5)});
            Tolerate([&] {
                variable->InitVariable(device, record, device);
                made = true;
            });
            break;
        }
        case 1: {
            auto item = std::make_shared<vx::test::FakeConfigItem>(hostName, selfDoc);
            item->value = vx::test::HostBytes({data, data + (size % 3)});
            Tolerate([&] {
                variable->InitVariable(device, item, device);
                made = true;
            });
            break;
        }
        default:
            Tolerate([&] {
                variable->InitOffline(hostName);
                made = true;
            });
            break;
    }
    if (made) Use(variable, object);
    object->ReleaseObject();
    return 0;
}
