#include "CDeviceObjects.h"

#include <string>
#include <string_view>

#include "CDevice.h"
#include "SupportRoutines.h"
#include "automation/ComError.h"
#include "automation/Conversions.h"
#include "interfaces/INodeConnection.h"
#include "interfaces/INodeVariable.h"

namespace vx {
namespace {

// The well-known slot a node-object network variable of this standard type fills, if any.
std::optional<std::size_t> SlotOfType(std::int32_t typeIndex) {
    switch (typeIndex) {
        case 92:
            return kSlotObjectRequest;
        case 93:
            return kSlotObjectStatus;
        case 88:
            return kSlotAlarm;
        case 84:
            return kSlotTimeStamp;
        case 73:
            return kSlotFileRequest;
        case 90:
            return kSlotFilePosition;
        default:
            return std::nullopt;
    }
}

NodeConnectionPtr ConnectionOf(const std::weak_ptr<CDevice>& device) {
    const auto owner = device.lock();
    const auto connection = owner ? owner->Connection() : nullptr;
    if (!connection) RaiseRuntimeError(kErrObjectNotSet);
    return connection;
}

NodeVariableListPtr Checked(NodeVariableListPtr list) {
    if (!list) RaiseRuntimeError(kErrObjectNotSet);
    return list;
}

}  // namespace

DeviceObjectPtr CDeviceObjects::Item(std::int32_t index) const {
    const auto* found = m_objects.Find(std::to_string(index));
    return found ? *found : nullptr;
}

std::vector<DeviceObjectPtr> CDeviceObjects::NewEnum() const {
    return {m_objects.begin(), m_objects.end()};
}

void CDeviceObjects::ParseSelfDoc(const std::shared_ptr<CDevice>& device) {
    m_device = device;
    if (!device) return;
    const std::string selfDoc = device->SelfDoc();
    const auto parts = SplitText(selfDoc, ';');
    if (parts.empty()) return;  // an empty text: the array stays unsized
    const auto atPieces = SplitText(parts.front(), '@');
    if (atPieces.size() < 2) return;  // no profile list: the array stays unsized

    // An empty list splits into no entries, and an array of no entries has no bounds.
    const auto entries = SplitText(atPieces[1], ',');
    if (entries.empty()) return;
    m_profiles =
        SafeArray<std::int32_t>::WithBounds(0, static_cast<std::int32_t>(entries.size()) - 1);
    try {
        for (std::size_t i = 0; i < entries.size(); ++i) {
            m_profiles.Values()[i] = CLng(Variant(std::string(TrimBlanks(entries[i]))));
        }
    } catch (const ComError&) {
        // An entry that is no number ends the list; the entries after it stay 0.
    }
}

DeviceObjectPtr CDeviceObjects::ObjectByIndex(std::int32_t index) {
    const std::string key = std::to_string(index);
    if (const auto* found = m_objects.Find(key)) return *found;

    const std::int32_t profile =
        index >= m_profiles.LBound() && index <= m_profiles.UBound() ? m_profiles(index) : -1;
    auto object = std::make_shared<CDeviceObject>();
    object->InitObject(index, profile, m_device.lock());
    m_objects.Add(object, key);
    return object;
}

DeviceVariablePtr CDeviceObjects::CreateVariable(const ObjectPtr& hostItem,
                                                 WellKnownVariables& record,
                                                 const VarEventsPtr& eventSink) {
    auto variable = std::make_shared<CDeviceVariable>();
    const VariableBinding binding = variable->InitVariable(m_device.lock(), hostItem, eventSink);

    if (binding.bound) {
        const auto object = ObjectByIndex(binding.objectIndex);
        if (const auto* networkVariable = dynamic_cast<const INodeVariable*>(hostItem.get())) {
            const std::int32_t hostIndex = networkVariable->Index();
            if (hostIndex < 0 || static_cast<std::size_t>(hostIndex) >= m_variableToObject.size()) {
                RaiseRuntimeError(kErrSubscriptOutOfRange);
            }
            m_variableToObject[static_cast<std::size_t>(hostIndex)] = binding.objectIndex;
        }
        object->AddVariable(variable);
        if (object->ID() == 0) {
            if (variable->MemberGroup() == 0) {
                // A variable of no known type has no type index and fills no slot.
                if (const auto type = variable->Typedef()) {
                    if (const auto slot = SlotOfType(type->TypeIndex())) record[*slot] = variable;
                }
            } else if (variable->MemberGroup() == 3) {
                if (variable->MemberNumber() == 1) record[kSlotCommand] = variable;
                if (variable->MemberNumber() == 2) record[kSlotCommandStatus] = variable;
            }
        }
    } else {
        variable->SetTagID(binding.objectIndex);
        m_pending.push_back(variable);
    }

    if (variable->ScopeCode() == 3 && variable->MemberNumber() == 1) {
        record[kSlotCrcProperty] = variable;
    }
    return variable;
}

void CDeviceObjects::BindNetworkVariables(WellKnownVariables& record,
                                          const VarEventsPtr& eventSink) {
    const auto list = Checked(ConnectionOf(m_device)->NetworkVariables());
    const std::int32_t count = list->Count();
    if (count < 1) RaiseRuntimeError(kErrSubscriptOutOfRange);  // no bounds 0 .. count-1
    m_variableToObject.assign(static_cast<std::size_t>(count), 0);
    for (const auto& item : list->Items()) {
        CreateVariable(item, record, eventSink);
    }

    // Properties of network variables go to the object their variable went to. The list is kept:
    // release still reaches every variable through it.
    for (const auto& variable : m_pending) {
        const std::int32_t nvIndex = variable->TagID();
        if (nvIndex < 0 || static_cast<std::size_t>(nvIndex) >= m_variableToObject.size()) {
            RaiseRuntimeError(kErrSubscriptOutOfRange);
        }
        const auto object = Item(m_variableToObject[static_cast<std::size_t>(nvIndex)]);
        if (!object) RaiseRuntimeError(kErrObjectNotSet);
        object->AddVariable(variable);
        variable->SetTagID(0);
    }
}

void CDeviceObjects::BindConfigItems(WellKnownVariables& record, const VarEventsPtr& eventSink) {
    try {
        const auto list = Checked(ConnectionOf(m_device)->ConfigurationProperties());
        for (const auto& item : list->Items()) {
            CreateVariable(item, record, eventSink);
        }
    } catch (const ComError&) {
        // The items made before the failure stay bound.
    }
}

void CDeviceObjects::ReleaseAll() {
    m_device.reset();
    for (const auto& object : m_objects) {
        object->ReleaseObject();
    }
    for (const auto& variable : m_pending) {
        variable->ReleaseVariable();
    }
}

}  // namespace vx
