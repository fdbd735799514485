// The field codec against hand-written decoding with plain shifts on a byte array. Each pair
// (Codec... / Baseline...) does the same decode or encode, so their ratio is the codec's overhead.
#include <benchmark/benchmark.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <memory>

#include "CBuffer.h"
#include "CDeviceVariableElement.h"
#include "SupportRoutines.h"
#include "fixtures/FakeTypes.h"

namespace {

using vx::ByteArray;

// A signed 16-bit field at byte 1, engineering value = raw / 10, declared -400..400.
struct ScaledField {
    ScaledField() {
        type->bits = 16;
        type->isSigned = true;
        type->factor = 10;
        type->minimum = -400;
        type->maximum = 400;
        buffer->SetBytes(ByteArray(0, {0x00, 0xFF, 0x85, 0x00}));
        element->InitElement(type, buffer, vx::NewOffset(1, 0), 0);
    }
    std::shared_ptr<vx::test::FakeTypedef> type = std::make_shared<vx::test::FakeTypedef>();
    vx::BufferPtr buffer = std::make_shared<vx::CBuffer>();
    vx::DeviceVariableElementPtr element = std::make_shared<vx::CDeviceVariableElement>();
};

void CodecElementRead(benchmark::State& state) {
    ScaledField field;
    for (auto _ : state) {
        vx::Variant value = field.element->Value(0);
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(CodecElementRead);

void BaselineElementRead(benchmark::State& state) {
    std::array<std::uint8_t, 4> bytes{0x00, 0xFF, 0x85, 0x00};
    for (auto _ : state) {
        benchmark::DoNotOptimize(bytes.data());
        const auto raw = static_cast<std::int16_t>((bytes[1] << 8) | bytes[2]);
        const auto value = static_cast<float>(raw / 10.0);
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(BaselineElementRead);

void CodecElementWrite(benchmark::State& state) {
    ScaledField field;
    const std::array<vx::Variant, 2> values{vx::Variant(12.3F), vx::Variant(-7.5F)};
    std::size_t n = 0;
    for (auto _ : state) {
        field.element->SetValue(0, values[n++ & 1]);
    }
    benchmark::DoNotOptimize(field.buffer);
}
BENCHMARK(CodecElementWrite);

void BaselineElementWrite(benchmark::State& state) {
    std::array<std::uint8_t, 4> bytes{};
    const std::array<float, 2> values{12.3F, -7.5F};
    std::size_t n = 0;
    for (auto _ : state) {
        float value = values[n++ & 1];
        benchmark::DoNotOptimize(value);
        value = value > 40.0F ? 40.0F : (value < -40.0F ? -40.0F : value);
        const auto raw = static_cast<std::int32_t>(std::nearbyint(static_cast<double>(value) * 10));
        bytes[1] = static_cast<std::uint8_t>(raw >> 8);
        bytes[2] = static_cast<std::uint8_t>(raw);
        benchmark::DoNotOptimize(bytes.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BaselineElementWrite);

void CodecGetBits3AtBit5(benchmark::State& state) {
    vx::CBuffer buffer;
    buffer.SetBytes(ByteArray(0, {0xB4, 0x3C}));
    const auto offset = vx::NewOffset(0, 5);
    for (auto _ : state) {
        benchmark::DoNotOptimize(buffer.GetBits(*offset, 3));
    }
}
BENCHMARK(CodecGetBits3AtBit5);

void BaselineGetBits3AtBit5(benchmark::State& state) {
    std::array<std::uint8_t, 2> bytes{0xB4, 0x3C};
    for (auto _ : state) {
        benchmark::DoNotOptimize(bytes.data());
        benchmark::DoNotOptimize((bytes[0] >> 5) & 0x07);
    }
}
BENCHMARK(BaselineGetBits3AtBit5);

void CodecMergeBits4BytesAtBit3(benchmark::State& state) {
    vx::CBuffer buffer;
    buffer.SetBytes(ByteArray(0, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
    const std::array<ByteArray, 2> sources{ByteArray(0, {0x12, 0x34, 0x56, 0x78}),
                                           ByteArray(0, {0x87, 0x65, 0x43, 0x21})};
    std::size_t n = 0;
    for (auto _ : state) {
        buffer.MergeBits(sources[n++ & 1], 0, 5, 3, 2);
    }
    benchmark::DoNotOptimize(buffer);
}
BENCHMARK(CodecMergeBits4BytesAtBit3);

void BaselineMergeBits4BytesAtBit3(benchmark::State& state) {
    std::array<std::uint8_t, 5> bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    const std::array<std::array<std::uint8_t, 4>, 2> sources{
        std::array<std::uint8_t, 4>{0x12, 0x34, 0x56, 0x78},
        std::array<std::uint8_t, 4>{0x87, 0x65, 0x43, 0x21}};
    std::size_t n = 0;
    for (auto _ : state) {
        const auto& source = sources[n++ & 1];
        benchmark::DoNotOptimize(source.data());
        // Source byte k: bits 0-4 to bits 3-7 of byte k, bits 5-7 to bits 0-2 of byte k + 1.
        bytes[0] = static_cast<std::uint8_t>((bytes[0] & 0x07) | (source[0] << 3));
        for (std::size_t k = 1; k < 4; ++k) {
            bytes[k] = static_cast<std::uint8_t>((source[k - 1] >> 5) | (source[k] << 3));
        }
        bytes[4] = static_cast<std::uint8_t>((bytes[4] & 0xF8) | (source[3] >> 5));
        benchmark::DoNotOptimize(bytes.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BaselineMergeBits4BytesAtBit3);

}  // namespace

BENCHMARK_MAIN();
