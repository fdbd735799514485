// Arrays crossing the interface: command data as an array of Byte with any lower bound, and the
// subscripts of SubElement, early bound as a SAFEARRAY of VARIANT and late bound as arguments.
#include <windows.h>

#include <ole2.h>

#include <string>

#include "Cases.h"
#include "Check.h"
#include "Com.h"

namespace cases {
namespace {

using client::Bstr;
using client::Ptr;
using client::Var;

constexpr HRESULT kTypeMismatch = static_cast<HRESULT>(0x800A000Du);

std::wstring LastCommand(IVxSimNode* node) {
    Bstr frame;
    if (FAILED(node->get_LastCommand(frame.Put()))) return L"<failed>";
    return frame.Text();
}

void CommandData(const client::Controller& made) {
    Ptr<IOrvexCommand> command;
    REQUIRE_OK(made.device->get_Command(command.Put()));

    // Bounds 1 to 3, as a host dimensioning its array from 1 makes it.
    SAFEARRAYBOUND bound{3, 1};
    Var data;
    V_VT(data.Get()) = VT_ARRAY | VT_UI1;
    V_ARRAY(data.Get()) = SafeArrayCreate(VT_UI1, 1, &bound);
    REQUIRE(V_ARRAY(data.Get()));
    for (LONG index = 1; index <= 3; ++index) {
        BYTE value = static_cast<BYTE>(index);
        SafeArrayPutElement(V_ARRAY(data.Get()), &index, &value);
    }
    VARIANT_BOOL sent = VARIANT_FALSE;
    CHECK_OK(command->GenericCommand(0x20, *data, &sent));
    CHECK_EQ(sent, VARIANT_TRUE);
    // The code, the three bytes from the lower bound on, zeros up to the frame's 12 bytes.
    CHECK_EQ(LastCommand(made.node.Get()), std::wstring(L"200102030000000000000000"));

    // Text is no command data; nothing goes out.
    Bstr text(L"010203");
    Var notBytes;
    V_VT(notBytes.Get()) = VT_BSTR;
    V_BSTR(notBytes.Get()) = SysAllocString(text.Get());
    CHECK_HR(command->GenericCommand(0x21, *notBytes, &sent), kTypeMismatch);
    CHECK_EQ(LastCommand(made.node.Get()), std::wstring(L"200102030000000000000000"));
}

Ptr<IOrvexDataElement> SubElement(IOrvexDataElement* element, SAFEARRAY* subscripts) {
    Ptr<IOrvexDataElement> found;
    CHECK_OK(element->SubElement(subscripts, found.Put()));
    SafeArrayDestroy(subscripts);
    REQUIRE(found);
    return found;
}

void Subscripts(const client::Controller& made) {
    const auto setpoints = client::VariableOf(made.device.Get(), 1, L"nciSetpoints");
    Ptr<IOrvexDataElement> whole;
    REQUIRE_OK(setpoints->get_Element(whole.Put()));
    Var value;
    CHECK_OK(whole->get_Value(0, value.Put()));
    CHECK_EQ(V_VT(value.Get()), VT_EMPTY);  // a structure has no value of its own

    // No subscripts: the element itself.
    const auto same = SubElement(whole.Get(), SafeArrayCreateVector(VT_VARIANT, 0, 0));
    CHECK(client::IdentityOf(same.Get()) == client::IdentityOf(whole.Get()));

    // A field by name: occupied heating, 21.00 degC in the fourth word.
    SAFEARRAY* byName = SafeArrayCreateVector(VT_VARIANT, 0, 1);
    REQUIRE(byName);
    Var field;
    V_VT(field.Get()) = VT_BSTR;
    V_BSTR(field.Get()) = SysAllocString(L"occupied_heat");
    LONG first = 0;
    SafeArrayPutElement(byName, &first, field.Get());  // copies the VARIANT
    const auto heat = SubElement(whole.Get(), byName);
    CHECK_OK(heat->get_Value(0, value.Put()));
    CHECK(V_VT(value.Get()) == VT_R4 && V_R4(value.Get()) == 21.0f);
    Var written;
    V_VT(written.Get()) = VT_R8;
    V_R8(written.Get()) = 20.5;
    CHECK_OK(heat->put_Value(0, *written));
    CHECK_OK(setpoints->Download(0, VARIANT_TRUE));
    CHECK_EQ(client::NodeValue(made.node.Get(), L"nciSetpoints"),
             std::wstring(L"09600A280AF00802076C0640"));

    // Late bound, the subscripts are the call's arguments (a parameter array).
    const auto dispatch = whole.As<IDispatch>(IID_IDispatch);
    REQUIRE(dispatch);
    Bstr name(L"standby_heat");
    Var result;
    CHECK_OK(client::Invoke(dispatch.Get(), L"SubElement", DISPATCH_METHOD | DISPATCH_PROPERTYGET,
                            {client::TextArg(name.Get())}, result.Put()));
    REQUIRE(V_VT(result.Get()) == VT_DISPATCH && V_DISPATCH(result.Get()));
    const auto standby =
        client::Query<IOrvexDataElement>(V_DISPATCH(result.Get()), IID_IOrvexDataElement);
    REQUIRE(standby);
    CHECK_OK(standby->get_Value(0, value.Put()));
    CHECK(V_VT(value.Get()) == VT_R4 && V_R4(value.Get()) == 19.0f);

    // No arguments: the element itself. Two: a field and an entry of it ("0 Normal": entry 2
    // is the N).
    CHECK_OK(client::Invoke(dispatch.Get(), L"SubElement", DISPATCH_METHOD | DISPATCH_PROPERTYGET,
                            {}, result.Put()));
    REQUIRE(V_VT(result.Get()) == VT_DISPATCH);
    CHECK(client::IdentityOf(V_DISPATCH(result.Get())) == client::IdentityOf(whole.Get()));
    Ptr<IOrvexDataElement> message;
    REQUIRE_OK(
        client::VariableOf(made.device.Get(), 0, L"nvoAlarmMessage")->get_Element(message.Put()));
    Bstr characters(L"ascii_");
    CHECK_OK(client::Invoke(message.Get(), L"SubElement", DISPATCH_METHOD,
                            {client::TextArg(characters.Get()), client::LongArg(2)}, result.Put()));
    REQUIRE(V_VT(result.Get()) == VT_DISPATCH && V_DISPATCH(result.Get()));
    const auto entry =
        client::Query<IOrvexDataElement>(V_DISPATCH(result.Get()), IID_IOrvexDataElement);
    REQUIRE(entry);
    CHECK_OK(entry->get_Value(0, value.Put()));
    CHECK(V_VT(value.Get()) == VT_I4 && V_I4(value.Get()) == 'N');

    // The entries of a parameter array have no names.
    DISPID named = 0;
    VARIANT argument = client::TextArg(characters.Get());
    DISPPARAMS params{&argument, &named, 1, 1};
    UINT badArgument = 0;
    CHECK_HR(message->Invoke(client::DispIdOf(message.Get(), L"SubElement"), IID_NULL,
                             LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, result.Put(), nullptr,
                             &badArgument),
             DISP_E_NONAMEDARGS);
}

}  // namespace

void ByteArrays() {
    const auto made = client::ConnectDefault();
    CommandData(made);
    Subscripts(made);
}

}  // namespace cases
