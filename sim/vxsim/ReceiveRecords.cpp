#include "ReceiveRecords.h"

#include <algorithm>
#include <utility>

namespace vx::vxsim {

bool TransactionKey::SameSender(const TransactionKey& other) const {
    return sender == other.sender && source == other.source && pduFormat == other.pduFormat &&
           priority == other.priority;
}

ReceiveRecords::ReceiveRecords(std::chrono::milliseconds receiveTimer, std::size_t capacity)
    : m_receiveTimer(receiveTimer), m_capacity(std::max<std::size_t>(capacity, 1)) {}

bool ReceiveRecords::Expired(const ReceiveRecord& record,
                             std::chrono::steady_clock::time_point now) const {
    return now - record.received >= m_receiveTimer;
}

const ReceiveRecord* ReceiveRecords::FindRetry(const TransactionKey& key,
                                               std::span<const std::uint8_t> apdu,
                                               std::chrono::steady_clock::time_point now) const {
    const auto found = std::find_if(m_records.begin(), m_records.end(),
                                    [&](const ReceiveRecord& record) { return record.key == key; });
    if (found == m_records.end() || Expired(*found, now)) return nullptr;
    if (!std::equal(found->apdu.begin(), found->apdu.end(), apdu.begin(), apdu.end())) {
        return nullptr;
    }
    return &*found;
}

void ReceiveRecords::Remember(TransactionKey key, std::vector<std::uint8_t> apdu,
                              std::optional<std::vector<std::uint8_t>> reply,
                              std::chrono::steady_clock::time_point now) {
    std::erase_if(m_records, [&](const ReceiveRecord& record) {
        return record.key.SameSender(key) || Expired(record, now);
    });
    while (m_records.size() >= m_capacity)
        m_records.pop_front();
    m_records.push_back({std::move(key), std::move(apdu), std::move(reply), now});
}

}  // namespace vx::vxsim
