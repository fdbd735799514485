#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "automation/Variant.h"
#include "interfaces/IOrvexCommand.h"
#include "interfaces/IOrvexDeviceInfo.h"
#include "interfaces/IOrvexLonObject.h"
#include "interfaces/IOrvexLonObjectStatus.h"

namespace vx {

// One controller as a host tool sees it. Members in interface order.
class IOrvexDevice : public virtual Object {
public:
    // The same device seen through its state and identity interface.
    virtual DeviceInfoPtr Info() = 0;
    // Connects to the node behind `nodeNetworkConnection` (the host's INodeConnection) and
    // learns its objects and variables; `revisionInfo` (the revision registry, or nullptr) adds
    // the configuration levels, checksum lists and advanced configuration. Nothing raises the
    // unsupported-connection error (256); an object without the connection interface raises
    // type mismatch (13); a node without nviRequest or nvoStatus raises 258 after its objects
    // were loaded, and the device stays connected.
    virtual void Connect(const ObjectPtr& nodeNetworkConnection, const ObjectPtr& revisionInfo) = 0;
    // Drops the connection and every object; the modification level stays.
    virtual void Disconnect() = 0;
    // Whether the node answers a Query Status; never raises. Needs a connection (91 without).
    virtual bool Ping() = 0;
    virtual bool Connected() const = 0;
    // The LonMark object with that ID; nullptr when there is none.
    virtual LonObjectPtr Object(std::int32_t objectID) = 0;
    // The first object, in enumeration order, whose Profile is `profile`; nullptr when none.
    virtual LonObjectPtr ProfileObject(std::int32_t profile) = 0;
    // The device's command channel.
    virtual CommandInterfacePtr Command() = 0;
    // Sends a LonMark object request (the object's ID and the request code) through the node
    // object's request variable; does nothing when the node has none.
    virtual void DownloadRequest(std::int32_t lonObject, std::int32_t objectRequest) = 0;
    // Uploads the node object's status into a new record; a node without a status variable gives
    // a record that reads all zero.
    virtual LonObjectStatusPtr UploadStatus() = 0;
    // For Each over the device: its objects in the order they were created.
    virtual std::vector<LonObjectPtr> NewEnum() const = 0;
    // Makes the node show itself; False without a connection or when the host's wink fails.
    virtual bool Wink() = 0;
    // The highest configuration level changed over the device's life.
    virtual std::int32_t ConfigModificationLevel() const = 0;
};

using DevicePtr = std::shared_ptr<IOrvexDevice>;

}  // namespace vx
