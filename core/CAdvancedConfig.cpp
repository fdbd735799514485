#include "CAdvancedConfig.h"

#include <utility>

namespace vx {

std::vector<VariableIdentityPtr> CAdvancedConfig::NewEnum() const {
    return {m_identities.begin(), m_identities.end()};
}

void CAdvancedConfig::AddIdentity(VariableIdentityPtr identity) {
    m_identities.Add(std::move(identity));
}

}  // namespace vx
