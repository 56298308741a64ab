// The receive threads and sockets of a session as a whole: started by PLAY, stopped by TEARDOWN and Destroy.
// Application thread only.
#pragma once

namespace rtsptap {

struct MediaSession;
struct RTSPStreamInfo;

// Starts the stream's RTP and RTCP threads over UDP, or hands over to new ones where they run.
void StartUdpThreads(RTSPStreamInfo &stream);
// Starts the thread that serves the whole interleaved connection, on the session's first stream.
void StartInterleavedThread(MediaSession &session);

// Stops it. A `socket` of -1 leaves the connection open and unread.
void StopInterleavedThread(const MediaSession &session, int socket);
// True while a thread reads the connection.
bool ConnectionIsServed(const MediaSession &session);

// Before frames are taken: those of every stream are, but where threads receive datagrams, for a session may change
// its protocol while they run.
void ChooseStreamsForFrames(const MediaSession &session);

// Closes the RTSP connection, then stops every thread of every stream and closes its sockets, in this order:
// RTP socket, RTP thread, RTCP socket, RTCP thread.
void CloseConnectionAndStreams(MediaSession &session);

// Close one socket of a stream; a thread that receives on it is stopped.
void CloseRtpSocket(RTSPStreamInfo &stream);
void CloseRtcpSocket(RTSPStreamInfo &stream);

} // namespace rtsptap
