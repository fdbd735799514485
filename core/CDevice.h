#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CDeviceObjects.h"
#include "OrvexCommand.h"
#include "automation/Collection.h"
#include "automation/Event.h"
#include "interfaces/IDeviceContext.h"
#include "interfaces/INodeConnection.h"
#include "interfaces/IOrvexDevice.h"
#include "interfaces/IOrvexDeviceInfo.h"
#include "interfaces/IVarEvents.h"

namespace vx {

// The family's own manufacturer number (the 20 bits after the format digit of a standard program
// ID). It lies above 0xFFFF on purpose: the number is read as a hexadecimal text, which the
// platform gives as a negative Integer from 0x8000 to 0xFFFF. MfgID shows the host's display name
// for it instead of the number.
inline constexpr std::int32_t kOrvexManufacturerId = 0x1A5A5;

// The state text State() gives for a node state and application mode as the host's connection
// reports them ("Configured/Online", "Unconfigured", ...), for tools that read them elsewhere.
std::string NodeStateText(std::int32_t nodeState, std::int32_t mode);

// One controller: its connection to the node, its LonMark objects, its command channel and the
// advanced configuration lists of its objects. Created unconnected; Connect learns the node.
class CDevice final : public IOrvexDevice,
                      public IOrvexDeviceInfo,
                      public IVarEvents,
                      public IDeviceContext,
                      public std::enable_shared_from_this<CDevice> {
public:
    CDevice();
    CDevice(const CDevice&) = delete;
    CDevice& operator=(const CDevice&) = delete;
    ~CDevice() override;

    // ---- IOrvexDevice ------------------------------------------------------------------------
    DeviceInfoPtr Info() override;
    void Connect(const ObjectPtr& nodeNetworkConnection, const ObjectPtr& revisionInfo) override;
    void Disconnect() override;
    bool Ping() override;
    void Download(std::int32_t objectID, std::int32_t mask) override;
    void Upload(std::int32_t mask) override;
    bool Connected() const override { return m_connection != nullptr; }
    LonObjectPtr Object(std::int32_t objectID) override;
    LonObjectPtr ProfileObject(std::int32_t profile) override;
    CommandInterfacePtr Command() override { return m_command; }
    void DownloadRequest(std::int32_t lonObject, std::int32_t objectRequest) override;
    LonObjectStatusPtr UploadStatus() override;
    std::vector<LonObjectPtr> NewEnum() const override;
    bool Wink() override;
    std::int32_t ConfigModificationLevel() const override { return m_modificationLevel; }
    void SetConfig(const ObjectPtr& configItems, std::int32_t varCat) override;

    // ---- IOrvexDeviceInfo --------------------------------------------------------------------
    std::string Name(const std::string& location) override;
    void SetName(const std::string& location, const std::string& deviceName) override;
    std::string ProgID() override;
    std::string SelfDoc() override;
    std::string Revision() override;
    std::string MfgID() override;
    std::string State(bool discovering, bool allowPing) override;
    std::string NeuronID() override;

    // ---- IVarEvents --------------------------------------------------------------------------
    // Raises the modification level to the variable's config level when that is higher.
    void Modified(const VariablePtr& variable) override;

    // ---- Class members -----------------------------------------------------------------------
    float PIUnsignedTwoBytesToSingle(std::uint8_t highByte, std::uint8_t lowByte) const;
    std::string PIConvertBinaryToHexString(const Variant& byteStream) const;

    // ---- Memory operations -------------------------------------------------------------------
    // The name text (30 characters) at a four-digit hexadecimal address; "" when the read fails.
    std::string ReadMemoryText(const std::string& address);
    // Writes `text` cut or padded with blanks to 30 characters and a zero byte; False when the
    // write fails.
    bool WriteMemoryText(const std::string& text, const std::string& address);
    // The memory address of a configuration-property location through the node's file
    // directory; "" when the node has none or it cannot be read.
    std::string ResolveSCPTLocation(const std::string& location);
    std::string ReadNameText(const std::string& address) { return ReadMemoryText(address); }
    bool WriteNameText(const std::string& text, const std::string& address) {
        return WriteMemoryText(text, address);
    }

    // ---- For the library's own classes (IDeviceContext) --------------------------------------
    NodeConnectionPtr Connection() const override { return m_connection; }
    DeviceObjectPtr ObjectByID(std::int32_t objectID) override;
    DeviceRevisionPtr RevisionInfo() const override { return m_revision; }
    Event<>& AfterConfigDMDownloadEvent() override { return m_afterConfigDMDownload; }
    Event<>& AfterConfigDMUploadEvent() override { return m_afterConfigDMUpload; }
    // Declared for host listeners; the library never raises it.
    Event<>& RequestDownloadEvent() { return m_requestDownload; }
    bool DeferredClose() const noexcept { return m_deferredClose; }

    const CommandPtr& CommandChannel() const noexcept { return m_command; }
    const CDeviceObjects& Objects() const noexcept { return *m_objects; }
    // Per object ID (decimal text), the variables of its advanced configuration.
    const Collection<std::vector<DeviceVariablePtr>>& AdvancedConfigLists() const noexcept {
        return m_advancedConfig;
    }
    // The node-object variables kept by role: slots 0-5 of the well-known record (object
    // request, object status, alarm, time stamp, file request, file position).
    const DeviceVariablePtr& WellKnownVariable(WellKnownSlot slot) const;

private:
    void CollectAdvancedConfig(CDeviceObject& object, const IOrvexDeviceRevision& revision);
    // The node's state code: -1 when it does not answer, else derived from state and mode.
    std::int32_t StateCode();
    // One Read Memory request of `count` bytes at a four-digit address text; the response's
    // data as hexadecimal text, or nothing when the exchange failed.
    std::optional<std::string> ReadMemory(const std::string& address, std::uint8_t count);
    // ResolveSCPTLocation's walk over the network variables; raises what the host's list and
    // names raise.
    std::string SearchFileDirectory(INodeConnection& connection, const std::string& location);
    NodeConnectionPtr RequireConnection() const;
    // Polls the node's alarm message until its application has restarted; false when it was
    // still restarting after 90 seconds. Never raises.
    bool WaitForApplicationReset();

    NodeConnectionPtr m_connection;
    // Set by a download that left the phase open for the configuration items; every later upload
    // closes the phase and waits for the node's restart.
    bool m_deferredClose = false;
    std::shared_ptr<OrvexCommand> m_command;
    std::shared_ptr<CDeviceObjects> m_objects;
    Collection<std::vector<DeviceVariablePtr>> m_advancedConfig;
    std::int32_t m_modificationLevel = 0;
    std::array<DeviceVariablePtr, 6> m_wellKnown;
    DeviceRevisionPtr m_revision;

    Event<> m_afterConfigDMUpload;
    Event<> m_afterConfigDMDownload;
    Event<> m_requestDownload;
};

using DeviceManagerPtr = std::shared_ptr<CDevice>;

}  // namespace vx
