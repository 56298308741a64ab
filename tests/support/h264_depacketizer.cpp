#include "tests/support/h264_depacketizer.h"

namespace rtsptap::test {
namespace {

constexpr uint8_t kTypeMask = 0x1F;
constexpr uint8_t kKeyFrame = 5;
constexpr uint8_t kStapA = 24;
constexpr uint8_t kFuA = 28;
constexpr uint8_t kFuStart = 0x80;
constexpr uint8_t kFuEnd = 0x40;

} // namespace

void H264Depacketizer::Take(std::span<const uint8_t> payload, bool marker) {
    const uint8_t type = payload.empty() ? 0 : payload[0] & kTypeMask;
    if (type > 0 && type < kStapA)
        Append(payload);
    else if (type == kStapA)
        TakeAggregate(payload.subspan(1));
    else if (type == kFuA && payload.size() > 2)
        TakeFragment(payload);
    else
        ++malformed_;
    if (marker) EndPicture();
}

void H264Depacketizer::Append(std::span<const uint8_t> unit) {
    picture_.insert(picture_.end(), {0, 0, 0, 1});
    picture_.insert(picture_.end(), unit.begin(), unit.end());
    if ((unit[0] & kTypeMask) == kKeyFrame) started_ = true;
}

void H264Depacketizer::EndPicture() {
    if (started_) {
        stream_.insert(stream_.end(), picture_.begin(), picture_.end());
        ++pictures_;
    }
    picture_.clear();
}

// +----------+-----------+----------+-----------+---
// | size, 16 | NAL unit  | size, 16 | NAL unit  |
void H264Depacketizer::TakeAggregate(std::span<const uint8_t> units) {
    while (units.size() >= 2) {
        const std::size_t size = static_cast<std::size_t>(units[0] << 8 | units[1]);
        units = units.subspan(2);
        if (size == 0 || size > units.size()) break;
        Append(units.first(size));
        units = units.subspan(size);
    }
    if (!units.empty()) ++malformed_;
}

// The unit's header byte is split over the indicator (importance) and the fragment header (type).
void H264Depacketizer::TakeFragment(std::span<const uint8_t> payload) {
    const uint8_t header = payload[1];
    if ((header & kFuStart) != 0)
        fragments_ = {static_cast<uint8_t>((payload[0] & ~kTypeMask) | (header & kTypeMask))};
    if (fragments_.empty()) return; // the beginning was lost or was before our time
    fragments_.insert(fragments_.end(), payload.begin() + 2, payload.end());
    if ((header & kFuEnd) == 0) return;
    Append(fragments_);
    fragments_.clear();
}

} // namespace rtsptap::test
