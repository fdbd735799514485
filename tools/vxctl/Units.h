#pragma once

// Units a technician types after a number ("72 F", "1.2 kPa", "300 cfm") and the conversion into
// the units a type's values are in.

#include <optional>
#include <string>
#include <string_view>

namespace vx::vxctl {

// A number as typed, with the unit text after it ("" for none).
struct NumberWithUnit {
    double number = 0;
    std::string unit;
};

// Splits "72 F", "72F", "-5.5 degC" or "42"; nothing when the text does not start with a number.
std::optional<NumberWithUnit> SplitNumberAndUnit(std::string_view text);

// The value in `toUnits` (a type's units text, "degrees Celsius") of `value` given in `fromUnit`.
// `difference` converts a temperature difference (no offset between the scales). Nothing when
// vxctl knows no conversion between the two.
std::optional<double> ConvertUnits(double value, std::string_view fromUnit,
                                   std::string_view toUnits, bool difference = false);

// The units vxctl converts into `toUnits`, for messages ("F, K"); "" when it knows none.
std::string ConvertibleUnits(std::string_view toUnits);

}  // namespace vx::vxctl
