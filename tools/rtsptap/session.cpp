#include "session.h"

#include <new>

namespace tool {
namespace {

constexpr int32_t kVideoBufferBytes = 4 << 20;
constexpr int32_t kAudioBufferBytes = 1 << 20;

// A header list for one call.
class HeaderList {
public:
    HeaderList(const char *name, const char *value) { RTSPAddHeaderToList(handle_, name, value, 0); }
    ~HeaderList() { RTSPDestroyHeaderList(handle_); }
    HeaderList(const HeaderList &) = delete;
    HeaderList &operator=(const HeaderList &) = delete;
    intptr_t Handle() const { return handle_; }

private:
    intptr_t handle_ = RTSPCreateHeaderList();
};

using Method = int32_t (*)(intptr_t, intptr_t, char *, int32_t *);

// A first 401 brings the challenge, the repeated request answers it.
int32_t SendAuthorized(Method method, intptr_t client) {
    const int32_t result = method(client, 0, nullptr, nullptr);
    return result == RTSP_UNAUTHORIZED ? method(client, 0, nullptr, nullptr) : result;
}

} // namespace

Session::Session() : client_(RTSPClientCreate()) {
    if (client_ <= 0) throw std::bad_alloc();
    RTPClientSetAudioVideoBufferSize(client_, kVideoBufferBytes, kAudioBufferBytes);
}

Session::~Session() { RTSPClientDestroy(client_); }

int32_t Session::PlayAtOnce(const Target &target) {
    return RTSPClientAutoRTSPConnect(client_, target.address.c_str(), target.port, target.path.c_str(),
                                     target.user.c_str(), target.password.c_str(), target.transport, 0, 0, 0, 0, 0,
                                     nullptr, nullptr);
}

Outcome Session::PlayStepByStep(const Target &target) {
    if (const int32_t result = Connect(target); result != RTSP_SUCCESS) return OutcomeOfCall("connection", result);
    if (const int32_t result = SendAuthorized(RTSPClientSendOptionsRequest, client_); result != RTSP_SUCCESS)
        return OutcomeOfCall("OPTIONS", result);
    if (const int32_t result = SendAuthorized(RTSPClientSendDescribeRequest, client_); result != RTSP_SUCCESS)
        return OutcomeOfCall("DESCRIBE", result);
    bool anyReadable = false;
    for (const Stream &stream : Streams()) {
        if (!stream.isReadable) continue;
        anyReadable = true;
        const int32_t result = RTSPClientSendSetupRequest(client_, stream.number, 0, nullptr, nullptr);
        if (result != RTSP_SUCCESS)
            return OutcomeOfCall("SETUP of stream " + std::to_string(stream.number), result);
    }
    if (!anyReadable) return {ExitCode::kNoSupportedStream, "DESCRIBE: no stream has a codec that can be received"};
    return OutcomeOfCall("PLAY", RTSPClientSendPlayRequest(client_, 0, 0, nullptr, nullptr));
}

Outcome Session::Listen(const ListenPort &video, const ListenPort &audio) {
    enum { kBoth = 0, kVideoOnly = 1, kAudioOnly = 2, kTransportStream = 3 };
    const bool hasAudio = audio.codecType != 0;
    int32_t media = hasAudio ? kBoth : kVideoOnly;
    if (video.codecType == 0) media = kAudioOnly;
    if (video.codecType == RTP_CODEC_MP2T) media = kTransportStream;
    const int32_t result = StartThirdPartyClient(client_, media, video.codecType, video.port, kVideoBufferBytes,
                                                 audio.codecType, audio.port, kAudioBufferBytes, 0, 0, 0);
    if (result == RTSP_FAILURE) return {ExitCode::kUnreachable, "listen: a port is taken by another program"};
    return OutcomeOfCall("listen", result);
}

std::vector<Stream> Session::Streams() const {
    std::vector<Stream> streams;
    const int32_t count = RTSPClientGetNbStreams(client_);
    for (int32_t number = 1; number <= count; ++number) {
        const RTSPStreamDescription *description = RTSPClientGetSDPInfo(client_, number);
        if (description == nullptr) break;
        Stream stream{number, description->encodingName, description->codecType, description->codecType != 0};
        for (const Stream &earlier : streams)
            if (earlier.codecType == stream.codecType) stream.isReadable = false;
        streams.push_back(stream);
    }
    return streams;
}

Packet Session::Take(int32_t codecType) const {
    RTPStreamData *packet = nullptr;
    RTPClientGetRTPStreamData(client_, &packet, codecType);
    return Packet(packet, GiveBack{client_, codecType});
}

bool Session::HasPacket(int32_t codecType) const { return RTPClientGetNbOfPktInBuffer(client_, codecType) > 0; }

Outcome Session::Teardown() {
    return OutcomeOfCall("TEARDOWN", RTSPClientSendTeardownRequest(client_, 0, nullptr, nullptr));
}

// Only the one-call connection takes credentials. A header that OPTIONS refuses makes it stop right after it has
// connected and stored them, with nothing sent.
int32_t Session::Connect(const Target &target) {
    if (target.user.empty())
        return RTSPClientConnect(client_, target.address.c_str(), target.port, target.path.c_str(),
                                 target.transport, 0);
    const HeaderList refused("Range", "npt=0.000-");
    const int32_t result = RTSPClientAutoRTSPConnect(
        client_, target.address.c_str(), target.port, target.path.c_str(), target.user.c_str(),
        target.password.c_str(), target.transport, refused.Handle(), 0, 0, 0, 0, nullptr, nullptr);
    return result == RTSP_SEND_FAILED ? RTSP_SUCCESS : result;
}

} // namespace tool
