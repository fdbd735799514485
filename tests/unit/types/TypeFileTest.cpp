// Type definition files: what they define, and how a bad one is refused without a trace.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "CatalogueType.h"
#include "TypeRegistry.h"
#include "fixtures/ErrorMatchers.h"

namespace vx {
namespace {

std::shared_ptr<CatalogueType> Catalogue(const TypedefPtr& type) {
    auto concrete = std::dynamic_pointer_cast<CatalogueType>(type);
    EXPECT_TRUE(concrete);
    return concrete;
}

TEST(FamilyTypes, DeviceConfigIsARealisticLayoutOnStandardTypes) {
    const auto config = Catalogue(TypeRegistry::Standard()->TypeByName("UCPTdeviceConfig"));
    ASSERT_TRUE(config);
    EXPECT_EQ(config->ByteSize(), 24);
    EXPECT_GE(config->Fields().size(), 12U);
    const auto heat = config->FieldByName("occupied_heat");
    EXPECT_EQ(heat->ByteOffset(), 0);
    EXPECT_EQ(heat->Typedef()->ScaleFactor(), 100) << "a temperature like SNVT_temp_p";
    EXPECT_EQ(heat->Typedef()->MinValue(), 500) << "but limited to 5 .. 35 C";
    EXPECT_EQ(heat->Typedef()->MaxValue(), 3500);
    EXPECT_EQ(config->FieldByName("startup_mode")->Typedef()->EnumMemberName(1), "HVAC_HEAT");
    const auto locked = config->FieldByName("keypad_locked");
    EXPECT_EQ(locked->ByteOffset(), 14);
    EXPECT_EQ(locked->BitOffset(), 7);
    EXPECT_EQ(locked->Typedef()->TypeCategory(), kCategoryBoolean);
    EXPECT_EQ(config->FieldByName("fan_speeds")->Typedef()->BitSize(), 2);
    EXPECT_EQ(config->FieldByName("fan_mode")->Typedef()->EnumMemberName(3), "FAN_HIGH");
    EXPECT_EQ(config->FieldByName("setpoint_adjust")->Typedef()->Units(), "K");
}

class TypeFile : public ::testing::Test {
protected:
    std::shared_ptr<TypeRegistry> registry = TypeRegistry::CreateStandard();

    // Loads one file; returns the error's description, "" when it loaded.
    std::string Load(const std::string& json) {
        try {
            registry->LoadJson(json, "test.json");
        } catch (const ComError& error) {
            EXPECT_EQ(error.Number(), kTypeFileError);
            EXPECT_EQ(error.Source(), kTypeFileErrorSource);
            return error.Description();
        }
        return {};
    }
};

TEST_F(TypeFile, DefinesScaledIntegersWithLimitsAndInvalidCodes) {
    ASSERT_EQ(Load(R"({"types": [
        {"name": "UNVT_level", "category": "integer", "bits": 16, "signed": true,
         "scale": {"a": 5, "b": -3}, "min": -100, "max": 20000, "invalid": 32767,
         "units": "%", "description": "a level"}]})"),
              "");
    const auto level = Catalogue(registry->TypeByName("UNVT_level"));
    EXPECT_EQ(level->ScaleFactor(), 200);
    EXPECT_FALSE(level->ScaleMultiplies());
    EXPECT_EQ(level->ResultType(), 0);
    EXPECT_EQ(level->MinValue(), -100);
    EXPECT_EQ(level->MaxValue(), 20000);
    EXPECT_DOUBLE_EQ(level->MaxEngineering(), 100.0);
    std::int32_t invalid = 0;
    EXPECT_TRUE(level->InvalidValue(invalid));
    EXPECT_EQ(invalid, 32767);
    EXPECT_EQ(level->Units(), "%");
    EXPECT_EQ(level->TypeIndex(), 0);
}

TEST_F(TypeFile, AliasesGiveVariableAndDeviceSpecificKeys) {
    ASSERT_EQ(Load(R"({"types": [
        {"name": "UCPTfoo", "category": "integer", "bits": 8,
         "aliases": ["nciFoo", {"variable": "nciFoo", "program_id": "9FFFFF0500000000"}]}]})"),
              "");
    const auto foo = registry->TypeByName("UCPTfoo");
    EXPECT_EQ(registry->TypeByName("nciFoo"), foo);
    EXPECT_EQ(registry->TypeByName(std::string("nciFoo") + "9FFFFF0500000000"), foo);
}

