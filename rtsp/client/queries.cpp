// What the application may ask: the description in force, a stream's SSRC, the last reply. The queries only read;
// application thread.
#include "platform/printers.h"
#include "rtp/interleaved/connection.h"
#include "rtp/protection.h"
#include "rtp/stream.h"
#include "rtsp/client/client.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string_view>

using namespace rtsptap;

namespace {

// The client of a query, when it is alive and connected.
int32_t FindClient(const CallTrace &trace, intptr_t clientHandle, RTSPClient *&client) {
    client = LiveClient(clientHandle);
    if (client == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid client handle\n");
    if (client->connected.load(std::memory_order_relaxed) != 1)
        return trace.Fail(RTSP_NOT_CONNECTED, "EXIT : %s :Client is created but is not connected to server\n");
    return RTSP_SUCCESS;
}

// The same for a query about stream number streamCount.
int32_t FindClient(const CallTrace &trace, intptr_t clientHandle, int32_t streamCount, RTSPClient *&client) {
    if (const int32_t result = FindClient(trace, clientHandle, client); result != RTSP_SUCCESS) return result;
    if (streamCount > client->media.streamCount.load(std::memory_order_relaxed))
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid Stream Number\n");
    return RTSP_SUCCESS;
}

// Kept: a session line is found by its exact one-letter name only, whatever its value holds.
const SDPField *FindSessionLine(const SDPField *list, std::string_view name) {
    while (list != nullptr && name != list->name) list = list->next;
    return list;
}

// Kept: with "=" in the name, a stream's line matches when its value contains what follows the "=", whatever
// the line's own letter is. "a=fmtp" finds the first line with "fmtp" in its value, "a=" the first line.
const SDPField *FindStreamLine(const SDPField *list, std::string_view name) {
    const std::size_t equals = name.find('=');
    for (; list != nullptr; list = list->next) {
        if (name == list->name) break;
        if (equals != name.npos && std::string_view(list->value).find(name.substr(equals + 1)) != name.npos) break;
    }
    return list;
}

const SDPField *FindLine(const RTSPClient &client, int32_t streamCount, std::string_view name) {
    if (streamCount == 0) return FindSessionLine(client.sdpFieldList, name);
    const RTSPStreamInfo *const stream = FindStreamByNumber(client.media, streamCount);
    return stream != nullptr ? FindStreamLine(stream->sdpFieldList, name) : nullptr;
}

} // namespace

int32_t RTSPClientGetNbStreams(intptr_t clientHandle) {
    const ClientTrace trace(__func__, clientHandle);
    RtpRtspInfoPrint("Getting total number of streams as specified in SDP.... \n");
    if (clientHandle == 0) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");

    RTSPClient *client = nullptr;
    if (const int32_t result = FindClient(trace, clientHandle, client); result != RTSP_SUCCESS) return result;
    const int32_t streamCount = client->media.streamCount.load(std::memory_order_relaxed);
    DebugPrint(kDebugEntry, "\tOutput: Total Number of Streams in SDP : %d\n", streamCount);
    return streamCount;
}

RTSPStreamDescription *RTSPClientGetSDPInfo(intptr_t clientHandle, int32_t streamCount) {
    const ClientTrace trace(__func__, clientHandle);
    RtpRtspInfoPrint("Getting SDP Information as received from server \n");
    RTSPStreamDescription *const none = nullptr;
    if (clientHandle == 0 || streamCount < 1) return trace.Fail(none, "EXIT : %s :Invalid input argument\n");

    RTSPClient *client = nullptr;
    if (FindClient(trace, clientHandle, streamCount, client) != RTSP_SUCCESS) return none;
    RTSPStreamInfo *const stream = FindStreamByNumber(client->media, streamCount);
    if (stream == nullptr) {
        DebugPrint(kDebugEntry, "\tOutput: Returned NULL\n");
        return none;
    }
    DebugPrint(kDebugEntry, "\tOutput: Returned Structure's Address : %d\n", PrintableHandle(stream));
    return &stream->description;
}

int32_t RTSPClientGetSDPFieldInfo(intptr_t clientHandle, int32_t streamCount, const char *sdpFieldName,
                                  char *sdpFieldValue, uint32_t *sdpFieldSize) {
    const ClientTrace trace(__func__, clientHandle);
    RtpRtspInfoPrint("Getting SDP Field's value as received from server \n");
    if (clientHandle == 0 || streamCount < 0 || sdpFieldName == nullptr || sdpFieldValue == nullptr ||
        sdpFieldSize == nullptr)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");

    RTSPClient *client = nullptr;
    if (const int32_t result = FindClient(trace, clientHandle, streamCount, client); result != RTSP_SUCCESS)
        return result;
    const SDPField *const line = FindLine(*client, streamCount, sdpFieldName);
    if (line == nullptr) return RTSP_FAILURE;

    const std::size_t needed = strlen(line->value) + 1; // a description is far shorter than 4 GiB
    const bool fits = *sdpFieldSize >= needed;
    *sdpFieldSize = static_cast<uint32_t>(needed);
    if (!fits) return trace.Fail(RTSP_SMALL_BUFFER, "EXIT : %s :Small Buffer received from Application for SDP\n");
    memcpy(sdpFieldValue, line->value, needed);
    DebugPrint(kDebugEntry, "\tOutput: SDPField value return = %s\n", sdpFieldValue);
    return RTSP_SUCCESS;
}

// ---- the description beyond the base ----

namespace {

// The parameters behind the payload type; all of the text where no blank sets them apart, unless it is a number.
const char *ParametersOf(const char *fmtp) {
    if (fmtp == nullptr || fmtp[strspn(fmtp, "0123456789 \t")] == '\0') return nullptr;
    const char *const blank = strpbrk(fmtp, " \t");
    return blank != nullptr ? blank + 1 : fmtp;
}

int32_t PayloadTypeOf(const RTSPStreamInfo &stream) {
    constexpr int32_t kLastPayloadType = 127;
    const int32_t type = stream.description.payloadNumber;
    if (stream.description.encodingName[0] == '\0') return stream.further.firstPayloadType;
    return type >= 0 && type <= kLastPayloadType ? type : -1;
}

int32_t ChannelsOf(const RTSPStreamInfo &stream) {
    const RTSPStreamDescription &is = stream.description;
    const bool leftOut = is.channels == 0 && stream.further.media == RTSPTAP_MEDIA_AUDIO && is.clockRate != 0;
    return leftOut ? 1 : is.channels;
}

// What the description lacks and has been seen in the stream.
void AddFound(const RTSPStreamInfo &stream, ConfigKind kind, const uint8_t *&bytes, int32_t &size) {
    const std::span<const uint8_t> found = FindConfig(stream, kind);
    if (bytes != nullptr || found.empty()) return;
    bytes = found.data();
    size = static_cast<int32_t>(found.size());
}

RTSPTapStreamDescription Describe(const RTSPStreamInfo &stream) {
    const RTSPStreamDescription &is = stream.description;
    const FurtherDescription &further = stream.further;
    const bool isAac = is.aacConfig != nullptr;
    RTSPTapStreamDescription description = {};
    description.media = further.media;
    description.payloadType = PayloadTypeOf(stream);
    description.codecType = is.codecType;
    description.encodingName = is.encodingName;
    description.clockRate = is.clockRate;
    description.channels = ChannelsOf(stream);
    description.bandwidth = is.bandwidth;
    description.frameRate = std::isfinite(is.frameRate) && is.frameRate > 0 ? is.frameRate : 0;
    description.controlUrl = stream.controlUrl != nullptr ? stream.controlUrl.get() : "";
    description.sameControlAs = further.sameControlAs;
    description.fmtp = ParametersOf(is.fmtp);
    description.vps = further.vps;
    description.vpsSize = further.vpsSize;
    description.sps = is.sps;
    description.spsSize = is.spsSize;
    description.pps = is.pps;
    description.ppsSize = is.ppsSize;
    description.config = isAac ? is.aacConfig : further.config;
    description.configSize = isAac ? is.aacConfigSize : further.configSize;
    description.suite = stream.protection != nullptr ? SuiteOf(stream) : further.suite.get();
    AddFound(stream, ConfigKind::kVps, description.vps, description.vpsSize);
    AddFound(stream, ConfigKind::kSps, description.sps, description.spsSize);
    AddFound(stream, ConfigKind::kPps, description.pps, description.ppsSize);
    AddFound(stream, ConfigKind::kConfig, description.config, description.configSize);
    return description;
}

// Streams are asked for one after the other, and a description may have thousands.
RTSPStreamInfo *FindNextStream(RTSPClient &client, int32_t number) {
    const uint32_t changes = client.media.channelChanges;
    StreamAskedFor &last = client.lastDescribed;
    RTSPStreamInfo *stream =
        last.changes == changes && number == last.number + 1 ? last.stream->next.load() : nullptr;
    if (stream == nullptr) stream = FindStreamByNumber(client.media, number);
    if (stream != nullptr) last = {stream, number, changes};
    return stream;
}

} // namespace

int32_t RTSPTapGetStreamDescription(intptr_t clientHandle, int32_t streamNumber,
                                    RTSPTapStreamDescription *description) {
    const ClientTrace trace(__func__, clientHandle);
    RTSPClient *const client = LiveClient(clientHandle);
    if (client == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid client handle\n");
    if (description == nullptr || description->recordSize < sizeof description->recordSize)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");
    const RTSPStreamInfo *const stream = FindNextStream(*client, streamNumber);
    if (stream == nullptr || streamNumber > client->media.streamCount)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid Stream Number\n");
    RTSPTapStreamDescription full = Describe(*stream);
    full.recordSize = description->recordSize;
    memcpy(description, &full, std::min<std::size_t>(full.recordSize, sizeof full));
    return RTSP_SUCCESS;
}

int32_t RTSPClientGetSSRC(intptr_t clientHandle, int32_t streamCount, uint32_t *ssrc) {
    const ClientTrace trace(__func__, clientHandle);
    RtpRtspInfoPrint("Getting SSRC number of the given stream \n");
    if (clientHandle == 0 || streamCount < 1 || ssrc == nullptr)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");

    RTSPClient *client = nullptr;
    if (const int32_t result = FindClient(trace, clientHandle, streamCount, client); result != RTSP_SUCCESS)
        return result;
    const RTSPStreamInfo *const stream = FindStreamByNumber(client->media, streamCount);
    if (stream == nullptr) {
        DebugPrint(kDebugEntry, "\tOutput: Stream not found \n");
        return RTSP_FAILURE;
    }
    *ssrc = stream->remoteSsrc.load(std::memory_order_relaxed);
    DebugPrint(kDebugEntry, "\tOutput: Returned SSRC : %d\n", static_cast<int32_t>(*ssrc));
    return RTSP_SUCCESS;
}

int32_t RTSPClientGetLastReply(intptr_t clientHandle, char *responseBuff, int32_t *responseSize) {
    const ClientTrace trace(__func__, clientHandle);
    if (clientHandle == 0 || responseSize == nullptr)
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");
    const RTSPClient *const client = LiveClient(clientHandle);
    if (client == nullptr) return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid client handle\n");
    if (client->lastReply == nullptr) return RTSP_FAILURE;

    const int32_t length = client->lastReply->length;
    const bool fits = responseBuff == nullptr || length <= *responseSize;
    *responseSize = length;
    if (!fits)
        return trace.Fail(RTSP_SMALL_BUFFER, "EXIT : %s :Small Buffer received from Application for Response\n");
    if (responseBuff != nullptr) memcpy(responseBuff, client->lastReply->data, static_cast<std::size_t>(length));
    return RTSP_SUCCESS;
}
