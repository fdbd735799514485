#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "automation/Variant.h"

namespace vx {

// One configuration item of a configuration the host keeps outside the node (a saved file, a
// template). The comments give each member's interface place; places 2 and 3 are not used by the
// library.
class IHostConfigItem : public virtual Object {
public:
    // 0: the item's name.
    virtual std::string Name() = 0;
    // 1: a number the host keeps with the item.
    virtual std::int16_t Number() = 0;
    // 4: the raw value: an array of Byte (or of Variants holding Bytes).
    virtual Variant Value() = 0;
};

using HostConfigItemPtr = std::shared_ptr<IHostConfigItem>;

// The host's configuration source: items by key. Configuration items are keyed by their item name
// ("3-2"), configuration properties by name, "." and network-variable index ("nciSetpoint.12").
class IHostConfigItems : public virtual Object {
public:
    // 0: the item under `key`; nullptr when the source holds none.
    virtual HostConfigItemPtr Item(const std::string& key) = 0;
};

using HostConfigItemsPtr = std::shared_ptr<IHostConfigItems>;

}  // namespace vx
