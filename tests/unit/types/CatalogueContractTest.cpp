// Walks every type of the catalogue through the data element over a value buffer of the type's
// size: limits and invalid codes encode and decode to the documented engineering values, writes
// beyond the limits clamp, every field is reachable by name and writes stay inside their field.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "CBuffer.h"
#include "CDeviceVariableElement.h"
#include "CatalogueType.h"
#include "StandardCatalogue.h"
#include "SupportRoutines.h"
#include "TypeRegistry.h"
#include "automation/Conversions.h"
#include "fixtures/ErrorMatchers.h"

namespace vx {
namespace {

using ElementPtr = std::shared_ptr<CDeviceVariableElement>;

struct Bench {
    BufferPtr buffer = std::make_shared<CBuffer>();
    ElementPtr root = std::make_shared<CDeviceVariableElement>();

    explicit Bench(const TypedefPtr& type) {
        buffer->Allocate(static_cast<std::int16_t>(type->ByteSize()), 0);
        root->InitElement(type, buffer, NewOffset(0, 0), 0);
    }
    void Zero() const { buffer->Allocate(static_cast<std::int16_t>(buffer->ByteCount()), 0); }
    std::vector<std::uint8_t> Bytes() const { return buffer->GetBytes().Values(); }
};

ElementPtr Sub(const ElementPtr& parent, const std::string& name) {
    return std::dynamic_pointer_cast<CDeviceVariableElement>(parent->SubElement({Variant(name)}));
}

// Whether every bit outside [first, first + count) of the value is 0.
bool OnlyBitsSet(const std::vector<std::uint8_t>& bytes, std::int32_t first, std::int32_t count) {
    for (std::size_t byte = 0; byte < bytes.size(); ++byte) {
        for (std::int32_t bit = 0; bit < 8; ++bit) {
            const auto at = static_cast<std::int32_t>(8 * byte) + bit;
            if ((bytes[byte] >> bit & 1) && (at < first || at >= first + count)) return false;
        }
    }
    return true;
}

class Walker {
public:
    explicit Walker(const Bench& bench) : m_bench(bench) {}

    // Checks the element of `type` at entry `index`; `path` names it in failures.
    void Check(const ElementPtr& element, const TypedefPtr& type, std::int32_t index,
               const std::string& path) {
        const auto* catalogued = dynamic_cast<const CatalogueType*>(type.get());
        ASSERT_TRUE(catalogued) << path;
        m_bench.Zero();
        switch (type->TypeCategory()) {
            case kCategoryInteger:
                if (type->BitSize() == 32) {
                    CheckWide(element, *catalogued, index, path);
                } else {
                    CheckInteger(element, *catalogued, index, path);
                }
                break;
            case kCategoryFloat:
                for (const double limit :
                     {catalogued->MinEngineering(), catalogued->MaxEngineering()}) {
                    element->SetValue(index, Variant(static_cast<float>(limit)));
                    EXPECT_EQ(element->Value(index), Variant(static_cast<float>(limit))) << path;
                }
                break;
            case kCategoryBoolean:
                element->SetValue(index, Variant(true));
                EXPECT_EQ(element->Value(index), Variant(true)) << path;
                EXPECT_TRUE(OnlyBitsSet(m_bench.Bytes(), FirstBit(element, type, index), 1))
                    << path;
                element->SetValue(index, Variant(false));
                EXPECT_EQ(element->Value(index), Variant(false)) << path;
                break;
            case kCategoryAscii: {
                const std::string full(static_cast<std::size_t>(type->TextLength()), 'x');
                element->SetValue(index, Variant(full));
                EXPECT_EQ(element->Value(index), Variant(full.substr(1))) << path << ": keeps a 0";
                element->SetValue(index, Variant("Hi"));
                EXPECT_EQ(element->Value(index), Variant("Hi")) << path;
                break;
            }
            default:
                EXPECT_TRUE(element->Value(index).IsEmpty()) << path;
                break;
        }
        for (const auto& field : catalogued->Fields())
            CheckField(element, *field, path);
    }

private:
    static std::int32_t FirstBit(const ElementPtr& element, const TypedefPtr& type,
                                 std::int32_t index) {
        const auto& at = *element->Offset();
        return 8 * at.ByteOffset() + at.BitOffset() + index * type->BitSize();
    }

