// Parses arbitrary bytes as a node's self-identification data, once as given and once with the
// length bytes set to the input's size (so that the body is reached). Parsing never reads past the
// data or throws; a rejection has a text; and what parses builds into data that parses to the
// same structure, up to the descriptor's extension flag and the mask, which building recomputes
// from the fields present.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "SelfIdentification.h"

namespace {

using vx::lon::SelfIdentification;

SelfIdentification Normalised(SelfIdentification data) {
    for (vx::lon::SiVariable& variable : data.variables) {
        std::uint8_t mask = 0;
        if (variable.maxRate) mask |= 0x80;
        if (variable.rate) mask |= 0x40;
        if (!variable.name.empty()) mask |= 0x20;
        if (!variable.selfDoc.empty()) mask |= 0x10;
        if (variable.arrayCount) mask |= 0x08;
        variable.extensionMask = mask;
        variable.descriptor =
            static_cast<std::uint8_t>((variable.descriptor & 0x7F) | (mask != 0 ? 0x80 : 0));
    }
    return data;
}

void Check(std::span<const std::uint8_t> bytes) {
    const vx::lon::SiParseResult parsed = vx::lon::ParseSelfIdentification(bytes);
    if (!parsed.data) {
        if (parsed.error.empty()) std::abort();
        return;
    }
    if (!parsed.error.empty()) std::abort();
    // Building drops only empty fields and bare records, so it is never longer than the input.
    const auto built = vx::lon::BuildSelfIdentification(*parsed.data);
    if (!built || built->size() > bytes.size()) std::abort();
    const vx::lon::SiParseResult again = vx::lon::ParseSelfIdentification(*built);
    if (!again.data || *again.data != Normalised(*parsed.data)) std::abort();
    if (vx::lon::BuildSelfIdentification(*again.data) != built) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::span<const std::uint8_t> bytes(data, size);
    Check(bytes);
    if (size >= 2 && size <= 0xFFFF) {
        std::vector<std::uint8_t> announced(bytes.begin(), bytes.end());
        announced[0] = static_cast<std::uint8_t>(size >> 8);
        announced[1] = static_cast<std::uint8_t>(size & 0xFF);
        Check(announced);
    }
    return 0;
}
