// Connecting to the family's default controller with its revision, as a service tool does first.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "CDevice.h"
#include "DefaultController.h"
#include "SimulatedNode.h"
#include "VxDef.h"
#include "fixtures/Scenario.h"

namespace vx {
namespace {

using Bindings = std::map<std::int32_t, std::vector<std::string>>;

std::vector<std::string> Names(const std::vector<DeviceVariablePtr>& variables) {
    std::vector<std::string> names;
    for (const auto& variable : variables) {
        names.push_back(variable->Name());
    }
    return names;
}

class ConnectDefault : public ::testing::Test {
protected:
    test::ScopedStandardTypes standardTypes;
    void SetUp() override {
        const VxDef factory;
        revision = factory.CreateDeviceRevision();
        sim::ApplyDefaultRevision(*revision);
        device->Connect(node, revision);
    }

    sim::SimulatedNodePtr node = sim::SimulatedNode::Create(sim::DefaultController());
    std::shared_ptr<CDevice> device = std::make_shared<CDevice>();
    DeviceRevisionIdentifyPtr revision;
};

TEST_F(ConnectDefault, ObjectsAndBindingsFollowTheSelfDocumentation) {
    Bindings bindings;
    std::vector<std::int32_t> order;
    for (const auto& object : device->Objects().NewEnum()) {
        order.push_back(object->ID());
        bindings[object->ID()] = Names(object->Variables());
    }
    EXPECT_EQ(order, (std::vector<std::int32_t>{0, 1, 2, -1}));
    EXPECT_EQ(bindings[0],
              (std::vector<std::string>{"nviRequest", "nvoStatus", "nvoAlarmMessage",
                                        "nvoFileDirectory", "nviCommand", "nvoCommandStatus"}));
    EXPECT_EQ(bindings[1],
              (std::vector<std::string>{
                  "nviSpaceTemp",   "nviSetpoint",     "nviSetptOffset", "nviOccManCmd",
                  "nviApplicMode",  "nviFanSpeedCmd",  "nvoSpaceTemp",   "nvoUnitStatus",
                  "nvoEffectSetpt", "nvoEffectOccup",  "nvoFanSpeed",    "nvoTerminalLoad",
                  "nciSndHrtBt",    "nciMinOutTm",     "nciSetpoints",   "nciHvacType",
                  "nciRcvHrtBt",  // a property of nviSpaceTemp, placed after the variables
                  "nciConfigCRC",   "nciDeviceConfig", "nciFrostSetpt",  "nciTempOffset"}));
    EXPECT_EQ(bindings[2], (std::vector<std::string>{
                               "nviEmergCmd", "nviCO2", "nviDuctInTemp", "nvoFlowControlPt",
                               "nvoBoxFlow", "nvoDamperPos", "nciMinFlow", "nciMaxFlow",
                               "nciNomFlow", "nciMinFlowHeat", "nciDuctArea", "nciDriveTime"}));
    EXPECT_EQ(bindings[-1], (std::vector<std::string>{"nciServicePin"}));

    EXPECT_EQ(device->ProfileObject(CDeviceObject::ProfileCode(8010)), device->Object(2));
    const auto controller = device->ObjectByID(1);
    EXPECT_EQ(controller->VariableByName("nviSpaceTemp")->Category(), 256);
    EXPECT_EQ(controller->VariableByName("nvoSpaceTemp")->Category(), 512);
    EXPECT_EQ(controller->VariableByName("nciSetpoints")->Category(), 2);
    EXPECT_EQ(controller->VariableByName("nciDeviceConfig")->Category(), 1);
}

TEST_F(ConnectDefault, TheDeviceKnowsItsWellKnownVariablesAndAdvancedConfiguration) {
    EXPECT_EQ(device->WellKnownVariable(kSlotObjectRequest)->Name(), "nviRequest");
    EXPECT_EQ(device->WellKnownVariable(kSlotObjectStatus)->Name(), "nvoStatus");
    EXPECT_EQ(device->CommandChannel()->CommandVariable()->Name(), "nviCommand");
    EXPECT_EQ(device->CommandChannel()->StatusVariable()->Name(), "nvoCommandStatus");
    EXPECT_EQ(device->CommandChannel()->CrcProperty()->Name(), "nciConfigCRC");

    const auto& lists = device->AdvancedConfigLists();
    ASSERT_EQ(lists.Count(), 1);
    EXPECT_EQ(Names(lists.Item(std::string_view("2"))),
              (std::vector<std::string>{"nciMinFlow", "nciMaxFlow", "nciMinFlowHeat",
                                        "nciDriveTime", "nciDeviceConfig"}));
    EXPECT_EQ(device->ObjectByID(1)->CrcList().Count(), 7u);
}

TEST_F(ConnectDefault, DisconnectAndReconnectGiveTheSameModel) {
    const auto before = device->Objects().Count();
    device->Disconnect();
    EXPECT_FALSE(device->Connected());
    EXPECT_EQ(device->Info()->ProgID(), "");
    device->Connect(node, revision);
    EXPECT_EQ(device->Objects().Count(), before);
    EXPECT_EQ(device->Info()->ProgID(), node->ProgramIDText());
}

}  // namespace
}  // namespace vx
