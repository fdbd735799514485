#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "automation/Variant.h"
#include "interfaces/IOrvexAdvancedConfig.h"
#include "interfaces/IOrvexVariableIdentity.h"

namespace vx {

// Reading back what the host registered about a device revision. No member raises: a key that
// was never registered gives the empty result named at each member.
class IOrvexDeviceRevision : public virtual Object {
public:
    // Entries in the object's checksum list; 0 when none is registered.
    virtual std::int32_t CRCVarCount(std::int32_t lonmarkObjID) const = 0;
    // Entry `varIndex` (1-based) of the object's checksum list; nullptr when absent.
    virtual VariableIdentityPtr CRCVar(std::int32_t lonmarkObjID, std::int32_t varIndex) const = 0;
    // The registered array of variable names of that object and level; Empty when none.
    virtual Variant ConfigVarlist(std::int32_t lonmarkObjID, std::int32_t configlevel) const = 0;
    // The text registered under that scope and index; "" when absent.
    virtual std::string FileType2Config(std::int32_t configScope,
                                        std::int32_t configIndex) const = 0;
    // The object's advanced configuration list; nullptr when none.
    virtual AdvancedConfigPtr AdvConfig(std::int32_t lonmarkObjID) const = 0;
};

using DeviceRevisionPtr = std::shared_ptr<IOrvexDeviceRevision>;

}  // namespace vx
