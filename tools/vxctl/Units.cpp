#include "Units.h"

#include <array>
#include <charconv>
#include <cmath>
#include <vector>

#include "automation/Collection.h"

namespace vx::vxctl {
namespace {

enum class Dimension {
    kTemperature,
    kPercent,
    kPressure,
    kFlow,
    kTime,
    kPower,
    kLength,
    kSpeed,
    kVolume,
    kCurrent,
    kVoltage,
    kFrequency
};

// value in the dimension's base unit = (value + offset) * factor; the first alias is the one
// messages show.
struct Unit {
    Dimension dimension;
    double factor;
    double offset;
    std::vector<std::string_view> aliases;
};

const std::vector<Unit>& UnitTable() {
    static const std::vector<Unit> table = {
        {Dimension::kTemperature, 1, 0, {"C", "°C", "degC", "celsius", "degrees Celsius"}},
        {Dimension::kTemperature,
         5.0 / 9.0,
         -32,
         {"F", "°F", "degF", "fahrenheit", "degrees Fahrenheit"}},
        {Dimension::kTemperature, 1, -273.15, {"K", "kelvin"}},
        {Dimension::kPercent, 1, 0, {"%", "percent", "% of full level", "% of full scale"}},
        {Dimension::kPressure, 1, 0, {"Pa", "Pascals"}},
        {Dimension::kPressure, 1000, 0, {"kPa", "kiloPascals"}},
        {Dimension::kPressure, 100, 0, {"hPa", "mbar"}},
        {Dimension::kPressure, 100000, 0, {"bar"}},
        {Dimension::kPressure, 6894.757293168, 0, {"psi"}},
        {Dimension::kPressure, 249.08891, 0, {"inH2O", "inWC"}},
        {Dimension::kFlow, 1, 0, {"l/s", "liters/second"}},
        {Dimension::kFlow, 1.0 / 3.6, 0, {"m3/h", "m³/h", "cubic meters/hour"}},
        {Dimension::kFlow, 0.001, 0, {"ml/s", "milliliters/second"}},
        {Dimension::kFlow, 1.0 / 60.0, 0, {"l/min"}},
        {Dimension::kFlow, 0.471947443, 0, {"cfm"}},
        {Dimension::kTime, 1, 0, {"s", "sec", "seconds"}},
        {Dimension::kTime, 0.001, 0, {"ms"}},
        {Dimension::kTime, 60, 0, {"min", "minutes"}},
        {Dimension::kTime, 3600, 0, {"h", "hours"}},
        {Dimension::kPower, 1, 0, {"W", "Watts"}},
        {Dimension::kPower, 1000, 0, {"kW", "kiloWatts"}},
        {Dimension::kLength, 1, 0, {"m", "meters"}},
        {Dimension::kLength, 0.001, 0, {"mm", "millimeters"}},
        {Dimension::kLength, 0.01, 0, {"cm"}},
        {Dimension::kLength, 1000, 0, {"km", "kilometers"}},
        {Dimension::kLength, 0.3048, 0, {"ft"}},
        {Dimension::kLength, 0.0254, 0, {"in"}},
        {Dimension::kSpeed, 1, 0, {"m/s", "meters/second"}},
        {Dimension::kSpeed, 1.0 / 3.6, 0, {"km/h"}},
        {Dimension::kSpeed, 0.00508, 0, {"ft/min", "fpm"}},
        {Dimension::kVolume, 1, 0, {"l", "liters"}},
        {Dimension::kVolume, 0.001, 0, {"ml", "milliliters"}},
        {Dimension::kVolume, 1000, 0, {"m3", "m³", "kiloliters"}},
        {Dimension::kVolume, 3.785411784, 0, {"gal"}},
        {Dimension::kCurrent, 1, 0, {"A", "Amperes"}},
        {Dimension::kCurrent, 0.001, 0, {"mA", "milliAmperes"}},
        {Dimension::kVoltage, 1, 0, {"V", "Volts"}},
        {Dimension::kVoltage, 0.001, 0, {"mV", "milliVolts"}},
        {Dimension::kVoltage, 1000, 0, {"kV", "kiloVolts"}},
        {Dimension::kFrequency, 1, 0, {"Hz", "Hertz"}},
        {Dimension::kFrequency, 1000, 0, {"kHz", "kiloHertz"}},
    };
    return table;
}

// Unit symbols are case-sensitive where case tells them apart (mA, MA); words are not.
const Unit* FindUnit(std::string_view text) {
    for (const auto& unit : UnitTable()) {
        for (const auto alias : unit.aliases) {
            if (alias == text) return &unit;
        }
    }
    for (const auto& unit : UnitTable()) {
        for (const auto alias : unit.aliases) {
            if (alias.size() > 2 && FoldKey(alias) == FoldKey(text)) return &unit;
        }
    }
    return nullptr;
}

std::string_view Trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t'))
        text.remove_suffix(1);
    return text;
}

}  // namespace

std::optional<NumberWithUnit> SplitNumberAndUnit(std::string_view text) {
    text = Trimmed(text);
    std::string_view digits = text;
    if (!digits.empty() && digits.front() == '+') digits.remove_prefix(1);
    double number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (error != std::errc() || !std::isfinite(number)) return std::nullopt;
    const std::string_view rest = Trimmed({end, static_cast<std::size_t>(text.end() - end)});
    // "0x10" is a hexadecimal number, not 0 in a unit "x10".
    if (end == digits.data() + 1 && digits.front() == '0' && !rest.empty() &&
        (rest.front() == 'x' || rest.front() == 'X')) {
        return std::nullopt;
    }
    return NumberWithUnit{number, std::string(rest)};
}

std::optional<double> ConvertUnits(double value, std::string_view fromUnit,
                                   std::string_view toUnits, bool difference) {
    const Unit* from = FindUnit(Trimmed(fromUnit));
    const Unit* to = FindUnit(Trimmed(toUnits));
    if (from == nullptr || to == nullptr || from->dimension != to->dimension) return std::nullopt;
    // Values kept in kelvins are mostly differences (a setpoint adjustment): whether a value in
    // degrees is one cannot be told, so only kelvins go into kelvins.
    if (to->aliases.front() == "K" && from != to) return std::nullopt;
    const double fromOffset = difference ? 0 : from->offset;
    const double toOffset = difference ? 0 : to->offset;
    return (value + fromOffset) * from->factor / to->factor - toOffset;
}

std::string ConvertibleUnits(std::string_view toUnits) {
    const Unit* to = FindUnit(Trimmed(toUnits));
    if (to == nullptr) return {};
    if (to->aliases.front() == "K") return "K";  // as ConvertUnits: kelvins only into kelvins
    std::string list;
    for (const auto& unit : UnitTable()) {
        if (unit.dimension != to->dimension) continue;
        if (!list.empty()) list += ", ";
        list += unit.aliases.front();
    }
    return list;
}

}  // namespace vx::vxctl
