// RTP over UDP: a stream's datagrams, received straight into its ring and queued.
#pragma once

namespace rtsptap {

struct Service;

// Ends when its socket fails or delivers nothing, and when the session is over.
extern const Service kRtpService;

} // namespace rtsptap
