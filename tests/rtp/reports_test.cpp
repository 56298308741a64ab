// What RTCP says in both directions, when packets were sent and came, and what their header extensions say.
#include "rtp/packet_times.h"
#include "rtp/rtcp/rtcp.h"
#include "rtp/rtcp/true_reports.h"
#include "tests/rtp/stream_fixture.h"
#include "tests/support/session.h"
#include "tools/relay/impairment.h"

#include <algorithm>
#include <mutex>

namespace rtsptap::test {
namespace {

RTPStreamData WithExtension(uint16_t profile, std::string &bytes) {
    RTPStreamData packet = {};
    packet.extensionProfile = profile;
    packet.extensionLength = static_cast<uint16_t>(bytes.size());
    packet.extensionData = reinterpret_cast<uint8_t *>(bytes.data());
    return packet;
}

TEST(HeaderExtensions, AreFoundWithinTheirBounds) {
    using namespace std::string_literals;
    for (const auto &row : Rows("header_extensions.txt")) {
        int32_t profile = 0, id = 0;
        std::string bytes;
        std::istringstream in(row[0]);
        std::getline(in >> std::hex >> profile >> std::dec >> id >> std::ws, bytes);
        const RTPStreamData packet = WithExtension(static_cast<uint16_t>(profile), bytes);
        const uint8_t *data = nullptr;
        uint32_t size = 0;
        const std::string found = RTSPTapGetHeaderExtension(&packet, id, &data, &size) != 0 ? "none"
                                  : size == 0                                               ? "empty"
                                              : std::string(data, data + size);
        EXPECT_EQ(found, row.at(1)) << row[0];
    }
    std::string replay = "\x80\x00\x00\x00\x80\x00\x00\x00\xB0\x2A\x00\x00"s;
    RTSPTapReplayHeader header = {};
    header.recordSize = sizeof header;
    const RTPStreamData packet = WithExtension(0xABAC, replay);
    EXPECT_EQ(RTSPTapGetReplayHeader(&packet, &header), 0);
    EXPECT_EQ(header.recordedNs, ((int64_t{1} << 31) - 2208988800) * 1000000000 + 500000000);
    EXPECT_EQ(header.cSeq, 42U);
    EXPECT_EQ(
        std::vector<int32_t>({header.isCleanPoint, header.isEndOfSection, header.isDiscontinuity, header.isLast}),
        std::vector<int32_t>({1, 0, 1, 1}));
    replay.resize(8);
    const RTPStreamData cut = WithExtension(0xABAC, replay);
    EXPECT_EQ(RTSPTapGetReplayHeader(&cut, &header), RTSP_FAILURE);
}

TEST(TrueReports, ComeAtTheIntervalsOfRfc3550) {
    const std::tuple<ReportLoad, double, uint64_t> rows[] = {
        {{.isFirst = true}, 0, 1026}, // 2.5 s * 0.5 / 1.21828
        {{.isFirst = true}, 1, 3078},
        {{.members = 2, .bytesPerSecond = 5000, .averageBytes = 100}, 0.5, 4104},
        {{.members = 2, .bytesPerSecond = 20, .averageBytes = 120}, 0.5, 9849},
        {{.members = 101, .bytesPerSecond = 1000, .averageBytes = 150}, 0.5, 16416}};
    for (const auto &[load, random, ms] : rows) EXPECT_EQ(ReportIntervalMs(load, random), ms);
}

auto With(int32_t option) {
    return [option](intptr_t client) { SetNumber(client, option, 1); };
}

struct ReportsPort {
    UdpPeer reports;
};

// A camera of the tests: it plays one stream, and its client asks for what the test is about.
struct Camera : ReportsPort, Session {
    Camera(uint32_t protocol, const std::function<void(intptr_t)> &prepare, const std::string &playHeaders = "",
           const std::string &lines = "")
        : Session(protocol, CLIENT_INIT_STATE, Steps(protocol, reports.Port(), playHeaders, lines), 1 << 20,
                  prepare) {}
    static Script Steps(uint32_t proto, uint16_t rtcpPort, const std::string &playHeaders,
                        const std::string &lines) {
        const std::string sdp = "v=0\r\ns=x\r\nt=0 0\r\nm=video 0 RTP/AVPF 96\r\na=rtpmap:96 H264/90000\r\n" +
                                lines + "a=control:track1\r\n";
        const Reply play = playHeaders.empty() ? Ok("Session: {session}") : Ok("Session: {session}", playHeaders);
        return {{"DESCRIBE ", WithBody(sdp)},
                {"SETUP ", SetupReply(1, proto, rtcpPort)},
                {"PLAY ", play},
                {"TEARDOWN ", Ok(), true}};
    }
    void Begin() { EXPECT_EQ(Describe() + Setup(1) + Play(), 0); }
    void SendRtcp(const std::string &packet) {
        proto == kUdp ? reports.SendTo(Plus(ClientPort(1), 1), packet) : void(server.Send(Frame(1, packet)));
    }
    // The nth RTCP packet of the client's.
    std::string Heard(std::size_t nth) {
        return proto == kUdp ? reports.Receive(20000) : server.WaitForFrames(nth).at(nth - 1).substr(4);
    }
    // The RTP timestamp of the server's last report, once it is this one.
    bool Knows(uint32_t reported) {
        return Eventually([&] { return StatisticsOf(*this, 1).reportRtpTimestamp == reported; });
    }
    std::vector<RTPStreamData *> Take(std::size_t count) { return TakeByNumber(*this, 1, count); }
    void Free(const std::vector<RTPStreamData *> &packets) {
        EXPECT_EQ(RTSPTapFreePackets(*this, 1, packets.data(), static_cast<int32_t>(packets.size())), 0);
    }
};

// No report answers one of the server's at once, 1.026 seconds after PLAY at the earliest; it says what was
// counted, and the last one goodbye.
TEST(TrueReports, SayWhatWasCountedAndGoodbye) {
    const auto tell = [](uint32_t proto) {
        const auto began = std::chrono::steady_clock::now();
        const auto since = [began] {
            return std::chrono::duration<double>(std::chrono::steady_clock::now() - began);
        };
        Camera camera(proto, With(RTSPTAP_OPTION_TRUE_REPORTS));
        camera.Begin();
        for (const int number : {65533, 65534, 0, 0, 1, 2, 4, 5})
            camera.Arrive(1, Rtp(static_cast<uint16_t>(number)));
        camera.Free(camera.Take(8));
        camera.SendRtcp(RtcpPacket(205, {1, 2, 3}) + // of reduced size
                        RtcpPacket(200, {0x11223344, 0x11121314, 0x21222324, 77, 0, 0}));
        EXPECT_TRUE(camera.Knows(77));
        if (since().count() > 0.5) return false; // the first report can be on its way
        const std::string report = camera.Heard(1);
        const double after = since().count();
        EXPECT_GE(report.size(), 44U);
        if (report.size() < 44) return true;
        EXPECT_GE(after, 1.0);
        EXPECT_EQ(Word32(report, 0), 0x81C90007U);
        EXPECT_EQ(Word32(report, 8), 0x11223344U);
        // 9 numbers, of which 65535 and 3 are missing; 8 packets, as 0 came twice.
        EXPECT_EQ(Word32(report, 12), (256U / 9 << 24) + 1);
        EXPECT_EQ(Word32(report, 16), 65536U + 5);
        EXPECT_EQ(Word32(report, 24), 0x13142122U);
        EXPECT_LE(Word32(report, 28) / 65536.0, after + 0.002); // it counts in milliseconds
        EXPECT_GE(Word32(report, 28) / 65536.0, 0.5);
        EXPECT_EQ(Word16(report, 32), 0x81CA); // SDES
        char host[28] = {};
        gethostname(host, 27);
        EXPECT_EQ(report.substr(40, 2 + strlen(host)),
                  "\x01" + std::string(1, static_cast<char>(strlen(host))) + host);
        EXPECT_EQ(report.size(), 36U + 4 * Word16(report, 34));
        EXPECT_EQ(camera.Teardown(), 0);
        const std::string bye = std::string("\x81\xCB\x00\x01", 4) + report.substr(4, 4);
        std::string last = camera.Heard(2); // others, with nothing new to tell, may come before
        for (std::size_t nth = 3; last.size() >= 28 && !last.ends_with(bye); ++nth) last = camera.Heard(nth);
        EXPECT_TRUE(last.size() >= 28 && Word32(last, 0) == 0x80C90001U);
        return true;
    };
    for (const uint32_t proto : {kUdp, kTcp})
        EXPECT_TRUE(Eventually([&] { return tell(proto); })); // in a moment when the machine is quick enough
}

TEST(TrueReports, AskOnceForWhatIsMissing) {
    Camera camera(kUdp, With(RTSPTAP_OPTION_NACK), "",
                  "a=rtcp-fb:96 nack pli\r\na=rtcp-fb:* nack\r\na=rtcp-rsize\r\n");
    camera.Begin();
    const std::vector<uint16_t> numbers = {1, 2, 5, 4, 6, 7, 7, 8, 30, 31, 32, 33, 34};
    for (const uint16_t number : numbers) camera.Arrive(1, Rtp(number));
    camera.Free(camera.Take(numbers.size()));
    std::vector<uint32_t> asked;
    for (std::string nack; !(nack = camera.reports.Receive(asked.size() < 5 ? 20000 : 200)).empty();) {
        EXPECT_EQ(Word16(nack, 0), 0x81CD);
        EXPECT_EQ(nack.size(), 4U + 4 * Word16(nack, 2));
        for (std::size_t at = 12; at < nack.size(); at += 4) asked.push_back(Word32(nack, at));
    }
    // 3 behind 6; with 30 all up to 27: 9 and the 16 behind it, 26 and 27; the others when three later ones came.
    EXPECT_EQ(asked, std::vector<uint32_t>({3U << 16, (9U << 16) + 0xFFFF, (26U << 16) + 1, 28U << 16, 29U << 16}));
}

struct Told {
    std::mutex lock;
    std::vector<std::string> reports;
};

void Note(void *context, const RTSPTapReport *report) {
    Told &told = *static_cast<Told *>(context);
    const std::lock_guard guard(told.lock);
    told.reports.push_back(std::to_string(report->kind) + " " + std::to_string(report->ssrc) + " " +
                           std::to_string(report->ntp) + " " + std::to_string(report->subtype) + report->name +
                           " " + std::string(report->data, report->data + report->size));
}

TEST(Reports, AreToldPartByPart) {
    Told told;
    Camera camera(kUdp, [&](intptr_t client) { EXPECT_EQ(RTSPTapSetReportCallback(client, Note, &told), 0); });
    camera.Begin();
    EXPECT_EQ(RTSPTapSetReportCallback(camera, Note, &told), RTSP_FAILURE);
    const std::string application = std::string("\x85\xCC\x00\x03", 4) + "\x01\x01\x01\x01" + "cam1" + "data";
    const std::string goodbye = std::string("\xA2\xCB\x00\x05\x00\x00\x00\x07\x00\x00\x00\x08\x03", 13) + "bye" +
                                std::string("\x00\x00\x00\x04", 4) + std::string(3, 0) + "\x04";
    camera.SendRtcp(SenderReport(1, 2) + application + goodbye + "\x80\xC8");
    camera.SendRtcp(application);
    camera.SendRtcp(application.substr(0, 12));                          // cut short: not a word of it is told
    camera.SendRtcp(std::string("\x82\xCB\x00\x01\x00\x00\x00\x09", 8)); // claims two who leave
    EXPECT_TRUE(Eventually([&] {
        const std::lock_guard guard(told.lock);
        return told.reports.size() == 6;
    }));
    const std::lock_guard guard(told.lock);
    EXPECT_EQ(told.reports,
              std::vector<std::string>({"200 287454020 4294967298 0 ", "204 16843009 0 5cam1 data", "203 7 0 0 bye",
                                        "203 8 0 0 bye", "204 16843009 0 5cam1 data", "203 9 0 0 "}));
}

RTSPTapPacketTimes TimesOf(const Camera &camera, const RTPStreamData *packet) {
    RTSPTapPacketTimes times = {};
    times.recordSize = sizeof times;
    EXPECT_EQ(RTSPTapGetPacketTimes(camera, 1, packet, &times), 0);
    return times;
}

// By the reply to PLAY, 2 seconds behind its start and across the wrap, then by a report that tells a time; a
// packet of another sender has none until that one is believed.
TEST(PacketTimes, AreByRtpInfoUntilAReportComes) {
    for (const uint32_t proto : {kUdp, kTcp}) {
        Camera camera(proto, With(RTSPTAP_OPTION_PACKET_TIMES),
                      "Range: npt=10.5-20\r\nScale: 2.0\r\nRTP-Info: url=rtsp://x/track1;seq=1;rtptime=4294877296");
        camera.Begin();
        const int64_t now = WallClockNs();
        camera.Arrive(1, Bytes(RtpPacket{.sequenceNumber = 1, .timestamp = 90000}));
        camera.Arrive(1, Bytes(RtpPacket{.sequenceNumber = 2, .timestamp = 90000, .ssrc = 5}));
        const std::vector<RTPStreamData *> packets = camera.Take(2);
        ASSERT_EQ(packets.size(), 2U);
        const RTSPTapPacketTimes before = TimesOf(camera, packets[0]);
        EXPECT_EQ(before.source, RTSPTAP_TIME_RTP_INFO);
        EXPECT_DOUBLE_EQ(before.playTime, 10.5 + 2 * 2);
        EXPECT_LT(std::abs(before.arrivalNs - now), int64_t{30} * 1000000000);
        EXPECT_LT(std::abs(before.senderNs - now - 2000000000), int64_t{30} * 1000000000);
        EXPECT_EQ(TimesOf(camera, packets[1]).source, RTSPTAP_TIME_UNKNOWN);
        camera.SendRtcp(RtcpPacket(200, {0x11223344, 0, 0, 77, 0, 0}));
        EXPECT_TRUE(camera.Knows(77));
        EXPECT_EQ(TimesOf(camera, packets[0]).source, RTSPTAP_TIME_RTP_INFO);
        camera.SendRtcp(
            RtcpPacket(200, {0x11223344, 0x83AA7E80, 0x80000000, 45000, 0, 0})); // 1970 and a half second
        EXPECT_TRUE(Eventually([&] { return TimesOf(camera, packets[0]).source == RTSPTAP_TIME_SENDER_REPORT; }));
        EXPECT_EQ(TimesOf(camera, packets[0]).senderNs, 1000000000);
        camera.Arrive(1, Bytes(RtpPacket{.sequenceNumber = 3, .ssrc = 5}));
        camera.Free(camera.Take(1));
        camera.SendRtcp(RtcpPacket(200, {5, 0x83AA7E80, 0, 90000, 0, 0}));
        EXPECT_TRUE(camera.Knows(90000));
        EXPECT_EQ(TimesOf(camera, packets[1]).senderNs, 0); // 1970
        EXPECT_EQ(TimesOf(camera, packets[1]).source, RTSPTAP_TIME_SENDER_REPORT);
        camera.Free(packets);
    }
}

// A report every 5 seconds, 2 ms early or late; then the sender's clock is set.
TEST(PacketTimes, DriftIsTheSlopeOfTheReports) {
    StreamStatistics statistics;
    const auto report = [&statistics](double local, double sent) {
        ReportFigures figures{.ntp = static_cast<uint64_t>(sent * 0x1p32)};
        CountDrift(statistics, figures, local);
        return statistics.report = figures;
    };
    for (int i = 0; i < 100; ++i) {
        const ReportFigures last = report(1000 + 5 * i + (i % 2 == 0 ? 0.002 : -0.002), 5 * i * (1 + 200e-6));
        EXPECT_EQ(last.driftReports, static_cast<uint64_t>(std::min(i + 1, 64)));
        EXPECT_NEAR(last.driftPpm, i < 2 ? 0 : 200, i < 2 ? 0 : i < 40 ? 1000 : 10);
    }
    EXPECT_EQ(report(1500, 9000).driftReports, 1U);
}

// Two cameras with other origins and crystals, one behind a network whose delay grows by 2 %: what they saw at the
// same moment has the same time. Time is the test's own, but for what arrives.
TEST(PacketTimes, AlignTwoCamerasOverADriftingNetwork) {
    Camera cameras[2] = {Camera(kUdp, With(RTSPTAP_OPTION_PACKET_TIMES)),
                         Camera(kUdp, With(RTSPTAP_OPTION_PACKET_TIMES))};
    relay::ImpairmentSettings settings;
    settings.delayMs = 500;
    settings.driftPpm = 20000;
    settings.jitterMs = 40;
    relay::Impairment networks[2] = {relay::Impairment({}), relay::Impairment(settings)};
    for (Camera &camera : cameras) camera.Begin();
    std::map<std::string, int64_t> seen[2];
    constexpr int64_t kSeconds = 60;
    for (int64_t second = 0; second < kSeconds; ++second) {
        const auto unix = static_cast<uint32_t>(1700000000 + second);
        for (int i = 0; i < 2; ++i) {
            const double rate = 90000 * (i == 0 ? 1 + 150e-6 : 1 - 80e-6);
            const auto timestampAt = [&](double at) {
                return static_cast<uint32_t>(static_cast<int64_t>(at * rate) + (i == 0 ? -500 : 77777));
            };
            std::size_t sent = 0;
            for (int frame = 0; frame < 5; ++frame) {
                const double at = static_cast<double>(second) + frame * 0.2;
                networks[i].Arrive(static_cast<int64_t>(at * 1e6),
                                   Bytes(RtpPacket{.sequenceNumber = static_cast<uint16_t>(5 * second + frame),
                                                   .timestamp = timestampAt(at),
                                                   .payload = std::to_string(std::llround(at * 1000))}));
            }
            if (second % 5 == 0) {
                const uint32_t reported = timestampAt(static_cast<double>(second));
                cameras[i].SendRtcp(RtcpPacket(200, {0x11223344, unix + 2208988800U, 0, reported, 0, 0}));
                EXPECT_TRUE(cameras[i].Knows(reported));
            }
            for (const std::string &packet : networks[i].Depart((second + 1) * 1000000)) {
                cameras[i].Arrive(1, packet);
                ++sent;
            }
            const std::vector<RTPStreamData *> packets = cameras[i].Take(sent);
            for (const RTPStreamData *packet : packets)
                seen[i][PayloadOf(*packet)] = TimesOf(cameras[i], packet).senderNs;
            cameras[i].Free(packets);
        }
    }
    int64_t worstNs = 0;
    int compared = 0;
    for (const auto &[moment, senderNs] : seen[0]) {
        const int64_t truthNs = 1700000000 * int64_t{1000000000} + std::stoll(moment) * 1000000;
        worstNs = std::max(worstNs, std::abs(senderNs - truthNs));
        if (!seen[1].contains(moment)) continue; // still on its way
        worstNs = std::max(worstNs, std::abs(seen[1][moment] - senderNs));
        ++compared;
    }
    EXPECT_GE(compared, 250);
    EXPECT_LT(worstNs, 5000000);
    RecordProperty("worst_us", static_cast<int>(worstNs / 1000));
    fprintf(stderr, "%d moments compared, at most %ld us apart\n", compared, static_cast<long>(worstNs / 1000));
}

} // namespace
} // namespace rtsptap::test
