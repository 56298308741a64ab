#include "rtsp/client/protection.h"

#include "platform/text.h"
#include "rtp/protection.h"
#include "rtp/stream.h"
#include "rtsp/client/client.h"
#include "rtsp/client/exchange.h"
#include "rtsp/client/stream_sockets.h"
#include "sdp/media_formats.h"

#include <utility>

namespace rtsptap {
namespace {

bool IsFeedbackProfile(std::string_view profile) {
    return EqualIgnoringCase(profile.substr(profile.size() - 1), "F");
}

// Kept: a program of the base interface gets packets as they come.
int32_t DoWithout(const Exchange &exchange) {
    if (!exchange.client->isOpened && !exchange.setup->namesSession) return RTSP_SUCCESS;
    return exchange.trace.Fail(RTSPTAP_NO_PROTECTION,
                               "EXIT : %s :The stream is protected, and nothing is set that takes it off\n");
}

} // namespace

int32_t ChooseProtection(Exchange &exchange) {
    const RTSPStreamInfo &stream = *exchange.setup->stream;
    const char *const media = stream.sdpFieldList != nullptr ? stream.sdpFieldList->value : "";
    const std::string_view profile = ProfileOf(media);
    if (!IsProtected(profile)) return RTSP_SUCCESS;
    ProtectionMaker *const maker = exchange.client->media.protection;
    if (maker == nullptr) return DoWithout(exchange);
    const int32_t result = OpenProtection(*maker, stream, exchange.setup->protection);
    if (result == RTSP_NO_MEMORY) return exchange.trace.Fail(result, "EXIT : %s :Memory Allocation Failed\n");
    if (result != RTSP_SUCCESS)
        return exchange.trace.Fail(result, "EXIT : %s :The stream has no keys that can be used\n");
    exchange.setup->profile = IsFeedbackProfile(profile) ? "RTP/SAVPF" : "RTP/SAVP";
    return RTSP_SUCCESS;
}

namespace {

bool IsTable(const RTSPTapPacketProtection *table) {
    return table == nullptr ||
           (table->recordSize >= sizeof *table && table->open != nullptr && table->unprotectRtp != nullptr &&
            table->unprotectRtcp != nullptr && table->close != nullptr);
}

} // namespace
} // namespace rtsptap

using namespace rtsptap;

int32_t RTSPTapSetPacketProtection(intptr_t clientHandle, const RTSPTapPacketProtection *table, void *context) {
    const ClientTrace trace(__func__, clientHandle);
    RTSPClient *const client = LiveClient(clientHandle);
    if (client == nullptr || !IsTable(table))
        return trace.Fail(RTSP_INVALID_ARGUMENT, "EXIT : %s :Invalid input argument\n");
    if (client->connected == 1) return trace.Fail(RTSPTAP_TOO_LATE, "EXIT : %s :The client is connected\n");
    ProtectionMaker *const maker = table != nullptr ? ShareTable<ProtectionMaker>(*table, context) : nullptr;
    if (table != nullptr && maker == nullptr)
        return trace.Fail(RTSP_NO_MEMORY, "EXIT : %s :Memory Allocation Failed\n");
    DropTable(std::exchange(client->media.protection, maker));
    return RTSP_SUCCESS;
}
