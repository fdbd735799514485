#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "interfaces/IHostConfigItems.h"

namespace vx::sim {

class SimulatedNode;

// A configuration kept outside the node, as a host saves it: raw values by key (a configuration
// item by its name, "3-2"; a configuration property by name, "." and network-variable index,
// "nciSetpoints.20").
class SavedConfiguration final : public IHostConfigItems {
public:
    // The configuration items and configuration-property network variables (self-documentation
    // "&..." or a name starting "nci") the node holds now.
    static std::shared_ptr<SavedConfiguration> Save(const SimulatedNode& node);

    void Set(const std::string& key, std::vector<std::uint8_t> value);
    const std::map<std::string, std::vector<std::uint8_t>>& Values() const noexcept {
        return m_values;
    }
    // How often the library asked for an item (reads of the source).
    std::int32_t Lookups() const noexcept { return m_lookups; }

    HostConfigItemPtr Item(const std::string& key) override;

private:
    std::map<std::string, std::vector<std::uint8_t>> m_values;
    std::int32_t m_lookups = 0;
};

}  // namespace vx::sim
