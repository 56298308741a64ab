#include "transport.h"

#include <algorithm>

namespace demo {
namespace {

struct Proposal {
    std::string protocol;
    bool isMulticast = false;
    bool isRecording = false;
    std::string_view ports;
    std::string_view channels;
};

struct Pair {
    long first = -1; // -1: neither is a number in the range
    long second = -1;
};

// FIRST-SECOND, or FIRST with the next.
Pair ReadPair(std::string_view text, long limit) {
    const bool isOne = text.find('-') == std::string_view::npos;
    Pair pair;
    pair.first = NumberOf(NextPart(text, '-'), limit);
    pair.second = isOne ? pair.first + 1 : NumberOf(text, limit);
    const bool good = pair.first >= 0 && pair.second >= 0 && pair.second <= limit && pair.first != pair.second;
    return good ? pair : Pair{};
}

Proposal ReadProposal(std::string_view text) {
    Proposal proposal;
    proposal.protocol = NextPart(text, ';');
    while (!text.empty()) {
        std::string_view value = NextPart(text, ';');
        const std::string_view name = NextPart(value, '=');
        if (IsSame(name, "multicast")) proposal.isMulticast = true;
        if (IsSame(name, "mode")) proposal.isRecording = !IsSame(value, "play") && !IsSame(value, "\"play\"");
        if (IsSame(name, "client_port")) proposal.ports = value;
        if (IsSame(name, "interleaved")) proposal.channels = value;
    }
    return proposal;
}

sockaddr_in WithPort(sockaddr_in address, long port) {
    address.sin_port = htons(static_cast<uint16_t>(port));
    return address;
}

std::string UseUdp(const Proposal &proposal, const sockaddr_in &peer, Stream &stream) {
    const Pair ports = ReadPair(proposal.ports, 65535);
    if (ports.first < 1 || ports.second < 1) return {};
    // Only ever to where the request came from, whatever it says of a destination.
    stream.rtp = WithPort(peer, ports.first);
    stream.rtcp = WithPort(peer, ports.second);
    return proposal.protocol + ";unicast;client_port=" + std::to_string(ports.first) + "-" +
           std::to_string(ports.second) + ";";
}

bool IsTaken(long channel, const Session &session) {
    return std::any_of(session.streams.begin(), session.streams.end(), [channel](const Stream &stream) {
        return stream.isSetUp && (stream.channel == channel || stream.rtcpChannel == channel);
    });
}

std::string UseTcp(const Proposal &proposal, const Session &session, Stream &stream) {
    Pair channels = {0, 1};
    if (proposal.channels.empty())
        while (IsTaken(channels.first, session) || IsTaken(channels.second, session))
            channels = {channels.first + 2, channels.second + 2};
    else
        channels = ReadPair(proposal.channels, 255);
    if (channels.first < 0 || IsTaken(channels.first, session) || IsTaken(channels.second, session)) return {};
    stream.channel = static_cast<int>(channels.first);
    stream.rtcpChannel = static_cast<int>(channels.second);
    return proposal.protocol + ";unicast;interleaved=" + std::to_string(channels.first) + "-" +
           std::to_string(channels.second) + ";";
}

} // namespace

std::string ChooseTransport(std::string_view proposals, Ways offered, const sockaddr_in &peer,
                            const Session &session, Stream &stream) {
    std::string chosen;
    while (!proposals.empty() && chosen.empty()) {
        const Proposal proposal = ReadProposal(NextPart(proposals, ','));
        const bool isTcp = IsSame(proposal.protocol, "RTP/AVP/TCP");
        const bool isUdp = IsSame(proposal.protocol, "RTP/AVP") || IsSame(proposal.protocol, "RTP/AVP/UDP");
        if (proposal.isMulticast || proposal.isRecording) continue;
        if (isUdp && offered.udp) chosen = UseUdp(proposal, peer, stream);
        if (isTcp && offered.tcp) chosen = UseTcp(proposal, session, stream);
    }
    return chosen;
}

} // namespace demo
