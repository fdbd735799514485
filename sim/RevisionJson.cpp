#include "RevisionJson.h"

#include <algorithm>
#include <set>
#include <utility>

#include "JsonSupport.h"
#include "automation/ComError.h"

namespace vx::sim {
namespace {

using json::Json;
using json::Problem;

constexpr const char* kSource = "Vx.Sim.ReadRevisionJson";
constexpr std::int64_t kMaxObject = 32767;
constexpr std::int64_t kMaxNumber = 65535;

std::string At(const char* list, std::size_t i) {
    return std::string(list) + "[" + std::to_string(i) + "]";
}

const Json& Array(const Json& value, const char* key) {
    if (!value.is_array()) json::Fail(json::Quoted(key) + " must be an array");
    return value;
}

std::vector<std::string> Names(const Json& list, const std::string& what) {
    if (!list.is_array()) json::Fail(what + " must be an array of names");
    std::vector<std::string> names;
    for (std::size_t i = 0; i < list.size(); ++i) {
        try {
            names.push_back(json::Name(list[i], "a name"));
        } catch (const Problem& problem) {
            json::Fail(what + "[" + std::to_string(i) + "]: " + problem.text);
        }
    }
    return names;
}

class Reader {
public:
    explicit Reader(std::string fileName) : m_fileName(std::move(fileName)) {}

    RevisionDescription Read(std::string_view text) {
        const Json document = json::Parse(text, m_fileName, kSource);
        Entry([&] {
            if (!document.is_object()) json::Fail("the file must hold one object");
            json::CheckKeys(document, {"version", "configItemNames", "objects"});
            if (const auto* version = json::Member(document, "version")) {
                json::Integer(*version, "version", 1, 1);
            }
            if (const auto* names = json::Member(document, "configItemNames")) {
                Array(*names, "configItemNames");
            }
            if (const auto* objects = json::Member(document, "objects")) Array(*objects, "objects");
        });

        RevisionDescription revision;
        if (const auto* names = json::Member(document, "configItemNames")) {
            for (std::size_t i = 0; i < names->size(); ++i) {
                m_path = At("configItemNames", i);
                Entry([&] { revision.itemNames.push_back(ReadItemName((*names)[i])); });
            }
        }
        if (const auto* objects = json::Member(document, "objects")) {
            for (std::size_t i = 0; i < objects->size(); ++i) {
                m_path = At("objects", i);
                Entry([&] { revision.objects.push_back(ReadObject((*objects)[i])); });
            }
        }
        return revision;
    }

private:
    template <typename Action>
    void Entry(Action action) {
        json::ReadEntry(kSource, m_fileName, m_path, action);
    }

    RevisionDescription::ItemName ReadItemName(const Json& entry) {
        if (!entry.is_object()) json::Fail("an item name must be an object");
        json::CheckKeys(entry, {"scope", "index", "name"});
        RevisionDescription::ItemName item;
        item.scope = static_cast<std::int32_t>(
            json::Integer(json::Required(entry, "scope"), "scope", 0, kMaxNumber));
        item.index = static_cast<std::int32_t>(
            json::Integer(json::Required(entry, "index"), "index", 0, kMaxNumber));
        item.name = json::Name(json::Required(entry, "name"), "name");
        const std::string key = std::to_string(item.scope) + "-" + std::to_string(item.index);
        m_path += " (" + key + ")";
        if (!m_itemKeys.insert(key).second) json::Fail("the item is named twice");
        return item;
    }

    RevisionDescription::Object ReadObject(const Json& entry) {
        if (!entry.is_object()) json::Fail("an object entry must be an object");
        RevisionDescription::Object object;
        object.object = static_cast<std::int32_t>(
            json::Integer(json::Required(entry, "object"), "object", -1, kMaxObject));
        m_path += " (object " + std::to_string(object.object) + ")";
        json::CheckKeys(entry, {"object", "levels", "crc", "advanced"});
        if (!m_objects.insert(object.object).second) json::Fail("the object is listed twice");

        if (const auto* levels = json::Member(entry, "levels")) {
            if (!levels->is_object()) json::Fail("\"levels\" must be an object");
            for (const auto& [key, names] : levels->items()) {
                // The library asks for these two levels only.
                if (key != "2" && key != "3") {
                    json::Fail("levels: " + json::Quoted(key) +
                               " is no configuration level (2, 3)");
                }
                object.levels[key == "2" ? 2 : 3] = Names(names, "levels." + key);
            }
        }
        if (const auto* crc = json::Member(entry, "crc")) ReadCrc(*crc, object.crc);
        if (const auto* advanced = json::Member(entry, "advanced")) {
            ReadAdvanced(*advanced, object.advanced);
        }
        return object;
    }

