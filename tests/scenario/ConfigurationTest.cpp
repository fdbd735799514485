// What a service technician does with a controller's configuration: upload it, change a setpoint,
// download at level 2 and level 3, see the node restart, import a saved configuration. Each
// scenario checks what the simulated controller finally holds, byte for byte.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CDevice.h"
#include "DefaultController.h"
#include "SavedConfiguration.h"
#include "SimulatedNode.h"
#include "VxDef.h"
#include "automation/Clock.h"
#include "fixtures/ErrorMatchers.h"
#include "fixtures/Scenario.h"

namespace vx {
namespace {

using Bytes = std::vector<std::uint8_t>;
using test::Frame;

constexpr std::int32_t kEveryCategory = 1 | 2 | 256 | 512;

class Configuration : public ::testing::Test {
protected:
    test::ScopedStandardTypes standardTypes;
    void SetUp() override {
        const auto revision = VxDef().CreateDeviceRevision();
        sim::ApplyDefaultRevision(*revision);
        device->Connect(node, revision);
        m_uploads = device->AfterConfigDMUploadEvent().Subscribe([this] { ++announcedUploads; });
        m_downloads =
            device->AfterConfigDMDownloadEvent().Subscribe([this] { ++announcedDownloads; });
        node->ClearRecord();
    }

    DeviceVariablePtr Variable(std::int32_t object, const std::string& name) const {
        return device->ObjectByID(object)->VariableByName(name);
    }
    Bytes Held(const DeviceVariablePtr& variable) const {
        return variable->ValueBuffer()->GetBytes().Values();
    }