TEST_F(TypeFile, BuildsOnStandardTypesAndOnEarlierEntries) {
    ASSERT_EQ(Load(R"({"types": [
        {"name": "UNVT_mode", "category": "integer", "bits": 8, "signed": true,
         "enum": {"M_NUL": -1, "M_OFF": 0, "M_ON": 1, "M_AUTO": 5}},
        {"name": "UNVT_pair", "category": "structure", "size": 4, "fields": [
            {"name": "mode", "byte": 0, "type": "UNVT_mode"},
            {"name": "mode_copy", "byte": 1, "type": {"base": "SNVT_occupancy"}},
            {"name": "temp", "byte": 2, "type": {"base": "SNVT_temp_p", "max": 5000}}]},
        {"name": "UNVT_pairs", "category": "structure", "size": 9, "fields": [
            {"name": "pair", "byte": 0, "array": 2, "type": "UNVT_pair"},
            {"name": "flags", "byte": 8, "bit": 4, "array": 4, "type": {"category": "boolean"}}]}
        ]})"),
              "");
    const auto mode = Catalogue(registry->TypeByName("UNVT_mode"));
    EXPECT_EQ(mode->EnumMemberName(5), "M_AUTO");
    EXPECT_EQ(mode->MinValue(), -1) << "an enumeration's range is its members'";
    EXPECT_EQ(mode->MaxValue(), 5);
    std::int32_t invalid = 0;
    EXPECT_TRUE(mode->InvalidValue(invalid)) << "member -1 is the no-value code";
    const auto pair = Catalogue(registry->TypeByName("UNVT_pair"));
    EXPECT_EQ(pair->FieldNames(), StringArray(0, {"mode", "mode_copy", "temp"}));
    const auto temp = pair->FieldByName("temp")->Typedef();
    EXPECT_EQ(temp->ScaleFactor(), 100);
    EXPECT_EQ(temp->MaxValue(), 5000);
    EXPECT_EQ(temp->TypeName(), "UNVT_pair.temp");
    EXPECT_EQ(pair->FieldByName("mode_copy")->Typedef()->EnumMemberName(1), "OC_UNOCCUPIED");
    EXPECT_EQ(registry->TypeByName("UNVT_pairs")->FieldByName("pair")->Typedef(), pair);
    EXPECT_EQ(registry->TypeByName("UNVT_pair.temp"), nullptr) << "inline types are unlisted";
}

TEST_F(TypeFile, ReplacesStandardDefinitionsByNameAndIndex) {
    ASSERT_EQ(Load(R"({"types": [{"name": "SNVT_lux", "index": 79, "category": "integer",
                                  "bits": 16, "scale": {"a": 1, "b": 1}}]})"),
              "");
    EXPECT_EQ(registry->TypeByIndex(79)->ScaleFactor(), 10);
    EXPECT_TRUE(registry->TypeByIndex(79)->ScaleMultiplies());
}

TEST_F(TypeFile, ScalingThatIsNoIntegerFactorIsStatedNotApproximated) {
    ASSERT_EQ(Load(R"({"types": [{"name": "UNVT_f", "category": "integer", "bits": 16,
                                  "scale": {"a": 1, "b": -1, "c": -400}}]})"),
              "");
    const auto type = Catalogue(registry->TypeByName("UNVT_f"));
    EXPECT_EQ(type->ScaleFactor(), 1);
    EXPECT_EQ(type->ResultType(), kResultTypeLong);
    EXPECT_EQ(type->ScaleText(), "0.1 * (raw - 400)");
    EXPECT_DOUBLE_EQ(type->Engineering(1000), 60.0);
}

