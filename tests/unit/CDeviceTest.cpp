#include "CDevice.h"

#include <gtest/gtest.h>

#include "CDeviceRevision.h"
#include "VxDef.h"
#include "fixtures/ErrorMatchers.h"
#include "fixtures/FakeConnection.h"
#include "fixtures/Scenario.h"
#include "interfaces/CommunicationCheck.h"
#include "interfaces/HostResources.h"
#include "interfaces/INodeVariable.h"

namespace vx {
namespace {

using test::FakeConnection;

constexpr std::int32_t kTypeObjRequest = 92;
constexpr std::int32_t kTypeObjStatus = 93;
constexpr std::int32_t kTypeTempP = 105;

class DeviceTest : public ::testing::Test {
protected:
    test::ScopedStandardTypes standardTypes;

    // A node with the two mandatory node-object variables and one functional block.
    static std::shared_ptr<FakeConnection> MinimalNode() {
        auto node = std::make_shared<FakeConnection>();
        node->selfDoc = "&3.4@0,8500;Room controller";
        node->AddVariable("nviRequest", "@0|1", kTypeObjRequest);
        node->AddVariable("nvoStatus", "@0|2", kTypeObjStatus);
        node->AddVariable("nvoSpaceTemp", "@1|1", kTypeTempP);
        return node;
    }

