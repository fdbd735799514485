#pragma once

#include <vector>

#include "automation/Collection.h"
#include "interfaces/IOrvexAdvancedConfig.h"

namespace vx {

// One LonMark object's advanced configuration: the identities of its variables in order.
class CAdvancedConfig final : public IOrvexAdvancedConfig {
public:
    std::vector<VariableIdentityPtr> NewEnum() const override;

    // Library-internal: appends an identity (no key).
    void AddIdentity(VariableIdentityPtr identity);

private:
    Collection<VariableIdentityPtr> m_identities;
};

}  // namespace vx
