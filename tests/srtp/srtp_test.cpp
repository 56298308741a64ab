// Streams whose packets are protected: before a scripted server that protects them with libsrtp, in every suite,
// and what is made of lines of keys.
#include "platform/text.h"
#include "rtsptap_srtp.h"
#include "srtp/session.h"
#include "tests/support/session.h"

namespace rtsptap::test {
namespace {

using rtsptap_srtp::Protected;
using rtsptap_srtp::StreamKeys;

// ---- a sender ----

std::string KeyOf(std::size_t size, char first = 'a') {
    std::string key;
    while (key.size() < size) key += static_cast<char>(first + key.size());
    return key;
}

std::string Inline(const std::string &key) {
    char *encoded = nullptr;
    Base64Encode(reinterpret_cast<const uint8_t *>(key.data()), static_cast<int32_t>(key.size()), &encoded);
    const HeapText text(encoded);
    return " inline:" + std::string(encoded);
}

struct Ways {
    const char *suite;
    std::size_t keyBytes;
    void (*set)(srtp_crypto_policy_t *) = srtp_crypto_policy_set_rtp_default;
    const char *tail = "";
    bool hasMki = false;
};
const Ways kCounter80 = {"AES_CM_128_HMAC_SHA1_80", 30};

class Sender {
public:
    explicit Sender(const Ways &ways = kCounter80, char firstOfKey = 'a', uint32_t ssrc = 0x11223344)
        : key_(KeyOf(ways.keyBytes, firstOfKey)), hasMki_(ways.hasMki) {
        ways.set(&policy_.rtp);
        policy_.rtcp = policy_.rtp;
        if (std::string(ways.suite).ends_with("_32")) policy_.rtcp.auth_tag_len = 10;
        policy_.ssrc = {ssrc_specific, ssrc};
        policy_.keys = &listed_;
        policy_.num_master_keys = 1;
        listed_->key = reinterpret_cast<uint8_t *>(key_.data());
        listed_->mki_size = hasMki_ ? 2 : 0;
        srtp_init();
        EXPECT_EQ(srtp_create(&session_, &policy_), srtp_err_status_ok);
        policy_.ssrc.type = ssrc_any_inbound;
        policy_.rtp = policy_.rtcp; // where libsrtp looks for the MKI
        EXPECT_EQ(srtp_create(&listener_, &policy_), srtp_err_status_ok);
    }
    ~Sender() { srtp_dealloc(session_), srtp_dealloc(listener_); }
    Sender(Sender &&) = delete; // nor copied

    void BeginAtRound(uint32_t round, uint32_t ssrc) const { srtp_set_stream_roc(session_, ssrc, round); }
    std::string Rtp(const RtpPacket &packet) const { return Done(srtp_protect_mki, session_, Bytes(packet)); }
    std::string Rtcp(const std::string &packet) const { return Done(srtp_protect_rtcp_mki, session_, packet); }
    // Empty: not by our key.
    std::string Report(std::string packet) const {
        int size = static_cast<int>(packet.size());
        if (srtp_unprotect_rtcp_mki(listener_, packet.data(), &size, hasMki_) != srtp_err_status_ok) return "";
        return packet.substr(0, static_cast<std::size_t>(size));
    }

private:
    template <typename Protect> std::string Done(Protect protect, srtp_t session, std::string packet) const {
        int size = static_cast<int>(packet.size());
        packet.resize(packet.size() + SRTP_MAX_TRAILER_LEN + 4);
        EXPECT_EQ(protect(session, packet.data(), &size, hasMki_, 0), srtp_err_status_ok);
        return packet.substr(0, static_cast<std::size_t>(size));
    }

