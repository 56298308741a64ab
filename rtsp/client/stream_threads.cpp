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

bool ServesConnection(const StreamThread *thread) {
    return thread != nullptr && thread->dataProto == DATA_PROTO_TCP;
}

} // namespace

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
    for (RTSPStreamInfo *stream = client.streamList; stream != nullptr; stream = stream->next)
        if (ServesConnection(stream->rtpThread)) StopStreamThread(stream->rtpThread, rtspSocket);
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
