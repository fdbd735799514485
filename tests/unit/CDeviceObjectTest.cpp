#include "CDeviceObject.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "CDeviceRevision.h"
#include "CDeviceVariableIdentity.h"
#include "ErrorSupport.h"
#include "fixtures/ErrorMatchers.h"
#include "fixtures/FakeDevice.h"
#include "fixtures/FakeHost.h"
#include "fixtures/FakeRegistry.h"

namespace vx {
namespace {

using test::FakeDevice;
using test::FakeNodeVariable;
using test::HostBytes;

Variant List(std::vector<Variant> values) {
    return Variant(VariantArray(0, std::move(values)));
}

class DeviceObjectTest : public ::testing::Test {
protected:
    test::ScopedTypeRegistry registry;  // knows no type
    std::shared_ptr<FakeDevice> device = std::make_shared<FakeDevice>();

    // A network variable of the object whose host value is `bytes`.
    DeviceVariablePtr AddNv(const DeviceObjectPtr& object, const std::string& name,
                            std::vector<std::uint8_t> bytes = {},
                            const std::string& selfDoc = "@1|1") {
        auto record = std::make_shared<FakeNodeVariable>(name, selfDoc);
        record->value = HostBytes(std::move(bytes));
        auto variable = std::make_shared<CDeviceVariable>();
        variable->InitVariable(device, record, device);
        object->AddVariable(variable);
        return variable;
    }
};

TEST(DeviceObjectProfiles, CodesAndLabels) {
    const std::vector<std::pair<std::int32_t, std::int32_t>> codes = {
        {8500, 1},  {8599, 1},  {8600, 2},  {8699, 2},  {8700, 0},  {8499, 0},
        {8020, 3},  {8030, 4},  {8040, 5},  {8050, 0},  {8051, 6},  {8060, 7},
        {8070, 8},  {8080, 9},  {8090, 10}, {8010, 11}, {8110, 12}, {8200, 0},
        {8201, 13}, {8205, 17}, {8209, 21}, {8210, 0},  {0, 0},     {-1, 0}};
    for (const auto& [number, code] : codes) {
        EXPECT_EQ(CDeviceObject::ProfileCode(number), code) << number;
    }
    EXPECT_EQ(CDeviceObject::ProfileLabel(1), "Profile type A");
    EXPECT_EQ(CDeviceObject::ProfileLabel(21), "Profile type U");
    EXPECT_EQ(CDeviceObject::ProfileLabel(0), "");
    EXPECT_EQ(CDeviceObject::ProfileLabel(22), "");

    const auto device = std::make_shared<FakeDevice>();
    const auto object = device->AddObject(2, 8050);
    EXPECT_EQ(object->ID(), 2);
    EXPECT_EQ(object->Profile(), 0);
    EXPECT_EQ(object->ProfileName(), "");
    EXPECT_EQ(device->AddObject(3, 8205)->ProfileName(), "Profile type Q");
}

TEST_F(DeviceObjectTest, VariablesAreKeyedWithoutRegardToCaseAndTheFirstOfANameStays) {
    const auto object = device->AddObject(1);
    const auto first = AddNv(object, "nviTemp");
    const auto second = AddNv(object, "NVITEMP");
    EXPECT_EQ(object->VariableCount(), 1);
    EXPECT_EQ(object->Variable("nvitemp"), first);
    EXPECT_EQ(second->Object(), object);  // owned by the object all the same
    const auto third = AddNv(object, "nvoTemp");
    const auto all = object->NewEnum();
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0], first);
    EXPECT_EQ(all[1], third);
}

TEST_F(DeviceObjectTest, UnknownNamesFailWhileConnectedAndAreMadeWhileNot) {
    const auto object = device->AddObject(2);
    AddNv(object, "nviTemp");
    const ComError error = test::CaughtError([&] { object->Variable("nvoMissing"); });
    EXPECT_EQ(error.Number(), static_cast<std::int32_t>(0x80040201));
    EXPECT_EQ(error.Description(), "nvoMissing not found on object 2");
    EXPECT_EQ(error.Source(), "Vx.CDeviceObjectIOrvexLonObject_Variable.()");
    EXPECT_EQ(object->VariableCount(), 1);

    device->connected = false;
    const auto made = object->Variable("nvoMissing");
    EXPECT_EQ(made->Name(), "nvoMissing");
    EXPECT_EQ(made->Category(), kCategoryOutputNv);
    EXPECT_EQ(made->Object(), object);
    EXPECT_EQ(object->VariableCount(), 2);
    EXPECT_EQ(object->Variable("NVOMISSING"), made);
    EXPECT_EQ(object->VariableCount(), 2);
}

