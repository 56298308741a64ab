#include "srtp/session.h"

#include "rtsptap_extended.h"

#include <arpa/inet.h>
#include <cstring>

namespace rtsptap_srtp {
namespace {

constexpr uint32_t kRtpHeader = 12;      // bytes
constexpr uint32_t kRtcpHeader = 8;      // bytes that are never encrypted
constexpr uint32_t kRtcpIndex = 4;       // bytes of the index behind a packet (RFC 3711, 3.4)
constexpr uint32_t kMostBytes = 1 << 24; // far beyond any packet

// ---- policies ----

using SetPolicy = void (*)(srtp_crypto_policy_t *);

struct CipherRow {
    Cipher cipher;
    SetPolicy usual;
    SetPolicy shortTag;
};

constexpr CipherRow kCiphers[] = {
    {Cipher::kCounter128, srtp_crypto_policy_set_rtp_default, srtp_crypto_policy_set_aes_cm_128_hmac_sha1_32},
    {Cipher::kCounter192, srtp_crypto_policy_set_aes_cm_192_hmac_sha1_80,
     srtp_crypto_policy_set_aes_cm_192_hmac_sha1_32},
    {Cipher::kCounter256, srtp_crypto_policy_set_aes_cm_256_hmac_sha1_80,
     srtp_crypto_policy_set_aes_cm_256_hmac_sha1_32},
    {Cipher::kGalois128, srtp_crypto_policy_set_aes_gcm_128_16_auth, srtp_crypto_policy_set_aes_gcm_128_16_auth},
    {Cipher::kGalois256, srtp_crypto_policy_set_aes_gcm_256_16_auth, srtp_crypto_policy_set_aes_gcm_256_16_auth},
};

// Tags of RTCP are never short (RFC 4568, 6.2.2).
void ChoosePolicy(const StreamKeys &keys, srtp_policy_t &policy) {
    for (const CipherRow &row : kCiphers) {
        if (row.cipher != keys.suite->cipher) continue;
        (keys.suite->hasShortTag ? row.shortTag : row.usual)(&policy.rtp);
        row.usual(&policy.rtcp);
    }
    if (!keys.encryptsRtp) policy.rtp.sec_serv = sec_serv_auth;
    if (!keys.encryptsRtcp) policy.rtcp.sec_serv = sec_serv_auth;
    policy.window_size = keys.window;
}

bool Open(srtp_policy_t policy, srtp_ssrc_type_t senders, Direction &direction) {
    policy.ssrc.type = senders;
    return srtp_create(&direction.session, &policy) == srtp_err_status_ok;
}

// libsrtp looks for the MKI of RTCP where the tag of RTP would begin.
srtp_policy_t OfRtcpAlone(srtp_policy_t policy) {
    policy.rtp = policy.rtcp;
    return policy;
}

void Close(Direction &direction) {
    if (direction.session != nullptr) srtp_dealloc(direction.session);
    direction.session = nullptr;
}

void StartLibrary() {
    if (srtp_init() != srtp_err_status_ok) return; // nothing can be created then
    srtp_install_log_handler(nullptr, nullptr);
}

} // namespace

bool Begin(Protected &session) {
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, StartLibrary);
    StreamKeys &keys = session.keys;
    for (uint32_t i = 0; i < keys.keyCount; ++i) {
        MasterKey &key = keys.keys[i];
        session.masters[i] = {key.bytes, key.mki, key.mkiSize};
        session.masterList[i] = &session.masters[i];
    }
    session.policy.keys = session.masterList;
    session.policy.num_master_keys = keys.keyCount;
    ChoosePolicy(keys, session.policy);
    const srtp_policy_t ofRtcp = OfRtcpAlone(session.policy);
    return Open(session.policy, ssrc_any_inbound, session.rtp) && Open(ofRtcp, ssrc_any_inbound, session.rtcpIn) &&
           Open(ofRtcp, ssrc_any_outbound, session.rtcpOut);
}

void End(Protected &session) {
    for (Direction *const direction : {&session.rtp, &session.rtcpIn, &session.rtcpOut}) Close(*direction);
    pthread_mutex_destroy(&session.lock);
    explicit_bzero(&session.keys, sizeof session.keys);
}

// ---- senders ----

