// Feeds arbitrary texts to vxctl's value parser as a technician types them, against typed values
// of every kind (scaled, formula-scaled, enumeration, Boolean, text, float, structure with a
// character array): each input is taken or refused with a UsageError, never anything else, and a
// taken one can be stored.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "CBuffer.h"
#include "CDataOffset.h"
#include "CDeviceVariableElement.h"
#include "ToolErrors.h"
#include "TypeRegistry.h"
#include "Units.h"
#include "ValueInput.h"

namespace {

const std::vector<vx::TypedefPtr>& Types() {
    static const std::vector<vx::TypedefPtr> types = [] {
        const auto registry = vx::TypeRegistry::Standard();
        std::vector<vx::TypedefPtr> found;
        for (const char* name : {"SNVT_temp_p", "SNVT_temp", "SNVT_hvac_mode", "SNVT_str_asc",
                                 "SNVT_switch", "SNVT_area", "SNVT_temp_setpt", "SNVT_alarm_2",
                                 "SNVT_obj_status", "SNVT_temp_f", "SNVT_count_32"}) {
            if (auto type = registry->TypeByName(name)) found.push_back(std::move(type));
        }
        return found;
    }();
    return types;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1 || Types().empty()) return 0;
    const auto& type = Types()[data[0] % Types().size()];
    const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);

    vx::vxctl::SplitNumberAndUnit(text);
    vx::vxctl::ConvertUnits(1.5, text, "degrees Celsius");
    try {
        vx::vxctl::RawBytesInput(text, 4, "raw");
    } catch (const vx::vxctl::UsageError&) {
    }

    auto buffer = std::make_shared<vx::CBuffer>();
    buffer->SetBytes(vx::ByteArray(
        0, std::vector<std::uint8_t>(static_cast<std::size_t>(std::max(type->ByteSize(), 1)), 0)));
    auto element = std::make_shared<vx::CDeviceVariableElement>();
    element->InitElement(type, buffer, std::make_shared<vx::CDataOffset>(), 0);
    try {
        vx::vxctl::ApplyWrites(vx::vxctl::PlanWrites(element, text, "value"));
    } catch (const vx::vxctl::UsageError&) {
    }
    return 0;
}
