#include "rtp/frames/assembly.h"

#include "platform/printers.h"
#include "rtp/frames/payloads.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace rtsptap {
namespace {

constexpr std::size_t kDefaultLargestFrame = std::size_t{8} << 20;
constexpr std::size_t kLargestLargestFrame = std::size_t{1} << 30;

// ---- memory: what has been handed out goes with the next packet ----

void DropHandedOut(Assembly &assembly) {
    if (assembly.nextOut == 0) return;
    const auto out = static_cast<std::ptrdiff_t>(assembly.nextOut);
    const std::size_t size = assembly.whole[assembly.nextOut - 1].end;
    assembly.whole.erase(assembly.whole.begin(), assembly.whole.begin() + out);
    assembly.bytes.erase(assembly.bytes.begin(), assembly.bytes.begin() + static_cast<std::ptrdiff_t>(size));
    for (Frame &frame : assembly.whole) {
        frame.begin -= size;
        frame.end -= size;
    }
    assembly.current.begin -= size;
    assembly.unitBegin -= std::min(assembly.unitBegin, size);
    assembly.nextOut = 0;
}

// Nobody asks for them.
void DropUnwanted(Assembly &assembly) {
    const std::size_t end = assembly.whole.back().end;
    while (assembly.nextOut + 1 < assembly.whole.size() &&
           end - assembly.whole[assembly.nextOut].begin > assembly.largestFrame)
        assembly.whole[++assembly.nextOut].is.isDamaged = 1;
}

// ---- a packet's place in the stream (RFC 3550, A.1) ----

enum class Place { kNext, kBehindGap, kLate, kAnew };

Place PlaceOf(const Assembly &assembly, const RTPHeader &header) {
    constexpr int kLongestGap = 3000;
    constexpr int kLatest = 100;
    if (!assembly.hasLast) return Place::kNext;
    if (header.ssrc != assembly.ssrc) return Place::kAnew;
    const auto expected = static_cast<uint16_t>(assembly.lastSequence + 1);
    const auto distance = static_cast<int16_t>(header.sequenceNumber - expected);
    if (distance == 0) return Place::kNext;
    if (distance > kLongestGap || distance < -kLatest) return Place::kAnew;
    return distance > 0 ? Place::kBehindGap : Place::kLate;
}

void NotePlace(Assembly &assembly, const RTPHeader &header, Place place) {
    if (place == Place::kBehindGap)
        assembly.lost += static_cast<uint16_t>(header.sequenceNumber - assembly.lastSequence - 1);
    if (assembly.hasLast && header.ssrc == assembly.ssrc)
        assembly.time += static_cast<int32_t>(header.timestamp - assembly.lastTimestamp);
    assembly.lastSequence = header.sequenceNumber;
    assembly.lastTimestamp = header.timestamp;
    assembly.ssrc = header.ssrc;
    assembly.hasLast = true;
}

void BeginFrame(Assembly &assembly, const RTPHeader &header) {
    assembly.isUnderWay = true;
    assembly.current = {.begin = assembly.bytes.size()};
    assembly.current.is.timestamp = header.timestamp;
    assembly.current.is.time = assembly.time;
    assembly.current.is.firstSequence = header.sequenceNumber;
}

void AddPacket(Assembly &assembly, const RTPHeader &header, Bytes payload) {
    const Place place = PlaceOf(assembly, header);
    if (place == Place::kLate) return;
    DropHandedOut(assembly);
    const bool followsLoss = place != Place::kNext;
    if (followsLoss && assembly.isUnderWay) MarkDamaged(assembly);
    NotePlace(assembly, header, place);
    if (assembly.isUnderWay && (place == Place::kAnew || assembly.current.is.timestamp != header.timestamp))
        FinishFrame(assembly);
    if (!assembly.isUnderWay) BeginFrame(assembly, header);
    assembly.current.is.lastSequence = header.sequenceNumber;
    if (!payload.empty()) assembly.add(assembly, {payload, header.marker != 0, followsLoss});
    if (header.marker != 0) FinishFrame(assembly);
}

} // namespace

bool FindPayload(const RTPStreamData &packet, Bytes &payload) {
    payload = {packet.payload, packet.payloadLength};
    if (packet.payloadLength == 0) return true;
    if (packet.payload == nullptr || packet.payload < packet.packetData) return false;
    const auto before = static_cast<std::size_t>(packet.payload - packet.packetData);
    return before + payload.size() <= packet.packetLength;
}

void Append(Assembly &assembly, Bytes bytes) {
    const std::size_t size = assembly.bytes.size() - assembly.current.begin;
    if (bytes.size() > assembly.largestFrame - size) return MarkDamaged(assembly);
    assembly.bytes.insert(assembly.bytes.end(), bytes.begin(), bytes.end());
}

void CutBack(Assembly &assembly, std::size_t begin) {
    assembly.bytes.resize(std::min(begin, assembly.bytes.size()));
}

