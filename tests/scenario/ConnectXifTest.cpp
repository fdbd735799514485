// Connecting to real device interface files: the objects, profiles and bindings follow from the
// self-documentation the files carry, checked here against the files by hand.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "CDevice.h"
#include "SimulatedNode.h"
#include "XifReader.h"
#include "fixtures/ErrorMatchers.h"
#include "fixtures/Scenario.h"

namespace vx {
namespace {

using Bindings = std::map<std::int32_t, std::vector<std::string>>;

class ConnectXif : public ::testing::Test {
protected:
    test::ScopedStandardTypes standardTypes;

    static sim::SimulatedNodePtr Node(const std::string& file) {
        return sim::SimulatedNode::Create(
            sim::LoadXif(std::string(VX_SIM_DATA_DIR) + "/xif/" + file));
    }

    // Object ID -> the names of its variables, in binding order.
    static Bindings BindingsOf(const CDevice& device) {
        Bindings bindings;
        for (const auto& object : device.NewEnum()) {
            auto& names = bindings[object->ID()];
            for (const auto& variable : object->NewEnum()) {
                names.push_back(variable->Name());
            }
        }
        return bindings;
    }

    std::shared_ptr<CDevice> device = std::make_shared<CDevice>();
};

TEST_F(ConnectXif, MultiSensorBindsEightObjectsAndAPropertyOfANetworkVariable) {
    device->Connect(Node("6kEvbMultiSensor.XIF"), nullptr);

    EXPECT_EQ(BindingsOf(*device),
              (Bindings{
                  {0,
                   {"nciNetConfig", "nviRequest", "nviLightRemote", "nviTempRemote", "nvoStatus",
                    "nvoAlarm", "nvoAlarmRemote", "nvoFileDirectory"}},
                  {1, {"nviLamp_1", "nvoLampFb_1"}},
                  {2, {"nviLamp_2", "nvoLampFb_2"}},
                  {3, {"nviSwitchFb_1", "nvoSwitch_1"}},
                  {4, {"nviSwitchFb_2", "nvoSwitch_2"}},
                  {5, {"nciLowLightAlarm", "nvoLightLevel"}},
                  {6, {"nciHighTempAlarm", "nvoTemperature"}},
                  {7, {"nvoJoystick", "nciNvType"}},  // the property of variable 21 comes last
              }));
    // The profile list names its entries ("0NodeObject, 4[2Lamp, ..."): the first is no number,
    // so the listed objects keep profile 0 and the two beyond the list have none.
    EXPECT_EQ(device->Object(5)->Profile(), CDeviceObject::ProfileCode(0));
    EXPECT_EQ(device->Object(7)->Profile(), CDeviceObject::ProfileCode(-1));
    EXPECT_EQ(device->WellKnownVariable(kSlotObjectRequest)->Name(), "nviRequest");
    EXPECT_EQ(device->WellKnownVariable(kSlotObjectStatus)->Name(), "nvoStatus");
    EXPECT_EQ(device->WellKnownVariable(kSlotAlarm), nullptr);  // its alarm is no SNVT_alarm
    EXPECT_EQ(device->CommandChannel()->CommandVariable(), nullptr);
    EXPECT_EQ(device->ObjectByID(7)->VariableByName("nciNvType")->Category(), 2);
    EXPECT_EQ(device->ObjectByID(1)->VariableByName("nviLamp_1")->Category(), 512);
}

TEST_F(ConnectXif, VariablesWithoutSelfDocumentationStopTheConnectAfterTheDocumentedOnes) {
    const auto error = test::CaughtError([&] { device->Connect(Node("VAV_sim.XIF"), nullptr); });
    EXPECT_EQ(error.Number(), kErrSubscriptOutOfRange);
    EXPECT_TRUE(device->Connected());
    EXPECT_EQ(BindingsOf(*device),
              (Bindings{
                  {0, {"nviRequest", "nvoStatus", "nvoFileDirectory"}},
                  {1,
                   {"nviSpaceTemp", "nviSetptOffset", "nviApplicMode", "nviOccSensor",
                    "nviOutdoorTemp", "nviAirflow", "nvoSpaceTemp", "nvoUnitStatus",
                    "nvoEffectSetpt", "nvoEffectOccup", "nvoAirflow"}},
              }));
}

TEST_F(ConnectXif, SmallFilesConnectOrLackTheirMandatoryVariables) {
    device->Connect(Node("NM_DynamicC.xif"), nullptr);
    EXPECT_EQ(BindingsOf(*device), (Bindings{{0, {"nviRequest", "nvoStatus"}}}));

    EXPECT_EQ(
        test::CaughtError([&] { device->Connect(Node("bcastSwitch.xif"), nullptr); }).Description(),
        "Failed to find a mandatory Lonmark network variable: nviRequest");
    EXPECT_EQ(BindingsOf(*device), (Bindings{{0, {"nviValue", "nciDefault"}}}));
    EXPECT_TRUE(device->Connected());
}

}  // namespace
}  // namespace vx