    // The value Value() reports for a raw number: the engineering value where the factor states
    // the scaling, the raw number where a formula is needed.
    static double Reported(const CatalogueType& type, std::int32_t raw) {
        return type.ScaleText().empty() ? type.Engineering(raw) : raw;
    }

    static void ExpectReads(const Variant& value, const CatalogueType& type, double expected,
                            const std::string& path) {
        if (type.ResultType() == kResultTypeLong && type.ScaleFactor() < 2) {
            ASSERT_EQ(value.Type(), vbLong) << path;
            EXPECT_EQ(*value.Get<std::int32_t>(), expected) << path;
        } else {
            ASSERT_EQ(value.Type(), vbSingle) << path;
            EXPECT_FLOAT_EQ(*value.Get<float>(), static_cast<float>(expected)) << path;
        }
    }

    void CheckInteger(const ElementPtr& element, const CatalogueType& type, std::int32_t index,
                      const std::string& path) {
        const std::int32_t low = type.MinValue();
        const std::int32_t high = type.MaxValue();
        // The documented limits are where the element's range ends.
        EXPECT_EQ(element->RawMin(), low) << path;
        EXPECT_EQ(element->RawMax(), high) << path;
        for (const std::int32_t raw : {low, high}) {
            element->SetValue(index, Variant(static_cast<float>(Reported(type, raw))));
            EXPECT_EQ(element->UnScaledValue(index), raw) << path;
            ExpectReads(element->Value(index), type, Reported(type, raw), path);
        }
        EXPECT_DOUBLE_EQ(type.Engineering(low), type.MinEngineering()) << path;
        EXPECT_DOUBLE_EQ(type.Engineering(high), type.MaxEngineering()) << path;
        EXPECT_TRUE(OnlyBitsSet(m_bench.Bytes(), FirstBit(element, element->Typedef(), index),
                                type.BitSize()))
            << path;

        const double span = Reported(type, high) - Reported(type, low) + 1;
        element->SetValue(index, Variant(static_cast<float>(Reported(type, high) + span)));
        EXPECT_EQ(element->UnScaledValue(index), high) << path << ": clamped to the maximum";
        element->SetValue(index, Variant(static_cast<float>(Reported(type, low) - span)));
        EXPECT_EQ(element->UnScaledValue(index), low) << path << ": clamped to the minimum";

        std::int32_t invalid = 0;
        if (type.InvalidValue(invalid)) {
            // The codec writes the code as it is, even where it lies beyond the limits.
            m_bench.buffer->SetLong(type, element->Offset(), index, invalid);
            EXPECT_EQ(element->UnScaledValue(index), invalid) << path;
            EXPECT_TRUE(element->Undefined(index)) << path;
            ExpectReads(element->Value(index), type, Reported(type, invalid), path);
        }
        if (type.Members()) {
            EXPECT_NE(type.EnumMemberName(low), "") << path;
            EXPECT_NE(type.EnumMemberName(high), "") << path;
        }
    }

