// What a client does about sections whose packets are protected: a check of SETUP. Application thread.
#pragma once

#include <cstdint>

namespace rtsptap {

struct Exchange;

// Makes what takes the protection off the packets of the exchange's stream, if they have any. RTSP_SUCCESS,
// RTSPTAP_NO_PROTECTION, RTSPTAP_BAD_KEYS or RTSP_NO_MEMORY.
int32_t ChooseProtection(Exchange &exchange);

} // namespace rtsptap
