#include "rtsp/client/byte_stream.h"

#include "platform/printers.h"
#include "rtsp/client/client.h"
#include "rtsp/client/http_tunnel.h"
#include "rtsptap_extended.h"

#include <algorithm>
#include <utility>

namespace rtsptap {

void ReleaseStreamWays(StreamWays &ways) {
    DropTable(std::exchange(ways.chosen, nullptr));
    for (StreamMaker *&maker : ways.set) DropTable(std::exchange(maker, nullptr));
}

namespace {

void Choose(StreamWays &ways, StreamMaker *maker) {
    if (maker != nullptr) ++maker->uses;
    DropTable(std::exchange(ways.chosen, maker));
}

int HandshakeLimit(const RTSPClient &client) {
    const int64_t limitMs = client.connectLimitMs;
    return static_cast<int>(limitMs > 0 ? std::min(limitMs, client.replyLimitMs) : client.replyLimitMs);
}

void KeepFailure(StreamWays &ways, const char *text) {
    if (*text != '\0') CopyText(ways.failure, text);
}

} // namespace

int32_t ChooseStream(const CallTrace &trace, RTSPClient &client, const StreamPlan &plan) {
    StreamWays &ways = client.streams;
    const bool isTunnelled = plan.isTunnelled || ways.throughHttp;
    ways.failure[0] = '\0';
    ways.keepsToTcp = plan.isSecure || isTunnelled;
    StreamMaker *const below = ways.set[plan.isSecure ? RTSPTAP_STREAM_OF_RTSPS : RTSPTAP_STREAM_OF_RTSP];
    if (plan.isSecure && below == nullptr)
        return trace.Fail(RTSPTAP_NO_TLS, "EXIT : %s :Nothing is set that makes connections through TLS\n");
    CopyText(ways.host, plan.host);
    if (!isTunnelled) {
        Choose(ways, below);
        return RTSP_SUCCESS;
    }
    StreamMaker *const tunnel = MakeTunnelMaker(below, plan.requestUrl, client.userAgent);
    if (tunnel == nullptr) return trace.Fail(RTSP_NO_MEMORY, "EXIT : %s :Memory Allocation Failed\n");
    Choose(ways, tunnel);
    DropTable(tunnel); // it has one use now
    return RTSP_SUCCESS;
}

int32_t OpenStream(const CallTrace &trace, RTSPClient &client, int32_t socket, ByteStreamPtr &stream) {
    StreamWays &ways = client.streams;
    if (ways.chosen == nullptr) return RTSP_SUCCESS;
    stream = OpenByteStream(*ways.chosen, socket, ways.host);
    if (!stream) return trace.Fail(RTSP_NO_MEMORY, "EXIT : %s :Memory Allocation Failed\n");
    const int32_t result = ShakeHands(*stream, HandshakeLimit(client));
    if (result == RTSP_SUCCESS) return RTSP_SUCCESS;
    KeepFailure(ways, FailureOf(*stream));
    RtpRtspErrorPrint("EXIT : %s :The handshake failed: %s\n", trace.Function(), ways.failure);
    stream.reset();
    return result;
}

void NoteStreamFailure(RTSPClient &client) {
    char(&failure)[256] = client.media.connection.streams.failure;
    KeepFailure(client.streams, failure);
    failure[0] = '\0';
}

bool KeepsToTcp(const RTSPClient &client) { return client.streams.keepsToTcp; }

namespace {

bool IsTable(const RTSPTapByteStream *table) {
    return table == nullptr || (table->recordSize >= sizeof *table && table->open != nullptr &&
                                table->read != nullptr && table->write != nullptr && table->close != nullptr);
}

} // namespace
} // namespace rtsptap

using namespace rtsptap;

int32_t RTSPTapSetByteStream(intptr_t clientHandle, int32_t use, const RTSPTapByteStream *table, void *context) {
    const ClientTrace trace(__func__, clientHandle);
    RTSPClient *const client = LiveClient(clientHandle);
    const bool isUse = use == RTSPTAP_STREAM_OF_RTSP || use == RTSPTAP_STREAM_OF_RTSPS;
    if (client == nullptr || !isUse || !IsTable(table))
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");
    if (client->connected == 1) return trace.Fail(RTSPTAP_TOO_LATE, "EXIT : %s :The client is connected\n");
    StreamMaker *const maker = table != nullptr ? ShareTable<StreamMaker>(*table, context) : nullptr;
    if (table != nullptr && maker == nullptr)
        return trace.Fail(RTSP_NO_MEMORY, "EXIT : %s :Memory Allocation Failed\n");
    DropTable(std::exchange(client->streams.set[static_cast<std::size_t>(use)], maker));
    return RTSP_SUCCESS;
}