    std::string key_;
    const bool hasMki_;
    uint8_t mki_[2] = {1, 2}; // 258
    srtp_master_key_t master_ = {nullptr, mki_, 0};
    srtp_master_key_t *listed_ = &master_;
    srtp_policy_t policy_ = {};
    srtp_t session_ = nullptr;
    srtp_t listener_ = nullptr;
};

std::string Described(const std::string &keys, const std::string &profile = "RTP/SAVP") {
    return "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=s\r\nt=0 0\r\nm=video 0 " + profile +
           " 96\r\na=rtpmap:96 H264/90000\r\na=control:track1\r\n" + keys +
           "m=audio 0 RTP/AVP 97\r\na=rtpmap:97 mpeg4-generic/44100/2\r\na=control:track2\r\n";
}

Script OpenedWith(const std::string &description) {
    return {{"OPTIONS", Ok()}, {"DESCRIBE", WithBody(description)}};
}

// ---- a session ----

const Ways kWays[] = {
    kCounter80,
    {"AES_CM_128_HMAC_SHA1_32", 30, srtp_crypto_policy_set_aes_cm_128_hmac_sha1_32, "|2^31", false},
    {"AES_192_CM_HMAC_SHA1_80", 38, srtp_crypto_policy_set_aes_cm_192_hmac_sha1_80},
    {"AES_256_CM_HMAC_SHA1_80", 46, srtp_crypto_policy_set_aes_cm_256_hmac_sha1_80, "|2^31|258:2", true},
    {"AES_256_CM_HMAC_SHA1_32", 46, srtp_crypto_policy_set_aes_cm_256_hmac_sha1_32, "|258:2 WSH=64", true},
    {"AEAD_AES_128_GCM", 28, srtp_crypto_policy_set_aes_gcm_128_16_auth},
    {"AEAD_AES_256_GCM", 44, srtp_crypto_policy_set_aes_gcm_256_16_auth, "|258:2 -OTHER", true},
};

class ProtectedStream : public testing::TestWithParam<std::tuple<uint32_t, int64_t, std::size_t>> {
protected:
    bool IsTcp() const { return std::get<0>(GetParam()) == kTcp; }

    std::string Transport(uint16_t reports) const {
        return IsTcp() ? "Transport: RTP/SAVP/TCP;unicast;interleaved=0-1"
                       : "Transport: RTP/SAVP;unicast;server_port=1-" + std::to_string(reports);
    }

    void Send(ScriptedServer &server, int isRtcp, const std::string &packet) const {
        if (IsTcp())
            EXPECT_TRUE(server.Send(Frame(static_cast<unsigned>(isRtcp), packet)));
        else
            peer.SendTo(Plus(server.ClientPort("/track1"), isRtcp), packet);
    }

