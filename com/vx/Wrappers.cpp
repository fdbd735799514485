// The COM face of the library's objects: one wrapper class per kind of object, each member a thin
// call into the library with the platform's types on the outside.
#include "Wrappers.h"

#include <ole2.h>
#include <olectl.h>
#include <windows.h>

#include <utility>
#include <vector>

#include "CDevice.h"
#include "EnumVariant.h"
#include "Identity.h"
#include "ParameterArray.h"
#include "Text.h"
#include "VxInterfaces.h"
#include "interfaces/IOrvexAdvancedConfig.h"
#include "interfaces/IOrvexCommand.h"
#include "interfaces/IOrvexCommandStatus.h"
#include "interfaces/IOrvexDataElement.h"
#include "interfaces/IOrvexDevice.h"
#include "interfaces/IOrvexDeviceInfo.h"
#include "interfaces/IOrvexDeviceRevision.h"
#include "interfaces/IOrvexDeviceRevisionIdentify.h"
#include "interfaces/IOrvexElementdef.h"
#include "interfaces/IOrvexLonObject.h"
#include "interfaces/IOrvexLonObjectStatus.h"
#include "interfaces/IOrvexTypedef.h"
#include "interfaces/IOrvexVariable.h"
#include "interfaces/IOrvexVariableIdentity.h"

namespace vx::com {

// The device's own interface extends IOrvexDevice: one pointer answers for both, so the device's
// IDispatch is the class's own and scripts find every member on it.
template <>
struct ExtendedInterface<::_CDevice> {
    using Type = ::IOrvexDevice;
};

namespace {

template <typename Items>
IUnknown* Enumerate(const Items& items) {
    std::vector<Variant> values;
    values.reserve(items.size());
    for (const auto& item : items)
        values.emplace_back(item);
    return EnumVariant::Create(values);
}

// ---- Device, with its events ----------------------------------------------------------------

class DeviceWrapper;

// The device's one connection point; it lives inside the device wrapper and shares its
// reference count, so a client holding the point keeps the device alive.
class DeviceEventPoint final : public IConnectionPoint {
public:
    explicit DeviceEventPoint(IUnknown& owner, IConnectionPointContainer& container)
        : m_owner(owner), m_container(container) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
        if (!out) return E_POINTER;
        if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IConnectionPoint)) {
            *out = static_cast<IConnectionPoint*>(this);
            AddRef();
            return S_OK;
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return m_owner.AddRef(); }
    ULONG STDMETHODCALLTYPE Release() override { return m_owner.Release(); }

