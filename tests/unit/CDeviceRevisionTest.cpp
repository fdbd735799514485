#include "CDeviceRevision.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CAdvancedConfig.h"
#include "CDeviceVariableIdentity.h"
#include "fixtures/ErrorMatchers.h"

namespace vx {
namespace {

Variant List(std::vector<Variant> values, std::int32_t lower = 0) {
    return Variant(VariantArray(lower, std::move(values)));
}

std::vector<std::string> CrcNames(const CDeviceRevision& revision, std::int32_t object) {
    std::vector<std::string> names;
    for (std::int32_t i = 1; i <= revision.CRCVarCount(object); ++i) {
        names.push_back(revision.CRCVar(object, i)->Name());
    }
    return names;
}

std::vector<std::string> Identities(const AdvancedConfigPtr& config) {
    std::vector<std::string> items;
    for (const auto& identity : config->NewEnum()) {
        items.push_back(identity->Name() + "@" + std::to_string(identity->LonObject()));
    }
    return items;
}

TEST(DeviceRevision, ReadersOfWhatWasNeverRegisteredGiveEmptyResults) {
    const auto revision = std::make_shared<CDeviceRevision>();
    EXPECT_EQ(revision->CRCVarCount(1), 0);
    EXPECT_EQ(revision->CRCVar(1, 1), nullptr);
    EXPECT_TRUE(revision->ConfigVarlist(1, 2).IsEmpty());
    EXPECT_EQ(revision->FileType2Config(3, 1), "");
    EXPECT_EQ(revision->AdvConfig(1), nullptr);
    EXPECT_EQ(revision->Info().get(), static_cast<IOrvexDeviceRevision*>(revision.get()));
}

TEST(DeviceRevision, ConfigListsKeepTheirBoundsAndTheLastRegistrationWins) {
    const auto revision = std::make_shared<CDeviceRevision>();
    revision->IdentifyOrvexConfig(3, 2, List({"nciA", "nciB"}));
    revision->IdentifyOrvexConfig(3, 2, Variant(StringArray(1, {"nciC"})));
    revision->IdentifyOrvexConfig(3, 3, List({"nciD"}));
    EXPECT_EQ(revision->ConfigVarlist(3, 2), Variant(StringArray(1, {"nciC"})));
    EXPECT_EQ(revision->ConfigVarlist(3, 3), Variant(StringArray(0, {"nciD"})));
    EXPECT_TRUE(revision->ConfigVarlist(32, 0).IsEmpty());  // keys are "3.2", never "32.0"

    // A list with one entry that is no text is refused; the old entry is gone already.
    EXPECT_COM_ERROR(revision->IdentifyOrvexConfig(3, 2, List({"nciA", std::int32_t{7}})),
                     kErrInvalidProcedureCall);
    EXPECT_TRUE(revision->ConfigVarlist(3, 2).IsEmpty());
    EXPECT_COM_ERROR(revision->IdentifyOrvexConfig(3, 3, Variant("nciA")),
                     kErrInvalidProcedureCall);
}

TEST(DeviceRevision, CrcListsInsertAfterTheGivenPosition) {
    const auto revision = std::make_shared<CDeviceRevision>();
    revision->IdentifyOrvexCRCalculation(2, List({"a", std::int32_t{0}, "b", std::int32_t{0}, "c",
                                                  std::int32_t{1}, "d", std::int32_t{3}}));
    EXPECT_EQ(CrcNames(*revision, 2), (std::vector<std::string>{"a", "c", "b", "d"}));
    EXPECT_EQ(revision->CRCVar(2, 1)->LonObject(), 2);
    EXPECT_EQ(revision->CRCVar(2, 5), nullptr);
    EXPECT_EQ(revision->CRCVar(2, 0), nullptr);

    // A position beyond the entries added so far is refused and leaves no list.
    EXPECT_COM_ERROR(
        revision->IdentifyOrvexCRCalculation(2, List({"a", std::int32_t{0}, "b", std::int32_t{2}})),
        kErrInvalidProcedureCall);
    EXPECT_EQ(revision->CRCVarCount(2), 0);
}

TEST(DeviceRevision, PairListsNeedWholePairsAndRefuseOnlyPairsWrongInBothHalves) {
    const auto revision = std::make_shared<CDeviceRevision>();
    const auto refused = [&](const Variant& list) {
        EXPECT_COM_ERROR(revision->IdentifyOrvexCRCalculation(1, list), kErrInvalidProcedureCall);
        EXPECT_COM_ERROR(revision->IdentifyAdvConfig(1, list), kErrInvalidProcedureCall);
    };
    refused(List({}));
    refused(List({"a", std::int32_t{0}, "b"}));
    refused(Variant());
    refused(List({1.5, "x"}));  // neither a text name nor a Long index

    // One wrong half passes: a numeric name is taken as its text, an Integer index as a number.
    revision->IdentifyOrvexCRCalculation(
        1, List({std::int32_t{42}, std::int32_t{0}, "b", std::int16_t{1}}));
    EXPECT_EQ(CrcNames(*revision, 1), (std::vector<std::string>{"42", "b"}));
    // A text index that is no number then fails as the platform converts it.
    EXPECT_COM_ERROR(revision->IdentifyOrvexCRCalculation(1, List({"a", "x"})), kErrTypeMismatch);
}

TEST(DeviceRevision, FileType2TextsByScopeAndIndex) {
    const auto revision = std::make_shared<CDeviceRevision>();
    revision->IdentifyFileType2Config(
        3, List({std::int32_t{1}, "nciCrc", std::int32_t{2}, "nciDeviceConfig"}));
    EXPECT_EQ(revision->FileType2Config(3, 1), "nciCrc");
    EXPECT_EQ(revision->FileType2Config(3, 2), "nciDeviceConfig");
    EXPECT_EQ(revision->FileType2Config(4, 1), "");

    revision->IdentifyFileType2Config(3, List({"7", "late"}));  // text index, text: one half right
    EXPECT_EQ(revision->FileType2Config(3, 7), "late");
    EXPECT_EQ(revision->FileType2Config(3, 1), "");  // replaced whole
    EXPECT_COM_ERROR(revision->IdentifyFileType2Config(3, List({"x", std::int32_t{1}})),
                     kErrInvalidProcedureCall);  // index no Long and text no String
    EXPECT_EQ(revision->FileType2Config(3, 7), "");
}

TEST(DeviceRevision, AdvancedConfigurationNamesVariablesOnAnyObject) {
    const auto revision = std::make_shared<CDeviceRevision>();
    revision->IdentifyAdvConfig(1, List({"nciB", std::int32_t{1}, std::int32_t{42}, std::int32_t{7},
                                         "nciA", std::int32_t{0}}));
    EXPECT_EQ(Identities(revision->AdvConfig(1)),
              (std::vector<std::string>{"nciB@1", "42@7", "nciA@0"}));

    revision->IdentifyAdvConfig(1, List({"nciZ", std::int32_t{1}}));
    EXPECT_EQ(Identities(revision->AdvConfig(1)), (std::vector<std::string>{"nciZ@1"}));
    EXPECT_COM_ERROR(revision->IdentifyAdvConfig(1, List({"nciZ"})), kErrInvalidProcedureCall);
    EXPECT_EQ(revision->AdvConfig(1), nullptr);
}

TEST(AdvancedConfig, EnumeratesInTheOrderOfAdding) {
    CAdvancedConfig config;
    EXPECT_TRUE(config.NewEnum().empty());
    for (const char* name : {"nciB", "nciA", "nciB"}) {
        auto identity = std::make_shared<CDeviceVariableIdentity>();
        identity->Init(name, 3);
        config.AddIdentity(identity);
    }
    const auto items = config.NewEnum();
    ASSERT_EQ(items.size(), 3u);
    EXPECT_EQ(items[0]->Name(), "nciB");
    EXPECT_EQ(items[1]->Name(), "nciA");
    EXPECT_EQ(items[2]->Name(), "nciB");
}

}  // namespace
}  // namespace vx