namespace {

uint32_t SsrcAt(const uint8_t *bytes) {
    uint32_t ssrc = 0;
    std::memcpy(&ssrc, bytes, sizeof ssrc);
    return ntohl(ssrc);
}

// Whoever has the keys may call itself anything: the list of those that are known does not grow for ever.
void Remember(Direction &direction, uint32_t ssrc) {
    for (std::size_t i = 0; i < direction.count; ++i)
        if (direction.senders[i] == ssrc) return;
    if (direction.count < kMostSenders) {
        direction.senders[direction.count++] = ssrc;
        return;
    }
    uint32_t &oldest = direction.senders[direction.oldest];
    direction.oldest = (direction.oldest + 1) % kMostSenders;
    srtp_remove_stream(direction.session, htonl(oldest));
    oldest = ssrc;
}

int32_t Verdict(srtp_err_status_t status) {
    const bool isReplay = status == srtp_err_status_replay_fail || status == srtp_err_status_replay_old;
    return isReplay ? RTSPTAP_PACKET_REPLAYED : RTSPTAP_PACKET_FORGED;
}

bool HasMki(const Protected &session) { return session.keys.keys[0].mkiSize != 0; }

bool HasRoomFor(uint32_t size, uint32_t header, const Protected &session, const srtp_crypto_policy_t &policy) {
    const uint32_t tail = static_cast<uint32_t>(policy.auth_tag_len) + session.keys.keys[0].mkiSize;
    return size <= kMostBytes && size >= header + tail;
}

srtp_err_status_t TakeOff(const Protected &session, uint8_t *packet, uint32_t &size) {
    int length = static_cast<int>(size);
    const srtp_err_status_t status = srtp_unprotect_mki(session.rtp.session, packet, &length, HasMki(session));
    if (status == srtp_err_status_ok) size = static_cast<uint32_t>(length);
    return status;
}

// ---- a stream that is met in the middle ----

constexpr int kTriesAPacket = 4;
// Odd numbers, so that one who sends a packet between two of the sender's does not get the same tries each time.
constexpr uint32_t kMostRounds = 65535; // of 65536 packets each, which a sender may have sent before

// A packet as it came: one that is not authentic may have been decrypted all the same.
struct Copy {
    uint8_t bytes[2048];
    uint32_t size = 0; // 0: it is longer
};

void Keep(Copy &copy, const uint8_t *packet, uint32_t size) {
    copy.size = size <= sizeof copy.bytes ? size : 0;
    std::memcpy(copy.bytes, packet, copy.size);
}

bool BeginSearch(Protected &session, uint32_t ssrc) {
    RoundSearch &search = session.search;
    if (search.hasBegun && search.ssrc == ssrc) return true;
    if (search.hasBegun) srtp_remove_stream(session.rtp.session, htonl(search.ssrc));
    srtp_policy_t policy = session.policy;
    policy.ssrc = {ssrc_specific, ssrc};
    search.ssrc = ssrc;
    search.hasBegun = srtp_add_stream(session.rtp.session, &policy) == srtp_err_status_ok;
    return search.hasBegun;
}

uint32_t NextRound(RoundSearch &search) {
    if (search.next <= search.last) return search.next++;
    search.last = search.last < kMostRounds / 2 ? search.last * 2 + 1 : kFewRounds;
    search.next = 2;
    return 1;
}

bool TryRounds(Protected &session, const Copy &copy, uint8_t *packet, uint32_t &size, uint32_t ssrc) {
    if (copy.size == 0 || !BeginSearch(session, ssrc)) return false;
    for (int tries = 0; tries < kTriesAPacket; ++tries) {
        srtp_set_stream_roc(session.rtp.session, ssrc, NextRound(session.search));
        std::memcpy(packet, copy.bytes, copy.size);
        size = copy.size;
        if (TakeOff(session, packet, size) == srtp_err_status_ok) return true;
    }
    return false;
}

// The first packets, until one is authentic. Most senders have just begun.
int32_t UnprotectFirst(Protected &session, uint8_t *packet, uint32_t &size, uint32_t ssrc) {
    Copy copy;
    Keep(copy, packet, size);
    if (session.search.hasBegun && session.search.ssrc == ssrc) srtp_set_stream_roc(session.rtp.session, ssrc, 0);
    const srtp_err_status_t status = TakeOff(session, packet, size);
    if (status != srtp_err_status_ok && !TryRounds(session, copy, packet, size, ssrc)) return Verdict(status);
    session.search.isOver = true;
    if (session.search.hasBegun && session.search.ssrc != ssrc)
        srtp_remove_stream(session.rtp.session, htonl(session.search.ssrc));
    Remember(session.rtp, ssrc);
    return RTSPTAP_PACKET_GOOD;
}

} // namespace

// ---- packets ----

int32_t UnprotectRtp(Protected &session, uint8_t *packet, uint32_t &size) {
    if (!HasRoomFor(size, kRtpHeader, session, session.policy.rtp)) return RTSPTAP_PACKET_FORGED;
    const uint32_t ssrc = SsrcAt(packet + 8);
    if (!session.search.isOver) return UnprotectFirst(session, packet, size, ssrc);
    const srtp_err_status_t status = TakeOff(session, packet, size);
    if (status != srtp_err_status_ok) return Verdict(status);
    Remember(session.rtp, ssrc);
    return RTSPTAP_PACKET_GOOD;
}

int32_t UnprotectRtcp(Protected &session, uint8_t *packet, uint32_t &size) {
    if (!HasRoomFor(size, kRtcpHeader + kRtcpIndex, session, session.policy.rtcp)) return RTSPTAP_PACKET_FORGED;
    const uint32_t ssrc = SsrcAt(packet + 4);
    int length = static_cast<int>(size);
    pthread_mutex_lock(&session.lock);
    const srtp_err_status_t status =
        srtp_unprotect_rtcp_mki(session.rtcpIn.session, packet, &length, HasMki(session));
    if (status == srtp_err_status_ok) Remember(session.rtcpIn, ssrc);
    pthread_mutex_unlock(&session.lock);
    if (status != srtp_err_status_ok) return Verdict(status);
    size = static_cast<uint32_t>(length);
    return RTSPTAP_PACKET_GOOD;
}

bool ProtectRtcp(Protected &session, uint8_t *packet, uint32_t &size, uint32_t room) {
    const uint32_t tail = SRTP_MAX_TRAILER_LEN + kRtcpIndex;
    if (size < kRtcpHeader || room < tail || size > room - tail || size > kMostBytes) return false;
    int length = static_cast<int>(size);
    pthread_mutex_lock(&session.lock);
    const srtp_err_status_t status =
        srtp_protect_rtcp_mki(session.rtcpOut.session, packet, &length, HasMki(session), 0);
    if (status == srtp_err_status_ok) Remember(session.rtcpOut, SsrcAt(packet + 4));
    pthread_mutex_unlock(&session.lock);
    if (status == srtp_err_status_ok) size = static_cast<uint32_t>(length);
    return status == srtp_err_status_ok;
}

} // namespace rtsptap_srtp
