#include "DefaultController.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <set>
#include <sstream>

#include "CDevice.h"
#include "CDeviceObject.h"
#include "CDeviceRevision.h"
#include "NodeJson.h"
#include "SimulatedNode.h"
#include "TypeRegistry.h"
#include "VxDef.h"
#include "automation/Clock.h"
#include "automation/Conversions.h"
#include "fixtures/ErrorMatchers.h"
#include "interfaces/HostResources.h"
#include "interfaces/IOrvexVariableIdentity.h"

namespace vx::sim {
namespace {

const std::string kDataDir = std::string(VX_SIM_DATA_DIR) + "/";

std::string FileText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

// The host's name of a variable or of a configuration item named by the revision.
std::string HostName(const std::string& name) {
    for (const auto& item : DefaultRevision().itemNames) {
        if (item.name == name) return std::to_string(item.scope) + "-" + std::to_string(item.index);
    }
    return name;
}

std::vector<std::uint8_t> ValueOf(const SimulatedNode& node, const std::string& name) {
    const std::string host = HostName(name);
    return host == name ? node.VariableValue(name) : node.ConfigItemValue(host);
}

TEST(SimDefaultController, BuiltInFilesAreTheShippedOnes) {
    EXPECT_EQ(DefaultControllerJson(), FileText(kDataDir + "orvex-vx220.json"));
    EXPECT_EQ(DefaultRevisionJson(), FileText(kDataDir + "orvex-vx220.revision.json"));
    EXPECT_EQ(DefaultController(), LoadNodeJson(kDataDir + "orvex-vx220.json"));

    const auto node = DefaultController();
    EXPECT_EQ(node.programId.substr(0, 6), "91A5A5");  // a standard program ID of the family
    EXPECT_EQ(node.nodeState, 4);
    EXPECT_EQ(node.mode, 1);
    EXPECT_EQ(node.selfDoc.substr(0, 17), "&3.4@0,8500,8010;");
}

TEST(SimDefaultController, EveryValueHasTheSizeOfItsType) {
    const auto types = TypeRegistry::Standard();
    const auto node = DefaultController();
    for (const auto& variable : node.variables) {
        if (variable.typeIndex == 0) continue;
        const auto type = types->TypeByIndex(variable.typeIndex);
        ASSERT_TRUE(type) << variable.name;
        EXPECT_EQ(variable.value.size(), static_cast<std::size_t>(type->ByteSize()))
            << variable.name;
    }
    for (const auto& item : node.configItems) {
        const auto fields = [&] {
            std::vector<std::string> pieces;
            std::stringstream layout(item.layout);
            for (std::string piece; std::getline(layout, piece, '|');)
                pieces.push_back(piece);
            return pieces;
        }();
        ASSERT_GE(fields.size(), 3u) << item.name;
        const auto type = item.name == "3-1"         ? types->TypeByName("UCPT_CRC")
                          : item.name == "3-2"       ? types->TypeByName("UCPTdeviceConfig")
                          : std::stoi(fields[1]) > 0 ? types->TypeByIndex(std::stoi(fields[1]))
                                                     : nullptr;
        if (!type) continue;  // an item without a type
        EXPECT_EQ(item.value.size(), static_cast<std::size_t>(type->ByteSize())) << item.name;
        if (std::stoi(fields[1]) > 0) {
            EXPECT_EQ(fields[2], type->TypeName()) << item.name;
        }
    }
}

TEST(SimDefaultController, ChecksumItemHoldsTheChecksumOfTheControllerBlock) {
    const auto node = SimulatedNode::Create(DefaultController());
    const auto registry = std::make_shared<CDeviceRevision>();
    ApplyDefaultRevision(*registry);
    ASSERT_GT(registry->CRCVarCount(1), 0);

    std::array<std::uint8_t, 2> state = {255, 255};
    std::vector<std::string> covered;
    for (std::int32_t i = 1; i <= registry->CRCVarCount(1); ++i) {
        const auto entry = registry->CRCVar(1, i);
        CDeviceObject::CrcUpdate(state, ValueOf(*node, entry->Name()));
        covered.push_back(HostName(entry->Name()));
    }
    // The node checks the same list at the end of a configuration download.
    EXPECT_EQ(node->Description().checksumItem, HostName("nciConfigCRC"));
    EXPECT_EQ(node->Description().checksumCovers, covered);
    const std::vector<std::uint8_t> checksum = {static_cast<std::uint8_t>(255 - state[0]),
                                                static_cast<std::uint8_t>(255 - state[1])};
    EXPECT_EQ(node->ConfigItemValue("3-1"), checksum);
}

class SimDefaultControllerConnected : public ::testing::Test {
protected:
    void SetUp() override { m_previousTypes = InstallTypeRegistry(TypeRegistry::Standard()); }
    void TearDown() override { InstallTypeRegistry(m_previousTypes); }

