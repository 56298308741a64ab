#include "rtp/interleaved/server_requests.h"

#include "platform/printers.h"
#include "rtp/interleaved/connection.h"
#include "rtp/interleaved/sending.h"
#include "rtp/interleaved/splitter.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace rtsptap {
namespace {

constexpr std::array<std::string_view, 3> kAnswered = {"OPTIONS", "GET_PARAMETER", "SET_PARAMETER"};
constexpr std::size_t kLongestValue = 255; // of what is sent back
constexpr uint32_t kAnswerBytes = 1024;

struct HeaderEcho {
    const char *begin;
    int length;
    const char *value;
    const char *end;
};

HeaderEcho Echo(const char *name, std::string_view value) {
    if (value.empty()) return {"", 0, "", ""};
    return {name, static_cast<int>(std::min(value.size(), kLongestValue)), value.data(), "\r\n"};
}

} // namespace

void AnswerRequest(Connection &connection, std::string_view text) {
    const ServerRequest request = ReadRequest(text);
    const bool isKnown = std::ranges::find(kAnswered, request.method) != kAnswered.end();
    const HeaderEcho cSeq = Echo("CSeq: ", request.cSeq);
    const HeaderEcho session = Echo("Session: ", request.session);
    RecvBufferPtr answer(CreateRecvBuffer(kAnswerBytes));
    if (answer == nullptr) return;
    answer->length =
        std::snprintf(answer->data, kAnswerBytes, "RTSP/1.0 %s\r\n%s%.*s%s%s%.*s%s%s\r\n",
                      isKnown ? "200 OK" : "501 Not Implemented", cSeq.begin, cSeq.length, cSeq.value, cSeq.end,
                      session.begin, session.length, session.value, session.end,
                      request.method == "OPTIONS" ? "Public: OPTIONS, GET_PARAMETER, SET_PARAMETER\r\n" : "");
    RtpRtspInfoPrint("RTSP ANSWERING: \n%s\n", answer->data);
    SendWithoutWaiting(connection, std::move(answer));
}

} // namespace rtsptap
