// Feeds arbitrary bytes to the type file loader: a file either registers or raises the type file
// error (a ComError), never anything else, and a refused file leaves the registry as it was.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "TypeRegistry.h"
#include "automation/ComError.h"

namespace {

const std::shared_ptr<vx::TypeRegistry>& Template() {
    static const auto standard = vx::TypeRegistry::CreateStandard();
    return standard;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto registry = Template()->Clone();
    const auto before = registry->Count();
    try {
        registry->LoadJson(text, "fuzz.json");
    } catch (const vx::ComError& error) {
        if (error.Number() != vx::kTypeFileError) __builtin_trap();
        if (registry->Count() != before) __builtin_trap();
        return 0;
    }
    // Whatever registered is usable: every listed type answers its members.
    for (const auto& key : registry->Keys()) {
        const auto type = registry->TypeByName(key);
        if (!type) __builtin_trap();
        std::int32_t invalid = 0;
        (void)type->InvalidValue(invalid);
        const auto names = type->FieldNames();
        for (const auto& name : names.Values()) {
            if (!type->FieldByName(name)) __builtin_trap();
        }
        (void)type->EnumMemberName(type->MinValue());
    }
    return 0;
}
