// The library's scenarios over the network: a service tool connects through LonIpNode to the
// family's default controller served on loopback (the same node model vxsim serves), and sees the
// device exactly as it sees the controller in its own process.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "CDevice.h"
#include "DefaultController.h"
#include "LonIpNode.h"
#include "NodeServer.h"
#include "NodeService.h"
#include "ScriptedPeer.h"
#include "SimulatedNode.h"
#include "VxDef.h"
#include "automation/Clock.h"
#include "fixtures/Scenario.h"

namespace vx::lon {
namespace {

using Bytes = std::vector<std::uint8_t>;
constexpr std::int32_t kEveryCategory = 1 | 2 | 256 | 512;

std::vector<ConfigItemLayout> ItemsInMemory(const sim::NodeDescription& description) {
    std::vector<ConfigItemLayout> items;
    for (const auto& item : description.configItems) {
        if (item.address < 0) continue;
        items.push_back({item.name, item.layout, static_cast<std::uint16_t>(item.address),
                         static_cast<std::uint8_t>(item.value.size())});
    }
    return items;
}

// What a connected device shows: per object its variables, and each variable's value bytes.
std::map<std::string, Bytes> Values(CDevice& device) {
    std::map<std::string, Bytes> values;
    for (const auto& object : device.Objects().NewEnum()) {
        for (const auto& variable : object->Variables()) {
            variable->Upload();
            values[std::to_string(object->ID()) + "." + variable->Name()] =
                variable->ValueBuffer()->GetBytes().Values();
        }
    }
    return values;
}

class OverLonIp : public ::testing::Test {
protected:
    void SetUp() override {
        server.Start();
        revision = VxDef().CreateDeviceRevision();
        sim::ApplyDefaultRevision(*revision);
        device->Connect(connection, revision);
    }

    // Another tool run on the same node.
    std::shared_ptr<CDevice> ConnectAgain() {
        auto again = std::make_shared<CDevice>();
        again->Connect(Open(), revision);
        return again;
    }

    LonIpNodePtr Open() const {
        LonIpOptions options;
        options.host.local = test::UniqueLoopback();
        options.host.timing = {std::chrono::milliseconds(200), 3};
        options.configItems = ItemsInMemory(sim::DefaultController());
        return LonIpNode::Open(server.Where(), options);
    }

    DeviceVariablePtr Variable(std::int32_t object, const std::string& name) const {
        return device->ObjectByID(object)->VariableByName(name);
    }

    vx::test::ScopedStandardTypes standardTypes;
    // The library's own pauses (a second around each download phase, the restart polls) cost
    // nothing; the network's timers stay real.
    std::shared_ptr<VirtualClock> clock = std::make_shared<VirtualClock>();
    ScopedClock clockGuard{clock};
    sim::SimulatedNodePtr node = sim::SimulatedNode::Create(sim::DefaultController());
    vxsim::NodeService service{node};
    vxsim::NodeServer server{service, test::UniqueLoopback()};
    LonIpNodePtr connection = Open();
    std::shared_ptr<CDevice> device = std::make_shared<CDevice>();
    DeviceRevisionIdentifyPtr revision;
};

TEST_F(OverLonIp, TheDeviceIsTheSameAsInProcess) {
    const auto local = std::make_shared<CDevice>();
    local->Connect(sim::SimulatedNode::Create(sim::DefaultController()), revision);

    EXPECT_EQ(Values(*device), Values(*local));
    EXPECT_EQ(device->Info()->NeuronID(), "05-01-3C-7A-1F-02");
    EXPECT_EQ(device->Info()->ProgID(), local->Info()->ProgID());
    EXPECT_EQ(device->Info()->MfgID(), local->Info()->MfgID());
    EXPECT_EQ(device->Info()->Revision(), "2.10");
    EXPECT_EQ(device->Info()->State(false, false), "Configured/Online");
    EXPECT_EQ(device->AdvancedConfigLists().Count(), local->AdvancedConfigLists().Count());
    EXPECT_TRUE(device->Ping());
    EXPECT_TRUE(device->Wink());

    // Connecting asked for the self-identification data in one slice and nothing twice.
    EXPECT_EQ(connection->Client().SelfIdentificationSlice(), 228);
}

TEST_F(OverLonIp, AWrittenValueReachesTheNodeAndTheNextToolRunSeesIt) {
    Variable(1, "nviSetpoint")->SetValue(Variant(22.5f));
    Variable(1, "nviSetpoint")->Download(127, true);
    Variable(1, "nciFrostSetpt")->SetValue(Variant(7.0f));  // an item: written through memory

    const auto again = ConnectAgain();
    EXPECT_EQ(
        again->ObjectByID(1)->VariableByName("nviSetpoint")->ValueBuffer()->GetBytes().Values(),
        (Bytes{0x08, 0xCA}));
    again->ObjectByID(1)->VariableByName("nciFrostSetpt")->Upload();
    EXPECT_EQ(
        again->ObjectByID(1)->VariableByName("nciFrostSetpt")->ValueBuffer()->GetBytes().Values(),
        (Bytes{0x02, 0xBC}));
}

TEST_F(OverLonIp, TheNameLivesInNodeMemory) {
    EXPECT_EQ(device->Info()->Name("20"), "VX-220 Room 2.14");
    device->Info()->SetName("4120", "Bench 3");
    EXPECT_EQ(ConnectAgain()->Info()->Name("20"), "Bench 3");
}

TEST_F(OverLonIp, CommandsReachTheNodeAndItsStatusComesBack) {
    EXPECT_TRUE(device->Command()->Keypress(0x0105));
    CommandStatusPtr status;
    device->Command()->UploadStatus(status);
    EXPECT_EQ(status->CmdType(), 7);
    EXPECT_TRUE(status->Status(0));  // accepted

    device->DownloadRequest(2, 1);  // RQ_DISABLED
    const auto objectStatus = device->UploadStatus();
    EXPECT_EQ(objectStatus->ObjectID(), 2);
    EXPECT_TRUE(objectStatus->Disabled());
}

TEST_F(OverLonIp, ALevel3DownloadSendsTheChecksumAndTheNodeRestarts) {
    device->Upload(kEveryCategory);
    Variable(1, "nciSetpoints")
        ->Element()
        ->SubElement({Variant("occupied_cool")})
        ->SetValue(0, Variant(24.5f));
    Variable(1, "nciFrostSetpt")->SetValue(Variant(6.0f));
    ASSERT_EQ(device->ConfigModificationLevel(), 3);
    device->Download(1, 1 | 2);
    device->Upload(kEveryCategory);  // closes the download and waits for the restart

    CommandStatusPtr status;
    device->Command()->UploadStatus(status);
    EXPECT_EQ(status->CmdType(), 4);  // the close
    EXPECT_TRUE(status->Status(0));   // accepted
    EXPECT_FALSE(status->Status(3));  // the checksum the library sent matches the values
    EXPECT_EQ(CStr(Variable(0, "nvoAlarmMessage")->Value()), "0 Normal");

    const auto again = ConnectAgain();
    const auto setpoints = again->ObjectByID(1)->VariableByName("nciSetpoints");
    EXPECT_EQ(CSng(setpoints->Element()->SubElement({Variant("occupied_cool")})->Value(0)), 24.5f);
}

}  // namespace
}  // namespace vx::lon
