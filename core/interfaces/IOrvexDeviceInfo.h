#pragma once

#include <memory>
#include <string>

#include "automation/Variant.h"

namespace vx {

// State and identity texts of a device. Members in interface order. Each gives "" while the
// device holds no connection, except NeuronID, which needs one (object not set, 91, without).
class IOrvexDeviceInfo : public virtual Object {
public:
    // The name text in the node's memory at `location`: four hexadecimal digits of an address,
    // or an offset the node's file directory resolves. "" when the node does not answer or the
    // memory cannot be read; never raises.
    virtual std::string Name(const std::string& location) = 0;
    // Writes the name (cut or padded to 30 characters) at the address `location`, which is not
    // resolved through the file directory. Never raises.
    virtual void SetName(const std::string& location, const std::string& deviceName) = 0;
    // The program ID: its 16 hexadecimal digits for a standard program ID (format 8 or 9),
    // otherwise the text program ID it encodes.
    virtual std::string ProgID() = 0;
    // The node's self-documentation string; "" when the node cannot give it.
    virtual std::string SelfDoc() = 0;
    // The firmware revision: what follows the host's revision marker in the self-documentation.
    virtual std::string Revision() = 0;
    // The manufacturer number as decimal text; the host's display name for the family's own.
    virtual std::string MfgID() = 0;
    // "Not Communicating", "Unconfigured", "Applicationless", "Configured/Online",
    // "Configured/Offline", "Hard Offline" or "Unknown", read afresh from the node each time.
    // Both arguments are accepted and ignored.
    virtual std::string State(bool discovering, bool allowPing) = 0;
    // The Neuron ID as byte pairs joined by "-" ("01-02-03-04-05-06").
    virtual std::string NeuronID() = 0;
};

using DeviceInfoPtr = std::shared_ptr<IOrvexDeviceInfo>;

}  // namespace vx
