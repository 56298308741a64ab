// The checks that the methods' rows are made of. Each looks at one thing; the row says in which order.
#pragma once

#include "rtsp/client/exchange.h"

namespace rtsptap {

int32_t CheckHandle(Exchange &exchange);           // not null, and live
int32_t CheckHandleAndSession(Exchange &exchange); // the same, and a stream number of 0 or more
int32_t CheckHandleAndStream(Exchange &exchange);  // the same, and a stream number of 1 or more
int32_t CheckConnected(Exchange &exchange);
int32_t CheckStreamNumber(Exchange &exchange); // not above the client's stream count
int32_t CheckState(Exchange &exchange);
int32_t CheckHeaderList(Exchange &exchange);

} // namespace rtsptap
