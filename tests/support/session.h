// A client and its scripted server, driven to the state that a test is about, and what can be asked of a client
// from outside.
#pragma once

#include "platform/address.h"
#include "platform/system.h"
#include "rtsp/client/client.h"
#include "tests/support/client.h"
#include "tests/support/packet_builder.h"
#include "tests/support/process.h"
#include "tests/support/scripted_server.h"
#include "tests/support/texts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <functional>
#include <optional>
#include <sys/resource.h>

namespace rtsptap::test {

inline constexpr int32_t kVideo = RTP_CODEC_H264;          // of the first stream below
inline constexpr int32_t kAudio = RTP_CODEC_MPEG4_GENERIC; // of the second

// A header list with the given headers; destroyed at the end.
class HeaderList {
public:
    HeaderList(std::initializer_list<std::pair<const char *, const char *>> headers, uint8_t isCustom = 0);
    ~HeaderList();
    HeaderList(HeaderList &&) = delete; // nor copied
    operator intptr_t() const { return handle; }

private:
    intptr_t handle;
};

// Takes and frees up to `count` packets of a stream; their sequence numbers.
std::vector<uint16_t> TakeSequenceNumbers(intptr_t client, int32_t codec, std::size_t count);

std::vector<RTPStreamData *> TakeByNumber(intptr_t client, int32_t stream, std::size_t count); // all of them

// A client over `proto`, brought to `state`, and its server, whose script goes on with `further`.
class Session : public Client {
public:
    Session(uint32_t proto, RTSPClientState state, const Script &further = {}, int32_t ringBytes = 1 << 20,
            const std::function<void(intptr_t)> &prepare = {}); // before it connects

    ~Session() { EXPECT_EQ(Destroy(), 0); } // before the server ends
    void Reach(RTSPClientState state) { EXPECT_EQ(Client::Reach(state), 0); }

    std::vector<uint16_t> Video(std::size_t count) const { return TakeSequenceNumbers(*this, kVideo, count); }
    std::vector<uint16_t> Audio(std::size_t count) const { return TakeSequenceNumbers(*this, kAudio, count); }

    // The local RTP port that the client chose for a stream (1 and up), read from its SETUP request.
    uint16_t ClientPort(int32_t stream) const { return server.ClientPort("/track" + std::to_string(stream)); }
    void SendRtp(int32_t stream, const std::string &packet) const { media.SendTo(ClientPort(stream), packet); }
    void SendNumbers(int32_t stream, const std::vector<uint16_t> &numbers) const;
    void Arrive(int32_t stream, const std::string &rtp); // by datagram, or on the channels 0 and 2
    void ArriveRtcp(int32_t stream, const std::string &rtcp);

