#pragma once

// The node remembers the transactions it took in for the receive timer. A sender that heard no
// answer sends the same packet again with the same transaction ID; the node must not act on it a
// second time (a command frame would run twice) but answers it again as it did the first time.
// A sender runs one transaction at a time in each priority, so a packet with another ID ends its
// earlier transaction: only the latest is kept, and a tool run that starts afresh with an ID an
// earlier run used is not answered from that run's record.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <vector>

#include "Datagram.h"
#include "Session.h"

namespace vx::vxsim {

// What makes two packets one transaction: who sent it (the UDP endpoint and, when it encloses
// one, its LonTalk address), how (transport or session layer, priority) and its transaction ID.
struct TransactionKey {
    lon::Endpoint sender;
    std::optional<lon::SourceAddress> source;
    lon::PduFormat pduFormat = lon::PduFormat::kSpdu;
    std::uint8_t priority = 0;
    std::uint8_t transaction = 0;
    bool operator==(const TransactionKey&) const = default;
    // The same sender's transactions, whatever their ID.
    bool SameSender(const TransactionKey& other) const;
};

struct ReceiveRecord {
    TransactionKey key;
    std::vector<std::uint8_t> apdu;
    // The datagram the node answered with; nothing when it sent none.
    std::optional<std::vector<std::uint8_t>> reply;
    std::chrono::steady_clock::time_point received;
};

class ReceiveRecords {
public:
    static constexpr std::size_t kDefaultCapacity = 64;

    // A capacity of 0 is taken as 1.
    explicit ReceiveRecords(std::chrono::milliseconds receiveTimer,
                            std::size_t capacity = kDefaultCapacity);

    // The record of which this packet is a retry: same key, same APDU, taken in less than the
    // receive timer before `now`. nullptr for a new transaction.
    const ReceiveRecord* FindRetry(const TransactionKey& key, std::span<const std::uint8_t> apdu,
                                   std::chrono::steady_clock::time_point now) const;

    // Records a transaction the node acted on. It replaces the sender's earlier transaction and,
    // when the table is full, the oldest record.
    void Remember(TransactionKey key, std::vector<std::uint8_t> apdu,
                  std::optional<std::vector<std::uint8_t>> reply,
                  std::chrono::steady_clock::time_point now);

    std::size_t Size() const { return m_records.size(); }
    std::chrono::milliseconds ReceiveTimer() const { return m_receiveTimer; }

private:
    bool Expired(const ReceiveRecord& record, std::chrono::steady_clock::time_point now) const;

    std::chrono::milliseconds m_receiveTimer;
    std::size_t m_capacity;
    std::deque<ReceiveRecord> m_records;  // oldest first
};

}  // namespace vx::vxsim