    static void ReadCrc(const Json& list, std::vector<RevisionDescription::CrcEntry>& crc) {
        if (!list.is_array() || list.empty()) json::Fail("\"crc\" must be a non-empty array");
        for (std::size_t i = 0; i < list.size(); ++i) {
            const Json& item = list[i];
            RevisionDescription::CrcEntry entry;
            try {
                if (item.is_object()) {
                    json::CheckKeys(item, {"name", "after"});
                    entry.name = json::Name(json::Required(item, "name"), "name");
                    if (const auto* after = json::Member(item, "after")) {
                        entry.after = static_cast<std::int32_t>(json::Integer(
                            *after, "after", 0, static_cast<std::int64_t>(crc.size())));
                    }
                } else {
                    entry.name = json::Name(item, "an entry (a name or {\"name\", \"after\"})");
                }
            } catch (const Problem& problem) {
                json::Fail(At("crc", i) + ": " + problem.text);
            }
            crc.push_back(std::move(entry));
        }
    }

    static void ReadAdvanced(const Json& list,
                             std::vector<RevisionDescription::AdvancedEntry>& advanced) {
        if (!list.is_array() || list.empty()) json::Fail("\"advanced\" must be a non-empty array");
        for (std::size_t i = 0; i < list.size(); ++i) {
            const Json& item = list[i];
            try {
                if (!item.is_object())
                    json::Fail("an entry must be an object {\"name\", \"object\"}");
                json::CheckKeys(item, {"name", "object"});
                RevisionDescription::AdvancedEntry entry;
                entry.name = json::Name(json::Required(item, "name"), "name");
                entry.object = static_cast<std::int32_t>(
                    json::Integer(json::Required(item, "object"), "object", -1, kMaxObject));
                advanced.push_back(std::move(entry));
            } catch (const Problem& problem) {
                json::Fail(At("advanced", i) + ": " + problem.text);
            }
        }
    }

    std::string m_fileName;
    std::string m_path;
    std::set<std::string> m_itemKeys;
    std::set<std::int32_t> m_objects;
};

}  // namespace

RevisionDescription ReadRevisionJson(std::string_view text, const std::string& fileName) {
    return Reader(fileName).Read(text);
}

void RegisterRevision(const RevisionDescription& revision, IOrvexDeviceRevisionIdentify& registry) {
    // A scope's names go in one list: each registration replaces the scope's earlier one.
    std::map<std::int32_t, std::vector<Variant>> scopes;
    for (const auto& item : revision.itemNames) {
        auto& pairs = scopes[item.scope];
        pairs.emplace_back(item.index);
        pairs.emplace_back(item.name);
    }
    for (auto& [scope, pairs] : scopes) {
        registry.IdentifyFileType2Config(scope, Variant(VariantArray(0, std::move(pairs))));
    }

    for (const auto& object : revision.objects) {
        for (const auto& [level, names] : object.levels) {
            registry.IdentifyOrvexConfig(object.object, level, Variant(StringArray(0, names)));
        }
        if (!object.crc.empty()) {
            std::vector<Variant> pairs;
            for (const auto& entry : object.crc) {
                pairs.emplace_back(entry.name);
                pairs.emplace_back(entry.after);
            }
            registry.IdentifyOrvexCRCalculation(object.object,
                                                Variant(VariantArray(0, std::move(pairs))));
        }
        if (!object.advanced.empty()) {
            std::vector<Variant> pairs;
            for (const auto& entry : object.advanced) {
                pairs.emplace_back(entry.name);
                pairs.emplace_back(entry.object);
            }
            registry.IdentifyAdvConfig(object.object, Variant(VariantArray(0, std::move(pairs))));
        }
    }
}

void LoadRevisionJson(const std::filesystem::path& path, IOrvexDeviceRevisionIdentify& registry) {
    RegisterRevision(ReadRevisionJson(json::ReadFile(path, kSource), path.filename().string()),
                     registry);
}

}  // namespace vx::sim
