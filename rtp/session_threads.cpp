#include "rtp/session_threads.h"

#include "platform/printers.h"
#include "rtp/interleaved/interleaved_service.h"
#include "rtp/media_session.h"
#include "rtp/packet_queue.h"
#include "rtp/rtcp/rtcp.h"
#include "rtp/service_thread.h"
#include "rtp/serving.h"
#include "rtp/stream.h"

namespace rtsptap {

namespace {

bool ServesConnection(const StreamThread *thread) {
    return thread != nullptr && thread->service == &kInterleavedService;
}

bool ReceivesDatagrams(const StreamThread *thread) { return IsServing(thread) && !ServesConnection(thread); }

} // namespace

bool ConnectionIsServed(const MediaSession &session) {
    const RTSPStreamInfo *const first = session.streamList;
    return first != nullptr && IsServing(first->rtpThread) && ServesConnection(first->rtpThread);
}

void ChooseStreamsForFrames(const MediaSession &session) {
    for (RTSPStreamInfo *stream = session.streamList; stream != nullptr; stream = stream->next)
        stream->takesFrames = !ReceivesDatagrams(stream->rtpThread) && !ReceivesDatagrams(stream->rtcpThread);
}

// Without a socket a thread would end at once and hold its descriptor until the session ends: a description with
// thousands of streams that nobody sets up must not use up the process's.
void StartUdpThreads(RTSPStreamInfo &stream) {
    if (stream.rtpSocket >= 0) StartStreamThread(stream.rtpThread, stream, kRtpService);
    if (stream.rtcpSocket >= 0) StartStreamThread(stream.rtcpThread, stream, kRtcpService);
}

void StartInterleavedThread(MediaSession &session) {
    RTSPStreamInfo *const first = session.streamList;
    if (first == nullptr) return;
    ChooseStreamsForFrames(session);
    StopStreamThread(first->rtcpThread, -1); // the first stream changes over: its receive thread is taken over from
    first->takesFrames = true;
    StartStreamThread(first->rtpThread, *first, kInterleavedService);
}

void StopInterleavedThread(const MediaSession &session, int socket) {
    for (RTSPStreamInfo *stream = session.streamList; stream != nullptr; stream = stream->next)
        if (ServesConnection(stream->rtpThread)) StopStreamThread(stream->rtpThread, socket);
}

void CloseConnectionAndStreams(MediaSession &session) {
    DebugPrint(kDebugEntry, "\tClosing RTSP Connection Socket \n");
    const int32_t rtspSocket = session.connection.socket;
    StopInterleavedThread(session, rtspSocket);
    session.connection.socket = -1;
    CloseSock(rtspSocket);
    ForgetConnection(session.connection);
    for (RTSPStreamInfo *stream = session.streamList; stream != nullptr; stream = stream->next) {
        DebugPrint(kDebugEntry, "\tWaiting for Stream Receive Thread Completion\n");
        StopAndClose(stream->rtpThread, stream->rtpSocket);
        StopAndClose(stream->rtcpThread, stream->rtcpSocket);
        EndReaderWaits(*stream); // also of one whose thread had ended before
    }
}

void CloseRtpSocket(RTSPStreamInfo &stream) {
    if (!ServesConnection(stream.rtpThread)) return StopAndClose(stream.rtpThread, stream.rtpSocket);
    CloseSock(stream.rtpSocket);
    stream.rtpSocket = -1;
}

void CloseRtcpSocket(RTSPStreamInfo &stream) { StopAndClose(stream.rtcpThread, stream.rtcpSocket); }

} // namespace rtsptap
