
#include "rtp/session_threads.h"

#include "platform/printers.h"
#include "rtp/interleaved/connection.h"
#include "rtp/interleaved/interleaved_service.h"
#include "rtp/packet_queue.h"
#include "rtp/rtcp/rtcp_service.h"
#include "rtp/service_thread.h"
#include "rtp/stream.h"
#include "rtp/udp_reception.h"
#include "rtsp/client/client.h"

namespace rtsptap {

namespace {

bool ReceivesDatagrams(const StreamThread *thread) { return IsServing(thread) && !ServesConnection(thread); }

} // namespace

bool ServesConnection(const StreamThread *thread) {
    return thread != nullptr && thread->body == ServeInterleavedConnection;
}

void ChooseStreamsForFrames(const RTSPClient &client) {
    for (RTSPStreamInfo *stream = client.streamList; stream != nullptr; stream = stream->next)
        stream->takesFrames = !ReceivesDatagrams(stream->rtpThread) && !ReceivesDatagrams(stream->rtcpThread);
}

// Without a socket a thread would end at once and hold its descriptor until the session ends: a description with
// thousands of streams that nobody sets up must not use up the process's.
void StartUdpThreads(RTSPStreamInfo &stream) {
    if (stream.rtpSocket >= 0) StartStreamThread(stream.rtpThread, stream, ReceiveRtp);
    if (stream.rtcpSocket >= 0) StartStreamThread(stream.rtcpThread, stream, ServeRtcp);
}

void StartInterleavedThread(RTSPClient &client) {
    RTSPStreamInfo *const first = client.streamList;
    if (first == nullptr) return;
    ChooseStreamsForFrames(client);
    StopStreamThread(first->rtcpThread, -1); // the first stream changes over: its receive thread is taken over from
    first->takesFrames = true;
    StartStreamThread(first->rtpThread, *first, ServeInterleavedConnection);
}

void StopInterleavedThread(const RTSPClient &client, int socket) {
    for (RTSPStreamInfo *stream = client.streamList; stream != nullptr; stream = stream->next)
        if (ServesConnection(stream->rtpThread)) StopStreamThread(stream->rtpThread, socket);
}

void CloseConnectionAndStreams(RTSPClient &client) {
    DebugPrint(kDebugEntry, "\tClosing RTSP Connection Socket \n");
    const int32_t rtspSocket = client.rtspSocket;
    StopInterleavedThread(client, rtspSocket);
    client.rtspSocket = -1;
    CloseSock(rtspSocket);
    ForgetConnection(client);
    for (RTSPStreamInfo *stream = client.streamList; stream != nullptr; stream = stream->next) {
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
