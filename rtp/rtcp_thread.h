// The RTCP thread of a stream over UDP: answers every report that the server sends, and breaks long silences.
#pragma once

namespace rtsptap {

struct StreamThread;

// Thread body: serves the stream's rtcpSocket until it is told to end, the socket fails or delivers nothing,
// or the session is over.
void ServeRtcp(StreamThread &thread);

} // namespace rtsptap
