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
    // Downloads the variables whose category shares a bit with `mask`, framed by a configuration
    // download on the command channel at the current modification level. Bit 0x80 takes the
    // object's advanced configuration instead of every object (exactly 128: all of it, whatever
    // the categories). Configuration items (category 1) are not downloaded but announced once
    // through AfterConfigDMDownload; the phase is then closed by the next Upload.
    virtual void Download(std::int32_t objectID, std::int32_t mask) = 0;
    // Uploads the variables whose category shares a bit with `mask`; announces each
    // configuration item through AfterConfigDMUpload. After a download whose close was deferred it
    // first closes the phase and waits (at most about 90 seconds) for the node's application
    // to restart.
    virtual void Upload(std::int32_t mask) = 0;
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
    // Copies a configuration the host keeps (an IHostConfigItems) into the value buffers of the
    // variables of category `varCat` (1 or 2; other categories change nothing). Nothing is sent
    // to the node. A failure ends the walk and raises 513 with its text left unfilled.
    virtual void SetConfig(const ObjectPtr& configItems, std::int32_t varCat) = 0;
};

using DevicePtr = std::shared_ptr<IOrvexDevice>;

}  // namespace vx
