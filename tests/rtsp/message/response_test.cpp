#include "rtsp/client/client_record.h"
#include "rtsp/message/recv_buffer.h"
#include "rtsp/message/response.h"
#include "rtsp/message/response_parse.h"
#include "rtsp/message/response_read.h"
#include "tests/support/captured_stdout.h"

#include <gtest/gtest.h>

using namespace rtsptap;

namespace {

ResponseMsgPtr Parse(const std::string &text) {
    const RecvBufferPtr buffer(CreateRecvBuffer(static_cast<uint32_t>(text.size())));
    text.copy(buffer->data, text.size());
    buffer->length = static_cast<int32_t>(text.size());
    return ResponseMsgPtr(ClientParseMessage(buffer.get()));
}

// "version status reason cSeq [name=value]...", or what a refusal printed.
std::string Summary(const std::string &text) {
    CapturedStdout output;
    const ResponseMsgPtr response = Parse(text);
    if (!response) return output.Text();
    std::string summary = std::string(response->version) + " " + std::to_string(response->statusCode) + " " +
                          response->reasonPhrase + " " + std::to_string(response->cSeq);
    for (uint32_t i = 0; i < response->headerCount; ++i)
        summary +=
            std::string(" [") + response->headers[i].headerName + "=" + response->headers[i].headerValue + "]";
    return summary;
}

} // namespace

TEST(Response, IsReadLineByLineOrRefusedWithItsReason) {
    const std::string refused = "!!!ERROR!!! : \tEXIT : ClientParseMessage :";
    const std::string noVersion = refused + " RTSP version not found in response buffer\n";
    const std::string noNumber =
        "!!!ERROR!!! : EXIT : ClientParseMessage :Problem in converting Ascii to Integer value \n";
    const std::pair<std::string, std::string> cases[] = {
        {"RTSP/1.0 200 OK\r\nCSeq: 3\r\nPublic: OPTIONS, DESCRIBE\r\n\r\n",
         "RTSP/1.0 200 OK 3 [CSeq=3] [Public=OPTIONS, DESCRIBE]"},
        {"\r\n\nHTTP 404 Not Found here", "HTTP 404 Not Found here 0"},
        {" 9x ", " 9  0"},
        {"RTSP/1.0  401  ", "RTSP/1.0 401 401   0"},
        {"RTSP/1.0 -1 \ncSeq: 0\nCSeq: 4294967297 x", "RTSP/1.0 -1  1 [cSeq=0] [CSeq=4294967297 x]"},
        // One character behind the colon is always skipped; nothing there is an empty value.
        {"R 1 a\nSession:abc\nX:  b \nY:\nZ: ", "R 1 a 0 [Session=bc] [X= b ] [Y=] [Z=]"},
        // Lines of a body are headers too; lines without a colon are none.
        {"R 1 a\nA: b\n\nv=0\r\na=rtpmap:96 H264/90000\r\n", "R 1 a 0 [A=b] [a=rtpmap=6 H264/90000]"},
        {std::string("R 1 a\nA: b\0c\nCSeq: 0", 20), "R 1 a 0 [A=b]"},
        {"\r\n\r\n\r\n", noVersion},
        {"RTSP/1.0\r\nA: b", noVersion},
        {"RTSP/1.00 200 OK", refused + " Invalid RTSP version found in response buffer\n"},
        {"RTSP/1.0 200\r\nA: b c", refused + " RTSP Status not found in response buffer\n"},
        {"RTSP/1.0 0 OK", noNumber},
        {"R 200 OK\nCSeq: 0", noNumber},
        {"R 200 OK\nCSeq: x1", noNumber},
        {"R 200 OK\nCSeq:", noNumber},
    };
    for (const auto &[text, summary] : cases) EXPECT_EQ(Summary(text), summary) << text;
}

TEST(Response, HeadersAreFoundIgnoringCaseTheFirstFirst) {
    const ResponseMsgPtr response = Parse("R 200 OK\nPublic: a\nPUBLIC: b\nPublicity: c");
    const CapturedStdout output;
    EXPECT_STREQ(GetResponseHeader(response.get(), "public"), "a");
    EXPECT_EQ(GetResponseHeader(response.get(), "Publi"), nullptr);
    EXPECT_EQ(GetResponseHeader(nullptr, "Public"), nullptr);
}

TEST(Response, AMissingSocketFailsAtOnce) {
    RTSPClient client;
    int32_t errCode = 7;
    CapturedStdout output;
    for (const int socket : {-1, 1 << 20}) {
        client.rtspSocket = socket;
        EXPECT_EQ(ClientReadMessage(&client, 100, &errCode), nullptr);
    }
    EXPECT_EQ(errCode, 7);
    const std::string failed = "!!!ERROR!!! : \tEXIT : ClientReadMessage :Socket select call failed\n";
    EXPECT_EQ(output.Text(), failed + failed);
}
