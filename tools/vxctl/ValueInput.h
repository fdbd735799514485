#pragma once

// What a technician types for a value, checked against the type before anything is written:
// numbers with units, enumeration members, Booleans, texts, whole structures (positional or JSON)
// and raw bytes in hexadecimal. A value the element would clamp, cut or turn into the type's
// invalid code is refused (UsageError) with what the type takes; what the element will still do
// to an accepted value (rounding to its resolution, a unit conversion) is said in `notes`.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CDeviceVariable.h"
#include "interfaces/IOrvexDataElement.h"

namespace vx::vxctl {

// The values a number type takes, in its engineering units.
struct NumberRange {
    double low = 0;
    double high = 0;
    double step = 0;                // the resolution: one raw step; 0 for floating point
    std::optional<double> invalid;  // the engineering value of the invalid code, if any
    std::string units;
};

// For integer (not enumeration) and floating-point types; nothing for the others.
std::optional<NumberRange> RangeOf(const IOrvexTypedef& type);
// "-273.17 to 327.66 degrees Celsius (327.67 is the invalid code: write 'invalid')"
std::string RangeText(const NumberRange& range);

// A value for one element, ready for its Value (let).
struct CheckedValue {
    Variant value;
    std::vector<std::string> notes;
};

// Checks `text` (UTF-8, as typed) for an element of `type`; `shown` names it in messages
// ("nciSetpoints.occupied_cool"). Refusals raise UsageError.
CheckedValue CheckValue(const IOrvexTypedef& type, std::string_view text, const std::string& shown);

// One write a value stands for: an element (a whole field, or one entry of an array field), or
// the bytes of a character array.
struct ElementWrite {
    std::string shown;  // "nviFanSpeedCmd.state", "nvoAlarm.description"
    DataElementPtr element;
    std::int32_t entry = 0;
    CheckedValue value;
    std::optional<std::vector<std::uint8_t>> characters;  // a character array's bytes instead
};

// The writes that give `element` (a structure, an array, a character array or a single value)
// the value `text`: values for its fields in layout order separated by blanks ("100 1"), or a
// JSON object of field names (a subset changes only those), or a single value. Every part is
// checked before any is returned; a refusal raises UsageError.
std::vector<ElementWrite> PlanWrites(const DataElementPtr& element, std::string_view text,
                                     const std::string& shown);

// Stores the planned writes into the value buffer the elements share.
void ApplyWrites(const std::vector<ElementWrite>& writes);

// Bytes for a value without a known type: "0x0102" or "01 02"; exactly `length` of them.
std::vector<std::uint8_t> RawBytesInput(std::string_view text, std::size_t length,
                                        const std::string& shown);

}  // namespace vx::vxctl
