#include "TypeRegistry.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <mutex>
#include <sstream>
#include <utility>

#include "StandardCatalogue.h"
#include "TypeFile.h"
#include "automation/Collection.h"
#include "automation/ComError.h"

namespace vx {

std::shared_ptr<TypeRegistry> TypeRegistry::Standard() {
    static const std::shared_ptr<TypeRegistry> standard = CreateStandard();
    return standard;
}

std::shared_ptr<TypeRegistry> TypeRegistry::CreateStandard() {
    auto registry = std::make_shared<TypeRegistry>();
    for (const auto& type : snvt::Catalogue().registered)
        registry->Register(type);
    registry->LoadJson(FamilyTypesJson(), "orvex_types.json");
    return registry;
}

TypedefPtr TypeRegistry::TypeByIndex(std::int32_t index) const {
    std::shared_lock lock(m_lock);
    const auto found = m_byIndex.find(index);
    return found == m_byIndex.end() ? nullptr : found->second;
}

TypedefPtr TypeRegistry::TypeByName(std::string_view key) const {
    const std::string folded = FoldKey(key);
    std::shared_lock lock(m_lock);
    const auto found = m_byName.find(folded);
    return found == m_byName.end() ? nullptr : found->second.type;
}

void TypeRegistry::Register(const TypedefPtr& type) {
    if (!type) return;
    const std::string name = type->TypeName();
    const std::int32_t index = type->TypeIndex();
    std::unique_lock lock(m_lock);
    if (!name.empty()) m_byName.insert_or_assign(FoldKey(name), Entry{name, type});
    if (index > 0) m_byIndex.insert_or_assign(index, type);
}

void TypeRegistry::Register(std::string_view key, const TypedefPtr& type) {
    if (!type || key.empty()) return;
    std::unique_lock lock(m_lock);
    m_byName.insert_or_assign(FoldKey(key), Entry{std::string(key), type});
}

bool TypeRegistry::Remove(std::string_view key) {
    const std::string folded = FoldKey(key);
    std::unique_lock lock(m_lock);
    return m_byName.erase(folded) > 0;
}

void TypeRegistry::LoadJson(std::string_view json, std::string_view sourceName) {
    // Everything is read and checked before the first entry changes, so a bad file changes
    // nothing.
    auto definitions = typefile::Parse(json, sourceName,
                                       [this](std::string_view name) { return TypeByName(name); });
    std::unique_lock lock(m_lock);
    for (const auto& type : definitions.types) {
        m_byName.insert_or_assign(FoldKey(type->TypeName()), Entry{type->TypeName(), type});
        if (type->TypeIndex() > 0) m_byIndex.insert_or_assign(type->TypeIndex(), type);
    }
    for (auto& [key, type] : definitions.aliases) {
        auto folded = FoldKey(key);
        m_byName.insert_or_assign(std::move(folded), Entry{std::move(key), std::move(type)});
    }
}

void TypeRegistry::LoadJsonFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    if (file) text << file.rdbuf();
    if (!file || file.bad()) {
        throw ComError(kTypeFileError, kTypeFileErrorSource,
                       path.string() + ": the file cannot be read");
    }
    LoadJson(text.str(), path.string());
}

std::int32_t TypeRegistry::Count() const {
    std::shared_lock lock(m_lock);
    return static_cast<std::int32_t>(m_byName.size());
}

std::vector<std::string> TypeRegistry::Keys() const {
    std::vector<std::pair<std::string, std::string>> keys;
    {
        std::shared_lock lock(m_lock);
        keys.reserve(m_byName.size());
        for (const auto& [folded, entry] : m_byName)
            keys.emplace_back(folded, entry.key);
    }
    std::sort(keys.begin(), keys.end());
    std::vector<std::string> result;
    result.reserve(keys.size());
    for (auto& key : keys)
        result.push_back(std::move(key.second));
    return result;
}

std::shared_ptr<TypeRegistry> TypeRegistry::Clone() const {
    auto copy = std::make_shared<TypeRegistry>();
    std::shared_lock lock(m_lock);
    copy->m_byName = m_byName;
    copy->m_byIndex = m_byIndex;
    return copy;
}

std::shared_ptr<TypeRegistry> UseStandardTypes() {
    auto standard = TypeRegistry::Standard();
    InstallTypeRegistry(standard);
    return standard;
}

}  // namespace vx
