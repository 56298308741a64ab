// Packets of streams by number: batches, any order, the end and why, interruptions.
#include "tests/rtp/stream_fixture.h"
#include "tests/support/session.h"

#include <random>

namespace rtsptap::test {
namespace {

// What one call gives: its result and the packets.
struct Taken {
    Taken(intptr_t client, int32_t stream, int32_t room, int32_t timeoutMs) : packets(static_cast<size_t>(room)) {
        result = RTSPTapTakePackets(client, stream, packets.data(), room, timeoutMs);
        packets.resize(static_cast<std::size_t>(std::max(result, 0)));
    }
    int32_t Free(intptr_t client, int32_t stream) const {
        return RTSPTapFreePackets(client, stream, packets.data(), static_cast<int32_t>(packets.size()));
    }
    int32_t result = 0;
    std::vector<RTPStreamData *> packets;
};

std::vector<uint16_t> TakeNumbers(intptr_t client, int32_t stream, std::size_t count) {
    std::vector<uint16_t> numbers;
    while (numbers.size() < count) {
        const Taken taken(client, stream, 8, 5000);
        for (const RTPStreamData *packet : taken.packets) numbers.push_back(packet->rtpHeader->sequenceNumber);
        EXPECT_EQ(taken.Free(client, stream), 0);
        if (taken.result <= 0) break;
    }
    return numbers;
}

class NumberedPackets : public testing::Test, protected LiveStream {
protected:
    NumberedPackets() : LiveStream(20000) {}

