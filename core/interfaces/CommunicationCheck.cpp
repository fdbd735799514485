#include "interfaces/CommunicationCheck.h"

#include "automation/ComError.h"
#include "interfaces/InstallPoint.h"

namespace vx {
namespace {

class QueryStatusCheck final : public CommunicationCheck {
public:
    bool IsCommunicating(const NodeConnectionPtr& connection) override {
        return connection && QueryStatus(*connection);
    }
};

using CheckSlot = detail::InstallPoint<CommunicationCheck, QueryStatusCheck>;

}  // namespace

bool QueryStatus(INodeConnection& connection) {
    // Two data bytes are passed, but the length sends none of them.
    std::string code = "51";
    std::string data = "0000";
    std::int32_t length = 1;
    try {
        return connection.SendNetworkMessage(code, data, length);
    } catch (const ComError&) {
        return false;
    }
}

CommunicationCheckPtr CurrentCommunicationCheck() {
    return CheckSlot::Current();
}

CommunicationCheckPtr InstallCommunicationCheck(CommunicationCheckPtr check) {
    return CheckSlot::Install(std::move(check));
}

}  // namespace vx
