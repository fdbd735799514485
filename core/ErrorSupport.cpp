#include "ErrorSupport.h"

#include <vector>

#include "automation/Conversions.h"

namespace vx {

std::string FormatLibraryMessage(std::string_view text, const VariantArray& params) {
    std::string message(text);
    for (const Variant& param : params.Values()) {
        std::string filler;
        try {
            filler = CStr(param);
        } catch (const ComError&) {
            continue;  // a parameter that has no text fills nothing
        }
        const auto mark = message.find('~');
        if (mark != std::string::npos) message.replace(mark, 1, filler);
    }
    return message;
}

void RaiseLibraryError(std::int32_t number, std::string_view source, const VariantArray& params) {
    const auto id = static_cast<std::int32_t>(static_cast<std::uint32_t>(number) & 0x7FFBFFFFu);
    const auto text = LoadLibraryString(id);
    if (!text) RaiseRuntimeError(kErrResourceNotFound, std::string(source));
    throw ComError(number, std::string(source), FormatLibraryMessage(*text, params));
}

void RaiseLibraryError(std::int32_t number, std::string_view source,
                       std::initializer_list<Variant> params) {
    const VariantArray array =
        params.size() == 0 ? VariantArray() : VariantArray(0, std::vector<Variant>(params));
    RaiseLibraryError(number, source, array);
}

}  // namespace vx
