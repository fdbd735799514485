#pragma once

#include <cstdint>
#include <memory>

#include "automation/Variant.h"
#include "interfaces/IOrvexDeviceRevision.h"

namespace vx {

// Filling the revision registry. Each member replaces whatever was registered under the same key
// before; a malformed list raises invalid procedure call (5) after the old entry was removed.
class IOrvexDeviceRevisionIdentify : public virtual Object {
public:
    // The same registry seen through its reading interface.
    virtual DeviceRevisionPtr Info() = 0;
    // The object's checksum list: a flat array of pairs (variable name, insert-after position;
    // 0 appends).
    virtual void IdentifyOrvexCRCalculation(std::int32_t lonmarkObjID,
                                            const Variant& varInfoList) = 0;
    // The names of the variables of one configuration level of an object: an array of texts.
    virtual void IdentifyOrvexConfig(std::int32_t lonmarkObjID, std::int32_t configlevel,
                                     const Variant& varnames) = 0;
    // The file-type-2 configuration texts of one scope: a flat array of pairs (index, text).
    virtual void IdentifyFileType2Config(std::int32_t configScope,
                                         const Variant& configInfoList) = 0;
    // The object's advanced configuration: a flat array of pairs (variable name, index of the
    // LonMark object that holds the variable).
    virtual void IdentifyAdvConfig(std::int32_t lonmarkObjID, const Variant& configInfoList) = 0;
};

using DeviceRevisionIdentifyPtr = std::shared_ptr<IOrvexDeviceRevisionIdentify>;

}  // namespace vx