    // 32-bit integers: the element carries raw 0 .. 2^31-1 of them. Within that they read, write
    // and clamp like any integer; a write is exact or refused, and a value with the top bit set
    // is refused, never misread.
    void CheckWide(const ElementPtr& element, const CatalogueType& type, std::int32_t index,
                   const std::string& path) {
        EXPECT_FALSE(type.IsSigned()) << path;
        const std::int32_t low = type.MinValue();
        const std::int32_t high = type.MaxValue();
        EXPECT_EQ(element->RawMin(), low) << path;
        EXPECT_EQ(element->RawMax(), high) << path;
        EXPECT_FALSE(element->Undefined(index)) << path;

        // A count as a technician sets it: exact through a Single.
        const std::int32_t typical = std::min(high, 1000000);
        element->SetValue(index, Variant(static_cast<float>(type.Engineering(typical))));
        EXPECT_EQ(element->UnScaledValue(index), typical) << path;
        ExpectReads(element->Value(index), type, type.Engineering(typical), path);
        EXPECT_FALSE(element->Undefined(index)) << path;
        element->SetValue(index, Variant(-1.0));
        EXPECT_EQ(element->UnScaledValue(index), low) << path << ": clamped to the minimum";

        // Raw writes reach the limits exactly.
        element->SetUnScaledValue(index, high);
        EXPECT_EQ(element->UnScaledValue(index), high) << path;
        std::int32_t invalid = 0;
        const bool highIsInvalid = type.InvalidValue(invalid) && invalid == high;
        EXPECT_EQ(element->Undefined(index), highIsInvalid) << path;
        element->SetUnScaledValue(index, -5);
        EXPECT_EQ(element->UnScaledValue(index), low) << path;

        // Beyond the maximum: the maximum, unless its Single lies past the Long range.
        const auto before = m_bench.Bytes();
        try {
            element->SetValue(index, Variant(1e12));
            EXPECT_EQ(element->UnScaledValue(index), high) << path << ": clamped to the maximum";
        } catch (const ComError& error) {
            EXPECT_EQ(error.Number(), kErrOverflow) << path;
            EXPECT_GE(static_cast<double>(element->ScaledMax()), 2147483647.5) << path;
            EXPECT_EQ(m_bench.Bytes(), before) << path << ": nothing written";
        }

        const auto entry = CBuffer::ElementOffset(type, element->Offset(), index);
        m_bench.buffer->MergeBits(ByteArray(0, {0x80, 0, 0, 0}), entry->ByteOffset(), 4, 0, 7);
        EXPECT_COM_ERROR(element->Value(index), kErrOverflow) << path;
    }

    void CheckField(const ElementPtr& parent, const CatalogueField& field,
                    const std::string& parentPath) {
        const std::string path = parentPath + "." + field.Name();
        const auto element = Sub(parent, field.Name());
        ASSERT_TRUE(element) << path;
        ASSERT_EQ(element->Typedef(), field.Typedef()) << path << " is not reachable by name";
        EXPECT_EQ(8 * element->Offset()->ByteOffset() + element->Offset()->BitOffset(),
                  8 * (parent->Offset()->ByteOffset() + field.ByteOffset()) +
                      parent->Offset()->BitOffset() + field.BitOffset())
            << path;
        EXPECT_EQ(element->UBound(), field.ArraySize() - 1) << path;
        Check(element, field.Typedef(), 0, path);
        if (field.ArraySize() > 1) {
            const std::int32_t last = field.ArraySize() - 1;
            Check(element, field.Typedef(), last, path + "(" + std::to_string(last) + ")");
        }
    }

