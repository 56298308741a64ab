// What the tool counts of a stream: loss, order, duplicates and jitter, by hand-computed sequences of packets.
#include "tools/rtsptap/reception/statistics.h"

#include <gtest/gtest.h>

#include <vector>

namespace tool {
namespace {

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
    const struct {
        const char *what;
        std::vector<uint16_t> numbers;
        uint64_t lost, reordered, duplicates;
    } cases[] = {
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
    for (const auto &entry : cases) {
        Feed feed(8000);
        for (const uint16_t number : entry.numbers) feed.Take({{number, 0, 0}});
        EXPECT_EQ(entry.lost, feed.statistics.Lost()) << entry.what;
        EXPECT_EQ(entry.reordered, feed.statistics.Reordered()) << entry.what;
        EXPECT_EQ(entry.duplicates, feed.statistics.Duplicates()) << entry.what;
        EXPECT_EQ(entry.numbers.size() - entry.duplicates + entry.lost, feed.statistics.Expected()) << entry.what;
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
