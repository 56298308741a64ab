// What another thread may do between two looks of a reader: the gap is held open where the reader reads the clock.
#include "tests/support/session.h"
#include "tests/torture/system_calls.h"

#include <future>

using namespace rtsptap::test;
using torture::atNextAlarm;
using torture::atNextClock;
using torture::atNextSleep;

namespace {

int32_t QueuedOf(intptr_t client, int32_t codec = kVideo) { return RTPClientGetNbOfPktInBuffer(client, codec); }

class ReceiveTurn : public testing::TestWithParam<uint32_t> {
protected:
    void Read(int32_t codec = kVideo) {
        RTPStreamData *packet = nullptr;
        result = RTPClientGetRTPStreamData(session, &packet, codec);
        if (packet == nullptr) return;
        number = packet->rtpHeader->sequenceNumber;
        RTPClientFreeRTPStreamData(session, packet, codec);
    }
    Session session{GetParam(), CLIENT_PLAYING_STATE, {{{"TEARDOWN "}, Ok(), true}}};
    std::atomic<int32_t> result{1};
    std::atomic<int> number{0};
};
INSTANTIATE_TEST_SUITE_P(Transports, ReceiveTurn, testing::Values(kUdp, kTcp), NameOfTransport);

} // namespace

TEST_P(ReceiveTurn, PacketQueuedBeforeTheReadersTurnIsTakenAtOnce) {
    const auto read = [this] {
        atNextClock = [this] {
            session.Arrive(1, Rtp(1));
            EXPECT_TRUE(Eventually([this] { return QueuedOf(session) == 1; }));
        };
        Read();
    };
    EXPECT_LT(SecondsOf(read), 4);
    EXPECT_EQ(number, 1);
}

// Before the watch sees that the reader is gone, or while it waits for a while; and, after a long wait, where the
// reader has left its turn, has looked at all and is about to set the alarm.
TEST_P(ReceiveTurn, PacketThatComesAsTheReaderLeavesIsReceived) {
    for (const int waitMs : {0, 2, 5, 40}) {
        std::promise<void> reads;
        bool held = false;
        std::thread reader([&] {
            atNextClock = [&] { reads.set_value(); };
            atNextAlarm = [&] {
                held = true;
                session.Arrive(1, Rtp(2));
                usleep(10000);
            };
            Read();
            atNextAlarm = nullptr;
        });
        reads.get_future().wait();
        usleep(static_cast<useconds_t>(waitMs) * 1000);
        session.Arrive(1, Rtp(1));
        reader.join();
        EXPECT_EQ(number, 1);
        if (!held) session.Arrive(1, Rtp(2));
        EXPECT_TRUE(Eventually([this] { return QueuedOf(session) == 1; })) << waitMs;
        Read();
    }
}

// One reader is held where it has looked at all turns; another one leaves its own meanwhile, and stays away.
TEST_P(ReceiveTurn, ReaderThatLeavesWhileOneLooksIsMissed) {
    Session other(GetParam(), CLIENT_PLAYING_STATE, {{{"TEARDOWN "}, Ok(), true}});
    const auto takeOfOther = [&] { RTPClientFreeRTPStreamData(other, TakePacket(other, kVideo), kVideo); };
    for (uint16_t round = 0; round < 6; round += 2) {
        std::promise<void> bothWait[2], looks, otherIsAway;
        std::atomic<bool> held{false};
        std::thread reader([&] {
            atNextClock = [&] { bothWait[0].set_value(); };
            atNextAlarm = [&] {
                held = true;
                looks.set_value();
                otherIsAway.get_future().wait();
            };
            Read();
            atNextAlarm = nullptr;
            if (!held) looks.set_value();
        });
        std::thread second([&] {
            atNextClock = [&] { bothWait[1].set_value(); };
            takeOfOther();
            otherIsAway.set_value();
        });
        for (auto &waits : bothWait) waits.get_future().wait();
        usleep(40000); // until nobody is awaited
        session.Arrive(1, Rtp(round));
        looks.get_future().wait();
        other.Arrive(1, Rtp(round));
        reader.join(), second.join();
        other.Arrive(1, Rtp(round + 1));
        EXPECT_TRUE(Eventually([&] { return QueuedOf(other) == 1; }));
        takeOfOther();
    }
}

