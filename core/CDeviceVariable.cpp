#include "CDeviceVariable.h"

#include <cctype>
#include <utility>
#include <vector>

#include "ErrorSupport.h"
#include "SelfDoc.h"
#include "SupportRoutines.h"
#include "automation/Conversions.h"
#include "interfaces/ITypeRegistry.h"

namespace vx {
namespace {

bool ContainsWithoutCase(std::string_view text, std::string_view part) {
    std::string folded(text);
    for (char& c : folded)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return folded.find(part) != std::string::npos;
}

const ByteArray& BytesOf(const Variant& value) {
    const auto* bytes = value.Get<ByteArray>();
    if (!bytes) RaiseRuntimeError(kErrTypeMismatch);
    return *bytes;
}

// "kind-index" of a configuration item: two decimal numbers.
void SplitItemName(std::string_view name, std::int32_t& kind, std::int32_t& index) {
    const auto dash = name.find('-');
    if (dash == std::string_view::npos) RaiseRuntimeError(kErrSubscriptOutOfRange);
    auto indexText = name.substr(dash + 1);
    indexText = indexText.substr(0, indexText.find('-'));
    kind = CLng(Variant(std::string(name.substr(0, dash))));
    index = CLng(Variant(std::string(indexText)));
}

}  // namespace

CDeviceVariable::CDeviceVariable()
    : m_valueBuffer(std::make_shared<CBuffer>()),
      m_deviceBuffer(std::make_shared<CBuffer>()),
      m_rootElement(std::make_shared<CDeviceVariableElement>()),
      m_typeHolder(std::make_shared<CVarElementBase>()) {
    // The subscriptions die with the variable, so the handlers never outlive `this`.
    m_bufferModified = m_valueBuffer->Modified().Subscribe([this] { OnBufferModified(); });
    m_bufferLoadMePlease =
        m_valueBuffer->LoadMePlease().Subscribe([this] { OnBufferLoadMePlease(); });
}

CDeviceVariable::~CDeviceVariable() = default;

// ---- Initialisation ----------------------------------------------------------------------------

VariableBinding CDeviceVariable::InitVariable(const DeviceContextPtr& device,
                                              const ObjectPtr& hostRecord,
                                              const VarEventsPtr& eventSink) {
    m_eventSink = eventSink;
    if (device) SubscribeDeviceEvents(*device);
    if (auto item = std::dynamic_pointer_cast<INodeVariableAccess>(hostRecord)) {
        return InitConfigItem(device.get(), std::move(item));
    }
    auto record = std::dynamic_pointer_cast<INodeVariable>(hostRecord);
    if (!record) RaiseRuntimeError(kErrTypeMismatch);
    return InitNetworkVariable(device.get(), std::move(record));
}

VariableBinding CDeviceVariable::InitNetworkVariable(IDeviceContext* device,
                                                     NodeVariablePtr record) {
    m_nodeVariable = std::move(record);
    m_nvIndex = m_nodeVariable->Index();
    m_selfDoc = m_nodeVariable->SelfDoc();
    m_category = IsInputNv() ? kCategoryInputNv : kCategoryOutputNv;

    const VariableSelfDoc parsed = ParseVariableSelfDoc(m_selfDoc, m_nodeVariable->Name());
    m_name = parsed.name;
    m_scopeCode = parsed.scopeCode;
    m_memberGroup = parsed.memberGroup;
    m_memberNumber = parsed.memberNumber;
    if (parsed.isProperty) m_category = kCategoryConfigProperty;

    if (const std::int32_t typeIndex = m_nodeVariable->TypeIndex(); typeIndex > 0) {
        m_typeHolder->SetTypedef(CurrentTypeRegistry()->TypeByIndex(typeIndex));
    }
    if (!m_typeHolder->Typedef()) SetElementType(device);
    BuildRootElement();
    return {parsed.objectIndex, parsed.bound};
}

VariableBinding CDeviceVariable::InitConfigItem(IDeviceContext* device,
                                                NodeVariableAccessPtr item) {
    m_configItem = std::move(item);
    m_itemName = m_configItem->Name();
    std::int32_t kind = 0;
    std::int32_t index = 0;
    SplitItemName(m_itemName, kind, index);
    m_scopeCode = kind;
    m_memberGroup = kind;
    m_memberNumber = index;
    m_category = kCategoryConfigItem;
    m_configLevel = 1;

    VariableBinding binding{-1, true};
    std::int32_t typeIndex = 0;
    std::string typeName;
    if (const std::string layout = m_configItem->Layout(); !layout.empty()) {
        std::string object, typeIndexText, rest;
        SplitFields(layout, object, typeIndexText, typeName, rest);
        binding.objectIndex = CLng(Variant(object));
        typeIndex = CLng(Variant(typeIndexText));
    }

    const auto registry = CurrentTypeRegistry();
    if (kind == 0) {
        if (typeIndex > 0) {
            m_typeHolder->SetTypedef(registry->TypeByIndex(typeIndex));
        } else if (!typeName.empty()) {
            m_typeHolder->SetTypedef(registry->TypeByName(typeName));
        }
    } else if (kind == 3 && index == 1) {
        m_typeHolder->SetTypedef(registry->TypeByName("UCPT_CRC"));
    } else if (kind == 3 && index == 2) {
        m_typeHolder->SetTypedef(registry->TypeByName("UCPTdeviceConfig"));
    }

    if (device) {
        if (const auto revision = device->RevisionInfo()) {
            m_name = revision->FileType2Config(kind, index);
        }
    }
    if (m_name.empty()) {
        m_name = std::to_string(kind) + "-" + std::to_string(index);
        binding.bound = false;
    }
    BuildRootElement();
    return binding;
}

void CDeviceVariable::InitOffline(std::string_view name) {
    m_name = std::string(name);
    const auto prefix = name.substr(0, 3);
    if (prefix == "nvo") {
        m_category = kCategoryOutputNv;
    } else if (prefix == "nvi") {
        m_category = kCategoryInputNv;
    } else {
        m_category = kCategoryConfigItem;
        m_configLevel = 1;
    }
    m_typeHolder->SetTypedef(CurrentTypeRegistry()->TypeByName(name));
    // A type of no length leaves the value unloaded, as a value of an unknown type is.
    if (const auto type = m_typeHolder->Typedef(); type && type->ByteSize() > 0) {
        m_valueBuffer->Allocate(CInt(type->ByteSize()), 0);
    }
    CopyValueToDeviceBuffer();
    BuildRootElement();
}

void CDeviceVariable::SetElementType(IDeviceContext* device) {
    const auto registry = CurrentTypeRegistry();
    const std::string programID = device ? device->ProgID() : std::string();
    m_typeHolder->SetTypedef(registry->TypeByName(m_name + programID));
    if (!m_typeHolder->Typedef()) m_typeHolder->SetTypedef(registry->TypeByName(m_name));
}

void CDeviceVariable::BuildRootElement() {
    m_rootElement->InitElement(m_typeHolder->Typedef(), m_valueBuffer, NewOffset(0, 0), 0);
}

void CDeviceVariable::SubscribeDeviceEvents(IDeviceContext& device) {
    m_deviceDownloaded =
        device.AfterConfigDMDownloadEvent().Subscribe([this] { OnAfterConfigDMDownload(); });
    m_deviceUploaded =
        device.AfterConfigDMUploadEvent().Subscribe([this] { OnAfterConfigDMUpload(); });
}

void CDeviceVariable::SetConfigLevel(std::int32_t level) {
    m_configLevel = level;
    if (!m_nodeVariable) {
        if (m_configItem && level == 0) m_configLevel = 1;
    } else if (level == 0) {
        m_category = IsInputNv() ? kCategoryInputNv : kCategoryOutputNv;
    } else {
        m_category = kCategoryConfigProperty;
    }
}

bool CDeviceVariable::IsInputNv() const {
    return ContainsWithoutCase(m_selfDoc, "nvi");
}

void CDeviceVariable::ReleaseVariable() {
    m_bufferModified.Reset();
    m_bufferLoadMePlease.Reset();
    m_deviceDownloaded.Reset();
    m_deviceUploaded.Reset();
    m_owner.reset();
    m_eventSink.reset();
    m_nodeVariable.reset();
    m_configItem.reset();
}

// ---- Transfer ----------------------------------------------------------------------------------

void CDeviceVariable::Upload() {
    const auto keepAlive = weak_from_this().lock();
    try {
        if (m_nodeVariable) {
            m_valueBuffer->SetBytes(BytesOf(m_nodeVariable->ReadValue()));
        } else if (m_configItem) {
            m_valueBuffer->SetBytes(BytesOf(m_configItem->ReadValue()));
        }
        m_modified = false;
        CopyValueToDeviceBuffer();
    } catch (const ComError&) {
        // Whatever went wrong, the host sees one message for a failed load.
        RaiseLibraryError(LibraryErrorNumber(kIdVariableLoadTimeout),
                          source::Join(source::kDeviceVariable, source::kUpload));
    }
}

void CDeviceVariable::Download(std::int32_t /*level*/, bool force) {
    if (!m_modified && !force) return;
    if (!m_nodeVariable) return;  // configuration items reach the host as they are modified
    const auto keepAlive = weak_from_this().lock();
    m_nodeVariable->WriteValue(Variant(m_valueBuffer->GetBytes()));
    CopyValueToDeviceBuffer();
}

Variant CDeviceVariable::Value() {
    return m_rootElement ? m_rootElement->Value(0) : Variant();
}

void CDeviceVariable::SetValue(const Variant& value) {
    if (m_rootElement) m_rootElement->SetValue(0, value);
}

bool CDeviceVariable::Undefined() {
    return m_rootElement ? m_rootElement->Undefined(0) : false;
}

void CDeviceVariable::CopyValueToDeviceBuffer() {
    // A copy of an unloaded value is an unloaded value: asking the value buffer for its bytes
    // would make it ask for a load again.
    if (m_valueBuffer->IsLoaded()) {
        m_deviceBuffer->CopyFrom(*m_valueBuffer);
    } else {
        m_deviceBuffer->SetBytes(ByteArray());
    }
}

// ---- Event handlers ----------------------------------------------------------------------------

void CDeviceVariable::OnBufferLoadMePlease() {
    Upload();
}

void CDeviceVariable::OnBufferModified() {
    const auto self = weak_from_this().lock();
    m_modified = true;
    if (m_configItem) {
        Variant bytes(m_valueBuffer->GetBytes());
        m_configItem->WriteValue(bytes);
    }
    if (const auto sink = m_eventSink.lock(); sink && self) sink->Modified(self);
}

void CDeviceVariable::OnAfterConfigDMDownload() {
    if (m_configItem) CopyValueToDeviceBuffer();
}

void CDeviceVariable::OnAfterConfigDMUpload() {
    if (m_configItem) Upload();
}

}  // namespace vx
