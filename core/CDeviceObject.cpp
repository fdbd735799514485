#include "CDeviceObject.h"

#include <utility>

#include "ErrorSupport.h"

namespace vx {
namespace {

// Display labels of the profile codes 1 to 21.
constexpr std::array<std::string_view, 21> kProfileLabels = {
    "Profile type A", "Profile type B", "Profile type C", "Profile type D", "Profile type E",
    "Profile type F", "Profile type G", "Profile type H", "Profile type I", "Profile type J",
    "Profile type K", "Profile type L", "Profile type M", "Profile type N", "Profile type O",
    "Profile type P", "Profile type Q", "Profile type R", "Profile type S", "Profile type T",
    "Profile type U",
};

}  // namespace

CDeviceObject::~CDeviceObject() {
    ReleaseObject();
}

std::int32_t CDeviceObject::ProfileCode(std::int32_t profileNumber) {
    if (profileNumber >= 8500 && profileNumber <= 8599) return 1;
    if (profileNumber >= 8600 && profileNumber <= 8699) return 2;
    switch (profileNumber) {
        case 8020:
            return 3;
        case 8030:
            return 4;
        case 8040:
            return 5;
        case 8051:
            return 6;
        case 8060:
            return 7;
        case 8070:
            return 8;
        case 8080:
            return 9;
        case 8090:
            return 10;
        case 8010:
            return 11;
        case 8110:
            return 12;
        default:
            break;
    }
    if (profileNumber >= 8201 && profileNumber <= 8209) return profileNumber - 8201 + 13;
    return 0;
}

std::string CDeviceObject::ProfileLabel(std::int32_t profileCode) {
    if (profileCode < 1 || profileCode > static_cast<std::int32_t>(kProfileLabels.size())) {
        return {};
    }
    return std::string(kProfileLabels[static_cast<std::size_t>(profileCode - 1)]);
}

std::string CDeviceObject::ProfileName() const {
    return ProfileLabel(m_profileCode);
}

void CDeviceObject::InitObject(std::int32_t objectIndex, std::int32_t profileNumber,
                               const DeviceContextPtr& device) {
    m_id = objectIndex;
    m_profileCode = ProfileCode(profileNumber);
    m_device = device;
}

void CDeviceObject::AddVariable(const DeviceVariablePtr& variable) {
    const std::string name = variable->Name();
    if (!m_variables.Contains(name)) m_variables.Add(variable, name);
    variable->SetOwner(shared_from_this());
}

VariablePtr CDeviceObject::Variable(std::string_view variableName) {
    return VariableByName(variableName);
}

DeviceVariablePtr CDeviceObject::VariableByName(std::string_view name) {
    if (const auto* found = m_variables.Find(name)) return *found;
    const auto device = m_device.lock();
    // An object whose device is gone (released) has no device to ask: Nothing to call on.
    if (!device) RaiseRuntimeError(kErrObjectNotSet);
    if (!device->Connected()) {
        auto variable = std::make_shared<CDeviceVariable>();
        variable->InitOffline(name);
        AddVariable(variable);
        return variable;
    }
    RaiseLibraryError(LibraryErrorNumber(kIdVariableNotFound),
                      // The class prefix and the member text meet without a point, as hosts
                      // have always seen it.
                      source::Join(source::kDeviceObject, source::kObjectVariable),
                      {Variant(std::string(name)), Variant(std::to_string(m_id))});
}

std::vector<VariablePtr> CDeviceObject::NewEnum() const {
    return {m_variables.begin(), m_variables.end()};
}

std::vector<DeviceVariablePtr> CDeviceObject::Variables() const {
    return {m_variables.begin(), m_variables.end()};
}

void CDeviceObject::ApplyRevision(const IOrvexDeviceRevision& revision) {
    for (const auto& variable : m_variables) {
        if (variable->ConfigLevel() != 0) variable->SetConfigLevel(1);
    }
    for (const std::int32_t level : {2, 3}) {
        // A level the revision cannot give, or lists nothing for (no array of names), is skipped.
        Variant names;
        try {
            names = revision.ConfigVarlist(m_id, level);
        } catch (const ComError&) {
            continue;
        }
        if (const auto* texts = names.Get<StringArray>(); texts && texts->IsAllocated()) {
            for (const std::string& name : texts->Values()) {
                VariableByName(name)->SetConfigLevel(level);
            }
        } else if (const auto* variants = names.Get<VariantArray>();
                   variants && variants->IsAllocated()) {
            for (const Variant& name : variants->Values()) {
                VariableByName(CStr(name))->SetConfigLevel(level);
            }
        }
    }

    const std::int32_t count = revision.CRCVarCount(m_id);
    if (count < 1) return;
    m_crcList = SafeArray<DeviceVariablePtr>::WithBounds(1, count);
    const auto device = m_device.lock();
    for (std::int32_t i = 1; i <= count; ++i) {
        const auto entry = revision.CRCVar(m_id, i);
        if (!entry || !device) RaiseRuntimeError(kErrObjectNotSet);
        const auto object = device->ObjectByID(entry->LonObject());
        if (!object) RaiseRuntimeError(kErrObjectNotSet);
        m_crcList(i) = object->VariableByName(entry->Name());
    }
}

void CDeviceObject::CrcUpdate(std::array<std::uint8_t, 2>& state,
                              std::span<const std::uint8_t> bytes) {
    auto& [low, high] = state;
    for (const std::uint8_t d : bytes) {
        const unsigned t = static_cast<unsigned>(d ^ low);
        const unsigned newLow = high ^ ((t * 8) & 255) ^ ((t * 128) & 255) ^ (t & 15) ^ (t / 16);
        const unsigned newHigh = t ^ ((t * 16) & 255) ^ (t / 32) ^ ((t & 15) / 2);
        low = static_cast<std::uint8_t>(newLow);
        high = static_cast<std::uint8_t>(newHigh);
    }
}

ByteArray CDeviceObject::ComputeCrc() {
    std::int32_t lower = 0;
    std::int32_t upper = 0;
    try {
        lower = m_crcList.LBound();
        upper = m_crcList.UBound();
    } catch (const ComError&) {
        RaiseLibraryError(LibraryErrorNumber(kIdNoCrcList),
                          source::Join(source::kDeviceObject, source::kCrc),
                          {Variant(std::to_string(m_id))});
    }
    std::array<std::uint8_t, 2> state = {255, 255};
    for (std::int32_t i = lower; i <= upper; ++i) {
        const auto& variable = m_crcList(i);
        if (!variable) RaiseRuntimeError(kErrObjectNotSet);
        const ByteArray bytes = variable->ValueBuffer()->GetBytes();
        CrcUpdate(state, bytes.Values());
    }
    return ByteArray(
        0, {static_cast<std::uint8_t>(255 - state[0]), static_cast<std::uint8_t>(255 - state[1])});
}

void CDeviceObject::ReleaseObject() {
    for (const auto& variable : m_variables)
        variable->ReleaseVariable();
    m_variables.Clear();
    m_device.reset();
    for (auto& entry : m_crcList.Values()) {
        if (entry) entry->ReleaseVariable();
        entry.reset();
    }
    if (m_crcList.IsAllocated()) m_crcList = SafeArray<DeviceVariablePtr>::WithBounds(0, 0);
}

}  // namespace vx