// Each entry: a file, and a text its error must contain besides the file name.
TEST_F(TypeFile, RefusesMalformedFilesNamingTheFileAndTheEntryAndChangesNothing) {
    const struct {
        const char* json;
        const char* mention;
    } cases[] = {
        {R"({"types": [)", "not valid JSON"},
        {R"({"types": [], "version": 1e999})", "not valid JSON"},
        {R"([1, 2])", "one object"},
        {R"({"types": {}})", "\"types\" must be an array"},
        {R"({"types": [], "extra": 1})", "unknown key \"extra\""},
        {R"({"types": [], "version": 2})", "version 2"},
        {R"({"types": [{"category": "integer", "bits": 8}]})", "types[0]: \"name\" is missing"},
        {R"({"types": [{"name": "A", "category": "integer", "bits": 8},
                       {"name": "B", "category": "integr", "bits": 8}]})",
         "types[1] \"B\": category \"integr\""},
        {R"({"types": [{"name": "A", "category": "integer", "bits": 8, "singed": true}]})",
         "types[0] \"A\": unknown key \"singed\""},
        {R"({"types": [{"name": "A", "category": "integer", "bits": 12}]})", "whole bytes"},
        {R"({"types": [{"name": "A", "category": "integer", "bits": 32, "signed": true}]})",
         "8 or 16 bits"},
        {R"({"types": [{"name": "A", "category": "integer", "bits": 8, "max": 256}]})",
         "max 256 is outside 0..255"},
        {R"({"types": [{"name": "A", "category": "integer", "bits": 8, "min": 9, "max": 3}]})",
         "min is above max"},
        {R"({"types": [{"name": "A", "category": "integer", "bits": 8, "max": 1.5}]})",
         "whole number"},
        {R"({"types": [{"name": "A", "category": "integer", "bits": 8, "scale": {"a": 0}}]})",
         "scale a"},
        {R"({"types": [{"name": "A", "category": "float", "scale": {"a": 2}}]})",
         "integer types only"},
        {R"({"types": [{"name": "A", "category": "ascii"}]})", "\"length\" is missing"},
        {R"({"types": [{"name": "A", "category": "structure"}]})", "\"size\" is missing"},
        {R"({"types": [{"name": "A", "category": "integer", "bits": 8},
                       {"name": "a", "category": "integer", "bits": 8}]})",
         "defines this name twice"},
        {R"({"types": [{"name": "A", "base": "SNVT_nothing"}]})", "not a known type"},
        {R"({"types": [{"name": "A", "base": "SNVT_temp_p", "bits": 8}]})", "comes from the base"},
        {R"({"types": [{"name": "A", "category": "integer", "bits": 8, "enum": "no_such_t"}]})",
         "not a known enumeration"},
        {R"({"types": [{"name": "A", "category": "integer", "bits": 8, "signed": true,
                        "enum": {"X": 1, "Y": 1}}]})",
         "given twice"},
        {R"({"types": [{"name": "A", "category": "structure", "size": 2, "fields": [
             {"name": "x", "byte": 1, "type": "SNVT_temp_p"}]}]})",
         "field \"x\" ends past the value's 2 bytes"},
        {R"({"types": [{"name": "A", "category": "structure", "size": 4, "fields": [
             {"name": "x", "byte": 0, "type": "SNVT_temp_p"},
             {"name": "y", "byte": 1, "type": "SNVT_count"}]}]})",
         "field \"y\" overlaps field \"x\" at byte 1 bit 0"},
        {R"({"types": [{"name": "A", "category": "structure", "size": 2, "fields": [
             {"name": "x", "byte": 0, "bit": 6, "type": {"category": "integer", "bits": 3}}]}]})",
         "crosses a byte boundary"},
        {R"({"types": [{"name": "A", "category": "structure", "size": 3, "fields": [
             {"name": "x", "byte": 0, "bit": 1, "type": "SNVT_temp_p"}]}]})",
         "must start at bit 0"},
        {R"({"types": [{"name": "A", "category": "structure", "size": 2, "fields": [
             {"name": "x", "byte": 0, "bit": 8, "type": "SNVT_count"}]}]})",
         "fields[0] \"x\": bit 8 is outside 0..7"},
        {R"({"types": [{"name": "A", "category": "structure", "size": 2, "fields": [
             {"name": "a.b", "byte": 0, "type": "SNVT_lev_cont"}]}]})",
         "point"},
        {R"({"types": [{"name": "A", "category": "structure", "size": 2, "fields": [
             {"name": "x", "byte": 0, "type": "SNVT_lev_cont"},
             {"name": "X", "byte": 1, "type": "SNVT_lev_cont"}]}]})",
         "this field twice"},
        {R"({"types": [{"name": "A", "category": "structure", "size": 2, "fields": [
             {"name": "x", "byte": 0, "type": "Later"}]},
             {"name": "Later", "category": "integer", "bits": 8}]})",
         "type \"Later\" is not a known type"},
        {R"({"types": [{"name": "A", "category": "integer", "bits": 8, "aliases": [7]}]})",
         "alias must be"},
    };
    const auto before = registry->Keys();
    for (const auto& expected : cases) {
        const std::string message = Load(expected.json);
        EXPECT_EQ(message.rfind("test.json: ", 0), 0U) << message;
        EXPECT_NE(message.find(expected.mention), std::string::npos)
            << "message: " << message << "\nexpected to mention: " << expected.mention;
    }
    EXPECT_EQ(registry->Keys(), before);
}

TEST_F(TypeFile, AFailureLateInTheFileUndoesNothingBecauseNothingWasRegistered) {
    const auto count = registry->Count();
    EXPECT_NE(Load(R"({"types": [
        {"name": "UNVT_first", "category": "integer", "bits": 8, "aliases": ["nviFirst"]},
        {"name": "SNVT_temp_p", "index": 105, "category": "integer", "bits": 8},
        {"name": "UNVT_bad", "category": "integer", "bits": 99}]})"),
              "");
    EXPECT_EQ(registry->Count(), count);
    EXPECT_EQ(registry->TypeByName("UNVT_first"), nullptr);
    EXPECT_EQ(registry->TypeByName("nviFirst"), nullptr);
    EXPECT_EQ(registry->TypeByIndex(105)->BitSize(), 16) << "the standard type is untouched";
}

}  // namespace
}  // namespace vx
