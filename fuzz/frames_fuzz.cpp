// Hostile payloads of every format that frames are made from, with loss, repetition and new senders in between:
// what comes out is framed as it says, and never more than was allowed.
#include "fuzz/fuzz_target.h"
#include "platform/wire.h"
#include "rtsptap_frames.h"

#include <cstring>

using namespace rtsptap;
using fuzz::Require;

static constexpr uint32_t kLargestFrame = 3000;

static bool IsNalCodec(int32_t codec) { return codec == RTP_CODEC_H264 || codec == RTSPTAP_CODEC_H265; }

// Units behind their lengths fill the frame; cut ones need not.
static void CheckLengths(const RTSPTapFrame &frame) {
    for (std::size_t at = 0; at < frame.size;) {
        Require(frame.size - at > 4);
        const std::size_t length = wire::U32(frame.data + at);
        Require(length > 0 && length <= frame.size - at - 4);
        at += 4 + length;
    }
}

static void CheckFrames(RTSPTapFrames *frames, int32_t codec, int32_t format, std::size_t most) {
    RTSPTapFrame frame = {};
    frame.recordSize = sizeof frame;
    uint64_t sum = 0;
    for (std::size_t count = 0; count < most && RTSPTapFramesNext(frames, &frame) == RTSP_SUCCESS; ++count) {
        Require(frame.size > 0 && frame.size <= kLargestFrame);
        for (uint32_t i = 0; i < frame.size; ++i) sum += frame.data[i]; // all of it is there
        if (IsNalCodec(codec) && format == RTSPTAP_FRAMES_LENGTHS) CheckLengths(frame);
        if (IsNalCodec(codec) && format == RTSPTAP_FRAMES_STREAM) Require(wire::U32(frame.data) == 1);
        if (codec == RTP_CODEC_JPEG) Require(wire::U16(frame.data) == 0xffd8);
        const bool isAdts = codec == RTP_CODEC_MPEG4_GENERIC && format == RTSPTAP_FRAMES_STREAM;
        if (isAdts) Require(frame.size >= 7 && wire::U16(frame.data) == 0xfff1);
    }
    Require(sum <= uint64_t{255} * kLargestFrame * most);
}

// Texts end, and pictures have a size that pictures have.
static void CheckFormat(const RTSPTapVideoFormat &format) {
    Require(std::memchr(format.profileName, 0, sizeof format.profileName) != nullptr);
    Require(std::memchr(format.levelName, 0, sizeof format.levelName) != nullptr);
    Require(format.width >= 0 && format.width <= 65535 && format.height >= 0 && format.height <= 65535);
    Require(format.frameRate >= 0 && format.frameRate <= 1000);
}

// As the payload of every codec, and as the parameter set of a description.
static void LookAt(RTSPTapStreamDescription description, const RTPStreamData &packet) {
    RTSPTapVideoFormat format = {};
    format.recordSize = sizeof format;
    description.sps = packet.payload;
    description.spsSize = static_cast<int32_t>(packet.payloadLength);
    for (const int32_t codec : {int32_t{RTP_CODEC_H264}, int32_t{RTSPTAP_CODEC_H265}, int32_t{RTP_CODEC_JPEG},
                                int32_t{RTP_CODEC_MP4V_ES}, int32_t{RTSPTAP_CODEC_VP8}, int32_t{RTSPTAP_CODEC_VP9},
                                int32_t{RTSPTAP_CODEC_AV1}, int32_t{RTSPTAP_CODEC_MPV}}) {
        RTSPTapLookIntoPacket(codec, &packet, &format);
        CheckFormat(format);
        description.codecType = codec;
        RTSPTapGetVideoFormat(&description, &format);
        CheckFormat(format);
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    static constexpr int32_t kCodecs[] = {RTP_CODEC_H264, RTSPTAP_CODEC_H265, RTP_CODEC_MPEG4_GENERIC,
                                          RTP_CODEC_JPEG, RTSPTAP_CODEC_VP8,  RTSPTAP_CODEC_OPUS};
    static constexpr const char *kHbr = "mode=AAC-hbr;sizelength=13;indexlength=3;indexdeltalength=3";
    static constexpr const char *kOdd = "sizelength=4;ctsdeltalength=3;randomaccessindication=1";
    static constexpr const char *kFormats[] = {
        nullptr, kHbr, "mode=AAC-lbr", "constantsize=7", "sprop-max-don-diff=1", kOdd};
    static constexpr uint8_t kSet[] = {0x67, 0x42};
    static constexpr uint8_t kConfig[] = {0x12, 0x10, 0x56};
    fuzz::Input input(data, size);
    RTSPTapStreamDescription description = {};
    description.recordSize = sizeof description;
    description.codecType = input.Pick(kCodecs);
    description.fmtp = input.Pick(kFormats);
    description.clockRate = input.U16();
    description.sps = kSet;
    description.spsSize = sizeof kSet;
    const std::string_view ownConfig = input.Counted();
    description.config = ownConfig.empty() ? kConfig : reinterpret_cast<const uint8_t *>(ownConfig.data());
    description.configSize = static_cast<int32_t>(ownConfig.empty() ? sizeof kConfig : ownConfig.size());
    const int32_t format = 1 + input.U8() % 2;
    RTSPTapFrames *const frames = RTSPTapFramesCreate(&description, format, kLargestFrame);
    uint16_t number = 0;
    RTPHeader header = {};
    while (frames != nullptr && !input.IsEmpty()) {
        const uint8_t choice = input.U8();
        header.marker = choice & 1U;
        header.timestamp += (choice & 6) == 6 ? 3000 : 0;
        number = static_cast<uint16_t>(number + ((choice & 0x78) == 0x78 ? input.U16() : 1));
        header.sequenceNumber = number;
        if ((choice & 0x80) != 0 && (choice & 0x40) == 0) header.ssrc += choice & 1U;
        std::string bytes(choice >= 0xf8 ? std::string(1500, 'x') : std::string(input.Counted()));
        RTPStreamData packet = {};
        packet.rtpHeader = &header;
        packet.payload = packet.packetData = reinterpret_cast<uint8_t *>(bytes.data());
        packet.payloadLength = packet.packetLength = static_cast<uint32_t>(bytes.size());
        LookAt(description, packet);
        Require(RTSPTapFramesAdd(frames, &packet) == RTSP_SUCCESS);
        CheckFrames(frames, description.codecType, format, choice % 3); // at times some stay
    }
    if (frames != nullptr) Require(RTSPTapFramesEnd(frames) == RTSP_SUCCESS);
    if (frames != nullptr) CheckFrames(frames, description.codecType, format, size);
    RTSPTapFramesDestroy(frames);
    return 0;
}
