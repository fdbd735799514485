// Device commands, object requests and the name in node memory against the default controller,
// checked as the simulated controller receives them, byte for byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "CDevice.h"
#include "DefaultController.h"
#include "SimErrors.h"
#include "SimulatedNode.h"
#include "VxDef.h"
#include "XifReader.h"
#include "automation/Clock.h"
#include "fixtures/ErrorMatchers.h"
#include "fixtures/Scenario.h"

namespace vx {
namespace {

using Bytes = std::vector<std::uint8_t>;
using test::Frame;

class Commands : public ::testing::Test {
protected:
    test::ScopedStandardTypes standardTypes;
    void SetUp() override { Connect(sim::DefaultController()); }

    void Connect(sim::NodeDescription description) {
        node = sim::SimulatedNode::Create(std::move(description));
        const auto revision = VxDef().CreateDeviceRevision();
        sim::ApplyDefaultRevision(*revision);
        device = std::make_shared<CDevice>();
        device->Connect(node, revision);
        node->ClearRecord();
    }

    // The values written to one variable or item since the record was cleared.
    std::vector<Bytes> Writes(const std::string& target) const {
        std::vector<Bytes> writes;
        for (const auto& exchange : node->Exchanges()) {
            if (exchange.operation == "WriteValue" && exchange.target == target) {
                writes.push_back(exchange.request);
            }
        }
        return writes;
    }

    std::shared_ptr<VirtualClock> clock = std::make_shared<VirtualClock>();
    ScopedClock clockGuard{clock};
    sim::SimulatedNodePtr node;
    std::shared_ptr<CDevice> device;
};

TEST_F(Commands, EveryCommandGoesOutAsItsFrame) {
    const auto command = device->Command();
    EXPECT_TRUE(command->SendAllScan());
    EXPECT_TRUE(command->ResetTimer(0x0102, 0x0304));
    EXPECT_TRUE(command->Keypress(0xABCD));
    EXPECT_TRUE(command->DisableKeypad());
    EXPECT_TRUE(command->EnableKeypad());
    EXPECT_TRUE(command->ClearLog(7));
    EXPECT_TRUE(command->GenericCommand(0x20, Variant(ByteArray(0, {1, 2, 3}))));
    EXPECT_TRUE(command->GenericCommand(
        0x21, Variant(ByteArray(1, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}))));
    EXPECT_TRUE(command->GenericCommand(0x22, Variant(VariantArray(0, {Variant(9), Variant(8)}))));