    bool HasRoom() { return PlaceNextPacket(stream->ring, session.mtuSize).room >= 1500; }
    static bool IsIntact(const RTPStreamData &packet) {
        const auto value = static_cast<uint8_t>(packet.rtpHeader->sequenceNumber);
        return std::all_of(packet.payload, packet.payload + packet.payloadLength,
                           [=](uint8_t byte) { return byte == value; });
    }
    CapturedStdout out;
};

// The ring and the sequence numbers go round; some packets are late; whatever is held stays as it came.
TEST_F(NumberedPackets, GoBackInAnyOrder) {
    std::mt19937 random(1);
    std::vector<RTPStreamData *> held;
    uint16_t number = 65000;
    std::size_t wholeRings = 0;
    for (int step = 0; step < 20000; ++step) {
        const unsigned choice = random() % 8;
        if (choice < 4 && HasRoom()) {
            const int late = choice == 0 ? 3 : 0; // every fourth has a number that was there
            rtsptap::Bytes packet = Packet(static_cast<uint16_t>(++number - late));
            packet.resize(12 + random() % 1400, static_cast<uint8_t>(number - late));
            std::fill(packet.begin() + 12, packet.end(), static_cast<uint8_t>(number - late));
            Arrive(packet);
        } else if (choice < 6) {
            const Taken taken(Handle(), 1, 4, 0);
            ASSERT_GE(taken.result, 0);
            held.insert(held.end(), taken.packets.begin(), taken.packets.end());
        } else if (!held.empty()) {
            wholeRings += HasRoom() ? 0 : 1;
            std::shuffle(held.begin(), held.end(), random);
            const std::size_t count = 1 + random() % held.size();
            const auto last = held.end() - static_cast<std::ptrdiff_t>(count);
            ASSERT_TRUE(std::all_of(last, held.end(), [](const auto *packet) { return IsIntact(*packet); }));
            ASSERT_EQ(RTSPTapFreePackets(Handle(), 1, &*last, static_cast<int32_t>(count)), 0);
            held.erase(last, held.end());
        }
    }
    EXPECT_GT(wholeRings, 20u);
    EXPECT_GT(number, 3000); // went round
    while (!Queued().empty()) held.push_back(Taken(Handle(), 1, 1, 0).packets.front());
    for (RTPStreamData *packet : held) EXPECT_EQ(RTSPTapFreePackets(Handle(), 1, &packet, 1), 0);
    EXPECT_TRUE(NothingInUse(*stream));
    EXPECT_TRUE(HasRoom());
}

TEST_F(NumberedPackets, WhatWasNotTakenThereIsRefused) {
    AddStream(RTP_CODEC_H264);
    for (const int number : {1, 2, 3, 4, 5}) Arrive(Packet(number));
    RTPStreamData *const byCodec = Get();
    Taken taken(Handle(), 1, 3, 0);
    ASSERT_EQ(taken.result, 3);
    std::vector<RTPStreamData *> &packets = taken.packets;
    RTPStreamData foreign = {};
    auto *const wild = reinterpret_cast<RTPStreamData *>(uintptr_t{8});
    for (RTPStreamData *bad : {&foreign, wild, static_cast<RTPStreamData *>(nullptr), byCodec})
        EXPECT_EQ(RTSPTapFreePackets(Handle(), 1, &bad, 1), RTSPTAP_NOT_TAKEN);
    EXPECT_EQ(taken.Free(Handle(), 2), RTSPTAP_NOT_TAKEN);
    packets.insert(packets.begin() + 1, {packets[0], wild});
    EXPECT_EQ(taken.Free(Handle(), 1), RTSPTAP_NOT_TAKEN); // the good ones have gone back
    EXPECT_EQ(taken.Free(Handle(), 1), RTSPTAP_NOT_TAKEN);
    const Taken last(Handle(), 1, 3, 0);
    ASSERT_EQ(last.result, 1);
    RTPStreamData *const packet = last.packets[0];
    EXPECT_EQ(RTPClientFreeRTPStreamData(Handle(), packet, RTP_CODEC_H264), 0); // that one takes either kind
    EXPECT_EQ(RTPClientFreeRTPStreamData(Handle(), packet, RTP_CODEC_H264), RTSP_INVALID_ARGUMENT);
    Free(byCodec);
    EXPECT_TRUE(NothingInUse(*stream));

    RTPStreamData *none[1] = {};
    const std::tuple<intptr_t, int32_t, RTPStreamData **, int32_t, int32_t> bad[] = {
        {0, 1, none, 1, 0},         {Handle(), 0, none, 1, 0},    {Handle(), 3, none, 1, 0},
        {Handle(), -1, none, 1, 0}, {Handle(), 1, nullptr, 1, 0}, {Handle(), 1, none, 0, 0},
        {Handle(), 1, none, 1, -1}};
    for (const auto &[client, number, place, room, timeoutMs] : bad)
        EXPECT_EQ(RTSPTapTakePackets(client, number, place, room, timeoutMs), RTSP_INVALID_ARGUMENT);
    EXPECT_EQ(RTSPTapFreePackets(Handle(), 1, nullptr, 0), 0);
    EXPECT_EQ(RTSPTapFreePackets(Handle(), 1, none, -1), RTSP_INVALID_ARGUMENT);
}

TEST_F(NumberedPackets, AnInterruptIsToldOnceToEachStream) {
    AddStream(0);
    Arrive(Packet(1));
    EXPECT_EQ(RTSPTapInterrupt(Handle()) + RTSPTapInterrupt(Handle()), 0); // before any wait
    for (const int32_t number : {1, 2}) EXPECT_EQ(Taken(Handle(), number, 1, 5000).result, RTSPTAP_INTERRUPTED);
    EXPECT_EQ(TakeNumbers(Handle(), 1, 1), std::vector<uint16_t>({1}));
    EXPECT_EQ(Taken(Handle(), 2, 1, 0).result, 0);
}

// ---- in a session ----

class NumberedStreams : public testing::TestWithParam<uint32_t> {
protected:
    int32_t Result(int32_t stream, int32_t timeoutMs) {
        const Taken taken(session, stream, 4, timeoutMs);
        EXPECT_EQ(taken.Free(session, stream), 0);
        return taken.result;
    }