    TypeRegistryPtr m_previousTypes;
};

TEST_F(SimDefaultControllerConnected, TheLibraryConnectsWithEveryNameTheRevisionGives) {
    const VxDef factory;
    const auto device = factory.CreateDeviceManager();
    const auto revision = factory.CreateDeviceRevision();
    ApplyDefaultRevision(*revision);
    const auto node = SimulatedNode::Create(DefaultController());
    ASSERT_NO_THROW(device->Connect(node, revision));

    const auto info = device->Info();
    EXPECT_EQ(info->Revision(), "2.10");
    EXPECT_EQ(info->MfgID(), CurrentHostResources()->Text(kTextFamilyManufacturer));
    EXPECT_EQ(info->State(false, false), "Configured/Online");
    EXPECT_EQ(info->NeuronID(), "05-01-3C-7A-1F-02");

    ASSERT_TRUE(device->Object(1) && device->Object(2));
    EXPECT_EQ(device->Object(1)->Profile(), CDeviceObject::ProfileCode(8500));
    EXPECT_EQ(device->Object(2)->Profile(), CDeviceObject::ProfileCode(8010));
    EXPECT_EQ(device->Object(1)->Variable("nciDeviceConfig")->ConfigLevel(), 2);
    EXPECT_EQ(device->Object(1)->Variable("nciRcvHrtBt")->ConfigLevel(), 3);  // via nviSpaceTemp
    EXPECT_EQ(device->Object(2)->Variable("nciDriveTime")->ConfigLevel(), 3);
    EXPECT_TRUE(device->Object(-1)->Variable("nciServicePin"));
    EXPECT_FLOAT_EQ(CSng(device->Object(1)->Variable("nvoSpaceTemp")->Value()), 21.35f);

    node->SetMode(0);
    EXPECT_EQ(info->State(false, false), "Configured/Offline");
    node->SetAnswering(false);
    EXPECT_EQ(info->State(false, false), "Not Communicating");
}

// The library's own requests, commands and checksum, as the node takes them.
TEST_F(SimDefaultControllerConnected, TheLibrarysOperationsReachTheNodeAsItMeansThem) {
    const auto clock = std::make_shared<VirtualClock>();  // the library pauses around phases
    const ScopedClock installed(clock);
    const auto device = std::make_shared<CDevice>();
    const auto revision = VxDef().CreateDeviceRevision();
    ApplyDefaultRevision(*revision);
    const auto node = SimulatedNode::Create(DefaultController());
    device->Connect(node, revision);

    EXPECT_TRUE(device->Ping());
    EXPECT_EQ(device->Name("20"), "VX-220 Room 2.14");
    EXPECT_TRUE(device->Wink());
    EXPECT_EQ(node->WinkCount(), 1);

    // A level-3 download: the checksum the library writes on opening is the node's at closing.
    const auto heartbeat = device->Object(1)->Variable("nciSndHrtBt");
    heartbeat->SetValue(Variant(30.0f));
    const auto command = device->Command();
    ASSERT_TRUE(command->OpenConfigDownload(3, 1));
    EXPECT_EQ(node->Commands().downloadLevel, 3);
    heartbeat->Download(3, false);
    EXPECT_EQ(node->VariableValue("nciSndHrtBt"), (std::vector<std::uint8_t>{0x01, 0x2C}));
    ASSERT_TRUE(command->CloseConfigDownload(3));
    EXPECT_EQ(node->Commands().closes, 1);
    EXPECT_FALSE(node->Commands().checksumMismatch);
    EXPECT_EQ(node->ConfigItemValue("3-1"), node->CoveredChecksum());

    EXPECT_TRUE(command->ResetMemory(1));  // the library's reset code is the node's
    EXPECT_EQ(node->VariableValue("nvoCommandStatus"), (std::vector<std::uint8_t>{12, 0x11, 0, 0}));
    EXPECT_EQ(node->VariableValue("nciSndHrtBt"), (std::vector<std::uint8_t>{0x02, 0x58}));

    device->DownloadRequest(2, 1);
    EXPECT_EQ(node->ObjectRequests(), (std::vector<ObjectRequest>{{2, 1}}));
    EXPECT_EQ(node->ObjectFlags(2), kObjDisabled);
}

TEST_F(SimDefaultControllerConnected, SyntheticControllersConnectToo) {
    const auto description = SyntheticController(300, 40);
    ASSERT_EQ(description.variables.size(), 300u);
    ASSERT_EQ(description.configItems.size(), 40u);
    EXPECT_EQ(description, SyntheticController(300, 40));
    // 298 variables in blocks of 16: 19 blocks after the node object.
    const auto profiles = description.selfDoc.substr(0, description.selfDoc.find(';'));
    EXPECT_EQ(std::count(profiles.begin(), profiles.end(), ','), 19);

    const VxDef factory;
    const auto device = factory.CreateDeviceManager();
    ASSERT_NO_THROW(device->Connect(SimulatedNode::Create(description), nullptr));
    EXPECT_EQ(device->NewEnum().size(), 20u);  // the node object and the blocks
    std::int32_t variables = 0;
    for (const auto& object : device->NewEnum())
        variables += object->VariableCount();
    EXPECT_EQ(variables, 300);  // unnamed configuration items stay unbound

    EXPECT_COM_ERROR(SyntheticController(1, 0), kErrInvalidProcedureCall);
    EXPECT_COM_ERROR(SyntheticController(10, -1), kErrInvalidProcedureCall);
}

}  // namespace
}  // namespace vx::sim
