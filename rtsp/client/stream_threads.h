// The receive threads and sockets of a client as a whole: started by PLAY, stopped by TEARDOWN and Destroy.
// Application thread only.
#pragma once

namespace rtsptap {

struct RTSPClient;
struct RTSPStreamInfo;
struct StreamThread;

// True for the thread that reads the RTSP connection.
bool ServesConnection(const StreamThread *thread);

// Ends the threads that are left from before a reconnect with the other protocol: a stream's ring has one
// writer. Their sockets stay open.
void StopThreadsOfOtherProtocol(RTSPClient &client);

// Starts the stream's RTP and RTCP threads over UDP, or hands over to new ones where they run.
void StartUdpThreads(RTSPStreamInfo &stream);
// Starts the thread that serves the whole interleaved connection, on the client's first stream.
void StartInterleavedThread(RTSPClient &client);

// Closes the RTSP connection, then stops every thread of every stream and closes its sockets, in this order:
// RTP socket, RTP thread, RTCP socket, RTCP thread.
void CloseConnectionAndStreams(RTSPClient &client);

// Close one socket of a stream; a thread that receives on it is stopped.
void CloseRtpSocket(RTSPStreamInfo &stream);
void CloseRtcpSocket(RTSPStreamInfo &stream);

} // namespace rtsptap
