// Operations that the program does not wait for: what RTSPTapOpen and its kin do, run on a fiber that
// RTSPTapProgress resumes. The fiber is the media session's `pending`, which says what is waited for. Application
// thread.
#pragma once

#include "rtsptap_extended.h"

#include <cstdint>

namespace rtsptap {

class CallTrace;
struct RTSPClient;

// 0, or RTSPTAP_BUSY with its text while an operation of the client is pending and this is not it.
int32_t RefuseWhilePending(const CallTrace &trace, const RTSPClient &client);

// The client goes: a pending operation ends, with all that it holds.
void AbandonOperation(RTSPClient &client);

} // namespace rtsptap