    Session session{GetParam(), CLIENT_PLAYING_STATE, {{{"TEARDOWN "}, Ok(), true}}};
};
INSTANTIATE_TEST_SUITE_P(Transports, NumberedStreams, testing::Values(kUdp, kTcp), NameOfTransport);

TEST_P(NumberedStreams, WaitAsLongAsTheyAreTold) {
    for (const int32_t timeoutMs : {0, 1, 20, 120}) {
        const double ms = 1000 * SecondsOf([&] { EXPECT_EQ(Result(1, timeoutMs), 0); });
        EXPECT_TRUE(ms >= timeoutMs && ms < timeoutMs + 1000) << ms;
    }
    for (uint16_t number = 1; number <= 20; ++number) session.Arrive(2, Rtp(number));
    EXPECT_EQ(TakeNumbers(session, 2, 20), Numbers(1, 20));
    EXPECT_TRUE(Eventually([this] { // what the system has by now is there without a wait
        session.Arrive(1, Rtp(7));
        return Result(1, 0) > 0;
    }));
}

// Packets that came first are taken first; a goodbye of another source, as of a second receiver, is none.
TEST_P(NumberedStreams, TellThatTheSenderLeft) {
    session.Arrive(1, Rtp(1));
    EXPECT_EQ(TakeNumbers(session, 1, 1), Numbers(1, 1));
    session.ArriveRtcp(1, RtcpPacket(203, {0x55555555}));
    EXPECT_EQ(Result(1, 100), 0);
    for (const uint16_t number : Numbers(2, 3)) session.Arrive(1, Rtp(number));
    session.ArriveRtcp(1, SenderReport() + RtcpPacket(203, {0x11223344}));
    EXPECT_TRUE(Eventually([this] { return FindStreamByNumber(RecordOf(session).media, 1)->endedWhy != 0; }));
    EXPECT_EQ(TakeNumbers(session, 1, 2), Numbers(2, 3));
    EXPECT_EQ(Result(1, 60000), RTSPTAP_SENDER_LEFT);
    EXPECT_EQ(Result(1, 0), RTSPTAP_SENDER_LEFT);
    EXPECT_EQ(Result(2, 0), 0);
}

// In the reader's own turn, beside the turn of another one, and in none.
TEST_P(NumberedStreams, WaitsEndEarly) {
    const auto wait = [this](int32_t stream, std::atomic<int32_t> &result) {
        return std::thread([=, this, &result] { result = Taken(session, stream, 1, 60000).result; });
    };
    const CapturedStdout out;
    for (const int32_t expected : {RTSPTAP_INTERRUPTED, RTSPTAP_TORN_DOWN}) {
        std::atomic<int32_t> results[2] = {1, 1};
        std::thread readers[] = {wait(1, results[0]), wait(2, results[1])};
        usleep(20000);
        EXPECT_EQ(expected == RTSPTAP_INTERRUPTED ? RTSPTapInterrupt(session) : session.Teardown(), 0);
        EXPECT_LT(SecondsOf([&] { std::ranges::for_each(readers, &std::thread::join); }), 10);
        for (const auto &result : results) EXPECT_EQ(result, expected);
    }
    EXPECT_EQ(Result(2, 60000), RTSPTAP_TORN_DOWN); // there are no streams any more
    EXPECT_EQ(Taken(session, 3, 1, 0).result, RTSP_INVALID_ARGUMENT);
}

TEST_P(NumberedStreams, HeldPacketsOutliveTheSession) {
    for (uint16_t number = 1; number <= 8; ++number) session.Arrive(1, Rtp(number, "kept"));
    std::vector<RTPStreamData *> held = TakeByNumber(session, 1, 8);
    ASSERT_EQ(held.size(), 8U);
    EXPECT_EQ(session.Teardown(), 0);
    std::swap(held[0], held[7]);
    for (RTPStreamData *packet : held) {
        EXPECT_EQ(PayloadOf(*packet), "kept");
        EXPECT_EQ(RTSPTapFreePackets(session, 2, &packet, 1), RTSPTAP_NOT_TAKEN);
        if (packet == held[3]) continue; // with the client
        EXPECT_EQ(RTSPTapFreePackets(session, 1, &packet, 1), 0);
    }
}

// For a build with a thread sanitizer: a reader a stream, one that gives back, one that interrupts, and a TEARDOWN.
TEST_P(NumberedStreams, EndWhileEverybodyIsAtWork) {
    std::atomic<bool> ends{false};
    std::mutex lock;
    std::vector<RTPStreamData *> full[2];
    std::vector<std::thread> threads;
    for (const int32_t stream : {1, 2}) {
        threads.emplace_back([&, stream] {
            for (int32_t result = 0; result != RTSPTAP_TORN_DOWN;) {
                const Taken taken(session, stream, 5, 3);
                result = taken.result;
                const std::lock_guard guard(lock);
                full[stream - 1].insert(full[stream - 1].end(), taken.packets.begin(), taken.packets.end());
            }
        });
        threads.emplace_back([&, stream] {
            for (bool last = false; !last;) {
                last = ends;
                std::unique_lock guard(lock);
                std::vector<RTPStreamData *> held = std::exchange(full[stream - 1], {});
                guard.unlock();
                std::ranges::reverse(held);
                EXPECT_EQ(RTSPTapFreePackets(session, stream, held.data(), static_cast<int32_t>(held.size())), 0);
                usleep(200);
            }
        });
    }
    threads.emplace_back([&] {
        while (!ends) RTSPTapInterrupt(session), usleep(500);
    });
    for (uint16_t number = 1; number <= 1000; ++number) session.Arrive(1 + number % 2, Rtp(number));
    EXPECT_EQ(session.Teardown(), 0);
    threads[0].join();
    threads[2].join();
    ends = true;
    for (const int at : {1, 3, 4}) threads[static_cast<std::size_t>(at)].join();
    EXPECT_TRUE(full[0].empty() && full[1].empty());
}

} // namespace
} // namespace rtsptap::test
