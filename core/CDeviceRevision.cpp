#include "CDeviceRevision.h"

#include <optional>
#include <utility>

#include "CDeviceVariableIdentity.h"
#include "automation/Conversions.h"

namespace vx {
namespace {

std::string Key(std::int32_t number) {
    return std::to_string(number);
}

// The elements of a list the host passed, with the list's lower bound; nothing when the Variant
// holds no allocated array.
struct ListElements {
    std::int32_t lower = 0;
    std::vector<Variant> values;
};

std::optional<ListElements> ElementsOf(const Variant& list) {
    if (const auto* variants = list.Get<VariantArray>(); variants && variants->IsAllocated()) {
        return ListElements{variants->LBound(), variants->Values()};
    }
    if (const auto* texts = list.Get<StringArray>(); texts && texts->IsAllocated()) {
        return ListElements{texts->LBound(), {texts->Values().begin(), texts->Values().end()}};
    }
    if (const auto* bytes = list.Get<ByteArray>(); bytes && bytes->IsAllocated()) {
        return ListElements{bytes->LBound(), {bytes->Values().begin(), bytes->Values().end()}};
    }
    return std::nullopt;
}

// A flat list of pairs: at least one pair and no odd element out, else invalid procedure call.
std::vector<Variant> PairsOf(const Variant& list) {
    auto elements = ElementsOf(list);
    if (!elements || elements->values.size() < 2 || elements->values.size() % 2 != 0) {
        RaiseRuntimeError(kErrInvalidProcedureCall);
    }
    return std::move(elements->values);
}

// A pair is refused only when both halves have the wrong type at once; a pair with one half of
// the wrong type passes and is converted as it stands.
void CheckPair(const Variant& first, std::int32_t firstType, const Variant& second,
               std::int32_t secondType) {
    if (first.Type() != firstType && second.Type() != secondType) {
        RaiseRuntimeError(kErrInvalidProcedureCall);
    }
}

VariableIdentityPtr NewIdentity(const Variant& name, std::int32_t lonObject) {
    auto identity = std::make_shared<CDeviceVariableIdentity>();
    identity->Init(CStr(name), lonObject);
    return identity;
}

template <typename T>
void RemoveIfPresent(Collection<T>& collection, const std::string& key) {
    if (collection.Contains(key)) collection.Remove(std::string_view(key));
}

}  // namespace

DeviceRevisionPtr CDeviceRevision::Info() {
    return shared_from_this();
}

void CDeviceRevision::IdentifyOrvexCRCalculation(std::int32_t lonmarkObjID,
                                                 const Variant& varInfoList) {
    const std::string key = Key(lonmarkObjID);
    RemoveIfPresent(m_crcLists, key);
    const auto pairs = PairsOf(varInfoList);
    std::vector<VariableIdentityPtr> list;
    for (std::size_t i = 0; i < pairs.size(); i += 2) {
        const Variant& name = pairs[i];
        const Variant& index = pairs[i + 1];
        CheckPair(name, vbString, index, vbLong);
        auto identity = NewIdentity(name, lonmarkObjID);
        const std::int32_t after = CLng(index);
        if (after == 0) {
            list.push_back(std::move(identity));
        } else {
            // Directly after the entry at that 1-based position of the entries added so far.
            if (after < 0 || static_cast<std::size_t>(after) > list.size()) {
                RaiseRuntimeError(kErrInvalidProcedureCall);
            }
            list.insert(list.begin() + after, std::move(identity));
        }
    }
    m_crcLists.Add(std::move(list), key);
}

void CDeviceRevision::IdentifyOrvexConfig(std::int32_t lonmarkObjID, std::int32_t configlevel,
                                          const Variant& varnames) {
    const std::string key = Key(lonmarkObjID) + "." + Key(configlevel);
    RemoveIfPresent(m_configLists, key);
    const auto elements = ElementsOf(varnames);
    if (!elements) RaiseRuntimeError(kErrInvalidProcedureCall);
    std::vector<std::string> names;
    names.reserve(elements->values.size());
    for (const Variant& name : elements->values) {
        const auto* text = name.Get<std::string>();
        if (!text) RaiseRuntimeError(kErrInvalidProcedureCall);
        names.push_back(*text);
    }
    m_configLists.Add(StringArray(elements->lower, std::move(names)), key);
}

void CDeviceRevision::IdentifyFileType2Config(std::int32_t configScope,
                                              const Variant& configInfoList) {
    const std::string key = Key(configScope);
    RemoveIfPresent(m_fileType2Texts, key);
    const auto pairs = PairsOf(configInfoList);
    Collection<std::string> texts;
    for (std::size_t i = 0; i < pairs.size(); i += 2) {
        const Variant& index = pairs[i];
        const Variant& text = pairs[i + 1];
        CheckPair(index, vbLong, text, vbString);
        texts.Add(CStr(text), Key(CLng(index)));
    }
    m_fileType2Texts.Add(std::move(texts), key);
}

void CDeviceRevision::IdentifyAdvConfig(std::int32_t lonmarkObjID, const Variant& configInfoList) {
    const std::string key = Key(lonmarkObjID);
    RemoveIfPresent(m_advConfigs, key);
    const auto pairs = PairsOf(configInfoList);
    auto config = std::make_shared<CAdvancedConfig>();
    for (std::size_t i = 0; i < pairs.size(); i += 2) {
        const Variant& name = pairs[i];
        const Variant& objectIndex = pairs[i + 1];
        CheckPair(name, vbString, objectIndex, vbLong);
        config->AddIdentity(NewIdentity(name, CLng(objectIndex)));
    }
    m_advConfigs.Add(std::move(config), key);
}

std::int32_t CDeviceRevision::CRCVarCount(std::int32_t lonmarkObjID) const {
    const auto* list = m_crcLists.Find(Key(lonmarkObjID));
    return list ? static_cast<std::int32_t>(list->size()) : 0;
}

VariableIdentityPtr CDeviceRevision::CRCVar(std::int32_t lonmarkObjID,
                                            std::int32_t varIndex) const {
    const auto* list = m_crcLists.Find(Key(lonmarkObjID));
    if (!list || varIndex < 1 || static_cast<std::size_t>(varIndex) > list->size()) return nullptr;
    return (*list)[static_cast<std::size_t>(varIndex) - 1];
}

Variant CDeviceRevision::ConfigVarlist(std::int32_t lonmarkObjID, std::int32_t configlevel) const {
    const auto* names = m_configLists.Find(Key(lonmarkObjID) + "." + Key(configlevel));
    return names ? Variant(*names) : Variant();
}

std::string CDeviceRevision::FileType2Config(std::int32_t configScope,
                                             std::int32_t configIndex) const {
    const auto* texts = m_fileType2Texts.Find(Key(configScope));
    if (!texts) return {};
    const auto* text = texts->Find(Key(configIndex));
    return text ? *text : std::string();
}

AdvancedConfigPtr CDeviceRevision::AdvConfig(std::int32_t lonmarkObjID) const {
    const auto* config = m_advConfigs.Find(Key(lonmarkObjID));
    return config ? *config : nullptr;
}

}  // namespace vx
