#include "CatalogueType.h"

#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <numeric>
#include <utility>

#include "automation/Collection.h"
#include "automation/ComError.h"

namespace vx {
namespace {

constexpr const char* kFieldByNameSource = "Vx.CatalogueType.IOrvexTypedef_FieldByName()";
constexpr std::uint64_t kInt32Max = std::numeric_limits<std::int32_t>::max();

// A terminating decimal: mantissa x 10^exponent, the mantissa without trailing zeros.
struct Decimal {
    std::uint64_t mantissa = 0;
    std::int32_t exponent = 0;
};

// The decimal a double was written as: the shortest text that reads back as the same double, so
// 0.005 is 5 x 10^-3 and not the binary fraction nearest to it.
std::optional<Decimal> ShortestDecimal(double value) {
    std::array<char, 64> text{};
    const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc()) return std::nullopt;
    Decimal result;
    int digits = 0;
    bool fraction = false;
    const char* at = text.data();
    for (; at != end && *at != 'e'; ++at) {
        if (*at == '.') {
            fraction = true;
            continue;
        }
        if (*at < '0' || *at > '9') return std::nullopt;  // sign, inf, nan
        if (digits == 18) return std::nullopt;
        result.mantissa = result.mantissa * 10 + static_cast<std::uint64_t>(*at - '0');
        if (result.mantissa != 0) ++digits;
        if (fraction) --result.exponent;
    }
    if (at != end) {
        int exponent = 0;
        const auto parsed = std::from_chars(at + 1 + (at[1] == '+' ? 1 : 0), end, exponent);
        if (parsed.ec != std::errc()) return std::nullopt;
        result.exponent += exponent;
    }
    if (result.mantissa == 0) return std::nullopt;
    while (result.mantissa % 10 == 0) {
        result.mantissa /= 10;
        ++result.exponent;
    }
    return result;
}

std::string DecimalText(const Decimal& value) {
    std::string digits = std::to_string(value.mantissa);
    if (value.exponent >= 0) {
        return digits + std::string(static_cast<std::size_t>(value.exponent), '0');
    }
    const auto places = static_cast<std::size_t>(-static_cast<std::int64_t>(value.exponent));
    if (digits.size() > places) {
        // Appended, not inserted: g++ 12 at -O3 takes the insert for an overlapping copy (a false
        // -Wrestrict).
        const std::size_t point = digits.size() - places;
        std::string text = digits.substr(0, point);
        text.append(1, '.').append(digits, point);
        return text;
    }
    return "0." + std::string(places - digits.size(), '0') + digits;
}

// 10^n for n up to 19, or nothing.
std::optional<std::uint64_t> PowerOfTen(std::int64_t n) {
    if (n < 0 || n > 19) return std::nullopt;
    std::uint64_t power = 1;
    for (std::int64_t i = 0; i < n; ++i)
        power *= 10;
    return power;
}

}  // namespace

ScaleMapping MapScale(double a, std::int32_t b, std::int32_t c) {
    auto decimal = ShortestDecimal(a);
    if (!decimal) return {1, false, "raw"};  // not positive and finite: no scaling to state
    decimal->exponent += b;
    if (c == 0) {
        const std::int64_t exponent = decimal->exponent;
        if (exponent >= 0) {
            const auto power = PowerOfTen(exponent);
            if (power && decimal->mantissa <= kInt32Max / *power) {
                const auto factor = static_cast<std::int32_t>(decimal->mantissa * *power);
                return factor >= 2 ? ScaleMapping{factor, true, ""} : ScaleMapping{1, false, ""};
            }
        } else if (const auto power = PowerOfTen(-exponent)) {
            const std::uint64_t common = std::gcd(decimal->mantissa, *power);
            if (decimal->mantissa / common == 1 && *power / common <= kInt32Max) {
                return {static_cast<std::int32_t>(*power / common), false, ""};
            }
        }
    }
    std::string text = DecimalText(*decimal);
    if (c == 0) return {1, false, text + " * raw"};
    text += c > 0 ? " * (raw + " : " * (raw - ";
    text += std::to_string(std::abs(static_cast<std::int64_t>(c)));
    return {1, false, text + ")"};
}

CatalogueField::CatalogueField(std::string name, TypedefPtr type, std::int32_t byteOffset,
                               std::int32_t bitOffset, std::int32_t arraySize)
    : m_name(std::move(name)),
      m_type(std::move(type)),
      m_byteOffset(byteOffset),
      m_bitOffset(bitOffset),
      m_arraySize(arraySize) {}

std::int32_t CatalogueField::BitCount() const {
    return m_type->BitSize() * std::max(m_arraySize, 1);
}

CatalogueType::CatalogueType(TypeFacts facts, std::vector<CatalogueFieldPtr> fields)
    : m_facts(std::move(facts)), m_fields(std::move(fields)) {
    for (std::size_t i = 0; i < m_fields.size(); ++i) {
        m_fieldPositions.emplace(FoldKey(m_fields[i]->Name()), i);
    }
}

bool CatalogueType::InvalidValue(std::int32_t& rawInvalid) const {
    rawInvalid = m_facts.hasInvalid ? m_facts.invalidRaw : 0;
    return m_facts.hasInvalid;
}

CatalogueFieldPtr CatalogueType::FindField(std::string_view name) const {
    const auto found = m_fieldPositions.find(FoldKey(name));
    return found == m_fieldPositions.end() ? nullptr : m_fields[found->second];
}

std::shared_ptr<IOrvexElementdef> CatalogueType::FieldByName(std::string_view name) const {
    auto field = FindField(name);
    if (!field) RaiseRuntimeError(kErrInvalidProcedureCall, kFieldByNameSource);
    return field;
}

StringArray CatalogueType::FieldNames() const {
    if (m_fields.empty()) return {};
    std::vector<std::string> names;
    names.reserve(m_fields.size());
    for (const auto& field : m_fields)
        names.push_back(field->Name());
    return StringArray(0, std::move(names));
}

std::string CatalogueType::EnumMemberName(std::int32_t raw) const {
    if (!m_facts.enumMembers) return {};
    for (const auto& member : *m_facts.enumMembers) {
        if (member.value == raw) return member.name;
    }
    return {};
}

std::optional<std::int32_t> CatalogueType::EnumMemberValue(std::string_view member) const {
    if (!m_facts.enumMembers) return std::nullopt;
    const std::string folded = FoldKey(member);
    for (const auto& candidate : *m_facts.enumMembers) {
        if (FoldKey(candidate.name) == folded) return candidate.value;
    }
    return std::nullopt;
}

double CatalogueType::Engineering(std::int64_t raw) const {
    // Dividing by the power of ten keeps decimal results such as 23.45 as close as a double gets.
    const double shifted = m_facts.scaleA * static_cast<double>(raw + m_facts.scaleC);
    if (m_facts.scaleB >= 0) return shifted * std::pow(10.0, m_facts.scaleB);
    return shifted / std::pow(10.0, -m_facts.scaleB);
}

}  // namespace vx
