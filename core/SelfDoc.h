#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vx {

// What one item's self-documentation string says about the variable made from it.
struct VariableSelfDoc {
    std::string name;               // the variable's name
    std::int32_t objectIndex = -1;  // LonMark object, -1 node-wide; for a property of a network
                                    // variable, that variable's index
    bool bound = false;             // whether objectIndex names the object that holds it
    bool isProperty = false;        // a configuration property ("&"/"~" form, or "nci" found)
    std::int32_t scopeCode = 10;
    std::int32_t memberGroup = 0;
    std::int32_t memberNumber = 0;
};

// True when the first three characters, lower-cased, are "nci", "nvi" or "nvo".
bool IsLonMarkName(std::string_view text);

// Reads an item's self-documentation string `selfDoc` with the name the host gives the item.
//
// Name: a LonMark host name is kept; otherwise the first "nvi", else "nvo", else "nci" in the
// string (case-sensitive) starts a candidate that runs to the first "," and is trimmed; a LonMark
// candidate becomes the name, else the host name stays. Finding "nci" marks a property.
//
// Numbers, by the first character:
//   "&" or "~"  header,selector,flags,type index[;text]: a property. Header 0 or a selector
//               holding "-" (a range): node-wide and bound; header 1: bound to object `selector`;
//               header 2: applies to network variable `selector` (up to a "."), not bound; other
//               headers: node-wide, not bound. Scope code is the first character of the flags,
//               member number the type index.
//   "@" or "$"  object|member[;text] ("#" counts as "|"): bound to `object`; member m gives
//               group m \ 1000 and number m mod 1000.
//   otherwise   node-wide, not bound.
// Numbers are read as the platform reads a text as a Long. A number that cannot be read (or is
// missing) keeps its default; when it is the one that decides the object, the item counts as
// having no object (node-wide, not bound). Nothing here raises.
VariableSelfDoc ParseVariableSelfDoc(std::string_view selfDoc, std::string_view hostName);

}  // namespace vx
