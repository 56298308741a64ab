// A connected client whose session description has been parsed, without a server.
#pragma once

#include "platform/text.h"
#include "rtp/stream.h"
#include "rtsp/client/client.h"
#include "sdp/sdp_parser.h"

#include <span>
#include <vector>

namespace rtsptap::test {

struct Reading {
    RTSPTapDialect dialect = RTSPTAP_DIALECT_EXACT;
    Rule without = kNoRule; // of its rules
    std::string_view contentBase = {}, sessionName = "live";
    std::vector<Rule> with = {}; // rules beside those of the dialect
};

struct DescribedClient {
    explicit DescribedClient(std::string_view sdp, const Reading &as = {}) {
        client.media.dialect.Choose(as.dialect);
        if (as.without != kNoRule) client.media.dialect.Set(as.without, false);
        for (const Rule rule : as.with) client.media.dialect.Set(rule, true);
        CopyText(client.sessionName, as.sessionName);
        const std::string url = "rtsp://10.0.0.2:554/" + std::string(as.sessionName);
        client.connected = 1;
        client.receivedSDP = DuplicateText(sdp).release();
        result = ParseReceivedSDP({client.receivedSDP, sdp.size()},
                                  {client.media, client.sdpFieldList, url.c_str(), client.sessionName, false,
                                   as.contentBase, client.aggregateUrl});
    }
    ~DescribedClient() { RTSPClientDestroy(handle); }
    DescribedClient(DescribedClient &&) = delete; // nor copied

    RTSPStreamInfo &Stream(int32_t number) { return *FindStreamByNumber(client.media, number); }

    // As if a packet of stream 1 had come.
    void Search(std::span<const uint8_t> payload, RTPHeader header) {
        RTPStreamData packet = {};
        packet.rtpHeader = &header;
        packet.codecType = Stream(1).codecType;
        packet.payload = packet.packetData = const_cast<uint8_t *>(payload.data());
        packet.payloadLength = packet.packetLength = static_cast<uint32_t>(payload.size());
        SearchPacket(Stream(1), packet);
    }

    const intptr_t handle = RTSPClientCreate();
    RTSPClient &client = *reinterpret_cast<RTSPClient *>(handle);
    int32_t result = 0; // of ParseReceivedSDP
};

} // namespace rtsptap::test
