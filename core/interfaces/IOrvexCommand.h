#pragma once

#include <cstdint>
#include <memory>

#include "automation/Variant.h"
#include "interfaces/IOrvexCommandStatus.h"

namespace vx {

// The family's device commands, sent through the node's command variable. Members in interface
// order. Each command returns True once it was written and downloaded, and False, doing nothing,
// when the node has no command variable or a parameter rule excludes it. A one-byte parameter
// outside 0..255 raises overflow (6) before anything is sent.
class IOrvexCommand : public virtual Object {
public:
    // Opens the configuration download at `level` 2 or 3; at level 3 it also downloads the
    // object's configuration checksum (error 1026 when the node has no checksum property).
    virtual bool OpenConfigDownload(std::int32_t level, std::int32_t lonObjectID) = 0;
    virtual bool CloseConfigDownload(std::int32_t level) = 0;
    virtual bool SendAllScan() = 0;
    virtual bool ResetTimer(std::int32_t timerID, std::int32_t timerValue) = 0;
    virtual bool Keypress(std::int32_t code) = 0;
    virtual bool DisableKeypad() = 0;
    virtual bool EnableKeypad() = 0;
    virtual bool ClearLog(std::int32_t lonObjectID) = 0;
    // Resets the node's memory; the command carries a code only this device's Neuron ID gives.
    virtual bool ResetMemory(std::int32_t reset) = 0;
    // Any command: its code and up to ten data bytes (an array of Byte; shorter is padded with 0).
    virtual bool GenericCommand(std::int32_t cmdCode, const Variant& cmdData) = 0;
    // Uploads the node's command status into a new status object, handed out in `status` before
    // anything can fail (error 1025 when the node has no command status variable).
    virtual void UploadStatus(CommandStatusPtr& status) = 0;
};

using CommandInterfacePtr = std::shared_ptr<IOrvexCommand>;

}  // namespace vx
