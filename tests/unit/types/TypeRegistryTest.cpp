#include "TypeRegistry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

#include "CatalogueType.h"
#include "automation/Collection.h"
#include "fixtures/ErrorMatchers.h"

namespace vx {
namespace {

TEST(TypeRegistry, LooksUpByIndexAndByNameWithoutRegardToCase) {
    const auto registry = TypeRegistry::Standard();
    const auto byIndex = registry->TypeByIndex(105);
    ASSERT_TRUE(byIndex);
    EXPECT_EQ(byIndex->TypeName(), "SNVT_temp_p");
    EXPECT_EQ(registry->TypeByName("snvt_TEMP_p"), byIndex);
    EXPECT_EQ(registry->TypeByName("hvac_t")->TypeName(), "hvac_t") << "enumerations by name";
}

TEST(TypeRegistry, UnknownKeysAndIndexesGiveNothing) {
    const auto registry = TypeRegistry::Standard();
    EXPECT_EQ(registry->TypeByName("nviNoSuchThing"), nullptr);
    EXPECT_EQ(registry->TypeByName(""), nullptr);
    EXPECT_EQ(registry->TypeByIndex(0), nullptr);
    EXPECT_EQ(registry->TypeByIndex(-1), nullptr);
    EXPECT_EQ(registry->TypeByIndex(140), nullptr) << "a gap in the standard numbering";
    EXPECT_EQ(registry->TypeByName("SNVT_switch.value"), nullptr) << "field types are unlisted";
}

TEST(TypeRegistry, TheStandardRegistryHoldsTheFamilyTypesTheVariableModelAsksFor) {
    const auto registry = TypeRegistry::Standard();
    const auto crc = registry->TypeByName("UCPT_CRC");
    ASSERT_TRUE(crc);
    EXPECT_EQ(crc->ByteSize(), 2);
    EXPECT_EQ(crc->TypeCategory(), kCategoryInteger);
    EXPECT_FALSE(crc->IsSigned());
    EXPECT_EQ(crc->FieldByName("low_byte")->ByteOffset(), 0);
    const auto config = registry->TypeByName("UCPTdeviceConfig");
    ASSERT_TRUE(config);
    EXPECT_EQ(config->TypeCategory(), kCategoryStructure);
}

TEST(TypeRegistry, UseStandardTypesInstallsTheProcessWideRegistry) {
    const auto before = CurrentTypeRegistry();
    const auto standard = UseStandardTypes();
    EXPECT_EQ(standard, TypeRegistry::Standard());
    EXPECT_EQ(CurrentTypeRegistry(), standard);
    EXPECT_EQ(CurrentTypeRegistry()->TypeByIndex(95)->TypeName(), "SNVT_switch");
    InstallTypeRegistry(before);
}

TEST(TypeRegistry, HostsAddAndReplaceDefinitions) {
    const auto registry = TypeRegistry::CreateStandard();
    TypeFacts facts;
    facts.name = "SNVT_temp_p";
    facts.index = 105;
    facts.bitSize = 16;
    facts.byteSize = 2;
    auto replacement = std::make_shared<CatalogueType>(facts);
    registry->Register(replacement);
    EXPECT_EQ(registry->TypeByIndex(105), replacement);
    EXPECT_EQ(registry->TypeByName("SNVT_TEMP_P"), replacement);
    EXPECT_NE(TypeRegistry::Standard()->TypeByIndex(105), replacement) << "a separate registry";

    // A device-specific definition: the variable name immediately followed by the program ID.
    registry->Register(std::string("nciFoo") + "9FFFFF0500000000", replacement);
    EXPECT_EQ(registry->TypeByName("nciFoo9FFFFF0500000000"), replacement);
    EXPECT_EQ(registry->TypeByName("nciFoo9fffff0500000000"), replacement);
    EXPECT_EQ(registry->TypeByName("nciFoo"), nullptr);

    const auto count = registry->Count();
    EXPECT_TRUE(registry->Remove("NCIFOO9FFFFF0500000000"));
    EXPECT_FALSE(registry->Remove("nciFoo9FFFFF0500000000"));
    EXPECT_EQ(registry->Count(), count - 1);
}

TEST(TypeRegistry, CloneIsIndependentOfItsSource) {
    const auto source = TypeRegistry::CreateStandard();
    const auto copy = source->Clone();
    EXPECT_EQ(copy->Count(), source->Count());
    EXPECT_EQ(copy->TypeByIndex(93), source->TypeByIndex(93));
    copy->Register("nvoExtra", copy->TypeByIndex(93));
    EXPECT_TRUE(copy->TypeByName("nvoExtra"));
    EXPECT_FALSE(source->TypeByName("nvoExtra"));
}

TEST(TypeRegistry, KeysListEveryNameOnceInOrder) {
    const auto keys = TypeRegistry::Standard()->Keys();
    EXPECT_EQ(static_cast<std::int32_t>(keys.size()), TypeRegistry::Standard()->Count());
    EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end(), [](const auto& a, const auto& b) {
        return FoldKey(a) < FoldKey(b);
    }));
    EXPECT_NE(std::find(keys.begin(), keys.end(), "UCPTdeviceConfig"), keys.end());
}

TEST(TypeRegistry, LoadsATypeFileFromDiskAndNamesAFileItCannotRead) {
    const auto path = std::filesystem::current_path() / "vx_types_test_file.json";
    {
        std::ofstream file(path);
        file << R"({"types": [{"name": "UCPTdiskType", "category": "integer", "bits": 8,
                              "aliases": ["nciDisk"]}]})";
    }
    const auto registry = std::make_shared<TypeRegistry>();
    registry->LoadJsonFile(path);
    std::filesystem::remove(path);
    EXPECT_EQ(registry->TypeByName("nciDisk"), registry->TypeByName("UCPTdiskType"));

    const auto error = test::CaughtError([&] { registry->LoadJsonFile(path); });
    EXPECT_EQ(error.Number(), kTypeFileError);
    EXPECT_NE(error.Description().find(path.string()), std::string::npos);
    EXPECT_EQ(registry->Count(), 2);
}

}  // namespace
}  // namespace vx