TEST_F(DeviceObjectTest, RevisionSetsConfigLevelsAndTheChecksumList) {
    const auto object = device->AddObject(1);
    const auto temp = AddNv(object, "nviTemp", {}, "@1|1;nvi");
    const auto setpoint = AddNv(object, "nciSetpoint");
    const auto limit = AddNv(object, "nciLimit");
    setpoint->SetConfigLevel(3);

    const auto revision = std::make_shared<CDeviceRevision>();
    revision->IdentifyOrvexConfig(1, 2, List({"NCILIMIT"}));
    revision->IdentifyOrvexCRCalculation(1, List({"nciLimit", std::int32_t{0}}));
    object->ApplyRevision(*revision);
    EXPECT_EQ(temp->ConfigLevel(), 0);  // level 0 stays
    EXPECT_EQ(temp->Category(), kCategoryInputNv);
    EXPECT_EQ(setpoint->ConfigLevel(), 1);  // any other level falls back to 1 first
    EXPECT_EQ(limit->ConfigLevel(), 2);
    EXPECT_EQ(limit->Category(), kCategoryConfigProperty);
    ASSERT_EQ(object->CrcList().UBound(), 1);
    EXPECT_EQ(object->CrcList()(1), limit);

    // A revision naming a variable the node does not have fails as the lookup does.
    revision->IdentifyOrvexConfig(1, 3, List({"nciNowhere"}));
    EXPECT_COM_ERROR(object->ApplyRevision(*revision), LibraryErrorNumber(kIdVariableNotFound));
}

TEST_F(DeviceObjectTest, ChecksumIsX25OverTheListedValuesInOrder) {
    const auto node = device->AddObject(0);
    const auto object = device->AddObject(1);
    const auto first = AddNv(object, "nciFirst", {'1', '2', '3', '4'});
    first->SetConfigLevel(3);
    AddNv(node, "nciSecond", {'5', '6', '7', '8', '9'});

    // A revision whose checksum list takes its second entry from another object, and which
    // fails to give level lists (those levels are skipped).
    struct CrossRevision final : IOrvexDeviceRevision {
        std::int32_t CRCVarCount(std::int32_t) const override { return 2; }
        VariableIdentityPtr CRCVar(std::int32_t, std::int32_t index) const override {
            auto identity = std::make_shared<CDeviceVariableIdentity>();
            identity->Init(index == 1 ? "nciFirst" : "nciSecond", index == 1 ? 1 : 0);
            return identity;
        }
        Variant ConfigVarlist(std::int32_t, std::int32_t) const override {
            RaiseRuntimeError(kErrInvalidProcedureCall);
        }
        std::string FileType2Config(std::int32_t, std::int32_t) const override { return {}; }
        AdvancedConfigPtr AdvConfig(std::int32_t) const override { return nullptr; }
    };
    object->ApplyRevision(CrossRevision{});
    EXPECT_EQ(first->ConfigLevel(), 1);
    EXPECT_EQ(object->ComputeCrc(), ByteArray(0, {0x6E, 0x90}));
}

TEST_F(DeviceObjectTest, ChecksumFailures) {
    const auto object = device->AddObject(4);
    const ComError error = test::CaughtError([&] { object->ComputeCrc(); });
    EXPECT_EQ(error.Number(), static_cast<std::int32_t>(0x80040200));
    EXPECT_EQ(error.Description(), "No CRC list found for object 4");
    EXPECT_EQ(error.Source(), "Vx.CDeviceObject.CRC()");

    // Variables that hold no bytes leave the register at its start: the checksum is (0, 0).
    device->connected = false;
    const auto revision = std::make_shared<CDeviceRevision>();
    revision->IdentifyOrvexCRCalculation(4, List({"a", std::int32_t{0}, "b", std::int32_t{0}}));
    object->ApplyRevision(*revision);
    EXPECT_EQ(object->ComputeCrc(), ByteArray(0, {0, 0}));

    // An unregistered list leaves the one already there.
    object->ApplyRevision(CDeviceRevision{});
    EXPECT_EQ(object->CrcList().UBound(), 2);

    // After release the list holds one empty entry, which raises.
    object->ReleaseObject();
    EXPECT_EQ(object->VariableCount(), 0);
    EXPECT_COM_ERROR(object->ComputeCrc(), kErrObjectNotSet);
}

}  // namespace
}  // namespace vx
