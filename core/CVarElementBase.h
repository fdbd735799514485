#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "automation/Variant.h"
#include "interfaces/IOrvexElementdef.h"

namespace vx {

// The element definition of a whole variable value: the variable's type, placed at offset 0.
class CVarElementBase final : public IOrvexElementdef {
public:
    std::int32_t ArraySize() const override { return 0; }
    TypedefPtr Typedef() const override { return m_typedef; }
    std::int32_t ByteOffset() const override { return 0; }
    std::int32_t BitOffset() const override { return 0; }

    // Library-internal: the variable model stores its type description here.
    void SetTypedef(TypedefPtr typedef_) { m_typedef = std::move(typedef_); }

    // The rest of the host's element contract, with the fixed answers of a whole value: no
    // parent or sibling element, no index, no field name, not a member, a whole value.
    ObjectPtr Parent() const { return nullptr; }
    ObjectPtr NextElement() const { return nullptr; }
    std::int32_t ElementIndex() const { return 0; }
    std::string FieldName() const { return {}; }
    std::int16_t MemberKind() const { return 0; }
    bool IsWholeValue() const { return true; }
    void Attach(const Variant& /*unused*/) {}

private:
    TypedefPtr m_typedef;
};

}  // namespace vx
