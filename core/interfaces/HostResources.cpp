#include "interfaces/HostResources.h"

#include "interfaces/InstallPoint.h"

namespace vx {
namespace {

class FamilyTexts final : public HostResources {
public:
    std::string Text(std::int32_t id) override {
        return id == kTextFamilyManufacturer ? "Orvex" : "";
    }
    std::string RevisionText(std::int32_t id) override {
        // Exactly kRevisionMarkerLength characters, the trailing blank included.
        return id == kTextRevisionMarker ? "Orvex firmware version " : "";
    }
};

using TextsSlot = detail::InstallPoint<HostResources, FamilyTexts>;

}  // namespace

HostResourcesPtr CurrentHostResources() {
    return TextsSlot::Current();
}

HostResourcesPtr InstallHostResources(HostResourcesPtr resources) {
    return TextsSlot::Install(std::move(resources));
}

}  // namespace vx
