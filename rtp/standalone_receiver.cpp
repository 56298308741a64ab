// Receiving RTP on ports that the application names, without RTSP. Application thread.
#include "platform/printers.h"
#include "platform/system.h"
#include "rtp/codec_table.h"
#include "rtp/media_session.h"
#include "rtp/service_thread.h"
#include "rtp/serving.h"
#include "rtp/stream.h"

using namespace rtsptap;

namespace {

// What adVdFlag asks for; any other value stands for both media.
enum MediaFlag : int32_t { kBothMedia = 0, kVideoOnly = 1, kAudioOnly = 2, kTransportStreamOnly = 3 };

// A further codec is one for the clients that have asked for such.
bool IsMedium(const MediaSession *session, uint16_t port, int32_t bufferSize, int32_t codecType, CodecGroup group) {
    const Codec *const codec = FindCodec(codecType);
    if (port == 0 || bufferSize < 1 || codec == nullptr || codec->group != group) return false;
    return !codec->isFurther || (session != nullptr && session->dialect.IsOn(Rule::kFurtherCodec));
}

struct Request {
    int32_t flag;
    bool videoIsValid;
    bool audioIsValid;
    bool transportStreamIsValid;
};

int32_t CheckMedia(const CallTrace &trace, const Request &request) {
    const bool videoAsked = request.flag != kAudioOnly && request.flag != kTransportStreamOnly;
    const bool audioAsked = request.flag != kVideoOnly && request.flag != kTransportStreamOnly;
    if (request.flag == kTransportStreamOnly && !request.transportStreamIsValid)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s : TS port or TS name invalid\n");
    if (videoAsked && !request.videoIsValid)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s : Video port or Codec name invalid\n");
    if (audioAsked && !request.audioIsValid)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Audio port or Codec name invalid\n");
    return RTSP_SUCCESS;
}

int32_t MakeLocks(const CallTrace &trace, RTSPStreamInfo &stream) {
    switch (CreateStreamLocks(stream)) {
    case StreamLock::kNone:
        break;
    case StreamLock::kPacketList:
        return trace.Fail(RTSP_FAILURE, "EXIT : %s: Can not create mutex to lock RTP Data List.\n");
    case StreamLock::kSignal:
        return trace.Fail(RTSP_MUTEX_FAILED, "EXIT : %s: Can not create mutex to lock condition variable.\n");
    case StreamLock::kCondition:
        return trace.Fail(RTSP_FAILURE, "EXIT : %s: Can not create mutex to lock condition variable.\n");
    }
    return RTSP_SUCCESS;
}

void Describe(RTSPStreamInfo &stream, int32_t codecType, uint16_t port, uint8_t isVideo) {
    stream.clientPort = port;
    stream.streamState = kStreamPlaying;
    stream.description.isVideo = isVideo;
    stream.isVideo = isVideo;
    stream.description.codecType = codecType;
    if (stream.session->dialect.IsOn(Rule::kConfigInStream)) SearchMissingConfig(stream);
    stream.codecType = codecType; // last: from here on readers find the stream by it
}

int32_t OpenPort(const CallTrace &trace, RTSPStreamInfo &stream, uint16_t port) {
    const char *const text = stream.session->listenAddress;
    const Address address = *text != '\0' ? ReadAnyAddress(text, port) : AnyAddress(port);
    UniqueSocket rtpSocket(OpenDatagramSocket(address));
    if (!rtpSocket.IsOpen()) return trace.Fail(RTSP_FAILURE, "EXIT : %s :RTSP Client socket creation failed\n");
    const bool isGroup = IsGroup(address);
    if (isGroup) SharePort(rtpSocket.Get());
    if (!BindTo(rtpSocket.Get(), isGroup ? AnyAddress(port, address) : address))
        return trace.Fail(RTSP_FAILURE, "EXIT : %s :Unable to bind on specified port \n");
    const MulticastWays &ways = stream.session->multicast;
    if (isGroup &&
        (!PrepareForGroups(rtpSocket.Get(), address, ways) || !JoinGroup(rtpSocket.Get(), address, ways)))
        return trace.Fail(RTSP_FAILURE, "EXIT : %s :Unable to add membership \n");
    SizeReceiveBuffer(*stream.session, rtpSocket.Get(), 0); // what the system gives will do
    stream.rtpSocket = rtpSocket.Release();
    return RTSP_SUCCESS;
}

int32_t StartStream(const CallTrace &trace, intptr_t clientHandle, const char *milestone, int32_t codecType,
                    uint16_t port, uint8_t isVideo) {
    RtpRtspInfoPrint("%s", milestone);
    if (CreateRTPStream(clientHandle, codecType, port, isVideo) >= 0) return RTSP_SUCCESS;
    return trace.Fail(RTSP_FAILURE, "EXIT : %s :Unable to create RTP Stream\n");
}

} // namespace

