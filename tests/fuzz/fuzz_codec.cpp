// Drives a value buffer, its bit and byte codec and data elements with random content and random
// sequences of operations. Documented failures are ComErrors; anything else, a broken invariant or
// a sanitizer report is a finding.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "CBuffer.h"
#include "CDeviceVariableElement.h"
#include "SupportRoutines.h"
#include "fixtures/FakeTypes.h"

namespace {

using vx::ByteArray;
using vx::CBuffer;
using vx::Variant;

class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}
    bool Empty() const { return m_position >= m_size; }
    std::uint8_t Byte() { return m_position < m_size ? m_data[m_position++] : 0; }
    bool Flag() { return (Byte() & 1) != 0; }
    // Mostly small numbers around the interesting range, sometimes extremes.
    std::int32_t Number(std::int32_t low, std::int32_t high) {
        const std::uint8_t kind = Byte();
        if (kind == 0xFF) return std::numeric_limits<std::int32_t>::max();
        if (kind == 0xFE) return std::numeric_limits<std::int32_t>::min();
        const std::int32_t span = high - low + 1;
        return low + static_cast<std::int32_t>(Byte()) % span;
    }
    // Only small numbers: positions and bounds.
    std::int32_t Small(std::int32_t low, std::int32_t high) {
        return low + static_cast<std::int32_t>(Byte()) % (high - low + 1);
    }
    std::int32_t Long() {
        std::uint32_t value = 0;
        for (int i = 0; i < 4; ++i)
            value = (value << 8) | Byte();
        return static_cast<std::int32_t>(value);
    }
    std::vector<std::uint8_t> Bytes(std::size_t count) {
        std::vector<std::uint8_t> bytes(count);
        for (auto& b : bytes)
            b = Byte();
        return bytes;
    }

private:
    const std::uint8_t* m_data;
    std::size_t m_size;
    std::size_t m_position = 0;
};

template <typename Action>
void Tolerate(Action action) {
    try {
        action();
    } catch (const vx::ComError&) {
    }
}

void Check(bool condition) {
    if (!condition) __builtin_trap();
}

constexpr std::int64_t kOverflow = -1LL << 40;

// A reference decoding and the codec's own read must agree: same value, or both failing with
// the load error, or an expected overflow.
template <typename Reference, typename Read>
void SameAs(Reference reference, Read read) {
    std::int64_t expected = 0;
    try {
        expected = reference();
    } catch (const vx::ComError&) {
        return;  // the run itself failed (unloaded buffer): nothing to compare
    }
    try {
        Check(read() == expected);
    } catch (const vx::ComError& error) {
        Check(expected == kOverflow && error.Number() == vx::kErrOverflow);
    }
}

std::shared_ptr<vx::test::FakeTypedef> RandomType(Input& in) {
    auto type = std::make_shared<vx::test::FakeTypedef>();
    type->category = in.Number(0, 6);
    type->bits = in.Number(-1, 40);
    type->isSigned = in.Flag();
    type->textLength = in.Number(-1, 40);
    type->resultType = in.Flag() ? vx::kResultTypeLong : 0;
    type->factor = in.Number(-1, 12);
    type->multiplies = in.Flag();
    type->hasInvalid = in.Flag();
    type->invalid = in.Number(-200, 300);
    type->minimum = in.Number(-70000, 70000);
    type->maximum = in.Number(-70000, 70000);
    return type;
}

Variant RandomValue(Input& in) {
    switch (in.Byte() % 7) {
        case 0:
            return in.Long();
        case 1:
            return static_cast<float>(in.Number(-100000, 100000)) / 7.0F;
        case 2:
            return static_cast<double>(in.Long()) * 1.5;
        case 3:
            return std::to_string(in.Number(-1000, 1000));
        case 4:
            return in.Flag();
        case 5:
            return std::string(static_cast<std::size_t>(in.Small(0, 12)), 'A');
        default:
            return {};
    }
}

// A record type to walk: fields "x", "a" (holding "b") and the array "arr".
std::shared_ptr<vx::test::FakeTypedef> RecordType(Input& in) {
    auto leaf = RandomType(in);
    auto inner = std::make_shared<vx::test::FakeTypedef>();
    inner->category = vx::kCategoryStructure;
    inner->fields["b"] =
        std::make_shared<vx::test::FakeElementdef>(in.Number(0, 8), in.Number(0, 9), leaf);
    auto record = std::make_shared<vx::test::FakeTypedef>();
    record->category = vx::kCategoryStructure;
    record->fields["x"] = std::make_shared<vx::test::FakeElementdef>(0, 0, leaf);
    record->fields["a"] =
        std::make_shared<vx::test::FakeElementdef>(in.Number(0, 300), in.Number(0, 7), inner);
    record->fields["arr"] = std::make_shared<vx::test::FakeElementdef>(
        in.Number(0, 8), in.Number(0, 7), leaf, in.Number(-1, 6));
    return record;
}

