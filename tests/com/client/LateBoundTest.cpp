// IDispatch calls, as scripting hosts make them, and the error information both kinds of caller
// receive.
#include <windows.h>

#include <ole2.h>

#include <string>

#include "Cases.h"
#include "Check.h"
#include "Com.h"

namespace cases {
namespace {

using client::Bstr;
using client::Invoke;
using client::Ptr;
using client::Var;

constexpr HRESULT kUnsupportedConnection = static_cast<HRESULT>(0x80040100u);
constexpr HRESULT kTypeMismatch = static_cast<HRESULT>(0x800A000Du);
const std::wstring kConnectSource = L"Vx.CDevice.IOrvexDevice_Connect()";
const std::wstring kUnsupportedText = L"Not a supported network services interface";

struct ErrorText {
    std::wstring source;
    std::wstring description;
};

// The error object the last failing call left on this thread.
ErrorText TakeErrorInfo() {
    ErrorText text;
    Ptr<IErrorInfo> info;
    if (GetErrorInfo(0, info.Put()) != S_OK || !info) return text;
    Bstr source;
    Bstr description;
    info->GetSource(source.Put());
    info->GetDescription(description.Put());
    text.source = source.Text();
    text.description = description.Text();
    return text;
}

// The object a call returned, as it returned it: asking it for IDispatch again would give its
// default interface, not necessarily the one the member returns.
Ptr<IDispatch> ObjectIn(const Var& value) {
    Ptr<IDispatch> object;
    if (V_VT(&*value) == VT_DISPATCH && V_DISPATCH(&*value)) {
        *object.Put() = V_DISPATCH(&*value);
        object->AddRef();
    }
    return object;
}

// A member's result that must be an object.
Ptr<IDispatch> GetObject(IDispatch* from, const wchar_t* name, WORD flags,
                         std::initializer_list<VARIANT> arguments = {}) {
    Var result;
    REQUIRE_OK(Invoke(from, name, flags, arguments, result.Put()));
    auto object = ObjectIn(result);
    REQUIRE(object);
    return object;
}

std::wstring TextIn(const Var& value) {
    return V_VT(&*value) == VT_BSTR ? std::wstring(V_BSTR(&*value) ? V_BSTR(&*value) : L"")
                                    : L"<not a text>";
}

void ErrorsOfEarlyBoundConnect(IOrvexDevice* device, _VxDef* factory) {
    CHECK_HR(device->Connect(nullptr, nullptr), kUnsupportedConnection);
    const auto supports = client::Query<ISupportErrorInfo>(device, IID_ISupportErrorInfo);
    REQUIRE(supports);
    CHECK_OK(supports->InterfaceSupportsErrorInfo(IID_IOrvexDevice));
    const ErrorText text = TakeErrorInfo();
    CHECK_EQ(text.source, kConnectSource);
    CHECK_EQ(text.description, kUnsupportedText);

    // An object, but not a node connection.
    CHECK_HR(device->Connect(factory, nullptr), kTypeMismatch);
    const ErrorText mismatch = TakeErrorInfo();
    CHECK_EQ(mismatch.source, std::wstring(L"Vx"));
    CHECK_EQ(mismatch.description, std::wstring(L"Type mismatch"));
    VARIANT_BOOL connected = VARIANT_TRUE;
    CHECK_OK(device->get_Connected(&connected));
    CHECK_EQ(connected, VARIANT_FALSE);
}

void ErrorsOfLateBoundConnect(IDispatch* device) {
    // The places of the contract, which compiled scripts and hosts rely on.
    CHECK_EQ(client::DispIdOf(device, L"Connect"), 2);
    CHECK_EQ(client::DispIdOf(device, L"Download"), 5);
    CHECK_EQ(client::DispIdOf(device, L"object"), 8);  // names are matched without case
    CHECK_EQ(client::DispIdOf(device, L"NoSuchMember"), DISPID_UNKNOWN);

    EXCEPINFO exception{};
    Var result;
    CHECK_HR(
        Invoke(device, L"Connect", DISPATCH_METHOD,
               {client::ObjectArg(nullptr), client::ObjectArg(nullptr)}, result.Put(), &exception),
        DISP_E_EXCEPTION);
    if (exception.pfnDeferredFillIn) exception.pfnDeferredFillIn(&exception);
    CHECK_HR(exception.scode, kUnsupportedConnection);
    CHECK_EQ(std::wstring(exception.bstrSource ? exception.bstrSource : L""), kConnectSource);
    CHECK_EQ(std::wstring(exception.bstrDescription ? exception.bstrDescription : L""),
             kUnsupportedText);
    SysFreeString(exception.bstrSource);
    SysFreeString(exception.bstrDescription);
    SysFreeString(exception.bstrHelpFile);
}

}  // namespace

void LateBound() {
    Ptr<IDispatch> factory;
    REQUIRE_OK(CoCreateInstance(CLSID_VxDef, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch,
                                factory.PutVoid()));
    const auto device = GetObject(factory.Get(), L"CreateDeviceManager", DISPATCH_METHOD);
    {
        const auto typed = device.As<IOrvexDevice>(IID_IOrvexDevice);
        const auto typedFactory = factory.As<_VxDef>(IID__VxDef);
        REQUIRE(typed && typedFactory);
        ErrorsOfEarlyBoundConnect(typed.Get(), typedFactory.Get());
    }
    ErrorsOfLateBoundConnect(device.Get());

    // The default controller, connected by name alone.
    const auto revision = GetObject(factory.Get(), L"CreateDeviceRevision", DISPATCH_METHOD);
    Ptr<IDispatch> node;
    REQUIRE_OK(
        CoCreateInstance(CLSID_Node, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch, node.PutVoid()));
    Var none;
    REQUIRE_OK(Invoke(node.Get(), L"LoadDefault", DISPATCH_METHOD, {}, none.Put()));
    // The revision file is optional: left out, the default controller's revision is used.
    REQUIRE_OK(Invoke(node.Get(), L"LoadRevision", DISPATCH_METHOD,
                      {client::ObjectArg(revision.Get())}, none.Put()));
    REQUIRE_OK(Invoke(device.Get(), L"Connect", DISPATCH_METHOD,
                      {client::ObjectArg(node.Get()), client::ObjectArg(revision.Get())},
                      none.Put()));

    // Property gets with an argument, a property put, and a method with its options left out.
    const auto room =
        GetObject(device.Get(), L"Object", DISPATCH_PROPERTYGET, {client::LongArg(1)});
    Bstr name(L"nviSetpoint");
    const auto setpoint =
        GetObject(room.Get(), L"Variable", DISPATCH_PROPERTYGET, {client::TextArg(name.Get())});
    CHECK_OK(
        Invoke(setpoint.Get(), L"Value", DISPATCH_PROPERTYPUT, {client::DoubleArg(22.5)}, nullptr));
    Var value;
    CHECK_OK(Invoke(setpoint.Get(), L"Value", DISPATCH_PROPERTYGET, {}, value.Put()));
    CHECK(V_VT(value.Get()) == VT_R4 && V_R4(value.Get()) == 22.5f);
    CHECK_OK(Invoke(setpoint.Get(), L"Download", DISPATCH_METHOD, {}, none.Put()));
    CHECK_OK(Invoke(node.Get(), L"Value", DISPATCH_PROPERTYGET, {client::TextArg(name.Get())},
                    value.Put()));
    CHECK_EQ(TextIn(value), std::wstring(L"08CA"));
    // Force left out is False: a value unchanged since its upload is not sent.
    CHECK_OK(Invoke(setpoint.Get(), L"Upload", DISPATCH_METHOD, {}, none.Put()));
    Bstr zero(L"0000");
    CHECK_OK(Invoke(node.Get(), L"Value", DISPATCH_PROPERTYPUT,
                    {client::TextArg(name.Get()), client::TextArg(zero.Get())}, nullptr));
    CHECK_OK(Invoke(setpoint.Get(), L"Download", DISPATCH_METHOD, {}, none.Put()));
    CHECK_OK(Invoke(node.Get(), L"Value", DISPATCH_PROPERTYGET, {client::TextArg(name.Get())},
                    value.Put()));
    CHECK_EQ(TextIn(value), std::wstring(L"0000"));

    const auto info = GetObject(device.Get(), L"Info", DISPATCH_PROPERTYGET);
    CHECK_OK(Invoke(info.Get(), L"State", DISPATCH_PROPERTYGET, {}, value.Put()));
    CHECK_EQ(TextIn(value), std::wstring(L"Configured/Online"));
}

}  // namespace cases
