// Operations on a user's header list in any order, then the list validated and sent with a method. Input: the
// method, then operations, each one byte, the name's number another, and a value up to the next line end.
#include "fuzz/fuzz_target.h"
#include "rtsp/client/client.h"
#include "rtsp/client/exchange.h"
#include "rtsp/message/methods.h"

using namespace rtsptap;
using fuzz::Require;

// Sends the client's request to a server of our own and looks at its two ends.
static void SendAndCheck(RTSPClient &client) {
    static int ends[2] = {-1, -1};
    static char text[1 << 17];
    if (ends[0] < 0) Require(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
    client.media.connection.socket = ends[0];
    Require(SendRequestMessage(client.media.connection, client.requestMsg) == RTSP_SUCCESS);
    const ssize_t length = recv(ends[1], text, sizeof text, 0);
    Require(
        length > 0 &&
        fuzz::TextOf(reinterpret_cast<uint8_t *>(text), static_cast<std::size_t>(length)).ends_with("\r\n\r\n"));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const char *const kNames[] = {"Range", "Scale",     "CSeq",      "Session", "User-Agent", "Accept",
                                         "Param", "Bandwidth", "Transport", "Speed",   "X-Own",      "Blocksize"};
    fuzz::Input input(data, size);
    const uint32_t method = input.U8() % (kMethodNumbers + 1);
    const intptr_t list = RTSPCreateHeaderList();
    std::string_view rest = input.Rest();
    for (std::string_view line; NextLine(rest, line) && line.size() >= 2;) {
        const char *const name = kNames[static_cast<uint8_t>(line[1]) % std::size(kNames)];
        const std::string value(line.substr(2));
        if (line[0] % 4 == 0) RTSPRemoveHeaderFromList(list, name);
        if (line[0] % 4 == 1) RTSPModifyHeaderInList(list, name, value.c_str());
        if (line[0] % 4 > 1) RTSPAddHeaderToList(list, name, value.c_str(), line[0] % 4 == 2);
    }
    ValidateHeaderList(list, method);
    RTSPClient client{};
    const RequestMsgPtr request(GenerateRequestMessage(RequesterOf(client, 0), method, list, 0));
    Require((request != nullptr) == (FindMethod(method) != nullptr));
    Require(client.cSeq == (method < kMethodNumbers ? 1 : 0)); // Kept: one without a row has a number, too
    Require(GenerateRequestMessage(RequesterOf(client, 0), method, list, 1) == nullptr); // there is no stream
    for (const RTSPHeaderStruct *node = FirstHeader(list); node != nullptr; node = node->next)
        Require(node->isUsed == 0);
    client.requestMsg = request.get();
    if (request != nullptr) SendAndCheck(client);
    RTSPDestroyHeaderList(list);
    return 0;
}
