// Frames from packets, as the rows of tests/data/frames.txt tell.
#include "rtsptap_frames.h"
#include "tests/support/texts.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <memory>
#include <sstream>

namespace rtsptap::test {
namespace {

std::vector<uint8_t> FromHex(const std::string &digits) {
    std::vector<uint8_t> bytes;
    for (std::size_t at = 0; at + 1 < digits.size(); at += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoi(digits.substr(at, 2), nullptr, 16)));
    return bytes;
}

using Frames = std::unique_ptr<RTSPTapFrames, decltype(&RTSPTapFramesDestroy)>;

RTPStreamData PacketOf(RTPHeader &header, std::vector<uint8_t> &payload) {
    RTPStreamData packet = {};
    packet.rtpHeader = &header;
    packet.payload = packet.packetData = payload.data();
    packet.payloadLength = packet.packetLength = static_cast<uint32_t>(payload.size());
    return packet;
}

int32_t Add(RTSPTapFrames *frames, uint16_t number, uint32_t timestamp, bool isMarked,
            std::vector<uint8_t> payload) {
    RTPHeader header = {};
    header.sequenceNumber = number;
    header.timestamp = timestamp;
    header.marker = isMarked;
    const RTPStreamData packet = PacketOf(header, payload);
    return RTSPTapFramesAdd(frames, &packet);
}

// Every whole frame, as rows write them.
std::string Take(RTSPTapFrames *frames) {
    std::string text;
    RTSPTapFrame frame = {};
    frame.recordSize = sizeof frame;
    while (RTSPTapFramesNext(frames, &frame) == RTSP_SUCCESS)
        text += " " + std::to_string(frame.time) + (frame.isKey != 0 ? "k" : "") +
                (frame.isDamaged != 0 ? "d" : "") + (frame.lost > 0 ? "l" + std::to_string(frame.lost) : "") + ":" +
                Hex(frame.data, frame.size);
    return text;
}

RTSPTapStreamDescription Describe(int32_t codec, const char *fmtp) {
    static constexpr uint8_t kSps[] = {0x67, 0xaa};
    static constexpr uint8_t kPps[] = {0x68, 0xbb};
    static constexpr uint8_t kConfig[] = {0x12, 0x10};
    RTSPTapStreamDescription description = {};
    description.recordSize = sizeof description;
    description.codecType = codec;
    description.fmtp = fmtp;
    description.sps = kSps;
    description.pps = kPps;
    description.spsSize = description.ppsSize = description.configSize = 2;
    description.config = kConfig;
    return description;
}

TEST(Frames, AreMadeOfPacketsAsTheRowsTell) {
    for (const auto &row : Rows("frames.txt")) {
        std::istringstream words(row.at(0));
        int32_t codec = 0;
        std::string format, fmtp;
        words >> codec >> format >> fmtp;
        const RTSPTapStreamDescription description = Describe(codec, fmtp == "-" ? nullptr : fmtp.c_str());
        const Frames frames(RTSPTapFramesCreate(&description,
                                                format == "stream" ? RTSPTAP_FRAMES_STREAM : RTSPTAP_FRAMES_LENGTHS,
                                                0),
                            RTSPTapFramesDestroy);
        ASSERT_NE(frames, nullptr) << row[0];
        std::string made;
        for (std::string packet; words >> packet;) {
            const std::size_t second = packet.find(':') + 1;
            const std::size_t third = packet.find(':', second) + 1;
            if (packet == "~")
                EXPECT_EQ(RTSPTapFramesEnd(frames.get()), 0);
            else
                EXPECT_EQ(Add(frames.get(), static_cast<uint16_t>(std::stoul(packet)),
                              static_cast<uint32_t>(std::stoul(packet.substr(second))), packet[third - 2] == 'm',
                              FromHex(packet.substr(third))),
                          0);
            made += Take(frames.get());
        }
        EXPECT_EQ(made, row.at(1) == "none" ? "" : " " + row.at(1)) << row[0];
    }
}

TEST(Frames, NobodyAsksForStayWithinTheirBoundsAndBadInputIsRefused) {
    RTSPTapStreamDescription description = Describe(RTP_CODEC_H264, nullptr);
    const Frames frames(RTSPTapFramesCreate(&description, RTSPTAP_FRAMES_LENGTHS, 1000), RTSPTapFramesDestroy);
    ASSERT_NE(frames, nullptr);
    const std::vector<uint8_t> unit(396, 0x41);
    for (uint16_t number = 0; number < 500; ++number) Add(frames.get(), number, number, true, unit);
    const std::string waiting = Take(frames.get());
    EXPECT_EQ(waiting, " 498d:0000018c" + Hex(unit.data(), 396) + " 499:0000018c" + Hex(unit.data(), 396));
    for (uint16_t number = 500; number < 504; ++number) Add(frames.get(), number, 7, number == 503, unit);
    EXPECT_EQ(Take(frames.get()).size(), 4 + std::size_t{2} * 2 * 400); // two of the four fit, the frame is damaged

    RTPHeader header = {};
    RTPStreamData lying = {};
    uint8_t bytes[20] = {};
    lying.rtpHeader = &header;
    lying.payload = lying.packetData = bytes;
    lying.payloadLength = 21;
    lying.packetLength = 20;
    EXPECT_EQ(RTSPTapFramesAdd(frames.get(), &lying), RTSP_INVALID_ARGUMENT);
    RTSPTapVideoFormat format = {};
    format.recordSize = sizeof format;
    EXPECT_EQ(RTSPTapLookIntoPacket(RTP_CODEC_H264, &lying, &format), RTSP_INVALID_ARGUMENT);
    RTSPTapFrame frame = {};
    EXPECT_EQ(RTSPTapFramesNext(frames.get(), &frame), RTSP_INVALID_ARGUMENT); // no recordSize
    description.codecType = RTP_CODEC_MP2T;
    EXPECT_EQ(RTSPTapFramesCreate(&description, RTSPTAP_FRAMES_STREAM, 0), nullptr);
    description = Describe(RTP_CODEC_MPEG4_GENERIC, nullptr);
    description.configSize = 0;
    EXPECT_EQ(RTSPTapFramesCreate(&description, RTSPTAP_FRAMES_STREAM, 0), nullptr); // no ADTS header without it
}

TEST(Frames, AreSeenForWhatTheyAreWithoutBeingDecoded) {
    for (const auto &row : Rows("video_formats.txt")) {
        std::istringstream words(row.at(0));
        int32_t codec = 0;
        std::string kind;
        std::string digits;
        words >> codec >> kind >> digits;
        std::vector<uint8_t> bytes = FromHex(digits);
        RTSPTapStreamDescription description = Describe(codec, nullptr);
        description.frameRate = 12.5;
        description.sps = bytes.data();
        description.spsSize = static_cast<int32_t>(bytes.size());
        RTPHeader header = {};
        const RTPStreamData packet = PacketOf(header, bytes);
        RTSPTapVideoFormat format = {};
        format.recordSize = sizeof format;
        const int32_t result = kind == "set" ? RTSPTapGetVideoFormat(&description, &format)
                                             : RTSPTapLookIntoPacket(codec, &packet, &format);
        std::ostringstream told;
        told << (format.isKey != 0 ? "k" : "") << (format.hasParameterSets != 0 ? "s" : "")
             << (format.isKey != 0 ? " " : "") << format.width << "x" << format.height << " " << format.profile
             << " " << format.profileName << ", " << format.level << " " << format.levelName << ", "
             << std::setprecision(5) << format.frameRate;
        EXPECT_EQ(result == RTSP_SUCCESS ? told.str() : "nothing", row.at(1)) << row[0];
    }
}

} // namespace
} // namespace rtsptap::test
