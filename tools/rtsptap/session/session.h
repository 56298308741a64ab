// One client of the library, released with the object: every command goes through here, by exported functions only.
#pragma once

#include "base/outcome.h"
#include "base/reply.h"
#include "base/settings.h"
#include "rtsptap_extended.h"
#include "session/credentials.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tool {

// Headers that requests carry beside the library's own.
struct Header {
    std::string name;
    std::string value;
};
using MethodHeaders = std::map<RTSPMethod, std::vector<Header>>;

// "METHOD: Name: value" as one more header of that method. The texts of failures never repeat it: it may be a
// secret.
Outcome AddHeaderOption(const std::string &text, MethodHeaders &headers);

// Where to and as whom.
struct Target {
    std::string url;         // as requests name it
    Credentials credentials; // without user: no challenge is answered
    RTSPTapTransport transport = RTSPTAP_TRANSPORT_AUTOMATIC;
    MethodHeaders headers;
    bool exact = false;    // as in ServerSettings
    bool keepalive = true; // likewise
    TlsSettings tls = {};
    UdpSettings udp = {};
};

// What an exchange came to.
struct Answer {
    int32_t result = RTSP_SUCCESS;
    Reply reply; // empty when there was none
};

// A port to receive on without RTSP; no codec: none.
struct ListenPort {
    int32_t codecType = 0;
    uint16_t port = 0;
    std::string group = {}; // multicast address; empty: none
};

// Something that the tolerant dialect forgives, and that the server sent.
struct UsedRule {
    int32_t number = 0;
    const char *name = "";    // what it is
    const char *section = ""; // where it is settled otherwise
    uint64_t count = 0;       // of its uses
};

struct Stream {
    int32_t number = 0; // from 1, in the order of the description
    std::string codec;
    int32_t codecType = 0;
    bool isReadable = false;   // nothing speaks against it
    int32_t clockRate = 0;     // RTP timestamp units per second; 0: not said
    std::string media = "";    // "video", "audio", "application", as its m= line has it
    std::string omission = ""; // why it is not readable
};

std::string NameOf(const Stream &stream); // "stream 1 (H264)"

// Data, such as a camera's events, of which there may be none for long.
bool MayBeSilent(const Stream &stream);

class Session {
public:
    static constexpr int64_t kReceiveBufferBytes = 1 << 20; // asked of the system for each stream over UDP

    Session();
    ~Session(); // no packet may be out
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    // The address is the server's, where it was reached. Again, when it has closed the connection: what it has
    // asked for is answered from the first request on.
    int32_t Connect(const Target &target, std::string &address);
    RTSPTapTransport TransportUsed() const; // of the streams that are set up

    // Called again and again while a reply is waited for, and waits for it; false: nobody has the patience any
    // more.
    using Waiter = std::function<bool()>;
    void SetWaiter(Waiter wait) { wait_ = std::move(wait); }

    // From now on its packets are taken with those of the group, and all that it waits for is waited for there.
    void Join(RTSPTapGroup *group) const;
    bool IsOf(const RTSPTapGroupPacket &record) const { return record.client == client_; }
    int32_t NumberOf(const RTSPTapGroupPacket &record) const; // of its stream

    // Each is one exchange.
    Answer Options(); // in the tolerant dialect not for long: some servers never answer it
    Answer Describe() { return Send(RTSP_DESCRIBE); }
    Answer SetUp(int32_t number);
    Answer Play() { return Send(RTSP_PLAY); }

    void BeginToLeave(); // TEARDOWN, which is not waited for
    bool HasLeft();      // it is over, one way or another

    // Receives on a local port what somebody else sends there; one more with each call, before the first packet.
    Outcome Listen(int32_t number, const ListenPort &port);

    std::vector<Stream> Streams() const; // of the description

    // What the description says of a stream; its texts and bytes are the session's. False: there is none.
    bool Describe(int32_t number, RTSPTapStreamDescription &description) const;

    // The same, and of AAC what is in its parameters; null: there is none.
    const RTSPStreamDescription *Description(int32_t number) const { return RTSPClientGetSDPInfo(client_, number); }

    std::vector<UsedRule> Tolerated() const; // in the order of their numbers

    // An attribute of a stream's description that no field has, as "control"; empty when there is none.
    std::string Attribute(int32_t number, const std::string &name) const;

    // A line of its description by the line's letter, as "m", without letter and equals sign; empty: none.
    std::string Line(int32_t number, const std::string &name) const;

    // Holds packets back until a stream's queue spans so many milliseconds of a clock of 90 kHz.
    void SetLatency(int32_t milliseconds);
    bool ReleaseHeldBack(); // from now on nothing is held back; false when nothing was

    // What the sender's clock showed at what a packet that was taken carries, by its last sender report; none: none
    // has come.
    std::optional<std::chrono::nanoseconds> SentAt(int32_t number, const RTPStreamData &packet) const;

    RTSPTapStreamStatistics Statistics(int32_t number) const;
    int64_t ReceiveBufferBytes() const; // that the system granted; 0: nothing came over UDP

    // An RTCP packet of a stream: received, or a report of ours.
    using ControlObserver = std::function<void(int32_t number, bool isSent, std::span<const uint8_t> packet)>;

    // From now on, the latest before it included; none: nobody.
    void ShowControl(ControlObserver observer);

    std::string Authentication() const; // the server's way that is answered, "Digest"; empty: never asked for
    std::string StreamFailure() const;  // why a connection through TLS or HTTP has failed; empty: it has not

private:
    Answer Send(RTSPMethod method, int32_t stream = 0);
    int32_t AwaitEnd(int32_t begun) const;
    Answer AnswerOf(int32_t result) const;
    std::string Told(int32_t option) const;
    std::string LastReply() const;
    int32_t InLibrary(int32_t number) const;
    static void TakeControl(void *session, int32_t number, int32_t isSent, const uint8_t *packet, uint32_t length);

    const intptr_t client_;
    Waiter wait_;
    std::shared_ptr<void> farewell_; // headers of the TEARDOWN that is on its way
    MethodHeaders headers_;
    int32_t latency_ = 0;
    bool connected_ = false; // once
    bool exact_ = false;

    struct ControlPacket {
        int32_t number;
        bool isSent;
        std::vector<uint8_t> bytes;
    };
    ControlObserver controlObserver_;
    std::vector<ControlPacket> unseenControl_; // the first ones, before there was an observer

    std::vector<int32_t> listened_; // without RTSP: the streams in the library's order
};

} // namespace tool
