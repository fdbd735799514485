#pragma once

#include <memory>
#include <utility>

namespace vx::detail {

// A process-wide helper the host may replace: holds the installed instance and falls back to a
// fresh `Default` when nullptr is installed. Programs install at start-up, before any device is
// used, so the slot takes no lock.
template <class Interface, class Default>
class InstallPoint {
public:
    static std::shared_ptr<Interface> Current() { return Slot(); }

    static std::shared_ptr<Interface> Install(std::shared_ptr<Interface> instance) {
        auto previous = std::move(Slot());
        Slot() = instance ? std::move(instance) : std::make_shared<Default>();
        return previous;
    }

private:
    static std::shared_ptr<Interface>& Slot() {
        static std::shared_ptr<Interface> instance = std::make_shared<Default>();
        return instance;
    }
};

}  // namespace vx::detail
