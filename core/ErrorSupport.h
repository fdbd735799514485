#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

#include "automation/Variant.h"
#include "resources/StringTable.h"

namespace vx {

// Error source texts: a class's prefix joined with a member suffix.
namespace source {
inline constexpr std::string_view kDevice = "Vx.CDevice";
inline constexpr std::string_view kDeviceObject = "Vx.CDeviceObject";
inline constexpr std::string_view kDeviceObjectStatus = "Vx.CDeviceObjectStatus";
inline constexpr std::string_view kDeviceVariable = "Vx.CDeviceVariable";
inline constexpr std::string_view kDeviceVariableElement = "Vx.CDeviceVariableElement";
inline constexpr std::string_view kBuffer = "Vx.CBuffer";
inline constexpr std::string_view kCommand = "Vx.OrvexCommand";
inline constexpr std::string_view kCommandStatus = "Vx.OrvexCommandStatus";

inline constexpr std::string_view kConnect = ".IOrvexDevice_Connect()";
inline constexpr std::string_view kSetConfig = ".IOrvexDevice_SetConfig()";
inline constexpr std::string_view kOpenConfigDownload = ".IOrvexCommand_OpenConfigDownload()";
inline constexpr std::string_view kUploadStatus = ".IOrvexCommand_UploadStatus()";
inline constexpr std::string_view kSubElement = ".IOrvexDataElement_SubElement()";
inline constexpr std::string_view kCrc = ".CRC()";
inline constexpr std::string_view kExtractBits = ".ExtractBits()";
inline constexpr std::string_view kMergeBits = ".MergeBits()";
inline constexpr std::string_view kUpload = ".Upload()";
// Kept exactly as hosts have always seen it: no leading point, a point before the parentheses.
inline constexpr std::string_view kObjectVariable = "IOrvexLonObject_Variable.()";

inline std::string Join(std::string_view prefix, std::string_view suffix) {
    std::string joined(prefix);
    joined += suffix;
    return joined;
}
}  // namespace source

// Raises the library error `number`: its text is the string table's entry for
// number AND 0x7FFBFFFF, each "~" filled in turn from the start by the next parameter; surplus
// parameters are ignored and surplus marks kept. The number is raised as passed in, with `source`.
// An id the table does not hold raises the platform's error 326 instead.
[[noreturn]] void RaiseLibraryError(std::int32_t number, std::string_view source,
                                    const VariantArray& params);
[[noreturn]] void RaiseLibraryError(std::int32_t number, std::string_view source,
                                    std::initializer_list<Variant> params = {});

// The finished description RaiseLibraryError would raise with (for callers that build messages).
std::string FormatLibraryMessage(std::string_view text, const VariantArray& params);

}  // namespace vx
