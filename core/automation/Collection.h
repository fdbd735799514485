#pragma once

#include <cctype>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "automation/Conversions.h"

namespace vx {

// Keys of automation collections compare without regard to case (one byte per character).
inline std::string FoldKey(std::string_view key) {
    std::string folded(key);
    for (char& c : folded)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return folded;
}

// The automation keyed collection: insertion order, 1-based index, optional text key compared
// without regard to case and found by hashing. Errors are the platform's: a bad index raises 9,
// a missing key 5, a duplicate key 457.
template <typename T>
class Collection {
public:
    struct Entry {
        std::optional<std::string> key;
        T value;
    };

    void Add(T value, std::optional<std::string> key = std::nullopt) {
        if (key) {
            auto folded = FoldKey(*key);
            if (m_positions.contains(folded)) RaiseRuntimeError(kErrDuplicateKey);
            m_positions.emplace(std::move(folded), m_entries.size());
        }
        m_entries.push_back(Entry{std::move(key), std::move(value)});
    }

    std::int32_t Count() const noexcept { return static_cast<std::int32_t>(m_entries.size()); }

    const T& Item(std::int32_t index) const { return m_entries[Position(index)].value; }
    T& Item(std::int32_t index) { return m_entries[Position(index)].value; }
    const T& Item(std::string_view key) const { return m_entries[Position(key)].value; }
    T& Item(std::string_view key) { return m_entries[Position(key)].value; }

    // Item by Variant as the platform dispatches it: a text is a key, anything else an index.
    const T& Item(const Variant& keyOrIndex) const {
        if (const auto* key = keyOrIndex.Get<std::string>()) return Item(std::string_view(*key));
        return Item(CLng(keyOrIndex));
    }

    // The item under key, or nullptr; never raises.
    const T* Find(std::string_view key) const {
        const auto found = m_positions.find(FoldKey(key));
        return found == m_positions.end() ? nullptr : &m_entries[found->second].value;
    }
    T* Find(std::string_view key) {
        const auto found = m_positions.find(FoldKey(key));
        return found == m_positions.end() ? nullptr : &m_entries[found->second].value;
    }
    bool Contains(std::string_view key) const { return Find(key) != nullptr; }

    void Remove(std::int32_t index) { Erase(Position(index)); }
    void Remove(std::string_view key) { Erase(Position(key)); }

    void Clear() noexcept {
        m_entries.clear();
        m_positions.clear();
    }

    // Enumeration in insertion order (For Each).
    auto begin() const noexcept { return ConstIterator{m_entries.begin()}; }
    auto end() const noexcept { return ConstIterator{m_entries.end()}; }

    const std::vector<Entry>& Entries() const noexcept { return m_entries; }

private:
    using EntryList = std::vector<Entry>;

    template <typename Iterator>
    struct ValueIterator {
        using iterator_category = std::forward_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = const T*;
        using reference = const T&;

        Iterator at;
        const T& operator*() const { return at->value; }
        const T* operator->() const { return &at->value; }
        ValueIterator& operator++() {
            ++at;
            return *this;
        }
        ValueIterator operator++(int) {
            auto before = *this;
            ++at;
            return before;
        }
        bool operator==(const ValueIterator&) const = default;
    };

    using ConstIterator = ValueIterator<typename EntryList::const_iterator>;

    std::size_t Position(std::int32_t index) const {
        if (index < 1 || index > Count()) RaiseRuntimeError(kErrSubscriptOutOfRange);
        return static_cast<std::size_t>(index - 1);
    }
    std::size_t Position(std::string_view key) const {
        const auto found = m_positions.find(FoldKey(key));
        if (found == m_positions.end()) RaiseRuntimeError(kErrInvalidProcedureCall);
        return found->second;
    }
    void Erase(std::size_t position) {
        if (const auto& key = m_entries[position].key) m_positions.erase(FoldKey(*key));
        m_entries.erase(m_entries.begin() + static_cast<std::ptrdiff_t>(position));
        for (auto& [key, at] : m_positions) {
            if (at > position) --at;
        }
    }

    EntryList m_entries;
    std::unordered_map<std::string, std::size_t> m_positions;
};

}  // namespace vx
