// H.264 parameter sets from a stream's format parameters (RFC 6184, 8.1). Application thread.
#pragma once

#include <cstdint>

namespace rtsptap {

struct RTSPStreamInfo;

// Decodes "sprop-parameter-sets=" of the stream's fmtp text: the first sequence and the first picture
// parameter set become the description's sps and pps. Sets that are not found leave the fields as they are.
// 0 when both were found, else RTSP_FAILURE.
int32_t ExtractSPSPPS(RTSPStreamInfo *stream);

} // namespace rtsptap
