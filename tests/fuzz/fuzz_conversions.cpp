// Feeds arbitrary text to the text parsers and number conversions: each either gives a result or
// raises a ComError, never anything else.
#include <cstddef>
#include <cstdint>
#include <string>

#include "SupportRoutines.h"
#include "automation/Conversions.h"
#include "fixtures/Tolerate.h"

using vx::test::Tolerate;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    Tolerate([&] {
        const vx::ByteArray bytes = vx::HexToBytes(text);
        // Whatever parsed must print back as the same digits (odd texts gain a leading 0).
        const std::string digits = text.size() % 2 ? "0" + text : text;
        if (vx::BytesToHex(bytes).size() != digits.size()) __builtin_trap();
    });
    Tolerate([&] {
        std::string a, b, c, d;
        vx::SplitFields(text, a, b, c, d);
    });
    Tolerate([&] { (void)vx::CLng(vx::Variant(text)); });
    Tolerate([&] { (void)vx::CByte(vx::Variant(text)); });
    Tolerate([&] { (void)vx::CBool(vx::Variant(text)); });
    Tolerate([&] { (void)vx::CSng(vx::Variant(text)); });
    (void)vx::FormatDashedHex(text);
    (void)vx::BytesToText(vx::Variant(vx::ByteArray(0, {data, data + size})));
    if (size >= 8) {
        double number = 0;
        __builtin_memcpy(&number, data, sizeof number);
        Tolerate([&] { (void)vx::CLng(number); });
        Tolerate([&] { (void)vx::CStr(vx::Variant(number)); });
        std::int32_t a = 0, b = 0;
        __builtin_memcpy(&a, data, 4);
        __builtin_memcpy(&b, data + 4, 4);
        Tolerate([&] { (void)vx::Mod(a, b); });
        Tolerate([&] { (void)vx::RawToScaled(a, b, (a & 1) != 0); });
        Tolerate([&] { (void)vx::NewOffset(a, b); });
    }
    return 0;
}
