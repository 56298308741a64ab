#include "tests/support/session.h"

#include "rtsp/client/stream_sockets.h"

#include <cstdlib>

namespace rtsptap::test {

namespace {

using Clock = std::chrono::steady_clock;

// Test processes run side by side. Each has a network of its own, or else begins with ports of its own.
class Network : public testing::Environment {
public:
    void SetUp() override {
        if (!EnterOwnNetwork()) gblClientRtspUdpPort = static_cast<uint16_t>(4000 + getpid() * 7919LL % 500 * 56);
    }
};
[[maybe_unused]] const testing::Environment *const registered = testing::AddGlobalTestEnvironment(new Network);

} // namespace

HeaderList::HeaderList(std::initializer_list<std::pair<const char *, const char *>> headers, uint8_t isCustom)
    : handle(RTSPCreateHeaderList()) {
    for (const auto &[name, value] : headers) EXPECT_EQ(RTSPAddHeaderToList(handle, name, value, isCustom), 0);
}

HeaderList::~HeaderList() { EXPECT_EQ(RTSPDestroyHeaderList(handle), 0); }

Reply SetupReply(int32_t stream, uint32_t proto, uint16_t rtcpPort) {
    if (proto == DATA_PROTO_UDP)
        return Ok("Session: {session};timeout=60",
                  "Transport: RTP/AVP;unicast;server_port=1-" + std::to_string(rtcpPort));
    const std::string channel = std::to_string(2 * stream - 2) + "-" + std::to_string(2 * stream - 1);
    return Ok("Session: {session}", "Transport: RTP/AVP/TCP;unicast;interleaved=" + channel);
}

Script StepsTo(RTSPClientState state, uint32_t proto, uint16_t rtcpPort1, uint16_t rtcpPort2) {
    Script steps;
    if (state == CLIENT_OPTIONS_SENT_STATE) steps = steps + Script{{"OPTIONS {base} ", Ok()}};
    if (state >= CLIENT_DESCRIBE_SENT_STATE) steps = steps + Script{{"DESCRIBE {base} ", WithBody(kDescription)}};
    if (state >= CLIENT_READY_STATE)
        steps = steps + Script{{"SETUP {base}/track1 ", SetupReply(1, proto, rtcpPort1)},
                               {"SETUP {base}/track2 ", SetupReply(2, proto, rtcpPort2)}};
    if (state >= CLIENT_PLAYING_STATE) steps = steps + Script{{"PLAY {base} ", Ok("Session: {session}")}};
    if (state >= CLIENT_PAUSE_STATE) steps = steps + Script{{"PAUSE {base} ", Ok()}};
    return steps;
}

Session::Session(uint32_t dataProto, RTSPClientState state, const Script &further, int32_t ringBytes,
                 const std::function<void(intptr_t)> &prepare)
    : Client(ringBytes, dataProto), server(StepsTo(state, dataProto, rtcp[0].Port(), rtcp[1].Port()) + further) {
    serverPort = server.Port();
    if (prepare) prepare(*this);
    Reach(state);
}

void Session::SendNumbers(int32_t stream, const std::vector<uint16_t> &numbers) const {
    for (const uint16_t number : numbers) SendRtp(stream, Rtp(number));
}

void Session::Arrive(int32_t stream, const std::string &rtp) {
    proto == kUdp ? SendRtp(stream, rtp) : void(server.Send(Frame(static_cast<unsigned>(2 * stream - 2), rtp)));
}

void Session::ArriveRtcp(int32_t stream, const std::string &rtcpPacket) {
    proto == kUdp ? rtcp[stream - 1].SendTo(Plus(ClientPort(stream), 1), rtcpPacket)
                  : void(server.Send(Frame(static_cast<unsigned>(2 * stream - 1), rtcpPacket)));
}

int64_t NumberSet(intptr_t client, int32_t option) {
    int64_t value = -1;
    EXPECT_EQ(RTSPTapGetOption(client, option, &value), 0);
    return value;
}

std::string TextSet(intptr_t client, int32_t option) {
    char text[256] = "?";
    uint32_t size = sizeof text;
    EXPECT_EQ(RTSPTapGetOptionText(client, option, text, &size), 0);
    EXPECT_EQ(size, strlen(text) + 1);
    return text;
}

RTSPTapStreamStatistics StatisticsOf(intptr_t client, int32_t stream) {
    RTSPTapStreamStatistics told = {};
    told.recordSize = sizeof told;
    EXPECT_EQ(RTSPTapGetStreamStatistics(client, stream, &told), 0);
    return told;
}

std::string Numbered(int number, const std::string &status, const std::string &body) {
    std::string text = "RTSP/1.0 " + status + "\r\nCSeq: " + std::to_string(number) + "\r\nSession: 12345678\r\n";
    if (!body.empty()) text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    return text + "\r\n" + body;
}

RTPStreamData *TakePacket(intptr_t client, int32_t codec) {
    RTPStreamData *packet = nullptr;
    // A wait ends with every datagram, also with one of another kind; only a quiet stream is given up.
    for (int quiet = 0; quiet < 20; ++quiet) {
        const auto begin = Clock::now();
        if (RTPClientGetRTPStreamData(client, &packet, codec) == 0) return packet;
        if (Clock::now() - begin > std::chrono::seconds(4)) return nullptr;
    }
    return nullptr;
}

std::vector<uint16_t> TakeSequenceNumbers(intptr_t client, int32_t codec, std::size_t count) {
    std::vector<uint16_t> numbers;
    while (numbers.size() < count) {
        RTPStreamData *packet = TakePacket(client, codec);
        if (packet == nullptr) break;
        numbers.push_back(packet->rtpHeader->sequenceNumber);
        EXPECT_EQ(RTPClientFreeRTPStreamData(client, packet, codec), 0);
    }
    return numbers;
}

std::vector<RTPStreamData *> TakeByNumber(intptr_t client, int32_t stream, std::size_t count) {
    std::vector<RTPStreamData *> packets;
    while (packets.size() < count) {
        RTPStreamData *packet = nullptr;
        if (RTSPTapTakePackets(client, stream, &packet, 1, 5000) != 1) break;
        packets.push_back(packet);
    }
    EXPECT_EQ(packets.size(), count);
    return packets;
}

std::string PayloadOf(const RTPStreamData &packet) {
    return {reinterpret_cast<const char *>(packet.payload), packet.payloadLength};
}

std::vector<uint16_t> Numbers(uint16_t first, uint16_t last) {
    std::vector<uint16_t> numbers;
    for (unsigned number = first; number <= last; ++number) numbers.push_back(static_cast<uint16_t>(number));
    return numbers;
}

std::string Frames(uint16_t first, uint16_t last, unsigned channel) {
    std::string bytes;
    for (const uint16_t number : Numbers(first, last)) bytes += Frame(channel, Rtp(number));
    return bytes;
}

uint16_t FreePair() {
    auto port = static_cast<uint16_t>(20000 + getpid() % 500 * 20);
    while (!IsFree(port) || !IsFree(Plus(port, 1))) port = Plus(port, 2);
    return port;
}

void Refusals::operator()(int32_t result, int32_t code, const std::string &text, int line) {
    const std::string printed = out.Text().substr(std::exchange(compared, out.Text().size()));
    EXPECT_EQ(result, code) << "line " << line << text;
    EXPECT_TRUE(text.empty() || printed.ends_with(prefix + text)) << "line " << line << " printed:\n"
                                                                  << printed << "not, at its end:\n"
                                                                  << prefix << text;
}

void PrintTo(void *printed, int32_t level, intptr_t client, const char *text) {
    auto &[mutex, lines] = *static_cast<Printed *>(printed);
    const std::lock_guard lock(mutex);
    lines.emplace_back(level, client, text);
}

DescriptorLimit::DescriptorLimit(rlim_t spare) {
    getrlimit(RLIMIT_NOFILE, &saved);
    const int next = dup(0);
    close(next);
    const rlimit tight = {static_cast<rlim_t>(next) + spare, saved.rlim_max};
    setrlimit(RLIMIT_NOFILE, &tight);
}

std::jthread Interruptions() {
    struct sigaction nothing = {};
    nothing.sa_handler = [](int) {};
    nothing.sa_flags = SA_RESTART;
    sigaction(SIGUSR1, &nothing, nullptr);
    return std::jthread([target = pthread_self()](const std::stop_token &stop) {
        for (; !stop.stop_requested(); usleep(2000)) pthread_kill(target, SIGUSR1);
    });
}

bool LongForm() { return std::getenv("RTSPTAP_LONG") != nullptr; }

bool Eventually(const std::function<bool()> &condition) {
    const auto end = Clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (Clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

bool SucceedsSoon(const std::function<int32_t()> &call) {
    int32_t result = 0;
    const double seconds = SecondsOf([&] { result = call(); });
    EXPECT_LT(seconds, 15);
    EXPECT_EQ(result, 0);
    return result == 0 && seconds < 15;
}

} // namespace rtsptap::test