void MarkDamaged(Assembly &assembly) { assembly.current.is.isDamaged = 1; }

void FinishFrame(Assembly &assembly) {
    if (!assembly.isUnderWay) return;
    assembly.isUnderWay = false;
    if (assembly.isInUnit) { // the rest of it did not come
        CutBack(assembly, assembly.unitBegin);
        assembly.isInUnit = false;
        MarkDamaged(assembly);
    }
    Frame &frame = assembly.current;
    frame.end = assembly.bytes.size();
    if (assembly.aacExpected > 0) MarkDamaged(assembly); // likewise
    assembly.jpegExpected = assembly.aacExpected = 0;
    if (frame.end == frame.begin) return;
    frame.is.size = static_cast<uint32_t>(frame.end - frame.begin);
    frame.is.lost = assembly.lost;
    assembly.whole.push_back(frame);
    assembly.lost = 0;
    DropUnwanted(assembly);
}

void BeginFrameBehind(Assembly &assembly, uint32_t ticks) {
    const RTSPTapFrame before = assembly.current.is;
    assembly.isUnderWay = true;
    assembly.current = {.begin = assembly.bytes.size()};
    assembly.current.is.timestamp = before.timestamp + ticks;
    assembly.current.is.time = before.time + ticks;
    assembly.current.is.firstSequence = assembly.current.is.lastSequence = before.lastSequence;
}

} // namespace rtsptap

using namespace rtsptap;

struct RTSPTapFrames {
    Assembly assembly;
};

RTSPTapFrames *RTSPTapFramesCreate(const RTSPTapStreamDescription *description, int32_t format,
                                   uint32_t largestFrame) {
    const CallTrace trace(__func__);
    RTSPTapFrames *const none = nullptr;
    const bool isFormat = format == RTSPTAP_FRAMES_STREAM || format == RTSPTAP_FRAMES_LENGTHS;
    if (description == nullptr || description->recordSize < sizeof *description || !isFormat ||
        largestFrame > kLargestLargestFrame)
        return trace.Fail(none, "EXIT : %s :Invalid input argument\n");
    const PayloadFormat *const payloads = FindPayloadFormat(description->codecType);
    if (payloads == nullptr) return trace.Fail(none, "EXIT : %s :No frames of this codec\n");
    try {
        auto frames = std::make_unique<RTSPTapFrames>();
        Assembly &assembly = frames->assembly;
        assembly.add = payloads->add;
        assembly.format = static_cast<RTSPTapFramesFormat>(format);
        assembly.largestFrame = largestFrame != 0 ? largestFrame : kDefaultLargestFrame;
        if (payloads->prepare == nullptr || payloads->prepare(assembly, *description)) return frames.release();
    } catch (const std::bad_alloc &) {
        return trace.Fail(none, "EXIT : %s : Memory Allocation Failed\n");
    }
    return trace.Fail(none, "EXIT : %s :The description of the stream cannot be read\n");
}

int32_t RTSPTapFramesAdd(RTSPTapFrames *frames, const RTPStreamData *packet) {
    const CallTrace trace(__func__);
    Bytes payload;
    if (frames == nullptr || packet == nullptr || packet->rtpHeader == nullptr || !FindPayload(*packet, payload))
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");
    try {
        AddPacket(frames->assembly, *packet->rtpHeader, payload);
    } catch (const std::bad_alloc &) {
        MarkDamaged(frames->assembly);
        return trace.Fail(RTSP_NO_MEMORY, "EXIT : %s : Memory Allocation Failed\n");
    }
    return RTSP_SUCCESS;
}

int32_t RTSPTapFramesEnd(RTSPTapFrames *frames) {
    const CallTrace trace(__func__);
    if (frames == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");
    try {
        FinishFrame(frames->assembly);
    } catch (const std::bad_alloc &) {
        return trace.Fail(RTSP_NO_MEMORY, "EXIT : %s : Memory Allocation Failed\n");
    }
    return RTSP_SUCCESS;
}

int32_t RTSPTapFramesNext(RTSPTapFrames *frames, RTSPTapFrame *frame) {
    const CallTrace trace(__func__);
    if (frames == nullptr || frame == nullptr || frame->recordSize < sizeof frame->recordSize)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");
    Assembly &assembly = frames->assembly;
    if (assembly.nextOut == assembly.whole.size()) return RTSP_FAILURE;
    const Frame &next = assembly.whole[assembly.nextOut++];
    RTSPTapFrame is = next.is;
    is.recordSize = frame->recordSize;
    is.data = assembly.bytes.data() + next.begin;
    std::memcpy(frame, &is, std::min<std::size_t>(is.recordSize, sizeof is));
    return RTSP_SUCCESS;
}

void RTSPTapFramesDestroy(RTSPTapFrames *frames) { delete frames; }
