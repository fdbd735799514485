#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "automation/Variant.h"

namespace vx {

// The host's process-wide text tables. The library asks for two texts: the display name of the
// family's own manufacturer number, and the label that precedes the firmware revision in a
// node's self-documentation.
class HostResources : public virtual Object {
public:
    // The display texts; "" for an id the host does not know.
    virtual std::string Text(std::int32_t id) = 0;
    // The texts that identify firmware revisions; "" for an id the host does not know.
    virtual std::string RevisionText(std::int32_t id) = 0;
};

using HostResourcesPtr = std::shared_ptr<HostResources>;

// Text ids the library asks for.
inline constexpr std::int32_t kTextFamilyManufacturer = 8500;
inline constexpr std::int32_t kTextRevisionMarker = 10511;
// The revision marker is a fixed-width label; the revision text follows right after it.
inline constexpr std::size_t kRevisionMarkerLength = 23;

// The process-wide texts. Until some are installed they are the default: the family's name for
// its manufacturer number and a 23-character revision marker.
HostResourcesPtr CurrentHostResources();
// Installs `resources` (nullptr restores the default); returns the ones installed before.
HostResourcesPtr InstallHostResources(HostResourcesPtr resources);

}  // namespace vx
