#include "views/probe_result.h"

#include "base/codecs.h"
#include "base/secrets.h"
#include "session/url.h"

#include <algorithm>

namespace tool {
namespace {

ProbedStream ProbedStreamOf(const Stream &stream, const Session *session) {
    ProbedStream probed;
    probed.stream = stream;
    probed.isVideo = CodecOf(stream.codecType)->hasFrames;
    RTSPTapStreamDescription described;
    if (session == nullptr || !session->Describe(stream.number, described)) return probed;
    const RTSPStreamDescription &aac = *session->Description(stream.number);
    probed.payloadType = described.payloadType;
    probed.channels = aac.aacChannels > 0 ? aac.aacChannels : described.channels;
    probed.frameRate = described.frameRate;
    probed.bandwidth = described.bandwidth;
    if (described.fmtp != nullptr) probed.parameters = std::to_string(described.payloadType) + " " + described.fmtp;
    probed.control = session->Attribute(stream.number, "control");
    if (described.suite != nullptr) probed.srtp = *described.suite != '\0' ? described.suite : "unknown";
    probed.samplingRate = aac.aacSamplingRate;
    RTSPTapVideoFormat told = {};
    told.recordSize = sizeof told;
    RTSPTapGetVideoFormat(&described, &told);
    if (told.width > 0) probed.picture = told;
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
    std::string authority = HostAndPort(url);
    if (url.port == DefaultPort(url)) authority.resize(authority.rfind(':'));
    return Presentable(url.scheme + "://" + authority + "/" + url.path);
}

void TakeOpening(const OpenedSession &opened, ProbeResult &result) {
    result.facts = opened.facts;
    result.phases = opened.phases;
    result.tolerated = opened.tolerated;
    if (opened.session != nullptr) result.transport = opened.transport;
}

std::vector<ProbedStream> ProbedStreamsOf(const OpenedSession &opened) {
    std::vector<ProbedStream> streams;
    for (const Stream &stream : opened.streams) streams.push_back(ProbedStreamOf(stream, opened.session.get()));
    return streams;
}

void Arrivals::Begin(std::vector<ProbedStream> streams) {
    streams_ = std::move(streams);
    begin_ = Clock::now();
}

void Arrivals::Note(const Stream &stream, const RTPStreamData &packet, Clock::time_point arrival) {
    const auto sincePlay = std::chrono::duration_cast<std::chrono::microseconds>(arrival - begin_);
    const std::chrono::microseconds time = std::max(sincePlay, std::chrono::microseconds(0));
    for (ProbedStream &probed : streams_) {
        if (probed.stream.number != stream.number) continue;
        if (!probed.firstPacket) probed.firstPacket = time;
        if (probed.firstKeyFrame && probed.picture) continue;
        const RTSPTapVideoFormat seen = LookInto(stream.codecType, packet);
        if (!probed.firstKeyFrame && seen.isKey != 0) probed.firstKeyFrame = time;
        if (!probed.picture && seen.width > 0) probed.picture = seen;
    }
}

bool Arrivals::AreComplete() const {
    for (const ProbedStream &probed : streams_) {
        if (!probed.stream.isReadable || MayBeSilent(probed.stream)) continue;
        const FromPlay &sign =
            CodecOf(probed.stream.codecType)->hasFrames ? probed.firstKeyFrame : probed.firstPacket;
        if (!sign) return false;
    }
    return true;
}

std::vector<ProbedStream> Arrivals::Streams() const { return streams_; }

std::vector<Phase> PhasesWithMedia(const ProbeResult &result) {
    std::vector<Phase> phases = result.phases;
    if (const FromPlay time = Earliest(result.streams, &ProbedStream::firstPacket))
        phases.push_back({"first packet", *time});
    if (const FromPlay time = Earliest(result.streams, &ProbedStream::firstKeyFrame))
        phases.push_back({"first key frame", *time});
    return phases;
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
