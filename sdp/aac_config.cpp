#include "sdp/aac_config.h"

#include "platform/call_trace.h"
#include "platform/text.h"
#include "rtp/stream_record.h"
#include "sdp/fmtp.h"

#include <cstdlib>
#include <span>

namespace rtsptap {
namespace {

// Takes bits off the front, the most significant first; false, and no more bits, when they run out.
class BitReader {
public:
    explicit BitReader(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    bool Take(unsigned count, int32_t &value) {
        value = 0;
        for (; count > 0; --count, ++at_) {
            if (at_ / 8 >= bytes_.size()) return false;
            value = value << 1 | (bytes_[at_ / 8] >> (7 - at_ % 8) & 1);
        }
        return true;
    }

private:
    std::span<const uint8_t> bytes_;
    std::size_t at_ = 0; // bits
};

constexpr int32_t kSpectralBandReplication = 5;
constexpr int32_t kParametricStereo = 29;

// Speakers by channel configuration (ISO 14496-3, table 1.19); 0: in the program config element, or reserved.
constexpr int32_t kChannels[16] = {0, 1, 2, 3, 4, 5, 6, 8, 0, 0, 0, 7, 8, 24, 8, 0};

struct AudioConfig {
    int32_t objectType = 0;
    int32_t samplingRate = 0; // Hz
    int32_t channels = 0;
};

// 5 bits; 31 escapes to 6 more.
bool TakeObjectType(BitReader &bits, int32_t &objectType) {
    constexpr int32_t kEscape = 31;
    if (!bits.Take(5, objectType)) return false;
    if (objectType != kEscape) return true;
    if (!bits.Take(6, objectType)) return false;
    objectType += 32;
    return true;
}

// 4 bits of index; 15 escapes to the rate itself in 24 bits.
bool TakeSamplingRate(BitReader &bits, int32_t &samplingRate) {
    constexpr int32_t kExplicit = 15;
    int32_t index = 0;
    if (!bits.Take(4, index)) return false;
    if (index == kExplicit) return bits.Take(24, samplingRate) && samplingRate != 0;
    samplingRate = adtsSamplingRates[index];
    return samplingRate != 0;
}

//  object type | rate | channels (4) | with SBR or PS: extension's rate, core object type | codec's own ...
bool ReadAudioConfig(std::span<const uint8_t> bytes, AudioConfig &config) {
    BitReader bits(bytes);
    int32_t channelConfiguration = 0;
    if (!TakeObjectType(bits, config.objectType) || !TakeSamplingRate(bits, config.samplingRate) ||
        !bits.Take(4, channelConfiguration))
        return false;
    config.channels = kChannels[channelConfiguration];
    if (config.objectType != kSpectralBandReplication && config.objectType != kParametricStereo) return true;
    int32_t extensionRate = 0;
    return TakeSamplingRate(bits, extensionRate) && TakeObjectType(bits, config.objectType);
}

// -1 when the character is no hexadecimal digit.
int32_t HexDigit(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    return -1;
}

} // namespace

int32_t ConvertAsciiToHex(std::string_view text, uint8_t *bytes, int32_t capacity) {
    if (text.size() % 2 != 0 || text.size() / 2 > static_cast<std::size_t>(capacity)) return RTSP_FAILURE;
    for (std::size_t at = 0; at < text.size(); at += 2) {
        const int32_t high = HexDigit(text[at]);
        const int32_t low = HexDigit(text[at + 1]);
        if (high < 0 || low < 0) return RTSP_FAILURE;
        bytes[at / 2] = static_cast<uint8_t>(high << 4 | low);
    }
    return static_cast<int32_t>(text.size() / 2);
}

int32_t ExtractAACConfig(RTSPStreamInfo *stream) {
    const CallTrace trace(__func__);
    if (stream == nullptr || stream->description.fmtp == nullptr)
        return trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Invalid input argument\n");

    RTSPStreamDescription &description = stream->description;
    const std::string_view text = FirstWord(FmtpParameter(description.fmtp, "config="));
    const auto capacity = static_cast<int32_t>(text.size() / 2);
    if (capacity == 0) return RTSP_FAILURE;

    std::unique_ptr<uint8_t[], FreeDeleter> bytes(static_cast<uint8_t *>(malloc(text.size() / 2)));
    if (!bytes) return trace.Fail(RTSP_NO_MEMORY, "\tEXIT : %s :Memory Allocation Failed\n");
    const int32_t size = ConvertAsciiToHex(text, bytes.get(), capacity);
    AudioConfig config;
    if (size < 0 || !ReadAudioConfig({bytes.get(), static_cast<std::size_t>(size)}, config)) return RTSP_FAILURE;

    free(description.aacConfig);
    description.aacConfig = bytes.release();
    description.aacConfigSize = size;
    description.aacObjectType = config.objectType;
    description.aacSamplingRate = config.samplingRate;
    description.aacChannels = config.channels;
    RtpRtspInfoPrint("\n AAC Config Size and Data :: %d , %.*s \n", size, static_cast<int>(text.size()),
                     text.data());
    return RTSP_SUCCESS;
}

} // namespace rtsptap
