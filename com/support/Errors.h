#pragma once

#include <ole2.h>
#include <windows.h>

#include <cstdint>
#include <exception>
#include <new>

#include "automation/ComError.h"

namespace vx::com {

// A failure that is an HRESULT and nothing more (a null out-pointer, a missing interface).
class HresultError : public std::exception {
public:
    explicit HresultError(HRESULT result) : m_result(result) {}
    HRESULT Result() const noexcept { return m_result; }
    const char* what() const noexcept override { return "COM call failed"; }

private:
    HRESULT m_result;
};

// The HRESULT a library error number travels as: library errors keep their 0x8004xxxx number,
// run-time error n becomes 0x800A0000 | n, as the platform's own script engines report it.
HRESULT HresultFromNumber(std::int32_t number);
// The reverse, for failures that come back from a host object.
std::int32_t NumberFromHresult(HRESULT result);

// Publishes `error` as the thread's error object and returns its HRESULT.
HRESULT ReportError(const ComError& error);
// The HRESULT (and error object) of the exception being handled.
HRESULT ReportCurrentException() noexcept;

// Runs one interface member: any exception becomes its HRESULT and error object, so none
// crosses the COM boundary.
template <typename Body>
HRESULT Guard(Body&& body) noexcept {
    try {
        body();
        return S_OK;
    } catch (...) {
        return ReportCurrentException();
    }
}

// The out-parameter a member fills; a null pointer is the caller's error (E_POINTER).
template <typename T>
T& Out(T* slot) {
    if (!slot) throw HresultError(E_POINTER);
    return *slot;
}

// Calls into host objects: a failure becomes the ComError the host reported (its number, source
// and description), so it reaches our caller unchanged.
void Check(HRESULT result);

}  // namespace vx::com
