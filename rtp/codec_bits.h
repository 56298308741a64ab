// What codecs' own bytes say, in a description or in packets: NAL units of H.264 and H.265, and configurations of
// MPEG-4 audio. Pure; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace rtsptap {

// ---- NAL units ----

// From a unit's first byte: H.264, 7.3.1, and H.265, 7.3.1.2.
constexpr int32_t NalTypeOfH264(uint8_t first) { return first & 0x1F; }
constexpr int32_t NalTypeOfH265(uint8_t first) { return first >> 1 & 0x3F; }

// Where the next start code (0, 0, 1) stands; the size without one.
std::size_t FindStartCode(std::span<const uint8_t> bytes);
inline constexpr std::size_t kStartCodeBytes = 3;

// Takes the next unit off the front, without start code (zeros, then 1) and without zeros behind it, as in a byte
// stream (H.264, annex B). What begins without a start code is a unit, too. Empty at the end.
std::span<const uint8_t> NextNalUnit(std::span<const uint8_t> &bytes);

// ---- MPEG-4 audio (ISO 14496-3) ----

// Takes bits off the front, the most significant first; false, and no more bits, when they run out.
class BitReader {
public:
    explicit BitReader(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    bool Take(unsigned count, int32_t &value) {
        value = 0;
        for (; count > 0; --count, ++at_) {
            if (at_ / 8 >= bytes_.size()) return false;
            value =
                static_cast<int32_t>(static_cast<uint32_t>(value) << 1 | (bytes_[at_ / 8] >> (7 - at_ % 8) & 1U));
        }
        return true;
    }
    bool Skip(std::size_t count) {
        if (count > bytes_.size() * 8 - at_) return false;
        at_ += count;
        return true;
    }
    std::size_t Position() const { return at_; } // bits taken

private:
    std::span<const uint8_t> bytes_;
    std::size_t at_ = 0; // bits
};

inline constexpr int32_t adtsSamplingRates[16] = { // Hz, by sampling frequency index; 0 is reserved
    96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000, 7350, 0, 0, 0};

// Object type, rate and channels are those of the core layer, as an ADTS header names them.
struct AudioConfig {
    int32_t objectType = 0;
    int32_t samplingRate = 0; // Hz
    int32_t channels = 0;     // 0: in the program config element, or reserved
};

// AudioSpecificConfig, 1.6.2.1, up to what the object type has of its own. False when it is none.
bool TakeAudioConfig(BitReader &bits, AudioConfig &config);

} // namespace rtsptap
