#include "views/probe_result.h"

#include "base/secrets.h"
#include "session/url.h"

namespace tool {
namespace {

ProbedStream ProbedStreamOf(const Stream &stream, const Session *session) {
    ProbedStream probed;
    probed.stream = stream;
    probed.isVideo = stream.media != "audio";
    const RTSPStreamDescription *description = session == nullptr ? nullptr : session->Description(stream.number);
    if (description == nullptr) return probed;
    probed.payloadType = description->payloadNumber;
    probed.channels = description->channels > 0 ? description->channels : description->aacChannels;
    probed.frameRate = description->frameRate;
    probed.bandwidth = description->bandwidth;
    if (description->fmtp != nullptr) probed.parameters = description->fmtp;
    probed.control = session->Attribute(stream.number, "control");
    probed.samplingRate = description->aacSamplingRate;
    if (description->sps != nullptr && description->spsSize > 0)
        probed.picture = ParseSps({description->sps, static_cast<std::size_t>(description->spsSize)});
    return probed;
}

FromPlay Earliest(const std::vector<ProbedStream> &streams, FromPlay ProbedStream::*moment) {
    FromPlay earliest;
    for (const ProbedStream &stream : streams)
        if (const FromPlay &time = stream.*moment; time && (!earliest || *time < *earliest)) earliest = time;
    return earliest;
}

} // namespace

std::string UrlWithoutCredentials(const std::string &text) {
    Url url;
    if (!ParseUrl(text, url).IsOk()) return "";
    const std::string port = url.port == 554 ? "" : ":" + std::to_string(url.port);
    return Presentable("rtsp://" + url.host + port + "/" + url.path);
}

void TakeOpening(const OpenedSession &opened, ProbeResult &result) {
    result.facts = opened.facts;
    result.phases = opened.phases;
    if (opened.session != nullptr) result.transport = opened.transport;
}

std::vector<ProbedStream> ProbedStreamsOf(const OpenedSession &opened) {
    std::vector<ProbedStream> streams;
    for (const Stream &stream : opened.streams) streams.push_back(ProbedStreamOf(stream, opened.session.get()));
    return streams;
}

FromPlay FirstPacketOf(const ProbeResult &result) { return Earliest(result.streams, &ProbedStream::firstPacket); }

FromPlay FirstKeyFrameOf(const ProbeResult &result) {
    return Earliest(result.streams, &ProbedStream::firstKeyFrame);
}

const char *TransportName(Transport transport) {
    switch (transport) {
    case Transport::kTcp:
        return "tcp";
    case Transport::kMulticast:
        return "multicast";
    default:
        return "udp";
    }
}

} // namespace tool