Variant RandomSubscript(Input& in) {
    static const char* const kNames[] = {"x", "a", "b", "arr", "a.b", "arr.x", "", ".", "3"};
    switch (in.Byte() % 5) {
        case 0:
        case 1:
            return kNames[in.Byte() % 9];
        case 2:
            return in.Number(-3, 40);
        case 3:
            return vx::VariantArray(0, {Variant(kNames[in.Byte() % 9]), Variant(in.Number(-1, 5))});
        default:
            return RandomValue(in);
    }
}

// Whether every bit outside stream bits [first, last] is the same in both.
bool SameOutside(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b,
                 std::int64_t first, std::int64_t last) {
    if (a.size() != b.size()) return false;
    for (std::size_t n = 0; n < a.size() * 8; ++n) {
        const auto bit = static_cast<std::int64_t>(n);
        if (bit >= first && bit <= last) continue;
        if (((a[n / 8] ^ b[n / 8]) >> (n % 8)) & 1) return false;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input in(data, size);
    auto buffer = std::make_shared<CBuffer>();
    auto other = std::make_shared<CBuffer>();
    const std::size_t length = in.Byte() % 24;
    const std::int32_t lower = in.Small(0, 2);
    std::vector<std::uint8_t> fill = in.Bytes(length);
    // The owner: loads on request only when the input says so.
    const bool owner = in.Flag();
    auto load = buffer->LoadMePlease().Subscribe([&] {
        if (owner) buffer->SetBytes(ByteArray(lower, fill));
    });
    int modified = 0;
    auto count = buffer->Modified().Subscribe([&] { ++modified; });
    if (length > 0 && in.Flag()) buffer->SetBytes(ByteArray(lower, fill));

    for (int step = 0; step < 64 && !in.Empty(); ++step) {
        const auto offset = vx::NewOffset(in.Small(0, 30), in.Small(0, 7));
        switch (in.Byte() % 12) {
            case 0: {
                const std::int32_t byteOffset = in.Number(-2, 30);
                const std::int32_t byteCount = in.Number(-1, 30);
                const std::int32_t bitOffset = in.Number(-2, 9);
                const std::int32_t endBit = in.Number(-4, 9);
                Tolerate([&] {
                    const ByteArray run =
                        buffer->ExtractBits(byteOffset, byteCount, bitOffset, endBit);
                    Check(run.IsAllocated() && run.LBound() == 0 && run.Count() >= 1);
                });
                break;
            }
            case 1: {
                const std::int32_t byteOffset = in.Number(-2, 30);
                const std::int32_t byteCount = in.Number(-1, 8);
                const std::int32_t bitOffset = in.Number(-2, 9);
                const std::int32_t endBit = in.Number(-4, 9);
                const ByteArray source(in.Small(0, 2), in.Bytes(in.Byte() % 6));
                const bool loaded = buffer->IsLoaded();
                const std::vector<std::uint8_t> before =
                    loaded ? buffer->GetBytes().Values() : std::vector<std::uint8_t>{};
                const int eventsBefore = modified;
                Tolerate([&] {
                    buffer->MergeBits(source, byteOffset, byteCount, bitOffset, endBit);
                    if (!loaded) return;
                    const std::vector<std::uint8_t> after = buffer->GetBytes().Values();
                    // One event exactly when some byte changed; nothing outside the field.
                    Check((modified - eventsBefore == 1) == (after != before));
                    Check(modified - eventsBefore <= 1);
                    // A source longer than the field may spill its extra byte; not checked here.
                    const std::int64_t fieldBits =
                        std::int64_t{byteCount} * 8 - bitOffset - (7 - std::int64_t{endBit});
                    const bool sized =
                        static_cast<std::int64_t>(source.Count()) * 8 < fieldBits + 8;
                    if (sized && byteOffset >= 0 && bitOffset >= 0 && bitOffset < 8 &&
                        endBit >= 0 && endBit < 8) {
                        Check(SameOutside(before, after, std::int64_t{byteOffset} * 8 + bitOffset,
                                          (std::int64_t{byteOffset} + byteCount - 1) * 8 + endBit));
                    }
                });
                break;
            }
            case 2: {
                // Each typed read equals its decoding of the ExtractBits run it is built on.
                const std::int32_t bit = offset->BitOffset();
                const std::int32_t at = offset->ByteOffset();
                const auto run = [&](std::int32_t bytes) {
                    return bit == 0 ? buffer->ExtractBits(at, bytes, 0, 7).Values()
                                    : buffer->ExtractBits(at, bytes + 1, bit, bit - 1).Values();
                };
                SameAs([&] { return std::int64_t{run(1)[0]}; },
                       [&] { return std::int64_t{buffer->GetUInt8(*offset)}; });
                SameAs([&] { return std::int64_t{static_cast<std::int8_t>(run(1)[0])}; },
                       [&] { return std::int64_t{buffer->GetInt8(*offset)}; });
                SameAs(
                    [&] {
                        const auto bytes = run(2);
                        return std::int64_t{bytes[0]} * 256 + (bytes.size() > 1 ? bytes[1] : 0);
                    },
                    [&] { return std::int64_t{buffer->GetUInt16(*offset)}; });
                SameAs(
                    [&] {
                        const auto bytes = run(4);
                        if (bytes.size() != 4) return std::int64_t{0};
                        std::uint32_t raw = 0;
                        for (const auto b : bytes)
                            raw = (raw << 8) | b;
                        return std::int64_t{raw};
                    },
                    [&] {
                        const float value = buffer->GetSingle(*offset);
                        std::uint32_t raw = 0;
                        std::memcpy(&raw, &value, sizeof raw);
                        return std::int64_t{raw};
                    });
                const std::int32_t width = in.Small(1, 40);
                const std::int32_t lastBit = bit + width - 1;
                SameAs(
                    [&] {
                        std::int64_t sum = 0;
                        const vx::ByteArray bytes =
                            buffer->ExtractBits(at, lastBit / 8 + 1, bit, lastBit % 8);
                        for (const auto b : bytes.Values()) {
                            sum = sum * 256 + b;
                            if (sum > std::numeric_limits<std::int32_t>::max()) return kOverflow;
                        }
                        return sum;
                    },
                    [&] { return std::int64_t{buffer->GetBits(*offset, width)}; });
                Tolerate([&] { (void)buffer->GetAscii(in.Number(-2, 30), in.Number(-1, 40)); });
                break;
            }
            case 3: {
                const std::int32_t value = in.Number(-70000, 70000);
                switch (in.Byte() % 7) {
                    case 0:
                        Tolerate(
                            [&] { buffer->SetUInt8(*offset, static_cast<std::uint8_t>(value)); });
                        break;
                    case 1:
                        Tolerate([&] { buffer->SetInt8(*offset, value); });
                        break;
                    case 2:
                        Tolerate([&] { buffer->SetUInt16(*offset, value); });
                        break;
                    case 3:
                        Tolerate([&] { buffer->SetInt16(*offset, value); });
                        break;
                    case 4:
                        Tolerate([&] { buffer->SetBits(*offset, in.Number(-1, 40), in.Long()); });
                        break;
                    case 5:
                        Tolerate([&] { buffer->SetSingle(*offset, static_cast<float>(value)); });
                        break;
                    default:
                        Tolerate([&] {
                            buffer->SetAscii(
                                in.Number(-2, 30), in.Number(-1, 40),
                                std::string(static_cast<std::size_t>(in.Byte() % 50), 'z'));
                        });
                        break;
                }
                break;
            }
            case 4: {
                const auto type = RandomType(in);
                const std::int32_t index = in.Number(-2, 8);
                Tolerate([&] { (void)buffer->GetValue(*type, offset, index); });
                Tolerate([&] { (void)buffer->GetLong(*type, offset, index); });
                const Variant value = RandomValue(in);
                Tolerate([&] { buffer->SetValue(*type, offset, index, value); });
                Tolerate([&] { buffer->SetLong(*type, offset, index, in.Long()); });
                break;
            }
            case 5:
            case 6: {
                auto element = std::make_shared<vx::CDeviceVariableElement>();
                element->InitElement(RandomType(in), buffer, offset, in.Number(-1, 6));
                const std::int32_t index = in.Number(-2, 8);
                Tolerate([&] { (void)element->Value(index); });
                Tolerate([&] { element->SetValue(index, RandomValue(in)); });
                Tolerate([&] { (void)element->UnScaledValue(index); });
                Tolerate([&] { element->SetUnScaledValue(index, in.Long()); });
                Tolerate([&] { (void)element->Undefined(index); });
                Tolerate([&] { (void)element->UBound(); });
                break;
            }
            case 7: {
                auto root = std::make_shared<vx::CDeviceVariableElement>();
                root->InitElement(RecordType(in), buffer, offset, 0);
                std::vector<Variant> keys;
                const int keyCount = in.Byte() % 4;
                for (int k = 0; k < keyCount; ++k)
                    keys.push_back(RandomSubscript(in));
                // SubElement never fails; what it returns is an element usable like any other.
                const vx::DataElementPtr found = root->SubElement(vx::VariantArray(0, keys));
                Check(found != nullptr);
                Tolerate([&] { (void)found->Value(in.Number(-1, 6)); });
                Tolerate([&] { found->SetValue(in.Number(-1, 6), RandomValue(in)); });
                Tolerate([&] { (void)found->Undefined(0); });
                break;
            }
            case 8:
                Tolerate(
                    [&] { buffer->SetBytes(ByteArray(in.Small(0, 2), in.Bytes(in.Byte() % 24))); });
                break;
            case 9:
                Tolerate([&] {
                    buffer->Allocate(static_cast<std::int16_t>(in.Number(-1, 24)), in.Byte());
                });
                Tolerate([&] { buffer->Clear(); });
                break;
            case 10:
                Tolerate([&] { other->SetBytes(ByteArray(0, in.Bytes(in.Byte() % 8))); });
                Tolerate([&] { (void)buffer->IsDifferent(*other); });
                Tolerate([&] { other->CopyFrom(*buffer); });
                Check(!other->IsDifferent(*buffer) || !buffer->IsLoaded());
                break;
            default:
                Tolerate([&] {
                    ByteArray bytes = buffer->GetBytes();
                    CBuffer::ReverseBytes(bytes);
                    (void)buffer->ByteCount();
                });
                break;
        }
    }
    return 0;
}
