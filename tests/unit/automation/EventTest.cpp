#include "automation/Event.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace vx {
namespace {

TEST(Event, DeliversInOrderToASnapshotAndSurvivesUnsubscribeDuringDelivery) {
    Event<int> event;
    std::string calls;
    Event<int>::Subscription second;
    auto first = event.Subscribe([&](int v) {
        calls.append("a").append(std::to_string(v));  // "a" + ...: a false -Wrestrict, g++ 12 -O3
        second.Reset();  // a handler unsubscribes another that has not run yet
    });
    second = event.Subscribe([&](int) { calls += "b"; });
    Event<int>::Subscription third;
    third = event.Subscribe([&](int) {
        calls += "c";
        third.Reset();  // and itself
    });
    event.Raise(1);
    EXPECT_EQ(calls, "a1c");
    EXPECT_EQ(event.HandlerCount(), 1u);
}

TEST(Event, SubscriptionEndsWithItsTokenAndErrorsReachTheRaiser) {
    Event<> event;
    int count = 0;
    {
        auto token = event.Subscribe([&] { ++count; });
        event.Raise();
    }
    event.Raise();
    EXPECT_EQ(count, 1);

    auto failing = event.Subscribe([] { throw std::runtime_error("handler failed"); });
    auto after = event.Subscribe([&] { ++count; });
    EXPECT_THROW(event.Raise(), std::runtime_error);
    EXPECT_EQ(count, 1);  // delivery stops at the failing handler
}

}  // namespace
}  // namespace vx
