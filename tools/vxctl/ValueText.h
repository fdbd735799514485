#pragma once

// Values as vxctl shows them and takes them: decoded through the type catalogue for scripts (JSON)
// and for people (units, enumeration member names, the invalid code), and command-line texts
// turned into what the library's elements accept.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "CDeviceVariable.h"
#include "automation/ComError.h"
#include "interfaces/IOrvexDataElement.h"

namespace vx::vxctl {

// Keys keep the order they were added in: fields in layout order, objects in node order.
using Json = nlohmann::ordered_json;

// The node's texts hold one byte per character (Latin-1); JSON and terminals take UTF-8.
std::string Utf8FromLatin1(std::string_view text);
// Characters beyond Latin-1 become '?'.
std::string Latin1FromUtf8(std::string_view text);

// One value decoded: what scripts get and what people read. A structure has no text of its own;
// its fields follow in layout order.
struct DecodedValue {
    std::string field;  // the field's name; "" for a whole value
    Json json;          // number, Boolean, text, array; object for a structure; null if unknown
    std::string text;   // "21.35 degrees Celsius", "HVT_VAV", "\"0 Normal\""
    std::vector<DecodedValue> fields;
};

// The printable characters a character array holds.
inline constexpr std::int32_t kFirstPrintable = 32;
inline constexpr std::int32_t kLastPrintable = 126;

// Whether an element is an array of printable characters (an alarm's description), shown and
// taken as a text.
bool IsCharacterArray(IOrvexDataElement& element);

// Decodes an element of a loaded value. Errors of the element pass.
DecodedValue DecodeElement(const DataElementPtr& element);
// One entry of an array field.
DecodedValue DecodeEntry(const DataElementPtr& element, std::int32_t entry);

// A value that could not be decoded: null for scripts, `text` for people.
DecodedValue Undecoded(std::string text);

// Decodes a whole variable. A variable of no known type gives null and its bytes in hexadecimal;
// a value the node does not give shows the library's error instead of failing.
DecodedValue DecodeVariable(CDeviceVariable& variable);

// The value held by the variable's value buffer, two hexadecimal digits a byte.
std::string RawHex(CDeviceVariable& variable);
// What a field or array entry holds: its bytes when it takes whole bytes, else its raw number,
// in hexadecimal. The whole value's bytes for the variable's own element.
std::string RawHex(CDeviceVariable& variable, const DataElementPtr& element,
                   std::optional<std::int32_t> entry);

// A value as people read it, with its units: "21.35 degrees Celsius", "HVAC_COOL", "\"Hello\"";
// a structure's fields as "name value" pairs joined by "; ".
std::string ValueWithUnits(const DecodedValue& decoded);
// The same for an element of a loaded value (a whole value or a field). Errors of the element pass.
std::string ValueWithUnits(const DataElementPtr& element);

// "error 0x80040201 (source): description"; run-time errors also give their decimal number.
std::string ErrorText(const ComError& error);
Json ErrorJson(const ComError& error);

// The value to give an element for a command-line text: an enumeration member's name (with or
// without its prefix, any case) becomes its number, "true"/"false" a Boolean, a text for a text
// field is converted to Latin-1; anything else stays text and the element converts it by the
// platform's rules (a text that is no number is a type mismatch).
Variant InputValue(const IOrvexTypedef& type, std::string_view text);

// The members of an enumeration type by number, invalid member first; empty for other types.
std::vector<std::pair<std::int32_t, std::string>> EnumMembers(const IOrvexTypedef& type);

// The enumeration member of that name (any case, with or without the part before the first '_');
// nothing when there is none.
std::optional<std::int32_t> EnumMemberNumber(const IOrvexTypedef& type, std::string_view text);

}  // namespace vx::vxctl
