// Operations that do not block.
#include "tests/support/progress.h"
#include "tests/support/session.h"

#include <unistd.h>

namespace rtsptap::test {
namespace {

const Script kDescribed{{"OPTIONS ", Ok()}, {"DESCRIBE ", WithBody(kDescription)}};

Reply ByteByByte(const std::string &text) {
    Reply reply;
    for (const char c : text) reply = reply + SendBytes(std::string(1, c)) + Delay(2);
    return reply;
}

TEST(Progress, OpensWhateverTheServerDoes) {
    const std::string slow = "RTSP/1.0 200 OK\r\nCSeq: 1\r\n\r\n";
    const Step describe{"DESCRIBE ", WithBody(kDescription)};
    const struct {
        const char *name;
        Script script;
        int32_t result;
    } rows[] = {
        {"a server that answers", kDescribed, 0},
        {"byte by byte", Script{{"OPTIONS ", ByteByByte(slow)}, describe}, 0},
        {"the rest never comes", Script{{"OPTIONS ", SendBytes("RTSP/1.0 2")}, {"DESCRIBE ", Stall()}},
         RTSP_RESPONSE_TIMEOUT},
        {"silence, then a reply", Script{{"OPTIONS ", Delay(100) + Ok()}, describe}, 0},
        {"a password", Script{{"OPTIONS ", Challenge("n1")}, {{"OPTIONS ", "Digest "}, Ok()}, describe}, 0},
        {"elsewhere", Script{{"OPTIONS ", Status(302, "Found", "Location: {base}/b")}} + kDescribed, 0},
        {"OPTIONS is not answered", Script{{"OPTIONS ", Stall()}, describe}, 0},
        {"OPTIONS closes", Script{{"OPTIONS ", Close()}, describe}, 0},
        {"nothing", Script{{"OPTIONS ", Stall()}, {"DESCRIBE ", Stall()}}, RTSP_RESPONSE_TIMEOUT},
        {"refused", Script{{"OPTIONS ", Ok()}, {"DESCRIBE ", Status(404, "Not Found")}}, RTSP_CLIENT_ERROR},
    };
    for (const auto &is : rows) {
        const CapturedStdout output;
        const std::size_t descriptors = CountDescriptors();
        {
            ScriptedServer server(is.script);
            Client client;
            SetNumber(client, RTSPTAP_OPTION_DIALECT, RTSPTAP_DIALECT_TOLERANT);
            SetNumber(client, RTSPTAP_OPTION_REPLY_LIMIT, is.result == RTSP_RESPONSE_TIMEOUT ? 100 : 3000);
            EXPECT_EQ(Progressed(client, RTSPTapBeginOpen, server.Url("me:secret@127.0.0.1").c_str()), is.result)
                << is.name;
            EXPECT_EQ(RTSPTapProgress(client), is.result) << is.name;
            EXPECT_EQ(StateOf(client), is.result == 0 ? +CLIENT_DESCRIBE_SENT_STATE : +RTSP_NOT_CONNECTED)
                << is.name;
        }
        EXPECT_EQ(CountDescriptors(), descriptors) << is.name;
    }
}

TEST(Progress, OfNamesAndServersThatAreDeadEndsInTime) {
    const CapturedStdout output;
    const FullQueue deaf;
    const Client client;
    SetNumber(client, RTSPTAP_OPTION_CONNECT_LIMIT, 200);
    const std::pair<std::string, int32_t> rows[] = {
        {"rtsp://127.0.0.1:1/", RTSP_CONNECT_FAILED},
        {"rtsp://127.0.0.1:" + std::to_string(deaf.port) + "/", RTSP_CONNECT_FAILED},
        {"rtsp://nowhere.invalid/", RTSPTAP_HOST_NOT_FOUND},
        {"rtsp://localhost:1/", RTSP_CONNECT_FAILED},
        {"http://127.0.0.1/", RTSPTAP_OTHER_SCHEME}};
    EXPECT_EQ(RTSPTapProgress(client), RTSPTAP_NONE_BEGUN);
    for (const auto &[url, result] : rows)
        EXPECT_EQ(Progressed(client, RTSPTapBeginOpen, url.c_str()), result) << url;
}

// However many want it, and again and again: no resolver can be called off.
TEST(Progress, AsksForANameOnceWhileNoAnswerComes) {
    const CapturedStdout output;
    torture::namesHang = true;
    const int before = torture::namesAsked;
    {
        const Client waits;
        for (int i = 0; i < 20; ++i) {
            const Client givesUp;
            EXPECT_EQ(RTSPTapBeginOpen(givesUp, "rtsp://nowhere.invalid/"), 0);
            EXPECT_EQ(RTSPTapProgress(givesUp), RTSPTAP_PENDING);
        }
        EXPECT_EQ(RTSPTapBeginOpen(waits, "rtsp://nowhere.invalid/"), 0);
        EXPECT_TRUE(Eventually([&] { return torture::namesAsked > before; }));
        EXPECT_EQ(RTSPTapProgress(waits), RTSPTAP_PENDING);
        torture::namesHang = false;
        int32_t result = RTSPTAP_PENDING;
        while (StepOn(waits, result)) AwaitProgress(waits);
        EXPECT_EQ(result, RTSPTAP_HOST_NOT_FOUND);
    }
    EXPECT_LE(torture::namesAsked, before + 5); // one, unless this machine is very slow
}

TEST(Progress, TakesMethodsOneByOneWithTheirHeadersAndTellsErrno) {
    ScriptedServer server(Script{{{"OPTIONS ", "X-Own: 1"}, Ok()}} + Script{{"DESCRIBE ", WithBody(kDescription)}});
    Client client;
    char address[64] = {};
    EXPECT_EQ(Progressed(client, RTSPTapBeginConnect, server.Url().c_str(), address), 0);
    EXPECT_STREQ(address, "127.0.0.1");
    const intptr_t headers = RTSPCreateHeaderList();
    EXPECT_EQ(RTSPAddHeaderToList(headers, "X-Own", "1", 1), 0);
    EXPECT_EQ(Progressed(client, RTSPTapBeginMethod, RTSP_OPTIONS, 0, headers), 0);
    RTSPDestroyHeaderList(headers);
    EXPECT_EQ(Progressed(client, RTSPTapBeginMethod, RTSP_DESCRIBE, 0, 0), 0);
    EXPECT_EQ(RTSPClientGetNbStreams(client), 2);
    EXPECT_EQ(RTSPTapBeginMethod(client, RTSP_GET_PARAMETER, 0, 0), RTSP_INVALID_ARGUMENT);
    EXPECT_EQ(Progressed(client, RTSPTapBeginConnect, "rtsp://127.0.0.1:1/", nullptr), RTSP_CONNECT_FAILED);
    EXPECT_EQ(errno, ECONNREFUSED);
}

TEST(Progress, OfTwoClientsInTurnPrintsForEach) {
    ScriptedServer servers[2] = {ScriptedServer(kDescribed), ScriptedServer(kDescribed)};
    Printed printed[2];
    Client clients[2];
    int32_t results[2];
    for (const int i : {0, 1}) {
        EXPECT_EQ(RTSPTapSetPrinter(clients[i], PrintTo, &printed[i]), 0);
        EXPECT_EQ(RTSPTapBeginOpen(clients[i], servers[i].Url().c_str()), 0);
        EXPECT_EQ(RTSPTapBeginPause(clients[i]), RTSPTAP_BUSY);
        EXPECT_EQ(clients[i].Options(), RTSPTAP_BUSY);
        EXPECT_EQ(RTSPTapOpen(clients[i], "rtsp://127.0.0.1:1/"), RTSPTAP_BUSY);
        results[i] = RTSPTAP_PENDING;
    }
    while (results[0] == RTSPTAP_PENDING || results[1] == RTSPTAP_PENDING)
        for (const int i : {0, 1}) // each step in another thread
            std::jthread([&] { StepOn(clients[i], results[i]) ? AwaitProgress(clients[i]) : void(); });
    for (const int i : {0, 1}) {
        EXPECT_EQ(results[i], 0);
        EXPECT_EQ(printed[i].Count("DESCRIBE " + servers[i].Url()), 1U);
        EXPECT_EQ(printed[i].Count("", clients[i]), printed[i].Count(""));
    }
}

// The operations of a whole session, one after the other; false when `steps` are over before they are.
bool PlaySome(intptr_t client, const std::string &url, int &steps) {
    const auto take = [&](int32_t begun) {
        EXPECT_EQ(begun, 0);
        int32_t result = RTSPTAP_PENDING;
        for (; steps > 0 && StepOn(client, result); --steps) AwaitProgress(client);
        return steps > 0;
    };
    return take(RTSPTapBeginOpen(client, url.c_str())) && take(RTSPTapBeginPlay(client, nullptr, nullptr)) &&
           take(RTSPTapBeginPause(client)) && take(RTSPTapBeginTeardown(client));
}

TEST(Progress, GivenUpAnywhereLeavesNothingBehind) {
    for (const uint32_t proto : {kUdp, kTcp})
        for (const bool destroys : {true, false}) {
            bool isWhole = false;
            for (int most = 0; !isWhole; ++most) {
                const CapturedStdout output;
                const std::size_t descriptors = CountDescriptors(), threads = CountThreads();
                {
                    Script script =
                        kDescribed +
                        Script{{"SETUP ", SetupReply(1, proto)},
                               {"SETUP ", SetupReply(2, proto)},
                               {"PLAY ", Ok() + (proto == kTcp ? SendBytes(Frame(0, Rtp(7))) : Reply{})},
                               {"PAUSE ", Ok()},
                               {"TEARDOWN ", Ok()}};
                    for (Step &step : script) step.mayBeMissing = true;
                    ScriptedServer server(script);
                    Client client;
                    SetNumber(client, RTSPTAP_OPTION_SILENCE_LIMIT, proto == kTcp ? 3000 : 0);
                    SetNumber(client, RTSPTAP_OPTION_TRANSPORT,
                              proto == kTcp ? RTSPTAP_TRANSPORT_TCP : RTSPTAP_TRANSPORT_UDP);
                    int steps = most;
                    isWhole = PlaySome(client, server.Url(), steps);
                    if (!isWhole && !destroys) {
                        EXPECT_EQ(RTSPTapInterrupt(client), 0);
                        const int32_t result = RTSPTapProgress(client); // 0: the reply had come by then
                        EXPECT_TRUE(result == RTSPTAP_INTERRUPTED || result == 0) << result << " after " << most;
                    }
                }
                EXPECT_EQ(CountDescriptors(), descriptors) << most;
                EXPECT_TRUE(Eventually([&] { return CountThreads() <= threads; })) << most;
                ASSERT_LT(most, 100);
            }
        }
}

TEST(Progress, IsEndedByWhatEndsAWaitForTheFirstPacket) {
    const CapturedStdout output;
    ScriptedServer server(
        kDescribed + Script{{"SETUP ", SetupReply(1, kUdp)}, {"SETUP ", SetupReply(2, kUdp)}, {"PLAY ", Ok()}});
    const Client client;
    EXPECT_EQ(RTSPTapOpen(client, server.Url().c_str()), 0);
    SetNumber(client, RTSPTAP_OPTION_SILENCE_LIMIT, 60000);
    std::jthread interruption([&] {
        EXPECT_TRUE(Eventually([&] { return StateOf(client) == CLIENT_PLAYING_STATE; }));
        for (int i = 0; i < 50; ++i, usleep(10000)) RTSPTapInterrupt(client);
    });
    EXPECT_EQ(RTSPTapStart(client, nullptr, nullptr), RTSPTAP_INTERRUPTED);
}

// As a loop of the program's waits: for the client's descriptor, or in its group's call.
TEST(Progress, WithoutThreadsIsWokenByTheDescriptorOrTheGroup) {
    for (const uint32_t proto : {kUdp, kTcp})
        for (const bool inGroup : {false, true}) {
            const CapturedStdout output;
            const Reply media = proto == kTcp ? SendBytes(Frame(0, Rtp(7))) : Reply{};
            ScriptedServer server(Script{{"OPTIONS ", Delay(50) + Ok()}, kDescribed[1]} +
                                  Script{{"SETUP ", SetupReply(1, proto)},
                                         {"SETUP ", SetupReply(2, proto)},
                                         {"PLAY ", Delay(50) + Ok() + media},
                                         {"PAUSE ", Delay(50) + Ok()},
                                         {"TEARDOWN ", Ok()}});
            RTSPTapGroup *const group = RTSPTapGroupCreate();
            Client client;
            SetNumber(client, RTSPTAP_OPTION_THREADS, 0);
            SetNumber(client, RTSPTAP_OPTION_TRANSPORT,
                      proto == kTcp ? RTSPTAP_TRANSPORT_TCP : RTSPTAP_TRANSPORT_UDP);
            SetNumber(client, RTSPTAP_OPTION_SILENCE_LIMIT, proto == kTcp ? 3000 : 0);
            EXPECT_TRUE(!inGroup || RTSPTapGroupAdd(group, client, nullptr) == 0);
            std::vector<uint16_t> numbers;
            const auto wait = [&] {
                pollfd loop = {inGroup ? RTSPTapGroupGetDescriptor(group) : RTSPTapGetDescriptor(client), POLLIN,
                               0};
                EXPECT_EQ(poll(&loop, 1, 10000), 1);
                RTSPTapGroupPacket packet = {};
                if (!inGroup || RTSPTapGroupTakePackets(group, &packet, 1, 10000) != 1) return;
                numbers.push_back(packet.packet->rtpHeader->sequenceNumber);
                RTSPTapGroupFreePackets(&packet, 1);
            };
            const auto finish = [&](int32_t begun) {
                int32_t result = begun == 0 ? RTSPTAP_PENDING : begun;
                int waits = 0;
                do wait();
                while (++waits < 100 && StepOn(client, result));
                EXPECT_LT(waits, 100);
                return result;
            };
            EXPECT_EQ(finish(RTSPTapBeginOpen(client, "bad")), RTSPTAP_BAD_URL); // told by the descriptor, too
            EXPECT_EQ(finish(RTSPTapBeginOpen(client, server.Url().c_str())), 0);
            EXPECT_EQ(finish(RTSPTapBeginPlay(client, nullptr, nullptr)), 0);
            if (proto == kTcp && !inGroup) numbers = TakeSequenceNumbers(client, kVideo, 1);
            EXPECT_EQ(finish(RTSPTapBeginPause(client)), 0);
            EXPECT_EQ(numbers.size(), proto == kTcp ? 1U : 0U);
            EXPECT_EQ(finish(RTSPTapBeginTeardown(client)), 0);
            client.Destroy();
            RTSPTapGroupDestroy(group);
        }
}

// The reply to a second PLAY over UDP, and the end of the connection behind it, before the operation has looked.
TEST(Progress, LeavesNothingDueOnAConnectionThatWasClosedMeanwhile) {
    const CapturedStdout output;
    Tolerant session(kUdp, CLIENT_READY_STATE, {{"PLAY ", Ok()}, {"PLAY ", Ok() + Close()}});
    SetNumber(session, RTSPTAP_OPTION_THREADS, 0);
    SetNumber(session, RTSPTAP_OPTION_SILENCE_LIMIT, 0);
    EXPECT_EQ(session.Play(), 0);
    EXPECT_EQ(RTSPTapBeginPlay(session, nullptr, nullptr), 0);
    RTPStreamData *packet = nullptr;
    const auto take = [&](int32_t stream) { return RTSPTapTakePackets(session, stream, &packet, 1, 0); };
    EXPECT_TRUE(Eventually([&] { return take(1) == RTSPTAP_CONNECTION_CLOSED; }));
    int32_t result = RTSP_FAILURE;
    while (StepOn(session, result)) AwaitProgress(session);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(take(1) + take(2), 0); // they play on
    int64_t ms = 0;
    EXPECT_EQ(RTSPTapNextDeadline(session, &ms), 0);
    EXPECT_NE(ms, 0);
}

} // namespace
} // namespace rtsptap::test
