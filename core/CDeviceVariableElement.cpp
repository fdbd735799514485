#include "CDeviceVariableElement.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "ErrorSupport.h"
#include "SupportRoutines.h"
#include "automation/Conversions.h"
#include "automation/Overflow.h"

namespace vx {

namespace {

[[noreturn]] void RaiseBadSubscript() {
    throw RuntimeError(kErrInvalidProcedureCall,
                       source::Join(source::kDeviceVariableElement, source::kSubElement));
}

// The entries of an array subscript, each as a Variant.
std::vector<Variant> Entries(const Variant& array) {
    std::vector<Variant> entries;
    if (const auto* variants = array.Get<VariantArray>()) {
        entries = variants->Values();
    } else if (const auto* strings = array.Get<StringArray>()) {
        entries.assign(strings->Values().begin(), strings->Values().end());
    } else if (const auto* bytes = array.Get<ByteArray>()) {
        entries.assign(bytes->Values().begin(), bytes->Values().end());
    }
    return entries;
}

// Splits "a.b.c" at every point.
std::vector<std::string> SplitPath(const std::string& path) {
    std::vector<std::string> pieces;
    std::size_t start = 0;
    for (;;) {
        const std::size_t point = path.find('.', start);
        if (point == std::string::npos) {
            pieces.push_back(path.substr(start));
            return pieces;
        }
        pieces.push_back(path.substr(start, point - start));
        start = point + 1;
    }
}

// sign x 2^exponent + offset in double precision, exact for every width a field can have.
double PowerOfTwo(std::int64_t exponent, int sign, int offset) {
    return sign *
               std::ldexp(1.0, static_cast<int>(std::clamp<std::int64_t>(exponent, -4096, 4096))) +
           offset;
}

}  // namespace

void CDeviceVariableElement::InitElement(TypedefPtr typedef_, BufferPtr buffer,
                                         DataOffsetPtr offset, std::int32_t elements) {
    m_typedef = std::move(typedef_);
    m_facts.Reset(m_typedef.get());
    m_limits = {};
    m_buffer = std::move(buffer);
    m_offset = std::move(offset);
    m_elements = elements;
}

void CDeviceVariableElement::RaiseNotBound() {
    RaiseRuntimeError(kErrObjectNotSet);
}

std::int32_t CDeviceVariableElement::UBound() const {
    return CheckedSubtract(m_elements, 1);
}

bool CDeviceVariableElement::CanStore(const Variant& /*value*/,
                                      std::int32_t zeroBasedArrayIdx) const {
    return CanStore(Type().TypeCategory(), zeroBasedArrayIdx);
}

// ---- Limits ----------------------------------------------------------------------------------

double CDeviceVariableElement::WidthMin() const {
    const CachedTypedef& type = Type();
    if (!type.IsSigned()) return 0;
    return PowerOfTwo(std::int64_t{type.BitSize()} - 1, -1, 0);
}

double CDeviceVariableElement::WidthMax() const {
    const CachedTypedef& type = Type();
    const std::int64_t valueBits = std::int64_t{type.BitSize()} - (type.IsSigned() ? 1 : 0);
    return PowerOfTwo(valueBits, 1, -1);
}

std::int32_t CDeviceVariableElement::RawTypeMin() const {
    return CLng(WidthMin());
}

std::int32_t CDeviceVariableElement::RawTypeMax() const {
    return CLng(WidthMax());
}

// The intersection is taken before it becomes a Long: a width wider than a Long (an unsigned
// 32-bit count) is then limited by the declared range, which always fits.
std::int32_t CDeviceVariableElement::LearnIntegerRawMin() const {
    const double width = WidthMin();
    m_limits.rawMin = CLng(std::max(width, static_cast<double>(Type().MinValue())));
    m_limits.known |= Limits::kRawMin;
    return m_limits.rawMin;
}

std::int32_t CDeviceVariableElement::LearnIntegerRawMax() const {
    const double width = WidthMax();
    m_limits.rawMax = CLng(std::min(width, static_cast<double>(Type().MaxValue())));
    m_limits.known |= Limits::kRawMax;
    return m_limits.rawMax;
}

float CDeviceVariableElement::LearnScaledIntegerMin() const {
    m_limits.scaledMin = Scaled(IntegerRawMin());
    m_limits.known |= Limits::kScaledMin;
    return m_limits.scaledMin;
}

float CDeviceVariableElement::LearnScaledIntegerMax() const {
    m_limits.scaledMax = Scaled(IntegerRawMax());
    m_limits.known |= Limits::kScaledMax;
    return m_limits.scaledMax;
}

float CDeviceVariableElement::Scaled(std::int32_t raw) const {
    return RawToScaled(raw, Type().ScaleFactor(), Type().ScaleMultiplies());
}

std::int32_t CDeviceVariableElement::RawMin() const {
    return Type().TypeCategory() == kCategoryInteger ? IntegerRawMin() : 0;
}

std::int32_t CDeviceVariableElement::RawMax() const {
    return Type().TypeCategory() == kCategoryInteger ? IntegerRawMax() : 0;
}

float CDeviceVariableElement::ScaledMin() const {
    const CachedTypedef& type = Type();
    switch (type.TypeCategory()) {
        case kCategoryInteger:
            return ScaledIntegerMin();
        case kCategoryFloat: {
            float limit = -1e38F;
            if (static_cast<float>(type.MinValue()) > limit) limit = CSng(type.MinValue());
            return limit;
        }
        default:
            return 0.0F;
    }
}

float CDeviceVariableElement::ScaledMax() const {
    const CachedTypedef& type = Type();
    switch (type.TypeCategory()) {
        case kCategoryInteger:
            return ScaledIntegerMax();
        case kCategoryFloat: {
            float limit = 1e38F;
            if (static_cast<float>(type.MaxValue()) < limit) limit = CSng(type.MaxValue());
            return limit;
        }
        default:
            return 0.0F;
    }
}

// ---- Values ----------------------------------------------------------------------------------

Variant CDeviceVariableElement::Value(std::int32_t arrayIndex) {
    const CachedTypedef& type = Type();
    const std::int32_t category = type.TypeCategory();
    if (!CanStore(category, arrayIndex)) return {};  // also every structure
    return Bytes().GetValue(type, category, m_offset, Entry(arrayIndex));
}

void CDeviceVariableElement::SetValue(std::int32_t arrayIndex, const Variant& value) {
    const CachedTypedef& type = Type();
    const std::int32_t category = type.TypeCategory();
    if (!CanStore(category, arrayIndex)) return;
    if (category != kCategoryInteger) {
        Bytes().SetValue(type, category, m_offset, Entry(arrayIndex), value);
        return;
    }
    // A Single, what values read as, is taken as it is; anything else as CDbl converts it.
    const float* single = value.Get<float>();
    const double wanted = single ? *single : CDbl(value);
    // Out of range: the nearest limit, as a Single.
    const float highest = ScaledIntegerMax();
    if (wanted > highest) {
        Bytes().SetScaled(type, m_offset, Entry(arrayIndex), highest);
        return;
    }
    const float lowest = ScaledIntegerMin();
    if (wanted < lowest) {
        Bytes().SetScaled(type, m_offset, Entry(arrayIndex), lowest);
        return;
    }
    Bytes().SetScaled(type, m_offset, Entry(arrayIndex), single ? *single : CSng(wanted));
}

std::int32_t CDeviceVariableElement::UnScaledValue(std::int32_t arrayIndex) {
    if (!CanStore(Variant(), arrayIndex)) return 0;  // also every structure
    return Bytes().GetLong(m_facts, m_offset, Entry(arrayIndex));
}

void CDeviceVariableElement::SetUnScaledValue(std::int32_t arrayIndex, std::int32_t value) {
    if (!CanStore(Variant(value), arrayIndex)) return;
    std::int32_t raw = value;
    if (Type().TypeCategory() == kCategoryInteger) {
        const std::int32_t highest = IntegerRawMax();
        if (raw > highest) {
            raw = highest;
        } else {
            const std::int32_t lowest = IntegerRawMin();
            if (raw < lowest) raw = lowest;
        }
    }
    Bytes().SetLong(m_facts, m_offset, Entry(arrayIndex), raw);
}

bool CDeviceVariableElement::Undefined(std::int32_t arrayIndex) {
    const CachedTypedef& type = Type();
    if (type.TypeCategory() != kCategoryInteger) return false;
    const std::int32_t raw = Bytes().GetLong(type, m_offset, Entry(arrayIndex));
    if (raw < IntegerRawMin()) return true;
    if (raw > IntegerRawMax()) return true;
    std::int32_t invalid = 0;
    if (type.InvalidValue(invalid)) return raw == invalid;
    return false;
}

// ---- Navigation ------------------------------------------------------------------------------

void CDeviceVariableElement::ApplySubscript(const Variant& key, ElementdefPtr& currentDef,
                                            TypedefPtr& currentType, DataOffsetPtr& currentOffset) {
    if (const auto* name = key.Get<std::string>()) {
        // Any text is a field name, digits included.
        if (!currentType) RaiseRuntimeError(kErrObjectNotSet);
        ElementdefPtr field = currentType->FieldByName(*name);
        if (!field) RaiseRuntimeError(kErrObjectNotSet);
        currentDef = field;
        currentType = field->Typedef();
        currentOffset->Add(*field);
    } else if (key.Type() == vbInteger || key.Type() == vbLong) {
        if (!currentDef) RaiseRuntimeError(kErrObjectNotSet);
        const TypedefPtr entryType = currentDef->Typedef();
        if (!entryType) RaiseRuntimeError(kErrObjectNotSet);
        currentOffset = currentOffset->CreateArrayOffset(*entryType, CLng(key));
    }
}

DataElementPtr CDeviceVariableElement::SubElement(const VariantArray& subscripts) {
    m_lastError.reset();
    DataElementPtr result = shared_from_this();
    const std::vector<Variant>& keys = subscripts.Values();
    if (keys.empty()) return result;
    if (!keys.front().IsArray() && keys.front().IsString() &&
        keys.front().Get<std::string>()->empty()) {
        return result;
    }

    // From here on nothing fails: each failing step is recorded and skipped.
    const auto attempt = [this](const auto& step) {
        try {
            step();
        } catch (const ComError& error) {
            m_lastError = error;
        }
    };

    ElementdefPtr currentDef;
    TypedefPtr currentType = m_typedef;
    auto currentOffset = std::make_shared<CDataOffset>();
    attempt([&] {
        if (!m_offset) RaiseRuntimeError(kErrObjectNotSet);
        currentOffset->SetByteOffset(m_offset->ByteOffset());
        currentOffset->SetBitOffset(m_offset->BitOffset());
    });

    for (std::size_t position = 0; position < keys.size(); ++position) {
        const Variant& key = keys[position];
        attempt([&] {
            if (key.IsArray()) {
                // An array of subscripts stands alone, and holds no arrays itself.
                if (keys.size() != 1) RaiseBadSubscript();
                for (const Variant& entry : Entries(key)) {
                    attempt([&] {
                        if (entry.IsArray()) RaiseBadSubscript();
                        ApplySubscript(entry, currentDef, currentType, currentOffset);
                    });
                }
                return;
            }
            if (key.IsEmpty() || key.IsNull()) return;  // no length: nothing to apply
            const std::string text = CStr(key);
            if (text.empty()) return;
            if (text.find('.') == std::string::npos) {
                ApplySubscript(key, currentDef, currentType, currentOffset);
                return;
            }
            // A dotted path is only allowed as the first subscript.
            if (position != 0) RaiseBadSubscript();
            for (const std::string& piece : SplitPath(text)) {
                attempt([&] {
                    ApplySubscript(Variant(piece), currentDef, currentType, currentOffset);
                });
            }
        });
    }

    // No field reached: the navigation stays where it started.
    if (!currentDef) return result;
    attempt([&] {
        auto element = std::make_shared<CDeviceVariableElement>();
        element->InitElement(currentDef->Typedef(), m_buffer, currentOffset,
                             currentDef->ArraySize());
        result = element;
    });
    return result;
}

}  // namespace vx
