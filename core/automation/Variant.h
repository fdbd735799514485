#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <variant>

#include "automation/SafeArray.h"

namespace vx {

// Root of every object a Variant can hold (the automation Object type). Interfaces derive from it
// virtually so that a class implementing several of them is still one Object.
class Object {
public:
    virtual ~Object() = default;
};
using ObjectPtr = std::shared_ptr<Object>;

// Variant type codes with the platform's numbers, because callers test them.
enum VarType : std::int32_t {
    vbEmpty = 0,
    vbNull = 1,
    vbInteger = 2,
    vbLong = 3,
    vbSingle = 4,
    vbDouble = 5,
    vbString = 8,
    vbObject = 9,
    vbBoolean = 11,
    vbVariant = 12,
    vbByte = 17,
    vbArray = 0x2000,
};

class Variant;
using VariantArray = SafeArray<Variant>;
using StringArray = SafeArray<std::string>;

// The automation VARIANT: a tagged value of one of the types above.
class Variant {
public:
    struct EmptyValue {
        bool operator==(const EmptyValue&) const = default;
    };
    struct NullValue {
        bool operator==(const NullValue&) const = default;
    };

    Variant() = default;  // Empty
    Variant(NullValue) : m_value(NullValue{}) {}
    Variant(std::int16_t v) : m_value(v) {}
    Variant(std::int32_t v) : m_value(v) {}
    Variant(float v) : m_value(v) {}
    Variant(double v) : m_value(v) {}
    Variant(bool v) : m_value(v) {}
    Variant(std::uint8_t v) : m_value(v) {}
    Variant(std::string v) : m_value(std::move(v)) {}
    Variant(const char* v) : m_value(std::string(v)) {}
    Variant(ObjectPtr v) : m_value(std::move(v)) {}
    template <typename T>
    requires(std::is_base_of_v<Object, T> && !std::is_same_v<T, Object>)
        Variant(std::shared_ptr<T> v)
        : m_value(ObjectPtr(std::move(v))) {}
    Variant(ByteArray v) : m_value(std::move(v)) {}
    Variant(StringArray v) : m_value(std::move(v)) {}
    Variant(VariantArray v);

    static Variant Null() { return Variant(NullValue{}); }

    // The platform's VarType number, 0x2000 | element type for arrays.
    std::int32_t Type() const noexcept;

    bool IsEmpty() const noexcept { return std::holds_alternative<EmptyValue>(m_value); }
    bool IsNull() const noexcept { return std::holds_alternative<NullValue>(m_value); }
    bool IsObject() const noexcept { return std::holds_alternative<ObjectPtr>(m_value); }
    bool IsString() const noexcept { return std::holds_alternative<std::string>(m_value); }
    bool IsArray() const noexcept { return (Type() & vbArray) != 0; }
    // True for the numeric types Integer, Long, Single, Double, Byte (not Boolean).
    bool IsNumber() const noexcept;

    // The held value if it has exactly that type, else nullptr.
    template <typename T>
    const T* Get() const noexcept {
        if constexpr (std::is_same_v<T, VariantArray>) {
            auto* held = std::get_if<std::shared_ptr<VariantArray>>(&m_value);
            return held ? held->get() : nullptr;
        } else {
            return std::get_if<T>(&m_value);
        }
    }

    // The held object (Nothing gives nullptr); a non-object value is a type mismatch.
    ObjectPtr AsObject() const;

    bool operator==(const Variant& other) const;

private:
    // A Variant array is held behind a pointer so that Variant can contain itself; the array is
    // never changed after construction, so copies may share it.
    std::variant<EmptyValue, NullValue, std::int16_t, std::int32_t, float, double, bool,
                 std::uint8_t, std::string, ObjectPtr, ByteArray, StringArray,
                 std::shared_ptr<VariantArray>>
        m_value;
};

}  // namespace vx
