#include "clip.h"

#include <algorithm>
#include <string_view>
#include <utility>

// The files as they lie beside this one, in the read-only data of the program: it is found wherever it is moved to.
asm(".pushsection .rodata\n"
    ".global gblClipPicture, gblClipPictureEnd, gblClipSound, gblClipSoundEnd\n"
    "gblClipPicture: .incbin \"" CLIP_DIRECTORY "/clip.h264\"\n"
    "gblClipPictureEnd:\n"
    "gblClipSound: .incbin \"" CLIP_DIRECTORY "/clip.ulaw\"\n"
    "gblClipSoundEnd:\n"
    ".popsection\n");
extern "C" const uint8_t gblClipPicture[], gblClipPictureEnd[], gblClipSound[], gblClipSoundEnd[];

namespace demo {
namespace {

constexpr uint32_t kFramesPerSecond = 25;
constexpr uint32_t kSamplesPerPacket = 160; // 20 ms, RFC 3551, 4.2

enum NalType { kSlice = 1, kKeySlice = 5, kSequenceSet = 7, kPictureSet = 8 };

int TypeOf(Bytes nal) { return nal[0] & 0x1F; }

// The NAL units between the start codes of a byte stream (H.264, Annex B).
std::vector<Bytes> SplitNals(Bytes stream) {
    constexpr uint8_t kStartCode[] = {0, 0, 1};
    std::vector<Bytes> nals;
    auto at = std::search(stream.begin(), stream.end(), std::begin(kStartCode), std::end(kStartCode));
    while (at != stream.end()) {
        const auto begin = at + 3;
        at = std::search(begin, stream.end(), std::begin(kStartCode), std::end(kStartCode));
        auto end = at;
        while (end != begin && end[-1] == 0) --end; // of a start code with four bytes
        if (end != begin) nals.emplace_back(begin, end);
    }
    return nals;
}

// The clip has one slice a picture: each ends a unit.
std::vector<Unit> SplitPictures(const std::vector<Bytes> &nals) {
    std::vector<Unit> units;
    Unit unit;
    for (const Bytes nal : nals) {
        unit.parts.push_back(nal);
        if (TypeOf(nal) != kSlice && TypeOf(nal) != kKeySlice) continue;
        unit.isKey = TypeOf(nal) == kKeySlice;
        units.push_back(std::exchange(unit, {}));
    }
    return units;
}

std::vector<Unit> SplitSound(Bytes samples) {
    std::vector<Unit> units;
    for (; samples.size() >= kSamplesPerPacket; samples = samples.subspan(kSamplesPerPacket))
        units.push_back({{samples.first(kSamplesPerPacket)}});
    return units;
}

std::string Base64(Bytes bytes) {
    constexpr std::string_view kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        uint32_t group = 0;
        for (std::size_t i = 0; i < 3; ++i) group = group << 8 | (at + i < bytes.size() ? bytes[at + i] : 0);
        for (std::size_t i = 0; i < 4; ++i)
            text += at + i <= bytes.size() ? kLetters[group >> (18 - 6 * i) & 0x3F] : '=';
    }
    return text;
}

std::string Hex(Bytes bytes) {
    std::string text;
    for (const uint8_t byte : bytes)
        for (const int digit : {byte >> 4, byte & 0x0F}) text += "0123456789abcdef"[digit];
    return text;
}

// RFC 6184, 8.1
std::string DescribePicture(const std::vector<Bytes> &nals) {
    const auto first = [&nals](int type) {
        return *std::find_if(nals.begin(), nals.end(), [type](Bytes nal) { return TypeOf(nal) == type; });
    };
    return "a=rtpmap:96 H264/90000\r\na=fmtp:96 packetization-mode=1;profile-level-id=" +
           Hex(first(kSequenceSet).subspan(1, 3)) + ";sprop-parameter-sets=" + Base64(first(kSequenceSet)) + "," +
           Base64(first(kPictureSet)) + "\r\na=framerate:" + std::to_string(kFramesPerSecond) + "\r\n";
}

} // namespace

std::vector<Track> LoadClip() {
    const std::vector<Bytes> nals = SplitNals({gblClipPicture, gblClipPictureEnd});
    return {{"video", 96, 90000, 90000 / kFramesPerSecond, DescribePicture(nals), SplitPictures(nals)},
            {"audio", 0, 8000, kSamplesPerPacket, "a=rtpmap:0 PCMU/8000\r\n",
             SplitSound({gblClipSound, gblClipSoundEnd})}};
}

} // namespace demo
