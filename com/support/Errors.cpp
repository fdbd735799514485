#include "Errors.h"

#include <ole2.h>
#include <windows.h>

#include <string>

#include "ComPtr.h"
#include "Text.h"

namespace vx::com {
namespace {

constexpr std::uint32_t kControlFacility = 0x800A0000u;
constexpr std::int32_t kErrOutOfMemory = 7;

std::string TextOf(BSTR text) {
    std::string result = text ? FromBstr(text) : std::string();
    SysFreeString(text);
    return result;
}

std::string SystemText(HRESULT result) {
    wchar_t* buffer = nullptr;
    const DWORD length = FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
        nullptr, static_cast<DWORD>(result), 0, reinterpret_cast<wchar_t*>(&buffer), 0, nullptr);
    if (length == 0 || !buffer) return {};
    std::wstring wide(buffer, length);
    LocalFree(buffer);
    while (!wide.empty() && (wide.back() == L'\n' || wide.back() == L'\r'))
        wide.pop_back();
    return TextOf(SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size())));
}

}  // namespace

HRESULT HresultFromNumber(std::int32_t number) {
    if (number < 0) return static_cast<HRESULT>(number);
    return static_cast<HRESULT>(kControlFacility | (static_cast<std::uint32_t>(number) & 0xFFFFu));
}

std::int32_t NumberFromHresult(HRESULT result) {
    const auto bits = static_cast<std::uint32_t>(result);
    if ((bits & 0xFFFF0000u) == kControlFacility) return static_cast<std::int32_t>(bits & 0xFFFFu);
    return static_cast<std::int32_t>(result);
}

HRESULT ReportError(const ComError& error) {
    ComPtr<ICreateErrorInfo> created;
    if (SUCCEEDED(CreateErrorInfo(created.Put()))) {
        BSTR source = ToBstr(error.Source());
        BSTR description = ToBstr(error.Description());
        created->SetGUID(GUID_NULL);
        created->SetSource(source);
        created->SetDescription(description);
        if (!error.HelpFile().empty()) {
            BSTR helpFile = ToBstr(error.HelpFile());
            created->SetHelpFile(helpFile);
            SysFreeString(helpFile);
        }
        created->SetHelpContext(static_cast<DWORD>(error.HelpContext()));
        SysFreeString(source);
        SysFreeString(description);
        if (auto info = created.As<IErrorInfo>()) SetErrorInfo(0, info.Get());
    }
    return HresultFromNumber(error.Number());
}

HRESULT ReportCurrentException() noexcept {
    try {
        throw;
    } catch (const ComError& error) {
        try {
            return ReportError(error);
        } catch (...) {
            return HresultFromNumber(error.Number());
        }
    } catch (const HresultError& error) {
        SetErrorInfo(0, nullptr);
        return error.Result();
    } catch (const std::bad_alloc&) {
        try {
            return ReportError(RuntimeError(kErrOutOfMemory));
        } catch (...) {
            return E_OUTOFMEMORY;
        }
    } catch (const std::exception& error) {
        try {
            return ReportError(ComError(static_cast<std::int32_t>(E_UNEXPECTED),
                                        kRuntimeErrorSource, error.what()));
        } catch (...) {
            return E_UNEXPECTED;
        }
    } catch (...) {
        return E_UNEXPECTED;
    }
}

void Check(HRESULT result) {
    if (SUCCEEDED(result)) return;
    std::string source;
    std::string description;
    ComPtr<IErrorInfo> info;
    if (GetErrorInfo(0, info.Put()) == S_OK && info) {
        BSTR text = nullptr;
        if (SUCCEEDED(info->GetSource(&text))) source = TextOf(text);
        text = nullptr;
        if (SUCCEEDED(info->GetDescription(&text))) description = TextOf(text);
    }
    const std::int32_t number = NumberFromHresult(result);
    if (description.empty()) {
        description = number > 0 ? RuntimeErrorText(number) : SystemText(result);
    }
    throw ComError(number, std::move(source), std::move(description));
}

}  // namespace vx::com
