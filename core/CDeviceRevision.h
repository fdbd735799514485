#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "CAdvancedConfig.h"
#include "automation/Collection.h"
#include "interfaces/IOrvexDeviceRevision.h"
#include "interfaces/IOrvexDeviceRevisionIdentify.h"

namespace vx {

// The registry of what varies between device revisions, filled by the host: the variables of each
// configuration level of an object, each object's checksum list, the file-type-2 configuration
// texts and the advanced configuration lists. It holds no built-in knowledge.
class CDeviceRevision final : public IOrvexDeviceRevisionIdentify,
                              public IOrvexDeviceRevision,
                              public std::enable_shared_from_this<CDeviceRevision> {
public:
    // IOrvexDeviceRevisionIdentify
    DeviceRevisionPtr Info() override;
    void IdentifyOrvexCRCalculation(std::int32_t lonmarkObjID, const Variant& varInfoList) override;
    void IdentifyOrvexConfig(std::int32_t lonmarkObjID, std::int32_t configlevel,
                             const Variant& varnames) override;
    void IdentifyFileType2Config(std::int32_t configScope, const Variant& configInfoList) override;
    void IdentifyAdvConfig(std::int32_t lonmarkObjID, const Variant& configInfoList) override;

    // IOrvexDeviceRevision
    std::int32_t CRCVarCount(std::int32_t lonmarkObjID) const override;
    VariableIdentityPtr CRCVar(std::int32_t lonmarkObjID, std::int32_t varIndex) const override;
    Variant ConfigVarlist(std::int32_t lonmarkObjID, std::int32_t configlevel) const override;
    std::string FileType2Config(std::int32_t configScope, std::int32_t configIndex) const override;
    AdvancedConfigPtr AdvConfig(std::int32_t lonmarkObjID) const override;

private:
    Collection<StringArray> m_configLists;                      // "object.level"
    Collection<std::vector<VariableIdentityPtr>> m_crcLists;    // "object"
    Collection<Collection<std::string>> m_fileType2Texts;       // "scope", then "index"
    Collection<std::shared_ptr<CAdvancedConfig>> m_advConfigs;  // "object"
};

}  // namespace vx
