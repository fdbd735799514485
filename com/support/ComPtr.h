#pragma once

#include <ole2.h>
#include <windows.h>

#include <utility>

namespace vx::com {

// An owning COM interface pointer: AddRef on copy, Release on destruction.
template <typename T>
class ComPtr {
public:
    ComPtr() = default;
    ComPtr(std::nullptr_t) {}
    // Takes a reference of its own.
    explicit ComPtr(T* raw) : m_raw(raw) {
        if (m_raw) m_raw->AddRef();
    }
    ComPtr(const ComPtr& other) : ComPtr(other.m_raw) {}
    ComPtr(ComPtr&& other) noexcept : m_raw(std::exchange(other.m_raw, nullptr)) {}
    ComPtr& operator=(ComPtr other) noexcept {
        std::swap(m_raw, other.m_raw);
        return *this;
    }
    ~ComPtr() { Reset(); }

    // Adopts a reference the caller already owns (an out-parameter result).
    static ComPtr Adopt(T* raw) {
        ComPtr result;
        result.m_raw = raw;
        return result;
    }

    void Reset() {
        if (m_raw) std::exchange(m_raw, nullptr)->Release();
    }
    // For out-parameters: drops the held reference and gives the slot to fill.
    T** Put() {
        Reset();
        return &m_raw;
    }
    // Hands the reference to the caller.
    T* Detach() noexcept { return std::exchange(m_raw, nullptr); }

    T* Get() const noexcept { return m_raw; }
    T* operator->() const noexcept { return m_raw; }
    explicit operator bool() const noexcept { return m_raw != nullptr; }

    // The same object through another interface; empty when it does not offer it.
    template <typename U>
    ComPtr<U> As() const {
        ComPtr<U> result;
        if (m_raw) m_raw->QueryInterface(__uuidof(U), reinterpret_cast<void**>(result.Put()));
        return result;
    }

private:
    T* m_raw = nullptr;
};

}  // namespace vx::com