    std::shared_ptr<VirtualClock> clock = std::make_shared<VirtualClock>();
    ScopedClock clockGuard{clock};
    sim::SimulatedNodePtr node = sim::SimulatedNode::Create(sim::DefaultController());
    std::shared_ptr<CDevice> device = std::make_shared<CDevice>();
    int announcedUploads = 0;
    int announcedDownloads = 0;

private:
    Event<>::Subscription m_uploads;
    Event<>::Subscription m_downloads;
};

TEST_F(Configuration, ASetpointChangedThroughItsElementIsDownloadedAtLevel2) {
    device->Upload(kEveryCategory);
    EXPECT_EQ(announcedUploads, 6);  // every configuration item, each announced on its own
    const auto setpoints = Variable(1, "nciSetpoints");
    EXPECT_EQ(Held(setpoints), node->VariableValue("nciSetpoints"));

    setpoints->Element()->SubElement({Variant("occupied_cool")})->SetValue(0, Variant(24.5f));
    EXPECT_EQ(device->ConfigModificationLevel(), 2);
    Bytes expected = node->VariableValue("nciSetpoints");
    expected[0] = 0x09;  // 2450 hundredths of a degree
    expected[1] = 0x92;
    EXPECT_EQ(Held(setpoints), expected);

    device->Download(1, 2);
    EXPECT_EQ(node->CommandFrames(), (std::vector<Bytes>{Frame({3, 2, 1}), Frame({4, 2})}));
    EXPECT_EQ(node->VariableValue("nciSetpoints"), expected);
    EXPECT_EQ(announcedDownloads, 0);
    EXPECT_FALSE(device->DeferredClose());
    EXPECT_EQ(clock->SleptMilliseconds(), 2000u);  // the open and close pauses
}

TEST_F(Configuration, Level3SendsTheChecksumAndTheNextUploadClosesAndWaitsForTheRestart) {
    device->Upload(kEveryCategory);
    Variable(1, "nciFrostSetpt")->SetValue(Variant(7.0f));         // an item: written at once
    EXPECT_EQ(node->ConfigItemValue("0-1"), (Bytes{0x02, 0xBC}));  // 700 hundredths
    Variable(1, "nciSndHrtBt")->SetValue(Variant(120.0f));         // a property: waits
    EXPECT_EQ(device->ConfigModificationLevel(), 3);

    device->Download(1, 1 | 2);
    EXPECT_EQ(announcedDownloads, 1);  // once per download, however many items it meets
    EXPECT_TRUE(device->DeferredClose());
    EXPECT_EQ(node->Commands().downloadLevel, 3);  // still open for the items
    EXPECT_EQ(node->VariableValue("nciSndHrtBt"), (Bytes{0x04, 0xB0}));
    EXPECT_EQ(node->ConfigItemValue("3-1"), node->CoveredChecksum());

    const auto before = clock->SleptMilliseconds();
    device->Upload(kEveryCategory);
    EXPECT_EQ(node->CommandFrames().back(), Frame({4, 3}));
    EXPECT_FALSE(node->Commands().checksumMismatch);
    EXPECT_EQ(node->Commands().restarts, 1);
    EXPECT_FALSE(node->Commands().restarting);
    // The close pause, then one poll a second until the alarm text no longer reports the reset.
    EXPECT_EQ(clock->SleptMilliseconds() - before, 1000u + 3 * 1000u);
    EXPECT_EQ(CStr(Variable(0, "nvoAlarmMessage")->Value()), "0 Normal");
}

TEST_F(Configuration, ANodeThatKeepsResettingEndsTheWaitAfterNinetySeconds) {
    node->SetResetPolls(-1);
    device->Upload(kEveryCategory);
    Variable(1, "nciFrostSetpt")->SetValue(Variant(7.0f));  // level 3: the phase really opens
    device->Download(1, 1);
    const auto before = clock->SleptMilliseconds();
    device->Upload(0);
    // 1000 ms close pause, then polls until more than 90 whole seconds have passed.
    EXPECT_EQ(clock->SleptMilliseconds() - before, 1000u + 91 * 1000u);
    EXPECT_EQ(CStr(Variable(0, "nvoAlarmMessage")->Value()), "0 Application Resetting");
}

TEST_F(Configuration, TheAdvancedListIsDownloadedWhateverItsCategories) {
    device->Upload(kEveryCategory);
    Variable(2, "nciMinFlow")->SetValue(Variant(55.0f));
    Variable(1, "nciSetpoints")
        ->Element()
        ->SubElement({Variant("standby_cool")})
        ->SetValue(0, Variant(27.5f));  // not on the list

    node->ClearRecord();
    device->Download(2, 128);
    EXPECT_EQ(node->VariableValue("nciMinFlow"), Held(Variable(2, "nciMinFlow")));
    EXPECT_NE(node->VariableValue("nciSetpoints"), Held(Variable(1, "nciSetpoints")));
    EXPECT_EQ(announcedDownloads, 1);  // nciDriveTime and nciDeviceConfig are items

    announcedDownloads = 0;
    node->ClearRecord();
    device->Download(2, 129);  // only the items of the list, all announced
    EXPECT_EQ(announcedDownloads, 1);
    for (const auto& exchange : node->Exchanges()) {
        EXPECT_NE(exchange.target, "nciMinFlow");
    }
    EXPECT_COM_ERROR(device->Download(1, 128), kErrInvalidProcedureCall);  // no list for 1
}

TEST_F(Configuration, ASavedConfigurationIsImportedAndDownloaded) {
    const auto saved = sim::SavedConfiguration::Save(*node);

    // Imported into values never loaded: nothing counts as modified.
    device->SetConfig(saved, 2);
    EXPECT_EQ(device->ConfigModificationLevel(), 0);
    EXPECT_EQ(saved->Lookups(), 10);  // the ten properties of the two blocks

    // The node is changed on site; the saved configuration brings it back.
    device->Upload(kEveryCategory);
    Variable(1, "nciFrostSetpt")->SetValue(Variant(5.0f));
    Variable(1, "nciSetpoints")
        ->Element()
        ->SubElement({Variant("occupied_heat")})
        ->SetValue(0, Variant(17.0f));
    device->Download(1, 1 | 2);
    device->Upload(kEveryCategory);
    ASSERT_NE(node->ConfigItemValue("0-1"), saved->Values().at("0-1"));

    device->SetConfig(saved, 2);
    device->SetConfig(saved, 1);
    EXPECT_EQ(node->ConfigItemValue("0-1"), saved->Values().at("0-1"));  // items write through
    device->Download(1, 1 | 2);
    device->Upload(kEveryCategory);
    for (const auto& [key, value] : saved->Values()) {
        const auto dot = key.find('.');
        const Bytes held = dot == std::string::npos ? node->ConfigItemValue(key)
                                                    : node->VariableValue(key.substr(0, dot));
        EXPECT_EQ(held, value) << key;
    }
    EXPECT_FALSE(node->Commands().checksumMismatch);
}

TEST_F(Configuration, AnImportThatMissesAnItemEndsWith513AndItsMarks) {
    auto partial = std::make_shared<sim::SavedConfiguration>();
    partial->Set("3-1", {0x00, 0x00});
    const auto error = test::CaughtError([&] { device->SetConfig(partial, 1); });
    EXPECT_EQ(error.Number(), static_cast<std::int32_t>(0x80040201u));
    EXPECT_EQ(error.Description(), "~ not found on object ~");
    EXPECT_EQ(error.Source(), "Vx.CDevice.IOrvexDevice_SetConfig()");

    device->SetConfig(partial, 256);  // no category but 1 and 2 is imported
    device->SetConfig(nullptr, 512);
    EXPECT_COM_ERROR(device->SetConfig(nullptr, 2), LibraryErrorNumber(kIdVariableNotFound));
}

}  // namespace
}  // namespace vx
