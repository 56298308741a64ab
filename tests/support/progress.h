// Operations that do not block, taken to their end as a loop does it: the waits are the loop's, for what the
// library says that it waits for, and no call of the library may wait.
#pragma once

#include "platform/fiber.h"
#include "platform/system.h"
#include "rtsp/client/client.h"
#include "rtsptap_extended.h"
#include "tests/torture/system_calls.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <poll.h>

namespace rtsptap::test {

inline void AwaitProgress(intptr_t client) {
    const Fiber *const pending = reinterpret_cast<const RTSPClient *>(client)->media.pending;
    if (pending == nullptr) return;
    Awaited awaited = AwaitedBy(*pending);
    const uint64_t now = MonotonicMs();
    const uint64_t left = std::min<uint64_t>(awaited.deadlineMs - std::min(now, awaited.deadlineMs), 20000);
    poll(awaited.sockets.data(), awaited.count, static_cast<int>(left));
}

// One step; false when the operation has ended.
inline bool StepOn(intptr_t client, int32_t &result) {
    torture::WhatMayWait();
    result = RTSPTapProgress(client);
    EXPECT_EQ(torture::WhatMayWait(), "");
    return result == RTSPTAP_PENDING;
}

// Begins an operation and takes it to its end.
template <typename... Parameters, typename... Arguments>
int32_t Progressed(intptr_t client, int32_t (*begin)(intptr_t, Parameters...), Arguments... arguments) {
    torture::WhatMayWait();
    int32_t result = begin(client, arguments...);
    EXPECT_EQ(torture::WhatMayWait(), "");
    if (result != 0) return result;
    while (StepOn(client, result)) AwaitProgress(client);
    return result;
}

} // namespace rtsptap::test
