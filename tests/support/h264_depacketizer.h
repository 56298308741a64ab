// RTP payloads of H.264 (RFC 6184) to an Annex B byte stream: single NAL units, STAP-A and FU-A.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace rtsptap::test {

// Keeps whole pictures only, from the first key frame to the last marker: what a decoder must take without
// complaint.
class H264Depacketizer {
public:
    void Take(std::span<const uint8_t> payload, bool marker);

    const std::vector<uint8_t> &Stream() const { return stream_; } // start codes before every NAL unit
    int Pictures() const { return pictures_; }                     // in the stream
    int Malformed() const { return malformed_; }                   // payloads that fit none of the three forms

private:
    void Append(std::span<const uint8_t> unit);
    void TakeAggregate(std::span<const uint8_t> units);
    void TakeFragment(std::span<const uint8_t> payload);
    void EndPicture();

    std::vector<uint8_t> stream_;
    std::vector<uint8_t> picture_;   // NAL units of the picture under way
    std::vector<uint8_t> fragments_; // of the NAL unit under way
    bool started_ = false;           // a key frame has been seen
    int pictures_ = 0;
    int malformed_ = 0;
};

} // namespace rtsptap::test
