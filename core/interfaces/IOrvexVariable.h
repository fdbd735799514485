#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "automation/Variant.h"
#include "interfaces/IOrvexDataElement.h"
#include "interfaces/IOrvexTypedef.h"

namespace vx {

class IOrvexLonObject;

// Category codes of a variable (bit flags).
enum VariableCategory : std::int32_t {
    kCategoryConfigItem = 1,      // a node configuration item beside the network variables
    kCategoryConfigProperty = 2,  // a configuration property
    kCategoryInputNv = 256,       // an input network variable
    kCategoryOutputNv = 512,      // an output network variable
};

// One value-carrying item of a node: a network variable, a configuration property or another
// configuration item. Members in interface order.
class IOrvexVariable : public virtual Object {
public:
    virtual std::string Name() const = 0;
    // The LonMark object that holds the variable; nullptr when unbound.
    virtual std::shared_ptr<IOrvexLonObject> Object() const = 0;
    // Writes the value to the node when it was modified or `force` is set (network variables
    // only). `level` is accepted and not used.
    virtual void Download(std::int32_t level, bool force) = 0;
    // Reads the value from the node; any failure raises the load error (769).
    virtual void Upload() = 0;
    // The root element over the whole value.
    virtual DataElementPtr Element() const = 0;
    virtual std::int32_t Category() const = 0;
    virtual std::int32_t ConfigLevel() const = 0;
    virtual TypedefPtr Typedef() const = 0;
    // The root element's value; Empty without a root element.
    virtual Variant Value() = 0;
    virtual void SetValue(const Variant& value) = 0;
    // The root element's undefined test; False without a root element.
    virtual bool Undefined() = 0;
    // The host's index of the network variable.
    virtual std::int16_t NvIndex() const = 0;
};

using VariablePtr = std::shared_ptr<IOrvexVariable>;

}  // namespace vx
