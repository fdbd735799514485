#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "CDeviceVariable.h"
#include "automation/Collection.h"
#include "interfaces/IDeviceContext.h"
#include "interfaces/IOrvexDeviceRevision.h"
#include "interfaces/IOrvexLonObject.h"

namespace vx {

// One LonMark object of a node: its index, its functional profile and the variables that belong
// to it, keyed by name without regard to case. It keeps the device only as a weak reference; the
// device applies a revision's configuration levels and checksum list to it.
class CDeviceObject final : public IOrvexLonObject,
                            public std::enable_shared_from_this<CDeviceObject> {
public:
    CDeviceObject() = default;
    CDeviceObject(const CDeviceObject&) = delete;
    CDeviceObject& operator=(const CDeviceObject&) = delete;
    ~CDeviceObject() override;

    // ---- IOrvexLonObject ---------------------------------------------------------------------
    std::int32_t ID() const override { return m_id; }
    std::int32_t Profile() const override { return m_profileCode; }
    std::string ProfileName() const override;
    VariablePtr Variable(std::string_view variableName) override;
    std::int32_t VariableCount() const override { return m_variables.Count(); }
    std::vector<VariablePtr> NewEnum() const override;

    // ---- Library-internal --------------------------------------------------------------------
    void InitObject(std::int32_t objectIndex, std::int32_t profileNumber,
                    const DeviceContextPtr& device);
    // Adds the variable under its name unless one of that name is already held (the first
    // stays); either way the variable's owner becomes this object.
    void AddVariable(const DeviceVariablePtr& variable);
    // Variable(), as the class.
    DeviceVariablePtr VariableByName(std::string_view name);
    // The variables in order, as the class.
    std::vector<DeviceVariablePtr> Variables() const;
    // Sets the config levels and the checksum list that the revision describes for this object.
    void ApplyRevision(const IOrvexDeviceRevision& revision);
    // The configuration checksum (low byte, high byte) over the checksum list's value bytes.
    ByteArray ComputeCrc();
    // The checksum list as ApplyRevision left it (lower bound 1; unallocated before).
    const SafeArray<DeviceVariablePtr>& CrcList() const noexcept { return m_crcList; }
    // Teardown: releases every variable and checksum entry and drops the device.
    void ReleaseObject();

    // The profile code of a functional-profile number, and the label of a code.
    static std::int32_t ProfileCode(std::int32_t profileNumber);
    static std::string ProfileLabel(std::int32_t profileCode);
    // CRC-16/X-25 of the bytes, continuing from `state` (low, high; {255, 255} to start); the
    // complemented result is the state with each byte replaced by 255 minus itself.
    static void CrcUpdate(std::array<std::uint8_t, 2>& state, std::span<const std::uint8_t> bytes);

private:
    std::int32_t m_id = 0;
    std::int32_t m_profileCode = 0;
    Collection<DeviceVariablePtr> m_variables;
    std::weak_ptr<IDeviceContext> m_device;
    SafeArray<DeviceVariablePtr> m_crcList;
};

using DeviceObjectPtr = std::shared_ptr<CDeviceObject>;

}  // namespace vx