    std::shared_ptr<CDevice> device = std::make_shared<CDevice>();
};

std::vector<std::int32_t> ObjectIds(const CDevice& device) {
    std::vector<std::int32_t> ids;
    for (const auto& object : device.NewEnum()) {
        ids.push_back(object->ID());
    }
    return ids;
}

// ---- The object collection -------------------------------------------------------------------

TEST_F(DeviceTest, ObjectsTakeTheirProfilesFromTheNodeListAndExistOnlyWithVariables) {
    const auto node = MinimalNode();
    node->selfDoc = "&3.4@0, 8500 ,8010,8020;Controller";
    node->AddVariable("nvoFlow", "@5|1", 15);  // beyond the list
    device->Connect(node, nullptr);

    EXPECT_EQ(ObjectIds(*device), (std::vector<std::int32_t>{0, 1, 5}));
    EXPECT_EQ(device->Object(1)->Profile(), CDeviceObject::ProfileCode(8500));
    EXPECT_EQ(device->Object(5)->Profile(), CDeviceObject::ProfileCode(-1));
    EXPECT_EQ(device->Object(2), nullptr);  // listed, but nothing bound to it
    EXPECT_EQ(device->Object(0)->VariableCount(), 2);
}

TEST_F(DeviceTest, AProfileEntryThatIsNoNumberEndsTheListQuietly) {
    const auto node = MinimalNode();
    node->selfDoc = "&3.4@0,8500,x,8020;Controller";
    node->AddVariable("nvoA", "@2|1", kTypeTempP);
    node->AddVariable("nvoB", "@3|1", kTypeTempP);
    device->Connect(node, nullptr);

    EXPECT_EQ(device->Object(1)->Profile(), CDeviceObject::ProfileCode(8500));
    EXPECT_EQ(device->Object(3)->Profile(), CDeviceObject::ProfileCode(0));  // sized, not read
}

TEST_F(DeviceTest, ANodeTextWithoutProfileListFailsAtTheFirstObject) {
    // No "@", an empty list (which splits into no entries at all) and an empty text leave the
    // profile table without bounds.
    for (const char* selfDoc : {"Controller without a list", "&3.4@;x", "&3.4@", "&3.4@;", ""}) {
        const auto node = MinimalNode();
        node->selfDoc = selfDoc;
        EXPECT_COM_ERROR(device->Connect(node, nullptr), kErrSubscriptOutOfRange) << selfDoc;
        EXPECT_TRUE(device->Connected()) << selfDoc;
        EXPECT_TRUE(ObjectIds(*device).empty()) << selfDoc;
    }
    const auto node = MinimalNode();
    node->selfDoc = "&3.4@,8500;x";  // an empty first entry is no number: the list ends there
    device->Connect(node, nullptr);
    EXPECT_EQ(device->Object(1)->Profile(), CDeviceObject::ProfileCode(0));
}

TEST_F(DeviceTest, NodeWideItemsGoToObjectMinusOne) {
    const auto node = std::make_shared<FakeConnection>();
    node->selfDoc = "&3.4@0;no objects";
    node->AddVariable("nciRange", "&1,1-3,0,17", 0);
    node->AddVariable("nciNode", "&0,0,0,22", 0);
    EXPECT_COM_ERROR(device->Connect(node, nullptr), LibraryErrorNumber(kIdMissingLonmarkVariable));
    EXPECT_EQ(ObjectIds(*device), (std::vector<std::int32_t>{-1}));
    EXPECT_EQ(device->Object(-1)->Profile(), CDeviceObject::ProfileCode(-1));
    EXPECT_EQ(device->Object(-1)->VariableCount(), 2);
}

TEST_F(DeviceTest, PropertiesOfNetworkVariablesJoinTheObjectOfTheirVariable) {
    const auto node = MinimalNode();
    node->selfDoc = "&3.4@0,8500,8010;Controller";
    // A property listed before the variable it applies to (host index 4).
    node->AddVariable("nciSetpoint", "&2,4.1,0,17", 0);
    node->AddVariable("nvoFlow", "@2|1", 15);
    device->Connect(node, nullptr);

    const auto property = device->ObjectByID(2)->VariableByName("nciSetpoint");
    ASSERT_NE(property, nullptr);
    EXPECT_EQ(property->TagID(), 0);
    EXPECT_EQ(property->Category(), 2);
}

TEST_F(DeviceTest, APropertyOfAnUnknownNetworkVariableFailsTheConnect) {
    const auto node = MinimalNode();
    node->AddVariable("nciLost", "&2,40,0,17", 0);
    EXPECT_COM_ERROR(device->Connect(node, nullptr), kErrSubscriptOutOfRange);
}

TEST_F(DeviceTest, WellKnownSlotsTakeTheLastMatchInHostOrder) {
    const auto node = MinimalNode();
    node->AddVariable("nviRequest2", "@0|9", kTypeObjRequest);
    node->AddVariable("nviCommand", "@0#3001");
    node->AddVariable("nvoCommandStatus", "@0#3002");
    node->AddVariable("nvoOther", "@1#3001");  // not on the node object
    device->Connect(node, nullptr);

    EXPECT_EQ(device->WellKnownVariable(kSlotObjectRequest)->Name(), "nviRequest2");
    EXPECT_EQ(device->WellKnownVariable(kSlotObjectStatus)->Name(), "nvoStatus");
    EXPECT_EQ(device->WellKnownVariable(kSlotAlarm), nullptr);
    EXPECT_EQ(device->CommandChannel()->CommandVariable()->Name(), "nviCommand");
    EXPECT_EQ(device->CommandChannel()->StatusVariable()->Name(), "nvoCommandStatus");
    EXPECT_EQ(device->CommandChannel()->CrcProperty(), nullptr);
}

TEST_F(DeviceTest, ConfigurationItemsBindThroughTheRevisionAndStopQuietlyAtABadItem) {
    const auto node = MinimalNode();
    node->AddItem("3-1", "1|0|UCPT_CRC");
    node->AddItem("0-1", "1|105|");
    node->AddItem("bad");  // malformed name: the pass ends here
    node->AddItem("0-2", "1|105|");
    const auto revision = std::make_shared<CDeviceRevision>();
    revision->IdentifyFileType2Config(3, Variant(VariantArray(0, {Variant(1), Variant("nciCrc")})));
    revision->IdentifyFileType2Config(
        0,
        Variant(VariantArray(0, {Variant(1), Variant("nciHeat"), Variant(2), Variant("nciCool")})));
    device->Connect(node, revision);

    const auto object = device->ObjectByID(1);
    EXPECT_NE(object->VariableByName("nciHeat"), nullptr);
    EXPECT_EQ(device->CommandChannel()->CrcProperty()->Name(), "nciCrc");
    EXPECT_EQ(object->VariableCount(), 3);  // nvoSpaceTemp, nciCrc, nciHeat; not nciCool
}

// ---- Connect and Disconnect --------------------------------------------------------------------

TEST_F(DeviceTest, ConnectWithNothingRaises256AndLeavesTheOldObjects) {
    device->Connect(MinimalNode(), nullptr);
    const auto error = test::CaughtError([&] { device->Connect(nullptr, nullptr); });
    EXPECT_EQ(error.Number(), static_cast<std::int32_t>(0x80040100u));
    EXPECT_EQ(error.Source(), "Vx.CDevice.IOrvexDevice_Connect()");
    EXPECT_EQ(error.Description(), "Not a supported network services interface");
    EXPECT_FALSE(device->Connected());
    EXPECT_EQ(device->NewEnum().size(), 2u);
}

TEST_F(DeviceTest, AnObjectThatIsNoConnectionKeepsThePreviousConnection) {
    const auto node = MinimalNode();
    device->Connect(node, nullptr);
    EXPECT_COM_ERROR(device->Connect(std::make_shared<CDeviceRevision>(), nullptr),
                     kErrTypeMismatch);
    EXPECT_EQ(device->Connection(), node);
}

TEST_F(DeviceTest, MissingMandatoryVariablesRaise258AfterTheObjectsWereLoaded) {
    auto node = std::make_shared<FakeConnection>();
    node->AddVariable("nviRequest", "@0|1", kTypeObjRequest);
    node->AddVariable("nvoSpaceTemp", "@1|1", kTypeTempP);
    const auto error = test::CaughtError([&] { device->Connect(node, nullptr); });
    EXPECT_EQ(error.Number(), static_cast<std::int32_t>(0x80040102u));
    EXPECT_EQ(error.Description(),
              "Failed to find a mandatory Lonmark network variable: nvoStatus");
    EXPECT_TRUE(device->Connected());
    EXPECT_EQ(ObjectIds(*device), (std::vector<std::int32_t>{0, 1}));

    node = std::make_shared<FakeConnection>();
    node->AddVariable("nvoStatus", "@0|2", kTypeObjStatus);
    EXPECT_EQ(test::CaughtError([&] { device->Connect(node, nullptr); }).Description(),
              "Failed to find a mandatory Lonmark network variable: nviRequest");
}

TEST_F(DeviceTest, ReconnectRebuildsAndDisconnectEmptiesButKeepsTheLevel) {
    device->Connect(MinimalNode(), nullptr);
    const auto first = device->Object(1);
    const auto variable = device->ObjectByID(1)->VariableByName("nvoSpaceTemp");
    variable->SetConfigLevel(3);
    device->Modified(variable);
    device->Modified(device->ObjectByID(0)->VariableByName("nvoStatus"));  // level 0: no change
    EXPECT_EQ(device->ConfigModificationLevel(), 3);

    device->Connect(MinimalNode(), nullptr);
    EXPECT_NE(device->Object(1), first);
    const auto current = device->ObjectByID(1)->VariableByName("nvoSpaceTemp");

    device->Disconnect();
    EXPECT_FALSE(device->Connected());
    EXPECT_TRUE(device->NewEnum().empty());
    EXPECT_EQ(device->WellKnownVariable(kSlotObjectRequest), nullptr);
    EXPECT_EQ(device->CommandChannel()->CommandVariable(), nullptr);
    EXPECT_EQ(device->ConfigModificationLevel(), 3);
    EXPECT_EQ(current->Object(), nullptr);  // released: no back reference survives

    device->Connect(MinimalNode(), nullptr);
    EXPECT_EQ(ObjectIds(*device), (std::vector<std::int32_t>{0, 1}));
}

TEST_F(DeviceTest, ObjectLookupsReturnNothingForUnknownIdsAndTheFirstProfileMatch) {
    const auto node = MinimalNode();
    node->selfDoc = "&3.4@0,8500,8500;Two controllers";
    node->AddVariable("nvoSecond", "@2|1", kTypeTempP);
    device->Connect(node, nullptr);
    EXPECT_EQ(device->Object(5), nullptr);
    EXPECT_EQ(device->ProfileObject(CDeviceObject::ProfileCode(8500)), device->Object(1));
    EXPECT_EQ(device->ProfileObject(12345), nullptr);
}

TEST_F(DeviceTest, AdvancedConfigurationCollectsTheNamedVariablesPerObject) {
    const auto node = MinimalNode();
    node->AddVariable("nciHeat", "&1,1,0,105", kTypeTempP);
    device->Connect(node, nullptr);
    const auto revision = std::make_shared<CDeviceRevision>();
    revision->IdentifyAdvConfig(
        1, Variant(VariantArray(0, {Variant("nciHeat"), Variant(1), Variant("nvoStatus"),
                                    Variant(0), Variant("nvoSpaceTemp"), Variant(1)})));
    device->Connect(node, revision);

    const auto& lists = device->AdvancedConfigLists();
    ASSERT_EQ(lists.Count(), 1);
    std::vector<std::string> names;
    for (const auto& variable : lists.Item(std::string_view("1"))) {
        names.push_back(variable->Name());
    }
    EXPECT_EQ(names, (std::vector<std::string>{"nciHeat", "nvoStatus", "nvoSpaceTemp"}));

    revision->IdentifyAdvConfig(1, Variant(VariantArray(0, {Variant("nciHeat"), Variant(7)})));
    EXPECT_COM_ERROR(device->Connect(node, revision), kErrObjectNotSet);
    revision->IdentifyAdvConfig(1, Variant(VariantArray(0, {Variant("nciNone"), Variant(1)})));
    EXPECT_COM_ERROR(device->Connect(node, revision), LibraryErrorNumber(kIdVariableNotFound));
}

// ---- State and identity ------------------------------------------------------------------------

TEST_F(DeviceTest, StateFollowsNodeStateAndMode) {
    const auto node = MinimalNode();
    EXPECT_EQ(device->State(false, false), "Not Communicating");  // unconnected
    device->Connect(node, nullptr);
    const struct {
        std::int32_t state, mode;
        const char* text;
    } table[] = {
        {0, 1, "Unknown"},         {1, 1, "Unknown"},           {2, 1, "Unconfigured"},
        {3, 0, "Applicationless"}, {4, 1, "Configured/Online"}, {4, 0, "Configured/Offline"},
        {4, 2, "Unknown"},         {5, 1, "Unknown"},           {6, 0, "Hard Offline"},
        {6, 7, "Hard Offline"},    {7, 1, "Unknown"},
    };
    for (const auto& row : table) {
        node->nodeState = row.state;
        node->mode = row.mode;
        EXPECT_EQ(device->State(true, true), row.text) << row.state << "/" << row.mode;
    }
    node->networkError = test::HostTimeout();
    EXPECT_EQ(device->State(false, true), "Not Communicating");
    EXPECT_EQ(node->messages.back(), "51:0000:1");
}

TEST_F(DeviceTest, StateOfAnUnconnectedDeviceThatACheckCallsCommunicatingIsObjectNotSet) {
    struct Answering final : CommunicationCheck {
        bool IsCommunicating(const NodeConnectionPtr&) override { return true; }
    };
    const auto previous = InstallCommunicationCheck(std::make_shared<Answering>());
    EXPECT_COM_ERROR(device->State(false, false), kErrObjectNotSet);
    device->Connect(MinimalNode(), nullptr);
    device->Disconnect();
    EXPECT_COM_ERROR(device->State(false, false), kErrObjectNotSet);
    InstallCommunicationCheck(previous);
}

TEST_F(DeviceTest, IdentityTextsAreEmptyWithoutAConnection) {
    EXPECT_EQ(device->ProgID(), "");
    EXPECT_EQ(device->MfgID(), "");
    EXPECT_EQ(device->SelfDoc(), "");
    EXPECT_EQ(device->Revision(), "");
    EXPECT_COM_ERROR(device->NeuronID(), kErrObjectNotSet);
}

TEST_F(DeviceTest, IdentityTextsOfAConnectedNode) {
    const auto node = MinimalNode();
    device->Connect(node, nullptr);
    EXPECT_EQ(device->NeuronID(), "01-02-03-04-05-A6");
    EXPECT_EQ(device->ProgID(), "90000D0A14050400");
    EXPECT_EQ(device->MfgID(), "13");

    node->programId = "91A5A50A14050400";
    EXPECT_EQ(device->MfgID(), "Orvex");
    node->programId = "4F52564558320000";  // a text program ID: "ORVEX2"
    EXPECT_EQ(device->ProgID(), "ORVEX2");
    node->programId = "A000000000000000";
    EXPECT_COM_ERROR(device->ProgID(), kErrTypeMismatch);

    node->neuronId = "0102030405A6F";  // odd length: the last digit is lost
    EXPECT_EQ(device->NeuronID(), "01-02-03-04-05-A6");

    node->selfDocError = test::HostTimeout();
    EXPECT_EQ(device->SelfDoc(), "");
}

TEST_F(DeviceTest, RevisionIsWhatFollowsTheHostsMarker) {
    const auto node = MinimalNode();
    device->Connect(node, nullptr);
    EXPECT_EQ(device->Revision(), "");
    node->selfDoc = "&3.4@0,8500;VX-220, Orvex firmware version 2.10";
    EXPECT_EQ(device->Revision(), "2.10");

    struct ShortMarker final : HostResources {
        std::string Text(std::int32_t) override { return "Acme"; }
        std::string RevisionText(std::int32_t) override { return "rev "; }
    };
    const auto previous = InstallHostResources(std::make_shared<ShortMarker>());
    node->selfDoc = "&3.4@0;rev " + std::string(19, '.') + "X";
    EXPECT_EQ(device->Revision(), "X");  // always 23 characters past the marker's start
    node->programId = "91A5A50A14050400";
    EXPECT_EQ(device->MfgID(), "Acme");
    InstallHostResources(previous);
}

TEST_F(DeviceTest, WithoutRequestAndStatusVariablesObjectRequestsDoNothing) {
    device->DownloadRequest(1, 2);  // nothing to write to, nothing raised
    const auto status = device->UploadStatus();
    EXPECT_EQ(status->ObjectID(), 0);
    EXPECT_FALSE(status->InAlarm());
    EXPECT_FALSE(device->Wink());
    EXPECT_COM_ERROR(device->Ping(), kErrObjectNotSet);
    EXPECT_COM_ERROR(device->ReadMemoryText("4120"), kErrObjectNotSet);
    EXPECT_COM_ERROR(device->WriteMemoryText("x", "4120"), kErrObjectNotSet);
    EXPECT_EQ(device->Info()->Name("20"), "");  // the name members test for a connection
}

TEST_F(DeviceTest, TheDirectorySearchGivesAnEmptyTextWhenTheHostCannotListOrNameAVariable) {
    const auto node = MinimalNode();
    const auto directory = node->AddVariable("nvoFileDirectory", "@0|5");
    directory->value = test::HostBytes({0x00, 0x41, 0x00});  // the directory at 4100
    device->Connect(node, nullptr);
    // The fake node answers a read with the request's own bytes: "00" gives the entry's first
    // four digits.
    EXPECT_EQ(device->ResolveSCPTLocation("00"), "0041");

    struct Unnamed final : INodeVariable {
        bool nameFails = true;
        std::string Name() const override {
            if (nameFails) throw test::HostTimeout();
            return "nvoOther";
        }
        std::int16_t Index() const override { return 9; }
        std::string SelfDoc() const override { return {}; }
        std::int32_t TypeIndex() const override { return 0; }
        std::string SelfDocName() const override { throw test::HostTimeout(); }
        std::int32_t ByteLength() const override { return 0; }
        bool IsOutput() const override { return true; }
        Variant ReadValue() override { return {}; }
        void WriteValue(const Variant&) override {}
    };
    const auto unnamed = std::make_shared<Unnamed>();
    node->networkVariables->items.push_back(unnamed);
    EXPECT_EQ(device->ResolveSCPTLocation("00"), "") << "a name the host cannot give";
    unnamed->nameFails = false;
    EXPECT_EQ(device->ResolveSCPTLocation("00"), "") << "a second name the host cannot give";
}

TEST(VxDefTest, EachDeviceIsNewAndUnconnected) {
    const VxDef factory;
    const auto first = factory.CreateDeviceManager();
    EXPECT_NE(first, factory.CreateDeviceManager());
    EXPECT_FALSE(first->Connected());
    EXPECT_EQ(first->Info()->State(false, false), "Not Communicating");
    EXPECT_EQ(factory.CreateDeviceRevision()->Info()->CRCVarCount(1), 0);
}

}  // namespace
}  // namespace vx
