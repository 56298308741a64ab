// A hostile reply to SETUP, through the whole method over UDP and over TCP. Input: a byte of settings, the reply.
#include "fuzz/fuzz_target.h"
#include "tests/support/described_client.h"

#include <sys/socket.h>
#include <unistd.h>

using namespace rtsptap;
using fuzz::Require;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    const uint8_t settings = input.U8();
    const std::string_view reply = input.Rest();
    int ends[2];
    Require(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
    {
        test::DescribedClient described("v=0\r\nm=video 0 RTP/AVP 96\r\nm=audio 0 RTP/AVP 0\r\n");
        RTSPClient &client = described.client;
        client.rtspSocket = ends[0];
        client.dataProto = settings & 1 ? DATA_PROTO_TCP : DATA_PROTO_UDP;
        client.state = CLIENT_DESCRIBE_SENT_STATE;
        if (!reply.empty()) Require(send(ends[1], reply.data(), reply.size(), 0) > 0);
        shutdown(ends[1], SHUT_WR);

        char copy[200];
        int32_t copySize = settings & 2 ? sizeof copy : 0;
        const int32_t number = settings & 4 ? 2 : 1;
        const int32_t result =
            RTSPClientSendSetupRequest(described.handle, number, 0, copy, settings & 8 ? &copySize : nullptr);
        const RTSPStreamInfo &stream = described.Stream(number);
        Require(result <= 0 && (result == 0 || stream.rtpSocket == -1));
        Require(client.dataProto == DATA_PROTO_TCP || result != 0 ||
                (stream.rtpSocket >= 0 && stream.rtcpSocket >= 0));
        Require(client.state == CLIENT_READY_STATE || client.state == CLIENT_DESCRIBE_SENT_STATE);
        Require(client.requestMsg == nullptr && client.responseMsg == nullptr && !client.awaitingReply);
    }
    close(ends[1]);
    return 0;
}
