// The names the servers' type libraries store, as early-bound hosts and callers passing named
// arguments see them. A type library keeps one spelling of each name for everything it names, so
// a parameter spelled like a member in another case respells the member, or the other way round.
#include <windows.h>

#include <ole2.h>

#include <cwctype>
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

using Names = std::vector<std::wstring>;

// Walking the library is not what is checked: a step that fails is one failure, a step that works
// is not counted, so the run's count stays the number of things checked.
#define WALK_OK(call)                                                              \
    if (const HRESULT walked = (call); FAILED(walked)) {                           \
        ::check::Record(false, __FILE__, __LINE__, #call " failed while walking"); \
        throw ::check::Abort();                                                    \
    }

// The contract's spelling: a capital first letter, or one lower-case letter for the kind of value
// in front of a capital (the documented parameters bDiscovering, sSCPTLocation, ...).
bool ContractSpelling(const std::wstring& name) {
    if (name.empty()) return false;
    if (std::iswupper(name[0])) return true;
    return name.size() > 1 && std::iswlower(name[0]) && std::iswupper(name[1]);
}

std::wstring TypeNameOf(ITypeInfo* type) {
    Bstr name;
    type->GetDocumentation(MEMBERID_NIL, name.Put(), nullptr, nullptr, nullptr);
    return name.Text();
}

// The description a compiled host binds to: a dual interface's vtable interface (its own members
// only), else the type itself.
Ptr<ITypeInfo> BindingOf(ITypeInfo* type) {
    Ptr<ITypeInfo> binding;
    HREFTYPE vtable = 0;
    if (SUCCEEDED(type->GetRefTypeOfImplType(static_cast<UINT>(-1), &vtable))) {
        type->GetRefTypeInfo(vtable, binding.Put());
    }
    if (!binding) {
        type->AddRef();
        *binding.Put() = type;
    }
    return binding;
}

// Each function of a description: its name, then its parameters' names.
std::vector<Names> FunctionsOf(ITypeInfo* type) {
    TYPEATTR* attributes = nullptr;
    WALK_OK(type->GetTypeAttr(&attributes));
    const UINT count = attributes->cFuncs;
    type->ReleaseTypeAttr(attributes);
    std::vector<Names> functions;
    for (UINT index = 0; index < count; ++index) {
        FUNCDESC* function = nullptr;
        WALK_OK(type->GetFuncDesc(index, &function));
        const MEMBERID member = function->memid;
        type->ReleaseFuncDesc(function);
        BSTR names[32] = {};
        UINT found = 0;
        WALK_OK(type->GetNames(member, names, 32, &found));
        Names spelled;
        for (UINT name = 0; name < found; ++name) {
            spelled.emplace_back(names[name] ? names[name] : L"");
            SysFreeString(names[name]);
        }
        functions.push_back(spelled);
    }
    return functions;
}

Ptr<ITypeLib> LibraryOf(IDispatch* object) {
    Ptr<ITypeInfo> type;
    REQUIRE_OK(object->GetTypeInfo(0, LOCALE_USER_DEFAULT, type.Put()));
    Ptr<ITypeLib> library;
    UINT index = 0;
    REQUIRE_OK(type->GetContainingTypeLib(library.Put(), &index));
    return library;
}

// Every interface of the library, with the names of its functions.
std::vector<std::pair<std::wstring, std::vector<Names>>> InterfacesOf(ITypeLib* library) {
    std::vector<std::pair<std::wstring, std::vector<Names>>> interfaces;
    for (UINT index = 0; index < library->GetTypeInfoCount(); ++index) {
        TYPEKIND kind = TKIND_MAX;
        WALK_OK(library->GetTypeInfoType(index, &kind));
        if (kind != TKIND_DISPATCH && kind != TKIND_INTERFACE) continue;
        Ptr<ITypeInfo> type;
        WALK_OK(library->GetTypeInfo(index, type.Put()));
        interfaces.emplace_back(TypeNameOf(type.Get()), FunctionsOf(BindingOf(type.Get()).Get()));
    }
    return interfaces;
}

// Every member and parameter name of every interface of the library is spelled as the contract
// spells names (one check per interface); returns how many interfaces were looked at.
int CheckSpellings(ITypeLib* library) {
    const auto interfaces = InterfacesOf(library);
    for (const auto& [interfaceName, functions] : interfaces) {
        Names misspelled;
        for (const Names& names : functions) {
            for (const std::wstring& name : names) {
                if (!ContractSpelling(name)) misspelled.push_back(names.front() + L": " + name);
            }
        }
        ::check::Record(misspelled.empty(), __FILE__, __LINE__,
                        ::check::Narrow(interfaceName) + " stores " + ::check::Show(misspelled));
    }
    return static_cast<int>(interfaces.size());
}

// The names stored for a member: the member's own, then its parameters' ("" when it is missing).
Names StoredNames(ITypeLib* library, const wchar_t* interfaceName, const wchar_t* member) {
    for (const auto& [name, functions] : InterfacesOf(library)) {
        if (name != interfaceName) continue;
        for (const Names& names : functions) {
            if (_wcsicmp(names.front().c_str(), member) == 0) return names;
        }
    }
    return {};
}

// The first names stored for a member, as many as `count`.
Names Leading(Names stored, std::size_t count) {
    if (stored.size() > count) stored.resize(count);
    return stored;
}

// The DISPIDs GetIDsOfNames gives for a member and some of its parameters, named as a host
// passing named arguments names them.
std::vector<DISPID> IdsOf(IDispatch* object, Names names) {
    std::vector<LPOLESTR> pointers;
    for (auto& name : names)
        pointers.push_back(name.data());
    std::vector<DISPID> ids(names.size(), DISPID_UNKNOWN);
    const HRESULT found =
        object->GetIDsOfNames(IID_NULL, pointers.data(), static_cast<UINT>(pointers.size()),
                              LOCALE_USER_DEFAULT, ids.data());
    CHECK_OK(found);
    return ids;
}

void DocumentedNames(ITypeLib* library) {
    // Member names that parameters spelled alike in another case would respell.
    CHECK_EQ(Leading(StoredNames(library, L"IOrvexVariable", L"Category"), 1),
             (Names{L"Category"}));
    CHECK_EQ(Leading(StoredNames(library, L"INodeVariableList", L"Count"), 1), (Names{L"Count"}));
    CHECK_EQ(Leading(StoredNames(library, L"INodeVariable", L"Index"), 1), (Names{L"Index"}));
    // The revision's parameter Configlevel shares it and must not respell it.
    CHECK_EQ(Leading(StoredNames(library, L"IOrvexVariable", L"ConfigLevel"), 1),
             (Names{L"ConfigLevel"}));

    // Parameters as their members document them.
    const struct {
        const wchar_t* interfaceName;
        Names names;
    } documented[] = {
        {L"IOrvexDevice", {L"Connect", L"NodeNetworkConnection", L"RevisionInfo"}},
        {L"IOrvexDevice", {L"SetConfig", L"oIConfigItems", L"eVarCat"}},
        {L"IOrvexDeviceInfo", {L"Name", L"sSCPTLocation"}},
        {L"IOrvexDeviceInfo", {L"State", L"bDiscovering", L"bAllowPing"}},
        {L"INodeConnection", {L"SendNetworkMessage", L"Code", L"Data", L"Length", L"Succeeded"}},
        {L"INodeVariable", {L"WriteValue", L"Bytes"}},
        {L"_CDevice", {L"PIUnsignedTwoBytesToSingle", L"HighByte", L"LowByte"}},
        {L"_CDevice", {L"PIConvertBinaryToHexString", L"vByteStream"}},
    };
    for (const auto& [interfaceName, names] : documented) {
        CHECK_EQ(Leading(StoredNames(library, interfaceName, names.front().c_str()), names.size()),
                 names);
    }
}

void NamedArguments(const client::Controller& made) {
    const auto device = made.device.As<IDispatch>(IID_IDispatch);
    REQUIRE(device);
    CHECK_EQ(IdsOf(device.Get(), {L"SetConfig", L"eVarCat", L"oIConfigItems"}),
             (std::vector<DISPID>{16, 1, 0}));
    Ptr<IOrvexDeviceInfo> info;
    REQUIRE_OK(made.device->get_Info(info.Put()));
    CHECK_EQ(IdsOf(info.Get(), {L"State", L"bAllowPing", L"bDiscovering"}),
             (std::vector<DISPID>{6, 1, 0}));

    // The name read with its location passed by name.
    Bstr location(L"20");
    VARIANT argument = client::TextArg(location.Get());
    DISPID named = 0;
    DISPPARAMS params{&argument, &named, 1, 1};
    Var result;
    const auto ids = IdsOf(info.Get(), {L"Name", L"sSCPTLocation"});
    REQUIRE(ids.size() == 2 && ids[1] == 0);
    UINT badArgument = 0;
    CHECK_OK(info->Invoke(ids[0], IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYGET, &params,
                          result.Put(), nullptr, &badArgument));
    REQUIRE(V_VT(result.Get()) == VT_BSTR);
    CHECK_EQ(std::wstring(V_BSTR(result.Get())), std::wstring(L"VX-220 Room 2.14"));
}

}  // namespace

void TypeLibraryNames() {
    const auto made = client::ConnectDefault();
    const auto device = made.device.As<IDispatch>(IID_IDispatch);
    const auto node = made.node.As<IDispatch>(IID_IDispatch);
    REQUIRE(device && node);
    const auto library = LibraryOf(device.Get());
    CHECK(CheckSpellings(library.Get()) >= 20);
    CHECK(CheckSpellings(LibraryOf(node.Get()).Get()) >= 1);
    DocumentedNames(library.Get());
    NamedArguments(made);
}

}  // namespace cases
