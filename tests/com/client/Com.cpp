#include "Com.h"

#include <algorithm>
#include <vector>

#include "Check.h"

namespace client {

IUnknown* IdentityOf(IUnknown* object) {
    if (!object) return nullptr;
    IUnknown* identity = nullptr;
    if (FAILED(object->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&identity)))) {
        return nullptr;
    }
    identity->Release();
    return identity;
}

Controller ConnectDefault() {
    Controller made;
    REQUIRE_OK(CoCreateInstance(CLSID_VxDef, nullptr, CLSCTX_INPROC_SERVER, IID__VxDef,
                                made.factory.PutVoid()));
    REQUIRE_OK(CoCreateInstance(CLSID_Node, nullptr, CLSCTX_INPROC_SERVER, IID_IVxSimNode,
                                made.node.PutVoid()));
    REQUIRE_OK(made.node->LoadDefault());
    REQUIRE_OK(made.factory->CreateDeviceRevision(made.revision.Put()));
    // The path left out, as automation marks a missing optional argument: the default
    // controller's own revision.
    VARIANT missing;
    VariantInit(&missing);
    V_VT(&missing) = VT_ERROR;
    V_ERROR(&missing) = DISP_E_PARAMNOTFOUND;
    REQUIRE_OK(made.node->LoadRevision(made.revision.Get(), missing));
    REQUIRE_OK(made.factory->CreateDeviceManager(made.device.Put()));
    const auto connection = made.node.As<INodeConnection>(IID_INodeConnection);
    REQUIRE(connection);
    REQUIRE_OK(made.device->Connect(connection.Get(), made.revision.Get()));
    return made;
}

Ptr<IOrvexLonObject> ObjectOf(IOrvexDevice* device, LONG id) {
    Ptr<IOrvexLonObject> object;
    REQUIRE_OK(device->get_Object(id, object.Put()));
    REQUIRE(object);
    return object;
}

Ptr<IOrvexVariable> VariableOf(IOrvexLonObject* object, const wchar_t* name) {
    Ptr<IOrvexVariable> variable;
    Bstr text(name);
    REQUIRE_OK(object->get_Variable(text.Get(), variable.Put()));
    REQUIRE(variable);
    return variable;
}

Ptr<IOrvexVariable> VariableOf(IOrvexDevice* device, LONG objectID, const wchar_t* name) {
    return VariableOf(ObjectOf(device, objectID).Get(), name);
}

std::wstring NodeValue(IVxSimNode* node, const wchar_t* name) {
    Bstr text(name);
    Bstr hex;
    if (FAILED(node->get_Value(text.Get(), hex.Put()))) return {};
    return hex.Text();
}

DISPID DispIdOf(IDispatch* object, const wchar_t* name) {
    std::wstring copy(name);
    LPOLESTR names[] = {copy.data()};
    DISPID id = DISPID_UNKNOWN;
    if (FAILED(object->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id))) {
        return DISPID_UNKNOWN;
    }
    return id;
}

HRESULT Invoke(IDispatch* object, const wchar_t* name, WORD flags,
               std::initializer_list<VARIANT> arguments, VARIANT* result, EXCEPINFO* exception) {
    const DISPID id = DispIdOf(object, name);
    if (id == DISPID_UNKNOWN) return DISP_E_UNKNOWNNAME;
    std::vector<VARIANT> reversed(arguments.begin(), arguments.end());
    std::reverse(reversed.begin(), reversed.end());
    DISPID putId = DISPID_PROPERTYPUT;
    const bool put = (flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) != 0;
    DISPPARAMS params{reversed.empty() ? nullptr : reversed.data(), put ? &putId : nullptr,
                      static_cast<UINT>(reversed.size()), put ? 1u : 0u};
    UINT badArgument = 0;
    return object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params, result, exception,
                          &badArgument);
}

VARIANT LongArg(LONG value) {
    VARIANT argument;
    VariantInit(&argument);
    V_VT(&argument) = VT_I4;
    V_I4(&argument) = value;
    return argument;
}

VARIANT DoubleArg(double value) {
    VARIANT argument;
    VariantInit(&argument);
    V_VT(&argument) = VT_R8;
    V_R8(&argument) = value;
    return argument;
}

VARIANT TextArg(BSTR value) {
    VARIANT argument;
    VariantInit(&argument);
    V_VT(&argument) = VT_BSTR;
    V_BSTR(&argument) = value;
    return argument;
}

VARIANT ObjectArg(IDispatch* value) {
    VARIANT argument;
    VariantInit(&argument);
    V_VT(&argument) = VT_DISPATCH;
    V_DISPATCH(&argument) = value;
    return argument;
}

}  // namespace client
