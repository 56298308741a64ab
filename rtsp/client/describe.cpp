// DESCRIBE: fetches the description, in one piece or two, and hands it to the parser. Application thread.
#include "platform/text.h"
#include "rtp/interleaved/splitter.h"
#include "rtp/stream.h"
#include "rtsp/client/client.h"
#include "rtsp/client/exchange.h"
#include "rtsp/message/response.h"
#include "sdp/codec_config.h"
#include "sdp/sdp_parser.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace rtsptap {

// What the steps of one DESCRIBE share.
struct DescribeParts {
    HeapText part;                // the description as far as the first reply carried it
    int32_t partLength = 0;       // bytes
    int32_t bodyLength = 0;       // bytes behind the first reply's blank line
    int32_t firstReplyLength = 0; // bytes of the first reply in responseBuff
    std::size_t length = 0;       // bytes of the description as stored
};

namespace {

std::string_view BytesOf(const RecvBufferPtr &reply) {
    return reply == nullptr ? std::string_view()
                            : std::string_view(reply->data, static_cast<std::size_t>(reply->length));
}

// What the first reply carries of the description, from its first "v=0" on.
int32_t TakeSdpPart(Exchange &exchange) {
    const std::string_view text = BytesOf(exchange.reply);
    exchange.describe->bodyLength = static_cast<int32_t>(text.size() - std::min(HeadLength(text), text.size()));
    const std::size_t start = text.find("v=0");
    if (start == text.npos) return RTSP_SUCCESS;
    DebugPrint(kDebugEntry, "\tSDP received in the response string\n");
    exchange.describe->part = DuplicateText(text.substr(start));
    if (exchange.describe->part == nullptr)
        return exchange.trace.Fail(RTSP_NO_MEMORY, "EXIT : %s : Memory allocation failed for SDP data \n");
    exchange.describe->partLength = static_cast<int32_t>(text.size() - start);
    return RTSP_SUCCESS;
}

// The size that the caller's buffer has is looked at here, but written only at the end or when it is too small.
int32_t CopyFirstReply(Exchange &exchange) {
    int32_t *const size = exchange.arguments.responseSize;
    if (size == nullptr) return RTSP_SUCCESS;
    const int32_t capacity = *size;
    const int32_t result = CopyReply(exchange);
    if (result != RTSP_SUCCESS) return result;
    exchange.describe->firstReplyLength = *size;
    *size = capacity;
    return RTSP_SUCCESS;
}

// Kept: the state stands even when a later step fails.
int32_t EnterDescribed(Exchange &exchange) {
    DebugPrint(kDebugEntry, "\tSetting State of client to 'CLIENT_DESCRIBE_SENT_STATE' \n");
    KeepReply(*exchange.client, std::move(exchange.reply));
    return EnterState(exchange);
}

// What stands behind the headers of the first reply has the length that they announce, whatever it is, or all that
// came of a reply which ends where it says: nothing follows.
bool BodyIsWhole(const Exchange &exchange, int32_t contentLength) {
    const Dialect &dialect = exchange.client->media.dialect;
    const bool isWhole = contentLength <= exchange.describe->bodyLength;
    if (isWhole && dialect.Permits(Rule::kBodyWithoutVersion)) return true;
    return dialect.IsOn(Rule::kFramedReplies) && (isWhole || dialect.IsOn(Rule::kAnyBodyLength));
}

// The rest of the body is one more message, however long it is.
int32_t ReceiveSecondPart(Exchange &exchange) {
    int32_t contentLength = 0;
    if (const char *const value = GetResponseHeader(exchange.client->responseMsg, "Content-Length")) {
        contentLength = LeadingNumber(value);
        if (contentLength < 1 && !exchange.client->media.dialect.Permits(Rule::kAnyBodyLength))
            return exchange.trace.Fail(RTSP_BAD_NUMBER,
                                       "EXIT : %s :Problem in converting Ascii to Integer value of "
                                       "Content-Length invalid Content Length value\n");
    }
    if (contentLength <= exchange.describe->partLength || BodyIsWhole(exchange, contentLength)) return RTSP_SUCCESS;
    return ReceiveReply(exchange);
}

int32_t StoreDescription(Exchange &exchange) {
    const std::string_view second = BytesOf(exchange.reply);
    const auto first = static_cast<std::size_t>(exchange.describe->partLength);
    auto *const text = static_cast<char *>(calloc(first + second.size() + 1, 1));
    if (text == nullptr)
        return exchange.trace.Fail(RTSP_NO_MEMORY, "EXIT : %s : Memory allocation failed for SDP data \n");
    if (first > 0) memcpy(text, exchange.describe->part.get(), first);
    if (!second.empty()) memcpy(text + first, second.data(), second.size());
    free(exchange.client->receivedSDP);
    exchange.client->receivedSDP = text;
    exchange.describe->length = first + second.size();
    return RTSP_SUCCESS;
}

// A description in force stays and the next one is appended. One that ended with its session, or never had a
// stream, makes room: its lines answer no more queries.
void LeaveEndedDescription(RTSPClient &client) {
    if (client.media.streamCount != 0) return;
    RetireEndedStreams(client.media);
    ReleaseSdpFields(client.sdpFieldList);
}

// What control URLs belong to, by the first header that says so (RFC 2326, C.1.1); empty without one.
std::string_view ContentBase(const ResponseMsg &response) {
    for (const char *const name : {"Content-Base", "Content-Location"})
        for (uint32_t i = 0; i < response.headerCount; ++i)
            if (EqualIgnoringCase(response.headers[i].headerName, name) &&
                response.headers[i].headerValue != nullptr)
                return FirstWord(response.headers[i].headerValue);
    return {};
}

int32_t ParseDescription(Exchange &exchange) {
    DebugPrint(kDebugEntry, "\tParsing Received SDP by calling 'ParseReceivedSDP' function\n");
    LeaveEndedDescription(*exchange.client);
    // Kept: other failures of the parser are no failure here.
    RTSPClient &client = *exchange.client;
    const DescribedSession described{.session = client.media,
                                     .lines = client.sdpFieldList,
                                     .requestUrl = client.requestUrl,
                                     .path = client.sessionName,
                                     .isOpened = client.isOpened,
                                     .contentBase = ContentBase(*client.responseMsg),
                                     .aggregateUrl = client.aggregateUrl};
    if (ParseReceivedSDP({client.receivedSDP, exchange.describe->length}, described) == RTSP_FAILURE)
        return exchange.trace.Fail(RTSP_BAD_RESPONSE, "EXIT : %s : Problem occured while parsing SDP data \n");
    RtpRtspInfoPrint("SDP received from server and parsed successfully .... \n");
    return RTSP_SUCCESS;
}

// The second part goes behind the first reply. After a status other than 200 the first reply stands in for it.
int32_t DeliverSecondPart(Exchange &exchange) {
    const ExchangeArguments &to = exchange.arguments;
    if (to.responseSize == nullptr) return RTSP_SUCCESS;
    const std::string_view second = BytesOf(exchange.reply);
    const int32_t first = exchange.describe->firstReplyLength;
    const int32_t sum = first + static_cast<int32_t>(second.size());
    const bool fits = sum <= *to.responseSize;
    *to.responseSize = sum;
    if (!fits)
        return exchange.trace.Fail(RTSP_SMALL_BUFFER,
                                   "EXIT : %s :Small Buffer received from Application for Response \n");
    if (to.responseBuff != nullptr && !second.empty())
        memcpy(to.responseBuff + first, second.data(), second.size());
    return RTSP_SUCCESS;
}

constexpr Step kChecks[] = {CheckHandle, CheckConnected, CheckState, CheckHeaderList};
constexpr Step kSteps[] = {GenerateRequest,
                           SendRequest,
                           ReceiveReply,
                           AnswerChallenge,
                           TakeSdpPart,
                           ParseReply,
                           ClassifyStatus,
                           OnOk<CopyFirstReply>,
                           OnOk<EnterDescribed>,
                           OnOk<ReceiveSecondPart>,
                           OnOk<StoreDescription>,
                           OnOk<ParseDescription>,
                           DeliverSecondPart};

constexpr MethodDescriptor kDescribe{
    .functionName = "RTSPClientSendDescribeRequest",
    .method = RTSP_DESCRIBE,
    .allowedStates = States({CLIENT_INIT_STATE, CLIENT_OPTIONS_SENT_STATE}),
    .answersChallenge = true,
    .checks = kChecks,
    .steps = kSteps,
    .sending = "Client generating and sending DESCRIBE request message \n",
    .badState = "EXIT : %s :Client State is Not Valid for DESCRIBE Method.\n",
    .badHeaderList = "EXIT : %s :HeaderList of Describe method is not valid\n",
    .notGenerated = "EXIT : %s :Request Message for DESCRIBE not generated \n",
};

} // namespace
} // namespace rtsptap

using namespace rtsptap;

int32_t RTSPClientSendDescribeRequest(intptr_t clientHandle, intptr_t describeHeaderList, char *responseBuff,
                                      int32_t *responseSize) {
    DescribeParts parts;
    Exchange exchange(kDescribe, {.clientHandle = clientHandle,
                                  .headerList = describeHeaderList,
                                  .responseBuff = responseBuff,
                                  .responseSize = responseSize});
    exchange.describe = &parts;
    return RunExchange(exchange);
}
