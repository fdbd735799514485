#include "CDeviceVariable.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "CDeviceObject.h"
#include "CDeviceRevision.h"
#include "CDeviceVariableIdentity.h"
#include "ErrorSupport.h"
#include "automation/Conversions.h"
#include "fixtures/ErrorMatchers.h"
#include "fixtures/FakeDevice.h"
#include "fixtures/FakeHost.h"
#include "fixtures/FakeRegistry.h"
#include "fixtures/FakeTypes.h"

namespace vx {
namespace {

using test::FakeConfigItem;
using test::FakeDevice;
using test::FakeNodeVariable;
using test::HostBytes;

// A 16-bit unsigned integer type.
std::shared_ptr<test::FakeTypedef> Word(std::string name, std::int32_t index = 0) {
    auto type = std::make_shared<test::FakeTypedef>();
    type->name = std::move(name);
    type->index = index;
    type->bits = 16;
    type->maximum = 65535;
    return type;
}

class DeviceVariableTest : public ::testing::Test {
protected:
    test::ScopedTypeRegistry registry;
    std::shared_ptr<FakeDevice> device = std::make_shared<FakeDevice>();

    DeviceVariablePtr Make(const ObjectPtr& record, VariableBinding* binding = nullptr) {
        auto variable = std::make_shared<CDeviceVariable>();
        const auto bound = variable->InitVariable(device, record, device);
        if (binding) *binding = bound;
        return variable;
    }
    static std::shared_ptr<FakeNodeVariable> Nv(std::string name, std::string selfDoc,
                                                std::int32_t typeIndex = 0) {
        return std::make_shared<FakeNodeVariable>(std::move(name), std::move(selfDoc), typeIndex);
    }
};

// ---- Model -------------------------------------------------------------------------------------

TEST_F(DeviceVariableTest, NetworkVariableNameCategoryAndNumbers) {
    registry->AddIndex(81, Word("SNVT_count", 81));
    auto record = Nv("Temp", "@1|3003;nvoTemp, text", 81);
    record->index = 12;
    VariableBinding binding;
    const auto variable = Make(record, &binding);
    EXPECT_EQ(variable->Name(), "nvoTemp");
    EXPECT_EQ(variable->NvIndex(), 12);
    EXPECT_EQ(variable->Category(), kCategoryOutputNv);
    EXPECT_EQ(variable->ConfigLevel(), 0);
    EXPECT_EQ(variable->MemberGroup(), 3);
    EXPECT_EQ(variable->MemberNumber(), 3);
    EXPECT_EQ(variable->ScopeCode(), 10);
    EXPECT_EQ(binding.objectIndex, 1);
    EXPECT_TRUE(binding.bound);
    EXPECT_EQ(variable->Typedef()->TypeName(), "SNVT_count");
    EXPECT_EQ(device->progIDReads, 0);  // a type found by index needs no name lookup
}

TEST_F(DeviceVariableTest, InputIsTakenFromTheSelfDocumentationWithoutRegardToCase) {
    EXPECT_EQ(Make(Nv("nviTemp", "@1|1;NVI temp"))->Category(), kCategoryInputNv);
    EXPECT_EQ(Make(Nv("x", "@1|1;nviTemp"))->Category(), kCategoryInputNv);
    // The host's name alone does not make an input.
    EXPECT_EQ(Make(Nv("nviRequest", "@0|1"))->Category(), kCategoryOutputNv);
    EXPECT_EQ(Make(Nv("nciSet", "&1,1,0,17"))->Category(), kCategoryConfigProperty);
}

TEST_F(DeviceVariableTest, ConfigLevelsMoveNetworkVariablesInAndOutOfTheProperties) {
    const auto input = Make(Nv("nviTemp", "@1|1;nvi"));
    input->SetConfigLevel(2);
    EXPECT_EQ(input->Category(), kCategoryConfigProperty);
    EXPECT_EQ(input->ConfigLevel(), 2);
    input->SetConfigLevel(0);
    EXPECT_EQ(input->Category(), kCategoryInputNv);
    const auto output = Make(Nv("nvoTemp", "@1|2"));
    output->SetConfigLevel(3);
    output->SetConfigLevel(0);
    EXPECT_EQ(output->Category(), kCategoryOutputNv);

    const auto item = Make(std::make_shared<FakeConfigItem>("3-1"));
    item->SetConfigLevel(0);
    EXPECT_EQ(item->ConfigLevel(), 1);
    EXPECT_EQ(item->Category(), kCategoryConfigItem);
}

TEST_F(DeviceVariableTest, TypeByNameTriesTheProgramIDFirst) {
    device->progID = "9FFFFF0501040401";
    registry->AddName("nvoTemp9FFFFF0501040401", Word("special"));
    registry->AddName("nvoTemp", Word("shared"));
    registry->AddName("nvoOther", Word("shared other"));
    EXPECT_EQ(Make(Nv("nvoTemp", "@1|1", 999))->Typedef()->TypeName(), "special");
    EXPECT_EQ(Make(Nv("nvoOther", "@1|1"))->Typedef()->TypeName(), "shared other");
    EXPECT_EQ(Make(Nv("nvoNone", "@1|1"))->Typedef(), nullptr);
}

TEST_F(DeviceVariableTest, ConfigurationItemsAreNamedByTheRevision) {
    registry->AddName("UCPT_CRC", Word("UCPT_CRC"));
    registry->AddName("UCPTdeviceConfig", Word("UCPTdeviceConfig"));
    VariableBinding binding;
    const auto unnamed = Make(std::make_shared<FakeConfigItem>("3-1"), &binding);
    EXPECT_EQ(unnamed->Name(), "3-1");
    EXPECT_FALSE(binding.bound);
    EXPECT_EQ(binding.objectIndex, -1);
    EXPECT_EQ(unnamed->Typedef()->TypeName(), "UCPT_CRC");

    const auto revision = std::make_shared<CDeviceRevision>();
    revision->IdentifyFileType2Config(
        3, Variant(VariantArray(0, {std::int32_t{2}, "nciDeviceConfig"})));
    device->revision = revision;
    const auto named = Make(std::make_shared<FakeConfigItem>("3-2", "1|0|"), &binding);
    EXPECT_EQ(named->Name(), "nciDeviceConfig");
    EXPECT_EQ(named->ItemName(), "3-2");
    EXPECT_TRUE(binding.bound);
    EXPECT_EQ(binding.objectIndex, 1);
    EXPECT_EQ(named->Category(), kCategoryConfigItem);
    EXPECT_EQ(named->ConfigLevel(), 1);
    EXPECT_EQ(named->ScopeCode(), 3);
    EXPECT_EQ(named->MemberGroup(), 3);
    EXPECT_EQ(named->MemberNumber(), 2);
    EXPECT_EQ(named->Typedef()->TypeName(), "UCPTdeviceConfig");
}

TEST_F(DeviceVariableTest, KindZeroItemsTakeTheirTypeFromTheirLayout) {
    registry->AddIndex(17, Word("by index", 17));
    registry->AddName("UCPTlocal", Word("by name"));
    EXPECT_EQ(
        Make(std::make_shared<FakeConfigItem>("0-4", "2|17|UCPTlocal"))->Typedef()->TypeName(),
        "by index");
    EXPECT_EQ(Make(std::make_shared<FakeConfigItem>("0-5", "2|0|UCPTlocal"))->Typedef()->TypeName(),
              "by name");
    EXPECT_EQ(Make(std::make_shared<FakeConfigItem>("4-1", "2|17|UCPTlocal"))->Typedef(), nullptr);
}

TEST_F(DeviceVariableTest, MalformedHostRecordsRaisePlatformErrors) {
    EXPECT_COM_ERROR(Make(std::make_shared<FakeConfigItem>("31")), kErrSubscriptOutOfRange);
    EXPECT_COM_ERROR(Make(std::make_shared<FakeConfigItem>("a-1")), kErrTypeMismatch);
    EXPECT_COM_ERROR(Make(std::make_shared<FakeConfigItem>("3-1", "1|2")), kErrSubscriptOutOfRange);
    EXPECT_COM_ERROR(Make(std::make_shared<CDeviceVariableIdentity>()), kErrTypeMismatch);
}

TEST_F(DeviceVariableTest, OfflineVariablesAreSizedByTheirType) {
    registry->AddName("nvoFlow", Word("flow"));
    auto flow = std::make_shared<CDeviceVariable>();
    flow->InitOffline("nvoFlow");
    EXPECT_EQ(flow->Category(), kCategoryOutputNv);
    EXPECT_EQ(flow->ConfigLevel(), 0);
    EXPECT_EQ(flow->ValueBuffer()->GetBytes(), ByteArray(0, {0, 0}));
    EXPECT_EQ(flow->DeviceBuffer()->GetBytes(), ByteArray(0, {0, 0}));
    EXPECT_EQ(CLng(flow->Value()), 0);

    auto other = std::make_shared<CDeviceVariable>();
    other->InitOffline("abc");
    EXPECT_EQ(other->Category(), kCategoryConfigItem);
    EXPECT_EQ(other->ConfigLevel(), 1);
    EXPECT_FALSE(other->ValueBuffer()->IsLoaded());
    auto capitals = std::make_shared<CDeviceVariable>();
    capitals->InitOffline("NVIx");  // the prefix test is case-sensitive
    EXPECT_EQ(capitals->Category(), kCategoryConfigItem);
    auto input = std::make_shared<CDeviceVariable>();
    input->InitOffline("nviX");
    EXPECT_EQ(input->Category(), kCategoryInputNv);
}

// ---- Transfer ----------------------------------------------------------------------------------

TEST_F(DeviceVariableTest, UploadFillsBothBuffersAndClearsTheModifiedFlag) {
    registry->AddIndex(81, Word("count", 81));
    const auto record = Nv("nvoCount", "@1|1", 81);
    record->value = HostBytes({0x01, 0x02});
    const auto variable = Make(record);
    EXPECT_EQ(CLng(variable->Value()), 0x0102);  // the first read loads the value
    EXPECT_EQ(record->reads, 1);
    EXPECT_EQ(variable->DeviceBuffer()->GetBytes(), ByteArray(0, {0x01, 0x02}));

    variable->SetValue(Variant(std::int32_t{0x0304}));
    EXPECT_TRUE(variable->IsModified());
    ASSERT_EQ(device->modified.size(), 1u);
    EXPECT_EQ(device->modified[0].get(), variable.get());
    EXPECT_EQ(variable->DeviceBuffer()->GetBytes(), ByteArray(0, {0x01, 0x02}));

    variable->Download(127, false);
    ASSERT_EQ(record->written.size(), 1u);
    EXPECT_EQ(record->written[0], HostBytes({0x03, 0x04}));
    EXPECT_EQ(variable->DeviceBuffer()->GetBytes(), ByteArray(0, {0x03, 0x04}));
    EXPECT_TRUE(variable->IsModified());  // only an upload clears it

    record->value = HostBytes({0x00, 0x09});
    variable->Upload();
    EXPECT_FALSE(variable->IsModified());
    EXPECT_EQ(CLng(variable->Value()), 9);
    EXPECT_EQ(variable->DeviceBuffer()->GetBytes(), ByteArray(0, {0x00, 0x09}));
}

TEST_F(DeviceVariableTest, DownloadWritesOnlyModifiedOrForcedNetworkVariables) {
    const auto record = Nv("nvoCount", "@1|1");
    record->value = HostBytes({7});
    const auto variable = Make(record);
    variable->Upload();
    variable->Download(127, false);
    EXPECT_TRUE(record->written.empty());
    variable->Download(2147483647, true);
    EXPECT_EQ(record->written.size(), 1u);

    const auto item = std::make_shared<FakeConfigItem>("3-1");
    item->value = HostBytes({1});
    const auto itemVariable = Make(item);
    itemVariable->Upload();
    itemVariable->Download(127, true);
    EXPECT_TRUE(item->written.empty());
}

TEST_F(DeviceVariableTest, AnyFailedReadIsReportedAsALoadTimeout) {
    const auto record = Nv("nvoCount", "@1|1");
    record->value = HostBytes({1});
    const auto variable = Make(record);
    variable->Upload();
    variable->ValueBuffer()->SetBytes(ByteArray(0, {2}));
    ASSERT_TRUE(variable->IsModified());

    record->readError = ComError(kErrObjectNotSet, "Host", "Object variable not set");
    const ComError error = test::CaughtError([&] { variable->Upload(); });
    EXPECT_EQ(error.Number(), static_cast<std::int32_t>(0x80040301));
    EXPECT_EQ(error.Source(), "Vx.CDeviceVariable.Upload()");
    EXPECT_EQ(error.Description(), "Variable load from device timeout");
    EXPECT_TRUE(variable->IsModified());
    EXPECT_EQ(variable->DeviceBuffer()->GetBytes(), ByteArray(0, {1}));

    record->readError.reset();
    record->value = Variant("not bytes");
    EXPECT_COM_ERROR(variable->Upload(), LibraryErrorNumber(kIdVariableLoadTimeout));
}

TEST_F(DeviceVariableTest, DownloadPassesHostErrorsUnchanged) {
    const auto record = Nv("nvoCount", "@1|1");
    record->value = HostBytes({1});
    const auto variable = Make(record);
    variable->Upload();
    variable->ValueBuffer()->SetBytes(ByteArray(0, {2}));
    record->writeError = ComError(-2147220000, "Host.Write", "no answer");
    const ComError error = test::CaughtError([&] { variable->Download(127, false); });
    EXPECT_EQ(error.Number(), -2147220000);
    EXPECT_EQ(error.Source(), "Host.Write");
    EXPECT_EQ(variable->DeviceBuffer()->GetBytes(), ByteArray(0, {1}));
}

TEST_F(DeviceVariableTest, ConfigurationItemsWriteThroughAndFollowTheDeviceEvents) {
    registry->AddName("UCPT_CRC", Word("UCPT_CRC"));
    const auto item = std::make_shared<FakeConfigItem>("3-1");
    item->value = HostBytes({0x12, 0x34});
    const auto variable = Make(item);
    const auto network = Nv("nvoCount", "@1|1");
    network->value = HostBytes({5});
    const auto networkVariable = Make(network);

    variable->SetValue(Variant(std::int32_t{0x1235}));
    EXPECT_EQ(item->reads, 1);
    ASSERT_EQ(item->written.size(), 1u);  // at once, without a download
    EXPECT_EQ(item->written[0], Variant(ByteArray(0, {0x12, 0x35})));
    ASSERT_EQ(device->modified.size(), 1u);

    device->afterDownload.Raise();
    EXPECT_EQ(variable->DeviceBuffer()->GetBytes(), ByteArray(0, {0x12, 0x35}));
    EXPECT_FALSE(networkVariable->DeviceBuffer()->IsLoaded());

    item->value = HostBytes({0x00, 0x01});
    device->afterUpload.Raise();
    EXPECT_EQ(item->reads, 2);
    EXPECT_EQ(network->reads, 0);  // network variables ignore both events
    EXPECT_EQ(CLng(variable->Value()), 1);
}

TEST_F(DeviceVariableTest, AVariableWithNothingToReadStaysUnloaded) {
    auto variable = std::make_shared<CDeviceVariable>();
    variable->InitOffline("nvoUnknown");
    variable->Upload();  // no host record: nothing is read, nothing fails
    EXPECT_FALSE(variable->ValueBuffer()->IsLoaded());
    EXPECT_FALSE(variable->DeviceBuffer()->IsLoaded());
    EXPECT_FALSE(variable->ValueBuffer()->GetBytes().IsAllocated());
}

// ---- Lifetime ----------------------------------------------------------------------------------

TEST_F(DeviceVariableTest, AReleasedVariableKeepsNeitherItsObjectNorItsDeviceAlive) {
    registry->AddName("nvoCount", Word("count"));
    auto record = Nv("nvoCount", "@1|1");
    record->value = HostBytes({1});
    const auto variable = Make(record);
    auto object = device->AddObject(1);
    object->AddVariable(variable);
    EXPECT_EQ(variable->Object(), object);

    std::weak_ptr<CDeviceObject> weakObject = object;
    std::weak_ptr<FakeDevice> weakDevice = device;
    std::weak_ptr<FakeNodeVariable> weakRecord = record;
    object->ReleaseObject();
    object.reset();
    device.reset();
    EXPECT_TRUE(weakObject.expired());
    EXPECT_TRUE(weakDevice.expired());
    EXPECT_EQ(variable->Object(), nullptr);

    // The buffer no longer reaches the variable, and the variable no longer holds the record.
    EXPECT_COM_ERROR(variable->Value(), LibraryErrorNumber(kIdBufferLoadFailed));
    EXPECT_EQ(record->reads, 0);
    record.reset();
    EXPECT_TRUE(weakRecord.expired());
}

}  // namespace
}  // namespace vx
