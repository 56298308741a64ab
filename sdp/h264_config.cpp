#include "sdp/h264_config.h"

#include "platform/call_trace.h"
#include "platform/text.h"
#include "rtp/stream_record.h"
#include "rtsp/message/base64.h"
#include "sdp/fmtp.h"

#include <algorithm>
#include <cstdlib>
#include <span>
#include <utility>

namespace rtsptap {
namespace {

constexpr uint8_t kNalTypeMask = 0x1F; // of a NAL unit's first byte (H.264, 7.3.1)
constexpr uint8_t kSequenceSet = 7;
constexpr uint8_t kPictureSet = 8;

struct ParameterSet {
    std::unique_ptr<uint8_t[], FreeDeleter> bytes;
    int32_t size = 0; // negative when the text was not base64
};

// 0, which no NAL unit has, for an empty set.
uint8_t NalType(const ParameterSet &set) { return set.size > 0 ? set.bytes[0] & kNalTypeMask : uint8_t{0}; }

// Some devices send the start code of a byte stream (H.264, annex B) along: zeros, then 1.
void DropStartCode(ParameterSet &set) {
    if (set.size <= 0) return;
    const std::span<uint8_t> bytes(set.bytes.get(), static_cast<std::size_t>(set.size));
    const auto unit = std::ranges::find_if(bytes, [](uint8_t byte) { return byte != 0; });
    if (unit - bytes.begin() < 2 || unit == bytes.end() || *unit != 1) return;
    set.size = static_cast<int32_t>(std::ranges::copy(unit + 1, bytes.end(), bytes.begin()).out - bytes.begin());
}

ParameterSet DecodeSet(std::string_view base64) {
    const std::size_t capacity = base64.size() / 4 * 3 + 3;
    ParameterSet set;
    set.bytes.reset(static_cast<uint8_t *>(malloc(capacity)));
    if (set.bytes) set.size = Base64DecodeBinaryToBuffer(base64, set.bytes.get(), static_cast<int32_t>(capacity));
    DropStartCode(set);
    return set;
}

bool Store(ParameterSet set, uint8_t *&field, int32_t &fieldSize) {
    free(field);
    field = set.bytes.release();
    fieldSize = set.size;
    return true;
}

// The bytes as " 67 42 ..."; the printers would cut a longer line.
constexpr int32_t kShownBytes = 256;
struct HexText {
    char text[3 * kShownBytes + 1] = {};
};

HexText ToHex(const uint8_t *bytes, int32_t size) {
    constexpr char kDigits[] = "0123456789abcdef";
    HexText hex;
    char *end = hex.text;
    for (const uint8_t byte : std::span(bytes, static_cast<std::size_t>(std::min(size, kShownBytes)))) {
        *end++ = ' ';
        *end++ = kDigits[byte >> 4];
        *end++ = kDigits[byte & 0xF];
    }
    return hex;
}

} // namespace

int32_t ExtractSPSPPS(RTSPStreamInfo *stream) {
    const CallTrace trace(__func__);
    if (stream == nullptr || stream->description.fmtp == nullptr)
        return trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Invalid input argument\n");

    RTSPStreamDescription &description = stream->description;
    std::string_view sets = FmtpParameter(description.fmtp, "sprop-parameter-sets=");
    bool spsFound = false;
    bool ppsFound = false;
    while (!sets.empty()) {
        std::string_view text;
        if (!Until(sets, ',', text)) text = std::exchange(sets, {});
        ParameterSet set = DecodeSet(FirstWord(text));
        if (NalType(set) == kSequenceSet && !spsFound)
            spsFound = Store(std::move(set), description.sps, description.spsSize);
        else if (NalType(set) == kPictureSet && !ppsFound)
            ppsFound = Store(std::move(set), description.pps, description.ppsSize);
    }
    if (spsFound)
        RtpRtspInfoPrint("Decoded SPS Size : %d \nDecoded SPS :%s\n", description.spsSize,
                         ToHex(description.sps, description.spsSize).text);
    if (ppsFound)
        RtpRtspInfoPrint("Decoded PPS Size : %d \nDecoded PPS :%s\n", description.ppsSize,
                         ToHex(description.pps, description.ppsSize).text);
    return spsFound && ppsFound ? RTSP_SUCCESS : RTSP_FAILURE;
}

} // namespace rtsptap
