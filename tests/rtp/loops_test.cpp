// Clients without threads of the library's: their program's own calls receive.
#include "rtp/stream.h"
#include "tests/support/session.h"

#include <algorithm>
#include <map>
#include <memory>
#include <poll.h>
#include <span>

namespace rtsptap::test {
namespace {

// A client without threads, which plays both streams.
struct Threadless : Session {
    explicit Threadless(uint32_t dataProto, const Script &further = {}, int64_t keepAliveMs = 0)
        : Session(dataProto, CLIENT_READY_STATE, Script{{"PLAY ", Ok()}} + further) {
        RecordOf(*this).media.connection.tending.keepAlive = keepAliveMs;
        EXPECT_EQ(RTSPTapSetOption(*this, RTSPTAP_OPTION_THREADS, 0), 0);
        const std::size_t before = CountThreads();
        EXPECT_EQ(Play(), 0);
        EXPECT_EQ(CountThreads(), before);
        EXPECT_EQ(RTSPTapSetOption(*this, RTSPTAP_OPTION_THREADS, 1), RTSPTAP_TOO_LATE);
    }
    void Send(int32_t stream, uint16_t first, uint16_t last) {
        for (const uint16_t number : Numbers(first, last)) Arrive(stream, Rtp(number));
    }
    // Appends what there is; the result of the call.
    int32_t Take(int32_t stream, std::vector<uint16_t> &numbers, int32_t timeoutMs = 0) {
        RTPStreamData *packets[4];
        const int32_t count = RTSPTapTakePackets(*this, stream, packets, 4, timeoutMs);
        for (int32_t at = 0; at < count; ++at) numbers.push_back(packets[at]->rtpHeader->sequenceNumber);
        EXPECT_EQ(RTSPTapFreePackets(*this, stream, packets, std::max(count, 0)), 0);
        return count;
    }
    // With calls that do not wait.
    std::vector<uint16_t> TakeUntil(int32_t stream, const std::function<bool(std::size_t)> &isEnough) {
        std::vector<uint16_t> numbers;
        EXPECT_TRUE(Eventually([&] {
            while (Take(stream, numbers) > 0) {
            }
            return isEnough(numbers.size());
        }));
        return numbers;
    }
    std::vector<uint16_t> TakeAll(int32_t stream, std::size_t count) {
        return TakeUntil(stream, [count](std::size_t taken) { return taken >= count; });
    }
};

// One stream's calls serve the other one, reports and the connection, too.
TEST(WithoutThreads, CallsThatTakePacketsDoAllThatThreadsDo) {
    const CapturedStdout output;
    const Step keepAlive{"OPTIONS ", Text("RTSP/1.0 200 OK\r\nCSeq: {cseq}\r\nSession: {session}\r\n\r\n")};
    for (const uint32_t proto : {kUdp, kTcp}) {
        Threadless session(proto, {keepAlive, keepAlive}, 100);
        session.Send(1, 1, 9);
        session.Send(2, 21, 25);
        EXPECT_EQ(session.TakeAll(1, 9), Numbers(1, 9));
        EXPECT_EQ(session.TakeAll(2, 5), Numbers(21, 25));
        session.ArriveRtcp(2, SenderReport());
        std::size_t reports = 0;
        session.TakeUntil(1, [&](std::size_t) {
            reports += proto == kTcp ? session.server.WaitForFrames(0).size() : session.rtcp[1].Receive(1).size();
            return reports > 0;
        });
        session.TakeUntil(1,
                          [&](std::size_t) { return session.server.Requests().size() >= 6; }); // two kept it alive
        std::vector<uint16_t> late;
        std::jthread sender([&] { usleep(20000), session.Send(1, 10, 10); });
        EXPECT_EQ(session.Take(1, late, 20000), 1); // by a call that waits
    }
}

// Also where no descriptor keeps account.
TEST(WithoutThreads, TheNextDeadlineIsNowWhileSomethingIsLeft) {
    const CapturedStdout output;
    Threadless session(kTcp);
    SetNumber(session, RTSPTAP_OPTION_REORDER_WAIT, 5000);
    const auto next = [&session] {
        int64_t ms = -2;
        EXPECT_EQ(RTSPTapNextDeadline(session, &ms), 0);
        return ms;
    };
    std::vector<uint16_t> taken;
    session.Send(1, 1, 4);
    session.Send(2, 1, 1);
    EXPECT_EQ(session.TakeAll(2, 1), Numbers(1, 1)); // behind the other one's
    EXPECT_EQ(next(), 0);
    EXPECT_EQ(session.TakeAll(1, 4), Numbers(1, 4));
    EXPECT_NE(next(), 0);
    session.Send(1, 6, 6);
    EXPECT_TRUE(Eventually([&] { return session.Take(1, taken) == 0 && next() > 0; })) << "5 may come yet";
    session.Send(1, 5, 5);
    session.Send(2, 2, 2);
    EXPECT_EQ(session.TakeAll(2, 1), Numbers(2, 2));
    EXPECT_EQ(next(), 0);
    EXPECT_EQ(session.TakeAll(1, 2), Numbers(5, 6));
    session.server.Hangup();
    EXPECT_TRUE(Eventually([&] { return session.Take(2, taken) == RTSPTAP_CONNECTION_CLOSED; }));
    EXPECT_EQ(next(), 0) << "the other one's end";
    EXPECT_EQ(session.Take(1, taken), RTSPTAP_CONNECTION_CLOSED);
    EXPECT_EQ(next(), -1);
}

bool IsReadable(int descriptor, int timeoutMs = 0) {
    pollfd wait = {descriptor, POLLIN, 0};
    return poll(&wait, 1, timeoutMs) > 0;
}

// Whether it stays silent for a while, as whoever waits on it would find.
bool StaysSilent(int descriptor) { return !IsReadable(descriptor, 30); }

TEST(Descriptors, AreReadableExactlyWhileSomethingIsThereForTheProgram) {
    const CapturedStdout output;
    for (const uint32_t proto : {kUdp, kTcp}) {
        Threadless session(proto, {{"PAUSE ", Ok()}, {"PLAY ", Ok()}, {"TEARDOWN ", Ok()}});
        const int descriptor = RTSPTapGetDescriptor(session);
        ASSERT_GE(descriptor, 0);
        std::vector<uint16_t> taken;
        EXPECT_TRUE(StaysSilent(descriptor));
        session.Send(1, 1, 9);
        session.Send(2, 21, 21);
        for (int call = 0; call < 2; ++call) { // packets are left there: its array has room for four
            EXPECT_TRUE(IsReadable(descriptor, 5000));
            EXPECT_TRUE(Eventually([&] { return session.Take(1, taken) == 4; }));
        }
        EXPECT_TRUE(IsReadable(descriptor, 5000));
        EXPECT_EQ(RTSPTapInterrupt(session), 0);
        EXPECT_EQ(session.Take(1, taken), RTSPTAP_INTERRUPTED); // which takes nothing
        EXPECT_EQ(session.TakeAll(2, 1), Numbers(21, 21));
        EXPECT_TRUE(IsReadable(descriptor, 5000)) << "the last packet of the other stream";
        EXPECT_TRUE(Eventually([&] { return session.Take(1, taken) == 0 && taken.size() == 9; }));
        EXPECT_TRUE(StaysSilent(descriptor));
        EXPECT_EQ(session.Pause(), 0);
        session.Send(1, 10, 12); // nobody receives them now
        EXPECT_TRUE(StaysSilent(descriptor));
        EXPECT_EQ(session.Play(), 0);
        EXPECT_TRUE(IsReadable(descriptor, 5000));
        EXPECT_EQ(session.TakeAll(1, 3), Numbers(10, 12));
        EXPECT_EQ(session.Teardown(), 0);
        EXPECT_TRUE(StaysSilent(descriptor));
        EXPECT_EQ(RTSPTapGetDescriptor(session), descriptor);
    }
}

TEST(Descriptors, TellOfAnEndOnce) {
    const CapturedStdout output;
    Threadless session(kTcp);
    const int descriptor = RTSPTapGetDescriptor(session);
    session.Send(1, 1, 2);
    session.server.Hangup();
    for (const int32_t stream : {1, 2}) {
        std::vector<uint16_t> taken;
        EXPECT_TRUE(Eventually([&] {
            EXPECT_TRUE(IsReadable(descriptor, 5000));
            return session.Take(stream, taken) == RTSPTAP_CONNECTION_CLOSED;
        }));
        EXPECT_EQ(taken, Numbers(1, stream == 1 ? 2 : 0));
    }
    EXPECT_TRUE(StaysSilent(descriptor));
    EXPECT_EQ(session.Pause(), RTSP_NO_RESPONSE); // at once
}

// A ring that the program's packets fill is not waited for, until one comes back.
TEST(Descriptors, AreSilentWhileTheRingIsFull) {
    const CapturedStdout output;
    Session session(kUdp, CLIENT_READY_STATE, {{"PLAY ", Ok()}}, 100000);
    EXPECT_EQ(RTSPTapSetOption(session, RTSPTAP_OPTION_THREADS, 0) + session.Play(), 0);
    const int descriptor = RTSPTapGetDescriptor(session);
    const std::string payload(1400, 'x');
    for (uint16_t number = 1; number <= 100; ++number) session.SendRtp(1, Rtp(number, payload));
    std::vector<RTPStreamData *> held;
    while (IsReadable(descriptor, 100)) {
        RTPStreamData *packets[100];
        const int32_t count = RTSPTapTakePackets(session, 1, packets, 100, 0);
        held.insert(held.end(), packets, packets + count);
        ASSERT_LE(held.size(), 100U);
    }
    EXPECT_LT(held.size(), 100U);
    std::size_t received = held.size();
    EXPECT_TRUE(Eventually([&] {
        EXPECT_EQ(RTSPTapFreePackets(session, 1, held.data(), static_cast<int32_t>(held.size())), 0);
        EXPECT_TRUE(received == 100 || IsReadable(descriptor, 5000));
        held.resize(100);
        held.resize(static_cast<std::size_t>(RTSPTapTakePackets(session, 1, held.data(), 100, 0)));
        received += held.size();
        return received == 100;
    }));
    EXPECT_EQ(RTSPTapFreePackets(session, 1, held.data(), static_cast<int32_t>(held.size())), 0);
}

// ---- groups ----

class Groups : public testing::Test {
protected:
    ~Groups() override { RTSPTapGroupDestroy(group); }
    // Takes until nothing comes any more; numbers by client and stream, and how often an end was told.
    void Take(std::size_t wanted) {
        RTSPTapGroupPacket packets[7];
        EXPECT_TRUE(Eventually([&] {
            const int32_t count = RTSPTapGroupTakePackets(group, packets, 7, 10);
            for (const RTSPTapGroupPacket &packet : std::span(packets).first(static_cast<std::size_t>(count)))
                if (packet.packet != nullptr)
                    numbers[{packet.client, packet.stream}].push_back(packet.packet->rtpHeader->sequenceNumber);
                else
                    ends[packet.client].push_back(packet.result);
            EXPECT_EQ(RTSPTapGroupFreePackets(packets, count), 0);
            taken += static_cast<std::size_t>(count);
            return taken >= wanted;
        }));
    }
    CapturedStdout output;
    RTSPTapGroup *group = RTSPTapGroupCreate();
    std::map<std::pair<intptr_t, int32_t>, std::vector<uint16_t>> numbers;
    std::map<intptr_t, std::vector<int32_t>> ends;
    std::size_t taken = 0;
};

TEST_F(Groups, GivePacketsOfAllAndTellOfEndsOnce) {
    Threadless overUdp(kUdp);
    Threadless overTcp(kTcp);
    EXPECT_EQ(RTSPTapGroupAdd(group, overTcp, nullptr), 0);
    overUdp.Send(1, 1, 5);
    EXPECT_EQ(RTSPTapGroupAdd(group, overUdp, nullptr), 0); // what has come before counts
    EXPECT_EQ(RTSPTapGroupAdd(group, overUdp, nullptr), RTSPTAP_IN_GROUP);
    overUdp.Send(2, 7, 8);
    overTcp.Send(1, 100, 150);
    overTcp.Send(2, 3, 4);
    Take(5 + 2 + 51 + 2);
    EXPECT_EQ((numbers[{overUdp, 1}]), Numbers(1, 5));
    EXPECT_EQ((numbers[{overUdp, 2}]), Numbers(7, 8));
    EXPECT_EQ((numbers[{overTcp, 1}]), Numbers(100, 150));
    EXPECT_EQ((numbers[{overTcp, 2}]), Numbers(3, 4));
    overTcp.server.Hangup();
    Take(taken + 2);
    EXPECT_EQ(ends[overTcp], std::vector(2, static_cast<int32_t>(RTSPTAP_CONNECTION_CLOSED)));
    EXPECT_TRUE(StaysSilent(RTSPTapGroupGetDescriptor(group)));
    EXPECT_EQ(RTSPTapGroupRemove(group, overTcp), 0);
    EXPECT_EQ(RTSPTapGroupRemove(group, overTcp), RTSPTAP_NOT_IN_GROUP);
    overUdp.Send(1, 6, 9);
    EXPECT_TRUE(IsReadable(RTSPTapGroupGetDescriptor(group), 5000));
    Take(taken + 4);
}

// Packets are held while their clients leave the group and the program; others come into it.
TEST_F(Groups, LetStreamsComeAndGo) {
    std::vector<std::unique_ptr<Threadless>> sessions;
    std::vector<RTSPTapGroupPacket> held;
    for (unsigned step = 0; step < 40; ++step) {
        const uint32_t proto = step % 2 == 0 ? kUdp : kTcp;
        sessions.push_back(std::make_unique<Threadless>(proto));
        EXPECT_EQ(RTSPTapGroupAdd(group, *sessions.back(), sessions.back().get()), 0);
        for (const auto &session : sessions) session->Send(1 + static_cast<int32_t>(step % 2), 1, 70);
        RTSPTapGroupPacket packets[50];
        const int32_t count = RTSPTapGroupTakePackets(group, packets, 50, 5000);
        ASSERT_GT(count, 0);
        held.insert(held.end(), packets, packets + count);
        for (const RTSPTapGroupPacket &packet : held) EXPECT_NE(packet.context, nullptr);
        if (sessions.size() < 4) continue;
        const std::size_t leaves = step % 4;
        const intptr_t client = *sessions[leaves];
        const bool leavesFirst = step % 3 == 0; // destroyed as a member, or not
        EXPECT_EQ(leavesFirst ? RTSPTapGroupRemove(group, client) : 0, 0);
        const bool isHeld = std::ranges::any_of(held, [&](const auto &packet) { return packet.client == client; });
        sessions.erase(sessions.begin() + static_cast<std::ptrdiff_t>(leaves));
        EXPECT_EQ(RTSPTapGroupFreePackets(held.data(), static_cast<int32_t>(held.size())),
                  isHeld ? RTSPTAP_NOT_TAKEN : 0);
        held.clear();
    }
    EXPECT_EQ(RTSPTapGroupFreePackets(held.data(), static_cast<int32_t>(held.size())), 0);
}

TEST(Descriptors, TheWaitOfAGroupEndsWhereItIsInterruptedAlsoBefore) {
    constexpr int32_t kForever = INT32_MAX;
    RTSPTapGroup *const group = RTSPTapGroupCreate();
    RTSPTapGroupPacket packet;
    for (const bool before : {true, false}) {
        std::jthread caller([group] { EXPECT_EQ(RTSPTapGroupInterrupt(group), 0); });
        if (before) caller.join();
        EXPECT_EQ(RTSPTapGroupTakePackets(group, &packet, 1, kForever), 0);
    }
    EXPECT_FALSE(IsReadable(RTSPTapGroupGetDescriptor(group))); // it has been told
    EXPECT_EQ(RTSPTapGroupInterrupt(nullptr), RTSP_INVALID_ARGUMENT);
    RTSPTapGroupDestroy(group);
}

} // namespace
} // namespace rtsptap::test