    HRESULT STDMETHODCALLTYPE GetConnectionInterface(IID* iid) override {
        if (!iid) return E_POINTER;
        *iid = DIID__IOrvexDeviceEvents;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE
    GetConnectionPointContainer(IConnectionPointContainer** container) override {
        if (!container) return E_POINTER;
        m_container.AddRef();
        *container = &m_container;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Advise(IUnknown* sink, DWORD* cookie) override {
        if (!sink || !cookie) return E_POINTER;
        ComPtr<IDispatch> events;
        sink->QueryInterface(DIID__IOrvexDeviceEvents, reinterpret_cast<void**>(events.Put()));
        if (!events) sink->QueryInterface(IID_IDispatch, reinterpret_cast<void**>(events.Put()));
        if (!events) return CONNECT_E_CANNOTCONNECT;
        *cookie = ++m_lastCookie;
        m_sinks.emplace_back(*cookie, std::move(events));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Unadvise(DWORD cookie) override {
        for (auto it = m_sinks.begin(); it != m_sinks.end(); ++it) {
            if (it->first == cookie) {
                m_sinks.erase(it);
                return S_OK;
            }
        }
        return CONNECT_E_NOCONNECTION;
    }
    HRESULT STDMETHODCALLTYPE EnumConnections(IEnumConnections** connections) override {
        if (connections) *connections = nullptr;
        return E_NOTIMPL;
    }

    // Calls every sink advised when the event starts; a sink may unadvise from its handler.
    // What a sink's handler reports is its own business: the device goes on either way.
    void Fire(DISPID event) {
        const auto sinks = m_sinks;
        for (const auto& [cookie, sink] : sinks) {
            DISPPARAMS none{nullptr, nullptr, 0, 0};
            sink->Invoke(event, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &none, nullptr,
                         nullptr, nullptr);
        }
    }

private:
    IUnknown& m_owner;
    IConnectionPointContainer& m_container;
    std::vector<std::pair<DWORD, ComPtr<IDispatch>>> m_sinks;
    DWORD m_lastCookie = 0;
};

constexpr DISPID kEventAfterConfigDMUpload = 1;
constexpr DISPID kEventAfterConfigDMDownload = 2;
constexpr DISPID kEventRequestDownload = 3;

class DeviceWrapper final : public CoreWrapper<vx::IOrvexDevice, ::_CDevice, ::IOrvexDeviceInfo,
                                               IConnectionPointContainer> {
public:
    explicit DeviceWrapper(std::shared_ptr<vx::IOrvexDevice> core)
        : CoreWrapper(std::move(core)),
          m_info(std::dynamic_pointer_cast<vx::IOrvexDeviceInfo>(m_core)),
          m_device(std::dynamic_pointer_cast<CDevice>(m_core)),
          m_events(*Identity(), *this) {
        if (m_device) {
            m_subscriptions.push_back(m_device->AfterConfigDMUploadEvent().Subscribe(
                [this] { m_events.Fire(kEventAfterConfigDMUpload); }));
            m_subscriptions.push_back(m_device->AfterConfigDMDownloadEvent().Subscribe(
                [this] { m_events.Fire(kEventAfterConfigDMDownload); }));
            m_subscriptions.push_back(m_device->RequestDownloadEvent().Subscribe(
                [this] { m_events.Fire(kEventRequestDownload); }));
        }
    }

    // IOrvexDevice
    HRESULT STDMETHODCALLTYPE get_Info(::IOrvexDeviceInfo** info) override {
        return Guard([&] { Out(info) = Export<::IOrvexDeviceInfo>(m_core->Info()); });
    }
    HRESULT STDMETHODCALLTYPE Connect(IDispatch* connection, IDispatch* revision) override {
        return Guard([&] { m_core->Connect(ImportObject(connection), ImportObject(revision)); });
    }
    HRESULT STDMETHODCALLTYPE Disconnect() override {
        return Guard([&] { m_core->Disconnect(); });
    }
    HRESULT STDMETHODCALLTYPE Ping(VARIANT_BOOL* answered) override {
        return Guard([&] { Out(answered) = ToVariantBool(m_core->Ping()); });
    }
    HRESULT STDMETHODCALLTYPE Download(LONG objectID, LONG mask) override {
        return Guard([&] { m_core->Download(objectID, mask); });
    }
    HRESULT STDMETHODCALLTYPE Upload(LONG mask) override {
        return Guard([&] { m_core->Upload(mask); });
    }
    HRESULT STDMETHODCALLTYPE get_Connected(VARIANT_BOOL* connected) override {
        return Guard([&] { Out(connected) = ToVariantBool(m_core->Connected()); });
    }
    HRESULT STDMETHODCALLTYPE get_Object(LONG objectID, ::IOrvexLonObject** object) override {
        return Guard([&] { Out(object) = Export<::IOrvexLonObject>(m_core->Object(objectID)); });
    }
    HRESULT STDMETHODCALLTYPE get_ProfileObject(LONG profile, ::IOrvexLonObject** object) override {
        return Guard(
            [&] { Out(object) = Export<::IOrvexLonObject>(m_core->ProfileObject(profile)); });
    }
    HRESULT STDMETHODCALLTYPE get_Command(::IOrvexCommand** command) override {
        return Guard([&] { Out(command) = Export<::IOrvexCommand>(m_core->Command()); });
    }
    HRESULT STDMETHODCALLTYPE DownloadRequest(LONG lonObject, LONG objectRequest) override {
        return Guard([&] { m_core->DownloadRequest(lonObject, objectRequest); });
    }
    HRESULT STDMETHODCALLTYPE UploadStatus(::IOrvexLonObjectStatus** status) override {
        return Guard(
            [&] { Out(status) = Export<::IOrvexLonObjectStatus>(m_core->UploadStatus()); });
    }
    HRESULT STDMETHODCALLTYPE get_NewEnum(IUnknown** enumerator) override {
        return Guard([&] { Out(enumerator) = Enumerate(m_core->NewEnum()); });
    }
    HRESULT STDMETHODCALLTYPE Wink(VARIANT_BOOL* winked) override {
        return Guard([&] { Out(winked) = ToVariantBool(m_core->Wink()); });
    }
    HRESULT STDMETHODCALLTYPE get_ConfigModificationLevel(LONG* level) override {
        return Guard([&] { Out(level) = m_core->ConfigModificationLevel(); });
    }
    HRESULT STDMETHODCALLTYPE SetConfig(IDispatch* configItems, LONG varCat) override {
        return Guard([&] { m_core->SetConfig(ImportObject(configItems), varCat); });
    }

    // _CDevice
    HRESULT STDMETHODCALLTYPE PIUnsignedTwoBytesToSingle(BYTE highByte, BYTE lowByte,
                                                         FLOAT* result) override {
        return Guard([&] { Out(result) = Device().PIUnsignedTwoBytesToSingle(highByte, lowByte); });
    }
    HRESULT STDMETHODCALLTYPE PIConvertBinaryToHexString(VARIANT byteStream,
                                                         BSTR* result) override {
        return Guard([&] {
            Out(result) = ToBstr(Device().PIConvertBinaryToHexString(FromVariant(byteStream)));
        });
    }

    // IOrvexDeviceInfo
    HRESULT STDMETHODCALLTYPE get_Name(BSTR location, BSTR* name) override {
        return Guard([&] { Out(name) = ToBstr(m_info->Name(FromBstr(location))); });
    }
    HRESULT STDMETHODCALLTYPE put_Name(BSTR location, BSTR name) override {
        return Guard([&] { m_info->SetName(FromBstr(location), FromBstr(name)); });
    }
    HRESULT STDMETHODCALLTYPE get_ProgID(BSTR* text) override {
        return Guard([&] { Out(text) = ToBstr(m_info->ProgID()); });
    }
    HRESULT STDMETHODCALLTYPE get_SelfDoc(BSTR* text) override {
        return Guard([&] { Out(text) = ToBstr(m_info->SelfDoc()); });
    }
    HRESULT STDMETHODCALLTYPE get_Revision(BSTR* text) override {
        return Guard([&] { Out(text) = ToBstr(m_info->Revision()); });
    }
    HRESULT STDMETHODCALLTYPE get_MfgID(BSTR* text) override {
        return Guard([&] { Out(text) = ToBstr(m_info->MfgID()); });
    }
    HRESULT STDMETHODCALLTYPE get_State(VARIANT_BOOL discovering, VARIANT_BOOL allowPing,
                                        BSTR* text) override {
        return Guard([&] {
            Out(text) =
                ToBstr(m_info->State(discovering != VARIANT_FALSE, allowPing != VARIANT_FALSE));
        });
    }
    HRESULT STDMETHODCALLTYPE get_NeuronID(BSTR* text) override {
        return Guard([&] { Out(text) = ToBstr(m_info->NeuronID()); });
    }

    // IConnectionPointContainer
    HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints** points) override {
        if (points) *points = nullptr;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID iid, IConnectionPoint** point) override {
        if (!point) return E_POINTER;
        *point = nullptr;
        if (!IsEqualIID(iid, DIID__IOrvexDeviceEvents)) return CONNECT_E_NOCONNECTION;
        m_events.AddRef();
        *point = &m_events;
        return S_OK;
    }

private:
    // The class's own members need the library's device class, not only its interfaces.
    CDevice& Device() const {
        if (!m_device) throw HresultError(E_NOTIMPL);
        return *m_device;
    }

    std::shared_ptr<vx::IOrvexDeviceInfo> m_info;
    std::shared_ptr<CDevice> m_device;
    DeviceEventPoint m_events;
    std::vector<Event<>::Subscription> m_subscriptions;
};

// ---- Objects, variables, elements and types -------------------------------------------------

class LonObjectWrapper final : public CoreWrapper<vx::IOrvexLonObject, ::IOrvexLonObject> {
public:
    using CoreWrapper::CoreWrapper;

    HRESULT STDMETHODCALLTYPE get_ID(LONG* id) override {
        return Guard([&] { Out(id) = m_core->ID(); });
    }
    HRESULT STDMETHODCALLTYPE get_Profile(LONG* profile) override {
        return Guard([&] { Out(profile) = m_core->Profile(); });
    }
    HRESULT STDMETHODCALLTYPE get_ProfileName(BSTR* name) override {
        return Guard([&] { Out(name) = ToBstr(m_core->ProfileName()); });
    }
    HRESULT STDMETHODCALLTYPE get_Variable(BSTR name, ::IOrvexVariable** variable) override {
        return Guard(
            [&] { Out(variable) = Export<::IOrvexVariable>(m_core->Variable(FromBstr(name))); });
    }
    HRESULT STDMETHODCALLTYPE get_VariableCount(LONG* count) override {
        return Guard([&] { Out(count) = m_core->VariableCount(); });
    }
    HRESULT STDMETHODCALLTYPE get_NewEnum(IUnknown** enumerator) override {
        return Guard([&] { Out(enumerator) = Enumerate(m_core->NewEnum()); });
    }
};

class VariableWrapper final : public CoreWrapper<vx::IOrvexVariable, ::IOrvexVariable> {
public:
    using CoreWrapper::CoreWrapper;

    HRESULT STDMETHODCALLTYPE get_Name(BSTR* name) override {
        return Guard([&] { Out(name) = ToBstr(m_core->Name()); });
    }
    HRESULT STDMETHODCALLTYPE get_Object(::IOrvexLonObject** object) override {
        return Guard([&] { Out(object) = Export<::IOrvexLonObject>(m_core->Object()); });
    }
    HRESULT STDMETHODCALLTYPE Download(LONG level, VARIANT_BOOL force) override {
        return Guard([&] { m_core->Download(level, force != VARIANT_FALSE); });
    }
    HRESULT STDMETHODCALLTYPE Upload() override {
        return Guard([&] { m_core->Upload(); });
    }
    HRESULT STDMETHODCALLTYPE get_Element(::IOrvexDataElement** element) override {
        return Guard([&] { Out(element) = Export<::IOrvexDataElement>(m_core->Element()); });
    }
    HRESULT STDMETHODCALLTYPE get_Category(LONG* category) override {
        return Guard([&] { Out(category) = m_core->Category(); });
    }
    HRESULT STDMETHODCALLTYPE get_ConfigLevel(LONG* level) override {
        return Guard([&] { Out(level) = m_core->ConfigLevel(); });
    }
    HRESULT STDMETHODCALLTYPE get_Typedef(::IOrvexTypedef** type) override {
        return Guard([&] { Out(type) = Export<::IOrvexTypedef>(m_core->Typedef()); });
    }
    HRESULT STDMETHODCALLTYPE get_Value(VARIANT* value) override {
        return Guard([&] { ToVariant(m_core->Value(), &Out(value)); });
    }
    HRESULT STDMETHODCALLTYPE put_Value(VARIANT value) override {
        return Guard([&] { m_core->SetValue(FromVariant(value)); });
    }
    HRESULT STDMETHODCALLTYPE get_Undefined(VARIANT_BOOL* undefined) override {
        return Guard([&] { Out(undefined) = ToVariantBool(m_core->Undefined()); });
    }
    HRESULT STDMETHODCALLTYPE get_NvIndex(short* index) override {
        return Guard([&] { Out(index) = m_core->NvIndex(); });
    }
};

class IdentityWrapper final
    : public CoreWrapper<vx::IOrvexVariableIdentity, ::IOrvexVariableIdentity> {
public:
    using CoreWrapper::CoreWrapper;

    HRESULT STDMETHODCALLTYPE get_Name(BSTR* name) override {
        return Guard([&] { Out(name) = ToBstr(m_core->Name()); });
    }
    HRESULT STDMETHODCALLTYPE get_LonObject(LONG* objectID) override {
        return Guard([&] { Out(objectID) = m_core->LonObject(); });
    }
};

// SubElement's place in the contract.
constexpr DISPID kMemberSubElement = 1;

class ElementWrapper final : public CoreWrapper<vx::IOrvexDataElement, ::IOrvexDataElement> {
public:
    using CoreWrapper::CoreWrapper;

    // SubElement takes its subscripts as a parameter array. The type description's own invoke
    // does not pass such an array under every automation runtime (Wine's refuses none or several
    // arguments), so a late-bound call of it gathers the arguments here.
    HRESULT STDMETHODCALLTYPE Invoke(DISPID member, REFIID iid, LCID locale, WORD flags,
                                     DISPPARAMS* params, VARIANT* result, EXCEPINFO* exception,
                                     UINT* badArgument) override {
        if (member != kMemberSubElement || !IsEqualIID(iid, IID_NULL) ||
            (flags & (DISPATCH_METHOD | DISPATCH_PROPERTYGET)) == 0) {
            return CoreWrapper::Invoke(member, iid, locale, flags, params, result, exception,
                                       badArgument);
        }
        SAFEARRAY* subscripts = nullptr;
        const HRESULT gathered = ParameterArrayOf(params, &subscripts, badArgument);
        if (FAILED(gathered)) return gathered;
        ::IOrvexDataElement* element = nullptr;
        const HRESULT outcome = SubElement(subscripts, &element);
        SafeArrayDestroy(subscripts);
        return ObjectInvokeResult(outcome, element, result, exception);
    }

    HRESULT STDMETHODCALLTYPE SubElement(SAFEARRAY* subscripts,
                                         ::IOrvexDataElement** element) override {
        return Guard([&] {
            VARIANT list;
            V_VT(&list) = VT_ARRAY | VT_VARIANT;
            V_ARRAY(&list) = subscripts;
            const Variant converted = FromVariant(list);
            const auto* values = converted.Get<VariantArray>();
            Out(element) = Export<::IOrvexDataElement>(
                m_core->SubElement(values ? *values : VariantArray(0, std::vector<Variant>())));
        });
    }
    HRESULT STDMETHODCALLTYPE get_Value(LONG arrayIndex, VARIANT* value) override {
        return Guard([&] { ToVariant(m_core->Value(arrayIndex), &Out(value)); });
    }
    HRESULT STDMETHODCALLTYPE put_Value(LONG arrayIndex, VARIANT value) override {
        return Guard([&] { m_core->SetValue(arrayIndex, FromVariant(value)); });
    }
    HRESULT STDMETHODCALLTYPE get_UnScaledValue(LONG arrayIndex, LONG* value) override {
        return Guard([&] { Out(value) = m_core->UnScaledValue(arrayIndex); });
    }
    HRESULT STDMETHODCALLTYPE put_UnScaledValue(LONG arrayIndex, LONG value) override {
        return Guard([&] { m_core->SetUnScaledValue(arrayIndex, value); });
    }
    HRESULT STDMETHODCALLTYPE get_Undefined(LONG arrayIndex, VARIANT_BOOL* undefined) override {
        return Guard([&] { Out(undefined) = ToVariantBool(m_core->Undefined(arrayIndex)); });
    }
    HRESULT STDMETHODCALLTYPE get_Typedef(::IOrvexTypedef** type) override {
        return Guard([&] { Out(type) = Export<::IOrvexTypedef>(m_core->Typedef()); });
    }
    HRESULT STDMETHODCALLTYPE get_LBound(LONG* bound) override {
        return Guard([&] { Out(bound) = m_core->LBound(); });
    }
    HRESULT STDMETHODCALLTYPE get_UBound(LONG* bound) override {
        return Guard([&] { Out(bound) = m_core->UBound(); });
    }
};

class ElementdefWrapper final : public CoreWrapper<vx::IOrvexElementdef, ::IOrvexElementdef> {
public:
    using CoreWrapper::CoreWrapper;

    HRESULT STDMETHODCALLTYPE get_ArraySize(LONG* size) override {
        return Guard([&] { Out(size) = m_core->ArraySize(); });
    }
    HRESULT STDMETHODCALLTYPE get_Typedef(::IOrvexTypedef** type) override {
        return Guard([&] { Out(type) = Export<::IOrvexTypedef>(m_core->Typedef()); });
    }
    HRESULT STDMETHODCALLTYPE get_ByteOffset(LONG* offset) override {
        return Guard([&] { Out(offset) = m_core->ByteOffset(); });
    }
    HRESULT STDMETHODCALLTYPE get_BitOffset(LONG* offset) override {
        return Guard([&] { Out(offset) = m_core->BitOffset(); });
    }
};

class TypedefWrapper final : public CoreWrapper<vx::IOrvexTypedef, ::IOrvexTypedef> {
public:
    using CoreWrapper::CoreWrapper;

    HRESULT STDMETHODCALLTYPE get_TypeName(BSTR* name) override {
        return Guard([&] { Out(name) = ToBstr(m_core->TypeName()); });
    }
    HRESULT STDMETHODCALLTYPE get_TypeIndex(LONG* index) override {
        return Guard([&] { Out(index) = m_core->TypeIndex(); });
    }
    HRESULT STDMETHODCALLTYPE get_TypeCategory(LONG* category) override {
        return Guard([&] { Out(category) = m_core->TypeCategory(); });
    }
    HRESULT STDMETHODCALLTYPE get_BitSize(LONG* bits) override {
        return Guard([&] { Out(bits) = m_core->BitSize(); });
    }
    HRESULT STDMETHODCALLTYPE get_TextLength(LONG* length) override {
        return Guard([&] { Out(length) = m_core->TextLength(); });
    }
    HRESULT STDMETHODCALLTYPE get_IsSigned(VARIANT_BOOL* isSigned) override {
        return Guard([&] { Out(isSigned) = ToVariantBool(m_core->IsSigned()); });
    }
    HRESULT STDMETHODCALLTYPE get_ByteSize(LONG* bytes) override {
        return Guard([&] { Out(bytes) = m_core->ByteSize(); });
    }
    HRESULT STDMETHODCALLTYPE get_ResultType(LONG* resultType) override {
        return Guard([&] { Out(resultType) = m_core->ResultType(); });
    }
    HRESULT STDMETHODCALLTYPE get_ScaleFactor(LONG* factor) override {
        return Guard([&] { Out(factor) = m_core->ScaleFactor(); });
    }
    HRESULT STDMETHODCALLTYPE InvalidValue(LONG* rawInvalid, VARIANT_BOOL* hasInvalid) override {
        return Guard([&] {
            std::int32_t raw = 0;
            const bool has = m_core->InvalidValue(raw);
            Out(rawInvalid) = raw;
            Out(hasInvalid) = ToVariantBool(has);
        });
    }
    HRESULT STDMETHODCALLTYPE get_MinValue(LONG* value) override {
        return Guard([&] { Out(value) = m_core->MinValue(); });
    }
    HRESULT STDMETHODCALLTYPE get_MaxValue(LONG* value) override {
        return Guard([&] { Out(value) = m_core->MaxValue(); });
    }
    HRESULT STDMETHODCALLTYPE get_Units(BSTR* units) override {
        return Guard([&] { Out(units) = ToBstr(m_core->Units()); });
    }
    HRESULT STDMETHODCALLTYPE get_ScaleMultiplies(VARIANT_BOOL* multiplies) override {
        return Guard([&] { Out(multiplies) = ToVariantBool(m_core->ScaleMultiplies()); });
    }
    HRESULT STDMETHODCALLTYPE get_ScaleText(BSTR* text) override {
        return Guard([&] { Out(text) = ToBstr(m_core->ScaleText()); });
    }
    HRESULT STDMETHODCALLTYPE FieldByName(BSTR name, ::IOrvexElementdef** field) override {
        return Guard(
            [&] { Out(field) = Export<::IOrvexElementdef>(m_core->FieldByName(FromBstr(name))); });
    }
};

// ---- Commands, status records, revisions ----------------------------------------------------

class CommandWrapper final : public CoreWrapper<vx::IOrvexCommand, ::IOrvexCommand> {
public:
    using CoreWrapper::CoreWrapper;

    HRESULT STDMETHODCALLTYPE OpenConfigDownload(LONG level, LONG lonObjectID,
                                                 VARIANT_BOOL* sent) override {
        return Send(sent, [&] { return m_core->OpenConfigDownload(level, lonObjectID); });
    }
    HRESULT STDMETHODCALLTYPE CloseConfigDownload(LONG level, VARIANT_BOOL* sent) override {
        return Send(sent, [&] { return m_core->CloseConfigDownload(level); });
    }
    HRESULT STDMETHODCALLTYPE SendAllScan(VARIANT_BOOL* sent) override {
        return Send(sent, [&] { return m_core->SendAllScan(); });
    }
    HRESULT STDMETHODCALLTYPE ResetTimer(LONG timerID, LONG timerValue,
                                         VARIANT_BOOL* sent) override {
        return Send(sent, [&] { return m_core->ResetTimer(timerID, timerValue); });
    }
    HRESULT STDMETHODCALLTYPE Keypress(LONG code, VARIANT_BOOL* sent) override {
        return Send(sent, [&] { return m_core->Keypress(code); });
    }
    HRESULT STDMETHODCALLTYPE DisableKeypad(VARIANT_BOOL* sent) override {
        return Send(sent, [&] { return m_core->DisableKeypad(); });
    }
    HRESULT STDMETHODCALLTYPE EnableKeypad(VARIANT_BOOL* sent) override {
        return Send(sent, [&] { return m_core->EnableKeypad(); });
    }
    HRESULT STDMETHODCALLTYPE ClearLog(LONG lonObjectID, VARIANT_BOOL* sent) override {
        return Send(sent, [&] { return m_core->ClearLog(lonObjectID); });
    }
    HRESULT STDMETHODCALLTYPE ResetMemory(LONG reset, VARIANT_BOOL* sent) override {
        return Send(sent, [&] { return m_core->ResetMemory(reset); });
    }
    HRESULT STDMETHODCALLTYPE GenericCommand(LONG cmdCode, VARIANT cmdData,
                                             VARIANT_BOOL* sent) override {
        return Send(sent, [&] { return m_core->GenericCommand(cmdCode, FromVariant(cmdData)); });
    }
    HRESULT STDMETHODCALLTYPE UploadStatus(VARIANT* status) override {
        return Guard([&] {
            VARIANT& slot = Out(status);
            // The status object is handed out before the upload can fail, as in the library.
            CommandStatusPtr made;
            try {
                m_core->UploadStatus(made);
            } catch (...) {
                Replace(slot, made);
                throw;
            }
            Replace(slot, made);
        });
    }

private:
    template <typename Command>
    static HRESULT Send(VARIANT_BOOL* sent, Command command) {
        return Guard([&] { Out(sent) = ToVariantBool(command()); });
    }
    static void Replace(VARIANT& slot, const CommandStatusPtr& status) {
        VARIANT* target = &slot;
        if (V_VT(target) == (VT_BYREF | VT_VARIANT)) target = V_VARIANTREF(target);
        VariantClear(target);
        ToVariant(Variant(ObjectPtr(status)), target);
    }
};

class CommandStatusWrapper final
    : public CoreWrapper<vx::IOrvexCommandStatus, ::IOrvexCommandStatus> {
public:
    using CoreWrapper::CoreWrapper;

    HRESULT STDMETHODCALLTYPE get_CmdType(LONG* code) override {
        return Guard([&] { Out(code) = m_core->CmdType(); });
    }
    HRESULT STDMETHODCALLTYPE get_Status(LONG statusType, VARIANT_BOOL* set) override {
        return Guard([&] { Out(set) = ToVariantBool(m_core->Status(statusType)); });
    }
};

class ObjectStatusWrapper final
    : public CoreWrapper<vx::IOrvexLonObjectStatus, ::IOrvexLonObjectStatus> {
public:
    using CoreWrapper::CoreWrapper;

#define VX_STATUS_FLAG(Flag)                                              \
    HRESULT STDMETHODCALLTYPE get_##Flag(VARIANT_BOOL* flag) override {   \
        return Guard([&] { Out(flag) = ToVariantBool(m_core->Flag()); }); \
    }
    VX_STATUS_FLAG(InvalidId)
    VX_STATUS_FLAG(InvalidRequest)
    VX_STATUS_FLAG(Disabled)
    VX_STATUS_FLAG(OutOfLimits)
    VX_STATUS_FLAG(OpenCircuit)
    VX_STATUS_FLAG(OutOfService)
    VX_STATUS_FLAG(MechanicalFault)
    VX_STATUS_FLAG(FeedbackFailure)
    VX_STATUS_FLAG(OverRange)
    VX_STATUS_FLAG(UnderRange)
    VX_STATUS_FLAG(ElectricalFault)
    VX_STATUS_FLAG(UnableToMeasure)
    VX_STATUS_FLAG(CommFailure)
    VX_STATUS_FLAG(FailSelfTest)
    VX_STATUS_FLAG(SelfTestInProgress)
    VX_STATUS_FLAG(LockedOut)
    VX_STATUS_FLAG(ManualControl)
    VX_STATUS_FLAG(InAlarm)
    VX_STATUS_FLAG(InOverride)
    VX_STATUS_FLAG(ReportMask)
    VX_STATUS_FLAG(ProgrammingMode)
    VX_STATUS_FLAG(ProgrammingFail)
    VX_STATUS_FLAG(AlarmNotifyDisabled)
#undef VX_STATUS_FLAG

    HRESULT STDMETHODCALLTYPE get_ObjectID(LONG* objectID) override {
        return Guard([&] { Out(objectID) = m_core->ObjectID(); });
    }
};

class RevisionWrapper final
    : public CoreWrapper<vx::Object, ::IOrvexDeviceRevisionIdentify, ::IOrvexDeviceRevision> {
public:
    RevisionWrapper(std::shared_ptr<vx::Object> core,
                    std::shared_ptr<vx::IOrvexDeviceRevisionIdentify> identify,
                    std::shared_ptr<vx::IOrvexDeviceRevision> reading)
        : CoreWrapper(std::move(core)),
          m_identify(std::move(identify)),
          m_reading(std::move(reading)) {}

    // IOrvexDeviceRevisionIdentify
    HRESULT STDMETHODCALLTYPE get_Info(::IOrvexDeviceRevision** info) override {
        return Guard([&] { Out(info) = Export<::IOrvexDeviceRevision>(Filling().Info()); });
    }
    HRESULT STDMETHODCALLTYPE IdentifyOrvexCRCalculation(LONG objectID, VARIANT list) override {
        return Guard([&] { Filling().IdentifyOrvexCRCalculation(objectID, FromVariant(list)); });
    }
    HRESULT STDMETHODCALLTYPE IdentifyOrvexConfig(LONG objectID, LONG level,
                                                  VARIANT names) override {
        return Guard([&] { Filling().IdentifyOrvexConfig(objectID, level, FromVariant(names)); });
    }
    HRESULT STDMETHODCALLTYPE IdentifyFileType2Config(LONG scope, VARIANT list) override {
        return Guard([&] { Filling().IdentifyFileType2Config(scope, FromVariant(list)); });
    }
    HRESULT STDMETHODCALLTYPE IdentifyAdvConfig(LONG objectID, VARIANT list) override {
        return Guard([&] { Filling().IdentifyAdvConfig(objectID, FromVariant(list)); });
    }

    // IOrvexDeviceRevision
    HRESULT STDMETHODCALLTYPE get_CRCVarCount(LONG objectID, LONG* count) override {
        return Guard([&] { Out(count) = Reading().CRCVarCount(objectID); });
    }
    HRESULT STDMETHODCALLTYPE get_CRCVar(LONG objectID, LONG index,
                                         ::IOrvexVariableIdentity** identity) override {
        return Guard([&] {
            Out(identity) = Export<::IOrvexVariableIdentity>(Reading().CRCVar(objectID, index));
        });
    }
    HRESULT STDMETHODCALLTYPE get_ConfigVarlist(LONG objectID, LONG level,
                                                VARIANT* names) override {
        return Guard([&] { ToVariant(Reading().ConfigVarlist(objectID, level), &Out(names)); });
    }
    HRESULT STDMETHODCALLTYPE get_FileType2Config(LONG scope, LONG index, BSTR* text) override {
        return Guard([&] { Out(text) = ToBstr(Reading().FileType2Config(scope, index)); });
    }
    HRESULT STDMETHODCALLTYPE get_AdvConfig(LONG objectID, ::IOrvexAdvancedConfig** list) override {
        return Guard(
            [&] { Out(list) = Export<::IOrvexAdvancedConfig>(Reading().AdvConfig(objectID)); });
    }

private:
    vx::IOrvexDeviceRevisionIdentify& Filling() const {
        if (!m_identify) throw HresultError(E_NOTIMPL);
        return *m_identify;
    }
    vx::IOrvexDeviceRevision& Reading() const {
        if (!m_reading) throw HresultError(E_NOTIMPL);
        return *m_reading;
    }

    std::shared_ptr<vx::IOrvexDeviceRevisionIdentify> m_identify;
    std::shared_ptr<vx::IOrvexDeviceRevision> m_reading;
};

class AdvancedConfigWrapper final
    : public CoreWrapper<vx::IOrvexAdvancedConfig, ::IOrvexAdvancedConfig> {
public:
    using CoreWrapper::CoreWrapper;

    HRESULT STDMETHODCALLTYPE get_NewEnum(IUnknown** enumerator) override {
        return Guard([&] { Out(enumerator) = Enumerate(m_core->NewEnum()); });
    }
};

// A new wrapper for a library object that has none yet (one reference).
IUnknown* NewWrapper(const ObjectPtr& object) {
    auto identify = std::dynamic_pointer_cast<vx::IOrvexDeviceRevisionIdentify>(object);
    auto reading = std::dynamic_pointer_cast<vx::IOrvexDeviceRevision>(object);
    if (identify || reading) {
        return (new RevisionWrapper(object, std::move(identify), std::move(reading)))->Identity();
    }
    using Make = IUnknown* (*)(const ObjectPtr&);
    for (const Make make : {
             &WrapAs<vx::IOrvexDevice, DeviceWrapper>,
             &WrapAs<vx::IOrvexLonObject, LonObjectWrapper>,
             &WrapAs<vx::IOrvexVariable, VariableWrapper>,
             &WrapAs<vx::IOrvexDataElement, ElementWrapper>,
             &WrapAs<vx::IOrvexElementdef, ElementdefWrapper>,
             &WrapAs<vx::IOrvexTypedef, TypedefWrapper>,
             &WrapAs<vx::IOrvexCommand, CommandWrapper>,
             &WrapAs<vx::IOrvexCommandStatus, CommandStatusWrapper>,
             &WrapAs<vx::IOrvexLonObjectStatus, ObjectStatusWrapper>,
             &WrapAs<vx::IOrvexVariableIdentity, IdentityWrapper>,
             &WrapAs<vx::IOrvexAdvancedConfig, AdvancedConfigWrapper>,
         }) {
        if (IUnknown* wrapper = make(object)) return wrapper;
    }
    return nullptr;
}

}  // namespace

IDispatch* ExportObject(const ObjectPtr& object) {
    return ExportThroughIdentity(object, &NewWrapper);
}

ObjectPtr ImportObject(IUnknown* object) {
    return ImportThroughIdentity(object, &AdaptHostObject);
}

}  // namespace vx::com
