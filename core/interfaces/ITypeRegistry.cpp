#include "interfaces/ITypeRegistry.h"

namespace vx {
namespace {

class EmptyTypeRegistry final : public ITypeRegistry {
public:
    TypedefPtr TypeByIndex(std::int32_t /*index*/) const override { return nullptr; }
    TypedefPtr TypeByName(std::string_view /*key*/) const override { return nullptr; }
};

TypeRegistryPtr& InstalledRegistry() {
    static TypeRegistryPtr registry = std::make_shared<EmptyTypeRegistry>();
    return registry;
}

}  // namespace

TypeRegistryPtr CurrentTypeRegistry() {
    return InstalledRegistry();
}

TypeRegistryPtr InstallTypeRegistry(TypeRegistryPtr registry) {
    auto previous = InstalledRegistry();
    InstalledRegistry() = registry ? std::move(registry) : std::make_shared<EmptyTypeRegistry>();
    return previous;
}

}  // namespace vx
