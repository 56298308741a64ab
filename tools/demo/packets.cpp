#include "packets.h"

#include <ctime>
#include <string_view>

namespace demo {
namespace {

constexpr std::size_t kPayloadLimit = 1400; // bytes: one Ethernet frame
constexpr std::size_t kStapHeader = 1;
constexpr std::size_t kStapLength = 2;
constexpr std::size_t kFuHeader = 2;
constexpr uint8_t kStapA = 24;
constexpr uint8_t kFuA = 28;
constexpr uint8_t kImportance = 0x60; // nal_ref_idc
constexpr uint8_t kNalType = 0x1F;
constexpr uint8_t kFuStart = 0x80;
constexpr uint8_t kFuEnd = 0x40;
constexpr uint32_t kSecondsTo1970 = 2208988800U; // from 1900, where NTP begins
constexpr std::string_view kCname = "demo@rtsptap";

void Append(Packet &packet, Bytes bytes) { packet.insert(packet.end(), bytes.begin(), bytes.end()); }

void AppendNumber(Packet &packet, uint32_t number, int bytes) {
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8)
        packet.push_back(static_cast<uint8_t>(number >> shift));
}

// One after the other, as long as they fit together; the number of units taken, at least one.
std::size_t Aggregate(std::span<const Bytes> nals, Packet &payload) {
    std::size_t count = 0;
    std::size_t size = kStapHeader;
    while (count < nals.size() && size + kStapLength + nals[count].size() <= kPayloadLimit)
        size += kStapLength + nals[count++].size();
    if (count < 2) return Append(payload, nals[0]), 1;
    payload.push_back(kStapA);
    for (const Bytes nal : nals.first(count)) {
        payload[0] = static_cast<uint8_t>(payload[0] | (nal[0] & kImportance));
        AppendNumber(payload, static_cast<uint32_t>(nal.size()), 2);
        Append(payload, nal);
    }
    return count;
}

std::vector<Packet> Fragments(Bytes nal) {
    std::vector<Packet> payloads;
    uint8_t position = kFuStart;
    for (Bytes rest = nal.subspan(1); !rest.empty(); position = 0) {
        const std::size_t size = std::min(rest.size(), kPayloadLimit - kFuHeader);
        if (size == rest.size()) position |= kFuEnd;
        payloads.push_back({static_cast<uint8_t>((nal[0] & kImportance) | kFuA),
                            static_cast<uint8_t>(position | (nal[0] & kNalType))});
        Append(payloads.back(), rest.first(size));
        rest = rest.subspan(size);
    }
    return payloads;
}

std::vector<Packet> PicturePayloads(std::span<const Bytes> nals) {
    std::vector<Packet> payloads;
    while (!nals.empty()) {
        std::size_t taken = 1;
        if (nals[0].size() > kPayloadLimit) {
            for (Packet &fragment : Fragments(nals[0])) payloads.push_back(std::move(fragment));
        } else {
            taken = Aggregate(nals, payloads.emplace_back());
        }
        nals = nals.subspan(taken);
    }
    return payloads;
}

Packet RtpPacket(const Track &track, const Packet &payload, bool marker, uint32_t time, RtpSource &source) {
    Packet packet = {0x80, static_cast<uint8_t>(track.payloadType | (marker ? 0x80 : 0))};
    AppendNumber(packet, source.sequence++, 2);
    AppendNumber(packet, time, 4);
    AppendNumber(packet, source.ssrc, 4);
    Append(packet, payload);
    ++source.packets;
    source.octets += static_cast<uint32_t>(payload.size());
    return packet;
}

} // namespace

std::vector<Packet> PacketsOfUnit(const Track &track, uint64_t unit, RtpSource &source) {
    const std::vector<Bytes> &parts = track.units[unit % track.units.size()].parts;
    const uint32_t time = source.firstTime + static_cast<uint32_t>(unit * track.ticksPerUnit);
    const bool isSound = track.media[0] == 'a';
    const std::vector<Packet> payloads =
        isSound ? std::vector<Packet>{Packet(parts[0].begin(), parts[0].end())} : PicturePayloads(parts);
    std::vector<Packet> packets;
    for (const Packet &payload : payloads) {
        const bool isLast = &payload == &payloads.back();
        packets.push_back(RtpPacket(track, payload, isSound ? source.isFresh : isLast, time, source));
        source.isFresh = false;
    }
    return packets;
}

Packet SenderReport(const Track &track, const RtpSource &source, int64_t elapsedUs) {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    Packet packet = {0x80, 200, 0, 6};
    AppendNumber(packet, source.ssrc, 4);
    AppendNumber(packet, static_cast<uint32_t>(now.tv_sec) + kSecondsTo1970, 4);
    AppendNumber(packet, static_cast<uint32_t>((static_cast<uint64_t>(now.tv_nsec) << 32) / 1000000000U), 4);
    AppendNumber(packet, source.firstTime + static_cast<uint32_t>(elapsedUs * track.clockHz / 1000000), 4);
    AppendNumber(packet, source.packets, 4);
    AppendNumber(packet, source.octets, 4);
    // SDES: the SSRC, the CNAME, and the zeros that end it and fill the word
    const std::size_t words = (4 + 2 + kCname.size()) / 4 + 1;
    packet.insert(packet.end(), {0x81, 202, 0, static_cast<uint8_t>(words)});
    AppendNumber(packet, source.ssrc, 4);
    packet.insert(packet.end(), {1, static_cast<uint8_t>(kCname.size())});
    packet.insert(packet.end(), kCname.begin(), kCname.end());
    packet.resize(28 + 4 + 4 * words);
    return packet;
}

} // namespace demo