int32_t StartThirdPartyClient(intptr_t clientHandle, int32_t adVdFlag, int32_t videoOrTsCodecName,
                              uint16_t videoOrTsPort, int32_t videoBufferSize, int32_t audioCodecName,
                              uint16_t audioPort, int32_t audioBufferSize, int32_t tLInMS, int32_t uFInMS,
                              int32_t oFInMS) {
    const ClientTrace trace(__func__, clientHandle);
    DebugPrint(kDebugEntry, "Input: clientHandle      : %d\n", PrintableHandle(clientHandle));
    DebugPrint(kDebugEntry, "Input: adVdFlag      : %d\n", adVdFlag);
    DebugPrint(kDebugEntry, "Input: videoOrTsCodecName      : %d\n", videoOrTsCodecName);
    DebugPrint(kDebugEntry, "Input: videoOrTsPort      : %d\n", videoOrTsPort);
    DebugPrint(kDebugEntry, "Input: audioCodecName      : %d\n", audioCodecName);
    DebugPrint(kDebugEntry, "Input: audioPort      : %d\n", audioPort);
    if (clientHandle == 0) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid Input Arguments\n");
    MediaSession *const session = LiveSession(clientHandle);
    const Request request{
        adVdFlag, IsMedium(session, videoOrTsPort, videoBufferSize, videoOrTsCodecName, CodecGroup::kVideo),
        IsMedium(session, audioPort, audioBufferSize, audioCodecName, CodecGroup::kAudio),
        IsMedium(session, videoOrTsPort, videoBufferSize, videoOrTsCodecName, CodecGroup::kTransportStream)};
    if (const int32_t result = CheckMedia(trace, request); result != RTSP_SUCCESS) return result;
    if (session == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid client handle\n");

    session->dataProto = DATA_PROTO_UDP;
    session->mtuSize = kDefaultMtuSize;
    if (RTPClientConfigLatency(clientHandle, tLInMS, uFInMS, oFInMS) < 0)
        return trace.Fail(RTSP_FAILURE, "EXIT :: %s : Unable to set the target latency values\n");
    const int32_t usedAudioSize = adVdFlag == kTransportStreamOnly ? 0 : audioBufferSize;
    if (RTPClientSetAudioVideoBufferSize(clientHandle, videoBufferSize, usedAudioSize) < 0)
        return trace.Fail(RTSP_FAILURE, "EXIT : %s :Unable to set Audio and Video Buffer Size \n");

    // Kept: a flag other than 0 to 3 is checked like 0 but creates no stream.
    int32_t result = RTSP_SUCCESS;
    if (adVdFlag == kBothMedia || adVdFlag == kVideoOnly)
        result =
            StartStream(trace, clientHandle, "Creating RTP Video Stream \n", videoOrTsCodecName, videoOrTsPort, 1);
    if (result == RTSP_SUCCESS && (adVdFlag == kBothMedia || adVdFlag == kAudioOnly))
        result = StartStream(trace, clientHandle, "Creating RTP Audio Stream \n", audioCodecName, audioPort, 0);
    if (adVdFlag == kTransportStreamOnly) {
        RtpRtspInfoPrint("Creating RTP Transport Stream \n");
        CreateRTPStream(clientHandle, videoOrTsCodecName, videoOrTsPort, 1); // Kept: its result is not looked at
    }
    return result;
}

int32_t CreateRTPStream(intptr_t clientHandle, int32_t codecType, uint16_t port, uint8_t isVideo) {
    const ClientTrace trace(__func__, clientHandle);
    MediaSession *const session = LiveSession(clientHandle);
    if (session == nullptr || port == 0)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid Input Arguments\n");
    RetireEndedStreams(*session);
    RTSPStreamInfo *const stream = AppendStream(*session);
    if (stream == nullptr) return trace.Fail(RTSP_FAILURE, "\tEXIT : %s :Memory Allocation Failed\n");
    if (const int32_t result = MakeLocks(trace, *stream); result != RTSP_SUCCESS) return result;
    // A stream that cannot be finished stays linked and counted, but is nobody's codec and holds nothing.
    ScopeExit abandon([stream] { DestroyStreamLocks(*stream); });
    if (const int32_t result = OpenPort(trace, *stream, port); result != RTSP_SUCCESS) return result;
    abandon.Dismiss();
    Describe(*stream, codecType, port, isVideo);
    RtpRtspInfoPrint("Creating RTP Data Receive thread for third party client to receive RTP data \n");
    StartStreamThread(stream->thread, *stream, {&kRtpService}); // without a thread the stream stays silent
    SettleSession(*session);
    return RTSP_SUCCESS;
}