    UdpPeer media;   // sends RTP over UDP
    UdpPeer rtcp[2]; // the server's RTCP ports of streams 1 and 2
    ScriptedServer server;
};

// A client of the tolerant dialect, in a state.
struct Tolerant : Session {
    Tolerant(uint32_t dataProto, RTSPClientState state, const Script &further)
        : Session(dataProto, state, further) {
        Rules().Choose(RTSPTAP_DIALECT_TOLERANT);
    }
    Dialect &Rules() const { return reinterpret_cast<RTSPClient *>(intptr_t{*this})->media.dialect; }
    uint64_t Uses(Rule rule) const { return Rules().Uses(rule); }
};

// A suite's parameters.
inline std::string NameOfTransport(const testing::TestParamInfo<uint32_t> &at) {
    return at.param == kUdp ? "Udp" : "Tcp";
}

// The steps that bring a client of `proto` to `state`; RTCP ports are what the SETUP replies name.
Script StepsTo(RTSPClientState state, uint32_t proto, uint16_t rtcpPort1 = 9, uint16_t rtcpPort2 = 9);
Reply SetupReply(int32_t stream, uint32_t proto, uint16_t rtcpPort = 9);

inline RTSPClient &RecordOf(intptr_t client) { return *reinterpret_cast<RTSPClient *>(client); }
inline int32_t StateOf(intptr_t client) { // an RTSPClientState, or RTSP_NOT_CONNECTED
    return RecordOf(client).connected != 0 ? static_cast<int32_t>(RecordOf(client).media.state)
                                           : RTSP_NOT_CONNECTED;
}

inline void SetNumber(intptr_t client, int32_t option, int64_t value) {
    EXPECT_EQ(RTSPTapSetOption(client, option, value), 0);
}
int64_t NumberSet(intptr_t client, int32_t option);
std::string TextSet(intptr_t client, int32_t option);
RTSPTapStreamStatistics StatisticsOf(intptr_t client, int32_t stream);

inline Reply Challenge(const std::string &nonce) {
    return Status(401, "Unauthorized", "WWW-Authenticate: Digest realm=\"r\", nonce=\"" + nonce + "\"");
}
// A reply of the session, by its number.
std::string Numbered(int number, const std::string &status = "200 OK", const std::string &body = "");

RTPStreamData *TakePacket(intptr_t client, int32_t codec); // null when none comes
std::string PayloadOf(const RTPStreamData &packet);
std::vector<uint16_t> Numbers(uint16_t first, uint16_t last);
std::string Frames(uint16_t first, uint16_t last, unsigned channel = 0); // with packets of these numbers

inline uint16_t Plus(uint16_t port, int distance) { return static_cast<uint16_t>(port + distance); }
inline bool IsFree(uint16_t port) { return UdpPeer(port).Port() != 0; } // bound by nobody
uint16_t FreePair(); // of neighbouring ports that were free a moment ago, away from those of other test processes

// Compares what calls of a function return, and the failure text that is the last thing each of them prints.
class Refusals {
public:
    explicit Refusals(const std::string &function) : prefix("!!!ERROR!!! : EXIT : " + function) {}
    // The text is what stands behind the function's name; empty: not compared.
    void operator()(int32_t result, int32_t code, const std::string &text, int line = __builtin_LINE());

private:
    const std::string prefix;
    CapturedStdout out;
    std::size_t compared = 0; // bytes of `out`
};

// A listener whose queue is full: it lets nobody in, and refuses nobody.
struct FullQueue {
    FullQueue() {
        sockaddr_in bound = {};
        socklen_t length = sizeof bound;
        EXPECT_TRUE(BindTo(silent.Get(), ReadAddress("127.0.0.1", 0)) && listen(silent.Get(), 0) == 0);
        getsockname(silent.Get(), reinterpret_cast<sockaddr *>(&bound), &length);
        port = ntohs(bound.sin_port);
        EXPECT_TRUE(ConnectTo(queued.Get(), ReadAddress("127.0.0.1", port)));
    }
    const UniqueSocket silent{OpenStreamSocket()}, queued{OpenStreamSocket()};
    uint16_t port = 0;
};

// What a printer was handed, a line each: level, whose it is, text.
struct Printed {
    // Of anybody where no client is named.
    std::size_t Count(const std::string &text, std::optional<intptr_t> client = {}, int32_t level = 0) const {
        const std::lock_guard lock(mutex);
        const auto count = std::ranges::count_if(lines, [&](const auto &line) {
            return std::get<2>(line).find(text) != text.npos &&
                   std::get<1>(line) == client.value_or(std::get<1>(line)) &&
                   (level == 0 || std::get<0>(line) == level);
        });
        return static_cast<std::size_t>(count);
    }
    mutable std::mutex mutex;
    std::vector<std::tuple<int32_t, intptr_t, std::string>> lines;
};
void PrintTo(void *printed, int32_t level, intptr_t client, const char *text);

// Refuses the process any new descriptor but the next `spare`, while it lives.
class DescriptorLimit {
public:
    explicit DescriptorLimit(rlim_t spare);
    ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &saved); }

private:
    rlimit saved = {};
};

// Interrupts the calling thread all the time.
std::jthread Interruptions();

// RTSPTAP_LONG in the environment asks for every combination instead of a few.
bool LongForm();

bool Eventually(const std::function<bool()> &condition); // within 20 seconds
bool SucceedsSoon(const std::function<int32_t()> &call); // 0 without a wait for the server's 25 seconds

} // namespace rtsptap::test
