#include "SavedConfiguration.h"

#include "SimulatedNode.h"

namespace vx::sim {
namespace {

class SavedItem final : public IHostConfigItem {
public:
    SavedItem(std::string key, std::vector<std::uint8_t> value)
        : m_key(std::move(key)), m_value(std::move(value)) {}

    std::string Name() override { return m_key; }
    std::int16_t Number() override { return 0; }
    Variant Value() override { return Variant(ByteArray(0, m_value)); }

private:
    std::string m_key;
    std::vector<std::uint8_t> m_value;
};

bool IsConfigurationProperty(const VariableRecord& variable) {
    return variable.selfDoc.starts_with('&') || variable.selfDoc.starts_with('~') ||
           variable.name.starts_with("nci");
}

}  // namespace

std::shared_ptr<SavedConfiguration> SavedConfiguration::Save(const SimulatedNode& node) {
    auto saved = std::make_shared<SavedConfiguration>();
    const auto& description = node.Description();
    for (const auto& variable : description.variables) {
        if (IsConfigurationProperty(variable)) {
            saved->Set(variable.name + "." + std::to_string(variable.index), variable.value);
        }
    }
    for (const auto& item : description.configItems) {
        saved->Set(item.name, item.value);
    }
    return saved;
}

void SavedConfiguration::Set(const std::string& key, std::vector<std::uint8_t> value) {
    m_values[key] = std::move(value);
}

HostConfigItemPtr SavedConfiguration::Item(const std::string& key) {
    ++m_lookups;
    const auto found = m_values.find(key);
    if (found == m_values.end()) return nullptr;
    return std::make_shared<SavedItem>(found->first, found->second);
}

}  // namespace vx::sim
