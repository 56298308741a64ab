// A player's connection with its session, if it has one; the requests it may send and the replies to them. A
// session ends with its connection.
#pragma once

#include "access.h"
#include "packets.h"

#include <netinet/in.h>

#include <optional>

namespace demo {

// One track on its way to one player.
struct Stream {
    bool isSetUp = false;
    bool isPlaying = false;
    int channel = -1; // of the frames with RTP, RTCP has the next; -1: over UDP
    int rtcpChannel = -1;
    sockaddr_in rtp = {}; // the player's addresses
    sockaddr_in rtcp = {};
    RtpSource source;
    uint64_t nextUnit = 0; // of the track, counted on over the clip's end
    int64_t reportUs = 0;  // when the next sender report is due
};

struct Session {
    std::string id;
    int64_t beganUs = -1; // when unit 0 was due; -1 before the first PLAY. Runs on in pauses, as a camera does.
    std::vector<Stream> streams;
};

struct Connection {
    int fd = -1;
    sockaddr_in peer = {};
    std::string nonce;
    std::string input;
    std::string output;
    std::optional<Session> session;
    int64_t heardUs = 0; // the last whole request, frame or RTCP packet
    int64_t endUs = -1;  // no request is taken any more, and then it is closed; -1: it is open
    bool isShut = false; // for writing, by us
    bool isGone = false; // has said all it had to say
};

// What all connections share; constant once the server listens.
struct Offer {
    std::vector<Track> tracks;
    std::vector<uint16_t> ports; // per track, of RTP; RTCP has the one above
    std::optional<Account> account;
    bool tcpOnly = false;
    bool udpOnly = false;
    int timeoutSeconds = 60;
    bool noRtpInfo = false;    // the reply to PLAY does not say where streams begin
    int64_t firstReportUs = 0; // from PLAY to the first sender report
};

// The whole reply.
std::string Answer(const Request &request, const Offer &offer, Connection &connection, int64_t nowUs);

// The reply where no request could be made out; nothing that follows on the connection can be either.
std::string AnswerUnreadable(Taken taken);

// Sets the stream to the first unit that is due from then on and that a decoder can begin with.
void Join(const Track &track, Stream &stream, int64_t elapsedUs);

// When the unit is due, counted from the session's beginning.
int64_t DueUs(const Track &track, uint64_t unit);

} // namespace demo
