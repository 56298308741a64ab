// What a parsed reply means before its method looks at it: its session and its status class.
#pragma once

#include "rtsp/client/exchange.h"

#include <string_view>

namespace rtsptap {

// The session must be ours. Comes before the status: a strange session wins over an error status.
int32_t CompareSession(Exchange &exchange);

// 200 and other codes below 300 go on; 3xx, 4xx, 401 and 5xx end the exchange.
int32_t ClassifyStatus(Exchange &exchange);

// The identifier in a Session value: its first token before a ';', or all of it when there is none.
std::string_view SessionToken(std::string_view headerValue);

} // namespace rtsptap
