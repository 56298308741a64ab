// The payload types of a media section: those that its m= line names, in its order, and what those mean that every
// receiver knows (RFC 3551, 6). Application thread.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

namespace rtsptap {

class MediaFormats {
public:
    MediaFormats() = default;
    // <media> <port> <profile> <payload types>
    explicit MediaFormats(std::string_view mediaLine);

    std::span<const uint8_t> Types() const { return {types_.data(), count_}; }
    bool Has(int32_t payloadType) const;

private:
    std::array<uint8_t, 128> types_ = {}; // each once
    std::size_t count_ = 0;
};

// "RTP/AVP", by the m= line; empty when it has none.
std::string_view ProfileOf(std::string_view mediaLine);

// Packets of the profile are protected (RFC 3711, 4585, 5124).
bool IsProtected(std::string_view profile);

struct StaticFormat {
    uint8_t payloadType;
    std::string_view encodingName;
    int32_t clockRate; // RTP timestamp units per second
    int32_t channels;  // 0: no audio, or told by the stream
};

// The row of a payload type, or null.
const StaticFormat *FindStaticFormat(int32_t payloadType);

} // namespace rtsptap
