#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "CBuffer.h"
#include "CDeviceVariableElement.h"
#include "CVarElementBase.h"
#include "automation/Event.h"
#include "interfaces/IDeviceContext.h"
#include "interfaces/INodeVariable.h"
#include "interfaces/INodeVariableAccess.h"
#include "interfaces/IOrvexLonObject.h"
#include "interfaces/IOrvexVariable.h"
#include "interfaces/IVarEvents.h"

namespace vx {

// Where a freshly initialised variable belongs: the LonMark object index (for a property of a
// network variable, that variable's index) and whether the index names its object.
struct VariableBinding {
    std::int32_t objectIndex = -1;
    bool bound = false;
};

// One network variable, configuration property or configuration item of a node: its name,
// category, config level and type, and the two buffers that hold its value (the value buffer the
// client edits, the device buffer with the value last exchanged with the node).
//
// Variables are owned by a shared_ptr. They keep their object, their event sink and the device
// only as weak references; ReleaseVariable breaks the remaining links (buffer events, device
// events, host records).
class CDeviceVariable final : public IOrvexVariable,
                              public std::enable_shared_from_this<CDeviceVariable> {
public:
    CDeviceVariable();
    CDeviceVariable(const CDeviceVariable&) = delete;
    CDeviceVariable& operator=(const CDeviceVariable&) = delete;
    ~CDeviceVariable() override;

    // ---- IOrvexVariable ----------------------------------------------------------------------
    std::string Name() const override { return m_name; }
    LonObjectPtr Object() const override { return m_owner.lock(); }
    void Download(std::int32_t level, bool force) override;
    void Upload() override;
    DataElementPtr Element() const override { return m_rootElement; }
    std::int32_t Category() const override { return m_category; }
    std::int32_t ConfigLevel() const override { return m_configLevel; }
    TypedefPtr Typedef() const override { return m_typeHolder->Typedef(); }
    Variant Value() override;
    void SetValue(const Variant& value) override;
    bool Undefined() override;
    std::int16_t NvIndex() const override { return m_nvIndex; }

    // ---- Class members -----------------------------------------------------------------------
    // Free for the library's own use; 0 by default.
    std::int32_t TagID() const noexcept { return m_tagID; }
    void SetTagID(std::int32_t tagID) noexcept { m_tagID = tagID; }
    // Takes the type registered under the name followed by the device's program ID, failing that
    // the one registered under the name alone.
    void SetElementType(IDeviceContext* device);

    std::int32_t ScopeCode() const noexcept { return m_scopeCode; }
    std::int32_t MemberGroup() const noexcept { return m_memberGroup; }
    std::int32_t MemberNumber() const noexcept { return m_memberNumber; }

    // ---- Library-internal --------------------------------------------------------------------
    // Binds the variable to a host record: an INodeVariableAccess is a configuration item,
    // otherwise the record must be an INodeVariable (else type mismatch). `device` may be nullptr.
    VariableBinding InitVariable(const DeviceContextPtr& device, const ObjectPtr& hostRecord,
                                 const VarEventsPtr& eventSink);
    // A variable known by its name alone (no host record), for an unconnected device.
    void InitOffline(std::string_view name);
    void SetOwner(const LonObjectPtr& owner) { m_owner = owner; }
    void SetConfigLevel(std::int32_t level);
    // Whether the network variable's self-documentation names an input ("nvi", any case).
    bool IsInputNv() const;
    bool IsModified() const noexcept { return m_modified; }
    const BufferPtr& ValueBuffer() const noexcept { return m_valueBuffer; }
    const BufferPtr& DeviceBuffer() const noexcept { return m_deviceBuffer; }
    // The host configuration item's name ("kind-index"); "" for other variables.
    const std::string& ItemName() const noexcept { return m_itemName; }
    // Teardown: drops the buffer and device event links, the owner, the sink and the host records.
    void ReleaseVariable();

    // Handlers of the device's events.
    void OnAfterConfigDMDownload();
    void OnAfterConfigDMUpload();

private:
    VariableBinding InitNetworkVariable(IDeviceContext* device, NodeVariablePtr record);
    VariableBinding InitConfigItem(IDeviceContext* device, NodeVariableAccessPtr item);
    void BuildRootElement();
    void SubscribeDeviceEvents(IDeviceContext& device);
    void CopyValueToDeviceBuffer();
    void OnBufferModified();
    void OnBufferLoadMePlease();

    NodeVariablePtr m_nodeVariable;
    NodeVariableAccessPtr m_configItem;
    std::weak_ptr<IVarEvents> m_eventSink;
    BufferPtr m_valueBuffer;
    BufferPtr m_deviceBuffer;
    DeviceVariableElementPtr m_rootElement;
    std::weak_ptr<IOrvexLonObject> m_owner;
    std::string m_name;
    std::int16_t m_nvIndex = 0;
    std::int32_t m_scopeCode = 10;
    std::int32_t m_memberGroup = 0;
    std::int32_t m_memberNumber = 0;
    std::int32_t m_category = 0;
    std::int32_t m_configLevel = 0;
    std::string m_itemName;
    std::shared_ptr<CVarElementBase> m_typeHolder;
    std::int32_t m_tagID = 0;
    bool m_modified = false;
    std::string m_selfDoc;

    Event<>::Subscription m_bufferModified;
    Event<>::Subscription m_bufferLoadMePlease;
    Event<>::Subscription m_deviceDownloaded;
    Event<>::Subscription m_deviceUploaded;
};

using DeviceVariablePtr = std::shared_ptr<CDeviceVariable>;

}  // namespace vx
