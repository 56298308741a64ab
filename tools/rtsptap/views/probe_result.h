// What probe found out of a server: the record, how it is gathered, and the forms it is shown in.
#pragma once

#include "media/look.h"
#include "reception/statistics.h"
#include "session/opening.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace tool {

using FromPlay = std::optional<std::chrono::microseconds>; // since the reply to PLAY; none: never came

struct ProbedStream {
    Stream stream;
    bool isVideo = false;
    int32_t payloadType = 0;
    int32_t channels = 0;   // 0: not said
    double frameRate = 0;   // per second; 0: not said
    int32_t bandwidth = 0;  // the number of b=; 0: not said
    std::string parameters; // a=fmtp
    std::string control;    // a=control
    std::string srtp;       // suite that packets are protected by, or "unknown"; empty: they are not
    std::optional<RTSPTapVideoFormat> picture; // with a size
    int32_t samplingRate = 0;                  // of AAC, Hz; 0: not known
    FromPlay firstPacket;
    FromPlay firstKeyFrame;
};

struct ProbeResult {
    std::string url;                    // without user and password
    std::optional<Transport> transport; // none: nothing was set up
    ServerFacts facts;
    std::vector<Phase> phases;
    std::vector<ProbedStream> streams;
    std::vector<UsedRule> tolerated;
    Outcome outcome; // how it ended
};

// As in ProbeResult; empty when it is none.
std::string UrlWithoutCredentials(const std::string &text);

// What the opening tells: server, steps, transport.
void TakeOpening(const OpenedSession &opened, ProbeResult &result);

// The streams of a description; after a refusal only what the opening noted of them.
std::vector<ProbedStream> ProbedStreamsOf(const OpenedSession &opened);

// When the streams of a session show themselves: the first packet, the first key frame, what the pictures are.
// Noted on the threads that read; asked by any.
class Arrivals {
public:
    void Begin(std::vector<ProbedStream> streams); // PLAY was answered
    void Note(const Stream &stream, const RTPStreamData &packet, Clock::time_point arrival);
    bool AreComplete() const; // every stream has shown itself
    std::vector<ProbedStream> Streams() const;

private:
    std::vector<ProbedStream> streams_;
    Clock::time_point begin_;
};

// The steps, and behind them the first packet and the first key frame of any stream, where they came.
std::vector<Phase> PhasesWithMedia(const ProbeResult &result);

const char *TransportName(Transport transport);

// "H264 video, clock 90000 Hz, 640x360"
std::string Headline(const ProbedStream &probed);

std::string ProbeText(const ProbeResult &result, bool explains); // also what was tolerated
std::string ProbeJson(const ProbeResult &result);

} // namespace tool
