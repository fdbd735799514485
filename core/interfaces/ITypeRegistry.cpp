#include "interfaces/ITypeRegistry.h"

#include "interfaces/InstallPoint.h"

namespace vx {
namespace {

class EmptyTypeRegistry final : public ITypeRegistry {
public:
    TypedefPtr TypeByIndex(std::int32_t /*index*/) const override { return nullptr; }
    TypedefPtr TypeByName(std::string_view /*key*/) const override { return nullptr; }
};

using RegistrySlot = detail::InstallPoint<ITypeRegistry, EmptyTypeRegistry>;

}  // namespace

TypeRegistryPtr CurrentTypeRegistry() {
    return RegistrySlot::Current();
}

TypeRegistryPtr InstallTypeRegistry(TypeRegistryPtr registry) {
    return RegistrySlot::Install(std::move(registry));
}

}  // namespace vx
