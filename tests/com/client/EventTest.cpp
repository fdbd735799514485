// The device's events reach a sink advised through its connection point, as often as the
// configuration transfer announces them, and stop once the sink is unadvised.
#include <windows.h>

#include <ole2.h>
#include <olectl.h>

#include <array>

#include "Cases.h"
#include "Check.h"
#include "Com.h"

namespace cases {
namespace {

using client::Ptr;

constexpr DISPID kAfterUpload = 1;
constexpr DISPID kAfterDownload = 2;
constexpr DISPID kRequestDownload = 3;
constexpr LONG kConfigItems = 1;
constexpr LONG kConfigProperties = 2;

// A host's event sink: an IDispatch that counts the calls per DISPID. It lives on the stack, so
// its references are only counted, to see that the device gives them all back.
class EventSink final : public IDispatch {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
        if (!out) return E_POINTER;
        *out = nullptr;
        if (!IsEqualIID(iid, IID_IUnknown) && !IsEqualIID(iid, IID_IDispatch) &&
            !IsEqualIID(iid, DIID__IOrvexDeviceEvents)) {
            return E_NOINTERFACE;
        }
        *out = static_cast<IDispatch*>(this);
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
    ULONG STDMETHODCALLTYPE Release() override { return --m_references; }

    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* count) override {
        if (!count) return E_POINTER;
        *count = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo** info) override {
        if (info) *info = nullptr;
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID member, REFIID iid, LCID, WORD flags,
                                     DISPPARAMS* params, VARIANT*, EXCEPINFO*, UINT*) override {
        const bool known = member >= kAfterUpload && member <= kRequestDownload;
        ++m_calls[known ? static_cast<std::size_t>(member) : 0];
        // The events take no arguments and are methods of the events interface.
        if (!IsEqualIID(iid, IID_NULL) || (flags & DISPATCH_METHOD) == 0 || !params ||
            params->cArgs != 0) {
            ++m_malformed;
        }
        return S_OK;
    }

    int Calls(DISPID member) const { return m_calls[static_cast<std::size_t>(member)]; }
    int Unknown() const { return m_calls[0]; }
    int Malformed() const { return m_malformed; }
    ULONG References() const { return m_references; }
    void Clear() { m_calls = {}; }

private:
    ULONG m_references = 1;
    std::array<int, 4> m_calls{};
    int m_malformed = 0;
};

}  // namespace

void Events() {
    EventSink sink;
    {
        const auto made = client::ConnectDefault();
        const auto container = client::Query<IConnectionPointContainer>(
            made.device.Get(), IID_IConnectionPointContainer);
        REQUIRE(container);
        Ptr<IConnectionPoint> point;
        REQUIRE_OK(container->FindConnectionPoint(DIID__IOrvexDeviceEvents, point.Put()));
        IID offered{};
        CHECK_OK(point->GetConnectionInterface(&offered));
        CHECK(IsEqualIID(offered, DIID__IOrvexDeviceEvents));
        DWORD cookie = 0;
        REQUIRE_OK(point->Advise(&sink, &cookie));

        // Every configuration item is announced on its own.
        CHECK_OK(made.device->Upload(kConfigItems));
        CHECK_EQ(sink.Calls(kAfterUpload), 6);
        CHECK_EQ(sink.Calls(kAfterDownload), 0);

        // A download announces the items once, however many it meets; none, when it meets none.
        sink.Clear();
        CHECK_OK(made.device->Download(1, kConfigProperties));
        CHECK_EQ(sink.Calls(kAfterDownload), 0);
        CHECK_OK(made.device->Download(1, kConfigItems | kConfigProperties));
        CHECK_EQ(sink.Calls(kAfterDownload), 1);
        CHECK_EQ(sink.Calls(kAfterUpload), 0);

        // The upload after it first waits for the restart, then announces every item again.
        sink.Clear();
        CHECK_OK(made.device->Upload(kConfigItems));
        CHECK_EQ(sink.Calls(kAfterUpload), 6);
        CHECK_EQ(sink.Calls(kAfterDownload), 0);
        CHECK_EQ(sink.Calls(kRequestDownload), 0);
        CHECK_EQ(sink.Unknown(), 0);
        CHECK_EQ(sink.Malformed(), 0);

        CHECK_OK(point->Unadvise(cookie));
        CHECK_HR(point->Unadvise(cookie), CONNECT_E_NOCONNECTION);
        CHECK_EQ(sink.References(), 1ul);  // the device let go of the sink
        sink.Clear();
        CHECK_OK(made.device->Upload(kConfigItems));
        CHECK_OK(made.device->Download(1, kConfigItems));
        CHECK_EQ(sink.Calls(kAfterUpload) + sink.Calls(kAfterDownload), 0);
    }
    CHECK_EQ(sink.References(), 1ul);
}

}  // namespace cases