    EXPECT_EQ(node->CommandFrames(),
              (std::vector<Bytes>{
                  Frame({5}),
                  Frame({6, 0x01, 0x02, 0x03, 0x04}),
                  Frame({7, 0xAB, 0xCD}),
                  Frame({8}),
                  Frame({9}),
                  Frame({10, 7}),
                  Frame({0x20, 1, 2, 3}),  // padded with zeros to ten data bytes
                  Frame({0x21, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}),  // cut at ten
                  Frame({0x22, 9, 8}),
              }));
    EXPECT_EQ(clock->SleptMilliseconds(), 0u);
    EXPECT_TRUE(node->Commands().keypadEnabled);  // disabled, then enabled again
}

TEST_F(Commands, AByteOutsideItsRangeSendsNothing) {
    EXPECT_COM_ERROR(device->Command()->ClearLog(300), kErrOverflow);
    EXPECT_COM_ERROR(device->Command()->GenericCommand(256, Variant(ByteArray(0, {1}))),
                     kErrOverflow);
    EXPECT_COM_ERROR(device->Command()->GenericCommand(1, Variant(std::string("1"))),
                     kErrTypeMismatch);
    EXPECT_TRUE(node->CommandFrames().empty());
}

TEST_F(Commands, ResetMemoryCarriesTheCodeOfThisNodesNeuronId) {
    // Neuron ID 05 01 3C 7A 1F 02: 05^02, 01^1F, 3C^7A, and the sum of all six mod 256.
    EXPECT_TRUE(device->Command()->ResetMemory(1));
    EXPECT_EQ(node->CommandFrames(), (std::vector<Bytes>{Frame({12, 1, 0x07, 0x1E, 0x46, 0xDD})}));
    EXPECT_EQ(node->Commands().restarts, 1);  // the node took the code

    CommandStatusPtr status;
    device->Command()->UploadStatus(status);
    EXPECT_EQ(status->CmdType(), 12);
    EXPECT_TRUE(status->Status(0));   // accepted
    EXPECT_FALSE(status->Status(1));  // not rejected
}

TEST_F(Commands, TheConfigurationPhaseOpensWithItsChecksumAndClosesAfterAPause) {
    const auto command = device->Command();
    EXPECT_FALSE(command->OpenConfigDownload(1, 1));
    EXPECT_FALSE(command->CloseConfigDownload(1));
    EXPECT_EQ(clock->SleptMilliseconds(), 0u);  // refused at once, no pause

    EXPECT_TRUE(command->OpenConfigDownload(2, 1));
    EXPECT_EQ(clock->SleptMilliseconds(), 1000u);
    EXPECT_TRUE(Writes("3-1").empty());  // level 2 sends no checksum
    // A checksum that did not change is not written again: the node holds it already.
    EXPECT_TRUE(command->OpenConfigDownload(3, 1));
    EXPECT_TRUE(Writes("3-1").empty());

    // A changed heartbeat changes the checksum; the node, given the same heartbeat, agrees.
    const Bytes heartbeat{0x04, 0xB0};
    device->ObjectByID(1)
        ->VariableByName("nciSndHrtBt")
        ->ValueBuffer()
        ->SetBytes(ByteArray(0, heartbeat));
    node->SetVariableValue("nciSndHrtBt", heartbeat);
    EXPECT_TRUE(command->OpenConfigDownload(3, 1));
    EXPECT_EQ(clock->SleptMilliseconds(), 3000u);
    EXPECT_EQ(node->CommandFrames(),
              (std::vector<Bytes>{Frame({3, 2, 1}), Frame({3, 3, 1}), Frame({3, 3, 1})}));
    EXPECT_EQ(Writes("3-1"), (std::vector<Bytes>{node->CoveredChecksum()}));
    EXPECT_EQ(node->Commands().downloadLevel, 3);

    EXPECT_TRUE(command->CloseConfigDownload(3));
    EXPECT_EQ(clock->SleptMilliseconds(), 4000u);
    EXPECT_EQ(node->CommandFrames().back(), Frame({4, 3}));
    EXPECT_FALSE(node->Commands().checksumMismatch);
    EXPECT_TRUE(node->Commands().restarting);

    // A checksum over values the node does not hold is caught when the phase closes.
    device->ObjectByID(1)
        ->VariableByName("nciMinOutTm")
        ->ValueBuffer()
        ->SetBytes(ByteArray(0, {0x00, 0x07}));
    EXPECT_TRUE(command->OpenConfigDownload(3, 1));
    EXPECT_TRUE(command->CloseConfigDownload(3));
    EXPECT_TRUE(node->Commands().checksumMismatch);
}

TEST_F(Commands, ANodeWithoutCommandVariablesSendsNothingAndStillPauses) {
    node = sim::SimulatedNode::Create(
        sim::LoadXif(std::string(VX_SIM_DATA_DIR) + "/xif/NM_DynamicC.xif"));
    device->Connect(node, nullptr);
    const auto command = device->Command();
    EXPECT_FALSE(command->SendAllScan());
    EXPECT_FALSE(command->OpenConfigDownload(3, 0));
    EXPECT_FALSE(command->ResetMemory(1));
    EXPECT_EQ(clock->SleptMilliseconds(), 0u);
    EXPECT_FALSE(command->CloseConfigDownload(2));
    EXPECT_EQ(clock->SleptMilliseconds(), 1000u);

    CommandStatusPtr status;
    EXPECT_COM_ERROR(command->UploadStatus(status),
                     LibraryErrorNumber(kIdMissingCommandStatusVariable));
    ASSERT_NE(status, nullptr);  // handed out before the error
    EXPECT_EQ(status->CmdType(), 0);
}

TEST_F(Commands, Level3WithoutAChecksumPropertyRaises1026AfterTheCommandWentOut) {
    auto description = sim::DefaultController();
    std::erase_if(description.configItems, [](const auto& item) { return item.name == "3-1"; });
    description.checksumItem.clear();
    description.checksumCovers.clear();
    Connect(description);

    const auto error = test::CaughtError([&] { device->Command()->OpenConfigDownload(3, 1); });
    EXPECT_EQ(error.Number(), LibraryErrorNumber(kIdMissingCrcProperty));
    EXPECT_EQ(error.Source(), "Vx.OrvexCommand.IOrvexCommand_OpenConfigDownload()");
    EXPECT_EQ(node->CommandFrames(), (std::vector<Bytes>{Frame({3, 3, 1})}));
    EXPECT_EQ(clock->SleptMilliseconds(), 0u);
}

// ---- Object requests ---------------------------------------------------------------------------

TEST_F(Commands, ObjectRequestsAreAnsweredInTheStatusRecord) {
    node->SetObjectFlags(1, sim::kObjInAlarm);
    device->DownloadRequest(1, 2);  // update status
    EXPECT_EQ(Writes("nviRequest"), (std::vector<Bytes>{{0x00, 0x01, 0x02}}));
    auto status = device->UploadStatus();
    EXPECT_EQ(status->ObjectID(), 1);
    EXPECT_TRUE(status->InAlarm());
    EXPECT_FALSE(status->Disabled());

    device->DownloadRequest(1, 1);     // disable
    EXPECT_FALSE(status->Disabled());  // the record shows the buffer as last uploaded
    status = device->UploadStatus();
    EXPECT_TRUE(status->Disabled());

    device->DownloadRequest(9, 2);
    EXPECT_TRUE(device->UploadStatus()->InvalidId());
    EXPECT_EQ(node->ObjectRequests().size(), 3u);
}

// ---- Name and memory ---------------------------------------------------------------------------

TEST_F(Commands, TheNameRoundTripsThroughNodeMemory) {
    const auto info = device->Info();
    EXPECT_EQ(info->Name("20"), "VX-220 Room 2.14");  // through the file directory
    EXPECT_EQ(info->Name("4120"), "VX-220 Room 2.14");

    info->SetName("4120", "Boiler room east");
    EXPECT_EQ(info->Name("20"), "Boiler room east");
    std::string stored(30, ' ');
    stored.replace(0, 16, "Boiler room east");
    Bytes expected(stored.begin(), stored.end());
    expected.push_back(0);
    EXPECT_EQ(node->MemoryBytes(0x4120, 31), expected);

    const std::string longName = "Air handling unit 3, plant room B";  // 33 characters
    info->SetName("4120", longName + "..");
    EXPECT_EQ(info->Name("4120"), longName.substr(0, 30));
    EXPECT_EQ(node->MemoryBytes(0x4120 + 30, 1), Bytes{0});

    // The setter takes the location as an address: "20" writes at 0x2020, not through the
    // directory.
    info->SetName("20", "Elsewhere");
    EXPECT_EQ(node->MemoryBytes(0x2020, 9), Bytes({'E', 'l', 's', 'e', 'w', 'h', 'e', 'r', 'e'}));
    EXPECT_EQ(info->Name("20"), longName.substr(0, 30));
}

TEST_F(Commands, TheFileDirectoryResolvesLocations) {
    EXPECT_EQ(device->ResolveSCPTLocation("20"), "4120");
    EXPECT_EQ(device->ResolveSCPTLocation("00"), "4100");  // the entry as it stands

    node = sim::SimulatedNode::Create(
        sim::LoadXif(std::string(VX_SIM_DATA_DIR) + "/xif/NM_DynamicC.xif"));
    device->Connect(node, nullptr);
    EXPECT_EQ(device->ResolveSCPTLocation("20"), "");  // no directory variable
    EXPECT_EQ(device->Info()->Name("20"), "");
}

TEST_F(Commands, AVariableListTheHostCannotGiveResolvesToNothing) {
    node->InjectFault({.operation = "NetworkVariables", .count = 1});
    EXPECT_EQ(device->ResolveSCPTLocation("20"), "");
    EXPECT_EQ(device->ResolveSCPTLocation("20"), "4120") << "the fault was for one call";

    // The name reads at the empty address it was given, which fails quietly; the search is not
    // tried again.
    node->InjectFault({.operation = "NetworkVariables", .count = 1});
    EXPECT_EQ(device->Info()->Name("20"), "");
    EXPECT_EQ(device->Info()->Name("20"), "VX-220 Room 2.14");
}

TEST_F(Commands, ACommandSetUpThatFailsDoesNotStopTheConnect) {
    node->InjectFault({.operation = "ReadValue",
                       .target = "nvoCommandStatus",
                       .kind = sim::FaultKind::kNoAnswer,
                       .count = sim::kFaultAlways});
    device->Connect(node, nullptr);  // the status upload fails with 769, which is let pass
    EXPECT_TRUE(device->Connected());
    EXPECT_EQ(device->CommandChannel()->StatusVariable()->Name(), "nvoCommandStatus");
}

TEST_F(Commands, FailingExchangesGiveEmptyResultsAndRaiseNothing) {
    const auto info = device->Info();
    node->InjectFault({.operation = "SendNetworkMessage",
                       .target = "6D",
                       .kind = sim::FaultKind::kFailureResponse,
                       .count = sim::kFaultAlways});
    EXPECT_EQ(info->Name("20"), "");
    EXPECT_EQ(info->Name("4120"), "");
    node->ClearFaults();

    node->InjectFault({.operation = "SendNetworkMessage",
                       .target = "6E",
                       .kind = sim::FaultKind::kNoAnswer,
                       .count = 1});
    info->SetName("4120", "lost");
    EXPECT_EQ(info->Name("4120"), "VX-220 Room 2.14");

    node->SetAnswering(false);
    EXPECT_FALSE(device->Ping());
    EXPECT_FALSE(device->Wink());
    EXPECT_EQ(info->State(false, true), "Not Communicating");
    EXPECT_EQ(info->Name("20"), "");
    info->SetName("4120", "nobody hears");
    node->SetAnswering(true);
    EXPECT_TRUE(device->Ping());
    EXPECT_TRUE(device->Wink());
    EXPECT_EQ(node->WinkCount(), 1);
}

}  // namespace
}  // namespace vx
