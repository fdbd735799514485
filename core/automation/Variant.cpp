#include "automation/Variant.h"

namespace vx {

Variant::Variant(VariantArray v) : m_value(std::make_shared<VariantArray>(std::move(v))) {}

std::int32_t Variant::Type() const noexcept {
    struct Visitor {
        std::int32_t operator()(const EmptyValue&) const { return vbEmpty; }
        std::int32_t operator()(const NullValue&) const { return vbNull; }
        std::int32_t operator()(std::int16_t) const { return vbInteger; }
        std::int32_t operator()(std::int32_t) const { return vbLong; }
        std::int32_t operator()(float) const { return vbSingle; }
        std::int32_t operator()(double) const { return vbDouble; }
        std::int32_t operator()(bool) const { return vbBoolean; }
        std::int32_t operator()(std::uint8_t) const { return vbByte; }
        std::int32_t operator()(const std::string&) const { return vbString; }
        std::int32_t operator()(const ObjectPtr&) const { return vbObject; }
        std::int32_t operator()(const ByteArray&) const { return vbArray | vbByte; }
        std::int32_t operator()(const StringArray&) const { return vbArray | vbString; }
        std::int32_t operator()(const std::shared_ptr<VariantArray>&) const {
            return vbArray | vbVariant;
        }
    };
    return std::visit(Visitor{}, m_value);
}

bool Variant::IsNumber() const noexcept {
    switch (Type()) {
        case vbInteger:
        case vbLong:
        case vbSingle:
        case vbDouble:
        case vbByte:
            return true;
        default:
            return false;
    }
}

ObjectPtr Variant::AsObject() const {
    if (const auto* object = std::get_if<ObjectPtr>(&m_value)) return *object;
    RaiseRuntimeError(kErrTypeMismatch);
}

bool Variant::operator==(const Variant& other) const {
    const auto* mine = Get<VariantArray>();
    const auto* theirs = other.Get<VariantArray>();
    if (mine != nullptr || theirs != nullptr) {
        return mine != nullptr && theirs != nullptr && *mine == *theirs;
    }
    return m_value == other.m_value;
}

}  // namespace vx
