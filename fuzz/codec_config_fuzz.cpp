// Hostile format parameters: H.264 parameter sets and AAC configuration from the same text.
#include "platform/text.h"
#include "rtp/stream_lifecycle.h"
#include "rtp/stream_record.h"
#include "sdp/aac_config.h"
#include "sdp/h264_config.h"

#include <cstdlib>

using namespace rtsptap;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    auto *const stream = new RTSPStreamInfo{};
    stream->description.fmtp = DuplicateText({reinterpret_cast<const char *>(data), size}).release();
    for (int round = 0; round < 2; ++round) { // the second replaces the results of the first
        const RTSPStreamDescription &is = stream->description;
        if (ExtractSPSPPS(stream) == 0 && (is.spsSize < 1 || is.ppsSize < 1)) abort();
        if (ExtractAACConfig(stream) == 0 && (is.aacConfigSize < 2 || is.aacSamplingRate < 1)) abort();
    }
    ReleaseStream(stream);
    return 0;
}
