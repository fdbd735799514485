#include "CBuffer.h"

#include <gtest/gtest.h>

#include <vector>

#include "SupportRoutines.h"
#include "fixtures/ErrorMatchers.h"
#include "resources/StringTable.h"

namespace vx {
namespace {

ByteArray Bytes(std::vector<std::uint8_t> values, std::int32_t lower = 0) {
    return ByteArray(lower, std::move(values));
}

// Counts a buffer's events for as long as it lives.
struct EventCounter {
    explicit EventCounter(CBuffer& buffer)
        : modifiedToken(buffer.Modified().Subscribe([this] { ++modified; })),
          loadToken(buffer.LoadMePlease().Subscribe([this] { ++loads; })) {}
    int modified = 0;
    int loads = 0;
    Event<>::Subscription modifiedToken;
    Event<>::Subscription loadToken;
};

TEST(CBuffer, SetBytesReportsOnlyRealChangesOfLoadedContent) {
    CBuffer buffer;
    EventCounter events(buffer);
    buffer.SetBytes(Bytes({1, 2, 3}));
    EXPECT_EQ(events.modified, 0) << "the first load is no modification";
    buffer.SetBytes(Bytes({1, 2, 3}));
    EXPECT_EQ(events.modified, 0);
    buffer.SetBytes(Bytes({1, 9, 3}));
    EXPECT_EQ(events.modified, 1);
    buffer.SetBytes(Bytes({1, 9, 3, 4}));
    EXPECT_EQ(events.modified, 2);
    buffer.SetBytes(Bytes({1, 9, 3, 4}, 1));  // same bytes, other bounds: compared by position
    EXPECT_EQ(events.modified, 2);
    EXPECT_EQ(buffer.GetBytes().LBound(), 1);
    buffer.SetBytes(ByteArray());  // back to unloaded
    EXPECT_EQ(events.modified, 3);
    EXPECT_FALSE(buffer.IsLoaded());
    buffer.SetBytes(ByteArray());
    EXPECT_EQ(events.modified, 3);
    EXPECT_EQ(events.loads, 0);
}

TEST(CBuffer, CopyFromAlwaysReportsAndAsksTheSourceToLoad) {
    CBuffer source;
    CBuffer target;
    source.SetBytes(Bytes({7, 8}, 1));
    target.SetBytes(Bytes({7, 8}, 1));
    EventCounter events(target);
    target.CopyFrom(source);
    EXPECT_EQ(events.modified, 1);

    CBuffer unloaded;
    auto fill = unloaded.LoadMePlease().Subscribe([&] { unloaded.SetBytes(Bytes({5}, 3)); });
    target.CopyFrom(unloaded);
    EXPECT_EQ(events.modified, 2);
    EXPECT_EQ(target.GetBytes(), Bytes({5}, 3));
}

TEST(CBuffer, AllocateAndClearFillAndReport) {
    CBuffer buffer;
    EventCounter events(buffer);
    buffer.Allocate(3, 255);
    EXPECT_EQ(buffer.GetBytes(), Bytes({0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(buffer.ByteCount(), 3);
    EXPECT_EQ(events.modified, 1);
    buffer.Clear();
    EXPECT_EQ(buffer.GetBytes(), Bytes({0, 0, 0}));
    buffer.Clear();  // already zero: still reported
    EXPECT_EQ(events.modified, 3);
    EXPECT_COM_ERROR(buffer.Allocate(0, 1), kErrSubscriptOutOfRange);
    EXPECT_COM_ERROR(buffer.Allocate(-2, 1), kErrSubscriptOutOfRange);
    EXPECT_EQ(buffer.ByteCount(), 3) << "a failed Allocate keeps the content";
}

TEST(CBuffer, IsDifferentComparesBoundsThenBytes) {
    CBuffer first;
    CBuffer second;
    EXPECT_FALSE(first.IsDifferent(second));
    second.SetBytes(Bytes({1, 2}));
    EXPECT_TRUE(first.IsDifferent(second));
    EXPECT_TRUE(second.IsDifferent(first));
    first.SetBytes(Bytes({1, 2}, 1));
    EXPECT_TRUE(first.IsDifferent(second)) << "same bytes, other lower bound";
    first.SetBytes(Bytes({1, 2}));
    EXPECT_FALSE(first.IsDifferent(second));
    first.SetBytes(Bytes({1, 3}));
    EXPECT_TRUE(first.IsDifferent(second));

    CBuffer empty;
    EventCounter events(empty);
    EXPECT_TRUE(first.IsDifferent(empty));
    EXPECT_EQ(events.loads, 1) << "the other buffer is read through GetBytes";
}

TEST(CBuffer, ReadingAnUnloadedBufferAsksOnceForALoad) {
    CBuffer buffer;
    EventCounter events(buffer);
    EXPECT_FALSE(buffer.GetBytes().IsAllocated());
    EXPECT_EQ(events.loads, 1);
    EXPECT_COM_ERROR(buffer.Clear(), kErrSubscriptOutOfRange);
    EXPECT_EQ(events.loads, 2);
    EXPECT_COM_ERROR(buffer.ByteCount(), kErrSubscriptOutOfRange);
    EXPECT_EQ(events.loads, 2) << "ByteCount does not load";

    auto load = buffer.LoadMePlease().Subscribe([&] { buffer.SetBytes(Bytes({4, 5})); });
    EXPECT_EQ(buffer.GetBytes(), Bytes({4, 5}));
    EXPECT_EQ(events.loads, 3);
    EXPECT_EQ(events.modified, 0) << "loading on request is no modification";
    EXPECT_EQ(buffer.GetBytes(), Bytes({4, 5}));
    EXPECT_EQ(events.loads, 3) << "a loaded buffer does not ask again";
}

TEST(CBuffer, CodecOnAnUnloadedBufferFailsWithTheLoadError) {
    CBuffer buffer;
    int loads = 0;
    // The owner's load fails; its error is dropped and the codec reports the missing content.
    auto failing = buffer.LoadMePlease().Subscribe([&] {
        ++loads;
        RaiseRuntimeError(kErrObjectNotSet);
    });
    const auto extract = test::CaughtError([&] { buffer.ExtractBits(0, 1, 0, 7); });
    EXPECT_EQ(extract.Number(), LibraryErrorNumber(kIdBufferLoadFailed));
    EXPECT_EQ(extract.Source(), "Vx.CBuffer.ExtractBits()");
    EXPECT_EQ(extract.Description(), "Variable buffer failed to load from device");
    const auto merge = test::CaughtError([&] { buffer.MergeBits(Bytes({1}), 0, 1, 0, 7); });
    EXPECT_EQ(merge.Number(), LibraryErrorNumber(kIdBufferLoadFailed));
    EXPECT_EQ(merge.Source(), "Vx.CBuffer.MergeBits()");
    EXPECT_EQ(loads, 2);
    EXPECT_COM_ERROR(buffer.GetUInt16(*NewOffset(0, 0)), LibraryErrorNumber(kIdBufferLoadFailed));
    EXPECT_COM_ERROR(buffer.SetUInt16(*NewOffset(0, 0), 1),
                     LibraryErrorNumber(kIdBufferLoadFailed));
    EXPECT_EQ(loads, 4) << "one request per operation";
}

TEST(CBuffer, CodecLoadsOnRequestAndProceeds) {
    CBuffer buffer;
    int modified = 0;
    auto count = buffer.Modified().Subscribe([&] { ++modified; });
    auto load = buffer.LoadMePlease().Subscribe([&] { buffer.SetBytes(Bytes({0x5A, 0x00})); });
    EXPECT_EQ(buffer.GetUInt8(*NewOffset(0, 0)), 0x5A);
    buffer.SetBytes(ByteArray());
    EXPECT_EQ(modified, 1);
    buffer.SetUInt8(*NewOffset(1, 0), 0x11);  // loads 5A 00, then writes
    EXPECT_EQ(buffer.GetBytes(), Bytes({0x5A, 0x11}));
    EXPECT_EQ(modified, 2);
}

TEST(CBuffer, ModifiedHandlersSeeTheNewContentAndMayReenter) {
    CBuffer buffer;
    buffer.SetBytes(Bytes({0, 0}));
    std::vector<std::int32_t> seen;
    auto watch = buffer.Modified().Subscribe([&] {
        seen.push_back(buffer.GetUInt8(*NewOffset(1, 0)));
        if (seen.size() == 1) buffer.SetUInt8(*NewOffset(0, 0), 7);  // re-enters once
    });
    buffer.SetUInt8(*NewOffset(1, 0), 9);
    EXPECT_EQ(seen, (std::vector<std::int32_t>{9, 9}));
    EXPECT_EQ(buffer.GetBytes(), Bytes({7, 9}));
}

TEST(CBuffer, FieldOffsetsCountFromTheLowerBound) {
    CBuffer buffer;
    buffer.SetBytes(HexToBytes("12345678"));  // 1-based
    EXPECT_EQ(buffer.GetUInt8(*NewOffset(0, 0)), 0x12);
    EXPECT_EQ(buffer.GetUInt16(*NewOffset(2, 0)), 0x5678);
    EXPECT_EQ(buffer.ExtractBits(3, 2, 0, 7), Bytes({0x78})) << "cut at the last byte";
    buffer.SetUInt16(*NewOffset(2, 0), 0xABCD);
    buffer.SetUInt8(*NewOffset(0, 0), 0xEE);
    EXPECT_EQ(BytesToHex(buffer.GetBytes()), "EE34ABCD");
    EXPECT_EQ(buffer.GetBytes().LBound(), 1);
    buffer.SetUInt16(*NewOffset(3, 0), 1);  // would end past the last byte
    EXPECT_EQ(BytesToHex(buffer.GetBytes()), "EE34ABCD");
}

}  // namespace
}  // namespace vx
