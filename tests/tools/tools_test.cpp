// Parts of the tool that compute: packets in order, figures of a stream.
#include "media/reorder_buffer.h"
#include "tools/rtsptap/reception/statistics.h"

#include <gtest/gtest.h>

namespace tool {
namespace {

constexpr auto kWindow = std::chrono::milliseconds(200);

struct Put {
    int milliseconds;
    uint16_t sequence;
    uint32_t ssrc = 1;
};

// What comes out, each as number@time, when the buffer is looked at every 10 ms.
std::string Order(const std::vector<Put> &arrivals, std::chrono::milliseconds window, uint64_t &late) {
    ReorderBuffer buffer;
    buffer.Begin(window);
    std::string order;
    std::size_t next = 0;
    for (int now = 0; now <= 5000; now += 10) {
        const Clock::time_point time{std::chrono::milliseconds(now)};
        for (; next < arrivals.size() && arrivals[next].milliseconds <= now; ++next)
            buffer.Put({arrivals[next].sequence, 0, arrivals[next].ssrc, 96, false, time, {}});
        while (const auto packet = buffer.Next(time))
            order += std::to_string(packet->sequence) + "@" + std::to_string(now) + " ";
    }
    late = buffer.Late();
    return order;
}

TEST(ReorderBuffer, WaitsForNoPacketLongerThanTheWindow) {
    const std::tuple<std::vector<Put>, std::string, uint64_t> cases[] = {
        {{{0, 7}, {10, 5}, {20, 6}, {300, 8}}, "5@200 6@200 7@200 8@300 ", 0},
        {{{0, 65535}, {210, 1}, {250, 0}, {260, 2}}, "65535@200 0@250 1@250 2@260 ", 0}, // the numbers wrap
        {{{0, 1}, {210, 3}, {300, 5}, {320, 4}, {500, 2}}, "1@200 3@410 4@410 5@410 ", 1},
        {{{0, 1}, {0, 1}, {210, 2}, {220, 2}, {220, 1}}, "1@200 2@210 ", 0},                 // duplicates
        {{{0, 9}, {210, 10}, {220, 40, 2}, {230, 39, 2}}, "9@200 10@210 39@420 40@420 ", 0}, // a new sender
        {{{0, 9}, {210, 30000}, {220, 10}, {230, 11}}, "9@200 10@220 11@230 ", 0},           // a stray
        {{{0, 9}, {210, 30000}, {220, 30001}, {230, 30002}},
         "9@200 30000@410 30001@410 30002@410 ",
         0}, // begins anew
    };
    for (const auto &[arrivals, order, lateOnes] : cases) {
        uint64_t late = 0;
        EXPECT_EQ(order, Order(arrivals, kWindow, late));
        EXPECT_EQ(lateOnes, late) << order;
    }
    uint64_t late = 0;
    EXPECT_EQ("2@0 1@10 ", Order({{0, 2}, {10, 1}}, std::chrono::milliseconds(0), late));
}

// The gap before 4 has been waited for long enough, the one before 6 has not.
TEST(ReorderBuffer, WhatIsBehindAYoungGapAtTheEndMayBeDiscarded) {
    const Clock::time_point begin{};
    const std::vector<Put> arrivals = {{0, 1}, {50, 2}, {100, 4}, {200, 6}, {300, 7}};
    for (const auto &[flush, order] :
         {std::pair(&ReorderBuffer::Flush, "12467"), {&ReorderBuffer::FlushToGap, "124"}}) {
        ReorderBuffer buffer;
        buffer.Begin(kWindow);
        for (const Put &arrival : arrivals)
            buffer.Put(
                {arrival.sequence, 0, 1, 96, false, begin + std::chrono::milliseconds(arrival.milliseconds), {}});
        (buffer.*flush)();
        std::string left;
        while (const auto packet = buffer.Next(begin)) left += std::to_string(packet->sequence);
        EXPECT_EQ(order, left);
    }
}

// With the same SSRC and numbers that came before: what a camera does that has been restarted.
TEST(ReorderBuffer, ASenderThatBeginsALittleBackIsFollowedSoon) {
    std::vector<Put> arrivals;
    for (int i = 0; i < 100; ++i) arrivals.push_back({10 * i, static_cast<uint16_t>(i)});
    for (int i = 0; i < 100; ++i) arrivals.push_back({1000 + 20 * i, static_cast<uint16_t>(i)});
    uint64_t late = 0;
    const std::string order = Order(arrivals, kWindow, late);
    EXPECT_NE(std::string::npos, order.find(" 99@990 32@1840 ")) << order;
    EXPECT_NE(std::string::npos, order.find(" 99@2980 ")) << order;
}

// What the tool counts of a stream: loss, order, duplicates and jitter, by hand-computed sequences of packets.

struct Arrival {
    uint16_t sequence;
    uint32_t timestamp;
    int milliseconds;
    uint32_t ssrc = 1;
};

class Feed {
public:
    explicit Feed(int32_t clockRate) : statistics(clockRate) {}
    void Take(const std::vector<Arrival> &arrivals) {
        for (const Arrival &arrival : arrivals) {
            header_.sequenceNumber = arrival.sequence;
            header_.timestamp = arrival.timestamp;
            header_.ssrc = arrival.ssrc;
            packet_.rtpHeader = &header_;
            packet_.packetLength = 100;
            ++packet_.packetIndex;
            statistics.Count(packet_, begin_ + std::chrono::milliseconds(arrival.milliseconds));
        }
    }
    void BeginSession() {
        statistics.BeginSession();
        packet_.packetIndex = 0; // the library's count begins anew with a connection
    }
    StreamStatistics statistics;

private:
    const Clock::time_point begin_ = Clock::now();
    RTPHeader header_{};
    RTPStreamData packet_{};
};

TEST(StreamStatistics, CountsLossOrderAndDuplicates) {
    const std::tuple<const char *, std::vector<uint16_t>, uint64_t, uint64_t, uint64_t> cases[] = {
        {"nothing amiss", {1, 2, 3}, 0, 0, 0},
        {"gaps", {1, 3, 10}, 7, 0, 0},
        {"over the wrap", {65534, 65535, 0, 2}, 1, 0, 0},
        {"late, so not lost", {1, 2, 4, 5, 3}, 0, 1, 0},
        {"late over the wrap", {65534, 0, 65535}, 0, 1, 0},
        {"a duplicate makes up for no loss", {1, 2, 2, 5, 5, 1}, 2, 0, 3},
        {"a large gap", {1, 5001}, 4999, 0, 0},
        {"numbers of long ago are not duplicates of now", {7, 1030, 1032, 1031}, 1022, 1, 0},
        {"the sender begins anew, same SSRC", {30000, 30001, 7, 8, 10}, 1, 0, 0},
        {"one stray packet is no new beginning", {30000, 30001, 7, 30002}, 0, 1, 0},
    };
    for (const auto &[what, numbers, lost, reordered, duplicates] : cases) {
        Feed feed(8000);
        for (const uint16_t number : numbers) feed.Take({{number, 0, 0}});
        EXPECT_EQ(lost, feed.statistics.Lost()) << what;
        EXPECT_EQ(reordered, feed.statistics.Reordered()) << what;
        EXPECT_EQ(duplicates, feed.statistics.Duplicates()) << what;
        EXPECT_EQ(numbers.size() - duplicates + lost, feed.statistics.Expected()) << what;
    }
}

TEST(StreamStatistics, ANewSourceOrSessionLosesNothingBetweenAndKeepsWhatWasLost) {
    Feed feed(8000);
    feed.Take({{1, 0, 0}, {3, 0, 0}, {900, 0, 0, 2}, {902, 0, 0, 2}});
    EXPECT_EQ(2U, feed.statistics.Lost());
    feed.BeginSession();
    feed.Take({{5000, 0, 9000, 2}, {5002, 0, 9001, 2}});
    EXPECT_EQ(3U, feed.statistics.Lost());
    EXPECT_EQ(0U, feed.statistics.Reordered());
    EXPECT_EQ(std::chrono::milliseconds(9000), feed.statistics.LongestGap());
    feed.statistics.EndAt(feed.statistics.LastArrival() + std::chrono::milliseconds(999));
    feed.statistics.EndAt(feed.statistics.LastArrival() + std::chrono::milliseconds(1000));
    EXPECT_EQ(2U, feed.statistics.Outages());
    EXPECT_EQ(std::chrono::milliseconds(10000), feed.statistics.WithoutMedia());
    EXPECT_EQ(600U, feed.statistics.Bytes());
}

// 8 kHz, 160 units a packet. Differences of transit times of 40, 40 and 0 units:
// J = 40/16 = 2.5; J += (40 - 2.5)/16 = 4.84375; J += (0 - 4.84375)/16 = 4.541015625; 8 units are a millisecond.
TEST(StreamStatistics, JitterIsThatOfRfc3550) {
    const uint32_t beforeTheWrap = 0xFFFFFFFF - 200;
    for (const uint32_t start : {uint32_t{0}, beforeTheWrap}) {
        Feed feed(8000);
        feed.Take({{1, start, 0}, {2, start + 160, 25}, {3, start + 320, 40}, {4, start + 480, 60}});
        EXPECT_NEAR(4.541015625 / 8, *feed.statistics.JitterMs(), 1e-9);
        EXPECT_NEAR(4.84375 / 8, *feed.statistics.MaxJitterMs(), 1e-9);
        EXPECT_NEAR((2.5 + 4.84375 + 4.541015625) / 3 / 8, *feed.statistics.MeanJitterMs(), 1e-9);
        feed.Take({{9, 12345, 70, 2}});
        EXPECT_EQ(0, *feed.statistics.JitterMs()) << "timestamps of two senders do not compare";
    }
    EXPECT_FALSE(StreamStatistics().JitterMs()) << "without a clock rate";
}

} // namespace
} // namespace tool
