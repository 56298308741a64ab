// A reply as any server may send it, to each of the six methods over UDP and TCP: the result, the failure's text
// and the next state are what the rules of tests/hostile say. Input: a byte of settings, the reply. What is read
// among frames is left to the interleaved target.
#include "fuzz/fuzz_target.h"
#include "tests/hostile/reply_rules.h"
#include "tests/support/described_client.h"
#include "tests/support/methods.h"
#include "tests/support/scripted_server.h"

#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace rtsptap;
using fuzz::Require;

namespace {

// What the library has printed since the last time.
std::string Printed() {
    static const int file = dup2(memfd_create("printed", 0), STDOUT_FILENO);
    std::fflush(stdout);
    std::string text(static_cast<std::size_t>(lseek(file, 0, SEEK_CUR)), '\0');
    Require(pread(file, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
    Require(ftruncate(file, 0) == 0 && lseek(file, 0, SEEK_SET) == 0);
    return text;
}

// The rules say nothing about groups, and of descriptions only that good lines without a zero are good.
bool IsJudged(const test::Method &method, std::string_view reply, const test::Verdict &verdict) {
    if (method.from == CLIENT_DESCRIBE_SENT_STATE) return reply.find("destination") == reply.npos;
    if (method.from != CLIENT_OPTIONS_SENT_STATE || !verdict.moves) return true;
    const std::string_view body = reply.substr(std::min(reply.find("v=0"), reply.size()));
    return reply.find('\0') == reply.npos &&
           (body == test::kDescription ||
            (verdict.code == RTSP_NO_RESPONSE && std::string_view(test::kDescription).starts_with(body)));
}

void CheckSetup(const RTSPClient &client, const RTSPStreamInfo &stream, int32_t result) {
    Require(result <= 0 && (result == 0 || stream.rtpSocket == -1));
    Require(client.dataProto == DATA_PROTO_TCP || result != 0 || (stream.rtpSocket >= 0 && stream.rtcpSocket >= 0));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    const uint8_t settings = input.U8();
    const std::string_view reply = input.Rest();
    const test::Method &method = test::kMethods[((settings >> 4) + 2) % std::size(test::kMethods)];
    const bool isTcp = (settings & 1) && std::max(method.from, method.next) < CLIENT_PLAYING_STATE;
    int ends[2];
    Require(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
    {
        test::DescribedClient described("v=0\r\nm=video 0 RTP/AVP 96\r\nm=audio 0 RTP/AVP 0\r\n");
        RTSPClient &client = described.client;
        client.rtspSocket = ends[0];
        client.dataProto = isTcp ? DATA_PROTO_TCP : DATA_PROTO_UDP;
        client.state = method.from;
        CopyText(client.sessionId, "12345678");
        if (!reply.empty()) Require(send(ends[1], reply.data(), reply.size(), 0) > 0);
        shutdown(ends[1], SHUT_WR);

        char copy[200];
        int32_t copySize = settings & 2 ? sizeof copy : 0;
        Printed();
        const int32_t result = method.call(described.handle, 0, copy, settings & 8 ? &copySize : nullptr);
        const std::string printed = Printed();
        const auto &[code, text, moves] = test::Judge(method.name, std::string(reply));
        if (IsJudged(method, reply, {code, text, moves}) && result != RTSP_SMALL_BUFFER) {
            Require(result == code);
            Require(text.empty() || printed.find("EXIT : RTSPClientSend" + std::string(method.word) + "Request" +
                                                 text) != printed.npos);
            Require(client.state == (moves ? method.next : method.from));
        }
        if (method.from == CLIENT_DESCRIBE_SENT_STATE) CheckSetup(client, described.Stream(1), result);
        Require(client.requestMsg == nullptr && client.responseMsg == nullptr && !client.awaitingReply);
    }
    close(ends[1]);
    return 0;
}