    const Bench& m_bench;
};

TEST(CatalogueContract, EveryTypeDecodesEncodesClampsAndReachesItsFields) {
    std::vector<TypedefPtr> types(snvt::Catalogue().registered.begin(),
                                  snvt::Catalogue().registered.end());
    for (const char* family : {"UCPT_CRC", "UCPTdeviceConfig", "orvex_fan_mode_t"}) {
        types.push_back(TypeRegistry::Standard()->TypeByName(family));
    }
    for (const auto& type : types) {
        ASSERT_TRUE(type);
        const Bench bench(type);
        Walker(bench).Check(bench.root, type, 0, type->TypeName());
    }
}

TEST(CatalogueContract, HandComputedValuesReadAsDocumented) {
    const auto registry = TypeRegistry::Standard();

    const Bench temp(registry->TypeByName("SNVT_temp_p"));
    temp.buffer->SetBytes(ByteArray(0, {0x09, 0x29}));
    EXPECT_EQ(temp.root->Value(), Variant(23.45f));
    temp.root->SetValue(0, Variant(-10.5f));
    EXPECT_EQ(temp.Bytes(), (std::vector<std::uint8_t>{0xFB, 0xE6}));  // -1050

    const Bench light(registry->TypeByName("SNVT_switch"));
    light.buffer->SetBytes(ByteArray(0, {200, 1}));
    EXPECT_EQ(Sub(light.root, "value")->Value(), Variant(100.0f));
    EXPECT_EQ(Sub(light.root, "state")->Value(), Variant(std::int32_t{1}));
    Sub(light.root, "value")->SetValue(0, Variant(37.5f));
    EXPECT_EQ(light.Bytes(), (std::vector<std::uint8_t>{75, 1}));

    const Bench status(registry->TypeByName("SNVT_obj_status"));
    status.buffer->SetBytes(ByteArray(0, {0x00, 0x05, 0x80, 0x00, 0x00, 0x00}));
    EXPECT_EQ(Sub(status.root, "object_id")->Value(), Variant(std::int32_t{5}));
    EXPECT_EQ(Sub(status.root, "invalid_id")->Value(), Variant(true));
    EXPECT_EQ(Sub(status.root, "invalid_request")->Value(), Variant(false));
    status.buffer->SetBytes(ByteArray(0, {0x00, 0x00, 0x01, 0x01, 0x02, 0x00}));
    for (const char* flag : {"feedback_failure", "locked_out", "alarm_notify_disabled"}) {
        EXPECT_EQ(Sub(status.root, flag)->Value(), Variant(true)) << flag;
    }
    EXPECT_EQ(Sub(status.root, "invalid_id")->Value(), Variant(false));

    const Bench request(registry->TypeByName("SNVT_obj_request"));
    request.buffer->SetBytes(ByteArray(0, {0x00, 0x02, 0x00}));
    const auto code = Sub(request.root, "object_request");
    EXPECT_EQ(code->Typedef()->EnumMemberName(CLng(code->Value())), "RQ_NORMAL");

    // A raw value that needs a formula is delivered raw, and the type says how to read it.
    const Bench kelvin(registry->TypeByName("SNVT_temp"));
    kelvin.buffer->SetBytes(ByteArray(0, {0x0B, 0x9B}));  // 2971 -> 0.1 x (2971 - 2740) = 23.1
    EXPECT_EQ(kelvin.root->Value(), Variant(std::int32_t{2971}));
    const auto& formula = dynamic_cast<const CatalogueType&>(*kelvin.root->Typedef());
    EXPECT_NEAR(formula.Engineering(2971), 23.1, 1e-9);
}

TEST(CatalogueContract, ThirtyTwoBitCountersAndMetersAreWritten) {
    const auto registry = TypeRegistry::Standard();

    const Bench count(registry->TypeByName("SNVT_count_32"));
    count.root->SetValue(0, Variant(std::int32_t{123456}));
    EXPECT_EQ(count.Bytes(), (std::vector<std::uint8_t>{0x00, 0x01, 0xE2, 0x40}));
    EXPECT_EQ(count.root->Value(), Variant(std::int32_t{123456}));
    EXPECT_FALSE(count.root->Undefined());
    count.root->SetUnScaledValue(0, 2147483647);
    EXPECT_EQ(count.Bytes(), (std::vector<std::uint8_t>{0x7F, 0xFF, 0xFF, 0xFF}));
    EXPECT_FALSE(count.root->Undefined());

    const Bench hours(registry->TypeByName("SNVT_time_hour_p"));
    hours.root->SetValue(0, Variant(8760.0));
    EXPECT_EQ(hours.Bytes(), (std::vector<std::uint8_t>{0x00, 0x00, 0x22, 0x38}));
    EXPECT_FALSE(hours.root->Undefined());

    const Bench energy(registry->TypeByName("SNVT_elec_kwh_l"));
    energy.root->SetValue(0, Variant(1234.5));  // tenths of a kWh: 12345
    EXPECT_EQ(energy.Bytes(), (std::vector<std::uint8_t>{0x00, 0x00, 0x30, 0x39}));
    EXPECT_EQ(energy.root->Value(), Variant(1234.5F));
    EXPECT_FALSE(energy.root->Undefined());
    energy.root->SetUnScaledValue(0, 0x7FFFF1C0);  // the invalid code
    EXPECT_TRUE(energy.root->Undefined());
}

}  // namespace
}  // namespace vx
