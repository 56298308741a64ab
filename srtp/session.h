// The keys of a stream at work (libsrtp): one session for the RTP that comes, one for its RTCP, one for ours.
#pragma once

#include "srtp/keys.h"

#include <pthread.h>
#include <srtp2/srtp.h>

#include <cstddef>
#include <cstdint>

namespace rtsptap_srtp {

inline constexpr std::size_t kMostSenders = 16; // known at a time by a session: it forgets the one it met first

// One way of the packets. Their senders, as libsrtp keeps a record of each.
struct Direction {
    srtp_t session = nullptr;
    uint32_t senders[kMostSenders] = {}; // SSRCs
    std::size_t count = 0;
    std::size_t oldest = 0;
};

inline constexpr uint32_t kFewRounds = 65;

// For a stream that is met in the middle. Packets do not say how often their sequence number has gone round, which
// their authentication covers (the roll-over counter; RFC 3711, 3.3.1), nor does a line of keys.
struct RoundSearch {
    bool isOver = false;   // a packet has been authentic
    bool hasBegun = false; // with this sender
    uint32_t ssrc = 0;
    uint32_t next = 1;          // counter that is tried next
    uint32_t last = kFewRounds; // it begins again behind this one, and goes farther then
};

struct Protected {
    StreamKeys keys;
    srtp_policy_t policy = {}; // points into what stands below
    srtp_master_key_t masters[kMostKeys] = {};
    srtp_master_key_t *masterList[kMostKeys] = {};

    // ---- Whoever receives RTP ----
    Direction rtp;
    RoundSearch search;

    // ---- Under the lock ----
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    Direction rtcpIn;
    Direction rtcpOut;
};

// False when libsrtp cannot do it: it may be built without the suite.
bool Begin(Protected &session);
void End(Protected &session);

// RTSPTapPacketVerdict, and the packet in place.
int32_t UnprotectRtp(Protected &session, uint8_t *packet, uint32_t &size);
int32_t UnprotectRtcp(Protected &session, uint8_t *packet, uint32_t &size);
bool ProtectRtcp(Protected &session, uint8_t *packet, uint32_t &size, uint32_t room);

} // namespace rtsptap_srtp
