#include "rtsp/client/stream_threads.h"

#include "platform/printers.h"
#include "rtp/interleaved_loop.h"
#include "rtp/interleaved_reader.h"
#include "rtp/receive_thread.h"
#include "rtp/rtcp_thread.h"
#include "rtp/stream_record.h"
#include "rtp/stream_thread.h"
#include "rtsp/client/client_record.h"

namespace rtsptap {
namespace {

constexpr int kNoSocket = -1; // none to shut down: the thread's wake-up is enough

void StopInterleavedThread(RTSPClient &client, int rtspSocket) {
    for (RTSPStreamInfo *stream = client.streamList; stream != nullptr; stream = stream->next)
        if (ServesConnection(stream->rtpThread)) StopStreamThread(stream->rtpThread, rtspSocket);
}

void StopUdpThreads(RTSPClient &client) {
    for (RTSPStreamInfo *stream = client.streamList; stream != nullptr; stream = stream->next) {
        if (!ServesConnection(stream->rtpThread)) StopStreamThread(stream->rtpThread, kNoSocket);
        StopStreamThread(stream->rtcpThread, kNoSocket);
    }
}

} // namespace

bool ServesConnection(const StreamThread *thread) {
    return thread != nullptr && thread->body == ServeInterleavedConnection;
}

void StopThreadsOfOtherProtocol(RTSPClient &client) {
    client.dataProto == DATA_PROTO_TCP ? StopUdpThreads(client) : StopInterleavedThread(client, kNoSocket);
}

void StartUdpThreads(RTSPStreamInfo &stream) {
    StartStreamThread(stream.rtpThread, stream, ReceiveRtp);
    StartStreamThread(stream.rtcpThread, stream, ServeRtcp);
}

void StartInterleavedThread(RTSPClient &client) {
    RTSPStreamInfo *const first = client.streamList;
    if (first != nullptr) StartStreamThread(first->rtpThread, *first, ServeInterleavedConnection);
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
    }
}

void CloseRtpSocket(RTSPStreamInfo &stream) {
    if (!ServesConnection(stream.rtpThread)) return StopAndClose(stream.rtpThread, stream.rtpSocket);
    CloseSock(stream.rtpSocket);
    stream.rtpSocket = -1;
}

void CloseRtcpSocket(RTSPStreamInfo &stream) { StopAndClose(stream.rtcpThread, stream.rtcpSocket); }

} // namespace rtsptap
