#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "automation/Event.h"
#include "automation/Variant.h"
#include "interfaces/IOrvexDeviceRevision.h"

namespace vx {

class INodeConnection;
class CDeviceObject;

// What LonMark objects and variables need of the device that holds them. The device implements
// it; objects and variables keep it only as a weak reference.
class IDeviceContext : public virtual Object {
public:
    // True while the device holds a connection to its node.
    virtual bool Connected() const = 0;
    // The node's program ID text as the device shows it ("" without a connection).
    virtual std::string ProgID() = 0;
    // The host connection the device holds; nullptr while unconnected.
    virtual std::shared_ptr<INodeConnection> Connection() const = 0;
    // The device's LonMark object with that ID; nullptr when there is none (never raises).
    virtual std::shared_ptr<CDeviceObject> ObjectByID(std::int32_t objectID) = 0;
    // The revision description the device was connected with; nullptr when it has none.
    virtual DeviceRevisionPtr RevisionInfo() const = 0;
    // Raised by the device after it has downloaded, and after it has uploaded, its
    // configuration image; the variables listen to both.
    virtual Event<>& AfterConfigDMDownloadEvent() = 0;
    virtual Event<>& AfterConfigDMUploadEvent() = 0;
};

using DeviceContextPtr = std::shared_ptr<IDeviceContext>;

}  // namespace vx
