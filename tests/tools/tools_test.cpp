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
        // begins anew
        {{{0, 9}, {210, 30000}, {220, 30001}, {230, 30002}}, "9@200 30000@410 30001@410 30002@410 ", 0},
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

// Figures of a session, those that the library tells.
RTSPTapStreamStatistics Figures(uint64_t packets, uint64_t missing, double meanJitterUs, double mostJitterUs) {
    RTSPTapStreamStatistics figures{};
    figures.clockRate = 8000;
    figures.packets = packets;
    figures.expected = packets + missing;
    figures.missing = missing;
    figures.meanJitterUs = meanJitterUs;
    figures.mostJitterUs = mostJitterUs;
    figures.firstNumber = static_cast<uint32_t>(packets);
    return figures;
}

TEST(StreamStatistics, SumSessionsUpAndWhatWasWithoutMedia) {
    const Clock::time_point begin = Clock::now();
    StreamStatistics statistics;
    EXPECT_FALSE(statistics.JitterMs());
    statistics.Update(Figures(5, 1, 0, 0));
    EXPECT_EQ(0U, statistics.Packets()); // nobody has taken one
    statistics.NoteArrival(begin);
    statistics.Update(Figures(10, 2, 3000, 9000));
    statistics.BeginSession();
    statistics.BeginSession(); // one that brought nothing
    statistics.Update(Figures(30, 6, 1000, 2000));
    statistics.NoteArrival(begin + std::chrono::seconds(9));
    EXPECT_EQ(40U, statistics.Packets());
    EXPECT_EQ(8U, statistics.Lost());
    EXPECT_EQ(48U, statistics.Expected());
    EXPECT_EQ(10U, statistics.FirstSequence());
    EXPECT_NEAR(1.5, *statistics.MeanJitterMs(), 1e-9);
    EXPECT_EQ(9, *statistics.MaxJitterMs());
    statistics.EndAt(begin + std::chrono::milliseconds(9999));
    statistics.EndAt(begin + std::chrono::milliseconds(10000));
    EXPECT_EQ(2U, statistics.Outages());
    EXPECT_EQ(std::chrono::seconds(9), statistics.LongestGap());
    EXPECT_EQ(std::chrono::seconds(10), statistics.WithoutMedia());
}

} // namespace
} // namespace tool
