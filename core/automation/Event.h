#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace vx {

// A synchronous event. Raise() calls the handlers subscribed at the moment it starts, in
// subscription order, on the caller's thread; a handler may re-enter the raising object,
// subscribe or unsubscribe (an unsubscribed handler that has not run yet is skipped). A handler's
// exception propagates to the caller of Raise() and stops the delivery.
template <typename... Args>
class Event {
public:
    using Handler = std::function<void(Args...)>;

    // Keeps a handler subscribed for as long as it lives.
    class Subscription {
    public:
        Subscription() = default;
        Subscription(Subscription&&) noexcept = default;
        Subscription& operator=(Subscription&& other) noexcept {
            if (this != &other) {
                Reset();
                m_slot = std::move(other.m_slot);
            }
            return *this;
        }
        Subscription(const Subscription&) = delete;
        Subscription& operator=(const Subscription&) = delete;
        ~Subscription() { Reset(); }

        void Reset() noexcept {
            if (m_slot) m_slot->handler = nullptr;
            m_slot.reset();
        }
        bool Active() const noexcept { return m_slot && m_slot->handler; }

    private:
        friend class Event;
        struct Slot {
            Handler handler;
        };
        explicit Subscription(std::shared_ptr<Slot> slot) : m_slot(std::move(slot)) {}
        std::shared_ptr<Slot> m_slot;
    };

    [[nodiscard]] Subscription Subscribe(Handler handler) {
        auto slot = std::make_shared<typename Subscription::Slot>();
        slot->handler = std::move(handler);
        Prune();
        m_slots.push_back(slot);
        return Subscription(std::move(slot));
    }

    void Raise(Args... args) {
        const auto snapshot = m_slots;
        for (const auto& slot : snapshot) {
            if (slot->handler) {
                const Handler handler = slot->handler;  // survives an unsubscribe inside the call
                handler(args...);
            }
        }
    }

    std::size_t HandlerCount() const noexcept {
        std::size_t count = 0;
        for (const auto& slot : m_slots)
            count += slot->handler ? 1 : 0;
        return count;
    }

private:
    // Drops unsubscribed slots once the list has doubled since the last sweep, so that a device
    // whose thousands of variables each subscribe stays linear.
    void Prune() {
        if (m_slots.size() < m_sweepAt) return;
        std::erase_if(m_slots, [](const auto& slot) { return !slot->handler; });
        m_sweepAt = std::max<std::size_t>(kFirstSweep, 2 * m_slots.size());
    }

    static constexpr std::size_t kFirstSweep = 16;
    std::vector<std::shared_ptr<typename Subscription::Slot>> m_slots;
    std::size_t m_sweepAt = kFirstSweep;
};

}  // namespace vx
