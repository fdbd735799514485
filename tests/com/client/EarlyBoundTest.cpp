// Vtable calls, as a compiled host makes them: connect, walk the objects, read and write values.
#include <windows.h>

#include <ole2.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Cases.h"
#include "Check.h"
#include "Com.h"

namespace cases {
namespace {

using client::Bstr;
using client::Ptr;
using client::Var;

// Every item an enumerator gives, fetched `batch` at a time so that a short last batch is met.
std::vector<Ptr<IDispatch>> Enumerate(const Ptr<IUnknown>& enumerator, ULONG batch) {
    const auto items = enumerator.As<IEnumVARIANT>(IID_IEnumVARIANT);
    REQUIRE(items);
    std::vector<Ptr<IDispatch>> found;
    for (;;) {
        std::vector<VARIANT> slots(batch);
        for (auto& slot : slots)
            VariantInit(&slot);
        ULONG fetched = 0;
        const HRESULT result = items->Next(batch, slots.data(), &fetched);
        CHECK_HR(result, fetched == batch ? S_OK : S_FALSE);
        for (ULONG i = 0; i < fetched; ++i) {
            CHECK_EQ(V_VT(&slots[i]), VT_DISPATCH);
            Ptr<IDispatch> item;
            if (V_VT(&slots[i]) == VT_DISPATCH && V_DISPATCH(&slots[i])) {
                V_DISPATCH(&slots[i])->QueryInterface(IID_IDispatch, item.PutVoid());
            }
            found.push_back(item);
            VariantClear(&slots[i]);
        }
        if (result != S_OK || fetched == 0) break;
    }
    return found;
}

std::vector<LONG> ObjectIDs(IOrvexDevice* device) {
    Ptr<IUnknown> enumerator;
    REQUIRE_OK(device->get_NewEnum(enumerator.Put()));
    std::vector<LONG> ids;
    for (const auto& item : Enumerate(enumerator, 3)) {
        const auto object = item.As<IOrvexLonObject>(IID_IOrvexLonObject);
        LONG id = -99;
        if (object) object->get_ID(&id);
        ids.push_back(id);
    }
    return ids;
}

}  // namespace

void EarlyBound() {
    const auto made = client::ConnectDefault();
    VARIANT_BOOL connected = VARIANT_FALSE;
    CHECK_OK(made.device->get_Connected(&connected));
    CHECK_EQ(connected, VARIANT_TRUE);

    // The default controller's objects in the order they were made, the node-wide one last.
    CHECK_EQ(ObjectIDs(made.device.Get()), (std::vector<LONG>{0, 1, 2, -1}));

    const auto room = client::ObjectOf(made.device.Get(), 1);
    LONG count = 0;
    CHECK_OK(room->get_VariableCount(&count));
    Ptr<IUnknown> enumerator;
    REQUIRE_OK(room->get_NewEnum(enumerator.Put()));
    std::vector<std::wstring> names;
    for (const auto& item : Enumerate(enumerator, 4)) {
        const auto variable = item.As<IOrvexVariable>(IID_IOrvexVariable);
        Bstr name;
        if (variable) variable->get_Name(name.Put());
        names.push_back(name.Text());
    }
    CHECK_EQ(static_cast<LONG>(names.size()), count);
    const auto has = [&](const wchar_t* name) {
        return std::find(names.begin(), names.end(), name) != names.end();
    };
    CHECK(has(L"nviSetpoint"));
    CHECK(has(L"nciFrostSetpt"));  // an item, named through the revision the node filled

    // Each value crosses as the automation type its type description gives.
    Var value;
    const auto spaceTemp = client::VariableOf(room.Get(), L"nvoSpaceTemp");
    CHECK_OK(spaceTemp->get_Value(value.Put()));
    CHECK_EQ(V_VT(value.Get()), VT_R4);  // a scaled temperature, 0x0857 hundredths
    CHECK_EQ(V_R4(value.Get()), 21.35f);
    CHECK_OK(client::VariableOf(room.Get(), L"nvoEffectOccup")->get_Value(value.Put()));
    CHECK_EQ(V_VT(value.Get()), VT_I4);  // an enumeration
    CHECK_EQ(V_I4(value.Get()), 0);
    CHECK_OK(client::VariableOf(made.device.Get(), 0, L"nvoAlarmMessage")->get_Value(value.Put()));
    REQUIRE(V_VT(value.Get()) == VT_BSTR);
    CHECK_EQ(std::wstring(V_BSTR(value.Get())), std::wstring(L"0 Normal"));
    short index = -1;
    CHECK_OK(spaceTemp->get_NvIndex(&index));
    CHECK_EQ(index, 12);

    // A value written reads back at once and reaches the node with the download.
    const auto setpoint = client::VariableOf(room.Get(), L"nviSetpoint");
    Var written;
    V_VT(written.Get()) = VT_R4;
    V_R4(written.Get()) = 22.5f;
    CHECK_OK(setpoint->put_Value(*written));
    CHECK_OK(setpoint->get_Value(value.Put()));
    CHECK(V_VT(value.Get()) == VT_R4 && V_R4(value.Get()) == 22.5f);
    CHECK_EQ(client::NodeValue(made.node.Get(), L"nviSetpoint"), std::wstring(L"7FFF"));
    CHECK_OK(setpoint->Download(0, VARIANT_FALSE));
    CHECK_EQ(client::NodeValue(made.node.Get(), L"nviSetpoint"), std::wstring(L"08CA"));

    CHECK_OK(made.device->Disconnect());
    CHECK_OK(made.device->get_Connected(&connected));
    CHECK_EQ(connected, VARIANT_FALSE);
}

// The device class's own interface: the conversions early bound, beside the device's members on
// the same object and the same IDispatch.
void DeviceConversions() {
    const auto made = client::ConnectDefault();
    const auto own = made.device.As<_CDevice>(IID__CDevice);
    REQUIRE(own);
    CHECK(client::IdentityOf(own.Get()) == client::IdentityOf(made.device.Get()));
    const auto supports = own.As<ISupportErrorInfo>(IID_ISupportErrorInfo);
    REQUIRE(supports);
    CHECK_OK(supports->InterfaceSupportsErrorInfo(IID__CDevice));

    FLOAT single = 0;
    CHECK_OK(own->PIUnsignedTwoBytesToSingle(1, 2, &single));
    CHECK_EQ(single, 258.0f);
    CHECK_OK(own->PIUnsignedTwoBytesToSingle(0x12, 0xAB, &single));
    CHECK_EQ(single, 4779.0f);

    // Bytes 0, 15, 16 and 255 from lower bound 1: two upper-case digits each.
    SAFEARRAYBOUND bound{4, 1};
    Var bytes;
    V_VT(bytes.Get()) = VT_ARRAY | VT_UI1;
    V_ARRAY(bytes.Get()) = SafeArrayCreate(VT_UI1, 1, &bound);
    REQUIRE(V_ARRAY(bytes.Get()));
    const BYTE values[] = {0, 15, 16, 255};
    for (LONG index = 1; index <= 4; ++index) {
        BYTE value = values[index - 1];
        SafeArrayPutElement(V_ARRAY(bytes.Get()), &index, &value);
    }
    Bstr hex;
    CHECK_OK(own->PIConvertBinaryToHexString(*bytes, hex.Put()));
    CHECK_EQ(hex.Text(), std::wstring(L"000F10FF"));
    Var text;
    V_VT(text.Get()) = VT_BSTR;
    V_BSTR(text.Get()) = SysAllocString(L"000F");
    CHECK_OK(own->PIConvertBinaryToHexString(*text, hex.Put()));
    CHECK_EQ(hex.Text(), std::wstring());

    // Whichever interface a host holds, the device's IDispatch knows every member.
    CHECK_EQ(client::DispIdOf(made.device.Get(), L"PIUnsignedTwoBytesToSingle"), 17);
    CHECK_EQ(client::DispIdOf(made.device.Get(), L"PIConvertBinaryToHexString"), 18);
    CHECK_EQ(client::DispIdOf(own.Get(), L"Connect"), 2);
    VARIANT_BOOL connected = VARIANT_FALSE;
    CHECK_OK(own->get_Connected(&connected));
    CHECK_EQ(connected, VARIANT_TRUE);
}

}  // namespace cases