// A reader in its turn, one that sleeps beside it, and one that found its stream just before the session ended.
TEST_P(ReceiveTurn, TeardownEndsEveryWait) {
    CapturedStdout out;
    std::thread video([this] { Read(); });
    std::thread audio([this] { Read(kAudio); });
    std::promise<void> found, tornDown;
    std::thread late([&] {
        atNextClock = [&] {
            found.set_value();
            tornDown.get_future().wait();
        };
        Read();
    });
    found.get_future().wait();
    usleep(20000); // the others wait
    EXPECT_EQ(session.Teardown(), 0);
    tornDown.set_value();
    EXPECT_LT(SecondsOf([&] { video.join(), audio.join(), late.join(); }), 4);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(CountOf(out.Text(), "No data received"), 0U);
}

// The sleep is the nap: a reader sleeps for nothing else. One that finds the thread at work does not nap.
TEST_P(ReceiveTurn, ReaderNapsByConsentOnly) {
    const std::tuple<int32_t, int32_t, bool> rows[] = {
        {-1, 0, false}, {1000, 0, true}, {-1, 40, true}, {0, 40, false}};
    for (const auto &[napUs, latencyMs, naps] : rows) {
        std::atomic<bool> napped{false};
        for (int round = 0; round < (naps ? 100 : 2) && !napped; ++round) {
            Session fresh(GetParam(), CLIENT_PLAYING_STATE, {{{"TEARDOWN "}, Ok(), true}});
            SetNumber(fresh, RTSPTAP_OPTION_RECEIVE_NAP, napUs);
            EXPECT_EQ(RTPClientConfigLatency(fresh, latencyMs, 0, latencyMs), 0);
            std::thread reader([&] {
                atNextSleep = [&] { napped = true; };
                RTPClientFreeRTPStreamData(fresh, TakePacket(fresh, kVideo), kVideo);
                atNextSleep = nullptr;
            });
            usleep(20000); // it waits
            fresh.Arrive(1, Rtp(1));
            reader.join();
            EXPECT_EQ(RTPClientConfigLatency(fresh, 0, 0, 0), 0);
            while (QueuedOf(fresh) > 0) // what the window held back
                RTPClientFreeRTPStreamData(fresh, TakePacket(fresh, kVideo), kVideo);
        }
        EXPECT_EQ(napped, naps) << napUs << ' ' << latencyMs;
    }
}

// By the connection's end, or a datagram without content. The thread ends, too, however soon the reader is back:
// then there is only the wait.
TEST_P(ReceiveTurn, EndOfReceptionEndsOneWaitAndTheThread) {
    std::atomic<int> atOnce{0};
    std::atomic<bool> stop{false};
    std::thread reader([&] {
        while (!stop) {
            atOnce += SecondsOf([this] { Read(); }) < 4 ? 1 : 0;
            usleep(500);
        }
    });
    usleep(20000); // it waits
    session.proto == kUdp ? session.SendRtp(1, "") : session.server.Hangup();
    EXPECT_TRUE(Eventually([&] { return atOnce > 0; }));
    usleep(300000);
    stop = true;
    reader.join();
    EXPECT_LE(atOnce, 3);
}

// A program that connects anew must not count on the thread of the connection that has ended to read the reply.
TEST(InterleavedTurn, ClosedConnectionEndsEveryWaitAndLeavesNoThreadBehind) {
    Session session(kTcp, CLIENT_PLAYING_STATE, {{"OPTIONS ", Ok()}});
    EXPECT_EQ(session.Options(), 0); // in this state a reply is read by whoever reads the connection
    ScriptedServer next({{"OPTIONS ", Ok()}});
    RTPStreamData *packet = nullptr;
    const auto read = [&](int32_t codec) { return RTPClientGetRTPStreamData(session, &packet, codec); };
    auto video = std::async(std::launch::async, read, kVideo);
    usleep(20000); // it waits, in its turn
    auto audio = std::async(std::launch::async, read, kAudio);
    usleep(20000); // and beside it
    session.server.Hangup();
    EXPECT_LT(SecondsOf([&] { EXPECT_EQ(video.get() + audio.get(), -2); }), 4);
    EXPECT_EQ(RTSPClientConnect(session, "127.0.0.1", next.Port(), "live", kTcp, 0), 0);
    EXPECT_EQ(session.Options(), 0);
}