    const UdpPeer peer;
};
INSTANTIATE_TEST_SUITE_P(Ways, ProtectedStream,
                         testing::Combine(testing::Values(kUdp, kTcp), testing::Values(0, 1),
                                          testing::Range(std::size_t{0}, std::size(kWays))));

// Numbers go round on the way; among the packets are a forged one, one of another key, and one for the second time.
TEST_P(ProtectedStream, IsReceivedAndReportedOn) {
    CapturedStdout output;
    const Ways &ways = kWays[std::get<2>(GetParam())];
    const std::string key = Inline(KeyOf(ways.keyBytes));
    const std::string unknown = "a=crypto:1 F8_128_HMAC_SHA1_80" + Inline(KeyOf(30)) + "\r\n";
    Script script = OpenedWith(Described(unknown + "a=crypto:2 " + ways.suite + key + ways.tail + "\r\n"));
    script.push_back({{"SETUP {base}/track1 ", IsTcp() ? "RTP/SAVP/TCP;" : "RTP/SAVP;"},
                      Ok("Session: {session}", Transport(peer.Port()))});
    script.push_back({"PLAY", Ok()});
    ScriptedServer server(script);
    Client client;
    RTSPTapSetOption(client, RTSPTAP_OPTION_THREADS, std::get<1>(GetParam()));
    RTSPTapSetOption(client, RTSPTAP_OPTION_TRANSPORT, IsTcp() ? RTSPTAP_TRANSPORT_TCP : RTSPTAP_TRANSPORT_UDP);
    RTSPTapSetOption(client, RTSPTAP_OPTION_SILENCE_LIMIT, 0);
    ASSERT_EQ(RTSPTapUseSrtp(client), 0);
    ASSERT_EQ(RTSPTapOpen(client, server.Url().c_str()), 0);
    ASSERT_EQ(RTSPTapSetup(client, 1), 0);
    RTSPTapStreamDescription description = {};
    description.recordSize = sizeof description;
    EXPECT_EQ(RTSPTapGetStreamDescription(client, 1, &description), 0);
    EXPECT_STREQ(description.suite, ways.suite);
    ASSERT_EQ(RTSPTapStart(client, nullptr, nullptr), 0);

    const Sender sender(ways), stranger(ways, 'b');
    std::vector<uint16_t> sent;
    for (int i = 0; i < 100; ++i) {
        const RtpPacket packet{.sequenceNumber = static_cast<uint16_t>(65500 + i),
                               .extension = i % 3 == 0,
                               .extensionData = "abcd",
                               .payload = "payload " + std::to_string(i),
                               .padding = 4};
        const std::string bytes = sender.Rtp(packet);
        std::string forged = bytes;
        forged[forged.size() / 2] ^= 1;
        if (i == 40) Send(server, 0, stranger.Rtp(packet));
        if (i == 50) Send(server, 0, forged);
        Send(server, 0, bytes);
        if (i == 60) Send(server, 0, bytes);
        sent.push_back(packet.sequenceNumber);
    }
    Send(server, 0, sender.Rtp({.sequenceNumber = 99, .payload = "last"}));
    sent.push_back(99);
    std::vector<uint16_t> taken;
    while (taken.size() < sent.size()) {
        RTPStreamData *packet = nullptr;
        ASSERT_EQ(RTSPTapTakePackets(client, 1, &packet, 1, 20000), 1);
        const std::size_t at = taken.size();
        EXPECT_EQ(PayloadOf(*packet), at < 100 ? "payload " + std::to_string(at) : "last");
        taken.push_back(packet->rtpHeader->sequenceNumber);
        EXPECT_EQ(RTSPTapFreePackets(client, 1, &packet, 1), 0);
    }
    EXPECT_EQ(taken, sent);

    Send(server, 1, stranger.Rtcp(SenderReport(1, 2)));
    Send(server, 1, sender.Rtcp(SenderReport(7, 8 << 16)));
    RTPStreamData *none = nullptr; // without threads somebody has to receive
    std::string report;
    EXPECT_TRUE(Eventually([&] {
        EXPECT_EQ(RTSPTapTakePackets(client, 1, &none, 1, 10), 0);
        if (!IsTcp()) return !(report = peer.Receive(1)).empty();
        return StatisticsOf(client, 1).forged == 3;
    }));
    if (IsTcp())
        for (const std::string &frame : server.WaitForFrames(1)) report = frame.substr(4);
    report = sender.Report(report);
    ASSERT_GE(report.size(), 32U);
    EXPECT_EQ(static_cast<uint8_t>(report[1]), 201);
    EXPECT_EQ(Word32(report, 24), 7U << 16 | 8U);

    const RTSPTapStreamStatistics statistics = StatisticsOf(client, 1);
    EXPECT_EQ(statistics.forged, 3U);
    EXPECT_EQ(statistics.replayed, 1U);
    EXPECT_EQ(statistics.refused, 0U);
    EXPECT_EQ(output.Text().find(key.substr(8)), std::string::npos);
}

// ---- what cannot be had ----

TEST(Srtp, ASectionThatCannotBeReadIsRefusedBeforeAnythingIsSent) {
    CapturedStdout output;
    const std::string keys = "a=crypto:1 AES_CM_128_HMAC_SHA1_80" + Inline(KeyOf(30)) + "\r\n";
    const std::string shortKeys = "a=crypto:1 AES_CM_128_HMAC_SHA1_80" + Inline(KeyOf(29)) + "\r\n";
    const struct {
        std::string description;
        bool isSet;
        int32_t result;
    } rows[] = {{Described(keys), false, RTSPTAP_NO_PROTECTION},
                {Described(""), true, RTSPTAP_BAD_KEYS},
                {Described(shortKeys), true, RTSPTAP_BAD_KEYS},
                {Described(shortKeys + keys, "RTP/SAVPF"), true, 0},
                {Described(shortKeys, "RTP/AVP"), true, 0},
                {Described(keys, "RTP/AVP"), false, 0},
                {Described(keys, "UDP/TLS/RTP/SAVP"), false, RTSPTAP_NO_PROTECTION}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.description);
        Script script = OpenedWith(row.description);
        if (row.result == 0) script.push_back({"SETUP {base}/track1 ", SetupReply(1, kTcp)});
        script.push_back({{"SETUP {base}/track2 ", "RTP/AVP/TCP;"}, SetupReply(2, kTcp)});
        ScriptedServer server(script);
        Client client;
        RTSPTapSetOption(client, RTSPTAP_OPTION_TRANSPORT, RTSPTAP_TRANSPORT_TCP);
        EXPECT_EQ(row.isSet ? RTSPTapUseSrtp(client) : 0, 0);
        EXPECT_EQ(RTSPTapOpen(client, server.Url().c_str()), 0);
        EXPECT_EQ(RTSPTapUseSrtp(client), RTSPTAP_TOO_LATE);
        EXPECT_EQ(RTSPTapSetup(client, 1), row.result);
        EXPECT_EQ(RTSPTapSetup(client, 2), 0);
        EXPECT_EQ(server.Requests().size(), script.size());
    }
    EXPECT_EQ(output.Text().find(Inline(KeyOf(30)).substr(8)), std::string::npos);
}

TEST(Srtp, LinesOfKeys) {
    for (const auto &row : Rows("key_lines.txt")) {
        StreamKeys keys;
        const bool isRead = rtsptap_srtp::ReadKeys(row[0].c_str(), keys);
        EXPECT_EQ(isRead ? keys.suite->name : "-", row.at(1)) << row[0];
    }
}

// ---- senders ----

struct Listener {
    Listener() {
        const std::string line = "crypto:1 AES_CM_128_HMAC_SHA1_80" + Inline(KeyOf(30));
        EXPECT_TRUE(rtsptap_srtp::ReadKeys(line.c_str(), session.keys) && rtsptap_srtp::Begin(session));
    }
    ~Listener() { rtsptap_srtp::End(session); }
    Listener(Listener &&) = delete; // nor copied
    int32_t Takes(std::string packet) {
        auto size = static_cast<uint32_t>(packet.size());
        return rtsptap_srtp::UnprotectRtp(session, reinterpret_cast<uint8_t *>(packet.data()), size);
    }
    Protected session;
};

TEST(Srtp, ASenderIsMetInTheMiddle) {
    for (const uint32_t rounds : {0U, 3U, 200U}) {
        Listener listener;
        const Sender sender, stranger(kCounter80, 'b');
        sender.BeginAtRound(rounds, 0x11223344);
        uint16_t number = 65000;
        // One who does not have the keys cannot lead the search astray.
        int dropped = 0;
        while (listener.Takes(sender.Rtp({.sequenceNumber = number++})) != RTSPTAP_PACKET_GOOD && dropped < 1000) {
            EXPECT_EQ(listener.Takes(stranger.Rtp({.sequenceNumber = number})), RTSPTAP_PACKET_FORGED);
            ++dropped;
        }
        EXPECT_LE(dropped, 300) << rounds;
        for (int i = 0; i < 2000; ++i)
            ASSERT_EQ(listener.Takes(sender.Rtp({.sequenceNumber = number++})), RTSPTAP_PACKET_GOOD) << i;
    }
}

TEST(Srtp, ManySendersHaveOneKeyEach) {
    Listener listener;
    for (uint32_t ssrc = 1; ssrc <= 40; ++ssrc) {
        const Sender sender(kCounter80, 'a', ssrc);
        const std::string first = sender.Rtp({.sequenceNumber = 9, .ssrc = ssrc});
        EXPECT_EQ(listener.Takes(first), RTSPTAP_PACKET_GOOD) << ssrc;
        EXPECT_EQ(listener.Takes(first), RTSPTAP_PACKET_REPLAYED) << ssrc;
        EXPECT_EQ(listener.Takes(sender.Rtp({.sequenceNumber = 8, .ssrc = ssrc})), RTSPTAP_PACKET_GOOD);
    }
    EXPECT_EQ(listener.session.rtp.count, rtsptap_srtp::kMostSenders);
}

} // namespace
} // namespace rtsptap::test
