// One library object is one COM object: whichever way a host reaches it, and however often, its
// IUnknown is the same, so hosts can compare objects and keep them in tables.
#include <windows.h>

#include <ole2.h>

#include "Cases.h"
#include "Check.h"
#include "Com.h"

namespace cases {

using client::IdentityOf;
using client::Ptr;

void Identity() {
    const auto made = client::ConnectDefault();
    IUnknown* const device = IdentityOf(made.device.Get());
    REQUIRE(device);

    const auto room = client::ObjectOf(made.device.Get(), 1);
    const auto roomAgain = client::ObjectOf(made.device.Get(), 1);
    CHECK(IdentityOf(room.Get()) == IdentityOf(roomAgain.Get()));
    CHECK(IdentityOf(room.Get()) != IdentityOf(client::ObjectOf(made.device.Get(), 2).Get()));

    const auto setpoint = client::VariableOf(room.Get(), L"nviSetpoint");
    const auto setpointAgain = client::VariableOf(roomAgain.Get(), L"nviSetpoint");
    CHECK(IdentityOf(setpoint.Get()) == IdentityOf(setpointAgain.Get()));
    // Back from the variable to its object.
    Ptr<IOrvexLonObject> owner;
    CHECK_OK(setpoint->get_Object(owner.Put()));
    CHECK(IdentityOf(owner.Get()) == IdentityOf(room.Get()));

    // The device's other faces all lead back to it.
    Ptr<IOrvexDeviceInfo> info;
    REQUIRE_OK(made.device->get_Info(info.Put()));
    CHECK(IdentityOf(info.Get()) == device);
    const auto asInfo = made.device.As<IOrvexDeviceInfo>(IID_IOrvexDeviceInfo);
    CHECK(IdentityOf(asInfo.Get()) == device);
    const auto points = made.device.As<IConnectionPointContainer>(IID_IConnectionPointContainer);
    CHECK(IdentityOf(points.Get()) == device);
    const auto dispatch = made.device.As<IDispatch>(IID_IDispatch);
    CHECK(IdentityOf(dispatch.Get()) == device);
    // IDispatch is the default interface's: late-bound calls reach the device's members.
    CHECK_EQ(client::DispIdOf(dispatch.Get(), L"Upload"), 6);
}

}  // namespace cases
